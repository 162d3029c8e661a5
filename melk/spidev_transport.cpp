// Transfers, gaps and refusals of a spidev master.
#include "melk/spidev_transport.h"

#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace melk {

namespace {

constexpr std::uint8_t kBitsPerWord = 8;

SpidevTransport::Refusal refusal_of_open(const std::string& device, int error) {
  const std::string text = device + ": " + strerror(error);
  switch (error) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
      return {text,
              "ls /dev/spidev* shows what there is; without any, enable the SPI bus and load the "
              "driver spidev"};
    case EACCES:
    case EPERM:
      return {text, "run as a member of the group that owns the device (ls -l " + device +
                        "), or as root"};
    default:
      return {text, "another program may hold the device"};
  }
}

std::string refusal_of_setting(const SpidevOptions& options, const char* what, int error) {
  return options.device + ": refuses " + what + ": " + strerror(error);
}

}  // namespace

std::unique_ptr<SpidevTransport> SpidevTransport::open(const SpidevOptions& options,
                                                       Refusal* refusal) {
  const int fd = ::open(options.device.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    *refusal = refusal_of_open(options.device, errno);
    return nullptr;
  }
  std::unique_ptr<SpidevTransport> transport(new SpidevTransport(fd, options));
  std::uint8_t present = 0;
  if (ioctl(fd, SPI_IOC_RD_MODE, &present) != 0) {
    *refusal = {options.device + ": not an SPI device",
                "name a device of the driver spidev, as /dev/spidev0.0"};
    return nullptr;
  }
  std::uint8_t mode = options.mode;
  if (ioctl(fd, SPI_IOC_WR_MODE, &mode) != 0) {
    const std::string what = "mode " + std::to_string(mode);
    *refusal = {refusal_of_setting(options, what.c_str(), errno),
                "the controller cannot do this clock mode; the board expects 0 unless it is wired "
                "otherwise"};
    return nullptr;
  }
  std::uint8_t bits = kBitsPerWord;
  if (ioctl(fd, SPI_IOC_WR_BITS_PER_WORD, &bits) != 0) {
    *refusal = {refusal_of_setting(options, "8 bits a word", errno),
                "the link needs words of 8 bits; use another controller"};
    return nullptr;
  }
  std::uint32_t speed_hz = options.speed_hz;
  if (ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, &speed_hz) != 0) {
    const std::string what = std::to_string(speed_hz) + " Hz";
    *refusal = {refusal_of_setting(options, what.c_str(), errno), "try a lower --speed"};
    return nullptr;
  }
  return transport;
}

SpidevTransport::SpidevTransport(int fd, const SpidevOptions& options)
    : fd_(fd), options_(options) {}

SpidevTransport::~SpidevTransport() { ::close(fd_); }

// True for the byte that an answer was waited for; any other byte that comes in
// may be nothing but the level of the wire.
bool SpidevTransport::transfer(std::uint8_t out, std::uint8_t* in) {
  spi_ioc_transfer one = {};
  one.tx_buf = reinterpret_cast<std::uintptr_t>(&out);
  one.rx_buf = reinterpret_cast<std::uintptr_t>(in);
  one.len = 1;
  one.speed_hz = options_.speed_hz;
  one.bits_per_word = kBitsPerWord;
  if (gap_due_) leave_gap(options_.gap_ms, INT64_MAX);
  const bool wanted = answer_due_;
  answer_due_ = false;
  gap_due_ = true;
  if (ioctl(fd_, SPI_IOC_MESSAGE(1), &one) >= 0) return wanted;
  broken_ = options_.device + ": a transfer at " + std::to_string(options_.speed_hz) +
            " Hz failed: " + strerror(errno);
  return false;
}

bool SpidevTransport::wait_taken(std::int64_t us) { return leave_gap(options_.gap_ms, us); }

bool SpidevTransport::wait_data_taken(std::int64_t us) {
  return leave_gap(options_.data_gap_ms, us);
}

bool SpidevTransport::wait_answer(std::int64_t us) {
  answer_due_ = us > 0 && leave_gap(options_.gap_ms, us);
  return answer_due_;
}

bool SpidevTransport::leave_gap(double gap_ms, std::int64_t us) {
  if (!broken_.empty()) return false;
  gap_due_ = false;
  pause(std::min(static_cast<std::int64_t>(gap_ms * 1000), us));
  return true;
}

void SpidevTransport::pause(std::int64_t us) {
  if (us <= 0) return;
  timespec left = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

std::int64_t SpidevTransport::now_us() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void SpidevTransport::seize() {
  while (flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

void SpidevTransport::release() { flock(fd_, LOCK_UN); }

bool SpidevTransport::push_update(const std::uint8_t*, std::size_t, std::int64_t) { return false; }

}  // namespace melk
