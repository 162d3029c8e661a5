// What a configuration makes of a board: its settings, without what lives on.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/service/service_bench.h"

// A configuration of the storm, and the source that it is for.
struct Setting {
  const char* name;
  std::vector<std::pair<std::string, int>> changes;  // of the example configuration
  const char* source;
  const char* standard;
  int input_mux;     // as GET_INPUT_MUX answers
  bool dsp = false;  // the AC-3 DSP is the audio path

  std::string text() const { return example_config_with(changes); }
  bool composite() const { return input_mux == 4; }
  bool vga() const { return input_mux == 3; }
};

// The settings that a storm changes between, and the one with the AC-3 DSP, which
// is used apart.
const std::vector<Setting>& settings();
const Setting& dsp_setting();

// Plain data: it comes from another process.
struct KnownGood {
  std::uint16_t fpga[128];
  std::uint8_t tvp7002[256];
  std::uint8_t tvp5150[256];
  std::uint8_t dsp[7];
  std::uint8_t block[sizeof(SharedBlock)];
  bool healthy;
};

KnownGood known_good(vboard::Bench& bench, const Setting& setting);

// The first difference in words, "" when there is none.
std::string difference(const KnownGood& is, const KnownGood& should_be);

// What a fresh board comes to with this setting; it runs in a process of its own.
// The example configuration goes before, as the AC-3 control word keeps the bits
// of every stream that the board has seen.
KnownGood fresh_board(const Setting& setting);

// The service is up, watches, and `encode` streams.
bool healthy(vboard::Bench& bench);
