// Reads scripts and does their steps; see the header for what they may hold.
#include "vboard/host/script.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "melk/arguments.h"
#include "vboard/core/clock.h"
#include "vboard/core/record.h"
#include "vboard/core/text.h"
#include "vboard/world/world.h"

namespace vboard {

namespace {

constexpr std::uint8_t kPollByte = 0xA5;
constexpr std::int64_t kTakenLimit_us = 60'000'000;
constexpr std::size_t kMostPolls = 65536;

// What the steps act on.
struct Scene {
  const Script& script;
  BoardTransport& transport;
  FILE* log;
  Outcome* outcome;
  melk::Options options;
};

void await_taken(Scene& scene) { scene.transport.wait_taken(kTakenLimit_us); }

double now_s() { return static_cast<double>(board_now_us()) / 1e6; }

void clock_out(Scene& scene, std::uint8_t out) {
  await_taken(scene);
  std::uint8_t in = 0;
  if (scene.transport.transfer(out, &in))
    fprintf(scene.log, " %02x>%02x", out, in);
  else
    fprintf(scene.log, " %02x>--", out);
}

void end_of_link(Scene& scene) {
  fputs("\n", scene.log);
  await_taken(scene);
}

void do_link(Scene& scene, const Step& step) {
  fputs("link", scene.log);
  for (const std::string& word : step.words)
    clock_out(scene, static_cast<std::uint8_t>(strtoul(word.c_str(), nullptr, 16)));
  end_of_link(scene);
}

// A count of poll bytes; 0 for anything else.
std::size_t polls_of(const std::string& word) {
  std::size_t count = 0;
  const char* const end = word.data() + word.size();
  const auto result = std::from_chars(word.data(), end, count);
  return result.ec == std::errc{} && result.ptr == end && count <= kMostPolls ? count : 0;
}

void do_collect(Scene& scene, const Step& step) {
  fputs("link", scene.log);
  const std::size_t count = step.words.empty() ? 1 : polls_of(step.words[0]);
  for (std::size_t i = 0; i < count; ++i) clock_out(scene, kPollByte);
  end_of_link(scene);
}

// The run goes on after a step that failed, and fails in the end.
void fail(Scene& scene, const Step& step, const std::string& why) {
  ++scene.outcome->failed_steps;
  fprintf(stderr, "vboard: %s:%d: %s %s: %s\n", scene.script.file.c_str(), step.line,
          step.what.c_str(), joined(step.words).c_str(), why.c_str());
}

void do_world(Scene& scene, const Step& step) {
  const std::string text = joined(step.words);
  std::string error;
  bool done = false;
  {
    Locked hold(scene.transport.board());
    done = world_command(scene.transport.board(), text, error);
  }
  scene.transport.let_act();
  fprintf(scene.log, "[%.3f] world %s%s%s\n", now_s(), text.c_str(), done ? "" : ": ",
          done ? "" : error.c_str());
  if (!done) fail(scene, step, error);
}

void do_melk(Scene& scene, const Step& step) {
  fprintf(scene.log, "[%.3f] melk %s\n", now_s(), joined(step.words).c_str());
  const int status =
      melk::melk_command(scene.transport, step.words, scene.log, scene.log, scene.options);
  if (status == 0) return;
  fprintf(scene.log, "melk: exit status %d\n", status);
  fail(scene, step, "exit status " + std::to_string(status));
}

void do_print(Scene& scene, const Step& step) {
  fprintf(scene.log, "%s\n", joined(step.words).c_str());
}

void flush(Scene& scene) {
  errno = 0;
  if (fflush(scene.log) != 0 || ferror(scene.log) != 0)
    scene.outcome->log_errno = errno != 0 ? errno : EIO;
}

void do_end(Scene& scene, const Step& /*step*/) {
  flush(scene);
  scene.transport.stop_program();
}

bool is_byte(const std::string& word) {
  return word.size() <= 2 && std::ranges::all_of(word, [](unsigned char c) { return isxdigit(c); });
}

using Operands = std::vector<std::string>;

bool any(const Operands& operands) { return !operands.empty(); }
bool none(const Operands& operands) { return operands.empty(); }
bool whatever(const Operands& /*operands*/) { return true; }
bool bytes(const Operands& operands) {
  return any(operands) && std::ranges::all_of(operands, is_byte);
}
bool polls(const Operands& operands) {
  return none(operands) || (operands.size() == 1 && polls_of(operands[0]) > 0);
}

// Every step, and what is wrong with operands that it cannot take.
struct StepKind {
  const char* name;
  void (*run)(Scene& scene, const Step& step);
  bool (*takes)(const Operands& operands);
  const char* wanted;
};
constexpr StepKind kSteps[] = {
    {"melk", do_melk, any, "a command of melk is wanted"},
    {"link", do_link, bytes, "bytes of one or two hexadecimal digits are wanted"},
    {"collect", do_collect, polls, "a number of bytes from 1 to 65536 is wanted"},
    {"world", do_world, any, "an operation is wanted"},
    {"print", do_print, whatever, ""},
    {"end", do_end, none, "nothing is wanted behind it"},
};

const StepKind* row_of(const std::string& what) {
  const auto* found =
      std::ranges::find_if(kSteps, [&what](const StepKind& one) { return what == one.name; });
  return found == std::end(kSteps) ? nullptr : found;
}

// Empty where there is no fault in the step.
std::string parse_step(std::vector<std::string> words, Step* step) {
  if (words[0] == "at" || words[0] == "after") {
    step->relative = words[0] == "after";
    if (words.size() < 2 || !parse_time(words[1], &step->time_us))
      return "a time such as 2s, 500ms or 3min is wanted";
    words.erase(words.begin(), words.begin() + 2);
  }
  if (words.empty()) return {};
  step->what = words[0];
  step->words.assign(words.begin() + 1, words.end());
  const StepKind* kind = row_of(step->what);
  if (kind == nullptr) return "unknown step " + step->what;
  return kind->takes(step->words) ? "" : step->what + ": " + kind->wanted;
}

}  // namespace

bool read_script(const std::string& file, Script* script, std::string* problem) {
  std::ifstream stream(file);
  if (!stream) {
    *problem = file + ": " + strerror(errno);
    return false;
  }
  script->file = file;
  int number = 0;
  for (std::string line; std::getline(stream, line);) {
    ++number;
    line.erase(std::min(line.find('#'), line.size()));
    const std::vector<std::string_view> words = words_of(line);
    if (words.empty()) continue;
    Step step;
    step.line = number;
    const std::string fault = parse_step({words.begin(), words.end()}, &step);
    if (!fault.empty()) {
      *problem = file;
      problem->append(":").append(std::to_string(number)).append(": ").append(fault);
      return false;
    }
    script->steps.push_back(std::move(step));
  }
  return true;
}

void run_script(const Script& script, BoardTransport& transport, FILE* log, const PlaceOf& place_of,
                Outcome* outcome) {
  Scene scene = {script, transport, log, outcome, {}};
  scene.options.place_of = place_of;
  for (const Step& step : script.steps) {
    const std::int64_t wait_us = step.relative ? step.time_us : step.time_us - board_now_us();
    if (step.time_us >= 0 && wait_us > 0) scene.transport.pause(wait_us);
    if (!step.what.empty()) row_of(step.what)->run(scene, step);
    flush(scene);
  }
}

}  // namespace vboard
