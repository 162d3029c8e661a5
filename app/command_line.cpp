// The options of vantorig: one table for the scan, one procedure for the fixed
// order in which the flagged commands act.
//
// The first ten options are looked for in the first argument only, once for
// every argument there is; so those that act during the scan act that often.
// Operands stand at fixed positions, wherever the option stood.
#include "app/command_line.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "app/ac3_test.h"
#include "app/help.h"
#include "app/service.h"
#include "audio/blkfn.h"
#include "diag/board_clocks.h"
#include "diag/capture_bench.h"
#include "diag/dix4192_bench.h"
#include "diag/fpga_bench.h"
#include "diag/picture_position.h"
#include "diag/tvp5150_bench.h"
#include "diag/tvp7002_bench.h"
#include "hostlink/transfer.h"
#include "hw/bitstream.h"
#include "hw/fpga.h"
#include "hw/gpio.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "video/capture.h"
#include "video/tvp7002.h"

static constexpr int kMillisecond_us = 1000;
static constexpr int kSecond_us = 1'000'000;

enum Flag : int {
  kHelp,
  kLoadBf,
  kOffset,
  kBfRw,
  kIpipeRw,
  kIsifRw,
  kTvp5150Rw,
  kTvp5150,
  kWr,
  kRestor,
  kLoadF,
  kLoadW,
  kPll,
  kI2cBf,
  kVblkTest,
  kVblkRw,
  kI2cBfStart,
  kBfVersion,
  kBfStatus,
  k7353,
  kBlk,
  kAaBlk,
  kI2c,
  k7002,
  kRdReg,
  kWrReg,
  kService,
  kAc3,
  k4192,
  kReg,
  kTs,
  kPerf,
  kGpio,
  kFlagCount
};

struct CommandLine {
  int argc;
  char** argv;
  bool flag[kFlagCount];
  int offset_x;
  int offset_y;
  const char* bitstream;
};

// --- operands ------------------------------------------------------------

// The number at an argument position; 0 when it is missing or is no number.
static int operand(const CommandLine& line, int position) {
  int value = 0;
  if (position < line.argc && sscanf(line.argv[position], "%i", &value) != 1) return 0;
  return value;
}

// The register utilities take their third operand only to write (rw = 0).
static int operand_to_write(const CommandLine& line, int rw) {
  return rw == 0 ? operand(line, 4) : 0;
}

static bool argument_is(const CommandLine& line, int position, const char* word) {
  return strcmp(line.argv[position], word) == 0;
}

// --- scan ----------------------------------------------------------------

static constexpr std::size_t kPrefixLength = 3;  // "-f=", "-w="

static void scan_help(CommandLine&) { print_help(); }

static void scan_load_bf(CommandLine&) { Load_BF(); }

static void scan_offset(CommandLine& line) {
  line.offset_x = operand(line, 2);
  line.offset_y = operand(line, 3);
}

static void scan_restor(CommandLine&) {
  puts(" Go to Restor  command");
  restor_from_manufacture();
}

// The name comes from the first argument, wherever the option stood.
static void scan_bitstream(CommandLine& line) {
  const char* first = line.argv[1];
  line.bitstream = strlen(first) > kPrefixLength ? first + kPrefixLength : "";
}

enum class Look { kFirstArgument, kEachArgument };
enum class Match { kWhole, kPrefix };

struct Option {
  const char* text;
  Look look;
  Match match;
  Flag flag;
  int skip;                       // arguments passed over behind the option
  void (*at_once)(CommandLine&);  // done during the scan; null: nothing
};

