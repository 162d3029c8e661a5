// Runs a set-up once unharmed and once for each of its writes with that write lost
// (or each of its reads with another value), each in a process of its own, and asks
// who noticed: the board, by what it lacks, by a violation or by another stream; the
// program, by what it prints; the host, by what it is told.
//
// No golden traffic is looked at. A write without which every device ends in the
// same state has configured nothing: it stood there already, or is written again.
#include "tests/sweep/lost.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "diag/dix4192_bench.h"
#include "hw/fpga_registers.h"
#include "state/service_flags.h"
#include "tests/service/service_bench.h"
#include "tests/sweep/unnoticed.h"
#include "vboard/core/trace.h"
#include "vboard/models/needs.h"
#include "vboard/models/stream.h"

using vboard::Bench;
using vboard::Board;
using vboard::Effect;
using vboard::seam::Failing;
using vboard::seam::SweptCall;
namespace seam = vboard::seam;

namespace {

constexpr double kGoal = 0.95;
constexpr double kStart_s = 2;
constexpr double kApplied_s = 60;
constexpr double kStreams_s = 5;   // behind the application
constexpr double kNoticed_s = 60;  // for the supervision
constexpr rlim_t kCpuLimit_s = 120;

// ---- what is set up ------------------------------------------------------------------

struct SetUp {
  const char* name;
  const char* file;                   // under packaging/; null: no configuration
  std::vector<const char*> world;     // the sources that it is for
  const char* before_file = nullptr;  // what the board ran before, and its world
  std::vector<const char*> before_world = {};
  std::function<void()> command = nullptr;  // a bench command instead of the service
};

const std::vector<SetUp>& set_ups() {
  static const std::vector<SetUp> all = {
      {"start", nullptr, {}},
      {"hd", "hd.ini", {}},
      {"demo", "demo.ini", {"audio dsp"}},
      {"component", "examples/component.ini", {"set-standard 1080p24"}},
      {"vga", "examples/vga.ini", {"source vga"}},
      {"composite", "examples/composite.ini", {"source composite", "captions on"}},
      {"digital_audio", "examples/digital-audio.ini", {}},
      {"dsp_audio", "examples/dsp-audio.ini", {"audio dsp"}},
      {"hd_after_composite",
       "hd.ini",
       {"source component"},
       "examples/composite.ini",
       {"source composite", "captions on"}},
      {"hd_after_vga", "hd.ini", {"source component"}, "examples/vga.ini", {"source vga"}},
      {"vga_after_component",
       "examples/vga.ini",
       {"source vga"},
       "examples/component.ini",
       {"set-standard 1080p24"}},
      {"hd_after_dsp", "hd.ini", {"audio digital"}, "examples/dsp-audio.ini", {"audio dsp"}},
      {"receiver", nullptr, {"power-cycle"}, nullptr, {}, prog4192},
  };
  return all;
}

std::string text_of(const char* file) {
  std::ifstream stream(std::string(SOURCE_DIRECTORY "/packaging/") + file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// ---- what a run leaves -----------------------------------------------------------------

constexpr std::size_t kMostCalls = 200'000;

struct Seen {
  char board[6000];      // lacks, violations, stream
  char host[200];        // what the host was told
  std::uint64_t output;  // of the program, as a number
  std::uint64_t state;   // of the devices, as a number
  char subject[100];     // the write that was lost
  long calls;
  bool ended;
};
struct Shared {
  Seen seen;
  SweptCall calls[kMostCalls];
};
Shared* shared = nullptr;

std::uint64_t number_of(const void* data, std::size_t size, std::uint64_t from) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  for (std::size_t i = 0; i < size; ++i) from = (from ^ bytes[i]) * 0x100000001B3;
  return from;
}
constexpr std::uint64_t kNumberStart = 0xCBF29CE484222325;

// Everything that a device was told and keeps. The decoder's standard register holds
// the low byte of an address, any of them.
std::uint64_t state_of(const Board& board) {
  constexpr int kDecoderStandard = 0x28;
  std::uint64_t state = kNumberStart;
  const auto add = [&state](const auto& one) { state = number_of(&one, sizeof one, state); };
  for (const FpgaRegister& one : kFpgaRegisters)
    if (keeps_its_value(one)) add(board.fpga.reg[one.address / 2]);
  add(board.fpga.in_reset);
  add(board.fpga.was_reset);
  add(board.fpga.front_end);
  add(board.tvp7002.reg);
  add(board.tvp7002.in_reset);
  std::uint8_t decoder[256];
  std::copy(std::begin(board.tvp5150.reg), std::end(board.tvp5150.reg), decoder);
  decoder[kDecoderStandard] = 0;
  add(decoder);
  add(board.tvp5150.in_reset);
  add(board.tvp5150.vbi_ram);
  add(board.dix4192.reg);
  add(board.dix4192.in_reset);
  add(board.dsp.configure);
  add(board.dsp.codec);
  add(board.dsp.running);
  add(board.dsp.in_reset);
  add(board.capture.input);
  add(board.chip7353.reg);
  add(board.clock_55.reg);
  add(board.pll.last);
  return state;
}

void say(char* place, std::size_t size, const std::string& text) {
  snprintf(place, size, "%s", text.c_str());
}

// The board's opinion and its state at this moment.
void look_at_board(Board& board) {
  std::string words;
  for (const std::string& line : vboard::stream_text(board)) words += line + "\n";
  words += "sampled in step " + std::to_string(vboard::stream_of(board).video.bandwidth) + "\n";
  for (const std::string& line : vboard::lacking(board).others) words += line + "\n";
  words += std::to_string(board.violations.count) + " violations\n";
  say(shared->seen.board, sizeof shared->seen.board, words);
  shared->seen.state = state_of(board);
}

// ---- one run -----------------------------------------------------------------------------

bool until(Host& host, double limit_s, const std::function<bool()>& so) {
  for (const double end = host.now() + limit_s; !so();) {
    if (host.now() > end) return false;
    host.wait(0.1);
  }
  return true;
}

std::string told(Host& host) {
  std::string text;
  for (int i = 0; i < 3; ++i)
    for (const int byte : host.ask(3)) text += std::to_string(byte) + " ";
  return text;
}

bool applied() { return config_sys == 1 && SystemOnUpdate == 0; }

void take_calls() {
  const auto& calls = seam::swept_calls();
  shared->seen.calls = static_cast<long>(std::min(calls.size(), kMostCalls));
  std::copy_n(calls.begin(), static_cast<std::size_t>(shared->seen.calls), shared->calls);
  say(shared->seen.subject, sizeof shared->seen.subject, seam::sweep_failed_call());
}

void run_command(const SetUp& set_up, const LostChoice& choice, long call) {
  Bench bench;
  vboard::set_trace_sink(nullptr);
  for (const char* one : set_up.world) bench.world(one);
  seam::start_sweep(call, choice.how);
  set_up.command();
  take_calls();
  seam::stop_sweep();
  look_at_board(bench.board());
  const std::string output = bench.output();
  shared->seen.output = number_of(output.data(), output.size(), kNumberStart);
}

void tell_service(Host& host, const SetUp& set_up, const LostChoice& choice, long call) {
  Board& board = vboard::board_of_process();
  if (set_up.before_file != nullptr) {
    for (const char* one : set_up.before_world) host.world(one);
    host.send_config(text_of(set_up.before_file));
    until(host, kApplied_s, applied);
    host.wait(kStreams_s);
  }
  for (const char* one : set_up.world) host.world(one);
  if (set_up.file != nullptr) {
    seam::start_sweep(call, choice.how);
    host.send_config(text_of(set_up.file));
    until(host, kApplied_s, [] { return !applied(); });
    until(host, kApplied_s, applied);
  }
  take_calls();
  seam::stop_sweep();
  host.wait(kStreams_s);
  look_at_board(board);
  std::string answers = told(host);
  host.wait(kNoticed_s);
  answers += told(host) + std::to_string(board.encoder.launches);
  say(shared->seen.host, sizeof shared->seen.host, answers);
}

void run_service(const SetUp& set_up, const LostChoice& choice, long call) {
  ServiceBench service;
  vboard::set_trace_sink(nullptr);
  if (set_up.file == nullptr) seam::start_sweep(call, choice.how);
  service.run(600, [&](Host& host) {
    host.wait(kStart_s);
    tell_service(host, set_up, choice, call);
    Board& board = vboard::board_of_process();
    board.clock.limit_us = board.clock.now_us;
    host.wait(1);
  });
  const std::string output = service.bench.output();
  shared->seen.output = number_of(output.data(), output.size(), kNumberStart);
}

Seen run(const SetUp& set_up, const LostChoice& choice, long call) {
  shared->seen = {};
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    const rlimit limit = {kCpuLimit_s, kCpuLimit_s};
    setrlimit(RLIMIT_CPU, &limit);
    set_up.command ? run_command(set_up, choice, call) : run_service(set_up, choice, call);
    shared->seen.ended = true;
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return shared->seen;
}

// ---- the verdict ----------------------------------------------------------------------------

enum class By { kBoard, kProgram, kHost, kNoOne, kNothing };
constexpr int kKinds = 5;

By noticed_by(const Seen& unharmed, const Seen& harmed, Failing how) {
  if (strcmp(unharmed.board, harmed.board) != 0) return By::kBoard;
  if (how == Failing::kLost && unharmed.state == harmed.state) return By::kNothing;
  if (unharmed.output != harmed.output) return By::kProgram;
  if (strcmp(unharmed.host, harmed.host) != 0) return By::kHost;
  return how == Failing::kLie && unharmed.state == harmed.state ? By::kNothing : By::kNoOne;
}

struct Tally {
  long by[kKinds] = {};
  long failures = 0;

  double share() const {
    return configuring() == 0 ? 0
                              : static_cast<double>(by[static_cast<int>(By::kBoard)]) /
                                    static_cast<double>(configuring());
  }

  long& of(By by_whom) { return by[static_cast<int>(by_whom)]; }
  long all() const {
    long sum = 0;
    for (const long one : by) sum += one;
    return sum;
  }
  long configuring() const { return all() - by[static_cast<int>(By::kNothing)]; }
  void add(const Tally& other) {
    for (int i = 0; i < kKinds; ++i) by[i] += other.by[i];
    failures += other.failures;
  }
};

void print_tally(const char* name, const Tally& tally) {
  printf("%-20s %6ld %11ld %7ld %9ld %6ld %7ld\n", name, tally.all(), tally.configuring(),
         tally.by[0], tally.by[1], tally.by[2], tally.by[3]);
}

std::vector<long> points_of(const std::vector<SweptCall>& calls, const LostChoice& choice,
                            std::mt19937& random) {
  const Effect wanted = choice.how == Failing::kLost ? Effect::kWrite : Effect::kRead;
  std::vector<long> points;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const long call = static_cast<long>(i) + 1;
    if (calls[i].effect == wanted && (choice.call == 0 || choice.call == call))
      points.push_back(call);
  }
  if (choice.sample > 0 && static_cast<long>(points.size()) > choice.sample) {
    std::shuffle(points.begin(), points.end(), random);
    points.resize(static_cast<std::size_t>(choice.sample));
  }
  return points;
}

void judge(const SetUp& set_up, const LostChoice& choice, long call, const Seen& unharmed,
           Tally& tally) {
  const Seen harmed = run(set_up, choice, call);
  if (!harmed.ended) {
    printf("FAIL %s call %ld %s: the program did not come to the end\n", set_up.name, call,
           harmed.subject);
    ++tally.failures;
    return;
  }
  const By by_whom = noticed_by(unharmed, harmed, choice.how);
  ++tally.of(by_whom);
  if (choice.call != 0) printf("unharmed:\n%s\nharmed:\n%s\n", unharmed.board, harmed.board);
  if (choice.how != Failing::kLost || by_whom == By::kBoard || by_whom == By::kNothing) return;
  const char* const reason = reason_unnoticed(set_up.name, harmed.subject);
  static constexpr const char* kWho[] = {"", "the program alone", "the host alone", "no one", ""};
  printf("%s %s call %ld, %s: noticed by %s: %s\n", reason == nullptr ? "FAIL" : "    ",
         set_up.name, call, harmed.subject, kWho[static_cast<int>(by_whom)],
         reason == nullptr ? "no reason is known" : reason);
  if (reason == nullptr) ++tally.failures;
}

Tally sweep_set_up(const SetUp& set_up, const LostChoice& choice, std::mt19937& random) {
  Tally tally;
  const Seen unharmed = run(set_up, choice, 0);
  const std::vector<SweptCall> calls(shared->calls, shared->calls + unharmed.calls);
  if (!unharmed.ended || unharmed.calls == 0) {
    printf("FAIL %s does not come to its end unharmed\n", set_up.name);
    ++tally.failures;
    return tally;
  }
  for (const long call : points_of(calls, choice, random))
    judge(set_up, choice, call, unharmed, tally);
  print_tally(set_up.name, tally);
  fflush(stdout);
  return tally;
}

// Boards fresh from power-on, and all others.
struct Tallies {
  Tally fresh;
  Tally other;
};
bool is_fresh(const SetUp& set_up) { return set_up.before_file == nullptr && !set_up.command; }

// Each job takes every jobs-th set-up.
Tallies work(const LostChoice& choice, int job) {
  Tallies all;
  std::mt19937 random(choice.seed);
  int at = 0;
  for (const SetUp& set_up : set_ups()) {
    if (choice.scenario[0] != '\0' && strcmp(choice.scenario, set_up.name) != 0) continue;
    if (at++ % choice.jobs != job) continue;
    (is_fresh(set_up) ? all.fresh : all.other).add(sweep_set_up(set_up, choice, random));
  }
  return all;
}

Shared* map_shared() {
  return static_cast<Shared*>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                   MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
}

}  // namespace

