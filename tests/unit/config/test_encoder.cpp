// What `encode` finds in the shared block, and its launch.
#include "config/encoder.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "config/video_format.h"
#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
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
  }
};

// ---- picture ---------------------------------------------------------------------------

TEST(EncSetVidRes, whole_value_goes_to_the_block) {
  Configured on;
  EXPECT_EQ(call(encSetVidRes, 65543), 0);
  EXPECT_EQ(on.block.videoStd, 65543);
  EXPECT_EQ(on.bench.output(), "encSetVidRes\nshared_memory->videoStd = 65543\n");
  EXPECT_THAT(on.bench.trace(), IsEmpty());
}

class Brightness : public testing::Test {
 protected:
  Bench bench;
  SharedBlock& block = bench.attach_block();
};

TEST_F(Brightness, every_byte_by_the_formula) {
  for (std::int32_t b = 0; b < 256; ++b) {
    // Whole multiples of 117 in what b*255 has above 35190, nothing below 139.
    int expected = 0;
    if (b >= 139)
      for (int left = b * 255 - 35190; left >= 117; left -= 117) ++expected;
    block.brightness = -1;
    ASSERT_EQ(SetBrightness(&b, 0), 0);
    ASSERT_EQ(block.brightness, expected) << b;
    ASSERT_EQ(bench.output(), "SetBrightness " + std::to_string(expected) + "\n");
  }
  EXPECT_THAT(bench.trace(), IsEmpty());
}

TEST_F(Brightness, named_edges) {
  // 139*255 - 35190 = 255, /117 = 2; 140: 510/117 = 4; 255: 29835/117 = 255.
  const std::int32_t edges[][2] = {{0, 0}, {138, 0}, {139, 2}, {140, 4}, {255, 255}};
  for (const auto& [value, stored] : edges) {
    SetBrightness(&value, 0);
    EXPECT_EQ(block.brightness, stored) << value;
  }
}

TEST_F(Brightness, takes_the_low_byte_of_the_value) {
  const std::int32_t values[][2] = {{0x100 + 139, 2}, {-1, 255}, {0x7F00, 0}};
  for (const auto& [value, stored] : values) {
    SetBrightness(&value, 0);
    EXPECT_EQ(block.brightness, stored) << value;
  }
}

TEST_F(Brightness, without_the_shared_block_still_prints) {
  shared_memory = nullptr;
  const std::int32_t value = 255;
  EXPECT_EQ(SetBrightness(&value, 0), 0);
  EXPECT_EQ(bench.output(), "SetBrightness 255\n");
}

using Contrast = Brightness;

TEST_F(Contrast, every_byte_by_the_formula) {
  for (std::int32_t c = 0; c < 256; ++c) {
    int expected = 0;
    if (c <= 63) {
      for (int left = c * 16; left >= 63; left -= 63) ++expected;
    } else {
      expected = 16;
      for (int left = c * 231 - 14553; left >= 192; left -= 192) ++expected;
    }
    block.contrast = -1;
    const std::string text = "SetContrast " + std::to_string(expected) + "\n";
    ASSERT_EQ(SetContrast(&c, 0), static_cast<int>(text.size()));  // the print result
    ASSERT_EQ(block.contrast, expected) << c;
    ASSERT_EQ(bench.output(), text);
  }
  EXPECT_THAT(bench.trace(), IsEmpty());
}

TEST_F(Contrast, named_edges) {
  // 4*16 = 64, /63 = 1; (64*231 - 14553) = 231, /192 + 16 = 17; 44352/192 + 16 = 247.
  const std::int32_t edges[][2] = {{0, 0}, {3, 0}, {4, 1}, {63, 16}, {64, 17}, {255, 247}};
  for (const auto& [value, stored] : edges) {
    SetContrast(&value, 0);
    EXPECT_EQ(block.contrast, stored) << value;
  }
}

