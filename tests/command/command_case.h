// One run of the real binary on a fresh virtual board, and all that is expected
// of it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/board_run.h"

using Lines = std::vector<std::string>;

struct CommandCase {
  const char* name = "";
  const char* arguments = "";
  Lines world = {};    // done to the board before the run
  double seconds = 0;  // of board time, for commands that never end
  int status = 0;
  std::string out = {};
  Lines trace = {};  // device traffic, all of it, in order
};

// Readable names in failure messages and in ctest's list.
inline std::string case_name(const testing::TestParamInfo<CommandCase>& info) {
  return info.param.name;
}
inline void PrintTo(const CommandCase& one, std::ostream* out) { *out << one.arguments; }

inline void check(const CommandCase& one, BoardRun& board) {
  for (const std::string& operation : one.world) ASSERT_EQ(board.vboard(operation).status, 0);
  const Result result = board.vantorig(one.arguments, one.seconds);
  EXPECT_EQ(result.status, one.status);
  EXPECT_EQ(result.out, one.out);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(board.trace(), one.trace);
}

inline void check(const CommandCase& one) {
  BoardRun board;
  check(one, board);
}

// The lines of a text.
inline Lines lines_of(const std::string& text) {
  Lines lines;
  std::size_t at = 0;
  for (std::size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
    lines.push_back(text.substr(at, end - at));
  if (at < text.size()) lines.push_back(text.substr(at));
  return lines;
}

inline Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// Traffic between opening and closing a device.
inline Lines on_bus(const Lines& traffic) {
  return Lines{"open /dev/i2c-1"} + traffic + Lines{"close /dev/i2c-1"};
}
inline Lines on_fpga(const Lines& traffic) {
  return Lines{"open /dev/fpga r+b"} + traffic + Lines{"close /dev/fpga"};
}
inline const Lines kNoBus = {"open /dev/i2c-1 = ENOENT"};
inline const Lines kNoFpga = {"open /dev/fpga = ENOENT"};
inline const Lines kNoCapture = {"open /dev/video0 = ENOENT"};
