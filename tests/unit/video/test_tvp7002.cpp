// The digitizer: set-up per input and standard, sync monitors.
#include "video/tvp7002.h"

#include <gmock/gmock.h>

#include <string>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/support/i2c_lines.h"
#include "tests/support/video_traffic.h"
#include "vboard/testing/bench.h"

namespace {

using i2c_lines::Lines;
using i2c_lines::rd;
using i2c_lines::rd_failed;
using i2c_lines::wait;
using i2c_lines::wr;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using vboard::Bench;

constexpr int kChip = 0x5C;
constexpr char kNoBus7002[] = "Cannot access I2C device 7002\n";
constexpr char kNoBusBrightness[] = "Cannot access I2C device - Brightness\n";

std::string hex(int value) {
  char text[8];
  snprintf(text, sizeof text, "%02x", value);
  return text;
}

class Tvp7002 : public testing::Test {
 protected:
  Tvp7002() : block(bench.attach_block()) { SetInputMuxCH = 77; }
  void TearDown() override {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }

  std::uint8_t* reg() { return bench.board().tvp7002.reg; }
  void stick(int address, int value) {
    bench.world("fault stuck 5c " + hex(address) + " " + hex(value));
  }
  void fail_transfer(int number) { bench.world("fault i2c-fail 5c " + std::to_string(number)); }
  std::string open_handles() { return vboard::seam::open_handles(); }

