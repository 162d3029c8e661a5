// Update packages as melk makes them: what is in them, that the same files give the
// same bytes, and what is refused. What a board does with one is tested with the
// real programs, in tests/command and tests/package.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "melk/commands.h"
#include "melk/make_update.h"
#include "tests/melk/outcome.h"

namespace {

namespace fs = std::filesystem;

// Files for a board, gone with the test.
class Directory {
 public:
  Directory() { EXPECT_NE(mkdtemp(path_.data()), nullptr); }
  ~Directory() { fs::remove_all(path_); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  std::string path() const { return path_; }
  std::string path(const std::string& name) const { return path() + "/" + name; }
  void put(const std::string& name, const std::string& content, mode_t mode = 0644) const {
    std::ofstream(path(name), std::ios::binary) << content;
    chmod(path(name).c_str(), mode);
  }

 private:
  std::string path_ = fs::temp_directory_path() / "make_update_XXXXXX";
};

std::string problem_with(const Directory& directory) {
  std::string problem = "(none)";
  const auto package = melk::make_update(directory.path(), &problem);
  return package ? "(made)" : problem;
}

// What a shell command prints that gets the package on its standard input.
std::string through(const melk::Bytes& package, const std::string& command) {
  const Directory place;
  std::ofstream(place.path("in"), std::ios::binary)
      .write(reinterpret_cast<const char*>(package.data()),
             static_cast<std::streamsize>(package.size()));
  const std::string line = command + " <" + place.path("in") + " >" + place.path("out") + " 2>&1";
  EXPECT_EQ(std::system(line.c_str()), 0) << line;
  std::ifstream out(place.path("out"), std::ios::binary);
  return {std::istreambuf_iterator<char>(out), {}};
}

melk::Bytes package_of(const Directory& directory) {
  std::string problem;
  const auto package = melk::make_update(directory.path(), &problem);
  EXPECT_TRUE(package) << problem;
  return package ? package->archive : melk::Bytes{};
}

std::string noise(std::size_t size) {
  std::mt19937 random(1);
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random());
  return text;
}

TEST(MakeUpdate, packs_program_first_version_then_list_and_script_last) {
  const Directory files;
  files.put("version.ini", "2.0.1\n");
  files.put("vantorig", "abc");
  files.put("encode", "", 0755);
  const auto list = through(package_of(files), "tar -tz");
  EXPECT_EQ(list, "new/\nnew/vantorig\nnew/encode\nnew/version.ini\nupdate.list\nupdate.sh\n");
}

// MD5 of "abc" and of nothing: the examples of RFC 1321.
TEST(MakeUpdate, lists_checksum_mode_and_name) {
  const Directory files;
  files.put("vantorig", "abc", 0600);
  files.put("MELK_spi.bin", "", 0600);
  files.put("tool", "abc", 0700);
  EXPECT_EQ(through(package_of(files), "tar -xzO update.list"),
            "900150983cd24fb0d6963f7d28e17f72 755 vantorig\n"
            "d41d8cd98f00b204e9800998ecf8427e 644 MELK_spi.bin\n"
            "900150983cd24fb0d6963f7d28e17f72 755 tool\n");
}

TEST(MakeUpdate, keeps_nothing_of_machine_and_hour) {
  const Directory one;
  const Directory other;
  one.put("vantorig", "abc", 0755);
  one.put("a", "1", 0600);
  one.put("b", "2", 0644);
  other.put("b", "2", 0666);  // in another order, with other modes and times
  other.put("a", "1", 0444);
  other.put("vantorig", "abc", 0700);
  utimbuf long_ago = {1000000, 1000000};
  utime(other.path("a").c_str(), &long_ago);
  EXPECT_EQ(package_of(one), package_of(other));
  const std::string listed = through(package_of(one), "TZ=UTC0 tar -tvz --full-time");
  EXPECT_NE(listed.find("-rw-r--r-- root/root         1 2000-01-01 00:00:00 new/a\n"),
            std::string::npos)
      << listed;
}

TEST(MakeUpdate, ends_with_the_gzip_stream) {
  const Directory files;
  files.put("vantorig", noise(1000));
  EXPECT_EQ(through(package_of(files), "gzip -t"), "");
}

// Random bytes do not shrink; what is around them takes below 3000 bytes.
TEST(MakeUpdate, knows_the_size_that_the_board_takes) {
  const Directory files;
  files.put("vantorig", noise(4990000));
  EXPECT_EQ(problem_with(files), "(made)");
  files.put("vantorig", noise(5000000));
  const std::string problem = problem_with(files);
  EXPECT_EQ(problem.rfind("the package would have 500", 0), 0u) << problem;
  EXPECT_NE(problem.find(" bytes; the board takes 5000000 at most"), std::string::npos) << problem;
}

TEST(MakeUpdate, refuses_a_directory_without_program) {
  const Directory files;
  EXPECT_EQ(problem_with(files), files.path() + ": there is no vantorig in it");
  files.put("encode", "abc");
  EXPECT_EQ(problem_with(files), files.path() + ": there is no vantorig in it");
}

TEST(MakeUpdate, refuses_a_directory_that_is_not_there) {
  std::string problem;
  EXPECT_FALSE(melk::make_update("/nowhere", &problem));
  EXPECT_EQ(problem, "/nowhere: No such file or directory");
}

TEST(MakeUpdate, refuses_what_is_no_plain_file) {
  const Directory files;
  files.put("vantorig", "abc");
  fs::create_directory(files.path("sub"));
  EXPECT_EQ(problem_with(files), files.path("sub") + ": only plain files can be installed");
}

TEST(MakeUpdate, refuses_names_that_the_script_cannot_handle) {
  const char* const kBad[] = {"a b", "-f", "a.new", "a.kept", "vantorig.previous", "x;y", "hd.ini"};
  for (const char* name : kBad) {
    const Directory files;
    files.put("vantorig", "abc");
    files.put(name, "abc");
    EXPECT_EQ(problem_with(files).rfind(files.path(name) + ": ", 0), 0u) << name;
  }
}

TEST(MakeUpdate, refuses_a_version_that_the_board_misreads) {
  struct Case {
    const char* text;
    bool good;
  };
  const Case kCases[] = {{"2.0.1\n", true}, {"2.0.1", true},     {"99.99.99\n", true},
                         {"", false},       {"2.0\n", false},    {"2.0.123\n", false},
                         {"2..1\n", false}, {"2.0.1a\n", false}, {"v2.0.1\n", false},
                         {"2.0.\n", false}, {"2.0.1.4\n", false}};
  for (const Case& one : kCases) {
    const Directory files;
    files.put("vantorig", "abc");
    files.put("version.ini", one.text);
    EXPECT_EQ(problem_with(files) == "(made)", one.good) << one.text;
  }
}

// ---- the command -----------------------------------------------------------------
class NoBoard : public melk::Transport {
 public:
  bool transfer(std::uint8_t, std::uint8_t*) override { return fail(); }
  bool wait_taken(std::int64_t) override { return fail(); }
  bool wait_answer(std::int64_t) override { return fail(); }
  void pause(std::int64_t) override { fail(); }
  std::int64_t now_us() override { return 0; }
  bool push_update(const std::uint8_t*, std::size_t, std::int64_t) override { return fail(); }

