// Makes and replays records of runs.
//
// The head of a record, in comment lines, describes the run and how its board differed
// from a fresh one:
//   # record {"command":["build/vantorig","-602"],"started_us":0,"time":"virtual"}
//   # state 730187651 4711 0a1b2c   bytes of the board's state, of this layout, from 4711 on
//   # file hd.ini 644 5b...   a file of the program's home, as hexadecimal bytes
//   # directory tmp
//   # gone update.sh          a file that a fresh board has and this one had not
#include "vboard/cli/recording.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "hw/fpga_registers.h"
#include "vboard/core/text.h"
#include "vboard/core/trace.h"

namespace vboard {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

constexpr int kOwnFailure = 125;
constexpr std::size_t kStateChunk = 32;
constexpr int kFirstSignal = 128;

// ---- the board before the run --------------------------------------------------------

// What lasts from run to run: clock and link begin anew.
constexpr std::size_t kStateFirst = offsetof(Board, world);
constexpr std::size_t kStateEnd = offsetof(Board, trace_sequence);

std::unique_ptr<Board> fresh_board() {
  auto board = std::make_unique<Board>();
  memset(static_cast<void*>(board.get()), 0, sizeof(Board));
  new_board(board.get());
  return board;
}

void write_state(std::ostream& out, const Board& board) {
  const std::unique_ptr<Board> fresh = fresh_board();
  const char* now = reinterpret_cast<const char*>(&board);
  const char* then = reinterpret_cast<const char*>(fresh.get());
  for (std::size_t at = kStateFirst; at < kStateEnd; at += kStateChunk) {
    const std::size_t size = std::min(kStateChunk, kStateEnd - at);
    if (memcmp(now + at, then + at, size) != 0)
      out << "# state " << board_layout() << ' ' << at << ' ' << packed_hex({now + at, size})
          << '\n';
  }
}

bool restore_state(const std::string& line, Board& board) {
  std::istringstream words(line);
  std::uint32_t layout = 0;
  std::size_t at = 0;
  std::string hex;
  words >> layout >> at >> hex;
  const std::string bytes = bytes_of(hex);
  if (!words || layout != board_layout() || at < kStateFirst || at + bytes.size() > kStateEnd)
    return false;
  memcpy(reinterpret_cast<char*>(&board) + at, bytes.data(), bytes.size());
  return true;
}

std::set<std::string> names_under(const fs::path& home) {
  std::set<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(home))
    if (!entry.is_symlink()) names.insert(entry.path().lexically_relative(home));
  return names;
}

bool write_home(std::ostream& out, const fs::path& home, std::string* problem) {
  const std::vector<Furnishing> furnished = furnishings(problem);
  if (furnished.empty()) return false;
  const std::set<std::string> present = names_under(home);
  for (const Furnishing& one : furnished)
    if (!present.contains(one.name)) out << "# gone " << one.name << '\n';
  for (const std::string& name : present) {
    const fs::path path = home / name;
    if (fs::is_directory(path)) {
      out << "# directory " << name << '\n';
      continue;
    }
    const std::string content = read_file(path);
    const auto fresh = std::ranges::find(furnished, name, &Furnishing::name);
    if (fresh != furnished.end() && fresh->content == content) continue;
    const auto rights = static_cast<unsigned>(fs::status(path).permissions()) & 0777u;
    char octal[8];
    snprintf(octal, sizeof octal, "%o", rights);
    out << "# file " << octal << ' ' << packed_hex(content) << ' ' << name << '\n';
  }
  return true;
}

void restore_file(const std::string& line, const fs::path& home) {
  const std::size_t hex = line.find(' ') + 1;
  const std::size_t name = line.find(' ', hex) + 1;
  const fs::path path = home / line.substr(name);
  std::ofstream(path, std::ios::binary) << bytes_of(line.substr(hex, name - 1 - hex));
  fs::permissions(path, static_cast<fs::perms>(strtoul(line.c_str(), nullptr, 8)));
}

