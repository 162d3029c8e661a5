// The register dump: which registers, in which order, and the arithmetic on them.
#include "supervision/fpga_dump.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <string>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using vboard::Bench;

class DebugPrintFpgaRegs : public testing::Test {
 protected:
  DebugPrintFpgaRegs() : block(bench.attach_block()) {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.board().fpga.held = true;
    vid_buf_init = 0;
    aud_buf_init = 0;
    set32(kRegVsRateLow, kRateOf25Fps);
  }
  ~DebugPrintFpgaRegs() override {
    fclose(fpga_file);
    fpga_file = nullptr;
  }

  void set32(int low, std::uint32_t value) {
    bench.set_fpga(low, static_cast<int>(value & 0xFFFF));
    bench.set_fpga(low + 4, static_cast<int>(value >> 16));
  }

  std::string dump() {
    DebugPrintFPGARegs();
    return bench.output();
  }

  static constexpr std::uint32_t kRateOf25Fps = 57600;  // 1 440 000 / 25
  Bench bench;
  SharedBlock& block;
};

TEST_F(DebugPrintFpgaRegs, every_line_shows_its_register) {
  set32(kRegVsOverallLow, 0x00030003);
  bench.set_fpga(kRegViBuff, 0x28);
  set32(kRegViOverallLow, 0x00010008);
  set32(kRegViRefOverallLow, 0x00010008);
  bench.set_fpga(kRegAuBuff, 0x18);
  set32(kRegAuI2sOverallLow, 0x00021111);
  set32(kRegAuOverallLow, 0x00032222);
  set32(kRegAuRefOverallLow, 0x00043333);
  bench.set_fpga(kRegTsMuxStatus, 0xBEEF);
  vid_buf_init = 0x27;
  aud_buf_init = 0x17;

  const int result = DebugPrintFPGARegs();

  // half of 0x30003 is 0x18001; 0x10008 = 65544 frames at 25 a second last
  // 2621.76 s = 43 min.
  const std::string running_time = "Running Time 0 Day 0 Hour 43 Min\n";
  EXPECT_EQ(bench.output(),
            "VS_OVERALL = 0x30003 half = 0x18001\n"
            "VS_RATE = 0xe100 FSP 25.000000\n"
            "VI_BUFF = 0x28 ,VI_BUFF_INIT = 0x27\n"
            "VI_OVERALL = 0x10008\n"
            "VI_REF_OVERALL = 0x10008 \n"
            "AU_BUFF = 0x18 ,AU_BUF_INIT =0x17\n"
            "AU_I2S_OVERALL = 0x21111 \n"
            "AU_OVERALL = 0x32222 \n"
            "AU_REF_OVERALL = 0x43333 \n"
            "TS_MUX_STATUS_REGISTER = 0xbeef \n"
            "ref overall = overall  dif=0\n" +
                running_time);
  EXPECT_EQ(result, static_cast<int>(running_time.size()));
}

TEST_F(DebugPrintFpgaRegs, one_snapshot_then_each_register_low_half_first) {
  bench.trace();
  dump();
  EXPECT_THAT(bench.trace(), ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0044 -> 0x0000",
                                         "fpga rd 0x0048 -> 0x0000", "fpga rd 0x004c -> 0xe100",
                                         "fpga rd 0x0050 -> 0x0000", "fpga rd 0x0060 -> 0x0000",
                                         "fpga rd 0x0064 -> 0x0000", "fpga rd 0x0068 -> 0x0000",
                                         "fpga rd 0x006c -> 0x0000", "fpga rd 0x0070 -> 0x0000",
                                         "fpga rd 0x0080 -> 0x0000", "fpga rd 0x0084 -> 0x0000",
                                         "fpga rd 0x0088 -> 0x0000", "fpga rd 0x008c -> 0x0000",
                                         "fpga rd 0x0090 -> 0x0000", "fpga rd 0x0094 -> 0x0000",
                                         "fpga rd 0x0098 -> 0x0000", "fpga rd 0x1380 -> 0x0000"));
}

// --- drift ---------------------------------------------------------------

struct Drift {
  const char* name;
  std::uint32_t overall;
  std::uint32_t reference;
  const char* line;
};

