// Words, times and bytes; see the header.
#include "vboard/core/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace vboard {

namespace {

constexpr double kLongest_us = 1e15;  // some thirty years

void add_digits(std::string& text, std::uint8_t byte) {
  static constexpr char kDigits[] = "0123456789abcdef";
  text += kDigits[byte >> 4];
  text += kDigits[byte & 15];
}

}  // namespace

std::vector<std::string_view> words_of(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> words;
  std::size_t at = text.find_first_not_of(separators);
  while (at != std::string_view::npos) {
    const std::size_t end = std::min(text.find_first_of(separators, at), text.size());
    words.push_back(text.substr(at, end - at));
    at = text.find_first_not_of(separators, end);
  }
  return words;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

bool parse_time(const std::string& text, std::int64_t* us, const char* unit_if_none) {
  static constexpr struct {
    const char* name;
    double us;
  } kUnits[] = {{"us", 1}, {"ms", 1e3}, {"s", 1e6}, {"min", 6e7}, {"h", 3.6e9}, {"d", 8.64e10}};
  char* end = nullptr;
  const double number = strtod(text.c_str(), &end);
  if (end == text.c_str()) return false;
  const char* unit = *end == '\0' ? unit_if_none : end;
  for (const auto& one : kUnits) {
    if (strcmp(unit, one.name) != 0) continue;
    const double all = number * one.us;
    if (std::signbit(all) || !(all <= kLongest_us)) return false;
    *us = static_cast<std::int64_t>(all);
    return true;
  }
  return false;
}

std::string spaced_hex(const std::uint8_t* data, std::size_t size) {
  std::string text;
  text.reserve(size * 3);
  for (std::size_t i = 0; i < size; ++i) {
    text += ' ';
    add_digits(text, data[i]);
  }
  return text;
}

std::string packed_hex(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char byte : bytes) add_digits(text, static_cast<std::uint8_t>(byte));
  return text;
}

std::string bytes_of(std::string_view hex) {
  std::string bytes;
  bytes.reserve(hex.size() / 2);
  for (;;) {
    hex.remove_prefix(std::min(hex.find_first_not_of(' '), hex.size()));
    std::uint8_t byte = 0;
    const char* const end = hex.data() + std::min<std::size_t>(hex.size(), 2);
    if (hex.size() < 2 || std::from_chars(hex.data(), end, byte, 16).ptr != end) return bytes;
    bytes += static_cast<char>(byte);
    hex.remove_prefix(2);
  }
}

}  // namespace vboard
