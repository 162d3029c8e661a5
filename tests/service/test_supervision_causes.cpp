// Every cause of a restart, provoked from outside the board, and the way back.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/service/supervision_case.h"
#include "video/tvp5150.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr int kClearStatus = 25;
constexpr int kGetMonitorState = 15;

// --- faults that come and go ----------------------------------------------------

struct Cause {
  const char* name;
  std::vector<const char*> provoke;  // each is given time to show
  int code;
  const char* message;
  std::vector<const char*> mend;
  std::vector<std::pair<std::string, int>> settings;
  const char* source = "component";
  const char* standard = "1080i50";
};

const std::vector<std::pair<std::string, int>> kComposite = {
    {"VideoInput", 4}, {"mpgVidRes", 6}, {"mpgAudCodec", 1}};
const std::vector<std::pair<std::string, int>> kVga = {{"VideoInput", 2}, {"mpgVidRes", 25}};

const Cause kCauses[] = {
    {"video_overflow",
     {"fault video-overflow"},
     0x81,
     "RESTART - video buffer overflow!!\n",
     {"fault video-overflow off"},
     {}},
    {"audio_overflow",
     {"fault audio-overflow"},
     0x82,
     "RESTART - audio buffer overflow!!\n",
     {"fault audio-overflow off"},
     {}},
    {"audio_overflow_without_input",
     {"fault video-loss", "fault audio-overflow"},
     0x82,
     "restart!! - audio ovf!!!\naudio buffer overflow!!\n",
     {"fault audio-overflow off", "fault video-loss off"},
     {}},
    {"stalled_buffer",
     {"fault stall"},
     0x83,
     "tvp is o.k. , and There is no video_buf\n",
     {"fault stall off"},
     {}},
    {"hanging_encode",
     {"fault encode-hang"},
     0x83,
     "tvp is o.k. , and There is no video_buf\n",
     {"fault encode-hang off"},
     {}},
    {"component_input_back",
     {"fault video-loss", "fault video-loss off"},
     0x85,
     "restart - tvp is back!!\n",
     {},
     {}},
    {"vga_input_back",
     {"fault video-loss", "fault video-loss off"},
     0x85,
     "restart - tvp is back!!\n",
     {},
     kVga,
     "vga",
     "1400x1050"},
    // An unlocked reading of the decoder is followed by cycles that do not ask.
    {"composite_input_lost",
     {"fault video-loss"},
     0x85,
     "restart - tvp is back!!\n",
     {"fault video-loss off"},
     kComposite,
     "composite",
     "576i"},
    {"frozen_input",
     {"fault video-freeze"},
     0x86,
     "restart!! - no_tvp====",
     {"fault video-freeze off"},
     {}},
    {"level_far_away",
     {"fault level-jump"},
     0x87,
     "restart - video_buf is far away from vid_buf_init\n",
     {},
     {}},
    // The buffer drains without encode.
    {"crashed_encode",
     {"encode crash"},
     0x87,
     "restart - video_buf is far away from vid_buf_init\n",
     {},
     {}},
};

class RestartCause : public testing::TestWithParam<Cause> {};

TEST_P(RestartCause, provoked_from_outside_restarts_and_recovers) {
  const Cause& cause = GetParam();
  SupervisedBoard board;
  board.config = example_config_with(cause.settings);
  board.world(std::string("source ") + cause.source);
  board.world(std::string("set-standard ") + cause.standard);
  std::vector<int> status_after;
  board.run([&](Host& host) {
    EXPECT_EQ(status_vantorig, 0x80);
    for (const char* operation : cause.provoke) {
      board.world(operation);
      if (operation != cause.provoke.back()) host.wait(6);
    }
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [] { return status_vantorig != 0x80; }));
    EXPECT_EQ(status_vantorig, cause.code);
    for (const char* operation : cause.mend) board.world(operation);
    EXPECT_TRUE(SupervisedBoard::until(host, 120, [&] { return board.launches() == 2; }));
    // With the launch the configuration goes on for a second and 15 s more pass.
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [&] { return board.healthy(); }));
    host.wait(30);
    status_after = SupervisedBoard::status(host);
  });
  EXPECT_THAT(board.service.bench.output(), HasSubstr(cause.message));
  EXPECT_THAT(status_after, ElementsAre(0x91, cause.code, 0x00));
  EXPECT_EQ(board.launches(), 2u);  // nothing else happened meanwhile
}
INSTANTIATE_TEST_SUITE_P(Rows, RestartCause, testing::ValuesIn(kCauses),
                         [](const auto& row) { return row.param.name; });

// --- audio ------------------------------------------------------------------------

