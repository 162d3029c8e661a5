// Owns "/dev/fpga2" (the PLL port) and the chips that need no more than a few
// transfers: the clock blocks and the 7353.
#include "diag/board_clocks.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <tuple>

#include "hw/i2capi.h"
#include "hw/time_units.h"
#include "video/tvp7002.h"

static constexpr char kPllDevice[] = "/dev/fpga2";

static constexpr int kBlkAddress = 0x1C;
static constexpr std::uint8_t kBlkByte = 0x02;

static constexpr int kAaBlkAddress = 0x55;
static constexpr int kAaBlkRegister = 0x63;
static constexpr int kAaBlkValue = 0x63;

static constexpr int k7353Address = 0x2E;
static constexpr int k7353Channels = 3;
static constexpr std::uint8_t kNothingRead = 0xAA;  // still in the buffer when a read failed
// Channel 3 takes the value of channel 1.
static constexpr RegisterValue k7353Setup[k7353Channels] = {{1, 0x14}, {2, 0x15}, {3, 0x14}};

static constexpr char kNoBus[] = "Cannot access I2C device1 ";
static constexpr int kMaxTestBytes = kI2cMaxWrite - 1;

static void print_7353_channels(int fd) {
  for (int channel = 1; channel <= k7353Channels; ++channel) {
    std::uint8_t buf[1] = {kNothingRead};
    const int rc = i2c_readblk(fd, k7353Address, channel, 1, 1, buf);
    printf("ch #%d, i2c_readblk rc=%d, buf[0]=0x%x\n", channel, rc, buf[0]);
  }
}

static void write_7353_channels(int fd) {
  for (const RegisterValue& row : k7353Setup) {
    const int rc = i2c_writebyte(fd, k7353Address, row.reg, row.value);
    printf("ch #%d, i2c_write rc=%d\n", row.reg, rc);
  }
}

static void print_digitizer_sync(int fd) {
  std::uint8_t sync = 0;
  if (i2c_readbyte(fd, kTvp7002Address, kTvp7002SyncStatus, &sync) < 0) {
    puts("Error i2c_readbyte -7002");
  }
  printf("SYNC data = 0x%x\n", sync);
}

int progPll(std::uint8_t* buf) {
  FILE* pll = fopen(kPllDevice, "r+b");
  if (pll == nullptr) {
    puts("Cannot access SPI port (/dev/fpga2)");
    return 1;
  }
  const size_t written = fwrite(buf, 1, kPllCommandSize, pll);
  if (written < kPllCommandSize) {
    printf("Failed to write %d (wrote %d,  total %d)\n", kPllCommandSize, static_cast<int>(written),
           0);
  }
  // What comes back replaces what was sent; a short answer leaves the rest.
  std::ignore = fread(buf, 1, kPllCommandSize, pll);
  fclose(pll);
  return 0;
}

void swing_pll() {
  constexpr std::uint8_t kSwing = 0xF0;
  std::uint8_t command[kPllCommandSize] = {0x70, 0x00};
  for (;;) {
    std::uint8_t buffer[] = {command[0], command[1]};
    progPll(buffer);
    command[1] ^= kSwing;
    usleep(kMillisecond_us);
  }
}

int prog_blk() {
  puts("Y prog_blk");
  const int fd = open_i2c(kNoBus);
  if (fd < 0) return 1;
  i2c_writeblk(fd, kBlkAddress, 0, 0, 1, &kBlkByte);
  printf("rc = %d\n", 0);  // not the write's result, which is discarded
  usleep(kSecond_us);
  close_i2c(fd);
  return 0;
}

int prog_aablk() {
  const int fd = open_i2c(kNoBus);
  if (fd < 0) return 1;
  for (;;) {
    i2c_writebyte(fd, kAaBlkAddress, kAaBlkRegister, kAaBlkValue);
    puts("i2c_writebyte AA blk ");
    usleep(kMillisecond_us);
  }
}

int prog_i2c_test(int addr8, int reg, int reglen, int count) {
  const int fd = open_i2c(kNoBus);
  if (fd < 0) return 1;
  const int bytes = std::clamp(count, 0, kMaxTestBytes);
  std::uint8_t buf[kMaxTestBytes] = {};  // what is not delivered prints as 0x0
  const int rc = i2c_readblk(fd, addr8 >> 1, reg, reglen, bytes, buf);
  printf("i2c readb (rc %d): device_addr 0x%x, reg_addr 0x%x: ", rc, addr8, reg);
  for (int i = 0; i < bytes; ++i) printf("0x%x ", buf[i]);
  printf("\n");
  usleep(kSecond_us);
  close_i2c(fd);
  return 0;
}

int prog7353() {
  puts("prog7353");
  const int fd = open_i2c(kNoBus);
  if (fd < 0) return 1;
  print_7353_channels(fd);
  write_7353_channels(fd);
  print_digitizer_sync(fd);
  close_i2c(fd);
  return 0;
}
