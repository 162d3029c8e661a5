// TVP7002: the digitizer of the component and RGB/VGA inputs.
//
// Results: -1 when the bus cannot be opened, -2 when a read that is checked
// fails; otherwise as each line says.
#pragma once

#include <cstdint>

inline constexpr int kTvp7002Address = 0x5C;  // 7-bit, on the board's I2C bus

// Register that the bench reads too.
inline constexpr int kTvp7002SyncStatus = 0x14;

// Channels of SetInputMuxCH.
inline constexpr std::int32_t kChannelComponent = 0;
inline constexpr std::int32_t kChannelRgb = 3;
inline constexpr std::int32_t kChannelComposite = 4;

// What GetInput finds selected.
inline constexpr int kInputComponent = 1;
inline constexpr int kInputRgb = 3;

extern std::int32_t TestVBLK_F0;  // bench value printed by SetVBLK_F0

// Configures the chip: channel 3 is the RGB/VGA input in the standard of the
// shared block, any other the component input. Publishes SetInputMuxCH as 3 or
// 0. Returns 0; its descriptor stays open.
int Init7002(int channel);

// Returns kInputComponent, kInputRgb, or 0 for any other selection.
int GetInput();

// Fills the selected input and the detected standard, and prints both.
void GatTvp7002Status(int* input, int* std);

// Sync check. Mode 0 (waiting for a signal): 2 when sync is good, else 0. Any
// other mode (running): 0 when sync is good, else 1 with a restart requested.
int video_monitor_7002(int mode);

// Signature of two status registers; the same value over and over while video
// is bad means that the chip is stuck.
int check_alc_green();

// Bench: writes the blanking and sync-output registers of mode 1, 2 or 3.
// Returns 0, also without a bus.
int SetVBLK_F0(int mode);

// Bench: reads and prints (read not 0), or writes, one register. Returns 0, also
// without a bus; a read that fails prints 0.
int VBLK_RW(int read, int reg, int value);

// Bench: prints what the sync status register says. Returns 0.
int Print_Hsync();

// Handlers of the brightness and contrast keys; they take the low byte of the
// value. Return 0, and the print result.
int SetBrightness(const std::int32_t* value, std::int32_t context);
int SetContrast(const std::int32_t* value, std::int32_t context);

// Low four bits of x in whole numbers. x is cut to 256ths first, so that a
// negative one goes down: -0.5 gives 15. Values beyond 32 bits saturate.
float expr_to_ipipe_float16(float x);
