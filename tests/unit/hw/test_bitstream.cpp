// The FPGA bitstream load, bit reversal, and the data file push.
#include "hw/bitstream.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vboard::Bench;
namespace seam = vboard::seam;

// A byte's eight bits in reverse order, nibble by nibble.
std::uint8_t reversed(std::uint8_t byte) {
  constexpr int kNibble[] = {0x0, 0x8, 0x4, 0xC, 0x2, 0xA, 0x6, 0xE,
                             0x1, 0x9, 0x5, 0xD, 0x3, 0xB, 0x7, 0xF};
  return static_cast<std::uint8_t>(kNibble[byte & 0xF] << 4 | kNibble[byte >> 4]);
}

std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 256 + 1);
  return text;
}

// FNV-1a over the bytes that a file puts on the device: reversed, then 0xFF.
std::uint32_t hash_on_device(const std::string& file) {
  std::uint32_t hash = vboard::kFnvStart;
  const auto add = [&hash](std::uint8_t byte) { hash = vboard::fnv1a(hash, byte); };
  for (const char c : file) add(reversed(static_cast<std::uint8_t>(c)));
  add(0xFF);
  return hash;
}

// ---- swapp -------------------------------------------------------------------------

TEST(Swapp, known_bytes) {
  std::uint8_t bytes[] = {0x01, 0x02, 0xF0, 0xA5, 0x00, 0xFF, 0x13};
  swapp(bytes, 7);
  EXPECT_THAT(bytes, ElementsAre(0x80, 0x40, 0x0F, 0xA5, 0x00, 0xFF, 0xC8));
}

TEST(Swapp, every_byte) {
  std::uint8_t bytes[256];
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<std::uint8_t>(i);
  swapp(bytes, 256);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(bytes[i], reversed(static_cast<std::uint8_t>(i))) << i;
}

TEST(Swapp, length_bounds_what_is_changed) {
  std::uint8_t bytes[] = {0x01, 0x01, 0x01};
  swapp(bytes, 0);
  EXPECT_THAT(bytes, ElementsAre(0x01, 0x01, 0x01));
  swapp(bytes, 2);
  EXPECT_THAT(bytes, ElementsAre(0x80, 0x80, 0x01));
}

// ---- what goes to the device ---------------------------------------------------------

TEST(FpgaLoadBitstream, seventeen_bytes_go_as_sixteen_and_one_in_order) {
  Bench bench;
  // 0x01 … 0x10, then 0xA5, which is its own reverse.
  bench.put_file("a.rbf", "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10\xA5");

  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);

  EXPECT_THAT(
      bench.trace(),
      ElementsAre("open /dev/fpga r+b", "file a.rbf rb", "fpga config-line 1", "wait 1000",
                  "fpga config-line 0", "fpga config-line 1", "fpga config-status -> 2",
                  "wait 1000", "fpga port wr 80 40 c0 20 a0 60 e0 10 90 50 d0 30 b0 70 f0 08",
                  "fpga port rd 80 40 c0 20 a0 60 e0 10 90 50 d0 30 b0 70 f0 08", "fpga port wr a5",
                  "fpga port rd a5", "fpga config-status -> 3", "fpga port wr ff",
                  "close /dev/fpga"));
  EXPECT_EQ(bench.output(),
            "waited 0 loops for nSTATUS to respond\n"
            "Wrote 17 configuration bytes to the FPGA\n"
            "Configuartion completed successfully\n");
  EXPECT_EQ(seam::open_handles(), "");
}

TEST(FpgaLoadBitstream, empty_file_sends_only_the_closing_byte) {
  Bench bench;
  bench.put_file("a.rbf", "");
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_THAT(bench.trace({"fpga port"}), ElementsAre("fpga port wr ff"));
  // The port saw no bitstream, so its done bit is clear.
  EXPECT_EQ(bench.output(),
            "waited 0 loops for nSTATUS to respond\n"
            "Wrote 0 configuration bytes to the FPGA\n"
            "Configuration error: status=0x2\n");
}

