// Bench of the TVP5150: stand-alone initialisation, two status reports, captions,
// single registers.
#include "diag/tvp5150_bench.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <iterator>

#include "hw/i2capi.h"
#include "hw/time_units.h"
#include "video/tvp5150.h"

Relaxed<std::uint8_t> Closed_caption_byte[2];

static constexpr useconds_t kReportInterval_us = 2 * kSecond_us;

// Unlike the full initialisation: outputs and line address stay as they are.
static constexpr RegisterValue kBenchFinalValues[] = {
    {0xCE, 0x06}, {0xEE, 0x07}, {0xEF, 0x07}, {0xCD, 0x01}};

// Status register #1, beside the locks that the driver names.
enum Tvp5150ReportStatus1 : int {
  kVcr = 0x01,
  kField50Hz = 0x20,
  kLineAlternating = 0x40,
  kPeakWhite = 0x80,
};

// Status register #2.
enum Tvp5150Status2 : int {
  kPalSwitch = 0x20,
  kOddField = 0x10,
  kAgcFrozen = 0x08,
};

// Status register #5.
enum Tvp5150Status5 : int {
  kItuSampling = 0x01,
  kAutoswitch = 0x80,
};

static constexpr int kLowFourBits = 0x0F;

static constexpr char kDashes[] = "---------------------------------------------------------------";
static_assert(sizeof(kDashes) == 63 + 1);

