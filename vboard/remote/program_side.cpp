// In a program of another processor: its device calls, handed to `vboard-remote`.
//
// Linked into the static program, where the linker leads each call to its
// __wrap_ name, or preloaded into a dynamic one (REMOTE_PRELOADED) under the
// calls' own names. Streams on devices stay streams of the program's own C
// library, so that it buffers them as it would on the board.
//
// It is built without the C++ library.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/videodev2.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "vboard/remote/protocol.h"

using namespace vboard::remote;  // NOLINT(google-build-using-namespace): overrides are global

// The overrides, and the C library's own calls behind them.
#ifdef REMOTE_PRELOADED
#define OVERRIDE(name) name
#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#else
#define OVERRIDE(name) __wrap_##name
#define REAL(name) __real_##name
extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_close(int fd);
int __real_fcntl(int fd, int command, ...);
int __real_ioctl(int fd, int request, ...);
ssize_t __real_read(int fd, void* data, std::size_t size);
ssize_t __real_write(int fd, const void* data, std::size_t size);
FILE* __real_fopen(const char* path, const char* mode);
int __real_fclose(FILE* stream);
int __real___select_time64(int count, fd_set* read, fd_set* write, fd_set* except,
                           timeval* timeout);
int __real_shmget(key_t key, std::size_t size, int flags);
void* __real_shmat(int id, const void* address, int flags);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument);
}
#endif

// ---- messages ----------------------------------------------------------------

namespace {

thread_local int channel = kFirstChannel;

// The partner is gone: the operator has stopped the board.
[[noreturn]] void over() { _exit(0); }

void send_all(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = REAL(write)(channel, bytes, size);
    if (sent <= 0) over();
    bytes += sent;
    size -= static_cast<std::size_t>(sent);
  }
}

void receive_all(void* data, std::size_t size) {
  auto* bytes = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t got = REAL(read)(channel, bytes, size);
    if (got <= 0) over();
    bytes += got;
    size -= static_cast<std::size_t>(got);
  }
}

// Sends the head; what follows it is up to the caller.
void ask_head(Call call, int descriptor, std::int64_t number, std::uint32_t argument,
              std::size_t size) {
  const Question question = {call, descriptor, number, argument, static_cast<std::uint32_t>(size)};
  send_all(&question, sizeof question);
}

Answer hear_head() {
  Answer answer = {};
  receive_all(&answer, sizeof answer);
  if (answer.result < 0) errno = answer.error;
  return answer;
}

std::int64_t ask(Call call, int descriptor, std::int64_t number, std::uint32_t argument = 0) {
  ask_head(call, descriptor, number, argument, 0);
  return hear_head().result;
}

// A path, or a path and a mode, each with its zero byte.
std::int64_t ask_path(Call call, const char* path, int flags, const char* mode) {
  const std::size_t path_size = strlen(path) + 1;
  const std::size_t mode_size = strlen(mode) + 1;
  ask_head(call, -1, flags, 0, path_size + mode_size);
  send_all(path, path_size);
  send_all(mode, mode_size);
  return hear_head().result;
}

// ---- descriptors -------------------------------------------------------------

enum class Kind : unsigned char { kNone, kFpga, kI2c, kVideo, kOther };

// A device's descriptor in the program is a placeholder; there it has another.
struct Handle {
  Kind kind;
  int there;
#ifdef REMOTE_PRELOADED
  FILE* stream;
#endif
};
constexpr int kHandles = kFirstChannel;
Handle handles[kHandles];

bool begins(const char* text, const char* with) { return strncmp(text, with, strlen(with)) == 0; }

Kind kind_of(const char* path) {
  if (strcmp(path, "/dev/fpga") == 0) return Kind::kFpga;
  if (begins(path, "/dev/i2c-")) return Kind::kI2c;
  if (begins(path, "/dev/video")) return Kind::kVideo;
  if (begins(path, "/dev/") || begins(path, "/sys/")) return Kind::kOther;
  return Kind::kNone;
}

Handle* handle_of(int fd) {
  return fd >= 0 && fd < kHandles && handles[fd].kind != Kind::kNone ? &handles[fd] : nullptr;
}

int there(int fd) {
  const Handle* handle = handle_of(fd);
  return handle == nullptr ? -1 : handle->there;
}

int take_place(Kind kind, std::int64_t descriptor) {
  if (descriptor < 0) return -1;
  const int fd = REAL(open)("/dev/null", O_RDWR | O_CLOEXEC);
  if (fd < 0 || fd >= kHandles) return -1;
  handles[fd] = {};
  handles[fd].kind = kind;
  handles[fd].there = static_cast<int>(descriptor);
  return fd;
}

