// A guest: a process beside the program that takes part in the board's virtual time.
//
// Virtual time knows the threads of the program's process only. One of them, the
// host thread, stands for the guest: it waits in board time when the guest asks it
// to, and nothing else on the board runs from its answer to the next question. What
// the guest does in between, to the board's state, so happens in no time and in the
// same order in every run.
#pragma once

#include "vboard/core/board.h"
#include "vboard/core/clock.h"

namespace vboard {

// ---- the program's side ------------------------------------------------------------

// Answers the guest until it leaves, in the thread that stands for it. before_answer
// is called each time, end when the guest stops the program.
void serve_guest(Board& board, void (*before_answer)(), void (*end)());

// ---- the guest's side ----------------------------------------------------------------

// The board no longer answers. Thrown by the functions below.
struct ProgramGone {};

// Waits until it is the guest's turn for the first time.
void guest_enter(Board& board);
// As board_wait().
bool guest_wait(Board& board, WaitFor what, std::int64_t timeout_us);
// Lets what lives beside the program act.
void guest_heartbeat(Board& board);
// The operator stops the program; ends with ProgramGone.
void guest_stops_program(Board& board);
// The program goes on alone.
void guest_leave(Board& board);

// Tells the guest that no program will answer; for another thread of its process.
void dismiss_guest(Board& board);

}  // namespace vboard
