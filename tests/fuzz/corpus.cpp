// Runs stored inputs through a target, one after the other.
//
//   fuzz_corpus TARGET FILE|DIRECTORY...
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

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

// Returns false when the file cannot be read or its input does not end well.
bool run_file(const fuzz::Target& target, const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    fprintf(stderr, "%s: cannot be read\n", path.c_str());
    return false;
  }
  const std::string input{std::istreambuf_iterator<char>(file), {}};
  const std::string wrong = fuzz::run_in_own_process(target, input);
  if (!wrong.empty()) fprintf(stderr, "%s: %s\n", path.c_str(), wrong.c_str());
  return wrong.empty();
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
  printf("%s: %d inputs, %d findings\n", target->name, inputs, findings);
  return findings == 0 && inputs > 0 ? 0 : 1;
}