int give_back(int fd) {
  const auto result = static_cast<int>(ask(Call::kClose, there(fd), 0));
  handles[fd] = {};
  REAL(close)(fd);
  return result;
}

ssize_t read_there(int fd, void* data, std::size_t size) {
  ask_head(Call::kRead, there(fd), static_cast<std::int64_t>(size), 0, 0);
  const Answer answer = hear_head();
  receive_all(data, answer.size);
  return static_cast<ssize_t>(answer.result);
}

ssize_t write_there(int fd, const void* data, std::size_t size) {
  ask_head(Call::kWrite, there(fd), 0, 0, size);
  send_all(data, size);
  return static_cast<ssize_t>(hear_head().result);
}

// ---- streams -------------------------------------------------------------------

// Device streams make their transfers through `read` and `write`, as on the board.
// The static program's do so by name; glibc's hand them to a cookie.
#ifdef REMOTE_PRELOADED
int cookie_fd(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t cookie_read(void* cookie, char* data, std::size_t size) {
  return read_there(cookie_fd(cookie), data, size);
}
// A stream of glibc wants 0 of a write that failed.
ssize_t cookie_write(void* cookie, const char* data, std::size_t size) {
  const ssize_t written = write_there(cookie_fd(cookie), data, size);
  return written < 0 ? 0 : written;
}
int cookie_close(void* cookie) { return give_back(cookie_fd(cookie)); }

FILE* stream_on(int fd, const char* mode) {
  cookie_io_functions_t calls = {};
  calls.read = cookie_read;
  calls.write = cookie_write;
  calls.close = cookie_close;
  FILE* stream = fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)), mode, calls);
  handles[fd].stream = stream;
  return stream;
}

int stream_fd(FILE* stream) {
  for (int fd = 0; fd < kHandles; ++fd)
    if (handles[fd].kind != Kind::kNone && handles[fd].stream == stream) return fd;
  return REAL(fileno)(stream);
}
#else
FILE* stream_on(int fd, const char* mode) { return fdopen(fd, mode); }

int close_stream(FILE* stream) {
  const int fd = fileno(stream);
  if (handle_of(fd) == nullptr) return REAL(fclose)(stream);
  const int flushed = fflush(stream);
  const auto closed = static_cast<int>(ask(Call::kClose, there(fd), 0));
  handles[fd] = {};
  REAL(fclose)(stream);
  return flushed == 0 ? closed : EOF;
}
#endif

FILE* open_stream(const char* path, const char* mode) {
  const Kind kind = kind_of(path);
  if (kind == Kind::kNone)
    return ask_path(Call::kTouch, path, 0, mode) < 0 ? nullptr : REAL(fopen)(path, mode);
  const int fd = take_place(kind, ask_path(Call::kOpenStream, path, 0, mode));
  return fd < 0 ? nullptr : stream_on(fd, mode);
}

int open_file(const char* path, int flags, unsigned mode) {
  const Kind kind = kind_of(path);
  if (kind == Kind::kNone) return REAL(open)(path, flags, mode);
  return take_place(kind, ask_path(Call::kOpen, path, flags, ""));
}

// ---- driver requests -----------------------------------------------------------

// A stretch of the program's memory that a request reads or fills.
struct Piece {
  void* place;
  std::uint32_t size;
};
constexpr int kMostPieces = 8;
struct Pieces {
  Piece list[kMostPieces];
  int count;
};

void add(Pieces* pieces, void* place, std::size_t size) {
  if (place == nullptr || pieces->count == kMostPieces) return;
  pieces->list[pieces->count++] = {place, static_cast<std::uint32_t>(size)};
}

// Requests of the FPGA driver; all others take one word.
constexpr unsigned kFpgaValues[] = {2, 3};  // the argument itself
constexpr unsigned kFpgaSingles[] = {15, 16};
constexpr unsigned kFpgaBlocks[] = {17, 18};
constexpr std::size_t kSingleSize = 8;
struct FpgaBlock {
  std::int32_t index;
  std::uint32_t count;
  void* buffer;
};
static_assert(sizeof(FpgaBlock) == 12);

template <std::size_t N>
bool among(const unsigned (&list)[N], unsigned request) {
  for (const unsigned one : list)
    if (one == request) return true;
  return false;
}

void fpga_pieces(unsigned request, void* argument, Pieces* pieces) {
  if (among(kFpgaValues, request)) return;
  if (!among(kFpgaBlocks, request))
    return add(pieces, argument, among(kFpgaSingles, request) ? kSingleSize : 4);
  const auto* block = static_cast<const FpgaBlock*>(argument);
  add(pieces, argument, sizeof *block);
  add(pieces, block->buffer, block->count);
}

