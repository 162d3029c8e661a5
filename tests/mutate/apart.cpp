// Runs the tests of an executable each in a process of its own, without starting
// the executable anew: the process forks for every test. Stops at the first failure.
//
//   EXECUTABLE [--first=FILE] [--jobs=N] [--times=FILE | --record=FILE] [--filter=PATTERN]
//
//   --first   the tests of this source file come first
//   --times   processor time of each test, "SUITE.NAME SECONDS" a line: the quick ones
//             come first, and one that takes far longer than it did has failed; so has
//             one that does nothing for a minute
//   --record  writes that file, and goes on behind failures
//
// Prints "failed SUITE.NAME" or "passed N"; ends with 1 or 0.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Beyond a test's usual time: a machine may be busy, a changed program may loop.
constexpr double kSlower = 5;
constexpr double kSpare_s = 3;
// A program that waits for ever takes no time: looked at this often, idle that many times.
constexpr time_t kLook_s = 5;
constexpr int kIdleLooks = 12;
constexpr rlim_t kMemory = rlim_t{4} << 30;

struct Test {
  std::string name;
  bool first = false;
  double time_s = 0;
};

struct Options {
  std::string first;
  std::string times;
  std::string record;
  int jobs = 1;
};

bool ends_with(const std::string& text, const std::string& tail) {
  return !tail.empty() && text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

Options options(int argc, char** argv) {
  Options given;
  for (int i = 1; i < argc; ++i) {
    const std::string one = argv[i];
    const std::string value = one.substr(std::min(one.size(), one.find('=') + 1));
    if (one.starts_with("--first=")) given.first = "/" + value;
    if (one.starts_with("--times=")) given.times = value;
    if (one.starts_with("--record=")) given.record = value;
    if (one.starts_with("--jobs=")) given.jobs = std::max(1, std::atoi(value.c_str()));
  }
  return given;
}

std::map<std::string, double> times_of(const std::string& path) {
  std::map<std::string, double> times;
  std::ifstream file(path);
  std::string name;
  for (double seconds = 0; file >> name >> seconds;) times[name] = seconds;
  return times;
}

std::vector<Test> tests(const Options& given) {
  const std::map<std::string, double> times = times_of(given.times);
  std::vector<Test> all;
  const testing::UnitTest& unit = *testing::UnitTest::GetInstance();
  for (int s = 0; s < unit.total_test_suite_count(); ++s) {
    const testing::TestSuite& suite = *unit.GetTestSuite(s);
    for (int t = 0; t < suite.total_test_count(); ++t) {
      const testing::TestInfo& info = *suite.GetTestInfo(t);
      Test one;
      one.name = std::string(suite.name()) + "." + info.name();
      one.first = ends_with(info.file(), given.first);
      const auto time = times.find(one.name);
      if (time != times.end()) one.time_s = time->second;
      all.push_back(one);
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const Test& a, const Test& b) {
    return a.first != b.first ? a.first : a.time_s < b.time_s;
  });
  return all;
}

void limit(int resource, rlim_t value) {
  const rlimit both = {value, value};
  setrlimit(static_cast<__rlimit_resource>(resource), &both);
}

[[noreturn]] void run(const Test& test, bool bounded) {
  setpgid(0, 0);
  if (bounded) {
    limit(RLIMIT_CPU, static_cast<rlim_t>(kSpare_s + kSlower * test.time_s) + 1);
    limit(RLIMIT_AS, kMemory);
    limit(RLIMIT_CORE, 0);
  }
  if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(2);
  if (std::freopen("/dev/null", "w", stderr) == nullptr) _exit(2);
  GTEST_FLAG_SET(filter, test.name);
  const int result = RUN_ALL_TESTS();
  std::fflush(nullptr);
  _exit(result);
}

// Processes of a group: whether any of their threads runs or could, and their ticks.
struct Look {
  bool runnable = false;
  unsigned long ticks = 0;
};

void look_at_stat(const std::filesystem::path& stat, pid_t group, Look& look) {
  std::ifstream file(stat);
  std::string text;
  if (!std::getline(file, text)) return;
  std::istringstream fields(text.substr(text.rfind(')') + 1));
  char state = '?';
  long skipped = 0;
  pid_t its_group = 0;
  fields >> state >> skipped >> its_group;
  if (its_group != group) return;
  for (int field = 6; field < 14; ++field) fields >> skipped;  // up to the user's ticks
  unsigned long user = 0;
  unsigned long system = 0;
  fields >> user >> system;
  look.ticks += user + system;
  look.runnable = look.runnable || state == 'R' || state == 'D';
}

Look look_at(pid_t group) {
  Look look;
  std::error_code ignored;
  for (const auto& process : std::filesystem::directory_iterator("/proc", ignored)) {
    if (process.path().filename().string().find_first_not_of("0123456789") != std::string::npos)
      continue;
    for (const auto& task : std::filesystem::directory_iterator(process.path() / "task", ignored))
      look_at_stat(task.path() / "stat", group, look);
  }
  return look;
}

struct Running {
  const Test* test = nullptr;
  int idle = 0;
  unsigned long ticks = 0;
};

// Ends those that wait for ever.
void end_idle_ones(std::map<pid_t, Running>& running) {
  for (auto& [process, one] : running) {
    const Look look = look_at(process);
    one.idle = look.runnable || look.ticks != one.ticks ? 0 : one.idle + 1;
    one.ticks = look.ticks;
    if (one.idle >= kIdleLooks) kill(-process, SIGKILL);
  }
}

// Whoever ended, with its time.
struct Ended {
  pid_t process;
  bool passed;
  double time_s;
};

Ended wait_for_one(std::map<pid_t, Running>& running, const sigset_t& ends) {
  for (;;) {
    int status = 0;
    rusage usage = {};
    const pid_t process = wait4(-1, &status, WNOHANG, &usage);
    if (process > 0) {
      const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
      };
      return {process, WIFEXITED(status) && WEXITSTATUS(status) == 0,
              seconds(usage.ru_utime) + seconds(usage.ru_stime)};
    }
    const timespec look = {kLook_s, 0};
    if (sigtimedwait(&ends, nullptr, &look) < 0) end_idle_ones(running);
  }
}

