// The single readings that supervision judges by.
#include "supervision/health.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/unit/supervision/supervision_bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Health = SupervisionBench;

TEST_F(Health, video_buffer_is_read_from_a_new_snapshot) {
  EXPECT_TRUE(video_buffer_present());
  EXPECT_THAT(bench.trace(), ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028"));
  bench.set_fpga(kRegViBuff, 0);
  EXPECT_FALSE(video_buffer_present());
}

TEST_F(Health, video_overall_is_the_low_half_of_a_new_snapshot) {
  bench.set_fpga(kRegViOverallLow, 0xFEDC);
  bench.set_fpga(kRegViOverallHigh, 0x1234);
  EXPECT_EQ(read_video_overall(), 0xFEDC);
  EXPECT_THAT(bench.trace(), ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0064 -> 0xfedc"));
}

TEST_F(Health, audio_level_needs_no_snapshot) {
  EXPECT_TRUE(audio_present());
  EXPECT_EQ(read_audio_overall(), 900);
  EXPECT_THAT(bench.trace(), ElementsAre("fpga rd 0x1344 -> 0x0384", "fpga rd 0x1344 -> 0x0384"));
  bench.set_fpga(kRegAudioLevel, 0);
  EXPECT_FALSE(audio_present());
}

TEST_F(Health, audio_buffer_with_and_without_a_new_snapshot) {
  EXPECT_EQ(read_audio_buffer(), 24);
  EXPECT_THAT(bench.trace(), ElementsAre("fpga rd 0x0080 -> 0x0018"));
  EXPECT_EQ(latch_audio_buffer(), 24);
  EXPECT_THAT(bench.trace(), ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0080 -> 0x0018"));
}

TEST_F(Health, frame_period_joins_both_halves) {
  bench.set_fpga(kRegVsRateLow, 0x3280);
  bench.set_fpga(kRegVsRateHigh, 2);
  EXPECT_EQ(read_frame_period(), 0x23280u);
}

struct Threshold {
  const char* name;
  bool (*overflows)();
  int reg;
  int limit;
};
class HealthOverflow : public SupervisionBench, public testing::WithParamInterface<Threshold> {};
TEST_P(HealthOverflow, begins_above_the_limit) {
  bench.set_fpga(GetParam().reg, GetParam().limit);
  EXPECT_FALSE(GetParam().overflows());
  bench.set_fpga(GetParam().reg, GetParam().limit + 1);
  EXPECT_TRUE(GetParam().overflows());
}
INSTANTIATE_TEST_SUITE_P(Rows, HealthOverflow,
                         testing::Values(Threshold{"video", video_overflows, 0x1340, 34899},
                                         Threshold{"audio", audio_overflows, 0x1344, 1989}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Health, failing_driver_reads_as_nothing) {
  bench.world("fault fpga-fail");
  EXPECT_FALSE(video_buffer_present());
  EXPECT_FALSE(audio_present());
  EXPECT_FALSE(video_overflows());
  EXPECT_FALSE(audio_overflows());
  EXPECT_EQ(read_frame_period(), 0u);
}

struct Input {
  const char* name;
  int channel;
  bool decoder;
};
class HealthInput : public SupervisionBench, public testing::WithParamInterface<Input> {};
TEST_P(HealthInput, asks_the_chip_of_the_channel) {
  SetInputMuxCH = GetParam().channel;
  for (int i = 0; i < 5; ++i) monitor_input();  // the decoder is read every fifth time
  const bool digitizer = !bench.trace({"i2c 5c"}).empty();
  EXPECT_EQ(digitizer, !GetParam().decoder);
}
INSTANTIATE_TEST_SUITE_P(Rows, HealthInput,
                         testing::Values(Input{"component", 0, false}, Input{"rgb", 3, false},
                                         Input{"composite", 4, true}, Input{"other", 7, false}),
                         [](const auto& row) { return row.param.name; });

struct AudioFlag {
  const char* name;
  int input;
  int enable;
  int flag;
  bool asks;
};
class HealthAudioFlag : public SupervisionBench, public testing::WithParamInterface<AudioFlag> {};
TEST_P(HealthAudioFlag, comes_from_settings_and_receiver) {
  fpgaregs.AudioInput = static_cast<std::uint8_t>(GetParam().input);
  fpgaregs.inAudioEnable = static_cast<std::uint8_t>(GetParam().enable);
  block.audio_enable = 2;
  EXPECT_EQ(read_audio_flag(), GetParam().flag);
  EXPECT_EQ(bench.trace({"i2c"}).empty(), !GetParam().asks);
}
INSTANTIATE_TEST_SUITE_P(Rows, HealthAudioFlag,
                         testing::Values(AudioFlag{"disabled", 1, 1, 0, false},
                                         AudioFlag{"disabled_on_the_dsp", 2, 1, 0, false},
                                         AudioFlag{"digital", 1, 2, 1, true},
                                         AudioFlag{"digital_without_a_wish", 1, 0, 1, true},
                                         AudioFlag{"dsp", 2, 2, 1, false},
                                         AudioFlag{"nothing_configured", 0, 0, 1, false}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Health, silent_digital_receiver_gives_0) {
  fpgaregs.AudioInput = 1;
  block.audio_enable = 2;
  bench.world("audio none");
  EXPECT_EQ(read_audio_flag(), 0);
  // Asked anew with 8, and given a second.
  const std::vector<std::string> trace = bench.trace({"i2c 70 wr 0d", "wait"});
  EXPECT_THAT(trace, ElementsAre("i2c 70 wr 0d 08", "wait 1000000"));
}

TEST_F(Health, receiver_without_a_bus_gives_minus_1) {
  fpgaregs.AudioInput = 1;
  bench.world("fault missing i2c");
  EXPECT_EQ(read_audio_flag(), -1);
}

}  // namespace
