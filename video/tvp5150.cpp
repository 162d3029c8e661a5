// Owns the TVP5150: its initialisation, its lock monitor, its captions and its
// status report.
#include "video/tvp5150.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <iterator>

#include "hw/i2c_registers.h"
#include "hw/i2capi.h"

Relaxed<std::int32_t> i2c_handle{-1};
Relaxed<std::uint32_t> count_st;
Relaxed<std::uint32_t> error_count;
Relaxed<std::uint8_t> old_data1;
Relaxed<std::uint8_t> Closed_caption_byte[2];

namespace {

// Wide-screen-signalling line data.
constexpr std::uint8_t WSS_ARRAY[kWssBytes] = {0xAA, 0x2A, 0xFF, 0x3F, 0x04, 0x51, 0x6E, 0x02,
                                               0x63, 0x8C, 0x09, 0x00, 0x00, 0x00, 0x27, 0x00};

constexpr unsigned kResetPulse_us = 500;
constexpr unsigned kReportEnd_us = 2000000;
constexpr unsigned kMonitorInterval = 5;  // calls between two readings
constexpr int kAutoswitchStd = 10;

// VBI RAM pages that hold the line data, by the low byte of their address.
constexpr std::uint8_t kRamPages[] = {0xE0, 0xF0};

// Line processing and outputs once the RAM is loaded.
constexpr RegisterValue kFinalValues[] = {{0xCE, 0x06}, {0xEE, 0x07}, {0xEF, 0x07}, {0xCD, 0x01},
                                          {0xCB, 0x4E}, {0xCC, 0x00}, {0x03, 0x0F}, {0x0D, 0x47}};

// Opening and closing of the RAM access around one program byte.
constexpr RegisterValue kRamAccessOpen[] = {{0x7F, 0x00}, {0x03, 0x69}, {0x21, 0x51},
                                            {0x22, 0x50}, {0x23, 0xFF}, {0x24, 0x04}};
constexpr RegisterValue kRamAccessClose[] = {
    {0x7F, 0x00}, {0x21, 0x00}, {0x22, 0x00}, {0x23, 0xFF}, {0x24, 0x04}};

// Status register #1.
enum Status1 : int {
  kVcr = 0x01,
  kHorizontalLock = 0x02,
  kVerticalLock = 0x04,
  kColorLock = 0x08,
  kLostLock = 0x10,
  kField50Hz = 0x20,
  kLineAlternating = 0x40,
  kPeakWhite = 0x80,
};
constexpr int kBothLocks = kHorizontalLock | kVerticalLock;

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

int read_chip(int fd, int reg) { return read_register(fd, kTvp5150Address, reg); }

void write_chip(int fd, int reg, int value) { i2c_writebyte(fd, kTvp5150Address, reg, value); }

// Opens the board's bus. Returns its descriptor, or -1 after a message.
int open_bus() {
  const int fd = init_i2c(kBoardI2cBus);
  if (fd < 0) puts("Cannot access I2C device 5150");
  return fd;
}

void close_handle() {
  close_i2c(i2c_handle);
  i2c_handle = -1;
}

void print_choice(bool first, const char* yes, const char* no) { puts(first ? yes : no); }

// What the setters send: the low byte of a local's address, which does not
// depend on what the local holds. The chip has always been driven this way.
int address_byte(const std::uint8_t* local) {
  return static_cast<int>(reinterpret_cast<std::uintptr_t>(local) & 0xFF);
}

void print_caption_status(int fd) {
  const int status = read_chip(fd, kTvp5150CaptionStatus);
  printf("Closed caption Status Register reg =0xc6  data1 = 0x%x\n", status);
  tvp5150_print_fifo(status);
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
  tvp5150_print_field_bits(status2);
  tvp5150_print_macrovision(status2);
}

void print_status5(int fd) {
  const int status5 = read_chip(fd, kTvp5150Status5);
  puts("Status Register #5 reg =0x8C ");
  if ((status5 & kItuSampling) != 0) puts("ITU-R BT.601 ");
  tvp5150_print_mode(status5);
  tvp5150_print_standard(status5);
}

// Reads two caption bytes from reg on and acknowledges the field.
void read_caption_bytes(int reg, int field_bit) {
  Closed_caption_byte[0] = static_cast<std::uint8_t>(read_chip(i2c_handle, reg));
  Closed_caption_byte[1] = static_cast<std::uint8_t>(read_chip(i2c_handle, reg + 1));
  write_chip(i2c_handle, kTvp5150CaptionStatus, field_bit);
}

}  // namespace

