// fpgaregs: the settings last applied on the FPGA side.
//
// Written by the configuration handlers, read by the encoder start, the audio
// set-up and the supervision loop. Either thread may apply a configuration, so
// every field is a Relaxed byte or word.
#pragma once

#include <cstdint>

#include "state/relaxed.h"

struct FpgaRegs {
  Relaxed<std::uint8_t> AudioInput;         // audio path: 1 digital input, 2 AC-3 DSP (byte 0)
  Relaxed<std::uint8_t> inAudioEnable;      // 1 stops the set-up from waiting for audio (byte 1)
  Relaxed<std::int32_t> inAudioSampleRate;  // kHz
  Relaxed<std::uint16_t> VidRes;            // low 16 bits of "mpgVidRes"
  Relaxed<std::uint8_t> VidCodec;           // 1 MPEG-2, any other value H.264
  Relaxed<std::uint8_t> AudCodec;           // low byte of "mpgAudCodec"
  Relaxed<std::int32_t> AVSync;             // 90 kHz ticks, or the raw value when no path is chosen
  Relaxed<std::uint16_t> pidVideo;
  Relaxed<std::uint16_t> pidAudio;
  Relaxed<std::uint16_t> pidPCR;
  Relaxed<std::int32_t> VideoBitrate;    // bit/s
  Relaxed<std::int32_t> mpgAudRate;      // kbit/s
  Relaxed<std::uint16_t> inAudioVolume;  // low 16 bits as configured
  Relaxed<std::uint8_t> DspMode;         // 1 once the DSP path was started
};

extern FpgaRegs fpgaregs;
