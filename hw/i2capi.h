// I2C buses through "/dev/i2c-%d", and the (unused) semaphores of the bus.
//
// Every caller opens the bus, makes its transactions and closes it again. Chip
// addresses are 7-bit and travel in each transaction's message list.
#pragma once

#include <cstdint>

inline constexpr int kBoardI2cBus = 1;     // every chip of the board sits on this bus
inline constexpr int kI2cMaxWrite = 1024;  // data bytes at which i2c_writeblk refuses

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

// One raw byte without a sub-address.
int i2c_writeblkX(int fd, int addr, int value);

// Bench dump of the chip at 0x21, for ever. Returns -1 when its address cannot
// be bound.
int write_i2c(int fd);