constexpr Drift kDrifts[] = {
    {"equal", 5000, 5000, "ref overall = overall  dif=0\n"},
    // 1000 / 3 = 333 whole; 1 / 333 = 0.003003
    {"ahead", 1003, 1000, "frame dif = 3  (0.003003)\n"},
    {"ahead_by_one", 1001, 1000, "frame dif = 1  (0.001000)\n"},
    // 1000 / 1000 = 1
    {"ahead_by_the_whole_count", 2000, 1000, "frame dif = 1000  (1.000000)\n"},
    // 1000 / 1001 = 0 whole
    {"ahead_by_more_than_the_count", 2001, 1000, "frame dif = 1001  (inf)\n"},
    // 1000 / -3 = -333; 1 / 333
    {"behind", 997, 1000, "frame dif = -3 (0.003003)\n"},
    // 4 / -4 = -1; the count is nothing yet
    {"behind_by_the_whole_count", 0, 4, "frame dif = -4 (1.000000)\n"},
    {"nothing_counted_by_the_reference", 7, 0, "frame dif = 7  (inf)\n"},
    // 0x80000000 apart: the difference is the most negative number
    {"farthest_apart", 0, 0x80000000, "frame dif = -2147483648 (1.000000)\n"},
};

class DebugPrintFpgaRegsDrift : public DebugPrintFpgaRegs,
                                public testing::WithParamInterface<Drift> {};

TEST_P(DebugPrintFpgaRegsDrift, prints_difference_and_ratio) {
  set32(kRegViOverallLow, GetParam().overall);
  set32(kRegViRefOverallLow, GetParam().reference);
  EXPECT_THAT(dump(), HasSubstr(std::string("\n") + GetParam().line + "Running Time"));
}
INSTANTIATE_TEST_SUITE_P(Rows, DebugPrintFpgaRegsDrift, testing::ValuesIn(kDrifts),
                         [](const auto& row) { return row.param.name; });

// --- running time -----------------------------------------------------------

struct RunningTime {
  const char* name;
  std::uint32_t frames;
  std::uint32_t rate;
  const char* line;
};

constexpr RunningTime kRunningTimes[] = {
    {"nothing", 0, 57600, "Running Time 0 Day 0 Hour 0 Min\n"},
    {"just_under_a_minute", 59 * 25, 57600, "Running Time 0 Day 0 Hour 0 Min\n"},
    {"one_minute", 60 * 25, 57600, "Running Time 0 Day 0 Hour 1 Min\n"},
    {"59_minutes", 59 * 60 * 25, 57600, "Running Time 0 Day 0 Hour 59 Min\n"},
    {"60_minutes", 60 * 60 * 25, 57600, "Running Time 0 Day 1 Hour 0 Min\n"},
    {"23_hours_59_minutes", 1439 * 60 * 25, 57600, "Running Time 0 Day 23 Hour 59 Min\n"},
    // 24 - 24 * 24 = -552
    {"24_hours", 1440 * 60 * 25, 57600, "Running Time 1 Day -552 Hour 0 Min\n"},
    // 1510 min: 25 h, 1510 - 1500 = 10 min; 1 day; 25 - 24 * 25 = -575
    {"25_hours_10_minutes", 1510 * 60 * 25, 57600, "Running Time 1 Day -575 Hour 10 Min\n"},
    // 4380 min: 73 h, 0 min; 3 days; 73 - 24 * 73 = -1679
    {"73_hours", 4380 * 60 * 25, 57600, "Running Time 3 Day -1679 Hour 0 Min\n"},
    // 24000 is 60 frames a second: 216 000 frames are an hour
    {"an_hour_at_60_frames", 216000, 24000, "Running Time 0 Day 1 Hour 0 Min\n"},
    // Frames divided by infinitely many a second: no time at all.
    {"no_rate_measured", 1510 * 60 * 25, 0, "Running Time 0 Day 0 Hour 0 Min\n"},
    // fps = 1 440 000 / 2^32 = 0.00033528; 2^32 frames take 1.28e13 s: minutes and
    // hours (3.6e9) are beyond 32 bits and stop there, days are 148 266 654.4:
    // in single precision 148 266 656. Hours - 24 * hours and the minutes left
    // over are below the range.
    {"beyond_every_range", 0xFFFFFFFF, 0xFFFFFFFF,
     "Running Time 148266656 Day -2147483648 Hour -2147483648 Min\n"},
};

