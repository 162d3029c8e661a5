// Replaying a record: its host and its world act on the board at their recorded
// times, in virtual time, alongside the program.
#pragma once

#include <string>
#include <vector>

#include "vboard/core/board.h"

namespace vboard {

// What host or world did.
struct Act {
  std::int64_t time_us = 0;
  std::uint64_t before = 0;  // device operations of the program that went first
  std::string who;
  std::string what;
};

// The acts of a record; false with a text in `problem`.
bool read_acts(const std::string& record_file, std::vector<Act>* acts, std::string* problem);

// Acts as a guest of the board. Ends with ProgramGone when the program does.
void run_replay(const std::vector<Act>& acts, Board& board);

}  // namespace vboard
