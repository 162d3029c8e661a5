// hd.ini: the input is the file. The reader looks every key up in every way and is
// compared with a simpler one; then the whole is applied twice, as after a restart.
#include "config/hd_params.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "config/cfg_reader.h"
#include "hw/fpga.h"
#include "tests/fuzz/targets.h"
#include "vboard/core/trace.h"
#include "vboard/testing/bench.h"

namespace fuzz {

namespace {

constexpr std::int64_t kLimit_us = 300'000'000;  // both times, failing chips included

// A look-up done in another way: all lines first, then the rules.
struct Found {
  int result = kCfgNoKey;
  int lines = 0;  // read until then
  std::string value;
};

// Lines as the reader sees them: pieces of a buffer's size, text up to a zero byte,
// less its last character, and none that runs into the end of the file.
std::vector<std::string> lines_of(std::string_view file) {
  std::vector<std::string> lines;
  while (!file.empty()) {
    const std::size_t end = std::min(file.find('\n'), file.size());
    const std::size_t size = std::min<std::size_t>(end + 1, kCfgLineSize - 1);
    if (size > file.size()) break;
    std::string text(file.substr(0, size));
    text.resize(strlen(text.c_str()));
    if (!text.empty()) text.pop_back();
    lines.push_back(text);
    file.remove_prefix(size);
  }
  return lines;
}

bool same(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

Found look_up(const std::vector<std::string>& lines, const char* section, const char* key) {
  Found found;
  bool inside = section == nullptr;
  for (const std::string& line : lines) {
    ++found.lines;
    if (line.empty() || line[0] == ';' || line[0] == '#') continue;
    if (line[0] == '[') {
      if (inside) return found;
      inside = line.back() == ']' && same(line.substr(1, line.size() - 2), section);
    } else if (const std::size_t at = line.find('='); inside && at != std::string::npos) {
      if (!same(line.substr(0, at), key)) continue;
      found.result = kCfgFound;
      found.value = line.substr(at + 1);
      return found;
    }
  }
  found.result = inside ? kCfgNoKey : kCfgNoSection;
  return found;
}

void check_reading(FILE* file, const char* section, const char* key, const Found& expected) {
  char text[kCfgLineSize] = {};
  const int result = ReadCfg(file, section, key, text, "line", nullptr);
  if (result != expected.result || expected.value != text)
    finding("key %s: result %d, value '%s'", key, result, text);
  std::int32_t number = 0;
  const int scanned = ReadCfg(file, section, key, &number, "%d", nullptr);
  const bool bad = expected.result == kCfgFound && scanned == -expected.lines;
  if (scanned != expected.result && !bad) finding("key %s: result %d", key, scanned);
  if (bad && strspn(expected.value.c_str(), "0123456789") > 0) finding("key %s: no number", key);
}

void read_every_way(const std::string& path, std::string_view content) {
  const std::vector<std::string> lines = lines_of(content);
  FILE* file = fopen(path.c_str(), "r");
  if (file == nullptr) finding("the file does not open");
  for (const char* section : {static_cast<const char*>(nullptr), "video", "a"}) {
    long kept = 0;
    for (const HdParam* row = hd_params; row->key != nullptr; ++row) {
      const Found expected = look_up(lines, section, row->key);
      check_reading(file, section, row->key, expected);
      char text[kCfgLineSize] = {};
      const int again = ReadCfg(file, section, row->key, text, "line", &kept);
      if (again != expected.result || expected.value != text)
        finding("key %s from the place kept: result %d", row->key, again);
    }
  }
  fclose(file);
}

}  // namespace

void hd_ini(std::string_view input) {
  vboard::Bench bench;
  vboard::set_trace_sink(nullptr);
  bench.attach_block();
  if (open_fpga_dev() < 0) finding("no FPGA");
  bench.put_file("hd.ini", std::string(input));
  read_every_way(bench.path("hd.ini"), input);
  const bool ended = bench.run_for(kLimit_us, [] {
    Configure_System();
    GetVideoStdFromHDini();
    Configure_System();
  });
  if (!ended) finding("the configuration has no end");
  if (bench.board().violations.count > 0) finding("%s", bench.board().violations.first);
  if (bench.get_file("hd.ini") != input) finding("hd.ini is not as it was");
}

}  // namespace fuzz
