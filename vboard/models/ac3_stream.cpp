// The AC-3 stream of the connected source: whole frames of the ATSC A/52
// syntax, silent but decodable, as the FPGA's header capture and its bench FIFO
// show them. The FPGA holds each 16-bit word with its bytes swapped.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "hw/fpga_registers.h"
#include "vboard/models/ac3_table.h"
#include "vboard/models/bus.h"
#include "vboard/models/fpga.h"

namespace vboard {

namespace {

constexpr std::uint16_t kSyncWord = 0x0B77;
constexpr std::uint16_t kWrongSyncWord = 0x0B76;

// Control word in kRegAc3Control.
constexpr unsigned kCaptureOn = 0x0011;  // both bits
constexpr unsigned kDigitalPath = 0x4000;
constexpr unsigned kDspPath = 0x8000;

constexpr std::uint16_t kModeCapture = 22;  // of kRegAudioMode

constexpr std::size_t kLongestFrame = 1920;  // words, 640 kbit/s at 32 kHz

std::size_t frame_words(const Ac3Stream& stream) {
  return ac3_frame_words(stream.fscod, stream.frmsizecod);
}

// ---- bits ----------------------------------------------------------------------
class BitWriter {
 public:
  explicit BitWriter(std::uint16_t* words) : words_(words) {}
  void put(unsigned value, unsigned bits) {
    while (bits-- > 0) {
      const unsigned bit = value >> bits & 1;
      const unsigned moved = bit << (15 - at_ % 16);
      words_[at_ / 16] = static_cast<std::uint16_t>(words_[at_ / 16] | moved);
      ++at_;
    }
  }

