// Bench readers of the SPI slave device.
#include "diag/spi_bench.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdio>
#include <initializer_list>
#include <string>

#include "vboard/models/bus.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;
using vboard::lines;

void host_sends(Bench& bench, std::initializer_list<int> bytes) {
  vboard::Locked hold(bench.board());
  vboard::LinkFifo& fifo = bench.board().link.to_board;
  for (const int byte : bytes)
    fifo.data[fifo.head++ % vboard::kLinkDepth] = static_cast<std::uint8_t>(byte);
  vboard::link_changed(bench.board());
}

std::string handle_line(std::intptr_t h) {
  char line[40];
  snprintf(line, sizeof line, "readSpiSplave, h=0x%x", static_cast<unsigned>(h));
  return line;
}

TEST(ReadSpiSplave, opens_the_device_and_reads_one_byte) {
  Bench bench;
  host_sends(bench, {0x2D});

  const std::intptr_t h = readSpiSplave(-1);

  EXPECT_NE(h, 1);
  EXPECT_NE(h, -1);
  EXPECT_THAT(lines(bench.output()),
              ElementsAre("readSpiSplave, h=0xffffffff", "trying to read SPI:", "fread rc=1"));
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/spislave r+b", "wait 20000", "spi rd 2d", "wait 20000"));
  fclose(reinterpret_cast<FILE*>(h));
}

TEST(ReadSpiSplave, handle_passed_back_reads_on_from_the_same_stream) {
  Bench bench;
  host_sends(bench, {1});
  const std::intptr_t h = readSpiSplave(-1);
  host_sends(bench, {2});
  bench.output();
  bench.trace();

  EXPECT_EQ(readSpiSplave(h), h);

  EXPECT_THAT(lines(bench.output()),
              ElementsAre(handle_line(h), "trying to read SPI:", "fread rc=1"));
  EXPECT_THAT(bench.trace(), ElementsAre("wait 20000", "spi rd 02", "wait 20000"));
  fclose(reinterpret_cast<FILE*>(h));
}

TEST(ReadSpiSplave, nothing_read_prints_0_and_the_next_call_reads_again) {
  Bench bench;
  vboard::seam::fail_call("read", "/dev/spislave", 0, 1, EIO);
  const std::intptr_t h = readSpiSplave(-1);
  EXPECT_EQ(lines(bench.output()).back(), "fread rc=0");

  host_sends(bench, {7});
  EXPECT_EQ(readSpiSplave(h), h);
  EXPECT_EQ(lines(bench.output()).back(), "fread rc=1");
  fclose(reinterpret_cast<FILE*>(h));
}

TEST(ReadSpiSplave, device_missing_prints_and_returns_1) {
  Bench bench;
  bench.world("fault missing spislave");
  EXPECT_EQ(readSpiSplave(-1), 1);
  EXPECT_THAT(lines(bench.output()),
              ElementsAre("readSpiSplave, h=0xffffffff", "Cannot access SPI port (/dev/spislave)"));
  EXPECT_THAT(bench.trace({"wait"}), IsEmpty());
}

TEST(ReadSpiSplave, result_of_a_failed_call_passed_back_reads_nothing) {
  Bench bench;
  EXPECT_EQ(readSpiSplave(1), 1);
  EXPECT_EQ(readSpiSplave(0), 1);
  EXPECT_THAT(lines(bench.output()), ElementsAre("readSpiSplave, h=0x1", "readSpiSplave, h=0x0"));
  EXPECT_THAT(bench.trace(), IsEmpty());
}

TEST(SpiSlaveThread, device_missing_prints_and_returns_0) {
  Bench bench;
  bench.world("fault missing spislave");
  EXPECT_EQ(spi_slave_thread(nullptr), nullptr);
  EXPECT_EQ(bench.output(), "Cannot access SPI port (/dev/spislave)\n");
}

TEST(SpiSlaveThread, drains_byte_by_byte_without_a_print) {
  Bench bench;
  host_sends(bench, {1, 2, 3});

  EXPECT_FALSE(bench.run_for(1'000'000, [] { spi_slave_thread(nullptr); }));

  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/spislave r+b", "spi rd 01", "spi rd 02", "spi rd 03"));
}

TEST(SpiSlaveThread, waits_a_little_whenever_nothing_was_read) {
  Bench bench;
  host_sends(bench, {9});
  vboard::seam::fail_call("read", "/dev/spislave", 0, 2, EIO);

  EXPECT_FALSE(bench.run_for(1'000'000, [] { spi_slave_thread(nullptr); }));

  EXPECT_THAT(bench.trace({"wait", "spi"}), ElementsAre("wait 100", "wait 100", "spi rd 09"));
  EXPECT_EQ(bench.output(), "");
}

TEST(ReadSpiSplave, messages_and_traffic_in_one_order) {
  Bench bench;
  host_sends(bench, {0x2D});
  bench.follow();
  const std::intptr_t h = readSpiSplave(-1);
  EXPECT_THAT(bench.stream(),
              ElementsAre("say readSpiSplave, h=0xffffffff", "open /dev/spislave r+b", "wait 20000",
                          "say trying to read SPI:", "spi rd 2d", "say fread rc=1", "wait 20000"));
  fclose(reinterpret_cast<FILE*>(h));
}

}  // namespace
