// The start of the encoder service, step by step.
#include "app/service.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "supervision/status_file.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using vboard::Bench;
namespace seam = vboard::seam;

// A service at its start, with everything that a run before may have left gone.
struct Service {
  Bench bench;
  Service() {
    fpga_file = nullptr;
    shared_memory = nullptr;
    SystemMonitorStatus = 0;
    config_sys = 1;
    fpga_hw_version = 0;
    for (int i = 0; i < kVersionTextSize; ++i) ver[i] = '\0';
  }
  // Runs it for this long; false: it was still running then.
  bool run(std::int64_t limit_us, bool monitor_disabled = false, bool status_file = false) {
    return bench.run_for(limit_us, [=] { prog602(monitor_disabled, status_file); });
  }
  std::string version() const {
    std::string text;
    for (int i = 0; i < kVersionTextSize && ver[i] != '\0'; ++i) text += ver[i];
    return text;
  }
};

// Just after the start-up: the host link waits in the reset of the FPGA.
constexpr std::int64_t kStarted_us = 150'000;

// What the two threads have printed by then, the link's two lines in the middle.
const std::string kStartText =
    "prog602 Y_HD\nOPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1\nReset FPGA\nend configure\n\n";

TEST(Prog602, steps_in_order) {
  Service service;
  service.bench.put_file("version.ini", "1.2.3\n");

  EXPECT_FALSE(service.run(kStarted_us));

  EXPECT_THAT(service.bench.trace(),
              ElementsAre("shmget 0x4d454c4b 4096 0x3ff", StartsWith("thread"), "wait 100000",
                          // the host link, its first act
                          "open /dev/fpga r+b", "wait 10000", "fpga wr 0x0004 <- 0x0001",
                          "fpga wr 0x0008 <- 0x0001", "fpga wr 0x0010 <- 0x0000",
                          "fpga wr 0x0224 <- 0x0000", "fpga wr 0x132c <- 0x0000", "wait 1000000",
                          // the service again, 100 ms after it started
                          "open /dev/fpga r+b", "fpga led 87", "file /home/tovin/version.ini r",
                          "fpga rd 0x0000 -> 0x0117", "wait 500000"));
  EXPECT_EQ(service.bench.output(), kStartText + "read '1.2.3\n' OK");
  EXPECT_EQ(config_sys, 0);
  EXPECT_EQ(fpga_hw_version, 0x0117);
  // The link's handle and the one for the LEDs.
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n/dev/fpga\n");
}

