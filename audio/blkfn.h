// The AC-3 DSP: its commands over I2C and the loading of its firmware.
//
// Every command opens the bus, makes its transfers and closes it again. Common
// results: -1 bus not opened, -2 transfer failed, each with a message.
#pragma once

#include <cstdint>

// Error bytes of WritereadCODEC; a register that holds them looks the same.
inline constexpr std::int32_t kCodecTransferFailed = 254;
inline constexpr std::int32_t kCodecNotOpened = 255;

// One-byte commands. Return 0, -1 or -2. All but the first have no caller: bench
// interface.
std::int32_t blkfn_start();
std::int32_t blkfn_stop();
std::int32_t blkfn_reset();
std::int32_t blkfn_send_cmd(std::uint8_t command);

// Configures the DSP; only bit 0 of mode and 16 bits of volume are sent. Returns
// 0, also when all five attempts failed; -1 without a bus.
std::int32_t blkfn_config_cmd(int mode, int volume, std::int32_t rate_bps);

// Reads (read non-zero) or writes a codec register of the DSP. Returns the byte
// read, or 0 for a write; kCodecTransferFailed, kCodecNotOpened.
std::int32_t WritereadCODEC(int read, int reg, int data);

// One-byte reads. Return the byte, -1 or -2. The last has no caller: bench interface.
std::int32_t blkfn_read_status();
std::int32_t blkfn_read_version();
std::int32_t blkfn_read_peak();
std::int32_t blkfn_read_peak_r_l();

// Waits without limit for the marker of the peak stream, then ORs the left and the
// right peak behind it, four bytes each, least significant first, onto the words.
void blkfn_add_peaks(std::uint32_t* left, std::uint32_t* right);

// Reads ten rounds of the peak stream and prints the largest left and right
// peak. Never returns when the marker never comes. Returns 0. No caller; bench
// interface.
std::int32_t blkfn_new_read_peak();

// Returns the version read; negative when no firmware answers.
std::int32_t TestIfBFisEmpty();

// Pushes the firmware file through the FPGA's SPI master. Returns 0 success, 1
// FPGA device not opened, -1 FIFO time-out. Ends the process with status 1, 2 or
// 3 when the file is missing, cannot be held in memory or cannot be read.
std::int32_t SendBFFileUpdate();

// Pushes the firmware, up to three times, unless the DSP answers. Returns 0
// whether or not the DSP runs in the end; the messages tell.
std::int32_t Load_BF();
