// The PLL port, the clock blocks, the generic read and the 7353.
#include "diag/board_clocks.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string>

#include "tests/support/i2c_lines.h"
#include "vboard/testing/bench.h"

namespace {

using i2c_lines::Lines;
using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;

constexpr char kNoBus[] = "Cannot access I2C device1 \n";

class BoardClocks : public testing::Test {
 protected:
  void expect_no_violation() {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }
  Bench bench;
};

// ---- progPll ------------------------------------------------------------------

using ProgPll = BoardClocks;

TEST_F(ProgPll, sends_two_bytes_and_reads_two_back) {
  std::uint8_t buf[] = {0x70, 0xF0, 0xEE};
  EXPECT_EQ(progPll(buf), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/fpga2 r+b", "pll wr 70 f0", "pll rd 70 f0",
                                         "close /dev/fpga2"));
  EXPECT_THAT(buf, ElementsAre(0x70, 0xF0, 0xEE));
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(bench.board().pll.transfers, 1u);
  expect_no_violation();
}

TEST_F(ProgPll, bytes_read_back_replace_those_sent) {
  bench.board().pll.last[0] = 0x12;
  bench.board().pll.last[1] = 0x34;
  vboard::seam::fail_call("fwrite", "", 0, 1, EIO);  // nothing new goes in
  std::uint8_t buf[] = {0x70, 0x00};
  EXPECT_EQ(progPll(buf), 0);
  EXPECT_THAT(buf, ElementsAre(0x12, 0x34));
}

TEST_F(ProgPll, short_write_is_reported_and_the_read_follows) {
  vboard::seam::fail_call("fwrite", "", 0, 1, EIO);
  std::uint8_t buf[] = {0x70, 0x00};
  EXPECT_EQ(progPll(buf), 0);
  EXPECT_EQ(bench.output(), "Failed to write 2 (wrote 0,  total 0)\n");
  EXPECT_THAT(bench.trace({"open", "pll", "close"}),
              ElementsAre("open /dev/fpga2 r+b", "pll rd 00 00", "close /dev/fpga2"));
}

