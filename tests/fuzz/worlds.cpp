// The numbered operations on the world. None of them takes away what the host's
// thread needs to go on, or an answer that the program waits for without limit.
#include "tests/fuzz/worlds.h"

namespace fuzz {

constexpr const char* kOperations[] = {
    "source none",
    "source component",
    "source vga",
    "source composite",
    "audio none",
    "audio digital",
    "audio dsp",
    "encode crash",
    "fault stall",
    "fault stall off",
    "fault video-overflow",
    "fault video-overflow off",
    "fault audio-overflow",
    "fault encode-hang",
    "fault low-buffer",
    "fault i2c-fail 5c",
    "fault i2c-fail 5d",
    "fault no-ac3-sync",
    "fault missing video0",
    "captions on",
    "faults clear",
};
constexpr int kCount = sizeof kOperations / sizeof kOperations[0];

const char* world_operation(int number) {
  return kOperations[static_cast<unsigned>(number) % kCount];
}

}  // namespace fuzz
