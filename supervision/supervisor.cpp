// Supervision of the encoder: one cycle after another of check, decide, act.
//
// Each cycle counts, publishes its state for the host, runs the checks (audio,
// video, input, captured levels, frozen input, overflow) and then acts on
// monitor_state. A check that judges the path broken asks for a restart with a
// cause; the restart kills `encode` and applies the configuration again, which
// launches it anew.
#include "supervision/supervisor.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "config/hd_params.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/gpio.h"
#include "hw/shared_memory_davinci.h"
#include "hw/shell.h"
#include "hw/time_units.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "supervision/fpga_dump.h"
#include "supervision/health.h"
#include "supervision/restart_causes.h"
#include "video/capture.h"
#include "video/tvp7002.h"

static constexpr useconds_t kCycleSleep_us = 500 * kMillisecond_us;
static constexpr useconds_t kDspResetPulse_us = 10;

static constexpr int kAlivePolls = 3001;           // about 3 s
static constexpr std::uint32_t kDumpCycle = 10;    // register dump
static constexpr std::uint32_t kStatusCycle = 19;  // status record
static constexpr int kAudioMissingLimit = 5;       // cycles
static constexpr int kVideoMissingLimit = 9;       // cycles
static constexpr int kLowBufferLimit = 9;          // cycles
static constexpr int kFrozenSamples = 10;          // equal green levels in a row
static constexpr unsigned kFarAway = 16;           // from the captured video level
static constexpr std::uint16_t kLowestLevel = 11;  // that the capture takes
static constexpr std::uint8_t kRestartLimit = 6;   // restarts counted one by one
static constexpr std::uint8_t kRestartSaturated = 7;
static constexpr std::uint8_t kStallPenalty = 4;  // a stalled video buffer weighs more

Relaxed<std::uint8_t> status_init_flag;
Relaxed<std::uint8_t> status_vantorig1;
Relaxed<std::uint8_t> i2c_error_flag;

// The first cause since the host cleared the status is the one kept.
static void request_restart(const RestartCause& cause) {
  monitor_state = kMonitorRestart;
  fputs(cause.message, stdout);
  if ((status_vantorig & kCauseBits) == 0) status_vantorig = cause.code;
}

// --- the loop's own state ------------------------------------------------

struct Supervision {
  std::uint32_t cycle = 0;
  std::uint32_t disabled_cycle = 0;  // counts for the dump while the monitor is disabled
  bool wait_for_alive = true;        // first supervised cycle and after each restart
  std::uint8_t restarts = 0;

  int audio_missing = 0;
  std::uint16_t previous_audio_overall = 0;
  int video_missing = 0;
  std::uint16_t video_overall = 0;  // as last read
  std::uint16_t previous_video_overall = 0;

  int input_stuck = 0;
  bool have_green_sample = false;
  std::int32_t green_sample = 0;

  int low_buffer = 0;
  std::uint16_t rising_maximum = 0;
  std::uint32_t frame_period_reference = 0;

  bool video_overflow = false;
  bool audio_overflow = false;

  // Results of this cycle's checks.
  bool vid_buf_ok = false;
  bool tvp_ok = false;
  int aud_ok = 0;
};
static Supervision loop;

void clear_supervision_counters() { loop = {}; }

// --- before the checks ---------------------------------------------------

static bool updating() { return SystemOnUpdate == 1; }

static void count_cycle() { loop.cycle = updating() ? 0 : loop.cycle + 1; }

static void report_disabled_cycle() {
  if (++loop.disabled_cycle < kDumpCycle) return;
  loop.disabled_cycle = 0;
  DebugPrintFPGARegs();
}

// A timeout has no consequence of its own: missing buffers show it later.
static void wait_until_alive() {
  loop.wait_for_alive = false;
  for (int poll = 0; poll < kAlivePolls; ++poll) {
    if (shared_get(&SharedBlock::encode_alive) == 1) {
      puts("encode is alive");
      return;
    }
    usleep(kMillisecond_us);
  }
  puts("timeout!! encode is dead!!");
}

