// Bench set-up of the clock synthesiser, the clock blocks and the "7353"
// video-encoder chip.
//
// None of these stops on a failed transfer; results are printed where a message
// shows them.
#pragma once

#include <cstdint>

inline constexpr int kPllCommandSize = 2;

// Sends the two bytes of buf to the PLL and replaces them by the two read back.
// Returns 0 done, 1 device not opened.
int progPll(std::uint8_t* buf);

// Swings the PLL between its two settings, one a millisecond, for ever.
[[noreturn]] void swing_pll();

// Sends one byte to the block at 0x1C. Returns 0 done, 1 bus not opened.
int prog_blk();

// Writes to the block at 0x55 for ever. Returns 1 when the bus cannot be opened.
int prog_aablk();

// Reads and prints count (0 to 1023) bytes of the device with 8-bit address
// addr8, from register reg of reglen address bytes. Returns 0 done, 1 bus not
// opened.
int prog_i2c_test(int addr8, int reg, int reglen, int count);

// Sets up the three channels of the 7353 chip. Returns 0 done, 1 bus not opened.
int prog7353();
