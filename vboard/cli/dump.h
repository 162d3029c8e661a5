// Dumps of the FPGA's registers: of a real board, for the virtual one to take on.
#pragma once

#include <string>

#include "vboard/core/board.h"

namespace vboard {

// Writes every register that the map names or that is not 0, a line each:
// "0xADDRESS 0xVALUE NAME", by byte address, with the value that a read would
// give. False with a text in `problem`.
bool save_registers(Board& board, const std::string& file, std::string* problem);

// Sets registers from such lines; the name may be missing. Lines that -rdreg
// prints ("addr 0x82: 0x5", a word address) do as well, so that a real board can
// be read with it; empty lines and those that begin with '#' are passed over.
// With `hold`, reads give the registers as they then stand, also those that the
// FPGA fills itself; without it the FPGA goes on filling them. On a faulty line,
// or when there is none, nothing is changed: false with a text in `problem`.
bool load_registers(Board& board, const std::string& file, bool hold, std::string* problem);

}  // namespace vboard
