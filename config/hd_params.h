// hd_params: the table of configuration keys, and applying a configuration.
#pragma once

#include <cstdint>

inline constexpr char kHdIniPath[] = "/home/tovin/hd.ini";

// A handler takes the value scanned for its key; the context carries nothing.
using HdHandler = int (*)(const std::int32_t* value, std::int32_t context);

struct HdParam {
  const char* key;  // null ends the table
  const char* format;
  HdHandler encoder;  // called in this order, null: none
  HdHandler video_input;
  HdHandler audio_input;
  HdHandler fpga;
};

extern const HdParam hd_params[];  // every key, in the order in which they act

// Applies the whole of hd.ini, row by row. Returns 0, or -1 when the file cannot
// be opened; the FPGA path is held then.
int Configure_System();

// Returns "mpgVidRes" of hd.ini, 0 when it is not there, -1 when the file cannot
// be opened.
int GetVideoStdFromHDini();
