// Makes and maps boards.
#include "vboard/cli/board_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace vboard {

namespace fs = std::filesystem;

namespace {

constexpr int kFirmwareSize = 60000;
constexpr auto kExecutable = static_cast<fs::perms>(0111);

std::string firmware() {
  std::string bytes(kFirmwareSize, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 + 7);
  return bytes;
}

bool cannot_create(const fs::path& path, const std::string& why, std::string* problem) {
  *problem = "cannot create " + path.string() + ": " + why;
  return false;
}

// The file stands in its place whole, or not at all.
bool put(const fs::path& home, const Furnishing& one, std::string* problem) {
  const fs::path place = home / one.name;
  const fs::path made = place.string() + ".new";
  std::error_code error;
  if (fs::exists(place)) return true;
  errno = 0;
  std::ofstream out(made, std::ios::binary);
  out << one.content;
  out.close();
  if (!out) error = std::error_code(errno, std::generic_category());
  if (!error && one.executable) fs::permissions(made, kExecutable, fs::perm_options::add, error);
  if (!error) fs::rename(made, place, error);
  if (!error) return true;
  const std::string why = error.message();
  fs::remove(made, error);
  return cannot_create(place, why, problem);
}

// Held by the process that makes a board in this directory.
class Making {
 public:
  explicit Making(const fs::path& directory)
      : fd_(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (fd_ >= 0 && flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  ~Making() {
    if (fd_ >= 0) close(fd_);
  }
  Making(const Making&) = delete;
  Making& operator=(const Making&) = delete;

 private:
  int fd_;
};

}  // namespace

std::string read_file(const fs::path& path) {
  if (fs::is_directory(path)) return {};
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

fs::path helper(const std::string& name) {
  std::error_code ignored;
  const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  for (const fs::path& place : {here / name, here / "../lib/vboard" / name})
    if (fs::exists(place)) return fs::canonical(place);
  return {};
}

std::vector<Furnishing> furnishings(std::string* problem) {
  const fs::path script = helper("update.sh");
  if (script.empty()) {
    *problem = "update.sh is not beside this program";
    return {};
  }
  return {{"version.ini", "1.12.3\n", false},
          {"MELK_spi.bin", firmware(), false},
          {"update.sh", read_file(script), true}};
}

BoardDirectory::BoardDirectory(const fs::path& directory) : directory_(fs::absolute(directory)) {}

bool BoardDirectory::furnish(std::string* problem) const {
  const std::vector<Furnishing> all = furnishings(problem);
  if (all.empty()) return false;
  for (const Furnishing& one : all)
    if (!put(home(), one, problem)) return false;
  std::error_code error;
  const fs::path encode = home() / "encode";
  if (!fs::exists(fs::symlink_status(encode)))
    fs::create_symlink(helper("vboard-encode"), encode, error);
  return !error || cannot_create(encode, error.message(), problem);
}

bool BoardDirectory::prepare(std::string* problem) const {
  if (fs::exists(state_file())) return true;
  std::error_code error;
  fs::create_directories(home(), error);
  if (error) return cannot_create(home(), error.message(), problem);
  const Making alone(directory_);
  if (fs::exists(state_file())) return true;  // another made it meanwhile
  if (!furnish(problem)) return false;
  return make_board(state_file().c_str()) || cannot_create(state_file(), strerror(errno), problem);
}

Board* BoardDirectory::map(std::string* problem) const {
  Board* board = map_board(state_file().c_str());
  if (board == nullptr)
    *problem = "cannot use board state " + state_file().string() + ": " +
               (errno == EPROTO ? "it is of another version of vboard; remove the directory"
                                : strerror(errno));
  return board;
}

}  // namespace vboard
