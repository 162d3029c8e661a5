// Line actions of the FPGA device and lines of the kernel's sysfs GPIO.
#include "hw/gpio.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>

#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using vboard::Bench;
namespace seam = vboard::seam;

class LineAction : public testing::TestWithParam<int> {};

TEST_P(LineAction, issues_its_request_and_keeps_the_stream) {
  const int line = GetParam();
  Bench bench;
  EXPECT_EQ(prog_gpio(line), 0);
  EXPECT_EQ(bench.output(), "Start prog_gpio,input_data = " + std::to_string(line) + "\n");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/fpga r+b", "fpga line " + std::to_string(line)));
  EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n");
}

INSTANTIATE_TEST_SUITE_P(ProgGpio, LineAction,
                         testing::Values(26, 27, 28, 29, 79, 80, 82, 83, 84, 85, 86, 87, 93, 94, 95,
                                         96),
                         [](const auto& test) { return "line_" + std::to_string(test.param); });

TEST(ProgGpio, names_are_the_request_numbers) {
  EXPECT_EQ(kTvp5150Reset, 26);
  EXPECT_EQ(kTvp5150Release, 27);
  EXPECT_EQ(kAc3DspReset, 28);
  EXPECT_EQ(kAc3DspRelease, 29);
  EXPECT_EQ(kSelectTvp7002, 79);
  EXPECT_EQ(kSelectTvp5150, 80);
  EXPECT_EQ(kLine82Low, 82);
  EXPECT_EQ(kLine83Low, 83);
  EXPECT_EQ(kLine84Low, 84);
  EXPECT_EQ(kLine82High, 85);
  EXPECT_EQ(kLine83High, 86);
  EXPECT_EQ(kLine84High, 87);
  EXPECT_EQ(kTvp7002Reset, 93);
  EXPECT_EQ(kTvp7002Release, 94);
  EXPECT_EQ(kAudioReset, 95);
  EXPECT_EQ(kAudioRelease, 96);
}

TEST(ProgGpio, device_missing_prints_no_request_error) {
  Bench bench;
  bench.world("fault missing fpga");
  EXPECT_EQ(prog_gpio(26), 1);
  EXPECT_EQ(bench.output(),
            "Start prog_gpio,input_data = 26\nCannot access SPI port (/dev/fpga) - 1\n");
}

TEST(ProgGpio, request_refused_prints_its_result) {
  Bench bench;
  bench.world("fault fpga-fail 28");
  EXPECT_EQ(prog_gpio(28), 2);
  EXPECT_EQ(bench.output(), "Start prog_gpio,input_data = 28\nError -1 in IOCTL - LED\n");
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n");
}

TEST(ProgGpio, unknown_or_negative_number_is_the_drivers_to_refuse) {
  Bench bench;
  EXPECT_EQ(prog_gpio(5), 2);
  EXPECT_EQ(prog_gpio(INT_MIN), 2);
}

TEST(ProgGpio, every_call_keeps_one_more_stream) {
  Bench bench;
  prog_gpio(28);
  prog_gpio(29);
  prog_gpio(79);
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n/dev/fpga\n/dev/fpga\n");
}

TEST(SetNewGpio, any_value_but_zero_writes_one_and_a_zero_byte) {
  Bench bench;
  bench.board().gpio.exported[5] = true;
  EXPECT_EQ(SetNewGpio(5, 7), 0);
  EXPECT_EQ(SetNewGpio(5, -1), 0);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /sys/class/gpio/gpio5/value", "gpio 5 <- 1",
                          "close /sys/class/gpio/gpio5/value", "open /sys/class/gpio/gpio5/value",
                          "gpio 5 <- 1", "close /sys/class/gpio/gpio5/value"));
  EXPECT_EQ(bench.output(), "set gpio 5 to val 7\nset gpio 5 to val -1\n");
  EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
}

TEST(SetNewGpio, zero_writes_nought_and_a_zero_byte) {
  Bench bench;
  bench.board().gpio.exported[93] = true;
  bench.board().gpio.value[93] = 1;
  EXPECT_EQ(SetNewGpio(93, 0), 0);
  EXPECT_EQ(bench.board().gpio.value[93], 0);
  EXPECT_EQ(bench.output(), "set gpio 93 to val 0\n");
  EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
}

TEST(SetNewGpio, line_not_exported_prints_and_goes_on) {
  Bench bench;
  EXPECT_EQ(SetNewGpio(6, 1), -1);
  EXPECT_EQ(bench.output(), "gpio canot work 6\nset gpio 6 to val 1\n");
}

TEST(SetNewGpio, failed_write_is_not_detected) {
  Bench bench;
  bench.board().gpio.exported[5] = true;
  seam::fail_call("write", "gpio5", 0, 1, EIO);
  EXPECT_EQ(SetNewGpio(5, 1), 0);
  EXPECT_EQ(bench.output(), "set gpio 5 to val 1\n");
}

}  // namespace
