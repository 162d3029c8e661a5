// Registers behind the capture driver's private requests.
#include "diag/capture_regs.h"

#include <gmock/gmock.h>

#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using vboard::Bench;

TEST(Ipiperw, selects_and_writes_the_register) {
  Bench bench;
  EXPECT_EQ(ipiperw(24, 0x55, 0), 0);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 0xc004562c 24",
                                         "video0 0xc004562d 85", "close /dev/video0"));
  EXPECT_EQ(bench.board().capture.ipipe[24 / 4], 0x55);
}

TEST(Ipiperw, select_only_writes_nothing) {
  Bench bench;
  EXPECT_EQ(ipiperw(24, 0x55, 1), 0);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/video0", "video0 0xc004562c 24", "close /dev/video0"));
  EXPECT_EQ(bench.board().capture.ipipe[24 / 4], 0);
}

TEST(Ipiperw, device_missing_prints_and_goes_on) {
  Bench bench;
  bench.world("fault missing video0");
  EXPECT_EQ(ipiperw(24, 0x55, 0), -1);
  EXPECT_EQ(bench.output(), "Cannot open video 0\n");
}

TEST(IsifRegUtil, read_selects_the_register_and_leaves_the_device_open) {
  Bench bench;
  isif_reg_util(1, 16, 0x77);
  EXPECT_EQ(bench.output(), "reg util for ISIF \n");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 0xc004562a 16"));
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/video0\n");
}

TEST(IsifRegUtil, write_selects_then_writes_value_first) {
  Bench bench;
  isif_reg_util(0, 16, 0x77);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/video0", "video0 0xc004562a 16", "video0 0xc004562b 119"));
  EXPECT_EQ(bench.board().capture.isif[16 / 4], 0x77);
}

TEST(IsifRegUtil, device_missing_prints_and_goes_on) {
  Bench bench;
  bench.world("fault missing video0");
  isif_reg_util(0, 16, 0x77);
  EXPECT_EQ(bench.output(), "reg util for ISIF \nCannot open video 0\n");
}

TEST(IpipeRegUtil, any_number_but_0_reads_and_the_device_is_closed) {
  Bench bench;
  ipipe_reg_util(7, 24, 0x77);
  EXPECT_EQ(bench.output(), "reg util for IPIPE \n");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/video0", "video0 0xc004562c 24", "close /dev/video0"));
}

TEST(IpipeRegUtil, write_selects_then_writes_value_first) {
  Bench bench;
  ipipe_reg_util(0, 24, 0x77);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/video0", "video0 0xc004562c 24",
                                         "video0 0xc004562d 119", "close /dev/video0"));
  EXPECT_EQ(bench.board().capture.ipipe[24 / 4], 0x77);
}

TEST(IpipeRegUtil, device_missing_prints_and_goes_on) {
  Bench bench;
  bench.world("fault missing video0");
  ipipe_reg_util(1, 24, 0);
  EXPECT_EQ(bench.output(), "reg util for IPIPE \nCannot open video 0\n");
}

}  // namespace
