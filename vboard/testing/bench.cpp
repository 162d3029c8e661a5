// The in-process bench; see the header.
#include "vboard/testing/bench.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "vboard/core/real.h"
#include "vboard/core/trace.h"
#include "vboard/testing/set_up.h"

namespace vboard {

namespace {

std::mutex trace_lock;
std::vector<std::string>& trace_lines() {
  static auto* lines = new std::vector<std::string>;  // threads may outlive main
  return *lines;
}
sigjmp_buf stop_run;
bool run_bounded = false;

void keep_line(const char* clean) {
  std::lock_guard<std::mutex> hold(trace_lock);
  trace_lines().emplace_back(clean);
}

// ---- one stream -----------------------------------------------------------------

struct Watched {
  std::string name;
  std::function<long long()> value;
  long long last;
};

struct Stream {
  // A trace line flushes standard output, which adds what was printed.
  std::recursive_mutex lock;
  std::vector<std::string> lines;
  std::vector<Watched> watched;
  int capture_fd = -1;
  off_t seen = 0;       // of the captured output
  std::string printed;  // after its last line end
};
Stream& stream_of_all() {
  static auto* one = new Stream;  // threads may outlive main
  return *one;
}

void add_piece(Stream& all) {
  if (!all.printed.empty()) all.lines.push_back("say... " + all.printed);
  all.printed.clear();
}

void add_changes(Stream& all) {
  for (Watched& one : all.watched) {
    const long long now = one.value();
    if (now == one.last) continue;
    one.last = now;
    add_piece(all);
    all.lines.push_back(one.name + " = " + std::to_string(now));
  }
}

// Whoever printed it: the program, or a command of the shell.
void add_printed(Stream& all) {
  char block[4096];
  for (ssize_t got = 0; (got = pread(all.capture_fd, block, sizeof block, all.seen)) > 0;) {
    all.seen += got;
    for (ssize_t i = 0; i < got; ++i) {
      if (block[i] != '\n') {
        all.printed += block[i];
        continue;
      }
      all.lines.push_back("say " + all.printed);
      all.printed.clear();
    }
  }
}

ssize_t print_followed(void*, const char* data, std::size_t size) {
  Stream& all = stream_of_all();
  std::lock_guard<std::recursive_mutex> hold(all.lock);
  add_printed(all);
  add_changes(all);
  const ssize_t wrote = real::write(STDOUT_FILENO, data, size);
  add_printed(all);
  return wrote < 0 ? 0 : wrote;  // a cookie reports failure as 0
}

void catch_up(Stream& all) {
  fflush(stdout);
  add_printed(all);
  add_changes(all);
  add_piece(all);
}

void follow_file(const char* line) {
  Stream& all = stream_of_all();
  std::lock_guard<std::recursive_mutex> hold(all.lock);
  catch_up(all);
  all.lines.emplace_back(line);
}

void follow_line(const char* clean) {
  keep_line(clean);
  follow_file(clean);
}

// ---- bounded runs ---------------------------------------------------------------

void leave_run() {
  if (run_bounded) siglongjmp(stop_run, 1);
  fputs("the program waits for ever: bound the run with run_for\n", stderr);
  _exit(99);
}

struct Beside {
  int id;
  std::function<void()> body;
};

void* run_beside(void* given) {
  Beside* beside = static_cast<Beside*>(given);
  enter_thread(beside->id);
  beside->body();
  delete beside;
  leave_thread();
  return nullptr;
}

}  // namespace

Bench::Bench(TimeMode mode, double speed) {
  // The board is left behind with its threads when a run is abandoned.
  void* place =
      mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  board_ = new_board(place);
  board_->clock.mode = mode;
  board_->clock.speed = speed;
  board_->clock.running = 1;
  board_->clock.epoch_mono_ns = real::monotonic_ns();
  std::string name = std::filesystem::temp_directory_path() / "vboard-XXXXXX";
  home_ = mkdtemp(name.data());
  came_from_ = std::filesystem::current_path();
  std::filesystem::current_path(home_);
  fflush(stdout);
  stdout_fd_ = real::dup(STDOUT_FILENO);
  capture_fd_ = memfd_create("stdout", MFD_CLOEXEC);
  real::dup2(capture_fd_, STDOUT_FILENO);
  clock_attach(board_);
  set_end_of_run(leave_run);
  seam::Settings settings;
  settings.home = home_;
  settings.own_ipc = true;
  settings.encoder_in_process = true;
  seam::start(*board_, settings);
  trace_lines().clear();
  set_trace_sink(keep_line);
}

void Bench::give_back_output() {
  fflush(stdout);
  real::dup2(stdout_fd_, STDOUT_FILENO);
  if (!::testing::Test::HasFailure()) return;
  char block[4096];  // what was captured holds the failure's text
  lseek(capture_fd_, 0, SEEK_SET);
  for (ssize_t got = 0; (got = real::read(capture_fd_, block, sizeof block)) > 0;)
    if (real::write(STDOUT_FILENO, block, static_cast<std::size_t>(got)) < 0) break;
}

Bench::~Bench() {
  set_trace_sink(nullptr);
  set_file_sink(nullptr);
  if (stdout_before_ != nullptr) {
    fclose(stdout);
    stdout = stdout_before_;
  }
  seam::stop();
  give_back_output();
  real::close(stdout_fd_);
  real::close(capture_fd_);
  std::error_code ignored;
  std::filesystem::current_path(came_from_, ignored);
  std::filesystem::remove_all(home_, ignored);
}

void Bench::world(const std::string& command) {
  std::string error;
  Locked hold(*board_);
  if (!world_command(*board_, command, error)) ADD_FAILURE() << command << ": " << error;
}

std::string Bench::output() {
  fflush(stdout);
  std::string text;
  char block[4096];
  for (ssize_t got = 0; (got = pread(capture_fd_, block, sizeof block, captured_)) > 0;) {
    text.append(block, static_cast<std::size_t>(got));
    captured_ += got;
  }
  return text;
}

std::vector<std::string> Bench::trace() {
  std::lock_guard<std::mutex> hold(trace_lock);
  std::vector<std::string> taken;
  taken.swap(trace_lines());
  return taken;
}

std::vector<std::string> Bench::trace(const std::vector<std::string>& prefixes) {
  std::vector<std::string> chosen;
  for (std::string& line : trace())
    for (const std::string& prefix : prefixes)
      if (line.compare(0, prefix.size(), prefix) == 0) {
        chosen.push_back(std::move(line));
        break;
      }
  return chosen;
}

void Bench::follow() {
  fflush(stdout);
  Stream& all = stream_of_all();
  all.lines.clear();
  all.watched.clear();
  all.printed.clear();
  all.capture_fd = capture_fd_;
  all.seen = lseek(capture_fd_, 0, SEEK_END);
  cookie_io_functions_t calls = {};
  calls.write = print_followed;
  stdout_before_ = stdout;
  stdout = fopencookie(nullptr, "w", calls);
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  set_trace_sink(follow_line);
  set_file_sink(follow_file);
}

std::vector<std::string> Bench::stream() {
  Stream& all = stream_of_all();
  std::lock_guard<std::recursive_mutex> hold(all.lock);
  catch_up(all);
  std::vector<std::string> taken;
  taken.swap(all.lines);
  return taken;
}

void Bench::watch(const std::string& name, std::function<long long()> value) {
  Stream& all = stream_of_all();
  std::lock_guard<std::recursive_mutex> hold(all.lock);
  const long long now = value();
  all.watched.push_back({name, std::move(value), now});
}

bool Bench::run_for(std::int64_t limit_us, const std::function<void()>& body) {
  board_->clock.limit_us = board_->clock.now_us + limit_us;
  run_bounded = true;
  const bool ended = sigsetjmp(stop_run, 0) == 0;
  if (ended) body();
  run_bounded = false;
  board_->clock.limit_us = -1;
  return ended;
}

void Bench::beside(const std::string& name, std::function<void()> body) {
  auto* given = new Beside{announce_thread(name.c_str()), std::move(body)};
  pthread_t thread = {};
  real::pthread_create(&thread, nullptr, run_beside, given);
  pthread_detach(thread);
}

void Bench::put_file(const std::string& name, const std::string& content) const {
  std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
  std::ofstream(path(name), std::ios::binary) << content;
}

std::string Bench::get_file(const std::string& name) const {
  std::ifstream file(path(name), std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

bool Bench::has_file(const std::string& name) const { return std::filesystem::exists(path(name)); }

SharedBlock& Bench::attach_block() {
  get_shm_key();
  trace();
  return *shared_memory;
}

std::uint16_t Bench::fpga(int address) const { return board_->fpga.reg[address / 2]; }

void Bench::set_fpga(int address, int value) {
  board_->fpga.reg[address / 2] = static_cast<std::uint16_t>(value);
  set_up_changed(*board_);
}

void Bench::set_up() {
  const Locked hold(*board_);
  set_up_by_hand(*board_);
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) result.push_back(line);
  return result;
}

}  // namespace vboard
