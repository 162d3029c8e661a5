// Units of the waits: every one is a number of microseconds.
#pragma once

#include <unistd.h>

inline constexpr useconds_t kMillisecond_us = 1000;
inline constexpr useconds_t kSecond_us = 1'000'000;
