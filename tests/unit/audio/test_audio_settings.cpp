// The handlers of the audio keys.
#include "audio/audio_settings.h"

#include <gmock/gmock.h>

#include <climits>

#include "tests/unit/audio/audio_bench.h"

namespace {

using namespace audio;
using testing::ElementsAre;
using testing::IsEmpty;

using Handler = int (*)(const std::int32_t*, std::int32_t);

int apply(Handler handler, std::int32_t value) { return handler(&value, 0); }

// As a fresh process has them: taken before any test runs.
const std::int32_t sample_rate_at_start = SampleRate;
const std::uint16_t mask_at_start = enable_capture_mask_reg;

TEST(AudioSettings, sample_period_and_capture_mask_start_at_0) {
  EXPECT_EQ(sample_rate_at_start, 0);
  EXPECT_EQ(mask_at_start, 0);
}

TEST(SetinAudioEnable, stores_the_low_byte_in_the_record_alone) {
  AudioBench audio;
  EXPECT_EQ(apply(SetinAudioEnable, 0x102), 0);
  EXPECT_EQ(fpgaregs.inAudioEnable, 2);
  EXPECT_EQ(audio.block.audio_enable, 0);  // that byte comes with the next launch
  EXPECT_EQ(audio.bench.output(), "SetinAudioEnable\n");
  EXPECT_THAT(audio.bench.trace(), IsEmpty());
}

TEST(SetAudRate, stores_the_whole_value) {
  AudioBench audio;
  EXPECT_EQ(apply(setAudRate, 100384), 0);
  EXPECT_EQ(fpgaregs.mpgAudRate, 100384);
  EXPECT_EQ(audio.bench.output(), "setAudRate\n");
  EXPECT_THAT(audio.bench.trace(), IsEmpty());
}

TEST(SetFiberCoax, does_nothing) {
  AudioBench audio;
  fpgaregs.AudioInput = 9;
  EXPECT_EQ(apply(SetFiberCoax, 1), 0);
  EXPECT_EQ(fpgaregs.AudioInput, 9);
  EXPECT_EQ(audio.bench.output(), "");
  EXPECT_THAT(audio.bench.trace(), IsEmpty());
}

TEST(SetAudioInput, stores_the_low_byte) {
  AudioBench audio;
  EXPECT_EQ(apply(SetAudioInput, 0x301), 0);
  EXPECT_EQ(fpgaregs.AudioInput, 1);
  EXPECT_EQ(audio.bench.output(), "SetAudioInput\n");
  EXPECT_THAT(audio.bench.trace(), IsEmpty());
}

TEST(SetAudCodec, stores_the_low_byte_silently) {
  AudioBench audio;
  EXPECT_EQ(apply(SetAudCodec, 0x1FE), 0);
  EXPECT_EQ(fpgaregs.AudCodec, 0xFE);
  EXPECT_EQ(audio.bench.output(), "");
  EXPECT_THAT(audio.bench.trace(), IsEmpty());
}

// ---- volume ------------------------------------------------------------------

TEST(SetinAudioVolume, writes_both_codec_registers_a_second_apart) {
  AudioBench audio;
  EXPECT_EQ(apply(SetinAudioVolume, 0), 0);
  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, "i2c 1c wr 10 00 17 00", kI2cClose, wait(1000000), kI2cOpen,
                          "i2c 1c wr 10 01 17 00", kI2cClose, wait(1000000)));
  EXPECT_EQ(audio.bench.output(),
            "SetinAudioVolume = 23 (1.5 DB)\n"
            " data1=0x17 data2=0x0\n"
            " data1=0x17 data2=0x0\n");
  EXPECT_EQ(fpgaregs.inAudioVolume, 0);
}

TEST(SetinAudioVolume, negative_volume_is_kept_in_16_bits) {
  AudioBench audio;
  apply(SetinAudioVolume, -30);
  EXPECT_EQ(fpgaregs.inAudioVolume, 0xFFE2);  // 65536 - 30
  // -30 + 23 = -7 = 0xFFF9.
  EXPECT_THAT(audio.bench.trace({"i2c"}),
              ElementsAre("i2c 1c wr 10 00 f9 ff", "i2c 1c wr 10 01 f9 ff"));
  EXPECT_EQ(audio.bench.output(),
            "SetinAudioVolume = -7 (1.5 DB)\n"
            " data1=0xf9 data2=0xff\n"
            " data1=0xf9 data2=0xff\n");
}

TEST(SetinAudioVolume, volume_beyond_16_bits_keeps_the_low_ones) {
  AudioBench audio;
  apply(SetinAudioVolume, 0x12345);
  EXPECT_EQ(fpgaregs.inAudioVolume, 0x2345);
  // 0x12345 + 23 = 0x1235C.
  EXPECT_THAT(audio.bench.trace({"i2c"}),
              ElementsAre("i2c 1c wr 10 00 5c 23", "i2c 1c wr 10 01 5c 23"));
}

