// Makes one device call a given number of times and prints the processor time of each, in
// nanoseconds: register reads on the FPGA, register reads on the I2C bus, waits.
//
//   device_calls fpga|i2c|wait TIMES [DEVICE]
//
// On the virtual board the models answer; elsewhere DEVICE is a placeholder such
// as /dev/null and the call only enters the kernel and comes back.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned long kReadRegister = 16;
constexpr int kVersionRegister = 0;
constexpr int kDigitizer = 0x5c;

double cpu_ns() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void read_fpga(int fd) {
  struct {
    std::int32_t index;
    std::uint16_t value;
    std::uint16_t padding;
  } record = {kVersionRegister, 0, 0};
  ioctl(fd, kReadRegister, &record);
}

void read_chip(int fd) {
  std::uint8_t reg = 0;
  std::uint8_t value = 0;
  i2c_msg messages[] = {{kDigitizer, 0, 1, &reg}, {kDigitizer, I2C_M_RD, 1, &value}};
  i2c_rdwr_ioctl_data list = {messages, 2};
  ioctl(fd, I2C_RDWR, &list);
}

void wait_a_moment(int) { usleep(1000); }

struct Call {
  const char* name;
  const char* device;
  void (*make)(int fd);
};
constexpr Call kCalls[] = {{"fpga", "/dev/fpga", read_fpga},
                           {"i2c", "/dev/i2c-1", read_chip},
                           {"wait", "/dev/null", wait_a_moment}};

}  // namespace

int main(int argc, char** argv) {
  for (const Call& call : kCalls) {
    if (argc < 3 || strcmp(argv[1], call.name) != 0) continue;
    const int fd = open(argc > 3 ? argv[3] : call.device, O_RDWR);
    if (fd < 0) {
      perror(call.device);
      return 1;
    }
    const int times = atoi(argv[2]);
    call.make(fd);
    const double began = cpu_ns();
    for (int i = 0; i < times; ++i) call.make(fd);
    printf("%.1f\n", (cpu_ns() - began) / times);
    return 0;
  }
  fputs("usage: device_calls fpga|i2c|wait TIMES [DEVICE]\n", stderr);
  return 2;
}
