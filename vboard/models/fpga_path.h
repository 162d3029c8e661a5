// Meanings of FPGA registers that its needs and its stream share.
#pragma once

#include "vboard/core/board.h"

namespace vboard {

bool h264(const Board& board);  // else MPEG-2
bool usable_pid(unsigned pid);

}  // namespace vboard
