// Switching between the front ends.
#include "video/input_selection.h"

#include <gmock/gmock.h>

#include <string>

#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/support/i2c_lines.h"
#include "tests/support/video_traffic.h"
#include "vboard/testing/bench.h"

namespace {

using i2c_lines::add;
using i2c_lines::Lines;
using i2c_lines::rd;
using i2c_lines::rd_failed;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using vboard::Bench;

constexpr int kTvp7002 = 0x5C;

class VideoInput : public testing::Test {
 protected:
  VideoInput() : block(bench.attach_block()) {
    open_fpga_dev();
    bench.set_fpga(0x204, 0x1234);
    SetInputMuxCH = 77;
    block.input_channel = 77;
    forget();
  }
  void TearDown() override {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }
  void forget() {
    bench.trace();
    bench.output();
  }
  int select(std::int32_t value) { return SetVideoInputSel(&value, 0); }

  Bench bench;
  SharedBlock& block;
};

std::string last_line(int channel) {
  return "==========  Set Video Input To " + std::to_string(channel) + " =====================\n";
}

// One line action on a stream of its own.
Lines line_action(int number) {
  return {"open /dev/fpga r+b", "fpga line " + std::to_string(number)};
}

// Up to where the two paths of the digitizer part.
Lines tvp7002_begin() {
  Lines lines = line_action(79);
  add(lines, {"wait 1000000", "fpga wr 0x0204 <- 0x0000"});
  return lines;
}

Lines capture_input(int number) {
  return {"open /dev/video0", "video0 S_INPUT " + std::to_string(number), "close /dev/video0"};
}

constexpr char kTvp7002Begin[] =
    "Start prog_gpio,input_data = 79\n"
    "************** set TVP7002 SW GPIO 79 ******************\n";
constexpr char kTvp7002End[] =
    "************** run tvp7002 init  ******************\n"
    "Start prog_gpio,input_data = 27\n";

// ---- SetVideoInputSel, digitizer -------------------------------------------------

TEST_F(VideoInput, component_traffic_messages_and_channel_0) {
  bench.world("fault stuck 5c 14 c2");
  bench.world("fault stuck 5c 15 00");

  const int result = select(1);

  Lines expected = tvp7002_begin();
  add(expected, capture_input(1));
  add(expected, video_traffic::component_setup(0xC2, 0x00));
  add(expected, {"wait 1000000"});
  add(expected, line_action(27));
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(), std::string(kTvp7002Begin) + "Set CH input to 1 \n" +
                                "read reg 19 0 \nread reg 1A 6f \n-- reg 14 c2 \n-- reg 15 0 \n" +
                                kTvp7002End + last_line(0));
  EXPECT_EQ(SetInputMuxCH, 0);
  EXPECT_EQ(block.input_channel, 0);
  EXPECT_EQ(result, static_cast<int>(last_line(0).size()));  // the print result
  EXPECT_EQ(bench.fpga(0x204), 0);
}

TEST_F(VideoInput, rgb_traffic_messages_and_channel_3) {
  block.videoStd = 9;
  const video_traffic::RgbStandard& standard = video_traffic::kRgbStandards[2];
  ASSERT_EQ(standard.video_std, 9);

  const int result = select(2);

  Lines expected = tvp7002_begin();
  add(expected, capture_input(3));
  add(expected, video_traffic::rgb_setup(standard.writes, {0x54, 0x00, 0x58, 0x80, 0, 0}));
  add(expected, {"wait 1000000"});
  add(expected, line_action(27));
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(),
            std::string(kTvp7002Begin) +
                "Set CH input to 3 \nSet Video Input To 1024 RGB\nSet Video Input To RGB std 9\n"
                "reg 01 54 \nreg 02 0 \nreg 03 58 \nreg 04 80 \nreg 012 0 \nreg 013 0 \n"
                "reg 34 13 \nSet Video Input To all config CH 3 RGB Input\nread reg 19 aa \n"
                "read reg 1A 6a \n" +
                kTvp7002End + last_line(3));
  EXPECT_EQ(SetInputMuxCH, 3);
  EXPECT_EQ(block.input_channel, 3);
  EXPECT_EQ(result, static_cast<int>(last_line(3).size()));
}

class VideoInputOther : public VideoInput, public testing::WithParamInterface<int> {};

TEST_P(VideoInputOther, publishes_the_raw_value_and_sets_up_no_chip) {
  const int value = GetParam();

  const int result = select(value);

  Lines expected = tvp7002_begin();
  add(expected, line_action(27));
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(), std::string(kTvp7002Begin) + kTvp7002End + last_line(value));
  EXPECT_EQ(SetInputMuxCH, value);
  EXPECT_EQ(block.input_channel, value);
  EXPECT_EQ(result, static_cast<int>(last_line(value).size()));
}

