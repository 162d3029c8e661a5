// Handlers of the video format: resolution, frame rate, captions and codec on the
// side of the FPGA. They return 0.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

// Frame period, 360 000 / (frames/s); starts at 0 and keeps its value over applies
// whose code does not set it.
extern Relaxed<std::int32_t> fps_parameter;

// "mpgVidRes": frame period and frame-rate code from the low 16 bits.
int fpgaSetVidRes(const std::int32_t* value, std::int32_t context);

// "vbiMode": 5 switches closed captions on and sets the SD decoder up again, any
// other value switches them off.
int CC_enable(const std::int32_t* value, std::int32_t context);

// "VidCodec": codec registers; 1 in the low byte is MPEG-2, all else H.264.
int fpgaSetVidCodec(const std::int32_t* value, std::int32_t context);
