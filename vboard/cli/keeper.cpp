// Signals, descendants and temporary directories of the launcher.
#include "vboard/cli/keeper.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

namespace vboard {

namespace fs = std::filesystem;

namespace {

constexpr int kNotFound = 127;  // the shell's status of a program that is not there
constexpr int kEnding[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};

sigset_t ending_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int one : kEnding) sigaddset(&set, one);
  return set;
}

// A terminal sends its signals to all processes that run on it.
bool from_terminal(const siginfo_t& info) { return info.si_code == SI_KERNEL; }

// The program to which signals are passed on, and one that came before it was there.
volatile sig_atomic_t program = 0;
volatile sig_atomic_t early_signal = 0;
struct sigaction before[std::size(kEnding)] = {};

void pass_on(int signal_number, siginfo_t* info, void* /*context*/) {
  if (from_terminal(*info)) return;
  if (program > 0)
    kill(program, signal_number);
  else
    early_signal = signal_number;
}

std::vector<std::string> children() {
  std::ifstream list("/proc/thread-self/children");
  return {std::istream_iterator<std::string>(list), {}};
}

std::vector<char*> arguments_of(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// Ends the calling process with its parent, also if that has ended already.
void end_with(pid_t parent, int signal_number) {
  prctl(PR_SET_PDEATHSIG, signal_number);
  if (getppid() != parent) raise(signal_number);
}

[[noreturn]] void become(const std::vector<std::string>& words, int output_fd,
                         const std::vector<int>& passed_fds) {
  if (output_fd >= 0) {
    dup2(output_fd, STDOUT_FILENO);
    dup2(output_fd, STDERR_FILENO);
  }
  for (const int fd : passed_fds) fcntl(fd, F_SETFD, 0);
  execvp(words[0].c_str(), arguments_of(words).data());
  fprintf(stderr, "vboard: cannot run %s: %s%s\n", words[0].c_str(), strerror(errno),
          words[0] == "bwrap" ? " (package bubblewrap)" : "");
  _exit(kNotFound);
}

[[noreturn]] void die_of(int signal_number) {
  signal(signal_number, SIG_DFL);
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_UNBLOCK, &all, nullptr);
  raise(signal_number);
  _exit(128 + signal_number);
}

// Passes signals on to the worker until it has ended; gives back what wait gave.
int follow(pid_t worker, const sigset_t& watched) {
  for (;;) {
    siginfo_t info = {};
    const int number = sigwaitinfo(&watched, &info);
    int status = 0;
    if (number == SIGCHLD && waitpid(worker, &status, WNOHANG) == worker) return status;
    if (number > 0 && number != SIGCHLD && !from_terminal(info)) kill(worker, number);
  }
}

}  // namespace

int shell_status(int wait_status) {
  return WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
}

void adopt_orphans() { prctl(PR_SET_CHILD_SUBREAPER, 1); }

void end_descendants() {
  for (;;) {
    const pid_t ended = waitpid(-1, nullptr, WNOHANG);
    if (ended < 0) return;
    if (ended > 0) continue;
    for (const std::string& child : children()) kill(atoi(child.c_str()), SIGKILL);
    waitpid(-1, nullptr, 0);
  }
}

OutliveSignals::OutliveSignals() {
  early_signal = 0;
  for (std::size_t i = 0; i < std::size(kEnding); ++i) {
    struct sigaction action = {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = pass_on;
    sigaction(kEnding[i], nullptr, &before[i]);
    if (before[i].sa_handler != SIG_IGN) sigaction(kEnding[i], &action, nullptr);
  }
}

OutliveSignals::~OutliveSignals() {
  for (std::size_t i = 0; i < std::size(kEnding); ++i) sigaction(kEnding[i], &before[i], nullptr);
}

pid_t start_program(const std::vector<std::string>& words, int output_fd,
                    const std::vector<int>& passed_fds) {
  const sigset_t ending = ending_signals();
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &ending, &mask);
  const pid_t self = getpid();
  const pid_t child = fork();
  if (child == 0) {
    for (const int one : kEnding) {
      struct sigaction now = {};
      sigaction(one, nullptr, &now);
      if (now.sa_handler != SIG_IGN) signal(one, SIG_DFL);
    }
    end_with(self, SIGKILL);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    become(words, output_fd, passed_fds);
  }
  if (child > 0) program = child;
  if (child > 0 && early_signal != 0) kill(child, early_signal);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  return child;
}

void program_ended() { program = 0; }

int kept(const std::function<int()>& work, const std::function<void(int status)>& after) {
  adopt_orphans();
  signal(SIGCHLD, SIG_DFL);  // ignored, it would leave nothing to wait for
  sigset_t watched = ending_signals();
  sigaddset(&watched, SIGCHLD);
  sigset_t mask;
  sigprocmask(SIG_BLOCK, &watched, &mask);
  const pid_t self = getpid();
  const pid_t worker = fork();
  if (worker < 0) throw std::system_error(errno, std::generic_category(), "cannot fork");
  if (worker == 0) {
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    end_with(self, SIGTERM);
    exit(work());
  }
  const int status = follow(worker, watched);
  end_descendants();
  if (after) after(shell_status(status));
  if (WIFSIGNALED(status)) die_of(WTERMSIG(status));
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  return WEXITSTATUS(status);
}

Scratch::Scratch(const std::string& name) {
  std::string path = fs::temp_directory_path() / (name + "-XXXXXX");
  if (mkdtemp(path.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), "cannot create " + path);
  path_ = path;
}

Scratch::~Scratch() { remove(); }

void Scratch::remove() {
  if (path_.empty()) return;
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  path_.clear();
}

}  // namespace vboard
