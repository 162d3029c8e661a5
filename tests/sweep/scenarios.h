// What the sweep runs: one thing that the program does, in a process of its own.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/service/service_bench.h"

struct Scenario {
  std::string name;
  double limit_s = 0;                  // board time within which it is over, failures included
  std::vector<std::string> arguments;  // the command line, or
  std::function<void()> call;          // an operation that no option reaches

  // The service beside a host: what the host does while calls fail, before that,
  // and after it. Null `host`: a command alone.
  std::function<void(Host&)> host;
  std::function<void(Host&)> before;
  std::function<void(Host&)> after;
  std::function<void(vboard::Bench&)> prepare;  // the board, before the program starts

  bool endless = false;   // runs until the limit in any case
  int extra_handles = 0;  // that a failure may leave open, beyond those always left
  std::vector<int> ends;  // statuses other than 0 with which the process may end
  int code = -1;          // the host command it is about
  bool watched = true;    // the service supervises what it has configured
  int cause = 0;          // what status_vantorig shows when nothing fails
  long at_most = 0;       // points that stand for all, where thousands of calls are alike; 0: all
};

const std::vector<Scenario>& scenarios();

// The configuration that the known-good state comes from.
void send_usual_configuration(Host& host);
