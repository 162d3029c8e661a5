// Register utilities of the capture driver: image pipe and sensor interface.
#pragma once

#include <cstdint>

// Selects image-pipe register `reg` and, unless select_only is non-zero, writes
// `value` into it. Returns the close result, -1 for a device that did not open.
int ipiperw(std::int32_t reg, std::int32_t value, int select_only);

// Command-line utilities: a non-zero rw selects `reg` for reading, 0 writes
// `value` to it. Nothing is printed of the result.
void isif_reg_util(int rw, int reg, int value);
void ipipe_reg_util(int rw, int reg, int value);
