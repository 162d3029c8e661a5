// Bench commands on "/dev/fpga": single registers, register test, block speed.
//
// Each opens the device itself. Those with a result return 1 when it cannot be
// opened; without the device the others say so and go on, reading 0. prog_rdreg,
// prog_wrreg and wr_fpga have no caller: bench interface.
#pragma once

#include <cstdint>

// Reads the register at a byte address; 0 when the request failed. The stream
// stays open.
int prog_rdreg(int address);

// Writes the register at a byte address. Returns the request's result. The
// stream stays open.
int prog_wrreg(int address, int value);

// Writes and reads the 32 test registers, then a pattern over 68 registers.
// Returns 0.
int FpgaReg();

// Times 40 000 000 bytes of block writes, then reads, at nine block sizes.
// Returns 0. A run shorter than a millisecond ends the process by SIGFPE.
int FpgaPerf();

// Register access with crossed requests: data other than 0 issues a read, data
// 0 a write. Returns the close result.
int wr_fpga(int address, int data);

// Registers by 16-bit word, as operators number them: print one, write one.
void print_fpga_word(int word);
void write_fpga_word(int word, int value);

// Writes the low 16 bits of value to the AC-3 control register of the open device.
// Returns the write's result.
int SetAC3ctrl(int value);

// SetAC3ctrl as a command, with the device opened for it.
void write_ac3_control(int value);
