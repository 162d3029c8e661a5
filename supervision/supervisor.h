// The supervision loop: keeps `encode` and the hardware path behind it alive.
#pragma once

// Sets all counters of the loop to their start values.
void clear_supervision_counters();

// Watches for ever, about every 1.5 s; never returns. With the monitor
// disabled it only reports: no check, no restart.
void supervise(bool monitor_disabled);

// Ends `encode` when it asks for an FPGA restart. Returns 0 then, 1 otherwise. No
// caller; bench interface.
int fpga_monitor();
