// What a record says about the board itself: sources, encoder, buffer levels.
#pragma once

#include <cstdint>

#include "hw/shared_memory_davinci.h"
#include "vboard/core/board.h"

namespace vboard {

// Adds what has changed on the board since the last call, at its time now_us. Board
// and block, which may be null, are left as they are.
void record_board(Board& board, const SharedBlock* block, std::int64_t now_us);

}  // namespace vboard