static void dump_registers_in_turn() {
  if (loop.cycle != kDumpCycle) return;
  loop.cycle = 0;
  DebugPrintFPGARegs();
}

// --- checks --------------------------------------------------------------

static void restart_dsp() {
  prog_gpio(kAc3DspReset);
  usleep(kDspResetPulse_us);
  prog_gpio(kAc3DspRelease);
}

// Audio that is present is expected to move. The stored audio value is never renewed (it
// stays 0); the video value is carried in its place.
static void check_audio_moves() {
  if (read_audio_overall() == loop.previous_audio_overall) {
    ++loop.audio_missing;
    printf("au_overall doesnt change!,audio_at_beginning=%d\n", audio_at_beginning.load());
  } else {
    loop.audio_missing = 0;
  }
  loop.previous_video_overall = loop.video_overall;
}

// The counter outlives the restart it asks for: as long as the audio settings
// stay, every supervised cycle asks again.
static void check_audio() {
  if (fpgaregs.AudioInput != kAudioInputDsp || fpgaregs.inAudioEnable != kAudioEnabled) return;
  if (loop.audio_missing >= kAudioMissingLimit) {
    restart_dsp();
    request_restart(kAudioMissing);
  } else if (audio_present()) {
    check_audio_moves();
  } else {
    ++loop.audio_missing;
    printf("no audio!!!!!!!!,we will check again!,audio_at_beginning=%d\n",
           audio_at_beginning.load());
  }
}

static bool video_buffer_moves() {
  if (!video_buffer_present()) return false;
  loop.video_overall = read_video_overall();
  const bool moves = loop.video_overall != loop.previous_video_overall;
  loop.previous_video_overall = loop.video_overall;
  return moves;
}

static void check_video() {
  loop.vid_buf_ok = video_buffer_moves();
  if (loop.vid_buf_ok) {
    loop.video_missing = 0;
  } else {
    ++loop.video_missing;
    printf("video_buf is not o.k., cnt=%d\n", loop.video_missing);
  }
}

static void check_input() {
  const int rc = monitor_input();
  usleep(kSecond_us);
  i2c_error_flag = 0;
  loop.tvp_ok = rc == 0;
}

// Unsigned on purpose: a level captured below 16 makes every reading far away.
static bool far_from_captured_level(std::uint32_t level) {
  const std::uint32_t captured = vid_buf_init;
  return level < captured - kFarAway || level > captured + kFarAway;
}

// The audio level and the frame period are read for their ranges, which decide
// nothing.
static void check_levels() {
  if (status_init_flag != kCaptured) return;
  status_vantorig1 = 0;
  const std::uint16_t video = latch_video_buffer();
  if (far_from_captured_level(video) && loop.tvp_ok) request_restart(kLevelFarAway);
  if (video == 0) status_vantorig1 = kDetailNoVideo;
  if (read_audio_buffer() == 0) {
    status_vantorig1 = static_cast<std::uint8_t>(status_vantorig1 | kDetailNoAudio);
  }
  read_frame_period();
}

// A lost input whose green level stays frozen needs a restart to come back.
static void check_frozen_input() {
  if (loop.tvp_ok) {
    loop.input_stuck = 0;
    loop.have_green_sample = false;
    return;
  }
  if (!loop.have_green_sample) {
    loop.green_sample = check_alc_green();
    loop.have_green_sample = true;
  }
  const std::int32_t green = check_alc_green();
  loop.input_stuck = green == loop.green_sample ? loop.input_stuck + 1 : 0;
  loop.green_sample = green;
  if (loop.input_stuck < kFrozenSamples) return;
  loop.input_stuck = 0;
  loop.have_green_sample = false;
  loop.green_sample = 0;
  request_restart(kInputFrozen);
}

static void check_audio_flag() { loop.aud_ok = read_audio_flag(); }

