// Video resolution, frame rate, codec and output bit-rate: the handlers of
// "mpgVidRes", "mpgVidRate", "vbr" and "VidCodec", and two probes of the
// encoder's video side.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

extern Relaxed<std::int32_t> fps_parameter;          // frame-period code; 0 until a code sets it
extern Relaxed<std::int32_t> output_bitrate;         // bit/s; 0 derives it from the video rate
extern Relaxed<std::int32_t> extra_output_rate_pct;  // percent on top of the derived rate

// "mpgVidRes": the code for `encode`. Returns 0.
int encSetVidRes(const std::int32_t* value, std::int32_t context);

// "mpgVidRes": frame-period code and frame-rate code from the low 16 bits.
// Returns 0.
int fpgaSetVidRes(const std::int32_t* value, std::int32_t context);

// "vbr": variable bit-rate flag for `encode`. Returns 0.
int SetVBR(const std::int32_t* value, std::int32_t context);

// "mpgVidRate" in kbit/s: video bit-rate for `encode`, in bit/s. Returns 0.
int SetVidRate(const std::int32_t* value, std::int32_t context);

// "mpgVidRate" in kbit/s: output packet interval. Returns the result of the last
// register write.
int Setoutput_bitrate(const std::int32_t* value, std::int32_t context);

// "VidCodec": file suffix for `encode`; 1 MPEG-2, 2 H.264, others keep it.
// Returns 0.
int encSetVidCodec(const std::int32_t* value, std::int32_t context);

// "VidCodec": codec registers; 1 in the low byte is MPEG-2, all else H.264.
// Returns 0.
int fpgaSetVidCodec(const std::int32_t* value, std::int32_t context);

// Returns 0 when `encode` has raised its running flag, else 1.
int devinci_monitor();

// Sets the capture device's crop to its bounds. Returns the result of closing
// the device, -1 when it did not open.
int SetCropImeg();
