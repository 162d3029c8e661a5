// Settings with a range: what is stored for a value outside it.
#pragma once

#include <cstdint>

struct Range {
  std::int32_t low;  // inclusive
  std::int32_t high;
  std::int32_t fallback;  // stored for a value outside
};

inline std::int32_t limited(std::int32_t value, const Range& range) {
  return value > range.high || value < range.low ? range.fallback : value;
}

// Thousands of configured units, wrapping as a 32-bit word.
inline std::int32_t kilo_to_units(std::int32_t kilo) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(kilo) * 1000U);
}
