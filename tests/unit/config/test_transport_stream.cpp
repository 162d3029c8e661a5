// PIDs, A/V sync, output rate, captions, offsets and the rate-control words.
#include "config/transport_stream.h"

#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "config/video_format.h"
#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using vboard::Bench;

using Handler = int (*)(const std::int32_t*, std::int32_t);
int call(Handler handler, std::int32_t value) { return handler(&value, 0); }

// ---- ranged settings -------------------------------------------------------------------

struct Ranged {
  const char* name;
  Handler handler;
  std::int32_t low;
  std::int32_t high;
  std::int32_t fallback;
  int offset;           // of the word in the shared block; -1: a global
  const char* message;  // before the stored value; null: none
};

class RangedSetting : public testing::TestWithParam<Ranged> {
 protected:
  Bench bench;
  SharedBlock& block = bench.attach_block();

  std::int32_t stored() const {
    if (GetParam().handler == SetOutputBitrate) return output_bitrate;
    if (GetParam().handler == SetExtraOutputRate) return extra_output_rate_pct;
    std::int32_t value = 0;
    memcpy(&value, reinterpret_cast<const char*>(&block) + GetParam().offset, sizeof value);
    return value;
  }
  void expect(std::int32_t given, std::int32_t kept) {
    EXPECT_EQ(call(GetParam().handler, given), 0);
    EXPECT_EQ(stored(), kept) << "given " << given;
    const std::string tail = GetParam().handler == SetOutputBitrate ? "\n" : " \n";
    EXPECT_EQ(bench.output(), GetParam().message == nullptr
                                  ? ""
                                  : GetParam().message + std::to_string(kept) + tail);
    EXPECT_THAT(bench.trace(), IsEmpty());
  }
};

TEST_P(RangedSetting, both_ends_are_kept) {
  expect(GetParam().low, GetParam().low);
  expect(GetParam().high, GetParam().high);
  expect(GetParam().low + (GetParam().high - GetParam().low) / 2,
         GetParam().low + (GetParam().high - GetParam().low) / 2);
}

TEST_P(RangedSetting, value_outside_becomes_the_default) {
  for (const std::int32_t outside :
       {GetParam().low - 1, GetParam().high + 1, INT_MIN, INT_MAX, -1, GetParam().high + 65536})
    expect(outside, GetParam().fallback);
}

INSTANTIATE_TEST_SUITE_P(
    TransportStream, RangedSetting,
    testing::Values(Ranged{"SetEbMode", SetEbMode, 0, 1, 1, 268, "set EB Mode ="},
                    Ranged{"SetExtraOutputRate", SetExtraOutputRate, 0, 100, 5, -1, nullptr},
                    Ranged{"SetOutputBitrate", SetOutputBitrate, 1000000, 35000000, 0, -1,
                           "SetOutputBitrate "},
                    Ranged{"SetFrameDiv", SetFrameDiv, 1, 100, 1, 260, "set frame div ="},
                    Ranged{"SetFrameMult", SetFrameMult, 1, 100, 1, 264, "set frame mult ="},
                    Ranged{"SetEbDelay", SetEbDelay, 0, 10000, 700, 272, "set EB Delay ="},
                    Ranged{"SetGopSize", SetGopSize, 0, 10000, 30, 292, "set Gop Size ="},
                    Ranged{"SetIdr", SetIdr, 0, 10000, 0, 296, "set IDR frame interval ="},
                    Ranged{"SetNullStuffing", SetNullStuffing, 0, 1, 0, 288, nullptr},
                    Ranged{"SetBufferConst", SetBufferConst, 1, 1000, 60, 300, "set frame const ="},
                    Ranged{"SetInterlace", SetInterlace, 0, 1, 1, 304, "set interlace_flag ="}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(SetFrameDiv, zero_is_out_of_range) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  call(SetFrameDiv, 0);
  EXPECT_EQ(block.frame_div, 1);
}

TEST(RateControl, block_not_attached_stores_nothing) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  shared_memory = nullptr;
  EXPECT_EQ(call(SetGopSize, 12), 0);
  EXPECT_EQ(block.gop_size, 0);
  EXPECT_EQ(bench.output(), "set Gop Size =0 \n");
}

// ---- A/V sync ---------------------------------------------------------------------------

struct Sync {
  const char* name;
  std::uint8_t path;
  std::int32_t milliseconds;
  std::int32_t kept;
};

