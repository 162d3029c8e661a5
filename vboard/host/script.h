// Scripted host and world, for runs in virtual time.
//
// A script is lines of text, executed in order alongside the program:
//   at 2s        wait until the board clock shows this time (or `after 500ms`)
//   melk status  a command of the host client
//   link 02 00   raw bytes clocked out by the host, each once the board took the last
//   collect 3    clock out this many poll bytes, showing what comes back
//   world source none   an operation on the world
//   print TEXT   a line into the host's log
//   end          the operator stops the program
// `at` and `after` may precede another step on the same line. Everything from
// `#` on is a comment. A `melk` or `world` step that fails is reported on standard
// error.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "vboard/host/board_transport.h"

namespace vboard {

struct Step {
  int line = 0;
  bool relative = false;
  std::int64_t time_us = -1;  // -1: at once
  std::string what;
  std::vector<std::string> words;
};

struct Script {
  std::string file;
  std::vector<Step> steps;
};

// Reads a script; false with a text in `problem` when there is a fault in it.
bool read_script(const std::string& file, Script* script, std::string* problem);

// What came of a script.
struct Outcome {
  unsigned failed_steps = 0;
  int log_errno = 0;  // why something was lost that the host saw; 0: nothing was
};

// Where a file lies that the program would find by this name.
using PlaceOf = std::function<std::string(const std::string& name)>;

// Does the steps in the board's time, as the transport keeps it. What the host sees goes
// to `log`; place_of may be empty. Ends with ProgramGone when the transport does.
void run_script(const Script& script, BoardTransport& transport, FILE* log, const PlaceOf& place_of,
                Outcome* outcome);

}  // namespace vboard
