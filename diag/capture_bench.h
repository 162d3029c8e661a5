// Bench of the capture device: registers of image pipe and sensor interface, crop.
// Only the two register utilities are options of the command line; the others have
// no caller and are bench interface.
#pragma once

#include <cstdint>

// Selects image-pipe register `reg` and, unless select_only is non-zero, writes
// `value` into it. Returns the close result, -1 for a device that did not open.
int ipiperw(std::int32_t reg, std::int32_t value, int select_only);

// Command-line utilities: a non-zero rw selects `reg` for reading, 0 writes
// `value` to it. Nothing is printed of the result.
void isif_reg_util(int rw, int reg, int value);
void ipipe_reg_util(int rw, int reg, int value);

// Sets the capture device's crop to its bounds. Returns the result of closing
// the device, -1 when it did not open.
int SetCropImeg();

// Low four bits of x in whole numbers. x is cut to 256ths first, so that a
// negative one goes down: -0.5 gives 15. Values beyond 32 bits saturate.
float expr_to_ipipe_float16(float x);