TEST(RestartCauseAudio, dsp_without_audio_is_reset_and_restarts_with_84_until_reconfigured) {
  SupervisedBoard board;
  board.config = example_config_with({{"AudioInput", 2}, {"inAudioEnable", 2}});
  board.world("audio dsp");
  board.run([&](Host& host) {
    const unsigned resets = board.service.bench.board().fpga.line[28];
    EXPECT_EQ(status_vantorig, 0x80);
    EXPECT_EQ(start_bf_st, 1);
    board.world("fault audio-loss");
    EXPECT_TRUE(SupervisedBoard::until(host, 30, [] { return status_vantorig != 0x80; }));
    EXPECT_EQ(status_vantorig, 0x84);
    EXPECT_EQ(board.service.bench.board().fpga.line[28], resets + 1);
    // Audio back or not, each cycle asks again.
    board.world("fault audio-loss off");
    EXPECT_TRUE(SupervisedBoard::until(host, 200, [&] { return board.launches() == 4; }));
    EXPECT_EQ(board.service.bench.board().fpga.line[28], resets + 3);
    // Other audio settings end it.
    board.world("audio digital");
    host.send_config(example_config());
    EXPECT_TRUE(SupervisedBoard::until(
        host, 120, [&] { return SystemOnUpdate == 0 && config_sys == 1 && board.healthy(); }));
    const unsigned launches = board.launches();
    host.wait(60);
    EXPECT_EQ(board.launches(), launches);
    EXPECT_TRUE(board.healthy());
  });
  EXPECT_THAT(board.service.bench.output(),
              HasSubstr("no audio!!!!!!!!,we will check again!,audio_at_beginning=1\n"));
}

// Without the codec rows nobody looks for audio when encode is started.
std::string config_without_codec() {
  std::string text = example_config();
  const std::size_t at = text.find("mpgAudCodec=");
  text.erase(at, text.find('\n', at) + 1 - at);
  return text;
}

TEST(RestartCauseAudio, audio_after_a_start_without_restarts_with_84_and_ends_when_reconfigured) {
  SupervisedBoard board;
  board.config = config_without_codec();
  board.world("audio none");
  board.run([&](Host& host) {
    EXPECT_EQ(audio_at_beginning, 0);
    EXPECT_EQ(SupervisedBoard::status(host), (std::vector<int>{0x91, 0x80, 16 | 32}));
    board.world("audio digital");
    EXPECT_TRUE(SupervisedBoard::until(host, 30, [] { return status_vantorig != 0x80; }));
    EXPECT_EQ(status_vantorig, 0x84);
    host.send_config(example_config());  // with the codec: looks for audio
    EXPECT_TRUE(SupervisedBoard::until(
        host, 180, [&] { return SystemOnUpdate == 0 && config_sys == 1 && board.healthy(); }));
    EXPECT_EQ(audio_at_beginning, 1);
    const unsigned launches = board.launches();
    host.wait(60);
    EXPECT_EQ(board.launches(), launches);
    EXPECT_EQ(SupervisedBoard::status(host), (std::vector<int>{0x91, 0x84, 0}));
  });
  EXPECT_THAT(board.service.bench.output(), HasSubstr("audio after no audio!!\n"));
}

// --- causes and the host ---------------------------------------------------------------

TEST(RestartCauseKept, first_cause_stays_until_the_host_clears_it) {
  SupervisedBoard board;
  board.run([&](Host& host) {
    board.world("fault video-overflow");
    SupervisedBoard::until(host, 30, [] { return status_vantorig == 0x81; });
    board.world("fault video-overflow off");
    SupervisedBoard::until(host, 90, [&] { return board.launches() == 2; });
    SupervisedBoard::until(host, 60, [&] { return board.healthy(); });

    board.world("fault stall");
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [&] { return board.launches() == 3; }));
    board.world("fault stall off");
    EXPECT_EQ(status_vantorig, 0x81);
    SupervisedBoard::until(host, 60, [&] { return board.healthy(); });

    host.send({kClearStatus});
    EXPECT_EQ(SupervisedBoard::status(host), (std::vector<int>{0x91, 0x80, 0}));
    board.world("fault stall");
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [] { return status_vantorig != 0x80; }));
    EXPECT_EQ(status_vantorig, 0x83);
  });
}

TEST(RestartCauseKept, both_overflows_give_both_messages_and_81) {
  SupervisedBoard board;
  board.run([&](Host& host) {
    board.world("fault video-overflow");
    board.world("fault audio-overflow");
    EXPECT_TRUE(SupervisedBoard::until(host, 30, [] { return status_vantorig != 0x80; }));
    EXPECT_EQ(status_vantorig, 0x81);
  });
  EXPECT_THAT(board.service.bench.output(), HasSubstr("RESTART - video buffer overflow!!\n"
                                                      "RESTART - audio buffer overflow!!\n"));
}

