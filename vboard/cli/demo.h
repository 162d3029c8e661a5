// The demonstration: the main job on a fresh board, step by step, each step
// verified by reading it back.
#pragma once

#include <filesystem>
#include <string>

namespace vboard {

struct DemoOptions {
  double speed = 20;
  std::string program;  // "" for vantorig beside this program
  std::string config;   // "" for the built-in example
};

// What a demonstration that failed exits with: its board is left for a look.
inline constexpr int kDemoFailed = 1;

// Plays it on a board in the directory `place`. Returns 0 only when every step was
// verified, kDemoFailed when one was not, 125 when it could not begin.
int demo(const DemoOptions& options, const std::filesystem::path& place);

}  // namespace vboard
