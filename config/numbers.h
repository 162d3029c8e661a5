// Numbers of settings: ranges, units, and what does not fit into 32 bits.
#pragma once

#include <cstdint>
#include <limits>

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

// Truncates toward zero; what does not fit becomes the nearest limit.
inline std::int32_t to_int_saturating(double number) {
  constexpr double kTop = 2147483648.0;  // 2^31
  if (!(number < kTop)) return std::numeric_limits<std::int32_t>::max();
  if (number < -kTop) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(number);
}
