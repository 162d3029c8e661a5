// -rdreg and -wrreg with the real binary.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/board_run.h"

namespace {

using testing::ElementsAre;

TEST(Wrreg, then_rdreg_reads_the_value_back) {
  BoardRun board;
  EXPECT_EQ(board.vantorig("-wrreg 0x102 0x55").out,
            "wr_fpga_reg!!!!!!!!!!!!!\nWrite 0x55 to reg 0x102\n");
  EXPECT_THAT(board.trace(),
              ElementsAre("open /dev/fpga r+b", "fpga wr 0x0204 <- 0x0055", "close /dev/fpga"));
  const Result read = board.vantorig("-rdreg 0x102");
  EXPECT_EQ(read.out, "addr 0x102: 0x55\n");
  EXPECT_EQ(read.status, 0);
}

TEST(Rdreg, device_missing_prints_and_reads_zero) {
  BoardRun board;
  board.vboard("fault missing fpga");
  const Result read = board.vantorig("-rdreg 0x10");
  EXPECT_EQ(read.out, "Cannot access SPI port (/dev/fpga)\naddr 0x10: 0x0\n");
  EXPECT_EQ(read.status, 0);
}

}  // namespace
