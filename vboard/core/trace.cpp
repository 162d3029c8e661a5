// Formats trace lines and hands them to the sink.
#include "vboard/core/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "hw/fpga_registers.h"
#include "vboard/core/board.h"

namespace vboard {

namespace {
TraceSink listening = nullptr;
TraceSink listening_to_files = nullptr;

void hand_over(TraceSink sink, const char* format, va_list arguments) {
  char line[1024];
  vsnprintf(line, sizeof line, format, arguments);
  sink(line);
}
}  // namespace

void set_trace_sink(TraceSink sink) { listening = sink; }

bool tracing() { return listening != nullptr; }

void trace(const char* format, ...) {
  if (listening == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  hand_over(listening, format, arguments);
  va_end(arguments);
}

void set_file_sink(TraceSink sink) { listening_to_files = sink; }

void trace_file(const char* format, ...) {
  if (listening_to_files == nullptr) return;
  va_list arguments;
  va_start(arguments, format);
  hand_over(listening_to_files, format, arguments);
  va_end(arguments);
}

namespace {

struct Named {
  int number;
  const char* name;
};
#define VBOARD_CHIP_NAME(address, name, model) {address, name},
constexpr Named kChips[] = {VBOARD_CHIPS(VBOARD_CHIP_NAME)};
#undef VBOARD_CHIP_NAME
constexpr Named kLines[] = {
    {26, "TVP5150 reset"},    {27, "TVP5150 release"}, {28, "AC-3 DSP reset"},
    {29, "AC-3 DSP release"}, {79, "select TVP7002"},  {80, "select TVP5150"},
    {82, "line 82 low"},      {83, "line 83 low"},     {84, "line 84 low"},
    {85, "line 82 high"},     {86, "line 83 high"},    {87, "line 84 high"},
    {93, "TVP7002 reset"},    {94, "TVP7002 release"}, {95, "audio reset"},
    {96, "audio release"}};

const char* name_of(const Named* first, const Named* last, int number) {
  for (; first != last; ++first)
    if (first->number == number) return first->name;
  return "";
}

const char* register_name(int address) {
  for (const FpgaRegister& one : kFpgaRegisters)
    if (one.address == address) return one.name;
  return "";
}

// What follows `head` in the text; null when it does not begin with it.
const char* behind(const char* text, const char* head) {
  const std::size_t length = strlen(head);
  return strncmp(text, head, length) == 0 ? text + length : nullptr;
}

// -1 when no number stands there.
int number_at(const char* text, int base) {
  char* end = nullptr;
  const long value = strtol(text, &end, base);
  return end == text ? -1 : static_cast<int>(value);
}

}  // namespace

std::string trace_note(const char* clean) {
  if (const char* chip = behind(clean, "i2c "))
    return name_of(std::begin(kChips), std::end(kChips), number_at(chip, 16));
  const char* action = behind(clean, "fpga ");
  if (action == nullptr) return "";
  if (const char* line = behind(action, "line "))
    return name_of(std::begin(kLines), std::end(kLines), number_at(line, 10));
  const char* blank = strchr(action, ' ');
  const char* address = blank == nullptr ? nullptr : behind(blank + 1, "0x");
  return address == nullptr ? "" : register_name(number_at(address, 16));
}

std::string trace_clean(const std::string& line) {
  if (line.empty() || line[0] == '#') return "";
  std::size_t at = 0;
  for (int words = 0; words < 3; ++words) {
    at = line.find(' ', at);
    if (at == std::string::npos) return "";
    ++at;
  }
  const std::size_t note = line.rfind(kTraceNote);
  return line.substr(at, note == std::string::npos || note < at ? note : note - at);
}

const char* errno_name(int error) {
  const char* name = strerrorname_np(error);
  return name != nullptr ? name : "E?";
}

}  // namespace vboard
