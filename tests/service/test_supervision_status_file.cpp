// The status file of a service started with "getmon".
#include <gmock/gmock.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/service/supervision_case.h"

namespace {

using testing::StartsWith;

TEST(StatusFile, getmon_writes_it_every_25_s) {
  SupervisedBoard board;
  board.service.status_file = true;
  std::vector<double> written;
  board.run_from_start([&](Host& host) {
    const std::string path = board.service.bench.path("monitor.txt");
    for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(SupervisedBoard::until(
          host, 40, [&] { return board.service.bench.has_file("monitor.txt"); }));
      written.push_back(host.now());
      std::remove(path.c_str());
    }
  });
  ASSERT_EQ(written.size(), 3u);
  EXPECT_NEAR(written[0], 25.0, 0.2);
  EXPECT_NEAR(written[1], 50.0, 0.2);
  EXPECT_NEAR(written[2], 75.0, 0.2);
}

TEST(StatusFile, shows_what_encode_reports_and_reaches_the_host) {
  SupervisedBoard board;
  board.config = example_config_with({{"mpgVidRes", 10}, {"mpgVidRate", 8000}});
  board.world("set-standard 720p50");
  board.service.status_file = true;
  std::string fetched;
  board.run_from_start([&](Host& host) {
    board.configure(host);
    host.wait(75);
    fetched = board.service.bench.get_file("monitor.txt");
  });
  EXPECT_THAT(fetched, StartsWith("frame per sec   = 50\nVideo Bit Rate = "));
  EXPECT_THAT(fetched, testing::EndsWith("VideoStd 720P_50\n"
                                         "width           = 1280\n"
                                         "height          = 720\n"
                                         "VBR             = 0\n"));
}

TEST(StatusFile, service_without_getmon_writes_none) {
  SupervisedBoard board;
  board.run_from_start([&](Host& host) { host.wait(100); });
  EXPECT_FALSE(board.service.bench.has_file("monitor.txt"));
}

}  // namespace