class BitstreamSize : public testing::TestWithParam<std::size_t> {};

TEST_P(BitstreamSize, device_gets_every_byte_reversed_then_ff) {
  Bench bench;
  const std::string file = pattern(GetParam());
  bench.put_file("a.rbf", file);

  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);

  EXPECT_EQ(bench.board().fpga.config_bytes, GetParam() + 1);
  EXPECT_EQ(bench.board().fpga.config_hash, hash_on_device(file));
  EXPECT_EQ(bench.trace({"fpga port rd"}).size(), (GetParam() + 15) / 16);
  EXPECT_THAT(bench.output(), HasSubstr("Wrote " + std::to_string(GetParam()) +
                                        " configuration bytes to the FPGA\n"));
  EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
}

INSTANTIATE_TEST_SUITE_P(FpgaLoadBitstream, BitstreamSize,
                         testing::Values(0, 1, 15, 16, 17, 32, 1 << 20),
                         [](const auto& test) { return std::to_string(test.param) + "_bytes"; });

TEST(FpgaLoadBitstream, path_may_lie_anywhere) {
  Bench bench;
  bench.put_file("images/b.rbf", "x");
  EXPECT_EQ(fpgaLoadBitstream(bench.path("images/b.rbf").c_str()), 0);
  EXPECT_EQ(bench.board().fpga.config_bytes, 2u);
}

TEST(FpgaLoadBitstream, second_load_starts_afresh) {
  Bench bench;
  bench.put_file("a.rbf", pattern(40));
  bench.put_file("b.rbf", pattern(3));
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_EQ(fpgaLoadBitstream("b.rbf"), 0);
  EXPECT_EQ(bench.board().fpga.config_bytes, 4u);
  EXPECT_EQ(bench.board().fpga.config_hash, hash_on_device(pattern(3)));
}

// ---- nSTATUS ---------------------------------------------------------------------------

struct Readiness {
  const char* delay;  // polls before nSTATUS shows
  int waits;
};

class Nstatus : public testing::TestWithParam<Readiness> {};

TEST_P(Nstatus, waits_a_millisecond_a_poll) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  bench.world(std::string("fault nstatus ") + GetParam().delay);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_THAT(bench.output(), testing::StartsWith("waited " + std::to_string(GetParam().waits) +
                                                  " loops for nSTATUS to respond\n"));
  // One millisecond after the first high, one a wait, one before the data.
  const std::vector<std::string> expected(static_cast<std::size_t>(GetParam().waits) + 2,
                                          "wait 1000");
  EXPECT_EQ(bench.trace({"wait"}), expected);
}

INSTANTIATE_TEST_SUITE_P(FpgaLoadBitstream, Nstatus,
                         testing::Values(Readiness{"0", 0}, Readiness{"1", 1}, Readiness{"50", 50},
                                         Readiness{"99", 99}),
                         [](const auto& test) {
                           return "first_seen_on_poll_" + std::to_string(test.param.waits + 1);
                         });

TEST(FpgaLoadBitstream, nstatus_never_fails_after_a_hundred_polls) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  bench.world("fault nstatus never");
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 7);
  EXPECT_EQ(bench.output(), "waited 100 loops for nSTATUS to respond\nnSTATUS = 0, expected 2\n");
  EXPECT_EQ(bench.trace({"fpga config-status"}).size(), 100u);
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n");
}

TEST(FpgaLoadBitstream, nstatus_one_poll_too_late_fails) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  bench.world("fault nstatus 100");
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 7);
  EXPECT_THAT(bench.trace({"fpga port"}), IsEmpty());
}

// ---- failures ---------------------------------------------------------------------------

TEST(FpgaLoadBitstream, device_missing_gives_1) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  bench.world("fault missing fpga");
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 1);
  EXPECT_EQ(bench.output(), "Cannot access SPI port (/dev/fpga)\n");
}

