// The bench capture of the AC-3 stream.
#include "app/ac3_test.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

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

constexpr char kCaptureFile[] = "mnt/tovin/home/pero/lumos.ac3";
constexpr std::int64_t kStart_us = 100'000;  // what the start of the link takes

struct Capture {
  Bench bench;
  Capture() {
    fpga_file = nullptr;
    shared_memory = nullptr;
    SystemMonitorStatus = 0;
    config_sys = 1;
  }
  void make_mount() const { bench.put_file(kCaptureFile, "what was there before"); }
  bool run(std::int64_t limit_us, bool status_file = false) {
    return bench.run_for(limit_us, [=] { ac3_test(status_file); });
  }
};

// The bytes that a round of reads of the capture FIFO must leave in the file,
// from the trace lines "fpga rd 0x0100 -> 0xHHHH": low byte first.
std::string bytes_of(const std::vector<std::string>& reads) {
  std::string bytes;
  for (const std::string& line : reads) {
    const auto word = std::strtoul(line.c_str() + line.find("-> ") + 3, nullptr, 16);
    bytes += static_cast<char>(word & 0xFF);
    bytes += static_cast<char>(word >> 8);
  }
  return bytes;
}

TEST(Ac3Test, steps_in_order) {
  Capture capture;
  capture.make_mount();
  capture.bench.world("audio none");
  EXPECT_FALSE(capture.run(kStart_us + 200));
  std::vector<std::string> trace = capture.bench.trace();
  ASSERT_GT(trace.size(), 22u);
  EXPECT_EQ(trace[21], "fpga rd 0x0104 -> 0x0000");  // and so on, without a pause
  trace.resize(20);
  EXPECT_THAT(
      trace,
      ElementsAre("shmget 0x4d454c4b 4096 0x3ff", StartsWith("thread"), "wait 100000",
                  // the host link
                  "open /dev/fpga r+b", "wait 10000", "fpga wr 0x0004 <- 0x0001",
                  "fpga wr 0x0008 <- 0x0001", "fpga wr 0x0010 <- 0x0000",
                  "fpga wr 0x0224 <- 0x0000", "fpga wr 0x132c <- 0x0000", "wait 1000000",
                  // the capture
                  "open /dev/fpga r+b", "fpga rd 0x0108 -> 0x0000", "fpga wr 0x0108 <- 0x0004",
                  "fpga rd 0x0108 -> 0x0004", "fpga rd 0x0104 -> 0x0000",
                  "fpga rd 0x0100 -> 0x0000", "file /mnt/tovin/home/pero/lumos.ac3 wb",
                  "fpga rd 0x0104 -> 0x0000", "fpga rd 0x0104 -> 0x0000"));
  EXPECT_EQ(capture.bench.output(),
            "OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1\n"
            "Reset FPGA\nend configure\n\nloop_control=0x0\nloop_control=0x4\nstatus=0x0\n"
            "date_from_fifo=0x0\n");
  EXPECT_EQ(config_sys, 0);
  EXPECT_EQ(capture.bench.get_file(kCaptureFile), "");  // written anew
}

