// Plays the host and the world of a record beside the program.
//
// An act is due at its recorded time. Of what else happens at that very time, as
// much goes first as went first in the record, so that a record made in virtual
// time repeats exactly. A transfer moreover waits, like every host, until the board
// has taken the byte before it, and until there is an answer to collect where the
// record holds one: a program that became slower is not talked over.
#include "vboard/host/replay.h"

#include <cstring>

#include "vboard/core/clock.h"
#include "vboard/core/guest.h"
#include "vboard/core/record.h"
#include "vboard/core/record_reader.h"
#include "vboard/core/text.h"
#include "vboard/host/guest_transport.h"
#include "vboard/models/bus.h"
#include "vboard/world/world.h"

namespace vboard {

namespace {

constexpr std::int64_t kPatience_us = 60'000'000;

bool link_is(Board& board, WaitFor what) {
  Locked hold(board);
  const LinkState& link = board.link;
  if (what == WaitFor::kAnswer) return link.to_host.head != link.to_host.tail;
  return link.to_board.head == link.to_board.tail && link.settled;
}

void await(Board& board, WaitFor what) {
  if (!link_is(board, what)) guest_wait(board, what, kPatience_us);
}

void await_turn(const Act& act, Board& board) {
  const std::int64_t wait_us = act.time_us - board_now_us();
  if (wait_us > 0) guest_wait(board, WaitFor::kNothing, wait_us);
  while (board_now_us() <= act.time_us) {
    const std::uint64_t seen = board.operations;
    if (seen >= act.before) return;
    guest_wait(board, WaitFor::kNothing, 0);
    if (board.operations == seen) return;
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
    guest_heartbeat(board);
  } else if (act.what.starts_with("link ")) {
    transfer(act, board);
  } else if (act.what.starts_with("fifo ")) {
    const std::string block = bytes_of(act.what.substr(strlen("fifo ")));
    GuestTransport(board).push_update(reinterpret_cast<const std::uint8_t*>(block.data()),
                                      block.size(), kPatience_us);
  } else {
    record_look(board);
  }
}

}  // namespace

bool read_acts(const std::string& record_file, std::vector<Act>* acts, std::string* problem) {
  std::uint64_t operations = 0;
  for (const RecordLine& line : read_record(record_file.c_str(), problem)) {
    if (line.kind == RecordKind::kOperation) ++operations;
    if (line.kind == RecordKind::kHost || line.kind == RecordKind::kWorld)
      acts->push_back({line.time_us, operations, line.who, line.what});
  }
  if (problem->empty()) return true;
  *problem = record_file + ": " + *problem;
  return false;
}

void run_replay(const std::vector<Act>& acts, Board& board) {
  for (const Act& act : acts) {
    await_turn(act, board);
    perform(act, board);
  }
}

}  // namespace vboard
