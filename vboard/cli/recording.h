// Records of runs: making one, playing one again, comparing the two.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "vboard/cli/sandbox.h"
#include "vboard/core/record_reader.h"

namespace vboard {

// What the head of a record says about its run.
struct RecordedRun {
  std::string time;  // "virtual", "real", "scaled"
  std::int64_t started_us = 0;
  std::vector<std::string> command;
};

// A record as it was read.
struct Record {
  RecordedRun run;
  RecordHead head;
  std::vector<RecordLine> lines;

  // Board time of its last line.
  std::int64_t end_us() const;
};

// Reads a record; false with a text in `problem`.
bool read_whole_record(const std::string& file, Record* record, std::string* problem);

// Runs a command, as it was typed, on the board and records it in options.trace, with
// all that the board had become before. Returns the exit status of the command, or
// 125 with a text in `problem`; there is no record of a command that never reached
// the board. stdout_fd is that of Run.
int make_record(const BoardDirectory& directory, RunOptions options,
                const std::vector<std::string>& words, std::string* problem, int stdout_fd = -1);

struct ReplayOptions {
  std::string record;
  std::string output;                // keeps the record of the replay, "" for not
  std::vector<std::string> command;  // empty: as recorded
  bool json = false;
};

// Plays a record on a board of its own in the directory `scratch`, compares what the
// program did to its devices and prints the first difference. Returns 0 when there is
// none, 1 when there is one, 125 with a text in `problem`.
int replay(const ReplayOptions& options, const std::filesystem::path& scratch,
           std::string* problem);

}  // namespace vboard