INSTANTIATE_TEST_SUITE_P(Values, VideoInputOther, testing::Values(0, 3, 5, 255),
                         [](const auto& row) { return "input_" + std::to_string(row.param); });

TEST_F(VideoInput, takes_the_low_byte_of_the_value) {
  select(0x101);
  EXPECT_EQ(block.input_channel, 0);
  EXPECT_THAT(bench.output(), HasSubstr("Set CH input to 1 \n"));
  select(0x100);
  EXPECT_EQ(block.input_channel, 0);
  select(-1);
  EXPECT_EQ(block.input_channel, 255);
  select(0x704);
  EXPECT_EQ(block.input_channel, 4);
}

// ---- SetVideoInputSel, decoder ------------------------------------------------------

class VideoInputComposite : public VideoInput, public testing::WithParamInterface<int> {};

TEST_P(VideoInputComposite, traffic_messages_and_channel_4) {
  const int video_std = GetParam();
  const int input = video_std == 577 ? 5 : 4;
  block.videoStd = video_std;

  const int result = select(4);

  Lines expected = line_action(80);
  add(expected, line_action(26));
  add(expected, {"wait 1000000"});
  add(expected, line_action(27));
  add(expected, capture_input(input));
  add(expected, {"fpga wr 0x0204 <- 0x4000", "wait 1000000"});
  add(expected, video_traffic::tvp5150_setup());
  add(expected, {"wait 2000000"});
  add(expected, line_action(27));
  const Lines lines = bench.trace();
  ASSERT_EQ(lines.size(), expected.size());
  // Behind register 0x28: close, wait, and the two lines of the line action.
  EXPECT_THAT(i2c_lines::masked(lines, 5), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(),
            "Start prog_gpio,input_data = 80\nStart prog_gpio,input_data = 26\n"
            "Start prog_gpio,input_data = 27\nSet CH input to " +
                std::to_string(input) +
                " \n"
                "************** set TVP5150 SW GPIO 80 ******************\n"
                "************** run tvp5150 init  ******************\n"
                "Start prog_gpio,input_data = 27\n" +
                last_line(4));
  EXPECT_EQ(SetInputMuxCH, 4);
  EXPECT_EQ(block.input_channel, 4);
  EXPECT_EQ(result, static_cast<int>(last_line(4).size()));
  EXPECT_EQ(bench.fpga(0x204), 0x4000);
}

INSTANTIATE_TEST_SUITE_P(Standards, VideoInputComposite, testing::Values(0, 576, 577, 578, 480),
                         [](const auto& row) { return "standard_" + std::to_string(row.param); });

// ---- messages and traffic in one order ----------------------------------------------

class VideoInputOrder : public VideoInput {
 protected:
  VideoInputOrder() {
    bench.follow();
    bench.watch("mux", SetInputMuxCH);
    bench.watch("channel", block.input_channel);
  }
};

// What a line action shows: its message, then the request.
Lines told_line_action(int number) {
  Lines lines = {"say Start prog_gpio,input_data = " + std::to_string(number)};
  add(lines, line_action(number));
  return lines;
}

Lines told_capture_input(int number) {
  const std::string text = std::to_string(number);
  return {"open /dev/video0", "video0 S_INPUT " + text, "say Set CH input to " + text + " ",
          "close /dev/video0"};
}

Lines told_tvp7002_begin(int input) {
  Lines lines = {"mux = " + std::to_string(input)};
  add(lines, told_line_action(79));
  add(lines, {"say ************** set TVP7002 SW GPIO 79 ******************", "wait 1000000",
              "fpga wr 0x0204 <- 0x0000"});
  return lines;
}

Lines told_tvp7002_end(int channel) {
  const std::string text = std::to_string(channel);
  Lines lines = {"say ************** run tvp7002 init  ******************"};
  add(lines, told_line_action(27));
  add(lines, {"say ==========  Set Video Input To " + text + " =====================",
              "channel = " + text});
  return lines;
}

TEST_F(VideoInputOrder, component) {
  bench.world("fault stuck 5c 14 c2");
  bench.world("fault stuck 5c 15 00");
  select(1);
  Lines expected = told_tvp7002_begin(1);
  add(expected, told_capture_input(1));
  add(expected, {"mux = 0", "open /dev/i2c-1", "i2c 5c wr 19 00", "wait 100", "i2c 5c rd 19 -> 00",
                 "say read reg 19 0 ", "i2c 5c wr 1a 6f", "wait 100", "i2c 5c rd 1a -> 6f",
                 "say read reg 1A 6f ", "i2c 5c rd 14 -> c2", "say -- reg 14 c2 ",
                 "i2c 5c rd 15 -> 00", "say -- reg 15 0 ", "wait 1000000"});
  add(expected, told_tvp7002_end(0));
  EXPECT_EQ(bench.stream(), expected);
}

