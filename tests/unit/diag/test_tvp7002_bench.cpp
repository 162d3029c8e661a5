// The digitizer's bench: register dump, blanking registers, sync and input status.
#include "diag/tvp7002_bench.h"

#include <gmock/gmock.h>

#include <string>

#include "hw/shared_memory_davinci.h"
#include "tests/support/i2c_lines.h"
#include "vboard/testing/bench.h"

namespace {

using i2c_lines::add;
using i2c_lines::Lines;
using i2c_lines::rd;
using i2c_lines::rd_failed;
using i2c_lines::wr;
using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using vboard::Bench;

constexpr int kChip = 0x5C;
constexpr char kNoBus7002[] = "Cannot access I2C device 7002\n";
constexpr char kNoBusBrightness[] = "Cannot access I2C device - Brightness\n";

std::string hex(int value) {
  char text[8];
  snprintf(text, sizeof text, "%02x", value);
  return text;
}

class Tvp7002 : public testing::Test {
 protected:
  Tvp7002() : block(bench.attach_block()) { TestVBLK_F0 = 0; }
  void TearDown() override {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }

  std::uint8_t* reg() { return bench.board().tvp7002.reg; }
  void stick(int address, int value) {
    bench.world("fault stuck 5c " + hex(address) + " " + hex(value));
  }
  void fail_transfer(int number) { bench.world("fault i2c-fail 5c " + std::to_string(number)); }
  std::string open_handles() { return vboard::seam::open_handles(); }

  Bench bench;
  SharedBlock& block;
};

// ---- prog7002 ----------------------------------------------------------------------------

class Prog7002 : public Tvp7002 {
 protected:
  Prog7002() {
    for (int one = 0; one <= 0xFF; ++one)
      bench.board().tvp7002.reg[one] = static_cast<std::uint8_t>(one ^ 0x5A);
    // Live registers of the chip held still.
    bench.world("fault stuck 5c 14 4e");  // 14 ^ 5a
    bench.world("fault stuck 5c 24 7e");
    bench.world("fault stuck 5c 27 7d");
  }
  // The dump; register `changed` holds `value`.
  static std::string dump_text(int changed, int value) {
    std::string text;
    for (int one = 0; one < 74; ++one) {
      char line[32];
      snprintf(line, sizeof line, "#%x=0x%x\n", one, one == changed ? value : one ^ 0x5A);
      text += line;
    }
    return text;
  }
  static Lines dump_lines(int changed, int value) {
    Lines lines;
    for (int one = 0x00; one <= 0x49; ++one)
      lines.push_back(rd(kChip, one, one == changed ? value : one ^ 0x5A));
    return lines;
  }
};

TEST_F(Prog7002, writes_one_register_and_dumps_all) {
  EXPECT_EQ(prog7002(0x21, 0x1C3), 0);

  Lines expected = {"open /dev/i2c-1", "wait 1000000", "i2c 5c wr 21 c3", "wait 1000000"};
  add(expected, dump_lines(0x21, 0xC3));
  add(expected, {"close /dev/i2c-1"});
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(), "Start prog7002\ninput_data1 = 21\ninput_data2 = 1c3\nreturn\n" +
                                dump_text(0x21, 0xC3));
}

TEST_F(Prog7002, register_99_dumps_without_a_write) {
  EXPECT_EQ(prog7002(99, 0xC3), 0);

  Lines expected = {"open /dev/i2c-1", "wait 1000000", "wait 1000000"};
  add(expected, dump_lines(-1, 0));
  add(expected, {"close /dev/i2c-1"});
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(),
            "Start prog7002\ninput_data1 = 63\ninput_data2 = c3\n" + dump_text(-1, 0));
}

TEST_F(Prog7002, failed_transfers_print_their_result) {
  bench.world("fault i2c-fail 5c");

  EXPECT_EQ(prog7002(0x21, 0), 0);

  std::string expected = "Start prog7002\ninput_data1 = 21\ninput_data2 = 0\nrc=-1\nreturn\n";
  for (int one = 0; one < 74; ++one) expected += "rc=-1\n";
  EXPECT_EQ(bench.output(), expected);
}

