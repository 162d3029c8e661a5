// Running a program on a board, in a sandbox.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "vboard/cli/beside.h"
#include "vboard/cli/board_directory.h"
#include "vboard/core/board.h"

namespace vboard {

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
  // Called when the board is this run's and as it was before it: writes the record's
  // head. False with a text in `problem` when it cannot.
  std::function<bool(const Board& board, std::string* problem)> begin_record = {};
  std::string replay;  // record whose host and world act, "" for none
  bool shell = false;  // an interactive shell with the program on its path
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
  // 0 when a step of the script failed, 125 with a problem when the program did not
  // start or a line of trace or host log was lost.
  int wait();

  // True when the program was seen on the board.
  bool reached_board() const { return reached_board_; }

  // Stops the program.
  void stop();

 private:
  bool take_board(const BoardDirectory& directory, std::string* problem);
  bool set_out(const RunOptions& options);
  void finish();
  std::string lost_output() const;

  RunOptions options_;
  std::string program_;
  Board* board_ = nullptr;
  int lock_fd_ = -1;
  int status_fd_ = -1;  // status reports of bwrap
  pid_t child_ = -1;
  bool executed_ = false;  // not only the sandbox
  bool reached_board_ = false;
  std::string problem_;
  Beside beside_;
};

// Why the sandbox cannot be set up on this machine, in the words of bwrap; "" when it
// can.
std::string sandbox_problem();

// The program that is made for the board; a helper.
inline constexpr char kProgram[] = "vantorig";

// A program named by a path is meant where the user stands, not on the board; kProgram
// without a path is the helper. `command` has at least one word.
std::vector<std::string> as_seen_from_here(std::vector<std::string> command);

}  // namespace vboard
