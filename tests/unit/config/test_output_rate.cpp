// The output rate: its settings and the registers that pace the stream.
#include "config/output_rate.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>
#include <string>

#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;
namespace seam = vboard::seam;

using Handler = int (*)(const std::int32_t*, std::int32_t);
int call(Handler handler, std::int32_t value) { return handler(&value, 0); }

struct Configured {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  Configured() {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.trace();
  }
};

// ---- settings --------------------------------------------------------------------------

// What the next rate is worked out from, as it prints it.
std::string settings(Bench& bench) {
  bench.output();
  call(Setoutput_bitrate, 0);
  const std::string text = bench.output();
  const std::size_t from = text.find("manual set");
  return text.substr(from, text.find(" pct") - from);
}

// In a process of its own, as every test is run: nothing has set them yet.
TEST(SetoutputBitrate, starts_without_a_manual_rate_and_with_5_percent) {
  Configured on;
  EXPECT_EQ(settings(on.bench), "manual set 0, extra 5");
}

TEST(SetOutputBitrate, rate_outside_its_range_becomes_0) {
  // value, what is kept: the ends, the middle, just outside, far outside
  const std::int32_t cases[][2] = {{1000000, 1000000},
                                   {35000000, 35000000},
                                   {18000000, 18000000},
                                   {999999, 0},
                                   {35000001, 0},
                                   {INT_MIN, 0},
                                   {INT_MAX, 0},
                                   {-1, 0},
                                   {0, 0},
                                   {35000000 + 65536, 0}};
  Configured on;
  for (const auto& [given, kept] : cases) {
    EXPECT_EQ(call(SetOutputBitrate, given), 0);
    EXPECT_EQ(on.bench.output(), "SetOutputBitrate " + std::to_string(kept) + "\n");
    EXPECT_EQ(settings(on.bench), "manual set " + std::to_string(kept) + ", extra 5");
  }
}

TEST(SetExtraOutputRate, percentage_outside_its_range_becomes_5) {
  const std::int32_t cases[][2] = {{0, 0},       {100, 100}, {50, 50},
                                   {-1, 5},      {101, 5},   {INT_MIN, 5},
                                   {INT_MAX, 5}, {100, 100}, {100 + 65536, 5}};
  Configured on;
  for (const auto& [given, kept] : cases) {
    EXPECT_EQ(call(SetExtraOutputRate, given), 0);
    EXPECT_EQ(on.bench.output(), "");
    EXPECT_EQ(settings(on.bench), "manual set 0, extra " + std::to_string(kept));
  }
}

TEST(SetExtraOutputRate, settings_reach_no_device) {
  Configured on;
  call(SetOutputBitrate, 10000000);
  call(SetExtraOutputRate, 10);
  EXPECT_THAT(on.bench.trace(), IsEmpty());
}

// ---- the rate --------------------------------------------------------------------------

struct Rate {
  const char* name;
  std::int32_t kbps;  // "mpgVidRate"
  std::int32_t eb_mode;
  std::int32_t percent;
  std::int32_t manual;         // within its range
  std::int32_t video_bitrate;  // bit/s
  const char* rate;            // R in Mbit/s as printed
  std::int32_t interval;       // btr
  int written;                 // its low 16 bits
};

