// Owns the stand-alone looks at the AC-3 stream beside the set-up.
#include "audio/ac3_tracking.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "audio/ac3_setup.h"
#include "audio/audio_settings.h"
#include "audio/dix4192.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"

namespace {

constexpr unsigned kPollWait_us = 10000;
constexpr unsigned kWordWait_us = 1000;

void wait_for_sync() {
  for (;;) {
    const unsigned sync = GetValue(kRegAc3Sync);
    GetValue(kRegAc3Status);
    if (sync == kAc3SyncFlipped) return;
    usleep(kPollWait_us);
  }
}

// Reads the whole capture; words 2 and 3 make the header.
Ac3Header read_captured_header() {
  unsigned words[kAc3CaptureWords];
  for (int i = 0; i < kAc3CaptureWords; ++i) {
    words[i] = ac3_swap(GetValue(kRegAc3Sync + i * kAc3CaptureStride));
  }
  return {words[2], words[3]};
}

bool audio_is_present() {
  const bool digital = fpgaregs.AudioInput == kAudioInputDigital;
  audio_at_beginning = digital ? audio_monitor_4192(kDix4192ReceiverControl) : 1;
  return audio_at_beginning != 0;
}

}  // namespace

void* AudioPolling_thread(void*) {
  shared_set(&SharedBlock::audio_configured, 0);
  puts(" AudioPolling_thread");
  wait_for_sync();
  const unsigned word2 = GetValue(kRegAc3Word2);
  printf("get value reg 2 %x  \n", word2);
  const unsigned a = ac3_swap(word2);
  usleep(kWordWait_us);
  ac3_capture_mask();  // the mask only; the register is left to the timing
  const Ac3Codes codes = ac3_codes(a);
  SetAudCodecPram(codes.fscod, codes.frmsizecod);
  shared_set(&SharedBlock::audio_configured, 1);
  return nullptr;
}

int get_hd_ac3_desc_parameters() {
  ac3_enter_setup();
  SetValue(kRegAc3Control, ac3_capture_mask());
  usleep(kCaptureWait_us);
  ac3_decode(read_captured_header());
  printf("5 bit_rate_code = %i\n", hd_ac3_desc_parameters[kAc3BitRateCode].load());
  if (!audio_is_present()) ac3_default_descriptor();
  ac3_publish_descriptor(false);
  reset_fpga_path();
  return 0;
}

int fpga_monitor() {
  const int requested = shared_get(&SharedBlock::do_fpga_restart);
  if (requested != 1) return 1;
  printf("from vantorig: shared_memory->do_fpga_restart = %i\n", requested);
  [[maybe_unused]] const int rc = system("killall encode");
  return 0;
}
