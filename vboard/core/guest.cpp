// Questions and answers of a guest, through the board's state.
#include "vboard/core/guest.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

namespace vboard {

namespace {

// No number of a question.
constexpr std::uint32_t kDismissed = UINT32_MAX;

std::uint32_t value_of(const std::uint32_t& word) {
  return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

void set(std::uint32_t& word, std::uint32_t value) {
  __atomic_store_n(&word, value, __ATOMIC_RELEASE);
  syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Waits for `value`, and returns what came instead: that, or kDismissed.
std::uint32_t await(const std::uint32_t& word, std::uint32_t value) {
  for (;;) {
    const std::uint32_t seen = value_of(word);
    if (seen == value || seen == kDismissed) return seen;
    syscall(SYS_futex, &word, FUTEX_WAIT, seen, nullptr, nullptr, 0);
  }
}

void ask(Board& board, GuestAsks what) {
  GuestState& guest = board.guest;
  guest.what = what;
  const std::uint32_t number = guest.asked + 1;
  set(guest.asked, number);
  if (await(guest.answered, number) == kDismissed) throw ProgramGone();
}

}  // namespace

void serve_guest(Board& board, void (*before_answer)(), void (*end)()) {
  GuestState& guest = board.guest;
  for (bool there = true; there;) {
    const std::uint32_t number = guest.answered + 1;
    await(guest.asked, number);
    switch (guest.what) {
      case GuestAsks::kTurn:
        break;
      case GuestAsks::kWait:
        guest.came_true = board_wait(static_cast<WaitFor>(guest.wait_for), guest.timeout_us);
        break;
      case GuestAsks::kHeartbeat:
        heartbeat();
        break;
      case GuestAsks::kEnd:
        end();
        break;
      case GuestAsks::kLeave:
        there = false;
        break;
    }
    before_answer();
    set(guest.answered, number);
  }
}

void guest_enter(Board& board) { ask(board, GuestAsks::kTurn); }

bool guest_wait(Board& board, WaitFor what, std::int64_t timeout_us) {
  board.guest.wait_for = static_cast<std::uint32_t>(what);
  board.guest.timeout_us = timeout_us;
  ask(board, GuestAsks::kWait);
  return board.guest.came_true;
}

void guest_heartbeat(Board& board) { ask(board, GuestAsks::kHeartbeat); }
void guest_stops_program(Board& board) { ask(board, GuestAsks::kEnd); }
void guest_leave(Board& board) { ask(board, GuestAsks::kLeave); }

void dismiss_guest(Board& board) { set(board.guest.answered, kDismissed); }

}  // namespace vboard
