// Launch of `encode`, the last act of a configuration before its rate-control
// rows. Stopping it belongs to the supervision.
#include "config/start_hd.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <tuple>

#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"

static constexpr int kLaunchSettle_us = 1000;

int start_hd(const std::int32_t*, std::int32_t) {
  puts("start_hd - with system command");
  shared_set(&SharedBlock::do_fpga_restart, 0);
  shared_set(&SharedBlock::encoder_running, 0);
  shared_set(&SharedBlock::launch_zero, 0);
  const std::uint8_t audio = fpgaregs.inAudioEnable;
  shared_set(&SharedBlock::audio_enable, audio);
  enable_audio = audio;
  // Found in the working directory of the service.
  std::ignore = system(dbg_encode != 0 ? "DMAI_DEBUG=2 ./encode&" : "./encode&");
  usleep(kLaunchSettle_us);
  return 0;
}
