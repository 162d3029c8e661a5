// The System V shared-memory block through which the service and `encode` talk.
//
// The layout is a fixed binary contract between processes: little-endian words
// at fixed byte offsets, each written and read whole, without a lock.
#pragma once

#include <cstddef>
#include <cstdint>

#include "state/relaxed.h"

inline constexpr std::uint32_t kSharedMagic = 0x4D454C4B;  // "MELK"
inline constexpr int kSharedKey = 0x4D454C4B;
inline constexpr int kSharedSize = 4096;
inline constexpr int kSharedFlags = 0x3FF;  // create if absent, mode 0777
inline constexpr std::uint32_t kSharedHeader = 308;

using SharedWord = Relaxed<std::int32_t>;
using SharedByte = Relaxed<std::uint8_t>;

struct SharedBlock {
  SharedWord header;           //   0  308
  SharedWord magic;            //   4  "MELK"
  SharedWord header_zero;      //   8  0
  SharedWord videoStd;         //  12  video standard code
  SharedWord input_channel;    //  16  active video input; 4 is the SD decoder
  SharedWord video_bitrate;    //  20  bit/s
  SharedByte file_suffix[8];   // 24  ".mpeg2" or ".264", NUL-terminated (7 bytes used)
  SharedWord reserved_32[2];   // 32
  SharedWord do_fpga_restart;  // 40 1 while the FPGA path is (re)configured or stopped
  SharedWord SampleRate;       // 44 audio sample-rate period
  SharedByte audio_enable;     // 48 "inAudioEnable"; 1 after the host's stop-audio
  SharedByte reserved_49[3];
  SharedWord encoder_running;  // 52 cleared before each launch
  SharedWord launch_zero;      // 56 cleared before each launch
  SharedWord VidCodec;         // 60 copy of fpgaregs.VidCodec
  SharedByte clock_text[16];   // 64 host clock text, NUL-terminated (13 bytes used)
  SharedWord reserved_80;
  SharedByte frame_rate_code;  // 84
  SharedByte reserved_85[3];
  SharedWord vbr;             // 88
  SharedByte hd_ac3_desc[6];  // 92 AC-3 descriptor values
  SharedByte reserved_98[2];
  SharedWord spts;               // 100 single-program transport stream setting
  SharedWord offset_x;           // 104
  SharedWord offset_y;           // 108
  SharedWord status_bitrate;     // 112 status file: video bit rate
  SharedByte status_frame_rate;  // 116 status file: frames per second
  SharedByte reserved_117[3];
  SharedWord status_video_std;     // 120 status file: video standard code
  SharedWord status_width;         // 124
  SharedWord status_height;        // 128
  SharedWord status_vbr;           // 132
  SharedWord bytes_per_frame_ac3;  // 136
  SharedWord audio_configured;     // 140 1 after each AC-3 set-up
  SharedWord AudioInput;           // 144 copy of fpgaregs.AudioInput
  SharedWord audio_start;          // 148 1 skips the audio phase of the level capture
  SharedWord encode_version;       // 152
  SharedByte closed_caption;       // 156 1 when "vbiMode" is 5
  SharedByte reserved_157[3];
  SharedWord brightness;      // 160
  SharedWord contrast;        // 164
  SharedWord encode_alive;    // 168 1 while `encode` runs
  SharedWord statistics[22];  // 172..256 copied into the host status record
  SharedWord frame_div;       // 260
  SharedWord frame_mult;      // 264
  SharedWord eb_mode;         // 268
  SharedWord eb_delay;        // 272
  SharedWord statistics2[3];  // 276..284 copied into the host status record
  SharedWord null_disable;    // 288
  SharedWord gop_size;        // 292
  SharedWord idr;             // 296
  SharedWord bufferconst;     // 300
  SharedWord interlace_flag;  // 304
  SharedByte reserved_308[kSharedSize - 308];
};

