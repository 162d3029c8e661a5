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

// Written by the service unless a field says "from encode". Words without a unit
// go to `encode` as they are configured.
struct SharedBlock {
  SharedWord header;           //   0  308
  SharedWord magic;            //   4  "MELK"
  SharedWord header_zero;      //   8  0
  SharedWord videoStd;         //  12  video standard code, "mpgVidRes"
  SharedWord input_channel;    //  16  active video channel, see SetInputMuxCH
  SharedWord video_bitrate;    //  20  bit/s
  SharedByte file_suffix[8];   //  24  ".mpeg2" or ".264", NUL-terminated (7 bytes used)
  SharedWord reserved_32[2];   //  32
  SharedWord do_fpga_restart;  //  40  1 while the FPGA path is (re)configured or stopped
  SharedWord SampleRate;       //  44  audio sample period: 2880 48 kHz, 4320 32 kHz
  SharedByte audio_enable;     //  48  inAudioEnable at the launch; 1 after STOP_AUDIO
  SharedByte reserved_49[3];
  SharedWord encoder_running;  //  52  0 before each launch; 1 from encode
  SharedWord launch_zero;      //  56  0 before each launch
  SharedWord VidCodec;         //  60  1 MPEG-2, any other value H.264
  SharedByte clock_text[16];   //  64  the host's clock, 12 characters and NUL
  SharedWord reserved_80;
  SharedByte frame_rate_code;  //  84  2 to 10, by "mpgVidRes"
  SharedByte reserved_85[3];
  SharedWord vbr;             //  88
  SharedByte hd_ac3_desc[6];  //  92  AC-3 descriptor, see Ac3Descriptor
  SharedByte reserved_98[2];
  SharedWord spts;               // 100  as SET_SPTS sends it
  SharedWord offset_x;           // 104  pixels
  SharedWord offset_y;           // 108  lines
  SharedWord status_bitrate;     // 112  from encode, as are the next five
  SharedByte status_frame_rate;  // 116  frames/s
  SharedByte reserved_117[3];
  SharedWord status_video_std;     // 120  code of the status file
  SharedWord status_width;         // 124  pixels
  SharedWord status_height;        // 128  lines
  SharedWord status_vbr;           // 132
  SharedWord bytes_per_frame_ac3;  // 136  0 without a known frame size
  SharedWord audio_configured;     // 140  1 after each AC-3 set-up
  SharedWord AudioInput;           // 144  copy of fpgaregs.AudioInput
  SharedWord audio_start;          // 148  from encode; 1 skips the audio phase of the capture
  SharedWord encode_version;       // 152  from encode
  SharedByte closed_caption;       // 156  1 when "vbiMode" is 5
  SharedByte reserved_157[3];
  SharedWord brightness;      // 160  0 to 255
  SharedWord contrast;        // 164  0 to 247
  SharedWord encode_alive;    // 168  0 before each apply; 1 from encode while it runs
  SharedWord statistics[22];  // 172..256  from encode, copied into the host's status record
  SharedWord frame_div;       // 260  1 to 100
  SharedWord frame_mult;      // 264  1 to 100
  SharedWord eb_mode;         // 268  0 or 1
  SharedWord eb_delay;        // 272  0 to 10000
  SharedWord statistics2[3];  // 276..284  as statistics
  SharedWord null_disable;    // 288  0 or 1
  SharedWord gop_size;        // 292  frames, 0 to 10000
  SharedWord idr;             // 296  frames, 0 to 10000
  SharedWord bufferconst;     // 300  1 to 1000
  SharedWord interlace_flag;  // 304  0 or 1
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
// Returns 0 when it is there, -1 (with a message) otherwise. No caller; bench
// interface.
int initial_shered_mem();

// Access to a field. A block that is not attached, as in bench commands, is
// tolerated: reads give 0, stores are skipped.
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
