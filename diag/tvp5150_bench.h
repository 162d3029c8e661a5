// Bench commands of the TVP5150.
#pragma once

// Initialises the decoder on a bus descriptor of its own. Returns 0, or -1 when
// the bus cannot be opened.
int TestTVP5150();

// Prints a status report every 2 s for ever. Returns -1, after a message, when
// the bus cannot be opened.
int tvp5150_report_loop();
