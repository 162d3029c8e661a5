// Line actions of the FPGA device, and lines of the kernel's sysfs GPIO.
#include "hw/gpio.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <tuple>

#include "hw/fpga.h"

static constexpr int kLongestRecord = 4;  // 32-bit words

int line_action(FILE* device, int line, std::int32_t word) {
  // A line action takes the one word. The operator may name any request of the
  // driver, and the register requests take more: the rest is room for them.
  std::int32_t words[kLongestRecord] = {word};
  const int result = ioctl(descriptor_of(device), static_cast<unsigned long>(line), words);
  if (result != 0) printf("Error %d in IOCTL - LED\n", result);
  return result;
}

int prog_gpio(int line) {
  printf("Start prog_gpio,input_data = %d\n", line);
  // The stream is never closed: every action keeps its own open handle.
  FILE* device = open_fpga_stream("Cannot access SPI port (/dev/fpga) - 1");
  if (device == nullptr) return 1;
  return line_action(device, line, 1) == 0 ? 0 : 2;
}

static constexpr int kValuePathSize = 61;  // 60 characters and the terminator
static constexpr int kValueTextSize = 2;   // the digit is written with its zero byte

int SetNewGpio(int gpio, int value) {
  char path[kValuePathSize];
  snprintf(path, sizeof path, "/sys/class/gpio/gpio%d/value", gpio);
  const int fd = open(path, O_WRONLY);
  if (fd < 0) printf("gpio canot work %d\n", gpio);
  // A write that fails, on a line that is not exported too, goes unnoticed.
  std::ignore = write(fd, value != 0 ? "1" : "0", kValueTextSize);
  printf("set gpio %d to val %d\n", gpio, value);
  return fd < 0 ? -1 : close(fd);
}
