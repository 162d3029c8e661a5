// A record as what is drawn: marks, spans and curves over board time.
#pragma once

#include <string>
#include <vector>

#include "vboard/cli/recording.h"

namespace vboard {

// Something that happened at a time. `look` is a class of the picture's style.
struct Mark {
  double at;
  std::string text;
  const char* look;
};

// Something that lasted.
struct Span {
  double from;
  double to;
  std::string text;
  const char* look;
};

struct Point {
  double at;
  double level;
};

struct Restart {
  double at;
  int cause;  // as reported to the host; 0 if the program printed none
};

struct Story {
  double begin = 0;
  double end = 0;
  std::vector<Mark> host;
  std::vector<Mark> world;
  std::vector<Span> video;
  std::vector<Span> audio;
  std::vector<Span> service;
  std::vector<Span> encode;
  std::vector<Point> video_level;
  std::vector<Point> audio_level;
  std::vector<Restart> restarts;
};

// A byte as host and board write it, two digits.
std::string hex_byte(unsigned byte);

Story tell(const Record& record);

}  // namespace vboard
