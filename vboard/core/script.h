// Scripted host and world, for runs in virtual time.
//
// A script is lines of text, done one after the other by a thread of the
// board's world:
//   at 2s        wait until the board clock shows this time (or `after 500ms`)
//   melk status  a command of the host client
//   link 02 00   raw bytes clocked out by the host, each once the board took the last
//   collect 3    clock out this many poll bytes, showing what comes back
//   world source none   an operation on the world
//   print TEXT   a line into the host's log
//   end          the operator stops the program
// `at` and `after` may stand before another step on the same line. Everything
// from `#` on is a comment. A `melk` or `world` step that fails is told on standard
// error and counted in the board's failed_steps.
#pragma once

namespace vboard {

// Reads the script and starts its thread. What the host sees goes to log_file,
// or to standard output when that is null. `end` is called by an `end` step. A
// script with a fault in it ends the process with a message and status 125.
void start_script(const char* script_file, const char* log_file, void (*end)());

}  // namespace vboard
