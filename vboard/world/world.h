// The world outside the board, in words: sources, standards, faults.
//
// One line of text is one operation, live from `vboard` or out of a script. The
// tables are the only list of them; help and completion come from here.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vboard/core/board.h"

namespace vboard {

using Words = std::vector<std::string_view>;

struct WorldCommand {
  const char* name;
  const char* usage;    // what follows the name
  const char* meaning;  // one line
  const char* example;
  bool (*run)(Board& board, const Words& arguments, std::string& error);
};

// A fault is put on with its arguments and taken off with `off` after them;
// without arguments `off` takes off every fault of that name.
struct WorldFault {
  const char* name;
  const char* usage;
  const char* meaning;
  bool (*set)(Board& board, const Words& arguments, std::string& error);
  bool (*clear)(Board& board, const Words& arguments, std::string& error);
  // The arguments with which it is on, once for each time; none while it is off.
  std::vector<std::string> (*tell)(const Board& board);
};

std::span<const WorldCommand> world_commands();
std::span<const WorldFault> world_faults();
std::span<const VideoStandard> world_standards();

// What is broken, as it would be said behind `fault`: "stall", "missing i2c".
std::vector<std::string> faults_on(const Board& board);

// Does the operation that `line` names. Returns false with a reason in `error`;
// nothing has changed then. The caller holds the board's lock.
bool world_command(Board& board, std::string_view line, std::string& error);

}  // namespace vboard
