// The bytes and words that the threads of the service share, each with its values,
// who writes it and who reads it.
//
// "link" is the host-link thread, "service" the supervision loop, "apply" whichever
// of the two runs Configure_System, "start" the start-up.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

// --- the host's status bytes ---------------------------------------------

// First byte of GET_STATUS: 1001, three bits that count restarts, one that is set
// while all is well.   writer: service, link   reader: service, link
inline constexpr std::uint8_t kStatusInitial = 0x90;
inline constexpr std::uint8_t kStatusHealthy = 0x91;  // healthy, or not supervising
// Answered in its place after a download of the wrong size; 7 restarts look the same.
inline constexpr std::uint8_t kStatusWrongSize = 0x9E;
inline constexpr int kStatusEncode = 0x01;    // cleared by STOP_ENCODE and a lost input
inline constexpr int kStatusRestarts = 0x0E;  // twice the count; kept by a configuration
// STOP_AUDIO clears the lowest bit of the count: an odd one reads as one less then.
inline constexpr int kStatusAudio = 0x02;
inline constexpr int kStatusSignature = 0xF0;
inline Relaxed<std::uint8_t> global_status{kStatusInitial};

// Second byte: the first restart cause since CLEAR_STATUS, see restart_causes.h.
// writer: service, link   reader: service, link
inline constexpr std::uint8_t kStatusVantorigCleared = 0x80;
inline constexpr int kCauseBits = 0x07;  // 0 while no cause is held
inline Relaxed<std::uint8_t> status_vantorig{kStatusVantorigCleared};

// Third byte: the two low bits of the state, and what the checks of the last cycle
// missed.   writer: service   reader: link
inline constexpr int kFlagState = 0x03;
inline constexpr int kFlagNoVideoBuffer = 0x04;
inline constexpr int kFlagNoInput = 0x08;
inline constexpr int kFlagNoAudio = 0x10;
inline constexpr int kFlagNoAudioAtStart = 0x20;
inline constexpr int kFlagI2cError = 0x40;  // never set: nothing raises i2c_error_flag
inline Relaxed<std::uint8_t> fpga_monitor_flags;

// State of the supervisor; other values leave it idle.   writer: service, link
// reader: service
enum MonitorState : std::uint8_t {
  kMonitorWatching = 0,
  kMonitorNoInput = 1,
  kMonitorRestart = 2,
  kMonitorStopped = 3,
};
inline Relaxed<std::uint8_t> monitor_state;
// Its value at the start of the cycle, answer of GET_MONITOR_STATE.
// writer: service   reader: service, link
inline Relaxed<std::uint8_t> global_monitor_state;

// --- what the service is doing -------------------------------------------

// 1 during a download   writer: link   reader: service
inline Relaxed<std::uint8_t> SystemOnUpdate;
// 1 once configured   writer: start, link   reader: service
inline Relaxed<std::int32_t> config_sys;
// 1 after the word "dbg"   writer: start   reader: apply
inline Relaxed<std::int32_t> dbg_encode;

// --- levels and versions -------------------------------------------------

// Captured steady levels of the buffers   writer: service   reader: service, link
inline Relaxed<std::uint16_t> vid_buf_init;
inline Relaxed<std::uint16_t> aud_buf_init;
// kRegHwVersion   writer: start   reader: link
inline Relaxed<std::uint16_t> fpga_hw_version;
// First line of version.ini   writer: start   reader: link
inline constexpr int kVersionTextSize = 20;  // 19 characters and the terminator
inline Relaxed<char> ver[kVersionTextSize];

// --- inputs and audio ----------------------------------------------------

// Active video channel; other values stand as configured.   writer: apply
// reader: apply, service, link
inline constexpr std::int32_t kChannelComponent = 0;  // TVP7002
inline constexpr std::int32_t kChannelRgb = 3;        // TVP7002, RGB or VGA
inline constexpr std::int32_t kChannelComposite = 4;  // TVP5150
inline Relaxed<std::int32_t> SetInputMuxCH;

// Audio byte of the last launch, 1 after STOP_AUDIO   writer: apply, link   write-only
inline Relaxed<std::int32_t> enable_audio;
// 0 at start and at the begin of an audio set-up, 1 at its end   writer: apply
// reader: apply, service
inline Relaxed<std::int32_t> audio_at_beginning;
// 1 once the AC-3 DSP was started   writer: service   reader: link
inline Relaxed<std::uint8_t> start_bf_st;

// AC-3 descriptor, in the order it is kept; sent last byte first. The start values
// are those of a stream that is not there.   writer: apply   reader: apply, link
enum Ac3Descriptor : int {
  kAc3Bsid,
  kAc3Bsmod,
  kAc3SurroundMode,
  kAc3Acmod,
  kAc3Langcode,
  kAc3BitRateCode,
  kAc3DescriptorSize
};
inline Relaxed<std::uint8_t> hd_ac3_desc_parameters[kAc3DescriptorSize] = {8, 0, 0, 7, 1, 15};