TEST(RestartCounter, faults_that_stay_saturate_it_at_9e) {
  SupervisedBoard board;
  std::vector<int> seen;
  board.run([&](Host& host) {
    board.world("fault video-overflow");
    for (unsigned launches = 2; launches <= 10; ++launches) {
      EXPECT_TRUE(SupervisedBoard::until(host, 90, [&] { return board.launches() == launches; }));
      seen.push_back(host.ask(3).at(0));
      host.ask(3);
      host.ask(3);
    }
  });
  // 0x90 | 2 * restarts; the stream of overflows leaves no healthy cycle between.
  EXPECT_THAT(seen, ElementsAre(0x92, 0x94, 0x96, 0x98, 0x9A, 0x9C, 0x9E, 0x9E, 0x9E));
}

// --- no video level, no life ---------------------------------------------------------------

TEST(LowBuffer, buffer_that_never_fills_restarts_without_a_cause_and_recovers) {
  SupervisedBoard board;
  board.world("fault low-buffer");
  board.run_from_start([&](Host& host) {
    board.configure(host);
    EXPECT_TRUE(SupervisedBoard::until(host, 120, [&] { return board.launches() == 2; }));
    EXPECT_EQ(status_vantorig, 0x80);
    board.world("fault low-buffer off");
    EXPECT_TRUE(SupervisedBoard::until(host, 90, [&] { return board.healthy(); }));
    EXPECT_EQ(vid_buf_init, 40);
  });
  EXPECT_THAT(board.service.bench.output(), HasSubstr("monitor sense low buffer\n"));
  EXPECT_EQ(board.launches(), 2u);
}

TEST(AliveWait, encode_that_never_reports_times_out_and_ends_as_a_stall) {
  SupervisedBoard board;
  board.world("fault encode-never-alive");
  board.run_from_start([&](Host& host) {
    board.configure(host);
    EXPECT_TRUE(SupervisedBoard::until(host, 120, [] { return status_vantorig != 0x80; }));
    EXPECT_EQ(status_vantorig, 0x83);
    board.world("fault encode-never-alive off");
    EXPECT_TRUE(SupervisedBoard::until(host, 90, [&] { return board.healthy(); }));
  });
  const std::string output = board.service.bench.output();
  const std::size_t dead = output.find("timeout!! encode is dead!!\n");
  ASSERT_NE(dead, std::string::npos);
  EXPECT_GT(output.find("encode is alive\n"), dead);
  EXPECT_EQ(board.launches(), 2u);
}

// --- states from outside ---------------------------------------------------------------------

// The decoder is really asked by every fifth call only, of the loop or of the host
// link: the second configuration comes when its own call is the fifth.
TEST(ForcedRestart, decoder_without_lock_after_a_configuration_restarts_without_a_cause) {
  SupervisedBoard board;
  board.config = example_config_with(kComposite);
  board.world("source composite");
  board.run([&](Host& host) {
    EXPECT_TRUE(SupervisedBoard::until(host, 30, [] { return count_st == 4; }));
    board.world("source none");
    host.send_config(board.config);
    EXPECT_TRUE(SupervisedBoard::until(host, 90, [] { return monitor_state == 2; }));
    // Asked for by the host link alone: the loop has not come to a check yet.
    EXPECT_EQ(status_vantorig, 0x80);
    EXPECT_EQ(board.launches(), 2u);
    board.world("source composite");
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [&] { return board.launches() == 3; }));
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [&] { return board.healthy(); }));
  });
  // The restart selects the decoder's input before it configures.
  const std::string output = board.service.bench.output();
  ASSERT_THAT(output, HasSubstr("restart!!"));
  EXPECT_THAT(output.substr(output.find("restart!!")),
              HasSubstr("Set CH input to 4 \nstart Configure_System!!\n"));
}

// The reading of the decoder fails once; the input was locked all the time.
TEST(NoRestart, one_failed_reading_of_a_locked_decoder_changes_nothing) {
  SupervisedBoard board;
  board.config = example_config_with(kComposite);
  board.world("source composite");
  board.run([&](Host& host) {
    EXPECT_TRUE(SupervisedBoard::until(host, 30, [] { return count_st == 4; }));
    board.service.bench.trace();
    board.world("fault i2c-fail 5d 1");
    EXPECT_TRUE(SupervisedBoard::until(host, 30, [] { return count_st == 1; }));
    EXPECT_THAT(board.service.bench.trace({"i2c 5d rd"}), ElementsAre("i2c 5d rd 88 = EREMOTEIO"));
    host.wait(60);
    EXPECT_TRUE(board.healthy());
    EXPECT_EQ(board.launches(), 1u);
    EXPECT_EQ(status_vantorig, 0x80);
  });
}

