// Handlers of the transport stream: A/V sync and PIDs.
#pragma once

#include <cstdint>

// "AVSync" in milliseconds, any value. Kept in 90 kHz ticks: 90 x value + 15000 with
// the digital input, 90 x value - 7500 with the DSP, modulo 2^32; as configured with
// neither. "AudioInput" comes before it in the table. Returns 0.
int SetAVSync(const std::int32_t* value, std::int32_t context);

// "pidVideo", "pidAudio", "pidPCR": low 16 bits (a PID has 13), written to the FPGA
// at once, low byte first. Return the result of that write.
int SetpidVideo(const std::int32_t* value, std::int32_t context);
int SetpidAudio(const std::int32_t* value, std::int32_t context);
int SetpidPCR(const std::int32_t* value, std::int32_t context);
