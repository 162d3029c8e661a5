// Position of the captured VGA picture.
#pragma once

#include <cstdint>

extern std::int32_t x_offset;  // current horizontal offset
extern std::int32_t y_offset;  // current vertical offset

// Defaults and limits of one VGA standard.
struct VgaSet {
  std::int32_t default_v;
  std::int32_t default_h;
  std::int32_t h_step;  // largest single increase
  std::int32_t v_step;
  std::int32_t h_floor;  // lowest offset
  std::int32_t v_floor;
};

inline constexpr int kVgaSets = 12;
extern const VgaSet vga_set[kVgaSets];

// Bench: shifts the picture from the default position of the configured
// standard. Returns the close result of the capture device, -1 when it did not
// open.
int Offset(int dx, int dy);

// Moves x_offset and y_offset by dx and dy. A step limits one increase, a floor
// the offset itself; there is no upper bound. The defaults are not used.
void SetxySeting(int dx, int dy, int h_step, int h_floor, int v_step, int v_floor, int default_h,
                 int default_v);
