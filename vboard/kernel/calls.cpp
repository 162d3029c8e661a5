// The C library's own calls in a program that nothing is interposed in: the plain
// ones. A static program has no next definition to ask for.
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "vboard/core/real.h"

namespace vboard::real {

int open(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }
int close(int fd) { return ::close(fd); }
ssize_t read(int fd, void* buffer, std::size_t size) { return ::read(fd, buffer, size); }
ssize_t write(int fd, const void* buffer, std::size_t size) { return ::write(fd, buffer, size); }
int ioctl(int fd, unsigned long request, void* argument) { return ::ioctl(fd, request, argument); }
int fcntl(int fd, int command, long argument) { return ::fcntl(fd, command, argument); }
int dup(int fd) { return ::dup(fd); }
int dup2(int from, int to) { return ::dup2(from, to); }
FILE* fopen(const char* path, const char* mode) { return ::fopen(path, mode); }
int fclose(FILE* stream) { return ::fclose(stream); }
int fileno(FILE* stream) { return ::fileno(stream); }
std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  return ::fread(buffer, size, count, stream);
}
std::size_t fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  return ::fwrite(buffer, size, count, stream);
}
char* fgets(char* buffer, int size, FILE* stream) { return ::fgets(buffer, size, stream); }
int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  return ::select(count, read, write, except, timeout);
}
void sleep_ns(std::int64_t nanoseconds) {
  if (nanoseconds <= 0) return;
  timespec left = {static_cast<time_t>(nanoseconds / 1000000000),
                   static_cast<long>(nanoseconds % 1000000000)};
  while (nanosleep(&left, &left) != 0) {
  }
}
std::int64_t monotonic_ns() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}
int gettimeofday(timeval* time, void* zone) { return ::gettimeofday(time, zone); }
int system(const char* command) { return ::system(command); }
int shmget(key_t key, std::size_t size, int flags) { return ::shmget(key, size, flags); }
void* shmat(int id, const void* address, int flags) { return ::shmat(id, address, flags); }
int semget(key_t key, int count, int flags) { return ::semget(key, count, flags); }
int semop(int id, void* operations, std::size_t count) {
  return ::semop(id, static_cast<sembuf*>(operations), count);
}
int semctl(int id, int number, int command, long value) {
  return ::semctl(id, number, command, value);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  return ::pthread_create(thread, attributes, start, argument);
}

}  // namespace vboard::real