static void print_status_record() {
  if (loop.cycle != kStatusCycle) return;
  printf("status_hd.vid_buf_ok=%d\n", loop.vid_buf_ok ? 1 : 0);
  printf("status_hd.vid_buf_counter=%d\n", loop.video_missing);
  printf("status_hd.tvp_ok=%d\n", loop.tvp_ok ? 1 : 0);
  printf("status_hd.aud_ok=%d\n", loop.aud_ok);
  printf("audio_at_beginning=%d\n", audio_at_beginning.load());
  printf("encode_ver = 0x%x\n", static_cast<unsigned>(shared_get(&SharedBlock::encode_version)));
}

static void publish_flags() {
  int flags = global_monitor_state & kFlagState;
  if (!loop.vid_buf_ok) flags |= kFlagNoVideoBuffer;
  if (!loop.tvp_ok) flags |= kFlagNoInput;
  if (loop.aud_ok == 0) flags |= kFlagNoAudio;
  if (audio_at_beginning == 0) flags |= kFlagNoAudioAtStart;
  flags |= kFlagI2cError * i2c_error_flag;
  fpga_monitor_flags = static_cast<std::uint8_t>(flags);
}

// Both flags stay set until a restart.
static void sense_overflow() {
  if (video_overflows()) {
    loop.video_overflow = true;
    printf("VIDEO BUFFER -------->, video_ovf = %i\n", 1);
  }
  if (audio_overflows()) loop.audio_overflow = true;
}

// --- level capture -------------------------------------------------------

// A level is captured when it stops rising. Returns true when `level` is it.
static bool level_settled(std::uint16_t level) {
  if (level < kLowestLevel) return false;
  if (level <= loop.rising_maximum) return true;
  loop.rising_maximum = level;
  return false;
}

static void count_low_buffer() {
  if (loop.low_buffer > kLowBufferLimit) {
    puts("monitor sense low buffer");
    monitor_state = kMonitorRestart;
    loop.low_buffer = 0;
  } else {
    ++loop.low_buffer;
  }
}

static void capture_video_level() {
  const std::uint16_t level = latch_video_buffer();
  if (level_settled(level)) {
    vid_buf_init = level;
    loop.rising_maximum = 0;
    status_init_flag = kCaptureAudio;
  } else if (level < kLowestLevel) {
    count_low_buffer();
  }
}

// The rising maximum stays as the audio level left it.
static void capture_audio_level() {
  const std::uint16_t level = latch_audio_buffer();
  if (level_settled(level)) {
    aud_buf_init = level;
    loop.frame_period_reference = read_frame_period();
    status_init_flag = kCaptured;
  }
  if (audio_at_beginning == 0 || shared_get(&SharedBlock::audio_start) == 1) {
    status_init_flag = kCaptured;
  }
}

static void capture_levels() {
  switch (status_init_flag) {
    case kCaptureVideo:
      capture_video_level();
      break;
    case kCaptureAudio:
      capture_audio_level();
      break;
    default:
      break;
  }
}

// --- action by state -----------------------------------------------------

static void report_healthy() {
  shared_set(&SharedBlock::do_fpga_restart, 0);
  global_status = kStatusHealthy;
  if (loop.video_missing == 0) loop.restarts = 0;
}

static void lose_input() {
  monitor_state = kMonitorNoInput;
  global_status = static_cast<std::uint8_t>(global_status & ~kStatusEncode);
}

static void give_up_stalled_video() {
  request_restart(kVideoStalled);
  loop.video_missing = 0;
  loop.restarts = static_cast<std::uint8_t>(loop.restarts + kStallPenalty);
}

// First match wins; of two overflows the video cause is the one kept.
static void decide() {
  if (loop.video_overflow || loop.audio_overflow) {
    if (loop.video_overflow) request_restart(kVideoOverflow);
    if (loop.audio_overflow) request_restart(kAudioOverflow);
  } else if (!loop.tvp_ok) {
    lose_input();
  } else if (!loop.vid_buf_ok && loop.video_missing > kVideoMissingLimit) {
    give_up_stalled_video();
  } else if (audio_at_beginning != 0 || loop.aud_ok == 0) {
    report_healthy();
  } else {
    request_restart(kAudioAppeared);
  }
}

