// What a request does to its device: for the sweep of calls that claim success.
#pragma once

#include <string>

#include "vboard/core/board.h"

namespace vboard {

enum class Effect : unsigned char {
  kNone,   // neither, or both
  kWrite,  // tells the device something
  kRead,   // brings a value back
};
Effect effect_of(Device device, unsigned long request, const void* argument);

// A write or read in words: "fpga 1300 = 3553", "i2c 5c 19 = aa", "video0 input 1".
std::string words_of(Device device, unsigned long request, const void* argument);

// Gives a value that was read another one: every bit of it is turned over.
void falsify(Device device, unsigned long request, void* argument);

// What the request returns when it has gone well.
int success_of(Device device, unsigned long request, const void* argument);

}  // namespace vboard
