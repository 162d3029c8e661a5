// Rates and frame lengths of AC-3 (A/52 table 5.18, by its construction rule).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "vboard/core/board.h"

namespace vboard {

inline constexpr int kAc3BitRates[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                       192, 224, 256, 320, 384, 448, 512, 576, 640};  // kbit/s
inline constexpr int kAc3SampleRates[] = {48000, 44100, 32000};                       // by fscod
inline constexpr int kAc3SamplesPerFrame = 1536;

// Row of the rate in bit/s, or -1.
constexpr int ac3_rate_row(std::uint32_t bits_per_second) {
  for (std::size_t row = 0; row < std::size(kAc3BitRates); ++row)
    if (static_cast<std::uint32_t>(kAc3BitRates[row]) * 1000 == bits_per_second)
      return static_cast<int>(row);
  return -1;
}

constexpr int ac3_sample_rate(int fscod) {
  const auto index = static_cast<std::size_t>(fscod);
  return kAc3SampleRates[index < std::size(kAc3SampleRates) ? index : 0];
}

// Nominal rate of a frame-size code in kbit/s; that of the last row beyond them.
constexpr int ac3_bit_rate(int frmsizecod) {
  return kAc3BitRates[std::min<std::size_t>(static_cast<std::size_t>(frmsizecod) / 2,
                                            std::size(kAc3BitRates) - 1)];
}

// Words a frame. At 44.1 kHz frames alternate between two lengths; the odd code
// is the longer one. A code beyond the table has the length of the last row.
constexpr std::size_t ac3_frame_words(int fscod, int frmsizecod) {
  const int bits = ac3_bit_rate(frmsizecod) * 1000 * (kAc3SamplesPerFrame / 16);
  const int rate = ac3_sample_rate(fscod);
  const bool longer = bits % rate != 0 && frmsizecod % 2 != 0;
  return static_cast<std::size_t>(bits / rate) + (longer ? 1 : 0);
}

// The stream that comes from the DSP, and the one of whatever plays: without the
// fault that spoils captured headers.
Ac3Stream dsp_stream(const Board& board);     // ac3dsp.cpp
Ac3Stream source_stream(const Board& board);  // ac3_stream.cpp

}  // namespace vboard
