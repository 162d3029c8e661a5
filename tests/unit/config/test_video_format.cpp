// Resolution, frame rate, captions and codec.
#include "config/video_format.h"

#include <gmock/gmock.h>

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
using testing::Not;
using vboard::Bench;

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
  }
};

// ---- resolution ----------------------------------------------------------------------

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

// As a fresh process has it: taken before any test runs.
const std::int32_t period_at_start = fps_parameter;

TEST(FpgaSetVidRes, period_starts_at_0) { EXPECT_EQ(period_at_start, 0); }

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

// ---- codec -------------------------------------------------------------------------------

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

TEST(FpgaSetVidCodec, frame_period_is_cut_to_sixteen_bits) {
  Configured on;
  fps_parameter = 0x12345;
  call(fpgaSetVidCodec, 1);
  EXPECT_EQ(on.bench.fpga(0x210), 0x2345);
}

// ---- messages, stores and traffic in one order ---------------------------------------

// 0x0050 = 1, 0x004c = 2: 1 << (2 + 8) = 1024, 1440000 / 1024 = 1406.25.
TEST(FpgaSetVidRes, measures_stores_and_tells_in_one_order) {
  Configured on;
  on.bench.board().fpga.held = true;
  on.bench.set_fpga(0x50, 1);
  on.bench.set_fpga(0x4C, 2);
  fpgaregs.VidRes = 5;
  on.bench.follow();
  on.bench.watch("VidRes", fpgaregs.VidRes);
  on.bench.watch("period", fps_parameter);
  on.bench.watch("code", on.block.frame_rate_code);
  call(fpgaSetVidRes, 9);
  EXPECT_THAT(
      on.bench.stream(),
      ElementsAre("VidRes = 9", "say fpgaSetVidRes 9 pram 9", "fpga rd 0x0050 -> 0x0001",
                  "fpga rd 0x004c -> 0x0002", "fpga rd 0x0050 -> 0x0001",
                  "fpga rd 0x004c -> 0x0002", "say msb 1 lsb 2 ans 1024.000000 ans2 1406.250000  ",
                  "period = 12012", "code = 9", "say fps pram =9", "say fps_parameter = 12012"));
}

TEST(FpgaSetVidCodec, mpeg2_with_captions_in_one_order) {
  Configured on;
  fps_parameter = 12000;
  fpgaregs.VidCodec = 5;
  on.block.closed_caption = 1;
  on.block.videoStd = 258;
  on.bench.set_fpga(0x204, 0x4000);
  on.bench.follow();
  on.bench.watch("VidCodec", fpgaregs.VidCodec);
  on.bench.watch("block codec", on.block.VidCodec);
  call(fpgaSetVidCodec, 1);
  EXPECT_THAT(on.bench.stream(),
              ElementsAre("say fpgaSetVidCodec", "VidCodec = 1",
                          "say MPEG2 (1) or H264 (0): fpgaregs.VidCodec = 1", "block codec = 1",
                          "say set MPEG2", "fpga rd 0x0204 -> 0x4000", "fpga wr 0x0204 <- 0x6000",
                          "fpga wr 0x120c <- 0xa120",  // 41248
                          "fpga wr 0x0210 <- 0x2ee0", "fpga wr 0x1200 <- 0x1a80",
                          "fpga wr 0x1204 <- 0x0006", "fpga wr 0x1208 <- 0x88b8"));
}

// ---- captions ----------------------------------------------------------------------------

TEST(CCEnable, five_raises_the_flag_and_sets_the_decoder_up_each_time) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  EXPECT_EQ(call(CC_enable, 5), 0);
  EXPECT_EQ(block.closed_caption, 1);
  const std::vector<std::string> first = bench.trace({"i2c 5d wr"});
  EXPECT_THAT(first, Not(IsEmpty()));
  EXPECT_EQ(call(CC_enable, 5), 0);
  EXPECT_EQ(bench.trace({"i2c 5d wr"}), first);
}

class OtherVbiMode : public testing::TestWithParam<std::int32_t> {};

TEST_P(OtherVbiMode, clears_the_flag_and_leaves_the_decoder) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.closed_caption = 1;
  EXPECT_EQ(call(CC_enable, GetParam()), 0);
  EXPECT_EQ(block.closed_caption, 0);
  EXPECT_THAT(bench.trace(), IsEmpty());
  EXPECT_EQ(bench.output(), "");
}

INSTANTIATE_TEST_SUITE_P(CCEnable, OtherVbiMode, testing::Values(0, 1, 4, 6, -5, 261, 65541),
                         [](const auto& test) {
                           return test.param < 0 ? "minus_" + std::to_string(-test.param)
                                                 : std::to_string(test.param);
                         });

}  // namespace
