// Switching between the two video front ends.
#pragma once

#include <cstdint>

// Handler of the video input key: 1 component, 2 RGB/VGA (both TVP7002), 4
// composite (TVP5150). Takes the low byte of the value. Returns the print
// result.
int SetVideoInputSel(const std::int32_t* value, std::int32_t context);
