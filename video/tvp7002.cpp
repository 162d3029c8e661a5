// Owns the TVP7002: its set-up per input and standard, and its sync status.
#include "video/tvp7002.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <span>

#include "hw/i2capi.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "video/capture.h"

enum Tvp7002Register : int {
  kPllDivideMsb = 0x01,
  kPllDivideLsb = 0x02,
  kPllControl = 0x03,
  kPhase = 0x04,
  kClampStart = 0x05,
  kPllPreCoast = 0x12,
  kPllPostCoast = 0x13,
  kOutputFormat = 0x15,
  kInputMux2 = 0x1A,
  kAlcStatus1 = 0x24,
  kAlcStatus2 = 0x27,
  kRgbControl = 0x34,
};

// Input multiplexer settings.
static constexpr std::uint8_t kMux2Component = 0x6F;
static constexpr std::uint8_t kMux2Rgb = 0x6A;
static constexpr std::uint8_t kRgbControlValue = 0x13;
static constexpr useconds_t kMuxSettle_us = 100;

// Bits of the sync status register.
static constexpr int kComponentSync = 0x42;  // both set: component sync is good
static constexpr int kRgbNoSync = 0x0D;      // all set: no RGB sync

static constexpr char kNoBus[] = "Cannot access I2C device 7002";  // of the monitors

static constexpr int kNotOpened = -1;
static constexpr int kReadFailed = -2;

// RGB set-up by video standard, in the order it is written: the set-up of this board.
// Registers as in the data sheet of the TVP7002 (Texas Instruments).
static constexpr RegisterValue kStandard7[] = {
    {0x01, 0x42}, {0x02, 0x00}, {0x03, 0x58}, {0x07, 0x80}, {0x0E, 0x24},
    {0x2C, 0x50}, {0x40, 0xE2}, {0x41, 0x00}, {0x42, 0x02}, {0x43, 0x04},
    {0x44, 0x01}, {0x45, 0x01}, {0x46, 0x1C}, {0x47, 0x1C},
};

static constexpr RegisterValue kStandard8[] = {
    {0x01, 0x67}, {0x02, 0x20}, {0x03, 0xA0}, {0x05, 0x32}, {0x06, 0x20}, {0x3F, 0x01},
    {0x40, 0x20}, {0x41, 0x01}, {0x42, 0x30}, {0x43, 0x06}, {0x44, 0x05}, {0x45, 0x05},
};

static constexpr RegisterValue kStandard9[] = {
    {0x01, 0x54}, {0x02, 0x00}, {0x03, 0x58}, {0x05, 0x06}, {0x06, 0x10}, {0x3F, 0x01},
    {0x40, 0x06}, {0x41, 0x01}, {0x42, 0x06}, {0x43, 0x05}, {0x44, 0x05}, {0x45, 0x05},
};

static constexpr RegisterValue kStandard10[] = {
    {0x01, 0x69}, {0x02, 0x80}, {0x03, 0xA0}, {0x05, 0x06}, {0x06, 0x10}, {0x3F, 0x01},
    {0x40, 0x06}, {0x41, 0x01}, {0x42, 0x0A}, {0x43, 0x06}, {0x44, 0x05}, {0x45, 0x05},
};

static constexpr RegisterValue kStandard25[] = {
    {0x01, 0x61}, {0x02, 0x80}, {0x03, 0xA0}, {0x07, 0x20}, {0x0E, 0x20},
    {0x2C, 0x50}, {0x40, 0x7A}, {0x41, 0x00}, {0x42, 0xF2}, {0x43, 0x05},
    {0x44, 0x03}, {0x45, 0x03}, {0x46, 0x1E}, {0x47, 0x1E},
};

static constexpr RegisterValue kStandard30[] = {
    {0x01, 0x70}, {0x02, 0x00}, {0x03, 0x98}, {0x07, 0x8F}, {0x0E, 0x24},
    {0x2C, 0x50}, {0x40, 0x6E}, {0x41, 0x01}, {0x42, 0xC4}, {0x43, 0x06},
    {0x44, 0x03}, {0x45, 0x03}, {0x46, 0x1E}, {0x47, 0x1E},
};

static constexpr RegisterValue kStandard35[] = {
    {0x01, 0x89}, {0x02, 0x80}, {0x03, 0xE0}, {0x07, 0x2C}, {0x0E, 0x24},
    {0x2C, 0x80}, {0x40, 0xCA}, {0x41, 0x00}, {0x42, 0x4A}, {0x43, 0x08},
    {0x44, 0x04}, {0x45, 0x04}, {0x46, 0x2D}, {0x47, 0x2D},
};

static constexpr RegisterValue kStandard40[] = {
    {0x01, 0x32}, {0x02, 0x00}, {0x03, 0x20}, {0x07, 0x60}, {0x0E, 0x00},
    {0x2C, 0x50}, {0x40, 0x92}, {0x41, 0x00}, {0x42, 0x12}, {0x43, 0x03},
    {0x44, 0x12}, {0x45, 0x12}, {0x46, 0x2D}, {0x47, 0x2D},
};

// RGB set-up common to all standards.
static constexpr RegisterValue kRgbCommon[] = {
    {0x04, 0x80}, {0x05, 0x06}, {0x06, 0x10}, {0x08, 0x3C}, {0x09, 0x3C}, {0x0A, 0x3C},
    {0x0F, 0x2E}, {0x10, 0x58}, {0x11, 0x40}, {0x12, 0x01}, {0x13, 0x00}, {0x15, 0x04},
    {0x17, 0x00}, {0x18, 0x01}, {0x19, 0xAA}, {0x1A, 0x6A}, {0x21, 0x0D}, {0x22, 0x00},
    {0x26, 0x80}, {0x28, 0x53}, {0x29, 0x08}, {0x2A, 0x07}, {0x2B, 0x00}, {0x31, 0x18},
    {0x35, 0x00}, {0x36, 0x00}, {0x3D, 0x06},
};

