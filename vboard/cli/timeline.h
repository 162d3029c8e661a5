// Draws a record as a picture.
#pragma once

#include <string>

namespace vboard {

struct TimelineOptions {
  std::string record;
  std::string output;
  std::string title;  // "" for the recorded command
};

// Writes the picture, SVG. Returns 0, or 125 with a text in `problem`.
int draw_timeline(const TimelineOptions& options, std::string* problem);

}  // namespace vboard
