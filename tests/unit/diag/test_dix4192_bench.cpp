// Bench programming of the digital audio receiver.
#include "diag/dix4192_bench.h"

#include <gmock/gmock.h>

#include <map>
#include <string>

#include "tests/unit/audio/audio_bench.h"

namespace {

using namespace audio;
using testing::ElementsAreArray;

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

TEST(Prog4192, messages_and_traffic_in_one_order) {
  AudioBench audio;
  audio.bench.world("fault i2c-fail 70");
  audio.bench.follow();
  prog4192();
  Lines seen = audio.bench.stream();
  // 12 writes and 42 reads, which all fail alike.
  Lines steps;
  for (const std::string& one : seen) {
    const std::string step = one.substr(0, one.find(" = "));
    if (!one.starts_with("i2c 70 rd")) steps.push_back(one.starts_with("i2c") ? step : one);
  }
  std::string dump = "say ";
  for (int reg = 0x03; reg <= 0x2C; ++reg) dump += line("reg %02x=0x%02x\t", reg, 0x2A);
  EXPECT_EQ(steps, (Lines{"say Y prog4192",
                          kI2cOpen,
                          "i2c 70 wr 7f 00",
                          "i2c 70 wr 01 80",
                          wait(100),
                          "i2c 70 wr 01 7f",
                          wait(5000),
                          "say page 0====================================",
                          "i2c 70 wr 7f 00",
                          "i2c 70 wr 03 29",
                          "i2c 70 wr 04 0b",
                          "i2c 70 wr 0d 08",
                          "i2c 70 wr 0e 01",
                          "i2c 70 wr 1b 07",
                          "say receiver_pll1_reg1 = 0x34",
                          "say receiver_pll1_reg2 = 0x0",
                          "say receiver_pll1_reg3 = 0x0",
                          "i2c 70 wr 0f 34",
                          "i2c 70 wr 10 00",
                          "i2c 70 wr 11 00",
                          wait(10000),
                          "say rc=-1",
                          dump,
                          wait(10000),
                          kI2cClose}));
}

}  // namespace
