// What the devices need before pictures, sound and a stream come through, and what
// of it is lacking, in words.
//
// A need follows from what a register means, by the register map or the chip's
// data sheet. A device with a need that is not met stays dark, except where the
// need is marked: then something comes through, and it is wrong.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "vboard/core/board.h"

namespace vboard {

struct Need {
  const char* lack;  // said while it is not met
  bool (*lacking)(const Board& board);
  bool spoils = false;  // something comes through all the same
};

// A device, or a side of it, on the way of picture, sound or stream.
struct Part {
  const char* name;
  std::span<const Need> needs;
};

extern const Part kTvp7002Sync;      // tvp7002.cpp
extern const Part kTvp7002Picture;   // tvp7002.cpp
extern const Part kTvp5150Lock;      // tvp5150.cpp
extern const Part kTvp5150Picture;   // tvp5150.cpp
extern const Part kTvp5150Captions;  // tvp5150.cpp
extern const Part kCapturePart;      // capture.cpp
extern const Part kDix4192Lock;      // dix4192.cpp
extern const Part kDix4192Output;    // dix4192.cpp
extern const Part kAc3DspPart;       // ac3dsp.cpp
extern const Part k7353Part;         // clocks.cpp
extern const Part kClock55Part;      // clocks.cpp
extern const Part kPllPart;          // clocks.cpp
extern const Part kFpgaPicture;      // fpga_path.cpp: from the decoder into the FPGA
extern const Part kFpgaVideo;        // fpga_path.cpp: the video's way into the stream
extern const Part kFpgaSound;        // fpga_path.cpp: the sound's
extern const Part kFpgaStream;       // fpga_path.cpp: the multiplexer itself

// True when nothing is lacking that keeps the part dark.
bool works(const Board& board, const Part& part);

// Everything that the part lacks, each as "tvp7002: input not selected".
std::vector<std::string> lacks(const Board& board, const Part& part);

// Why there is no picture, no sound, no stream, or a wrong one. Empty when all is
// well; `others` is what the devices lack that nothing comes through now.
struct Lacking {
  std::vector<std::string> picture;
  std::vector<std::string> sound;
  std::vector<std::string> stream;
  std::vector<std::string> others;
};
Lacking lacking(const Board& board);

// A register, a line or the world has changed.
void set_up_changed(const Board& board);

// What comes through.
const Verdict& verdict(const Board& board);

}  // namespace vboard
