// Bench commands of the TVP7002.
#pragma once

#include <cstdint>

inline constexpr int kDumpOnly = 99;  // register of prog7002 that writes nothing

// Bench: writes one TVP7002 register unless it is kDumpOnly, then dumps them
// all. Returns 0 done, 1 bus not opened.
int prog7002(int reg, int value);

// What GetInput finds selected.
inline constexpr int kInputComponent = 1;
inline constexpr int kInputRgb = 3;

extern std::int32_t TestVBLK_F0;  // bench value printed by SetVBLK_F0

// Returns kInputComponent, kInputRgb, or 0 for any other selection.
int GetInput();

// Fills the selected input and the detected standard, and prints both.
void GatTvp7002Status(int* input, int* std);

// Bench: writes the blanking and sync-output registers of mode 1, 2 or 3.
// Returns 0, also without a bus.
int SetVBLK_F0(int mode);

// Bench: reads and prints (read not 0), or writes, one register. Returns 0, also
// without a bus; a read that fails prints 0.
int VBLK_RW(int read, int reg, int value);

// Bench: prints what the sync status register says. Returns 0; -1 without the bus,
// -2 (nothing printed) when the read fails.
int Print_Hsync();

// Sets the chip up for VGA in video standard 25, which it stores in the shared
// block.
void set_up_vga_digitizer();
