// Placeholders, recorded answers and the C library's names; see the header.
#include "tests/bench/seam.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/ioctl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "hw/shared_memory_davinci.h"
#include "vboard/core/real.h"
#include "vboard/models/bus.h"

namespace bench {

namespace {

using vboard::Device;
namespace real = vboard::real;

enum class Mode { kThrough, kRecord, kRecorded, kAlways };

constexpr char kBoardHome[] = "/home/tovin";
constexpr std::size_t kBoardHomeLength = sizeof kBoardHome - 1;
constexpr std::size_t kDescriptors = 4096;

struct Stream {
  FILE* stream = nullptr;
  int fd = -1;
};

struct Seam {
  Mode mode = Mode::kThrough;
  vboard::Board* board = nullptr;
  std::string home;
  int link = -1;
  std::array<Device, kDescriptors> devices{};
  std::vector<Step> recording;
  const std::vector<Step>* answers = nullptr;
  std::size_t next = 0;
  std::int32_t word = 0;
  std::vector<Stream> open_streams;
  std::size_t staying = 0;            // of them, from the first
  std::vector<int> open_descriptors;  // those without a stream
};

Seam& seam() {
  static auto* one = new Seam;  // lives as long as the C library's names are called
  return *one;
}

SharedBlock block;

[[noreturn]] void strayed(const char* call) {
  fprintf(stderr, "bench: %s is not the next of the recorded calls\n", call);
  _exit(1);
}

Device device_of(const char* path) {
  if (strncmp(path, "/dev/", 5) != 0) return Device::kNone;
  const char* name = path + 5;
  if (strcmp(name, "fpga") == 0) return Device::kFpga;
  if (strcmp(name, "spislave") == 0) return Device::kSpiSlave;
  if (strcmp(name, "video0") == 0) return Device::kVideo0;
  if (strcmp(name, "i2c-1") == 0) return Device::kI2c;
  return Device::kNone;
}

Device device_at(int fd) {
  return fd >= 0 && static_cast<std::size_t>(fd) < kDescriptors
             ? seam().devices[static_cast<std::size_t>(fd)]
             : Device::kNone;
}

const Step& next_answer(Step::Kind kind, unsigned long number, const char* call) {
  Seam& one = seam();
  if (one.next >= one.answers->size()) strayed(call);
  const Step& step = (*one.answers)[one.next++];
  if (step.kind != kind || step.number != number) strayed(call);
  return step;
}

void keep(Step::Kind kind, int fd) {
  if (seam().mode == Mode::kRecord) {
    Step step;
    step.kind = kind;
    step.fd = fd;
    seam().recording.push_back(step);
  } else if (seam().mode == Mode::kRecorded) {
    next_answer(kind, 0, kind == Step::Kind::kOpen ? "open" : "close");
  }
}

int opened(int fd, Device device) {
  if (fd < 0) return fd;
  if (static_cast<std::size_t>(fd) >= kDescriptors) strayed("open");
  seam().devices[static_cast<std::size_t>(fd)] = device;
  keep(Step::Kind::kOpen, fd);
  return fd;
}

int open_placeholder(Device device) {
  const int fd = opened(real::open("/dev/null", O_RDWR), device);
  seam().open_descriptors.push_back(fd);
  return fd;
}

// The FPGA's configuration port gives back a chunk as soon as it is asked.
constexpr std::size_t kPortChunk = 16;

int fd_of(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t port_read(void* cookie, char* data, std::size_t size) {
  return real::read(fd_of(cookie), data, std::min(size, kPortChunk));
}
ssize_t port_write(void* cookie, const char* data, std::size_t size) {
  return real::write(fd_of(cookie), data, size);
}

int leave(int fd) {
  seam().devices[static_cast<std::size_t>(fd)] = Device::kNone;
  std::erase(seam().open_descriptors, fd);
  keep(Step::Kind::kClose, fd);
  return real::close(fd);
}
int port_close(void* cookie) { return leave(fd_of(cookie)); }

FILE* open_device_stream(Device device, const char* mode) {
  Seam& one = seam();
  if (device == Device::kSpiSlave && one.link >= 0) return fdopen(real::dup(one.link), mode);
  const int fd = opened(real::open("/dev/zero", O_RDWR), device);
  cookie_io_functions_t calls = {};
  calls.read = port_read;
  calls.write = port_write;
  calls.close = port_close;
  FILE* stream = fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)), mode, calls);
  one.open_streams.push_back({stream, fd});
  return stream;
}

FILE* open_stream(const char* path, const char* mode) {
  const Device device = device_of(path);
  if (device != Device::kNone && seam().mode != Mode::kThrough)
    return open_device_stream(device, mode);
  if (strncmp(path, kBoardHome, kBoardHomeLength) != 0) return real::fopen(path, mode);
  return real::fopen((seam().home + (path + kBoardHomeLength)).c_str(), mode);
}

int close_stream(FILE* stream) {
  std::erase_if(seam().open_streams, [=](const Stream& one) { return one.stream == stream; });
  return real::fclose(stream);
}

int descriptor(FILE* stream) {
  const std::vector<Stream>& streams = seam().open_streams;
  const auto one = std::find_if(streams.begin(), streams.end(),
                                [=](const Stream& each) { return each.stream == stream; });
  return one == streams.end() ? real::fileno(stream) : one->fd;
}

// ---- requests ---------------------------------------------------------------------

