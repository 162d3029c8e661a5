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

inline constexpr std::int32_t Table_5_18[kFrameSizeCodes][kTable518Columns] = {
    {0, 32, 96, 69, 64},         {1, 32, 96, 70, 64},         {2, 40, 120, 87, 80},
    {3, 40, 120, 88, 80},        {4, 48, 144, 104, 96},       {5, 48, 144, 105, 96},
    {6, 56, 168, 121, 112},      {7, 56, 168, 122, 112},      {8, 64, 192, 139, 128},
    {9, 64, 192, 140, 128},      {10, 80, 240, 174, 160},     {11, 80, 240, 175, 160},
    {12, 96, 288, 208, 192},     {13, 96, 288, 209, 192},     {14, 112, 336, 243, 224},
    {15, 112, 336, 244, 224},    {16, 128, 384, 278, 256},    {17, 128, 384, 279, 256},
    {18, 160, 480, 348, 320},    {19, 160, 480, 349, 320},    {20, 192, 576, 417, 384},
    {21, 192, 576, 418, 384},    {22, 224, 672, 487, 448},    {23, 224, 672, 488, 448},
    {24, 256, 768, 557, 512},    {25, 256, 768, 558, 512},    {26, 320, 960, 696, 640},
    {27, 320, 960, 697, 640},    {28, 384, 1152, 835, 768},   {29, 384, 1152, 836, 768},
    {30, 448, 1344, 975, 896},   {31, 448, 1344, 976, 896},   {32, 512, 1536, 1114, 1024},
    {33, 512, 1536, 1115, 1024}, {33, 576, 1728, 1253, 1152}, {33, 576, 1728, 1254, 1152},
    {33, 640, 1920, 1393, 1280}, {33, 640, 1920, 1394, 1280},
};
