// One point of the sweep, run in a process of its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hw/fpga_registers.h"
#include "tests/sweep/scenarios.h"
#include "vboard/interpose/seam.h"

struct Point {
  const Scenario* scenario;
  long call = 0;  // 0: none fails
  vboard::seam::Failing how = vboard::seam::Failing::kOnce;
};

inline constexpr std::size_t kRegisters = sizeof kFpgaRegisters / sizeof kFpgaRegisters[0];
inline constexpr std::size_t kChipRegisters = 256;

// What a configuration sets, as the board holds it when the scenario is over.
struct GoodState {
  std::uint16_t fpga[kRegisters];
  std::uint8_t digitizer[kChipRegisters];
};

struct Outcome {
  char fault[200] = {};   // what is wrong, "" when nothing
  char failed[120] = {};  // the call that failed
  int handles = 0;        // left open, without those that are kept by the way
  long calls = 0;
  GoodState state = {};
};

// Gives a process that runs points beside others a place of its own for their
// outcomes, and a processor: of a board's threads one runs at a time.
void separate_worker(int job);

// Learns what a board holds after the usual configuration; before any run.
void learn_usual_state();

// Runs a scenario without a failing call: the measure of its points. The calls that
// could fail go into `calls`.
Outcome run_unharmed(const Scenario& scenario, std::vector<vboard::seam::SweptCall>* calls);

// Runs a point; nothing is wrong when it ends like the unharmed run, as far as it is
// known to. `loud` shows what the program printed.
Outcome run_point(const Point& point, const Outcome& unharmed, bool loud);
