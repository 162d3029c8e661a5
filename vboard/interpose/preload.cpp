// The interposer's start in an unmodified program: reads the launcher's
// environment, maps the board and begins to interpose before main.
//
//   VBOARD_STATE   the board's state file (none: every call passes through)
//   VBOARD_TRACE   trace file, appended
//   VBOARD_SCRIPT  script of a host and of the world, virtual time only
//   VBOARD_HOST_LOG  what the scripted host saw; standard output when unset
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "vboard/core/clock.h"
#include "vboard/core/real.h"
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
    if (wrote <= 0) break;
    done += static_cast<std::size_t>(wrote);
  }
  trace_file->used = 0;
}

void append_trace(const char* clean) {
  Board& board = board_of_process();
  char line[1200];
  const char* thread = thread_name();
  const std::string note = trace_note(clean);
  const int size = snprintf(line, sizeof line, "%llu %.6f %s %s%s%s\n",
                            static_cast<unsigned long long>(
                                __atomic_add_fetch(&board.trace_sequence, 1, __ATOMIC_RELAXED)),
                            static_cast<double>(board_now_us()) / 1e6, thread, clean,
                            note.empty() ? "" : kTraceNote, note.c_str());
  std::lock_guard<std::mutex> hold(trace_file->lock);
  if (trace_file->used + static_cast<std::size_t>(size) > sizeof trace_file->buffer) flush_trace();
  memcpy(trace_file->buffer + trace_file->used, line, static_cast<std::size_t>(size));
  trace_file->used += static_cast<std::size_t>(size);
  if (board.clock.mode != TimeMode::kVirtual) flush_trace();
}

void open_trace(const char* path) {
  trace_file = new TraceFile;
  trace_file->fd = real::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (trace_file->fd < 0) {
    fprintf(stderr, "vboard: cannot open trace file %s: %s\n", path, strerror(errno));
    return;
  }
  if (lseek(trace_file->fd, 0, SEEK_END) <= 0) dprintf(trace_file->fd, "%s\n", kTraceHeader);
  set_trace_sink(append_trace);
}

void at_exit() {
  if (trace_file == nullptr) return;
  std::lock_guard<std::mutex> hold(trace_file->lock);
  if (trace_file->fd >= 0) flush_trace();
}

// The operator stops the program: nothing of it gets to run any more.
void stop_program() {
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
  __atomic_add_fetch(&board->clock.running, 1, __ATOMIC_RELAXED);
  if (const char* path = getenv("VBOARD_TRACE")) open_trace(path);
  if (const char* script = getenv("VBOARD_SCRIPT"))
    start_script(script, getenv("VBOARD_HOST_LOG"), stop_program);
  atexit(at_exit);
}

}  // namespace

}  // namespace vboard