TEST_F(VideoInputOrder, rgb) {
  block.videoStd = 9;
  const video_traffic::RgbStandard& standard = video_traffic::kRgbStandards[2];
  ASSERT_EQ(standard.video_std, 9);
  select(2);
  Lines expected = told_tvp7002_begin(2);
  add(expected, {"mux = 3"});
  add(expected, told_capture_input(3));
  add(expected, {"open /dev/i2c-1", "say Set Video Input To 1024 RGB"});
  add(expected, i2c_lines::writes(kTvp7002, standard.writes));
  add(expected, {"say Set Video Input To RGB std 9",
                 "i2c 5c wr 34 13",
                 "i2c 5c rd 01 -> 54",
                 "say reg 01 54 ",
                 "i2c 5c rd 02 -> 00",
                 "say reg 02 0 ",
                 "i2c 5c rd 03 -> 58",
                 "say reg 03 58 ",
                 "i2c 5c rd 04 -> 80",
                 "say reg 04 80 ",
                 "i2c 5c rd 12 -> 00",
                 "say reg 012 0 ",
                 "i2c 5c rd 13 -> 00",
                 "say reg 013 0 ",
                 "i2c 5c rd 34 -> 13",
                 "say reg 34 13 ",
                 "say Set Video Input To all config CH 3 RGB Input",
                 "i2c 5c wr 19 aa",
                 "wait 100",
                 "i2c 5c rd 19 -> aa",
                 "say read reg 19 aa ",
                 "i2c 5c wr 1a 6a",
                 "wait 100",
                 "i2c 5c rd 1a -> 6a",
                 "say read reg 1A 6a "});
  add(expected, i2c_lines::writes(kTvp7002, video_traffic::kRgbCommon));
  add(expected, {"wait 1000000"});
  add(expected, told_tvp7002_end(3));
  EXPECT_EQ(bench.stream(), expected);
}

TEST_F(VideoInputOrder, composite) {
  select(4);
  Lines expected = {"mux = 4"};
  add(expected, told_line_action(80));
  add(expected, told_line_action(26));
  add(expected, {"wait 1000000"});
  add(expected, told_line_action(27));
  add(expected, told_capture_input(4));
  add(expected,
      {"fpga wr 0x0204 <- 0x4000", "say ************** set TVP5150 SW GPIO 80 ******************",
       "wait 1000000", "say ************** run tvp5150 init  ******************"});
  add(expected, video_traffic::tvp5150_setup());
  add(expected, {"wait 2000000"});
  add(expected, told_line_action(27));
  add(expected, {"say ==========  Set Video Input To 4 =====================", "channel = 4"});
  const Lines seen = bench.stream();
  ASSERT_EQ(seen.size(), expected.size());
  // Behind register 0x28: close, wait, the three lines of the line action, two more.
  EXPECT_EQ(i2c_lines::masked(seen, 8), expected);
}

TEST_F(VideoInputOrder, other_value) {
  select(7);
  Lines expected = told_tvp7002_begin(7);
  add(expected, told_tvp7002_end(7));
  EXPECT_EQ(bench.stream(), expected);
}

// ---- failures are the called parts' own -------------------------------------------------

TEST_F(VideoInput, everything_missing_still_publishes_the_channel) {
  for (const char* device : {"fpga", "i2c", "video0"})
    bench.world(std::string("fault missing ") + device);

  select(2);
  EXPECT_EQ(bench.output(),
            "Start prog_gpio,input_data = 79\nCannot access SPI port (/dev/fpga) - 1\n"
            "************** set TVP7002 SW GPIO 79 ******************\n"
            "Cannot open video 0\nSet CH input to 3 \nCannot access I2C device - Brightness\n"
            "************** run tvp7002 init  ******************\n"
            "Start prog_gpio,input_data = 27\nCannot access SPI port (/dev/fpga) - 1\n" +
                last_line(3));
  EXPECT_EQ(block.input_channel, 3);

  select(4);
  EXPECT_THAT(bench.output(),
              HasSubstr("************** run tvp5150 init  ******************\n"
                        "Cannot access I2C device 5150\nStart prog_gpio,input_data = 27\n"));
  EXPECT_EQ(block.input_channel, 4);
}

TEST_F(VideoInput, without_the_shared_block_selects_all_the_same) {
  shared_memory = nullptr;
  select(4);
  EXPECT_EQ(SetInputMuxCH, 4);
  EXPECT_THAT(bench.trace({"video0"}), ElementsAre("video0 S_INPUT 4"));
}

TEST_F(VideoInput, selected_front_end_sees_its_source) {
  bench.world("source composite");
  select(4);
  EXPECT_FALSE(bench.board().tvp5150.in_reset);
  EXPECT_EQ(bench.board().tvp5150.reg[0x0D], 0x47);
}

}  // namespace
