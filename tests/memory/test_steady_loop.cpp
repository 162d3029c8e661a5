// The supervision loop of a healthy board takes no memory: for an hour neither the
// program nor, through a stream it opens, the C library asks for any.
//
// The linker leads the allocating calls of every object here to the counters; the
// virtual board itself allocates by the C++ library, which is not counted.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "tests/service/supervision_case.h"

namespace {

std::atomic<long> allocations{0};
std::atomic<long> streams{0};

}  // namespace

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* place, std::size_t size);
FILE* __real_fopen(const char* path, const char* mode);

void* __wrap_malloc(std::size_t size) {
  ++allocations;
  return __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __real_calloc(count, size);
}
void* __wrap_realloc(void* place, std::size_t size) {
  ++allocations;
  return __real_realloc(place, size);
}
FILE* __wrap_fopen(const char* path, const char* mode) {
  ++streams;
  return __real_fopen(path, mode);
}

}  // extern "C"

namespace {

constexpr double kHour = 3600;

TEST(SteadyLoop, an_hour_takes_no_memory_and_opens_no_stream) {
  SupervisedBoard board;
  board.seconds = kHour + 900;
  long allocations_before = 0;
  long streams_before = 0;
  board.run([&](Host& host) {
    host.wait(60);
    allocations_before = allocations;
    streams_before = streams;
    host.wait(kHour);
    EXPECT_EQ(allocations - allocations_before, 0);
    EXPECT_EQ(streams - streams_before, 0);
    EXPECT_TRUE(board.healthy());
  });
  // The counters count: the configuration was read through streams.
  EXPECT_GT(streams_before, 0);
}

// A host that asks for the status makes the board allocate nothing either.
TEST(SteadyLoop, answers_of_the_status_take_no_memory) {
  SupervisedBoard board;
  board.run([&](Host& host) {
    const long before = allocations + streams;
    for (int i = 0; i < 20; ++i) EXPECT_EQ(SupervisedBoard::status(host).size(), 3u);
    EXPECT_EQ(allocations + streams - before, 0);
  });
}

TEST(SteadyLoop, a_call_of_malloc_is_counted) {
  const long before = allocations;
  void* volatile place = malloc(1);
  free(place);
  EXPECT_EQ(allocations - before, 1);
}

}  // namespace
