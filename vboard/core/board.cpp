// Creating, mapping and locking a board.
#include "vboard/core/board.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <new>
#include <string>

#include "vboard/core/real.h"
#include "vboard/core/trace.h"

namespace vboard {

Locked::Locked(Board& board) : board_(board) {
  if (pthread_mutex_lock(&board_.lock) == EOWNERDEAD) pthread_mutex_consistent(&board_.lock);
}

Locked::~Locked() { pthread_mutex_unlock(&board_.lock); }

std::uint32_t board_layout() { return BOARD_LAYOUT; }

Board* new_board(void* place) {
  Board* board = new (place) Board;
  board->size = sizeof(Board);
  board->layout = board_layout();
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutex_init(&board->lock, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return board;
}

namespace {

// Null with errno set.
Board* map_file(int fd) {
  void* place = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  return place == MAP_FAILED ? nullptr : static_cast<Board*>(place);
}

// Gives the file its room, so that no later access finds the disk full.
int make_in(int fd) {
  int error = EINTR;
  while (error == EINTR) error = posix_fallocate(fd, 0, sizeof(Board));
  if (error != 0) return error;
  Board* place = map_file(fd);
  if (place == nullptr) return errno;
  new_board(place);
  munmap(place, sizeof(Board));
  return 0;
}

}  // namespace

bool make_board(const char* state_file) {
  const std::string made = std::string(state_file) + ".new";
  const int fd = real::open(made.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  int error = make_in(fd);
  real::close(fd);
  if (error == 0 && rename(made.c_str(), state_file) != 0) error = errno;
  if (error == 0) return true;
  unlink(made.c_str());
  errno = error;
  return false;
}

Board* map_board(const char* state_file) {
  const int fd = real::open(state_file, O_RDWR | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat info = {};
  if (fstat(fd, &info) != 0 || info.st_size != static_cast<off_t>(sizeof(Board))) {
    real::close(fd);
    errno = EPROTO;
    return nullptr;
  }
  Board* board = map_file(fd);
  real::close(fd);
  if (board == nullptr) return nullptr;
  if (board->magic != kBoardMagic || board->layout != board_layout() ||
      board->size != sizeof(Board)) {
    munmap(board, sizeof(Board));
    errno = EPROTO;
    return nullptr;
  }
  return board;
}

bool board_in_use(const char* directory) {
  char path[PATH_MAX];
  snprintf(path, sizeof path, "%s/lock", directory);
  const int fd = real::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool taken = flock(fd, LOCK_SH | LOCK_NB) != 0;
  real::close(fd);
  return taken;
}

void violation(Board& board, const char* format, ...) {
  char text[sizeof board.violations.first];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  if (board.violations.count++ == 0) snprintf(board.violations.first, sizeof text, "%s", text);
  trace("violation %s", text);
}

}  // namespace vboard
