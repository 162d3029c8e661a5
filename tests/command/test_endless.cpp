// Commands that only the operator ends, watched for some rounds.
#include <gmock/gmock.h>

#include <string>

#include "tests/command/command_case.h"

namespace {

const char kPllMissing[] = "Cannot access SPI port (/dev/fpga2)";

// ---- -pll ------------------------------------------------------------------------

TEST(Pll, swings_between_two_settings_for_many_rounds) {
  BoardRun board;
  const Result result = board.vantorig("-pll", 2);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  const Lines trace = board.trace();
  ASSERT_GT(trace.size(), 5u * 1000u);
  for (std::size_t round = 0; round * 5 + 5 <= trace.size(); ++round) {
    const std::string setting = round % 2 == 0 ? "70 00" : "70 f0";
    const Lines seen(trace.begin() + static_cast<long>(round * 5),
                     trace.begin() + static_cast<long>(round * 5 + 5));
    ASSERT_EQ(seen, (Lines{"open /dev/fpga2 r+b", "pll wr " + setting, "pll rd " + setting,
                           "close /dev/fpga2", "wait 1000"}))
        << "round " << round;
  }
}

TEST(Pll, device_missing_goes_on_trying) {
  BoardRun board;
  board.vboard("fault missing fpga2");
  const Result result = board.vantorig("-pll", 0.0105);  // a try every 1000 us
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(lines_of(result.out), Lines(11, kPllMissing));
  const Lines trace = board.trace();
  ASSERT_EQ(trace.size(), 22u);
  for (std::size_t i = 0; i < trace.size(); i += 2) {
    EXPECT_EQ(trace[i], "open /dev/fpga2 = ENOENT");
    EXPECT_EQ(trace[i + 1], "wait 1000");
  }
}

TEST(Pll, comes_behind_gpio_and_before_7353) {
  BoardRun board;
  board.vboard("fault missing fpga2");
  const Result result = board.vantorig("-7353 28 -pll -gpio", 0.0025);
  EXPECT_EQ(lines_of(result.out),
            (Lines{"Start prog_gpio,input_data = 28", kPllMissing, kPllMissing, kPllMissing}));
}

// ---- -aablk ----------------------------------------------------------------------

TEST(Aablk, writes_every_millisecond) {
  BoardRun board;
  const Result result = board.vantorig("-aablk", 0.5);
  EXPECT_EQ(result.status, 0);
  const Lines trace = board.trace();
  ASSERT_GT(trace.size(), 2u * 380u);  // a write takes 0.29 ms: 387 of them
  EXPECT_EQ(trace[0], "open /dev/i2c-1");
  for (std::size_t i = 1; i + 1 < trace.size(); i += 2) {
    ASSERT_EQ(trace[i], "i2c 55 wr 63 63");
    ASSERT_EQ(trace[i + 1], "wait 1000");
  }
  EXPECT_EQ(lines_of(result.out), Lines(trace.size() / 2, "i2c_writebyte AA blk "));
}

TEST(Aablk, silent_chip_changes_nothing) {
  BoardRun board;
  board.vboard("fault i2c-fail 55");
  const Result result = board.vantorig("-aablk", 0.0105);
  EXPECT_EQ(result.out.substr(0, 23), "i2c_writebyte AA blk \ni");
  EXPECT_EQ(board.trace({"i2c"}).front(), "i2c 55 wr 63 63 = EREMOTEIO");
}

// ---- -5150 -----------------------------------------------------------------------

// 625 lines, locked, captions in both fields.
const char kLockedReport[] =
    "Interrupt Status Register A =0xc0  data1 = 0x0\n"
    "Interrupt Status Register A =0xc1  data1 = 0x0\n"
    "Closed caption Status Register reg =0xc6  data1 = 0x18\n"
    "Field 1 data available\n"
    "Closed caption data registers 5150 reg =0x90  data1 = 0xc8\n"
    "Closed caption data registers 5150 reg =0x91  data1 = 0x49\n"
    "Closed caption data registers 5150 reg =0x92  data1 = 0x80\n"
    "Closed caption data registers 5150 reg =0x93  data1 = 0x80\n"
    "Closed caption data registers 5150 reg =0x94  data1 = 0x0\n"
    "Field 2 data available\n"
    "Closed caption data registers 5150 reg =0x92  data1 = 0x80\n"
    "Closed caption data registers 5150 reg =0x93  data1 = 0x80\n"
    "FIFO is not empty\n"
    "No FIFO full error.\n"
    "Vertical line = 625 \n"
    "Status Register #1 reg =0x88 \n \n"
    "TV \n"
    "***********  Horizontal sync lock status\n"
    "***********  Vertical sync lock status\n"
    "***********  Color subcarrier is locked\n"
    "No lost lock since status register\n"
    "Field rate status: 50Hz\n"
    "Line-alternating status\n"
    "Peak white is not detected.\n"
    "Status Register #2 reg =0x89  data = 0x30\n"
    "PAL switch is 1.\n"
    "Odd field.\n"
    "AGC and offset are not frozen\n"
    "AGC and offset are not frozen\n"
    "Status Register #3 reg =0x8a  data = 0x0\n"
    "Status Register #4 reg =0x8b  data = 0x0\n"
    "Status Register #5 reg =0x8C \n"
    "Autoswitch mode \n"
    "(B, G, H, I, N) PAL ITU-R BT.601\n";

// Captions in line 21 of both fields, and the record by which they are read.
void set_up_captions(BoardRun& board) {
  const auto write = [&board](const std::string& reg, const std::string& value) {
    board.vantorig("-5150rw 0 " + reg + " " + value);
  };
  write("0xEE", "0x07");
  write("0xEF", "0x07");
  write("0xC4", "0xE0");
  write("0xC3", "0xAA");
  write("0xC3", "0x2A");
  for (int i = 2; i < 16; ++i) write("0xC3", "0");
}

TEST(Report5150, locked_decoder_with_captions) {
  BoardRun board;
  set_up_captions(board);
  board.vboard("source composite");
  board.vboard("set-standard 576i");
  board.vboard("captions on");
  const Result result = board.vantorig("-5150", 1);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, kLockedReport);
  EXPECT_EQ(
      board.trace(),
      (Lines{"open /dev/i2c-1",    "i2c 5d rd c0 -> 00", "i2c 5d rd c1 -> 00", "i2c 5d rd c6 -> 18",
             "i2c 5d rd 90 -> c8", "i2c 5d rd 91 -> 49", "i2c 5d rd 92 -> 80", "i2c 5d rd 93 -> 80",
             "i2c 5d rd 94 -> 00", "i2c 5d rd 92 -> 80", "i2c 5d rd 93 -> 80", "i2c 5d wr c6 ff",
             "i2c 5d rd 84 -> 02", "i2c 5d rd 85 -> 71", "i2c 5d rd 88 -> 6e", "i2c 5d rd 89 -> 30",
             "i2c 5d rd 8a -> 00", "i2c 5d rd 8b -> 00", "i2c 5d rd 8c -> 83", "wait 2000000"}));
}

