// fpgaregs: the settings last applied on the FPGA side, with the names of their
// values.
//
// Written by the configuration handlers, read by the launch of `encode`, the audio
// set-up and the supervision loop. Either thread may apply a configuration, so
// every field is a Relaxed byte or word.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

struct FpgaRegs {
  Relaxed<std::uint8_t> AudioInput;         // audio path, see kAudioInput…
  Relaxed<std::uint8_t> inAudioEnable;      // see kAudioDisabled, kAudioEnabled
  Relaxed<std::int32_t> inAudioSampleRate;  // kHz; write-only
  Relaxed<std::uint16_t> VidRes;            // low 16 bits of "mpgVidRes"; write-only
  Relaxed<std::uint8_t> VidCodec;           // kCodecMpeg2; any other value H.264; write-only
  Relaxed<std::uint8_t> AudCodec;           // low byte of "mpgAudCodec"; write-only
  Relaxed<std::int32_t> AVSync;             // 90 kHz ticks, or the raw value when no path is chosen
  Relaxed<std::uint16_t> pidVideo;          // write-only, as the other two
  Relaxed<std::uint16_t> pidAudio;
  Relaxed<std::uint16_t> pidPCR;
  Relaxed<std::int32_t> VideoBitrate;    // bit/s; write-only
  Relaxed<std::int32_t> mpgAudRate;      // kbit/s
  Relaxed<std::uint16_t> inAudioVolume;  // steps of 1.5 dB, low 16 bits as configured
  Relaxed<std::uint8_t> DspMode;         // 1 once the DSP path was started; write-only
};

// AudioInput: paths with steps of their own.
inline constexpr int kAudioInputDigital = 1;  // DIX4192, AC-3 stream passed through
inline constexpr int kAudioInputDsp = 2;      // encoded by the AC-3 DSP

// inAudioEnable, and the shared block's copy of it.
inline constexpr int kAudioDisabled = 1;  // the set-up does not wait for audio
inline constexpr int kAudioEnabled = 2;

// VidCodec.
inline constexpr int kCodecMpeg2 = 1;
inline constexpr int kCodecH264 = 2;

inline FpgaRegs fpgaregs;