TEST_F(ProgPll, failed_read_leaves_the_bytes) {
  vboard::seam::fail_call("fread", "", 0, 1, EIO);
  std::uint8_t buf[] = {0x70, 0xF0};
  EXPECT_EQ(progPll(buf), 0);
  EXPECT_THAT(buf, ElementsAre(0x70, 0xF0));
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST_F(ProgPll, missing_device_is_1_each_time) {
  bench.world("fault missing fpga2");
  std::uint8_t buf[] = {0x70, 0x00};
  EXPECT_EQ(progPll(buf), 1);
  EXPECT_EQ(progPll(buf), 1);
  EXPECT_EQ(bench.output(),
            "Cannot access SPI port (/dev/fpga2)\nCannot access SPI port (/dev/fpga2)\n");
  EXPECT_THAT(buf, ElementsAre(0x70, 0x00));
}

// ---- prog_blk, prog_aablk ----------------------------------------------------------

using ProgBlk = BoardClocks;

TEST_F(ProgBlk, writes_one_byte_without_a_register) {
  EXPECT_EQ(prog_blk(), 0);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", "i2c 1c wr 02", "wait 1000000", "close /dev/i2c-1"));
  EXPECT_EQ(bench.output(), "Y prog_blk\nrc = 0\n");
}

TEST_F(ProgBlk, failed_write_is_not_what_it_prints) {
  bench.world("fault i2c-fail 1c");
  EXPECT_EQ(prog_blk(), 0);
  EXPECT_EQ(bench.output(), "Y prog_blk\nrc = 0\n");
  EXPECT_THAT(bench.trace({"i2c"}), ElementsAre("i2c 1c wr 02 = EREMOTEIO"));
}

TEST_F(ProgBlk, bus_missing_is_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(prog_blk(), 1);
  EXPECT_EQ(bench.output(), std::string("Y prog_blk\n") + kNoBus);
  EXPECT_THAT(bench.trace({"wait", "i2c"}), IsEmpty());
}

using ProgAablk = BoardClocks;

TEST_F(ProgAablk, writes_for_ever) {
  EXPECT_FALSE(bench.run_for(20'000'000, [] { prog_aablk(); }));

  const Lines lines = bench.trace();
  ASSERT_GT(lines.size(), 2u * 10000);  // more than ten thousand rounds in 20 s
  EXPECT_EQ(lines[0], "open /dev/i2c-1");
  for (std::size_t i = 1; i < lines.size(); ++i)
    ASSERT_EQ(lines[i], i % 2 == 1 ? "i2c 55 wr 63 63" : "wait 1000") << i;
  const Lines printed = vboard::lines(bench.output());
  ASSERT_GT(printed.size(), 10000u);
  EXPECT_EQ(std::count(printed.begin(), printed.end(), "i2c_writebyte AA blk "),
            static_cast<std::ptrdiff_t>(printed.size()));
  expect_no_violation();
}

TEST_F(ProgAablk, failed_writes_do_not_end_it) {
  bench.world("fault i2c-fail 55");
  EXPECT_FALSE(bench.run_for(1'000'000, [] { prog_aablk(); }));
  EXPECT_GT(bench.trace({"i2c 55 wr 63 63 = EREMOTEIO"}).size(), 500u);
}

TEST_F(ProgAablk, bus_missing_is_1) {
  bench.world("fault missing i2c");
  int result = 0;
  EXPECT_TRUE(bench.run_for(1'000'000, [&] { result = prog_aablk(); }));
  EXPECT_EQ(result, 1);
  EXPECT_EQ(bench.output(), kNoBus);
}

// ---- prog_i2c_test ----------------------------------------------------------------------

class ProgI2cTest : public BoardClocks {
 protected:
  // How many bytes a run printed after its heading.
  static std::ptrdiff_t bytes_printed(const std::string& output) {
    const std::size_t heading = output.find(": device_addr");
    const std::size_t start = output.find(": ", heading + 2);
    std::ptrdiff_t bytes = 0;
    for (std::size_t at = output.find("0x", start); at != std::string::npos;
         at = output.find("0x", at + 2))
      ++bytes;
    return bytes;
  }
};

TEST_F(ProgI2cTest, reads_from_the_halved_address_and_prints_the_bytes) {
  bench.world("fault stuck 5c 14 c2");
  bench.board().tvp7002.reg[0x15] = 0x04;

  EXPECT_EQ(prog_i2c_test(0xB8, 0x14, 1, 2), 0);

  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", "i2c 5c rd 14 -> c2 04", "wait 1000000",
                                         "close /dev/i2c-1"));
  EXPECT_EQ(bench.output(), "i2c readb (rc 2): device_addr 0xb8, reg_addr 0x14: 0xc2 0x4 \n");
  expect_no_violation();
}

TEST_F(ProgI2cTest, odd_address_reads_the_same_chip) {
  EXPECT_EQ(prog_i2c_test(0xB9, 0x19, 1, 1), 0);
  EXPECT_THAT(bench.trace({"i2c"}), ElementsAre("i2c 5c rd 19 -> 00"));
  EXPECT_EQ(bench.output(), "i2c readb (rc 2): device_addr 0xb9, reg_addr 0x19: 0x0 \n");
}

TEST_F(ProgI2cTest, two_byte_register_goes_out_high_byte_first) {
  EXPECT_EQ(prog_i2c_test(0x42, 0x1234, 2, 1), 0);  // no chip answers at 0x21
  EXPECT_THAT(bench.trace({"i2c"}), ElementsAre("i2c 21 rd 12 34 = EREMOTEIO"));
  EXPECT_EQ(bench.output(), "i2c readb (rc -1): device_addr 0x42, reg_addr 0x1234: 0x0 \n");
}

