// Files from the host: configuration, software updates, factory restore.
#pragma once

#include <cstdint>
#include <cstdio>

inline constexpr std::int32_t kMaxUpdateSize = 5'000'000;  // bytes of an update archive

// Receives size bytes from the link into hd.ini. A wait error leaves the file
// open and empty. Without a buffer or the file nothing is taken from the link;
// without a buffer the stored file stays as it is.
void get_file(FILE* link, std::int32_t size);

// Receives an update archive of size bytes from the link, stores it and runs
// the resident update script.
void get_upgrate_file(FILE* link, std::int32_t size);

// The same with the archive taken from the FPGA's update FIFO; the link carries
// no data then.
void new_get_upgrate_file(FILE* link, std::int32_t size);

// 1 when the last update left its success marker (which is then deleted, so a
// success is told once), else 0.
int GetSuccessFileUpdate();

// Unpacks the factory archive and runs its script. Returns the result of the
// last shell command.
int restor_from_manufacture();
