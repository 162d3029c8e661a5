// Reads traces and records.
#include "vboard/core/record_reader.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vboard/core/real.h"
#include "vboard/core/trace.h"

namespace vboard {

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
