// Resolution, frame rate, codec and output rate, and the two probes.
#include "config/video_format.h"

#include <gmock/gmock.h>

#include <linux/videodev2.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vboard::Bench;
namespace seam = vboard::seam;

using Handler = int (*)(const std::int32_t*, std::int32_t);
int call(Handler handler, std::int32_t value) { return handler(&value, 0); }

// A configured board: block and register device open, nothing traced yet.
struct Configured {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  Configured() {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.trace();
    fps_parameter = 0;
    output_bitrate = 0;
    extra_output_rate_pct = 5;
  }
};

// ---- resolution ----------------------------------------------------------------------

TEST(EncSetVidRes, whole_value_goes_to_the_block) {
  Configured on;
  EXPECT_EQ(call(encSetVidRes, 65543), 0);
  EXPECT_EQ(on.block.videoStd, 65543);
  EXPECT_EQ(on.bench.output(), "encSetVidRes\nshared_memory->videoStd = 65543\n");
  EXPECT_THAT(on.bench.trace(), IsEmpty());
}

constexpr int kKept = -1;

struct VidRes {
  int code;
  int period;  // kKept: unchanged
  int rate;
};

// Every code of the table, and the edges of the gaps between them.
constexpr VidRes kVidRes[] = {
    {0, 15000, 2},       {1, 14400, 3},         {2, kKept, 5},       {3, kKept, 3},
    {4, kKept, 5},       {5, kKept, kKept},     {6, kKept, kKept},   {7, 12000, 7},
    {8, 12012, 8},       {9, 12012, 9},         {10, 12012, 10},     {11, kKept, kKept},
    {12, kKept, kKept},  {25, kKept, kKept},    {255, kKept, kKept}, {256, kKept, kKept},
    {257, kKept, 3},     {258, kKept, 5},       {259, kKept, kKept}, {479, kKept, kKept},
    {480, kKept, 4},     {481, kKept, kKept},   {575, kKept, kKept}, {576, kKept, 3},
    {577, kKept, kKept}, {65535, kKept, kKept},
};

class VidResCode : public testing::TestWithParam<VidRes> {};

TEST_P(VidResCode, sets_period_and_rate) {
  const VidRes& one = GetParam();
  Configured on;
  fps_parameter = 777;
  on.block.frame_rate_code = 99;
  const int period = one.period == kKept ? 777 : one.period;
  const int rate = one.rate == kKept ? 99 : one.rate;

  EXPECT_EQ(call(fpgaSetVidRes, one.code), 0);

  EXPECT_EQ(fps_parameter, period);
  EXPECT_EQ(on.block.frame_rate_code, rate);
  EXPECT_EQ(fpgaregs.VidRes, one.code);
  const std::string code = std::to_string(one.code);
  EXPECT_EQ(on.bench.output(),
            "fpgaSetVidRes " + code + " pram " + code +
                "\nmsb 0 lsb 0 ans 0.000000 ans2 inf  \nfps pram =" + std::to_string(rate) +
                "\nfps_parameter = " + std::to_string(period) + "\n");
}

INSTANTIATE_TEST_SUITE_P(FpgaSetVidRes, VidResCode, testing::ValuesIn(kVidRes),
                         [](const auto& test) {
                           return "code_" + std::to_string(test.param.code);
                         });

TEST(FpgaSetVidRes, only_sixteen_bits_of_the_value_count) {
  Configured on;
  EXPECT_EQ(call(fpgaSetVidRes, 65536 + 7), 0);
  EXPECT_EQ(fpgaregs.VidRes, 7);
  EXPECT_EQ(fps_parameter, 12000);
  EXPECT_EQ(on.block.frame_rate_code, 7);
  EXPECT_THAT(on.bench.output(), HasSubstr("fpgaSetVidRes 7 pram 7\n"));
}

TEST(FpgaSetVidRes, period_is_inherited_from_an_earlier_code) {
  Configured on;
  call(fpgaSetVidRes, 7);
  call(fpgaSetVidRes, 480);
  EXPECT_EQ(fps_parameter, 12000);
  EXPECT_EQ(on.block.frame_rate_code, 4);
}