// clang-format off
static constexpr Option kOptions[] = {
    {"-help",      Look::kFirstArgument, Match::kWhole,  kHelp,       0, scan_help},
    {"-loadbf",    Look::kFirstArgument, Match::kWhole,  kLoadBf,     0, scan_load_bf},
    {"-offset",    Look::kFirstArgument, Match::kWhole,  kOffset,     0, scan_offset},
    {"-bf_rw",     Look::kFirstArgument, Match::kWhole,  kBfRw,       0, nullptr},
    {"-ipiperw",   Look::kFirstArgument, Match::kWhole,  kIpipeRw,    0, nullptr},
    {"-isifrw",    Look::kFirstArgument, Match::kWhole,  kIsifRw,     0, nullptr},
    {"-5150rw",    Look::kFirstArgument, Match::kWhole,  kTvp5150Rw,  0, nullptr},
    {"-5150",      Look::kFirstArgument, Match::kWhole,  kTvp5150,    0, nullptr},
    {"-wr",        Look::kFirstArgument, Match::kWhole,  kWr,         0, nullptr},
    {"-restor",    Look::kFirstArgument, Match::kWhole,  kRestor,     0, scan_restor},
    {"-f=",        Look::kEachArgument,  Match::kPrefix, kLoadF,      0, scan_bitstream},
    {"-w=",        Look::kEachArgument,  Match::kPrefix, kLoadW,      0, scan_bitstream},
    {"-pll",       Look::kEachArgument,  Match::kWhole,  kPll,        0, nullptr},
    {"-i2c_bf",    Look::kEachArgument,  Match::kWhole,  kI2cBf,      0, nullptr},
    {"-vblk_test", Look::kEachArgument,  Match::kWhole,  kVblkTest,   0, nullptr},
    {"-vblk_rw",   Look::kEachArgument,  Match::kWhole,  kVblkRw,     0, nullptr},
    {"-i2c_bf_st", Look::kEachArgument,  Match::kWhole,  kI2cBfStart, 0, nullptr},
    {"-rdver_bf",  Look::kEachArgument,  Match::kWhole,  kBfVersion,  0, nullptr},
    {"-rdstat_bf", Look::kEachArgument,  Match::kWhole,  kBfStatus,   0, nullptr},
    {"-7353",      Look::kEachArgument,  Match::kWhole,  k7353,       0, nullptr},
    {"-blk",       Look::kEachArgument,  Match::kWhole,  kBlk,        0, nullptr},
    {"-aablk",     Look::kEachArgument,  Match::kWhole,  kAaBlk,      0, nullptr},
    {"-i2c",       Look::kEachArgument,  Match::kWhole,  kI2c,        0, nullptr},
    {"-7002",      Look::kEachArgument,  Match::kWhole,  k7002,       0, nullptr},
    {"-rdreg",     Look::kEachArgument,  Match::kWhole,  kRdReg,      0, nullptr},
    {"-wrreg",     Look::kEachArgument,  Match::kWhole,  kWrReg,      0, nullptr},
    {"-602",       Look::kEachArgument,  Match::kWhole,  kService,    0, nullptr},
    {"-ac3",       Look::kEachArgument,  Match::kWhole,  kAc3,        0, nullptr},
    {"-4192",      Look::kEachArgument,  Match::kWhole,  k4192,       0, nullptr},
    {"-reg",       Look::kEachArgument,  Match::kWhole,  kReg,        0, nullptr},
    {"-ts",        Look::kEachArgument,  Match::kWhole,  kTs,         2, nullptr},
    {"-perf",      Look::kEachArgument,  Match::kWhole,  kPerf,       0, nullptr},
    {"-gpio",      Look::kEachArgument,  Match::kWhole,  kGpio,       0, nullptr},
};
// clang-format on
static_assert(sizeof kOptions / sizeof kOptions[0] == kFlagCount);

static bool matches(const Option& option, const char* argument) {
  if (option.match == Match::kPrefix) return strncmp(argument, option.text, kPrefixLength) == 0;
  return strcmp(argument, option.text) == 0;
}

// Raises the flag of the first option of one kind that the argument names.
// Returns the arguments to pass over; unknown arguments are ignored.
static int scan_argument(CommandLine& line, Look look, const char* argument) {
  for (const Option& option : kOptions) {
    if (option.look != look || !matches(option, argument)) continue;
    line.flag[option.flag] = true;
    if (option.at_once != nullptr) option.at_once(line);
    return option.skip;
  }
  return 0;
}

static void scan(CommandLine& line) {
  for (int index = 1; index < line.argc; ++index) {
    scan_argument(line, Look::kFirstArgument, line.argv[1]);
    index += scan_argument(line, Look::kEachArgument, line.argv[index]);
  }
}

// --- single commands -----------------------------------------------------

