// FPGA register access, the reset sequence and the line reader.
#include "hw/fpga.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;
namespace seam = vboard::seam;

// A bench whose register device is open, with nothing traced yet.
struct OpenDevice {
  Bench bench;
  OpenDevice() {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.trace();
  }
};

// ---- single registers -----------------------------------------------------------

TEST(GetValue, register_value_comes_zero_extended) {
  OpenDevice on;
  on.bench.set_fpga(0x234, 0xFFFE);
  on.bench.set_fpga(0x214, 0x8000);
  on.bench.set_fpga(0x1200, 0xFFFE);
  EXPECT_EQ(GetValue(0x1200), 0xFFFEu);
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga rd 0x1200 -> 0xfffe"));
}

TEST(GetValue, odd_address_reads_the_register_below) {
  OpenDevice on;
  on.bench.set_fpga(0x204, 0x4100);
  EXPECT_EQ(GetValue(0x205), 0x4100u);
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga rd 0x0204 -> 0x4100"));
}

TEST(GetValue, failed_request_reads_as_zero) {
  OpenDevice on;
  on.bench.set_fpga(0x204, 0x4100);
  on.bench.world("fault fpga-fail 16");
  EXPECT_EQ(GetValue(0x204), 0u);
  EXPECT_EQ(on.bench.output(), "");
}

TEST(GetValue, device_not_open_reads_as_zero) {
  Bench bench;
  bench.set_fpga(0x204, 0x4100);
  fpga_file = nullptr;
  EXPECT_EQ(GetValue(0x204), 0u);
  EXPECT_THAT(bench.trace(), IsEmpty());
}

TEST(SetValue, value_is_cut_to_sixteen_bits) {
  OpenDevice on;
  EXPECT_EQ(SetValue(0x1300, 0x38A93), 0);
  EXPECT_EQ(SetValue(0x1304, -2), 0);
  EXPECT_THAT(on.bench.trace(),
              ElementsAre("fpga wr 0x1300 <- 0x8a93", "fpga wr 0x1304 <- 0xfffe"));
}

TEST(SetValue, odd_address_writes_the_register_below) {
  OpenDevice on;
  EXPECT_EQ(SetValue(0x1301, 7), 0);
  EXPECT_EQ(on.bench.fpga(0x1300), 7);
}

TEST(SetValue, failed_request_gives_its_result) {
  OpenDevice on;
  on.bench.world("fault fpga-fail 15");
  EXPECT_EQ(SetValue(0x1300, 7), -1);
  EXPECT_EQ(on.bench.fpga(0x1300), 0);
}

TEST(SetValue, device_not_open_fails) {
  Bench bench;
  fpga_file = nullptr;
  EXPECT_EQ(SetValue(0x1300, 7), -1);
  EXPECT_EQ(bench.fpga(0x1300), 0);
}

TEST(GetValue32, low_half_is_read_before_the_high_half) {
  OpenDevice on;
  on.bench.set_fpga(0x04C, 0x8001);
  on.bench.set_fpga(0x050, 0x00E1);
  EXPECT_EQ(GetValue32(0x04C, 0x050), 0x00E18001u);
  EXPECT_THAT(on.bench.trace(),
              ElementsAre("fpga rd 0x004c -> 0x8001", "fpga rd 0x0050 -> 0x00e1"));
}

// ---- blocks ----------------------------------------------------------------------

TEST(SetArray, two_bytes_go_out_in_memory_order) {
  OpenDevice on;
  std::uint8_t bytes[] = {0x34, 0x12};
  EXPECT_EQ(SetArray(0x1000, 2, bytes), 0);
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga wrblk 0x1000 n=2 <- 34 12"));
}

TEST(SetArray, failed_request_gives_its_result) {
  OpenDevice on;
  std::uint8_t bytes[] = {0x34, 0x12};
  on.bench.world("fault fpga-fail 17");
  EXPECT_EQ(SetArray(0x1000, 2, bytes), -1);
}

