// Values of a configuration: H.264 at 25 frames/s, 8.925 Mbit/s, PIDs 256 and 257.
#include "vboard/testing/set_up.h"

#include <algorithm>
#include <iterator>

#include "hw/fpga_registers.h"
#include "vboard/models/ac3_table.h"
#include "vboard/models/needs.h"
#include "vboard/models/picture.h"

namespace vboard {

namespace {

struct RegisterValue {
  int address;
  int value;
};
constexpr RegisterValue kFpgaValues[] = {
    {kRegAudioMode, 1},          {kRegDspAudioEnable, 0},  {kRegP0DtsInit, 2000},
    {kRegFramePeriod, 14400},    {kRegP1DtsInit, 3750},    {kRegPidVideo, 256},
    {kRegPidAudio, 257},         {kRegVideoCodec0, 6784},  {kRegVideoCodec1, 6},
    {kRegVideoCodec2, 35000},    {kRegVideoCodec3, 44640}, {kRegAudioMux0, 100},
    {kRegAudioMux1, 0},          {kRegAudioMux2, 2000},    {kRegAudioMux3, 16},
    {kRegOutputInterval, 13651}, {kRegOutputRate0, 53},    {kRegOutputRate1, 53},
    {kRegOutputRate2, 2},        {kRegPidPcr, 256},        {kRegControl, kControlRunning},
};

void set(Board& board, int address, int value) {
  board.fpga.reg[address / 2] = static_cast<std::uint16_t>(value);
}

void set_up_picture(Board& board) {
  const VideoSource source = board.world.video;
  const bool composite = source == VideoSource::kComposite;
  set(board, kRegVideoControl, kVideoControlH264 | (composite ? kVideoControlSdDecoder : 0));
  board.fpga.front_end = composite ? FrontEnd::kTvp5150 : FrontEnd::kTvp7002;
  board.capture.input = composite ? 4 : source == VideoSource::kVga ? 3 : 1;
  if (!composite) {
    tvp7002_fit_standard(board);
    board.tvp7002.reg[0x19] = source == VideoSource::kVga ? 0xAA : 0x00;
    board.tvp7002.reg[0x1A] = source == VideoSource::kVga ? 0x6A : 0x6F;
    return;
  }
  Tvp5150State& decoder = board.tvp5150;
  decoder.reg[0x03] = 0x0F;                      // clock, syncs and data out
  decoder.reg[0xD0] = 0xFF;                      // no other line
  decoder.reg[0xEE] = decoder.reg[0xEF] = 0x07;  // captions in line 21
  for (const int record : {0xE0, 0xF0}) {
    std::fill_n(decoder.vbi_loaded + record, 16, true);
    decoder.vbi_ram[record] = 0xAA;
    decoder.vbi_ram[record + 1] = 0x2A;
  }
}

void set_up_sound(Board& board) {
  const bool dsp = board.world.audio == AudioSource::kDsp;
  if (dsp) {
    constexpr std::uint8_t kConfigure[] = {1, 0, 0, 0x00, 0xDC, 0x05, 0x00};  // 384 000 bit/s
    std::ranges::copy(kConfigure, board.dsp.configure);
    board.dsp.codec[0] = board.dsp.codec[1] = 23;
    board.dsp.running = true;
  }
  const Ac3Stream stream = source_stream(board);
  set(board, kRegAc3Control,
      (dsp ? 0x8000 : 0x4000) | stream.frmsizecod << 8 | stream.fscod << 6 | 0x31);
  set(board, kRegAc3FrameBytes,
      static_cast<int>(2 * ac3_frame_words(stream.fscod, stream.frmsizecod)));
  set(board, kRegSampleRate, 138240000 / ac3_sample_rate(stream.fscod));
}

}  // namespace

void set_up_by_hand(Board& board) {
  board.fpga.was_reset = true;
  board.fpga.in_reset = false;
  for (const RegisterValue& one : kFpgaValues) set(board, one.address, one.value);
  set_up_picture(board);
  set_up_sound(board);
  set_up_changed(board);
}

}  // namespace vboard
