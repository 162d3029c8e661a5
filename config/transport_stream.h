// Transport-stream settings: A/V sync and PIDs.
#pragma once

#include <cstdint>

// "AVSync" in milliseconds, kept in 90 kHz ticks with the offset of the audio
// path in use. "AudioInput" must have been applied before.
int SetAVSync(const std::int32_t* value, std::int32_t context);

// "pidVideo", "pidAudio", "pidPCR": low 16 bits, written to the FPGA at once.
// Return the result of that write.
int SetpidVideo(const std::int32_t* value, std::int32_t context);
int SetpidAudio(const std::int32_t* value, std::int32_t context);
int SetpidPCR(const std::int32_t* value, std::int32_t context);