static void set_offset(const CommandLine& line) {
  printf("Set Offset x=%d y=%d\n", line.offset_x, line.offset_y);
  Offset(line.offset_x, line.offset_y);
}

static void configure_dsp(const CommandLine& line) {
  constexpr int kMode = 1;
  constexpr int kParameter = 100;
  blkfn_config_cmd(kMode, kParameter, operand(line, 2));
  usleep(kSecond_us);
  usleep(kSecond_us);
}

static void dsp_register(const CommandLine& line) {
  const int rw = operand(line, 2);
  const int reg = operand(line, 3);
  if (rw != 0) {
    const int data = WritereadCODEC(rw & 0xFF, reg & 0xFF, 0);
    printf("Blackfin Reg util Read reg=0x%x get data=0x%x", static_cast<unsigned>(reg),
           static_cast<unsigned>(data));
  } else {
    const int data = operand(line, 4);
    WritereadCODEC(0, reg & 0xFF, data);
    printf("Blackfin Reg util Write to reg=0x%x data=0x%x", static_cast<unsigned>(reg),
           static_cast<unsigned>(data));
  }
}

static void isif_register(const CommandLine& line) {
  const int rw = operand(line, 2);
  isif_reg_util(rw, operand(line, 3), operand_to_write(line, rw));
}

static void ipipe_register(const CommandLine& line) {
  const int rw = operand(line, 2);
  ipipe_reg_util(rw, operand(line, 3), operand_to_write(line, rw));
}

static void video_chip_register(const CommandLine& line) {
  const int rw = operand(line, 2);
  const int reg = operand(line, 3);
  const int data = operand_to_write(line, rw);
  if (line.flag[kTvp5150Rw]) {
    TVP5150_RW(rw & 0xFF, reg, data);
  } else {
    VBLK_RW(rw & 0xFF, reg, data);
  }
}

static void start_dsp() {
  blkfn_start();
  usleep(kSecond_us);
}

static void print_dsp_version() {
  const int version = blkfn_read_version();
  printf("bf version is : %d.%d\n", version >> 4, version & 15);
}

static void print_dsp_status() {
  printf("bf status is 0x%x\n", static_cast<unsigned>(blkfn_read_status()));
}

// --- FPGA registers ------------------------------------------------------

// A device that does not open is reported only: requests fail, reads give 0.
static void open_fpga_for_bench() { fpga_file = open_fpga_stream(kFpgaNotOpened); }

static void close_fpga_for_bench() {
  if (fpga_file != nullptr) fclose(fpga_file);
  fpga_file = nullptr;
}

// Operators number registers by 16-bit words.
static int byte_address(int word) { return static_cast<int>(static_cast<unsigned>(word) * 2U); }

static void read_fpga_register(const CommandLine& line) {
  open_fpga_for_bench();
  const int word = operand(line, 2);
  printf("addr 0x%x: 0x%x\n", static_cast<unsigned>(word), GetValue(byte_address(word)));
  close_fpga_for_bench();
}

static void write_fpga_register(const CommandLine& line) {
  puts("wr_fpga_reg!!!!!!!!!!!!!");
  open_fpga_for_bench();
  const int word = operand(line, 2);
  const int value = operand(line, 3);
  printf("Write 0x%x to reg 0x%x\n", static_cast<unsigned>(value), static_cast<unsigned>(word));
  SetValue(byte_address(word), value);
  close_fpga_for_bench();
}

static void write_ac3_control(const CommandLine& line) {
  puts("FPGA WR  command");
  open_fpga_for_bench();
  SetAC3ctrl(operand(line, 2) & 0xFFFF);
  usleep(kMillisecond_us);
  close_fpga_for_bench();
}

// --- chips ---------------------------------------------------------------

// Swings the PLL between its two settings until the operator stops it.
[[noreturn]] static void swing_pll() {
  constexpr std::uint8_t kSwing = 0xF0;
  std::uint8_t command[] = {0x70, 0x00};
  for (;;) {
    std::uint8_t buffer[sizeof command];
    memcpy(buffer, command, sizeof command);
    progPll(buffer);
    command[1] ^= kSwing;
    usleep(kMillisecond_us);
  }
}

