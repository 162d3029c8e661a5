// The supervision loop one cycle at a time, on a board whose FPGA registers stand
// still at values that the test chooses.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "supervision/supervisor.h"
#include "vboard/testing/bench.h"

// A healthy board: component input locked, video buffer at 40 and moving, no
// audio path supervised, `encode` alive, configured.
class SupervisionBench : public testing::Test {
 protected:
  SupervisionBench() : block(bench.attach_block()) {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.board().fpga.held = true;
    bench.set_fpga(kRegViBuff, 40);
    bench.set_fpga(kRegAuBuff, 24);
    bench.set_fpga(kRegVideoLevel, 12000);
    bench.set_fpga(kRegAudioLevel, 900);
    bench.put_file("hd.ini", "portActiveEnable=1\n");
    block.encode_alive = 1;
    global_status = kStatusInitial;
    status_vantorig = kStatusVantorigCleared;
    status_vantorig1 = 0;
    fpga_monitor_flags = 0;
    monitor_state = kMonitorWatching;
    global_monitor_state = 0;
    SystemOnUpdate = 0;
    config_sys = 1;
    status_init_flag = 0;
    vid_buf_init = 0;
    aud_buf_init = 0;
    SetInputMuxCH = 0;
    audio_at_beginning = 1;
    start_bf_st = 0;
    i2c_error_flag = 0;
    fpgaregs.AudioInput = 0;
    fpgaregs.inAudioEnable = 0;
    clear_supervision_counters();
    bench.trace();
  }
  ~SupervisionBench() override {
    fclose(fpga_file);
    fpga_file = nullptr;
  }

  // Runs the loop until it stands in the sleep that ends the cycle. A supervised
  // cycle takes 1.5 s and some milliseconds, so a limit of 1.25 s lies there.
  void cycle(double seconds = 1.25) {
    if (moving_) bench.set_fpga(kRegViOverallLow, ++video_overall_);
    run(seconds, 0);
  }
  void cycles(int count) {
    for (int i = 0; i < count; ++i) cycle();
  }
  // A cycle that ends in a restart: 5 s, 1 ms and 1 s for the launch and the
  // configuration, 15 s. `encode` reports itself alive afterwards.
  void restart_cycle() {
    cycle(22.25);
    block.encode_alive = 1;
  }

  void run(double seconds, int monitor_disabled) {
    EXPECT_FALSE(bench.run_for(static_cast<std::int64_t>(seconds * 1e6),
                               [monitor_disabled] { supervise(monitor_disabled != 0); }));
  }

  // Two captures at 40: the level stopped rising, then the audio phase is skipped.
  void capture_levels() {
    block.audio_start = 1;
    cycles(3);
    ASSERT_EQ(status_init_flag, 2);
    ASSERT_EQ(vid_buf_init, 40);
    bench.output();
    bench.trace();
  }

  void stall_video() { moving_ = false; }
  void move_video() { moving_ = true; }

  vboard::Bench bench;
  SharedBlock& block;

 private:
  bool moving_ = true;
  int video_overall_ = 0;
};

inline const std::string kRule(70, '=');
