// The capture driver's private registers, and the crop.
#include "diag/capture_bench.h"

#include <gmock/gmock.h>

#include <linux/videodev2.h>

#include <cerrno>
#include <limits>
#include <string>

#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using vboard::Bench;
namespace seam = vboard::seam;

TEST(Ipiperw, selects_and_writes_the_register) {
  Bench bench;
  EXPECT_EQ(ipiperw(24, 0x55, 0), 0);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 0xc004562c 24",
                                         "video0 0xc004562d 85", "close /dev/video0"));
  EXPECT_EQ(bench.board().capture.ipipe[24 / 4], 0x55);
}

TEST(Ipiperw, select_only_writes_nothing) {
  Bench bench;
  EXPECT_EQ(ipiperw(24, 0x55, 1), 0);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/video0", "video0 0xc004562c 24", "close /dev/video0"));
  EXPECT_EQ(bench.board().capture.ipipe[24 / 4], 0);
}

TEST(Ipiperw, device_missing_prints_and_goes_on) {
  Bench bench;
  bench.world("fault missing video0");
  EXPECT_EQ(ipiperw(24, 0x55, 0), -1);
  EXPECT_EQ(bench.output(), "Cannot open video 0\n");
}

TEST(IsifRegUtil, read_selects_the_register_and_leaves_the_device_open) {
  Bench bench;
  isif_reg_util(1, 16, 0x77);
  EXPECT_EQ(bench.output(), "reg util for ISIF \n");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 0xc004562a 16"));
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/video0\n");
}

TEST(IsifRegUtil, write_selects_then_writes_value_first) {
  Bench bench;
  isif_reg_util(0, 16, 0x77);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/video0", "video0 0xc004562a 16", "video0 0xc004562b 119"));
  EXPECT_EQ(bench.board().capture.isif[16 / 4], 0x77);
}

TEST(IsifRegUtil, device_missing_prints_and_goes_on) {
  Bench bench;
  bench.world("fault missing video0");
  isif_reg_util(0, 16, 0x77);
  EXPECT_EQ(bench.output(), "reg util for ISIF \nCannot open video 0\n");
}

TEST(IpipeRegUtil, any_number_but_0_reads_and_the_device_is_closed) {
  Bench bench;
  ipipe_reg_util(7, 24, 0x77);
  EXPECT_EQ(bench.output(), "reg util for IPIPE \n");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/video0", "video0 0xc004562c 24", "close /dev/video0"));
}

TEST(IpipeRegUtil, write_selects_then_writes_value_first) {
  Bench bench;
  ipipe_reg_util(0, 24, 0x77);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 0xc004562c 24",
                                         "video0 0xc004562d 119", "close /dev/video0"));
  EXPECT_EQ(bench.board().capture.ipipe[24 / 4], 0x77);
}

TEST(IpipeRegUtil, device_missing_prints_and_goes_on) {
  Bench bench;
  bench.world("fault missing video0");
  ipipe_reg_util(1, 24, 0);
  EXPECT_EQ(bench.output(), "reg util for IPIPE \nCannot open video 0\n");
}

// ---- crop ---------------------------------------------------------------------------

TEST(SetCropImeg, bounds_become_the_crop) {
  Bench bench;
  EXPECT_EQ(SetCropImeg(), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 CROPCAP -> 1920x1080",
                                         "video0 S_CROP 0 0 1920 1080", "close /dev/video0"));
  EXPECT_EQ(bench.output(),
            "test ioctl:VIDIOC_CROPCAP\n"
            "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 0 1920 1080 \n"
            "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 100 1920 1080 \n"
            "set_data_format:setting data format\n");
  EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
}

