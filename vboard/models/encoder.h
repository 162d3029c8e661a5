// What `encode` does to the board, as one function of board time.
//
// Under real and scaled time the encode process itself runs it; under virtual
// time the product's process does, so that no two processes have to agree on a
// clock.
#pragma once

#include <cstdint>

#include "hw/shared_memory_davinci.h"
#include "vboard/core/board.h"

namespace vboard {

inline constexpr std::int32_t kEncodeVersion = 0x42;

// Brings the shared block and the FPGA's streaming state to now_us. `block` may
// be null when nobody attached it yet.
void encoder_step(Board& board, SharedBlock* block, std::int64_t now_us);

// A process reports for duty, or is gone.
void encoder_started(Board& board, std::int32_t pid, std::int64_t now_us);
void encoder_gone(Board& board);

}  // namespace vboard
