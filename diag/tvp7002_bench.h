// Bench of the TVP7002. Only SetVBLK_F0, VBLK_RW and set_up_vga_digitizer are options
// of the command line; the others have no caller and are bench interface.
#pragma once

#include <cstdint>

inline constexpr int kDumpOnly = 99;  // register of prog7002 that writes nothing

// Writes one TVP7002 register unless it is kDumpOnly, then dumps them
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

// Writes the blanking and sync-output registers of mode 1, 2 or 3.
// Returns 0, also without a bus.
int SetVBLK_F0(int mode);

// Reads and prints (read not 0), or writes, one register. Returns 0, also
// without a bus; a read that fails prints 0.
int VBLK_RW(int read, int reg, int value);

// Prints what the sync status register says. Returns 0; -1 without the bus, -2
// (nothing printed) when the read fails.
int Print_Hsync();

// Sets the chip up for VGA in video standard 25, which it stores in the shared
// block.
void set_up_vga_digitizer();
