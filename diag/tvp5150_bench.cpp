// Owns the stand-alone initialisation and the endless report of the TVP5150.
#include "diag/tvp5150_bench.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "hw/i2c_registers.h"
#include "hw/i2capi.h"
#include "video/tvp5150.h"

namespace {

constexpr unsigned kReportInterval_us = 2000000;

// The bench has line data of its own.
constexpr std::uint8_t kBenchLineData[kWssBytes] = {0xAA, 0x2A, 0xFF, 0x3F, 0x04, 0x51, 0x6E, 0x02,
                                                    0x63, 0x8C, 0x09, 0x00, 0x00, 0x00, 0x27, 0x00};

// Unlike the full initialisation: outputs and line address stay as they are.
constexpr RegisterValue kBenchFinalValues[] = {
    {0xCE, 0x06}, {0xEE, 0x07}, {0xEF, 0x07}, {0xCD, 0x01}};

constexpr int kStandardMask = 0x0F;
constexpr int kStandardSecam = 11;  // a code that only this report names

int open_bus() {
  const int fd = init_i2c(kBoardI2cBus);
  if (fd < 0) puts("Cannot access I2C device 5150");
  return fd;
}

int read_chip(int fd, int reg) { return read_register(fd, kTvp5150Address, reg); }

void write_chip(int fd, int reg, int value) { i2c_writebyte(fd, kTvp5150Address, reg, value); }

void print_caption_registers(int fd, int first, int last) {
  for (int reg = first; reg <= last; ++reg) {
    printf("Closed caption data registers 5150 reg =0x%x  data1 = 0x%x\n", reg, read_chip(fd, reg));
  }
}

void report_captions(int fd) {
  const int status = read_chip(fd, kTvp5150CaptionStatus);
  printf("Closed caption Status Register reg =0xc6  data1 = 0x%x\n", status);
  if ((status & kCaptionBit5) != 0) write_chip(fd, kTvp5150CaptionStatus, kCaptionBit5);
  if ((status & kCaptionField1) != 0) {
    puts("Field 1 data available");
    print_caption_registers(fd, kTvp5150CaptionData, kTvp5150CaptionData + 4);
  }
  if ((status & kCaptionField2) != 0) {
    puts("Field 2 data available");
    print_caption_registers(fd, kTvp5150CaptionData + 2, kTvp5150CaptionData + 3);
  }
  tvp5150_print_fifo(status);
  write_chip(fd, kTvp5150CaptionStatus, kCaptionClearAll);
}

void report_line_count(int fd) {
  const int msb = read_chip(fd, kTvp5150LineCountMsb);
  const int lsb = read_chip(fd, kTvp5150LineCountLsb);
  printf("Vertical line = %d \n", msb << 8 | lsb);
}

void report_status2(int fd) {
  const int status2 = read_chip(fd, kTvp5150Status2);
  printf("Status Register #2 reg =0x%x  data = 0x%x\n", kTvp5150Status2, status2);
  tvp5150_print_field_bits(status2);
  tvp5150_print_macrovision(status2);
}

void report_status5(int fd) {
  const int status5 = read_chip(fd, kTvp5150Status5);
  puts("Status Register #5 reg =0x8C ");
  tvp5150_print_mode(status5);
  tvp5150_print_standard(status5);
  if ((status5 & kStandardMask) == kStandardSecam) puts("SECAM ITU-R BT.601");
}

}  // namespace

int TestTVP5150() {
  const int fd = open_bus();
  if (fd < 0) return -1;
  tvp5150_reset(fd);
  printf("set input to S-video selection reg 0 data1 = 0x%x\n", 0);  // a byte never read
  tvp5150_load_defaults(fd);
  tvp5150_clear_ram(fd);
  tvp5150_load_ram(fd, kBenchLineData);
  write_registers(fd, kTvp5150Address, kBenchFinalValues);
  TVP5150_SetVideoStd(0);  // through i2c_handle, not through this descriptor
  usleep(kReportInterval_us);
  return close_i2c(fd);
}

int tvp5150_report_loop() {
  const int fd = open_bus();
  if (fd < 0) return -1;
  for (;;) {
    tvp5150_print_interrupts(fd);
    report_captions(fd);
    report_line_count(fd);
    tvp5150_print_status1(read_chip(fd, kTvp5150Status1));
    report_status2(fd);
    tvp5150_print_status34(fd);
    report_status5(fd);
    usleep(kReportInterval_us);
  }
}