TEST_F(ProgI2cTest, without_a_register_address_one_byte_is_read) {
  bench.board().tvp7002.pointer = 0x21;
  bench.board().tvp7002.reg[0x21] = 0x9D;
  EXPECT_EQ(prog_i2c_test(0xB8, 0x14, 0, 3), 0);
  EXPECT_THAT(bench.trace({"i2c"}), ElementsAre("i2c 5c rd -> 9d"));
  EXPECT_EQ(bench.output(), "i2c readb (rc 1): device_addr 0xb8, reg_addr 0x14: 0x9d 0x0 0x0 \n");
}

TEST_F(ProgI2cTest, count_is_bounded) {
  const int cases[][2] = {{0, 0}, {-1, 0}, {1, 1}, {1023, 1023}, {1024, 1023}, {0x7FFFFFFF, 1023}};
  for (const auto& [count, expected] : cases) {
    EXPECT_EQ(prog_i2c_test(0x42, 0, 1, count), 0);
    EXPECT_EQ(bytes_printed(bench.output()), expected) << count;
  }
}

TEST_F(ProgI2cTest, count_on_the_bus_is_bounded) {
  prog_i2c_test(0xB8, 0x00, 1, 100000);
  const Lines lines = bench.trace({"i2c"});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], testing::EndsWith("... n=1023"));
}

TEST_F(ProgI2cTest, odd_register_lengths_are_borne) {
  for (const int length : {-1, 3, 4, 5, 100000}) EXPECT_EQ(prog_i2c_test(0x42, 1, length, 2), 0);
  for (const int address : {-1, 0x7FFFFFFF, 0x200}) EXPECT_EQ(prog_i2c_test(address, 1, 1, 2), 0);
}

TEST_F(ProgI2cTest, bus_missing_is_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(prog_i2c_test(0xB8, 0x14, 1, 2), 1);
  EXPECT_EQ(bench.output(), kNoBus);
}

// ---- prog7353 ------------------------------------------------------------------------------

using Prog7353 = BoardClocks;

TEST_F(Prog7353, reads_writes_and_shows_the_sync_status) {
  const std::uint8_t held[] = {0x11, 0x02, 0xF3};
  std::copy(std::begin(held), std::end(held), bench.board().chip7353.reg + 1);
  bench.world("fault stuck 5c 14 c2");

  EXPECT_EQ(prog7353(), 0);

  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", "i2c 2e rd 01 -> 11", "i2c 2e rd 02 -> 02",
                          "i2c 2e rd 03 -> f3", "i2c 2e wr 01 14", "i2c 2e wr 02 15",
                          "i2c 2e wr 03 14", "i2c 5c rd 14 -> c2", "close /dev/i2c-1"));
  EXPECT_EQ(bench.output(),
            "prog7353\n"
            "ch #1, i2c_readblk rc=2, buf[0]=0x11\nch #2, i2c_readblk rc=2, buf[0]=0x2\n"
            "ch #3, i2c_readblk rc=2, buf[0]=0xf3\n"
            "ch #1, i2c_write rc=1\nch #2, i2c_write rc=1\nch #3, i2c_write rc=1\n"
            "SYNC data = 0xc2\n");
  expect_no_violation();
}

TEST_F(Prog7353, absent_chip_shows_aa_and_negative_results) {
  bench.world("fault i2c-fail 2e");
  bench.world("fault stuck 5c 14 da");
  EXPECT_EQ(prog7353(), 0);
  EXPECT_EQ(bench.output(),
            "prog7353\n"
            "ch #1, i2c_readblk rc=-1, buf[0]=0xaa\nch #2, i2c_readblk rc=-1, buf[0]=0xaa\n"
            "ch #3, i2c_readblk rc=-1, buf[0]=0xaa\n"
            "ch #1, i2c_write rc=-1\nch #2, i2c_write rc=-1\nch #3, i2c_write rc=-1\n"
            "SYNC data = 0xda\n");
}

