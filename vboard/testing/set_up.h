// A board set up by hand: its registers, lines and chips as after a good
// configuration for what is plugged in, without a program that did it.
#pragma once

#include "vboard/core/board.h"

namespace vboard {

void set_up_by_hand(Board& board);

}  // namespace vboard
