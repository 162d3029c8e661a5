// Handlers that write the shared block for `encode`, and its launch.
#pragma once

#include <cstdint>

// "mpgVidRes": the code for `encode`. Returns 0.
int encSetVidRes(const std::int32_t* value, std::int32_t context);

// Handlers of the brightness and contrast keys; they take the low byte of the
// value. Return 0, and the print result.
int SetBrightness(const std::int32_t* value, std::int32_t context);
int SetContrast(const std::int32_t* value, std::int32_t context);

// "offset_x", "offset_y": the first pair only reports, the second pair stores.
int SetOffsetx(const std::int32_t* value, std::int32_t context);
int SetOffsety(const std::int32_t* value, std::int32_t context);
int SetOffsetX(const std::int32_t* value, std::int32_t context);
int SetOffsetY(const std::int32_t* value, std::int32_t context);

// "vbr": variable bit-rate flag for `encode`. Returns 0.
int SetVBR(const std::int32_t* value, std::int32_t context);

// "mpgVidRate" in kbit/s: video bit-rate for `encode`, in bit/s. Returns 0.
int SetVidRate(const std::int32_t* value, std::int32_t context);

// "VidCodec": file suffix for `encode`; 1 MPEG-2, 2 H.264, others keep it.
// Returns 0.
int encSetVidCodec(const std::int32_t* value, std::int32_t context);

// Rate-control words, named as their keys.
int SetEbMode(const std::int32_t* value, std::int32_t context);  // "eb_mode"
int SetFrameDiv(const std::int32_t* value, std::int32_t context);
int SetFrameMult(const std::int32_t* value, std::int32_t context);
int SetEbDelay(const std::int32_t* value, std::int32_t context);
int SetGopSize(const std::int32_t* value, std::int32_t context);
int SetIdr(const std::int32_t* value, std::int32_t context);
int SetNullStuffing(const std::int32_t* value, std::int32_t context);  // "null_disable"
int SetBufferConst(const std::int32_t* value, std::int32_t context);
int SetInterlace(const std::int32_t* value, std::int32_t context);  // "interlace_flag"

// Handler of "portActiveEnable": hands the applied settings over and launches
// `encode` in the background. The value is not looked at. Returns 0.
int start_hd(const std::int32_t* value, std::int32_t context);

// Returns 0 when `encode` has raised its running flag, else 1.
int devinci_monitor();
