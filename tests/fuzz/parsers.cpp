// Two texts that the service takes numbers from: the first byte of the input says
// how long version.ini is, that and the listing of the stored configuration follow.
//
// The host asks for the version and sends a configuration; what comes of it is
// held against numbers found in another way.
#include <algorithm>
#include <array>
#include <cerrno>

#include "hostlink/dispatcher.h"
#include "state/service_flags.h"
#include "tests/fuzz/targets.h"
#include "tests/service/service_bench.h"
#include "vboard/core/trace.h"
#include "vboard/interpose/seam.h"

namespace fuzz {

namespace {

constexpr int kPrepare = 10;
constexpr int kVersion = 28;
constexpr std::size_t kVersionLine = 19;
constexpr std::size_t kListingLine = 50;
constexpr std::size_t kListingScanned = 49;
constexpr int kSent = 30;

using Groups = std::array<int, 3>;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// The first line of a file, with its end, as far as a buffer takes it.
std::string first_line(std::string_view file, std::size_t most) {
  const std::size_t end = file.find('\n');
  return std::string(file.substr(0, end == std::string_view::npos ? end : end + 1).substr(0, most));
}

// Two digits are a number; of any other count the last stands alone.
int group_value(std::string_view digits) {
  if (digits.empty()) return 0;
  const int last = digits.back() - '0';
  return digits.size() == 2 ? (digits.front() - '0') * 10 + last : last;
}

Groups expected_version(std::string_view file) {
  std::string text = first_line(file, kVersionLine);
  const auto stranger =
      std::find_if(text.begin(), text.end(), [](char c) { return !is_digit(c) && c != '.'; });
  text.erase(stranger, text.end());
  Groups groups{};
  Reader reader(text);
  for (int& group : groups) group = group_value(reader.up_to('.'));
  return groups;
}

std::int32_t expected_size(std::string_view file) {
  const std::string line = first_line(file, kListingLine).substr(0, kListingScanned);
  const std::size_t owner = line.find('t');
  if (owner == std::string::npos) return 0;
  const std::size_t from = line.find_first_of("0123456789", owner);
  if (from == std::string::npos) return 0;
  const std::size_t to = std::min(line.find_first_not_of("0123456789", from), line.size());
  unsigned __int128 size = 0;
  for (std::size_t i = from; i < to; ++i) size = size * 10 + static_cast<unsigned>(line[i] - '0');
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(size));
}

std::string told_size(const std::string& output) {
  static const std::string words = "real size of hd is ";
  const std::size_t at = output.rfind(words);
  if (at == std::string::npos) return "";
  const std::size_t from = at + words.size();
  return output.substr(from, output.find('\n', from) - from);
}

}  // namespace

void parsers(std::string_view input) {
  Reader reader(input);
  const std::string version(reader.bytes(reader.byte()));
  const std::string listing(reader.bytes(input.size()));
  ServiceBench service;
  vboard::set_trace_sink(nullptr);
  vboard::Bench& bench = service.bench;
  bench.put_file("version.ini", version);
  bench.put_file("check_hd_size.txt", listing);
  vboard::seam::fail_call("system", "ls -l", 0, -1, EAGAIN);  // the listing is there already
  Groups told{-1, -1, -1};
  bool done = false;
  service.run(60, [&](Host& host) {
    host.wait(2);
    host.send({kPrepare});
    for (int& group : told)
      if (const std::vector<int> answer = host.ask(kVersion); answer.size() == 1) group = answer[0];
    host.send_config(std::string(kSent, ';'));
    host.wait(30);
    done = true;
    bench.board().clock.limit_us = bench.board().clock.now_us;
  });
  if (!done) finding("the service does not serve");
  if (told != expected_version(version))
    finding("version bytes %d, %d, %d", told[0], told[1], told[2]);
  const std::int32_t size = expected_size(listing);
  const std::string printed = told_size(bench.output());
  if (printed != std::to_string(size)) finding("size %s instead of %d", printed.c_str(), size);
  if ((wrong_size_flag == 1) != (size != kSent)) finding("size %d: wrong flag", size);
}

}  // namespace fuzz
