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

#include "vboard/core/real.h"
#include "vboard/core/trace.h"

namespace vboard {

Locked::Locked(Board& board) : board_(board) {
  if (pthread_mutex_lock(&board_.lock) == EOWNERDEAD) pthread_mutex_consistent(&board_.lock);
}

Locked::~Locked() { pthread_mutex_unlock(&board_.lock); }

Board* new_board(void* place) {
  Board* board = new (place) Board;
  board->size = sizeof(Board);
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutex_init(&board->lock, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return board;
}

Board* map_board(const char* state_file) {
  const int fd = real::open(state_file, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return nullptr;
  struct stat info = {};
  const bool fresh = fstat(fd, &info) == 0 && info.st_size == 0;
  if (fresh && ftruncate(fd, sizeof(Board)) != 0) {
    real::close(fd);
    return nullptr;
  }
  if (!fresh && info.st_size != static_cast<off_t>(sizeof(Board))) {
    real::close(fd);
    errno = EPROTO;
    return nullptr;
  }
  void* place = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  real::close(fd);
  if (place == MAP_FAILED) return nullptr;
  if (fresh) return new_board(place);
  Board* board = static_cast<Board*>(place);
  if (board->magic != kBoardMagic || board->version != kBoardVersion ||
      board->size != sizeof(Board)) {
    munmap(place, sizeof(Board));
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
