// The demonstration: the main job on a fresh board, step by step, each step
// verified by reading it back.
#pragma once

#include <string>

namespace vboard {

struct DemoOptions {
  double speed = 20;
  std::string program;  // "" for vantorig beside this program
  std::string config;   // "" for the built-in example
};

// Returns 0 only when every step was verified.
int demo(const DemoOptions& options);

}  // namespace vboard
