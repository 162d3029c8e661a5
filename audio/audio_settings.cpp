// Owns the audio settings: what hd.ini says about audio goes into fpgaregs, the
// sample-rate register and the DSP from here.
#include "audio/audio_settings.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "audio/blkfn.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"
#include "state/fpgaregs.h"

Relaxed<std::int32_t> SampleRate;
Relaxed<std::uint16_t> enable_capture_mask_reg;

// Codec volume registers of the DSP, and the codec value of volume 0.
static constexpr int kCodecVolumeLeft = 0;
static constexpr int kCodecVolumeRight = 1;
static constexpr std::uint32_t kVolumeOffset = 23;

static constexpr useconds_t kConfigWait_us = 10;
static constexpr int kDspModeOn = 1;
static constexpr int kConfigMode = 1;
static constexpr int kRate32kHz = 32;

int SetinAudioEnable(const std::int32_t* value, std::int32_t) {
  puts("SetinAudioEnable");
  fpgaregs.inAudioEnable = static_cast<std::uint8_t>(*value);
  return 0;
}

int setAudRate(const std::int32_t* value, std::int32_t) {
  puts("setAudRate");
  fpgaregs.mpgAudRate = *value;
  return 0;
}

int SetinAudioVolume(const std::int32_t* value, std::int32_t) {
  fpgaregs.inAudioVolume = static_cast<std::uint16_t>(*value);
  // Unsigned, so that any configured number wraps.
  const auto gain = static_cast<std::int32_t>(static_cast<std::uint32_t>(*value) + kVolumeOffset);
  printf("SetinAudioVolume = %d (1.5 DB)\n", gain);
  WritereadCODEC(0, kCodecVolumeLeft, gain);
  usleep(kSecond_us);
  WritereadCODEC(0, kCodecVolumeRight, gain);
  usleep(kSecond_us);
  return 0;
}

int SetFiberCoax(const std::int32_t*, std::int32_t) { return 0; }

int SetAudioInput(const std::int32_t* value, std::int32_t) {
  puts("SetAudioInput");
  fpgaregs.AudioInput = static_cast<std::uint8_t>(*value);
  return 0;
}

int SetAudCodec_bf(const std::int32_t*, std::int32_t) {
  if (fpgaregs.AudioInput != kAudioInputDsp) return 0;
  fpgaregs.DspMode = kDspModeOn;
  const auto volume = static_cast<std::int16_t>(fpgaregs.inAudioVolume.load());
  // kbit/s to bit/s, kept to 32 bits.
  const auto rate_bps =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(fpgaregs.mpgAudRate.load()) * 1000U);
  blkfn_config_cmd(kConfigMode, volume, rate_bps);
  usleep(kConfigWait_us);
  blkfn_start();
  return 0;
}

int SetinAudioSampleRate(const std::int32_t* value, std::int32_t) {
  puts("SetinAudioSampleRate");
  fpgaregs.inAudioSampleRate = *value;
  SampleRate = *value == kRate32kHz ? kSamplePeriod32 : kSamplePeriod48;
  SetValue(kRegSampleRate, SampleRate);
  shared_set(&SharedBlock::SampleRate, SampleRate.load());
  return 0;
}

int SetAudCodec(const std::int32_t* value, std::int32_t) {
  fpgaregs.AudCodec = static_cast<std::uint8_t>(*value);
  return 0;
}