// A name from a record stays within the home.
bool inside(const std::string& name) {
  const fs::path path = fs::path(name).lexically_normal();
  return !path.empty() && path.is_relative() && *path.begin() != "..";
}

bool restore(const RecordHead& head, const BoardDirectory& directory, Board& board,
             std::string* problem) {
  for (const std::string& line : head) {
    const std::string kind = line.substr(0, line.find(' '));
    const std::string rest = line.substr(std::min(line.size(), kind.size() + 1));
    const std::string name =
        kind == "file" ? rest.substr(rest.find(' ', rest.find(' ') + 1) + 1) : rest;
    if (kind == "state") {
      if (restore_state(rest, board)) continue;
      *problem =
          "it began on a board in use of another version of vboard; record it anew, best "
          "on a fresh board";
      return false;
    }
    if (kind != "file" && kind != "directory" && kind != "gone") continue;
    if (!inside(name)) {
      *problem = "it names a file outside of the board's home: " + name;
      return false;
    }
    if (kind == "gone") fs::remove(directory.home() / name);
    if (kind == "directory") fs::create_directories(directory.home() / name);
    if (kind == "file") restore_file(rest, directory.home());
  }
  return true;
}

const char* time_name(const RunOptions& options) {
  if (options.virtual_time) return "virtual";
  return options.speed == 1.0 ? "real" : "scaled";
}

bool write_head(const BoardDirectory& directory, const RunOptions& options,
                const std::vector<std::string>& words, const Board& board, std::string* problem) {
  std::ofstream out(options.trace, std::ios::binary);
  if (!out) {
    *problem = "cannot write " + options.trace + ": " + strerror(errno);
    return false;
  }
  const json run = {
      {"command", words}, {"started_us", board.clock.now_us}, {"time", time_name(options)}};
  out << kTraceHeader << "\n# record " << run.dump() << '\n';
  write_state(out, board);
  if (!write_home(out, directory.home(), problem)) return false;
  if (out.flush()) return true;
  *problem = "cannot write all of " + options.trace + ": " + strerror(errno);
  return false;
}

// ---- comparing -------------------------------------------------------------------------

// What a program does again and again while nothing happens; how often depends on
// how long exactly a step took.
bool of_the_routine(const RecordLine& line) {
  static const char* const kRoutine[] = {"fpga rd ",       "fpga rdblk",
                                         "fpga led ",      "i2c bind",
                                         "select ",        "wait ",
                                         "spi rd ",        "open ",
                                         "close ",         "file ",
                                         "nonblock ",      "fpga port rd",
                                         "pll rd ",        "fpga config-status",
                                         "video0 QUERYSTD"};
  for (const char* routine : kRoutine)
    if (line.what.starts_with(routine)) return true;
  unsigned address = 0;
  if (sscanf(line.what.c_str(), "fpga wr 0x%x", &address) == 1) return address == kRegLatch;
  return line.what.starts_with("i2c ") && line.what.find(" rd") != std::string::npos;
}

// The operations that are compared. Of a record in real time only what changes
// something, thread by thread: how the threads interleave is chance there.
std::vector<const RecordLine*> compared(const Record& record, bool exactly) {
  std::vector<const RecordLine*> lines;
  for (const RecordLine& line : record.lines)
    if (line.kind == RecordKind::kOperation && (exactly || !of_the_routine(line)))
      lines.push_back(&line);
  if (!exactly)
    std::ranges::stable_sort(lines, {}, [](const RecordLine* line) { return line->who; });
  return lines;
}

bool same(const RecordLine& one, const RecordLine& other) {
  return one.who == other.who && one.what == other.what;
}

struct Difference {
  const RecordLine* recorded = nullptr;  // null: the record is at its end
  const RecordLine* replayed = nullptr;
  std::size_t equal = 0;  // operations before it
};

