// The host link: the input is what a host does to a running service, step by step.
//
//   00-3f  send this many + 1 of the next bytes, each once the board took the last
//   40-7f  put this many - 3f of the next bytes into the link at once
//   80-9f  wait, as kPauses_us
//   a0-bf  poll for this many - 9f bytes of an answer
//   c0-df  change the world
//   e0-ef  send the example configuration
//   f0-ff  fill the update FIFO with the next byte
//
// Whatever that was, the service lives on and takes bytes from the host.
#include <algorithm>

#include "hw/fpga_registers.h"
#include "tests/fuzz/targets.h"
#include "tests/fuzz/worlds.h"
#include "tests/service/service_bench.h"
#include "vboard/core/trace.h"
#include "vboard/core/update_fifo.h"
#include "vboard/models/bus.h"

namespace fuzz {

namespace {

using vboard::Board;
using vboard::board_wait;
using vboard::WaitFor;

constexpr int kMostSteps = 150;
constexpr double kLimit_s = 20'000;
constexpr std::int64_t kTaken_us = 60'000'000;
constexpr std::int64_t kLife_us = 4'000'000'000;  // after everything that is still queued
constexpr std::int64_t kSlice_us = 50'000;
constexpr std::uint8_t kPoll = 0xA5;
constexpr std::int64_t kPoll_us = 50'000;

constexpr std::int64_t kPauses_us[] = {
    1,       5,       10,        20,        60,        100,        1'000,      10'000,
    100'000, 500'000, 1'000'000, 3'000'000, 6'000'000, 14'999'000, 15'001'000, 31'000'000};

// Reads of the update FIFO's status that found nothing, in the latest slice of time.
constexpr int kManyPolls = 100;
int empty_polls = 0;

void count_empty_polls(const char* line) {
  static const std::string empty = [] {
    char text[64];
    snprintf(text, sizeof text, "fpga rd 0x%04x -> 0x0000",
             static_cast<unsigned>(kRegUpdateStatus));
    return std::string(text);
  }();
  if (empty == line) ++empty_polls;
}

class Guest {
 public:
  Guest(Board& board, Host& host) : board_(board), host_(host) {}

  void step(Reader& script) {
    const std::uint8_t what = script.byte();
    if (what < 0x40) {
      for (const char byte : script.bytes(what + 1U)) send(static_cast<std::uint8_t>(byte));
    } else if (what < 0x80) {
      for (const char byte : script.bytes(what - 0x3FU)) put(static_cast<std::uint8_t>(byte));
    } else if (what < 0xA0) {
      pause(kPauses_us[what & 0x0F]);
    } else if (what < 0xC0) {
      for (int polls = what - 0x9F; polls > 0; --polls) poll();
    } else if (what < 0xE0) {
      host_.world(world_operation(what & 0x1F));
    } else if (what < 0xF0) {
      for (const char byte : configuration()) send(static_cast<std::uint8_t>(byte));
    } else {
      fill_update(script.byte());
    }
  }

  // An update that waits for its FIFO does so for ever.
  static bool waits_for_fifo() { return empty_polls > kManyPolls; }

  bool takes_a_byte() {
    put(kPoll);
    return wait_for(WaitFor::kBoardTook, kLife_us);
  }

 private:
  void put(std::uint8_t byte) {
    const vboard::Locked hold(board_);
    vboard::LinkFifo& fifo = board_.link.to_board;
    if (fifo.head - fifo.tail < vboard::kLinkDepth)
      fifo.data[fifo.head++ % vboard::kLinkDepth] = byte;
    vboard::link_changed(board_);
  }

  void send(std::uint8_t byte) {
    put(byte);
    wait_for(WaitFor::kBoardTook, kTaken_us);
  }

  void poll() {
    send(kPoll);
    board_wait(WaitFor::kAnswer, kPoll_us);
    host_.take();
  }

  void pause(std::int64_t us) { wait_for(WaitFor::kNothing, us); }

  // The board polls its FIFO without a pause, so time is dear while it does: the
  // wait is cut short then.
  bool wait_for(WaitFor what, std::int64_t us) {
    for (std::int64_t left = us; left > 0; left -= kSlice_us) {
      empty_polls = 0;
      if (board_wait(what, std::min(left, kSlice_us))) return true;
      if (waits_for_fifo()) return false;
    }
    return false;
  }

  void fill_update(std::uint8_t byte) {
    while (vboard::feed_update(board_.fpga, &byte, 1) == 1) {
    }
  }

  static const std::string& configuration() {
    static const std::string bytes = [] {
      const std::string text = example_config();
      std::string all = {2, 0, 0};
      all += static_cast<char>(text.size() >> 8);
      all += static_cast<char>(text.size());
      return all + text;
    }();
    return bytes;
  }

  Board& board_;
  Host& host_;
};

}  // namespace

void host_link(std::string_view input) {
  ServiceBench service;
  vboard::set_trace_sink(count_empty_polls);
  Board& board = service.bench.board();
  bool done = false;
  service.run(kLimit_s, [&](Host& host) {
    host.wait(2);
    Guest guest(board, host);
    Reader script(input);
    for (int steps = 0; steps < kMostSteps && !script.empty(); ++steps) guest.step(script);
    if (!guest.takes_a_byte() && !guest.waits_for_fifo())
      finding("the board takes no byte any more");
    done = true;
    board.clock.limit_us = board.clock.now_us;
  });
  if (!done) finding("the service has ended, or the host was never served");
}

}  // namespace fuzz