TEST_F(Prog7002, one_failed_read_leaves_the_others) {
  bench.world("fault i2c-fail 5c 3");  // register 0x02: 99 writes nothing
  EXPECT_EQ(prog7002(99, 0), 0);
  EXPECT_THAT(bench.output(), HasSubstr("#1=0x5b\nrc=-1\n#3=0x59\n"));
  EXPECT_THAT(bench.trace(), Contains(rd_failed(kChip, 0x02)));
}

TEST_F(Prog7002, bus_missing_is_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(prog7002(0x21, 0), 1);
  EXPECT_EQ(bench.output(), "Start prog7002\nCannot access I2C device3 \n");
  EXPECT_THAT(bench.trace({"wait", "i2c", "close"}), IsEmpty());
}

// ---- GetInput, GatTvp7002Status ------------------------------------------------------

using GetInputOf7002 = Tvp7002;

TEST_F(GetInputOf7002, names_the_selected_path) {
  for (int value = 0; value < 256; ++value) {
    reg()[0x19] = static_cast<std::uint8_t>(value);
    const int expected = value == 0x00 ? 1 : value == 0xAA ? 3 : 0;
    ASSERT_EQ(GetInput(), expected) << value;
    ASSERT_THAT(bench.trace(),
                ElementsAre("open /dev/i2c-1", rd(kChip, 0x19, value), "close /dev/i2c-1"));
  }
  EXPECT_EQ(bench.output(), "");
}

TEST_F(GetInputOf7002, bus_missing_is_minus_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(GetInput(), -1);
  EXPECT_EQ(bench.output(), kNoBus7002);
}

TEST_F(GetInputOf7002, failed_read_is_minus_2_and_names_register_05) {
  bench.world("fault i2c-fail 5c");
  EXPECT_EQ(GetInput(), -2);
  EXPECT_EQ(bench.output(), "Error i2c readbyte 7002 0x05\n");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd_failed(kChip, 0x19), "close /dev/i2c-1"));
}

TEST_F(Tvp7002, gattvp7002status_fills_and_prints_both) {
  reg()[0x19] = 0xAA;
  bench.board().world.standard_bit = 55;
  int input = 99;
  int std = 99;

  GatTvp7002Status(&input, &std);

  EXPECT_EQ(input, 3);
  EXPECT_EQ(std, 9);
  EXPECT_EQ(bench.output(), "GatTvp7002Status GetInput 3\nGatTvp7002Status GetSTD 9\n");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd(kChip, 0x19, 0xAA), "close /dev/i2c-1",
                          "open /dev/video0", "video0 QUERYSTD -> 0x0080000000000000", "wait 1",
                          "wait 1000000", "close /dev/video0"));
}

TEST_F(Tvp7002, gattvp7002status_with_nothing_there_reports_the_failures) {
  bench.world("fault missing i2c");
  bench.world("fault missing video0");
  int input = 99;
  int std = 99;

  GatTvp7002Status(&input, &std);

  EXPECT_EQ(input, -1);
  EXPECT_EQ(std, 0);
  EXPECT_EQ(bench.output(),
            "Cannot access I2C device 7002\nGatTvp7002Status GetInput -1\n"
            "Cannot open video 0\n        Cannot ioctl  VIDIOC_QUERYSTD\n"
            "GatTvp7002Status GetSTD 0\n");
}

// ---- SetVBLK_F0, VBLK_RW, Print_Hsync ---------------------------------------------------

using SetVblkF0 = Tvp7002;

Lines blanking_lines(const char* to_46, int read_46, int value_47) {
  Lines lines = {i2c_lines::kOpen};
  i2c_lines::add(lines, i2c_lines::writes(kChip, to_46));
  i2c_lines::add(lines, {rd(kChip, 0x46, read_46), wr(kChip, 0x47, value_47), i2c_lines::kClose});
  return lines;
}