// Nothing plugged in: no sync, no captions, an empty FIFO.
const char kUnlockedReport[] =
    "Interrupt Status Register A =0xc0  data1 = 0x0\n"
    "Interrupt Status Register A =0xc1  data1 = 0x0\n"
    "Closed caption Status Register reg =0xc6  data1 = 0x40\n"
    "FIFO is empty\n"
    "No FIFO full error.\n"
    "Vertical line = 0 \n"
    "Status Register #1 reg =0x88 \n \n"
    "TV \n"
    "Horizontal sync is not locked\n"
    "Vertical sync is not locked\n"
    "Color subcarrier is not locked.\n"
    "No lost lock since status register\n"
    "Field rate status: 60Hz\n"
    "No Line-alternating status\n"
    "Peak white is not detected.\n"
    "Status Register #2 reg =0x89  data = 0x0\n"
    "PAL switch is 0.\n"
    "Even field.\n"
    "AGC and offset are not frozen\n"
    "AGC and offset are not frozen\n"
    "Status Register #3 reg =0x8a  data = 0x0\n"
    "Status Register #4 reg =0x8b  data = 0x0\n"
    "Status Register #5 reg =0x8C \n"
    "Autoswitch mode \n";

TEST(Report5150, comes_every_two_seconds) {
  BoardRun board;
  const Result result = board.vantorig("-5150", 5);  // reports at 0, 2 and 4 s
  EXPECT_EQ(result.out, std::string(kUnlockedReport) + kUnlockedReport + kUnlockedReport);
  EXPECT_EQ(board.trace({"wait"}), Lines(3, "wait 2000000"));
}

