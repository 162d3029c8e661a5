// Owns the AC-3 set-up that ends each apply of the audio settings: eight steps
// in SetAudCodec1, then the timing in SetAudCodecPram.
#include "audio/ac3_setup.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <iterator>

#include "audio/audio_settings.h"
#include "audio/dix4192.h"
#include "audio/table_5_18.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"

static constexpr useconds_t kSettle_us = 10 * kMillisecond_us;
static constexpr useconds_t kCaptureWait_us =
    100 * kMillisecond_us;  // after the capture is enabled
static constexpr int kSyncTries = 15;
static constexpr useconds_t kPollWait_us = 10 * kMillisecond_us;  // between looks of the polling

// Descriptor of a stream that is not there; the DSP's stream has the same first
// five values.
static constexpr std::uint8_t kDefaultDescriptor[kAc3DescriptorSize] = {8, 0, 0, 7, 1, 15};

// Nominal rates in kbit/s; the index is the bit-rate code.
static constexpr int kBitRates[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                    192, 224, 256, 320, 384, 448, 512, 576, 640};

static constexpr std::uint16_t kMaxFscod = 4;

// Rate codes of the sync frame.
static constexpr int kFscod48 = 0;
static constexpr int kFscod441 = 1;
static constexpr int kFscod32 = 2;

// Decoding time-stamp offsets.
static constexpr std::int64_t kDtsLimit =
    8000;  // above it the audio path waits, else the video path
static constexpr int kDtsDefault = 2000;

// Constants of the audio multiplexer.
static constexpr int kAudioMuxValues[] = {100, 0, 2000, 16};
static constexpr int kAudioMuxRegisters[] = {kRegAudioMux0, kRegAudioMux1, kRegAudioMux2,
                                             kRegAudioMux3};

static bool audio_input_is(int input) { return fpgaregs.AudioInput == input; }

static bool audio_is_disabled() { return fpgaregs.inAudioEnable == kAudioDisabled; }

static void store_descriptor(Ac3Descriptor field, unsigned value) {
  hd_ac3_desc_parameters[field] = static_cast<std::uint8_t>(value);
}

static int nominal_rate(unsigned frmsizecod) {
  return frmsizecod < kFrameSizeCodes ? Table_5_18[frmsizecod][kColumnRate] : 0;
}

// An unlisted rate leaves the previous code.
static void store_bit_rate_code(int rate) {
  for (unsigned code = 0; code < std::size(kBitRates); ++code) {
    if (kBitRates[code] == rate) store_descriptor(kAc3BitRateCode, code);
  }
}

static unsigned frame_size_code(unsigned a) { return (a >> 8) & 0x3F; }

// Captured header words 2 and 3, bytes in stream order; 0 without a sync frame.
struct Ac3Header {
  unsigned a = 0;
  unsigned b = 0;
};

// Swaps the two bytes of a captured word.
static unsigned ac3_swap(unsigned word) { return ((word & 0xFF) << 8) | ((word >> 8) & 0xFF); }

// Puts the FPGA into set-up mode and opens the DSP path when it is configured.
static void ac3_enter_setup() {
  SetValue(kRegAudioMode, kAudioModeSetup);
  if (audio_input_is(kAudioInputDsp)) SetValue(kRegDspAudioEnable, 1);
}

static void add_to_mask(int bits) {
  enable_capture_mask_reg = static_cast<std::uint16_t>(enable_capture_mask_reg | bits);
}

// ORs the capture bits into the mask and sets its path bit. Returns the mask.
static int ac3_capture_mask() {
  const int path = audio_input_is(kAudioInputDigital) ? kAc3CtrlDigital : kAc3CtrlDsp;
  add_to_mask(kAc3CtrlEnable | kAc3CtrlOutput);
  enable_capture_mask_reg =
      static_cast<std::uint16_t>((enable_capture_mask_reg & kAc3CtrlPathFree) | path);
  return enable_capture_mask_reg;
}