TEST_F(SetVblkF0, mode_1_writes_and_prints_nothing) {
  SetVBLK_F0(1);
  EXPECT_THAT(bench.trace(), ElementsAreArray(blanking_lines(
                                 "40=47, 41=01, 42=4B, 43=06, 44=05, 45=05, 46=1E", 0x1E, 0x1E)));
  EXPECT_EQ(bench.output(), "");
}

TEST_F(SetVblkF0, mode_2_writes_and_prints_register_46) {
  TestVBLK_F0 = 0x1234ABCD;
  SetVBLK_F0(2);
  EXPECT_THAT(bench.trace(), ElementsAreArray(blanking_lines(
                                 "40=95, 41=00, 42=0F, 43=00, 44=01, 45=01, 46=13", 0x13, 0x13)));
  EXPECT_EQ(bench.output(), "reg 47 13 TestVBLK_F0 1234abcd\n");
}

TEST_F(SetVblkF0, mode_3_writes_and_prints_register_46) {
  stick(0x46, 0xA5);  // neither what was written to 46 nor to 47
  SetVBLK_F0(3);
  EXPECT_THAT(bench.trace(), ElementsAreArray(blanking_lines(
                                 "40=00, 41=01, 42=8B, 43=08, 44=02, 45=02, 46=16", 0xA5, 0x17)));
  EXPECT_EQ(bench.output(), "reg 47 a5 TestVBLK_F0 0\n");
}

TEST_F(SetVblkF0, other_modes_write_nothing) {
  for (const int mode : {0, 4, -1}) {
    SetVBLK_F0(mode);
    EXPECT_THAT(bench.trace({"i2c"}), IsEmpty()) << mode;
    EXPECT_EQ(bench.output(), "");
  }
  EXPECT_EQ(open_handles(), "");
}

TEST_F(SetVblkF0, bus_missing_prints_and_goes_on) {
  bench.world("fault missing i2c");
  SetVBLK_F0(2);
  EXPECT_EQ(bench.output(), std::string(kNoBusBrightness) + "reg 47 0 TestVBLK_F0 0\n");
  EXPECT_THAT(bench.trace({"i2c", "close"}), IsEmpty());
}

using VblkRw = Tvp7002;

TEST_F(VblkRw, any_non_zero_flag_reads_and_prints) {
  reg()[0x41] = 0x9C;
  for (const int flag : {1, 2, 255}) {
    VBLK_RW(flag, 0x41, 0x77);
    EXPECT_EQ(bench.output(), "reg 0x41=0x9c\n");
    EXPECT_THAT(bench.trace(),
                ElementsAre("open /dev/i2c-1", rd(kChip, 0x41, 0x9C), "close /dev/i2c-1"));
  }
}

TEST_F(VblkRw, flag_zero_writes_the_low_byte) {
  VBLK_RW(0, 0x41, 0x1A7);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", "i2c 5c wr 41 a7", "close /dev/i2c-1"));
}

TEST_F(VblkRw, bus_missing_prints_and_goes_on) {
  bench.world("fault missing i2c");
  VBLK_RW(1, 0x14, 0);
  EXPECT_EQ(bench.output(), std::string(kNoBusBrightness) + "reg 0x14=0x0\n");
  VBLK_RW(0, 0x14, 0);
  EXPECT_EQ(bench.output(), kNoBusBrightness);
}

TEST_F(VblkRw, failed_read_prints_zero) {
  bench.world("fault i2c-fail 5c");
  VBLK_RW(1, 0x14, 0);
  EXPECT_EQ(bench.output(), "reg 0x14=0x0\n");
  EXPECT_EQ(open_handles(), "");
}

using PrintHsync = Tvp7002;

