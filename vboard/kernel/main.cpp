// `vboard-kernel`: the virtual board inside a running kernel.
//
//   devices DIRECTORY         keeps the board of DIRECTORY and serves its devices;
//                             says "ready" once they are there
//   script DIRECTORY FILE     plays the host and the world of a script
//   world DIRECTORY WORDS...  one operation on the world
//   melk DIRECTORY WORDS...   one command of the host client
//   show DIRECTORY            violations so far
//   old DIRECTORY PROGRAM...  a program, as on a kernel of long ago
//   flash DIRECTORY           attaches the machine's flash memory as ubi0
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "melk/arguments.h"
#include "vboard/core/clock.h"
#include "vboard/core/guest.h"
#include "vboard/core/real.h"
#include "vboard/core/text.h"
#include "vboard/host/board_transport.h"
#include "vboard/host/script.h"
#include "vboard/kernel/devices.h"
#include "vboard/kernel/flash.h"
#include "vboard/kernel/old_kernel.h"
#include "vboard/kernel/trace_file.h"
#include "vboard/world/world.h"

namespace {

using namespace vboard;

constexpr int kFailed = 1;
constexpr int kUsage = 2;

std::string directory;

std::string file(const char* name) { return directory + "/" + name; }

int complain(const std::string& problem) {
  fprintf(stderr, "vboard-kernel: %s\n", problem.c_str());
  return kFailed;
}

Board* map() {
  Board* board = map_board(file("board.state").c_str());
  if (board != nullptr) clock_attach(board);
  return board;
}

// ---- devices --------------------------------------------------------------------

// The board's clock is the machine's.
void start_clock(Board& board) {
  board.clock.mode = TimeMode::kReal;
  board.clock.epoch_mono_ns = real::monotonic_ns();
  board.clock.epoch_board_us = board.clock.now_us;
  board.clock.running = 1;
}

int devices() {
  const int lock = open(file("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0) return complain("the board is in use");
  const std::string state = file("board.state");
  const bool there = access(state.c_str(), F_OK) == 0 || make_board(state.c_str());
  Board* board = there ? map() : nullptr;
  if (board == nullptr) return complain(state + ": " + strerror(errno));
  if (!kernel::open_trace(file("trace"))) return complain(file("trace") + ": " + strerror(errno));
  start_clock(*board);
  std::string problem;
  if (!kernel::serve_bus(*board, &problem) || !kernel::serve_devices(*board, &problem))
    return complain(problem);
  puts("ready");
  fflush(stdout);
  for (;;) pause();
}

// ---- the host and the world -----------------------------------------------------

int script(const std::vector<std::string>& words) {
  Board* board = map();
  if (board == nullptr) return complain("no board in " + directory);
  Script script;
  std::string problem;
  if (!read_script(words[0], &script, &problem)) return complain(problem);
  BoardTransport transport(*board);
  Outcome outcome;
  try {
    run_script(script, transport, stdout, {}, &outcome);
  } catch (const ProgramGone&) {
    // An `end` step.
  }
  return outcome.failed_steps == 0 ? 0 : kFailed;
}

int world(const std::vector<std::string>& words) {
  Board* board = map();
  if (board == nullptr) return complain("no board in " + directory);
  const std::string line = joined(words);
  std::string problem;
  Locked hold(*board);
  return world_command(*board, line, problem) ? 0 : complain(problem);
}

int host(const std::vector<std::string>& words) {
  std::string problem;
  const auto transport = BoardTransport::open(directory, &problem);
  if (transport == nullptr) return complain(problem);
  return melk::melk_command(*transport, words, stdout, stderr, melk::Options{});
}

int show(const std::vector<std::string>&) {
  const Board* board = map();
  if (board == nullptr) return complain("no board in " + directory);
  printf("violations %u %s\n", board->violations.count, board->violations.first);
  return 0;
}

int flash(const std::vector<std::string>&) {
  std::string problem;
  return kernel::attach_flash(&problem) ? 0 : complain(problem);
}

int old(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  if (kernel::forget_new_calls()) execvp(arguments[0], arguments.data());
  return complain(words[0] + ": " + strerror(errno));
}

struct Verb {
  const char* name;
  std::size_t words;  // at least
  int (*run)(const std::vector<std::string>& words);
};
constexpr Verb kVerbs[] = {
    {"devices", 0, [](const std::vector<std::string>&) { return devices(); }},
    {"script", 1, script},
    {"world", 1, world},
    {"melk", 1, host},
    {"show", 0, show},
    {"old", 1, old},
    {"flash", 0, flash},
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  for (const Verb& verb : kVerbs) {
    if (words.size() < 2 + verb.words || words[0] != verb.name) continue;
    directory = words[1];
    return verb.run({words.begin() + 2, words.end()});
  }
  fputs("usage: vboard-kernel devices|script|world|melk|show|old|flash DIRECTORY [WORDS...]\n",
        stderr);
  return kUsage;
}
