// The supervision loop: checks, decisions, causes, level capture and the restart.
#include "supervision/supervisor.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "tests/unit/supervision/supervision_bench.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using vboard::lines;

using Supervise = SupervisionBench;

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++found;
  return found;
}

// --- before supervision ------------------------------------------------------

TEST_F(Supervise, without_a_configuration_only_time_passes) {
  config_sys = 0;
  global_status = 0x60;
  run(100.25, 0);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), testing::AllOf(testing::SizeIs(201), testing::Each("wait 500000")));
  EXPECT_EQ(global_status, 0x60);
  EXPECT_EQ(monitor_state, 0);
}

TEST_F(Supervise, config_sys_other_than_1_does_not_count) {
  config_sys = 2;
  run(10.25, 0);
  EXPECT_THAT(bench.trace(), testing::Each("wait 500000"));
}

TEST_F(Supervise, state_is_published_at_the_start_of_every_cycle) {
  config_sys = 0;
  monitor_state = 3;
  run(0.25, 0);
  EXPECT_EQ(global_monitor_state, 3);
}

TEST_F(Supervise, update_running_shows_healthy_and_holds_off) {
  SystemOnUpdate = 1;
  monitor_state = kMonitorRestart;
  global_status = 0x60;
  run(100.25, 0);
  EXPECT_EQ(global_status, 0x91);
  EXPECT_EQ(global_monitor_state, 2);
  EXPECT_THAT(bench.trace(), testing::Each("wait 500000"));
}

TEST_F(Supervise, update_other_than_1_is_no_update) {
  SystemOnUpdate = 2;
  cycle();
  EXPECT_THAT(bench.trace(), testing::Contains("fpga rd 0x1340 -> 0x2ee0"));
}

TEST_F(Supervise, disabled_dumps_every_tenth_cycle_and_never_restarts) {
  monitor_state = kMonitorRestart;
  global_status = 0x60;
  bench.set_fpga(kRegVideoLevel, 40000);
  run(4.75, 1);  // cycles 1 to 10 start at 0.0, 0.5 … 4.5 s
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 1);
  run(4.25, 1);  // 9 cycles more
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 0);
  run(0.25, 1);
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 1);
  EXPECT_EQ(global_status, 0x91);
  EXPECT_EQ(status_vantorig, 0x80);
  EXPECT_EQ(bench.board().encoder.launches, 0u);
}

TEST_F(Supervise, disabled_dumps_during_an_update_too) {
  SystemOnUpdate = 1;
  run(4.75, 1);
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 1);
}

// --- alive wait ------------------------------------------------------------------

TEST_F(Supervise, alive_encode_is_greeted_once) {
  cycle();
  EXPECT_THAT(bench.output(), StartsWith("encode is alive\n"));
  cycles(3);
  EXPECT_THAT(bench.output(), Not(HasSubstr("alive")));
  EXPECT_THAT(bench.trace({"wait"}), Not(testing::Contains("wait 1000")));
}

TEST_F(Supervise, encode_alive_after_some_polls_is_waited_for) {
  block.encode_alive = 0;
  bench.beside("encode", [this] {
    vboard::board_wait(vboard::WaitFor::kNothing, 4500);  // between the 5th and the 6th poll
    block.encode_alive = 1;
  });
  cycle();
  EXPECT_THAT(bench.output(), StartsWith("encode is alive\n"));
  const std::vector<std::string> waits = bench.trace({"wait"});
  EXPECT_EQ(std::count(waits.begin(), waits.end(), "wait 1000"), 5);
}

TEST_F(Supervise, encode_that_stays_dead_times_out_after_3001_polls) {
  block.encode_alive = 0;
  cycle(3.001 + 1.25);
  EXPECT_THAT(bench.output(), StartsWith("timeout!! encode is dead!!\n"));
  const std::vector<std::string> waits = bench.trace({"wait"});
  EXPECT_EQ(std::count(waits.begin(), waits.end(), "wait 1000"), 3001);
  EXPECT_EQ(monitor_state, 0);  // of no consequence by itself
  cycle();
  EXPECT_THAT(bench.output(), Not(HasSubstr("timeout")));
}

TEST_F(Supervise, alive_word_other_than_1_is_not_alive) {
  block.encode_alive = 2;
  cycle(3.001 + 1.25);
  EXPECT_THAT(bench.output(), StartsWith("timeout!! encode is dead!!\n"));
}

// --- a cycle's traffic -------------------------------------------------------------

// Reads of a register chip show as a write of the register number and a read.
std::vector<std::string> fpga_and_waits(vboard::Bench& bench) {
  return bench.trace({"fpga", "wait", "shell", "video0"});
}

TEST_F(Supervise, first_healthy_cycle_traffic_in_order) {
  cycle();
  EXPECT_THAT(fpga_and_waits(bench),
              ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028",  // present?
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0064 -> 0x0001",  // moving?
                          "wait 1000000",                                          // input
                          "fpga rd 0x1340 -> 0x2ee0", "fpga rd 0x1344 -> 0x0384",  // overflow?
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028",  // level capture
                          "wait 500000"));
  EXPECT_EQ(bench.output(), "encode is alive\n");
  EXPECT_EQ(global_status, 0x91);
  EXPECT_EQ(fpga_monitor_flags, 0);
}

TEST_F(Supervise, cycle_with_captured_levels_traffic_in_order) {
  capture_levels();
  cycle();
  EXPECT_THAT(fpga_and_waits(bench),
              ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028",
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0064 -> 0x0004", "wait 1000000",
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028",
                          "fpga rd 0x0080 -> 0x0018", "fpga rd 0x004c -> 0x0000",
                          "fpga rd 0x0050 -> 0x0000", "fpga rd 0x1340 -> 0x2ee0",
                          "fpga rd 0x1344 -> 0x0384", "wait 500000"));
  EXPECT_EQ(bench.output(), "");
}

TEST_F(Supervise, empty_video_buffer_is_not_asked_whether_it_moves) {
  bench.set_fpga(kRegViBuff, 0);
  cycle();
  const std::vector<std::string> fpga = bench.trace({"fpga"});
  EXPECT_THAT(fpga, Not(testing::Contains(StartsWith("fpga rd 0x0064"))));
}

TEST_F(Supervise, input_is_asked_between_the_video_check_and_its_wait) {
  cycle();
  std::vector<std::string> all = bench.trace();
  const auto moving = std::find(all.begin(), all.end(), "fpga rd 0x0064 -> 0x0001");
  const auto wait = std::find(all.begin(), all.end(), "wait 1000000");
  EXPECT_EQ(*(moving + 1), "open /dev/i2c-1");
  EXPECT_EQ(*(wait - 1), "close /dev/i2c-1");
}

// --- every tenth and nineteenth cycle -------------------------------------------------

TEST_F(Supervise, tenth_cycle_dumps_the_registers_and_begins_to_count_again) {
  cycles(9);
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 0);
  cycle();
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 1);
  cycles(9);
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 0);
  cycle();
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 1);
}

TEST_F(Supervise, dump_comes_before_the_checks) {
  cycles(9);
  bench.trace();
  cycle();
  const std::vector<std::string> traffic = bench.trace({"fpga"});
  EXPECT_EQ(traffic[0], "fpga wr 0x0040 <- 0x0001");
  EXPECT_EQ(traffic[17], "fpga rd 0x1380 -> 0x0000");
  EXPECT_EQ(traffic[18], "fpga wr 0x0040 <- 0x0001");
  EXPECT_EQ(traffic[19], "fpga rd 0x0060 -> 0x0028");
}

TEST_F(Supervise, unsupervised_cycles_count_for_the_dump) {
  config_sys = 0;
  run(4.25, 0);  // nine cycles
  config_sys = 1;
  cycle();
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 1);
}

