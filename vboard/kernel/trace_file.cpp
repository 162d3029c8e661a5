// A call of a device is some ten thousand instructions of the emulated processor:
// lines are gathered, so that writing them does not cost as much again.
#include "vboard/kernel/trace_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>

#include "vboard/core/trace.h"

namespace vboard::kernel {

namespace {

constexpr std::size_t kGathered = 1 << 16;

std::mutex lock;
int fd = -1;
std::string gathered;

void write_out() {
  if (write(fd, gathered.data(), gathered.size()) != static_cast<ssize_t>(gathered.size()))
    perror("trace");
  gathered.clear();
}

void append(const char* clean) {
  std::lock_guard<std::mutex> hold(lock);
  gathered += clean;
  gathered += '\n';
  if (gathered.size() >= kGathered) write_out();
}

}  // namespace

bool open_trace(const std::string& path) {
  fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  set_trace_sink(append);
  return true;
}

void note_in_trace(const std::string& text) {
  std::lock_guard<std::mutex> hold(lock);
  gathered += text;
  write_out();
}

}  // namespace vboard::kernel