TEST_F(Prog7353, failed_sync_read_is_reported) {
  bench.world("fault i2c-fail 5c");
  EXPECT_EQ(prog7353(), 0);
  EXPECT_THAT(bench.output(), testing::EndsWith("ch #3, i2c_write rc=1\n"
                                                "Error i2c_readbyte -7002\nSYNC data = 0x0\n"));
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST_F(Prog7353, bus_missing_is_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(prog7353(), 1);
  EXPECT_EQ(bench.output(), std::string("prog7353\n") + kNoBus);
}

// ---- messages and traffic in one order ----------------------------------------------

using ClocksOrder = BoardClocks;

TEST_F(ClocksOrder, pll_that_takes_nothing) {
  vboard::seam::fail_call("fwrite", "", 0, 1, EIO);
  std::uint8_t buf[] = {0x70, 0x00};
  bench.follow();
  progPll(buf);
  EXPECT_THAT(bench.stream(), ElementsAre("open /dev/fpga2 r+b", "fwrite  = EIO",
                                          "say Failed to write 2 (wrote 0,  total 0)",
                                          "pll rd 00 00", "close /dev/fpga2"));
}

TEST_F(ClocksOrder, clock_block) {
  bench.follow();
  prog_blk();
  EXPECT_THAT(bench.stream(), ElementsAre("say Y prog_blk", "open /dev/i2c-1", "i2c 1c wr 02",
                                          "say rc = 0", "wait 1000000", "close /dev/i2c-1"));
}

TEST_F(ClocksOrder, endless_clock_block) {
  bench.follow();
  EXPECT_FALSE(bench.run_for(10'000, [] { prog_aablk(); }));
  Lines seen = bench.stream();
  ASSERT_GE(seen.size(), 7u);
  seen.resize(7);
  EXPECT_THAT(
      seen, ElementsAre("open /dev/i2c-1", "i2c 55 wr 63 63", "say i2c_writebyte AA blk ",
                        "wait 1000", "i2c 55 wr 63 63", "say i2c_writebyte AA blk ", "wait 1000"));
}

TEST_F(ClocksOrder, generic_read) {
  bench.world("fault stuck 5c 14 c2");
  bench.world("fault stuck 5c 15 00");
  bench.follow();
  prog_i2c_test(0xB8, 0x14, 1, 2);
  EXPECT_THAT(bench.stream(),
              ElementsAre("open /dev/i2c-1", "i2c 5c rd 14 -> c2 00",
                          "say i2c readb (rc 2): device_addr 0xb8, reg_addr 0x14: 0xc2 0x0 ",
                          "wait 1000000", "close /dev/i2c-1"));
}

TEST_F(ClocksOrder, encoder_chip) {
  bench.world("fault stuck 5c 14 c2");
  for (int channel = 1; channel <= 3; ++channel)
    bench.board().chip7353.reg[channel] = static_cast<std::uint8_t>(0x10 * channel);
  bench.follow();
  prog7353();
  EXPECT_THAT(
      bench.stream(),
      ElementsAre("say prog7353", "open /dev/i2c-1", "i2c 2e rd 01 -> 10",
                  "say ch #1, i2c_readblk rc=2, buf[0]=0x10", "i2c 2e rd 02 -> 20",
                  "say ch #2, i2c_readblk rc=2, buf[0]=0x20", "i2c 2e rd 03 -> 30",
                  "say ch #3, i2c_readblk rc=2, buf[0]=0x30", "i2c 2e wr 01 14",
                  "say ch #1, i2c_write rc=1", "i2c 2e wr 02 15", "say ch #2, i2c_write rc=1",
                  "i2c 2e wr 03 14", "say ch #3, i2c_write rc=1", "i2c 5c rd 14 -> c2",
                  "say SYNC data = 0xc2", "close /dev/i2c-1"));
}

}  // namespace
