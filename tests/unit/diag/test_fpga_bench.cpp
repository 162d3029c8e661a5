// The FPGA bench commands: raw requests, in full and in order, and the speed
// arithmetic.
#include "diag/fpga_bench.h"

#include <gmock/gmock.h>

#include <sys/types.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "hw/fpga.h"
#include "vboard/core/trace.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using vboard::Bench;
using vboard::lines;

std::string format(const char* text, auto... values) {
  char line[160];
  snprintf(line, sizeof line, text, values...);
  return line;
}

// --- device missing -------------------------------------------------------

struct Command {
  const char* name;
  int (*run)();
  const char* message;
};

constexpr Command kCommands[] = {
    {"prog_rdreg", [] { return prog_rdreg(0x40); }, "Cannot access SPI port (/dev/fpga) - 1\n"},
    {"prog_wrreg", [] { return prog_wrreg(0x40, 1); }, "Cannot access SPI port (/dev/fpga) - 1\n"},
    {"FpgaReg", FpgaReg, "Cannot access SPI port (/dev/fpga)\n"},
    {"FpgaPerf", FpgaPerf, "Cannot access SPI port (/dev/fpga)\n"},
    {"wr_fpga", [] { return wr_fpga(0x40, 1); }, "Cannot access SPI port (/dev/fpga)\n"},
};

class FpgaBenchCommand : public testing::TestWithParam<Command> {};

TEST_P(FpgaBenchCommand, device_missing_prints_and_returns_1) {
  Bench bench;
  bench.world("fault missing fpga");
  EXPECT_EQ(GetParam().run(), 1);
  EXPECT_EQ(bench.output(), GetParam().message);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/fpga = ENOENT"));
}
INSTANTIATE_TEST_SUITE_P(Rows, FpgaBenchCommand, testing::ValuesIn(kCommands),
                         [](const auto& row) { return row.param.name; });

// --- single registers -------------------------------------------------------

TEST(ProgRdreg, returns_the_register_and_leaves_the_stream_open) {
  Bench bench;
  bench.set_fpga(0x204, 0xABCD);
  EXPECT_EQ(prog_rdreg(0x204), 0xABCD);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/fpga r+b", "fpga rd 0x0204 -> 0xabcd"));
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/fpga\n");
}

TEST(ProgRdreg, odd_address_reads_the_even_register_below) {
  Bench bench;
  bench.set_fpga(0x204, 7);
  EXPECT_EQ(prog_rdreg(0x205), 7);
}

TEST(ProgRdreg, failing_request_reads_0) {
  Bench bench;
  bench.set_fpga(0x204, 7);
  bench.world("fault fpga-fail 16");
  EXPECT_EQ(prog_rdreg(0x204), 0);
  EXPECT_EQ(bench.output(), "");
}

TEST(ProgWrreg, writes_16_bits_and_leaves_the_stream_open) {
  Bench bench;
  EXPECT_EQ(prog_wrreg(0x210, 0x12345), 0);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/fpga r+b", "fpga wr 0x0210 <- 0x2345"));
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/fpga\n");
}

TEST(ProgWrreg, failing_request_gives_its_result) {
  Bench bench;
  bench.world("fault fpga-fail 15");
  EXPECT_EQ(prog_wrreg(0x210, 1), -1);
}

// --- crossed access -----------------------------------------------------------

// The record carries the even byte address as its word index, so the register
// that is reached lies at twice the address.

TEST(WrFpga, data_goes_out_with_the_read_request) {
  Bench bench;
  bench.set_fpga(0x80, 0x5678);
  EXPECT_EQ(wr_fpga(0x41, 0x1AB), 0);
  EXPECT_EQ(bench.output(), "write add reg 0x40 data 0x1ab\n");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/fpga r+b", "wait 1000",
                                         "fpga rd 0x0080 -> 0x5678", "close /dev/fpga"));
}

TEST(WrFpga, data_0_writes_0) {
  Bench bench;
  bench.set_fpga(0x80, 0x5678);
  EXPECT_EQ(wr_fpga(0x41, 0), 0);
  EXPECT_EQ(bench.output(), "read reg add 0x41 data org:0x0  hi:0x0   lw:0x0\n");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/fpga r+b", "wait 1000",
                                         "fpga wr 0x0080 <- 0x0000", "close /dev/fpga"));
}

TEST(WrFpga, failing_read_request_prints_and_goes_on) {
  Bench bench;
  bench.world("fault fpga-fail 16");
  EXPECT_EQ(wr_fpga(0x40, 0xFF), 0);
  EXPECT_EQ(bench.output(), "Cannot access ioctl\nwrite add reg 0x40 data 0xff\n");
}

