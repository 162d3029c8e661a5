// Playing a record again: its host and its world act on the board at the times that
// the record tells, in virtual time, beside the program.
#pragma once

namespace vboard {

// Reads the record and starts the thread that acts. `operations` tells how many
// device operations the program has done so far. A record with a fault in it ends
// the process with a message and status 125.
void start_replay(const char* record_file, unsigned long (*operations)());

}  // namespace vboard
