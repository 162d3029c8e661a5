// Board directories and the bubblewrap sandbox.
#include "vboard/cli/sandbox.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/record.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

constexpr int kFirmwareSize = 60000;
constexpr int kStepFailed = 1;
constexpr int kNotFound = 127;  // the shell's status of a program that is not there

void write_file(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string firmware() {
  std::string bytes(kFirmwareSize, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 + 7);
  return bytes;
}

// Where the preload library stands in the sandbox: LD_PRELOAD would take a blank or
// a colon of its own path for the end of a name.
constexpr char kLibrary[] = "/home/libvboard.so";

std::vector<std::string> sandbox_command(const BoardDirectory& directory, const fs::path& library,
                                         const RunOptions& options) {
  std::vector<std::string> command = {"bwrap", "--dev-bind", "/", "/", "--tmpfs", "/home"};
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator("/home", ignored)) {
    if (entry.path().filename() == "tovin") continue;
    command.insert(command.end(), {"--bind", entry.path(), entry.path()});
  }
  command.insert(command.end(), {"--ro-bind", library, kLibrary});
  command.insert(command.end(),
                 {"--bind", directory.home(), "/home/tovin", "--proc", "/proc", "--unshare-pid",
                  "--unshare-ipc", "--die-with-parent", "--chdir", "/home/tovin"});
  // On the board the program is root, and its files are root's.
  if (geteuid() != 0) command.insert(command.end(), {"--unshare-user", "--uid", "0", "--gid", "0"});
  const auto setenv = [&command](const std::string& name, const std::string& value) {
    command.insert(command.end(), {"--setenv", name, value});
  };
  setenv("VBOARD_STATE", directory.state_file());
  if (!options.trace.empty()) setenv("VBOARD_TRACE", fs::absolute(options.trace));
  if (!options.replay.empty()) setenv("VBOARD_REPLAY", fs::absolute(options.replay));
  if (!options.script.empty()) setenv("VBOARD_SCRIPT", fs::absolute(options.script));
  if (!options.host_log.empty()) setenv("VBOARD_HOST_LOG", fs::absolute(options.host_log));
  return command;
}

