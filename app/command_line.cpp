// The options of vantorig: one table, in the order in which they act.
//
// The options looked for in the first argument are looked for there once for every
// argument there is; so those that act at once act that often. Operands stand at
// fixed positions, wherever the option stood.
#include "app/command_line.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iterator>

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
#include "hw/gpio.h"
#include "hw/time_units.h"
#include "state/service_flags.h"

using Line = CommandLine&;

// --- operands ------------------------------------------------------------

static constexpr std::size_t kPrefixLength = 3;  // "-f=", "-w="

// The number at an argument position; 0 when it is missing or is no number.
static int operand(const CommandLine& line, int position) {
  int value = 0;
  if (position < line.argc && sscanf(line.argv[position], "%i", &value) != 1) return 0;
  return value;
}

static bool word_is(const CommandLine& line, int position, const char* word) {
  return position < line.argc && strcmp(line.argv[position], word) == 0;
}

// The file name comes from the first argument, wherever the option stood.
static const char* file_name(const CommandLine& line) {
  const char* first = line.argv[1];
  return strlen(first) > kPrefixLength ? first + kPrefixLength : "";
}

// Calls a register utility with its operands; the third only to write (rw = 0).
template <auto kUtility, int kMask = ~0>
static void use_register(Line line) {
  const int rw = operand(line, 2);
  kUtility(rw & kMask, operand(line, 3), rw == 0 ? operand(line, 4) : 0);
}

// --- actions -------------------------------------------------------------

static void restore(Line) {
  puts(" Go to Restor  command");
  restor_from_manufacture();
}

static void set_offset(Line line) {
  const int x = operand(line, 2);
  const int y = operand(line, 3);
  printf("Set Offset x=%d y=%d\n", x, y);
  Offset(x, y);
}

static void configure_dsp(Line line) {
  constexpr int kMode = 1;
  constexpr int kVolume = 100;
  blkfn_config_cmd(kMode, kVolume, operand(line, 2));
  usleep(kSecond_us);
  usleep(kSecond_us);
}

static void dsp_register(int rw, int reg, int data) {
  const int answer = WritereadCODEC(rw & 0xFF, reg & 0xFF, data);
  if (rw != 0) {
    printf("Blackfin Reg util Read reg=0x%x get data=0x%x", static_cast<unsigned>(reg),
           static_cast<unsigned>(answer));
  } else {
    printf("Blackfin Reg util Write to reg=0x%x data=0x%x", static_cast<unsigned>(reg),
           static_cast<unsigned>(data));
  }
}

static void start_dsp(Line) {
  blkfn_start();
  usleep(kSecond_us);
}

static void print_dsp_version(Line) {
  const int version = blkfn_read_version();
  printf("bf version is : %d.%d\n", version >> 4, version & 15);
}

static void print_dsp_status(Line) {
  printf("bf status is 0x%x\n", static_cast<unsigned>(blkfn_read_status()));
}

static void read_i2c(Line line) {
  prog_i2c_test(operand(line, 2), operand(line, 3), operand(line, 4), operand(line, 5));
}

static void run_service(Line line) {
  puts(" LN 3151");
  printf("argc=%d\n", line.argc);
  if (word_is(line, 2, "getmon")) {
    line.status_file = true;
    puts(" Go to UPDATE  command");
  }
  const bool monitor_disabled = word_is(line, 2, "nomon");
  if (monitor_disabled) {
    printf("argv[2]=%s\n", line.argv[2]);
    puts(" monitor is disabled!!");
  }
  if (word_is(line, 3, "dbg")) {
    dbg_encode = 1;
    printf("argv[3]=%s\n", line.argv[3]);
    puts(" enocde debug is enabled!!");
  }
  puts(" LN 3157");
  prog602(monitor_disabled, line.status_file);
}

static void capture_ac3(Line line) {
  puts("ac3_test");
  ac3_test(line.status_file);
}

// --- the table -----------------------------------------------------------

using enum Look;
using enum Act;

