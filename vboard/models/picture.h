// What the decoders make of the source's picture.
#pragma once

#include "vboard/core/board.h"

namespace vboard {

inline const VideoStandard& sent_standard(const World& world) {
  return kVideoStandards[world.standard % std::size(kVideoStandards)];
}

// The part of the source's frame that becomes the picture.
struct PictureWindow {
  int left = 0;  // pixels, lines from the sync
  int right = 0;
  int top = 0;
  int width = 0;
  int height = 0;
  int bandwidth = 0;  // 0: all of it; each step less
};
PictureWindow tvp7002_window(const Board& board);  // tvp7002.cpp

// Gives PLL, outputs and window the values for what the source sends.
void tvp7002_fit_standard(Board& board);  // tvp7002.cpp

// What the capture driver does to the digitizer while its component input is
// selected: it sets the chip up for the standard that it detects.
void tvp7002_follow_standard(Board& board);  // tvp7002.cpp

}  // namespace vboard
