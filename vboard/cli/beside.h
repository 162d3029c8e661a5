// What acts beside a program in virtual time: a script, or host and world of a record.
#pragma once

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "vboard/core/board.h"
#include "vboard/host/replay.h"
#include "vboard/host/script.h"

namespace vboard {

class Beside {
 public:
  Beside() = default;
  ~Beside() { finish(); }
  Beside(const Beside&) = delete;
  Beside& operator=(const Beside&) = delete;

  // Reads the script and the record of these names, "" for none. False with a text in
  // `problem`.
  bool read(const std::string& script, const std::string& record, std::string* problem);

  // There is something to act.
  bool there() const { return acts_ || plays_; }

  // Begins, the program having been started. What the host sees goes to the file
  // host_log, or to standard output when that is empty.
  void start(Board& board, const std::string& host_log, const PlaceOf& place_of);

  // Ends what is left to do; for when the program is gone.
  void finish();

  // What came of the script, once it is finished.
  unsigned failed_steps() const { return outcome_.failed_steps; }
  int log_errno() const { return outcome_.log_errno; }

 private:
  void act(FILE* log, const PlaceOf& place_of);

  Script script_;
  std::vector<Act> record_;
  bool acts_ = false;   // the script
  bool plays_ = false;  // the record
  Outcome outcome_;
  Board* board_ = nullptr;
  std::thread thread_;
};

}  // namespace vboard
