// The writes whose loss the board does not notice, each with its reason.
#include "tests/sweep/unnoticed.h"

#include <cstring>

namespace {

struct Row {
  const char* set_up;  // what its name begins with; "" for all
  const char* write;   // what it begins with
  const char* reason;
};

constexpr Row kRows[] = {
    // The VGA plug has its syncs on pins of their own.
    {"vga", "i2c 5c 11 = 40", "threshold of the sync separator, which VGA goes around"},
    {"vga", "i2c 5c 12 = 01", "lines before a composite sync over which the PLL coasts"},
    {"vga", "i2c 5c 22 = 00", "stripper of a copy protection that VGA does not have"},
    {"vga", "i2c 5c 34 = 13", "width of that stripper; the program prints the register"},
    {"vga", "i2c 5c 35 = 00", "place of the vertical sync within its line, which nobody counts"},
    {"vga", "i2c 5c 3d = 06", "tolerance of the line length; the model's source has no jitter"},
    // Black is sampled 90 or 24 pixels behind the sync, in a back porch of 160.
    {"vga", "i2c 5c 31 = 18", "black is sampled in the back porch either way"},
    {"vga", "i2c 5c 45 = 05", "second field, of a picture without one"},
    {"hd_after_vga", "i2c 5c 1a = 6f", "pins of the VGA sync; component has it on green"},
    {"composite", "i2c 5d 03 = 0f", "general-purpose pins that lead nowhere known"},
    {"composite", "i2c 5d 04 = 1c", "standards left out of a search that finds PAL and NTSC"},
    {"composite", "i2c 5d 0f = 48", "meaning of pins that lead nowhere known"},
    {"composite", "i2c 5d 15 = 00", "genlock pin, which leads nowhere known"},
    {"hd_after_dsp", "i2c 1c 10", "gain of the DSP, which is not in the way any more"},
    {"receiver", "i2c 70 1b = 07", "general-purpose pin; the program prints the register"},
};

bool begins(const char* text, const char* with) { return strncmp(text, with, strlen(with)) == 0; }

}  // namespace

const char* reason_unnoticed(const char* set_up, const char* write) {
  for (const Row& row : kRows)
    if (begins(set_up, row.set_up) && begins(write, row.write)) return row.reason;
  return nullptr;
}
