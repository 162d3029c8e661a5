// Launchers that are killed while they set up their sandbox.
//
// Several side by side, each on a board of its own, start a program and kill the
// launcher a moment later, the moments spread evenly over the time that a start
// takes. The launcher must end at once by the signal, none of its processes may live
// on, and the board must be free for the next.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>

#include "tests/support/board_run.h"

namespace {

constexpr int kKills = 500;
constexpr int kSideBySide = 5;
constexpr int kLatest_us = 80'000;
constexpr int kLook_us = 500;
constexpr int kPatience_looks = 40'000;  // twenty seconds; it hangs
constexpr int kSecondProgram = 9;

constexpr int kSignals[] = {SIGTERM, SIGHUP, SIGTERM, SIGINT, SIGKILL};

// What was wrong, "" if nothing.
using Finding = std::array<char, 200>;

// A program that lives until it is killed, and ends with kSecondProgram when
// another of its kind lives on the board.
pid_t start(const std::string& board) {
  const pid_t launcher = fork();
  if (launcher != 0) return launcher;
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, fd);
  const std::string second = std::to_string(kSecondProgram);
  execl(BUILD_DIRECTORY "/vboard", "vboard", "--board", board.c_str(), "run", "--", "flock", "-n",
        "-E", second.c_str(), "/home/tovin/busy", "sleep", "600", static_cast<char*>(nullptr));
  _exit(126);
}

// Waits until `process` has ended, or with -1 until no descendant is left.
bool gone(pid_t process, int* status) {
  for (int look = 0; look < kPatience_looks; ++look) {
    const pid_t ended = waitpid(process, status, WNOHANG);
    if (ended < 0 && errno == ECHILD) return true;
    if (ended == process) return true;
    if (ended == 0) usleep(kLook_us);
  }
  return false;
}

// True when a process lives whose launcher, a child of this process, has ended.
bool orphan_lives() {
  pid_t ended = 0;
  while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) {
  }
  return ended == 0;
}

const char* kill_early(const std::string& board, int signal_number, int delay_us) {
  int status = 0;
  const pid_t launcher = start(board);
  usleep(static_cast<useconds_t>(delay_us));
  kill(launcher, signal_number);
  if (!gone(launcher, &status)) return "the launcher hangs";
  if (WIFEXITED(status) && WEXITSTATUS(status) == kSecondProgram) return "two programs at once";
  const bool by_signal = (WIFSIGNALED(status) && WTERMSIG(status) == signal_number) ||
                         (WIFEXITED(status) && WEXITSTATUS(status) == 128 + signal_number);
  if (!by_signal) return "the launcher ended otherwise";
  if (signal_number != SIGKILL && orphan_lives()) return "a process lives on";
  if (!gone(-1, &status)) return "a process lives on for ever";
  return nullptr;
}

void kill_descendants() {
  std::ifstream children("/proc/thread-self/children");
  for (pid_t child = 0; children >> child;) kill(child, SIGKILL);
}

void work(int worker, const std::string& board, Finding* finding) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (int number = worker; number < kKills; number += kSideBySide) {
    const int signal_number = kSignals[number / kSideBySide % std::size(kSignals)];
    const int delay_us = static_cast<int>(static_cast<long>(kLatest_us) * number / kKills);
    const char* amiss = kill_early(board, signal_number, delay_us);
    if (amiss == nullptr) continue;
    snprintf(finding->data(), finding->size(), "signal %d after %d us: %s", signal_number, delay_us,
             amiss);
    kill_descendants();
    return;
  }
}

TEST(VboardEarlyKill, five_hundred_leave_no_process_and_a_free_board) {
  void* shared = mmap(nullptr, sizeof(Finding) * kSideBySide, PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto* findings = static_cast<Finding*>(shared);
  std::array<BoardRun, kSideBySide> boards;
  std::array<pid_t, kSideBySide> workers = {};
  for (int i = 0; i < kSideBySide; ++i) {
    const auto at = static_cast<std::size_t>(i);
    workers[at] = fork();
    if (workers[at] != 0) continue;
    work(i, boards[at].path(".."), &findings[i]);
    _exit(0);
  }
  for (const pid_t worker : workers) {
    int status = 0;
    ASSERT_EQ(waitpid(worker, &status, 0), worker);
    EXPECT_EQ(status, 0);
  }
  for (std::size_t i = 0; i < boards.size(); ++i) {
    EXPECT_STREQ(findings[i].data(), "");
    EXPECT_EQ(boards[i].vboard("run --virtual -- true").err, "");
  }
  munmap(shared, sizeof(Finding) * kSideBySide);
}

}  // namespace
