// Manners of real devices: what a hung bus, a full queue, a FIFO that is polled by
// half of its level, a bitstream cut short and a busy shift register do.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/i2capi.h"
#include "supervision/fpga_dump.h"
#include "vboard/core/update_fifo.h"
#include "vboard/models/bus.h"
#include "vboard/testing/bench.h"

namespace {

using namespace vboard;
using testing::ElementsAre;

struct WithFpga {
  Bench bench;
  WithFpga() { fpga_file = fopen("/dev/fpga", "r+b"); }
  ~WithFpga() {
    fclose(fpga_file);
    fpga_file = nullptr;
  }
};

// ---- the I2C bus -------------------------------------------------------------------

TEST(HungBus, times_out_after_a_second) {
  Bench bench;
  bench.world("fault i2c-hung");
  const int bus = init_i2c(1);
  std::uint8_t byte = 0x5A;
  const std::int64_t before_us = bench.now_us();
  errno = 0;
  EXPECT_LT(i2c_readbyte(bus, 0x5C, 0x14, &byte), 0);
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(bench.now_us() - before_us, 1'000'000);
  EXPECT_EQ(byte, 0x5A);
  EXPECT_THAT(bench.trace({"i2c"}), ElementsAre("i2c 5c = ETIMEDOUT"));
  bench.world("fault i2c-hung off");
  EXPECT_EQ(i2c_readbyte(bus, 0x5C, 0x14, &byte), 2);
  close(bus);
}

// 100 kHz: 10 us a clock, 9 clocks a byte, one each for start and stop. A write of a
// register is address, register and value: 29 clocks. A read is address and register,
// address and value: 40. Ten values more are 90 more.
TEST(BusTime, is_paid_by_the_byte) {
  Bench bench;
  const int bus = init_i2c(1);
  const auto taken = [&](const auto& transfer) {
    const std::int64_t before_us = bench.now_us();
    transfer();
    return bench.now_us() - before_us;
  };
  std::uint8_t bytes[11] = {};
  EXPECT_EQ(taken([&] { i2c_writebyte(bus, 0x5C, 0x40, 1); }), 290);
  EXPECT_EQ(taken([&] { i2c_readbyte(bus, 0x5C, 0x14, bytes); }), 400);
  EXPECT_EQ(taken([&] { i2c_readblk(bus, 0x5C, 0x14, 1, 11, bytes); }), 1300);
  close(bus);
}

// ---- the DSP -------------------------------------------------------------------------

TEST(DspReply, stands_ten_microseconds_behind_the_command) {
  Bench bench;
  const int bus = init_i2c(1);
  const std::uint8_t command[] = {0x80, 0x00};
  std::uint8_t byte = 0;
  i2c_writeblk(bus, 0x1C, 0, 0, 2, command);
  usleep(9);
  i2c_readblk(bus, 0x1C, 0, 0, 1, &byte);
  EXPECT_EQ(byte, 0);
  EXPECT_STREQ(bench.board().violations.first, "ac3dsp read before its reply");
  i2c_writeblk(bus, 0x1C, 0, 0, 2, command);
  usleep(10);
  i2c_readblk(bus, 0x1C, 0, 0, 1, &byte);
  EXPECT_EQ(byte, 0x21);
  EXPECT_EQ(bench.board().violations.count, 1u);
  close(bus);
}

// Its header follows what the DSP was told.
TEST(DspStream, header_carries_the_configured_rate) {
  WithFpga board;
  board.bench.world("audio dsp bitrate=640");
  board.bench.set_up();  // 384 000 bit/s: code 28
  SetValue(kRegAudioMode, 22);
  SetValue(kRegDspAudioEnable, 1);
  SetValue(kRegAc3Control, 0x8011);
  EXPECT_EQ(GetValue(kRegAc3Sync), 0x770Bu);
  EXPECT_EQ(GetValue(kRegAc3Word2) & 0x3F, 28u);
}

TEST(HeaderCapture, needs_its_mode_and_the_gate_of_the_dsp) {
  WithFpga board;
  board.bench.world("audio dsp");
  board.bench.set_up();
  SetValue(kRegAc3Control, 0x8011);
  EXPECT_EQ(GetValue(kRegAc3Sync), 0u);  // mode 1
  SetValue(kRegAudioMode, 22);
  EXPECT_EQ(GetValue(kRegAc3Sync), 0u);  // gate closed
  SetValue(kRegDspAudioEnable, 1);
  EXPECT_EQ(GetValue(kRegAc3Sync), 0x770Bu);
}

// Busy from level 0x180 on, before the program's own limit of 400.
TEST(FirmwareFifo, is_busy_before_the_programs_limit) {
  WithFpga board;
  board.bench.world("fault dsp-fifo-stuck");  // nothing drains; HWAIT stands
  SetValue(kRegDspSpiControl, 0);
  SetValue(kRegDspSpiControl, 7);
  for (int i = 0; i < 383; ++i) SetValue(kRegDspSpiData, 0x55);
  EXPECT_EQ(GetValue(kRegDspSpiStatus), 0x8000u | 383);
  SetValue(kRegDspSpiData, 0x55);
  EXPECT_EQ(GetValue(kRegDspSpiStatus), 0x8000u | 0x0800u | 384);
}

// A master that was told HWAIT the wrong way round waits for ever.
TEST(FirmwareFifo, does_not_drain_without_the_echo_of_hwait) {
  WithFpga board;
  SetValue(kRegDspSpiControl, 0);
  SetValue(kRegDspSpiControl, 7);
  SetValue(kRegDspSpiData, 0x55);
  usleep(100'000);
  EXPECT_EQ(GetValue(kRegDspSpiStatus) & 0x1FF, 1u);
  SetValue(kRegDspSpiControl, 6);
  EXPECT_FALSE(board.bench.board().dsp.has_firmware);
}

// ---- FIFOs and queues -------------------------------------------------------------------

// Twelve bits of level; who polls the lower eight sees nothing at a multiple of 256.
TEST(UpdateFifo, of_256_bytes_looks_empty_to_a_poll_of_the_low_bits) {
  WithFpga board;
  FpgaState& fpga = board.bench.board().fpga;
  fpga.update_head = 0x100;
  EXPECT_EQ(GetValue(kRegUpdateStatus), 0x100u);
  EXPECT_EQ(GetValue(kRegUpdateStatus) & 0xFF, 0u);
  fpga.update_head = 0x1FFE;
  EXPECT_EQ(GetValue(kRegUpdateStatus), 0xFFFu);
}

TEST(UpdateFifo, is_fed_below_the_level_that_looks_empty) {
  WithFpga board;
  const std::vector<std::uint8_t> bytes(1000, 0x77);
  EXPECT_EQ(feed_update(board.bench.board().fpga, bytes.data(), bytes.size()), 254u);
  EXPECT_EQ(GetValue(kRegUpdateStatus), 254u);
  GetValue(kRegUpdateData);
  EXPECT_EQ(feed_update(board.bench.board().fpga, bytes.data(), bytes.size()), 2u);
}

// The sign bit tells that words were lost: 384 kbit/s are 24 000 words a second,
// more than 4096 in a fifth of one.
TEST(CaptureFifo, says_by_its_sign_that_it_ran_over) {
  WithFpga board;
  SetValue(kRegCaptureLoop, 4);
  usleep(100'000);
  EXPECT_EQ(GetValue(kRegCaptureStatus) & 0x8000, 0u);
  usleep(100'000);
  EXPECT_EQ(GetValue(kRegCaptureStatus), 0x8000u | 4096);
  SetValue(kRegCaptureLoop, 4);
  EXPECT_EQ(GetValue(kRegCaptureStatus) & 0x8000, 0u);
}

TEST(LinkQueue, that_is_full_takes_no_byte) {
  Bench bench;
  const int link = open("/dev/spislave", O_RDWR | O_NONBLOCK);
  const std::string bytes(kLinkDepth - 1, 'x');
  EXPECT_EQ(write(link, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  EXPECT_EQ(write(link, "ab", 2), 1);  // what finds room
  errno = 0;
  EXPECT_EQ(write(link, "b", 1), -1);
  EXPECT_EQ(errno, EAGAIN);
  close(link);
}

TEST(HostQueue, that_is_full_loses_what_the_host_sends_on) {
  Bench bench;
  LinkFifo& fifo = bench.board().link.to_board;
  std::uint8_t back = 0;
  for (std::uint32_t i = 0; i < kLinkDepth + 3; ++i) link_host_transfer(bench.board(), 0x11, &back);
  EXPECT_EQ(fifo.head, kLinkDepth);
  EXPECT_EQ(fifo.overruns, 3u);
}

// ---- counters that drift apart ----------------------------------------------------------

std::string dumped(const char* fault) {
  WithFpga board;
  board.bench.attach_block();
  board.bench.set_up();
  EXPECT_EQ(system("./encode&"), 0);
  board.bench.world(fault);
  usleep(60'000'000);
  board.bench.output();
  DebugPrintFPGARegs();
  return board.bench.output();
}

TEST(Drift, shows_as_a_difference_of_frames_in_the_dump) {
  EXPECT_THAT(dumped("fault video-drift"), testing::HasSubstr("\nframe dif = "));
  EXPECT_THAT(dumped("faults clear"), testing::Not(testing::HasSubstr("frame dif = ")));
}

// ---- the configuration port -------------------------------------------------------------

TEST(Bitstream, is_done_when_all_its_bytes_are_in) {
  WithFpga board;
  board.bench.world("bitstream 40");
  const auto status = [] {
    std::int32_t word = 0;
    ioctl(fileno(fpga_file), 0, &word);
    return word & 1;
  };
  for (std::int32_t level : {1, 0, 1}) ioctl(fileno(fpga_file), 1, &level);
  const std::string most(39, 'b');
  EXPECT_EQ(write(fileno(fpga_file), most.data(), most.size()), 39);
  EXPECT_EQ(status(), 0);
  EXPECT_EQ(write(fileno(fpga_file), "b", 1), 1);
  EXPECT_EQ(status(), 1);
}

}  // namespace
