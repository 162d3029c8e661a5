// A configuration download, from the host's first byte to a streaming encoder.
#include <gmock/gmock.h>

#include <vector>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/service_bench.h"

namespace {

TEST(ConfigurationDownload, example_configures_the_board_and_starts_encode) {
  ServiceBench service;
  std::vector<int> status;
  service.run(90, [&](Host& host) {
    host.wait(2);
    host.send_config(example_config());
    host.wait(60);
    for (int i = 0; i < 3; ++i)
      for (const int byte : host.ask(3)) status.push_back(byte);
  });
  EXPECT_EQ(service.bench.get_file("hd.ini"), example_config());
  EXPECT_EQ(config_sys, 1);
  EXPECT_EQ(service.bench.board().encoder.launches, 1u);
  EXPECT_THAT(status, testing::ElementsAre(0x91, 0x80, 0x00));
}

}  // namespace
