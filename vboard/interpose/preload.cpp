// The interposer's start in an unmodified program: reads the launcher's
// environment, maps the board and begins to interpose before main.
//
//   VBOARD_STATE   the board's state file (none: every call passes through)
//   VBOARD_TRACE   trace file, appended
//   VBOARD_SCRIPT  script of a host and of the world, virtual time only
//   VBOARD_HOST_LOG  what the scripted host saw; standard output when unset
//   VBOARD_REPLAY  record whose host and world act, virtual time only
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/record.h"
#include "vboard/core/replay.h"
#include "vboard/core/script.h"
#include "vboard/core/trace.h"
#include "vboard/interpose/seam.h"

namespace vboard {

namespace {

// Trace file: a buffer of its own, because the program may be killed at any
// time and its exit handlers never run.
struct TraceFile {
  std::mutex lock;
  int fd = -1;
  char buffer[1 << 16];
  std::size_t used = 0;
};
// Made on demand: the start below runs before initialisers do.
TraceFile* trace_file = nullptr;

void flush_trace() {
  std::size_t done = 0;
  while (done < trace_file->used) {
    const ssize_t wrote =
        real::write(trace_file->fd, trace_file->buffer + done, trace_file->used - done);
    if (wrote <= 0) {
      board_of_process().trace_errno = errno;
      break;
    }
    done += static_cast<std::size_t>(wrote);
  }
  trace_file->used = 0;
}

void append_line(const std::string& line) {
  std::lock_guard<std::mutex> hold(trace_file->lock);
  if (trace_file->used + line.size() > sizeof trace_file->buffer) flush_trace();
  memcpy(trace_file->buffer + trace_file->used, line.data(), line.size());
  trace_file->used += line.size();
  if (board_of_process().clock.mode != TimeMode::kVirtual) flush_trace();
}

std::atomic<unsigned long> operations = 0;
unsigned long operations_done() { return operations; }

void append_trace(const char* clean) {
  append_line(trace_file_line(board_of_process(), thread_name(), clean));
  ++operations;
}

void open_trace(const char* path) {
  trace_file = new TraceFile;
  trace_file->fd = real::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (trace_file->fd < 0) {
    fprintf(stderr, "vboard: cannot open trace file %s: %s\n", path, strerror(errno));
    return;
  }
  if (lseek(trace_file->fd, 0, SEEK_END) <= 0 && dprintf(trace_file->fd, "%s\n", kTraceHeader) < 0)
    board_of_process().trace_errno = errno;
  set_trace_sink(append_trace);
}

void at_exit() {
  if (trace_file == nullptr) return;
  std::lock_guard<std::mutex> hold(trace_file->lock);
  if (trace_file->fd >= 0) flush_trace();
}

// ---- what a record holds besides ----------------------------------------------------

// Standard output in a stream of its own, so that each line is known as it comes.
ssize_t hear(void* /*cookie*/, const char* data, std::size_t size) {
  static std::mutex lock;
  static std::string line;
  std::lock_guard<std::mutex> hold(lock);
  for (const char c : std::string_view(data, size)) {
    if (c != '\n') {
      line += isprint(static_cast<unsigned char>(c)) != 0 ? c : ' ';
      continue;
    }
    if (!line.empty()) record(board_of_process(), thread_name(), std::string(kSaysPrefix) + line);
    line.clear();
  }
  const ssize_t wrote = real::write(STDOUT_FILENO, data, size);
  return wrote < 0 ? 0 : wrote;  // a cookie reports failure as 0
}

void* watch_board(void* given) {
  enter_thread(static_cast<int>(reinterpret_cast<std::intptr_t>(given)));
  become_watcher();
  for (;;) {
    record_board(board_of_process(), seam::shared_block(), board_now_us());
    watcher_wait(kWatchInterval_us);
  }
}

void start_recording() {
  set_record_sink(append_line);
  cookie_io_functions_t calls = {};
  calls.write = hear;
  if (FILE* heard = fopencookie(nullptr, "w", calls)) stdout = heard;
  void* id = reinterpret_cast<void*>(static_cast<std::intptr_t>(announce_thread("board")));
  pthread_t thread = {};
  real::pthread_create(&thread, nullptr, watch_board, id);
  pthread_detach(thread);
}

// The operator stops the program: nothing of it gets to run any more.
void stop_program() {
  record(board_of_process(), kBoardActs, "stopped");
  at_exit();
  _exit(0);
}

__attribute__((constructor)) void begin() {
  const char* state = getenv("VBOARD_STATE");
  if (state == nullptr) return;
  Board* board = map_board(state);
  if (board == nullptr) {
    fprintf(stderr, "vboard: cannot use board state %s: %s\n", state, strerror(errno));
    _exit(125);
  }
  unsetenv("LD_PRELOAD");  // shell commands and encode run as they are
  clock_attach(board);
  set_end_of_run(stop_program);
  seam::Settings settings;
  settings.encoder_in_process = board->clock.mode == TimeMode::kVirtual;
  seam::start(*board, settings);
  if (const char* path = getenv("VBOARD_TRACE")) open_trace(path);
  if (recording(*board) && trace_file != nullptr) start_recording();
  if (const char* record_file = getenv("VBOARD_REPLAY")) start_replay(record_file, operations_done);
  if (const char* script = getenv("VBOARD_SCRIPT"))
    start_script(script, getenv("VBOARD_HOST_LOG"), stop_program);
  __atomic_add_fetch(&board->clock.running, 1, __ATOMIC_RELAXED);
  atexit(at_exit);
}

}  // namespace

}  // namespace vboard
