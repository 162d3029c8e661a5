// What the sweep runs: one thing that the program does, in a process of its own.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/service/service_bench.h"

struct Scenario {
  std::string name;
  double limit_s = 0;                  // board time within which it is over, failures included
  bool endless = false;                // runs until the limit in any case
  bool may_exit = false;               // the program ends itself with status 1, 2 or 3
  int extra_handles = 0;               // that a failure may leave open, beyond those always left
  std::vector<std::string> arguments;  // a bench command, or
  std::function<void(Host&)> host;     // what a host does to the service,
  std::function<void(Host&)> before = nullptr;  // after this, where no call fails
  std::function<void(vboard::Bench&)> prepare = nullptr;
};

const std::vector<Scenario>& scenarios();