struct RegisterCase {
  const char* name;
  const char* reg;
  const char* value;
  Lines expected;    // lines that the report must hold
  Lines unexpected;  // and must not
};
void PrintTo(const RegisterCase& one, std::ostream* out) { *out << one.name; }
class Report5150Register : public testing::TestWithParam<RegisterCase> {};

TEST_P(Report5150Register, is_told_bit_by_bit) {
  const RegisterCase& one = GetParam();
  BoardRun board;
  const std::string stick = std::string("fault stuck 5d ") + one.reg + " " + one.value;
  ASSERT_EQ(board.vboard(stick).status, 0) << stick;
  const Lines out = lines_of(board.vantorig("-5150", 1).out);
  for (const std::string& line : one.expected) EXPECT_THAT(out, testing::Contains(line));
  for (const std::string& line : one.unexpected)
    EXPECT_THAT(out, testing::Not(testing::Contains(line)));
}

const Lines kStandardTexts = {"(M) NTSC ITU-R BT.601",  "(B, G, H, I, N) PAL ITU-R BT.601",
                              "(M) PAL ITU-R BT.601",   "(Combination-N) ITU-R BT.601",
                              "NTSC 4.43 ITU-R BT.601", "SECAM ITU-R BT.601"};
const char kForced[] = "Stand-alone (forced video standard) mode ";

INSTANTIATE_TEST_SUITE_P(
    registers, Report5150Register,
    testing::Values(
        RegisterCase{"caption_fifo_overflow",
                     "c6",
                     "80",
                     {"FIFO is not empty", "FIFO was full during a write to FIFO."},
                     {"Field 1 data available", "Field 2 data available"}},
        RegisterCase{"caption_field_1_only",
                     "c6",
                     "10",
                     {"Field 1 data available"},
                     {"Field 2 data available"}},
        RegisterCase{"caption_field_2_only",
                     "c6",
                     "08",
                     {"Field 2 data available"},
                     {"Field 1 data available"}},
        RegisterCase{
            "status_1_all_set",
            "88",
            "ff",
            {"VCR ", "***********  Horizontal sync lock status",
             "***********  Vertical sync lock status", "***********  Color subcarrier is locked",
             "Lost lock since status register", "Field rate status: 50Hz",
             "Line-alternating status", "Peak white is detected."},
            {"TV "}},
        RegisterCase{"macrovision_1", "89", "01", {"AGC pulses/pseudo-syncs present"}, {}},
        RegisterCase{"macrovision_2",
                     "89",
                     "02",
                     {"AGC pulses/pseudo-syncs and 2-line color striping present"},
                     {}},
        RegisterCase{"macrovision_3",
                     "89",
                     "03",
                     {"AGC pulses/pseudo-syncs and 4-line color striping present"},
                     {}},
        RegisterCase{"agc_frozen",
                     "89",
                     "08",
                     {"AGC and offset are frozen."},
                     {"AGC and offset are not frozen"}},
        RegisterCase{"status_3", "8a", "5a", {"Status Register #3 reg =0x8a  data = 0x5a"}, {}},
        RegisterCase{"status_4", "8b", "a5", {"Status Register #4 reg =0x8b  data = 0xa5"}, {}},
        RegisterCase{"standard_1", "8c", "01", {kForced, kStandardTexts[0]}, {"Autoswitch mode "}},
        RegisterCase{"standard_3", "8c", "03", {kForced, kStandardTexts[1]}, {}},
        RegisterCase{"standard_5", "8c", "05", {kForced, kStandardTexts[2]}, {}},
        RegisterCase{"standard_7", "8c", "07", {kForced, kStandardTexts[3]}, {}},
        RegisterCase{"standard_9", "8c", "09", {kForced, kStandardTexts[4]}, {}},
        RegisterCase{"standard_11", "8c", "0b", {kForced, kStandardTexts[5]}, {}},
        RegisterCase{"standard_13_has_no_name", "8c", "0d", {kForced}, kStandardTexts},
        RegisterCase{"standard_2_has_no_name", "8c", "82", {"Autoswitch mode "}, kStandardTexts}),
    [](const auto& one) { return std::string(one.param.name); });

