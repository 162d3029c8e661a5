// The sweep of failing calls.
//
// Counts every call of a scenario that could fail, then runs the scenario again
// with the n-th of them failing, for every n: once, from there on, and, where a
// call moves bytes, by moving fewer. After each such point the program must not
// have crashed, must be done within its time (or still serve), must have said what
// it is known to say, must not have left more handles open than it is known to,
// and, with the failures over, a configuration must bring the known-good state back.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>
#include <random>

#include "tests/sweep/lost.h"
#include "tests/sweep/run.h"

using vboard::seam::Failing;
using vboard::seam::SweptCall;

// A report of the address sanitizer is no exit status of the program's own.
extern "C" const char* __asan_default_options() { return "exitcode=99"; }

namespace {

const char* name_of(Failing how) {
  switch (how) {
    case Failing::kOnce:
      return "once";
    case Failing::kSticky:
      return "sticky";
    case Failing::kShort:
      return "short";
    case Failing::kLost:
    case Failing::kLie:
      break;  // swept by themselves
  }
  return "";
}

struct Tally {
  long points = 0;
  long failures = 0;
};

bool try_point(const Point& point, const Outcome& unharmed, bool loud) {
  const Outcome outcome = run_point(point, unharmed, loud);
  if (outcome.fault[0] == '\0') return true;
  printf("FAIL %s call %ld %s (%s): %s\n", point.scenario->name.c_str(), point.call,
         name_of(point.how), outcome.failed, outcome.fault);
  fflush(stdout);
  return false;
}

struct Choice {
  std::string scenario;  // "" for all
  long call = 0;         // 0 for all
  long sample = 0;       // points a scenario, 0 for all
  unsigned seed = 20261120;
  int jobs = 2;
  std::string kind = "fail";
};

int sweep_deceiving(const Choice& choice) {
  return sweep_lost({choice.kind == "lost" ? Failing::kLost : Failing::kLie,
                     choice.scenario.c_str(), choice.call, choice.sample, choice.seed,
                     choice.jobs});
}

// The points of a scenario with these calls: all, or a seeded sample of them.
std::vector<Point> points_of(const Scenario& scenario, const std::vector<SweptCall>& calls,
                             const Choice& choice, std::mt19937& random) {
  std::vector<Point> points;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    const long call = static_cast<long>(i) + 1;
    if (choice.call != 0 && choice.call != call) continue;
    points.push_back({&scenario, call, Failing::kOnce});
    points.push_back({&scenario, call, Failing::kSticky});
    if (calls[i].can_be_short) points.push_back({&scenario, call, Failing::kShort});
  }
  long most = choice.sample;
  if (scenario.at_most > 0 && (most == 0 || scenario.at_most < most)) most = scenario.at_most;
  if (choice.call == 0 && most > 0 && static_cast<long>(points.size()) > most) {
    std::shuffle(points.begin(), points.end(), random);
    points.resize(static_cast<std::size_t>(most));
  }
  return points;
}

// A scenario, the run of it in which nothing fails, and its points.
struct Plan {
  const Scenario* scenario;
  Outcome unharmed;
  std::vector<Point> points;
  Tally tally;
};

std::vector<Plan> plan(const Choice& choice, std::map<std::string, long>* by_call) {
  std::mt19937 random(choice.seed);
  std::vector<Plan> plans;
  for (const Scenario& scenario : scenarios()) {
    if (!choice.scenario.empty() && choice.scenario != scenario.name) continue;
    std::vector<SweptCall> calls;
    Plan one = {&scenario, run_unharmed(scenario, &calls), {}, {}};
    if (one.unharmed.fault[0] != '\0') {
      printf("FAIL %s without any failing call: %s\n", scenario.name.c_str(), one.unharmed.fault);
      ++one.tally.failures;
    }
    one.points = points_of(scenario, calls, choice, random);
    for (const Point& point : one.points)
      ++(*by_call)[calls[static_cast<std::size_t>(point.call) - 1].call];
    plans.push_back(std::move(one));
  }
  return plans;
}