TEST_F(Supervise, update_sets_the_cycle_counter_back) {
  config_sys = 0;
  run(4.25, 0);
  SystemOnUpdate = 1;
  run(0.25, 0);
  SystemOnUpdate = 0;
  config_sys = 1;
  cycles(9);
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 0);
  cycle();
  EXPECT_EQ(count(bench.output(), "VS_OVERALL"), 1);
}

TEST_F(Supervise, nineteenth_cycle_prints_the_status_record) {
  config_sys = 0;
  run(5.25, 0);  // eleven cycles: past the one that would count anew
  config_sys = 1;
  block.encode_version = 0x42;
  cycle();  // 12
  stall_video();
  cycles(6);  // 13 to 18
  bench.output();
  cycle();
  EXPECT_THAT(bench.output(), EndsWith("video_buf is not o.k., cnt=7\n"
                                       "status_hd.vid_buf_ok=0\n"
                                       "status_hd.vid_buf_counter=7\n"
                                       "status_hd.tvp_ok=1\n"
                                       "status_hd.aud_ok=1\n"
                                       "audio_at_beginning=1\n"
                                       "encode_ver = 0x42\n"));
  cycle();
  EXPECT_THAT(bench.output(), Not(HasSubstr("status_hd")));
}

TEST_F(Supervise, status_record_shows_a_healthy_and_a_silent_board_too) {
  config_sys = 0;
  run(8.75, 0);  // eighteen cycles
  config_sys = 1;
  fpgaregs.inAudioEnable = 1;
  audio_at_beginning = 0;
  cycle();
  EXPECT_THAT(bench.output(), EndsWith("status_hd.vid_buf_ok=1\n"
                                       "status_hd.vid_buf_counter=0\n"
                                       "status_hd.tvp_ok=1\n"
                                       "status_hd.aud_ok=0\n"
                                       "audio_at_beginning=0\n"
                                       "encode_ver = 0x0\n"));
}

// Audio counts as absent up to the cycle of the record, and as present in it.
TEST_F(Supervise, status_record_shows_the_audio_flag_of_its_own_cycle) {
  config_sys = 0;
  run(8.25, 0);  // seventeen cycles
  config_sys = 1;
  fpgaregs.inAudioEnable = 1;
  cycle();
  fpgaregs.inAudioEnable = 0;
  bench.output();
  cycle();
  EXPECT_THAT(bench.output(), HasSubstr("status_hd.tvp_ok=1\nstatus_hd.aud_ok=1\n"));
}

TEST_F(Supervise, status_record_never_comes_when_supervision_begins_early) {
  cycles(60);
  EXPECT_THAT(bench.output(), Not(HasSubstr("status_hd")));
}

// --- flags for the host -------------------------------------------------------------------

TEST_F(Supervise, flags_all_good_is_0) {
  fpga_monitor_flags = 0xFF;
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 0);
}

struct StateBits {
  int state;
  int flags;
};
class SuperviseState : public SupervisionBench, public testing::WithParamInterface<StateBits> {};
TEST_P(SuperviseState, stands_in_the_low_two_flags) {
  monitor_state = static_cast<std::uint8_t>(GetParam().state);
  cycle();
  EXPECT_EQ(fpga_monitor_flags, GetParam().flags);
}
INSTANTIATE_TEST_SUITE_P(Rows, SuperviseState,
                         testing::Values(StateBits{0, 0}, StateBits{3, 3}, StateBits{4, 0},
                                         StateBits{7, 3}, StateBits{254, 2}),
                         [](const auto& row) {
                           return "state_" + std::to_string(row.param.state);
                         });

TEST_F(Supervise, flag_4_no_moving_video_buffer) {
  stall_video();
  cycle();
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 4);
  move_video();
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 0);
}

TEST_F(Supervise, flag_4_empty_video_buffer) {
  bench.set_fpga(kRegViBuff, 0);
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 4);
}

TEST_F(Supervise, flag_8_no_input_and_the_state_before) {
  bench.world("source none");
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 8);  // the state at the start of this cycle was 0
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 8 | 1);
}

TEST_F(Supervise, flag_16_no_audio) {
  fpgaregs.inAudioEnable = 1;
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 16);
}

TEST_F(Supervise, flag_32_no_audio_at_the_beginning) {
  audio_at_beginning = 0;
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 32);
}

TEST_F(Supervise, flag_64_i2c_error_raised_after_the_input_check) {
  // The digital receiver without audio is waited for a second, in which somebody
  // raises the flag; the input check of the next cycle clears it again.
  fpgaregs.AudioInput = 1;
  bench.world("audio none");
  bench.beside("somebody", [] {
    vboard::board_wait(vboard::WaitFor::kNothing, 1'500'000);
    i2c_error_flag = 1;
  });
  cycle(2.25);
  EXPECT_EQ(fpga_monitor_flags, 64 | 16);
  cycle(2.25);
  EXPECT_EQ(fpga_monitor_flags, 16);
}

TEST_F(Supervise, i2c_error_raised_before_the_input_check_is_forgotten) {
  i2c_error_flag = 1;
  cycle();
  EXPECT_EQ(i2c_error_flag, 0);
  EXPECT_EQ(fpga_monitor_flags, 0);
}

// --- audio flag ------------------------------------------------------------------------------

TEST_F(Supervise, audio_disabled_counts_as_absent_without_asking) {
  fpgaregs.inAudioEnable = 1;
  fpgaregs.AudioInput = 1;
  cycle();
  EXPECT_THAT(bench.trace({"i2c 70"}), IsEmpty());
  EXPECT_EQ(fpga_monitor_flags, 16);
}

TEST_F(Supervise, digital_receiver_with_audio_counts_as_present) {
  fpgaregs.AudioInput = 1;
  block.audio_enable = 2;
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 0);
}

TEST_F(Supervise, digital_receiver_failing_counts_as_present) {
  fpgaregs.AudioInput = 1;
  bench.world("fault i2c-fail 70");
  cycle();
  EXPECT_EQ(fpga_monitor_flags, 0);
  EXPECT_THAT(bench.output(), HasSubstr("Error i2c_readbyte - 4192-\n"));
}

// --- restart ------------------------------------------------------------------------------------

std::vector<std::string> dump_traffic() {
  return {"fpga wr 0x0040 <- 0x0001", "fpga rd 0x0044 -> 0x0000", "fpga rd 0x0048 -> 0x0000",
          "fpga rd 0x004c -> 0x0000", "fpga rd 0x0050 -> 0x0000", "fpga rd 0x0060 -> 0x0028",
          "fpga rd 0x0064 -> 0x0001", "fpga rd 0x0068 -> 0x0000", "fpga rd 0x006c -> 0x0000",
          "fpga rd 0x0070 -> 0x0000", "fpga rd 0x0080 -> 0x0018", "fpga rd 0x0084 -> 0x0000",
          "fpga rd 0x0088 -> 0x0000", "fpga rd 0x008c -> 0x0000", "fpga rd 0x0090 -> 0x0000",
          "fpga rd 0x0094 -> 0x0000", "fpga rd 0x0098 -> 0x0000", "fpga rd 0x1380 -> 0x0000"};
}