std::optional<Difference> first_difference(const std::vector<const RecordLine*>& recorded,
                                           const std::vector<const RecordLine*>& replayed) {
  std::size_t i = 0;
  while (i < recorded.size() && i < replayed.size() && same(*recorded[i], *replayed[i])) ++i;
  if (i == recorded.size() && i == replayed.size()) return std::nullopt;
  return Difference{i < recorded.size() ? recorded[i] : nullptr,
                    i < replayed.size() ? replayed[i] : nullptr, i};
}

constexpr std::size_t kBefore = 4;
constexpr std::size_t kBehind = 2;

std::string text_of(const RecordLine& line) {
  char head[64];
  snprintf(head, sizeof head, "%12.6f %-5s ", static_cast<double>(line.time_us) / 1e6,
           line.who.c_str());
  std::string text = head;
  text += (line.kind == RecordKind::kSays ? std::string(kSaysPrefix) : std::string()) + line.what;
  const std::string note = trace_note(line.what.c_str());
  return note.empty() ? text : text + kTraceNote + note;
}

// The operation with what stands around it in its record.
void print_around(const char* mark, const Record& record, const RecordLine* at, bool with_before) {
  if (at == nullptr) {
    printf("%s (nothing more)\n", mark);
    return;
  }
  const auto index = static_cast<std::size_t>(at - record.lines.data());
  if (with_before)
    for (std::size_t i = index - std::min(index, kBefore); i < index; ++i)
      printf("  %s\n", text_of(record.lines[i]).c_str());
  for (std::size_t i = index; i <= std::min(index + kBehind, record.lines.size() - 1); ++i)
    printf("%s %s\n", mark, text_of(record.lines[i]).c_str());
}

json json_of(const RecordLine* line) {
  if (line == nullptr) return nullptr;
  return {{"time_s", static_cast<double>(line->time_us) / 1e6},
          {"thread", line->who},
          {"operation", line->what}};
}

// The exit status that the board noted; -1 when the program was stopped from outside.
int exit_status(const Record& record) {
  int status = -1;
  for (const RecordLine& line : record.lines) {
    if (line.kind != RecordKind::kBoard) continue;
    if (line.what == "stopped") return -1;
    sscanf(line.what.c_str(), "ended %d", &status);
  }
  return status >= kFirstSignal ? -1 : status;
}

struct Comparison {
  bool exactly = true;
  std::size_t operations = 0;
  std::optional<Difference> difference;
  int recorded_status = -1;
  int replayed_status = -1;

  bool equal() const { return !difference && recorded_status == replayed_status; }
};

Comparison compare(const Record& recorded, const Record& replayed) {
  Comparison result;
  result.exactly = recorded.run.time == "virtual";
  const auto one = compared(recorded, result.exactly);
  result.operations = one.size();
  result.difference = first_difference(one, compared(replayed, result.exactly));
  result.recorded_status = exit_status(recorded);
  result.replayed_status = exit_status(replayed);
  return result;
}

std::string status_text(int status) {
  return status < 0 ? "was stopped" : "ended with status " + std::to_string(status);
}

void print_comparison(const Comparison& result, const Record& recorded, const Record& replayed) {
  const char* what = result.exactly ? "operations" : "changes";
  const double seconds = static_cast<double>(recorded.end_us() - recorded.run.started_us) / 1e6;
  if (result.equal()) {
    printf("equal: %zu %s in %.1f s of board time\n", result.operations, what, seconds);
  } else if (result.difference) {
    printf("different after %zu equal %s (- recorded, + replayed):\n", result.difference->equal,
           what);
    print_around("-", recorded, result.difference->recorded, true);
    print_around("+", replayed, result.difference->replayed,
                 result.difference->recorded == nullptr);
  } else {
    printf("different after %zu equal %s: the recorded program %s, the replayed one %s\n",
           result.operations, what, status_text(result.recorded_status).c_str(),
           status_text(result.replayed_status).c_str());
  }
}

