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

// What the chip at `address` answers for a register that holds `value`.
inline std::uint8_t seen_value(const Board& board, int address, std::uint8_t reg,
                               std::uint8_t value) {
  const Faults& faults = board.world.faults;
  for (std::uint32_t i = 0; i < faults.stuck_count; ++i) {
    const StuckRegister& stuck = faults.stuck[i];
    if (stuck.address == address && stuck.reg == reg) return stuck.value;
  }
  return value;
}

// `get(reg)` fetches one byte.
template <class Get>
bool read_registers(const Board& board, int address, std::uint8_t& pointer, std::uint8_t* data,
                    std::size_t size, Get get) {
  for (std::size_t i = 0; i < size; ++i, ++pointer)
    data[i] = seen_value(board, address, pointer, get(pointer));
  return true;
}

}  // namespace vboard