TEST(GetArray, success_gives_the_count_that_the_driver_left) {
  OpenDevice on;
  on.bench.set_fpga(0x1320, 0x1234);
  std::uint8_t bytes[2] = {};
  EXPECT_EQ(GetArray(0x1320, 2, bytes), 2);
  EXPECT_THAT(bytes, ElementsAre(0x34, 0x12));
}

TEST(GetArray, count_is_cut_to_sixteen_bits) {
  OpenDevice on;
  std::vector<std::uint8_t> bytes(65536);
  EXPECT_EQ(GetArray(0, 65536, bytes.data()), 0);
  EXPECT_EQ(GetArray(0, 65535, bytes.data()), 65535);
}

TEST(GetArray, failed_request_gives_zero_and_leaves_the_buffer) {
  OpenDevice on;
  on.bench.set_fpga(0x1320, 0x1234);
  std::uint8_t bytes[2] = {0xEE, 0xEE};
  on.bench.world("fault fpga-fail 18");
  EXPECT_EQ(GetArray(0x1320, 2, bytes), 0);
  EXPECT_THAT(bytes, ElementsAre(0xEE, 0xEE));
}

TEST(GetArray, odd_address_reads_the_register_below) {
  OpenDevice on;
  on.bench.set_fpga(0x1320, 0x1234);
  std::uint8_t bytes[2] = {};
  EXPECT_EQ(GetArray(0x1321, 2, bytes), 2);
  EXPECT_THAT(on.bench.trace(), ElementsAre("fpga rdblk 0x1320 n=2 -> 34 12"));
}

// ---- open and reset ---------------------------------------------------------------

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
  EXPECT_NE(fpga_file.load(), nullptr);
}

TEST(OpenFpgaDev, block_gets_the_start_up_defaults) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.interlace_flag = 9;
  block.null_disable = 9;
  block.idr = 9;

  open_fpga_dev();

  struct Default {
    int offset;
    std::int32_t value;
  };
  const Default defaults[] = {{300, 60}, {260, 1}, {264, 1},  {268, 1}, {272, 700},
                              {304, 0},  {288, 0}, {292, 30}, {296, 0}};
  for (const Default& one : defaults) {
    std::int32_t stored = -1;
    memcpy(&stored, reinterpret_cast<const char*>(&block) + one.offset, sizeof stored);
    EXPECT_EQ(stored, one.value) << "offset " << one.offset;
  }
}

TEST(OpenFpgaDev, messages_stores_and_traffic_in_one_order) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  for (SharedWord* word :
       {&block.frame_div, &block.frame_mult, &block.eb_mode, &block.eb_delay, &block.null_disable,
        &block.gop_size, &block.idr, &block.bufferconst, &block.interlace_flag})
    *word = 5;
  bench.follow();
  bench.watch("restart", block.do_fpga_restart);
  bench.watch("300", block.bufferconst);
  bench.watch("260", block.frame_div);
  bench.watch("264", block.frame_mult);
  bench.watch("268", block.eb_mode);
  bench.watch("272", block.eb_delay);
  bench.watch("304", block.interlace_flag);
  bench.watch("288", block.null_disable);
  bench.watch("292", block.gop_size);
  bench.watch("296", block.idr);
  EXPECT_EQ(open_fpga_dev(), 0);
  EXPECT_THAT(bench.stream(),
              ElementsAre("open /dev/fpga r+b", "restart = 1", "wait 10000", "say Reset FPGA",
                          "fpga wr 0x0004 <- 0x0001", "fpga wr 0x0008 <- 0x0001",
                          "fpga wr 0x0010 <- 0x0000", "fpga wr 0x0224 <- 0x0000",
                          "fpga wr 0x132c <- 0x0000", "wait 1000000", "fpga wr 0x0004 <- 0x0000",
                          "wait 10000", "say    after Reset FPGA", "fpga wr 0x1328 <- 0x0006",
                          // and with it the defaults, in no order that anybody could see
                          "300 = 60", "260 = 1", "264 = 1", "268 = 1", "272 = 700", "304 = 0",
                          "288 = 0", "292 = 30", "296 = 0"));
}

