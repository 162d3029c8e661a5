// Reads the outgoing stream off the registers.
#include "vboard/models/stream.h"

#include <cstdarg>
#include <cstdio>

#include "hw/fpga_registers.h"
#include "vboard/models/ac3_table.h"
#include "vboard/models/bus.h"
#include "vboard/models/fpga_path.h"
#include "vboard/models/needs.h"
#include "vboard/models/picture.h"

namespace vboard {

namespace {

constexpr double kIntervalRate = 121844;  // Mbit/s times interval
constexpr double kPacketBits = 188 * 8;
constexpr double kFramePeriodClock = 360000;  // over the period: frames a second
constexpr double kSamplePeriodClock = 138.24e6;
constexpr int kCodecUnity = 23;  // gain of 0 dB
constexpr unsigned kCodecGain = 0x1F;
constexpr unsigned kCodecMute = 0x80;
constexpr double kCodecStep_dB = 1.5;

int reg(const Board& board, int address) { return board.fpga.reg[address / 2]; }

PictureWindow window_of(const Board& board) {
  if (board.world.video != VideoSource::kComposite) return tvp7002_window(board);
  PictureWindow whole;
  whole.width = sent_standard(board.world).width;
  whole.height = board.world.pal ? 576 : 480;
  return whole;
}

VideoInStream video_of(const Board& board) {
  VideoInStream video;
  video.there = board.encoder.streaming && board.world.video != VideoSource::kNone &&
                !board.world.faults.video_freeze && !board.world.faults.stall &&
                verdict(board).frames_in && verdict(board).video_out;
  video.pid = reg(board, kRegPidVideo);
  video.codec = h264(board) ? "H.264" : "MPEG-2";
  const int period = reg(board, kRegFramePeriod);
  video.frames_per_second = period == 0 ? 0 : kFramePeriodClock / period;
  const PictureWindow window = window_of(board);
  video.width = window.width;
  video.height = window.height;
  video.left = window.left;
  video.right = window.right;
  video.top = window.top;
  video.bandwidth = window.bandwidth;
  video.interlaced = sent_standard(board.world).interlaced;
  video.captions = (reg(board, kRegVideoControl) & kVideoControlMpeg2Captions) != 0 &&
                   tvp5150_delivers_captions(board);
  video.delay = reg(board, kRegP0DtsInit);
  return video;
}

double gain_dB(const Board& board, int channel) {
  const int gain = static_cast<int>(board.dsp.codec[channel] & kCodecGain);
  return (gain - kCodecUnity) * kCodecStep_dB;
}

SoundInStream sound_of(const Board& board) {
  SoundInStream sound;
  const bool dsp = board.world.audio == AudioSource::kDsp;
  const Ac3Stream source = source_stream(board);
  sound.there = board.encoder.streaming && board.world.audio != AudioSource::kNone &&
                verdict(board).sound_in && verdict(board).sound_out;
  sound.pid = reg(board, kRegPidAudio);
  sound.source = dsp ? "DSP" : "digital input";
  sound.kbit_per_second = ac3_bit_rate(source.frmsizecod);
  const int period = reg(board, kRegSampleRate);
  sound.sample_rate = period == 0 ? 0 : static_cast<int>(kSamplePeriodClock / period);
  sound.frame_bytes = reg(board, kRegAc3FrameBytes);
  const std::size_t words = ac3_frame_words(source.fscod, source.frmsizecod);
  sound.decodable = static_cast<std::size_t>(sound.frame_bytes) == 2 * words;
  if (dsp) {
    sound.left_dB = gain_dB(board, 0);
    sound.right_dB = gain_dB(board, 1);
    sound.left_silent = (board.dsp.codec[0] & kCodecMute) != 0;
    sound.right_silent = (board.dsp.codec[1] & kCodecMute) != 0;
  }
  sound.delay = reg(board, kRegP1DtsInit);
  return sound;
}

std::string text_of(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string text_of(const char* format, ...) {
  char text[200];
  va_list values;
  va_start(values, format);
  vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

std::string level_text(bool silent, double dB) {
  return silent ? std::string("silent") : text_of("%+.1f dB", dB);
}

std::string video_text(const VideoInStream& video) {
  std::string text =
      text_of("PID 0x%04x  video  %s, %dx%d%s, %.3f frames/s", video.pid, video.codec.c_str(),
              video.width, video.height, video.interlaced ? "i" : "p", video.frames_per_second);
  if (video.captions) text += ", closed captions";
  if (video.right > 0)
    text += text_of(", pixels %d to %d from line %d", video.left, video.right, video.top);
  return text + text_of(", delay %d", video.delay);
}

std::string sound_text(const SoundInStream& sound) {
  std::string text =
      text_of("PID 0x%04x  sound  AC-3 of the %s, %d kbit/s, %d Hz, %d bytes a frame", sound.pid,
              sound.source.c_str(), sound.kbit_per_second, sound.sample_rate, sound.frame_bytes);
  if (!sound.decodable) text += ", not decodable";
  if (sound.source == "DSP")
    text += ", left " + level_text(sound.left_silent, sound.left_dB) + ", right " +
            level_text(sound.right_silent, sound.right_dB);
  return text + text_of(", delay %d", sound.delay);
}

void add_reasons(std::vector<std::string>& lines, const char* what,
                 const std::vector<std::string>& reasons) {
  for (const std::string& one : reasons) lines.push_back(std::string(what) + one);
}

}  // namespace

TransportStream stream_of(const Board& board) {
  TransportStream stream;
  stream.packet_interval = reg(board, kRegOutputInterval);
  if (stream.packet_interval > 0) stream.Mbit_per_second = kIntervalRate / stream.packet_interval;
  if (stream.packet_interval > 0) stream.packet_us = kPacketBits / stream.Mbit_per_second;
  stream.pcr_pid = reg(board, kRegPidPcr);
  stream.video = video_of(board);
  stream.sound = sound_of(board);
  stream.there = stream.video.there || stream.sound.there;
  return stream;
}

std::vector<std::string> stream_text(const Board& board) {
  const TransportStream stream = stream_of(board);
  const Lacking reasons = lacking(board);
  std::vector<std::string> lines;
  if (!stream.there) {
    lines.emplace_back("no stream");
  } else {
    lines.push_back(text_of("%.3f Mbit/s, a packet every %.1f us (%d ticks of 81 MHz)",
                            stream.Mbit_per_second, stream.packet_us, stream.packet_interval));
    lines.push_back(text_of("PID 0x%04x  PCR", static_cast<unsigned>(stream.pcr_pid)));
    if (stream.video.there) lines.push_back(video_text(stream.video));
    if (stream.sound.there) lines.push_back(sound_text(stream.sound));
  }
  add_reasons(lines, "stream: ", reasons.stream);
  add_reasons(lines, "picture: ", reasons.picture);
  add_reasons(lines, "sound: ", reasons.sound);
  return lines;
}

bool differ(const TransportStream& one, const TransportStream& other) {
  const auto text = [](const TransportStream& stream) {
    return text_of("%d %d %d %d %d ", stream.there, stream.packet_interval, stream.pcr_pid,
                   stream.video.there, stream.sound.there) +
           video_text(stream.video) + std::to_string(stream.video.bandwidth) +
           sound_text(stream.sound);
  };
  return text(one) != text(other);
}

}  // namespace vboard
