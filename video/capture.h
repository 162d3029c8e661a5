// The capture device "/dev/video0": input selection, the detected standard, and
// the driver's private register requests.
#pragma once

#include <cstdint>

inline constexpr char kCaptureDevice[] = "/dev/video0";

// Private requests of the capture driver. Each takes a pointer; a select reads
// the register it names, a write stores into the register last selected.
enum CaptureRequest : unsigned long {
  kCaptureIsifSelect = 0xC004562A,   // sensor interface: one word, register number
  kCaptureIsifWrite = 0xC004562B,    // sensor interface: value first, see CaptureWrite
  kCaptureIpipeSelect = 0xC004562C,  // image pipe: one word, register number
  kCaptureIpipeWrite = 0xC004562D,   // image pipe: value first, see CaptureWrite
};

// Record of the write requests as the register utilities send it. The request
// numbers announce one word: the driver needs no more than the value.
struct CaptureWrite {
  std::int32_t value;
  std::int32_t reg;
};
static_assert(sizeof(CaptureWrite) == 8);

// Image-pipe registers that place the captured picture.
inline constexpr std::int32_t kIpipeVerticalOffset = 16;
inline constexpr std::int32_t kIpipeHorizontalOffset = 24;

// Inputs of the driver.
inline constexpr int kCaptureComponent = 1;
inline constexpr int kCaptureRgb = 3;
inline constexpr int kCaptureComposite = 4;
inline constexpr int kCaptureComposite577 = 5;

// Opens the device read-write. Returns its descriptor, or -1 after a message.
int open_capture();

// Closes a descriptor of open_capture. Returns the close result; -1 for a
// device that did not open.
int close_capture(int fd);

// Selects an image-pipe register, writes the selected one. Return the request's
// result.
int select_ipipe_register(int fd, std::int32_t reg);
int write_ipipe_register(int fd, std::int32_t value);

// Selects the driver's video input. Returns the request's result, negative on
// failure.
int SetInputMux(int channel);

// Number of the standard that the driver detects: 1 to 6 or 9 to 15. Returns 0
// when the request fails or the mask does not hold exactly one known bit.
int GetSTD();
