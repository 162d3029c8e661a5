// The storm: what happens to one board, day after day, and what is looked at.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/soak/known_good.h"

// Settings with what they make of a fresh board.
struct Reference {
  const Setting* setting;
  KnownGood good;
};

struct Course {
  double hours = 0;
  std::uint64_t seed = 0;
  FILE* report = nullptr;  // where it is told; standard output belongs to the service
};

// Runs the storm over a board of its own. Returns true when nothing was amiss; the
// reason stands in the report otherwise. The last reference is that of the DSP.
// `digest` gets what the whole run came to.
bool run_storm(const Course& course, const std::vector<Reference>& references,
               std::uint64_t* digest);
