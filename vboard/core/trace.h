// The trace: every device operation, one line.
//
// The text handed to trace() is the clean form, comparable by machine and equal
// in every run. A sink adds what it wants: a file adds sequence, board time and
// thread; a test keeps the clean text.
//
// Clean lines, by example:
//   open /dev/fpga r+b            close /dev/fpga          open /dev/i2c-1 = ENOENT
//   fpga wr 0x0204 <- 0x4000      fpga rd 0x0060 -> 0x01f4
//   fpga wrblk 0x1000 n=2 <- 00 10          fpga rdblk 0x0000 n=256
//   fpga line 26                  fpga led 83              fpga config-line 1
//   i2c 5c wr 19 00               i2c 5c rd 19 -> aa       i2c 1c rd -> ab   (= EREMOTEIO)
//   video0 S_INPUT 3              video0 0xc004562c 24
//   spi rd 02                     spi wr 2d                select 15000000 ready|timeout
//   wait 1000000                  shell killall encode     gpio 5 <- 1
//   pll wr 70 00                  pll rd 70 00             violation ...
#pragma once

#include <string>

namespace vboard {

// Takes one clean line (no line end).
using TraceSink = void (*)(const char* clean);

void set_trace_sink(TraceSink sink);

// True when somebody listens: lines that take work to put together are not, else.
bool tracing();

void trace(const char* format, ...) __attribute__((format(printf, 1, 2)));

// What the program does to the board's files that it holds open, in a test that wants
// to know its place among the device operations; no part of a trace.
//   file /home/tovin/hd.ini <- 6 bytes      file /home/tovin/hd.ini closed
void set_file_sink(TraceSink sink);
void trace_file(const char* format, ...) __attribute__((format(printf, 1, 2)));

// What a person wants to know beside a clean line: the register's label, the
// chip's name, what a line action does. "" when there is nothing to add.
std::string trace_note(const char* clean);

// A trace file's first line; each further line is sequence, board time, thread,
// the clean text, and perhaps a note behind kTraceNote.
inline constexpr char kTraceHeader[] = "# vboard trace 1";
inline constexpr char kTraceNote[] = "  # ";

// The clean text of a trace file's line; "" for a line that holds none.
std::string trace_clean(const std::string& line);

// Name of an errno value as a trace shows it ("ENOENT").
const char* errno_name(int error);

}  // namespace vboard
