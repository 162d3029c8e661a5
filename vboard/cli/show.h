// Prints a board for a person.
#pragma once

#include "vboard/core/board.h"

namespace vboard {

// World, chips, encode and link in a few lines. Returns 0.
int show_board(const Board& board);

// Every FPGA register with its name and last value. Returns 0.
int show_registers(const Board& board);

}  // namespace vboard
