// Times the workloads with Google Benchmark, or runs one a given number of times
// under a counter of system calls.
//
//   workloads --calls NAME TIMES
//   workloads --benchmark_out=FILE --benchmark_out_format=json ...
//
// The product's output goes to /dev/null, one write per line as on the board.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tests/bench/seam.h"
#include "tests/bench/workload.h"
#include "vboard/core/real.h"

namespace bench {

void give_up(const std::string& why) {
  fprintf(stderr, "bench: %s\n", why.c_str());
  _exit(1);
}

}  // namespace bench

namespace {

using bench::Workload;

constexpr int kTransferBytes = 16384;
constexpr int kLookupLines[] = {40, 400, 4000};

std::vector<Workload> all_workloads() {
  std::vector<Workload> all = bench::apply_workloads();
  const auto add = [&all](std::vector<Workload> more) {
    for (Workload& one : more) all.push_back(std::move(one));
  };
  add(bench::transfer_workloads(kTransferBytes));
  for (const int lines : kLookupLines) add(bench::lookup_workloads(lines));
  return all;
}

void settle(const Workload& one) {
  if (one.settle) one.settle();
}

void measure(benchmark::State& state, const Workload& one) {
  for ([[maybe_unused]] auto each : state) {
    one.run();
    if (!one.settle) continue;
    state.PauseTiming();
    one.settle();
    state.ResumeTiming();
  }
}

int run_for_counter(const std::vector<Workload>& all, const char* name, int times) {
  for (const Workload& one : all) {
    if (one.name != name) continue;
    for (int i = 0; i < times; ++i) {
      one.run();
      settle(one);
    }
    return 0;
  }
  bench::give_up(std::string("no workload ") + name);
}

void silence_output() {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const int nowhere = vboard::real::open("/dev/null", O_WRONLY);
  vboard::real::dup2(nowhere, STDOUT_FILENO);
  vboard::real::close(nowhere);
}

}  // namespace

int main(int argc, char** argv) {
  std::string name = std::filesystem::temp_directory_path() / "vantorig-bench-XXXXXX";
  bench::use_home(mkdtemp(name.data()));
  silence_output();
  const std::vector<Workload> all = all_workloads();
  int status = 0;
  if (argc == 4 && strcmp(argv[1], "--calls") == 0) {
    status = run_for_counter(all, argv[2], atoi(argv[3]));
  } else {
    for (const Workload& one : all)
      benchmark::RegisterBenchmark(one.name.c_str(),
                                   [&one](benchmark::State& state) { measure(state, one); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
  }
  std::filesystem::remove_all(bench::home());
  return status;
}
