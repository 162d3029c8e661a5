// What the service and its host-link thread do until the host says something.
#include <gmock/gmock.h>

#include <cerrno>
#include <vector>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/host_talk.h"

namespace {

using testing::ElementsAre;

TEST(ServiceStart, devices_and_files_in_order) {
  restore_start_values();
  ServiceBench service;
  service.bench.put_file("hd.ini", "vbr=1\n");
  service.bench.put_file("version.ini", "1.12.3\n");
  service.run(2, [](Host&) {});
  // The reset of the link thread takes a second; meanwhile, after 0.1 s, the
  // service goes on with its own steps.
  EXPECT_THAT(service.bench.trace({"shmget", "open", "nonblock", "file", "fpga", "close"}),
              ElementsAre("shmget 0x4d454c4b 4096 0x3ff",  //
                          "open /dev/fpga r+b", "fpga wr 0x0004 <- 0x0001",
                          "fpga wr 0x0008 <- 0x0001", "fpga wr 0x0010 <- 0x0000",
                          "fpga wr 0x0224 <- 0x0000", "fpga wr 0x132c <- 0x0000",  //
                          "open /dev/fpga r+b", "fpga led 87", "file /home/tovin/version.ini r",
                          "fpga rd 0x0000 -> 0x0117",  //
                          "fpga wr 0x0004 <- 0x0000", "fpga wr 0x1328 <- 0x0006",
                          "file /home/tovin/hd.ini wb", "open /dev/spislave r+b",
                          "nonblock /dev/spislave 1", "open /dev/fpga r+b", "fpga led 83"));
  EXPECT_EQ(service.bench.output(),
            "prog602 Y_HD\n"
            "OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1\n"
            "Reset FPGA\n"
            "end configure\n\n"
            "read '1.12.3\n' OK"
            "   after Reset FPGA\n");
  EXPECT_EQ(service.bench.get_file("hd.ini"), "");
  EXPECT_EQ(fpga_hw_version, 0x0117);
}

TEST(ServiceStart, link_that_does_not_open_leaves_the_service_alone) {
  restore_start_values();
  ServiceBench service;
  service.bench.world("fault missing spislave");
  EXPECT_FALSE(service.run(60, [](Host&) {}));
  EXPECT_THAT(service.bench.output(),
              testing::EndsWith("   after Reset FPGA\nCannot access SPI port (/dev/spislave)\n"));
}

TEST(ServiceStart, status_is_the_start_value_and_no_cause_is_held) {
  talk([](Talk& host) {
    for (const int byte : {0x90, 0x80, 0x00}) EXPECT_THAT(host.say({3}).answer, ElementsAre(byte));
  });
}

TEST(ServiceStart, waiting_host_gets_its_commands_served_after_the_reset) {
  restore_start_values();
  ServiceBench service;
  std::vector<int> answer;
  double answered_s = 0;
  service.run(5, [&](Host& host) {
    vboard::LinkFifo& fifo = service.bench.board().link.to_board;
    fifo.data[fifo.head++] = 1;
    while (answer.empty()) {
      host.wait(0.01);
      answer = host.take();
    }
    answered_s = host.now();
  });
  EXPECT_THAT(answer, ElementsAre(0x2D));
  EXPECT_GE(answered_s, 1.02);
}

}  // namespace