TEST(FpgaSetVidRes, start_value_of_the_period_is_zero) {
  Configured on;
  call(fpgaSetVidRes, 576);
  EXPECT_EQ(fps_parameter, 0);
}

TEST(FpgaSetVidRes, measured_rate_is_read_twice_high_register_first) {
  Configured on;
  on.bench.set_fpga(0x050, 3);
  on.bench.set_fpga(0x04C, 2);
  call(fpgaSetVidRes, 5);
  EXPECT_THAT(on.bench.trace(),
              ElementsAre("fpga rd 0x0050 -> 0x0003", "fpga rd 0x004c -> 0x0002",
                          "fpga rd 0x0050 -> 0x0003", "fpga rd 0x004c -> 0x0002"));
  // 3 << (2 + 8) = 3072; 1440000 / 3072 = 468.75
  EXPECT_THAT(on.bench.output(), HasSubstr("msb 3 lsb 2 ans 3072.000000 ans2 468.750000  \n"));
}

struct Measured {
  const char* name;
  int msb;
  int lsb;
  const char* printed;
};

class MeasuredRate : public testing::TestWithParam<Measured> {};

TEST_P(MeasuredRate, is_printed) {
  Configured on;
  on.bench.set_fpga(0x050, GetParam().msb);
  on.bench.set_fpga(0x04C, GetParam().lsb);
  call(fpgaSetVidRes, 5);
  EXPECT_THAT(on.bench.output(), HasSubstr(GetParam().printed));
}

INSTANTIATE_TEST_SUITE_P(
    FpgaSetVidRes, MeasuredRate,
    testing::Values(
        // 1 << 8
        Measured{"least_shift", 1, 0, "msb 1 lsb 0 ans 256.000000 ans2 5625.000000  \n"},
        // 3 << 31 keeps bit 31 of 32: 2147483648; 1440000 / 2^31 = 0.00067055
        Measured{"shift_of_31_keeps_one_bit", 3, 23,
                 "msb 3 lsb 17 ans 2147483648.000000 ans2 0.000671  \n"},
        Measured{"shift_of_32_gives_nothing", 3, 24, "msb 3 lsb 18 ans 0.000000 ans2 inf  \n"},
        Measured{"longest_shift_gives_nothing", 0xFFFF, 0xFFFF,
                 "msb ffff lsb ffff ans 0.000000 ans2 inf  \n"},
        // 0xFFFF << 16 = 4294901760, 16 one bits: exact; 1440000 / 4294901760 = 0.00033528
        Measured{"unsigned_of_32_bits", 0xFFFF, 8,
                 "msb ffff lsb 8 ans 4294901760.000000 ans2 0.000335  \n"}),
    [](const auto& test) { return std::string(test.param.name); });

// ---- bit rate --------------------------------------------------------------------------

TEST(SetVBR, whole_value_goes_to_the_block) {
  Configured on;
  EXPECT_EQ(call(SetVBR, -2), 0);
  EXPECT_EQ(on.block.vbr, -2);
  EXPECT_EQ(on.bench.output(), "SetVBR\n");
}

TEST(SetVidRate, block_holds_bits_a_second) {
  Configured on;
  EXPECT_EQ(call(SetVidRate, 8000), 0);
  EXPECT_EQ(on.block.video_bitrate, 8000000);
  EXPECT_EQ(on.bench.output(), "end SetVidRate\n");
}

TEST(SetVidRate, product_wraps_at_32_bits) {
  Configured on;
  EXPECT_EQ(call(SetVidRate, 3000000), 0);
  EXPECT_EQ(on.block.video_bitrate, -1294967296);  // 3000000000 - 2^32
  EXPECT_EQ(call(SetVidRate, INT_MIN), 0);
  EXPECT_EQ(on.block.video_bitrate, 0);
}

struct Rate {
  const char* name;
  std::int32_t kbps;  // "mpgVidRate"
  std::int32_t eb_mode;
  std::int32_t percent;
  std::int32_t manual;
  std::int32_t video_bitrate;  // bit/s
  const char* rate;            // R in Mbit/s as printed
  std::int32_t interval;       // btr
  int written;                 // its low 16 bits
};

