// The AC-3 stream behind the capture FIFO: whole frames that a decoder would take.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include <unistd.h>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "vboard/testing/bench.h"

namespace {

using vboard::Bench;

struct Stream {
  const char* name;
  const char* audio;  // the operation
  int words;          // a frame
  unsigned code;      // fscod and frmsizecod
};
void PrintTo(const Stream& one, std::ostream* out) { *out << one.audio; }

// Words as the stream has them: the FPGA holds their bytes swapped.
std::vector<unsigned> captured(int count) {
  std::vector<unsigned> words;
  for (int i = 0; i < count; ++i) {
    const unsigned held = GetValue(kRegCaptureData);
    words.push_back((held << 8 | held >> 8) & 0xFFFF);
  }
  return words;
}

// Remainder of words [from, to) by x^16 + x^15 + x^2 + 1, bit by bit.
unsigned remainder_of(const std::vector<unsigned>& words, int from, int to) {
  unsigned rest = 0;
  for (int i = from; i < to; ++i)
    for (int bit = 15; bit >= 0; --bit) {
      const unsigned out = rest >> 15 ^ (words[static_cast<std::size_t>(i)] >> bit & 1);
      rest = (rest << 1 & 0xFFFF) ^ (out != 0 ? 0x8005u : 0u);
    }
  return rest;
}

class CapturedFrames : public testing::TestWithParam<Stream> {};

TEST_P(CapturedFrames, follow_each_other_with_good_checks) {
  Bench bench;
  bench.world(GetParam().audio);
  fpga_file = open_fpga_stream(kFpgaNotOpened);
  SetValue(kRegCaptureLoop, 4);
  usleep(100'000);  // a frame is 32 ms at 48 kHz, 48 ms at 32 kHz
  const int size = GetParam().words;
  ASSERT_GE(GetValue(kRegCaptureStatus), 2u * static_cast<unsigned>(size));
  for (int frame = 0; frame < 2; ++frame) {
    const std::vector<unsigned> words = captured(size);
    EXPECT_EQ(words[0], 0x0B77u);
    EXPECT_EQ(words[2] >> 8, GetParam().code);
    // The first check makes five eighths come out at 0, the second the whole.
    EXPECT_EQ(remainder_of(words, 1, size / 2 + size / 8), 0u);
    EXPECT_EQ(remainder_of(words, 1, size), 0u);
  }
}

// bit rate x 1536 samples / sample rate / 16: 384000 x 1536 / 48000 / 16 = 768,
// 192000 x 1536 / 48000 / 16 = 384, 384000 x 1536 / 32000 / 16 = 1152. Rows 10
// and 14 of the bit rates: frame-size codes 20 and 28.
INSTANTIATE_TEST_SUITE_P(streams, CapturedFrames,
                         testing::Values(Stream{"384_at_48", "audio digital", 768, 28},
                                         Stream{"192_at_48", "audio digital bitrate=192", 384, 20},
                                         Stream{"384_at_32", "audio digital rate=32", 1152,
                                                2 << 6 | 28}),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
