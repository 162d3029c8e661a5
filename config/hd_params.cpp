// The way of every setting from hd.ini to the hardware: one table of keys and
// handlers, walked from top to bottom.
#include "config/hd_params.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "audio/ac3_setup.h"
#include "audio/audio_settings.h"
#include "config/cfg_reader.h"
#include "config/encoder.h"
#include "config/numbers.h"
#include "config/output_rate.h"
#include "config/transport_stream.h"
#include "config/video_format.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"
#include "video/input_selection.h"

// --- rate control --------------------------------------------------------

// A word that `encode` reads when it starts.
struct EncodeWord {
  Range range;
  SharedWord SharedBlock::*field;
  const char* format;  // null: nothing is printed
};

// Stores it, and prints it as it is stored then.
static int store_word(std::int32_t value, const EncodeWord& word) {
  shared_set(word.field, limited(value, word.range));
  if (word.format != nullptr) printf(word.format, shared_get(word.field));
  return 0;
}

// Each with its range and what is stored for a value outside, which is not always
// the start-up value: a bad "interlace_flag" turns interlace on.

static int SetEbMode(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {{0, 1, 1}, &SharedBlock::eb_mode, "set EB Mode =%d \n"};
  return store_word(*value, kWord);
}

static int SetFrameDiv(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {
      {1, 100, 1}, &SharedBlock::frame_div, "set frame div =%d \n"};
  return store_word(*value, kWord);
}

static int SetFrameMult(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {
      {1, 100, 1}, &SharedBlock::frame_mult, "set frame mult =%d \n"};
  return store_word(*value, kWord);
}

