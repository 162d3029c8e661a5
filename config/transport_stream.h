// Transport-stream and rate-control settings: PIDs, A/V sync, output rate,
// captions, picture offsets, and the rate-control words of `encode`.
//
// Ranged settings replace a value out of range by a fixed default. All handlers
// return 0 unless said otherwise.
#pragma once

#include <cstdint>

int SetEbMode(const std::int32_t* value, std::int32_t context);           // "eb_mode"
int SetExtraOutputRate(const std::int32_t* value, std::int32_t context);  // percent
int SetOutputBitrate(const std::int32_t* value, std::int32_t context);    // "output_br", bit/s

// "AVSync" in milliseconds, kept in 90 kHz ticks with the offset of the audio
// path in use. "AudioInput" must have been applied before.
int SetAVSync(const std::int32_t* value, std::int32_t context);

// "vbiMode": 5 switches closed captions on and sets the SD decoder up again.
int CC_enable(const std::int32_t* value, std::int32_t context);

// "pidVideo", "pidAudio", "pidPCR": low 16 bits, written to the FPGA at once.
// Return the result of that write.
int SetpidVideo(const std::int32_t* value, std::int32_t context);
int SetpidAudio(const std::int32_t* value, std::int32_t context);
int SetpidPCR(const std::int32_t* value, std::int32_t context);

// "offset_x", "offset_y": the first pair only reports, the second pair stores.
int SetOffsetx(const std::int32_t* value, std::int32_t context);
int SetOffsety(const std::int32_t* value, std::int32_t context);
int SetOffsetX(const std::int32_t* value, std::int32_t context);
int SetOffsetY(const std::int32_t* value, std::int32_t context);

// Rate-control words, named as their keys.
int SetFrameDiv(const std::int32_t* value, std::int32_t context);
int SetFrameMult(const std::int32_t* value, std::int32_t context);
int SetEbDelay(const std::int32_t* value, std::int32_t context);
int SetGopSize(const std::int32_t* value, std::int32_t context);
int SetIdr(const std::int32_t* value, std::int32_t context);
int SetNullStuffing(const std::int32_t* value, std::int32_t context);  // "null_disable"
int SetBufferConst(const std::int32_t* value, std::int32_t context);
int SetInterlace(const std::int32_t* value, std::int32_t context);  // "interlace_flag"
