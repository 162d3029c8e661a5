// The whole service in the test's process: its threads, a host beside them, all
// in virtual time.
//
//   ServiceBench service;
//   service.run(60, [&](Host& host) { host.send_config(kConfig); host.wait(30); … });
//
// The host runs as a thread of the board's world; expectations about the link
// stand in its function, those about the board after run() returned.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "hw/fpga_registers.h"
#include "melk/protocol.h"
#include "vboard/host/board_transport.h"
#include "vboard/testing/bench.h"

// A command byte with a 32-bit number after it.
std::vector<int> command_with_number(int code, std::uint32_t number);

// The host's end, in words.
class Host {
 public:
  explicit Host(vboard::Board& board) : transport_(board), link{transport_} {}

  // Board seconds.
  void wait(double seconds) { transport_.pause(static_cast<std::int64_t>(seconds * 1e6)); }
  double now() { return static_cast<double>(transport_.now_us()) / 1e6; }

  // Sends bytes, each once the board is done with the last one.
  void send(const std::vector<int>& bytes);
  // What the board has queued for the host, all of it, without clocking anything
  // into the board.
  std::vector<int> take();
  // Sends one byte, waits until the board has answered or a second has passed,
  // and takes the answer: {} when there is none.
  std::vector<int> ask(int code);
  // An operation on the world around the board: world("source none").
  void world(const std::string& operation);
  // SEND_HD_CONFIGURATION with this text; returns when every byte was taken.
  void send_config(const std::string& text);

 private:
  vboard::BoardTransport transport_;

 public:
  melk::Link link;
};

class ServiceBench {
 public:
  // The board's files belong to root, whoever runs the test, and its date stands
  // still: `ls -l` of a file and `date` are answered by the bench.
  ServiceBench();

  vboard::Bench bench;

  // Runs `-602` for this many board seconds beside the host. True when the
  // service itself ended before.
  bool run(double seconds, const std::function<void(Host&)>& host, int monitor_disabled = 0);

  bool status_file = false;  // as "getmon" asks for it
};

// The board of this process launched `encode`, holds nothing back and is healthy.
bool serves(const vboard::Board& board);
// And the service looks after it.
bool watches();

// Registers that keep what is written to them.
bool keeps_its_value(const FpgaRegister& one);

// Descriptors of this process.
long open_files();

// The example configuration, and the same with some keys changed or added.
std::string example_config();
std::string example_config_with(const std::vector<std::pair<std::string, int>>& changes);
