// The sweep of calls that claim success: each write of a set-up does nothing, each
// read brings another value.
#pragma once

#include "vboard/interpose/seam.h"

struct LostChoice {
  vboard::seam::Failing how = vboard::seam::Failing::kLost;
  const char* scenario = "";  // "" for all
  long call = 0;              // 0 for all
  long sample = 0;            // points a scenario, 0 for all
  unsigned seed = 0;
  int jobs = 1;
};

// Runs it and prints the counts and what nobody noticed. Returns 0 when each of these
// has its reason and the share that the board notices is reached.
int sweep_lost(const LostChoice& choice);