// Decodes and prints the header, and stores the descriptor.
static void ac3_decode(const Ac3Header& header) {
  const unsigned frmsizecod = frame_size_code(header.a);
  const unsigned bsid = (header.a >> 3) & 0x1F;
  const unsigned bsmod = header.a & 7;
  const unsigned surround_mode = (header.b >> 11) & 3;
  const unsigned acmod = header.b >> 13;
  const unsigned langcode = (header.b & 1) != 0 ? (header.b >> 7) & 1 : (header.b >> 15) & 1;
  printf("0 bsid = %x\n", bsid);
  printf("1 bsmod = %x\n", bsmod);
  printf("2 surround_mode = %x\n", surround_mode);
  printf("3 num_channels - acmod = %x\n", acmod);
  printf("4 langcode = %x\n", langcode);
  printf("frmsizecod = %x (%i)\n", frmsizecod, static_cast<int>(frmsizecod));
  printf("bit_rate = %i\n", nominal_rate(frmsizecod));
  store_descriptor(kAc3Bsid, bsid);
  store_descriptor(kAc3Bsmod, bsmod);
  store_descriptor(kAc3SurroundMode, surround_mode);
  store_descriptor(kAc3Acmod, acmod);
  store_descriptor(kAc3Langcode, langcode);
  store_bit_rate_code(nominal_rate(frmsizecod));
}

// The descriptor of a stream that is not there.
static void ac3_default_descriptor() {
  for (int i = 0; i < kAc3DescriptorSize; ++i) hd_ac3_desc_parameters[i] = kDefaultDescriptor[i];
}

// Copies the descriptor into the shared block, last byte first.
static void ac3_publish_descriptor(bool print) {
  for (int i = kAc3DescriptorSize - 1; i >= 0; --i) {
    const std::uint8_t byte = hd_ac3_desc_parameters[i];
    shared_set(&SharedBlock::hd_ac3_desc, static_cast<std::size_t>(i), byte);
    if (print) printf("hd_ac3_desc_parameters[%d]=%d\n", i, byte);
  }
}

// --- the eight steps of the set-up ---------------------------------------

// 1. Enter set-up mode; nothing is known about audio yet.
static void step1_begin() {
  puts("SetAudCodec");
  ac3_enter_setup();
  audio_at_beginning = 0;
}

// 2. Choose the wait: enable the capture on the configured path, unless audio is
// disabled, and see whether there is audio to wait for.
static void step2_start_capture() {
  if (audio_is_disabled()) return;
  SetValue(kRegAc3Control, ac3_capture_mask());
  if (audio_input_is(kAudioInputDigital)) {
    usleep(kCaptureWait_us);
    audio_at_beginning = audio_monitor_4192(kDix4192ReceiverControl);
  } else {
    audio_at_beginning = 1;
    usleep(kCaptureWait_us);
  }
}

// 3. Without audio the descriptor gets its defaults. Returns whether to wait.
static bool step3_audio_to_wait_for() {
  if (audio_at_beginning != 0) return true;
  ac3_default_descriptor();
  return false;
}

// 4. Wait for a sync frame. Fills the header; returns false after the last try.
static bool step4_wait_for_sync(Ac3Header* header) {
  for (int attempt = 0; attempt < kSyncTries; ++attempt) {
    const unsigned sync = GetValue(kRegAc3Sync);
    printf("SYNCFRAME_FLIP = %x add 0 P1_AC3_STATUS_REG = %x\n", sync, GetValue(kRegAc3Status));
    if (sync == kAc3SyncFlipped) {
      const unsigned word2 = GetValue(kRegAc3Word2);
      printf("get value reg 2 %x  \n", word2);
      header->a = ac3_swap(word2);
      header->b = ac3_swap(GetValue(kRegAc3Word3));
      usleep(kSettle_us);
      return true;
    }
    usleep(kSecond_us);
  }
  usleep(kSettle_us);
  audio_at_beginning = 0;
  return false;
}

// 5. Decode the header; without a frame the descriptor gets its defaults.
static void step5_decode(bool frame_held, const Ac3Header& header) {
  if (frame_held) {
    ac3_decode(header);
  } else {
    ac3_default_descriptor();
  }
}

