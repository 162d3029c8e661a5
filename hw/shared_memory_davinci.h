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
// go to `encode` as they are configured. In order of offsets, without a gap.
// clang-format off
// Offset, kind, name, elements, meaning; what is reserved has none.
#define SHARED_FIELDS(FIELD, GAP) \
  FIELD(0,   Word, header,              1,  "308") \
  FIELD(4,   Word, magic,               1,  "\"MELK\"") \
  FIELD(8,   Word, header_zero,         1,  "0") \
  FIELD(12,  Word, videoStd,            1,  "video standard code, \"mpgVidRes\"") \
  FIELD(16,  Word, input_channel,       1,  "active video channel, see SetInputMuxCH") \
  FIELD(20,  Word, video_bitrate,       1,  "bit/s") \
  FIELD(24,  Byte, file_suffix,         8,  "\".mpeg2\" or \".264\", NUL-terminated (7 bytes used)") \
  GAP(32, Word, reserved_32, 2) \
  FIELD(40,  Word, do_fpga_restart,     1,  "1 while the FPGA path is (re)configured or stopped") \
  FIELD(44,  Word, SampleRate,          1,  "audio sample period: 2880 48 kHz, 4320 32 kHz") \
  FIELD(48,  Byte, audio_enable,        1,  "inAudioEnable at the launch; 1 after STOP_AUDIO") \
  GAP(49, Byte, reserved_49, 3) \
  FIELD(52,  Word, encoder_running,     1,  "0 before each launch; 1 from encode") \
  FIELD(56,  Word, launch_zero,         1,  "0 before each launch") \
  FIELD(60,  Word, VidCodec,            1,  "1 MPEG-2, any other value H.264") \
  FIELD(64,  Byte, clock_text,          16, "the host's clock, 12 characters and NUL") \
  GAP(80, Word, reserved_80, 1) \
  FIELD(84,  Byte, frame_rate_code,     1,  "2 to 10, by \"mpgVidRes\"") \
  GAP(85, Byte, reserved_85, 3) \
  FIELD(88,  Word, vbr,                 1,  "") \
  FIELD(92,  Byte, hd_ac3_desc,         6,  "AC-3 descriptor, see Ac3Descriptor") \
  GAP(98, Byte, reserved_98, 2) \
  FIELD(100, Word, spts,                1,  "as SET_SPTS sends it") \
  FIELD(104, Word, offset_x,            1,  "pixels") \
  FIELD(108, Word, offset_y,            1,  "lines") \
  FIELD(112, Word, status_bitrate,      1,  "bit/s, from encode") \
  FIELD(116, Byte, status_frame_rate,   1,  "frames/s, from encode") \
  GAP(117, Byte, reserved_117, 3) \
  FIELD(120, Word, status_video_std,    1,  "code of the status file, from encode") \
  FIELD(124, Word, status_width,        1,  "pixels, from encode") \
  FIELD(128, Word, status_height,       1,  "lines, from encode") \
  FIELD(132, Word, status_vbr,          1,  "from encode") \
  FIELD(136, Word, bytes_per_frame_ac3, 1,  "0 without a known frame size") \
  FIELD(140, Word, audio_configured,    1,  "1 after each AC-3 set-up") \
  FIELD(144, Word, AudioInput,          1,  "copy of fpgaregs.AudioInput") \
  FIELD(148, Word, audio_start,         1,  "from encode; 1 skips the audio phase of the capture") \
  FIELD(152, Word, encode_version,      1,  "from encode") \
  FIELD(156, Byte, closed_caption,      1,  "1 when \"vbiMode\" is 5") \
  GAP(157, Byte, reserved_157, 3) \
  FIELD(160, Word, brightness,          1,  "0 to 255") \
  FIELD(164, Word, contrast,            1,  "0 to 247") \
  FIELD(168, Word, encode_alive,        1,  "0 before each apply; 1 from encode while it runs") \
  FIELD(172, Word, statistics,          22, "from encode, copied into the host's status record") \
  FIELD(260, Word, frame_div,           1,  "1 to 100") \
  FIELD(264, Word, frame_mult,          1,  "1 to 100") \
  FIELD(268, Word, eb_mode,             1,  "0 or 1") \
  FIELD(272, Word, eb_delay,            1,  "0 to 10000") \
  FIELD(276, Word, statistics2,         3,  "as statistics") \
  FIELD(288, Word, null_disable,        1,  "0 or 1") \
  FIELD(292, Word, gop_size,            1,  "frames, 0 to 10000") \
  FIELD(296, Word, idr,                 1,  "frames, 0 to 10000") \
  FIELD(300, Word, bufferconst,         1,  "1 to 1000") \
  FIELD(304, Word, interlace_flag,      1,  "0 or 1") \
  GAP(308, Byte, reserved_308, kSharedSize - 308)
// clang-format on

// One element is no array.
template <class T, int kElements>
struct SharedMember {
  using Type = T[kElements];
};
template <class T>
struct SharedMember<T, 1> {
  using Type = T;
};

#define SHARED_MEMBER(offset, kind, name, elements, ...) \
  SharedMember<Shared##kind, elements>::Type name;
struct SharedBlock {
  SHARED_FIELDS(SHARED_MEMBER, SHARED_MEMBER)
};
#undef SHARED_MEMBER

struct SharedFieldRow {
  const char* name;
  int offset;  // bytes
  int size;    // bytes
  int width;   // of an element, bytes
  const char* meaning;
};

#define SHARED_ROW(offset, kind, name, elements, meaning) \
  {#name, offset, sizeof(Shared##kind) * (elements), sizeof(Shared##kind), meaning},
#define SHARED_NO_ROW(...)
inline constexpr SharedFieldRow kSharedFields[] = {SHARED_FIELDS(SHARED_ROW, SHARED_NO_ROW)};
#undef SHARED_ROW

#define SHARED_PLACE(offset, kind, name, ...) static_assert(offsetof(SharedBlock, name) == offset);
SHARED_FIELDS(SHARED_PLACE, SHARED_PLACE)
#undef SHARED_PLACE

static_assert(sizeof(SharedWord) == 4 && sizeof(SharedByte) == 1);
static_assert(sizeof(SharedBlock) == kSharedSize);

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
