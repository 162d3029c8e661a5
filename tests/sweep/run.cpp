// Runs the points. What a child process finds out it writes into memory that it
// shares with its parent, so that nothing is lost when it crashes.
#include "tests/sweep/run.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "app/command_line.h"
#include "hw/fpga.h"
#include "state/service_flags.h"
#include "tests/sweep/messages.h"
#include "vboard/core/trace.h"

using vboard::Bench;
using vboard::seam::Failing;
using vboard::seam::SweptCall;
namespace seam = vboard::seam;

namespace {

constexpr std::size_t kMostCalls = 4'000'000;
constexpr rlim_t kCpuLimit_s = 120;  // a loop that does not wait ends here
constexpr int kGetHdVersion = 1;
constexpr int kHdVersionAnswer = 0x2D;

struct Shared {
  Outcome outcome;
  SweptCall calls[kMostCalls];
};
// Pages that are never touched cost nothing.
Shared* map_shared() {
  return static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                   MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
}
Shared*& shared() {
  static Shared* place = map_shared();
  return place;
}

int occurrences(const std::string& text, const std::string& word) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += word.size())
    ++count;
  return count;
}

void say(char* place, std::size_t size, const std::string& text) {
  snprintf(place, size, "%s", text.c_str());
}

// ---- the good state ----------------------------------------------------------------

GoodState state_of(const vboard::Board& board) {
  GoodState state = {};
  for (std::size_t i = 0; i < kRegisters; ++i) {
    const FpgaRegister& row = kFpgaRegisters[i];
    if (keeps_its_value(row)) state.fpga[i] = board.fpga.reg[row.address / 2];
  }
  memcpy(state.digitizer, board.tvp7002.reg, sizeof state.digitizer);
  return state;
}

// What a board holds that never knew any but the usual configuration. Another one
// may leave registers behind that the usual one does not touch.
GoodState usual_state;

// The last register that holds neither what it should nor what is usual, "" for none.
std::string difference(const GoodState& good, const GoodState& found) {
  char text[80] = {};
  for (std::size_t i = 0; i < kRegisters; ++i)
    if (found.fpga[i] != good.fpga[i] && found.fpga[i] != usual_state.fpga[i])
      snprintf(text, sizeof text, "register %s is %d, not %d", kFpgaRegisters[i].name,
               found.fpga[i], good.fpga[i]);
  for (std::size_t i = 0; i < kChipRegisters; ++i)
    if (found.digitizer[i] != good.digitizer[i] && found.digitizer[i] != usual_state.digitizer[i])
      snprintf(text, sizeof text, "TVP7002 register 0x%02zx is 0x%02x, not 0x%02x", i,
               found.digitizer[i], good.digitizer[i]);
  return text;
}

// Registers that a configuration sets, and what they hold on a good board.
bool well_configured(const vboard::Board& board) {
  static constexpr struct {
    int address;
    int value;
  } kGoodValues[] = {
      {kRegFramePeriod, 14400},  {kRegPidVideo, 256},      {kRegPidAudio, 257},
      {kRegPidPcr, 256},         {kRegVideoCodec3, 44640}, {kRegOutputInterval, 13651},
      {kRegAc3FrameBytes, 1536}, {kRegSampleRate, 2880},   {kRegControl, 6}};
  return std::all_of(std::begin(kGoodValues), std::end(kGoodValues), [&board](const auto& one) {
    return board.fpga.reg[one.address / 2] == one.value;
  });
}

// ---- the program under a point --------------------------------------------------------

class PointRun {
 public:
  // `unharmed` is null for the run that is the measure.
  PointRun(const Point& point, const Outcome* unharmed) : point_(point), unharmed_(unharmed) {}

  void show() const { fputs(output_.c_str(), stderr); }
  void run() { point_.scenario->host ? run_service() : run_command(); }

 private:
  const Scenario& scenario() const { return *point_.scenario; }
  Outcome& outcome() { return shared()->outcome; }
  void fault(const std::string& text) {
    if (outcome().fault[0] == '\0') say(outcome().fault, sizeof outcome().fault, text);
  }

