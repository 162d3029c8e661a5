// Bench of the TVP5150: stand-alone initialisation, two status reports, captions,
// single registers.
#include "diag/tvp5150_bench.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <iterator>

#include "hw/i2c_registers.h"
#include "hw/i2capi.h"
#include "hw/time_units.h"
#include "video/tvp5150.h"

Relaxed<std::uint8_t> Closed_caption_byte[2];

namespace {

constexpr useconds_t kReportInterval_us = 2 * kSecond_us;

// Unlike the full initialisation: outputs and line address stay as they are.
constexpr RegisterValue kBenchFinalValues[] = {
    {0xCE, 0x06}, {0xEE, 0x07}, {0xEF, 0x07}, {0xCD, 0x01}};

// Status register #1, beside the locks that the driver names.
enum Status1 : int {
  kVcr = 0x01,
  kField50Hz = 0x20,
  kLineAlternating = 0x40,
  kPeakWhite = 0x80,
};

// Status register #2.
enum Status2 : int {
  kPalSwitch = 0x20,
  kOddField = 0x10,
  kAgcFrozen = 0x08,
};

// Status register #5.
enum Status5 : int {
  kItuSampling = 0x01,
  kAutoswitch = 0x80,
};

constexpr int kLowFourBits = 0x0F;

constexpr char kDashes[] = "---------------------------------------------------------------";
static_assert(sizeof(kDashes) == 63 + 1);

// By the low four bits of status register #2.
constexpr const char* kMacrovisionTexts[] = {
    "AGC and offset are not frozen",
    "AGC pulses/pseudo-syncs present",
    "AGC pulses/pseudo-syncs and 2-line color striping present",
    "AGC pulses/pseudo-syncs and 4-line color striping present",
};

// By the low four bits of status register #5; other codes print nothing.
struct StandardText {
  int code;
  const char* text;
};
constexpr StandardText kStandardTexts[] = {
    {1, "(M) NTSC ITU-R BT.601"},  {3, "(B, G, H, I, N) PAL ITU-R BT.601"},
    {5, "(M) PAL ITU-R BT.601"},   {7, "(Combination-N) ITU-R BT.601"},
    {9, "NTSC 4.43 ITU-R BT.601"},
};
constexpr int kStandardSecam = 11;  // a code that only the endless report names

int open_bus() {
  const int fd = init_i2c(kBoardI2cBus);
  if (fd < 0) puts("Cannot access I2C device 5150");
  return fd;
}

int read_chip(int fd, int reg) { return read_register(fd, kTvp5150Address, reg); }

void write_chip(int fd, int reg, int value) { i2c_writebyte(fd, kTvp5150Address, reg, value); }

void close_handle() {
  close_i2c(i2c_handle);
  i2c_handle = -1;
}

void print_choice(bool first, const char* yes, const char* no) { puts(first ? yes : no); }

// --- what both reports print ----------------------------------------------

void print_interrupts(int fd) {
  // Both lines name register A.
  printf("Interrupt Status Register A =0xc0  data1 = 0x%x\n", read_chip(fd, kTvp5150InterruptA));
  printf("Interrupt Status Register A =0xc1  data1 = 0x%x\n", read_chip(fd, kTvp5150InterruptB));
}

void print_fifo(int caption_status) {
  print_choice((caption_status & kCaptionFifoEmpty) != 0, "FIFO is empty", "FIFO is not empty");
  print_choice((caption_status & kCaptionFifoFull) != 0, "FIFO was full during a write to FIFO.",
               "No FIFO full error.");
}

void print_status1(int status1) {
  puts("Status Register #1 reg =0x88 \n ");
  print_choice((status1 & kVcr) != 0, "VCR ", "TV ");
  tvp5150_print_locks(status1);
  print_choice((status1 & kField50Hz) != 0, "Field rate status: 50Hz", "Field rate status: 60Hz");
  print_choice((status1 & kLineAlternating) != 0, "Line-alternating status",
               "No Line-alternating status");
  print_choice((status1 & kPeakWhite) != 0, "Peak white is detected.",
               "Peak white is not detected.");
}

void print_field_bits(int status2) {
  print_choice((status2 & kPalSwitch) != 0, "PAL switch is 1.", "PAL switch is 0.");
  print_choice((status2 & kOddField) != 0, "Odd field.", "Even field.");
  print_choice((status2 & kAgcFrozen) != 0, "AGC and offset are frozen.",
               "AGC and offset are not frozen");
}

void print_macrovision(int status2) {
  const unsigned code = static_cast<unsigned>(status2 & kLowFourBits);
  if (code < std::size(kMacrovisionTexts)) puts(kMacrovisionTexts[code]);
}

void print_status34(int fd) {
  printf("Status Register #3 reg =0x%x  data = 0x%x\n", kTvp5150Status3,
         read_chip(fd, kTvp5150Status3));
  printf("Status Register #4 reg =0x%x  data = 0x%x\n", kTvp5150Status4,
         read_chip(fd, kTvp5150Status4));
}

void print_mode(int status5) {
  print_choice((status5 & kAutoswitch) != 0, "Autoswitch mode ",
               "Stand-alone (forced video standard) mode ");
}

void print_standard(int status5) {
  for (const StandardText& standard : kStandardTexts) {
    if (standard.code == (status5 & kLowFourBits)) puts(standard.text);
  }
}

// --- the report of GetStatusTVP5150 ---------------------------------------

void print_caption_status(int fd) {
  const int status = read_chip(fd, kTvp5150CaptionStatus);
  printf("Closed caption Status Register reg =0xc6  data1 = 0x%x\n", status);
  print_fifo(status);
  write_chip(fd, kTvp5150CaptionStatus, kCaptionClearAll);
}

void print_line_count(int fd) {
  printf("Status Register reg =0x%x  Vertical line count MSB = 0x%x\n", kTvp5150LineCountMsb,
         read_chip(fd, kTvp5150LineCountMsb));
  printf("Status Register reg =0x%x  Vertical line count LSB = 0x%x\n", kTvp5150LineCountLsb,
         read_chip(fd, kTvp5150LineCountLsb));
}

void print_status2(int fd) {
  const int status2 = read_chip(fd, kTvp5150Status2);
  printf("Status Register #2 reg =0x%x  data = 0x%x\n", kTvp5150Status2, status2);
  puts("Weak signal mode.");  // printed whether bit 6 is set or not
  print_field_bits(status2);
  print_macrovision(status2);
}

void print_status5(int fd) {
  const int status5 = read_chip(fd, kTvp5150Status5);
  puts("Status Register #5 reg =0x8C ");
  if ((status5 & kItuSampling) != 0) puts("ITU-R BT.601 ");
  print_mode(status5);
  print_standard(status5);
}

// --- the endless report ----------------------------------------------------

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
  print_fifo(status);
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
  print_field_bits(status2);
  print_macrovision(status2);
}

