// The supervision loop: keeps `encode` and the hardware path behind it alive.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

// Phase of the level capture: video, then audio, until a restart.
enum CapturePhase : std::uint8_t { kCaptureVideo = 0, kCaptureAudio = 1, kCaptured = 2 };
extern Relaxed<std::uint8_t> status_init_flag;

// What the last look at the captured levels missed; write-only.
inline constexpr std::uint8_t kDetailNoVideo = 0x02;
inline constexpr std::uint8_t kDetailNoAudio = 0x08;
extern Relaxed<std::uint8_t> status_vantorig1;

// Cleared in every cycle and never raised.
extern Relaxed<std::uint8_t> i2c_error_flag;

// Sets all counters of the loop to their start values.
void clear_supervision_counters();

// Watches for ever, about every 1.5 s; never returns. With the monitor
// disabled it only reports: no check, no restart.
void supervise(bool monitor_disabled);

// Ends `encode` when it asks for an FPGA restart. Returns 0 then, 1 otherwise. No
// caller; bench interface.
int fpga_monitor();
