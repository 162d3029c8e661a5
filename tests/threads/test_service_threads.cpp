// The three threads of the service and a host, in parallel: what virtual time, which
// runs one thread at a time, cannot show. Meant for the thread sanitizer.
#include <gmock/gmock.h>

#include <functional>

#include <pthread.h>
#include <unistd.h>

#include "app/service.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/service_bench.h"

namespace {

using vboard::Bench;
using vboard::TimeMode;

constexpr double kBoardSpeed = 40;  // a loaded machine answers in time

void* serve(void*) {
  prog602(false, true);  // the status thread as well
  return nullptr;
}

void start_service() {
  pthread_t thread = {};
  ASSERT_EQ(pthread_create(&thread, nullptr, serve, nullptr), 0);
  pthread_detach(thread);
}

// Waits, in board time that a slow machine may stretch, until `holds`.
bool until(Host& host, const std::function<bool()>& holds) {
  for (int tries = 0; tries < 2000; ++tries) {
    if (holds()) return true;
    host.wait(1);
  }
  return false;
}

// The service never ends; the test's process does, without waiting for it.
[[noreturn]] void leave(Bench& bench) {
  const bool failed = testing::Test::HasFailure();
  bench.give_back_output();
  printf(failed ? "[  FAILED  ]\n" : "[  PASSED  ] 1 test.\n");
  fflush(stdout);
  _exit(failed ? 1 : 0);
}

int status_of(Host& host) {
  const auto reply = melk::get_status(host.link);
  return reply.ok() ? reply.value->status : -1;
}

TEST(ServiceThreads, host_polls_while_the_service_configures_and_restarts) {
  static Bench* bench = new Bench(TimeMode::kScaled, kBoardSpeed);
  Host host(bench->board());
  host.link.timeout_us = 600'000'000;
  start_service();
  host.send_config(example_config());
  EXPECT_TRUE(until(host, [&] { return status_of(host) == 0x91; }));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(melk::read_record(host.link, melk::kFullRecord).ok());

  bench->world("source none");
  EXPECT_TRUE(until(host, [] { return global_monitor_state == kMonitorNoInput; }));
  bench->world("source component");
  EXPECT_TRUE(until(host, [] { return status_vantorig == 0x85; }));
  // The host keeps asking while the configuration is applied by the service.
  EXPECT_TRUE(until(host, [&] { return status_of(host) == 0x91; }));

  // And sends another one while the service supervises.
  host.send_config(example_config_with({{"AudioInput", 2}, {"vbiMode", 5}}));
  EXPECT_TRUE(until(host, [&] { return status_of(host) == 0x91; }));
  EXPECT_EQ(shared_memory->AudioInput, 2);
  EXPECT_EQ(bench->board().violations.count, 0u) << bench->board().violations.first;
  leave(*bench);
}

}  // namespace
