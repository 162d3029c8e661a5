// AC-3 stream tracking: three operations that stand ready and that nothing
// starts. None may run while a configuration is applied.
#pragma once

// Waits without limit for a sync frame and programs the audio timing from it.
// Shaped as a thread entry; the argument is unused. Returns null.
void* AudioPolling_thread(void* unused);

// Reads the captured sync frame again and publishes its descriptor. Returns 0.
int get_hd_ac3_desc_parameters();

// Ends `encode` when it asks for an FPGA restart. Returns 0 then, 1 otherwise.
int fpga_monitor();
