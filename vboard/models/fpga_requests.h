// Requests of the FPGA driver by number, and their records.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace vboard {

enum : unsigned long {
  kConfigStatus = 0,
  kConfigLine = 1,
  kConfigAddress = 2,
  kConfigByte = 3,
  kTestSelect = 12,
  kTestWrite = 13,
  kTestRead = 14,
  kWriteReg = 15,
  kReadReg = 16,
  kWriteBlock = 17,
  kReadBlock = 18,
  kLedOn = 0x53,
  kLedOff = 0x56,
  kLedStart = 87,
};

inline constexpr unsigned long kFpgaLines[] = {26, 27, 28, 29, 79, 80, 82, 83,
                                               84, 85, 86, 87, 93, 94, 95, 96};
inline bool fpga_line(unsigned long request) {
  return std::find(std::begin(kFpgaLines), std::end(kFpgaLines), request) != std::end(kFpgaLines);
}

struct FpgaSingleRecord {
  std::int32_t index;
  std::uint16_t value;
  std::uint16_t padding;
};
struct FpgaBlockRecord {
  std::int32_t index;
  std::uint32_t count;
  void* buffer;
};

}  // namespace vboard
