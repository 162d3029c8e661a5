// A soak: one service, days of board time, a seeded storm of faults.
#include <CLI/CLI.hpp>
#include <cstdio>

#include <sys/wait.h>
#include <unistd.h>

#include "tests/soak/storm.h"
#include "vboard/core/real.h"

namespace {

std::vector<Reference> all_references() {
  std::vector<Reference> all;
  for (const Setting& one : settings()) all.push_back({&one, fresh_board(one)});
  all.push_back({&dsp_setting(), fresh_board(dsp_setting())});
  return all;
}

// Runs the course in a process of its own. Returns false after a failure.
bool run_apart(const Course& course, const std::vector<Reference>& references,
               std::uint64_t* digest) {
  int channel[2] = {-1, -1};
  if (pipe(channel) != 0) return false;
  fflush(course.report);
  const pid_t child = fork();
  if (child == 0) {
    bool good = false;
    {
      Storm storm(course, references);
      good = storm.run();
      const std::uint64_t mine = storm.digest();
      good &= write(channel[1], &mine, sizeof mine) == sizeof mine;
    }
    fflush(course.report);
    _exit(good ? 0 : 1);
  }
  close(channel[1]);
  const bool heard = read(channel[0], digest, sizeof *digest) == sizeof *digest;
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status))
    fprintf(course.report, "FAIL the service was killed by signal %d\n", WTERMSIG(status));
  return heard && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int soak(const Course& course, bool repeat) {
  const std::vector<Reference> references = all_references();
  for (const Reference& one : references) {
    if (one.good.healthy) continue;
    fprintf(course.report, "FAIL a fresh board with \"%s\" is not healthy\n", one.setting->name);
    return 1;
  }
  std::uint64_t digest = 0;
  if (!run_apart(course, references, &digest)) return 1;
  fprintf(course.report, "%.0f hours, seed %llu, digest %016llx\n", course.hours,
          static_cast<unsigned long long>(course.seed), static_cast<unsigned long long>(digest));
  if (!repeat) return 0;
  std::uint64_t again = 0;
  if (!run_apart(course, references, &again)) return 1;
  if (again == digest) return 0;
  fprintf(course.report, "FAIL the same seed came to digest %016llx\n",
          static_cast<unsigned long long>(again));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Lets a seeded storm of faults rage over one service for days of board time."};
  Course course;
  double days = 30;
  bool repeat = false;
  course.seed = 20261120;
  app.add_option("--days", days, "board time")->capture_default_str();
  auto* hours = app.add_option("--hours", course.hours, "board time, instead of days");
  app.add_option("--seed", course.seed, "of the storm")->capture_default_str();
  app.add_flag("--repeat", repeat, "run twice and compare, to the byte");
  app.footer("Exit status: 0 nothing was amiss, 1 something was, 2 not understood.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    constexpr int kUsage = 2;
    return app.exit(error) == 0 ? 0 : kUsage;
  }
  if (hours->empty()) course.hours = days * 24;
  course.report = fdopen(vboard::real::dup(STDOUT_FILENO), "w");
  return course.report == nullptr ? 1 : soak(course, repeat);
}
