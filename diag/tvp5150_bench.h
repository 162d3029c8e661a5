// Bench of the TVP5150. Only the endless report and TVP5150_RW are options of the
// command line; the others have no caller and are bench interface.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

extern Relaxed<std::uint8_t> Closed_caption_byte[2];  // the last that GetFild read

// Initialises the decoder on a bus descriptor of its own. Returns 0, or -1 when
// the bus cannot be opened.
int TestTVP5150();

// Prints a status report every 2 s for ever. Returns -1, after a message, when
// the bus cannot be opened.
int tvp5150_report_loop();

// Resets the chip and prints a full status report. Returns 0, or -1.
int GetStatusTVP5150();

// Reads and acknowledges the caption status. Returns it, or 255 without a bus.
int GetCCStatus();

// Reads the two caption bytes of field 1 or 2; no other field is read. Returns
// 1, or -1 without a bus.
int GetFild(int field);

// Reads and prints (read not 0), or writes, one register. Returns 0, also
// without a bus.
int TVP5150_RW(int read, int reg, int value);