TEST(Report5150, caption_status_bit_5_is_written_back) {
  BoardRun board;
  ASSERT_EQ(board.vboard("fault stuck 5d c6 20").status, 0);
  board.vantorig("-5150", 1);
  EXPECT_EQ(board.trace({"i2c 5d rd c6", "i2c 5d wr"}),
            (Lines{"i2c 5d rd c6 -> 20", "i2c 5d wr c6 20", "i2c 5d wr c6 ff"}));
}

// ---- -ac3 ------------------------------------------------------------------------

const char kCaptureStart[] =
    "ac3_test\n"
    "OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1\n"
    "Reset FPGA\n"
    "end configure\n\n"
    "loop_control=0x0\n"
    "loop_control=0x4\n"
    "status=0x0\n"
    "date_from_fifo=0x0\n"
    "can not open capture file\n";

// The file's folder exists on no machine but the operator's: words are read and
// dropped.
TEST(Ac3, reads_what_is_pending_without_a_pause) {
  BoardRun board;
  const Result result = board.vantorig("-ac3", 0.3);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, kCaptureStart);
  Lines main_thread;
  for (const std::string& line : board.trace_with_threads())
    if (line.compare(0, 5, "main ") == 0) main_thread.push_back(line.substr(5));
  ASSERT_GT(main_thread.size(), 1000u);
  const Lines start(main_thread.begin(), main_thread.begin() + 11);
  EXPECT_EQ(
      start,
      (Lines{"shmget 0x4d454c4b 4096 0x3ff", "thread t1", "wait 100000", "open /dev/fpga r+b",
             "fpga rd 0x0108 -> 0x0000", "fpga wr 0x0108 <- 0x0004", "fpga rd 0x0108 -> 0x0004",
             "fpga rd 0x0104 -> 0x0000", "fpga rd 0x0100 -> 0x0000",
             "file /mnt/tovin/home/pero/lumos.ac3 wb = ENOENT", "fpga rd 0x0104 -> 0x0000"}));
  // As many words as each status reported, and nothing else.
  std::size_t pending = 0;
  for (std::size_t i = 10; i + 1 < main_thread.size(); ++i) {
    const std::string& line = main_thread[i];
    if (pending > 0) {
      ASSERT_EQ(line.substr(0, 14), "fpga rd 0x0100") << i;
      --pending;
    } else {
      ASSERT_EQ(line.substr(0, 14), "fpga rd 0x0104") << i;
      pending = std::stoul(line.substr(18), nullptr, 16) & 0x3FFF;
    }
  }
}

TEST(Ac3, device_missing_is_told_three_times) {
  BoardRun board;
  board.vboard("fault missing fpga");
  const Result result = board.vantorig("-ac3", 0.1);
  EXPECT_THAT(lines_of(result.out),
              testing::Contains("Cannot access SPI port (/dev/fpga)").Times(2));
}

}  // namespace
