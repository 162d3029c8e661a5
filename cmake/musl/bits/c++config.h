// Lets the C++ library's headers, which were made for glibc, be read with musl
// below them: what they expect of glibc is said here, the rest is theirs.
#pragma once

#define __GLIBC_PREREQ(major, minor) 0
#define __locale_t locale_t

#include_next <bits/c++config.h>

// Waits on other clocks, which glibc has under names of its own.
#undef _GLIBCXX_USE_PTHREAD_COND_CLOCKWAIT
#undef _GLIBCXX_USE_PTHREAD_MUTEX_CLOCKLOCK
#undef _GLIBCXX_USE_PTHREAD_RWLOCK_CLOCKLOCK
