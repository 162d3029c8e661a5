// Options that never return, cut off after a while, and the order of what the others
// say and do; all else of those is tested with the program itself.
#include "app/command_line.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <utility>
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
namespace seam = vboard::seam;

struct CommandLineRun {
  Bench bench;
  CommandLineRun() {
    shared_memory = nullptr;
    SystemMonitorStatus = 0;
    dbg_encode = 0;
  }
  // Returns what was printed until the limit.
  std::string run(std::vector<std::string> words, std::int64_t limit_us) {
    EXPECT_FALSE(ends_within(std::move(words), limit_us));
    return bench.output();
  }
  void run_to_its_end(std::vector<std::string> words) {
    EXPECT_TRUE(ends_within(std::move(words), kHour_us));
  }

 private:
  static constexpr std::int64_t kHour_us = 3'600'000'000;

  bool ends_within(std::vector<std::string> words, std::int64_t limit_us) {
    words.insert(words.begin(), "vantorig");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    const int argc = static_cast<int>(argv.size());
    argv.push_back(nullptr);
    return bench.run_for(limit_us, [&] { run_command_line(argc, argv.data()); });
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

// ---- messages and traffic in one order, of what the command line itself says and does --------

struct Order {
  const char* name;
  std::vector<std::string> words;
  std::vector<std::string> stream;
};
void PrintTo(const Order& one, std::ostream* out) { *out << one.name; }

class CommandLineOrder : public testing::TestWithParam<Order> {};

TEST_P(CommandLineOrder, stands_as_it_happens) {
  CommandLineRun line;
  seam::fail_call("system", "", 0, -1, ECHILD);  // the restore's commands
  line.bench.follow();
  line.run_to_its_end(GetParam().words);
  EXPECT_EQ(line.bench.stream(), GetParam().stream);
}

INSTANTIATE_TEST_SUITE_P(
    Options, CommandLineOrder,
    testing::Values(
        // Without hd.ini the standard is -1: defaults H 120, V 24.
        Order{
            "offset",
            {"-offset", "10", "20"},
            {"say Set Offset x=10 y=20", "file /home/tovin/hd.ini r = ENOENT",
             "say can not open hd.ini file", "open /dev/video0", "wait 10",
             "say Default: Horizontal Offset Reg = 0x78 (120), Vertical Offset Reg = 0x18 (24)",
             "say Set:     Horizontal Offset Reg = 0x82 (130), Vertical Offset Reg = 0x2c (44), "
             "std=-1",
             "video0 0xc004562c 24", "video0 0xc004562d 130", "wait 1000000",
             "video0 0xc004562c 16", "video0 0xc004562d 44", "wait 1000000", "close /dev/video0"}},
        Order{"restor",
              {"-restor"},
              {"say  Go to Restor  command", "say Extract the from manufacture file",
               "system tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/ = ECHILD", "wait 1000",
               "say copy file to work dir", "system chmod +x * = ECHILD",
               "system chmod +x *.* = ECHILD", "system tmp/./update.sh = ECHILD", "wait 1000",
               "system ls -l tmp/ = ECHILD"}},
        // 384000 = 0x5dc00
        Order{"i2c_bf",
              {"-i2c_bf", "384000"},
              {"open /dev/i2c-1", "i2c 1c wr 01 01 64 00 00 dc 05 00", "close /dev/i2c-1",
               "wait 1000000", "wait 1000000"}},
        Order{"bf_rw_read",
              {"-bf_rw", "1", "5"},
              {"open /dev/i2c-1", "i2c 1c wr 20 05", "wait 10", "i2c 1c rd -> 00",
               "say... Blackfin Reg util Read reg=0x5 get data=0x0"}},
        Order{"bf_rw_write",
              {"-bf_rw", "0", "0x10", "0x1234"},
              {"open /dev/i2c-1", "say  data1=0x34 data2=0x12", "i2c 1c wr 10 10 34 12",
               "close /dev/i2c-1", "say... Blackfin Reg util Write to reg=0x10 data=0x1234"}},
        Order{"isifrw_write",
              {"-isifrw", "0", "0x10", "0x20"},
              {"say reg util for ISIF ", "open /dev/video0", "video0 0xc004562a 16",
               "video0 0xc004562b 32"}},
        Order{"ipiperw_write",
              {"-ipiperw", "0", "0x10", "0x20"},
              {"say reg util for IPIPE ", "open /dev/video0", "video0 0xc004562c 16",
               "video0 0xc004562d 32", "close /dev/video0"}},
        Order{"i2c_bf_st",
              {"-i2c_bf_st"},
              {"open /dev/i2c-1", "i2c 1c wr 02", "close /dev/i2c-1", "wait 1000000"}},
        Order{"rdver_bf",
              {"-rdver_bf"},
              {"open /dev/i2c-1", "i2c 1c wr 80 00", "wait 10", "i2c 1c rd -> 21",
               "close /dev/i2c-1", "say ---------------bf version = 0x21 --------------------",
               "say bf version is : 2.1"}},
        Order{"rdstat_bf",
              {"-rdstat_bf"},
              {"open /dev/i2c-1", "i2c 1c wr 00 00", "wait 10", "i2c 1c rd -> 00",
               "close /dev/i2c-1", "say bf status is 0x0"}},
        Order{"rdreg",
              {"-rdreg", "0"},
              {"open /dev/fpga r+b", "fpga rd 0x0000 -> 0x0117", "say addr 0x0: 0x117",
               "close /dev/fpga"}},
        Order{"wrreg",
              {"-wrreg", "0x102", "0x55"},
              {"say wr_fpga_reg!!!!!!!!!!!!!", "open /dev/fpga r+b", "say Write 0x55 to reg 0x102",
               "fpga wr 0x0204 <- 0x0055", "close /dev/fpga"}},
        Order{"wr",
              {"-wr", "0x4011"},
              {"say FPGA WR  command", "open /dev/fpga r+b", "fpga wr 0x0224 <- 0x4011",
               "say read reg add 0x112 data 0x4011 ", "wait 1000", "close /dev/fpga"}},
        Order{"gpio",
              {"-gpio", "26"},
              {"say Start prog_gpio,input_data = 26", "open /dev/fpga r+b", "fpga line 26"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(CommandLineService, words_are_told_behind_what_they_set) {
  CommandLineRun line;
  line.bench.follow();
  line.bench.watch("debug", dbg_encode);
  line.run({"-602", "nomon", "dbg"}, 50'000);
  std::vector<std::string> seen = line.bench.stream();
  ASSERT_GE(seen.size(), 9u);
  seen.resize(9);
  EXPECT_THAT(seen,
              ElementsAre("say  LN 3151", "say argc=4", "say argv[2]=nomon",
                          "say  monitor is disabled!!", "debug = 1", "say argv[3]=dbg",
                          "say  enocde debug is enabled!!", "say  LN 3157", "say prog602 Y_HD"));
}

TEST(CommandLineAc3, tells_itself_first) {
  CommandLineRun line;
  line.bench.follow();
  line.run({"-ac3"}, 50'000);
  std::vector<std::string> seen = line.bench.stream();
  ASSERT_GE(seen.size(), 2u);
  EXPECT_EQ(seen[0], "say ac3_test");
  EXPECT_THAT(seen[1], StartsWith("shmget"));
}

TEST(CommandLine7002, sets_the_standard_before_the_chip) {
  CommandLineRun line;
  SharedBlock& block = line.bench.attach_block();
  line.bench.follow();
  line.bench.watch("std", block.videoStd);
  line.run_to_its_end({"-7002"});
  std::vector<std::string> seen = line.bench.stream();
  ASSERT_GE(seen.size(), 9u);
  seen.resize(9);
  EXPECT_THAT(seen, ElementsAre(StartsWith("shmget"), "std = 25", "open /dev/video0",
                                "video0 S_INPUT 3", "say Set CH input to 3 ", "close /dev/video0",
                                "open /dev/i2c-1", "i2c 5c wr 01 61", "i2c 5c wr 02 80"));
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
