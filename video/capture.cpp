// The capture device: opening it, its input, the detected standard, and the
// registers that move the picture.
#include "video/capture.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "hw/time_units.h"

struct StandardBit {
  int bit;  // in the 64-bit standard mask, 0 = least significant
  int number;
};

static constexpr StandardBit kStandardBits[] = {
    {48, 1},  {49, 2},  {50, 3},  {51, 4},  {52, 5},  {53, 6},  {55, 9},
    {56, 10}, {57, 11}, {58, 12}, {59, 13}, {60, 14}, {61, 15},
};

static constexpr useconds_t kQueryPause_us = 1;

static int standard_number(std::uint64_t mask) {
  for (const StandardBit& standard : kStandardBits) {
    if (mask == std::uint64_t{1} << standard.bit) return standard.number;
  }
  return 0;
}

int open_capture() {
  const int fd = open(kCaptureDevice, O_RDWR);
  if (fd < 0) puts("Cannot open video 0");
  return fd;
}

int close_capture(int fd) { return fd < 0 ? -1 : close(fd); }

int select_ipipe_register(int fd, std::int32_t reg) { return ioctl(fd, kCaptureIpipeSelect, &reg); }

int write_ipipe_register(int fd, std::int32_t value) {
  return ioctl(fd, kCaptureIpipeWrite, &value);
}

int SetInputMux(int channel) {
  const int fd = open_capture();
  int input = channel;
  const int rc = ioctl(fd, VIDIOC_S_INPUT, &input);
  printf("Set CH input to %d \n", channel);
  close_capture(fd);
  return rc;
}

int GetSTD() {
  const int fd = open_capture();
  v4l2_std_id mask = 0;
  const int rc = ioctl(fd, VIDIOC_QUERYSTD, &mask);
  usleep(kQueryPause_us);
  if (rc < 0) puts("        Cannot ioctl  VIDIOC_QUERYSTD");
  usleep(kSecond_us);
  const int number = rc < 0 ? 0 : standard_number(mask);
  close_capture(fd);
  return number;
}