TEST(Ac3Test, every_pending_word_lands_in_the_file_low_byte_first) {
  Capture capture;
  capture.make_mount();
  EXPECT_FALSE(capture.run(kStart_us + 200'000));
  std::vector<std::string> reads = capture.bench.trace({"fpga rd 0x0100"});
  ASSERT_GT(reads.size(), 1000u);
  reads.erase(reads.begin());  // the one that is printed
  const std::string expected = bytes_of(reads);
  const std::string stored = capture.bench.get_file(kCaptureFile);
  // The run may end within a round, whose words then are not flushed yet.
  ASSERT_LE(stored.size(), expected.size());
  EXPECT_GT(stored.size() + 64, expected.size());
  EXPECT_EQ(stored, expected.substr(0, stored.size()));
}

TEST(Ac3Test, more_than_a_thousand_words_are_reported_and_taken) {
  Capture capture;
  capture.make_mount();
  capture.bench.world("audio none");
  capture.bench.beside("stall", [&capture] {
    // 1500 words that nobody fetched, after the start of the capture.
    vboard::board_wait(vboard::WaitFor::kNothing, kStart_us + 1'000);
    vboard::Locked hold(capture.bench.board());
    capture.bench.board().ac3_capture.taken = -1500;
  });
  EXPECT_FALSE(capture.run(kStart_us + 100'000));
  EXPECT_THAT(capture.bench.output(),
              testing::EndsWith("date_from_fifo=0x0\n"
                                "more than 1000 words!! - words_pending=1500\n"));
  EXPECT_EQ(capture.bench.get_file(kCaptureFile).size(), 3000u);
}

TEST(Ac3Test, a_thousand_words_are_not_reported) {
  Capture capture;
  capture.make_mount();
  capture.bench.world("audio none");
  capture.bench.beside("stall", [&capture] {
    vboard::board_wait(vboard::WaitFor::kNothing, kStart_us + 1'000);
    vboard::Locked hold(capture.bench.board());
    capture.bench.board().ac3_capture.taken = -1000;
  });
  EXPECT_FALSE(capture.run(kStart_us + 100'000));
  EXPECT_THAT(capture.bench.output(), Not(HasSubstr("more than")));
  EXPECT_EQ(capture.bench.get_file(kCaptureFile).size(), 2000u);
}

TEST(Ac3Test, file_that_cannot_be_created_drops_the_words) {
  Capture capture;  // no mount
  EXPECT_FALSE(capture.run(kStart_us + 50'000));
  EXPECT_THAT(capture.bench.output(), testing::EndsWith("can not open capture file\n"));
  EXPECT_GT(capture.bench.trace({"fpga rd 0x0100"}).size(), 100u);
}

TEST(Ac3Test, second_handle_does_not_open_goes_on) {
  Capture capture;
  capture.make_mount();
  seam::fail_call("fopen", "/dev/fpga", 1, 1, EMFILE);
  EXPECT_FALSE(capture.run(kStart_us + 200));
  EXPECT_THAT(capture.bench.output(),
              HasSubstr("end configure\n\nCannot access SPI port (/dev/fpga) - for LEDs\n"
                        "loop_control=0x0\nloop_control=0x4\n"));
}

TEST(Ac3Test, failed_register_reads_capture_nothing) {
  Capture capture;
  capture.make_mount();
  // Every register read fails: the status reads 0, and nothing is fetched.
  capture.bench.world("fault fpga-fail 16");
  EXPECT_FALSE(capture.run(kStart_us + 1'000));
  EXPECT_THAT(capture.bench.output(), testing::EndsWith("loop_control=0x0\nloop_control=0x0\n"
                                                        "status=0x0\ndate_from_fifo=0x0\n"));
  EXPECT_EQ(capture.bench.get_file(kCaptureFile), "");
}

TEST(Ac3Test, getmon_starts_the_status_file) {
  Capture capture;
  capture.make_mount();
  EXPECT_FALSE(capture.run(kStart_us + 50'000, true));
  EXPECT_EQ(SystemMonitorStatus, 1);
  EXPECT_THAT(capture.bench.output(), StartsWith("Start System Monitoring\n"));
  EXPECT_EQ(capture.bench.trace({"thread"}).size(), 2u);  // and the host link's
}

TEST(Ac3Test, block_that_cannot_be_attached_ends_it) {
  Capture capture;
  seam::fail_call("shmat", "", 0, -1, ENOMEM);
  int result = 0;
  EXPECT_TRUE(capture.bench.run_for(kStart_us, [&result] { result = ac3_test(false); }));
  EXPECT_LT(result, 0);
  EXPECT_EQ(capture.bench.output(), "Error, cannot map SNMP shared memory!!!\n");
  EXPECT_EQ(config_sys, 1);
  EXPECT_THAT(capture.bench.trace({"thread", "open"}), IsEmpty());
}

}  // namespace
