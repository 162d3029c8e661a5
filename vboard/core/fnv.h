// FNV-1a, by which the models remember what was pushed through them.
#pragma once

#include <cstdint>

namespace vboard {

inline constexpr std::uint32_t kFnvStart = 2166136261u;

constexpr std::uint32_t fnv1a(std::uint32_t hash, std::uint8_t byte) {
  return (hash ^ byte) * 16777619u;
}

}  // namespace vboard
