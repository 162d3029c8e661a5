// Talk: a running service that a test talks to as the host, one command at a time.
//
//   talk([](Talk& host) { EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D)); });
//
// Before its first configuration the service itself only sleeps, so that what is
// printed and done between two commands is the host-link thread's alone.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/service/service_bench.h"

// What one command came to.
struct Heard {
  std::vector<int> answer;           // bytes on the link, none of them polled for
  std::string printed;               // on standard output
  std::vector<std::string> actions;  // device traffic beside link, LED and waits for them
};

class Talk {
 public:
  explicit Talk(vboard::Bench& on) : host(vboard::board_of_process()), bench(on) {}

  // Sends these bytes, each once the board is done with the one before, waits
  // and returns the results.
  Heard say(const std::vector<int>& bytes, double seconds = 0.1);
  // Waits and returns what happened.
  Heard hear(double seconds);
  // Polls for this many bytes of an upload, and returns those that came.
  std::vector<int> poll(int count);
  // Puts bytes into the link in blocks, as fast as the board takes them.
  void pour(const std::string& bytes);

  Host host;
  vboard::Bench& bench;
};

// Starts a service, lets it come up, runs the script beside it and checks that
// the script came to its end. `prepare` runs before the service starts.
void talk(const std::function<void(Talk&)>& script, double seconds = 600,
          const std::function<void(vboard::Bench&)>& prepare = nullptr);

// Globals of the service as they are when a process starts.
void restore_start_values();
