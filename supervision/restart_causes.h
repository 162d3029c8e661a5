// Restart causes: what is kept for the host in status_vantorig, and what is printed.
#pragma once

#include <cstdint>

struct RestartCause {
  std::uint8_t code;
  const char* message;  // with its line end, if it has one
};

inline constexpr RestartCause kVideoOverflow = {0x81, "RESTART - video buffer overflow!!\n"};
inline constexpr RestartCause kAudioOverflow = {0x82, "RESTART - audio buffer overflow!!\n"};
inline constexpr RestartCause kAudioOverflowNoInput = {0x82, "restart!! - audio ovf!!!\n"};
inline constexpr RestartCause kVideoStalled = {0x83, "tvp is o.k. , and There is no video_buf\n"};
inline constexpr RestartCause kAudioMissing = {0x84, "RESTART!! - no audio!!\n"};
inline constexpr RestartCause kAudioAppeared = {0x84, "audio after no audio!!\n"};
inline constexpr RestartCause kInputBack = {0x85, "restart - tvp is back!!\n"};
inline constexpr RestartCause kInputFrozen = {0x86, "restart!! - no_tvp"};
inline constexpr RestartCause kLevelFarAway = {
    0x87, "restart - video_buf is far away from vid_buf_init\n"};

// All of them, for documents and tests.
inline constexpr RestartCause kRestartCauses[] = {
    kVideoOverflow, kAudioOverflow, kAudioOverflowNoInput, kVideoStalled, kAudioMissing,
    kAudioAppeared, kInputBack,     kInputFrozen,          kLevelFarAway,
};