// clang-format off
static constexpr Option kOptions[] = {
    // text        looked for    acts    skips action
    {"-help",      kFirst, kAtOnce, 0, [](Line) { print_help(); }},
    {"-loadbf",    kFirst, kAtOnce, 0, [](Line) { Load_BF(); }},
    {"-restor",    kFirst, kAtOnce, 0, restore},
    {"-offset",    kFirst, kGoOn,   0, set_offset},
    {"-i2c_bf",    kEach,  kEnd,    0, configure_dsp},
    {"-vblk_test", kEach,  kGoOn,   0, [](Line) { SetVBLK_F0(1); }},
    {"-bf_rw",     kFirst, kGoOn,   0, use_register<dsp_register>},
    {"-isifrw",    kFirst, kEnd,    0, use_register<isif_reg_util>},
    {"-ipiperw",   kFirst, kEnd,    0, use_register<ipipe_reg_util>},
    {"-5150rw",    kFirst, kEnd,    0, use_register<TVP5150_RW, 0xFF>},
    {"-vblk_rw",   kEach,  kEnd,    0, use_register<VBLK_RW, 0xFF>},
    {"-i2c_bf_st", kEach,  kEnd,    0, start_dsp},
    {"-rdver_bf",  kEach,  kEnd,    0, print_dsp_version},
    {"-rdstat_bf", kEach,  kEnd,    0, print_dsp_status},
    {"-rdreg",     kEach,  kEnd,    0, [](Line line) { print_fpga_word(operand(line, 2)); }},
    {"-wrreg",     kEach,  kEnd,    0, [](Line line) { write_fpga_word(operand(line, 2), operand(line, 3)); }},
    {"-wr",        kFirst, kGoOn,   0, [](Line line) { write_ac3_control(operand(line, 2)); }},
    {"-gpio",      kEach,  kGoOn,   0, [](Line line) { prog_gpio(operand(line, 2)); }},
    {"-f=",        kEach,  kGoOn,   0, [](Line line) { fpgaLoadBitstream(file_name(line)); }},
    {"-w=",        kEach,  kGoOn,   0, [](Line line) { fpgaLoadBitstream(file_name(line)); }},
    {"-pll",       kEach,  kEnd,    0, [](Line) { swing_pll(); }},
    {"-7353",      kEach,  kGoOn,   0, [](Line) { prog7353(); }},
    {"-blk",       kEach,  kGoOn,   0, [](Line) { prog_blk(); }},
    {"-aablk",     kEach,  kGoOn,   0, [](Line) { prog_aablk(); }},
    {"-i2c",       kEach,  kGoOn,   0, read_i2c},
    {"-5150",      kFirst, kEnd,    0, [](Line line) { line.status = tvp5150_report_loop(); }},
    {"-7002",      kEach,  kGoOn,   0, [](Line) { set_up_vga_digitizer(); }},
    {"-602",       kEach,  kGoOn,   0, run_service},
    {"-ac3",       kEach,  kGoOn,   0, capture_ac3},
    {"-4192",      kEach,  kGoOn,   0, [](Line) { prog4192(); }},
    {"-reg",       kEach,  kGoOn,   0, [](Line) { FpgaReg(); }},
    {"-perf",      kEach,  kGoOn,   0, [](Line) { FpgaPerf(); }},
    {"-ts",        kEach,  kGoOn,   2, nullptr},
};
// clang-format on

std::span<const Option> options() { return kOptions; }

// --- scan and run --------------------------------------------------------

static bool matches(const char* text, const char* argument) {
  const bool prefix = text[strlen(text) - 1] == '=';
  return prefix ? strncmp(argument, text, kPrefixLength) == 0 : strcmp(argument, text) == 0;
}

// Runs or flags the option of one kind that the argument names. Returns the
// arguments to pass over; unknown arguments are ignored.
static int scan_argument(Line line, bool* flagged, Look look, const char* argument) {
  for (std::size_t i = 0; i < std::size(kOptions); ++i) {
    const Option& option = kOptions[i];
    if (option.look != look || !matches(option.text, argument)) continue;
    if (option.act == kAtOnce) {
      option.action(line);
    } else {
      flagged[i] = option.action != nullptr;
    }
    return option.skip;
  }
  return 0;
}

int run_command_line(int argc, char** argv) {
  CommandLine line{argc, argv};
  bool flagged[std::size(kOptions)] = {};
  for (int index = 1; index < argc; ++index) {
    scan_argument(line, flagged, kFirst, argv[1]);
    index += scan_argument(line, flagged, kEach, argv[index]);
  }
  for (std::size_t i = 0; i < std::size(kOptions); ++i) {
    if (!flagged[i]) continue;
    kOptions[i].action(line);
    if (kOptions[i].act == kEnd) break;
  }
  return line.status;
}
