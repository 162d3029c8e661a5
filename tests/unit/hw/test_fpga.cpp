// FPGA register access, the reset sequence and the line reader.
#include "hw/fpga.h"

#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using vboard::Bench;

TEST(OpenFpgaDev, fresh_board_reset_sequence_in_order) {
  Bench bench;
  SharedBlock& block = bench.attach_block();

  EXPECT_EQ(open_fpga_dev(), 0);

  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/fpga r+b", "wait 10000", "fpga wr 0x0004 <- 0x0001",
                          "fpga wr 0x0008 <- 0x0001", "fpga wr 0x0010 <- 0x0000",
                          "fpga wr 0x0224 <- 0x0000", "fpga wr 0x132c <- 0x0000", "wait 1000000",
                          "fpga wr 0x0004 <- 0x0000", "wait 10000", "fpga wr 0x1328 <- 0x0006"));
  EXPECT_EQ(bench.output(), "Reset FPGA\n   after Reset FPGA\n");
  EXPECT_EQ(block.do_fpga_restart, 1);
}

TEST(OpenFpgaDev, device_missing_prints_and_leaves_the_block_alone) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  bench.world("fault missing fpga");

  EXPECT_EQ(open_fpga_dev(), -1);

  EXPECT_EQ(bench.output(), "Cannot access SPI port (/dev/fpga)\n");
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(block.bufferconst, 0);
}

}  // namespace
