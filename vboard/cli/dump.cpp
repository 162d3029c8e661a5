// Dumps of the FPGA's registers; see the header for their lines.
#include "vboard/cli/dump.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string_view>
#include <vector>

#include "hw/fpga_registers.h"
#include "vboard/core/clock.h"
#include "vboard/core/text.h"
#include "vboard/models/fpga.h"

namespace vboard {

namespace {

using Words = std::vector<std::string_view>;

struct Value {
  unsigned word;
  unsigned value;
};

const char* name_at(int address) {
  for (const FpgaRegister& one : kFpgaRegisters)
    if (one.address == address) return one.name;
  return nullptr;
}

// "0x" and one to four hexadecimal digits, nothing else.
bool parse_number(std::string_view word, unsigned* number) {
  constexpr std::size_t kMostDigits = 4;
  if (word.substr(0, 2) != "0x" || word.size() > 2 + kMostDigits) return false;
  const char* end = word.data() + word.size();
  const auto result = std::from_chars(word.data() + 2, end, *number, 16);
  return result.ec == std::errc{} && result.ptr == end;
}

// "0xADDRESS 0xVALUE" by even byte address; the name after it may be missing,
// but not another register's.
bool parse_saved(const Words& words, Value* value) {
  unsigned address = 0;
  if (words.size() < 2 || words.size() > 3 || !parse_number(words[0], &address) ||
      !parse_number(words[1], &value->value) || address % 2 != 0)
    return false;
  value->word = address / 2;
  const char* name = name_at(static_cast<int>(address));
  return words.size() == 2 || (name != nullptr && words[2] == name);
}

// "addr 0xWORD: 0xVALUE" by word address.
bool parse_printed(const Words& words, Value* value) {
  if (words.size() != 3 || words[0] != "addr" || words[1].back() != ':') return false;
  return parse_number(words[1].substr(0, words[1].size() - 1), &value->word) &&
         parse_number(words[2], &value->value);
}

// Reads all lines. False with a text in `problem` when one of them is faulty or
// there is none.
bool read_values(const std::string& file, std::vector<Value>* values, std::string* problem) {
  std::ifstream stream(file);
  if (!stream) {
    *problem = "cannot read " + file + ": " + strerror(errno);
    return false;
  }
  int number = 0;
  for (std::string line; std::getline(stream, line);) {
    ++number;
    const Words words = words_of(line);
    if (words.empty() || words[0][0] == '#') continue;
    Value value = {};
    if ((!parse_saved(words, &value) && !parse_printed(words, &value)) ||
        value.word >= kFpgaWords) {
      *problem = file + ":" + std::to_string(number) +
                 ": wanted \"0xADDRESS 0xVALUE [NAME]\" or \"addr 0xWORD: 0xVALUE\"";
      return false;
    }
    values->push_back(value);
  }
  if (!values->empty()) return true;
  *problem = file + " holds no register";
  return false;
}

}  // namespace

bool save_registers(Board& board, const std::string& file, std::string* problem) {
  FILE* stream = fopen(file.c_str(), "w");
  if (stream == nullptr) {
    *problem = "cannot write " + file + ": " + strerror(errno);
    return false;
  }
  for (int word = 0; word < kFpgaWords; ++word) {
    const char* name = name_at(word * 2);
    const unsigned value = fpga_peek(board, board_now_us(), word * 2);
    if (name == nullptr && value == 0) continue;
    fprintf(stream, "0x%04x 0x%04x%s%s\n", static_cast<unsigned>(word * 2), value,
            name != nullptr ? " " : "", name != nullptr ? name : "");
  }
  const bool written = ferror(stream) == 0;
  if (fclose(stream) == 0 && written) return true;
  *problem = "cannot write " + file + ": " + strerror(errno);
  return false;
}

bool load_registers(Board& board, const std::string& file, bool hold, std::string* problem) {
  std::vector<Value> values;
  if (!read_values(file, &values, problem)) return false;
  for (const Value& one : values) board.fpga.reg[one.word] = static_cast<std::uint16_t>(one.value);
  board.fpga.held = hold;
  return true;
}

}  // namespace vboard
