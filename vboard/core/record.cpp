// Writes what came from outside beside the program's device calls.
#include "vboard/core/record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <mutex>

#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/trace.h"

namespace vboard {

namespace {

RecordSink listening = nullptr;

// A line that is lost fails the run.
void append(Board& board, const std::string& line) {
  const int fd = real::open(board.record_file, O_WRONLY | O_APPEND | O_CLOEXEC);
  const ssize_t wrote = fd < 0 ? -1 : real::write(fd, line.data(), line.size());
  if (wrote != static_cast<ssize_t>(line.size())) board.trace_errno = wrote < 0 ? errno : ENOSPC;
  if (fd >= 0) real::close(fd);
}

}  // namespace

void set_record_sink(RecordSink sink) { listening = sink; }

bool recording(const Board& board) { return board.record_file[0] != '\0'; }

std::string trace_file_line(Board& board, const char* who, const std::string& what) {
  const unsigned long long sequence =
      __atomic_add_fetch(&board.trace_sequence, 1, __ATOMIC_RELAXED);
  const long long now_us = board_now_us();
  char head[80];
  snprintf(head, sizeof head, "%llu %lld.%06lld %s ", sequence, now_us / 1'000'000,
           now_us % 1'000'000, who);
  std::string line;
  line.reserve(160);
  line.append(head).append(what);
  const std::string note = trace_note(what.c_str());
  if (!note.empty()) line.append(kTraceNote).append(note);
  line += '\n';
  return line;
}

void record(Board& board, const char* who, const std::string& what) {
  if (!recording(board)) return;
  if (who != kBoardActs) board.last_acted_us = board_now_us();
  const std::string line = trace_file_line(board, who, what);
  if (listening != nullptr)
    listening(line);
  else
    append(board, line);
}

void record_look(Board& board) {
  if (!recording(board) || board.clock.mode != TimeMode::kVirtual) return;
  if (board_now_us() != board.last_acted_us) record(board, kHostActs, "looks");
}

namespace {

using Who = const char* (*)();

// A line at a time, as it comes.
ssize_t hear(void* who, const char* data, std::size_t size) {
  static std::mutex lock;
  static std::string line;
  std::lock_guard<std::mutex> hold(lock);
  for (const char c : std::string_view(data, size)) {
    if (c != '\n') {
      line += isprint(static_cast<unsigned char>(c)) != 0 ? c : ' ';
      continue;
    }
    if (!line.empty())
      record(board_of_process(), reinterpret_cast<Who>(who)(), std::string(kSaysPrefix) + line);
    line.clear();
  }
  const ssize_t wrote = real::write(STDOUT_FILENO, data, size);
  return wrote < 0 ? 0 : wrote;  // a cookie reports failure as 0
}

}  // namespace

FILE* open_heard_output(Who who) {
  cookie_io_functions_t calls = {};
  calls.write = hear;
  return fopencookie(reinterpret_cast<void*>(who), "w", calls);
}

}  // namespace vboard