TEST(OpenFpgaDev, restart_word_is_raised_before_the_reset) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  EXPECT_FALSE(bench.run_for(5'000, [] { open_fpga_dev(); }));
  EXPECT_EQ(block.do_fpga_restart, 1);
  EXPECT_EQ(bench.output(), "");
}

TEST(OpenFpgaDev, defaults_come_after_the_reset) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  EXPECT_FALSE(bench.run_for(1'015'000, [] { open_fpga_dev(); }));
  EXPECT_EQ(block.bufferconst, 0);
}

TEST(OpenFpgaDev, last_write_fails_and_is_the_result) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  seam::fail_call("ioctl", "/dev/fpga 15", 6, 1, EIO);  // the seventh write, 0x1328
  EXPECT_EQ(open_fpga_dev(), -1);
  EXPECT_EQ(block.bufferconst, 60);
}

TEST(OpenFpgaDev, earlier_writes_fail_unnoticed) {
  Bench bench;
  bench.attach_block();
  seam::fail_call("ioctl", "/dev/fpga 15", 0, 6, EIO);
  EXPECT_EQ(open_fpga_dev(), 0);
  EXPECT_EQ(bench.output(), "Reset FPGA\n   after Reset FPGA\n");
}

TEST(OpenFpgaDev, block_not_attached_still_resets) {
  Bench bench;
  shared_memory = nullptr;
  EXPECT_EQ(open_fpga_dev(), 0);
  EXPECT_EQ(bench.fpga(0x1328), 6);
}

TEST(OpenFpgaDev, device_missing_prints_and_leaves_the_block_alone) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  bench.world("fault missing fpga");

  EXPECT_EQ(open_fpga_dev(), -1);

  EXPECT_EQ(bench.output(), "Cannot access SPI port (/dev/fpga)\n");
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(block.bufferconst, 0);
  EXPECT_EQ(block.gop_size, 0);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/fpga = ENOENT"));
}

// ---- lines --------------------------------------------------------------------------

// A stream that holds this text.
class TextStream {
 public:
  explicit TextStream(const std::string& text) : stream_(tmpfile()) {
    fwrite(text.data(), 1, text.size(), stream_);
    rewind(stream_);
  }
  ~TextStream() { fclose(stream_); }
  TextStream(const TextStream&) = delete;
  TextStream& operator=(const TextStream&) = delete;
  FILE* get() const { return stream_; }

 private:
  FILE* stream_;
};

TEST(ReadLine, lines_come_one_by_one_with_their_ends) {
  const TextStream text("one\ntwo\n");
  char line[16];
  EXPECT_EQ(read_line(text.get(), line, sizeof line), 1);
  EXPECT_STREQ(line, "one\n");
  EXPECT_EQ(read_line(text.get(), line, sizeof line), 1);
  EXPECT_STREQ(line, "two\n");
  EXPECT_EQ(read_line(text.get(), line, sizeof line), 0);
}

TEST(ReadLine, last_line_without_an_end_is_read) {
  const TextStream text("one");
  char line[16];
  EXPECT_EQ(read_line(text.get(), line, sizeof line), 1);
  EXPECT_STREQ(line, "one");
}

TEST(ReadLine, long_line_comes_in_pieces_of_size_less_one) {
  const TextStream text("abcdefg\n");
  char line[5];
  EXPECT_EQ(read_line(text.get(), line, sizeof line), 1);
  EXPECT_STREQ(line, "abcd");
  EXPECT_EQ(read_line(text.get(), line, sizeof line), 1);
  EXPECT_STREQ(line, "efg\n");
}

TEST(ReadLine, read_error_gives_zero) {
  FILE* directory = fopen("/", "r");
  ASSERT_NE(directory, nullptr);
  char line[16];
  EXPECT_EQ(read_line(directory, line, sizeof line), 0);
  EXPECT_EQ(feof(directory), 0);
  fclose(directory);
}

}  // namespace