constexpr Rate kRates[] = {
    {"eb_mode_1_and_5_percent", 8000, 1, 5, 0, 8000000, "8.925000", 13651, 13651},
    {"eb_mode_0", 8000, 0, 5, 0, 8000000, "14.400000", 8461, 8461},
    {"eb_mode_1_and_0_percent", 8000, 1, 0, 0, 8000000, "8.500000", 14334, 14334},
    {"eb_mode_1_and_100_percent", 19000, 1, 100, 0, 19000000, "39.000000", 3124, 3124},
    {"eb_mode_0_ignores_the_percentage", 8000, 0, 100, 0, 8000000, "14.400000", 8461, 8461},
    {"eb_mode_other_than_1_is_the_wide_margin", 8000, 2, 5, 0, 8000000, "14.400000", 8461, 8461},
    {"manual_rate_in_eb_mode_0", 8000, 0, 5, 10000000, 8000000, "10.000000", 12184, 12184},
    {"manual_rate_in_eb_mode_1", 8000, 1, 5, 10000000, 8000000, "10.000000", 12184, 12184},
    // 121844 / 35 = 3481.26; 121844 / 1 = 121844 = 0x1DBF4
    {"highest_manual_rate", 1, 1, 5, 35000000, 1000, "35.000000", 3481, 3481},
    {"lowest_manual_rate", 1, 1, 5, 1000000, 1000, "1.000000", 121844, 0xDBF4},
    {"no_video_rate_in_eb_mode_0", 0, 0, 5, 0, 0, "4.800000", 25384, 25384},
    // 232083 = 0x38A93
    {"no_video_rate_in_eb_mode_1", 0, 1, 5, 0, 0, "0.525000", 232083, 0x8A93},
    // (3000000 * 1000 - 2^32 + 4000000) * 1.2 = -1549.16 Mbit/s; 121844 / -1549.16 = -78.65
    {"wrapped_video_rate", 3000000, 0, 5, 0, -1294967296, "-1549.160767", -78, 0xFFB2},
    // -500000 + 500000 = 0, a division by zero: the largest interval
    {"sum_of_zero_in_eb_mode_1", -500, 1, 5, 0, -500000, "0.000000", INT_MAX, 0xFFFF},
    {"sum_of_zero_in_eb_mode_0", -4000, 0, 5, 0, -4000000, "0.000000", INT_MAX, 0xFFFF},
    // 420906295 * 1000 is -500008 in 32 bits; 121844 / -0.000008 is below -2^31
    {"interval_below_32_bits", 420906295, 1, 0, 0, -500008, "-0.000008", INT_MIN, 0},
    // 121844 / 0.000001 is above 2^31
    {"interval_above_32_bits", 8000, 1, 5, 1, 8000000, "0.000001", INT_MAX, 0xFFFF},
    // (-501000 + 500000) / 10^6; 121844 / -0.001 in single precision: -121843992 = 0xF8BCCEE8
    {"negative_rate", -501, 1, 0, 0, -501000, "-0.001000", -121843992, 0xCEE8},
};

class OutputRate : public testing::TestWithParam<Rate> {};

TEST_P(OutputRate, interval_is_written_with_its_constants) {
  const Rate& one = GetParam();
  Configured on;
  on.block.eb_mode = one.eb_mode;
  output_bitrate = one.manual;
  extra_output_rate_pct = one.percent;

  EXPECT_EQ(call(Setoutput_bitrate, one.kbps), 0);

  EXPECT_EQ(fpgaregs.VideoBitrate, one.video_bitrate);
  const std::string rate = one.rate;
  const std::string video = std::to_string(one.video_bitrate);
  EXPECT_EQ(on.bench.output(), "Setoutput_bitrate\nSet output bitrate to " + rate + " (UI " +
                                   video + ", manual set " + std::to_string(one.manual) +
                                   ", extra " + std::to_string(one.percent) + " pct)\ntmp1 " +
                                   rate + " btr " + std::to_string(one.interval) +
                                   " output_bitrate " + video + "\n");
  char interval[40];
  snprintf(interval, sizeof interval, "fpga wr 0x1300 <- 0x%04x",
           static_cast<unsigned>(one.written));
  EXPECT_THAT(on.bench.trace(),
              ElementsAre(interval, "fpga wr 0x1304 <- 0x0035", "fpga wr 0x1308 <- 0x0035",
                          "fpga wr 0x130c <- 0x0002"));
}

