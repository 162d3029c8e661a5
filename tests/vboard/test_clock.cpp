// Board time: waits that cost nothing, the order of threads, and the end of a run.
#include <gmock/gmock.h>

#include <sys/time.h>
#include <unistd.h>

#include <ctime>
#include <string>
#include <vector>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "vboard/testing/bench.h"

namespace {

using namespace vboard;
using testing::ElementsAre;

std::int64_t machine_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

TEST(VirtualTime, wait_moves_the_clock_by_itself) {
  Bench bench;
  const std::int64_t start = machine_ms();
  usleep(3'600'000'000u);
  EXPECT_EQ(bench.now_us(), 3'600'000'000);
  EXPECT_LT(machine_ms() - start, 5000);
}

TEST(VirtualTime, stands_still_without_waits) {
  Bench bench;
  std::string work;
  for (int i = 0; i < 1000000; ++i) work += 'x';
  EXPECT_EQ(work.size(), 1000000u);
  EXPECT_EQ(bench.now_us(), 0);
}

TEST(VirtualTime, device_calls_cost_a_little) {
  Bench bench;
  fpga_file = fopen("/dev/fpga", "r+b");
  const std::int64_t before = bench.now_us();
  GetValue(kRegHwVersion);
  EXPECT_EQ(bench.now_us() - before, 5);
  fclose(fpga_file);
  fpga_file = nullptr;
}

// A program that asks a missing device again and again still reaches the end.
TEST(VirtualTime, failing_calls_cost_a_little_too) {
  Bench bench;
  fpga_file = nullptr;
  EXPECT_FALSE(bench.run_for(10'000, [] {
    for (;;) GetValue(kRegHwVersion);
  }));
  EXPECT_EQ(bench.now_us(), 10'000);
}

TEST(VirtualTime, wall_clock_follows) {
  Bench bench;
  timeval before = {};
  timeval after = {};
  gettimeofday(&before, nullptr);
  usleep(2'500'000);
  gettimeofday(&after, nullptr);
  const long passed_us = (after.tv_sec - before.tv_sec) * 1000000 + after.tv_usec - before.tv_usec;
  EXPECT_EQ(passed_us, 2'500'001);  // and the second look costs one
}

TEST(VirtualTime, run_ends_at_its_limit) {
  Bench bench;
  int rounds = 0;
  EXPECT_FALSE(bench.run_for(10'500, [&] {
    for (;; ++rounds) usleep(1000);
  }));
  EXPECT_EQ(rounds, 10);
  EXPECT_EQ(bench.now_us(), 10'500);
}

TEST(VirtualTime, run_that_returns_tells_so) {
  Bench bench;
  EXPECT_TRUE(bench.run_for(10'500, [] { usleep(1000); }));
  EXPECT_EQ(bench.now_us(), 1000);
}

// One thread at a time, the earliest deadline first; equal deadlines in the order
// of going to wait.
std::vector<std::string> interleaving() {
  Bench bench;
  std::vector<std::string> order;
  const auto every = [&order](const char* name, unsigned period_us) {
    for (int i = 0; i < 3; ++i) {
      board_wait(WaitFor::kNothing, period_us);
      order.push_back(std::string(name) + " " + std::to_string(board_now_us()));
    }
  };
  bench.beside("fast", [&] { every("fast", 100); });
  bench.beside("slow", [&] { every("slow", 200); });
  bench.run_for(1'000, [] { usleep(10'000); });
  return order;
}

TEST(Scheduler, earliest_deadline_runs_first) {
  // fast waits for 200 at 100, slow since 0: slow comes first there.
  EXPECT_THAT(interleaving(),
              ElementsAre("fast 100", "slow 200", "fast 200", "fast 300", "slow 400", "slow 600"));
}

TEST(Scheduler, interleaves_the_same_way_every_time) {
  const std::vector<std::string> first = interleaving();
  for (int i = 0; i < 20; ++i) ASSERT_EQ(interleaving(), first);
}

TEST(ScaledTime, runs_faster_than_the_machine) {
  Bench bench(TimeMode::kScaled, 1000);
  const std::int64_t start = machine_ms();
  const std::int64_t before = bench.now_us();
  usleep(20'000'000);  // 20 ms of the machine
  EXPECT_GE(bench.now_us() - before, 20'000'000);
  EXPECT_GE(machine_ms() - start, 19);
  EXPECT_LT(machine_ms() - start, 10'000);
}

TEST(RealTime, follows_the_machine) {
  Bench bench(TimeMode::kReal);
  const std::int64_t start = machine_ms();
  const std::int64_t before = bench.now_us();
  usleep(30'000);
  EXPECT_GE(bench.now_us() - before, 30'000);
  EXPECT_GE(machine_ms() - start, 29);
}

}  // namespace
