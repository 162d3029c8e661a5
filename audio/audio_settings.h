// Audio keys of the configuration: their handlers, and the AC-3 control word.
//
// Handlers take the value scanned for their key and return 0.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

// Sample period last configured: kSamplePeriod48 or kSamplePeriod32.
extern Relaxed<std::int32_t> SampleRate;

// Software copy of the AC-3 control register. Never reset: bits of earlier
// applies stay.
extern Relaxed<std::uint16_t> enable_capture_mask_reg;

int SetinAudioEnable(const std::int32_t* value, std::int32_t context);      // low byte
int setAudRate(const std::int32_t* value, std::int32_t context);            // kbit/s
int SetinAudioVolume(const std::int32_t* value, std::int32_t context);      // 1.5 dB steps
int SetFiberCoax(const std::int32_t* value, std::int32_t context);          // does nothing
int SetAudioInput(const std::int32_t* value, std::int32_t context);         // low byte
int SetAudCodec_bf(const std::int32_t* value, std::int32_t context);        // starts the DSP
int SetinAudioSampleRate(const std::int32_t* value, std::int32_t context);  // kHz
int SetAudCodec(const std::int32_t* value, std::int32_t context);           // low byte
