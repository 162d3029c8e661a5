// The digital audio receiver: the lock check and the bench programming.
#include "audio/dix4192.h"

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "tests/unit/audio/audio_bench.h"

namespace {

using namespace audio;
using testing::ElementsAre;
using testing::ElementsAreArray;

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

// ---- bench programming ----------------------------------------------------------

const Lines kProgramming = {
    kI2cOpen,          "i2c 70 wr 7f 00", "i2c 70 wr 01 80", "wait 100",
    "i2c 70 wr 01 7f", "wait 5000",       "i2c 70 wr 7f 00", "i2c 70 wr 03 29",
    "i2c 70 wr 04 0b", "i2c 70 wr 0d 08", "i2c 70 wr 0e 01", "i2c 70 wr 1b 07",
    "i2c 70 wr 0f 34", "i2c 70 wr 10 00", "i2c 70 wr 11 00", "wait 10000"};

constexpr char kHead[] =
    "Y prog4192\n"
    "page 0====================================\n"
    "receiver_pll1_reg1 = 0x34\n"
    "receiver_pll1_reg2 = 0x0\n"
    "receiver_pll1_reg3 = 0x0\n";

TEST(Prog4192, programs_page_0_and_dumps_it) {
  AudioBench audio;
  EXPECT_EQ(prog4192(), 0);

  // What was written, and the lock of the connected source; the rest is 0.
  std::map<int, int> values = {{0x03, 0x29}, {0x04, 0x0B}, {0x0D, 0x08}, {0x0E, 0x01},
                               {0x0F, 0x34}, {0x13, 0x03}, {0x1B, 0x07}, {0x2A, 0x01}};
  Lines reads;
  std::string dump;
  for (int reg = 0x03; reg <= 0x2C; ++reg) {
    reads.push_back(line("i2c 70 rd %02x -> %02x", reg, values[reg]));
    dump += line("reg %02x=0x%02x\t", reg, values[reg]);
  }
  EXPECT_THAT(audio.bench.trace(),
              ElementsAreArray(all({kProgramming, reads, {wait(10000), kI2cClose}})));
  // A register read is a transfer of two messages.
  EXPECT_EQ(audio.bench.output(), kHead + ("rc=2\n" + dump) + "\n");
}

TEST(Prog4192, failing_reads_show_the_fill) {
  AudioBench audio;
  audio.bench.world("fault i2c-fail 70");
  EXPECT_EQ(prog4192(), 0);
  std::string dump;
  for (int reg = 0x03; reg <= 0x2C; ++reg) dump += line("reg %02x=0x%02x\t", reg, 0x2A);
  EXPECT_EQ(audio.bench.output(), kHead + ("rc=-1\n" + dump) + "\n");
}

TEST(Prog4192, rc_is_that_of_the_last_read) {
  AudioBench audio;
  // 12 writes, then 42 reads; the last fails.
  audio.bench.world("fault i2c-fail 70 54");
  EXPECT_EQ(prog4192(), 0);
  const std::string output = audio.bench.output();
  EXPECT_THAT(output, testing::HasSubstr("\nrc=-1\n"));
  EXPECT_THAT(output, testing::EndsWith("reg 2b=0x00\treg 2c=0x2a\t\n"));
}

TEST(Prog4192, no_bus_gives_minus_1_without_a_word) {
  AudioBench audio;
  audio.bench.world("fault missing i2c");
  EXPECT_EQ(prog4192(), -1);
  EXPECT_EQ(audio.bench.output(), "Y prog4192\n");
}

}  // namespace
