// Update packages by libarchive: a gzipped ustar archive whose script comes last,
// so that a board that got a part of it finds nothing to run.
#include "melk/make_update.h"

#include <archive.h>
#include <archive_entry.h>
#include <md5.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>

#include "melk/local_file.h"
#include "update_script.h"

namespace melk {

namespace {

namespace fs = std::filesystem;

constexpr char kProgram[] = "vantorig";
constexpr char kVersionFile[] = "version.ini";
constexpr int kVersionGroups = 3;
constexpr time_t kDate = 946684800;  // 2000-01-01: a board without a clock is not older
constexpr mode_t kPlain = 0644;
constexpr mode_t kRunnable = 0755;

struct File {
  std::string name;
  mode_t mode = kPlain;
  Bytes content;
};

// The script handles names as words, and uses some endings itself.
std::string problem_of_name(const std::string& name) {
  constexpr std::string_view kLetters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
  if (name.find_first_not_of(kLetters) != std::string::npos || name[0] == '-')
    return "only letters, digits, '.', '_' and '-' may stand in the name of a file";
  for (const char* ending : {".new", ".kept", ".previous"})
    if (name.ends_with(ending)) return std::string("the update itself uses names in ") + ending;
  if (name == "hd.ini") return "the service empties it when it starts: send it with send-config";
  return {};
}

// The board parses its version into three numbers of two digits at most.
std::string problem_of_version(const Bytes& content) {
  const std::string text(content.begin(), std::find(content.begin(), content.end(), '\n'));
  int groups = 1;
  std::size_t digits = 0;
  bool good = true;
  for (const char c : text) {
    if (c == '.') {
      good = good && digits > 0;
      ++groups;
      digits = 0;
    } else {
      good = good && c >= '0' && c <= '9';
      ++digits;
    }
    good = good && digits <= 2;
  }
  if (good && digits > 0 && groups == kVersionGroups) return {};
  return "'" + text + "' is no version such as 1.12.3: three numbers of two digits at most";
}

bool take_file(const fs::directory_entry& entry, std::vector<File>* files, std::string* problem) {
  File file;
  file.name = entry.path().filename();
  const auto refuse = [&](const std::string& why) {
    *problem = entry.path().string() + ": " + why;
    return false;
  };
  const std::string name_problem = problem_of_name(file.name);
  if (!name_problem.empty()) return refuse(name_problem);
  if (!entry.is_regular_file()) return refuse("only plain files can be installed");
  if (!read_whole_file(entry.path(), &file.content)) return refuse(strerror(errno));
  const bool runs = (entry.status().permissions() & fs::perms::owner_exec) != fs::perms::none;
  if (runs || file.name == kProgram) file.mode = kRunnable;
  if (file.name == kVersionFile) {
    const std::string version_problem = problem_of_version(file.content);
    if (!version_problem.empty()) return refuse(version_problem);
  }
  files->push_back(std::move(file));
  return true;
}

// The program first and its version last: a board that loses its power between
// two files does not claim a version that it has not got.
int rank(const File& file) { return file.name == kProgram ? 0 : file.name == kVersionFile ? 2 : 1; }

bool take_files(const std::string& directory, std::vector<File>* files, std::string* problem) {
  std::error_code error;
  fs::directory_iterator entries(directory, error);
  if (error) {
    *problem = directory + ": " + error.message();
    return false;
  }
  for (const fs::directory_entry& entry : entries)
    if (!take_file(entry, files, problem)) return false;
  std::ranges::sort(*files, [](const File& one, const File& other) {
    return std::pair(rank(one), one.name) < std::pair(rank(other), other.name);
  });
  if (!files->empty() && files->front().name == kProgram) return true;
  *problem = directory + ": there is no " + kProgram + " in it";
  return false;
}

std::string md5_of(const Bytes& content) {
  char text[MD5_DIGEST_STRING_LENGTH];
  return MD5Data(content.data(), content.size(), text);
}

// One line a file, as the script reads them: checksum, mode, name.
std::string list_of(const std::vector<File>& files) {
  std::string list;
  for (const File& file : files)
    list += md5_of(file.content) + (file.mode == kRunnable ? " 755 " : " 644 ") + file.name + "\n";
  return list;
}

Bytes bytes_of(const std::string& text) { return {text.begin(), text.end()}; }

// A gzipped ustar archive in memory, without anything of the machine or the hour.
class Archive {
 public:
  Archive() {
    archive_write_set_format_ustar(writer_.get());
    archive_write_add_filter_gzip(writer_.get());
    archive_write_set_options(writer_.get(), "gzip:!timestamp,gzip:compression-level=9");
    archive_write_set_bytes_in_last_block(writer_.get(), 1);  // nothing behind the gzip stream
    archive_write_open(writer_.get(), &bytes_, nullptr, append, nullptr);
  }

  bool add(const File& file) {
    const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                              archive_entry_free);
    const bool directory = file.name.ends_with('/');
    archive_entry_set_pathname(entry.get(), file.name.c_str());
    archive_entry_set_filetype(entry.get(), directory ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(entry.get(), file.mode);
    archive_entry_set_mtime(entry.get(), kDate, 0);
    archive_entry_set_uname(entry.get(), "root");
    archive_entry_set_gname(entry.get(), "root");
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(file.content.size()));
    return archive_write_header(writer_.get(), entry.get()) == ARCHIVE_OK &&
           archive_write_data(writer_.get(), file.content.data(), file.content.size()) ==
               static_cast<la_ssize_t>(file.content.size());
  }

  // All bytes; empty when something went wrong.
  Bytes finish() {
    if (archive_write_close(writer_.get()) != ARCHIVE_OK) bytes_.clear();
    return std::move(bytes_);
  }

  std::string problem() const {
    const char* text = archive_error_string(writer_.get());
    return text != nullptr ? text : "out of memory";
  }

 private:
  static la_ssize_t append(archive*, void* bytes, const void* block, std::size_t size) {
    const auto* first = static_cast<const std::uint8_t*>(block);
    static_cast<Bytes*>(bytes)->insert(static_cast<Bytes*>(bytes)->end(), first, first + size);
    return static_cast<la_ssize_t>(size);
  }

  Bytes bytes_;
  std::unique_ptr<archive, decltype(&archive_write_free)> writer_{archive_write_new(),
                                                                  archive_write_free};
};

}  // namespace

std::optional<UpdatePackage> make_update(const std::string& directory, std::string* problem) {
  std::vector<File> files;
  if (!take_files(directory, &files, problem)) return std::nullopt;
  UpdatePackage package;
  for (const File& file : files) package.files.push_back(file.name);

  const std::string list = list_of(files);
  std::vector<File> members = {{"new/", kRunnable, {}}};
  for (File& file : files)
    members.push_back({"new/" + file.name, file.mode, std::move(file.content)});
  members.push_back({"update.list", kPlain, bytes_of(list)});
  members.push_back({"update.sh", kRunnable, bytes_of(kUpdateScript)});
  Archive archive;
  const bool packed =
      std::ranges::all_of(members, [&archive](const File& one) { return archive.add(one); });
  if (packed) package.archive = archive.finish();
  if (package.archive.empty()) {
    *problem = "cannot pack: " + archive.problem();
    return std::nullopt;
  }
  if (package.archive.size() > kLargestUpdate) {
    *problem = "the package would have " + std::to_string(package.archive.size()) +
               " bytes; the board takes " + std::to_string(kLargestUpdate) + " at most";
    return std::nullopt;
  }
  return package;
}

}  // namespace melk