// 6. Publish the descriptor. The DSP's stream has fixed values but the rate.
static void step6_publish() {
  audio_at_beginning = 1;
  if (audio_input_is(kAudioInputDsp)) {
    for (int i = 0; i < kAc3BitRateCode; ++i) hd_ac3_desc_parameters[i] = kDefaultDescriptor[i];
  }
  printf("5 bit_rate_code = %i\n", hd_ac3_desc_parameters[kAc3BitRateCode].load());
  ac3_publish_descriptor(true);
}

// 7. Reset the audio path; from here on audio counts as configured.
static void step7_reset() {
  reset_fpga_path();
  shared_set(&SharedBlock::audio_configured, 1);
}

// 8. Program the timing from word A.
static void step8_program_timing(const Ac3Header& header) {
  const Ac3Codes codes = ac3_codes(header.a);
  printf("get sync fscod = %i\n", codes.fscod);
  printf("get sync frmsizecod = %i\n", codes.frmsizecod);
  printf("reg 0%x reg2 %x \n", header.a, GetValue(kRegAc3Word2));
  printf("get sync fscod = %i\n", codes.fscod);
  printf("get sync frmsizecod = %i\n", codes.frmsizecod);
  SetAudCodecPram(codes.fscod, codes.frmsizecod);
}

// --- parts of the timing -------------------------------------------------

static void write_sample_period(int fscod) {
  if (fscod == kFscod48) SetValue(kRegSampleRate, kSamplePeriod48);
  if (fscod == kFscod32) SetValue(kRegSampleRate, kSamplePeriod32);
}

static void write_dts_offsets() {
  const std::int64_t sync = fpgaregs.AVSync;  // 64 bits: the difference below cannot overflow
  if (sync > kDtsLimit) {
    SetValue(kRegP1DtsInit, static_cast<int>(sync / 4) & 0xFFFF);
    SetValue(kRegP0DtsInit, kDtsDefault);
    return;
  }
  SetValue(kRegP1DtsInit, kDtsDefault);
  printf("P1_DTS_INIT_REG = %d\n", kDtsDefault);
  const int offset = static_cast<int>((2 * kDtsLimit - sync) / 4);
  SetValue(kRegP0DtsInit, offset & 0xFFFF);
  printf("P0_DTS_INIT_REG = %d\n", offset);
}

// Bytes of a sync frame; 0 for a code outside the table or a reserved rate.
static int bytes_per_frame(int fscod, int frmsizecod) {
  if (frmsizecod >= kFrameSizeCodes) return 0;
  const std::int32_t* row = Table_5_18[frmsizecod];
  switch (fscod) {
    case kFscod48:
      return 2 * row[kColumnWords48];
    case kFscod441:
      return 2 * row[kColumnWords441];
    case kFscod32:
      return 2 * row[kColumnWords32];
    default:
      return 0;
  }
}

static void write_frame_size(int fscod, int frmsizecod) {
  const int bytes = bytes_per_frame(fscod, frmsizecod);
  SetValue(kRegAc3FrameBytes, bytes & 0xFFFF);
  printf("bytes_per_frame_ac3 = %i\n", bytes);
  shared_set(&SharedBlock::bytes_per_frame_ac3, bytes);
  shared_set(&SharedBlock::AudioInput, fpgaregs.AudioInput.load());
}

static void write_audio_mux() {
  for (std::size_t i = 0; i < std::size(kAudioMuxValues); ++i) {
    SetValue(kAudioMuxRegisters[i], kAudioMuxValues[i]);
  }
}

// Where audio is disabled the register is written once more with the output bit
// cleared; the mask itself keeps the bit.
static void write_mask_without_output() {
  SetValue(kRegAc3Control, enable_capture_mask_reg & ~kAc3CtrlOutput & 0xFFFF);
}

