// The digital audio receiver: the lock check.
#include "audio/dix4192.h"

#include <gmock/gmock.h>

#include <string>

#include "tests/unit/audio/audio_bench.h"

namespace {

using namespace audio;
using testing::ElementsAre;

// ---- lock check ---------------------------------------------------------------

TEST(AudioMonitor4192, locked_and_enabled_is_present) {
  AudioBench audio;
  audio.block.audio_enable = 2;
  EXPECT_EQ(audio_monitor_4192(8), 1);
  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, "i2c 70 rd 2a -> 01", "i2c 70 rd 13 -> 03", kI2cClose));
  EXPECT_EQ(audio.bench.output(), "");
}

struct AbsentRow {
  const char* name;
  int status_2a;
  int status_13;
  int enable;
};

class AudioMonitor4192Absent : public testing::TestWithParam<AbsentRow> {};

TEST_P(AudioMonitor4192Absent, writes_the_value_and_waits) {
  const AbsentRow& row = GetParam();
  AudioBench audio;
  char text[32];
  snprintf(text, sizeof text, "fault stuck 70 2a %02x", row.status_2a);
  audio.bench.world(text);
  snprintf(text, sizeof text, "fault stuck 70 13 %02x", row.status_13);
  audio.bench.world(text);
  audio.block.audio_enable = static_cast<std::uint8_t>(row.enable);

  EXPECT_EQ(audio_monitor_4192(9), 0);

  EXPECT_THAT(audio.bench.trace(),
              ElementsAre(kI2cOpen, line("i2c 70 rd %02x -> %02x", 0x2A, row.status_2a),
                          line("i2c 70 rd %02x -> %02x", 0x13, row.status_13), "i2c 70 wr 0d 09",
                          wait(1000000), kI2cClose));
  EXPECT_EQ(audio.bench.output(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Readings, AudioMonitor4192Absent,
    testing::Values(AbsentRow{"nothing", 0, 0, 0}, AbsentRow{"no_burst", 0, 3, 2},
                    AbsentRow{"other_burst", 2, 3, 2}, AbsentRow{"no_lock", 1, 0, 2},
                    AbsentRow{"half_lock", 1, 1, 2}, AbsentRow{"more_than_lock", 1, 7, 2},
                    AbsentRow{"audio_stopped", 1, 3, 1}, AbsentRow{"audio_byte_0", 1, 3, 0}),
    [](const auto& row) { return row.param.name; });

TEST(AudioMonitor4192, no_bus_gives_minus_1) {
  AudioBench audio;
  audio.bench.world("fault missing i2c");
  EXPECT_EQ(audio_monitor_4192(8), -1);
  EXPECT_EQ(audio.bench.output(), "Cannot access I2C device - 4192\n");
}

TEST(AudioMonitor4192, failing_read_of_either_register_gives_minus_2) {
  for (const char* which : {"1", "2"}) {
    AudioBench audio;
    audio.block.audio_enable = 2;
    audio.bench.world(std::string("fault i2c-fail 70 ") + which);
    EXPECT_EQ(audio_monitor_4192(8), -2);
    EXPECT_EQ(audio.bench.output(), "Error i2c_readbyte - 4192-\n");
    const Lines trace = audio.bench.trace();
    EXPECT_EQ(trace.back(), kI2cClose);
    EXPECT_THAT(trace, testing::Not(testing::Contains("i2c 70 wr 0d 08")));
  }
}

TEST(AudioMonitor4192, write_that_fails_goes_unnoticed) {
  AudioBench audio;
  audio.bench.world("fault i2c-fail 70 3");
  EXPECT_EQ(audio_monitor_4192(8), 0);
  EXPECT_EQ(audio.bench.output(), "");
}

}  // namespace
