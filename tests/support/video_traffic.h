// What the set-up of the two video front ends puts on the I2C bus.
#pragma once

#include <string>

#include "tests/support/i2c_lines.h"

namespace video_traffic {

using i2c_lines::add;
using i2c_lines::Lines;
using i2c_lines::rd;
using i2c_lines::wait;
using i2c_lines::wr;
using i2c_lines::writes;

inline constexpr int kTvp7002 = 0x5C;
inline constexpr int kTvp5150 = 0x5D;

// ---- TVP7002 --------------------------------------------------------------------

struct RgbStandard {
  int video_std;
  const char* message;  // "": none
  const char* writes;
};

inline constexpr RgbStandard kRgbStandards[] = {
    {7, "Set Video Input To 600-800 RGB\n",
     "01=42, 02=00, 03=58, 07=80, 0E=24, 2C=50, 40=E2, 41=00, 42=02, 43=04, 44=01, 45=01, 46=1C, "
     "47=1C"},
    {8, "Set Video Input To 720 RGB\n",
     "01=67, 02=20, 03=A0, 05=32, 06=20, 3F=01, 40=20, 41=01, 42=30, 43=06, 44=05, 45=05"},
    {9, "Set Video Input To 1024 RGB\n",
     "01=54, 02=00, 03=58, 05=06, 06=10, 3F=01, 40=06, 41=01, 42=06, 43=05, 44=05, 45=05"},
    {10, "Set Video Input To 1280 RGB\n",
     "01=69, 02=80, 03=A0, 05=06, 06=10, 3F=01, 40=06, 41=01, 42=0A, 43=06, 44=05, 45=05"},
    {25, "",
     "01=61, 02=80, 03=A0, 07=20, 0E=20, 2C=50, 40=7A, 41=00, 42=F2, 43=05, 44=03, 45=03, 46=1E, "
     "47=1E"},
    {30, "",
     "01=70, 02=00, 03=98, 07=8F, 0E=24, 2C=50, 40=6E, 41=01, 42=C4, 43=06, 44=03, 45=03, 46=1E, "
     "47=1E"},
    {35, "",
     "01=89, 02=80, 03=E0, 07=2C, 0E=24, 2C=80, 40=CA, 41=00, 42=4A, 43=08, 44=04, 45=04, 46=2D, "
     "47=2D"},
    {40, "",
     "01=32, 02=00, 03=20, 07=60, 0E=00, 2C=50, 40=92, 41=00, 42=12, 43=03, 44=12, 45=12, 46=2D, "
     "47=2D"},
};

inline constexpr char kRgbCommon[] =
    "04=80, 05=06, 06=10, 08=3C, 09=3C, 0A=3C, 0F=2E, 10=58, 11=40, 12=01, 13=00, 15=04, 17=00, "
    "18=01, 19=AA, 1A=6A, 21=0D, 22=00, 26=80, 28=53, 29=08, 2A=07, 2B=00, 31=18, 35=00, 36=00, "
    "3D=06";

// Component set-up; `sync` and `reg15` are what registers 0x14 and 0x15 hold.
inline Lines component_setup(int sync, int reg15) {
  return {i2c_lines::kOpen,         wr(kTvp7002, 0x19, 0x00), wait(100),
          rd(kTvp7002, 0x19, 0x00), wr(kTvp7002, 0x1A, 0x6F), wait(100),
          rd(kTvp7002, 0x1A, 0x6F), rd(kTvp7002, 0x14, sync), rd(kTvp7002, 0x15, reg15)};
}

// What an RGB set-up finds in the registers that it reads back before its
// common writes.
struct RgbReadback {
  int reg01, reg02, reg03, reg04, reg12, reg13;
};

inline Lines rgb_setup(const char* standard_writes, const RgbReadback& found) {
  Lines lines = {i2c_lines::kOpen};
  add(lines, writes(kTvp7002, standard_writes));
  add(lines,
      {wr(kTvp7002, 0x34, 0x13), rd(kTvp7002, 0x01, found.reg01), rd(kTvp7002, 0x02, found.reg02),
       rd(kTvp7002, 0x03, found.reg03), rd(kTvp7002, 0x04, found.reg04),
       rd(kTvp7002, 0x12, found.reg12), rd(kTvp7002, 0x13, found.reg13), rd(kTvp7002, 0x34, 0x13)});
  add(lines, {wr(kTvp7002, 0x19, 0xAA), wait(100), rd(kTvp7002, 0x19, 0xAA),
              wr(kTvp7002, 0x1A, 0x6A), wait(100), rd(kTvp7002, 0x1A, 0x6A)});
  add(lines, writes(kTvp7002, kRgbCommon));
  return lines;
}

// ---- TVP5150 --------------------------------------------------------------------

inline constexpr char kTvp5150Defaults[] =
    "00=00, 01=15, 02=00, 03=6F, 04=1C, 06=10, 07=60, 08=00, 09=80, 0A=80, 0B=00, 0C=80, "
    "0D=47, 0E=00, 0F=48, 11=00, 12=00, 13=00, 14=00, 15=00, 16=80, 18=00, 19=00, 1A=0C, "
    "1B=14, 28=00, 2E=0F, 2F=01, 30=00, B1=00, B2=00, B3=00, B4=00, B5=00, B6=00, B7=00, "
    "B8=00, B9=00, BA=00, BB=00, C8=80, CA=00, CB=4E, CC=00, CD=01, CE=06, D0=00, D1=FF, "
    "D2=FF, D3=FF, D4=FF, D5=FF, D6=FF, D7=FF, D8=FF, D9=FF, DA=FF, DB=FF, DC=FF, DD=FF, "
    "DE=FF, DF=FF, E0=FF, E1=FF, E2=FF, E3=FF, E4=FF, E5=FF, E6=FF, E7=FF, E8=FF, E9=FF, "
    "EA=FF, EB=FF, EC=FF, ED=FF, EE=FF, EF=FF, F0=FF, F1=FF, F2=FF, F3=FF, F4=FF, F5=FF, "
    "F6=FF, F7=FF, F8=FF, F9=FF, FA=FF, FB=FF, 00=00, 00=00";

inline constexpr int kWssLine[16] = {0xAA, 0x2A, 0xFF, 0x3F, 0x04, 0x51, 0x6E, 0x02,
                                     0x63, 0x8C, 0x09, 0x00, 0x00, 0x00, 0x27, 0x00};

inline Lines tvp5150_reset_lines() {
  return {wr(kTvp5150, 0x05, 0x01), wait(500), wr(kTvp5150, 0x05, 0x00), wait(500),
          wr(kTvp5150, 0x1C, 0xFF)};
}

inline Lines tvp5150_default_lines() { return writes(kTvp5150, kTvp5150Defaults); }

inline Lines tvp5150_clear_lines() {
  Lines lines = {wr(kTvp5150, 0xCF, 0x00)};
  for (int reg = 0xD0; reg <= 0xFB; ++reg) lines.push_back(wr(kTvp5150, reg, 0xFF));
  return lines;
}

inline Lines tvp5150_ram_lines() {
  Lines lines;
  for (const int page : {0xE0, 0xF0}) {
    add(lines, {wr(kTvp5150, 0xC4, page), wr(kTvp5150, 0xC5, 0x00)});
    for (const int byte : kWssLine) lines.push_back(wr(kTvp5150, 0xC3, byte));
  }
  return lines;
}

// Reset to line data, which the full and the stand-alone set-up share.
inline Lines tvp5150_common_lines() {
  Lines lines = tvp5150_reset_lines();
  add(lines, tvp5150_default_lines());
  add(lines, tvp5150_clear_lines());
  add(lines, tvp5150_ram_lines());
  return lines;
}

// The full set-up. The byte of register 0x28 is not fixed.
inline Lines tvp5150_setup() {
  Lines lines = {i2c_lines::kOpen};
  add(lines, tvp5150_common_lines());
  add(lines, writes(kTvp5150, "CE=06, EE=07, EF=07, CD=01, CB=4E, CC=00, 03=0F, 0D=47"));
  add(lines, {"i2c 5d wr 28 ??", i2c_lines::kClose});
  return lines;
}

}  // namespace video_traffic
