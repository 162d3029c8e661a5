// Calls of the program that the virtual board does not stand in for and that can
// fail all the same: the linker sends them here (--wrap).
#include <cstddef>
#include <cstdio>

#include "vboard/interpose/seam.h"

using vboard::seam::should_fail;

extern "C" {

void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
int __real_fseek(FILE* stream, long offset, int whence);
long __real_ftell(FILE* stream);
int __real_fflush(FILE* stream);

void* __wrap_malloc(std::size_t size) {
  return should_fail("malloc") ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return should_fail("calloc") ? nullptr : __real_calloc(count, size);
}
int __wrap_fseek(FILE* stream, long offset, int whence) {
  return should_fail("fseek") ? -1 : __real_fseek(stream, offset, whence);
}
long __wrap_ftell(FILE* stream) { return should_fail("ftell") ? -1 : __real_ftell(stream); }
int __wrap_fflush(FILE* stream) { return should_fail("fflush") ? EOF : __real_fflush(stream); }

}  // extern "C"