 private:
  static bool fail() {
    ADD_FAILURE() << "the board was talked to";
    return false;
  }
};

Outcome run(const std::vector<std::string>& words, const melk::Options& options) {
  NoBoard nobody;
  return ::run(nobody, words, options);
}

melk::Options packing() {
  melk::Options options;
  options.make_update = melk::make_update;
  return options;
}

TEST(MakeUpdateCommand, writes_the_package_and_says_what_is_in_it) {
  const Directory files;
  const Directory place;
  files.put("vantorig", "abc");
  files.put("version.ini", "2.0.1\n");
  const std::string file = place.path("p.tar.gz");
  const Outcome plain = run({"make-update", files.path(), "-o", file}, packing());
  const std::string size = std::to_string(package_of(files).size());
  EXPECT_EQ(plain.code, melk::kDone);
  EXPECT_EQ(plain.out, "made " + file + ", " + size + " bytes: vantorig, version.ini\n");
  EXPECT_EQ(std::to_string(fs::file_size(file)), size);
  const Outcome json = run({"make-update", files.path(), "-o", file, "--json"}, packing());
  EXPECT_EQ(json.out, R"({"command":"make-update","file":")" + file + R"(","bytes":)" + size +
                          R"(,"files":["vantorig","version.ini"],"exit":0})"
                          "\n");
}

TEST(MakeUpdateCommand, writes_nothing_when_it_refuses) {
  const Directory files;
  const Directory place;
  const std::string file = place.path("p.tar.gz");
  const Outcome outcome = run({"make-update", files.path(), "-o", file}, packing());
  EXPECT_EQ(outcome.code, melk::kLocalFile);
  EXPECT_EQ(outcome.err, "melk: make-update: " + files.path() + ": there is no vantorig in it\n");
  EXPECT_FALSE(fs::exists(file));
}

TEST(MakeUpdateCommand, names_the_file_that_it_cannot_write) {
  const Directory files;
  files.put("vantorig", "abc");
  const Outcome outcome = run({"make-update", files.path(), "-o", "/nowhere/p"}, packing());
  EXPECT_EQ(outcome.code, melk::kLocalFile);
  EXPECT_EQ(outcome.err,
            "melk: make-update: /nowhere/p: No such file or directory\n"
            "melk: hint: look at the name and at what you may read and write\n");
}

TEST(MakeUpdateCommand, wants_an_output) {
  EXPECT_EQ(run({"make-update", "/tmp"}, packing()).code, melk::kUsage);
}

// A scripted host talks to its board and makes no files.
TEST(MakeUpdateCommand, is_not_everywhere) {
  const Outcome outcome = run({"make-update", "/tmp", "-o", "/tmp/p"}, {});
  EXPECT_EQ(outcome.code, melk::kLocalFile);
  EXPECT_EQ(outcome.err, "melk: make-update: no packages are made here\n");
}

}  // namespace
