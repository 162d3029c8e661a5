// Loading the FPGA from a raw bitstream file, and pushing a data file into it.
#pragma once

#include <cstdint>

// Configures the FPGA from the bitstream file at path. Returns 0 when the file
// was sent, whatever the final status says, or
//   1 device not opened       2 file not opened
//   3, 4, 5 configuration line: first high, low, second high refused
//   6 status poll failed      7 nSTATUS never came      8 final status failed
// On 3 to 8 both streams stay open.
int fpgaLoadBitstream(const char* path);

// Reverses the bit order of every byte in place.
void swapp(std::uint8_t* buffer, int length);

// Sends a data file byte by byte. Returns 0 done, 1 device not opened, 2 file
// not opened. The device stream stays open. No caller; bench interface.
int WriteFileToFpga(const char* path);
