// Allocations of the program under test may fail as well: the linker sends them
// here (--wrap=malloc).
#include <cstddef>

#include "vboard/interpose/seam.h"

extern "C" {

void* __real_malloc(std::size_t size);

void* __wrap_malloc(std::size_t size) {
  return vboard::seam::should_fail("malloc") ? nullptr : __real_malloc(size);
}

}  // extern "C"
