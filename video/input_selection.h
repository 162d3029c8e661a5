// Switching between the two video front ends.
#pragma once

#include <cstdint>

// Handler of the video input key: 1 component, 2 RGB/VGA (both TVP7002), 4
// composite (TVP5150). Takes the low byte of the value. Returns the print
// result.
int SetVideoInputSel(const std::int32_t* value, std::int32_t context);

inline constexpr int kDumpOnly = 99;  // register of prog7002 that writes nothing

// Bench: writes one TVP7002 register unless it is kDumpOnly, then dumps them
// all. Returns 0 done, 1 bus not opened.
int prog7002(int reg, int value);
