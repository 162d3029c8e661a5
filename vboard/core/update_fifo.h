// The host's side of the FPGA's update FIFO.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vboard/core/board.h"

namespace vboard {

// A board polls bits 0 to 7 of the FIFO's level alone: at any multiple of 256 it sees
// an empty FIFO. A host that waits for room below this level never gets there.
inline constexpr std::uint32_t kUpdatePace = 0xFE;

// Puts what finds room below the pace into the FIFO; returns how much.
inline std::size_t feed_update(FpgaState& fpga, const std::uint8_t* data, std::size_t size) {
  std::size_t fed = 0;
  for (; fed < size && fpga.update_head - fpga.update_tail < kUpdatePace; ++fed)
    fpga.update_fifo[fpga.update_head++ % sizeof fpga.update_fifo] = data[fed];
  return fed;
}

}  // namespace vboard
