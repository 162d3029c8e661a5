// Bench capture of the AC-3 stream.
#pragma once

// Runs the host link and writes every word of the AC-3 capture FIFO to a file,
// for ever, with the status file if wanted. Returns a negative value when the shared block cannot
// be attached.
int ac3_test(bool status_file);
