// Handlers of the video format: the FPGA registers of resolution, frame rate,
// captions and codec.
//
// Table order matters here: "mpgVidRes" and "vbiMode" come before "VidCodec".
#include "config/video_format.h"

#include <cstdio>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "video/tvp5150.h"

Relaxed<std::int32_t> fps_parameter;

// --- resolution and frame rate -------------------------------------------

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

// --- captions ------------------------------------------------------------

int CC_enable(const std::int32_t* value, std::int32_t) {
  constexpr std::int32_t kVbiCaptions = 5;
  if (*value == kVbiCaptions) {
    shared_set(&SharedBlock::closed_caption, 1);
    InitTVP5150();
  } else {
    shared_set(&SharedBlock::closed_caption, 0);
  }
  return 0;
}

// --- codec ---------------------------------------------------------------

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
