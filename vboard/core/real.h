// The C library's own calls, for the virtual board itself.
//
// Where the interposer is linked in, `open` and its kin are the board's; these
// reach the C library behind it. Elsewhere (vboard, melk, encode) they are the
// same as the plain calls.
#pragma once

#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdio>

namespace vboard::real {

int open(const char* path, int flags, mode_t mode = 0);
int close(int fd);
ssize_t read(int fd, void* buffer, std::size_t size);
ssize_t write(int fd, const void* buffer, std::size_t size);
int ioctl(int fd, unsigned long request, void* argument);
int fcntl(int fd, int command, long argument);
int dup(int fd);
int dup2(int from, int to);
FILE* fopen(const char* path, const char* mode);
int fclose(FILE* stream);
int fileno(FILE* stream);
std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* stream);
std::size_t fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream);
char* fgets(char* buffer, int size, FILE* stream);
int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);
void sleep_ns(std::int64_t nanoseconds);
std::int64_t monotonic_ns();
int gettimeofday(timeval* time, void* zone);
int system(const char* command);
int shmget(key_t key, std::size_t size, int flags);
void* shmat(int id, const void* address, int flags);
int semget(key_t key, int count, int flags);
int semop(int id, void* operations, std::size_t count);
int semctl(int id, int number, int command, long value);
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument);

}  // namespace vboard::real