void i2c_pieces(unsigned request, void* argument, Pieces* pieces) {
  if (request == I2C_RDWR) {
    static_assert(sizeof(i2c_rdwr_ioctl_data) == 8 && sizeof(i2c_msg) == 12);
    const auto* list = static_cast<const i2c_rdwr_ioctl_data*>(argument);
    add(pieces, argument, sizeof *list);
    add(pieces, list->msgs, sizeof(i2c_msg) * list->nmsgs);
    for (unsigned i = 0; i < list->nmsgs; ++i) add(pieces, list->msgs[i].buf, list->msgs[i].len);
  } else if (request == I2C_SMBUS) {
    static_assert(sizeof(i2c_smbus_ioctl_data) == 12);
    const auto* transfer = static_cast<const i2c_smbus_ioctl_data*>(argument);
    add(pieces, argument, sizeof *transfer);
    add(pieces, transfer->data, sizeof *transfer->data);
  }
}

// A request number of the capture driver contains the size of its record.
void video_pieces(unsigned request, void* argument, Pieces* pieces) {
  static_assert(_IOC_SIZE(VIDIOC_QUERYSTD) == 8 && _IOC_SIZE(VIDIOC_S_INPUT) == 4);
  static_assert(_IOC_SIZE(VIDIOC_CROPCAP) == 44 && _IOC_SIZE(VIDIOC_S_CROP) == 20);
  add(pieces, argument, _IOC_SIZE(request));
}

int request_there(int fd, unsigned request, void* argument) {
  Pieces pieces = {};
  const Handle* handle = handle_of(fd);
  const Kind kind = handle == nullptr ? Kind::kNone : handle->kind;
  if (kind == Kind::kFpga) fpga_pieces(request, argument, &pieces);
  if (kind == Kind::kI2c) i2c_pieces(request, argument, &pieces);
  if (kind == Kind::kVideo) video_pieces(request, argument, &pieces);
  std::size_t size = 0;
  for (int i = 0; i < pieces.count; ++i) size += 8 + pieces.list[i].size;
  ask_head(Call::kRequest, there(fd), request,
           static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(argument)), size);
  for (int i = 0; i < pieces.count; ++i) {
    const auto address =
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pieces.list[i].place));
    send_all(&address, sizeof address);
    send_all(&pieces.list[i].size, sizeof pieces.list[i].size);
    send_all(pieces.list[i].place, pieces.list[i].size);
  }
  const Answer answer = hear_head();
  if (answer.size > 0)
    for (int i = 0; i < pieces.count; ++i) receive_all(pieces.list[i].place, pieces.list[i].size);
  return static_cast<int>(answer.result);
}

// ---- waiting -------------------------------------------------------------------

constexpr std::int64_t kSecond_us = 1'000'000;
constexpr std::int64_t kForEver = -1;

// A set with a device in it holds nothing else.
int device_in(int count, const fd_set* set) {
  for (int fd = 0; set != nullptr && fd < count && fd < kHandles; ++fd)
    if (FD_ISSET(fd, set) && handle_of(fd) != nullptr) return fd;
  return -1;
}

int select_there(int fd, fd_set* set, timeval* limit) {
  const std::int64_t limit_us =
      limit == nullptr ? kForEver
                       : static_cast<std::int64_t>(limit->tv_sec) * kSecond_us + limit->tv_usec;
  const auto ready = static_cast<int>(ask(Call::kSelect, there(fd), limit_us));
  if (ready < 0) return ready;
  FD_ZERO(set);
  if (ready > 0) FD_SET(fd, set);
  if (ready == 0 && limit != nullptr) *limit = {};
  return ready;
}

int time_there(timeval* now) {
  const std::int64_t us = ask(Call::kTime, -1, 0);
  now->tv_sec = static_cast<time_t>(us / kSecond_us);
  now->tv_usec = static_cast<suseconds_t>(us % kSecond_us);
  return 0;
}

// ---- shell, shared memory, threads -----------------------------------------------

int shell_there(const char* command) {
  const std::size_t size = strlen(command) + 1;
  ask_head(Call::kShell, -1, 0, 0, size);
  send_all(command, size);
  return static_cast<int>(hear_head().result);
}

// The block is attached on both sides: the program's own attachment is what its
// code sees, the partner's is the virtual encoder's.
int shared_get(key_t key, std::size_t size, int flags) {
  const std::int64_t id = ask(Call::kSharedGet, flags, key, static_cast<std::uint32_t>(size));
  return id < 0 ? -1 : REAL(shmget)(key, size, flags);
}

