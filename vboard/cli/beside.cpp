// A thread of the launcher, as the board's guest.
#include "vboard/cli/beside.h"

#include <filesystem>

#include "vboard/core/guest.h"
#include "vboard/core/record.h"
#include "vboard/host/guest_transport.h"

namespace vboard {

namespace {

FILE* open_log(const Board& board, const std::string& host_log) {
  if (!host_log.empty()) {
    FILE* log = fopen(host_log.c_str(), "we");
    return log != nullptr ? log : stdout;  // its place was found good before the start
  }
  FILE* heard = recording(board) ? open_heard_output([] { return kHostActs; }) : nullptr;
  FILE* log = heard != nullptr ? heard : stdout;
  setvbuf(log, nullptr, _IOLBF, 0);  // each line before the program's next one
  return log;
}

}  // namespace

bool Beside::read(const std::string& script, const std::string& record, std::string* problem) {
  acts_ = !script.empty();
  plays_ = !record.empty();
  return (!acts_ || read_script(std::filesystem::absolute(script), &script_, problem)) &&
         (!plays_ || read_acts(record, &record_, problem));
}

void Beside::act(FILE* log, const PlaceOf& place_of) {
  try {
    GuestTransport transport(*board_);
    guest_enter(*board_);
    if (plays_) run_replay(record_, *board_);
    if (acts_) run_script(script_, transport, log, place_of, &outcome_);
    guest_leave(*board_);
  } catch (const ProgramGone&) {
    // Nobody is left to act for.
  }
  if (log != stdout) fclose(log);
}

void Beside::start(Board& board, const std::string& host_log, const PlaceOf& place_of) {
  if (!there()) return;
  board_ = &board;
  thread_ = std::thread([this, log = open_log(board, host_log), place_of] { act(log, place_of); });
}

void Beside::finish() {
  if (!thread_.joinable()) return;
  dismiss_guest(*board_);
  thread_.join();
}

}  // namespace vboard
