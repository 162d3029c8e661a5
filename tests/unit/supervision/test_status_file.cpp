// The periodic status file and its thread.
#include "supervision/status_file.h"

#include <gmock/gmock.h>

#include <pthread.h>

#include <cerrno>
#include <functional>
#include <string>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using vboard::Bench;

struct Standard {
  int code;
  const char* line;
};

constexpr Standard kStandards[] = {
    {6, "VideoStd D1 PAL\n"},
    {7, "Unknown !!!(videoStd = 7)\n"},
    {8, "VideoStd 576P\n"},
    {9, "VideoStd 720P_60\n"},
    {10, "VideoStd 720P_50\n"},
    {11, "VideoStd 720P_30\n"},
    {12, "VideoStd 1080I_30\n"},
    {5, "Unknown !!!(videoStd = 5)\n"},
    {13, "Unknown !!!(videoStd = 13)\n"},
    {0, "Unknown !!!(videoStd = 0)\n"},
    {-1, "Unknown !!!(videoStd = -1)\n"},
};

class SaveToFile : public testing::TestWithParam<Standard> {};

TEST_P(SaveToFile, writes_the_six_lines) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.status_video_std = GetParam().code;
  block.status_width = 1920;
  block.status_height = 1080;
  block.status_vbr = 3;

  EXPECT_EQ(savetofile(25, 8000000), 0);

  EXPECT_EQ(bench.get_file("monitor.txt"), std::string("frame per sec   = 25\n"
                                                       "Video Bit Rate = 8000000\n") +
                                               GetParam().line +
                                               "width           = 1920\n"
                                               "height          = 1080\n"
                                               "VBR             = 3\n");
  EXPECT_EQ(bench.output(), "save monitor file \n");
}
INSTANTIATE_TEST_SUITE_P(Rows, SaveToFile, testing::ValuesIn(kStandards), [](const auto& row) {
  return row.param.code < 0 ? std::string("code_below_0")
                            : "code_" + std::to_string(row.param.code);
});

TEST(SaveToFile, rewrites_the_file_whole) {
  Bench bench;
  bench.attach_block();
  bench.put_file("monitor.txt", std::string(5000, 'x'));
  EXPECT_EQ(savetofile(1, 2), 0);
  EXPECT_EQ(bench.get_file("monitor.txt").find('x'), std::string::npos);
}

TEST(SaveToFile, file_that_cannot_be_opened_prints_and_returns_minus_1) {
  Bench bench;
  bench.attach_block();
  vboard::seam::fail_call("fopen", "monitor.txt", 0, 1, EROFS);
  EXPECT_EQ(savetofile(1, 2), -1);
  EXPECT_EQ(bench.output(), "save monitor file \nerror while open monitor.txt file\n");
  EXPECT_FALSE(bench.has_file("monitor.txt"));
}

class StatusThread : public testing::Test {
 protected:
  StatusThread() : block(bench.attach_block()) {
    SystemMonitorStatus = 0;
    block.status_frame_rate = 25;
    block.status_bitrate = 8000000;
  }
  ~StatusThread() override { SystemMonitorStatus = 0; }

  void idle() { vboard::board_wait(vboard::WaitFor::kNothing, vboard::kForever); }

  // Runs the thread until this time since its start.
  void until(double seconds, const std::function<void()>& start) {
    bench.run_for(static_cast<std::int64_t>(seconds * 1e6), [&] {
      start();
      idle();
    });
  }

  std::string first_line() { return bench.get_file("monitor.txt").substr(0, 21); }

  Bench bench;
  SharedBlock& block;
};

TEST_F(StatusThread, first_file_comes_after_25_s) {
  until(24.999, StartSystemMonitoring);
  EXPECT_FALSE(bench.has_file("monitor.txt"));
  until(0.002, [] {});
  EXPECT_EQ(first_line(), "frame per sec   = 25\n");
  EXPECT_EQ(bench.output(), "Start System Monitoring\nsave monitor file \n");
}

TEST_F(StatusThread, file_is_written_anew_every_25_s) {
  until(25.5, StartSystemMonitoring);
  block.status_frame_rate = 50;
  until(24.4, [] {});  // 49.9 s
  EXPECT_EQ(first_line(), "frame per sec   = 25\n");
  until(0.2, [] {});
  EXPECT_EQ(first_line(), "frame per sec   = 50\n");
  bench.output();
  until(250, [] {});
  EXPECT_EQ(vboard::lines(bench.output()).size(), 10u);
}

