// Handlers of the video settings: what `encode` reads of them in the shared
// block, and the FPGA registers that pace the stream at its output.
//
// Table order matters here: the rate settings come before "mpgVidRate", and
// "mpgVidRes" and "vbiMode" before "VidCodec".
#include "config/video_format.h"

#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <cstdio>
#include <limits>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "video/capture.h"

Relaxed<std::int32_t> fps_parameter;
Relaxed<std::int32_t> output_bitrate;
Relaxed<std::int32_t> extra_output_rate_pct{5};

// Sums and products of configured numbers wrap like the 32-bit words they are.
static std::int32_t add_wrapping(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

static std::int32_t kilo_to_units(std::int32_t kilo) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(kilo) * 1000U);
}

// Truncates toward zero; what does not fit becomes the nearest limit.
static std::int32_t to_int_saturating(float number) {
  constexpr float kTop = 2147483648.0F;  // 2^31
  if (!(number < kTop)) return std::numeric_limits<std::int32_t>::max();
  if (number < -kTop) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(number);
}

// --- resolution and frame rate -------------------------------------------

int encSetVidRes(const std::int32_t* value, std::int32_t) {
  puts("encSetVidRes");
  shared_set(&SharedBlock::videoStd, *value);
  printf("shared_memory->videoStd = %i\n", shared_get(&SharedBlock::videoStd));
  return 0;
}

static constexpr int kKeep = -1;  // the row leaves this item as it was

struct VidResRow {
  std::uint16_t code;   // "mpgVidRes"
  std::int32_t period;  // fps_parameter: 15000, 14400, 12000, 12012 stand for 24, 25, 30, 29.97
  std::int32_t rate;    // frame-rate code of the shared block
};

// Codes that are not listed change nothing, so an earlier code's period stays.
static constexpr VidResRow kVidResRows[] = {
    {0, 15000, 2},   {1, 14400, 3},   {2, kKeep, 5},   {3, kKeep, 3},   {4, kKeep, 5},
    {7, 12000, 7},   {8, 12012, 8},   {9, 12012, 9},   {10, 12012, 10}, {257, kKeep, 3},
    {258, kKeep, 5}, {480, kKeep, 4}, {576, kKeep, 3},
};

static void apply_vid_res(std::uint16_t code) {
  for (const VidResRow& row : kVidResRows) {
    if (row.code != code) continue;
    if (row.period != kKeep) fps_parameter = row.period;
    if (row.rate != kKeep) shared_set(&SharedBlock::frame_rate_code, row.rate);
  }
}

// Shows the measured frame rate; for the eye only.
static void print_measured_rate() {
  constexpr unsigned kExtraShift = 8;
  const unsigned msb = GetValue(kRegVsRateHigh);
  const unsigned lsb = GetValue(kRegVsRateLow);
  const std::uint32_t mantissa = GetValue(kRegVsRateHigh);
  const unsigned shift = GetValue(kRegVsRateLow) + kExtraShift;
  const std::uint32_t shifted = shift < 32 ? mantissa << shift : 0;
  const float ans = static_cast<float>(shifted);
  const float ans2 = static_cast<float>(kFrameClock) / ans;
  printf("msb %x lsb %x ans %f ans2 %f  \n", msb, lsb, static_cast<double>(ans),
         static_cast<double>(ans2));
}

int fpgaSetVidRes(const std::int32_t* value, std::int32_t) {
  const auto code = static_cast<std::uint16_t>(*value);
  fpgaregs.VidRes = code;
  printf("fpgaSetVidRes %d pram %d\n", code, static_cast<std::uint16_t>(*value));
  print_measured_rate();
  apply_vid_res(code);
  printf("fps pram =%d\n", shared_get(&SharedBlock::frame_rate_code));
  printf("fps_parameter = %i\n", fps_parameter.load());
  return 0;
}

// --- bit-rate ------------------------------------------------------------

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

// Constants of the output stage, the same at every rate.
static constexpr int kOutputRateConstant0 = 53;
static constexpr int kOutputRateConstant1 = 53;
static constexpr int kOutputRateConstant2 = 2;