// The host link's first steps stand where its thread runs, in the first wait.
TEST(Prog602, messages_stores_and_traffic_in_one_order) {
  Service service;
  SharedBlock& block = service.bench.attach_block();
  service.bench.put_file("version.ini", "1.2.3\n");
  block.encode_alive = 1;
  service.bench.follow();
  service.bench.watch("config_sys", config_sys);
  service.bench.watch("status thread", SystemMonitorStatus);
  service.bench.watch("version", fpga_hw_version);
  service.bench.watch("alive", block.encode_alive);
  EXPECT_FALSE(service.run(250'000, false, true));
  EXPECT_THAT(service.bench.stream(),
              ElementsAre("say prog602 Y_HD", "shmget 0x4d454c4b 4096 0x3ff", "config_sys = 0",
                          "say Start System Monitoring", "status thread = 1", StartsWith("thread"),
                          "wait 100000", "wait 5000000",  // the status thread's
                          StartsWith("thread"), "wait 100000",
                          "say OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1", "open /dev/fpga r+b",
                          "wait 10000", "say Reset FPGA", "fpga wr 0x0004 <- 0x0001",
                          "fpga wr 0x0008 <- 0x0001", "fpga wr 0x0010 <- 0x0000",
                          "fpga wr 0x0224 <- 0x0000", "fpga wr 0x132c <- 0x0000", "wait 1000000",
                          "say end configure", "say ", "open /dev/fpga r+b", "fpga led 87",
                          "file /home/tovin/version.ini r", "say read '1.2.3", "say... ' OK",
                          "file /home/tovin/version.ini closed", "fpga rd 0x0000 -> 0x0117",
                          "version = 279", "alive = 0", "wait 500000"));
}

TEST(Prog602, never_returns) {
  Service service;
  EXPECT_FALSE(service.run(3'600'000'000));
}

TEST(Prog602, alive_word_is_cleared_after_the_versions_are_read) {
  Service service;
  SharedBlock& block = service.bench.attach_block();
  block.encode_alive = 1;
  EXPECT_FALSE(service.run(99'000));
  EXPECT_EQ(block.encode_alive, 1);
}

TEST(Prog602, alive_word_is_clear_when_supervision_begins) {
  Service service;
  SharedBlock& block = service.bench.attach_block();
  block.encode_alive = 1;
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(block.encode_alive, 0);
}

TEST(Prog602, block_that_cannot_be_attached_ends_the_service) {
  Service service;
  seam::fail_call("shmat", "", 0, -1, ENOMEM);
  int result = 0;
  EXPECT_TRUE(service.bench.run_for(kStarted_us, [&result] { result = prog602(false, true); }));
  EXPECT_LT(result, 0);
  EXPECT_EQ(service.bench.output(), "prog602 Y_HD\nError, cannot map SNMP shared memory!!!\n");
  EXPECT_EQ(config_sys, 1);
  EXPECT_THAT(service.bench.trace({"thread", "open", "file", "wait"}), IsEmpty());
}

TEST(Prog602, segment_that_cannot_be_had_prints_both_messages) {
  Service service;
  seam::fail_call("shmget", "", 0, -1, ENOSPC);  // 28
  EXPECT_TRUE(service.run(kStarted_us));
  EXPECT_EQ(service.bench.output(),
            "prog602 Y_HD\nError, cannot create shared memory!!! (errno=28)\n"
            "Error, cannot map SNMP shared memory!!!\n");
}

TEST(Prog602, getmon_starts_the_status_thread_before_the_link) {
  Service service;
  EXPECT_FALSE(service.run(kStarted_us, false, true));
  EXPECT_EQ(SystemMonitorStatus, 1);
  EXPECT_THAT(service.bench.output(),
              StartsWith("prog602 Y_HD\nStart System Monitoring\nOPEN NEW /dev/fpga"));
  // The status thread sleeps 5 s a pass; its start waits 100 ms, that of the link too.
  EXPECT_THAT(service.bench.trace({"thread", "wait", "open"}),
              ElementsAre(StartsWith("thread"), "wait 100000", "wait 5000000", StartsWith("thread"),
                          "wait 100000", "open /dev/fpga r+b", "wait 10000", "wait 1000000"));
}

// ---- version.ini ------------------------------------------------------------------------

struct VersionFile {
  const char* name;
  const char* content;
  const char* kept;
};

class VersionText : public testing::TestWithParam<VersionFile> {};

TEST_P(VersionText, first_line_is_kept_and_printed) {
  Service service;
  service.bench.put_file("version.ini", GetParam().content);
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(service.version(), GetParam().kept);
  EXPECT_THAT(service.bench.output(),
              testing::EndsWith("end configure\n\nread '" + std::string(GetParam().kept) + "' OK"));
}

INSTANTIATE_TEST_SUITE_P(
    Prog602, VersionText,
    testing::Values(VersionFile{"with_line_end", "1.2.3\n", "1.2.3\n"},
                    VersionFile{"without_line_end", "1.2.3", "1.2.3"},
                    VersionFile{"second_line_is_not_read", "v1\nv2\n", "v1\n"},
                    VersionFile{"empty_line", "\n1.2.3\n", "\n"},
                    VersionFile{"eighteen_characters_and_line_end", "123456789012345678\n",
                                "123456789012345678\n"},
                    VersionFile{"nineteen_characters", "1234567890123456789\n",
                                "1234567890123456789"},
                    VersionFile{"longer_is_cut_at_nineteen", "1234567890123456789abc\n",
                                "1234567890123456789"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Prog602, version_file_missing_is_silent) {
  Service service;
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(service.version(), "");
  EXPECT_EQ(service.bench.output(), kStartText);
}

TEST(Prog602, version_file_empty_is_a_read_error) {
  Service service;
  service.bench.put_file("version.ini", "");
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(service.version(), "");
  EXPECT_EQ(service.bench.output(), kStartText + "read error\n");
}

// ---- the LED ------------------------------------------------------------------------------

TEST(Prog602, led_handle_does_not_open_goes_on_without_the_request) {
  Service service;
  service.bench.put_file("version.ini", "1.2.3\n");
  seam::fail_call("fopen", "/dev/fpga", 1, 1, EMFILE);  // the second open is the LED's
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(service.bench.output(),
            kStartText + "Cannot access SPI port (/dev/fpga) - for LEDs\nread '1.2.3\n' OK");
  EXPECT_EQ(service.bench.board().fpga.led_requests, 0u);
  EXPECT_EQ(fpga_hw_version, 0x0117);
}

TEST(Prog602, led_request_refused_prints_and_goes_on) {
  Service service;
  service.bench.put_file("version.ini", "1.2.3\n");
  service.bench.world("fault fpga-fail 87");
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(service.bench.output(), kStartText + "Error -1 in IOCTL - LED\nread '1.2.3\n' OK");
}

TEST(Prog602, led_word_is_zero) {
  Service service;
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(service.bench.board().fpga.led_requests, 1u);
  EXPECT_EQ(service.bench.board().fpga.line[87], 0u);  // a line action carries 1
}

// ---- the FPGA -----------------------------------------------------------------------------

TEST(Prog602, device_missing_reads_version_zero) {
  Service service;
  service.bench.world("fault missing fpga");
  fpga_hw_version = 0x55;
  EXPECT_FALSE(service.run(kStarted_us));
  EXPECT_EQ(fpga_hw_version, 0);
  EXPECT_THAT(service.bench.output(),
              HasSubstr("end configure\n\nCannot access SPI port (/dev/fpga) - for LEDs\n"));
}

TEST(Prog602, monitor_word_is_handed_to_supervision) {
  // Without supervision the register dump comes every tenth cycle of 0.5 s.
  Service service;
  EXPECT_FALSE(service.run(kStarted_us + 6'000'000, 1));
  EXPECT_THAT(service.bench.trace({"fpga rd 0x0060"}), Not(IsEmpty()));
}

TEST(Prog602, watching_board_without_configuration_dumps_nothing) {
  Service service;
  EXPECT_FALSE(service.run(kStarted_us + 6'000'000, 0));
  EXPECT_THAT(service.bench.trace({"fpga rd 0x0060"}), IsEmpty());
}

}  // namespace