TEST_F(StatusThread, failed_write_is_skipped_and_the_next_one_comes) {
  vboard::seam::fail_call("fopen", "monitor.txt", 0, 1, EROFS);
  until(30, StartSystemMonitoring);
  EXPECT_FALSE(bench.has_file("monitor.txt"));
  EXPECT_EQ(bench.output(),
            "Start System Monitoring\nsave monitor file \nerror while open monitor.txt file\n");
  until(25, [] {});
  EXPECT_TRUE(bench.has_file("monitor.txt"));
}

TEST_F(StatusThread, frame_rate_is_a_byte_without_a_sign) {
  block.status_frame_rate = 240;
  until(26, StartSystemMonitoring);
  EXPECT_THAT(bench.get_file("monitor.txt"), testing::StartsWith("frame per sec   = 240\n"));
}

TEST_F(StatusThread, start_twice_starts_one_thread) {
  until(26, [] {
    StartSystemMonitoring();
    StartSystemMonitoring();
  });
  EXPECT_EQ(bench.trace({"thread"}).size(), 1u);
  EXPECT_EQ(bench.output(), "Start System Monitoring\nsave monitor file \n");
  EXPECT_EQ(SystemMonitorStatus, 1);
}

TEST_F(StatusThread, start_waits_a_tenth_of_a_second) {
  std::int64_t took_us = 0;
  until(1, [&] {
    const std::int64_t before_us = bench.now_us();
    StartSystemMonitoring();
    took_us = bench.now_us() - before_us;
  });
  EXPECT_EQ(took_us, 100000);
}

TEST_F(StatusThread, stop_before_start_does_nothing) {
  StopSystemMonitoring();
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(SystemMonitorStatus, 0);
}

bool went_on;
void* stop_and_go_on(void*) {
  StopSystemMonitoring();
  went_on = true;
  return nullptr;
}

TEST_F(StatusThread, stop_ends_the_caller_and_the_file_goes_on) {
  went_on = false;
  until(26, [] {
    StartSystemMonitoring();
    pthread_t caller = {};
    pthread_create(&caller, nullptr, stop_and_go_on, nullptr);
    pthread_detach(caller);
  });
  EXPECT_FALSE(went_on);
  EXPECT_EQ(SystemMonitorStatus, 0);
  EXPECT_EQ(bench.output(),
            "Start System Monitoring\nStop System Monitoring\nsave monitor file \n");
  until(25, [] {});
  EXPECT_EQ(bench.output(), "save monitor file \n");
}

TEST_F(StatusThread, started_again_after_a_stop_there_are_two) {
  until(26, [] {
    StartSystemMonitoring();
    SystemMonitorStatus = 0;
    StartSystemMonitoring();
  });
  EXPECT_EQ(bench.trace({"thread"}).size(), 2u);
}

// ---- messages, files and the thread in one order ------------------------------------------

TEST(SaveToFile, tells_writes_and_closes_in_one_order) {
  Bench bench;
  bench.attach_block();
  bench.follow();
  savetofile(1, 2);
  EXPECT_THAT(bench.stream(), ElementsAre("say save monitor file ", "file monitor.txt w",
                                          "file monitor.txt closed"));
}

TEST(SaveToFile, failed_opening_is_told_behind_it) {
  Bench bench;
  bench.attach_block();
  vboard::seam::fail_call("fopen", "monitor.txt", 0, 1, EACCES);
  bench.follow();
  savetofile(1, 2);
  EXPECT_THAT(bench.stream(), ElementsAre("say save monitor file ", "fopen monitor.txt = EACCES",
                                          "say error while open monitor.txt file"));
}

TEST_F(StatusThread, start_tells_marks_and_creates_in_one_order) {
  bench.follow();
  bench.watch("started", SystemMonitorStatus);
  until(0.15, [] { StartSystemMonitoring(); });
  EXPECT_THAT(bench.stream(),
              ElementsAre("say Start System Monitoring", "started = 1",
                          testing::StartsWith("thread"), "wait 100000", "wait 5000000"));
}

TEST_F(StatusThread, stop_tells_before_it_marks) {
  SystemMonitorStatus = 1;
  bench.follow();
  bench.watch("started", SystemMonitorStatus);
  until(1, [] {
    pthread_t caller = {};
    pthread_create(&caller, nullptr, stop_and_go_on, nullptr);
    pthread_detach(caller);
  });
  EXPECT_THAT(bench.stream(), ElementsAre(testing::StartsWith("thread"),
                                          "say Stop System Monitoring", "started = 0"));
}

}  // namespace
