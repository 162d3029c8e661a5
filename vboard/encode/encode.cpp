// The stand-in for `encode`: a real process that the service launches and kills.
//
// Under real and scaled time it does the encoder's side of the shared block
// itself. Under virtual time it only marks its life, and the program's process
// does the rest in step with the clock.
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/models/encoder.h"

namespace {

constexpr std::int64_t kStep_us = 20000;  // board time between two looks

vboard::Board* board = nullptr;

void stop(int) {
  // Only marks the end; a lock held by this very process must not be awaited.
  board->encoder.pid = 0;
  board->encoder.streaming = false;
  _exit(0);
}

SharedBlock* attach_block() {
  const int id = shmget(kSharedKey, kSharedSize, 0777);
  if (id < 0) return nullptr;
  void* place = shmat(id, nullptr, 0);
  return place == reinterpret_cast<void*>(-1) ? nullptr : static_cast<SharedBlock*>(place);
}

bool asked_to_crash() {
  vboard::Locked hold(*board);
  const bool asked = board->encoder.crash_requested;
  board->encoder.crash_requested = false;
  if (asked) vboard::encoder_gone(*board);
  return asked;
}

}  // namespace

int main() {
  const char* state = getenv("VBOARD_STATE");
  if (state == nullptr) {
    fputs("encode: this stand-in runs on a virtual board only (VBOARD_STATE is not set)\n", stderr);
    return 1;
  }
  board = vboard::map_board(state);
  if (board == nullptr) {
    fprintf(stderr, "encode: cannot use board state %s: %s\n", state, strerror(errno));
    return 1;
  }
  vboard::clock_attach(board);
  signal(SIGTERM, stop);
  SharedBlock* block = attach_block();
  if (block == nullptr) {
    fputs("encode: no shared memory block\n", stderr);
    return 1;
  }
  const bool by_itself = board->clock.mode != vboard::TimeMode::kVirtual;
  {
    vboard::Locked hold(*board);
    vboard::encoder_started(*board, getpid(), vboard::board_now_us());
  }
  if (!by_itself)
    for (;;) pause();
  while (!asked_to_crash()) {
    vboard::board_wait(vboard::WaitFor::kNothing, kStep_us);
    vboard::Locked hold(*board);
    if (board->encoder.pid == getpid()) vboard::encoder_step(*board, block, vboard::board_now_us());
  }
  raise(SIGKILL);  // a crash: no handler runs
}