 private:
  std::uint16_t* words_;
  std::size_t at_ = 0;
};

// Generator of A/52: x^16 + x^15 + x^2 + 1.
constexpr unsigned kCrcPolynomial = 0x8005;
constexpr unsigned kCrcReversed = 0x18005;

std::uint16_t crc_of(const std::uint16_t* words, std::size_t count) {
  unsigned crc = 0;
  for (std::size_t i = 0; i < count; ++i) {
    crc ^= words[i];
    for (int bit = 0; bit < 16; ++bit)
      crc = (crc & 0x8000) != 0 ? (crc << 1 ^ kCrcPolynomial) & 0xFFFF : crc << 1;
  }
  return static_cast<std::uint16_t>(crc);
}

// The word that, put in front of `count` words, makes the check of all of them 0.
std::uint16_t leading_crc(const std::uint16_t* words, std::size_t count) {
  unsigned crc = crc_of(words, count);
  // Back over the words and over the 16 places that crc_of is ahead.
  for (std::size_t step = 0; step < (count + 1) * 16; ++step)
    crc = (crc & 1) != 0 ? (crc ^ kCrcReversed) >> 1 : crc >> 1;
  return static_cast<std::uint16_t>(crc);
}

// ---- frame content -----------------------------------------------------------------
constexpr int kChannels[] = {2, 1, 2, 3, 3, 4, 4, 5};  // full-bandwidth, by acmod
constexpr int kBlocks = 6;
constexpr unsigned kStereo = 2;
constexpr unsigned kWithLfe = 7;  // the five-channel mode comes with its sixth

bool has_centre_mix(unsigned acmod) { return (acmod & 1) != 0 && acmod != 1; }
bool has_surround_mix(unsigned acmod) { return (acmod & 4) != 0; }

// The two bits behind acmod say how to mix down, or, in stereo, whether the two
// channels carry a matrixed surround. `surround` is the first such field.
void put_mix(BitWriter& out, unsigned acmod, unsigned surround) {
  if (has_centre_mix(acmod)) out.put(surround, 2);
  if (has_surround_mix(acmod)) out.put(has_centre_mix(acmod) ? 0 : surround, 2);
  if (acmod == kStereo) out.put(surround, 2);
}

// One programme's level, compression, language and production words.
void put_programme(BitWriter& out, unsigned langcode) {
  out.put(27, 5);  // dialogue level, -27 dB
  out.put(0, 1);   // no compression word
  out.put(langcode != 0 ? 1 : 0, 1);
  if (langcode != 0) out.put(langcode, 8);
  out.put(0, 1);  // no production information
}

void put_header(BitWriter& out, const Ac3Stream& stream) {
  const unsigned acmod = stream.acmod & 7u;
  out.put(kSyncWord, 16);
  out.put(0, 16);  // first check, filled in when the rest stands
  out.put(stream.fscod, 2);
  out.put(stream.frmsizecod, 6);
  out.put(stream.bsid, 5);
  out.put(stream.bsmod, 3);
  out.put(acmod, 3);
  put_mix(out, acmod, stream.surround);
  out.put(acmod == kWithLfe ? 1 : 0, 1);
  put_programme(out, stream.langcode);
  if (acmod == 0) put_programme(out, 0);  // two programmes of one channel
  out.put(0, 1);                          // copyright
  out.put(1, 1);                          // original
  out.put(0, 3);                          // no time codes, no additional information
}

constexpr unsigned kExponentsD45 = 3;   // one exponent for four bins
constexpr unsigned kBandwidthCode = 0;  // 73 bins
constexpr int kExponentGroups = 6;      // of the 72 bins after the first
constexpr unsigned kNoChange = 2 * 25 + 2 * 5 + 2;
constexpr unsigned kQuietest = 15;

void put_exponents(BitWriter& out, int groups) {
  out.put(kQuietest, 4);
  for (int group = 0; group < groups; ++group) out.put(kNoChange, 7);
}

// Bit allocation at its least: no mantissas follow.
void put_allocation(BitWriter& out, int channels, bool lfe) {
  out.put(1, 1);
  out.put(0, 2 + 2 + 2 + 2 + 3);  // decay, gain, knee, floor
  out.put(1, 1);
  out.put(0, 6);  // coarse offset
  for (int channel = 0; channel < channels + (lfe ? 1 : 0); ++channel) out.put(0, 4 + 3);
}

void put_first_block(BitWriter& out, unsigned acmod) {
  const int channels = kChannels[acmod];
  const bool lfe = acmod == kWithLfe;
  for (int channel = 0; channel < channels; ++channel) out.put(0, 2);  // long block, no dither
  out.put(0, acmod == 0 ? 2 : 1);                                      // no range words
  out.put(2, 2);                           // coupling strategy follows: none
  if (acmod == kStereo) out.put(0x10, 5);  // rematrixing flags follow: none
  for (int channel = 0; channel < channels; ++channel) out.put(kExponentsD45, 2);
  if (lfe) out.put(1, 1);
  for (int channel = 0; channel < channels; ++channel) out.put(kBandwidthCode, 6);
  for (int channel = 0; channel < channels; ++channel) {
    put_exponents(out, kExponentGroups);
    out.put(0, 2);  // gain range
  }
  if (lfe) put_exponents(out, 2);
  put_allocation(out, channels, lfe);
  out.put(0, 2);  // no delta allocation, nothing skipped
}

// The rest of the blocks repeat the first.
void put_next_block(BitWriter& out, unsigned acmod) {
  const int channels = kChannels[acmod];
  for (int channel = 0; channel < channels; ++channel) out.put(0, 2);
  out.put(0, acmod == 0 ? 2 : 1);
  out.put(0, 1);  // coupling as before
  if (acmod == kStereo) out.put(0, 1);
  for (int channel = 0; channel < channels; ++channel) out.put(0, 2);
  if (acmod == kWithLfe) out.put(0, 1);
  out.put(0, 4);  // allocation, offsets and delta as before, nothing skipped
}

struct Frame {
  Ac3Stream stream;
  std::size_t size = 0;
  std::uint16_t word[kLongestFrame] = {};
};

void build(Frame& frame, const Ac3Stream& stream) {
  frame = Frame{};
  frame.stream = stream;
  frame.size = frame_words(stream);
  BitWriter out(frame.word);
  put_header(out, stream);
  put_first_block(out, stream.acmod & 7u);
  for (int block = 1; block < kBlocks; ++block) put_next_block(out, stream.acmod & 7u);
  // The first check covers five eighths of the frame, the last word the rest.
  const std::size_t first_part = frame.size / 2 + frame.size / 8;
  frame.word[1] = leading_crc(frame.word + 2, first_part - 2);
  frame.word[frame.size - 1] = crc_of(frame.word + first_part, frame.size - 1 - first_part);
}

bool same(const Ac3Stream& a, const Ac3Stream& b) { return memcmp(&a, &b, sizeof a) == 0; }

// The stream as the FPGA captures it.
Ac3Stream captured_stream(const Board& board) {
  Ac3Stream stream = source_stream(board);
  const std::int32_t wrong_code = board.world.faults.ac3_frame_code;
  if (wrong_code >= 0) stream.frmsizecod = static_cast<std::uint8_t>(wrong_code);
  return stream;
}

// The frame of a stream; the last one asked for is kept.
const Frame& frame_of(const Ac3Stream& stream) {
  static thread_local Frame frame;
  if (frame.size == 0 || !same(frame.stream, stream)) build(frame, stream);
  return frame;
}

std::uint16_t swapped(std::uint16_t word) {
  return static_cast<std::uint16_t>(word << 8 | word >> 8);
}

std::uint16_t word_of_frame(const Board& board, std::size_t index) {
  const Frame& frame = frame_of(captured_stream(board));
  const std::size_t at = index % frame.size;
  if (at == 0 && board.world.faults.wrong_ac3_sync) return swapped(kWrongSyncWord);
  return swapped(frame.word[at]);
}

// The header capture looks at the path that the control word names, in its mode;
// the DSP's path has a gate of its own.
bool capturing(const Board& board) {
  const auto& reg = board.fpga.reg;
  const unsigned control = reg[kRegAc3Control >> 1];
  if ((control & kCaptureOn) != kCaptureOn || board.fpga.in_reset) return false;
  if (board.world.faults.no_ac3_sync || !audio_playing(board)) return false;
  if (reg[kRegAudioMode >> 1] != kModeCapture) return false;
  if (board.world.audio == AudioSource::kDsp)
    return (control & kDspPath) != 0 && reg[kRegDspAudioEnable >> 1] == 1;
  return (control & kDigitalPath) != 0;
}

// ---- bench FIFO ------------------------------------------------------------------------
constexpr std::int64_t kFifoDepth = 4096;
constexpr std::int64_t kMicroseconds = 1000000;

std::int64_t words_arrived(const Board& board, std::int64_t now_us) {
  const std::int64_t elapsed_us = now_us - board.ac3_capture.since_us;
  if (elapsed_us <= 0 || !audio_playing(board)) return 0;
  const Ac3Stream stream = captured_stream(board);
  const auto words = static_cast<std::int64_t>(frame_words(stream));
  const std::int64_t frame_time = kAc3SamplesPerFrame * kMicroseconds;  // in samples x us
  const std::int64_t passed = elapsed_us * ac3_sample_rate(stream.fscod);
  return passed / frame_time * words + passed % frame_time * words / frame_time;
}

}  // namespace

Ac3Stream source_stream(const Board& board) {
  return board.world.audio == AudioSource::kDsp ? dsp_stream(board) : board.world.ac3;
}

std::uint16_t ac3_captured_word(const Board& board, int index) {
  if (index < 0 || index >= kAc3CaptureWords || !capturing(board)) return 0;
  return word_of_frame(board, static_cast<std::size_t>(index));
}

// The sign bit tells that the FIFO ran over.
std::uint16_t ac3_capture_status(const Board& board, std::int64_t now_us) {
  constexpr std::int64_t kRanOver = 0x8000;
  const std::int64_t waiting = words_arrived(board, now_us) - board.ac3_capture.taken;
  const std::int64_t held = std::clamp<std::int64_t>(waiting, 0, kFifoDepth);
  return static_cast<std::uint16_t>(held | (waiting > kFifoDepth ? kRanOver : 0));
}

// A full FIFO loses its oldest words. An empty one gives 0.
std::uint16_t ac3_capture_data(Board& board, std::int64_t now_us) {
  Ac3CaptureState& fifo = board.ac3_capture;
  const std::int64_t arrived = words_arrived(board, now_us);
  fifo.taken = std::max(fifo.taken, arrived - kFifoDepth);
  if (fifo.taken >= arrived) return 0;
  return word_of_frame(board, static_cast<std::size_t>(fifo.taken++));
}

void ac3_capture_restart(Board& board, std::int64_t now_us) {
  board.ac3_capture.since_us = now_us;
  board.ac3_capture.taken = 0;
}

}  // namespace vboard
