// Register dump: counters, frame rate, drift and running time of the stream.
#include "supervision/fpga_dump.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"

static constexpr std::int32_t kRatedStandards[] = {12, 13};

static constexpr int kMinutesAnHour = 60;
static constexpr int kHoursADay = 24;
static constexpr float kPeriod60 = 60.0F;  // seconds a minute, minutes an hour
static constexpr float kPeriod24 = 24.0F;

// Integer part; beyond 32 bits it saturates.
static std::int64_t integer_part(float x) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  return x < static_cast<float>(kMax) ? static_cast<std::int64_t>(x) : kMax;
}

static int saturate(std::int64_t x) {
  using Int = std::numeric_limits<int>;
  return static_cast<int>(std::clamp<std::int64_t>(x, Int::min(), Int::max()));
}

// Frames a second; without a measured period it is infinite.
static float frame_rate(std::uint32_t period) {
  if (period == 0) return std::numeric_limits<float>::infinity();
  return static_cast<float>(kFrameClock) / static_cast<float>(period);
}

static bool has_output_rate() {
  if (shared_get(&SharedBlock::VidCodec) != kCodecMpeg2) return false;
  const std::int32_t standard = shared_get(&SharedBlock::videoStd);
  return standard == kRatedStandards[0] || standard == kRatedStandards[1];
}

static float print_rates() {
  const std::uint32_t overall = GetValue32(kRegVsOverallLow, kRegVsOverallHigh);
  printf("VS_OVERALL = 0x%x half = 0x%x\n", overall, overall / 2);
  const std::uint32_t period = GetValue32(kRegVsRateLow, kRegVsRateHigh);
  const float fps = frame_rate(period);
  printf("VS_RATE = 0x%x FSP %f\n", period, static_cast<double>(fps));
  if (has_output_rate()) printf("Output RATE = %f\n", static_cast<double>(fps * 5.0F / 6.0F));
  return fps;
}

struct VideoCounters {
  std::uint32_t overall;
  std::uint32_t reference;
};

static VideoCounters print_counters() {
  VideoCounters video{};
  printf("VI_BUFF = 0x%x ,VI_BUFF_INIT = 0x%x\n", GetValue(kRegViBuff), vid_buf_init.load());
  video.overall = GetValue32(kRegViOverallLow, kRegViOverallHigh);
  printf("VI_OVERALL = 0x%x\n", video.overall);
  video.reference = GetValue32(kRegViRefOverallLow, kRegViRefOverallHigh);
  printf("VI_REF_OVERALL = 0x%x \n", video.reference);
  printf("AU_BUFF = 0x%x ,AU_BUF_INIT =0x%x\n", GetValue(kRegAuBuff), aud_buf_init.load());
  printf("AU_I2S_OVERALL = 0x%x \n", GetValue32(kRegAuI2sOverallLow, kRegAuI2sOverallHigh));
  printf("AU_OVERALL = 0x%x \n", GetValue32(kRegAuOverallLow, kRegAuOverallHigh));
  printf("AU_REF_OVERALL = 0x%x \n", GetValue32(kRegAuRefOverallLow, kRegAuRefOverallHigh));
  printf("TS_MUX_STATUS_REGISTER = 0x%x \n", GetValue(kRegTsMuxStatus));
  return video;
}

// One frame in how many: a difference larger than the whole count gives "inf".
static double drift_ratio(std::int64_t frames_per_difference) {
  if (frames_per_difference == 0) return std::numeric_limits<double>::infinity();
  return 1.0 / static_cast<double>(frames_per_difference);
}

static void print_drift(const VideoCounters& video) {
  const std::int32_t d = static_cast<std::int32_t>(video.overall - video.reference);
  const std::int64_t reference = video.reference;
  if (d == 0) {
    printf("ref overall = overall  dif=%d\n", d);
  } else if (d > 0) {
    printf("frame dif = %d  (%f)\n", d, drift_ratio(reference / d));
  } else {
    printf("frame dif = %d (%f)\n", d, drift_ratio(-(reference / d)));
  }
}

// Past the first day the hours come out as -23 times themselves.
static int print_running_time(std::uint32_t frames, float fps) {
  const float seconds = static_cast<float>(frames) / fps;
  std::int64_t minutes = integer_part(seconds / kPeriod60);
  std::int64_t hours = 0;
  std::int64_t days = 0;
  if (minutes > kMinutesAnHour - 1) {
    hours = integer_part(seconds / kPeriod60 / kPeriod60);
    minutes -= hours * kMinutesAnHour;
  }
  if (hours > kHoursADay - 1) {
    days = integer_part(seconds / kPeriod60 / kPeriod60 / kPeriod24);
    hours -= kHoursADay * hours;
  }
  return printf("Running Time %d Day %d Hour %d Min\n", saturate(days), saturate(hours),
                saturate(minutes));
}

int DebugPrintFPGARegs() {
  SetValue(kRegLatch, 1);
  const float fps = print_rates();
  const VideoCounters video = print_counters();
  print_drift(video);
  return print_running_time(video.reference, fps);
}
