// The sweep of failing calls.
//
// Counts every call of a scenario that could fail, then runs the scenario again
// with the n-th of them failing, for every n: once, and from there on. After each
// such point the program must not have crashed, must be done within its time (or
// still serve), must not have left more handles open than it is known to, and,
// with the failures over, a configuration must bring the known-good state back.
#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <random>

#include "app/command_line.h"
#include "hw/fpga_registers.h"
#include "state/service_flags.h"
#include "tests/sweep/scenarios.h"

using vboard::Bench;
namespace seam = vboard::seam;

namespace {

struct Point {
  const Scenario* scenario;
  long call;
  bool sticky;
};

enum Verdict : int {
  kGood = 0,
  kUnbounded = 40,
  kHandles = 41,
  kNotBack = 42,
};

struct Outcome {
  int status = 0;  // exit status, or 128 + signal
  long calls = 0;
  int handles = 0;
  char failed[96] = {};
};

int open_files() {
  int count = 0;
  DIR* directory = opendir("/proc/self/fd");
  while (directory != nullptr && readdir(directory) != nullptr) ++count;
  if (directory != nullptr) closedir(directory);
  return count;
}

// ---- a point, in a process of its own ------------------------------------------

// Registers that a configuration sets, and what they hold on a good board.
bool known_good(const Bench& bench) {
  static constexpr struct {
    int address;
    int value;
  } kGoodValues[] = {
      {kRegFramePeriod, 14400},  {kRegPidVideo, 256},      {kRegPidAudio, 257},
      {kRegPidPcr, 256},         {kRegVideoCodec3, 44640}, {kRegOutputInterval, 13651},
      {kRegAc3FrameBytes, 1536}, {kRegSampleRate, 2880},   {kRegControl, 6}};
  return std::all_of(std::begin(kGoodValues), std::end(kGoodValues),
                     [&bench](const auto& one) { return bench.fpga(one.address) == one.value; });
}

// The host's thread is known to end, and says why, or was never made; and a
// register device that did not open at the start is never opened again.
bool known_end(const std::string& output, const std::string& failed) {
  for (const char* text : {"SPI: select error", "in IOCTL - LED", "(/dev/spislave)", "for LEDs",
                           "cannot map SNMP", "Cannot access SPI port (/dev/fpga)\n"})
    if (output.find(text) != std::string::npos) return true;
  return failed.rfind("pthread_create", 0) == 0;
}

// Two configurations: the first after a start finds the digital audio not yet
// enabled.
void recover(Host& host) {
  seam::stop_sweep();
  host.wait(60);
  host.take();
  for (int again = 0; again < 2; ++again) {
    host.send_config(example_config());
    host.wait(60);
  }
}

int run_service(const Scenario& scenario, const Point& point, Outcome* outcome) {
  ServiceBench service;
  if (scenario.prepare) scenario.prepare(service.bench);
  int handles = 0;
  bool served = false;
  const int before = open_files();
  service.run(scenario.limit_s + 400, [&](Host& host) {
    if (scenario.before) scenario.before(host);
    seam::start_sweep(point.call, point.sticky);
    scenario.host(host);
    outcome->calls = seam::sweep_calls();
    handles = open_files() - before;
    recover(host);
    served = true;
    host.wait(300);
  });
  outcome->handles = handles;
  const std::string failed = seam::sweep_failed_call();
  snprintf(outcome->failed, sizeof outcome->failed, "%s", failed.c_str());
  const std::string output = service.bench.output();
  const bool back = global_status == kStatusHealthy && known_good(service.bench) &&
                    service.bench.board().encoder.streaming;
  if (back || known_end(output, failed)) return kGood;
  return served ? kNotBack : kUnbounded;
}

int run_command(const Scenario& scenario, const Point& point, Outcome* outcome) {
  Bench bench;
  if (scenario.prepare) scenario.prepare(bench);
  std::vector<std::string> words = {"vantorig"};
  words.insert(words.end(), scenario.arguments.begin(), scenario.arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const int before = open_files();
  seam::start_sweep(point.call, point.sticky);
  const bool ended = bench.run_for(static_cast<std::int64_t>(scenario.limit_s * 1e6), [&] {
    run_command_line(static_cast<int>(words.size()), argv.data());
  });
  outcome->calls = seam::sweep_calls();
  outcome->handles = open_files() - before;
  snprintf(outcome->failed, sizeof outcome->failed, "%s", seam::sweep_failed_call().c_str());
  seam::stop_sweep();
  return ended || scenario.endless ? kGood : kUnbounded;
}

Outcome run_point(const Point& point) {
  int channel[2] = {-1, -1};
  Outcome outcome;
  if (pipe(channel) != 0) return outcome;
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    // What the scenario prints is its own affair; only the verdict counts.
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    const Scenario& scenario = *point.scenario;
    const int verdict = scenario.host ? run_service(scenario, point, &outcome)
                                      : run_command(scenario, point, &outcome);
    if (write(channel[1], &outcome, sizeof outcome) != sizeof outcome) _exit(99);
    _exit(verdict);
  }
  close(channel[1]);
  Outcome told;
  if (read(channel[0], &told, sizeof told) == sizeof told) outcome = told;
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

// ---- all points ---------------------------------------------------------------------

std::string judge(const Point& point, const Outcome& outcome, int usual_handles) {
  if (outcome.status > 128) return "killed by signal " + std::to_string(outcome.status - 128);
  if (outcome.status == kUnbounded) return "not done within its time";
  if (outcome.status == kNotBack) return "the good state did not come back";
  const bool own_exit = point.scenario->may_exit && outcome.status >= 1 && outcome.status <= 3;
  if (outcome.status != kGood && !own_exit) return "exit status " + std::to_string(outcome.status);
  if (outcome.handles > usual_handles + point.scenario->extra_handles)
    return std::to_string(outcome.handles) + " handles left open, usually " +
           std::to_string(usual_handles);
  return "";
}

struct Tally {
  long points = 0;
  long failures = 0;
};

void try_point(const Point& point, int usual_handles, Tally* tally) {
  const Outcome outcome = run_point(point);
  ++tally->points;
  const std::string fault = judge(point, outcome, usual_handles);
  if (fault.empty()) return;
  ++tally->failures;
  printf("FAIL %s call %ld%s (%s): %s\n", point.scenario->name.c_str(), point.call,
         point.sticky ? " sticky" : "", outcome.failed, fault.c_str());
  fflush(stdout);
}

// Runs the points in `jobs` processes side by side.
Tally try_points(const std::vector<Point>& points, int usual_handles, int jobs) {
  int channel[2] = {-1, -1};
  Tally sum;
  if (pipe(channel) != 0) return sum;
  fflush(stdout);
  for (int job = 0; job < jobs; ++job) {
    if (fork() != 0) continue;
    Tally mine;
    for (std::size_t at = static_cast<std::size_t>(job); at < points.size();
         at += static_cast<std::size_t>(jobs))
      try_point(points[at], usual_handles, &mine);
    _exit(write(channel[1], &mine, sizeof mine) == sizeof mine ? 0 : 99);
  }
  close(channel[1]);
  for (Tally one; read(channel[0], &one, sizeof one) == sizeof one;) {
    sum.points += one.points;
    sum.failures += one.failures;
  }
  close(channel[0]);
  while (wait(nullptr) > 0) {
  }
  if (sum.points != static_cast<long>(points.size())) ++sum.failures;  // a worker died
  return sum;
}

struct Choice {
  std::string scenario;  // "" for all
  long call = 0;         // 0 for all
  long sample = 0;       // points a scenario, 0 for all
  unsigned seed = 20261120;
  int jobs = 2;
};

// The points of a scenario with `calls` calls: all, or a seeded sample of them.
std::vector<Point> points_of(const Scenario& scenario, long calls, const Choice& choice,
                             std::mt19937& random) {
  std::vector<Point> points;
  for (long call = 1; call <= calls; ++call)
    for (const bool sticky : {false, true})
      if (choice.call == 0 || choice.call == call) points.push_back({&scenario, call, sticky});
  if (choice.sample > 0 && static_cast<long>(points.size()) > choice.sample) {
    std::shuffle(points.begin(), points.end(), random);
    points.resize(static_cast<std::size_t>(choice.sample));
  }
  return points;
}

int sweep(const Choice& choice) {
  std::mt19937 random(choice.seed);
  Tally all;
  for (const Scenario& scenario : scenarios()) {
    if (!choice.scenario.empty() && choice.scenario != scenario.name) continue;
    const Outcome usual = run_point({&scenario, 0, false});
    Tally here;
    if (const std::string fault = judge({&scenario, 0, false}, usual, usual.handles);
        !fault.empty()) {
      printf("FAIL %s without any failing call: %s\n", scenario.name.c_str(), fault.c_str());
      ++here.failures;
    }
    const Tally tried =
        try_points(points_of(scenario, usual.calls, choice, random), usual.handles, choice.jobs);
    here.points += tried.points;
    here.failures += tried.failures;
    printf("%-24s %5ld calls %6ld points %4ld failures\n", scenario.name.c_str(), usual.calls,
           here.points, here.failures);
    fflush(stdout);
    all.points += here.points;
    all.failures += here.failures;
  }
  printf("%ld points, %ld failures\n", all.points, all.failures);
  return all.failures == 0 && all.points > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Makes every call that can fail do so, one at a time, and looks at what follows."};
  Choice choice;
  app.add_option("--scenario", choice.scenario, "only this one");
  app.add_option("--point", choice.call, "only this call of it");
  app.add_option("--sample", choice.sample, "at most this many points a scenario");
  app.add_option("--seed", choice.seed, "of the sample")->capture_default_str();
  app.add_option("--jobs", choice.jobs, "processes side by side")
      ->capture_default_str()
      ->check(CLI::Range(1, 64));
  CLI11_PARSE(app, argc, argv);
  return sweep(choice);
}
