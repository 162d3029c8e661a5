// Runs a script beside the program; see the header for what it may hold.
#include "vboard/core/script.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "melk/board_transport.h"
#include "melk/commands.h"
#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/record.h"
#include "vboard/core/world.h"
#include "vboard/models/bus.h"

namespace vboard {

namespace {

constexpr std::uint8_t kPollByte = 0xA5;
constexpr std::int64_t kTakenLimit_us = 60'000'000;
constexpr std::size_t kMostPolls = 65536;

struct Step {
  int line = 0;
  bool relative = false;
  std::int64_t time_us = -1;  // -1: at once
  std::string what;
  std::vector<std::string> words;
  std::string text;  // the words as they stand
};

struct Script {
  const char* file = nullptr;
  std::vector<Step> steps;
  FILE* log = nullptr;
  int thread_id = 0;
  void (*end)() = nullptr;
};

[[noreturn]] void refuse(const char* file, int line, const std::string& why) {
  fprintf(stderr, "vboard: %s:%d: %s\n", file, line, why.c_str());
  _exit(125);
}

// "2s", "500ms", "30us", "3min", "2h", "1d".
bool parse_time(const std::string& text, std::int64_t* us) {
  char* unit = nullptr;
  const double number = strtod(text.c_str(), &unit);
  static const struct {
    const char* name;
    double us;
  } kUnits[] = {{"us", 1}, {"ms", 1e3}, {"s", 1e6}, {"min", 6e7}, {"h", 3.6e9}, {"d", 8.64e10}};
  for (const auto& one : kUnits)
    if (strcmp(unit, one.name) == 0 && unit != text.c_str() && !std::signbit(number)) {
      constexpr double kMost_us = 1e15;  // some thirty years
      if (!(number * one.us <= kMost_us)) return false;
      *us = static_cast<std::int64_t>(number * one.us);
      return true;
    }
  return false;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> words;
  std::string word;
  for (const char c : text + " ") {
    if (c != ' ' && c != '\t' && c != '\n') {
      word += c;
    } else if (!word.empty()) {
      words.push_back(word);
      word.clear();
    }
  }
  return words;
}

std::string join(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

bool is_byte(const std::string& word) {
  return word.size() <= 2 && std::ranges::all_of(word, [](unsigned char c) { return isxdigit(c); });
}

// A count of poll bytes; 0 for anything else.
std::size_t polls_of(const std::string& word) {
  char* end = nullptr;
  const unsigned long count = strtoul(word.c_str(), &end, 10);
  const bool number = isdigit(static_cast<unsigned char>(word[0])) != 0 && *end == '\0';
  return number && count <= kMostPolls ? count : 0;
}

using Words = std::vector<std::string>;

// Every step, and what is wrong with operands that it cannot take.
struct StepKind {
  const char* name;
  const char* wanted;
  bool (*takes)(const Words& operands);
};
constexpr StepKind kStepKinds[] = {
    {"melk", "a command of melk is wanted", [](const Words& words) { return !words.empty(); }},
    {"link", "bytes of one or two hexadecimal digits are wanted",
     [](const Words& words) { return !words.empty() && std::ranges::all_of(words, is_byte); }},
    {"collect", "a number of bytes from 1 to 65536 is wanted",
     [](const Words& words) {
       return words.empty() || (words.size() == 1 && polls_of(words[0]) > 0);
     }},
    {"world", "an operation is wanted", [](const Words& words) { return !words.empty(); }},
    {"print", "", [](const Words& /*words*/) { return true; }},
    {"end", "nothing is wanted behind it", [](const Words& words) { return words.empty(); }},
};

Step parse_step(const char* file, int line, std::vector<std::string> words) {
  Step step;
  step.line = line;
  if (words[0] == "at" || words[0] == "after") {
    step.relative = words[0] == "after";
    if (words.size() < 2 || !parse_time(words[1], &step.time_us))
      refuse(file, line, "a time such as 2s, 500ms or 3min is wanted");
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.empty()) return step;
  step.what = words[0];
  words.erase(words.begin());
  step.words = words;
  step.text = join(words);
  for (const StepKind& kind : kStepKinds) {
    if (step.what != kind.name) continue;
    if (!kind.takes(words)) refuse(file, line, step.what + ": " + kind.wanted);
    return step;
  }
  refuse(file, line, "unknown step " + step.what);
}

std::vector<Step> read_script(const char* file) {
  FILE* stream = real::fopen(file, "r");
  if (stream == nullptr) refuse(file, 0, strerror(errno));
  std::vector<Step> steps;
  char* text = nullptr;
  std::size_t room = 0;
  for (int line = 1; getline(&text, &room, stream) >= 0; ++line) {
    if (char* comment = strchr(text, '#')) *comment = '\0';
    const std::vector<std::string> words = split(text);
    if (!words.empty()) steps.push_back(parse_step(file, line, words));
  }
  free(text);
  real::fclose(stream);
  return steps;
}

// A wait of the scripted host; what lives beside the program acts at its end.
void host_wait(WaitFor what, std::int64_t timeout_us) {
  board_wait(what, timeout_us);
  record_look(board_of_process());
}

void do_link(const Step& step, FILE* log, Board& board) {
  fputs("link", log);
  for (const std::string& word : step.words) {
    host_wait(WaitFor::kBoardTook, kTakenLimit_us);
    std::uint8_t in = 0;
    const auto out = static_cast<std::uint8_t>(strtoul(word.c_str(), nullptr, 16));
    Locked hold(board);
    const bool had = link_host_transfer(board, out, &in);
    if (had)
      fprintf(log, " %02x>%02x", out, in);
    else
      fprintf(log, " %02x>--", out);
  }
  fputs("\n", log);
  host_wait(WaitFor::kBoardTook, kTakenLimit_us);
}

void do_collect(const Step& step, FILE* log, Board& board) {
  char poll[4];
  snprintf(poll, sizeof poll, "%02x", kPollByte);
  Step polls = step;
  polls.words.assign(step.words.empty() ? 1 : polls_of(step.words[0]), poll);
  do_link(polls, log, board);
}

// The run goes on after a step that failed, and fails in the end.
void fail(const Step& step, const Script& script, Board& board, const std::string& why) {
  ++board.failed_steps;
  fprintf(stderr, "vboard: %s:%d: %s %s: %s\n", script.file, step.line, step.what.c_str(),
          step.text.c_str(), why.c_str());
}

void do_world(const Step& step, const Script& script, Board& board) {
  std::string error;
  bool done = false;
  {
    Locked hold(board);
    done = world_command(board, step.text, error);
  }
  heartbeat();
  fprintf(script.log, "[%.3f] world %s%s%s\n", static_cast<double>(board_now_us()) / 1e6,
          step.text.c_str(), done ? "" : ": ", done ? "" : error.c_str());
  if (!done) fail(step, script, board, error);
}

void do_melk(const Step& step, const Script& script, Board& board) {
  FILE* log = script.log;
  fprintf(log, "[%.3f] melk %s\n", static_cast<double>(board_now_us()) / 1e6, step.text.c_str());
  melk::BoardTransport transport(board);
  const int status = melk::melk_command(transport, step.words, log, log, melk::Options{});
  if (status == 0) return;
  fprintf(log, "melk: exit status %d\n", status);
  fail(step, script, board, "exit status " + std::to_string(status));
}

void flush(FILE* log, Board& board) {
  if (fflush(log) != 0) board.host_log_errno = errno;
}

void do_step(const Step& step, const Script& script, Board& board) {
  FILE* log = script.log;
  if (step.what.empty()) return;
  if (step.what == "print") {
    fprintf(log, "%s\n", step.text.c_str());
  } else if (step.what == "world") {
    do_world(step, script, board);
  } else if (step.what == "melk") {
    do_melk(step, script, board);
  } else if (step.what == "link") {
    do_link(step, log, board);
  } else if (step.what == "collect") {
    do_collect(step, log, board);
  } else {
    flush(log, board);
    script.end();
  }
  flush(log, board);
}

void* run_script(void* given) {
  const Script& script = *static_cast<Script*>(given);
  Board& board = board_of_process();
  enter_thread(script.thread_id);
  for (const Step& step : script.steps) {
    const std::int64_t wait_us = step.relative ? step.time_us : step.time_us - board_now_us();
    if (step.time_us >= 0 && wait_us > 0) host_wait(WaitFor::kNothing, wait_us);
    do_step(step, script, board);
  }
  leave_thread();
  return nullptr;
}

}  // namespace

void start_script(const char* script_file, const char* log_file, void (*end)()) {
  auto* script = new Script;  // lives as long as its thread
  script->file = script_file;
  script->steps = read_script(script_file);
  script->end = end;
  script->log = log_file != nullptr ? real::fopen(log_file, "w") : stdout;
  if (script->log == nullptr) refuse(log_file, 0, strerror(errno));
  script->thread_id = announce_thread("host");
  pthread_t thread = {};
  real::pthread_create(&thread, nullptr, run_script, script);
  pthread_detach(thread);
}

}  // namespace vboard