void print_json(const Comparison& result) {
  json out = {{"equal", result.equal()},
              {"compared", result.exactly ? "operations" : "changes"},
              {"count", result.operations},
              {"difference", nullptr}};
  if (result.difference)
    out["difference"] = {{"after", result.difference->equal},
                         {"recorded", json_of(result.difference->recorded)},
                         {"replayed", json_of(result.difference->replayed)}};
  for (const auto& [name, status] : {std::pair("recorded_status", result.recorded_status),
                                     std::pair("replayed_status", result.replayed_status)})
    out[name] = status < 0 ? json() : json(status);
  printf("%s\n", out.dump(2).c_str());
}

// A program that runs on when the recorded one had ended is given this long to do so.
constexpr std::int64_t kGrace_us = 10'000'000;

}  // namespace

std::int64_t Record::end_us() const {
  return lines.empty() ? run.started_us : lines.back().time_us;
}

bool read_whole_record(const std::string& file, Record* record, std::string* problem) {
  record->lines = read_record(file.c_str(), problem, &record->head);
  if (!problem->empty()) {
    *problem = file + ": " + *problem;
    return false;
  }
  for (const std::string& line : record->head) {
    if (!line.starts_with("record ")) continue;
    const json run = json::parse(line.substr(strlen("record ")), nullptr, false);
    if (run.is_discarded()) break;
    record->run.time = run.value("time", "");
    record->run.started_us = run.value("started_us", std::int64_t{0});
    record->run.command = run.value("command", std::vector<std::string>{});
    if (record->run.command.empty()) break;
    if (!record->lines.empty()) return true;
    *problem = file + " holds no run: its program never started";
    return false;
  }
  *problem = file + " is a trace and no record; vboard record makes one";
  return false;
}

int make_record(const BoardDirectory& directory, RunOptions options,
                const std::vector<std::string>& words, std::string* problem, int stdout_fd) {
  options.begin_record = [&](const Board& board, std::string* why_not) {
    return write_head(directory, options, words, board, why_not);
  };
  Run run(directory, options, as_seen_from_here(words), stdout_fd);
  *problem = run.problem();
  if (!problem->empty()) return kOwnFailure;
  const int status = run.wait();
  *problem = run.problem();
  if (run.reached_board()) return status;
  // Nothing was recorded.
  std::error_code ignored;
  if (fs::is_regular_file(options.trace)) fs::remove(options.trace, ignored);
  if (problem->empty() && status < kFirstSignal && status != kOwnFailure)
    *problem = "cannot record " + words[0] + ": it never reached the board";
  return problem->empty() ? status : kOwnFailure;
}

int replay(const ReplayOptions& options, const fs::path& scratch, std::string* problem) {
  Record recorded;
  if (!read_whole_record(options.record, &recorded, problem)) return kOwnFailure;
  const BoardDirectory directory(scratch / "board");
  Board* board = directory.prepare(problem) ? directory.map(problem) : nullptr;
  if (board == nullptr) return kOwnFailure;
  if (!restore(recorded.head, directory, *board, problem)) {
    *problem = options.record + ": " + *problem;
    return kOwnFailure;
  }
  board->clock.now_us = recorded.run.started_us;
  RunOptions run;
  run.virtual_time = true;
  run.replay = options.record;
  run.trace = options.output.empty() ? (scratch / "trace").string() : options.output;
  const bool stopped = exit_status(recorded) < 0;
  run.for_us = recorded.end_us() - recorded.run.started_us + (stopped ? 0 : kGrace_us);
  const std::vector<std::string>& words =
      options.command.empty() ? recorded.run.command : options.command;
  const int quiet = open("/dev/null", O_WRONLY | O_CLOEXEC);
  make_record(directory, run, words, problem, quiet);
  close(quiet);
  Record replayed;
  if (!problem->empty() || !read_whole_record(run.trace, &replayed, problem)) return kOwnFailure;
  const Comparison result = compare(recorded, replayed);
  if (options.json)
    print_json(result);
  else
    print_comparison(result, recorded, replayed);
  return result.equal() ? 0 : 1;
}

}  // namespace vboard
