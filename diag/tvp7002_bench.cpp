// Bench of the TVP7002: register dump, blanking registers, sync and input status.
#include "diag/tvp7002_bench.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "hw/i2capi.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"
#include "state/service_flags.h"
#include "video/capture.h"
#include "video/tvp7002.h"

std::int32_t TestVBLK_F0 = 0;

static constexpr int kNotOpened = -1;
static constexpr int kReadFailed = -2;

// What the register utilities say without a bus; the access goes ahead and fails.
static constexpr char kNoBus[] = "Cannot access I2C device - Brightness";

enum Tvp7002BlankingRegister : int {
  kBlankingFirst = 0x40,  // 0x40 to 0x47: blanking and sync output
  kBlankingField0 = 0x46,
  kBlankingField1 = 0x47,
};

// Bits of the sync status register.
static constexpr int kHsyncActive = 0x80;
static constexpr int kVsyncActive = 0x10;
static constexpr int kVsyncFromSeparator = 0x08;

static constexpr int kLastDumpRegister = 0x49;

// Bench settings of the blanking registers, 0x40 first.
static constexpr int kBlankingRegisters = 8;
struct BlankingMode {
  int mode;
  bool prints;
  std::uint8_t values[kBlankingRegisters];
};

static constexpr BlankingMode kBlankingModes[] = {
    {1, false, {0x47, 0x01, 0x4B, 0x06, 0x05, 0x05, 0x1E, 0x1E}},
    {2, true, {0x95, 0x00, 0x0F, 0x00, 0x01, 0x01, 0x13, 0x13}},
    {3, true, {0x00, 0x01, 0x8B, 0x08, 0x02, 0x02, 0x16, 0x17}},
};

static int read_chip(int fd, int reg) { return read_register(fd, kTvp7002Address, reg); }

static void write_chip(int fd, int reg, int value) {
  i2c_writebyte(fd, kTvp7002Address, reg, value);
}

int prog7002(int reg, int value) {
  puts("Start prog7002");
  const int fd = open_i2c("Cannot access I2C device3 ");
  if (fd < 0) return 1;
  printf("input_data1 = %x\n", reg);
  printf("input_data2 = %x\n", value);
  usleep(kSecond_us);
  if (reg != kDumpOnly) {
    const int rc = i2c_writebyte(fd, kTvp7002Address, reg, value);
    if (rc < 0) printf("rc=%d\n", rc);
    puts("return");
  }
  usleep(kSecond_us);
  for (int dumped = 0; dumped <= kLastDumpRegister; ++dumped) {
    std::uint8_t byte = 0;
    const int rc = i2c_readbyte(fd, kTvp7002Address, dumped, &byte);
    if (rc < 0) {
      printf("rc=%d\n", rc);
    } else {
      printf("#%x=0x%x\n", dumped, byte);
    }
  }
  close_i2c(fd);
  return 0;
}

int GetInput() {
  const int fd = open_i2c("Cannot access I2C device 7002");
  if (fd < 0) return kNotOpened;
  std::uint8_t mux = 0;
  const int rc = i2c_readbyte(fd, kTvp7002Address, kTvp7002InputMux1, &mux);
  close_i2c(fd);
  if (rc < 0) {
    puts("Error i2c readbyte 7002 0x05");  // names 0x05, although 0x19 was read
    return kReadFailed;
  }
  if (mux == kTvp7002Mux1Component) return kInputComponent;
  return mux == kTvp7002Mux1Rgb ? kInputRgb : 0;
}

void GatTvp7002Status(int* input, int* std) {
  *input = GetInput();
  printf("GatTvp7002Status GetInput %d\n", *input);
  *std = GetSTD();
  printf("GatTvp7002Status GetSTD %d\n", *std);
}

int SetVBLK_F0(int mode) {
  const int fd = open_i2c(kNoBus);  // on failure the writes go ahead and fail
  for (const BlankingMode& row : kBlankingModes) {
    if (row.mode != mode) continue;
    for (int i = 0; i < kBlankingRegisters - 1; ++i) {
      write_chip(fd, kBlankingFirst + i, row.values[i]);
    }
    const int field0 = read_chip(fd, kBlankingField0);
    write_chip(fd, kBlankingField1, row.values[kBlankingRegisters - 1]);
    // The label says 47; the byte is that of 0x46.
    if (row.prints) printf("reg 47 %x TestVBLK_F0 %x\n", field0, TestVBLK_F0);
  }
  close_i2c(fd);
  return 0;
}

int VBLK_RW(int read, int reg, int value) {
  const int fd = open_i2c(kNoBus);  // on failure the access goes ahead and fails
  if (read != 0) {
    printf("reg 0x%x=0x%x\n", reg, read_chip(fd, reg));
  } else {
    write_chip(fd, reg, value);
  }
  close_i2c(fd);
  return 0;
}

int Print_Hsync() {
  const int fd = open_i2c(kNoBus);
  if (fd < 0) return kNotOpened;
  std::uint8_t status = 0;
  const int rc = i2c_readbyte(fd, kTvp7002Address, kTvp7002SyncStatus, &status);
  close_i2c(fd);
  if (rc < 0) return kReadFailed;
  printf("-- reg 14 %x \n", status);
  puts((status & kHsyncActive) != 0 ? "HSYNC activity detected" : "no HSYNC activity detected");
  puts((status & kVsyncActive) != 0 ? "VSYNC activity detected" : "no VSYNC activity detected");
  puts((status & kVsyncFromSeparator) != 0 ? "VSYNC from sync separator"
                                           : "VSYNC from selected VSYNC input (pin 78 or 79)");
  return 0;
}

void set_up_vga_digitizer() {
  constexpr int kBenchVideoStd = 25;
  get_shm_key();
  shared_set(&SharedBlock::videoStd, kBenchVideoStd);
  SetInputMux(kCaptureRgb);
  Init7002(kChannelRgb);
}