std::vector<std::string> restart_traffic(bool composite) {
  std::vector<std::string> traffic = {"fpga wr 0x0040 <- 0x0001",
                                      "fpga rd 0x0060 -> 0x0028",
                                      "fpga wr 0x0040 <- 0x0001",
                                      "fpga rd 0x0064 -> 0x0001",
                                      "wait 1000000",
                                      "fpga rd 0x1340 -> 0x2ee0",
                                      "fpga rd 0x1344 -> 0x0384",  // the checks come first
                                      "fpga rd 0x1384 -> 0x0064",
                                      "fpga rd 0x1388 -> 0x0032",
                                      "fpga rd 0x138c -> 0x00c8",
                                      "fpga rd 0x1390 -> 0x0fa0",
                                      "fpga rd 0x1394 -> 0x0384",
                                      "fpga rd 0x1398 -> 0x2ee0"};
  for (const std::string& line : dump_traffic()) traffic.push_back(line);
  for (const char* line : {"shell killall encode", "shell killall encode", "wait 5000000"})
    traffic.emplace_back(line);
  if (composite) traffic.emplace_back("video0 S_INPUT 4");
  for (const char* line : {"fpga wr 0x1328 <- 0x0006", "shell ./encode&", "wait 1000",
                           "wait 1000000", "wait 15000000", "wait 500000"})
    traffic.emplace_back(line);
  return traffic;
}

class SuperviseRestart : public SupervisionBench {
 protected:
  SuperviseRestart() {
    bench.set_fpga(kRegEbBuff, 100);
    bench.set_fpga(kRegEbBuffMin, 50);
    bench.set_fpga(kRegEbBuffMax, 200);
    bench.set_fpga(kRegFrameSize, 4000);
    bench.set_fpga(kRegFrameSizeMin, 900);
    bench.set_fpga(kRegFrameSizeMax, 12000);
    monitor_state = kMonitorRestart;
  }
};

TEST_F(SuperviseRestart, traffic_and_waits_in_order) {
  restart_cycle();
  EXPECT_THAT(fpga_and_waits(bench), ElementsAreArray(restart_traffic(false)));
}

TEST_F(SuperviseRestart, composite_input_is_selected_again_first) {
  block.input_channel = 4;
  restart_cycle();
  EXPECT_THAT(fpga_and_waits(bench), ElementsAreArray(restart_traffic(true)));
}

TEST_F(SuperviseRestart, messages_in_order) {
  restart_cycle();
  EXPECT_EQ(bench.output(),
            "encode is alive\n" + kRule +
                "\n--> EB BUFF 100 , (50 .. 200) | Frame size 4000 , (900 .. 12000) (Before "
                "restart) \n" +
                kRule +
                "\nVS_OVERALL = 0x0 half = 0x0\n"
                "VS_RATE = 0x0 FSP inf\n"
                "VI_BUFF = 0x28 ,VI_BUFF_INIT = 0x0\n"
                "VI_OVERALL = 0x1\n"
                "VI_REF_OVERALL = 0x0 \n"
                "AU_BUFF = 0x18 ,AU_BUF_INIT =0x0\n"
                "AU_I2S_OVERALL = 0x0 \n"
                "AU_OVERALL = 0x0 \n"
                "AU_REF_OVERALL = 0x0 \n"
                "TS_MUX_STATUS_REGISTER = 0x0 \n"
                "frame dif = 1  (inf)\n"
                "Running Time 0 Day 0 Hour 0 Min\n"
                "restart!!\n"
                "counter=0 , global_status=0x90\n"
                "start Configure_System!!\n"
                "fname = /home/tovin/hd.ini\n"
                "start_hd - with system command\n"
                "end Configure_System!!\n");
}

TEST_F(SuperviseRestart, composite_input_message_stands_before_the_configuration) {
  block.input_channel = 4;
  restart_cycle();
  EXPECT_THAT(bench.output(),
              HasSubstr("global_status=0x90\nSet CH input to 4 \nstart Configure_System!!\n"));
}

TEST_F(SuperviseRestart, ends_watching_with_a_new_alive_wait) {
  status_init_flag = 2;
  block.do_fpga_restart = 1;
  restart_cycle();
  EXPECT_EQ(monitor_state, 0);
  EXPECT_EQ(status_init_flag, 0);
  EXPECT_EQ(global_status, 0x92);
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(bench.board().encoder.launches, 1u);
  bench.output();
  cycle();
  EXPECT_THAT(bench.output(), StartsWith("encode is alive\n"));
}

// The stream from after the first line that equals `line`.
std::vector<std::string> behind(std::vector<std::string> stream, const std::string& line) {
  const auto found = std::find(stream.begin(), stream.end(), line);
  EXPECT_NE(found, stream.end()) << line;
  if (found != stream.end()) stream.erase(stream.begin(), found + 1);
  return stream;
}

TEST_F(SuperviseRestart, messages_stores_and_traffic_in_one_order) {
  vid_buf_init = 40;
  global_status = 0x91;
  block.do_fpga_restart = 5;
  status_init_flag = 1;
  bench.follow();
  bench.watch("phase", status_init_flag);
  bench.watch("restart", block.do_fpga_restart);
  bench.watch("status", global_status);
  bench.watch("state", monitor_state);
  restart_cycle();
  EXPECT_THAT(
      behind(bench.stream(), "fpga rd 0x1344 -> 0x0384"),  // the last of the checks
      ElementsAre(
          "say " + kRule, "fpga rd 0x1384 -> 0x0064", "fpga rd 0x1388 -> 0x0032",
          "fpga rd 0x138c -> 0x00c8", "fpga rd 0x1390 -> 0x0fa0", "fpga rd 0x1394 -> 0x0384",
          "fpga rd 0x1398 -> 0x2ee0",
          "say --> EB BUFF 100 , (50 .. 200) | Frame size 4000 , (900 .. 12000) (Before restart) ",
          "say " + kRule, "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0044 -> 0x0000",
          "fpga rd 0x0048 -> 0x0000", "say VS_OVERALL = 0x0 half = 0x0", "fpga rd 0x004c -> 0x0000",
          "fpga rd 0x0050 -> 0x0000", "say VS_RATE = 0x0 FSP inf", "fpga rd 0x0060 -> 0x0028",
          "say VI_BUFF = 0x28 ,VI_BUFF_INIT = 0x28", "fpga rd 0x0064 -> 0x0001",
          "fpga rd 0x0068 -> 0x0000", "say VI_OVERALL = 0x1", "fpga rd 0x006c -> 0x0000",
          "fpga rd 0x0070 -> 0x0000", "say VI_REF_OVERALL = 0x0 ", "fpga rd 0x0080 -> 0x0018",
          "say AU_BUFF = 0x18 ,AU_BUF_INIT =0x0", "fpga rd 0x0084 -> 0x0000",
          "fpga rd 0x0088 -> 0x0000", "say AU_I2S_OVERALL = 0x0 ", "fpga rd 0x008c -> 0x0000",
          "fpga rd 0x0090 -> 0x0000", "say AU_OVERALL = 0x0 ", "fpga rd 0x0094 -> 0x0000",
          "fpga rd 0x0098 -> 0x0000", "say AU_REF_OVERALL = 0x0 ", "fpga rd 0x1380 -> 0x0000",
          "say TS_MUX_STATUS_REGISTER = 0x0 ", "say frame dif = 1  (inf)",
          "say Running Time 0 Day 0 Hour 0 Min",
          // the restart itself
          "phase = 0", "say restart!!", "say counter=0 , global_status=0x91", "restart = 0",
          "shell killall encode", "shell killall encode", "wait 5000000",
          "status = 146",  // 0x90 | 1 * 2
          "say start Configure_System!!", "restart = 1", "fpga wr 0x1328 <- 0x0006",
          "say fname = /home/tovin/hd.ini", "file /home/tovin/hd.ini r",
          "say start_hd - with system command", "restart = 0", "shell ./encode&", "wait 1000",
          "say end Configure_System!!", "file /home/tovin/hd.ini closed", "wait 1000000",
          "wait 15000000", "state = 0", "wait 500000"));
}

TEST_F(SuperviseRestart, composite_input_is_selected_between_the_count_and_the_configuration) {
  block.input_channel = 4;
  bench.follow();
  bench.watch("status", global_status);
  restart_cycle();
  const std::vector<std::string> seen = behind(bench.stream(), "wait 5000000");
  ASSERT_GE(seen.size(), 6u);
  EXPECT_THAT(
      std::vector<std::string>(seen.begin(), seen.begin() + 6),
      ElementsAre("status = 146", "open /dev/video0", "video0 S_INPUT 4", "say Set CH input to 4 ",
                  "close /dev/video0", "say start Configure_System!!"));
}

