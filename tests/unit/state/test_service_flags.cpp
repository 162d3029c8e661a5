// The shared flags as a fresh process has them.
#include "state/service_flags.h"

#include <gmock/gmock.h>

#include <vector>

#include "hostlink/dispatcher.h"
#include "supervision/status_file.h"
#include "supervision/supervisor.h"

namespace {

using testing::Each;
using testing::ElementsAre;

TEST(ServiceFlags, status_bytes_start_unhealthy_with_no_cause_held) {
  EXPECT_EQ(global_status, 0x90);
  EXPECT_EQ(status_vantorig, 0x80);
}

TEST(ServiceFlags, all_other_bytes_and_words_start_at_0) {
  EXPECT_EQ(status_vantorig1, 0);
  EXPECT_EQ(fpga_monitor_flags, 0);
  EXPECT_EQ(monitor_state, 0);
  EXPECT_EQ(global_monitor_state, 0);
  EXPECT_EQ(wrong_size_flag, 0);
  EXPECT_EQ(SystemOnUpdate, 0);
  EXPECT_EQ(config_sys, 0);
  EXPECT_EQ(dbg_encode, 0);
  EXPECT_EQ(SystemMonitorStatus, 0);
  EXPECT_EQ(status_init_flag, 0);
  EXPECT_EQ(vid_buf_init, 0);
  EXPECT_EQ(aud_buf_init, 0);
  EXPECT_EQ(fpga_hw_version, 0);
  EXPECT_EQ(SetInputMuxCH, 0);
  EXPECT_EQ(enable_audio, 0);
  EXPECT_EQ(audio_at_beginning, 0);
  EXPECT_EQ(start_bf_st, 0);
  EXPECT_EQ(i2c_error_flag, 0);
}

TEST(ServiceFlags, version_text_starts_empty) {
  EXPECT_THAT(std::vector<char>(ver, ver + kVersionTextSize), Each('\0'));
}

TEST(ServiceFlags, audio_descriptor_starts_as_that_of_no_stream) {
  EXPECT_THAT(std::vector<int>(hd_ac3_desc_parameters, hd_ac3_desc_parameters + kAc3DescriptorSize),
              ElementsAre(8, 0, 0, 7, 1, 15));
}

// The host reads these by number.
TEST(ServiceFlags, states_and_status_bytes_have_their_numbers) {
  EXPECT_EQ(kMonitorWatching, 0);
  EXPECT_EQ(kMonitorNoInput, 1);
  EXPECT_EQ(kMonitorRestart, 2);
  EXPECT_EQ(kMonitorStopped, 3);
  EXPECT_EQ(kStatusInitial, 0x90);
  EXPECT_EQ(kStatusHealthy, 0x91);
  EXPECT_EQ(kStatusVantorigCleared, 0x80);
  EXPECT_EQ(kVersionTextSize, 20);
}

}  // namespace
