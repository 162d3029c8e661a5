// Dumps of the FPGA's registers; see the header for their lines.
#include "vboard/cli/dump.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

#include "hw/fpga_registers.h"

namespace vboard {

namespace {

struct Value {
  unsigned word;
  unsigned value;
};

const char* name_at(int address) {
  for (const FpgaRegister& one : kFpgaRegisters)
    if (one.address == address) return one.name;
  return nullptr;
}

bool parse(const std::string& line, Value* value) {
  unsigned address = 0;
  char rest = 0;
  if (sscanf(line.c_str(), "addr 0x%x: 0x%x %c", &value->word, &value->value, &rest) == 2)
    return value->word < kFpgaWords && value->value <= 0xFFFF;
  if (sscanf(line.c_str(), "0x%x 0x%x", &address, &value->value) != 2) return false;
  value->word = address / 2;
  return address % 2 == 0 && value->word < kFpgaWords && value->value <= 0xFFFF;
}

}  // namespace

bool save_registers(const Board& board, const std::string& file, std::string* problem) {
  FILE* stream = fopen(file.c_str(), "w");
  if (stream == nullptr) {
    *problem = "cannot write " + file + ": " + strerror(errno);
    return false;
  }
  for (int word = 0; word < kFpgaWords; ++word) {
    const char* name = name_at(word * 2);
    const unsigned value = board.fpga.reg[word];
    if (name == nullptr && value == 0) continue;
    fprintf(stream, "0x%04x 0x%04x%s%s\n", static_cast<unsigned>(word * 2), value,
            name != nullptr ? " " : "", name != nullptr ? name : "");
  }
  if (fclose(stream) == 0) return true;
  *problem = "cannot write " + file + ": " + strerror(errno);
  return false;
}

bool load_registers(Board& board, const std::string& file, std::string* problem) {
  std::ifstream stream(file);
  if (!stream) {
    *problem = "cannot read " + file;
    return false;
  }
  std::vector<Value> values;
  int number = 0;
  for (std::string line; std::getline(stream, line);) {
    ++number;
    if (line.empty() || line[0] == '#') continue;
    Value value = {};
    if (!parse(line, &value)) {
      *problem = file + ":" + std::to_string(number) +
                 ": wanted \"0xADDRESS 0xVALUE\" or \"addr 0xWORD: 0xVALUE\"";
      return false;
    }
    values.push_back(value);
  }
  for (const Value& one : values) board.fpga.reg[one.word] = static_cast<std::uint16_t>(one.value);
  return true;
}

}  // namespace vboard