  Bench bench;
  SharedBlock& block;
};

// ---- Init7002 -------------------------------------------------------------------

using Init7002Component = Tvp7002;

TEST_F(Init7002Component, traffic_and_messages_in_order) {
  stick(0x14, 0xC2);
  reg()[0x15] = 0x5B;

  Init7002(1);

  EXPECT_THAT(bench.trace(), ElementsAreArray(video_traffic::component_setup(0xC2, 0x5B)));
  EXPECT_EQ(bench.output(), "read reg 19 0 \nread reg 1A 6f \n-- reg 14 c2 \n-- reg 15 5b \n");
  EXPECT_EQ(SetInputMuxCH, 0);
  EXPECT_EQ(open_handles(), "/dev/i2c-1\n");  // the descriptor stays open
}

TEST_F(Init7002Component, any_channel_but_three_becomes_zero) {
  for (const int channel : {0, 1, 2, 4, 5, -1, 255}) {
    SetInputMuxCH = 77;
    Init7002(channel);
    EXPECT_EQ(SetInputMuxCH, 0) << channel;
    EXPECT_THAT(bench.trace({"i2c 5c wr"}), ElementsAre("i2c 5c wr 19 00", "i2c 5c wr 1a 6f"))
        << channel;
  }
}

TEST_F(Init7002Component, failed_transfers_do_not_stop_it) {
  bench.world("fault i2c-fail 5c");

  Init7002(1);

  EXPECT_THAT(bench.trace({"i2c", "wait"}),
              ElementsAre("i2c 5c wr 19 00 = EREMOTEIO", "wait 100", rd_failed(kChip, 0x19),
                          "i2c 5c wr 1a 6f = EREMOTEIO", "wait 100", rd_failed(kChip, 0x1A),
                          rd_failed(kChip, 0x14), rd_failed(kChip, 0x15)));
  EXPECT_EQ(bench.output(), "read reg 19 0 \nread reg 1A 0 \n-- reg 14 0 \n-- reg 15 0 \n");
}

class Init7002Rgb : public Tvp7002,
                    public testing::WithParamInterface<video_traffic::RgbStandard> {};

TEST_P(Init7002Rgb, standard_traffic_and_messages_in_order) {
  const video_traffic::RgbStandard& standard = GetParam();
  block.videoStd = standard.video_std;
  // Not written before they are read back.
  reg()[0x04] = 0x70;
  reg()[0x12] = 0x0E;
  reg()[0x13] = 0xF1;
  // The list begins with registers 01, 02 and 03.
  const std::string list = standard.writes;
  const int reg01 = static_cast<int>(strtol(list.substr(3, 2).c_str(), nullptr, 16));
  const int reg02 = static_cast<int>(strtol(list.substr(10, 2).c_str(), nullptr, 16));
  const int reg03 = static_cast<int>(strtol(list.substr(17, 2).c_str(), nullptr, 16));

  Init7002(3);

  EXPECT_THAT(bench.trace(), ElementsAreArray(video_traffic::rgb_setup(
                                 standard.writes, {reg01, reg02, reg03, 0x70, 0x0E, 0xF1})));
  char expected[512];
  snprintf(expected, sizeof expected,
           "%sSet Video Input To RGB std %d\nreg 01 %x \nreg 02 %x \nreg 03 %x \nreg 04 70 \n"
           "reg 012 e \nreg 013 f1 \nreg 34 13 \nSet Video Input To all config CH 3 RGB Input\n"
           "read reg 19 aa \nread reg 1A 6a \n",
           standard.message, standard.video_std, reg01, reg02, reg03);
  EXPECT_EQ(bench.output(), expected);
  EXPECT_EQ(SetInputMuxCH, 3);
  EXPECT_EQ(open_handles(), "/dev/i2c-1\n");
}

INSTANTIATE_TEST_SUITE_P(Table, Init7002Rgb, testing::ValuesIn(video_traffic::kRgbStandards),
                         [](const auto& row) {
                           return "standard_" + std::to_string(row.param.video_std);
                         });

class Init7002RgbUnlisted : public Tvp7002, public testing::WithParamInterface<int> {};

TEST_P(Init7002RgbUnlisted, writes_the_common_registers_only) {
  block.videoStd = GetParam();
  for (const int one : {0x01, 0x02, 0x03, 0x04, 0x12, 0x13})
    reg()[one] = static_cast<std::uint8_t>(0x80 + one);

  Init7002(3);

  EXPECT_THAT(bench.trace(),
              ElementsAreArray(video_traffic::rgb_setup("", {0x81, 0x82, 0x83, 0x84, 0x92, 0x93})));
  EXPECT_EQ(bench.output(), "Set Video Input To RGB std " + std::to_string(GetParam()) +
                                "\n"
                                "reg 01 81 \nreg 02 82 \nreg 03 83 \nreg 04 84 \nreg 012 92 \n"
                                "reg 013 93 \nreg 34 13 \n"
                                "Set Video Input To all config CH 3 RGB Input\n"
                                "read reg 19 aa \nread reg 1A 6a \n");
}

INSTANTIATE_TEST_SUITE_P(Standards, Init7002RgbUnlisted, testing::Values(0, 6, 11, 23, 24, 577, -1),
                         [](const auto& row) {
                           return row.param < 0 ? std::string("standard_negative")
                                                : "standard_" + std::to_string(row.param);
                         });

TEST_F(Tvp7002, init7002_without_a_bus_prints_and_sets_the_channel) {
  bench.world("fault missing i2c");

  Init7002(3);
  EXPECT_EQ(SetInputMuxCH, 3);
  Init7002(1);
  EXPECT_EQ(SetInputMuxCH, 0);

  EXPECT_EQ(bench.output(), std::string(kNoBusBrightness) + kNoBusBrightness);
  EXPECT_THAT(bench.trace({"i2c", "wait", "close"}), IsEmpty());
}

TEST_F(Tvp7002, init7002_rgb_without_the_shared_block_uses_standard_0) {
  shared_memory = nullptr;

  Init7002(3);

  EXPECT_THAT(bench.output(), testing::StartsWith("Set Video Input To RGB std 0\n"));
}

// ---- video_monitor_7002 -----------------------------------------------------------

using VideoMonitor7002 = Tvp7002;

TEST_F(VideoMonitor7002, reads_four_registers_in_order_and_closes) {
  stick(0x14, 0x42);
  stick(0x24, 0x11);
  stick(0x27, 0x22);
  reg()[0x05] = 0x33;

  EXPECT_EQ(video_monitor_7002(1), 0);

  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd(kChip, 0x05, 0x33), rd(kChip, 0x14, 0x42),
                          rd(kChip, 0x24, 0x11), rd(kChip, 0x27, 0x22), "close /dev/i2c-1"));
  EXPECT_EQ(bench.output(), "");
}

TEST_F(VideoMonitor7002, judges_every_sync_status_by_channel_and_mode) {
  for (const int channel : {0, 1, 3, 4}) {
    block.input_channel = channel;
    for (int status = 0; status < 256; ++status) {
      stick(0x14, status);
      const bool bit0 = (status & 0x01) != 0;
      const bool bit1 = (status & 0x02) != 0;
      const bool bit2 = (status & 0x04) != 0;
      const bool bit3 = (status & 0x08) != 0;
      const bool bit6 = (status & 0x40) != 0;
      const bool good = channel == 3 ? !(bit0 && bit2 && bit3) : bit1 && bit6;
      for (const int mode : {0, 1, 2, -1}) {
        block.do_fpga_restart = 0;
        const int expected = mode == 0 ? (good ? 2 : 0) : (good ? 0 : 1);
        ASSERT_EQ(video_monitor_7002(mode), expected) << channel << " " << status << " " << mode;
        ASSERT_EQ(block.do_fpga_restart, expected == 1 ? 1 : 0) << channel << " " << status;
      }
    }
  }
  EXPECT_EQ(bench.output(), "");
}