static int SetEbDelay(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {
      {0, 10'000, 700}, &SharedBlock::eb_delay, "set EB Delay =%d \n"};
  return store_word(*value, kWord);
}

static int SetGopSize(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {
      {0, 10'000, 30}, &SharedBlock::gop_size, "set Gop Size =%d \n"};
  return store_word(*value, kWord);
}

static int SetIdr(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {
      {0, 10'000, 0}, &SharedBlock::idr, "set IDR frame interval =%d \n"};
  return store_word(*value, kWord);
}

static int SetNullStuffing(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {{0, 1, 0}, &SharedBlock::null_disable, nullptr};
  return store_word(*value, kWord);
}

static int SetBufferConst(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {
      {1, 1000, 60}, &SharedBlock::bufferconst, "set frame const =%d \n"};
  return store_word(*value, kWord);
}

static int SetInterlace(const std::int32_t* value, std::int32_t) {
  static constexpr EncodeWord kWord = {
      {0, 1, 1}, &SharedBlock::interlace_flag, "set interlace_flag =%d \n"};
  return store_word(*value, kWord);
}

// --- the table -----------------------------------------------------------

// clang-format off
// Row order is part of the design: rates before resolution, the audio input
// before its codec rows and "AVSync", the launch of `encode` after PIDs and
// offsets. A key that stands more than once is read and applied each time.
constexpr HdParam hd_params[] = {
    // key                   format  encoder         video input        audio input   FPGA
    {"eb_mode",               "%d", nullptr,        nullptr,           nullptr,      SetEbMode},
    {"extra_output_rate_pct", "%d", nullptr,        nullptr,           nullptr,      SetExtraOutputRate},
    {"output_br",             "%d", nullptr,        nullptr,           nullptr,      SetOutputBitrate},
    {"mpgVidRate",            "%d", SetVidRate,     nullptr,           nullptr,      Setoutput_bitrate},
    {"inVideoStandard",       "%d", nullptr,        nullptr,           nullptr,      nullptr},
    {"inVideoBrightness",     "%d", nullptr,        SetBrightness,     nullptr,      nullptr},
    {"inVideoContrast",       "%d", nullptr,        SetContrast,       nullptr,      nullptr},
    {"inAudioEnable",         "%d", nullptr,        nullptr,           nullptr,      SetinAudioEnable},
    {"mpgAudRate",            "%d", nullptr,        nullptr,           nullptr,      setAudRate},
    {"inAudioVolume",         "%d", nullptr,        nullptr,           nullptr,      SetinAudioVolume},
    {"AudioInput",            "%d", nullptr,        nullptr,           SetFiberCoax, SetAudioInput},
    {"mpgAudCodec",           "%d", nullptr,        nullptr,           nullptr,      SetAudCodec_bf},
    {"inAudioSampleRate",     "%d", nullptr,        nullptr,           nullptr,      SetinAudioSampleRate},
    {"mpgVidRes",             "%d", encSetVidRes,   nullptr,           nullptr,      fpgaSetVidRes},
    {"VideoInput",            "%d", nullptr,        SetVideoInputSel,  nullptr,      nullptr},
    {"vbr",                   "%d", SetVBR,         nullptr,           nullptr,      nullptr},
    {"AVSync",                "%d", nullptr,        nullptr,           nullptr,      SetAVSync},
    {"vbiMode",               "%d", nullptr,        nullptr,           nullptr,      CC_enable},
    {"VidCodec",              "%d", encSetVidCodec, nullptr,           nullptr,      fpgaSetVidCodec},
    {"mpgAudCodec",           "%d", nullptr,        nullptr,           nullptr,      SetAudCodec},
    {"mpgAudCodec",           "%d", nullptr,        nullptr,           nullptr,      SetAudCodec1},
    {"pidVideo",              "%d", nullptr,        nullptr,           nullptr,      SetpidVideo},
    {"pidAudio",              "%d", nullptr,        nullptr,           nullptr,      SetpidAudio},
    {"pidPCR",                "%d", nullptr,        nullptr,           nullptr,      SetpidPCR},
    {"offset_x",              "%d", nullptr,        nullptr,           nullptr,      SetOffsetx},
    {"offset_y",              "%d", nullptr,        nullptr,           nullptr,      SetOffsety},
    {"offset_x",              "%d", nullptr,        nullptr,           nullptr,      SetOffsetX},
    {"offset_y",              "%d", nullptr,        nullptr,           nullptr,      SetOffsetY},
    {"portActiveEnable",      "%d", nullptr,        nullptr,           nullptr,      start_hd},
    {"frame_div",             "%d", nullptr,        nullptr,           nullptr,      SetFrameDiv},
    {"frame_mult",            "%d", nullptr,        nullptr,           nullptr,      SetFrameMult},
    {"eb_delay",              "%d", nullptr,        nullptr,           nullptr,      SetEbDelay},
    {"gop_size",              "%d", nullptr,        nullptr,           nullptr,      SetGopSize},
    {"idr",                   "%d", nullptr,        nullptr,           nullptr,      SetIdr},
    {"null_disable",          "%d", nullptr,        nullptr,           nullptr,      SetNullStuffing},
    {"bufferconst",           "%d", nullptr,        nullptr,           nullptr,      SetBufferConst},
    {"interlace_flag",        "%d", nullptr,        nullptr,           nullptr,      SetInterlace},
    {nullptr,                 nullptr, nullptr,     nullptr,           nullptr,      nullptr},
};
// clang-format on

// Where a row's value is scanned to. Kept over the walk: a number stays until
// the next key that scans.
struct Destination {
  std::int32_t number;
  std::int32_t text[kCfgLineSize / sizeof(std::int32_t)];  // raw characters, for other formats
};

static std::int32_t* destination_for(Destination& values, const char* format) {
  return strcmp(format, "%d") == 0 ? &values.number : values.text;
}

static void call_handlers(const HdParam& row, const std::int32_t* value) {
  for (const HdHandler handler : {row.encoder, row.video_input, row.audio_input, row.fpga}) {
    if (handler != nullptr) handler(value, 0);
  }
}

static FILE* open_hd_ini() {
  FILE* file = fopen(kHdIniPath, "r");
  if (file == nullptr) puts("can not open hd.ini file");
  return file;
}

int Configure_System() {
  puts("start Configure_System!!");
  shared_set(&SharedBlock::encode_alive, 0);
  shared_set(&SharedBlock::do_fpga_restart, 1);
  SetValue(kRegControl, kControlRunning);
  printf("fname = %s\n", kHdIniPath);
  FILE* file = open_hd_ini();
  if (file == nullptr) return -1;

  Destination values{};
  for (const HdParam* row = hd_params; row->key != nullptr; ++row) {
    std::int32_t* value = destination_for(values, row->format);
    if (ReadCfg(file, nullptr, row->key, value, row->format, nullptr) == kCfgFound) {
      call_handlers(*row, value);
    }
  }

  puts("end Configure_System!!");
  fclose(file);
  usleep(kSecond_us);
  return 0;
}

int GetVideoStdFromHDini() {
  FILE* file = open_hd_ini();
  if (file == nullptr) return -1;
  // Read once for every row of the table; the last read is the answer.
  std::int32_t video_std = 0;
  for (const HdParam* row = hd_params; row->key != nullptr; ++row) {
    ReadCfg(file, nullptr, "mpgVidRes", &video_std, row->format, nullptr);
  }
  fclose(file);
  return video_std;
}