int sweep_lost(const LostChoice& choice) {
  const bool writes = choice.how == Failing::kLost;
  printf("%-20s %6s %11s %7s %9s %6s %7s\n", "", writes ? "writes" : "reads", "that matter",
         "board", "program", "host", "no one");
  int channel[2] = {-1, -1};
  if (pipe(channel) != 0) return 1;
  fflush(stdout);
  for (int job = 0; job < choice.jobs; ++job) {
    if (fork() != 0) continue;
    shared = map_shared();
    const Tallies tally = work(choice, job);
    fflush(stdout);
    _exit(write(channel[1], &tally, sizeof tally) == sizeof tally ? 0 : 99);
  }
  close(channel[1]);
  Tallies all;
  int reports = 0;
  for (Tallies one; read(channel[0], &one, sizeof one) == sizeof one; ++reports) {
    all.fresh.add(one.fresh);
    all.other.add(one.other);
  }
  close(channel[0]);
  while (wait(nullptr) > 0) {
  }
  print_tally("fresh boards", all.fresh);
  print_tally("others", all.other);
  const auto tell = [](const char* name, const Tally& tally) {
    printf("%s: %.1f %% of those that matter are noticed by the board\n", name,
           100 * tally.share());
  };
  tell("fresh boards", all.fresh);
  tell("others", all.other);
  const bool reached =
      !writes || choice.call != 0 || all.fresh.all() == 0 || all.fresh.share() >= kGoal;
  const long failures = all.fresh.failures + all.other.failures;
  return reports == choice.jobs && failures == 0 && all.fresh.all() + all.other.all() > 0 && reached
             ? 0
             : 1;
}