static void set_up_vga_digitizer() {
  constexpr int kBenchVideoStd = 25;
  get_shm_key();
  shared_set(&SharedBlock::videoStd, kBenchVideoStd);
  SetInputMux(kChannelRgb);
  Init7002(kChannelRgb);
}

// --- service -------------------------------------------------------------

static void run_service(const CommandLine& line) {
  puts(" LN 3151");
  printf("argc=%d\n", line.argc);
  int monitor_disabled = 0;
  if (line.argc > 2 && argument_is(line, 2, "getmon")) {
    start_monitoring = 1;
    puts(" Go to UPDATE  command");
  }
  if (line.argc > 2 && argument_is(line, 2, "nomon")) {
    monitor_disabled = 1;
    printf("argv[2]=%s\n", line.argv[2]);
    puts(" monitor is disabled!!");
  }
  if (line.argc > 3 && argument_is(line, 3, "dbg")) {
    dbg_encode = 1;
    printf("argv[3]=%s\n", line.argv[3]);
    puts(" enocde debug is enabled!!");
  }
  puts(" LN 3157");
  prog602(monitor_disabled);
}

// --- dispatch ------------------------------------------------------------

enum class Next { kGoOn, kEnd };

// Commands of which the first found ends the program; offset, blanking test and
// DSP register let the others follow.
static Next dispatch_register_commands(const CommandLine& line) {
  if (line.flag[kOffset]) set_offset(line);
  if (line.flag[kI2cBf]) {
    configure_dsp(line);
    return Next::kEnd;
  }
  if (line.flag[kVblkTest]) SetVBLK_F0(1);
  if (line.flag[kBfRw]) dsp_register(line);
  if (line.flag[kIsifRw]) {
    isif_register(line);
    return Next::kEnd;
  }
  if (line.flag[kIpipeRw]) {
    ipipe_register(line);
    return Next::kEnd;
  }
  if (line.flag[kVblkRw] || line.flag[kTvp5150Rw]) {
    video_chip_register(line);
    return Next::kEnd;
  }
  if (line.flag[kI2cBfStart]) {
    start_dsp();
    return Next::kEnd;
  }
  if (line.flag[kBfVersion]) {
    print_dsp_version();
    return Next::kEnd;
  }
  if (line.flag[kBfStatus]) {
    print_dsp_status();
    return Next::kEnd;
  }
  if (line.flag[kRdReg]) {
    read_fpga_register(line);
    return Next::kEnd;
  }
  if (line.flag[kWrReg]) {
    write_fpga_register(line);
    return Next::kEnd;
  }
  return Next::kGoOn;
}

static void dispatch_board_commands(const CommandLine& line) {
  if (line.flag[kWr]) write_ac3_control(line);
  if (line.flag[kGpio]) prog_gpio(operand(line, 2));
  if (line.flag[kLoadF]) fpgaLoadBitstream(line.bitstream);
  if (line.flag[kLoadW]) fpgaLoadBitstream(line.bitstream);
  if (line.flag[kPll]) swing_pll();
  if (line.flag[k7353]) prog7353();
  if (line.flag[kBlk]) prog_blk();
  if (line.flag[kAaBlk]) prog_aablk();
  if (line.flag[kI2c]) {
    prog_i2c_test(operand(line, 2), operand(line, 3), operand(line, 4), operand(line, 5));
  }
}

static void dispatch_service_commands(const CommandLine& line) {
  if (line.flag[k7002]) set_up_vga_digitizer();
  if (line.flag[kService]) run_service(line);
  if (line.flag[kAc3]) {
    puts("ac3_test");
    ac3_test();
  }
  if (line.flag[k4192]) prog4192();
  if (line.flag[kReg]) FpgaReg();
  if (line.flag[kPerf]) FpgaPerf();
}

int run_command_line(int argc, char** argv) {
  CommandLine line{argc, argv, {}, 0, 0, ""};
  scan(line);
  if (dispatch_register_commands(line) == Next::kEnd) return 0;
  dispatch_board_commands(line);
  // The report ends only when the bus does not open.
  if (line.flag[kTvp5150]) return tvp5150_report_loop();
  dispatch_service_commands(line);
  return 0;
}
