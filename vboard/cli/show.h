// Prints a board for a person.
#pragma once

#include <string>

#include "vboard/core/board.h"

namespace vboard {

// World, chips, encode and link in a few lines, or as JSON. Returns 0.
int show_board(const Board& board, bool as_json);

// The stream that leaves the board as an analyser describes it, and what is lacking
// in it; or as JSON. Returns 0.
int show_stream(const Board& board, bool as_json);

// Every FPGA register with its name and the value that a read would give. Returns 0.
int show_registers(Board& board, bool as_json);

// The register map as a Markdown table: address, name, access, meaning. Needs no
// board. Returns 0.
int print_register_map();

// What the world can do: commands, faults and video standards, as a table for a
// terminal, in Markdown or as JSON. Needs no board. Returns 0.
int print_operations(bool markdown, bool as_json);

// A trace file's clean lines. Returns 0.
int show_clean_trace(const std::string& file);

}  // namespace vboard
