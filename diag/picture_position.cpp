// Owns the position of the VGA picture: defaults and limits per standard, and
// the shift through the capture driver's offset registers.
#include "diag/picture_position.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "config/hd_params.h"
#include "hw/time_units.h"
#include "video/capture.h"

std::int32_t x_offset = 0;
std::int32_t y_offset = 0;

constexpr VgaSet vga_set[kVgaSets] = {
    {24, 120, 80, 336, 0, 0},  {30, 164, 116, 336, 0, 0}, {40, 148, 84, 336, 0, 0},
    {32, 34, 80, 336, 0, 0},   {22, 130, 80, 336, 0, 0},  {22, 234, 80, 336, 0, 0},
    {22, 234, 80, 336, 0, 0},  {32, 64, 80, 336, 0, 0},   {26, 194, 80, 336, 0, 0},
    {37, 192, 512, 336, 0, 0}, {18, 48, 128, 160, 0, 8},  {34, 20, 128, 160, 0, 8},
};

struct StandardRow {
  int video_std;
  int row;
};

// Rows 3, 5, 6 and 11 belong to no standard.
static constexpr StandardRow kStandardRows[] = {{8, 4},  {9, 1},  {10, 2}, {23, 0},
                                                {25, 7}, {30, 8}, {35, 9}, {40, 10}};

static constexpr useconds_t kSettle_us = 10;

static const VgaSet& set_for(int video_std) {
  for (const StandardRow& standard : kStandardRows) {
    if (standard.video_std == video_std) return vga_set[standard.row];
  }
  return vga_set[0];
}

// One further from zero when odd; 64 bits hold every result.
static std::int64_t even_step(std::int64_t step) {
  if (step % 2 == 0) return step;
  return step > 0 ? step + 1 : step - 1;
}

static std::int32_t moved(std::int32_t offset, std::int64_t step, int limit, int floor) {
  if (step > 0) return static_cast<std::int32_t>(offset + std::min<std::int64_t>(step, limit));
  if (step < 0) return static_cast<std::int32_t>(std::max<std::int64_t>(offset + step, floor));
  return offset;
}

static void write_offset(int fd, std::int32_t reg, std::int32_t offset) {
  select_ipipe_register(fd, reg);
  write_ipipe_register(fd, offset);
  usleep(kSecond_us);
}

int Offset(int dx, int dy) {
  const int video_std = GetVideoStdFromHDini();
  const int fd = open_capture();
  const VgaSet& set = set_for(video_std);
  // Always from the defaults: shifts do not add up.
  y_offset = set.default_v;
  x_offset = set.default_h;
  SetxySeting(dx, dy, set.h_step, set.h_floor, set.v_step, set.v_floor, set.default_h,
              set.default_v);
  usleep(kSettle_us);
  printf("Default: Horizontal Offset Reg = 0x%x (%d), Vertical Offset Reg = 0x%x (%d)\n",
         set.default_h, set.default_h, set.default_v, set.default_v);
  printf("Set:     Horizontal Offset Reg = 0x%x (%d), Vertical Offset Reg = 0x%x (%d), std=%d\n",
         x_offset, x_offset, y_offset, y_offset, video_std);
  write_offset(fd, kIpipeHorizontalOffset, x_offset);
  write_offset(fd, kIpipeVerticalOffset, y_offset);
  return close_capture(fd);
}

void SetxySeting(int dx, int dy, int h_step, int h_floor, int v_step, int v_floor,
                 int /*default_h*/, int /*default_v*/) {
  x_offset = moved(x_offset, even_step(dx), h_step, h_floor);
  y_offset = moved(y_offset, dy, v_step, v_floor);
}
