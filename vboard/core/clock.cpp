// The three clocks and the virtual-time scheduler.
#include "vboard/core/clock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>

#include "vboard/core/real.h"

namespace vboard {

namespace {

constexpr std::int64_t kNever = INT64_MAX;

Board* board_ = nullptr;
void no_end_of_run() {
  fputs("vboard: every thread of the board waits for ever\n", stderr);
  abort();
}
EndOfRun end_of_run = no_end_of_run;
Heartbeat heartbeat_ = nullptr;
std::mutex baton;

// One thread of the product (or the scripted host) under virtual time.
struct Participant {
  char name[16] = {};
  bool waiting = false;
  bool chosen = false;
  bool watcher = false;
  std::int64_t deadline = 0;
  WaitFor what = WaitFor::kNothing;
  std::uint64_t ticket = 0;  // order of going to wait; equal deadlines go by it
  std::condition_variable wake;
};
// Grows only, so references stay valid; never destroyed, for threads outlive main.
// Constant at load time: a preloaded board attaches before initialisers run.
std::deque<Participant>* participants_ = nullptr;
std::deque<Participant>& participants() { return *participants_; }
std::uint64_t next_ticket = 0;
bool stopping = false;  // the run is over; only main goes on, to say so
thread_local int self = 0;

bool virtual_time() { return board_->clock.mode == TimeMode::kVirtual; }

bool came_true(WaitFor what) {
  const LinkState& link = board_->link;
  switch (what) {
    case WaitFor::kNothing:
      return false;
    case WaitFor::kHostBytes:
      return link.to_board.head != link.to_board.tail;
    case WaitFor::kBoardTook:
      return link.to_board.head == link.to_board.tail && link.settled;
    case WaitFor::kAnswer:
      return link.to_host.head != link.to_host.tail;
  }
  return false;
}

std::int64_t wake_time(const Participant& one) {
  return came_true(one.what) ? board_->clock.now_us : one.deadline;
}

// The waiter that is due first, or null when all wait for ever.
Participant* earliest() {
  Participant* best = nullptr;
  for (Participant& one : participants()) {
    if (!one.waiting) continue;
    const std::int64_t at = wake_time(one);
    if (at == kNever) continue;
    if (best == nullptr || at < wake_time(*best) ||
        (at == wake_time(*best) && one.ticket < best->ticket))
      best = &one;
  }
  return best;
}

// A watcher that is due keeps no run going.
bool all_but_watchers_wait_for_ever() {
  for (const Participant& one : participants())
    if (one.waiting && !one.watcher && wake_time(one) != kNever) return false;
  return true;
}

// Hands the baton to the waiter that is due first, and moves the clock to it. At
// the end of a run it goes to the main thread, which ends it.
void hand_on() {
  Participant* next = earliest();
  if (next != nullptr && next->watcher && all_but_watchers_wait_for_ever()) next = nullptr;
  ClockState& clock = board_->clock;
  const bool beyond = next == nullptr || (clock.limit_us >= 0 && wake_time(*next) > clock.limit_us);
  if (beyond) {
    if (clock.limit_us >= 0) clock.now_us = clock.limit_us;
    stopping = true;
    next = &participants().front();
    next->deadline = clock.now_us;
    next->what = WaitFor::kNothing;
  }
  if (wake_time(*next) > clock.now_us) clock.now_us = wake_time(*next);
  next->waiting = false;
  next->chosen = true;
  next->wake.notify_one();
}

void wait_for_baton(std::unique_lock<std::mutex>& held, Participant& me) {
  while (!me.chosen) me.wake.wait(held);
  me.chosen = false;
  if (!stopping) return;
  stopping = false;
  held.unlock();
  end_of_run();
}

bool virtual_wait(WaitFor what, std::int64_t timeout_us) {
  std::unique_lock<std::mutex> held(baton);
  Participant& me = participants()[static_cast<std::size_t>(self)];
  me.what = what;
  me.deadline = timeout_us == kForever ? kNever : board_->clock.now_us + timeout_us;
  me.ticket = next_ticket++;
  me.waiting = true;
  hand_on();
  wait_for_baton(held, me);
  return came_true(what);
}

std::int64_t machine_ns(std::int64_t board_us) {
  return static_cast<std::int64_t>(static_cast<double>(board_us) * 1000.0 / board_->clock.speed);
}

bool machine_wait(WaitFor what, std::int64_t timeout_us) {
  if (what == WaitFor::kNothing) {
    real::sleep_ns(machine_ns(timeout_us));
    return false;
  }
  const std::int64_t start = real::monotonic_ns();
  const std::int64_t limit = timeout_us == kForever ? kNever : start + machine_ns(timeout_us);
  for (;;) {
    std::uint32_t seen = 0;
    {
      Locked hold(*board_);
      seen = board_->link.event;
      if (came_true(what)) return true;
    }
    const std::int64_t left = limit == kNever ? 1000000000 : limit - real::monotonic_ns();
    if (left <= 0) return false;
    timespec pause = {static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
    syscall(SYS_futex, &board_->link.event, FUTEX_WAIT, seen, &pause, nullptr, 0);
  }
}

}  // namespace

void clock_attach(Board* board) {
  board_ = board;
  // Threads of an earlier board, if any, wait for ever on the list left behind;
  // the lists are kept where a leak check sees them.
  static auto* lists = new std::deque<std::deque<Participant>>;
  participants_ = &lists->emplace_back();
  snprintf(participants().emplace_back().name, sizeof Participant::name, "main");
  stopping = false;
  self = 0;
}

Board& board_of_process() { return *board_; }

std::int64_t board_now_us() {
  const ClockState& clock = board_->clock;
  if (virtual_time() || clock.running == 0) return clock.now_us;
  const double passed_us =
      static_cast<double>(real::monotonic_ns() - clock.epoch_mono_ns) / 1000.0 * clock.speed;
  return clock.epoch_board_us + static_cast<std::int64_t>(passed_us);
}

bool board_wait(WaitFor what, std::int64_t timeout_us) {
  const bool result =
      virtual_time() ? virtual_wait(what, timeout_us) : machine_wait(what, timeout_us);
  heartbeat();
  return result;
}

void become_watcher() {
  std::unique_lock<std::mutex> held(baton);
  participants()[static_cast<std::size_t>(self)].watcher = true;
}

void watcher_wait(std::int64_t microseconds) {
  if (virtual_time())
    virtual_wait(WaitFor::kNothing, microseconds);
  else
    machine_wait(WaitFor::kNothing, microseconds);
}

void board_cost(std::int64_t microseconds) {
  if (!virtual_time()) return;
  {
    // Alone until then: no need to hand the baton round.
    std::unique_lock<std::mutex> held(baton);
    const std::int64_t until = board_->clock.now_us + microseconds;
    const Participant* next = earliest();
    const bool limited = board_->clock.limit_us >= 0 && until > board_->clock.limit_us;
    if (!limited && (next == nullptr || wake_time(*next) > until)) {
      board_->clock.now_us = until;
      return;
    }
  }
  virtual_wait(WaitFor::kNothing, microseconds);
}

void link_changed(Board& board) {
  __atomic_add_fetch(&board.link.event, 1, __ATOMIC_RELEASE);
  if (board.clock.mode != TimeMode::kVirtual)
    syscall(SYS_futex, &board.link.event, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void set_end_of_run(EndOfRun end) { end_of_run = end; }
void set_heartbeat(Heartbeat beat) { heartbeat_ = beat; }

void heartbeat() {
  if (heartbeat_ != nullptr) heartbeat_(*board_, board_now_us());
}

int announce_thread(const char* name) {
  std::unique_lock<std::mutex> held(baton);
  Participant& child = participants().emplace_back();
  snprintf(child.name, sizeof child.name, "%s", name);
  child.deadline = board_->clock.now_us;
  child.ticket = next_ticket++;
  child.waiting = virtual_time();
  return static_cast<int>(participants().size()) - 1;
}

void enter_thread(int id) {
  self = id;
  if (!virtual_time()) return;
  std::unique_lock<std::mutex> held(baton);
  wait_for_baton(held, participants()[static_cast<std::size_t>(id)]);
}

void leave_thread() {
  if (!virtual_time()) return;
  std::unique_lock<std::mutex> held(baton);
  hand_on();
}

const char* thread_name() {
  std::unique_lock<std::mutex> held(baton);
  return participants_ == nullptr ? "main" : participants()[static_cast<std::size_t>(self)].name;
}

}  // namespace vboard