// The text of a healthy cycle lets encode go; it need not be launched again.
TEST(Update, holds_encode_until_the_supervision_finds_the_board_healthy) {
  SupervisedBoard board;
  board.run([&](Host& host) {
    const auto streams = [&] { return board.service.bench.board().encoder.streaming; };
    constexpr int kUpdateVersion = 11;
    constexpr int kNoCommand = 99;
    std::vector<int> bytes = command_with_number(kUpdateVersion, 16);
    bytes.insert(bytes.end(), 16, kNoCommand);
    host.send(bytes);
    host.wait(0.5);
    EXPECT_FALSE(streams());
    EXPECT_TRUE(SupervisedBoard::until(host, 30, streams));
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_EQ(board.launches(), 1u);
  });
}

TEST(ForcedRestart, state_2_from_outside_restarts_without_a_cause) {
  SupervisedBoard board;
  board.run([&](Host& host) {
    monitor_state = kMonitorRestart;
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [&] { return board.launches() == 2; }));
    EXPECT_THAT(host.ask(kGetMonitorState), ElementsAre(2));
    EXPECT_TRUE(SupervisedBoard::until(host, 60, [&] { return board.healthy(); }));
    EXPECT_EQ(status_vantorig, 0x80);
    EXPECT_THAT(host.ask(kGetMonitorState), ElementsAre(0));
  });
}

TEST(Stopped, state_3_from_outside_holds_whatever_comes) {
  SupervisedBoard board;
  board.run([&](Host& host) {
    monitor_state = kMonitorStopped;
    board.world("fault video-overflow");
    board.world("fault stall");
    host.wait(120);
    EXPECT_EQ(board.launches(), 1u);
    EXPECT_EQ(status_vantorig, 0x80);
    EXPECT_THAT(host.ask(kGetMonitorState), ElementsAre(3));
    EXPECT_EQ(SupervisedBoard::status(host), (std::vector<int>{0x91, 0x80, 4 | 3}));
  });
}

TEST(MonitorDisabled, nothing_is_ever_restarted_and_the_dump_comes_every_5_s) {
  SupervisedBoard board;
  board.run_from_start(
      [&](Host& host) {
        board.configure(host);
        EXPECT_TRUE(SupervisedBoard::until(host, 60, [] { return config_sys == 1; }));
        board.world("fault video-overflow");
        board.world("source none");
        board.service.bench.output();
        host.wait(100);
        // Ten cycles of 0.5 s, plus the dump's own requests: 20 dumps in 100 s.
        const std::string output = board.service.bench.output();
        int dumps = 0;
        for (std::size_t at = 0; (at = output.find("VS_OVERALL", at)) != std::string::npos; ++at)
          ++dumps;
        EXPECT_GE(dumps, 19);
        EXPECT_LE(dumps, 20);
        EXPECT_EQ(SupervisedBoard::status(host), (std::vector<int>{0x91, 0x80, 0}));
      },
      1);
  EXPECT_EQ(board.launches(), 1u);
}

TEST(BeforeConfiguration, nothing_is_supervised) {
  SupervisedBoard board;
  board.world("fault video-overflow");
  board.world("source none");
  board.run_from_start([&](Host& host) {
    host.wait(120);
    EXPECT_EQ(SupervisedBoard::status(host), (std::vector<int>{0x90, 0x80, 0}));
    EXPECT_THAT(host.ask(kGetMonitorState), ElementsAre(0));
  });
  EXPECT_EQ(board.launches(), 0u);
  EXPECT_THAT(board.service.bench.output(), Not(HasSubstr("VS_OVERALL")));
}

// --- what the host sees meanwhile ----------------------------------------------------------------

TEST(LostInput, host_sees_the_state_and_the_flags) {
  SupervisedBoard board;
  board.run([&](Host& host) {
    board.world("fault video-loss");
    host.wait(6);
    // Bit 0 is gone; state 1, no moving video, no input.
    EXPECT_EQ(SupervisedBoard::status(host), (std::vector<int>{0x90, 0x80, 8 | 4 | 1}));
    EXPECT_THAT(host.ask(kGetMonitorState), ElementsAre(1));
    host.wait(100);
    EXPECT_EQ(board.launches(), 1u);  // the input is waited for
  });
}

}  // namespace
