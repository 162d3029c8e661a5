// Audio keys of the configuration: their handlers, and the AC-3 control word.
//
// Handlers take the value scanned for their key and return 0.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

// Values of fpgaregs.AudioInput with steps of their own.
inline constexpr int kAudioInputDigital = 1;  // DIX4192, AC-3 stream passed through
inline constexpr int kAudioInputDsp = 2;      // encoded by the AC-3 DSP

// fpgaregs.inAudioEnable that stops the set-up from waiting for audio.
inline constexpr int kAudioDisabled = 1;

// Audio sample-rate periods: 48 kHz and every other rate, 32 kHz.
inline constexpr int kSamplePeriod48 = 2880;
inline constexpr int kSamplePeriod32 = 4320;

// Bits of the AC-3 control register.
inline constexpr int kAc3CtrlEnable = 0x0001;
inline constexpr int kAc3CtrlOutput = 0x0010;     // cleared where audio is disabled
inline constexpr int kAc3CtrlTiming = 0x0020;     // rate and frame-size codes are set
inline constexpr int kAc3CtrlFscodShift = 6;      // sample-rate code
inline constexpr int kAc3CtrlFrameSizeShift = 8;  // frame-size code
inline constexpr int kAc3CtrlDigital = 0x4000;    // path of the digital input
inline constexpr int kAc3CtrlDsp = 0x8000;        // path of the DSP
inline constexpr int kAc3CtrlPathFree = 0x3FFF;   // all bits below the path bits

extern Relaxed<std::int32_t> SampleRate;  // audio frame period: 2880 or 4320
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