static void watch() {
  capture_levels();
  if (fpgaregs.AudioInput == kAudioInputDsp) start_bf_st = 1;
  decide();
}

static void wait_for_input() {
  if (loop.tvp_ok || loop.audio_overflow) {
    request_restart(loop.audio_overflow ? kAudioOverflowNoInput : kInputBack);
  }
  if (loop.audio_overflow) puts("audio buffer overflow!!");
}

static void print_rule() {
  puts("======================================================================");
}

static void print_elementary_buffers() {
  constexpr int kRegisters[] = {kRegEbBuff,    kRegEbBuffMin,    kRegEbBuffMax,
                                kRegFrameSize, kRegFrameSizeMin, kRegFrameSizeMax};
  int value[6];
  for (int i = 0; i < 6; ++i) value[i] = static_cast<int>(GetValue(kRegisters[i]));
  printf("--> EB BUFF %d , (%d .. %d) | Frame size %d , (%d .. %d) (Before restart) \n", value[0],
         value[1], value[2], value[3], value[4], value[5]);
}

static void print_before_restart() {
  print_rule();
  print_elementary_buffers();
  print_rule();
  DebugPrintFPGARegs();
}

static void clear_for_restart() {
  loop.video_missing = 0;
  loop.video_overflow = false;
  loop.audio_overflow = false;
  shared_set(&SharedBlock::do_fpga_restart, 0);
}

static void kill_encode() {
  run_shell("killall encode");
  run_shell("killall encode");
  usleep(5 * kSecond_us);
}

// The host sees the number of restarts in the low bits of its status byte.
static void count_restart() {
  loop.restarts = loop.restarts > kRestartLimit ? kRestartSaturated
                                                : static_cast<std::uint8_t>(loop.restarts + 1);
  global_status = static_cast<std::uint8_t>((global_status & kStatusSignature) |
                                            (loop.restarts * 2) | kStatusInitial);
}

static void apply_configuration_again() {
  if (shared_get(&SharedBlock::input_channel) == kChannelComposite) SetInputMux(kCaptureComposite);
  Configure_System();
  usleep(15 * kSecond_us);
}

static void restart() {
  print_before_restart();
  status_init_flag = kCaptureVideo;
  puts("restart!!");
  printf("counter=%d , global_status=0x%x\n", loop.restarts, global_status.load());
  clear_for_restart();
  kill_encode();
  count_restart();
  apply_configuration_again();
  monitor_state = kMonitorWatching;
  loop.wait_for_alive = true;
}

static void act() {
  switch (monitor_state) {
    case kMonitorWatching:
      watch();
      break;
    case kMonitorNoInput:
      wait_for_input();
      break;
    case kMonitorRestart:
      restart();
      break;
    case kMonitorStopped:
      global_status = kStatusHealthy;
      monitor_state = kMonitorStopped;
      break;
    default:
      break;
  }
  usleep(kCycleSleep_us);
}

// --- the cycle -----------------------------------------------------------

static void supervised_cycle() {
  if (loop.wait_for_alive) wait_until_alive();
  dump_registers_in_turn();
  check_audio();
  check_video();
  check_input();
  check_levels();
  check_frozen_input();
  check_audio_flag();
  print_status_record();
  publish_flags();
  sense_overflow();
  act();
}

static void cycle(bool disabled) {
  count_cycle();
  global_monitor_state = monitor_state.load();
  if (disabled || updating()) global_status = kStatusHealthy;
  if (disabled) report_disabled_cycle();
  if (config_sys != 1 || disabled || updating()) {
    usleep(kCycleSleep_us);
    return;
  }
  supervised_cycle();
}

void supervise(bool monitor_disabled) {
  for (;;) cycle(monitor_disabled);
}

int fpga_monitor() {
  const int requested = shared_get(&SharedBlock::do_fpga_restart);
  if (requested != 1) return 1;
  printf("from vantorig: shared_memory->do_fpga_restart = %i\n", requested);
  run_shell("killall encode");
  return 0;
}