int run_all(const std::vector<Test>& all, const Options& given) {
  std::ofstream record;
  if (!given.record.empty()) record.open(given.record);
  std::map<pid_t, Running> running;
  sigset_t ends;
  sigset_t before;
  sigemptyset(&ends);
  sigaddset(&ends, SIGCHLD);
  sigprocmask(SIG_BLOCK, &ends, &before);
  std::string failed;
  std::size_t next = 0;
  std::size_t passed = 0;
  while (next < all.size() || !running.empty()) {
    if (next < all.size() && static_cast<int>(running.size()) < given.jobs) {
      const Test& test = all[next++];
      std::fflush(nullptr);
      const pid_t process = fork();
      if (process == 0) {
        sigprocmask(SIG_SETMASK, &before, nullptr);
        run(test, given.record.empty());
      }
      running[process].test = &test;
      continue;
    }
    const Ended one = wait_for_one(running, ends);
    const Test& test = *running[one.process].test;
    running.erase(one.process);
    kill(-one.process, SIGKILL);  // what it left running
    if (record.is_open()) record << test.name << ' ' << one.time_s << '\n';
    passed += one.passed ? 1 : 0;
    if (one.passed) continue;
    std::printf("failed %s\n", test.name.c_str());
    failed = test.name;
    if (given.record.empty()) break;
  }
  for (const auto& [process, one] : running) kill(-process, SIGKILL);
  if (failed.empty()) std::printf("passed %zu\n", passed);
  return failed.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  // A death test may start the executable anew, for itself alone.
  bool for_death_test = false;
  for (int i = 1; i < argc; ++i)
    for_death_test = for_death_test || strstr(argv[i], "internal_run_death_test") != nullptr;
  testing::InitGoogleTest(&argc, argv);
  if (for_death_test) return RUN_ALL_TESTS();
  const Options given = options(argc, argv);
  const std::vector<Test> all = tests(given);
  std::fflush(nullptr);
  return run_all(all, given);
}