TEST_F(VideoMonitor7002, rgb_status_0d_is_no_sync_and_0c_is_good) {
  block.input_channel = 3;
  stick(0x14, 0x0D);
  EXPECT_EQ(video_monitor_7002(0), 0);
  EXPECT_EQ(video_monitor_7002(1), 1);
  stick(0x14, 0x0C);
  EXPECT_EQ(video_monitor_7002(0), 2);
  EXPECT_EQ(video_monitor_7002(1), 0);
}

TEST_F(VideoMonitor7002, good_sync_leaves_a_pending_restart_request) {
  stick(0x14, 0x42);
  block.do_fpga_restart = 1;
  EXPECT_EQ(video_monitor_7002(1), 0);
  EXPECT_EQ(block.do_fpga_restart, 1);
}

TEST_F(VideoMonitor7002, follows_the_plug) {
  Init7002(1);
  bench.world("source component");
  EXPECT_EQ(video_monitor_7002(1), 0);
  bench.world("source none");
  EXPECT_EQ(video_monitor_7002(1), 1);
}

TEST_F(VideoMonitor7002, bus_missing_is_minus_1) {
  bench.world("fault missing i2c");
  for (const int mode : {0, 1}) {
    EXPECT_EQ(video_monitor_7002(mode), -1);
    EXPECT_EQ(bench.output(), kNoBus7002);
  }
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_THAT(bench.trace({"close", "i2c"}), IsEmpty());
}

class VideoMonitor7002Read : public Tvp7002, public testing::WithParamInterface<int> {};

TEST_P(VideoMonitor7002Read, failure_is_minus_2_with_its_message_and_closes) {
  const int registers[] = {0x05, 0x14, 0x24, 0x27};
  const int failing = GetParam();
  for (const int mode : {0, 1}) {
    fail_transfer(failing);

    EXPECT_EQ(video_monitor_7002(mode), -2);

    EXPECT_EQ(bench.output(),
              failing == 1 ? "Error i2c readbyte 7002 0x05\n" : "Error i2c_readbyte -7002\n");
    const Lines lines = bench.trace();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(failing) + 2);  // none after the failed one
    EXPECT_EQ(lines[static_cast<std::size_t>(failing)], rd_failed(kChip, registers[failing - 1]));
    EXPECT_EQ(lines.back(), "close /dev/i2c-1");
  }
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(open_handles(), "");
}

INSTANTIATE_TEST_SUITE_P(Number, VideoMonitor7002Read, testing::Range(1, 5),
                         [](const auto& row) { return std::to_string(row.param); });

// ---- check_alc_green ---------------------------------------------------------------

using CheckAlcGreen = Tvp7002;

TEST_F(CheckAlcGreen, traffic_and_named_values) {
  // 0x10 | ((0x0C >> 2) & 3) = 0x13; 1 | 1 = 1; 0 | 2 = 2; bits 0, 1 and 4 to 7 of B are dropped.
  const int cases[][3] = {{0x10, 0x0C, 0x13}, {0x01, 0x04, 0x01}, {0x00, 0x08, 0x02},
                          {0x80, 0xF3, 0x80}, {0xFF, 0xFF, 0xFF}, {0x00, 0x00, 0x00}};
  for (const auto& [a, b, expected] : cases) {
    stick(0x24, a);
    stick(0x27, b);
    EXPECT_EQ(check_alc_green(), expected) << a << " " << b;
    EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", rd(kChip, 0x24, a),
                                           rd(kChip, 0x27, b), "close /dev/i2c-1"));
  }
  EXPECT_EQ(bench.output(), "");
}

TEST_F(CheckAlcGreen, every_second_byte_adds_its_bits_2_and_3) {
  stick(0x24, 0x40);
  for (int b = 0; b < 256; ++b) {
    stick(0x27, b);
    const int expected = 0x40 + ((b & 0x08) != 0 ? 2 : 0) + ((b & 0x04) != 0 ? 1 : 0);
    ASSERT_EQ(check_alc_green(), expected) << b;
  }
}

TEST_F(CheckAlcGreen, bus_missing_is_minus_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(check_alc_green(), -1);
  EXPECT_EQ(bench.output(), kNoBus7002);
}

TEST_F(CheckAlcGreen, failed_read_is_minus_2_and_closes) {
  fail_transfer(1);
  EXPECT_EQ(check_alc_green(), -2);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd_failed(kChip, 0x24), "close /dev/i2c-1"));
  stick(0x24, 0x55);
  fail_transfer(2);
  EXPECT_EQ(check_alc_green(), -2);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", rd(kChip, 0x24, 0x55),
                                         rd_failed(kChip, 0x27), "close /dev/i2c-1"));
  EXPECT_EQ(bench.output(), "Error i2c_readbyte -7002\nError i2c_readbyte -7002\n");
}

}  // namespace