TEST_F(Supervise, overflows_are_sensed_told_and_acted_on_in_one_order) {
  bench.set_fpga(kRegVideoLevel, 34900);
  bench.set_fpga(kRegAudioLevel, 1990);
  bench.follow();
  bench.watch("state", monitor_state);
  bench.watch("cause", status_vantorig);
  cycle();
  EXPECT_THAT(behind(bench.stream(), "wait 1000000"),
              ElementsAre("fpga rd 0x1340 -> 0x8854", "say VIDEO BUFFER -------->, video_ovf = 1",
                          "fpga rd 0x1344 -> 0x07c6", "fpga wr 0x0040 <- 0x0001",
                          "fpga rd 0x0060 -> 0x0028",  // the level capture
                          "state = 2", "say RESTART - video buffer overflow!!", "cause = 129",
                          "say RESTART - audio buffer overflow!!", "wait 500000"));
}

TEST_F(Supervise, missing_dsp_audio_resets_then_asks_in_one_order) {
  fpgaregs.AudioInput = 2;
  fpgaregs.inAudioEnable = 2;
  bench.set_fpga(kRegAudioLevel, 0);
  cycles(5);
  bench.follow();
  bench.watch("state", monitor_state);
  bench.watch("cause", status_vantorig);
  cycle(0.5);  // the reset pulse ends within it
  std::vector<std::string> seen = bench.stream();
  ASSERT_GE(seen.size(), 11u);
  seen.resize(11);
  EXPECT_THAT(
      seen, ElementsAre("say Start prog_gpio,input_data = 28", "open /dev/fpga r+b", "fpga line 28",
                        "wait 10", "say Start prog_gpio,input_data = 29", "open /dev/fpga r+b",
                        "fpga line 29", "state = 2", "say RESTART!! - no audio!!", "cause = 132",
                        "fpga wr 0x0040 <- 0x0001"));
}

TEST_F(Supervise, first_cycle_waits_for_encode_before_anything_else) {
  block.encode_alive = 0;
  bench.follow();
  cycle(4);
  std::vector<std::string> seen = bench.stream();
  ASSERT_GT(seen.size(), 3002u);
  EXPECT_EQ(seen[3000], "wait 1000");
  EXPECT_EQ(seen[3001], "say timeout!! encode is dead!!");
  EXPECT_EQ(seen[3002], "fpga wr 0x0040 <- 0x0001");
}

TEST_F(Supervise, capture_of_the_video_level_in_one_order) {
  cycle();
  bench.follow();
  bench.watch("level", vid_buf_init);
  bench.watch("phase", status_init_flag);
  bench.watch("status", global_status);
  bench.watch("restart", block.do_fpga_restart);
  block.do_fpga_restart = 1;
  global_status = 0x60;
  bench.stream();
  cycle();
  EXPECT_THAT(behind(bench.stream(), "fpga rd 0x1344 -> 0x0384"),
              ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028", "level = 40",
                          "phase = 1", "status = 145", "restart = 0", "wait 500000"));
}

TEST_F(Supervise, level_far_away_in_one_order) {
  capture_levels();
  bench.set_fpga(kRegViBuff, 57);
  bench.follow();
  bench.watch("state", monitor_state);
  bench.watch("cause", status_vantorig);
  bench.watch("detail", status_vantorig1);
  status_vantorig1 = 7;
  bench.stream();
  cycle(1.25);
  const std::vector<std::string> seen = behind(bench.stream(), "wait 1000000");
  ASSERT_GE(seen.size(), 9u);
  EXPECT_THAT(std::vector<std::string>(seen.begin(), seen.begin() + 9),
              ElementsAre("detail = 0", "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0039",
                          "state = 2", "say restart - video_buf is far away from vid_buf_init",
                          "cause = 135", "fpga rd 0x0080 -> 0x0018", "fpga rd 0x004c -> 0x0000",
                          "fpga rd 0x0050 -> 0x0000"));
}

TEST_F(SuperviseRestart, takes_encode_off_hold_before_it_applies) {
  block.do_fpga_restart = 1;
  cycle(3);  // within the 5 s behind the kills
  EXPECT_EQ(block.do_fpga_restart, 0);
}

TEST_F(SuperviseRestart, forced_from_outside_records_no_cause) {
  restart_cycle();
  EXPECT_EQ(status_vantorig, 0x80);
}

TEST_F(SuperviseRestart, failing_configuration_is_not_looked_at) {
  bench.world("faults clear");
  std::remove(bench.path("hd.ini").c_str());
  cycle(21.25);  // no launch, no wait after the apply
  EXPECT_THAT(bench.output(), HasSubstr("can not open hd.ini file\n"));
  EXPECT_EQ(monitor_state, 0);
  EXPECT_EQ(bench.trace().back(), "wait 500000");
}

TEST_F(SuperviseRestart, counter_stands_in_the_status_and_saturates_at_7) {
  const int expected[] = {0x92, 0x94, 0x96, 0x98, 0x9A, 0x9C, 0x9E, 0x9E, 0x9E};
  for (const int status : expected) {
    monitor_state = kMonitorRestart;
    restart_cycle();
    EXPECT_EQ(global_status, status);
  }
  EXPECT_THAT(bench.output(), HasSubstr("counter=7 , global_status=0x9e\n"));
}

TEST_F(SuperviseRestart, high_nibble_of_the_status_is_kept) {
  global_status = 0x6F;
  restart_cycle();
  EXPECT_EQ(global_status, 0xF2);  // 0x60 | 0x02 | 0x90
}

TEST_F(SuperviseRestart, healthy_cycle_clears_the_counter) {
  restart_cycle();
  cycle();
  EXPECT_EQ(global_status, 0x91);
  monitor_state = kMonitorRestart;
  restart_cycle();
  EXPECT_EQ(global_status, 0x92);
}

TEST_F(SuperviseRestart, healthy_cycle_with_a_video_buffer_that_missed_keeps_the_counter) {
  restart_cycle();
  stall_video();
  cycle();
  EXPECT_EQ(global_status, 0x91);
  monitor_state = kMonitorRestart;
  restart_cycle();
  EXPECT_EQ(global_status, 0x94);
}

TEST_F(SuperviseRestart, missed_video_cycles_are_forgotten) {
  stall_video();
  cycle();  // restart: one cycle counted … and cleared
  monitor_state = kMonitorWatching;
  bench.output();
  cycle();
  EXPECT_THAT(bench.output(), Not(HasSubstr("cnt=3")));
}

// --- states
// ------------------------------------------------------------------------------------------

TEST_F(Supervise, stopped_shows_healthy_and_stays) {
  monitor_state = kMonitorStopped;
  global_status = 0x60;
  bench.set_fpga(kRegVideoLevel, 40000);
  cycles(5);
  EXPECT_EQ(monitor_state, 3);
  EXPECT_EQ(global_status, 0x91);
  EXPECT_EQ(status_vantorig, 0x80);
  EXPECT_EQ(status_init_flag, 0);
}

TEST_F(Supervise, stopped_still_obeys_a_check_that_asks_for_a_restart) {
  // The frozen input asks in any state; the restart comes in the same cycle.
  monitor_state = kMonitorStopped;
  bench.world("fault video-freeze");
  cycles(9);
  EXPECT_EQ(monitor_state, 3);
  restart_cycle();
  EXPECT_EQ(monitor_state, 0);
  EXPECT_EQ(status_vantorig, 0x86);
}