void tvp5150_reset(int fd) {
  write_chip(fd, kTvp5150ResetRegister, 0x01);
  usleep(kResetPulse_us);
  write_chip(fd, kTvp5150ResetRegister, 0x00);
  usleep(kResetPulse_us);
  write_chip(fd, kTvp5150InterruptReset, 0xFF);
}

void tvp5150_load_defaults(int fd) {
  write_registers(fd, kTvp5150Address, TVP5150_default_reg_array);
}

void tvp5150_clear_ram(int fd) {
  write_chip(fd, kTvp5150FullFieldEnable, 0x00);
  for (int reg = kTvp5150LineModeFirst; reg <= kTvp5150LineModeLast; ++reg) {
    write_chip(fd, reg, 0xFF);
  }
}

void tvp5150_load_ram(int fd, const std::uint8_t (&line)[kWssBytes]) {
  for (const std::uint8_t page : kRamPages) {
    write_chip(fd, kTvp5150RamAddressLow, page);
    write_chip(fd, kTvp5150RamAddressHigh, 0x00);
    for (const std::uint8_t byte : line) write_chip(fd, kTvp5150RamData, byte);
  }
}

void ResetSW() { tvp5150_reset(i2c_handle); }

void LoadInitValue() { tvp5150_load_defaults(i2c_handle); }

void ClearTVP_RAM() { tvp5150_clear_ram(i2c_handle); }

void LoadTVP_RAM_Data() { tvp5150_load_ram(i2c_handle, WSS_ARRAY); }

int InitTVP5150() {
  i2c_handle = open_bus();
  if (i2c_handle < 0) return -1;
  ResetSW();
  LoadInitValue();
  ClearTVP_RAM();
  LoadTVP_RAM_Data();
  write_registers(i2c_handle, kTvp5150Address, kFinalValues);
  TVP5150_SetVideoStd(kAutoswitchStd);
  close_handle();
  return 1;
}

// Reports the lock and counts the readings without it. Returns 0, or -1 when the
// loss of lock is to be acted on.
static int judge_locks(int status1, int mode) {
  if ((status1 & kBothLocks) == kBothLocks) {
    puts("Tvp 5150 is status register  lock ");
    error_count = 0;
    return 0;
  }
  error_count = error_count + 1;
  printf(" Tvp 5150 is status register no lock error_count=%d\n",
         static_cast<int>(error_count.load()));
  // The count starts again at every report, so each unlocked reading is one.
  if (error_count == 1 || mode == kTvp5150AfterConfiguration) {
    error_count = 0;
    puts("******** Tvp 5150 is status register no lock ******** ");
    return -1;
  }
  return 0;
}

int video_monitorTVP5150(int mode) {
  // Two threads call; none of their calls is lost, so the count meets the interval.
  if (count_st.increment() != kMonitorInterval) return 0;
  count_st = 0;

  const int fd = open_bus();
  if (fd < 0) return -1;
  const int status1 = read_chip(fd, kTvp5150Status1);
  old_data1 = static_cast<std::uint8_t>(status1);
  write_chip(fd, kTvp5150CaptionStatus, kCaptionClearAll);
  tvp5150_print_locks(status1);
  const int result = judge_locks(status1, mode);
  close_i2c(fd);
  return result;
}

void tvp5150_print_interrupts(int fd) {
  // Both lines name register A.
  printf("Interrupt Status Register A =0xc0  data1 = 0x%x\n", read_chip(fd, kTvp5150InterruptA));
  printf("Interrupt Status Register A =0xc1  data1 = 0x%x\n", read_chip(fd, kTvp5150InterruptB));
}

void tvp5150_print_fifo(int caption_status) {
  print_choice((caption_status & kCaptionFifoEmpty) != 0, "FIFO is empty", "FIFO is not empty");
  print_choice((caption_status & kCaptionFifoFull) != 0, "FIFO was full during a write to FIFO.",
               "No FIFO full error.");
}

