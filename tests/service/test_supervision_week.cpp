// A week of supervised operation: a fault every hour, which is then removed.
#include <gmock/gmock.h>

#include <sched.h>

#include <iterator>
#include <vector>

#include "tests/service/supervision_case.h"
#include "vboard/core/trace.h"

namespace {

constexpr int kHours = 7 * 24;
constexpr double kHour = 3600;
constexpr int kClearStatus = 25;

// What happens within an hour. Each lasts long enough to be noticed and is over
// before the restart that it causes: one launch of encode an hour.
struct Event {
  const char* begin;
  double seconds;
  const char* end;
  int code;
};

constexpr Event kEvents[] = {
    {"fault video-overflow", 4, "fault video-overflow off", 0x81},
    {"fault audio-overflow", 4, "fault audio-overflow off", 0x82},
    {"fault stall", 18, "fault stall off", 0x83},  // ten cycles of 1.5 s
    {"fault video-loss", 600, "fault video-loss off", 0x85},
    {"fault video-freeze", 18, "fault video-freeze off", 0x86},
    {"fault encode-hang", 18, "fault encode-hang off", 0x83},
    {"encode crash", 1, "faults clear", 0x87},
    {"fault level-jump", 10, "fault level-jump off", 0x87},
};
constexpr int kKinds = static_cast<int>(std::size(kEvents));
static_assert(kHours % kKinds == 0);

// One thread of the board runs at a time: on one core they take turns faster.
void stay_on_one_core() {
  cpu_set_t core;
  CPU_ZERO(&core);
  CPU_SET(sched_getcpu(), &core);
  sched_setaffinity(0, sizeof core, &core);
}

TEST(BoardWeek, a_fault_every_hour_ends_healthy_with_one_launch_for_each) {
  stay_on_one_core();
  SupervisedBoard board;
  board.seconds = (kHours + 1) * kHour;
  board.service.status_file = true;
  vboard::set_trace_sink(nullptr);  // a week of trace is of no use
  std::vector<int> last_status;

  board.run([&](Host& host) {
    const double began = host.now();
    for (int hour = 0; hour < kHours; ++hour) {
      const Event& event = kEvents[hour % kKinds];
      // Another phase of the loop every time.
      host.wait(began + hour * kHour + 60 + hour * 0.37 - host.now());
      board.world(event.begin);
      host.wait(event.seconds);
      board.world(event.end);
      host.wait(120);
      const std::vector<int> status = SupervisedBoard::status(host);
      ASSERT_EQ(status, (std::vector<int>{0x91, event.code, 0})) << "hour " << hour;
      ASSERT_EQ(board.launches(), static_cast<unsigned>(2 + hour)) << event.begin;
      host.send({kClearStatus});
      board.service.bench.output();
    }
    host.wait(began + kHours * kHour - host.now());
    last_status = SupervisedBoard::status(host);
    EXPECT_TRUE(board.healthy());
  });

  EXPECT_THAT(last_status, testing::ElementsAre(0x91, 0x80, 0));
  EXPECT_EQ(board.launches(), 169u);  // the configuration and 168 restarts
  EXPECT_TRUE(board.service.bench.has_file("monitor.txt"));
}

}  // namespace