TEST(SetCropImeg, requests_and_messages_in_one_order) {
  Bench bench;
  bench.follow();
  SetCropImeg();
  std::vector<std::string> seen = bench.stream();
  for (std::string& line : seen)
    if (line.starts_with("say Default crop")) line = "say Default crop ...";
  EXPECT_THAT(seen, ElementsAre("say test ioctl:VIDIOC_CROPCAP", "open /dev/video0",
                                testing::StartsWith("video0 CROPCAP"), "say Default crop ...",
                                testing::StartsWith("video0 S_CROP"), "say Default crop ...",
                                "say set_data_format:setting data format", "close /dev/video0"));
}

TEST(SetCropImeg, device_missing_goes_on_with_what_it_knew) {
  Bench bench;
  SetCropImeg();
  bench.output();
  bench.trace();
  bench.world("fault missing video0");
  EXPECT_EQ(SetCropImeg(), -1);
  EXPECT_EQ(bench.output(),
            "test ioctl:VIDIOC_CROPCAP\n"
            "Cannot open video 0\n"
            "InitDevice:ioctl:VIDIOC_CROPCAP\n"
            "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 100 1920 1080 \n"
            "InitDevice:ioctl:VIDIOC_CROPCAP\n"
            "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 100 1920 1080 \n"
            "set_data_format:setting data format\n");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0 = ENOENT"));
}

struct RefusedCrop {
  const char* name;
  unsigned long request;
  const char* output;
};

class CropRefused : public testing::TestWithParam<RefusedCrop> {};

TEST_P(CropRefused, prints_and_goes_on) {
  Bench bench;
  SetCropImeg();
  bench.output();
  seam::fail_call("ioctl", "/dev/video0 " + std::to_string(GetParam().request), 0, 1, EINVAL);
  EXPECT_EQ(SetCropImeg(), 0);
  EXPECT_EQ(bench.output(), GetParam().output);
}

INSTANTIATE_TEST_SUITE_P(
    SetCropImeg, CropRefused,
    testing::Values(
        RefusedCrop{"capability", VIDIOC_CROPCAP,
                    "test ioctl:VIDIOC_CROPCAP\n"
                    "InitDevice:ioctl:VIDIOC_CROPCAP\n"
                    "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 100 1920 1080 \n"
                    "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 100 1920 1080 \n"
                    "set_data_format:setting data format\n"},
        RefusedCrop{"crop", VIDIOC_S_CROP,
                    "test ioctl:VIDIOC_CROPCAP\n"
                    "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 0 1920 1080 \n"
                    "InitDevice:ioctl:VIDIOC_CROPCAP\n"
                    "Default crop capbility bounds - 0 0 1920 1080 ; default - 0 100 1920 1080 \n"
                    "set_data_format:setting data format\n"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SetCropImeg, device_is_closed_again) {
  Bench bench;
  EXPECT_EQ(SetCropImeg(), 0);
  EXPECT_EQ(seam::open_handles(), "");
}

// ---- expr_to_ipipe_float16 ------------------------------------------------------------------

TEST(ExprToIpipeFloat16, keeps_four_bits_of_the_integer_part) {
  const float cases[][2] = {
      {0.0f, 0},   {0.999f, 0},  // 255.7 -> 255 >> 8
      {1.0f, 1},   {1.5f, 1},   {15.99f, 15}, {16.0f, 0},
      {17.5f, 1},  {31.0f, 15}, {-0.001f, 0},  // -0.256 -> 0
      {-0.5f, 15},                             // -128 >> 8 = -1
      {-1.0f, 15}, {-2.0f, 14}, {-16.0f, 0},
  };
  for (const auto& [x, expected] : cases) EXPECT_EQ(expr_to_ipipe_float16(x), expected) << x;
}

TEST(ExprToIpipeFloat16, values_beyond_32_bits_stay_in_range) {
  for (const float x :
       {1e9f, -1e9f, 1e38f, -1e38f, std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
    const float result = expr_to_ipipe_float16(x);
    EXPECT_GE(result, 0.0f) << x;
    EXPECT_LE(result, 15.0f) << x;
  }
}

}  // namespace
