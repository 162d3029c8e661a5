// Runs stored inputs through a target, one after the other; behind them one for each
// row of the table that the target is about.
//
//   fuzz_corpus TARGET FILE|DIRECTORY...
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include "app/command_line.h"
#include "config/hd_params.h"
#include "tests/fuzz/fuzz.h"

namespace {

std::vector<std::filesystem::path> files_of(const std::filesystem::path& place) {
  if (!std::filesystem::is_directory(place)) return {place};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(place))
    if (entry.is_regular_file()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

// Every option alone, every key alone.
std::vector<std::string> inputs_of_tables(std::string_view target) {
  std::vector<std::string> inputs;
  if (target == "command_line")
    for (const Option& one : options()) inputs.emplace_back(one.text);
  if (target == "hd_ini")
    for (const HdParam* row = hd_params; row->key != nullptr; ++row)
      inputs.push_back(std::string(row->key) + "=1\n");
  return inputs;
}

// Returns false when the input does not end well.
bool run_input(const fuzz::Target& target, const std::string& name, const std::string& input) {
  const std::string wrong = fuzz::run_in_own_process(target, input);
  if (!wrong.empty()) fprintf(stderr, "%s: %s\n", name.c_str(), wrong.c_str());
  return wrong.empty();
}

// Returns false when the file cannot be read or its input does not end well.
bool run_file(const fuzz::Target& target, const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    fprintf(stderr, "%s: cannot be read\n", path.c_str());
    return false;
  }
  return run_input(target, path, {std::istreambuf_iterator<char>(file), {}});
}

}  // namespace

int main(int argc, char** argv) {
  const fuzz::Target* target = argc > 2 ? fuzz::find_target(argv[1]) : nullptr;
  if (target == nullptr) {
    fputs("usage: fuzz_corpus TARGET FILE|DIRECTORY...\n", stderr);
    return 2;
  }
  int inputs = 0;
  int findings = 0;
  for (int i = 2; i < argc; ++i)
    for (const auto& path : files_of(argv[i])) {
      ++inputs;
      if (!run_file(*target, path)) ++findings;
    }
  for (const std::string& input : inputs_of_tables(target->name)) {
    ++inputs;
    if (!run_input(*target, input, input)) ++findings;
  }
  printf("%s: %d inputs, %d findings\n", target->name, inputs, findings);
  return findings == 0 && inputs > 0 ? 0 : 1;
}