TEST_F(Contrast, takes_the_low_byte_of_the_value) {
  const std::int32_t values[][2] = {{0x4C0 + 0x3F, 247}, {-1, 247}, {0x100, 0}, {0x13F, 16}};
  for (const auto& [value, stored] : values) {
    SetContrast(&value, 0);
    EXPECT_EQ(block.contrast, stored) << value;
  }
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

// ---- rate and codec --------------------------------------------------------------------

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

TEST(SetVidRate, stores_before_it_tells) {
  Configured on;
  on.bench.follow();
  on.bench.watch("rate", on.block.video_bitrate);
  call(SetVidRate, 8000);
  EXPECT_THAT(on.bench.stream(), ElementsAre("rate = 8000000", "say end SetVidRate"));
}

TEST(SetVBR, tells_before_it_stores) {
  Configured on;
  on.bench.follow();
  on.bench.watch("vbr", on.block.vbr);
  call(SetVBR, 2);
  EXPECT_THAT(on.bench.stream(), ElementsAre("say SetVBR", "vbr = 2"));
}

TEST(SetVidRate, product_wraps_at_32_bits) {
  Configured on;
  EXPECT_EQ(call(SetVidRate, 3000000), 0);
  EXPECT_EQ(on.block.video_bitrate, -1294967296);  // 3000000000 - 2^32
  EXPECT_EQ(call(SetVidRate, INT_MIN), 0);
  EXPECT_EQ(on.block.video_bitrate, 0);
}

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

TEST(FpgaSetVidCodec, codec_zero_leaves_the_encoders_suffix) {
  Configured on;
  call(encSetVidCodec, 1);
  call(encSetVidCodec, 0);
  call(fpgaSetVidCodec, 0);
  EXPECT_EQ(suffix(on.block).substr(0, 7), std::string(".mpeg2\0", 7));
  EXPECT_EQ(on.bench.fpga(0x120C), 44640);
}

// ---- launch ----------------------------------------------------------------------------

constexpr std::int32_t kOne = 1;

TEST(StartHd, launches_in_the_background_and_waits_a_millisecond) {
  Bench bench;
  bench.attach_block();
  dbg_encode = 0;
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_EQ(bench.output(), "start_hd - with system command\n");
  EXPECT_THAT(bench.trace(), ElementsAre("shell ./encode&", "wait 1000"));
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

TEST(StartHd, debug_word_launches_with_debug) {
  Bench bench;
  bench.attach_block();
  dbg_encode = 1;
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("shell DMAI_DEBUG=2 ./encode&", "wait 1000"));
  dbg_encode = 0;
}

TEST(StartHd, block_is_handed_over) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.do_fpga_restart = 1;
  block.encoder_running = -1;
  block.launch_zero = -1;
  block.audio_enable = 0xEE;
  block.VidCodec = 0x11223344;
  block.encode_alive = 1;
  fpgaregs.inAudioEnable = 2;
  enable_audio = 0;

  start_hd(&kOne, 0);

  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(block.encoder_running, 0);
  EXPECT_EQ(block.launch_zero, 0);
  EXPECT_EQ(block.audio_enable, 2);
  EXPECT_EQ(enable_audio, 2);
  EXPECT_EQ(block.VidCodec, 0x11223344);  // the neighbours of what is cleared
  EXPECT_EQ(block.encode_alive, 1);
}

TEST(StartHd, value_is_not_looked_at) {
  Bench bench;
  bench.attach_block();
  const std::int32_t zero = 0;
  EXPECT_EQ(start_hd(&zero, 5), 0);
  EXPECT_EQ(start_hd(nullptr, 0), 0);
  EXPECT_EQ(bench.board().encoder.launches, 2u);
}

TEST(StartHd, shell_that_fails_is_not_noticed) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.do_fpga_restart = 1;
  seam::fail_call("system", "encode", 0, 1, ENOMEM);
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(bench.output(), "start_hd - with system command\n");
}

TEST(StartHd, block_not_attached_launches_all_the_same) {
  Bench bench;
  shared_memory = nullptr;
  fpgaregs.inAudioEnable = 1;
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_EQ(enable_audio, 1);
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

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

}  // namespace
