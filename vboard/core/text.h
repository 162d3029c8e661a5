// Words, times and bytes as the virtual board reads and writes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vboard {

// The words of a text, without the separators between them.
inline constexpr std::string_view kBlanks = " \t\r\n";
std::vector<std::string_view> words_of(std::string_view text,
                                       std::string_view separators = kBlanks);

// The words with a blank between them.
std::string joined(const std::vector<std::string>& words);

// The board time that "30us", "500ms", "2s", "5min", "2h" or "3d" means, in microseconds;
// a number alone is taken in `unit_if_none`. False for anything else, and for a time
// below 0 or above some thirty years.
bool parse_time(const std::string& text, std::int64_t* us, const char* unit_if_none = "");

// Two digits a byte, with a blank before each: " 0a 1b".
std::string spaced_hex(const std::uint8_t* data, std::size_t size);
// Two digits a byte: "0a1b".
std::string packed_hex(std::string_view bytes);
// The bytes of either form, up to the first character that is of none.
std::string bytes_of(std::string_view hex);

}  // namespace vboard
