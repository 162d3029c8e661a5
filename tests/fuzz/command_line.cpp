// Arguments: each line of the input is one; the rest of a line that begins with '!'
// is an operation on the world before the program starts. Options that end only with their operator
// are cut short; all others must come to an end.
#include "app/command_line.h"

#include <algorithm>
#include <vector>

#include "tests/fuzz/targets.h"
#include "vboard/core/trace.h"
#include "vboard/testing/bench.h"

namespace fuzz {

namespace {

constexpr std::size_t kMostArguments = 12;
constexpr std::size_t kLongestArgument = 5000;
constexpr std::int64_t kLimit_us = 3'600'000'000;  // twelve loads of a firmware

// When the operator ends what has no end of its own.
struct Endless {
  std::string_view option;
  std::int64_t after_us;
};
constexpr Endless kEndless[] = {
    {"-pll", 100'000},   {"-aablk", 100'000}, {"-5150", 2'100'000},
    {"-602", 2'100'000}, {"-ac3", 200'000},  // it polls without a pause
};
constexpr std::int64_t kDeaf_us = 2'100'000;  // a chip that never answers is polled for ever

std::int64_t limit_of(const std::vector<std::string>& words, bool deaf) {
  std::int64_t limit_us = deaf ? kDeaf_us : kLimit_us;
  for (const std::string& word : words)
    for (const Endless& one : kEndless)
      if (word == one.option) limit_us = std::min(limit_us, one.after_us);
  return limit_us;
}

}  // namespace

void command_line(std::string_view input) {
  vboard::Bench bench;
  vboard::set_trace_sink(nullptr);
  bench.put_file("stream.rbf", "a bitstream of some bytes");
  bench.put_file("MELK_spi.bin", "firmware");
  std::vector<std::string> words = {"vantorig"};
  bool deaf = false;
  for (Reader reader(input); !reader.empty() && words.size() <= kMostArguments;) {
    const std::string_view line = reader.up_to('\n').substr(0, kLongestArgument);
    if (line.empty() || line[0] != '!') {
      // A NUL ends an argument.
      words.emplace_back(line.substr(0, line.find('\0')));
    } else {
      std::string error;  // an operation that is none changes nothing
      const vboard::Locked hold(bench.board());
      vboard::world_command(bench.board(), line.substr(1), error);
      deaf = true;
    }
  }
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const std::int64_t limit_us = limit_of(words, deaf);
  const bool ended = bench.run_for(
      limit_us, [&] { run_command_line(static_cast<int>(words.size()), argv.data()); });
  if (!ended && limit_us == kLimit_us) finding("the command has no end");
}

}  // namespace fuzz
