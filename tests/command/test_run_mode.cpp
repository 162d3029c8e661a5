// Run mode "-602": its words, in every position, and what they switch.
#include <gmock/gmock.h>

#include <string>

#include "tests/command/command_case.h"

namespace {

const char kNomon[] = "argv[2]=nomon\n monitor is disabled!!\n";
const char kGetmon[] = " Go to UPDATE  command\n";
const char kDbg[] = "argv[3]=dbg\n enocde debug is enabled!!\n";

struct Word {
  const char* name;
  const char* text;
};
void PrintTo(const Word& one, std::ostream* out) { *out << one.name; }
const Word kWords[] = {{"none", ""},   {"getmon", "getmon"},   {"nomon", "nomon"},  {"dbg", "dbg"},
                       {"other", "x"}, {"capitals", "GETMON"}, {"longer", "nomon1"}};

using Words = std::tuple<Word, Word>;
class RunMode : public testing::TestWithParam<Words> {};

TEST_P(RunMode, words_count_at_their_positions_only) {
  const auto& [second, third] = GetParam();
  const std::string at_2 = second.text;
  const std::string at_3 = third.text;
  const int argc = 2 + (at_2.empty() ? 0 : 1) + (at_3.empty() ? 0 : 1);
  const std::string position_2 = at_2.empty() ? at_3 : at_2;
  const std::string position_3 = at_2.empty() ? "" : at_3;
  std::string expected = " LN 3151\nargc=" + std::to_string(argc) + "\n";
  if (position_2 == "getmon") expected += kGetmon;
  if (position_2 == "nomon") expected += kNomon;
  if (position_3 == "dbg") expected += kDbg;
  expected += " LN 3157\nprog602 Y_HD\n";
  if (position_2 == "getmon") expected += "Start System Monitoring\n";
  BoardRun board;
  const Result result = board.vantorig("-602 " + at_2 + " " + at_3, 0.15);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out.substr(0, expected.size()), expected);
  // The status thread comes with "getmon" alone, before the host link's.
  EXPECT_EQ(board.trace({"thread"}).size(), position_2 == "getmon" ? 2u : 1u);
}

INSTANTIATE_TEST_SUITE_P(words, RunMode,
                         testing::Combine(testing::ValuesIn(kWords), testing::ValuesIn(kWords)),
                         [](const testing::TestParamInfo<Words>& one) {
                           return std::string(std::get<0>(one.param).name) + "_then_" +
                                  std::get<1>(one.param).name;
                         });

TEST(RunModeStart, prints_and_does_its_steps_in_order) {
  BoardRun board;
  board.put_file("version.ini", "3.4.5");
  const Result result = board.vantorig("-602", 0.3);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out,
            " LN 3151\n"
            "argc=2\n"
            " LN 3157\n"
            "prog602 Y_HD\n"
            "OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1\n"
            "Reset FPGA\n"
            "end configure\n"
            "\n"
            "read '3.4.5' OK");  // no line end
  EXPECT_EQ(
      board.trace_with_threads(),
      (Lines{"main shmget 0x4d454c4b 4096 0x3ff", "main thread t1", "main wait 100000",
             "t1 open /dev/fpga r+b", "t1 wait 10000", "t1 fpga wr 0x0004 <- 0x0001",
             "t1 fpga wr 0x0008 <- 0x0001", "t1 fpga wr 0x0010 <- 0x0000",
             "t1 fpga wr 0x0224 <- 0x0000", "t1 fpga wr 0x132c <- 0x0000", "t1 wait 1000000",
             "main open /dev/fpga r+b", "main fpga led 87", "main file /home/tovin/version.ini r",
             "main fpga rd 0x0000 -> 0x0117", "main wait 500000"}));
}

TEST(RunModeStart, option_in_second_position_reads_itself_as_no_word) {
  BoardRun board;
  const Result result = board.vantorig("x -602 dbg", 0.005);
  const std::string expected = " LN 3151\nargc=4\n" + std::string(kDbg) + " LN 3157\n";
  EXPECT_EQ(result.out.substr(0, expected.size()), expected);
}

TEST(RunModeStart, comes_behind_7002_and_keeps_ac3_away) {
  BoardRun board;
  board.vboard("fault missing i2c");
  const Result result = board.vantorig("-ac3 -602 -7002", 0.3);
  const std::string expected =
      "Set CH input to 3 \nCannot access I2C device - Brightness\n"
      " LN 3151\nargc=4\n LN 3157\nprog602 Y_HD\n";
  EXPECT_EQ(result.out.substr(0, expected.size()), expected);
  EXPECT_EQ(result.out.find("ac3_test"), std::string::npos);
}

// A host sends the configuration; every launch shows whether debugging is on.
struct Launch {
  const char* name;
  const char* arguments;
  const char* command;
};
void PrintTo(const Launch& one, std::ostream* out) { *out << one.arguments; }
class RunModeLaunch : public testing::TestWithParam<Launch> {};

TEST_P(RunModeLaunch, follows_the_debug_word) {
  BoardRun board;
  board.put_file("send.ini", "portActiveEnable=1\n; enough bytes to be a file\n");
  board.service(GetParam().arguments, "at 3s melk send-config /home/tovin/send.ini\n", 60);
  Lines launches;
  for (const std::string& line : board.trace({"shell"}))
    if (line.find("./encode&") != std::string::npos) launches.push_back(line);
  ASSERT_FALSE(launches.empty());
  for (const std::string& line : launches) EXPECT_EQ(line, GetParam().command);
}

INSTANTIATE_TEST_SUITE_P(
    words, RunModeLaunch,
    testing::Values(Launch{"plain", "-602", "shell ./encode&"},
                    Launch{"dbg_in_third_position", "-602 x dbg", "shell DMAI_DEBUG=2 ./encode&"},
                    Launch{"dbg_in_second_position", "-602 dbg", "shell ./encode&"}),
    [](const auto& one) { return std::string(one.param.name); });

}  // namespace
