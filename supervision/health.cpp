// Health readings from the FPGA counters and the input chips' monitors.
#include "supervision/health.h"

#include "audio/dix4192.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "video/tvp5150.h"
#include "video/tvp7002.h"

static constexpr int kTvp7002Running = 1;  // mode of its monitor: watching, not waiting

static std::uint16_t read_word(int address) {
  return static_cast<std::uint16_t>(GetValue(address));
}

static std::uint16_t latch_word(int address) {
  SetValue(kRegLatch, 1);
  return read_word(address);
}

std::uint16_t latch_video_buffer() { return latch_word(kRegViBuff); }
std::uint16_t read_audio_buffer() { return read_word(kRegAuBuff); }
std::uint16_t latch_audio_buffer() { return latch_word(kRegAuBuff); }

bool video_buffer_present() { return latch_video_buffer() != 0; }
std::uint16_t read_video_overall() { return latch_word(kRegViOverallLow); }

bool audio_present() { return read_word(kRegAudioLevel) != 0; }
std::uint16_t read_audio_overall() { return read_word(kRegAudioLevel); }

int monitor_input() {
  return SetInputMuxCH == kChannelComposite ? video_monitorTVP5150(kTvp5150Running)
                                            : video_monitor_7002(kTvp7002Running);
}

int read_audio_flag() {
  if (fpgaregs.inAudioEnable == kAudioDisabled) return 0;
  return fpgaregs.AudioInput == kAudioInputDigital ? audio_monitor_4192(kDix4192ReceiverControl)
                                                   : 1;
}

std::uint32_t read_frame_period() { return GetValue32(kRegVsRateLow, kRegVsRateHigh); }

bool video_overflows() { return GetValue(kRegVideoLevel) > kVideoLevelLimit; }
bool audio_overflows() { return GetValue(kRegAudioLevel) > kAudioLevelLimit; }