void* shared_attach(int id, const void* address, int flags) {
  if (ask(Call::kSharedAttach, id, flags) < 0) return reinterpret_cast<void*>(-1);
  return REAL(shmat)(id, address, flags);
}

struct Start {
  void* (*start)(void*);
  void* argument;
  int channel;
};
Start starts[kChannels];
int threads = 0;

// A thread that ends, in whatever way, lets its partner go.
pthread_key_t at_end;
void let_go(void*) { REAL(close)(channel); }

void* run(void* given) {
  const Start* start = static_cast<const Start*>(given);
  channel = start->channel;
  pthread_setspecific(at_end, start);
  std::uint8_t go = 0;
  receive_all(&go, sizeof go);
  return start->start(start->argument);
}

int create_there(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                 void* argument) {
  const int number = threads + 1;
  if (number == kChannels) return EAGAIN;
  if (threads == 0) pthread_key_create(&at_end, let_go);
  const auto refused = static_cast<int>(ask(Call::kThread, -1, number));
  if (refused != 0) return refused;
  threads = number;
  starts[number] = {start, argument, kFirstChannel + number};
  return REAL(pthread_create)(thread, attributes, run, &starts[number]);
}

}  // namespace

// ==== overrides below; no logic from here on ======================================

extern "C" {

int OVERRIDE(open)(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(list, unsigned) : 0;
  va_end(list);
  return open_file(path, flags, mode);
}
int OVERRIDE(close)(int fd) { return handle_of(fd) != nullptr ? give_back(fd) : REAL(close)(fd); }
int OVERRIDE(fcntl)(int fd, int command, ...) {
  va_list list;
  va_start(list, command);
  const int argument = va_arg(list, int);
  va_end(list);
  return handle_of(fd) != nullptr ? static_cast<int>(ask(Call::kControl, there(fd), command,
                                                         static_cast<std::uint32_t>(argument)))
                                  : REAL(fcntl)(fd, command, argument);
}
ssize_t OVERRIDE(read)(int fd, void* data, std::size_t size) {
  return handle_of(fd) != nullptr ? read_there(fd, data, size) : REAL(read)(fd, data, size);
}
ssize_t OVERRIDE(write)(int fd, const void* data, std::size_t size) {
  return handle_of(fd) != nullptr ? write_there(fd, data, size) : REAL(write)(fd, data, size);
}
FILE* OVERRIDE(fopen)(const char* path, const char* mode) { return open_stream(path, mode); }
int OVERRIDE(usleep)(useconds_t microseconds) {
  return static_cast<int>(ask(Call::kSleep, -1, microseconds));
}
int OVERRIDE(system)(const char* command) { return shell_there(command); }

#ifdef REMOTE_PRELOADED
int ioctl(int fd, unsigned long request, ...) __THROW {
  va_list list;
  va_start(list, request);
  void* argument = va_arg(list, void*);
  va_end(list);
  return request_there(fd, static_cast<unsigned>(request), argument);
}
int fileno(FILE* stream) __THROW { return stream_fd(stream); }
int select(int count, fd_set* read_set, fd_set* write_set, fd_set* except_set, timeval* limit) {
  const int fd = device_in(count, read_set);
  return fd >= 0 ? select_there(fd, read_set, limit)
                 : REAL(select)(count, read_set, write_set, except_set, limit);
}
int gettimeofday(timeval* now, void*) __THROW { return time_there(now); }
int shmget(key_t key, std::size_t size, int flags) __THROW { return shared_get(key, size, flags); }
void* shmat(int id, const void* address, int flags) __THROW {
  return shared_attach(id, address, flags);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) __THROWNL {
  return create_there(thread, attributes, start, argument);
}
#else
int __wrap_ioctl(int fd, int request, ...) {
  va_list list;
  va_start(list, request);
  void* argument = va_arg(list, void*);
  va_end(list);
  return request_there(fd, static_cast<unsigned>(request), argument);
}
int __wrap_fclose(FILE* stream) { return close_stream(stream); }
int __wrap___select_time64(int count, fd_set* read_set, fd_set* write_set, fd_set* except_set,
                           timeval* limit) {
  const int fd = device_in(count, read_set);
  return fd >= 0 ? select_there(fd, read_set, limit)
                 : __real___select_time64(count, read_set, write_set, except_set, limit);
}
int __wrap___gettimeofday_time64(timeval* now, void*) { return time_there(now); }
int __wrap_shmget(key_t key, std::size_t size, int flags) { return shared_get(key, size, flags); }
void* __wrap_shmat(int id, const void* address, int flags) {
  return shared_attach(id, address, flags);
}
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
  return create_there(thread, attributes, start, argument);
}
#endif

}  // extern "C"
