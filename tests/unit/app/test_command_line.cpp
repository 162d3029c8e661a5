// Options that never return, cut off after a while; the others end by themselves
// and are tested with the program itself.
#include "app/command_line.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "supervision/status_file.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using vboard::Bench;

struct CommandLineRun {
  Bench bench;
  CommandLineRun() {
    shared_memory = nullptr;
    SystemMonitorStatus = 0;
    dbg_encode = 0;
  }
  // Returns what was printed until the limit.
  std::string run(std::vector<std::string> words, std::int64_t limit_us) {
    words.insert(words.begin(), "vantorig");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    const int argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    const bool ended = bench.run_for(limit_us, [&] { run_command_line(argc, argv.data()); });
    EXPECT_FALSE(ended);
    return bench.output();
  }
};

constexpr std::int64_t kStarted_us = 3'000'000;

TEST(CommandLineService, alone_starts_the_service_with_supervision) {
  CommandLineRun line;
  EXPECT_THAT(line.run({"-602"}, kStarted_us),
              StartsWith(" LN 3151\nargc=2\n LN 3157\nprog602 Y_HD\n"));
  EXPECT_EQ(SystemMonitorStatus, 0);
  EXPECT_EQ(dbg_encode, 0);
  EXPECT_EQ(line.bench.trace({"thread"}).size(), 1u);  // the host link's
}

TEST(CommandLineService, getmon_starts_the_status_file) {
  CommandLineRun line;
  const std::string printed = line.run({"-602", "getmon"}, 26'000'000);
  EXPECT_THAT(printed,
              StartsWith(" LN 3151\nargc=3\n Go to UPDATE  command\n LN 3157\nprog602 Y_HD\n"));
  EXPECT_EQ(SystemMonitorStatus, 1);
  EXPECT_TRUE(line.bench.has_file("monitor.txt"));  // every 25 s
}

TEST(CommandLineService, nomon_and_dbg_disable_the_monitor_and_debug_encode) {
  CommandLineRun line;
  EXPECT_THAT(line.run({"-602", "nomon", "dbg"}, kStarted_us),
              StartsWith(" LN 3151\nargc=4\nargv[2]=nomon\n monitor is disabled!!\n"
                         "argv[3]=dbg\n enocde debug is enabled!!\n LN 3157\n"));
  EXPECT_EQ(dbg_encode, 1);
}

// Without the monitor the registers are dumped every tenth cycle of 0.5 s, also
// before the first configuration; with it a service without one only waits.
TEST(CommandLineService, nomon_takes_the_supervision_out) {
  CommandLineRun line;
  EXPECT_THAT(line.run({"-602", "nomon"}, 6'000'000), HasSubstr("VS_OVERALL = 0x"));
  EXPECT_EQ(global_status, kStatusHealthy);
}

TEST(CommandLineService, other_words_leave_the_supervision_on) {
  for (const char* word : {"getmon", "x", "nomon1", "dbg"}) {
    CommandLineRun line;
    global_status = kStatusInitial;
    EXPECT_THAT(line.run({"-602", word}, 6'000'000), Not(HasSubstr("VS_OVERALL"))) << word;
    EXPECT_EQ(global_status, kStatusInitial) << word;
  }
}

TEST(CommandLineService, dbg_needs_no_known_word_before_it) {
  CommandLineRun line;
  const std::string printed = line.run({"-602", "x", "dbg"}, kStarted_us);
  EXPECT_THAT(printed, HasSubstr("argv[3]=dbg\n"));
  EXPECT_THAT(printed, Not(HasSubstr("argv[2]")));
  EXPECT_EQ(dbg_encode, 1);
}

TEST(CommandLinePll, swings_the_second_byte_every_millisecond) {
  CommandLineRun line;
  line.run({"-pll"}, 3500);
  EXPECT_THAT(line.bench.trace({"pll wr"}),
              ElementsAre("pll wr 70 00", "pll wr 70 f0", "pll wr 70 00", "pll wr 70 f0"));
}

TEST(CommandLineAc3, runs_the_bench_capture) {
  CommandLineRun line;
  EXPECT_THAT(line.run({"-ac3"}, 150'000), StartsWith("ac3_test\n"));
  EXPECT_EQ(config_sys, 0);
}

}  // namespace
