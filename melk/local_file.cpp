// Reading and writing whole files.
#include "melk/local_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace melk {

bool read_whole_file(const std::string& path, Bytes* content) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  content->clear();
  std::uint8_t block[65536];
  ssize_t got = 0;
  while ((got = read(fd, block, sizeof block)) > 0)
    content->insert(content->end(), block, block + got);
  const int error = errno;
  close(fd);
  errno = error;
  return got == 0;
}

bool can_write_file(const std::string& path) {
  struct stat place = {};
  const bool there = stat(path.c_str(), &place) == 0;
  // Opening a pipe or a device is something that its other end notices.
  if (there && !S_ISREG(place.st_mode) && !S_ISDIR(place.st_mode))
    return access(path.c_str(), W_OK) == 0;
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  close(fd);
  if (!there) unlink(path.c_str());
  return true;
}

bool write_whole_file(const std::string& path, std::span<const std::uint8_t> content) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  std::size_t done = 0;
  while (done < content.size()) {
    const ssize_t put = write(fd, content.data() + done, content.size() - done);
    if (put <= 0) break;
    done += static_cast<std::size_t>(put);
  }
  const int error = errno;
  const bool closed = close(fd) == 0;
  if (done < content.size()) errno = error;
  return done == content.size() && closed;
}

}  // namespace melk