INSTANTIATE_TEST_SUITE_P(SetoutputBitrate, OutputRate, testing::ValuesIn(kRates),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(SetoutputBitrate, result_is_that_of_the_last_write) {
  Configured on;
  seam::fail_call("ioctl", "/dev/fpga 15", 3, 1, EIO);
  EXPECT_EQ(call(Setoutput_bitrate, 8000), -1);
  seam::fail_call("ioctl", "/dev/fpga 15", 0, 3, EIO);
  EXPECT_EQ(call(Setoutput_bitrate, 8000), 0);
}

// ---- codec -------------------------------------------------------------------------------

std::string suffix(const SharedBlock& block) {
  std::string text;
  for (int i = 0; i < 8; ++i) text += static_cast<char>(block.file_suffix[i].load());
  return text;
}

struct Codec {
  std::int32_t value;
  const char* suffix;  // 8 bytes
};

class EncVidCodec : public testing::TestWithParam<Codec> {};

TEST_P(EncVidCodec, copies_its_suffix_with_the_zero_byte_and_no_more) {
  Configured on;
  for (int i = 0; i < 8; ++i) on.block.file_suffix[i] = 'x';
  EXPECT_EQ(call(encSetVidCodec, GetParam().value), 0);
  EXPECT_EQ(suffix(on.block), std::string(GetParam().suffix, 8));
  EXPECT_EQ(on.bench.output(), "encSetVidCode\n");
  EXPECT_THAT(on.bench.trace(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EncSetVidCodec, EncVidCodec,
                         testing::Values(Codec{1, ".mpeg2\0x"}, Codec{2, ".264\0xxx"},
                                         Codec{0, "xxxxxxxx"}, Codec{3, "xxxxxxxx"},
                                         Codec{257, "xxxxxxxx"}, Codec{258, "xxxxxxxx"}),
                         [](const auto& test) {
                           return "value_" + std::to_string(test.param.value);
                         });

// What every codec ends with, the frame period being 12000.
const std::vector<std::string> kCodecTail = {"fpga wr 0x0210 <- 0x2ee0", "fpga wr 0x1200 <- 0x1a80",
                                             "fpga wr 0x1204 <- 0x0006",
                                             "fpga wr 0x1208 <- 0x88b8"};

struct FpgaCodec {
  const char* name;
  std::int32_t value;
  std::uint8_t captions;
  std::int32_t video_std;
  int control;  // 0x204 before
  std::uint8_t kept;
  const char* message;
  std::vector<std::string> traffic;  // up to the tail
};

class FpgaVidCodec : public testing::TestWithParam<FpgaCodec> {};

TEST_P(FpgaVidCodec, programs_its_registers_in_order) {
  const FpgaCodec& one = GetParam();
  Configured on;
  fps_parameter = 12000;
  on.block.closed_caption = one.captions;
  on.block.videoStd = one.video_std;
  on.bench.set_fpga(0x204, one.control);

  EXPECT_EQ(call(fpgaSetVidCodec, one.value), 0);

  std::vector<std::string> expected = one.traffic;
  expected.insert(expected.end(), kCodecTail.begin(), kCodecTail.end());
  EXPECT_EQ(on.bench.trace(), expected);
  EXPECT_EQ(fpgaregs.VidCodec, one.kept);
  EXPECT_EQ(on.block.VidCodec, one.kept);
  EXPECT_EQ(on.bench.output(), "fpgaSetVidCodec\nMPEG2 (1) or H264 (0): fpgaregs.VidCodec = " +
                                   std::to_string(one.kept) + "\n" + one.message + "\n");
}

// 48032 = 0xBBA0, 41248 = 0xA120, 44640 = 0xAE60
INSTANTIATE_TEST_SUITE_P(
    FpgaSetVidCodec, FpgaVidCodec,
    testing::Values(
        FpgaCodec{"mpeg2", 1, 0, 1, 0, 1, "set MPEG2", {"fpga wr 0x120c <- 0xbba0"}},
        FpgaCodec{
            "mpeg2_of_standard_258", 1, 0, 258, 0, 1, "set MPEG2", {"fpga wr 0x120c <- 0xa120"}},
        FpgaCodec{
            "mpeg2_with_captions",
            1,
            1,
            1,
            0x4000,
            1,
            "set MPEG2",
            {"fpga rd 0x0204 -> 0x4000", "fpga wr 0x0204 <- 0x6000", "fpga wr 0x120c <- 0xbba0"}},
        FpgaCodec{"mpeg2_with_another_caption_value",
                  1,
                  2,
                  1,
                  0,
                  1,
                  "set MPEG2",
                  {"fpga wr 0x120c <- 0xbba0"}},
        FpgaCodec{
            "mpeg2_keeps_the_h264_bit",
            1,
            1,
            258,
            0x0100,
            1,
            "set MPEG2",
            {"fpga rd 0x0204 -> 0x0100", "fpga wr 0x0204 <- 0x2100", "fpga wr 0x120c <- 0xa120"}},
        FpgaCodec{
            "h264",
            2,
            0,
            1,
            0,
            2,
            "set H264",
            {"fpga rd 0x0204 -> 0x0000", "fpga wr 0x0204 <- 0x0100", "fpga wr 0x120c <- 0xae60"}},
        FpgaCodec{
            "h264_keeps_the_captions_bit",
            2,
            1,
            258,
            0x6000,
            2,
            "set H264",
            {"fpga rd 0x0204 -> 0x6000", "fpga wr 0x0204 <- 0x6100", "fpga wr 0x120c <- 0xae60"}},
        FpgaCodec{
            "zero_is_h264",
            0,
            0,
            258,
            0,
            0,
            "set H264",
            {"fpga rd 0x0204 -> 0x0000", "fpga wr 0x0204 <- 0x0100", "fpga wr 0x120c <- 0xae60"}},
        FpgaCodec{
            "low_byte_1_is_mpeg2", 257, 0, 258, 0, 1, "set MPEG2", {"fpga wr 0x120c <- 0xa120"}},
        FpgaCodec{
            "low_byte_0_is_h264",
            256,
            0,
            1,
            0,
            0,
            "set H264",
            {"fpga rd 0x0204 -> 0x0000", "fpga wr 0x0204 <- 0x0100", "fpga wr 0x120c <- 0xae60"}},
        FpgaCodec{
            "minus_one_is_h264",
            -1,
            0,
            1,
            0,
            255,
            "set H264",
            {"fpga rd 0x0204 -> 0x0000", "fpga wr 0x0204 <- 0x0100", "fpga wr 0x120c <- 0xae60"}}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(FpgaSetVidCodec, codec_zero_leaves_the_encoders_suffix) {
  Configured on;
  call(encSetVidCodec, 1);
  call(encSetVidCodec, 0);
  call(fpgaSetVidCodec, 0);
  EXPECT_EQ(suffix(on.block).substr(0, 7), std::string(".mpeg2\0", 7));
  EXPECT_EQ(on.bench.fpga(0x120C), 44640);
}

TEST(FpgaSetVidCodec, frame_period_is_cut_to_sixteen_bits) {
  Configured on;
  fps_parameter = 0x12345;
  call(fpgaSetVidCodec, 1);
  EXPECT_EQ(on.bench.fpga(0x210), 0x2345);
}

// ---- probes --------------------------------------------------------------------------------

TEST(DevinciMonitor, running_flag_of_exactly_one_is_up) {
  Configured on;
  EXPECT_EQ(devinci_monitor(), 1);
  on.block.encoder_running = 1;
  EXPECT_EQ(devinci_monitor(), 0);
  on.block.encoder_running = 2;
  EXPECT_EQ(devinci_monitor(), 1);
  shared_memory = nullptr;
  EXPECT_EQ(devinci_monitor(), 1);
}

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

}  // namespace
