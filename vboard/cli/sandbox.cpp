// The bubblewrap sandbox, and a board before, while and after a program runs on it.
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
#include <sstream>

#include "vboard/cli/keeper.h"
#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/record.h"

namespace vboard {

namespace fs = std::filesystem;

namespace {

constexpr int kOwnFailure = 125;
constexpr int kStepFailed = 1;
constexpr int kNotFound = 127;  // of a bwrap that is not there

constexpr char kBoardHome[] = "/home/tovin";

// Where the preload library stands in the sandbox: LD_PRELOAD would take a blank or
// a colon of its own path for the end of a name.
constexpr char kLibrary[] = "/home/libvboard.so";

std::vector<std::string> sandbox_command(const BoardDirectory& directory, const fs::path& library,
                                         const RunOptions& options, bool guest) {
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
  if (guest) setenv("VBOARD_GUEST", "1");
  return command;
}

// Where a path of the sandbox lies outside of it.
fs::path outside(const fs::path& path, const fs::path& home) {
  const fs::path inside = (kBoardHome / path).lexically_normal();
  const fs::path in_home = inside.lexically_relative(kBoardHome);
  return *in_home.begin() == ".." ? inside : home / in_home;
}

// What is against running this file, 0 when nothing is. Where a link leads in the
// sandbox only that can tell.
int fault_of(const fs::path& file) {
  if (access(file.c_str(), X_OK) == 0) return fs::is_directory(file) ? EISDIR : 0;
  const int fault = errno;
  std::error_code ignored;
  return fs::is_symlink(file, ignored) ? 0 : fault;
}

// The same of a program without a path, which is looked for as the sandbox will do.
int fault_of_name(const std::string& name, const fs::path& home) {
  const char* path = getenv("PATH");
  std::istringstream places(path != nullptr ? path : "/bin:/usr/bin");
  int fault = ENOENT;
  for (std::string place; std::getline(places, place, ':');) {
    const int here = fault_of(outside(fs::path(place) / name, home));
    if (here == 0) return 0;
    if (here != ENOENT && here != ENOTDIR) fault = EACCES;
  }
  return fault;
}

// Why this program cannot be run, "" when nothing is seen that is against it.
std::string program_problem(const std::string& program, const fs::path& home) {
  const int fault = program.find('/') == std::string::npos ? fault_of_name(program, home)
                                                           : fault_of(outside(program, home));
  return fault == 0 ? std::string() : "cannot run " + program + ": " + strerror(fault);
}

// Why a file that the run appends to cannot be written, "" when it can.
std::string output_problem(const std::string& file) {
  if (file.empty()) return {};
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (fd < 0) return "cannot write " + file + ": " + strerror(errno);
  close(fd);
  return {};
}

// What comes through a pipe until its end.
std::string all_of(int fd) {
  std::string text;
  char piece[512];
  for (ssize_t size; (size = real::read(fd, piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<std::size_t>(size));
  return text;
}

// A plain chroot has no mount point at its root.
bool in_a_chroot() {
  std::ifstream mounts("/proc/self/mountinfo");
  if (!mounts) return false;
  for (std::string line; std::getline(mounts, line);) {
    std::string id, parent, device, root, mount_point;
    std::istringstream(line) >> id >> parent >> device >> root >> mount_point;
    if (mount_point == "/") return false;
  }
  return true;
}

// What to do about a sandbox of which bwrap says these words; "" when they must do.
std::string hint_for(const std::string& words) {
  if (in_a_chroot())
    return "\nThis is a chroot, where bwrap finds no mount point at the root: a container has one.";
  if (words.find("namespace") == std::string::npos && words.find("uid map") == std::string::npos)
    return {};
  return "\nUnprivileged user namespaces are switched off on this machine. Switch them on (sysctl "
         "kernel.unprivileged_userns_clone=1, or user.max_user_namespaces above 0) or run as "
         "root.";
}

}  // namespace

std::string sandbox_problem() {
  int told[2] = {-1, -1};
  if (pipe2(told, O_CLOEXEC) != 0) return std::string("cannot make a pipe: ") + strerror(errno);
  const pid_t child = start_program({"bwrap", "--dev-bind", "/", "/", "--proc", "/proc",
                                     "--unshare-pid", "--unshare-ipc", "true"},
                                    told[1]);
  close(told[1]);
  std::string words = all_of(told[0]);
  close(told[0]);
  if (words.ends_with('\n')) words.pop_back();
  int status = 0;
  const bool ended = child > 0 && waitpid(child, &status, 0) == child;
  program_ended();
  if (ended && shell_status(status) == 0) return {};
  if (shell_status(status) == kNotFound) return "cannot run bwrap (package bubblewrap)";
  return "the sandbox cannot be set up: " + words + hint_for(words);
}

std::vector<std::string> as_seen_from_here(std::vector<std::string> command) {
  std::string& program = command[0];
  if (program.find('/') != std::string::npos)
    program = fs::absolute(program);
  else if (program == kProgram && !helper(kProgram).empty())
    program = helper(kProgram);
  return command;
}

void come_to_rest(Board& board) {
  // A machine that was started anew counts from nought again.
  board.clock.now_us = std::max(board.clock.now_us, board_now_us());
  board.clock.running = 0;
  board.record_file[0] = '\0';
  board.encoder.pid = 0;
  board.encoder.streaming = false;
}

// The lock is shared with every process of the sandbox: no other run begins before
// the last of them is gone.
bool Run::take_board(const BoardDirectory& directory, std::string* problem) {
  lock_fd_ = open((directory.path() / "lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock_fd_ < 0) {
    *problem = "cannot open " + (directory.path() / "lock").string() + ": " + strerror(errno);
    return false;
  }
  if (flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
    *problem = "a program runs on this board already; end it, or name another board with --board";
    return false;
  }
  clock_attach(board_);
  if (board_->clock.running > 0) come_to_rest(*board_);  // an earlier run was killed
  return true;
}

// Makes the board ready for the program.
bool Run::set_out(const RunOptions& options) {
  if (options.begin_record && !options.begin_record(*board_, &problem_)) return false;
  ClockState& clock = board_->clock;
  clock.mode = options.virtual_time ? TimeMode::kVirtual
                                    : (options.speed == 1.0 ? TimeMode::kReal : TimeMode::kScaled);
  clock.speed = options.speed;
  clock.epoch_board_us = clock.now_us;
  clock.epoch_mono_ns = real::monotonic_ns();
  clock.limit_us = options.for_us < 0 ? -1 : clock.now_us + options.for_us;
  clock.running = 0;
  if (options.begin_record)
    snprintf(board_->record_file, sizeof board_->record_file, "%s",
             fs::absolute(options.trace).c_str());
  board_->link.to_board = {};  // nothing is left in the air from an earlier run
  board_->link.to_host = {};
  board_->link.settled = true;
  board_->encoder.pid = 0;  // processes do not outlive their run
  board_->encoder.streaming = false;
  board_->operations = 0;
  board_->last_acted_us = -1;
  board_->trace_errno = 0;
  board_->guest = {};
  return true;
}

Run::Run(const BoardDirectory& directory, const RunOptions& options,
         const std::vector<std::string>& command, int stdout_fd)
    : options_(options), program_(command[0]) {
  const fs::path library = helper("libvboard.so");
  if (library.empty()) {
    problem_ = "libvboard.so is not beside this program";
    return;
  }
  if (!directory.prepare(&problem_)) return;
  for (const std::string& problem :
       {program_problem(program_, directory.home()),
        options.begin_record ? std::string() : output_problem(options.trace),
        output_problem(options.host_log)}) {
    if (problem.empty()) continue;
    problem_ = problem;
    return;
  }
  if (!beside_.read(options.script, options.replay, &problem_)) return;
  board_ = directory.map(&problem_);
  if (board_ == nullptr || !take_board(directory, &problem_) || !set_out(options)) return;
  int told[2] = {-1, -1};
  if (pipe2(told, O_CLOEXEC) != 0) {
    problem_ = std::string("cannot make a pipe: ") + strerror(errno);
    return;
  }
  std::vector<std::string> words = sandbox_command(directory, library, options, beside_.there());
  words.insert(words.end(), {"--json-status-fd", std::to_string(told[1])});
  words.insert(words.end(),
               {"--setenv", options.shell ? "VBOARD_LIBRARY" : "LD_PRELOAD", kLibrary});
  words.emplace_back("--");
  words.insert(words.end(), command.begin(), command.end());
  adopt_orphans();
  child_ = start_program(words, stdout_fd, {lock_fd_, told[1]});
  if (child_ < 0) problem_ = std::string("cannot fork: ") + strerror(errno);
  close(told[1]);
  status_fd_ = told[0];
  if (child_ > 0)
    beside_.start(*board_, options.host_log, [home = directory.home()](const std::string& name) {
      return outside(name, home).string();
    });
}

Run::~Run() {
  stop();
  if (status_fd_ >= 0) close(status_fd_);
  if (lock_fd_ >= 0) close(lock_fd_);
}

// Nothing of the sandbox lives on, and the board's clock stands still.
void Run::finish() {
  child_ = -1;
  program_ended();
  end_descendants();
  beside_.finish();
  reached_board_ = board_->clock.running > 0;
  std::string told(4096, '\0');
  const ssize_t size = real::read(status_fd_, told.data(), told.size());
  executed_ = reached_board_ ||
              told.substr(0, size > 0 ? static_cast<std::size_t>(size) : 0).find("exit-code") !=
                  std::string::npos;
  clock_attach(board_);
}

std::string Run::lost_output() const {
  if (board_->trace_errno != 0)
    return "cannot write all of " + options_.trace + ": " + strerror(board_->trace_errno);
  if (beside_.log_errno() != 0)
    return "cannot write all of " +
           (options_.host_log.empty() ? "standard output" : options_.host_log) + ": " +
           strerror(beside_.log_errno());
  return {};
}

int Run::wait() {
  if (child_ <= 0) return kOwnFailure;
  int status = 0;
  while (waitpid(child_, &status, 0) < 0 && errno == EINTR) {
  }
  finish();
  if (reached_board_) record(*board_, kBoardActs, "ended " + std::to_string(shell_status(status)));
  come_to_rest(*board_);
  if (!executed_ && WIFEXITED(status)) {
    problem_ = sandbox_problem();
    if (problem_.empty()) problem_ = "cannot run " + program_;
  } else {
    problem_ = lost_output();
  }
  if (!problem_.empty()) return kOwnFailure;
  if (status == 0 && beside_.failed_steps() > 0) return kStepFailed;
  return shell_status(status);
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
  waitpid(child_, nullptr, 0);
  finish();
  come_to_rest(*board_);
}

}  // namespace vboard
