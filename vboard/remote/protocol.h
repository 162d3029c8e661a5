// How a program of another processor reaches the virtual board: its device calls
// travel as messages to `vboard-remote`, which makes them here.
//
// One channel, a stream socket, for every thread of the program: the thread asks
// and waits, its partner acts and answers. All fields have fixed widths, little
// endian on both sides; records of a driver request travel as the bytes that the
// program passed to its kernel.
#pragma once

#include <cstdint>

namespace vboard::remote {

// Channels are descriptors from here on in the program; the first is main's.
inline constexpr int kFirstChannel = 100;
inline constexpr int kChannels = 8;

enum class Call : std::uint32_t {
  kOpen,          // path                      -> descriptor
  kOpenStream,    // path, mode                -> descriptor
  kClose,         // descriptor
  kTouch,         // path, mode: a file that the program then opens by itself
  kRead,          // descriptor, size          -> bytes
  kWrite,         // descriptor, bytes
  kControl,       // descriptor, command, argument (fcntl)
  kRequest,       // descriptor, request, argument or pieces (ioctl) -> pieces
  kSelect,        // descriptor, time limit    -> 1 when readable
  kSleep,         // microseconds
  kTime,          //                           -> microseconds since 1970
  kShell,         // command
  kSharedGet,     // key, size, flags (shmget)
  kSharedAttach,  // identifier, flags (shmat)
  kThread,        // channel                   -> 0, or an error number
};

struct Question {
  Call call;
  std::int32_t descriptor;
  std::int64_t number;     // the call's main operand
  std::uint32_t argument;  // and its second
  std::uint32_t size;      // bytes that follow
};
static_assert(sizeof(Question) == 24);

struct Answer {
  std::int64_t result;
  std::int32_t error;  // errno, for a negative result
  std::uint32_t size;  // bytes that follow
};
static_assert(sizeof(Answer) == 16);

// What a partner says first, when its thread may run.
inline constexpr std::uint8_t kGo = 1;

// The longest message: the bench moves blocks of up to 64 KiB.
inline constexpr std::uint32_t kLongestMessage = 256 * 1024;

}  // namespace vboard::remote