int Setoutput_bitrate(const std::int32_t* value, std::int32_t) {
  constexpr float kIntervalConstant = 121844.0F;  // interval = constant / Mbit/s
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
  SetValue(kRegOutputRate0, kOutputRateConstant0);
  SetValue(kRegOutputRate1, kOutputRateConstant1);
  return SetValue(kRegOutputRate2, kOutputRateConstant2);
}

// --- codec ---------------------------------------------------------------

static constexpr int kCodecMpeg2 = 1;
static constexpr int kCodecH264 = 2;

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

// Bits are only ever set here: after a change of codec both stay up until the
// FPGA is reset.
static void set_video_control(int bit) {
  const int control = static_cast<int>(GetValue(kRegVideoControl) & 0xFFFF);
  SetValue(kRegVideoControl, control | bit);
}

// Codec set-up of the FPGA: the first three serve both codecs, the fourth tells
// them apart.
static constexpr int kCodecConstant0 = 6784;
static constexpr int kCodecConstant1 = 6;
static constexpr int kCodecConstant2 = 35000;
static constexpr int kCodecConstantH264 = 44640;
static constexpr int kCodecConstantMpeg2 = 48032;
static constexpr int kCodecConstantMpeg2Std258 = 41248;
static constexpr int kVideoStd258 = 258;

static void set_mpeg2() {
  puts("set MPEG2");
  if (shared_get(&SharedBlock::closed_caption) == 1) set_video_control(kVideoControlMpeg2Captions);
  const bool std_258 = shared_get(&SharedBlock::videoStd) == kVideoStd258 &&
                       shared_get(&SharedBlock::VidCodec) == kCodecMpeg2;
  SetValue(kRegVideoCodec3, std_258 ? kCodecConstantMpeg2Std258 : kCodecConstantMpeg2);
}

static void set_h264() {
  puts("set H264");
  set_video_control(kVideoControlH264);
  SetValue(kRegVideoCodec3, kCodecConstantH264);
}

int fpgaSetVidCodec(const std::int32_t* value, std::int32_t) {
  puts("fpgaSetVidCodec");
  const auto codec = static_cast<std::uint8_t>(*value);
  fpgaregs.VidCodec = codec;
  printf("MPEG2 (1) or H264 (0): fpgaregs.VidCodec = %i\n", codec);
  shared_set(&SharedBlock::VidCodec, codec);
  if (codec == kCodecMpeg2) {
    set_mpeg2();
  } else {
    set_h264();
  }
  SetValue(kRegFramePeriod, fps_parameter & 0xFFFF);
  SetValue(kRegVideoCodec0, kCodecConstant0);
  SetValue(kRegVideoCodec1, kCodecConstant1);
  SetValue(kRegVideoCodec2, kCodecConstant2);
  return 0;
}

// --- probes --------------------------------------------------------------

int devinci_monitor() { return shared_get(&SharedBlock::encoder_running) == 1 ? 0 : 1; }

static void print_crop(const v4l2_cropcap& crop) {
  const v4l2_rect& bounds = crop.bounds;
  const v4l2_rect& def = crop.defrect;
  printf("Default crop capbility bounds - %d %d %d %d ; default - %d %d %d %d \n", bounds.left,
         bounds.top, static_cast<int>(bounds.width), static_cast<int>(bounds.height), def.left,
         def.top, static_cast<int>(def.width), static_cast<int>(def.height));
}

int SetCropImeg() {
  constexpr int kCropTop = 100;
  static v4l2_cropcap crop;
  puts("test ioctl:VIDIOC_CROPCAP");
  const int fd = open_capture();
  crop.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (ioctl(fd, VIDIOC_CROPCAP, &crop) < 0) puts("InitDevice:ioctl:VIDIOC_CROPCAP");
  print_crop(crop);
  // The same record goes out as the crop to set: the driver takes its type and
  // the bounds behind it, the changed default is beyond what it reads.
  crop.defrect.top = kCropTop;
  if (ioctl(fd, VIDIOC_S_CROP, &crop) < 0) puts("InitDevice:ioctl:VIDIOC_CROPCAP");
  print_crop(crop);
  puts("set_data_format:setting data format");
  return close_capture(fd);
}
