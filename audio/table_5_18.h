// AC-3 frame-size codes: Table 5.18 of the public ATSC A/52 standard, "Frame
// Size Code Table".
//
// Words per sync frame follow from the rate: at 48 kHz 2 per kbit/s, at 32 kHz
// 3, at 44.1 kHz rate * 1000 * 1536 / 44100 / 16 rounded down for the even code
// of a rate and one more for the odd code.
#pragma once

#include <cstdint>

inline constexpr int kFrameSizeCodes = 38;

// Columns of a row.
enum Table518Column : int {
  kColumnCode,      // 0 to 33, then 33 in the last four rows; nothing reads those
  kColumnRate,      // nominal bit rate, kbit/s
  kColumnWords32,   // 16-bit words per sync frame at 32 kHz
  kColumnWords441,  // at 44.1 kHz
  kColumnWords48,   // at 48 kHz
  kTable518Columns
};

extern const std::int32_t Table_5_18[kFrameSizeCodes][kTable518Columns];