TEST(WrFpga, failing_write_request_prints_and_goes_on) {
  Bench bench;
  bench.world("fault fpga-fail 15");
  EXPECT_EQ(wr_fpga(0x40, 0), 0);
  EXPECT_EQ(bench.output(),
            "Cannot access ioctl\nread reg add 0x40 data org:0x0  hi:0x0   lw:0x0\n");
}

// --- register test --------------------------------------------------------------

constexpr int kTestRegisters = 32;
constexpr int kPatternRounds = 68;  // n = 0, 2 .. 134

std::vector<std::string> test_register_output(int rc, bool values) {
  std::vector<std::string> text;
  for (int i = 0; i < kTestRegisters; ++i) {
    text.push_back(format("13 - WR  i=%d rc=%d", i, rc));
    text.push_back(format("14 - RD i=%d rc=%d val=0x%x", i, rc, values ? i : 0));
  }
  return text;
}

// The pattern as it reads back from a register file that keeps what is written.
void hold_registers(Bench& bench) { bench.board().fpga.held = true; }

TEST(FpgaReg, writes_and_reads_every_register_in_order) {
  Bench bench;
  hold_registers(bench);

  EXPECT_EQ(FpgaReg(), 0);

  std::vector<std::string> traffic = {"open /dev/fpga r+b"};
  for (int i = 0; i < kTestRegisters; ++i) {
    traffic.push_back(format("fpga test-select %d", i));
    traffic.push_back(format("fpga test-wr %d", i));
    traffic.push_back(format("fpga test-select %d", i));
    traffic.push_back(format("fpga test-rd -> %d", i));
  }
  // Word index n is byte address 2n in the trace.
  for (int n = 0; n <= 134; n += 2)
    traffic.push_back(format("fpga wr 0x%04x <- 0x%04x", 2 * n, n + 0x1234));
  for (int n = 0; n <= 134; n += 2)
    for (int twice = 0; twice < 2; ++twice)
      traffic.push_back(format("fpga rd 0x%04x -> 0x%04x", 2 * n, n + 0x1234));
  traffic.emplace_back("close /dev/fpga");
  EXPECT_THAT(bench.trace(), ElementsAreArray(traffic));

  std::vector<std::string> text = test_register_output(0, true);
  std::string pattern;
  for (int n = 0; n <= 134; n += 2) pattern += format("0x%x\t", n + 0x1234);
  text.push_back(pattern);
  const std::string output = bench.output();
  EXPECT_THAT(lines(output), ElementsAreArray(text));
  EXPECT_EQ(output.back(), '\t');
}

TEST(FpgaReg, pattern_has_68_rounds) {
  Bench bench;
  hold_registers(bench);
  FpgaReg();
  EXPECT_EQ(bench.trace({"fpga wr"}).size(), static_cast<std::size_t>(kPatternRounds));
}

TEST(FpgaReg, only_the_second_read_counts) {
  Bench bench;
  hold_registers(bench);
  vboard::seam::fail_call("ioctl", "/dev/fpga 16", 0, 1, EIO);
  EXPECT_EQ(FpgaReg(), 0);
  const std::vector<std::string> text = lines(bench.output());
  EXPECT_THAT(text.back(), testing::StartsWith("0x1234\t0x1236\t"));
}

TEST(FpgaReg, failing_write_ends_the_pattern_and_reads_go_on) {
  Bench bench;
  hold_registers(bench);
  for (int n = 0; n <= 134; n += 2) bench.set_fpga(2 * n, 0x11);
  vboard::seam::fail_call("ioctl", "/dev/fpga 15", 2, 1, EIO);  // the third

  EXPECT_EQ(FpgaReg(), 0);

  EXPECT_EQ(bench.trace({"fpga wr"}).size(), 2u);
  std::vector<std::string> text = test_register_output(0, true);
  text.push_back(format("ioctl failed rc=-1 errno=%d", EIO));
  std::string pattern = "0x1234\t0x1236\t";
  for (int n = 4; n <= 134; n += 2) pattern += "0x11\t";
  text.push_back(pattern);
  EXPECT_THAT(lines(bench.output()), ElementsAreArray(text));
}

TEST(FpgaReg, failing_second_read_ends_the_command) {
  Bench bench;
  hold_registers(bench);
  vboard::seam::fail_call("ioctl", "/dev/fpga 16", 3, 1, EIO);  // of the second register

  EXPECT_EQ(FpgaReg(), 0);

  std::vector<std::string> text = test_register_output(0, true);
  text.push_back(format("0x1234\tioctl failed rc=-1 errno=%d", EIO));
  EXPECT_THAT(lines(bench.output()), ElementsAreArray(text));
  EXPECT_EQ(bench.trace().back(), "close /dev/fpga");
}