class DebugPrintFpgaRegsRunningTime : public DebugPrintFpgaRegs,
                                      public testing::WithParamInterface<RunningTime> {};

TEST_P(DebugPrintFpgaRegsRunningTime, prints_days_hours_minutes) {
  set32(kRegViOverallLow, GetParam().frames);
  set32(kRegViRefOverallLow, GetParam().frames);
  set32(kRegVsRateLow, GetParam().rate);
  const std::string text = dump();
  EXPECT_EQ(text.substr(text.rfind("Running")), GetParam().line);
}
INSTANTIATE_TEST_SUITE_P(Rows, DebugPrintFpgaRegsRunningTime, testing::ValuesIn(kRunningTimes),
                         [](const auto& row) { return row.param.name; });

// --- frame and output rate --------------------------------------------------

TEST_F(DebugPrintFpgaRegs, no_rate_measured_prints_inf) {
  set32(kRegVsRateLow, 0);
  EXPECT_THAT(dump(), HasSubstr("VS_RATE = 0x0 FSP inf\n"));
}

TEST_F(DebugPrintFpgaRegs, frame_rate_is_single_precision) {
  // 1 440 000 / 48 048 = 29.970029970...; the nearest single is 29.9700298...
  set32(kRegVsRateLow, 48048);
  EXPECT_THAT(dump(), HasSubstr("VS_RATE = 0xbbb0 FSP 29.970030\n"));
}

TEST_F(DebugPrintFpgaRegs, long_period_uses_both_halves) {
  set32(kRegVsRateLow, 144000);  // 0x23280: 10 frames a second
  EXPECT_THAT(dump(), HasSubstr("VS_RATE = 0x23280 FSP 10.000000\n"));
}

struct OutputRate {
  const char* name;
  int codec;
  int standard;
  bool printed;
};

constexpr OutputRate kOutputRates[] = {
    {"mpeg2_standard_12", 1, 12, true},  {"mpeg2_standard_13", 1, 13, true},
    {"mpeg2_standard_11", 1, 11, false}, {"mpeg2_standard_14", 1, 14, false},
    {"h264_standard_12", 2, 12, false},  {"no_codec_standard_13", 0, 13, false},
};

class DebugPrintFpgaRegsOutputRate : public DebugPrintFpgaRegs,
                                     public testing::WithParamInterface<OutputRate> {};

TEST_P(DebugPrintFpgaRegsOutputRate, stands_behind_the_frame_rate) {
  block.VidCodec = GetParam().codec;
  block.videoStd = GetParam().standard;
  set32(kRegVsRateLow, 48000);  // 30 frames a second; 30 * 5 / 6 = 25
  const std::string line = "FSP 30.000000\nOutput RATE = 25.000000\nVI_BUFF";
  if (GetParam().printed) {
    EXPECT_THAT(dump(), HasSubstr(line));
  } else {
    EXPECT_THAT(dump(), Not(HasSubstr("Output RATE")));
  }
}
INSTANTIATE_TEST_SUITE_P(Rows, DebugPrintFpgaRegsOutputRate, testing::ValuesIn(kOutputRates),
                         [](const auto& row) { return row.param.name; });

TEST_F(DebugPrintFpgaRegs, failing_driver_prints_zeros) {
  bench.world("fault fpga-fail");
  EXPECT_EQ(dump(),
            "VS_OVERALL = 0x0 half = 0x0\n"
            "VS_RATE = 0x0 FSP inf\n"
            "VI_BUFF = 0x0 ,VI_BUFF_INIT = 0x0\n"
            "VI_OVERALL = 0x0\n"
            "VI_REF_OVERALL = 0x0 \n"
            "AU_BUFF = 0x0 ,AU_BUF_INIT =0x0\n"
            "AU_I2S_OVERALL = 0x0 \n"
            "AU_OVERALL = 0x0 \n"
            "AU_REF_OVERALL = 0x0 \n"
            "TS_MUX_STATUS_REGISTER = 0x0 \n"
            "ref overall = overall  dif=0\n"
            "Running Time 0 Day 0 Hour 0 Min\n");
}

}  // namespace