TEST_F(Supervise, unknown_state_idles) {
  monitor_state = 9;
  global_status = 0x60;
  bench.set_fpga(kRegVideoLevel, 40000);
  cycles(3);
  EXPECT_EQ(monitor_state, 9);
  EXPECT_EQ(global_status, 0x60);
  EXPECT_EQ(status_init_flag, 0);
  EXPECT_EQ(bench.board().encoder.launches, 0u);
}

// --- causes: overflow
// --------------------------------------------------------------------------------

TEST_F(Supervise, video_level_at_the_limit_is_no_overflow) {
  bench.set_fpga(kRegVideoLevel, 34899);
  bench.set_fpga(kRegAudioLevel, 1989);
  cycle();
  EXPECT_EQ(monitor_state, 0);
  EXPECT_EQ(bench.output(), "encode is alive\n");
}

TEST_F(Supervise, video_overflow_asks_for_a_restart_with_81) {
  bench.set_fpga(kRegVideoLevel, 34900);
  cycle();
  EXPECT_EQ(bench.output(),
            "encode is alive\nVIDEO BUFFER -------->, video_ovf = 1\n"
            "RESTART - video buffer overflow!!\n");
  EXPECT_EQ(status_vantorig, 0x81);
  EXPECT_EQ(monitor_state, 2);
}

TEST_F(Supervise, audio_overflow_asks_for_a_restart_with_82) {
  bench.set_fpga(kRegAudioLevel, 1990);
  cycle();
  EXPECT_EQ(bench.output(), "encode is alive\nRESTART - audio buffer overflow!!\n");
  EXPECT_EQ(status_vantorig, 0x82);
  EXPECT_EQ(monitor_state, 2);
}

TEST_F(Supervise, both_overflows_print_both_and_keep_the_video_cause) {
  bench.set_fpga(kRegVideoLevel, 40000);
  bench.set_fpga(kRegAudioLevel, 2500);
  cycle();
  EXPECT_THAT(bench.output(), EndsWith("RESTART - video buffer overflow!!\n"
                                       "RESTART - audio buffer overflow!!\n"));
  EXPECT_EQ(status_vantorig, 0x81);
}

TEST_F(Supervise, overflow_is_remembered_until_the_restart) {
  monitor_state = 9;  // idle: sensed, not acted on
  bench.set_fpga(kRegVideoLevel, 40000);
  cycle();
  bench.set_fpga(kRegVideoLevel, 12000);
  monitor_state = kMonitorWatching;
  cycle();
  EXPECT_EQ(status_vantorig, 0x81);
  restart_cycle();
  cycle();
  EXPECT_EQ(monitor_state, 0);
}

TEST_F(Supervise, audio_overflow_is_forgotten_with_the_restart) {
  bench.set_fpga(kRegAudioLevel, 2500);
  cycle();
  bench.set_fpga(kRegAudioLevel, 900);
  restart_cycle();
  cycle();
  EXPECT_EQ(monitor_state, 0);
  EXPECT_EQ(global_status, 0x91);
}

TEST_F(Supervise, overflow_comes_before_a_lost_input) {
  bench.world("source none");
  bench.set_fpga(kRegVideoLevel, 40000);
  cycle();
  EXPECT_EQ(monitor_state, 2);
  EXPECT_EQ(status_vantorig, 0x81);
}

// --- the first cause is kept
// ----------------------------------------------------------------------------

struct Kept {
  int before;
  int after;
};
class SuperviseCause : public SupervisionBench, public testing::WithParamInterface<Kept> {};
TEST_P(SuperviseCause, is_stored_only_over_low_bits_of_0) {
  status_vantorig = static_cast<std::uint8_t>(GetParam().before);
  bench.set_fpga(kRegVideoLevel, 40000);
  cycle();
  EXPECT_EQ(status_vantorig, GetParam().after);
  EXPECT_EQ(monitor_state, 2);
}
INSTANTIATE_TEST_SUITE_P(Rows, SuperviseCause,
                         testing::Values(Kept{0x80, 0x81}, Kept{0x00, 0x81}, Kept{0x88, 0x81},
                                         Kept{0xF8, 0x81}, Kept{0x82, 0x82}, Kept{0x87, 0x87},
                                         Kept{0x84, 0x84}),
                         [](const auto& row) {
                           return "held_" + std::to_string(row.param.before);
                         });

// --- causes: stalled video
// --------------------------------------------------------------------------------

TEST_F(Supervise, tenth_cycle_without_moving_video_asks_with_83) {
  cycle();
  bench.output();
  stall_video();
  for (int i = 1; i <= 9; ++i) {
    cycle();
    EXPECT_THAT(bench.output(),
                HasSubstr("video_buf is not o.k., cnt=" + std::to_string(i) + "\n"));
    EXPECT_EQ(monitor_state, 0);
  }
  cycle();
  EXPECT_THAT(bench.output(), EndsWith("video_buf is not o.k., cnt=10\n"
                                       "tvp is o.k. , and There is no video_buf\n"));
  EXPECT_EQ(monitor_state, 2);
  EXPECT_EQ(status_vantorig, 0x83);
}

TEST_F(Supervise, stall_counts_anew_in_the_cycle_that_restarts) {
  cycle();
  stall_video();
  cycles(10);  // the tenth asks and clears the count
  bench.output();
  restart_cycle();
  EXPECT_THAT(bench.output(), StartsWith("video_buf is not o.k., cnt=1\n"));
}

TEST_F(Supervise, stall_raises_the_restart_counter_by_4) {
  cycle();
  stall_video();
  cycles(10);
  restart_cycle();
  EXPECT_EQ(global_status, 0x9A);  // 4 + 1 = 5
  cycles(9);                       // the restart cleared the count; healthy cycles keep the counter
  EXPECT_EQ(monitor_state, 0);
  cycle();
  EXPECT_EQ(monitor_state, 2);
  bench.output();
  restart_cycle();
  EXPECT_THAT(bench.output(), HasSubstr("counter=9 , "));  // 5 + 4
  EXPECT_EQ(global_status, 0x9E);
}

TEST_F(Supervise, moving_again_clears_the_missed_cycles) {
  cycle();
  stall_video();
  cycles(9);
  move_video();
  cycle();
  stall_video();
  cycles(9);
  EXPECT_EQ(monitor_state, 0);
  EXPECT_EQ(status_vantorig, 0x80);
}

// --- causes: input lost and back
// ----------------------------------------------------------------------------

TEST_F(Supervise, lost_input_clears_bit_0_of_the_status) {
  bench.world("source none");
  global_status = 0x91;
  cycle();
  EXPECT_EQ(monitor_state, 1);
  EXPECT_EQ(global_status, 0x90);
  EXPECT_EQ(status_vantorig, 0x80);
  EXPECT_EQ(block.do_fpga_restart, 1);  // the digitizer's monitor holds the FPGA
  EXPECT_EQ(bench.output(), "encode is alive\n");
}

TEST_F(Supervise, input_back_asks_with_85) {
  bench.world("source none");
  cycles(3);
  bench.world("source component");
  bench.output();
  cycle();
  EXPECT_EQ(bench.output(), "restart - tvp is back!!\n");
  EXPECT_EQ(monitor_state, 2);
  EXPECT_EQ(status_vantorig, 0x85);
  restart_cycle();
  EXPECT_EQ(monitor_state, 0);
}

TEST_F(Supervise, audio_overflow_without_input_asks_with_82_and_both_messages) {
  bench.world("source none");
  cycle();
  bench.output();
  bench.set_fpga(kRegAudioLevel, 2500);
  cycle();
  EXPECT_EQ(bench.output(), "restart!! - audio ovf!!!\naudio buffer overflow!!\n");
  EXPECT_EQ(monitor_state, 2);
  EXPECT_EQ(status_vantorig, 0x82);
}