constexpr Rate kRates[] = {
    {"eb_mode_1_and_5_percent", 8000, 1, 5, 0, 8000000, "8.925000", 13651, 13651},
    {"eb_mode_0", 8000, 0, 5, 0, 8000000, "14.400000", 8461, 8461},
    {"eb_mode_1_and_0_percent", 8000, 1, 0, 0, 8000000, "8.500000", 14334, 14334},
    {"eb_mode_1_and_100_percent", 19000, 1, 100, 0, 19000000, "39.000000", 3124, 3124},
    {"eb_mode_0_ignores_the_percentage", 8000, 0, 100, 0, 8000000, "14.400000", 8461, 8461},
    {"eb_mode_other_than_1_is_the_wide_margin", 8000, 2, 5, 0, 8000000, "14.400000", 8461, 8461},
    {"manual_rate_in_eb_mode_0", 8000, 0, 5, 10000000, 8000000, "10.000000", 12184, 12184},
    {"manual_rate_in_eb_mode_1", 8000, 1, 5, 10000000, 8000000, "10.000000", 12184, 12184},
    // 121844 / 35 = 3481.26; 121844 / 1 = 121844 = 0x1DBF4
    {"highest_manual_rate", 1, 1, 5, 35000000, 1000, "35.000000", 3481, 3481},
    {"lowest_manual_rate", 1, 1, 5, 1000000, 1000, "1.000000", 121844, 0xDBF4},
    {"no_video_rate_in_eb_mode_0", 0, 0, 5, 0, 0, "4.800000", 25384, 25384},
    // 232083 = 0x38A93
    {"no_video_rate_in_eb_mode_1", 0, 1, 5, 0, 0, "0.525000", 232083, 0x8A93},
    // (3000000 * 1000 - 2^32 + 4000000) * 1.2 = -1549.16 Mbit/s; 121844 / -1549.16 = -78.65
    {"wrapped_video_rate", 3000000, 0, 5, 0, -1294967296, "-1549.160767", -78, 0xFFB2},
    // -500000 + 500000 = 0, a division by zero: the largest interval
    {"sum_of_zero_in_eb_mode_1", -500, 1, 5, 0, -500000, "0.000000", INT_MAX, 0xFFFF},
    {"sum_of_zero_in_eb_mode_0", -4000, 0, 5, 0, -4000000, "0.000000", INT_MAX, 0xFFFF},
    // 420906295 * 1000 is -500008 in 32 bits; 121844 / -0.000008 is below -2^31
    {"interval_below_32_bits", 420906295, 1, 0, 0, -500008, "-0.000008", INT_MIN, 0},
    // 115963617 * 1000 is -499992 in 32 bits; 121844 / 0.000008 is above 2^31
    {"interval_above_32_bits", 115963617, 1, 0, 0, -499992, "0.000008", INT_MAX, 0xFFFF},
    // (-501000 + 500000) / 10^6; 121844 / -0.001 in single precision: -121843992 = 0xF8BCCEE8
    {"negative_rate", -501, 1, 0, 0, -501000, "-0.001000", -121843992, 0xCEE8},
};

class OutputRate : public testing::TestWithParam<Rate> {};

TEST_P(OutputRate, interval_is_written_with_its_constants) {
  const Rate& one = GetParam();
  Configured on;
  on.block.eb_mode = one.eb_mode;
  call(SetOutputBitrate, one.manual);
  call(SetExtraOutputRate, one.percent);
  on.bench.output();

  EXPECT_EQ(call(Setoutput_bitrate, one.kbps), 0);

  EXPECT_EQ(fpgaregs.VideoBitrate, one.video_bitrate);
  const std::string rate = one.rate;
  const std::string video = std::to_string(one.video_bitrate);
  EXPECT_EQ(on.bench.output(), "Setoutput_bitrate\nSet output bitrate to " + rate + " (UI " +
                                   video + ", manual set " + std::to_string(one.manual) +
                                   ", extra " + std::to_string(one.percent) + " pct)\ntmp1 " +
                                   rate + " btr " + std::to_string(one.interval) +
                                   " output_bitrate " + video + "\n");
  char interval[40];
  snprintf(interval, sizeof interval, "fpga wr 0x1300 <- 0x%04x",
           static_cast<unsigned>(one.written));
  EXPECT_THAT(on.bench.trace(),
              ElementsAre(interval, "fpga wr 0x1304 <- 0x0035", "fpga wr 0x1308 <- 0x0035",
                          "fpga wr 0x130c <- 0x0002"));
}

INSTANTIATE_TEST_SUITE_P(SetoutputBitrate, OutputRate, testing::ValuesIn(kRates),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(SetoutputBitrate, computes_tells_and_writes_in_one_order) {
  Configured on;
  on.block.eb_mode = 1;
  call(SetOutputBitrate, 0);
  call(SetExtraOutputRate, 5);
  fpgaregs.VideoBitrate = 5;
  on.bench.follow();
  on.bench.watch("VideoBitrate", fpgaregs.VideoBitrate);
  EXPECT_EQ(call(Setoutput_bitrate, 8000), 0);
  EXPECT_THAT(
      on.bench.stream(),
      ElementsAre("say Setoutput_bitrate", "VideoBitrate = 8000000",
                  "say Set output bitrate to 8.925000 (UI 8000000, manual set 0, extra 5 pct)",
                  "fpga wr 0x1300 <- 0x3553",  // 13651
                  "say tmp1 8.925000 btr 13651 output_bitrate 8000000", "fpga wr 0x1304 <- 0x0035",
                  "fpga wr 0x1308 <- 0x0035", "fpga wr 0x130c <- 0x0002"));
}

TEST(SetoutputBitrate, result_is_that_of_the_last_write) {
  Configured on;
  seam::fail_call("ioctl", "/dev/fpga 15", 3, 1, EIO);
  EXPECT_EQ(call(Setoutput_bitrate, 8000), -1);
  seam::fail_call("ioctl", "/dev/fpga 15", 0, 3, EIO);
  EXPECT_EQ(call(Setoutput_bitrate, 8000), 0);
}

}  // namespace
