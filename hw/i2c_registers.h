// Small helpers of the chips on the I2C bus: the bus opened with its message and
// closed, register tables, register reads that need no check.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <span>

#include "hw/i2capi.h"
#include "state/relaxed.h"

// One row of a chip set-up table.
struct RegisterValue {
  std::uint8_t reg;
  std::uint8_t value;
};

// Writes the rows in order; the results are not checked.
inline void write_registers(int fd, int addr, std::span<const RegisterValue> rows) {
  for (const RegisterValue& row : rows) i2c_writebyte(fd, addr, row.reg, row.value);
}

// Reads one register; a failed read gives 0.
inline std::uint8_t read_register(int fd, int addr, int reg) {
  std::uint8_t byte = 0;
  i2c_readbyte(fd, addr, reg, &byte);
  return byte;
}

// Reads one register into a byte that outlives the call: a failed read leaves it
// as it was. Returns what it holds then.
inline std::uint8_t refresh_register(int fd, int addr, int reg, Relaxed<std::uint8_t>* kept) {
  std::uint8_t byte = *kept;
  i2c_readbyte(fd, addr, reg, &byte);
  *kept = byte;
  return byte;
}

// Opens the board's bus. Returns its descriptor, or -1 after the message as a line.
inline int open_i2c(const char* message) {
  const int fd = init_i2c(kBoardI2cBus);
  if (fd < 0) puts(message);
  return fd;
}

// Closes a descriptor of the bus; -1 is left alone. Returns the close result.
inline int close_i2c(int fd) { return fd < 0 ? -1 : close(fd); }