void tvp5150_print_locks(int status1) {
  print_choice((status1 & kHorizontalLock) != 0, "***********  Horizontal sync lock status",
               "Horizontal sync is not locked");
  print_choice((status1 & kVerticalLock) != 0, "***********  Vertical sync lock status",
               "Vertical sync is not locked");
  print_choice((status1 & kColorLock) != 0, "***********  Color subcarrier is locked",
               "Color subcarrier is not locked.");
  print_choice((status1 & kLostLock) != 0, "Lost lock since status register",
               "No lost lock since status register");
}

void tvp5150_print_status1(int status1) {
  puts("Status Register #1 reg =0x88 \n ");
  print_choice((status1 & kVcr) != 0, "VCR ", "TV ");
  tvp5150_print_locks(status1);
  print_choice((status1 & kField50Hz) != 0, "Field rate status: 50Hz", "Field rate status: 60Hz");
  print_choice((status1 & kLineAlternating) != 0, "Line-alternating status",
               "No Line-alternating status");
  print_choice((status1 & kPeakWhite) != 0, "Peak white is detected.",
               "Peak white is not detected.");
}

void tvp5150_print_status34(int fd) {
  printf("Status Register #3 reg =0x%x  data = 0x%x\n", kTvp5150Status3,
         read_chip(fd, kTvp5150Status3));
  printf("Status Register #4 reg =0x%x  data = 0x%x\n", kTvp5150Status4,
         read_chip(fd, kTvp5150Status4));
}

void tvp5150_print_field_bits(int status2) {
  print_choice((status2 & kPalSwitch) != 0, "PAL switch is 1.", "PAL switch is 0.");
  print_choice((status2 & kOddField) != 0, "Odd field.", "Even field.");
  print_choice((status2 & kAgcFrozen) != 0, "AGC and offset are frozen.",
               "AGC and offset are not frozen");
}

void tvp5150_print_macrovision(int status2) {
  const unsigned code = static_cast<unsigned>(status2 & kLowFourBits);
  if (code < std::size(kMacrovisionTexts)) puts(kMacrovisionTexts[code]);
}

void tvp5150_print_mode(int status5) {
  print_choice((status5 & kAutoswitch) != 0, "Autoswitch mode ",
               "Stand-alone (forced video standard) mode ");
}

void tvp5150_print_standard(int status5) {
  for (const StandardText& standard : kStandardTexts) {
    if (standard.code == (status5 & kLowFourBits)) puts(standard.text);
  }
}

int GetStatusTVP5150() {
  const int fd = open_bus();
  if (fd < 0) return -1;
  tvp5150_reset(fd);
  printf("set input to S-video selection reg 0 data1 = 0x%x\n", 0);  // a byte never read
  puts(kDashes);
  tvp5150_print_interrupts(fd);
  print_caption_status(fd);
  print_line_count(fd);
  tvp5150_print_status1(read_chip(fd, kTvp5150Status1));
  print_status2(fd);
  tvp5150_print_status34(fd);
  print_status5(fd);
  usleep(kReportEnd_us);
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

void TVP5150ALoadProgramRAM(int fd, int value, int reg) {
  write_registers(fd, kTvp5150Address, kRamAccessOpen);
  write_chip(fd, reg, value & 0xFF);
  write_registers(fd, kTvp5150Address, kRamAccessClose);
}

int TVP5150_SetBrightness(int value) {
  const std::uint8_t local = static_cast<std::uint8_t>(value);
  write_chip(i2c_handle, kTvp5150Brightness, address_byte(&local));
  return 0;
}

int TVP5150_SetContrast(int value) {
  const std::uint8_t local = static_cast<std::uint8_t>(value);
  write_chip(i2c_handle, kTvp5150Contrast, address_byte(&local));
  return 0;
}

int TVP5150_SetSaturation(int value) {
  const std::uint8_t local = static_cast<std::uint8_t>(value & 0x7F);
  write_chip(i2c_handle, kTvp5150Saturation, address_byte(&local));
  return 0;
}

int TVP5150_SetVideoStd(int value) {
  const std::uint8_t local = static_cast<std::uint8_t>(value);
  write_chip(i2c_handle, kTvp5150VideoStd, address_byte(&local));
  return 0;
}
