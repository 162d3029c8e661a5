// One input, one process: fork, run, merge the coverage.
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/fuzz/fuzz.h"

// Edge counters of the instrumented code; absent in a build without them.
extern "C" {
extern std::uint8_t __start___sancov_cntrs __attribute__((weak));
extern std::uint8_t __stop___sancov_cntrs __attribute__((weak));
}

namespace fuzz {

namespace {

// Of the processor, a thousand times the usual; and of the clock, for one that waits.
constexpr unsigned kProcessorLimit_s = 30;
constexpr unsigned kClockLimit_s = 300;

struct Counters {
  std::uint8_t* own = nullptr;
  std::size_t size = 0;
  std::uint8_t* shared = nullptr;  // where the child leaves them
};

Counters& counters() {
  static Counters one = [] {
    Counters all;
    all.own = &__start___sancov_cntrs;
    all.size = static_cast<std::size_t>(&__stop___sancov_cntrs - &__start___sancov_cntrs);
    if (all.size == 0) return all;
    void* place =
        mmap(nullptr, all.size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) abort();
    all.shared = static_cast<std::uint8_t*>(place);
    return all;
  }();
  return one;
}

[[noreturn]] void end_child() {
  const Counters& all = counters();
  if (all.size > 0) memcpy(all.shared, all.own, all.size);
  _exit(0);
}

[[noreturn]] void run_child(const Target& target, std::string_view input) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  signal(SIGALRM, SIG_DFL);
  signal(SIGXCPU, SIG_DFL);
  alarm(kClockLimit_s);
  const rlimit limit = {kProcessorLimit_s, kProcessorLimit_s + 1};
  setrlimit(RLIMIT_CPU, &limit);
  target.run(input);
  end_child();
}

}  // namespace

std::string run_in_own_process(const Target& target, std::string_view input) {
  const Counters& all = counters();
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) return "no process to run in";
  if (child == 0) run_child(target, input);
  int status = 0;
  while (waitpid(child, &status, 0) != child)
    if (errno != EINTR) return "the process is lost";
  if (all.size > 0) memcpy(all.own, all.shared, all.size);
  if (WIFSIGNALED(status) && (WTERMSIG(status) == SIGALRM || WTERMSIG(status) == SIGXCPU))
    return "no end";
  if (WIFSIGNALED(status)) return std::string("killed: ") + strsignal(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "exit status " + std::to_string(WEXITSTATUS(status));
  return "";
}

void finding(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fputs("FINDING: ", stderr);
  vfprintf(stderr, format, arguments);
  fputs("\n", stderr);
  va_end(arguments);
  _exit(1);
}

std::uint8_t Reader::byte() {
  const std::string_view one = bytes(1);
  return one.empty() ? 0 : static_cast<std::uint8_t>(one[0]);
}

std::string_view Reader::bytes(std::size_t count) {
  const std::string_view taken = left_.substr(0, count);
  left_.remove_prefix(taken.size());
  return taken;
}

std::string_view Reader::up_to(char separator) {
  const std::size_t at = left_.find(separator);
  const std::string_view taken = left_.substr(0, at);
  left_.remove_prefix(at == std::string_view::npos ? left_.size() : at + 1);
  return taken;
}

}  // namespace fuzz

extern "C" {

// The program's own exit ends the input well (--wrap=exit).
[[noreturn]] void __wrap_exit(int) { fuzz::end_child(); }

// Memory runs out as on the board, with a null pointer; what the program leaves
// behind when its run is cut short is no leak.
const char* __asan_default_options() {
  return "detect_leaks=0:allocator_may_return_null=1:max_allocation_size_mb=64";
}

}  // extern "C"