TEST(FpgaReg, every_request_failing_prints_every_result) {
  Bench bench;
  bench.world("fault fpga-fail");

  EXPECT_EQ(FpgaReg(), 0);

  std::vector<std::string> text = test_register_output(-1, false);
  text.push_back(format("ioctl failed rc=-1 errno=%d", EIO));
  text.push_back(format("ioctl failed rc=-1 errno=%d", EIO));
  EXPECT_THAT(lines(bench.output()), ElementsAreArray(text));
}

// --- block speed ------------------------------------------------------------------

// A block request takes 5 us and 1 us for 16 bytes, reading the clock 1 us. The
// number of requests is 40 000 000 / size, rounded up:
//     256: 156250 x   21 us = 3 281 250 us       512: 78125 x   37 = 2 890 625
//    1024:  39063 x   69    = 2 695 347         2048: 19532 x  133 = 2 597 756
//    4096:   9766 x  261    = 2 548 926         8192:  4883 x  517 = 2 524 511
//   16384:   2442 x 1029    = 2 512 818        32768:  1221 x 2053 = 2 506 713
//   65536:    611 x 4101    = 2 505 711
// A duration is the difference of two clocks cut to whole milliseconds; the
// first one reads 1 us, each later one a microsecond after the end before.
//   end of run k: 3 281 252, 6 171 879, 8 867 228, 11 464 986, 14 013 914,
//                 16 538 427, 19 051 247, 21 557 962, 24 063 675 (writes)
// Speed: 40 000 000 / duration, whole, / 1000 * 8.
constexpr const char* kWriteSpeeds[] = {
    "block size=256  duration=3281 mSec, speed=97.528000 Mb/Sec",
    "block size=512  duration=2890 mSec, speed=110.720000 Mb/Sec",
    "block size=1024  duration=2696 mSec, speed=118.688000 Mb/Sec",
    "block size=2048  duration=2597 mSec, speed=123.216000 Mb/Sec",
    "block size=4096  duration=2549 mSec, speed=125.536000 Mb/Sec",
    "block size=8192  duration=2525 mSec, speed=126.728000 Mb/Sec",
    "block size=16384  duration=2513 mSec, speed=127.336000 Mb/Sec",
    "block size=32768  duration=2506 mSec, speed=127.688000 Mb/Sec",
    "block size=65536  duration=2506 mSec, speed=127.688000 Mb/Sec",
};

// The reads cost the same and go on from there; ends of run: 27 344 927, 30 235 554,
// 32 930 903, 35 528 661, 38 077 589, 40 602 102, 43 114 922, 45 621 637, 48 127 350.
constexpr const char* kReadSpeeds[] = {
    "block size=256  duration=3281 mSec, speed=97.528000 Mb/Sec",
    "block size=512  duration=2891 mSec, speed=110.688000 Mb/Sec",
    "block size=1024  duration=2695 mSec, speed=118.736000 Mb/Sec",
    "block size=2048  duration=2598 mSec, speed=123.168000 Mb/Sec",
    "block size=4096  duration=2549 mSec, speed=125.536000 Mb/Sec",
    "block size=8192  duration=2525 mSec, speed=126.728000 Mb/Sec",
    "block size=16384  duration=2512 mSec, speed=127.384000 Mb/Sec",
    "block size=32768  duration=2507 mSec, speed=127.640000 Mb/Sec",
    "block size=65536  duration=2506 mSec, speed=127.688000 Mb/Sec",
};

class FpgaPerfRun : public testing::Test {
 protected:
  FpgaPerfRun() { vboard::set_trace_sink(count_requests); }

  static void count_requests(const char* line) {
    if (std::string_view(line).starts_with("fpga wrblk")) ++writes;
    if (std::string_view(line).starts_with("fpga rdblk")) ++reads;
  }

  Bench bench;
  static inline int writes;
  static inline int reads;
};

