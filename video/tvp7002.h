// TVP7002: the digitizer of the component and RGB/VGA inputs.
//
// Results: -1 when the bus cannot be opened, -2 when a read that is checked
// fails; otherwise as each line says.
#pragma once

#include <cstdint>

inline constexpr int kTvp7002Address = 0x5C;  // 7-bit, on the board's I2C bus

// Registers that the bench reads too.
inline constexpr int kTvp7002SyncStatus = 0x14;
inline constexpr int kTvp7002InputMux1 = 0x19;
inline constexpr std::uint8_t kTvp7002Mux1Component = 0x00;
inline constexpr std::uint8_t kTvp7002Mux1Rgb = 0xAA;

// Configures the chip: channel 3 is the RGB/VGA input in the standard of the
// shared block, any other the component input. Publishes SetInputMuxCH as 3 or
// 0. Returns 0; its descriptor stays open.
int Init7002(int channel);

// Sync check. Mode 0 (waiting for a signal): 2 when sync is good, else 0. Any
// other mode (running): 0 when sync is good, else 1 with a restart requested.
int video_monitor_7002(int mode);

// Signature of two status registers; the same value over and over while video
// is bad means that the chip is stuck.
int check_alc_green();
