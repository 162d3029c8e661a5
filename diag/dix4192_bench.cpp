// Bench programming of the DIX4192.
#include "diag/dix4192_bench.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "audio/dix4192.h"
#include "hw/i2capi.h"
#include "hw/time_units.h"

enum Dix4192BenchRegister : int {
  kPowerReset = 0x01,
  kReceiverPll = 0x0F,  // 0x0F to 0x11
  kPageSelect = 0x7F,
};

static constexpr useconds_t kResetWait_us = 100;
static constexpr useconds_t kRunWait_us = 5 * kMillisecond_us;
static constexpr useconds_t kDumpWait_us = 10 * kMillisecond_us;

static constexpr int kResetValue = 0x80;
static constexpr int kRunValue = 0x7F;
static constexpr int kPages = 1;  // page 0 alone is programmed

// The set-up of this board; registers as in the data sheet of the DIX4192 (Texas
// Instruments).
static constexpr RegisterValue kPageSetup[] = {
    {0x03, 0x29}, {0x04, 0x0B}, {0x0D, 0x08}, {0x0E, 0x01}, {0x1B, 0x07}};

static constexpr int kPllRegisters = 3;
static constexpr std::uint8_t kPllValues[kPllRegisters] = {0x34, 0x00, 0x00};

static constexpr int kDumpFirst = 0x03;
static constexpr int kDumpLast = 0x2C;
static constexpr std::uint8_t kDumpFill = 0x2A;  // shows in place of what was not read

static void write_chip(int fd, int reg, int value) {
  i2c_writebyte(fd, kDix4192Address, reg, value);
}

static void reset_chip(int fd) {
  write_chip(fd, kPageSelect, 0);
  write_chip(fd, kPowerReset, kResetValue);
  usleep(kResetWait_us);
  write_chip(fd, kPowerReset, kRunValue);
  usleep(kRunWait_us);
}

static void program_pll(int fd) {
  for (int i = 0; i < kPllRegisters; ++i) {
    printf("receiver_pll1_reg%d = 0x%x\n", i + 1, kPllValues[i]);
  }
  for (int i = 0; i < kPllRegisters; ++i) write_chip(fd, kReceiverPll + i, kPllValues[i]);
}

static void dump_registers(int fd) {
  usleep(kDumpWait_us);
  std::uint8_t bytes[kDumpLast - kDumpFirst + 1];
  int rc = 0;
  for (int reg = kDumpFirst; reg <= kDumpLast; ++reg) {
    bytes[reg - kDumpFirst] = kDumpFill;
    rc = i2c_readbyte(fd, kDix4192Address, reg, &bytes[reg - kDumpFirst]);
  }
  printf("rc=%d\n", rc);
  for (int reg = kDumpFirst; reg <= kDumpLast; ++reg) {
    printf("reg %02x=0x%02x\t", reg, bytes[reg - kDumpFirst]);
  }
  printf("\n");
  usleep(kDumpWait_us);
}

int prog4192() {
  puts("Y prog4192");
  const int fd = init_i2c(kBoardI2cBus);
  if (fd < 0) return -1;
  reset_chip(fd);
  for (int page = 0; page < kPages; ++page) {
    printf("page %d====================================\n", page);
    write_chip(fd, kPageSelect, page);
    write_registers(fd, kDix4192Address, kPageSetup);
    program_pll(fd);
    dump_registers(fd);
  }
  close_i2c(fd);
  return 0;
}
