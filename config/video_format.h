// Video resolution, frame rate, captions and codec on the side of the FPGA.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

extern Relaxed<std::int32_t> fps_parameter;  // frame-period code; 0 until a code sets it

// "mpgVidRes": frame-period code and frame-rate code from the low 16 bits.
// Returns 0.
int fpgaSetVidRes(const std::int32_t* value, std::int32_t context);

// "VidCodec": codec registers; 1 in the low byte is MPEG-2, all else H.264.
// Returns 0.
int fpgaSetVidCodec(const std::int32_t* value, std::int32_t context);

// "vbiMode": 5 switches closed captions on and sets the SD decoder up again.
int CC_enable(const std::int32_t* value, std::int32_t context);