// A worker's results for a scenario.
struct Report {
  std::size_t plan;
  Tally tally;
};

// Every jobs-th point, counted through all scenarios.
void work(const std::vector<Plan>& plans, int job, const Choice& choice, int channel) {
  long at = 0;
  for (std::size_t i = 0; i < plans.size(); ++i) {
    Report report = {i, {}};
    for (const Point& point : plans[i].points) {
      if (at++ % choice.jobs != job) continue;
      ++report.tally.points;
      if (!try_point(point, plans[i].unharmed, choice.call != 0)) ++report.tally.failures;
    }
    if (write(channel, &report, sizeof report) != sizeof report) _exit(99);
  }
}

void run(std::vector<Plan>& plans, const Choice& choice) {
  int channel[2] = {-1, -1};
  if (pipe(channel) != 0) return;
  fflush(stdout);
  for (int job = 0; job < choice.jobs; ++job) {
    if (fork() != 0) continue;
    separate_worker(job);
    work(plans, job, choice, channel[1]);
    _exit(0);
  }
  close(channel[1]);
  for (Report report; read(channel[0], &report, sizeof report) == sizeof report;) {
    plans[report.plan].tally.points += report.tally.points;
    plans[report.plan].tally.failures += report.tally.failures;
  }
  close(channel[0]);
  while (wait(nullptr) > 0) {
  }
}

const CLI::Validator kScenario(
    [](const std::string& name) {
      if (std::ranges::find(scenarios(), name, &Scenario::name) != scenarios().end())
        return std::string();
      std::string text = "'" + name + "' is no scenario; there are";
      for (const Scenario& one : scenarios()) text += " " + one.name;
      return text;
    },
    "NAME");

double cpu_seconds() {
  rusage used = {};
  getrusage(RUSAGE_CHILDREN, &used);
  return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
         static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
}

int sweep(const Choice& choice) {
  learn_usual_state();
  std::map<std::string, long> by_call;
  std::vector<Plan> plans = plan(choice, &by_call);
  run(plans, choice);
  Tally all;
  for (Plan& one : plans) {
    const long missed = static_cast<long>(one.points.size()) - one.tally.points;
    if (missed != 0) ++one.tally.failures;  // a worker died
    printf("%-32s %7ld calls %6ld points %4ld failures\n", one.scenario->name.c_str(),
           one.unharmed.calls, one.tally.points, one.tally.failures);
    all.points += one.tally.points;
    all.failures += one.tally.failures;
  }
  printf("\npoints by call:");
  for (const auto& [call, points] : by_call) printf(" %s %ld", call.c_str(), points);
  printf("\n%zu scenarios, %ld points, %ld failures, %.0f s of processor time\n", plans.size(),
         all.points, all.failures, cpu_seconds());
  if (all.points == 0) fprintf(stderr, "There is no such call.\n");
  return all.failures == 0 && all.points > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Makes every call that can fail do so, one at a time, and looks at what follows."};
  Choice choice;
  app.footer("Exit status: 0 no failure, 1 a failure, 2 not understood.");
  app.add_option("--scenario", choice.scenario, "only this one")->check(kScenario);
  app.add_option("--point", choice.call, "only this call of it");
  app.add_option("--sample", choice.sample, "at most this many points a scenario");
  app.add_option("--seed", choice.seed, "of the sample")->capture_default_str();
  app.add_option("--jobs", choice.jobs, "processes side by side")
      ->capture_default_str()
      ->check(CLI::Range(1, 64));
  app.add_option("--kind", choice.kind,
                 "fail: calls fail; lost: writes do nothing; lie: reads bring another value")
      ->capture_default_str()
      ->check(CLI::IsMember({"fail", "lost", "lie"}));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    constexpr int kUsage = 2;
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  return choice.kind == "fail" ? sweep(choice) : sweep_deceiving(choice);
}