std::vector<char*> arguments_of(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

// The outer process of the sandbox, for signals that are meant for the program.
volatile sig_atomic_t sandbox_pid = 0;

void pass_on(int signal_number) {
  if (sandbox_pid > 0) kill(sandbox_pid, signal_number);
}

// While one lives, the launcher outlives the signals that end its program, so that
// the board is left in order. A terminal sends its own to the program as well;
// what was ignored stays ignored.
class OutliveSignals {
 public:
  OutliveSignals() {
    for (std::size_t i = 0; i < std::size(kEnding); ++i) {
      struct sigaction action = {};
      sigaction(kEnding[i], nullptr, &before_[i]);
      const bool from_terminal = kEnding[i] == SIGINT || kEnding[i] == SIGQUIT;
      action.sa_handler = from_terminal || before_[i].sa_handler == SIG_IGN ? SIG_IGN : pass_on;
      sigaction(kEnding[i], &action, nullptr);
    }
  }
  ~OutliveSignals() {
    for (std::size_t i = 0; i < std::size(kEnding); ++i)
      sigaction(kEnding[i], &before_[i], nullptr);
  }
  OutliveSignals(const OutliveSignals&) = delete;
  OutliveSignals& operator=(const OutliveSignals&) = delete;

 private:
  static constexpr int kEnding[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
  struct sigaction before_[std::size(kEnding)] = {};
};

pid_t spawn(const std::vector<std::string>& words, int stdout_fd) {
  const pid_t child = fork();
  if (child != 0) return child;
  if (stdout_fd >= 0) {
    dup2(stdout_fd, STDOUT_FILENO);
    dup2(stdout_fd, STDERR_FILENO);
  }
  execvp(words[0].c_str(), arguments_of(words).data());
  fprintf(stderr, "vboard: cannot run %s: %s%s\n", words[0].c_str(), strerror(errno),
          words[0] == "bwrap" ? " (package bubblewrap)" : "");
  _exit(kNotFound);
}

int status_of(int status) {
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Why this program cannot be run, "" when nothing is seen that is against it.
// What lies in the board's own home only the sandbox can find.
std::string program_problem(const std::string& program) {
  if (program.find('/') == std::string::npos || program.starts_with("/home/tovin/")) return {};
  if (access(program.c_str(), X_OK) == 0 && !fs::is_directory(program)) return {};
  return "cannot run " + program + ": " +
         (fs::is_directory(program) ? strerror(EISDIR) : strerror(errno));
}

// Why a file that the run appends to cannot be written, "" when it can.
std::string output_problem(const std::string& file) {
  if (file.empty()) return {};
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (fd < 0) return "cannot write " + file + ": " + strerror(errno);
  close(fd);
  return {};
}

}  // namespace

std::string sandbox_problem() {
  const int quiet = open("/dev/null", O_RDWR | O_CLOEXEC);
  const pid_t child = spawn({"bwrap", "--dev-bind", "/", "/", "--proc", "/proc", "--unshare-pid",
                             "--unshare-ipc", "true"},
                            quiet);
  close(quiet);
  int status = 0;
  if (child > 0 && waitpid(child, &status, 0) == child && status_of(status) == 0) return {};
  if (status_of(status) == kNotFound) return "cannot run bwrap (package bubblewrap)";
  return "the sandbox cannot be set up: unprivileged user namespaces are switched off on this "
         "machine. Switch them on (sysctl kernel.unprivileged_userns_clone=1, or "
         "user.max_user_namespaces above 0) or run as root.";
}

std::string read_file(const fs::path& path) {
  if (fs::is_directory(path)) return {};
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> as_seen_from_here(std::vector<std::string> command) {
  if (!command.empty() && command[0].find('/') != std::string::npos)
    command[0] = fs::absolute(command[0]);
  return command;
}

fs::path helper(const std::string& name) {
  std::error_code ignored;
  const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  for (const fs::path& place : {here / name, here / "../lib/vboard" / name})
    if (fs::exists(place)) return fs::canonical(place);
  return {};
}

BoardDirectory::BoardDirectory(const fs::path& directory) : directory_(fs::absolute(directory)) {}

bool BoardDirectory::prepare(std::string* problem) const {
  std::error_code error;
  fs::create_directories(home(), error);
  if (error) {
    *problem = "cannot create " + home().string() + ": " + error.message();
    return false;
  }
  if (fs::exists(home() / "version.ini") || fs::exists(state_file())) return true;
  write_file(home() / "version.ini", "1.12.3\n");
  write_file(home() / "MELK_spi.bin", firmware());
  fs::copy_file(helper("update.sh"), home() / "update.sh", error);
  if (error) {
    *problem = "cannot copy update.sh from beside this program: " + error.message();
    return false;
  }
  fs::create_symlink(helper("vboard-encode"), home() / "encode", error);
  return true;
}

Board* BoardDirectory::map(std::string* problem) const {
  Board* board = map_board(state_file().c_str());
  if (board == nullptr)
    *problem = "cannot use board state " + state_file().string() + ": " +
               (errno == EPROTO ? "it is of another version of vboard; remove the directory"
                                : strerror(errno));
  return board;
}

Run::Run(const BoardDirectory& directory, const RunOptions& options,
         const std::vector<std::string>& command, int stdout_fd) {
  const fs::path library = helper("libvboard.so");
  if (library.empty()) {
    problem_ = "libvboard.so is not beside this program";
    return;
  }
  for (const std::string& problem : {program_problem(command[0]), output_problem(options.trace),
                                     output_problem(options.host_log)}) {
    if (problem.empty()) continue;
    problem_ = problem;
    return;
  }
  if (!directory.prepare(&problem_)) return;
  board_ = directory.map(&problem_);
  if (board_ == nullptr) return;
  lock_fd_ = open((directory.path() / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock_fd_ < 0 || flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
    problem_ = "a program runs on this board already; end it, or name another board with --board";
    return;
  }
  clock_attach(board_);
  if (board_->clock.running > 0) come_to_rest(*board_);  // an earlier run was killed
  ClockState& clock = board_->clock;
  clock.mode = options.virtual_time ? TimeMode::kVirtual
                                    : (options.speed == 1.0 ? TimeMode::kReal : TimeMode::kScaled);
  clock.speed = options.speed;
  clock.epoch_board_us = clock.now_us;
  clock.epoch_mono_ns = real::monotonic_ns();
  clock.limit_us = options.for_us < 0 ? -1 : clock.now_us + options.for_us;
  clock.running = 0;
  if (options.record)
    snprintf(board_->record_file, sizeof board_->record_file, "%s",
             fs::absolute(options.trace).c_str());
  board_->link.to_board = {};  // nothing is left in the air from an earlier run
  board_->link.to_host = {};
  board_->link.settled = true;
  board_->encoder.pid = 0;  // processes do not outlive their run
  board_->encoder.streaming = false;
  board_->failed_steps = 0;
  std::vector<std::string> words = sandbox_command(directory, library, options);
  if (options.shell) {
    words.insert(words.end(), {"--setenv", "VBOARD_LIBRARY", kLibrary});
  } else {
    words.insert(words.end(), {"--setenv", "LD_PRELOAD", kLibrary});
  }
  words.emplace_back("--");
  words.insert(words.end(), command.begin(), command.end());
  // Every process of the sandbox holds the other end of this pipe.
  int alive[2] = {-1, -1};
  if (pipe(alive) != 0) {
    problem_ = std::string("cannot make a pipe: ") + strerror(errno);
    return;
  }
  fcntl(alive[0], F_SETFD, FD_CLOEXEC);
  child_ = spawn(words, stdout_fd);
  sandbox_pid = child_;
  close(alive[1]);
  alive_fd_ = alive[0];
}

Run::~Run() {
  stop();
  if (lock_fd_ >= 0) close(lock_fd_);
}

// The sandbox's processes are killed when its outer one ends, but not at once.
void Run::await_all_gone() {
  char byte = 0;
  while (real::read(alive_fd_, &byte, 1) > 0) {
  }
  close(alive_fd_);
  alive_fd_ = -1;
}

void come_to_rest(Board& board) {
  // A machine that was started anew counts from nought again.
  board.clock.now_us = std::max(board.clock.now_us, board_now_us());
  board.clock.running = 0;
  board.record_file[0] = '\0';
  board.encoder.pid = 0;
  board.encoder.streaming = false;
}

// The board's clock stands still between runs.
void Run::finish() {
  if (board_ == nullptr) return;
  sandbox_pid = 0;
  await_all_gone();
  clock_attach(board_);
  come_to_rest(*board_);
}

int Run::wait() {
  if (child_ <= 0) return 125;
  int status = 0;
  {
    const OutliveSignals while_it_runs;
    while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  child_ = -1;
  const bool started = board_->clock.running > 0;
  record(*board_, kBoardActs, "ended " + std::to_string(status_of(status)));
  finish();
  if (!started && (status_of(status) == 1 || status_of(status) == kNotFound))
    problem_ = sandbox_problem();
  if (!problem_.empty()) return 125;
  if (status == 0 && board_->failed_steps > 0) return kStepFailed;
  return status_of(status);
}

bool Run::alive() {
  siginfo_t info = {};
  return child_ > 0 &&
         waitid(P_PID, static_cast<id_t>(child_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

void Run::stop() {
  if (child_ <= 0) return;
  kill(child_, SIGTERM);  // the program dies with its sandbox
  int status = 0;
  waitpid(child_, &status, 0);
  child_ = -1;
  finish();
}

}  // namespace vboard
