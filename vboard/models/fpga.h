// What other models and the world need of the FPGA model.
#pragma once

#include <cstdint>

#include "vboard/core/board.h"

namespace vboard {

// Integrates the live counters and buffer levels up to now_us.
void fpga_advance(Board& board, std::int64_t now_us);

// True when an audio source delivers sound on its path.
bool audio_playing(const Board& board);

}  // namespace vboard
