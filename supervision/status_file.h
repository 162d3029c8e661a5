// The periodic status file "monitor.txt" and the thread that writes it.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

// 1 once the thread was started.
extern Relaxed<std::int32_t> SystemMonitorStatus;

// Rewrites the file. Returns the result of closing it, or -1 (with a message)
// when it cannot be opened.
int savetofile(int frame_rate, int video_bitrate);

// Thread entry: saves the file every 25 s, the first time after 25 s. Never
// returns; the argument is not used.
void* SystemMonitoring(void* argument);

// Starts the thread unless it was started before.
void StartSystemMonitoring();

// Ends the calling thread once monitoring was started. The monitoring thread
// itself goes on. No caller; bench interface.
void StopSystemMonitoring();