static void write_control_dsp() {
  enable_capture_mask_reg =
      static_cast<std::uint16_t>((enable_capture_mask_reg & kAc3CtrlPathFree) | kAc3CtrlDsp);
  SetValue(kRegAc3Control, enable_capture_mask_reg);
  if (audio_is_disabled()) write_mask_without_output();
  printf("P1_AC3_CTRL_REG=0x%x\n", enable_capture_mask_reg.load());
}

static void write_control_digital(int fscod, int frmsizecod) {
  const int word = kAc3CtrlDigital | frmsizecod << kAc3CtrlFrameSizeShift |
                   fscod << kAc3CtrlFscodShift | kAc3CtrlTiming | kAc3CtrlOutput | kAc3CtrlEnable;
  SetValue(kRegAc3Control, word);
  // The mask, not the word just written.
  if (audio_is_disabled()) write_mask_without_output();
}

// --- stream tracking -----------------------------------------------------

static void wait_for_sync() {
  for (;;) {
    const unsigned sync = GetValue(kRegAc3Sync);
    GetValue(kRegAc3Status);
    if (sync == kAc3SyncFlipped) return;
    usleep(kPollWait_us);
  }
}

// Reads the whole capture; words 2 and 3 make the header.
static Ac3Header read_captured_header() {
  unsigned words[kAc3CaptureWords];
  for (int i = 0; i < kAc3CaptureWords; ++i) {
    words[i] = ac3_swap(GetValue(kRegAc3Sync + i * kAc3CaptureStride));
  }
  return {words[2], words[3]};
}

static bool audio_is_present() {
  const bool digital = fpgaregs.AudioInput == kAudioInputDigital;
  audio_at_beginning = digital ? audio_monitor_4192(kDix4192ReceiverControl) : 1;
  return audio_at_beginning != 0;
}

Ac3Codes ac3_codes(unsigned a) {
  Ac3Codes codes{static_cast<std::uint16_t>(a >> 14),
                 static_cast<std::uint16_t>(frame_size_code(a))};
  if (codes.fscod > kMaxFscod) {
    printf("get error fscod = %i set to 0\n", codes.fscod);
    codes.fscod = 0;
  }
  if (codes.frmsizecod >= kFrameSizeCodes) {
    // The message says 30; the value used is 0.
    printf("get error frmsizecod = %i set to 30\n", codes.frmsizecod);
    codes.frmsizecod = 0;
  }
  return codes;
}

int SetAudCodec1(const std::int32_t*, std::int32_t) {
  Ac3Header header;
  step1_begin();
  step2_start_capture();
  if (step3_audio_to_wait_for()) {
    const bool frame_held = step4_wait_for_sync(&header);
    step5_decode(frame_held, header);
  }
  step6_publish();
  step7_reset();
  step8_program_timing(header);
  return 0;
}

int SetAudCodecPram(std::uint16_t fscod, std::uint16_t frmsizecod) {
  write_sample_period(fscod);
  add_to_mask(kAc3CtrlOutput);
  add_to_mask(fscod << kAc3CtrlFscodShift);
  add_to_mask(frmsizecod << kAc3CtrlFrameSizeShift);
  add_to_mask(kAc3CtrlTiming | kAc3CtrlOutput);
  reset_fpga_path();
  write_dts_offsets();
  printf("set the DTS_INIT_AC3 %d\n", fpgaregs.AVSync.load());
  printf("fscod = %i\n", fscod);
  printf("frmsizecod = %i\n", frmsizecod);
  write_frame_size(fscod, frmsizecod);
  write_audio_mux();
  if (audio_input_is(kAudioInputDsp)) {
    write_control_dsp();
  } else {
    write_control_digital(fscod, frmsizecod);
  }
  return 0;
}

void* AudioPolling_thread(void*) {
  shared_set(&SharedBlock::audio_configured, 0);
  puts(" AudioPolling_thread");
  wait_for_sync();
  const unsigned word2 = GetValue(kRegAc3Word2);
  printf("get value reg 2 %x  \n", word2);
  const unsigned a = ac3_swap(word2);
  usleep(kMillisecond_us);
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