TEST(SetinAudioVolume, largest_value_wraps) {
  AudioBench audio;
  EXPECT_EQ(apply(SetinAudioVolume, INT_MAX), 0);
  // 2^31 - 1 + 23 - 2^32 = -2147483626.
  EXPECT_THAT(audio.bench.output(), testing::StartsWith("SetinAudioVolume = -2147483626 (1.5 DB)"));
}

TEST(SetinAudioVolume, dsp_that_does_not_answer_still_takes_two_seconds) {
  AudioBench audio;
  audio.bench.world("fault dsp-dead");
  EXPECT_EQ(apply(SetinAudioVolume, 1), 0);
  EXPECT_THAT(audio.bench.trace({"wait"}), ElementsAre(wait(1000000), wait(1000000)));
  EXPECT_EQ(audio.bench.output(),
            "SetinAudioVolume = 24 (1.5 DB)\n"
            " data1=0x18 data2=0x0\n"
            "blkfn i2c error\n"
            " data1=0x18 data2=0x0\n"
            "blkfn i2c error\n");
}

// ---- sample rate ----------------------------------------------------------------

struct RateRow {
  const char* name;
  int value;
  int period;
};

class SetinAudioSampleRateValue : public testing::TestWithParam<RateRow> {};

TEST_P(SetinAudioSampleRateValue, writes_the_period) {
  const RateRow& row = GetParam();
  AudioBench audio;
  EXPECT_EQ(apply(SetinAudioSampleRate, row.value), 0);
  EXPECT_EQ(fpgaregs.inAudioSampleRate, row.value);
  EXPECT_EQ(SampleRate, row.period);
  EXPECT_EQ(audio.block.SampleRate, row.period);
  EXPECT_THAT(audio.bench.trace(), ElementsAre(wr(0x0230, row.period)));
  EXPECT_EQ(audio.bench.output(), "SetinAudioSampleRate\n");
}

INSTANTIATE_TEST_SUITE_P(Values, SetinAudioSampleRateValue,
                         testing::Values(RateRow{"khz_48", 48, 2880}, RateRow{"khz_44", 44, 2880},
                                         RateRow{"khz_32", 32, 4320}, RateRow{"khz_0", 0, 2880},
                                         RateRow{"negative", -32, 2880},
                                         RateRow{"in_hertz", 32000, 2880}),
                         [](const auto& row) { return row.param.name; });

// ---- DSP start ------------------------------------------------------------------

TEST(SetAudCodecBf, dsp_path_configures_and_starts) {
  AudioBench audio;
  fpgaregs.AudioInput = 2;
  fpgaregs.inAudioVolume = 0xFFFB;
  fpgaregs.mpgAudRate = 384;
  EXPECT_EQ(apply(SetAudCodec_bf, 1), 0);
  EXPECT_EQ(fpgaregs.DspMode, 1);
  // 384 000 = 0x0005DC00, low byte first.
  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, "i2c 1c wr 01 01 fb ff 00 dc 05 00", kI2cClose, wait(10),
                          kI2cOpen, "i2c 1c wr 02", kI2cClose));
  EXPECT_EQ(audio.bench.output(), "");
  EXPECT_TRUE(audio.bench.board().dsp.running);
}

TEST(SetAudCodecBf, rate_beyond_32_bits_wraps) {
  AudioBench audio;
  fpgaregs.AudioInput = 2;
  fpgaregs.mpgAudRate = INT_MAX;
  apply(SetAudCodec_bf, 1);
  // (2^31 - 1) * 1000 mod 2^32 = 2^32 - 1000 = 0xFFFFFC18: 1000 * 2^31 is a
  // multiple of 2^32.
  EXPECT_THAT(audio.bench.trace({"i2c 1c wr 01"}),
              ElementsAre("i2c 1c wr 01 01 00 00 18 fc ff ff"));
}

TEST(SetAudCodecBf, other_paths_leave_the_dsp_alone) {
  AudioBench audio;
  for (const int input : {0, 1, 3, 255}) {
    fpgaregs.AudioInput = static_cast<std::uint8_t>(input);
    EXPECT_EQ(apply(SetAudCodec_bf, 1), 0);
    EXPECT_EQ(fpgaregs.DspMode, 0);
    EXPECT_THAT(audio.bench.trace(), IsEmpty()) << input;
  }
}

TEST(SetAudCodecBf, dead_dsp_is_tried_and_reported_by_the_start_alone) {
  AudioBench audio;
  fpgaregs.AudioInput = 2;
  audio.bench.world("fault dsp-dead");
  EXPECT_EQ(apply(SetAudCodec_bf, 1), 0);
  EXPECT_EQ(audio.bench.output(), "blkfn i2c error\n");
}

}  // namespace
