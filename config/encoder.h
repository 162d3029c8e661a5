// Handlers that write the shared block for `encode`, and the launch of `encode`.
//
// Each is named with its key. Handlers take the value scanned for the key; the
// context carries nothing. They return 0 unless said otherwise.
#pragma once

#include <cstdint>

// "mpgVidRes": video standard code, as configured.
int encSetVidRes(const std::int32_t* value, std::int32_t context);

// "inVideoBrightness", "inVideoContrast": low byte, 0 to 255, mapped onto 0 to 255
// and 0 to 247. SetContrast returns the print's result.
int SetBrightness(const std::int32_t* value, std::int32_t context);
int SetContrast(const std::int32_t* value, std::int32_t context);

// "offset_x" in pixels, "offset_y" in lines: the first pair only prints, the second
// pair stores.
int SetOffsetx(const std::int32_t* value, std::int32_t context);
int SetOffsety(const std::int32_t* value, std::int32_t context);
int SetOffsetX(const std::int32_t* value, std::int32_t context);
int SetOffsetY(const std::int32_t* value, std::int32_t context);

// "vbr": variable bit-rate, as configured.
int SetVBR(const std::int32_t* value, std::int32_t context);

// "mpgVidRate" in kbit/s, stored in bit/s modulo 2^32.
int SetVidRate(const std::int32_t* value, std::int32_t context);

// "VidCodec": file suffix; 1 MPEG-2, 2 H.264, any other value keeps it.
int encSetVidCodec(const std::int32_t* value, std::int32_t context);

// "portActiveEnable": hands the applied settings over and launches `encode` in the
// background, whatever the value.
int start_hd(const std::int32_t* value, std::int32_t context);

// Returns 0 when `encode` has raised its running flag, else 1. No caller; bench
// interface.
int devinci_monitor();
