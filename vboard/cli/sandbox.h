// A board directory, and running a program on the board in a sandbox.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

#include "vboard/core/board.h"

namespace vboard {

// What a board directory holds: board.state, and home/ which the program sees
// as /home/tovin.
class BoardDirectory {
 public:
  explicit BoardDirectory(const std::filesystem::path& directory);

  std::filesystem::path path() const { return directory_; }
  std::filesystem::path state_file() const { return directory_ / "board.state"; }
  std::filesystem::path home() const { return directory_ / "home"; }

  // Makes a fresh board where there is none yet: state, home with version.ini,
  // DSP firmware, the resident update script and `encode`. Returns false with a
  // text in `problem`.
  bool prepare(std::string* problem) const;

  // The mapped state; null with a text in `problem`.
  Board* map(std::string* problem) const;

 private:
  std::filesystem::path directory_;
};

// Marks a board whose run is over: its clock stands, its processes are gone. The
// board is that of this process.
void come_to_rest(Board& board);

struct RunOptions {
  double speed = 1.0;
  bool virtual_time = false;
  std::int64_t for_us = -1;  // virtual time: stop after this long
  std::string trace;         // file, "" for none
  std::string script;        // file, "" for none
  std::string host_log;      // file, "" for standard output
  bool record = false;       // the trace becomes a record
  std::string replay;        // record whose host and world act, "" for none
  bool shell = false;        // an interactive shell with the program on its path
};

// A program on a board. The sandbox gives it its own /home/tovin, processes and
// System V IPC.
class Run {
 public:
  // Starts the program; an empty problem means it runs. stdout_fd, when not
  // negative, becomes its standard output and error.
  Run(const BoardDirectory& directory, const RunOptions& options,
      const std::vector<std::string>& command, int stdout_fd = -1);
  ~Run();
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  const std::string& problem() const { return problem_; }

  // True while the program has not ended.
  bool alive();

  // Waits for the end and returns the exit status as a shell shows it; 1 instead of
  // 0 when a step of the script failed.
  int wait();

  // Stops the program.
  void stop();

 private:
  void finish();
  void await_all_gone();

  Board* board_ = nullptr;
  int lock_fd_ = -1;
  int alive_fd_ = -1;
  pid_t child_ = -1;
  std::string problem_;
};

// Why the sandbox cannot be set up on this machine; "" when it can.
std::string sandbox_problem();

// A program named by a path is meant where the user stands, not on the board.
std::vector<std::string> as_seen_from_here(std::vector<std::string> command);

// The bytes of a file; "" when it cannot be read.
std::string read_file(const std::filesystem::path& path);

// Where the program's own helpers lie (preload library, encode): beside this
// executable, or in lib/vboard of an installation. "" when missing.
std::filesystem::path helper(const std::string& name);

}  // namespace vboard
