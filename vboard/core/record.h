// A record: a trace that includes what came from outside, so that the run can be
// replayed and drawn.
//
// Lines of a record have the form of trace lines; the place of the thread names
// who acted:
//   host link 02 -> --         one transfer: what the host clocked out, what came back
//   host fifo 1f 8b ...        a block into the FPGA's update FIFO
//   host looks                 a wait of the scripted host ended here
//   world source none          an operation on the world
//   main says TEXT             a line that the program printed
//   board levels 40.0 24.0     the board, sampled twice a second, if it changed:
//   board encode streams         buffer levels, the encoder, what is plugged in
//   board video component
//   board audio digital
//   board stopped              the operator stopped the program
//   board ended 0              the program's exit status
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "vboard/core/board.h"

namespace vboard {

inline constexpr char kHostActs[] = "host";
inline constexpr char kWorldActs[] = "world";
inline constexpr char kBoardActs[] = "board";
inline constexpr std::string_view kSaysPrefix = "says ";

inline constexpr std::int64_t kWatchInterval_us = 500000;

// Takes one finished line, its line end included.
using RecordSink = void (*)(const std::string& line);

// Where the lines of this process go. A process without a sink appends them to the
// file that the board names.
void set_record_sink(RecordSink sink);

// True while a run on this board is recorded.
bool recording(const Board& board);

// Adds a line when the run is recorded.
void record(Board& board, const char* who, const std::string& what);

// The scripted host has waited: whatever lives beside the program acted then.
void record_look(Board& board);

// A stream to standard output, each line of which is recorded as said by who().
FILE* open_heard_output(const char* (*who)());

// A line of a trace or a record, as the file holds it.
std::string trace_file_line(Board& board, const char* who, const std::string& what);

}  // namespace vboard
