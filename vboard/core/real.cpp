// Reaches the C library behind the interposer by asking for the next definition.
#include "vboard/core/real.h"

#include <dlfcn.h>
#include <time.h>

namespace vboard::real {

namespace {

// The next definition of `name` after this object; the lookup is cached by the
// caller's static.
template <class F>
F* next(const char* name) {
  return reinterpret_cast<F*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

int open(const char* path, int flags, mode_t mode) {
  static auto* call = next<int(const char*, int, ...)>("open");
  return call(path, flags, mode);
}
int close(int fd) {
  static auto* call = next<int(int)>("close");
  return call(fd);
}
ssize_t read(int fd, void* buffer, std::size_t size) {
  static auto* call = next<ssize_t(int, void*, std::size_t)>("read");
  return call(fd, buffer, size);
}
ssize_t write(int fd, const void* buffer, std::size_t size) {
  static auto* call = next<ssize_t(int, const void*, std::size_t)>("write");
  return call(fd, buffer, size);
}
int ioctl(int fd, unsigned long request, void* argument) {
  static auto* call = next<int(int, unsigned long, ...)>("ioctl");
  return call(fd, request, argument);
}
int fcntl(int fd, int command, long argument) {
  static auto* call = next<int(int, int, ...)>("fcntl");
  return call(fd, command, argument);
}
int dup(int fd) {
  static auto* call = next<int(int)>("dup");
  return call(fd);
}
int dup2(int from, int to) {
  static auto* call = next<int(int, int)>("dup2");
  return call(from, to);
}
FILE* fopen(const char* path, const char* mode) {
  static auto* call = next<FILE*(const char*, const char*)>("fopen");
  return call(path, mode);
}
int fclose(FILE* stream) {
  static auto* call = next<int(FILE*)>("fclose");
  return call(stream);
}
int fileno(FILE* stream) {
  static auto* call = next<int(FILE*)>("fileno");
  return call(stream);
}
std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  static auto* call = next<std::size_t(void*, std::size_t, std::size_t, FILE*)>("fread");
  return call(buffer, size, count, stream);
}
std::size_t fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  static auto* call = next<std::size_t(const void*, std::size_t, std::size_t, FILE*)>("fwrite");
  return call(buffer, size, count, stream);
}
char* fgets(char* buffer, int size, FILE* stream) {
  static auto* call = next<char*(char*, int, FILE*)>("fgets");
  return call(buffer, size, stream);
}
int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  static auto* call = next<int(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
  return call(count, read, write, except, timeout);
}
void sleep_ns(std::int64_t nanoseconds) {
  if (nanoseconds <= 0) return;
  static auto* call = next<int(const timespec*, timespec*)>("nanosleep");
  timespec left = {static_cast<time_t>(nanoseconds / 1000000000),
                   static_cast<long>(nanoseconds % 1000000000)};
  while (call(&left, &left) != 0) {
  }
}
std::int64_t monotonic_ns() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}
int gettimeofday(timeval* time, void* zone) {
  static auto* call = next<int(timeval*, void*)>("gettimeofday");
  return call(time, zone);
}
int system(const char* command) {
  static auto* call = next<int(const char*)>("system");
  return call(command);
}
int shmget(key_t key, std::size_t size, int flags) {
  static auto* call = next<int(key_t, std::size_t, int)>("shmget");
  return call(key, size, flags);
}
void* shmat(int id, const void* address, int flags) {
  static auto* call = next<void*(int, const void*, int)>("shmat");
  return call(id, address, flags);
}
int semget(key_t key, int count, int flags) {
  static auto* call = next<int(key_t, int, int)>("semget");
  return call(key, count, flags);
}
int semop(int id, void* operations, std::size_t count) {
  static auto* call = next<int(int, void*, std::size_t)>("semop");
  return call(id, operations, count);
}
int semctl(int id, int number, int command, long value) {
  static auto* call = next<int(int, int, int, ...)>("semctl");
  return call(id, number, command, value);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  static auto* call =
      next<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
  return call(thread, attributes, start, argument);
}

}  // namespace vboard::real
