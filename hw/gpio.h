// Reset, release and selection lines: FPGA line actions and sysfs GPIO.
#pragma once

#include <cstdint>
#include <cstdio>

// Line actions of "/dev/fpga": the request number is the action. Line 83 is the LED
// of the host link, line 84 that of the front panel.
enum GpioLine : int {
  kTvp5150Reset = 26,
  kTvp5150Release = 27,
  kAc3DspReset = 28,
  kAc3DspRelease = 29,
  kSelectTvp7002 = 79,
  kSelectTvp5150 = 80,
  kLine82Low = 82,
  kLine83Low = 83,
  kLine84Low = 84,
  kLine82High = 85,
  kLine83High = 86,
  kLine84High = 87,
  kTvp7002Reset = 93,
  kTvp7002Release = 94,
  kAudioReset = 95,
  kAudioRelease = 96,
};

// Issues a line action with its word on an open stream of the device. Returns the
// result of the request, 0 when it is done; any other is reported.
int line_action(FILE* device, int line, std::int32_t word);

// Issues line action `line` Returns 0 done, 1 device not opened, 2 request
// failed. Each call keeps one more open stream on the device.
int prog_gpio(int line);

// Drives an exported sysfs GPIO output; any non-zero value sets it high.
// Returns the result of closing its value file. No caller; bench interface.
int SetNewGpio(int gpio, int value);
