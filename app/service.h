// Start of the encoder service, run mode "-602".
#pragma once

// Attaches the shared block, starts the status thread when a status file is wanted
// ("getmon") and the host-link thread, and gives the latter 100 ms. Returns 0, or
// a negative value when the block cannot be attached.
int start_service_threads(bool status_file);

// Runs the service on the calling thread. Returns only when the shared block
// cannot be attached, with that negative result.
int prog602(bool monitor_disabled, bool status_file);
