// The interposer's start in an unmodified program: reads the launcher's
// environment, maps the board and begins to interpose before main.
//
//   VBOARD_STATE   the board's state file (none: every call passes through)
//   VBOARD_TRACE   trace file, appended
//   VBOARD_GUEST   a guest takes part in virtual time, whatever the text
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "vboard/core/clock.h"
#include "vboard/core/guest.h"
#include "vboard/core/real.h"
#include "vboard/core/record.h"
#include "vboard/core/trace.h"
#include "vboard/interpose/record_board.h"
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

void append_trace(const char* clean) {
  Board& board = board_of_process();
  append_line(trace_file_line(board, thread_name(), clean));
  __atomic_add_fetch(&board.operations, 1, __ATOMIC_RELAXED);
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

void* watch_board(void* given) {
  enter_thread(static_cast<int>(reinterpret_cast<std::intptr_t>(given)));
  become_watcher();
  for (;;) {
    record_board(board_of_process(), seam::shared_block(), board_now_us());
    watcher_wait(kWatchInterval_us);
  }
}

void start_thread(const char* name, void* (*run)(void*)) {
  void* id = reinterpret_cast<void*>(static_cast<std::intptr_t>(announce_thread(name)));
  pthread_t thread = {};
  real::pthread_create(&thread, nullptr, run, id);
  pthread_detach(thread);
}

void start_recording() {
  set_record_sink(append_line);
  if (FILE* heard = open_heard_output(thread_name)) stdout = heard;
  start_thread("board", watch_board);
}

// The operator stops the program: nothing of it gets to run any more.
void stop_program() {
  record(board_of_process(), kBoardActs, "stopped");
  at_exit();
  _exit(0);
}

// ---- a guest -----------------------------------------------------------------------------

// What the guest adds to the record stands behind what went before it.
void write_out() {
  if (!recording(board_of_process()) || trace_file == nullptr) return;
  std::lock_guard<std::mutex> hold(trace_file->lock);
  flush_trace();
}

void* stand_for_guest(void* given) {
  enter_thread(static_cast<int>(reinterpret_cast<std::intptr_t>(given)));
  serve_guest(board_of_process(), write_out, stop_program);
  leave_thread();
  return nullptr;
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
  if (getenv("VBOARD_GUEST") != nullptr) start_thread("host", stand_for_guest);
  __atomic_add_fetch(&board->clock.running, 1, __ATOMIC_RELAXED);
  atexit(at_exit);
}

}  // namespace

}  // namespace vboard
