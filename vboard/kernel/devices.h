// The board's devices as a real kernel shows them: character devices in user space
// (CUSE) and the chips of an I2C bus, with the models behind them.
#pragma once

#include <string>

#include "vboard/core/board.h"

namespace vboard::kernel {

// Makes the device files and serves each from a thread of its own. False with a
// reason in `problem` when one cannot be made.
bool serve_devices(Board& board, std::string* problem);

// Serves the chips behind bus 1, whose module is loaded.
bool serve_bus(Board& board, std::string* problem);

// Who last took bytes of the host, and has done nothing else since: the board reads
// the link in gulps of which it keeps the first byte, so the host must not send on
// before. A thread's number, as the kernel counts them; 0 for nobody.
void settle_link(Board& board, unsigned thread);

}  // namespace vboard::kernel
