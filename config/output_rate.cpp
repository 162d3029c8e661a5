// The rate of the stream at the output: the settings it is worked out from and
// the FPGA registers that pace it.
#include "config/output_rate.h"

#include <cstdio>

#include "config/numbers.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/relaxed.h"

static Relaxed<std::int32_t> output_bitrate;            // bit/s; 0 derives it from the video rate
static Relaxed<std::int32_t> extra_output_rate_pct{5};  // on top of the derived rate

int SetExtraOutputRate(const std::int32_t* value, std::int32_t) {
  extra_output_rate_pct = limited(*value, {0, 100, 5});
  return 0;
}

int SetOutputBitrate(const std::int32_t* value, std::int32_t) {
  output_bitrate = limited(*value, {1'000'000, 35'000'000, 0});
  printf("SetOutputBitrate %d\n", output_bitrate.load());
  return 0;
}

// Sums and products of configured numbers wrap like the 32-bit words they are.
static std::int32_t add_wrapping(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// The rate at the output in Mbit/s: worked out in double precision, kept in
// single. A manual rate wins; otherwise the elementary-buffer mode decides
// between a small margin with a chosen percentage and a wide fixed one.
static float output_rate_mbps(std::int32_t video_bitrate) {
  constexpr std::int32_t kSmallMargin = 500'000;
  constexpr std::int32_t kWideMargin = 4'000'000;
  constexpr double kWideFactor = 1.2;
  constexpr double kMega = 1000000.0;
  const std::int32_t manual = output_bitrate;
  if (manual != 0) return static_cast<float>(static_cast<double>(manual) / kMega);
  if (shared_get(&SharedBlock::eb_mode) == 1) {
    const double sum = add_wrapping(video_bitrate, kSmallMargin);
    const double percent = extra_output_rate_pct.load();
    return static_cast<float>(sum * (percent / 100.0 + 1.0) / kMega);
  }
  const double sum = add_wrapping(video_bitrate, kWideMargin);
  return static_cast<float>(sum * kWideFactor / kMega);
}

int Setoutput_bitrate(const std::int32_t* value, std::int32_t) {
  constexpr float kIntervalConstant = 121844.0F;  // interval = constant / Mbit/s
  constexpr int kOutputRates[] = {53, 53, 2};     // the same at every rate
  puts("Setoutput_bitrate");
  fpgaregs.VideoBitrate = kilo_to_units(*value);
  const std::int32_t video_bitrate = fpgaregs.VideoBitrate;
  const float rate = output_rate_mbps(video_bitrate);
  printf("Set output bitrate to %f (UI %d, manual set %d, extra %d pct)\n",
         static_cast<double>(rate), video_bitrate, output_bitrate.load(),
         extra_output_rate_pct.load());
  const std::int32_t interval = to_int_saturating(kIntervalConstant / rate);
  SetValue(kRegOutputInterval, interval);
  printf("tmp1 %f btr %d output_bitrate %d\n", static_cast<double>(rate), interval, video_bitrate);
  SetValue(kRegOutputRate0, kOutputRates[0]);
  SetValue(kRegOutputRate1, kOutputRates[1]);
  return SetValue(kRegOutputRate2, kOutputRates[2]);
}
