// I2C buses through "/dev/i2c-%d", registers of the chips on them, and semaphores.
//
// Every caller opens the bus, makes its transactions and closes it again. Chip
// addresses are 7-bit and travel in each transaction's message list.
#pragma once

#include <cstdint>
#include <span>

#include "state/relaxed.h"

inline constexpr int kBoardI2cBus = 1;     // every chip of the board sits on this bus
inline constexpr int kI2cMaxWrite = 1024;  // data bytes at which i2c_writeblk refuses

// The semaphores have no caller: every transaction is one call, which the kernel
// keeps whole.

// Finds or creates the semaphore set. A non-zero force, or creation, sets its
// three values to 1. Returns 0, or -1 when there is no set to be had.
int InitSemaphore(int force);

// One semop without undo: a process that dies while holding a lock leaves it
// taken until some process forces a re-initialisation. Return 0 or -1.
int LockI2C();
int UnlockI2C();
int LockStatus();
int UnLockStatus();

// Opens a bus read-write. Returns its descriptor, or -1.
int init_i2c(int bus);

// Opens the board's bus. Returns its descriptor, or -1 after the message as a line.
int open_i2c(const char* message);

// Closes a descriptor of the bus; -1 is left alone. Returns the close result.
int close_i2c(int fd);

// Reads len bytes after writing a sub-address of subaddr_len (0, 1 or 2) bytes,
// most significant first; of a longer one the other bytes are zeros. Without a
// sub-address exactly one byte is read, whatever len says. Returns the result of
// the transfer (negative on failure, the bytes left as they were), or -2 without
// touching the bus when subaddr_len is negative or more than 1024.
int i2c_readblk(int fd, int addr, int subaddr, int subaddr_len, int len, std::uint8_t* buf);

// Writes the sub-address and len bytes in one message. Returns the result of
// the transfer, or -2 without touching the bus when len is negative or 1024 or
// more, or subaddr_len negative or more than 1024. A subaddr_len above 2 still
// sends two sub-address bytes, and a zero after the data for each that is missing.
int i2c_writeblk(int fd, int addr, int subaddr, int subaddr_len, int len, const std::uint8_t* data);

// One register, one byte.
int i2c_readbyte(int fd, int addr, int reg, std::uint8_t* buf);
int i2c_writebyte(int fd, int addr, int reg, int value);

// Reads one register; a failed read gives 0.
std::uint8_t read_register(int fd, int addr, int reg);

// Reads one register into a byte that outlives the call: a failed read leaves it
// as it was. Returns what it holds then.
std::uint8_t refresh_register(int fd, int addr, int reg, Relaxed<std::uint8_t>* kept);

// One row of a chip set-up table.
struct RegisterValue {
  std::uint8_t reg;
  std::uint8_t value;
};

// Writes the rows in order; the results are not checked.
void write_registers(int fd, int addr, std::span<const RegisterValue> rows);

// One raw byte without a sub-address. No caller; bench interface.
int i2c_writeblkX(int fd, int addr, int value);

// Dumps the chip at 0x21 for ever. Returns -1 when its address cannot be bound. No
// caller; bench interface.
int write_i2c(int fd);
