// Reads the trace line by line.
#include "tests/soak/traffic.h"

#include <cstring>

Traffic traffic;

namespace {

bool begins(const char* line, const char* with) { return strncmp(line, with, strlen(with)) == 0; }

// The standard register of the decoder is set to the low byte of an address, which
// changes from one process to the next: its value is no part of the digest.
constexpr char kDecoderStandard[] = "i2c 5d wr 28 ";

}  // namespace

void take_trace(const char* clean) {
  const std::size_t size =
      begins(clean, kDecoderStandard) ? sizeof kDecoderStandard - 1 : strlen(clean) + 1;
  traffic.digest.add(clean, size);
  if (begins(clean, "fpga wr 0x0040")) ++traffic.latches;
  if (begins(clean, "fpga line ")) {
    ++traffic.line_actions;
    if (strcmp(clean, "fpga line 79") == 0) ++traffic.set_ups;
  }
  if (begins(clean, "open /dev/spislave")) ++traffic.links;
}
