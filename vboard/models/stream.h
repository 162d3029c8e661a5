// The transport stream that leaves the board, as an analyser would describe it:
// made from what the registers say, not from what the configuration wished.
#pragma once

#include <string>
#include <vector>

#include "vboard/core/board.h"

namespace vboard {

struct VideoInStream {
  bool there = false;
  int pid = 0;
  std::string codec;  // "H.264", "MPEG-2"
  double frames_per_second = 0;
  int width = 0;
  int height = 0;
  bool interlaced = false;
  int left = 0;  // where the source's frame is cut out, from its sync: 0 to 0, all of it
  int right = 0;
  int top = 0;
  int bandwidth = 0;  // of the digitizer: 0 the full one, each step less
  bool captions = false;
  int delay = 0;  // decoding time-stamp offset as programmed
};

struct SoundInStream {
  bool there = false;
  int pid = 0;
  std::string source;  // "digital input", "DSP"
  int kbit_per_second = 0;
  int sample_rate = 0;  // Hz
  int frame_bytes = 0;
  bool decodable = false;  // frames are cut where the source's end
  double left_dB = 0;      // of the DSP's input; muted channels are silent
  double right_dB = 0;
  bool left_silent = false;
  bool right_silent = false;
  int delay = 0;
};

struct TransportStream {
  bool there = false;  // packets leave the board
  double Mbit_per_second = 0;
  int packet_interval = 0;  // ticks of 81 MHz
  double packet_us = 0;
  int pcr_pid = 0;
  VideoInStream video;
  SoundInStream sound;
};
TransportStream stream_of(const Board& board);

// The same in lines of text, with the reasons why something is missing or wrong.
std::vector<std::string> stream_text(const Board& board);

// Two analysers would tell these apart.
bool differ(const TransportStream& one, const TransportStream& other);

}  // namespace vboard
