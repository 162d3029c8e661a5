// The caught calls; see the header.
#include "tests/melk/fake_spidev.h"

#include <linux/spi/spidev.h>
#include <sys/file.h>
#include <sys/types.h>
#include <time.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "vboard/core/board.h"
#include "vboard/core/clock.h"
#include "vboard/models/bus.h"

namespace {

constexpr char kPath[] = "/dev/spidev0.0";
constexpr int kDescriptor = 7777;  // of no file of this process

FakeSpidev* present = nullptr;
std::uint8_t last_byte = 0;

int refuse(int error) {
  errno = error;
  return -1;
}

template <class T>
T bytes_at(std::uint64_t address) {
  return reinterpret_cast<T>(static_cast<std::uintptr_t>(address));
}

std::uint8_t idle_level() {
  switch (present->idle) {
    case IdleWire::kLow:
      return 0x00;
    case IdleWire::kHigh:
      return 0xFF;
    case IdleWire::kLastByte:
      break;
  }
  return last_byte;
}

int exchange(const spi_ioc_transfer& one) {
  if (present->transfer_error != 0) return refuse(present->transfer_error);
  const std::uint8_t out = *bytes_at<const std::uint8_t*>(one.tx_buf);
  std::uint8_t in = 0;
  {
    vboard::Board& board = vboard::board_of_process();
    const vboard::Locked hold(board);
    if (!vboard::link_host_transfer(board, out, &in)) in = idle_level();
  }
  last_byte = in;
  *bytes_at<std::uint8_t*>(one.rx_buf) = in;
  present->transfers.push_back(
      {vboard::board_now_us(), out, in, one.len, one.speed_hz, one.bits_per_word});
  return static_cast<int>(one.len);
}

int request(unsigned long number, void* argument) {
  if (!present->is_spi) return refuse(ENOTTY);
  switch (number) {
    case SPI_IOC_RD_MODE:
      *static_cast<std::uint8_t*>(argument) = 0;
      return 0;
    case SPI_IOC_WR_MODE:
      present->mode = *static_cast<std::uint8_t*>(argument);
      return present->mode < present->most_modes ? 0 : refuse(EINVAL);
    case SPI_IOC_WR_BITS_PER_WORD:
      present->bits = *static_cast<std::uint8_t*>(argument);
      return 0;
    case SPI_IOC_WR_MAX_SPEED_HZ:
      present->speed_hz = *static_cast<std::uint32_t*>(argument);
      return present->speed_hz <= present->highest_hz ? 0 : refuse(EINVAL);
    case SPI_IOC_MESSAGE(1):
      return exchange(*static_cast<spi_ioc_transfer*>(argument));
    default:
      return refuse(ENOTTY);
  }
}

}  // namespace

FakeSpidev::FakeSpidev() { present = this; }
FakeSpidev::~FakeSpidev() { present = nullptr; }

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
int __real_ioctl(int fd, unsigned long number, ...);
int __real_flock(int fd, int operation);
int __real_nanosleep(const timespec* wanted, timespec* left);
int __real_clock_gettime(clockid_t clock, timespec* now);

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = va_arg(arguments, mode_t);
  va_end(arguments);
  if (present == nullptr || strcmp(path, kPath) != 0) return __real_open(path, flags, mode);
  if (present->open_error != 0) return refuse(present->open_error);
  ++present->open_count;
  return kDescriptor;
}

int __wrap_close(int fd) {
  if (present == nullptr || fd != kDescriptor) return __real_close(fd);
  --present->open_count;
  return 0;
}

int __wrap_ioctl(int fd, unsigned long number, ...) {
  va_list arguments;
  va_start(arguments, number);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (present == nullptr || fd != kDescriptor) return __real_ioctl(fd, number, argument);
  return request(number, argument);
}

int __wrap_flock(int fd, int operation) {
  if (present == nullptr || fd != kDescriptor) return __real_flock(fd, operation);
  present->locks += operation == LOCK_EX ? 1 : -1;
  return 0;
}

int __wrap_nanosleep(const timespec* wanted, timespec* left) {
  if (present == nullptr) return __real_nanosleep(wanted, left);
  vboard::board_wait(vboard::WaitFor::kNothing,
                     static_cast<std::int64_t>(wanted->tv_sec) * 1000000 + wanted->tv_nsec / 1000);
  return 0;
}

int __wrap_clock_gettime(clockid_t clock, timespec* now) {
  if (present == nullptr) return __real_clock_gettime(clock, now);
  const std::int64_t us = vboard::board_now_us();
  *now = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
  return 0;
}

}  // extern "C"
