// Handlers of the transport-stream multiplex and of the rate-control words that
// `encode` takes from the shared block when it starts.
#include "config/transport_stream.h"

#include <cstdio>

#include "config/video_format.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "video/tvp5150.h"

// --- ranged settings -----------------------------------------------------

struct Range {
  std::int32_t low;  // inclusive
  std::int32_t high;
  std::int32_t fallback;  // stored for a value outside
};

// The fallback is not always the start-up value: a bad "interlace_flag" turns
// interlace on, and a bad "output_br" goes back to the derived rate.
static constexpr Range kEbMode{0, 1, 1};
static constexpr Range kExtraOutputRate{0, 100, 5};
static constexpr Range kOutputBitrate{1'000'000, 35'000'000, 0};
static constexpr Range kFrameDiv{1, 100, 1};
static constexpr Range kFrameMult{1, 100, 1};
static constexpr Range kEbDelay{0, 10'000, 700};
static constexpr Range kGopSize{0, 10'000, 30};
static constexpr Range kIdr{0, 10'000, 0};
static constexpr Range kNullDisable{0, 1, 0};
static constexpr Range kBufferConst{1, 1000, 60};
static constexpr Range kInterlace{0, 1, 1};

static std::int32_t limited(const Range& range, std::int32_t value) {
  return value > range.high || value < range.low ? range.fallback : value;
}

int SetEbMode(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::eb_mode, limited(kEbMode, *value));
  printf("set EB Mode =%d \n", shared_get(&SharedBlock::eb_mode));
  return 0;
}

int SetExtraOutputRate(const std::int32_t* value, std::int32_t) {
  extra_output_rate_pct = limited(kExtraOutputRate, *value);
  return 0;
}

int SetOutputBitrate(const std::int32_t* value, std::int32_t) {
  output_bitrate = limited(kOutputBitrate, *value);
  printf("SetOutputBitrate %d\n", output_bitrate.load());
  return 0;
}

int SetFrameDiv(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::frame_div, limited(kFrameDiv, *value));
  printf("set frame div =%d \n", shared_get(&SharedBlock::frame_div));
  return 0;
}

int SetFrameMult(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::frame_mult, limited(kFrameMult, *value));
  printf("set frame mult =%d \n", shared_get(&SharedBlock::frame_mult));
  return 0;
}

int SetEbDelay(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::eb_delay, limited(kEbDelay, *value));
  printf("set EB Delay =%d \n", shared_get(&SharedBlock::eb_delay));
  return 0;
}

int SetGopSize(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::gop_size, limited(kGopSize, *value));
  printf("set Gop Size =%d \n", shared_get(&SharedBlock::gop_size));
  return 0;
}

int SetIdr(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::idr, limited(kIdr, *value));
  printf("set IDR frame interval =%d \n", shared_get(&SharedBlock::idr));
  return 0;
}

int SetNullStuffing(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::null_disable, limited(kNullDisable, *value));
  return 0;
}

int SetBufferConst(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::bufferconst, limited(kBufferConst, *value));
  printf("set frame const =%d \n", shared_get(&SharedBlock::bufferconst));
  return 0;
}

int SetInterlace(const std::int32_t* value, std::int32_t) {
  shared_set(&SharedBlock::interlace_flag, limited(kInterlace, *value));
  printf("set interlace_flag =%d \n", shared_get(&SharedBlock::interlace_flag));
  return 0;
}

// --- A/V sync and captions -----------------------------------------------

// Milliseconds to 90 kHz ticks plus an offset, wrapping as a 32-bit word.
static std::int32_t ticks_90khz(std::int32_t milliseconds, std::int32_t offset) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(milliseconds) * 90U +
                                   static_cast<std::uint32_t>(offset));
}

int SetAVSync(const std::int32_t* value, std::int32_t) {
  constexpr int kDigitalInput = 1;
  constexpr int kAc3Dsp = 2;
  constexpr std::int32_t kDigitalOffset_90khz = 15000;
  constexpr std::int32_t kDspOffset_90khz = -7500;
  fpgaregs.AVSync = *value;
  const int path = fpgaregs.AudioInput;
  if (path == kDigitalInput) fpgaregs.AVSync = ticks_90khz(*value, kDigitalOffset_90khz);
  if (path == kAc3Dsp) fpgaregs.AVSync = ticks_90khz(*value, kDspOffset_90khz);
  printf("SetAVSync %d\n", fpgaregs.AVSync.load());
  return 0;
}

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

// --- PIDs ----------------------------------------------------------------

// Block write of the two bytes, low byte first.
static int write_pid(int address, std::uint16_t pid) {
  alignas(std::uint16_t) std::uint8_t bytes[] = {static_cast<std::uint8_t>(pid & 0xFF),
                                                 static_cast<std::uint8_t>(pid >> 8)};
  return SetArray(address, sizeof bytes, bytes);
}

int SetpidVideo(const std::int32_t* value, std::int32_t) {
  puts("SetpidVideo");
  fpgaregs.pidVideo = static_cast<std::uint16_t>(*value);
  return write_pid(kRegPidVideo, fpgaregs.pidVideo);
}

int SetpidAudio(const std::int32_t* value, std::int32_t) {
  puts("SetpidAudio");
  fpgaregs.pidAudio = static_cast<std::uint16_t>(*value);
  return write_pid(kRegPidAudio, fpgaregs.pidAudio);
}

int SetpidPCR(const std::int32_t* value, std::int32_t) {
  puts("SetpidPCR");
  fpgaregs.pidPCR = static_cast<std::uint16_t>(*value);
  printf("fpgaregs.pidPCR = %i\n", fpgaregs.pidPCR.load());
  return write_pid(kRegPidPcr, fpgaregs.pidPCR);
}

// --- picture offsets -----------------------------------------------------

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
