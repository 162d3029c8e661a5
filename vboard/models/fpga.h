// What other models and the world need of the FPGA model.
#pragma once

#include <cstdint>

#include "vboard/core/board.h"

namespace vboard {

// Integrates the live counters and buffer levels up to now_us.
void fpga_advance(Board& board, std::int64_t now_us);

// What a read of the register at a byte address would give, without its effect:
// words of a FIFO stay there.
std::uint16_t fpga_peek(Board& board, std::int64_t now_us, int address);

// True when an audio source delivers sound on its path.
bool audio_playing(const Board& board);

// Board time that a request takes: a block pays for its bytes besides.
std::int64_t fpga_request_cost(unsigned long request, const void* argument);

}  // namespace vboard
