// Runs the real binaries; see the header.
#include "tests/support/board_run.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "vboard/core/trace.h"

namespace fs = std::filesystem;

namespace {

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string temporary_directory() {
  std::string name = fs::temp_directory_path() / "vboard-test-XXXXXX";
  return mkdtemp(name.data());
}

}  // namespace

Result shell(const std::string& command) {
  const std::string place = temporary_directory();
  const std::string line = "( " + command + " ) >" + place + "/out 2>" + place + "/err </dev/null";
  const int status = std::system(line.c_str());
  Result result;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = read_file(place + "/out");
  result.err = read_file(place + "/err");
  fs::remove_all(place);
  return result;
}

std::string program_under_test() {
  const char* named = getenv("VANTORIG_PROGRAM");
  return named != nullptr ? named : std::string(BUILD_DIRECTORY) + "/vantorig";
}

BoardRun::BoardRun() : directory_(temporary_directory()) { vboard("faults clear"); }

BoardRun::~BoardRun() { fs::remove_all(directory_); }

Result BoardRun::vboard(const std::string& arguments) const {
  return shell(std::string(BUILD_DIRECTORY) + "/vboard --board " + directory_ + " " + arguments);
}

Result BoardRun::run(const std::string& options, const std::string& arguments, double seconds) {
  fs::remove(directory_ + "/trace");
  std::ostringstream line;
  line << "run --virtual --trace " << directory_ << "/trace " << options;
  if (seconds > 0) line << " --for " << seconds << "s";
  line << " -- " << program_under_test() << " " << arguments;
  return vboard(line.str());
}

Result BoardRun::vantorig(const std::string& arguments, double seconds) {
  return run("", arguments, seconds);
}

Result BoardRun::service(const std::string& arguments, const std::string& script, double seconds) {
  std::ofstream(directory_ + "/script") << script;
  return run("--script " + directory_ + "/script --host-log " + directory_ + "/host.log", arguments,
             seconds);
}

std::vector<std::string> BoardRun::trace(const std::vector<std::string>& prefixes) const {
  std::vector<std::string> lines;
  std::ifstream file(directory_ + "/trace");
  for (std::string line; std::getline(file, line);) {
    line = vboard::trace_clean(line);
    if (line.empty()) continue;
    const auto begins = [&line](const std::string& prefix) {
      return line.compare(0, prefix.size(), prefix) == 0;
    };
    if (prefixes.empty() || std::any_of(prefixes.begin(), prefixes.end(), begins))
      lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> BoardRun::trace_with_threads() const {
  std::vector<std::string> lines;
  std::ifstream file(directory_ + "/trace");
  for (std::string line; std::getline(file, line);) {
    const std::string clean = vboard::trace_clean(line);
    if (clean.empty()) continue;
    std::istringstream words(line);
    std::string thread;
    words >> thread >> thread >> thread;  // sequence, time, thread
    lines.push_back(thread + " " + clean);
  }
  return lines;
}

std::string BoardRun::host_log() const { return read_file(directory_ + "/host.log"); }

void BoardRun::put_file(const std::string& name, const std::string& content) const {
  fs::create_directories(fs::path(path(name)).parent_path());
  std::ofstream(path(name), std::ios::binary) << content;
}

std::string BoardRun::get_file(const std::string& name) const { return read_file(path(name)); }