static_assert(sizeof(SharedWord) == 4 && sizeof(SharedByte) == 1);
static_assert(sizeof(SharedBlock) == kSharedSize);
static_assert(offsetof(SharedBlock, magic) == 4);
static_assert(offsetof(SharedBlock, videoStd) == 12);
static_assert(offsetof(SharedBlock, input_channel) == 16);
static_assert(offsetof(SharedBlock, video_bitrate) == 20);
static_assert(offsetof(SharedBlock, file_suffix) == 24);
static_assert(offsetof(SharedBlock, do_fpga_restart) == 40);
static_assert(offsetof(SharedBlock, SampleRate) == 44);
static_assert(offsetof(SharedBlock, audio_enable) == 48);
static_assert(offsetof(SharedBlock, encoder_running) == 52);
static_assert(offsetof(SharedBlock, VidCodec) == 60);
static_assert(offsetof(SharedBlock, clock_text) == 64);
static_assert(offsetof(SharedBlock, frame_rate_code) == 84);
static_assert(offsetof(SharedBlock, vbr) == 88);
static_assert(offsetof(SharedBlock, hd_ac3_desc) == 92);
static_assert(offsetof(SharedBlock, spts) == 100);
static_assert(offsetof(SharedBlock, offset_x) == 104);
static_assert(offsetof(SharedBlock, offset_y) == 108);
static_assert(offsetof(SharedBlock, status_bitrate) == 112);
static_assert(offsetof(SharedBlock, status_frame_rate) == 116);
static_assert(offsetof(SharedBlock, status_video_std) == 120);
static_assert(offsetof(SharedBlock, status_width) == 124);
static_assert(offsetof(SharedBlock, status_height) == 128);
static_assert(offsetof(SharedBlock, status_vbr) == 132);
static_assert(offsetof(SharedBlock, bytes_per_frame_ac3) == 136);
static_assert(offsetof(SharedBlock, audio_configured) == 140);
static_assert(offsetof(SharedBlock, AudioInput) == 144);
static_assert(offsetof(SharedBlock, audio_start) == 148);
static_assert(offsetof(SharedBlock, encode_version) == 152);
static_assert(offsetof(SharedBlock, closed_caption) == 156);
static_assert(offsetof(SharedBlock, brightness) == 160);
static_assert(offsetof(SharedBlock, contrast) == 164);
static_assert(offsetof(SharedBlock, encode_alive) == 168);
static_assert(offsetof(SharedBlock, statistics) == 172);
static_assert(offsetof(SharedBlock, frame_div) == 260);
static_assert(offsetof(SharedBlock, frame_mult) == 264);
static_assert(offsetof(SharedBlock, eb_mode) == 268);
static_assert(offsetof(SharedBlock, eb_delay) == 272);
static_assert(offsetof(SharedBlock, statistics2) == 276);
static_assert(offsetof(SharedBlock, null_disable) == 288);
static_assert(offsetof(SharedBlock, gop_size) == 292);
static_assert(offsetof(SharedBlock, idr) == 296);
static_assert(offsetof(SharedBlock, bufferconst) == 300);
static_assert(offsetof(SharedBlock, interlace_flag) == 304);

// The attached block; null when it is not attached.
extern SharedBlock* shared_memory;

// Gets or creates the segment, attaches it and writes the header words.
// Returns the address at which it is attached, or -1 when it cannot be. Wider than
// a pointer of the board: an address in the upper half of its memory is not negative.
std::int64_t get_shm_key();

// Attaches the segment and checks the magic word instead of writing it.
// Returns 0 when it is there, -1 (with a message) otherwise.
int initial_shered_mem();

// Field access that bears a block that is not attached, as in bench commands:
// reads give 0, stores are skipped.
template <class T>
T shared_get(Relaxed<T> SharedBlock::*field) {
  return shared_memory == nullptr ? T{0} : (shared_memory->*field).load();
}

template <class T, class V>
void shared_set(Relaxed<T> SharedBlock::*field, V value) {
  if (shared_memory != nullptr) shared_memory->*field = static_cast<T>(value);
}

template <class T, std::size_t N>
T shared_get(Relaxed<T> (SharedBlock::*field)[N], std::size_t index) {
  return shared_memory == nullptr ? T{0} : (shared_memory->*field)[index].load();
}

template <class T, std::size_t N, class V>
void shared_set(Relaxed<T> (SharedBlock::*field)[N], std::size_t index, V value) {
  if (shared_memory != nullptr) (shared_memory->*field)[index] = static_cast<T>(value);
}
