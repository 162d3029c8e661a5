// The capture device: input, detected standard, image-pipe registers.
#include "video/capture.h"

#include <gmock/gmock.h>

#include <bit>
#include <cerrno>

#include "tests/support/i2c_lines.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;

class Capture : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }
  Bench bench;
};

TEST_F(Capture, private_request_numbers) {
  EXPECT_EQ(static_cast<unsigned long>(kCaptureIsifSelect), 0xC004562AUL);
  EXPECT_EQ(static_cast<unsigned long>(kCaptureIsifWrite), 0xC004562BUL);
  EXPECT_EQ(static_cast<unsigned long>(kCaptureIpipeSelect), 0xC004562CUL);
  EXPECT_EQ(static_cast<unsigned long>(kCaptureIpipeWrite), 0xC004562DUL);
}

// ---- SetInputMux --------------------------------------------------------------

using SetInputMuxTo = Capture;

TEST_F(SetInputMuxTo, opens_selects_prints_and_closes) {
  for (const int channel : {1, 3, 4, 5}) {
    SetInputMux(channel);
    EXPECT_THAT(bench.trace(),
                ElementsAre("open /dev/video0", "video0 S_INPUT " + std::to_string(channel),
                            "close /dev/video0"));
    EXPECT_EQ(bench.output(), "Set CH input to " + std::to_string(channel) + " \n");
    EXPECT_EQ(bench.board().capture.input, channel);
  }
}

TEST_F(SetInputMuxTo, missing_device_prints_and_goes_on) {
  bench.world("fault missing video0");
  SetInputMux(3);
  EXPECT_EQ(bench.output(), "Cannot open video 0\nSet CH input to 3 \n");
  EXPECT_THAT(bench.trace({"video0", "close"}), IsEmpty());
}

TEST_F(SetInputMuxTo, failed_request_prints_nothing_more) {
  vboard::seam::fail_call("ioctl", "/dev/video0", 0, 1, EIO);
  SetInputMux(1);
  EXPECT_EQ(bench.output(), "Set CH input to 1 \n");
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

// ---- GetSTD -----------------------------------------------------------------------

// What a mask with only this bit set means.
int number_of_bit(int bit) {
  switch (bit) {
    case 48:
      return 1;
    case 49:
      return 2;
    case 50:
      return 3;
    case 51:
      return 4;
    case 52:
      return 5;
    case 53:
      return 6;
    case 55:
      return 9;
    case 56:
      return 10;
    case 57:
      return 11;
    case 58:
      return 12;
    case 59:
      return 13;
    case 60:
      return 14;
    case 61:
      return 15;
    default:
      return 0;
  }
}

class GetStd : public Capture {
 protected:
  void report(std::uint64_t mask) {
    bench.world("source none");
    bench.world("fault ghost-standard off");
    for (int bit = 0; bit < 64; ++bit)
      if ((mask >> bit & 1) != 0) bench.world("fault ghost-standard " + std::to_string(bit));
  }
};

TEST_F(GetStd, queries_waits_and_closes) {
  bench.board().world.standard_bit = 48;
  EXPECT_EQ(GetSTD(), 1);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/video0", "video0 QUERYSTD -> 0x0001000000000000", "wait 1",
                          "wait 1000000", "close /dev/video0"));
  EXPECT_EQ(bench.output(), "");
}

TEST_F(GetStd, every_single_bit) {
  for (int bit = 0; bit < 64; ++bit) {
    report(std::uint64_t{1} << bit);
    EXPECT_EQ(GetSTD(), number_of_bit(bit)) << bit;
  }
}

TEST_F(GetStd, every_pair_of_bits_is_0) {
  for (int one = 0; one < 64; ++one)
    for (int other = one + 1; other < 64; ++other) {
      report(std::uint64_t{1} << one | std::uint64_t{1} << other);
      ASSERT_EQ(GetSTD(), 0) << one << " " << other;
    }
}

TEST_F(GetStd, no_bit_and_all_bits_are_0) {
  report(0);
  EXPECT_EQ(GetSTD(), 0);
  report(~std::uint64_t{0});
  EXPECT_EQ(GetSTD(), 0);
  report(0x3FFF000000000000);  // all that have a number, and bit 54
  EXPECT_EQ(GetSTD(), 0);
}

TEST_F(GetStd, missing_device_is_0_with_both_messages) {
  bench.world("fault missing video0");
  EXPECT_EQ(GetSTD(), 0);
  EXPECT_EQ(bench.output(), "Cannot open video 0\n        Cannot ioctl  VIDIOC_QUERYSTD\n");
  EXPECT_THAT(bench.trace({"wait", "close"}), ElementsAre("wait 1", "wait 1000000"));
}

TEST_F(GetStd, failed_request_is_0_with_its_message) {
  bench.board().world.standard_bit = 48;
  vboard::seam::fail_call("ioctl", "/dev/video0", 0, 1, EIO);
  EXPECT_EQ(GetSTD(), 0);
  EXPECT_EQ(bench.output(), "        Cannot ioctl  VIDIOC_QUERYSTD\n");
  EXPECT_THAT(bench.trace({"open", "wait", "close"}),
              ElementsAre("open /dev/video0", "wait 1", "wait 1000000", "close /dev/video0"));
}

// ---- the device itself ----------------------------------------------------------------

TEST_F(Capture, image_pipe_registers_are_selected_then_written) {
  const int fd = open_capture();
  ASSERT_GE(fd, 0);
  EXPECT_EQ(select_ipipe_register(fd, kIpipeHorizontalOffset), 0);
  EXPECT_EQ(write_ipipe_register(fd, 134), 0);
  EXPECT_EQ(close_capture(fd), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 0xc004562c 24",
                                         "video0 0xc004562d 134", "close /dev/video0"));
  EXPECT_EQ(bench.output(), "");
}

TEST_F(Capture, a_device_that_did_not_open_is_left_alone) {
  bench.world("fault missing video0");
  const int fd = open_capture();
  EXPECT_EQ(fd, -1);
  EXPECT_LT(select_ipipe_register(fd, 24), 0);
  EXPECT_LT(write_ipipe_register(fd, 1), 0);
  EXPECT_EQ(close_capture(fd), -1);
  EXPECT_EQ(bench.output(), "Cannot open video 0\n");
  EXPECT_THAT(bench.trace({"video0", "close"}), IsEmpty());
}

// ---- messages and requests in one order ------------------------------------------------

TEST_F(Capture, refused_standard_is_told_between_its_two_waits) {
  vboard::seam::fail_call("ioctl", "/dev/video0", 0, 1, EIO);
  bench.follow();
  EXPECT_EQ(GetSTD(), 0);
  const std::vector<std::string> seen = bench.stream();
  ASSERT_EQ(seen.size(), 6u);
  EXPECT_EQ(seen[0], "open /dev/video0");
  EXPECT_EQ(seen[2], "wait 1");
  EXPECT_EQ(seen[3], "say         Cannot ioctl  VIDIOC_QUERYSTD");
  EXPECT_EQ(seen[4], "wait 1000000");
  EXPECT_EQ(seen[5], "close /dev/video0");
}

}  // namespace
