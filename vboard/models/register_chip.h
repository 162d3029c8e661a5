// The wire form that the register chips share: the first byte of a write
// message names a register, what follows goes to it and the ones after it; a
// read message goes on from the register last named.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "vboard/core/board.h"

namespace vboard {

// A run of registers that the chip is known to have, both ends included.
struct RegisterRange {
  int first;
  int last;
};

constexpr bool holds(std::span<const RegisterRange> ranges, int reg) {
  for (const RegisterRange& range : ranges) {
    if (reg >= range.first && reg <= range.last) return true;
  }
  return false;
}

// The chips take one value a message; a longer write still lands, and is noted.
inline constexpr std::size_t kRegisterWriteSize = 2;

// `put(reg, value)` stores one byte.
template <class Put>
bool write_registers(Board& board, const char* chip, std::uint8_t& pointer,
                     const std::uint8_t* data, std::size_t size, Put put) {
  if (size == 0 || size > kRegisterWriteSize) violation(board, "%s write of %zu bytes", chip, size);
  if (size == 0) return true;
  pointer = data[0];
  for (std::size_t i = 1; i < size; ++i) put(pointer++, data[i]);
  return true;
}

// `get(reg)` fetches one byte.
template <class Get>
bool read_registers(std::uint8_t& pointer, std::uint8_t* data, std::size_t size, Get get) {
  for (std::size_t i = 0; i < size; ++i) data[i] = get(pointer++);
  return true;
}

}  // namespace vboard
