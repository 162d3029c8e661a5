// The bytes and words that the threads of the service share.
//
// One place for all of them: each line names its width, who writes it and who
// reads it. "link" is the host-link thread, "service" the supervision loop,
// "apply" whichever of the two runs Configure_System, "start" the start-up.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

// Supervisor states kept in monitor_state. Other values leave it idle.
enum MonitorState : std::uint8_t {
  kMonitorWatching = 0,
  kMonitorNoInput = 1,
  kMonitorRestart = 2,
  kMonitorStopped = 3,
};

inline constexpr std::uint8_t kStatusInitial = 0x90;          // global_status at start
inline constexpr std::uint8_t kStatusHealthy = 0x91;          // healthy, or not supervising
inline constexpr std::uint8_t kStatusVantorigCleared = 0x80;  // no restart cause held

// --- host status bytes ---------------------------------------------------
extern Relaxed<std::uint8_t> global_status;         // writer: service, link   reader: service, link
extern Relaxed<std::uint8_t> status_vantorig;       // writer: service, link   reader: service, link
extern Relaxed<std::uint8_t> status_vantorig1;      // writer: service         reader: service
extern Relaxed<std::uint8_t> fpga_monitor_flags;    // writer: service         reader: link
extern Relaxed<std::uint8_t> monitor_state;         // writer: service, link   reader: service
extern Relaxed<std::uint8_t> global_monitor_state;  // writer: service         reader: service, link
extern Relaxed<std::uint8_t> wrong_size_flag;       // writer: link            reader: link

// --- what the service is doing -------------------------------------------
// 1 during a download   writer: link   reader: service
extern Relaxed<std::uint8_t> SystemOnUpdate;
// 1 once configured   writer: start, link   reader: service
extern Relaxed<std::int32_t> config_sys;
// 1 after the word "dbg"   writer: start   reader: apply
extern Relaxed<std::int32_t> dbg_encode;
// 1 once the status thread was started   writer, reader: start
extern Relaxed<std::int32_t> SystemMonitorStatus;

// --- levels and versions -------------------------------------------------
// The level capture is at video (0), at audio (1), done (2)   writer, reader: service
extern Relaxed<std::uint8_t> status_init_flag;
// Captured steady levels   writer: service   reader: service, link
extern Relaxed<std::uint16_t> vid_buf_init;
extern Relaxed<std::uint16_t> aud_buf_init;
// Register 0x000   writer: start   reader: link
extern Relaxed<std::uint16_t> fpga_hw_version;

// First line of version.ini   writer: start   reader: link
inline constexpr int kVersionTextSize = 20;  // 19 characters and the terminator
extern Relaxed<char> ver[kVersionTextSize];

// --- inputs and audio ----------------------------------------------------
// Active video channel   writer: apply   reader: apply, service, link
extern Relaxed<std::int32_t> SetInputMuxCH;
// Audio byte of the last launch, 1 after stop-audio   writer: apply, link   reader: none
extern Relaxed<std::int32_t> enable_audio;
// 0 when the set-up saw no audio   writer: apply   reader: apply, service
extern Relaxed<std::int32_t> audio_at_beginning;
// 1 once the AC-3 DSP was started   writer: service   reader: link
extern Relaxed<std::uint8_t> start_bf_st;
// Cleared, never raised   writer, reader: service
extern Relaxed<std::uint8_t> i2c_error_flag;

// AC-3 descriptor values, in the order they are kept and sent.
enum Ac3Descriptor : int {
  kAc3Bsid,
  kAc3Bsmod,
  kAc3SurroundMode,
  kAc3Acmod,
  kAc3Langcode,
  kAc3BitRateCode,
  kAc3DescriptorSize
};
// writer: apply   reader: apply, link
extern Relaxed<std::uint8_t> hd_ac3_desc_parameters[kAc3DescriptorSize];
