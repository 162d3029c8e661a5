// What the models record as violations: undocumented registers, transfers of a
// wrong length, requests that no driver has. And the trace lines they write.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "hw/fpga.h"
#include "hw/i2capi.h"
#include "vboard/core/trace.h"
#include "vboard/testing/bench.h"

namespace {

using namespace vboard;
using testing::ElementsAre;

struct Misuse {
  const char* name;
  void (*act)(Bench& bench);
  const char* text;
};
void PrintTo(const Misuse& one, std::ostream* out) { *out << one.name; }

void i2c_write(int address, const std::vector<std::uint8_t>& bytes) {
  const int bus = init_i2c(1);
  i2c_writeblk(bus, address, 0, 0, static_cast<int>(bytes.size()), bytes.data());
  close(bus);
}
void i2c_read(int address, int reg, int count = 1) {
  const int bus = init_i2c(1);
  std::uint8_t bytes[16] = {};
  i2c_readblk(bus, address, reg, 1, count, bytes);
  close(bus);
}
void fpga(unsigned long request, void* argument) {
  FILE* device = fopen("/dev/fpga", "r+b");
  ioctl(fileno(device), request, argument);
  fclose(device);
}
void fpga_register(unsigned long request, int index) {
  FpgaSingle single{};
  single.index = index;
  fpga(request, &single);
}
void fpga_write(int address, int value) {
  FpgaSingle single{};
  single.index = address / 2;
  single.value = static_cast<std::uint16_t>(value);
  fpga(15, &single);
}
void video(unsigned long request, std::int32_t value) {
  const int fd = open("/dev/video0", O_RDWR);
  ioctl(fd, request, &value);
  close(fd);
}

class Strict : public testing::TestWithParam<Misuse> {};

TEST_P(Strict, misuse_is_recorded_and_traced) {
  Bench bench;
  EXPECT_EQ(bench.board().violations.count, 0u);
  GetParam().act(bench);
  EXPECT_GE(bench.board().violations.count, 1u);
  EXPECT_STREQ(bench.board().violations.first, GetParam().text);
  const std::vector<std::string> seen = bench.trace({"violation"});
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.front(), std::string("violation ") + GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    devices, Strict,
    testing::Values(
        Misuse{"tvp7002_write_of_an_unknown_register",
               [](Bench&) {
                 i2c_write(0x5C, {0x14, 1});
               },
               "tvp7002 write of register 14"},
        Misuse{"tvp7002_read_of_an_unknown_register", [](Bench&) { i2c_read(0x5C, 0x5D); },
               "tvp7002 read of register 5d"},
        Misuse{"tvp7002_two_values_at_once",
               [](Bench&) {
                 i2c_write(0x5C, {0x40, 1, 2});
               },
               "tvp7002 write of 3 bytes"},
        Misuse{"tvp5150_write_of_an_unknown_register",
               [](Bench&) {
                 i2c_write(0x5D, {0x88, 1});
               },
               "tvp5150 write of register 88"},
        Misuse{"tvp5150_read_of_an_unknown_register", [](Bench&) { i2c_read(0x5D, 0xFF); },
               "tvp5150 read of register ff"},
        Misuse{"tvp5150_line_data_outside_its_ram",
               [](Bench&) {
                 i2c_write(0x5D, {0xC4, 0x10});
                 i2c_write(0x5D, {0xC3, 1});
               },
               "tvp5150 line data at address 010"},
        Misuse{"dix4192_write_of_an_unknown_register",
               [](Bench&) {
                 i2c_write(0x70, {0x13, 1});
               },
               "dix4192 write of register 13"},
        Misuse{"dix4192_read_of_an_unknown_register", [](Bench&) { i2c_read(0x70, 0x30); },
               "dix4192 read of register 30"},
        Misuse{"dix4192_unknown_page",
               [](Bench&) {
                 i2c_write(0x70, {0x7F, 1});
               },
               "dix4192 page 1"},
        Misuse{"7353_write_of_an_unknown_register",
               [](Bench&) {
                 i2c_write(0x2E, {4, 1});
               },
               "7353 write of register 04"},
        Misuse{"7353_read_of_an_unknown_register", [](Bench&) { i2c_read(0x2E, 0); },
               "7353 read of register 00"},
        Misuse{"clock_write_of_an_unknown_register",
               [](Bench&) {
                 i2c_write(0x55, {0x62, 1});
               },
               "clock write of register 62"},
        Misuse{"dsp_unknown_command", [](Bench&) { i2c_write(0x1C, {0x03}); },
               "ac3dsp command 03 of 1 bytes"},
        Misuse{"dsp_command_too_short",
               [](Bench&) {
                 i2c_write(0x1C, {0x01, 0});
               },
               "ac3dsp command 01 of 2 bytes"},
        Misuse{"dsp_query_with_an_argument",
               [](Bench&) {
                 i2c_write(0x1C, {0x80, 1});
               },
               "ac3dsp command 80 with 01"},
        Misuse{"dsp_read_before_its_reply",
               [](Bench&) {
                 i2c_read(0x1C, 0x80);  // the command and the read in one transfer
               },
               "ac3dsp command 80 of 1 bytes"},
        Misuse{"dsp_reply_fetched_at_once",
               [](Bench&) {
                 i2c_write(0x1C, {0x80, 0});
                 std::uint8_t byte = 0;
                 const int bus = init_i2c(1);
                 i2c_readblk(bus, 0x1C, 0, 0, 1, &byte);
                 close(bus);
               },
               "ac3dsp read before its reply"},
        Misuse{"dsp_firmware_without_the_echo_of_hwait",
               [](Bench&) {
                 fpga_write(0x144, 0);
                 fpga_write(0x144, 7);
               },
               "dsp spi control without the echo of HWAIT"},
        Misuse{"dsp_firmware_behind_an_older_push",
               [](Bench&) {
                 fpga_write(0x144, 2);
                 fpga_write(0x144, 3);
               },
               "dsp spi start behind control 0x0002"},
        // word 0x280 is byte address 0x500
        Misuse{"fpga_read_of_an_unknown_register", [](Bench&) { fpga_register(16, 0x280); },
               "fpga read of unknown register 0x0500"},
        Misuse{"fpga_write_of_an_unknown_register", [](Bench&) { fpga_register(15, 0x280); },
               "fpga write of unknown register 0x0500"},
        Misuse{"fpga_write_of_a_read_only_register", [](Bench&) { fpga_register(15, 0x214 / 2); },
               "fpga write of read-only register 0x0214"},
        Misuse{"fpga_register_out_of_range", [](Bench&) { fpga_register(16, 4096); },
               "fpga register index 4096 out of range"},
        Misuse{"fpga_block_out_of_range",
               [](Bench&) {
                 std::uint16_t value = 0;
                 FpgaBlock block{-1, sizeof value, &value};
                 fpga(kFpgaReadBlock, &block);
               },
               "fpga block index -1 out of range"},
        Misuse{"fpga_unknown_request",
               [](Bench&) {
                 std::int32_t word = 1;
                 fpga(77, &word);
               },
               "fpga request 77"},
        Misuse{"fpga_line_with_another_word",
               [](Bench&) {
                 std::int32_t word = 0;
                 fpga(28, &word);
               },
               "fpga line 28 with 0"},
        Misuse{"video0_unknown_input", [](Bench&) { video(0xC0045627, 2); }, "video0 input 2"},
        Misuse{"video0_unknown_request", [](Bench&) { video(0x1234, 0); }, "video0 request 0x1234"},
        Misuse{"i2c_unknown_request",
               [](Bench&) {
                 const int bus = init_i2c(1);
                 ioctl(bus, 0x0799, nullptr);
                 close(bus);
               },
               "i2c request 0x799"},
        Misuse{"pll_three_bytes",
               [](Bench&) {
                 const int fd = open("/dev/fpga2", O_RDWR);
                 EXPECT_EQ(write(fd, "abc", 3), 3);
                 close(fd);
               },
               "pll write of 3 bytes"},
        Misuse{"pll_word_of_another_register",
               [](Bench&) {
                 const int fd = open("/dev/fpga2", O_RDWR);
                 EXPECT_EQ(write(fd, "\x20", 2), 2);
                 close(fd);
               },
               "pll word for address 20"}),
    [](const auto& one) { return std::string(one.param.name); });

// ---- documented use leaves no note ---------------------------------------------------

TEST(Lenient, documented_use_is_no_violation) {
  Bench bench;
  i2c_write(0x5C, {0x40, 0x47});
  i2c_read(0x5C, 0x14);
  i2c_write(0x5D, {0x28, 0x0A});
  i2c_read(0x5D, 0x88);
  i2c_write(0x70, {0x0D, 0x08});
  i2c_read(0x70, 0x2A);
  i2c_write(0x2E, {0x01, 0x14});
  i2c_write(0x55, {0x63, 0x63});
  i2c_write(0x1C, {0x02});
  fpga_register(16, 0);
  video(0xC0045627, 3);
  EXPECT_EQ(bench.board().violations.count, 0u);
}

TEST(Lenient, first_violation_is_kept_and_all_are_counted) {
  Bench bench;
  i2c_read(0x5C, 0x5D);
  i2c_read(0x5D, 0xFF);
  EXPECT_EQ(bench.board().violations.count, 2u);
  EXPECT_STREQ(bench.board().violations.first, "tvp7002 read of register 5d");
}

TEST(I2cBus, nobody_answers_at_an_empty_address) {
  Bench bench;
  i2c_write(0x21, {1, 2});
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", "i2c 21 wr 01 02 = EREMOTEIO", "close /dev/i2c-1"));
  EXPECT_EQ(init_i2c(0), -1);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-0 = ENOENT"));
}

TEST(I2cBus, chip_in_reset_does_not_answer) {
  Bench bench;
  std::int32_t one = 1;
  fpga(93, &one);
  i2c_read(0x5C, 0x14);
  fpga(94, &one);
  i2c_read(0x5C, 0x14);
  EXPECT_THAT(bench.trace({"i2c"}), ElementsAre("i2c 5c rd 14 = EREMOTEIO", "i2c 5c rd 14 -> da"));
}

// ---- trace ---------------------------------------------------------------------------

TEST(Trace, names_each_device_operation) {
  Bench bench;
  std::int32_t one = 1;
  std::int32_t zero = 0;
  fpga(26, &one);
  fpga(87, &zero);
  FpgaSingle single{};
  single.index = 0x112;
  single.value = 0x4000;
  fpga(15, &single);
  std::uint16_t word = 0x1000;
  FpgaBlock block{};
  block.index = 0x800;
  block.count = 2;
  block.buffer = &word;
  fpga(17, &block);
  video(0xC004562C, 24);
  usleep(1500);
  bench.put_file("x", "");
  EXPECT_EQ(system("true"), 0);
  EXPECT_EQ(fopen("/home/tovin/none", "r"), nullptr);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/fpga r+b", "fpga line 26", "close /dev/fpga",
                          "open /dev/fpga r+b", "fpga led 87", "close /dev/fpga",
                          "open /dev/fpga r+b", "fpga wr 0x0224 <- 0x4000", "close /dev/fpga",
                          "open /dev/fpga r+b", "fpga wrblk 0x1000 n=2 <- 00 10", "close /dev/fpga",
                          "open /dev/video0", "video0 0xc004562c 24", "close /dev/video0",
                          "wait 1500", "shell true", "file /home/tovin/none r = ENOENT"));
}

TEST(Trace, injected_failures_are_shown) {
  Bench bench;
  seam::fail_call("fopen", "/dev/fpga", 1, 1, EBUSY);
  for (int i = 0; i < 3; ++i)
    if (FILE* device = fopen("/dev/fpga", "r+b")) fclose(device);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/fpga r+b", "close /dev/fpga", "fopen /dev/fpga = EBUSY",
                          "open /dev/fpga r+b", "close /dev/fpga"));
  seam::clear_call_faults();
}

TEST(Trace, errors_have_their_names) {
  EXPECT_STREQ(errno_name(ENOENT), "ENOENT");
  EXPECT_STREQ(errno_name(123456), "E?");
}

TEST(Handles, are_known_until_closed_and_follow_dup) {
  Bench bench;
  const int bus = init_i2c(1);
  const int copy = dup(bus);
  close(bus);
  EXPECT_EQ(seam::open_handles(), "/dev/i2c-1\n");
  std::uint8_t byte = 0;
  EXPECT_EQ(i2c_readbyte(copy, 0x5C, 0x14, &byte), 2);
  EXPECT_EQ(byte, 0xDA);
  close(copy);
  EXPECT_EQ(seam::open_handles(), "");
}

}  // namespace