TEST(FpgaLoadBitstream, file_missing_gives_2_and_leaves_the_line_alone) {
  Bench bench;
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 2);
  EXPECT_EQ(bench.output(), "Cannot access RBF file\n");
  EXPECT_THAT(bench.trace({"fpga"}), IsEmpty());
}

struct RefusedLine {
  int skip;  // requests that go through before
  int result;
  std::vector<std::string> traffic;
};

class ConfigLine : public testing::TestWithParam<RefusedLine> {};

TEST_P(ConfigLine, refused_ends_the_load) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  seam::fail_call("ioctl", "/dev/fpga 1", GetParam().skip, 1, EIO);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), GetParam().result);
  EXPECT_EQ(bench.output(), "Error -1 in IOCTL\n");
  EXPECT_EQ(bench.trace({"fpga", "wait"}), GetParam().traffic);
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n");
}

INSTANTIATE_TEST_SUITE_P(
    FpgaLoadBitstream, ConfigLine,
    testing::Values(RefusedLine{0, 3, {}}, RefusedLine{1, 4, {"fpga config-line 1", "wait 1000"}},
                    RefusedLine{2, 5, {"fpga config-line 1", "wait 1000", "fpga config-line 0"}}),
    [](const auto& test) { return "result_" + std::to_string(test.param.result); });

TEST(FpgaLoadBitstream, first_status_poll_refused_gives_6) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  seam::fail_call("ioctl", "/dev/fpga 0", 0, 1, EIO);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 6);
  EXPECT_EQ(bench.output(), "Error -1 in IOCTL\n");
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n");
}

TEST(FpgaLoadBitstream, later_status_poll_refused_gives_6) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  bench.world("fault nstatus 10");
  seam::fail_call("ioctl", "/dev/fpga 0", 2, 1, EIO);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 6);
  EXPECT_EQ(bench.output(), "Error -1 in IOCTL\n");
  EXPECT_EQ(bench.trace({"fpga config-status"}).size(), 2u);
}

TEST(FpgaLoadBitstream, final_status_refused_gives_8) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  seam::fail_call("ioctl", "/dev/fpga 0", 1, 1, EIO);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 8);
  EXPECT_EQ(bench.output(),
            "waited 0 loops for nSTATUS to respond\n"
            "Wrote 1 configuration bytes to the FPGA\n"
            "Error -1 in IOCTL read\n");
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n");
}

TEST(FpgaLoadBitstream, done_never_set_is_only_reported) {
  Bench bench;
  bench.put_file("a.rbf", "x");
  bench.world("fault config-broken");
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_EQ(bench.output(),
            "waited 0 loops for nSTATUS to respond\n"
            "Wrote 1 configuration bytes to the FPGA\n"
            "Configuration error: status=0x2\n");
}

TEST(FpgaLoadBitstream, short_write_of_the_first_chunk_stops_the_data) {
  Bench bench;
  bench.put_file("a.rbf", pattern(40));
  seam::fail_call("fwrite", "", 0, 1, EIO);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_EQ(bench.output(),
            "waited 0 loops for nSTATUS to respond\n"
            "Failed to write 16 (wrote 0,  total 0)\n"
            "Wrote 0 configuration bytes to the FPGA\n"
            "Configuration error: status=0x2\n");
  EXPECT_THAT(bench.trace({"fpga port"}), ElementsAre("fpga port wr ff"));
}

TEST(FpgaLoadBitstream, short_write_of_the_last_chunk_counts_what_went_before) {
  Bench bench;
  bench.put_file("a.rbf", pattern(40));
  seam::fail_call("fwrite", "", 2, 1, EIO);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_EQ(bench.output(),
            "waited 0 loops for nSTATUS to respond\n"
            "Failed to write 8 (wrote 0,  total 32)\n"
            "Wrote 32 configuration bytes to the FPGA\n"
            "Configuartion completed successfully\n");
  EXPECT_EQ(bench.board().fpga.config_hash, hash_on_device(pattern(32)));
}

