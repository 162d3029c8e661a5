// A board under supervision: configured by the host, streaming, levels captured.
#pragma once

#include <functional>
#include <string>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "supervision/supervisor.h"
#include "tests/service/service_bench.h"

struct SupervisedBoard {
  ServiceBench service;
  std::string config = example_config();
  double seconds = 900;  // the run is cut off then
  bool finished = false;

  unsigned launches() { return service.bench.board().encoder.launches; }
  void world(const std::string& command) { service.bench.world(command); }

  bool healthy() const {
    return global_status == kStatusHealthy && monitor_state == kMonitorWatching &&
           status_init_flag == 2;
  }

  // Waits until it is so, or the limit is reached; looks ten times a second.
  static bool until(Host& host, double limit, const std::function<bool()>& so) {
    for (const double end = host.now() + limit; !so();) {
      if (host.now() > end) return false;
      host.wait(0.1);
    }
    return true;
  }

  // The three bytes of GET_STATUS.
  static std::vector<int> status(Host& host) {
    std::vector<int> bytes;
    for (int i = 0; i < 3; ++i)
      for (const int byte : host.ask(3)) bytes.push_back(byte);
    return bytes;
  }

  void configure(Host& host) {
    host.wait(2);
    host.send_config(config);
  }

  // Runs the service until `story` has run. It begins with a healthy board.
  void run(const std::function<void(Host&)>& story) {
    run_from_start([&](Host& host) {
      configure(host);
      EXPECT_TRUE(until(host, 100, [this] { return config_sys == 1 && healthy(); }));
      service.bench.output();
      story(host);
    });
  }
  void run_from_start(const std::function<void(Host&)>& story, int monitor_disabled = 0) {
    service.run(
        seconds,
        [&](Host& host) {
          story(host);
          finished = true;
        },
        monitor_disabled);
    EXPECT_TRUE(finished);
    EXPECT_EQ(service.bench.board().violations.count, 0u) << service.bench.board().violations.first;
  }
};