TEST_F(FpgaPerfRun, nine_sizes_a_pass_with_their_speeds) {
  writes = reads = 0;
  EXPECT_EQ(FpgaPerf(), 0);

  const std::vector<std::string> text = lines(bench.output());
  ASSERT_EQ(text.size(), 20u);
  EXPECT_EQ(text[0], "Write performance:");
  EXPECT_THAT(std::vector<std::string>(text.begin() + 1, text.begin() + 10),
              ElementsAreArray(kWriteSpeeds));
  EXPECT_EQ(text[10], "Read performance:");
  EXPECT_THAT(std::vector<std::string>(text.begin() + 11, text.end()),
              ElementsAreArray(kReadSpeeds));
  // 156250 + 78125 + 39063 + 19532 + 9766 + 4883 + 2442 + 1221 + 611
  EXPECT_EQ(writes, 311893);
  EXPECT_EQ(reads, 311893);
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST_F(FpgaPerfRun, request_results_are_ignored) {
  bench.world("fault fpga-fail 17");
  EXPECT_EQ(FpgaPerf(), 0);
  EXPECT_EQ(lines(bench.output())[1], kWriteSpeeds[0]);
}

TEST(FpgaPerfDeathTest, duration_of_0_ends_the_process_by_a_division) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        Bench bench;
        vboard::set_trace_sink(nullptr);
        // Refused before the driver: the requests take no time at all.
        vboard::seam::fail_call("ioctl", "/dev/fpga 17", 0, -1, EIO);
        FpgaPerf();
      },
      testing::KilledBySignal(SIGFPE), "");
}

// --- AC-3 control register --------------------------------------------------

// The register device of the service open, with nothing traced yet.
struct OpenDevice {
  Bench bench;
  OpenDevice() {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.trace();
  }
};

TEST(SetAC3ctrl, writes_the_low_16_bits_and_prints_the_word_address) {
  OpenDevice on;
  EXPECT_EQ(SetAC3ctrl(0x4011), 0);
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wr 0x0224 <- 0x4011"));
  EXPECT_EQ(on.bench.output(), "read reg add 0x112 data 0x4011 \n");  // 274
}

TEST(SetAC3ctrl, wider_value_is_cut_for_the_register) {
  OpenDevice on;
  SetAC3ctrl(0x54031);
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wr 0x0224 <- 0x4031"));
  EXPECT_EQ(on.bench.output(), "read reg add 0x112 data 0x54031 \n");
}

// --- messages and traffic in one order ------------------------------------------------

TEST(WrFpga, write_in_one_order) {
  Bench bench;
  bench.world("fault fpga-fail 16");
  bench.follow();
  wr_fpga(0x205, 0xAB);
  const std::vector<std::string> seen = bench.stream();
  ASSERT_EQ(seen.size(), 6u);
  EXPECT_THAT(seen, ElementsAre("open /dev/fpga r+b", "wait 1000",
                                testing::StartsWith("fpga request 16"), "say Cannot access ioctl",
                                "say write add reg 0x204 data 0xab", "close /dev/fpga"));
}

TEST(WrFpga, read_in_one_order) {
  Bench bench;
  bench.world("fault fpga-fail 15");
  bench.follow();
  wr_fpga(0x204, 0);
  EXPECT_THAT(
      bench.stream(),
      ElementsAre("open /dev/fpga r+b", "wait 1000", testing::StartsWith("fpga request 15"),
                  "say Cannot access ioctl",
                  testing::StartsWith("say read reg add 0x204 data org:0x"), "close /dev/fpga"));
}

TEST(FpgaReg, messages_and_traffic_in_one_order) {
  Bench bench;
  bench.world("fault fpga-fail 15");  // the pattern ends at once
  bench.follow();
  FpgaReg();
  const std::vector<std::string> seen = bench.stream();
  // 32 rounds of four requests and two lines; then the pattern: one write, 68 reads
  // of two, whose values stand on one line.
  ASSERT_GE(seen.size(), 1u + 32 * 6 + 3);
  EXPECT_EQ(seen[0], "open /dev/fpga r+b");
  for (int i = 0; i < 32; ++i) {
    const std::size_t at = 1 + static_cast<std::size_t>(i) * 6;
    EXPECT_THAT(seen[at], testing::StartsWith("fpga test-select")) << i;
    EXPECT_THAT(seen[at + 1], testing::StartsWith("fpga test-wr")) << i;
    EXPECT_EQ(seen[at + 2], format("say 13 - WR  i=%d rc=0", i));
    EXPECT_THAT(seen[at + 3], testing::StartsWith("fpga test-select")) << i;
    EXPECT_THAT(seen[at + 4], testing::StartsWith("fpga test-rd")) << i;
    EXPECT_THAT(seen[at + 5], testing::StartsWith(format("say 14 - RD i=%d rc=0", i)));
  }
  const std::size_t pattern = 1 + 32 * 6;
  EXPECT_THAT(seen[pattern], testing::StartsWith("fpga request 15"));
  EXPECT_THAT(seen[pattern + 1], testing::StartsWith("say ioctl failed rc=-1"));
  EXPECT_THAT(seen[pattern + 2], testing::StartsWith("fpga rd 0x0000"));
  EXPECT_EQ(seen.back(), "close /dev/fpga");
}

}  // namespace
