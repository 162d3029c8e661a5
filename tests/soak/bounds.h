// The time within which a board must be healthy again after an event, in board time.
//
// A supervised cycle sleeps 1 s for the input and
// 0.5 s at its end; reading the chips takes less than 0.1 s of it: 1.6 s. A
// restart is
//
//     kill 5 s, apply, 15 s, end of cycle 0.5 s, alive wait at most 3.0 s
//
// and an apply: volume 2 s; video selection 2 s (composite 4 s); capture 0.1 s;
// digital receiver not ready 1 s; AC-3 sync 1 s a try; two resets of 1.01 s each;
// settling 1 s; 11.2 s with one try and the composite input, 12 s with the chips'
// traffic. A restart ends 35.5 s after it began. Then the levels are captured:
// two cycles for video, two for audio, one to find it healthy: 5 cycles, 8 s. A
// fault is found one cycle after it can be, counts of 10 after 11, and the
// restart begins in the cycle after that.
//
// A download: settling 0.1 s, 3 s, 1 s, apply 12 s, then 15 s: 31.1 s, and its bytes.
#pragma once

inline constexpr double kCycle_s = 1.6;
inline constexpr double kRestart_s = 35.5;
inline constexpr double kCapture_s = 5 * kCycle_s;
inline constexpr double kDownload_s = 31.1;
inline constexpr double kUpdate_s = 4;   // 1 s settling, 3 s hold
inline constexpr double kSteady_s = 20;  // healthy for so long counts as recovered
inline constexpr double kLook_s = 0.25;

inline double restarts_within(int restarts, int cycles) {
  return (cycles + 1) * kCycle_s + restarts * (kRestart_s + kCycle_s) + kCapture_s;
}
