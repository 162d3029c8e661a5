// Bench: a virtual board around functions of the product, in the test's process.
//
// A Bench gives a fresh board in virtual time, the board's files in a temporary
// directory that is also the working directory, and what the program printed
// and did to its devices since last asked: each by itself, or both in one stream.
#pragma once

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "state/relaxed.h"
#include "vboard/core/board.h"
#include "vboard/core/clock.h"
#include "vboard/interpose/seam.h"
#include "vboard/models/needs.h"
#include "vboard/models/stream.h"
#include "vboard/world/world.h"

namespace vboard {

class Bench {
 public:
  explicit Bench(TimeMode mode = TimeMode::kVirtual, double speed = 1.0);
  ~Bench();
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // Whoever asks for it may change it.
  Board& board() {
    set_up_changed(*board_);
    return *board_;
  }

  // Sets the board up by hand for what is plugged in now.
  void set_up();

  // The stream that leaves the board.
  TransportStream outgoing() const { return stream_of(*board_); }
  // What the devices lack.
  Lacking lacking() const { return vboard::lacking(*board_); }

  std::int64_t now_us() const { return board_now_us(); }

  // A world operation, as text: world("source none").
  void world(const std::string& command);

  // What went to standard output since last asked.
  std::string output();

  // Ends the capture early, for a test that leaves its process with threads still
  // running; what a failed test printed is shown.
  void give_back_output();

  // Clean trace lines since last asked: all, or those beginning with one of the
  // prefixes ("fpga", "i2c", "wait").
  std::vector<std::string> trace();
  std::vector<std::string> trace(const std::vector<std::string>& prefixes);

  // From now on all that happens stands in one stream, in the order in which it
  // happens:
  //   fpga wr 0x1328 <- 0x0006               any line of the trace
  //   say start Configure_System!!           a line that was printed
  //   say... read '1.2.3' OK                 text with no line end after it, so far
  //   file /home/tovin/hd.ini <- 6 bytes     a file of the board written ...
  //   file /home/tovin/hd.ini closed         ... and closed
  //   encode_alive = 0                       a watched value, when it has changed
  // Standard output is line-buffered here, as the program makes it. trace() and
  // output() go on as ever.
  void follow();
  std::vector<std::string> stream();  // since last asked

  // While all is followed: tells changes of a value that the program keeps in memory.
  // It is looked at before each line of the stream, so a change stands before whatever
  // came after it; of several without a line between them the first watched comes first.
  void watch(const std::string& name, std::function<long long()> value);
  template <class T>
  void watch(const std::string& name, const Relaxed<T>& value) {
    watch(name, [&value] { return static_cast<long long>(value.load()); });
  }

  // Runs `body` until it returns (true) or the board clock passes `limit_us`
  // from now (false: it is abandoned where it stands). Virtual time only.
  bool run_for(std::int64_t limit_us, const std::function<void()>& body);

  // Starts a thread of the board's world (a host) that runs beside the program.
  void beside(const std::string& name, std::function<void()> body);

  // A file of the board's home: its path here, writing and reading it.
  std::string path(const std::string& name) const { return home_ + "/" + name; }
  void put_file(const std::string& name, const std::string& content) const;
  std::string get_file(const std::string& name) const;  // "" when there is none
  bool has_file(const std::string& name) const;

  // Connects the shared block, as the service does at its start.
  SharedBlock& attach_block();

  // A register of the FPGA as it was last written, by byte address.
  std::uint16_t fpga(int address) const;
  void set_fpga(int address, int value);

 private:
  Board* board_;
  std::string home_;
  std::string came_from_;
  int capture_fd_ = -1;
  int stdout_fd_ = -1;
  long captured_ = 0;
  FILE* stdout_before_ = nullptr;  // while all is followed
};

// The lines of a text, for comparing what was printed.
std::vector<std::string> lines(const std::string& text);

}  // namespace vboard