TEST_F(PrintHsync, says_what_each_status_means) {
  for (int status = 0; status < 256; ++status) {
    stick(0x14, status);
    EXPECT_EQ(Print_Hsync(), 0);
    char heading[32];
    snprintf(heading, sizeof heading, "-- reg 14 %x \n", status);
    std::string expected = heading;
    expected += status >= 0x80 ? "HSYNC activity detected\n" : "no HSYNC activity detected\n";
    expected += (status & 0x10) != 0 ? "VSYNC activity detected\n" : "no VSYNC activity detected\n";
    expected += (status & 0x08) != 0 ? "VSYNC from sync separator\n"
                                     : "VSYNC from selected VSYNC input (pin 78 or 79)\n";
    ASSERT_EQ(bench.output(), expected);
    ASSERT_THAT(bench.trace(),
                ElementsAre("open /dev/i2c-1", rd(kChip, 0x14, status), "close /dev/i2c-1"));
  }
}

TEST_F(PrintHsync, bus_missing_prints_and_is_minus_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(Print_Hsync(), -1);
  EXPECT_EQ(bench.output(), kNoBusBrightness);
}

TEST_F(PrintHsync, failed_read_closes_the_bus_and_says_nothing) {
  bench.world("fault i2c-fail 5c");
  EXPECT_EQ(Print_Hsync(), -2);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd_failed(kChip, 0x14), "close /dev/i2c-1"));
}

// ---- messages and traffic in one order ----------------------------------------------

using Tvp7002Order = Tvp7002;

TEST_F(Tvp7002Order, dump) {
  fail_transfer(1);  // the write; the first read is the second transfer
  bench.follow();
  prog7002(0x21, 0xC3);
  Lines seen = bench.stream();
  ASSERT_GE(seen.size(), 11u);
  EXPECT_EQ(seen.size(), 9u + 2 * 74 + 1);
  seen.resize(11);
  EXPECT_THAT(
      seen,
      ElementsAre("say Start prog7002", "open /dev/i2c-1", "say input_data1 = 21",
                  "say input_data2 = c3", "wait 1000000", testing::StartsWith("i2c 5c wr 21 c3 = "),
                  "say rc=-1", "say return", "wait 1000000",
                  testing::StartsWith("i2c 5c rd 00 -> "), testing::StartsWith("say #0=0x")));
}

TEST_F(Tvp7002Order, input_and_standard) {
  stick(0x19, 0xAA);
  int input = 0;
  int std = 0;
  bench.follow();
  GatTvp7002Status(&input, &std);
  EXPECT_THAT(
      bench.stream(),
      ElementsAre("open /dev/i2c-1", "i2c 5c rd 19 -> aa", "close /dev/i2c-1",
                  "say GatTvp7002Status GetInput 3", "open /dev/video0",
                  testing::StartsWith("video0 QUERYSTD"), "wait 1", "wait 1000000",
                  "close /dev/video0", testing::StartsWith("say GatTvp7002Status GetSTD ")));
}

TEST_F(Tvp7002Order, blanking) {
  bench.follow();
  SetVBLK_F0(3);
  EXPECT_THAT(bench.stream(),
              ElementsAre("open /dev/i2c-1", "i2c 5c wr 40 00", "i2c 5c wr 41 01",
                          "i2c 5c wr 42 8b", "i2c 5c wr 43 08", "i2c 5c wr 44 02",
                          "i2c 5c wr 45 02", "i2c 5c wr 46 16", "i2c 5c rd 46 -> 16",
                          "i2c 5c wr 47 17", "say reg 47 16 TestVBLK_F0 0", "close /dev/i2c-1"));
}

TEST_F(Tvp7002Order, single_register) {
  stick(0x14, 0x90);
  bench.follow();
  VBLK_RW(1, 0x14, 0);
  EXPECT_THAT(bench.stream(), ElementsAre("open /dev/i2c-1", "i2c 5c rd 14 -> 90",
                                          "say reg 0x14=0x90", "close /dev/i2c-1"));
}

}  // namespace