std::size_t record_size(Device device, unsigned long number) {
  if (device == Device::kVideo0) return _IOC_SIZE(number);
  if (device != Device::kFpga) return 0;
  return number == 15 || number == 16 ? 8 : number == 17 || number == 18 ? 0 : 4;
}

int ask_model(Device device, unsigned long number, void* argument) {
  vboard::Board& board = *seam().board;
  switch (device) {
    case Device::kFpga:
      return vboard::fpga_request(board, board.clock.now_us, number, argument);
    case Device::kVideo0:
      return vboard::capture_request(board, board.clock.now_us, number, argument);
    case Device::kI2c: {
      auto* list = static_cast<i2c_rdwr_ioctl_data*>(argument);
      return number == I2C_RDWR ? vboard::i2c_transfer(board, 1, list->msgs, list->nmsgs) : -1;
    }
    default:
      return -1;
  }
}

int record_request(int fd, Device device, unsigned long number, void* argument) {
  Step step;
  step.fd = fd;
  step.number = number;
  step.result = ask_model(device, number, argument);
  const auto* bytes = static_cast<const std::uint8_t*>(argument);
  step.record.assign(bytes, bytes + record_size(device, number));
  if (device == Device::kI2c) {
    const auto* list = static_cast<const i2c_rdwr_ioctl_data*>(argument);
    step.messages.assign(list->msgs, list->msgs + list->nmsgs);
    for (const i2c_msg& one : step.messages) step.wire.emplace_back(one.buf, one.buf + one.len);
  }
  seam().recording.push_back(std::move(step));
  return seam().recording.back().result;
}

int recorded_request(int fd, unsigned long number, void* argument) {
  real::ioctl(fd, number, argument);
  const Step& step = next_answer(Step::Kind::kRequest, number, "ioctl");
  if (!step.record.empty()) memcpy(argument, step.record.data(), step.record.size());
  for (std::size_t i = 0; i < step.messages.size(); ++i) {
    const i2c_msg& message = static_cast<i2c_rdwr_ioctl_data*>(argument)->msgs[i];
    if (message.len != step.wire[i].size()) strayed("I2C transfer");
    memcpy(message.buf, step.wire[i].data(), message.len);
  }
  return step.result;
}

int request(int fd, unsigned long number, void* argument) {
  const Device device = device_at(fd);
  switch (device == Device::kNone ? Mode::kThrough : seam().mode) {
    case Mode::kRecord:
      return record_request(fd, device, number, argument);
    case Mode::kRecorded:
      return recorded_request(fd, number, argument);
    case Mode::kAlways:
      real::ioctl(fd, number, argument);
      memcpy(argument, &seam().word, sizeof seam().word);
      return 0;
    case Mode::kThrough:
      break;
  }
  return real::ioctl(fd, number, argument);
}

}  // namespace

void use_home(const std::string& directory) { seam().home = directory; }
const std::string& home() { return seam().home; }
void use_link(int fd) { seam().link = fd; }

void record_on(vboard::Board& board) {
  seam().board = &board;
  seam().recording.clear();
  seam().mode = Mode::kRecord;
}

std::vector<Step> take_recording() {
  seam().mode = Mode::kThrough;
  return std::move(seam().recording);
}

void answer_from(const std::vector<Step>& steps) {
  seam().answers = &steps;
  seam().mode = Mode::kRecorded;
  rewind_answers();
}

void rewind_answers() { seam().next = 0; }

void answer_always(std::int32_t word) {
  seam().word = word;
  seam().mode = Mode::kAlways;
}

void keep_open() { seam().staying = seam().open_streams.size(); }

void close_left_open() {
  const Mode mode = seam().mode;
  seam().mode = Mode::kThrough;
  std::vector<Stream>& open = seam().open_streams;
  const auto first = open.begin() + static_cast<std::ptrdiff_t>(seam().staying);
  const std::vector<Stream> left(first, open.end());
  open.erase(first, open.end());
  for (const Stream& one : left) real::fclose(one.stream);
  while (!seam().open_descriptors.empty()) leave(seam().open_descriptors.back());
  seam().mode = mode;
}

}  // namespace bench

// ==== the C library's names; no logic from here on ===================================

extern "C" {

FILE* fopen(const char* path, const char* mode) { return bench::open_stream(path, mode); }
int fclose(FILE* stream) { return bench::close_stream(stream); }
int fileno(FILE* stream) __THROW { return bench::descriptor(stream); }

int open(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  const vboard::Device device = bench::device_of(path);
  return device != vboard::Device::kNone && bench::seam().mode != bench::Mode::kThrough
             ? bench::open_placeholder(device)
             : vboard::real::open(path, flags, mode);
}
int close(int fd) {
  return bench::device_at(fd) == vboard::Device::kNone ? vboard::real::close(fd) : bench::leave(fd);
}

int ioctl(int fd, unsigned long number, ...) __THROW {
  va_list list;
  va_start(list, number);
  void* argument = va_arg(list, void*);
  va_end(list);
  return bench::request(fd, number, argument);
}

int usleep(useconds_t microseconds) {
  if (bench::seam().board != nullptr) bench::seam().board->clock.now_us += microseconds;
  return 0;
}
int system(const char*) { return 0; }

int shmget(key_t, std::size_t, int) __THROW { return 1; }
void* shmat(int, const void*, int) __THROW { return &bench::block; }

}  // extern "C"