void report_status5(int fd) {
  const int status5 = read_chip(fd, kTvp5150Status5);
  puts("Status Register #5 reg =0x8C ");
  print_mode(status5);
  print_standard(status5);
  if ((status5 & kLowFourBits) == kStandardSecam) puts("SECAM ITU-R BT.601");
}

// Reads two caption bytes from reg on and acknowledges the field.
void read_caption_bytes(int reg, int field_bit) {
  refresh_register(i2c_handle, kTvp5150Address, reg, &Closed_caption_byte[0]);
  refresh_register(i2c_handle, kTvp5150Address, reg + 1, &Closed_caption_byte[1]);
  write_chip(i2c_handle, kTvp5150CaptionStatus, field_bit);
}

}  // namespace

int TestTVP5150() {
  const int fd = open_bus();
  if (fd < 0) return -1;
  tvp5150_reset(fd);
  printf("set input to S-video selection reg 0 data1 = 0x%x\n", 0);  // a byte never read
  tvp5150_load_defaults(fd);
  tvp5150_clear_ram(fd);
  tvp5150_load_ram(fd);
  write_registers(fd, kTvp5150Address, kBenchFinalValues);
  TVP5150_SetVideoStd(0);  // through i2c_handle, not through this descriptor
  usleep(kReportInterval_us);
  return close_i2c(fd);
}

int tvp5150_report_loop() {
  const int fd = open_bus();
  if (fd < 0) return -1;
  for (;;) {
    print_interrupts(fd);
    report_captions(fd);
    report_line_count(fd);
    print_status1(read_chip(fd, kTvp5150Status1));
    report_status2(fd);
    print_status34(fd);
    report_status5(fd);
    usleep(kReportInterval_us);
  }
}

int GetStatusTVP5150() {
  const int fd = open_bus();
  if (fd < 0) return -1;
  tvp5150_reset(fd);
  printf("set input to S-video selection reg 0 data1 = 0x%x\n", 0);  // a byte never read
  puts(kDashes);
  print_interrupts(fd);
  print_caption_status(fd);
  print_line_count(fd);
  print_status1(read_chip(fd, kTvp5150Status1));
  print_status2(fd);
  print_status34(fd);
  print_status5(fd);
  usleep(kReportInterval_us);
  close_i2c(fd);
  return 0;
}

int GetCCStatus() {
  i2c_handle = open_bus();
  if (i2c_handle < 0) return 255;
  const int status = read_chip(i2c_handle, kTvp5150CaptionStatus);
  printf("Get TVP5150 Status Register reg =0xc6  data1 = 0x%x\n", status);
  if ((status & kCaptionField1) != 0) {
    write_chip(i2c_handle, kTvp5150CaptionStatus, kCaptionField1);
  }
  if ((status & kCaptionField2) != 0) {
    write_chip(i2c_handle, kTvp5150CaptionStatus, kCaptionField2);
  }
  close_handle();
  return status;
}

int GetFild(int field) {
  i2c_handle = open_bus();
  if (i2c_handle < 0) return -1;
  if (field == 1) read_caption_bytes(kTvp5150CaptionData, kCaptionField1);
  if (field == 2) read_caption_bytes(kTvp5150CaptionData + 2, kCaptionField2);
  close_handle();
  return 1;
}

int TVP5150_RW(int read, int reg, int value) {
  const int fd = init_i2c(kBoardI2cBus);
  if (fd < 0) puts("Cannot access I2C device - 5150");  // the access goes ahead and fails
  if (read != 0) {
    printf("reg 0x%x=0x%x\n", reg, read_chip(fd, reg));
  } else {
    write_chip(fd, reg, value);
  }
  close_i2c(fd);
  return 0;
}