TEST_F(Supervise, audio_overflow_outweighs_the_input_that_is_back) {
  bench.world("source none");
  cycle();
  bench.output();
  bench.world("source component");
  bench.set_fpga(kRegAudioLevel, 2500);
  cycle();
  EXPECT_EQ(bench.output(), "restart!! - audio ovf!!!\naudio buffer overflow!!\n");
  EXPECT_EQ(status_vantorig, 0x82);
}

TEST_F(Supervise, video_overflow_alone_does_not_end_the_wait_for_input) {
  bench.world("source none");
  cycle();
  bench.set_fpga(kRegVideoLevel, 40000);
  cycles(3);
  EXPECT_EQ(monitor_state, 1);
}

TEST_F(Supervise, monitor_that_cannot_read_counts_as_no_input) {
  bench.world("fault i2c-fail 5c");
  cycle();
  EXPECT_EQ(monitor_state, 1);
  EXPECT_EQ(fpga_monitor_flags, 8);
}

TEST_F(Supervise, composite_channel_asks_the_decoder_on_every_fifth_cycle) {
  SetInputMuxCH = 4;
  bench.world("source composite");
  cycles(10);
  EXPECT_EQ(bench.trace({"i2c 5c"}).size(), 0u);
  EXPECT_EQ(count(bench.output(), "Tvp 5150 is status register  lock "), 2);
  EXPECT_EQ(monitor_state, 0);
}

TEST_F(Supervise, composite_unlocked_reading_is_taken_back_by_the_next_cycle) {
  SetInputMuxCH = 4;
  bench.world("source none");
  int lost_at = 0;
  for (int i = 1; i <= 5 && lost_at == 0; ++i) {
    cycle();
    if (monitor_state == 1) lost_at = i;
  }
  EXPECT_GE(lost_at, 1);
  cycle();  // not asked: counts as locked
  EXPECT_EQ(monitor_state, 2);
  EXPECT_EQ(status_vantorig, 0x85);
}

// --- causes: frozen input
// ------------------------------------------------------------------------------------