struct RgbStandard {
  int video_std;
  const char* message;  // null: none
  std::span<const RegisterValue> values;
};

static constexpr RgbStandard kRgbStandards[] = {
    {7, "Set Video Input To 600-800 RGB", kStandard7},
    {8, "Set Video Input To 720 RGB", kStandard8},
    {9, "Set Video Input To 1024 RGB", kStandard9},
    {10, "Set Video Input To 1280 RGB", kStandard10},
    {25, nullptr, kStandard25},
    {30, nullptr, kStandard30},
    {35, nullptr, kStandard35},
    {40, nullptr, kStandard40},
};

static int read_chip(int fd, int reg) { return read_register(fd, kTvp7002Address, reg); }

static void write_chip(int fd, int reg, int value) {
  i2c_writebyte(fd, kTvp7002Address, reg, value);
}

static void select_input(int fd, int mux1, int mux2) {
  write_chip(fd, kTvp7002InputMux1, mux1);
  usleep(kMuxSettle_us);
  printf("read reg 19 %x \n", read_chip(fd, kTvp7002InputMux1));
  write_chip(fd, kInputMux2, mux2);
  usleep(kMuxSettle_us);
  printf("read reg 1A %x \n", read_chip(fd, kInputMux2));
}

static void init_component(int fd) {
  select_input(fd, kTvp7002Mux1Component, kMux2Component);
  printf("-- reg 14 %x \n", read_chip(fd, kTvp7002SyncStatus));
  printf("-- reg 15 %x \n", read_chip(fd, kOutputFormat));
}

static void write_rgb_standard(int fd, int video_std) {
  for (const RgbStandard& standard : kRgbStandards) {
    if (standard.video_std != video_std) continue;
    if (standard.message != nullptr) puts(standard.message);
    write_registers(fd, kTvp7002Address, standard.values);
  }
}

static void print_rgb_readback(int fd) {
  printf("reg 01 %x \n", read_chip(fd, kPllDivideMsb));
  printf("reg 02 %x \n", read_chip(fd, kPllDivideLsb));
  printf("reg 03 %x \n", read_chip(fd, kPllControl));
  printf("reg 04 %x \n", read_chip(fd, kPhase));
  printf("reg 012 %x \n", read_chip(fd, kPllPreCoast));
  printf("reg 013 %x \n", read_chip(fd, kPllPostCoast));
  printf("reg 34 %x \n", read_chip(fd, kRgbControl));
}

static void init_rgb(int fd) {
  const int video_std = shared_get(&SharedBlock::videoStd);
  write_rgb_standard(fd, video_std);
  printf("Set Video Input To RGB std %d\n", video_std);
  write_chip(fd, kRgbControl, kRgbControlValue);
  print_rgb_readback(fd);
  puts("Set Video Input To all config CH 3 RGB Input");
  select_input(fd, kTvp7002Mux1Rgb, kMux2Rgb);
  write_registers(fd, kTvp7002Address, kRgbCommon);
}

static bool sync_is_good(int sync_status) {
  if (shared_get(&SharedBlock::input_channel) == kChannelRgb) {
    return (sync_status & kRgbNoSync) != kRgbNoSync;
  }
  return (sync_status & kComponentSync) == kComponentSync;
}

// Reads the four monitor registers, of which only the sync status is judged.
// Returns it, or kReadFailed.
static int read_monitor_registers(int fd) {
  std::uint8_t byte = 0;
  std::uint8_t sync_status = 0;
  if (i2c_readbyte(fd, kTvp7002Address, kClampStart, &byte) < 0) {
    puts("Error i2c readbyte 7002 0x05");
    return kReadFailed;
  }
  if (i2c_readbyte(fd, kTvp7002Address, kTvp7002SyncStatus, &sync_status) < 0 ||
      i2c_readbyte(fd, kTvp7002Address, kAlcStatus1, &byte) < 0 ||
      i2c_readbyte(fd, kTvp7002Address, kAlcStatus2, &byte) < 0) {
    puts("Error i2c_readbyte -7002");
    return kReadFailed;
  }
  return sync_status;
}

int Init7002(int channel) {
  SetInputMuxCH = channel == kChannelRgb ? kChannelRgb : kChannelComponent;
  const int fd = open_i2c("Cannot access I2C device - Brightness");
  if (fd < 0) return kNotOpened;
  if (channel == kChannelRgb) {
    init_rgb(fd);
  } else {
    init_component(fd);
  }
  return 0;  // the descriptor stays open: each set-up keeps one
}

int video_monitor_7002(int mode) {
  const int fd = open_i2c(kNoBus);
  if (fd < 0) return kNotOpened;
  const int sync_status = read_monitor_registers(fd);
  close_i2c(fd);
  if (sync_status < 0) return sync_status;

  const bool good = sync_is_good(sync_status);
  if (mode == 0) return good ? 2 : 0;
  if (good) return 0;
  shared_set(&SharedBlock::do_fpga_restart, 1);
  return 1;
}

int check_alc_green() {
  const int fd = open_i2c(kNoBus);
  if (fd < 0) return kNotOpened;
  std::uint8_t a = 0;
  std::uint8_t b = 0;
  const bool failed = i2c_readbyte(fd, kTvp7002Address, kAlcStatus1, &a) < 0 ||
                      i2c_readbyte(fd, kTvp7002Address, kAlcStatus2, &b) < 0;
  close_i2c(fd);
  if (failed) {
    puts("Error i2c_readbyte -7002");
    return kReadFailed;
  }
  return a | ((b >> 2) & 3);
}