class AvSync : public testing::TestWithParam<Sync> {};

TEST_P(AvSync, is_kept_in_ticks_of_the_path) {
  Bench bench;
  fpgaregs.AudioInput = GetParam().path;
  EXPECT_EQ(call(SetAVSync, GetParam().milliseconds), 0);
  EXPECT_EQ(fpgaregs.AVSync, GetParam().kept);
  EXPECT_EQ(bench.output(), "SetAVSync " + std::to_string(GetParam().kept) + "\n");
  EXPECT_THAT(bench.trace(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(SetAVSync, AvSync,
                         testing::Values(Sync{"digital_10", 1, 10, 15900},  // 90 * 10 + 15000
                                         Sync{"digital_0", 1, 0, 15000},
                                         Sync{"digital_minus_200", 1, -200, -3000},
                                         Sync{"dsp_10", 2, 10, -6600},  // 90 * 10 - 7500
                                         Sync{"dsp_0", 2, 0, -7500}, Sync{"no_path_10", 0, 10, 10},
                                         Sync{"other_path_minus_3", 3, -3, -3},
                                         // 90 * (2^31 - 1) is -90 in 32 bits.
                                         Sync{"digital_largest_wraps", 1, INT_MAX, 14910},
                                         // 90 * -2^31 is 0 in 32 bits.
                                         Sync{"dsp_smallest_wraps", 2, INT_MIN, -7500}),
                         [](const auto& test) { return std::string(test.param.name); });

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

// ---- PIDs ---------------------------------------------------------------------------------

// The register device open, with nothing traced yet.
struct OpenDevice {
  Bench bench;
  OpenDevice() {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.trace();
  }
};

TEST(SetpidVideo, low_sixteen_bits_go_out_low_byte_first) {
  OpenDevice on;
  EXPECT_EQ(call(SetpidVideo, 69632), 0);  // 0x11000
  EXPECT_EQ(fpgaregs.pidVideo, 0x1000);
  EXPECT_EQ(on.bench.output(), "SetpidVideo\n");
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wrblk 0x1000 n=2 <- 00 10"));
}

TEST(SetpidAudio, low_sixteen_bits_go_out_low_byte_first) {
  OpenDevice on;
  EXPECT_EQ(call(SetpidAudio, 0x51234), 0);
  EXPECT_EQ(fpgaregs.pidAudio, 0x1234);
  EXPECT_EQ(on.bench.output(), "SetpidAudio\n");
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wrblk 0x1004 n=2 <- 34 12"));
}

TEST(SetpidPCR, low_sixteen_bits_go_out_low_byte_first) {
  OpenDevice on;
  EXPECT_EQ(call(SetpidPCR, -1), 0);
  EXPECT_EQ(fpgaregs.pidPCR, 0xFFFF);
  EXPECT_EQ(on.bench.output(), "SetpidPCR\nfpgaregs.pidPCR = 65535\n");
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wrblk 0x1320 n=2 <- ff ff"));
}

TEST(Pids, refused_write_is_the_result_and_the_pid_is_kept) {
  OpenDevice on;
  on.bench.world("fault fpga-fail 17");
  EXPECT_EQ(call(SetpidVideo, 33), -1);
  EXPECT_EQ(call(SetpidAudio, 34), -1);
  EXPECT_EQ(call(SetpidPCR, 35), -1);
  EXPECT_EQ(fpgaregs.pidVideo, 33);
  EXPECT_EQ(fpgaregs.pidAudio, 34);
  EXPECT_EQ(fpgaregs.pidPCR, 35);
}

// ---- offsets --------------------------------------------------------------------------------

TEST(Offsets, first_pair_only_prints) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  EXPECT_EQ(call(SetOffsetx, 5), 0);
  EXPECT_EQ(call(SetOffsety, -6), 0);
  EXPECT_EQ(bench.output(), "SetOffsetx\noffsetx = 5\nSetOffsety\noffsety = -6\n");
  EXPECT_EQ(block.offset_x, 0);
  EXPECT_EQ(block.offset_y, 0);
}

TEST(Offsets, second_pair_only_stores) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  EXPECT_EQ(call(SetOffsetX, 5), 0);
  EXPECT_EQ(call(SetOffsetY, INT_MIN), 0);
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(block.offset_x, 5);
  EXPECT_EQ(block.offset_y, INT_MIN);
}

}  // namespace
