// Owns the choice of the video front end: lines, FPGA path, capture input and
// chip set-up, in that order.
#include "video/input_selection.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/gpio.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"
#include "state/service_flags.h"
#include "video/capture.h"
#include "video/tvp5150.h"
#include "video/tvp7002.h"

// Values of the video input key.
static constexpr int kSelectComponent = 1;
static constexpr int kSelectRgb = 2;
static constexpr int kSelectComposite = 4;

static constexpr int kVideoStd577 = 577;  // composite standard with a capture input of its own

static void select_tvp7002(int input) {
  prog_gpio(kSelectTvp7002);
  printf("************** set TVP7002 SW GPIO %d ******************\n", kSelectTvp7002);
  usleep(kSecond_us);
  SetValue(kRegVideoControl, 0);
  if (input == kSelectComponent) {
    SetInputMux(kCaptureComponent);
    Init7002(kCaptureComponent);  // leaves SetInputMuxCH at 0
    usleep(kSecond_us);
  } else if (input == kSelectRgb) {
    SetInputMuxCH = kChannelRgb;
    SetInputMux(kCaptureRgb);
    Init7002(kChannelRgb);
    usleep(kSecond_us);
  }
  puts("************** run tvp7002 init  ******************");
}

static void select_tvp5150() {
  prog_gpio(kSelectTvp5150);
  prog_gpio(kTvp5150Reset);
  usleep(kSecond_us);
  prog_gpio(kTvp5150Release);
  const bool is_577 = shared_get(&SharedBlock::videoStd) == kVideoStd577;
  SetInputMux(is_577 ? kCaptureComposite577 : kCaptureComposite);
  SetValue(kRegVideoControl, kVideoControlSdDecoder);
  printf("************** set TVP5150 SW GPIO %d ******************\n", kSelectTvp5150);
  usleep(kSecond_us);
  puts("************** run tvp5150 init  ******************");
  InitTVP5150();
  usleep(2 * kSecond_us);
}

int SetVideoInputSel(const std::int32_t* value, std::int32_t) {
  const int input = *value & 0xFF;
  SetInputMuxCH = input;
  if (input == kSelectComposite) {
    select_tvp5150();
  } else {
    select_tvp7002(input);
  }
  prog_gpio(kTvp5150Release);  // on both paths
  // Component input is reported and published as 0, not 1.
  const int rc =
      printf("==========  Set Video Input To %d =====================\n", SetInputMuxCH.load());
  shared_set(&SharedBlock::input_channel, SetInputMuxCH.load());
  return rc;
}
