// Bench of the capture device: the driver's private registers and the crop.
#include "diag/capture_bench.h"

#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <cstdio>

#include "config/numbers.h"
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

static void print_crop(const v4l2_cropcap& crop) {
  const v4l2_rect& bounds = crop.bounds;
  const v4l2_rect& def = crop.defrect;
  printf("Default crop capbility bounds - %d %d %d %d ; default - %d %d %d %d \n", bounds.left,
         bounds.top, static_cast<int>(bounds.width), static_cast<int>(bounds.height), def.left,
         def.top, static_cast<int>(def.width), static_cast<int>(def.height));
}

int SetCropImeg() {
  constexpr int kCropTop = 100;
  static v4l2_cropcap crop;
  puts("test ioctl:VIDIOC_CROPCAP");
  const int fd = open_capture();
  crop.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (ioctl(fd, VIDIOC_CROPCAP, &crop) < 0) puts("InitDevice:ioctl:VIDIOC_CROPCAP");
  print_crop(crop);
  // The same record goes out as the crop to set: the driver takes its type and
  // the bounds behind it, the changed default is beyond what it reads.
  crop.defrect.top = kCropTop;
  if (ioctl(fd, VIDIOC_S_CROP, &crop) < 0) puts("InitDevice:ioctl:VIDIOC_CROPCAP");
  print_crop(crop);
  puts("set_data_format:setting data format");
  return close_capture(fd);
}

float expr_to_ipipe_float16(float x) {
  const std::int32_t whole = to_int_saturating(static_cast<double>(x) * 256.0);
  return static_cast<float>((whole >> 8) & 0xF);
}
