// The encoder's side of a configuration: what `encode` finds in the shared block
// when it starts, and its launch. Stopping it belongs to the supervision.
#include "config/encoder.h"

#include <unistd.h>

#include <cstdio>

#include "config/numbers.h"
#include "hw/shared_memory_davinci.h"
#include "hw/shell.h"
#include "hw/time_units.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"

// --- picture -------------------------------------------------------------

int encSetVidRes(const std::int32_t* value, std::int32_t) {
  puts("encSetVidRes");
  shared_set(&SharedBlock::videoStd, *value);
  printf("shared_memory->videoStd = %i\n", shared_get(&SharedBlock::videoStd));
  return 0;
}

int SetBrightness(const std::int32_t* value, std::int32_t) {
  const int b = *value & 0xFF;
  // 139..255 maps onto 2..255 in whole numbers; darker settings give 0.
  const int brightness = b < 139 ? 0 : (b * 255 - 35190) / 117;
  shared_set(&SharedBlock::brightness, brightness);
  printf("SetBrightness %d\n", brightness);
  return 0;
}

int SetContrast(const std::int32_t* value, std::int32_t) {
  const int c = *value & 0xFF;
  // Two slopes in whole numbers: 0..63 onto 0..16, 64..255 onto 17..247.
  const int contrast = c <= 63 ? (c * 16) / 63 : (c * 231 - 14553) / 192 + 16;
  shared_set(&SharedBlock::contrast, contrast);
  return printf("SetContrast %d\n", contrast);
}

int SetOffsetx(const std::int32_t* value, std::int32_t) {
  puts("SetOffsetx");
  printf("offsetx = %i\n", *value);
  return 0;
}

int SetOffsety(const std::int32_t* value, std::int32_t) {
  puts("SetOffsety");
  printf("offsety = %i\n", *value);
  return 0;
}

int SetOffsetX(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::offset_x, *value);
  return 0;
}

int SetOffsetY(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::offset_y, *value);
  return 0;
}

// --- rate and codec ------------------------------------------------------

int SetVBR(const std::int32_t* value, std::int32_t) {
  puts("SetVBR");
  shared_set(&SharedBlock::vbr, *value);
  return 0;
}

int SetVidRate(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::video_bitrate, kilo_to_units(*value));
  puts("end SetVidRate");
  return 0;
}

template <std::size_t N>
static void store_suffix(const char (&suffix)[N]) {
  static_assert(N <= sizeof(SharedBlock::file_suffix));
  for (std::size_t index = 0; index < N; ++index) {
    shared_set(&SharedBlock::file_suffix, index, suffix[index]);
  }
}

int encSetVidCodec(const std::int32_t* value, std::int32_t) {
  puts("encSetVidCode");
  if (*value == kCodecMpeg2) store_suffix(".mpeg2");
  if (*value == kCodecH264) store_suffix(".264");
  return 0;
}

// --- launch ---------------------------------------------------------------

int start_hd(const std::int32_t*, std::int32_t) {
  puts("start_hd - with system command");
  shared_set(&SharedBlock::do_fpga_restart, 0);
  shared_set(&SharedBlock::encoder_running, 0);
  shared_set(&SharedBlock::launch_zero, 0);
  const std::uint8_t audio = fpgaregs.inAudioEnable;
  shared_set(&SharedBlock::audio_enable, audio);
  enable_audio = audio;
  // Found in the working directory of the service.
  run_shell(dbg_encode != 0 ? "DMAI_DEBUG=2 ./encode&" : "./encode&");
  usleep(kMillisecond_us);
  return 0;
}

int devinci_monitor() { return shared_get(&SharedBlock::encoder_running) == 1 ? 0 : 1; }
