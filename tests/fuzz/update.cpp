// Software updates: a size, then the archive in blocks, with pauses, cut anywhere.
//
//   first byte    bit 0: through the FPGA's FIFO, else over the link; bit 1: shell
//                 commands run, else they fail
//   second byte   below f0: a size of two bytes follows, else one of four
//   then          00-7f  this many + 1 of the next bytes
//                 80-bf  256 bytes, this many - 7f times
//                 c0-ff  a pause, as kPauses_us
//
// The archive is whole or empty at any time, and whole once all bytes came, however
// they came; the service goes on serving.
#include <algorithm>
#include <cerrno>

#include "state/service_flags.h"
#include "tests/fuzz/targets.h"
#include "tests/service/service_bench.h"
#include "vboard/core/trace.h"
#include "vboard/core/update_fifo.h"
#include "vboard/interpose/seam.h"
#include "vboard/models/bus.h"

namespace fuzz {

namespace {

using vboard::Board;
using vboard::board_wait;
using vboard::WaitFor;

constexpr char kArchive[] = "tmp/new_hd_version.tar.gz";
constexpr int kOverLink = 11;
constexpr int kThroughFpga = 43;
constexpr std::int64_t kLargest = 5'000'000;
constexpr std::size_t kMostCompleted = 16'384;  // bytes that a cut transfer is completed with
constexpr int kMostSteps = 60;
constexpr std::int64_t kTaken_us = 60'000'000;
// The FIFO is polled without a pause, so that long ones are dear there.
constexpr std::int64_t kPauses_us[] = {1, 10, 100, 1'000, 5'000, 10'000, 15'001'000, 31'000'000};
constexpr std::size_t kFifoPauses = 6;

struct Plan {
  bool fifo = false;
  bool shell = false;
  std::int32_t size = 0;
  std::string archive;  // what has been delivered
};

Plan take_plan(Reader& reader) {
  Plan plan;
  const std::uint8_t ways = reader.byte();
  plan.fifo = (ways & 1) != 0;
  plan.shell = (ways & 2) != 0;
  std::uint32_t size = 0;
  for (int bytes = reader.byte() < 0xF0 ? 2 : 4; bytes > 0; --bytes)
    size = size << 8 | reader.byte();
  plan.size = static_cast<std::int32_t>(size);
  return plan;
}

bool acceptable(const Plan& plan) { return plan.size >= 0 && plan.size <= kLargest; }

std::size_t missing(const Plan& plan) {
  return acceptable(plan) ? static_cast<std::size_t>(plan.size) - plan.archive.size() : 0;
}

void through_link(Board& board, std::string_view bytes) {
  for (const char byte : bytes) {
    {
      const vboard::Locked hold(board);
      vboard::LinkFifo& fifo = board.link.to_board;
      fifo.data[fifo.head++ % vboard::kLinkDepth] = static_cast<std::uint8_t>(byte);
      vboard::link_changed(board);
    }
    board_wait(WaitFor::kBoardTook, kTaken_us);
  }
}

// The FIFO takes words; an odd byte at the end has a zero after it.
void through_fpga(Board& board, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size() || i % 2 != 0; ++i) {
    const auto byte = i < bytes.size() ? static_cast<std::uint8_t>(bytes[i]) : std::uint8_t{0};
    while (vboard::feed_update(board.fpga, &byte, 1) == 0) board_wait(WaitFor::kNothing, 1000);
  }
}

// Delivers no more than is missing: what comes beyond is no part of the archive.
// Words stay whole until the last one.
void deliver(Board& board, Plan& plan, std::string_view bytes) {
  bytes = bytes.substr(0, missing(plan));
  if (plan.fifo && bytes.size() < missing(plan))
    bytes = bytes.substr(0, bytes.size() & ~std::size_t{1});
  plan.fifo ? through_fpga(board, bytes) : through_link(board, bytes);
  plan.archive += bytes;
}

std::string block(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 5 + 3);
  return bytes;
}

void step(Board& board, Plan& plan, Reader& script) {
  const std::uint8_t what = script.byte();
  if (what < 0x80) {
    deliver(board, plan, script.bytes(what + 1U));
  } else if (what < 0xC0) {
    deliver(board, plan, block(256 * (what - 0x7FU)));
  } else {
    const std::size_t pauses = plan.fifo ? kFifoPauses : std::size(kPauses_us);
    board_wait(WaitFor::kNothing, kPauses_us[what % pauses]);
  }
}

// What must be on disk when nothing moves any more.
void check_archive(const vboard::Bench& bench, const Plan& plan) {
  if (!acceptable(plan)) {
    if (bench.has_file(kArchive)) finding("size %d: an archive", plan.size);
    return;
  }
  if (!bench.has_file(kArchive)) finding("size %d: no archive", plan.size);
  const std::string stored = bench.get_file(kArchive);
  const std::string expected = missing(plan) == 0 ? plan.archive : "";
  if (stored != expected)
    finding("size %d, %zu delivered: %zu stored", plan.size, plan.archive.size(), stored.size());
}

void update_from(Host& host, vboard::Bench& bench, Plan& plan, Reader& script) {
  Board& board = bench.board();
  host.wait(2);
  for (const int byte : command_with_number(plan.fifo ? kThroughFpga : kOverLink,
                                            static_cast<std::uint32_t>(plan.size)))
    through_link(board, std::string(1, static_cast<char>(byte)));
  host.wait(0.01);
  for (int steps = 0; steps < kMostSteps && !script.empty(); ++steps) {
    if (missing(plan) > 0) check_archive(bench, plan);
    step(board, plan, script);
  }
  if (missing(plan) > kMostCompleted) return;
  deliver(board, plan, block(missing(plan)));
  host.wait(5);
  if (SystemOnUpdate != 0) finding("size %d: the update has no end", plan.size);
  if (shared_memory->do_fpga_restart != 1) finding("encode is not held");
  if (host.ask(1) != std::vector<int>{0x2D}) finding("the link does not serve");
}

}  // namespace

void update(std::string_view input) {
  Reader script(input);
  Plan plan = take_plan(script);
  ServiceBench service;
  vboard::set_trace_sink(nullptr);
  vboard::Bench& bench = service.bench;
  bench.put_file("tmp/something", "");
  if (!plan.shell) vboard::seam::fail_call("system", "", 0, -1, EAGAIN);
  bool done = false;
  service.run(20'000, [&](Host& host) {
    update_from(host, bench, plan, script);
    done = true;
    bench.board().clock.limit_us = bench.board().clock.now_us;
  });
  if (!done) finding("the service has ended");
  check_archive(bench, plan);
}

}  // namespace fuzz