  void start_program() const {
    if (scenario().call) {
      scenario().call();
      return;
    }
    std::vector<std::string> words = {"vantorig"};
    words.insert(words.end(), scenario().arguments.begin(), scenario().arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    run_command_line(static_cast<int>(words.size()), argv.data());
  }

  void begin_failing() const { seam::start_sweep(point_.call, point_.how); }

  void count_handles(long files_before) {
    outcome().handles = static_cast<int>(open_files() - files_before) - handles_kept();
  }
  int spare_handles() {
    if (unharmed_ == nullptr) return 0;
    return outcome().handles - unharmed_->handles - scenario().extra_handles;
  }

  void judge_handles() {
    if (spare_handles() > 0) fault(std::to_string(spare_handles()) + " handles too many left open");
  }

  // What is known when no call fails any more.
  void end_failing(long files_before) {
    seam::stop_sweep();
    count_handles(files_before);
    say(outcome().failed, sizeof outcome().failed, seam::sweep_failed_call());
    const auto& calls = seam::swept_calls();
    outcome().calls = static_cast<long>(std::min(calls.size(), kMostCalls));
    if (unharmed_ == nullptr)
      std::copy_n(calls.begin(), static_cast<std::size_t>(outcome().calls), shared()->calls);
  }

  // Each line action keeps a stream, each application of a configuration the bus of
  // the digitizer's set-up.
  int handles_kept() {
    output_ += bench_->output();
    return occurrences(output_, "Start prog_gpio") +
           occurrences(output_, "start Configure_System!!");
  }

  void look_for_message() {
    output_ += bench_->output();
    if (point_.call == 0 || point_.how == Failing::kShort) return;
    std::string wanted;
    if (!message_given(scenario().name, outcome().failed, output_, &wanted))
      fault("does not say '" + wanted.substr(0, wanted.find('\n')) + "'");
  }

  void run_command();
  void run_service();
  void recover(Host& host);
  bool good(const vboard::Board& board) const;
  bool known_end(bool ended) const;

  Point point_;
  const Outcome* unharmed_;
  Bench* bench_ = nullptr;
  std::string output_;  // of the program, as far as it was taken
  bool back_ = false;
  bool deaf_ = false;
};

void PointRun::run_command() {
  Bench bench;
  bench_ = &bench;
  vboard::set_trace_sink(nullptr);
  if (scenario().prepare) scenario().prepare(bench);
  const long before = open_files();
  // A program that ends itself does so from here on as well.
  static PointRun* running = nullptr;
  static long files = 0;
  running = this;
  files = before;
  std::atexit([] { running->end_failing(files); });
  begin_failing();
  const bool ended = bench.run_for(static_cast<std::int64_t>(scenario().limit_s * 1e6),
                                   [this] { start_program(); });
  end_failing(before);
  if (!ended && !scenario().endless) fault("not done within its time");
  judge_handles();
  look_for_message();
}

bool PointRun::good(const vboard::Board& board) const {
  if (!serves(board) || watches() != scenario().watched || !well_configured(board)) return false;
  return unharmed_ == nullptr || difference(unharmed_->state, state_of(board)).empty();
}

// True when the board has taken everything that was sent.
bool taken(const vboard::Board& board) {
  return board.link.to_board.head == board.link.to_board.tail;
}

bool wait_until(Host& host, double limit_s, const std::function<bool()>& so) {
  for (const double end = host.now() + limit_s; !so();) {
    if (host.now() > end) return false;
    host.wait(0.5);
  }
  return true;
}

// The state that the scenario leaves, or that which one of two configurations
// brings: the first may be taken for data that were awaited, and the first after a
// start finds the digital audio not yet enabled.
void PointRun::recover(Host& host) {
  constexpr double kSettle_s = 40;
  constexpr double kConfigured_s = 100;
  const vboard::Board& board = vboard::board_of_process();
  const auto is_good = [this, &board] { return good(board); };
  if (scenario().after) scenario().after(host);
  back_ = wait_until(host, kSettle_s, is_good);
  for (int again = 0; again < 2 && !back_ && !deaf_; ++again) {
    host.send({0});
    deaf_ = !taken(board);
    if (deaf_) return;
    send_usual_configuration(host);
    back_ = wait_until(host, kConfigured_s, is_good);
  }
  host.take();
  const std::vector<int> version = host.ask(kGetHdVersion);
  deaf_ = !taken(board);
  if (!deaf_ && version != std::vector<int>{kHdVersionAnswer}) fault("the host gets no answer");
}

// The host's thread is known to end on these, and says so; without the shared block
// there is no service; a register device that did not open is never opened again.
bool PointRun::known_end(bool ended) const {
  const auto said = [this](const char* text) { return output_.find(text) != std::string::npos; };
  const std::string failed = shared()->outcome.failed;
  if (ended) return said("cannot map SNMP shared memory");
  if (failed.rfind("pthread_create", 0) == 0) return true;
  if (deaf_)
    return said("SPI: select error") || said("in IOCTL - LED") || said("(/dev/spislave)") ||
           said("(/dev/fpga) - for LEDs");
  return fpga_file == nullptr && said("Cannot access SPI port (/dev/fpga)\n");
}

void PointRun::run_service() {
  ServiceBench service;
  bench_ = &service.bench;
  vboard::set_trace_sink(nullptr);
  if (scenario().prepare) scenario().prepare(service.bench);
  bool done = false;
  const long before = open_files();
  service.bench.beside("host", [&] {
    Host host(vboard::board_of_process());
    if (scenario().before) scenario().before(host);
    begin_failing();
    scenario().host(host);
    end_failing(before);
    // An operation in progress holds handles of its own, an application of the
    // configuration its file: look again.
    for (int look = 0; look < 40 && spare_handles() > 0; ++look) {
      host.wait(0.5);
      count_handles(before);
    }
    if (point_.call == 0 && scenario().cause != 0 && status_vantorig != scenario().cause)
      fault("restarted for cause " + std::to_string(status_vantorig));
    judge_handles();
    recover(host);
    done = true;
    // The run is over: the next wait of anyone ends it.
    vboard::Board& board = vboard::board_of_process();
    board.clock.limit_us = board.clock.now_us;
    host.wait(1);
  });
  constexpr double kRecovery_s = 600;
  const bool ended =
      service.bench.run_for(static_cast<std::int64_t>((scenario().limit_s + kRecovery_s) * 1e6),
                            [this] { start_program(); });
  if (ended) end_failing(before);
  outcome().state = state_of(service.bench.board());
  look_for_message();
  if (back_ || known_end(ended)) return;
  if (!ended && !done) fault("not done within its time");
  const std::string differs =
      unharmed_ == nullptr ? "" : difference(unharmed_->state, outcome().state);
  fault(deaf_ ? "the host is not served any more" : "the good state did not come back: " + differs);
}

Outcome run_child(const Point& point, const Outcome* unharmed, bool loud) {
  shared()->outcome = {};
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    // What the scenario prints is its own affair.
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    if (!loud) dup2(nowhere, STDERR_FILENO);
    const rlimit limit = {kCpuLimit_s, kCpuLimit_s};
    setrlimit(RLIMIT_CPU, &limit);
    PointRun run(point, unharmed);
    run.run();
    if (loud) run.show();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Outcome outcome = shared()->outcome;
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  const auto& ends = point.scenario->ends;
  if (code > 128 && std::find(ends.begin(), ends.end(), code) == ends.end())
    say(outcome.fault, sizeof outcome.fault, "killed by signal " + std::to_string(code - 128));
  else if (code != 0 && std::find(ends.begin(), ends.end(), code) == ends.end())
    say(outcome.fault, sizeof outcome.fault, "exit status " + std::to_string(code));
  return outcome;
}

}  // namespace

void separate_worker(int job) {
  shared() = map_shared();
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  int skip = job % CPU_COUNT(&allowed);
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (!CPU_ISSET(cpu, &allowed) || skip-- > 0) continue;
    CPU_ZERO(&allowed);
    CPU_SET(cpu, &allowed);
    sched_setaffinity(0, sizeof allowed, &allowed);
    return;
  }
}

void learn_usual_state() {
  const auto usual = std::find_if(scenarios().begin(), scenarios().end(),
                                  [](const Scenario& one) { return one.name == "service_start"; });
  usual_state = run_child({&*usual}, nullptr, false).state;
}

Outcome run_unharmed(const Scenario& scenario, std::vector<SweptCall>* calls) {
  const Outcome outcome = run_child({&scenario}, nullptr, false);
  calls->assign(shared()->calls, shared()->calls + outcome.calls);
  return outcome;
}

Outcome run_point(const Point& point, const Outcome& unharmed, bool loud) {
  return run_child(point, &unharmed, loud);
}
