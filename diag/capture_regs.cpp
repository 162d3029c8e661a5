// Register access through the capture driver's private requests.
#include "diag/capture_regs.h"

#include <sys/ioctl.h>

#include <cstdio>

#include "video/capture.h"

int ipiperw(std::int32_t reg, std::int32_t value, int select_only) {
  const int fd = open_capture();
  select_ipipe_register(fd, reg);
  if (select_only == 0) write_ipipe_register(fd, value);
  return close_capture(fd);
}

// The two requests of one register space.
struct RegisterSpace {
  const char* heading;
  CaptureRequest select;
  CaptureRequest write;
};
static constexpr RegisterSpace kIsif = {"reg util for ISIF ", kCaptureIsifSelect,
                                        kCaptureIsifWrite};
static constexpr RegisterSpace kIpipe = {"reg util for IPIPE ", kCaptureIpipeSelect,
                                         kCaptureIpipeWrite};

// Returns the descriptor, still open; -1 when the device did not open.
static int access_register(const RegisterSpace& space, int rw, int reg, int value) {
  puts(space.heading);
  const int fd = open_capture();
  std::int32_t word = reg;
  ioctl(fd, space.select, &word);
  if (rw == 0) {
    CaptureWrite pair = {value, reg};
    ioctl(fd, space.write, &pair);
  }
  return fd;
}

// The descriptor stays open: the command ends the program.
void isif_reg_util(int rw, int reg, int value) { access_register(kIsif, rw, reg, value); }

void ipipe_reg_util(int rw, int reg, int value) {
  close_capture(access_register(kIpipe, rw, reg, value));
}
