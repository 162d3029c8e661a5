// Writes what came from outside beside the program's device calls.
#include "vboard/core/record.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/trace.h"
#include "vboard/core/world.h"
#include "vboard/models/encoder.h"
#include "vboard/models/fpga.h"

namespace vboard {

namespace {

RecordSink listening = nullptr;
std::int64_t last_acted_us = -1;  // by host or world, of this process

// A line that is lost fails the run.
void append(Board& board, const std::string& line) {
  const int fd = real::open(board.record_file, O_WRONLY | O_APPEND | O_CLOEXEC);
  const ssize_t wrote = fd < 0 ? -1 : real::write(fd, line.data(), line.size());
  if (wrote != static_cast<ssize_t>(line.size())) board.trace_errno = wrote < 0 ? errno : ENOSPC;
  if (fd >= 0) real::close(fd);
}

const char* encoder_state(const EncoderState& encoder) {
  if (encoder.pid == 0) return "none";
  if (!encoder.alive_raised) return "starts";
  return encoder.streaming ? "streams" : "waits";
}

std::string levels_of(const FpgaState& fpga) {
  char text[40];
  snprintf(text, sizeof text, "levels %.1f %.1f", fpga.video_level, fpga.audio_level);
  return text;
}

std::string video_of(const World& world) {
  if (world.video != VideoSource::kNone && world.faults.video_freeze) return "frozen";
  return source_name(world.video);
}

void record_change(Board& board, std::string& last, const std::string& now) {
  if (now == last) return;
  last = now;
  record(board, kBoardActs, now);
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
  if (who != kBoardActs) last_acted_us = board_now_us();
  const std::string line = trace_file_line(board, who, what);
  if (listening != nullptr)
    listening(line);
  else
    append(board, line);
}

void record_look(Board& board) {
  if (!recording(board) || board.clock.mode != TimeMode::kVirtual) return;
  if (board_now_us() != last_acted_us) record(board, kHostActs, "looks");
}

void record_board(Board& board, const SharedBlock* block, std::int64_t now_us) {
  static Board copy;
  static SharedBlock copied_block;
  static std::string levels;
  static std::string encoder;
  static std::string video;
  static std::string audio;
  {
    Locked hold(board);
    memcpy(static_cast<void*>(&copy), &board, sizeof copy);
  }
  if (block != nullptr) {
    memcpy(static_cast<void*>(&copied_block), block, sizeof copied_block);
    encoder_step(copy, &copied_block, now_us);
  } else {
    fpga_advance(copy, now_us);
  }
  record_change(board, video, "video " + video_of(copy.world));
  record_change(board, audio, std::string("audio ") + source_name(copy.world.audio));
  record_change(board, encoder, std::string("encode ") + encoder_state(copy.encoder));
  record_change(board, levels, levels_of(copy.fpga));
}

// ---- reading one -----------------------------------------------------------------

namespace {

struct LineReader {
  FILE* stream;
  char* text = nullptr;
  std::size_t room = 0;

  explicit LineReader(const char* file) : stream(real::fopen(file, "re")) {}
  ~LineReader() {
    free(text);
    if (stream != nullptr) real::fclose(stream);
  }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool next(std::string* line) {
    const ssize_t size = getline(&text, &room, stream);
    if (size <= 0) return false;
    line->assign(text, static_cast<std::size_t>(size - (text[size - 1] == '\n' ? 1 : 0)));
    return true;
  }
};

RecordKind kind_of(const std::string& who, const std::string& what) {
  if (who == kHostActs) return RecordKind::kHost;
  if (who == kWorldActs) return RecordKind::kWorld;
  if (who == kBoardActs) return RecordKind::kBoard;
  return what.starts_with(kSaysPrefix) ? RecordKind::kSays : RecordKind::kOperation;
}

bool parse_line(const std::string& text, RecordLine* line) {
  double seconds = 0;
  char who[20] = {};
  int at = 0;
  if (sscanf(text.c_str(), "%llu %lf %19s %n", &line->sequence, &seconds, who, &at) != 3)
    return false;
  line->time_us = std::llround(seconds * 1e6);
  line->who = who;
  line->what = text.substr(static_cast<std::size_t>(at));
  line->kind = kind_of(line->who, line->what);
  if (line->kind == RecordKind::kSays)
    line->what.erase(0, kSaysPrefix.size());
  else
    line->what = trace_clean(text);
  return true;
}

}  // namespace

std::vector<RecordLine> read_record(const char* file, std::string* problem, RecordHead* head) {
  std::vector<RecordLine> lines;
  LineReader reader(file);
  if (reader.stream == nullptr) {
    *problem = strerror(errno);
    return lines;
  }
  std::string text;
  if (!reader.next(&text) || text != kTraceHeader) {
    *problem = std::string("its first line is not \"") + kTraceHeader + "\"";
    return lines;
  }
  for (int number = 2; reader.next(&text); ++number) {
    if (text.starts_with("# ")) {
      if (head != nullptr) head->push_back(text.substr(2));
      continue;
    }
    RecordLine line;
    if (!parse_line(text, &line)) {
      *problem = "line " + std::to_string(number) + " is no line of a trace";
      return lines;
    }
    lines.push_back(std::move(line));
  }
  std::ranges::stable_sort(lines, {}, &RecordLine::sequence);
  return lines;
}

}  // namespace vboard
