// Board time and who may run.
//
// Real and scaled time follow the machine's clock. Virtual time is
// discrete-event: one thread runs at a time, and when all wait the earliest
// deadline moves the clock, so waits cost nothing and every run interleaves
// the same way.
#pragma once

#include <cstdint>

#include "vboard/core/board.h"

namespace vboard {

// What a wait may end on before its deadline.
enum class WaitFor {
  kNothing,    // only the deadline
  kHostBytes,  // the board has bytes from the host to read
  kBoardTook,  // the board has read every byte that the host sent, and gone on
  kAnswer,     // the host has a byte from the board to collect
};

inline constexpr std::int64_t kForever = -1;

// Makes `board` the board of this process. The calling thread becomes the
// running one in virtual time.
void clock_attach(Board* board);
Board& board_of_process();

std::int64_t board_now_us();

// Waits in board time. Returns true when the condition came true, false at the
// deadline. timeout_us may be kForever.
bool board_wait(WaitFor what, std::int64_t timeout_us);

// The calling thread only watches the board: its waits bring about nothing, and a
// virtual run is over when nobody else waits for a time.
void become_watcher();
void watcher_wait(std::int64_t microseconds);

// What a device call costs in virtual time, so that polling loops end.
void board_cost(std::int64_t microseconds);

// Wakes whoever waits for the link; called with every change of its FIFOs.
void link_changed(Board& board);

// Called when a virtual run reaches its limit, or when every thread waits for
// ever. Must not return.
using EndOfRun = void (*)();
void set_end_of_run(EndOfRun end);

// Called after every wait and before every device call, with the board's lock
// not held: lets what lives beside the product act (encode in virtual time).
using Heartbeat = void (*)(Board& board, std::int64_t now_us);
void set_heartbeat(Heartbeat beat);
void heartbeat();

// Threads under virtual time. The creator announces the child before it exists,
// so that the order is fixed; the child enters, and leaves when it ends.
int announce_thread(const char* name);
void enter_thread(int id);
void leave_thread();
const char* thread_name();

}  // namespace vboard
