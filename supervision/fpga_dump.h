// Register dump of the supervision.
#pragma once

// Takes a snapshot of the counters and prints it with the frame rate, the drift
// against the reference and the running time. Returns the last print's result.
int DebugPrintFPGARegs();
