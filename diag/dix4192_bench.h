// Bench command of the DIX4192.
#pragma once

// Bench: programs the receiver and dumps its registers. Returns 0, or -1 when the
// bus cannot be opened.
int prog4192();
