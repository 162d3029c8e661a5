// What the FPGA's registers must say before pictures and sound get through it into
// a stream.
#include <initializer_list>

#include "hw/fpga_registers.h"
#include "vboard/models/ac3_table.h"
#include "vboard/models/fpga_path.h"
#include "vboard/models/needs.h"

namespace vboard {

namespace {

constexpr const char* kName = "fpga";

unsigned reg(const Board& board, int address) { return board.fpga.reg[address / 2]; }

bool any_is_0(const Board& board, std::initializer_list<int> addresses) {
  for (const int address : addresses)
    if (reg(board, address) == 0) return true;
  return false;
}

bool from_composite(const Board& board) { return board.world.video == VideoSource::kComposite; }

// ---- pictures in ------------------------------------------------------------------

bool other_front_end(const Board& board) {
  if (board.world.video == VideoSource::kNone) return false;
  return board.fpga.front_end != (from_composite(board) ? FrontEnd::kTvp5150 : FrontEnd::kTvp7002);
}

bool other_path(const Board& board) {
  const bool decoder = (reg(board, kRegVideoControl) & kVideoControlSdDecoder) != 0;
  return board.world.video != VideoSource::kNone && decoder != from_composite(board);
}

constexpr Need kPictureNeeds[] = {
    {"the select line is not at the decoder of the source", other_front_end},
    {"the video path is that of the other decoder", other_path},
};

// ---- video ------------------------------------------------------------------------

// One constant for H.264, two for MPEG-2.
constexpr unsigned kConstantH264 = 44640;
constexpr unsigned kConstantMpeg2 = 48032;
constexpr unsigned kConstantMpeg2Ntsc = 41248;

bool constant_of_no_codec(const Board& board) {
  const unsigned constant = reg(board, kRegVideoCodec3);
  return h264(board) ? constant != kConstantH264
                     : constant != kConstantMpeg2 && constant != kConstantMpeg2Ntsc;
}

bool pids_equal(const Board& board) { return reg(board, kRegPidVideo) == reg(board, kRegPidAudio); }

constexpr Need kVideoNeeds[] = {
    {"video codec not set up",
     [](const Board& board) {
       return any_is_0(board, {kRegVideoCodec0, kRegVideoCodec1, kRegVideoCodec2, kRegVideoCodec3});
     }},
    {"codec constant is that of the other codec", constant_of_no_codec},
    {"no frame period", [](const Board& board) { return reg(board, kRegFramePeriod) == 0; }, true},
    {"no time-stamp offset of the video",
     [](const Board& board) { return reg(board, kRegP0DtsInit) == 0; }, true},
    {"no PID for video", [](const Board& board) { return !usable_pid(reg(board, kRegPidVideo)); }},
    {"PIDs equal", pids_equal},
};

// ---- sound -------------------------------------------------------------------------

// The way through the multiplexer is open: enabled, timed, put out.
constexpr unsigned kOpen = 0x0031;
constexpr unsigned kFromDigital = 0x4000;
constexpr unsigned kFromDsp = 0x8000;
constexpr unsigned kModeMultiplex = 1;
constexpr double kSamplePeriodClock = 138.24e6;  // over the period: the sample rate

bool other_sound_path(const Board& board) {
  const unsigned control = reg(board, kRegAc3Control);
  switch (board.world.audio) {
    case AudioSource::kDigital:
      return (control & kFromDigital) == 0;
    case AudioSource::kDsp:
      return (control & kFromDsp) == 0;
    case AudioSource::kNone:
      break;
  }
  return (control & (kFromDigital | kFromDsp)) == 0;
}

bool other_frame_size(const Board& board) {
  const Ac3Stream stream = source_stream(board);
  const std::size_t words = ac3_frame_words(stream.fscod, stream.frmsizecod);
  return board.world.audio != AudioSource::kNone && reg(board, kRegAc3FrameBytes) != 2 * words;
}

bool other_sample_rate(const Board& board) {
  const unsigned period = reg(board, kRegSampleRate);
  const double rate = period == 0 ? 0 : kSamplePeriodClock / period;
  const double sent = ac3_sample_rate(source_stream(board).fscod);
  return board.world.audio != AudioSource::kNone && (rate < 0.99 * sent || rate > 1.01 * sent);
}

constexpr Need kSoundNeeds[] = {
    {"audio path off",
     [](const Board& board) { return (reg(board, kRegAc3Control) & kOpen) != kOpen; }},
    {"audio path is not that of the source", other_sound_path},
    {"audio mode is not that of the stream",
     [](const Board& board) { return reg(board, kRegAudioMode) != kModeMultiplex; }},
    {"no audio sample period", [](const Board& board) { return reg(board, kRegSampleRate) == 0; }},
    {"no AC-3 frame size", [](const Board& board) { return reg(board, kRegAc3FrameBytes) == 0; }},
    {"audio multiplexer not set up",
     [](const Board& board) {
       return any_is_0(board, {kRegAudioMux0, kRegAudioMux2, kRegAudioMux3});
     }},
    {"no PID for audio", [](const Board& board) { return !usable_pid(reg(board, kRegPidAudio)); }},
    {"no time-stamp offset of the audio",
     [](const Board& board) { return reg(board, kRegP1DtsInit) == 0; }, true},
    {"audio sample period does not fit the source", other_sample_rate, true},
    {"AC-3 frame size does not fit the source", other_frame_size, true},
};

// ---- the multiplexer ---------------------------------------------------------------

constexpr Need kStreamNeeds[] = {
    {"held in reset", [](const Board& board) { return board.fpga.in_reset; }},
    {"not reset since power-on", [](const Board& board) { return !board.fpga.was_reset; }},
    {"multiplexer not enabled",
     [](const Board& board) {
       return (reg(board, kRegControl) & kControlRunning) != kControlRunning;
     }},
    {"output rate 0", [](const Board& board) { return reg(board, kRegOutputInterval) == 0; }},
    {"output rate not set up",
     [](const Board& board) {
       return any_is_0(board, {kRegOutputRate0, kRegOutputRate1, kRegOutputRate2});
     }},
    {"no PID for the PCR", [](const Board& board) { return !usable_pid(reg(board, kRegPidPcr)); }},
};

}  // namespace

constinit const Part kFpgaPicture = {kName, kPictureNeeds};
constinit const Part kFpgaVideo = {kName, kVideoNeeds};
constinit const Part kFpgaSound = {kName, kSoundNeeds};
constinit const Part kFpgaStream = {kName, kStreamNeeds};

bool h264(const Board& board) { return (reg(board, kRegVideoControl) & kVideoControlH264) != 0; }

// The first sixteen are the tables', the last is for null packets.
bool usable_pid(unsigned pid) { return pid >= 0x0010 && pid < 0x1FFF; }

}  // namespace vboard
