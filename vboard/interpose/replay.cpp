// Plays the host and the world of a record beside the program.
//
// An act is due at its recorded time. Of what else happens at that very time, as
// much goes first as went first in the record, so that a record made in virtual
// time repeats exactly. A transfer moreover waits, like every host, until the board
// has taken the byte before it, and until there is an answer to collect where the
// record holds one: a program that became slower is not talked over.
#include "vboard/core/replay.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "melk/board_transport.h"
#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/record.h"
#include "vboard/core/trace.h"
#include "vboard/core/world.h"
#include "vboard/models/bus.h"

namespace vboard {

namespace {

constexpr std::int64_t kPatience_us = 60'000'000;

// What host or world did.
struct Act {
  std::int64_t time_us = 0;
  unsigned long before = 0;  // device operations of the program that went first
  std::string who;
  std::string what;
};

struct Replay {
  std::vector<Act> acts;
  unsigned long (*operations)() = nullptr;
  int thread_id = 0;
};

[[noreturn]] void refuse(const char* file, const std::string& why) {
  fprintf(stderr, "vboard: %s: %s\n", file, why.c_str());
  _exit(125);
}

std::vector<Act> read_acts(const char* file) {
  std::string problem;
  std::vector<Act> acts;
  unsigned long operations = 0;
  for (const RecordLine& line : read_record(file, &problem)) {
    if (line.kind == RecordKind::kOperation) ++operations;
    if (line.kind == RecordKind::kHost || line.kind == RecordKind::kWorld)
      acts.push_back({line.time_us, operations, line.who, line.what});
  }
  if (!problem.empty()) refuse(file, problem);
  return acts;
}

std::vector<std::uint8_t> bytes_of(const std::string& hex) {
  std::istringstream words(hex);
  std::vector<std::uint8_t> bytes;
  for (unsigned byte = 0; words >> std::hex >> byte;)
    bytes.push_back(static_cast<std::uint8_t>(byte));
  return bytes;
}

bool link_is(Board& board, WaitFor what) {
  Locked hold(board);
  const LinkState& link = board.link;
  if (what == WaitFor::kAnswer) return link.to_host.head != link.to_host.tail;
  return link.to_board.head == link.to_board.tail && link.settled;
}

void await(Board& board, WaitFor what) {
  if (!link_is(board, what)) board_wait(what, kPatience_us);
}

void await_turn(const Act& act, const Replay& replay) {
  const std::int64_t wait_us = act.time_us - board_now_us();
  if (wait_us > 0) board_wait(WaitFor::kNothing, wait_us);
  while (board_now_us() <= act.time_us) {
    const unsigned long seen = replay.operations();
    if (seen >= act.before) return;
    board_wait(WaitFor::kNothing, 0);
    if (replay.operations() == seen) return;
  }
}

void transfer(const Act& act, Board& board) {
  unsigned out = 0;
  char back[3] = {};
  sscanf(act.what.c_str(), "link %x -> %2s", &out, back);
  await(board, WaitFor::kBoardTook);
  if (strcmp(back, "--") != 0) await(board, WaitFor::kAnswer);
  std::uint8_t in = 0;
  Locked hold(board);
  link_host_transfer(board, static_cast<std::uint8_t>(out), &in);
}

void perform(const Act& act, Board& board) {
  if (act.who == kWorldActs) {
    std::string error;
    {
      Locked hold(board);
      world_command(board, act.what, error);
    }
    heartbeat();
  } else if (act.what.starts_with("link ")) {
    transfer(act, board);
  } else if (act.what.starts_with("fifo ")) {
    const std::vector<std::uint8_t> block = bytes_of(act.what.substr(strlen("fifo ")));
    melk::BoardTransport(board).push_update(block.data(), block.size(), kPatience_us);
  } else {
    record_look(board);
  }
}

void* run_replay(void* given) {
  const Replay& replay = *static_cast<Replay*>(given);
  enter_thread(replay.thread_id);
  for (const Act& act : replay.acts) {
    await_turn(act, replay);
    perform(act, board_of_process());
  }
  leave_thread();
  return nullptr;
}

}  // namespace

void start_replay(const char* record_file, unsigned long (*operations)()) {
  auto* replay = new Replay;  // lives as long as its thread
  replay->acts = read_acts(record_file);
  replay->operations = operations;
  replay->thread_id = announce_thread("host");
  pthread_t thread = {};
  real::pthread_create(&thread, nullptr, run_replay, replay);
  pthread_detach(thread);
}

}  // namespace vboard
