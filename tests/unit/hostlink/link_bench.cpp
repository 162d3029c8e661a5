// The host link's bench; see the header.
#include "tests/unit/hostlink/link_bench.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "hostlink/link.h"
#include "vboard/core/clock.h"
#include "vboard/models/bus.h"

using namespace vboard;

namespace {

constexpr std::int64_t kTakenLimit_us = 3'600'000'000;

void put(Board& board, int byte) {
  Locked hold(board);
  LinkFifo& fifo = board.link.to_board;
  fifo.data[fifo.head++ % kLinkDepth] = static_cast<std::uint8_t>(byte);
  link_changed(board);
}

}  // namespace

LinkBench::LinkBench() : link(open_link()) {
  bench.trace();
  bench.output();
}

LinkBench::~LinkBench() {
  if (link != nullptr) fclose(link);
}

void LinkBench::gulp(const std::vector<int>& bytes) {
  for (const int byte : bytes) put(bench.board(), byte);
}

void LinkBench::host_sends(std::vector<int> bytes, double seconds) {
  bench.beside("host", [bytes, seconds] {
    for (const int byte : bytes) {
      board_wait(WaitFor::kNothing, static_cast<std::int64_t>(seconds * 1e6));
      board_wait(WaitFor::kBoardTook, kTakenLimit_us);
      put(board_of_process(), byte);
    }
  });
}

void LinkBench::host_polls(int count) { host_sends(std::vector<int>(std::size_t(count), 0xA5)); }

bool LinkBench::still_runs_after(double seconds, std::function<void()> body) {
  auto ended = std::make_shared<bool>(false);
  bench.beside("program", [ended, body = std::move(body)] {
    body();
    *ended = true;
  });
  board_wait(WaitFor::kNothing, static_cast<std::int64_t>(seconds * 1e6));
  return !*ended;
}

std::vector<int> LinkBench::written() {
  std::vector<int> bytes;
  Locked hold(bench.board());
  LinkFifo& fifo = bench.board().link.to_host;
  while (fifo.head != fifo.tail) bytes.push_back(fifo.data[fifo.tail++ % kLinkDepth]);
  return bytes;
}

void LinkBench::fail_select(int skip) { seam::fail_call("select", "", skip, 1, EBADF); }

int open_files() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<int>(std::distance(begin(all), end(all)));
}

void raise_descriptor_limit() {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = limit.rlim_max;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

DescriptorsUsedUp::DescriptorsUsedUp() {
  raise_descriptor_limit();
  int fd = -1;
  do {
    fd = dup(STDERR_FILENO);
    if (fd < 0) {
      ADD_FAILURE() << "no more descriptors after " << taken_.size();
      return;
    }
    taken_.push_back(fd);
  } while (fd < FD_SETSIZE - 1);
}

DescriptorsUsedUp::~DescriptorsUsedUp() {
  for (const int fd : taken_) close(fd);
}