TEST_F(Supervise, ten_equal_green_levels_without_input_ask_with_86) {
  bench.world("fault video-freeze");
  cycles(9);
  EXPECT_EQ(monitor_state, 1);
  EXPECT_EQ(status_vantorig, 0x80);
  bench.output();
  restart_cycle();
  // No line end: the rule follows on the same line.
  EXPECT_THAT(bench.output(), HasSubstr("restart!! - no_tvp" + kRule + "\n"));
  EXPECT_EQ(status_vantorig, 0x86);
  EXPECT_EQ(fpga_monitor_flags, 8 | 1);  // the state is that of the cycle's start
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

// Each reading opens the bus: the monitor, the first sample, the green level.
TEST_F(Supervise, first_sample_is_read_once_a_loss) {
  const auto readings = [this] { return bench.trace({"open /dev/i2c-1"}).size(); };
  bench.world("fault video-freeze");
  monitor_state = 9;
  cycle();
  EXPECT_EQ(readings(), 3u);
  cycle();
  EXPECT_EQ(readings(), 2u);
  bench.world("fault video-freeze off");
  cycle();
  EXPECT_EQ(readings(), 1u);
  bench.world("fault video-freeze");
  cycle();
  EXPECT_EQ(readings(), 3u);
  cycles(8);
  EXPECT_EQ(readings(), 16u);
  restart_cycle();
  EXPECT_EQ(readings(), 2u);
  cycle();
  EXPECT_EQ(readings(), 3u);  // the restart began a new loss
}

TEST_F(Supervise, green_level_that_moves_never_asks) {
  bench.world("source none");
  cycles(40);
  EXPECT_EQ(monitor_state, 1);
  EXPECT_EQ(status_vantorig, 0x80);
}

TEST_F(Supervise, input_in_between_begins_the_count_anew) {
  bench.world("fault video-freeze");
  monitor_state = 9;
  cycles(9);
  bench.world("fault video-freeze off");
  cycle();
  bench.world("fault video-freeze");
  cycles(9);
  EXPECT_EQ(status_vantorig, 0x80);
  restart_cycle();
  EXPECT_EQ(status_vantorig, 0x86);
}

TEST_F(Supervise, green_level_that_moves_once_begins_the_count_anew) {
  bench.world("source none");
  bench.world("fault video-freeze");
  monitor_state = 9;
  cycles(9);
  bench.world("fault video-freeze off");
  cycle();  // another level, from now on the one to compare with
  bench.world("fault video-freeze");
  cycles(9);
  EXPECT_EQ(status_vantorig, 0x80);
  restart_cycle();
  EXPECT_EQ(status_vantorig, 0x86);
}

TEST_F(Supervise, green_level_that_cannot_be_read_counts_as_frozen) {
  bench.world("fault i2c-fail 5c");
  cycles(9);
  EXPECT_EQ(status_vantorig, 0x80);
  restart_cycle();
  EXPECT_EQ(status_vantorig, 0x86);
}

// --- causes: level far away
// -------------------------------------------------------------------------------------

struct Level {
  const char* name;
  int captured;
  int level;
  bool far;
};
constexpr Level kLevels[] = {
    {"same", 40, 40, false},
    {"16_above", 40, 56, false},
    {"17_above", 40, 57, true},
    {"16_below", 40, 24, false},
    {"17_below", 40, 23, true},
    {"empty", 40, 0, true},
    {"captured_16_and_empty", 16, 0, false},
    {"captured_16_level_32", 16, 32, false},
    // Below 16 the lower bound wraps round: 12 - 16 = 4 294 967 292.
    {"captured_12_same", 12, 12, true},
    {"captured_15_same", 15, 15, true},
    {"captured_15_empty", 15, 0, true},
    {"captured_nothing", 0, 40, true},
    {"highest", 65535, 65535, false},
};
class SuperviseLevel : public SupervisionBench, public testing::WithParamInterface<Level> {
 protected:
  SuperviseLevel() {
    status_init_flag = 2;
    vid_buf_init = static_cast<std::uint16_t>(GetParam().captured);
    bench.set_fpga(kRegViBuff, GetParam().level);
  }
};
TEST_P(SuperviseLevel, far_away_asks_with_87_and_restarts_in_the_same_cycle) {
  if (GetParam().far) {
    restart_cycle();
  } else {
    cycle();
  }
  constexpr char kMessage[] = "restart - video_buf is far away from vid_buf_init\n";
  EXPECT_EQ(count(bench.output(), kMessage) > 0, GetParam().far);
  EXPECT_EQ(status_vantorig, GetParam().far ? 0x87 : 0x80);
  EXPECT_EQ(bench.board().encoder.launches, GetParam().far ? 1u : 0u);
}
TEST_P(SuperviseLevel, without_input_nothing_is_asked) {
  bench.world("source none");
  cycle();
  EXPECT_EQ(status_vantorig, 0x80);
  EXPECT_EQ(monitor_state, 1);
}
INSTANTIATE_TEST_SUITE_P(Rows, SuperviseLevel, testing::ValuesIn(kLevels),
                         [](const auto& row) { return row.param.name; });

struct Detail {
  const char* name;
  int video;
  int audio;
  int bits;
};
class SuperviseDetail : public SupervisionBench, public testing::WithParamInterface<Detail> {};
TEST_P(SuperviseDetail, shows_the_empty_buffers) {
  status_init_flag = 2;
  vid_buf_init = 16;  // 0 is not far away
  status_vantorig1 = 0xFF;
  bench.set_fpga(kRegViBuff, GetParam().video);
  bench.set_fpga(kRegAuBuff, GetParam().audio);
  cycle();
  EXPECT_EQ(status_vantorig1, GetParam().bits);
}
INSTANTIATE_TEST_SUITE_P(Rows, SuperviseDetail,
                         testing::Values(Detail{"neither", 16, 5, 0}, Detail{"video", 0, 5, 2},
                                         Detail{"audio", 16, 0, 8}, Detail{"both", 0, 0, 10}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Supervise, details_stay_while_levels_are_not_captured) {
  status_vantorig1 = 0xFF;
  cycle();
  EXPECT_EQ(status_vantorig1, 0xFF);
}

// --- level capture
// ------------------------------------------------------------------------------------------------

struct Capture {
  const char* name;
  std::vector<int> levels;
  int phase;
  int captured;
};
class SuperviseCapture : public SupervisionBench, public testing::WithParamInterface<Capture> {};
TEST_P(SuperviseCapture, takes_the_video_level_when_it_stops_rising) {
  for (const int level : GetParam().levels) {
    bench.set_fpga(kRegViBuff, level);
    cycle();
  }
  EXPECT_EQ(status_init_flag, GetParam().phase);
  EXPECT_EQ(vid_buf_init, GetParam().captured);
}
INSTANTIATE_TEST_SUITE_P(
    Rows, SuperviseCapture,
    testing::Values(Capture{"first_level_only_rises", {40}, 0, 0},
                    Capture{"same_again_is_captured", {40, 40}, 1, 40},
                    Capture{"rising_is_followed", {20, 30, 40}, 0, 0},
                    Capture{"fallen_level_is_captured", {20, 40, 35}, 1, 35},
                    Capture{"lowest_that_counts", {11, 11}, 1, 11},
                    Capture{"10_does_not_count", {10, 10, 10}, 0, 0},
                    Capture{"low_in_between_keeps_the_maximum", {40, 5, 40}, 1, 40}),
    [](const auto& row) { return row.param.name; });

TEST_F(Supervise, audio_phase_takes_the_audio_level_when_it_stops_rising) {
  cycles(2);
  ASSERT_EQ(status_init_flag, 1);
  bench.trace();
  bench.set_fpga(kRegAuBuff, 20);
  cycle();
  EXPECT_EQ(status_init_flag, 1);
  EXPECT_THAT(bench.trace({"fpga"}),
              ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028",
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0064 -> 0x0003",
                          "fpga rd 0x1340 -> 0x2ee0", "fpga rd 0x1344 -> 0x0384",
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0080 -> 0x0014"));
  bench.set_fpga(kRegAuBuff, 24);
  cycle();
  EXPECT_EQ(status_init_flag, 1);
  bench.trace();
  cycle();
  EXPECT_EQ(status_init_flag, 2);
  EXPECT_EQ(aud_buf_init, 24);
  const std::vector<std::string> fpga = bench.trace({"fpga"});
  ASSERT_GE(fpga.size(), 4u);
  EXPECT_THAT(std::vector<std::string>(fpga.end() - 4, fpga.end()),
              ElementsAre("fpga wr 0x0040 <- 0x0001", "fpga rd 0x0080 -> 0x0018",
                          "fpga rd 0x004c -> 0x0000", "fpga rd 0x0050 -> 0x0000"));
}

TEST_F(Supervise, audio_phase_waits_for_a_level_for_ever) {
  bench.set_fpga(kRegAuBuff, 10);
  cycles(40);
  EXPECT_EQ(status_init_flag, 1);
  EXPECT_EQ(aud_buf_init, 0);
  EXPECT_EQ(monitor_state, 0);
}

TEST_F(Supervise, audio_phase_is_skipped_without_audio_at_the_beginning) {
  audio_at_beginning = 0;
  fpgaregs.inAudioEnable = 1;  // stays absent
  cycles(3);
  EXPECT_EQ(status_init_flag, 2);
  EXPECT_EQ(aud_buf_init, 0);
}

TEST_F(Supervise, audio_phase_is_skipped_when_encode_says_so) {
  block.audio_start = 1;
  cycles(3);
  EXPECT_EQ(status_init_flag, 2);
  EXPECT_EQ(aud_buf_init, 0);
}

TEST_F(Supervise, audio_start_word_other_than_1_skips_nothing) {
  block.audio_start = 2;
  cycles(3);
  EXPECT_EQ(status_init_flag, 1);
}

TEST_F(Supervise, maximum_of_the_audio_phase_meets_the_next_video_level) {
  cycles(4);  // video 40 twice, audio 24 twice: the maximum stands at 24
  ASSERT_EQ(status_init_flag, 2);
  monitor_state = kMonitorRestart;
  restart_cycle();
  bench.set_fpga(kRegViBuff, 20);
  cycle();  // not above 24: taken at once
  EXPECT_EQ(status_init_flag, 1);
  EXPECT_EQ(vid_buf_init, 20);
}

TEST_F(Supervise, captured_12_restarts_on_the_next_locked_cycle) {
  bench.set_fpga(kRegViBuff, 12);
  audio_at_beginning = 0;
  fpgaregs.inAudioEnable = 1;
  cycles(3);
  ASSERT_EQ(status_init_flag, 2);
  EXPECT_EQ(vid_buf_init, 12);
  EXPECT_EQ(status_vantorig, 0x80);
  restart_cycle();
  EXPECT_EQ(status_vantorig, 0x87);
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

TEST_F(Supervise, other_capture_phase_captures_nothing) {
  status_init_flag = 7;
  cycles(3);
  EXPECT_EQ(status_init_flag, 7);
}

// --- low buffer
// -----------------------------------------------------------------------------------------------------

TEST_F(Supervise, eleventh_low_level_asks_for_a_restart_without_a_cause) {
  bench.set_fpga(kRegViBuff, 10);
  cycles(10);
  EXPECT_EQ(monitor_state, 0);
  bench.output();
  cycle();
  EXPECT_EQ(bench.output(), "monitor sense low buffer\n");
  EXPECT_EQ(monitor_state, 2);
  EXPECT_EQ(status_vantorig, 0x80);
  EXPECT_EQ(global_status, 0x91);  // the decision of the same pass finds the rest healthy
}

TEST_F(Supervise, low_levels_are_counted_across_other_levels_and_restarts) {
  bench.set_fpga(kRegViBuff, 10);
  cycles(5);
  monitor_state = kMonitorRestart;
  restart_cycle();
  cycles(4);
  bench.set_fpga(kRegViBuff, 20);
  cycle();
  bench.set_fpga(kRegViBuff, 10);
  cycle();  // the tenth
  EXPECT_EQ(monitor_state, 0);
  cycle();
  EXPECT_EQ(monitor_state, 2);
}

TEST_F(Supervise, low_level_count_begins_anew_once_it_has_asked) {
  bench.set_fpga(kRegViBuff, 10);
  cycles(11);
  restart_cycle();
  cycles(10);
  EXPECT_EQ(monitor_state, 0);
  cycle();
  EXPECT_EQ(monitor_state, 2);
}

TEST_F(Supervise, low_level_and_lost_input_of_one_pass_end_without_input) {
  bench.set_fpga(kRegViBuff, 10);
  cycles(10);
  bench.world("source none");
  bench.output();
  cycle();
  EXPECT_EQ(bench.output(), "monitor sense low buffer\n");
  EXPECT_EQ(monitor_state, 1);  // the decision comes last
}

// --- healthy
// --------------------------------------------------------------------------------------------------------

TEST_F(Supervise, healthy_lets_the_fpga_run) {
  block.do_fpga_restart = 1;
  cycle();
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(global_status, 0x91);
}

struct DspFlag {
  int input;
  int running;
};
class SuperviseDspFlag : public SupervisionBench, public testing::WithParamInterface<DspFlag> {};
TEST_P(SuperviseDspFlag, follows_the_audio_path) {
  fpgaregs.AudioInput = static_cast<std::uint8_t>(GetParam().input);
  cycle(2.25);
  EXPECT_EQ(start_bf_st, GetParam().running);
}
INSTANTIATE_TEST_SUITE_P(Rows, SuperviseDspFlag,
                         testing::Values(DspFlag{0, 0}, DspFlag{1, 0}, DspFlag{2, 1},
                                         DspFlag{3, 0}),
                         [](const auto& row) {
                           return "input_" + std::to_string(row.param.input);
                         });

// --- causes: audio
// -----------------------------------------------------------------------------------------------------

TEST_F(Supervise, audio_after_a_start_without_asks_with_84) {
  audio_at_beginning = 0;
  fpgaregs.inAudioEnable = 1;
  cycles(3);
  EXPECT_EQ(monitor_state, 0);
  fpgaregs.inAudioEnable = 0;
  bench.output();
  cycle();
  EXPECT_EQ(bench.output(), "audio after no audio!!\n");
  EXPECT_EQ(monitor_state, 2);
  EXPECT_EQ(status_vantorig, 0x84);
}

class SuperviseDspAudio : public SupervisionBench {
 protected:
  SuperviseDspAudio() {
    fpgaregs.AudioInput = 2;
    fpgaregs.inAudioEnable = 2;
  }
};

TEST_F(SuperviseDspAudio, present_and_counting_asks_nothing) {
  cycle();
  EXPECT_EQ(bench.output(), "encode is alive\n");
  EXPECT_THAT(bench.trace({"fpga"}),
              ElementsAre("fpga rd 0x1344 -> 0x0384", "fpga rd 0x1344 -> 0x0384",
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028",
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0064 -> 0x0001",
                          "fpga rd 0x1340 -> 0x2ee0", "fpga rd 0x1344 -> 0x0384",
                          "fpga wr 0x0040 <- 0x0001", "fpga rd 0x0060 -> 0x0028"));
}

TEST_F(SuperviseDspAudio, same_reading_for_ever_is_no_fault) {
  // The reading is held against 0, never against the one before.
  cycles(20);
  EXPECT_THAT(bench.output(), Not(HasSubstr("au_overall")));
  EXPECT_EQ(status_vantorig, 0x80);
}

TEST_F(SuperviseDspAudio, second_reading_of_0_counts_as_not_moving) {
  vboard::seam::fail_call("ioctl", "/dev/fpga 16", 1, 1, EIO);  // present, then unreadable
  audio_at_beginning = 3;
  cycle();
  EXPECT_EQ(bench.output(), "encode is alive\nau_overall doesnt change!,audio_at_beginning=3\n");
}

TEST_F(SuperviseDspAudio, missing_five_times_resets_the_dsp_and_restarts_with_84) {
  bench.set_fpga(kRegAudioLevel, 0);
  cycles(5);
  EXPECT_EQ(count(bench.output(), "no audio!!!!!!!!,we will check again!,audio_at_beginning=1\n"),
            5);
  EXPECT_EQ(monitor_state, 0);
  bench.trace();

  restart_cycle();

  EXPECT_THAT(bench.output(), StartsWith("Start prog_gpio,input_data = 28\n"
                                         "Start prog_gpio,input_data = 29\n"
                                         "RESTART!! - no audio!!\n"));
  const std::vector<std::string> traffic = bench.trace({"open /dev/fpga", "fpga", "wait"});
  EXPECT_THAT(std::vector<std::string>(traffic.begin(), traffic.begin() + 6),
              ElementsAre("open /dev/fpga r+b", "fpga line 28", "wait 10", "open /dev/fpga r+b",
                          "fpga line 29", "fpga wr 0x0040 <- 0x0001"));
  EXPECT_EQ(status_vantorig, 0x84);
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

TEST_F(SuperviseDspAudio, audio_in_between_clears_the_count) {
  bench.set_fpga(kRegAudioLevel, 0);
  cycles(4);
  bench.set_fpga(kRegAudioLevel, 900);
  cycle();
  bench.set_fpga(kRegAudioLevel, 0);
  cycles(5);
  EXPECT_EQ(status_vantorig, 0x80);
  restart_cycle();
  EXPECT_EQ(status_vantorig, 0x84);
}

TEST_F(SuperviseDspAudio, asks_again_on_every_cycle_once_it_has_asked) {
  bench.set_fpga(kRegAudioLevel, 0);
  cycles(5);
  bench.set_fpga(kRegAudioLevel, 900);  // too late
  for (unsigned restarts = 1; restarts <= 4; ++restarts) {
    restart_cycle();
    EXPECT_EQ(bench.board().encoder.launches, restarts);
  }
  EXPECT_EQ(count(bench.output(), "RESTART!! - no audio!!\n"), 4);
}

TEST_F(SuperviseDspAudio, other_audio_settings_end_it_for_as_long_as_they_last) {
  bench.set_fpga(kRegAudioLevel, 0);
  cycles(5);
  restart_cycle();
  fpgaregs.inAudioEnable = 1;
  cycles(3);
  EXPECT_EQ(bench.board().encoder.launches, 1u);
  fpgaregs.inAudioEnable = 2;
  restart_cycle();
  EXPECT_EQ(bench.board().encoder.launches, 2u);
}

struct AudioSettings {
  int input;
  int enable;
};
class SuperviseAudioSettings : public SupervisionBench,
                               public testing::WithParamInterface<AudioSettings> {};
TEST_P(SuperviseAudioSettings, other_than_2_and_2_are_not_checked) {
  fpgaregs.AudioInput = static_cast<std::uint8_t>(GetParam().input);
  fpgaregs.inAudioEnable = static_cast<std::uint8_t>(GetParam().enable);
  bench.set_fpga(kRegAudioLevel, 0);
  for (int i = 0; i < 8; ++i) cycle(GetParam().input == 1 && GetParam().enable != 1 ? 2.25 : 1.25);
  EXPECT_THAT(bench.output(), Not(HasSubstr("no audio")));
  EXPECT_EQ(status_vantorig, 0x80);
}
INSTANTIATE_TEST_SUITE_P(Rows, SuperviseAudioSettings,
                         testing::Values(AudioSettings{0, 0}, AudioSettings{1, 2},
                                         AudioSettings{2, 1}, AudioSettings{2, 0},
                                         AudioSettings{0, 2}),
                         [](const auto& row) {
                           return "input_" + std::to_string(row.param.input) + "_enable_" +
                                  std::to_string(row.param.enable);
                         });

// --- start values
// ---------------------------------------------------------------------------------------------------

TEST_F(Supervise, clearing_the_counters_forgets_everything_counted) {
  cycle();
  stall_video();
  cycles(9);
  clear_supervision_counters();
  bench.output();
  cycle();
  // The previous reading is 0 again, so the buffer seems to move once more.
  EXPECT_EQ(bench.output(), "encode is alive\n");
  cycles(9);
  EXPECT_EQ(monitor_state, 0);
}

TEST_F(Supervise, failing_fpga_reads_as_zeros_and_ends_in_a_restart) {
  bench.world("fault fpga-fail");
  cycles(9);
  EXPECT_EQ(monitor_state, 0);
  cycle();
  EXPECT_EQ(status_vantorig, 0x83);
  EXPECT_EQ(monitor_state, 2);
}

// --- restart request -----------------------------------------------------------

using FpgaMonitor = SupervisionBench;

TEST_F(FpgaMonitor, request_1_ends_encode) {
  block.do_fpga_restart = 1;
  EXPECT_EQ(fpga_monitor(), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("shell killall encode"));
  EXPECT_EQ(bench.output(), "from vantorig: shared_memory->do_fpga_restart = 1\n");
}

TEST_F(FpgaMonitor, other_values_do_nothing) {
  for (const int request : {0, 2, -1, 257}) {
    block.do_fpga_restart = request;
    EXPECT_EQ(fpga_monitor(), 1);
  }
  EXPECT_THAT(bench.trace(), IsEmpty());
  EXPECT_EQ(bench.output(), "");
}

}  // namespace
