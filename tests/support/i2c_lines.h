// Trace lines of the I2C bus, as a test expects them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace i2c_lines {

using Lines = std::vector<std::string>;

inline constexpr char kOpen[] = "open /dev/i2c-1";
inline constexpr char kClose[] = "close /dev/i2c-1";

inline std::string text(const char* format, int a, int b, int c = 0) {
  char line[64];
  snprintf(line, sizeof line, format, a, b, c);
  return line;
}

inline std::string wr(int address, int reg, int value) {
  return text("i2c %02x wr %02x %02x", address, reg, value);
}
inline std::string rd(int address, int reg, int value) {
  return text("i2c %02x rd %02x -> %02x", address, reg, value);
}
inline std::string rd_failed(int address, int reg) {
  return text("i2c %02x rd %02x = EREMOTEIO", address, reg);
}
inline std::string wait(int microseconds) { return "wait " + std::to_string(microseconds); }

inline void add(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

// The writes of a register list "01=42, 02=00": register=value in hexadecimal.
inline Lines writes(int address, const std::string& list) {
  constexpr std::size_t kStep = 7;  // "01=42, "
  Lines lines;
  for (std::size_t at = 0; at < list.size(); at += kStep)
    lines.push_back(wr(address, static_cast<int>(strtol(list.c_str() + at, nullptr, 16)),
                       static_cast<int>(strtol(list.c_str() + at + 3, nullptr, 16))));
  return lines;
}

// The lines with the value of the `from_end`-th of them (1: the last) as "??".
inline Lines masked(Lines lines, std::size_t from_end) {
  std::string& line = lines.at(lines.size() - from_end);
  line.replace(line.size() - 2, 2, "??");
  return lines;
}

}  // namespace i2c_lines