TEST(FpgaLoadBitstream, read_back_that_fails_is_ignored) {
  Bench bench;
  bench.put_file("a.rbf", pattern(20));
  seam::fail_call("read", "/dev/fpga", 0, -1, EIO);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_EQ(bench.board().fpga.config_hash, hash_on_device(pattern(20)));
}

TEST(FpgaLoadBitstream, port_that_gives_nothing_back_is_asked_after_each_chunk) {
  Bench bench;
  bench.put_file("a.rbf", pattern(40));
  seam::fail_call("read", "/dev/fpga", 0, -1, 0);
  EXPECT_EQ(fpgaLoadBitstream("a.rbf"), 0);
  EXPECT_EQ(bench.board().fpga.config_hash, hash_on_device(pattern(40)));
  // 40 bytes are chunks of 16, 16 and 8.
  EXPECT_EQ(bench.trace({"read /dev/fpga"}).size(), 3u);
}

// ---- WriteFileToFpga ------------------------------------------------------------------------

TEST(WriteFileToFpga, bytes_go_as_they_are_after_the_address) {
  Bench bench;
  bench.put_file("a.bin", std::string("\x01\x80\x00\xff", 4));
  EXPECT_EQ(WriteFileToFpga("a.bin"), 0);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/fpga r+b", "file a.bin rb", "fpga config-address 0x4000000",
                          "fpga config-byte 0x1", "fpga config-byte 0x80", "fpga config-byte 0x0",
                          "fpga config-byte 0xff"));
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(seam::open_handles(), "/dev/fpga\n");
}

TEST(WriteFileToFpga, empty_file_sends_only_the_address) {
  Bench bench;
  bench.put_file("a.bin", "");
  EXPECT_EQ(WriteFileToFpga("a.bin"), 0);
  EXPECT_THAT(bench.trace({"fpga"}), ElementsAre("fpga config-address 0x4000000"));
}

TEST(WriteFileToFpga, file_longer_than_a_chunk_arrives_in_order) {
  Bench bench;
  const std::string file = pattern(2050);
  bench.put_file("a.bin", file);
  EXPECT_EQ(WriteFileToFpga("a.bin"), 0);
  std::vector<std::string> expected;
  for (const char c : file) {
    char line[40];
    snprintf(line, sizeof line, "fpga config-byte 0x%x", static_cast<unsigned>(c) & 0xFF);
    expected.emplace_back(line);
  }
  EXPECT_EQ(bench.trace({"fpga config-byte"}), expected);
}

TEST(WriteFileToFpga, refused_requests_are_not_noticed) {
  Bench bench;
  bench.put_file("a.bin", "ab");
  bench.world("fault fpga-fail");
  EXPECT_EQ(WriteFileToFpga("a.bin"), 0);
  EXPECT_THAT(bench.trace({"fpga"}),
              ElementsAre("fpga request 2 = EIO", "fpga request 3 = EIO", "fpga request 3 = EIO"));
  EXPECT_EQ(bench.output(), "");
}

TEST(WriteFileToFpga, device_missing_gives_1) {
  Bench bench;
  bench.put_file("a.bin", "ab");
  bench.world("fault missing fpga");
  EXPECT_EQ(WriteFileToFpga("a.bin"), 1);
  EXPECT_EQ(bench.output(), "Cannot access SPI port (/dev/fpga)\n");
}

TEST(WriteFileToFpga, file_missing_gives_2) {
  Bench bench;
  EXPECT_EQ(WriteFileToFpga("a.bin"), 2);
  EXPECT_EQ(bench.output(), "Cannot access MPEG2 file\n");
  EXPECT_THAT(bench.trace({"fpga"}), IsEmpty());
}

}  // namespace