// By the low four bits of status register #2.
static constexpr const char* kMacrovisionTexts[] = {
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
static constexpr StandardText kStandardTexts[] = {
    {1, "(M) NTSC ITU-R BT.601"},  {3, "(B, G, H, I, N) PAL ITU-R BT.601"},
    {5, "(M) PAL ITU-R BT.601"},   {7, "(Combination-N) ITU-R BT.601"},
    {9, "NTSC 4.43 ITU-R BT.601"},
};
static constexpr int kStandardSecam = 11;  // a code that only the endless report names

static int read_chip(int fd, int reg) { return read_register(fd, kTvp5150Address, reg); }

static void write_chip(int fd, int reg, int value) {
  i2c_writebyte(fd, kTvp5150Address, reg, value);
}

static void print_choice(bool first, const char* yes, const char* no) { puts(first ? yes : no); }

// --- status report --------------------------------------------------------

static void print_interrupts(int fd) {
  // Both lines name register A.
  printf("Interrupt Status Register A =0xc0  data1 = 0x%x\n", read_chip(fd, kTvp5150InterruptA));
  printf("Interrupt Status Register A =0xc1  data1 = 0x%x\n", read_chip(fd, kTvp5150InterruptB));
}

static void print_fifo(int caption_status) {
  print_choice((caption_status & kCaptionFifoEmpty) != 0, "FIFO is empty", "FIFO is not empty");
  print_choice((caption_status & kCaptionFifoFull) != 0, "FIFO was full during a write to FIFO.",
               "No FIFO full error.");
}

static void print_status1(int status1) {
  puts("Status Register #1 reg =0x88 \n ");
  print_choice((status1 & kVcr) != 0, "VCR ", "TV ");
  tvp5150_print_locks(status1);
  print_choice((status1 & kField50Hz) != 0, "Field rate status: 50Hz", "Field rate status: 60Hz");
  print_choice((status1 & kLineAlternating) != 0, "Line-alternating status",
               "No Line-alternating status");
  print_choice((status1 & kPeakWhite) != 0, "Peak white is detected.",
               "Peak white is not detected.");
}

static void print_field_bits(int status2) {
  print_choice((status2 & kPalSwitch) != 0, "PAL switch is 1.", "PAL switch is 0.");
  print_choice((status2 & kOddField) != 0, "Odd field.", "Even field.");
  print_choice((status2 & kAgcFrozen) != 0, "AGC and offset are frozen.",
               "AGC and offset are not frozen");
}

static void print_macrovision(int status2) {
  const unsigned code = static_cast<unsigned>(status2 & kLowFourBits);
  if (code < std::size(kMacrovisionTexts)) puts(kMacrovisionTexts[code]);
}

static void print_status34(int fd) {
  printf("Status Register #3 reg =0x%x  data = 0x%x\n", kTvp5150Status3,
         read_chip(fd, kTvp5150Status3));
  printf("Status Register #4 reg =0x%x  data = 0x%x\n", kTvp5150Status4,
         read_chip(fd, kTvp5150Status4));
}

static void print_mode(int status5) {
  print_choice((status5 & kAutoswitch) != 0, "Autoswitch mode ",
               "Stand-alone (forced video standard) mode ");
}

static void print_standard(int status5) {
  for (const StandardText& standard : kStandardTexts) {
    if (standard.code == (status5 & kLowFourBits)) puts(standard.text);
  }
}

// The two reports differ in what they say of captions, line count and status
// registers #2 and #5.
enum class Tvp5150Report { kOnce, kEndless };

static void print_caption_registers(int fd, int first, int last) {
  for (int reg = first; reg <= last; ++reg) {
    printf("Closed caption data registers 5150 reg =0x%x  data1 = 0x%x\n", reg, read_chip(fd, reg));
  }
}

static void print_captions(int fd, Tvp5150Report report) {
  const int status = read_chip(fd, kTvp5150CaptionStatus);
  printf("Closed caption Status Register reg =0xc6  data1 = 0x%x\n", status);
  if (report == Tvp5150Report::kEndless) {
    if ((status & kCaptionBit5) != 0) write_chip(fd, kTvp5150CaptionStatus, kCaptionBit5);
    if ((status & kCaptionField1) != 0) {
      puts("Field 1 data available");
      print_caption_registers(fd, kTvp5150CaptionData, kTvp5150CaptionData + 4);
    }
    if ((status & kCaptionField2) != 0) {
      puts("Field 2 data available");
      print_caption_registers(fd, kTvp5150CaptionData + 2, kTvp5150CaptionData + 3);
    }
  }
  print_fifo(status);
  write_chip(fd, kTvp5150CaptionStatus, kCaptionClearAll);
}

static void print_line_count_bytes(int fd) {
  printf("Status Register reg =0x%x  Vertical line count MSB = 0x%x\n", kTvp5150LineCountMsb,
         read_chip(fd, kTvp5150LineCountMsb));
  printf("Status Register reg =0x%x  Vertical line count LSB = 0x%x\n", kTvp5150LineCountLsb,
         read_chip(fd, kTvp5150LineCountLsb));
}

static void print_line_count(int fd) {
  const int msb = read_chip(fd, kTvp5150LineCountMsb);
  const int lsb = read_chip(fd, kTvp5150LineCountLsb);
  printf("Vertical line = %d \n", msb << 8 | lsb);
}

static void print_status2(int fd, Tvp5150Report report) {
  const int status2 = read_chip(fd, kTvp5150Status2);
  printf("Status Register #2 reg =0x%x  data = 0x%x\n", kTvp5150Status2, status2);
  if (report == Tvp5150Report::kOnce) puts("Weak signal mode.");  // whether bit 6 is set or not
  print_field_bits(status2);
  print_macrovision(status2);
}

static void print_status5(int fd, Tvp5150Report report) {
  const bool once = report == Tvp5150Report::kOnce;
  const int status5 = read_chip(fd, kTvp5150Status5);
  puts("Status Register #5 reg =0x8C ");
  if (once && (status5 & kItuSampling) != 0) puts("ITU-R BT.601 ");
  print_mode(status5);
  print_standard(status5);
  if (!once && (status5 & kLowFourBits) == kStandardSecam) puts("SECAM ITU-R BT.601");
}

// Reads two caption bytes from reg on and acknowledges the field.
static void read_caption_bytes(int reg, int field_bit) {
  refresh_register(i2c_handle, kTvp5150Address, reg, &Closed_caption_byte[0]);
  refresh_register(i2c_handle, kTvp5150Address, reg + 1, &Closed_caption_byte[1]);
  write_chip(i2c_handle, kTvp5150CaptionStatus, field_bit);
}

int TestTVP5150() {
  const int fd = open_i2c(kTvp5150NoBus);
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
  const int fd = open_i2c(kTvp5150NoBus);
  if (fd < 0) return -1;
  for (;;) {
    print_interrupts(fd);
    print_captions(fd, Tvp5150Report::kEndless);
    print_line_count(fd);
    print_status1(read_chip(fd, kTvp5150Status1));
    print_status2(fd, Tvp5150Report::kEndless);
    print_status34(fd);
    print_status5(fd, Tvp5150Report::kEndless);
    usleep(kReportInterval_us);
  }
}

int GetStatusTVP5150() {
  const int fd = open_i2c(kTvp5150NoBus);
  if (fd < 0) return -1;
  tvp5150_reset(fd);
  printf("set input to S-video selection reg 0 data1 = 0x%x\n", 0);  // a byte never read
  puts(kDashes);
  print_interrupts(fd);
  print_captions(fd, Tvp5150Report::kOnce);
  print_line_count_bytes(fd);
  print_status1(read_chip(fd, kTvp5150Status1));
  print_status2(fd, Tvp5150Report::kOnce);
  print_status34(fd);
  print_status5(fd, Tvp5150Report::kOnce);
  usleep(kReportInterval_us);
  close_i2c(fd);
  return 0;
}

int GetCCStatus() {
  i2c_handle = open_i2c(kTvp5150NoBus);
  if (i2c_handle < 0) return 255;
  const int status = read_chip(i2c_handle, kTvp5150CaptionStatus);
  printf("Get TVP5150 Status Register reg =0xc6  data1 = 0x%x\n", status);
  if ((status & kCaptionField1) != 0) {
    write_chip(i2c_handle, kTvp5150CaptionStatus, kCaptionField1);
  }
  if ((status & kCaptionField2) != 0) {
    write_chip(i2c_handle, kTvp5150CaptionStatus, kCaptionField2);
  }
  tvp5150_close_handle();
  return status;
}

int GetFild(int field) {
  i2c_handle = open_i2c(kTvp5150NoBus);
  if (i2c_handle < 0) return -1;
  if (field == 1) read_caption_bytes(kTvp5150CaptionData, kCaptionField1);
  if (field == 2) read_caption_bytes(kTvp5150CaptionData + 2, kCaptionField2);
  tvp5150_close_handle();
  return 1;
}

int TVP5150_RW(int read, int reg, int value) {
  // Without a bus the access goes ahead and fails.
  const int fd = open_i2c("Cannot access I2C device - 5150");
  if (read != 0) {
    printf("reg 0x%x=0x%x\n", reg, read_chip(fd, reg));
  } else {
    write_chip(fd, reg, value);
  }
  close_i2c(fd);
  return 0;
}
