// The decoder's stand-alone initialisation, its two reports, captions and single
// registers.
#include "diag/tvp5150_bench.h"

#include <gmock/gmock.h>

#include <string>

#include "hw/i2capi.h"
#include "tests/support/i2c_lines.h"
#include "tests/support/tvp5150_texts.h"
#include "tests/support/video_traffic.h"
#include "vboard/testing/bench.h"
#include "video/tvp5150.h"

namespace {

using i2c_lines::add;
using i2c_lines::Lines;
using i2c_lines::masked;
using i2c_lines::rd;
using i2c_lines::rd_failed;
using i2c_lines::wr;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using vboard::Bench;

constexpr int kChip = 0x5D;
constexpr char kNoBus[] = "Cannot access I2C device 5150\n";

struct ReportValues {
  int c0 = 0, c1 = 0, c6 = 0, msb = 0, lsb = 0, s1 = 0, s2 = 0, s3 = 0, s4 = 0, s5 = 0;
};

class Tvp5150Bench : public testing::Test {
 protected:
  Tvp5150Bench() {
    i2c_handle = -1;
    Closed_caption_byte[0] = 0;
    Closed_caption_byte[1] = 0;
  }
  void TearDown() override {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }
  void stick(int reg, int value) {
    char command[40];
    snprintf(command, sizeof command, "fault stuck 5d %02x %02x", reg, value);
    bench.world(command);
  }
  void stick_all(const ReportValues& v) {
    const int values[][2] = {{0xC0, v.c0}, {0xC1, v.c1}, {0xC6, v.c6}, {0x84, v.msb}, {0x85, v.lsb},
                             {0x88, v.s1}, {0x89, v.s2}, {0x8A, v.s3}, {0x8B, v.s4},  {0x8C, v.s5}};
    for (const auto& [reg, value] : values) stick(reg, value);
  }
  Bench bench;
};

// ---- TestTVP5150 ------------------------------------------------------------------

using TestTvp5150 = Tvp5150Bench;

Lines initialisation() {
  Lines lines = video_traffic::tvp5150_common_lines();
  add(lines, i2c_lines::writes(kChip, "CE=06, EE=07, EF=07, CD=01"));
  return lines;
}

TEST_F(TestTvp5150, traffic_in_order_with_the_global_handle_closed) {
  TestTVP5150();

  Lines expected = {"open /dev/i2c-1"};
  add(expected, initialisation());
  // The standard goes to the global handle, which is closed: nothing here.
  add(expected, {"wait 2000000", "close /dev/i2c-1"});
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(), "set input to S-video selection reg 0 data1 = 0x0\n");
}

TEST_F(TestTvp5150, standard_goes_through_the_global_handle) {
  i2c_handle = init_i2c(1);
  bench.trace();

  TestTVP5150();

  Lines expected = {"open /dev/i2c-1"};
  add(expected, initialisation());
  add(expected, {"i2c 5d wr 28 ??", "wait 2000000", "close /dev/i2c-1"});
  const Lines lines = bench.trace();
  ASSERT_EQ(lines.size(), expected.size());
  EXPECT_THAT(masked(lines, 3), ElementsAreArray(expected));
  // The global handle is still open.
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/i2c-1\n");
}

TEST_F(TestTvp5150, line_data_lands_in_both_pages_of_the_vbi_ram) {
  TestTVP5150();
  for (const int page : {0xE0, 0xF0})
    for (int i = 0; i < 16; ++i)
      EXPECT_EQ(bench.board().tvp5150.vbi_ram[page + i], video_traffic::kWssLine[i]) << page + i;
}

TEST_F(TestTvp5150, bus_missing_prints_and_is_minus_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(TestTVP5150(), -1);
  EXPECT_EQ(bench.output(), kNoBus);
  EXPECT_THAT(bench.trace({"i2c", "wait", "close"}), IsEmpty());
}

// ---- the endless report ---------------------------------------------------------------

constexpr int kCaptions[] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4};  // registers 0x90 to 0x94

std::string line(const char* format, int value) {
  char text[128];
  snprintf(text, sizeof text, format, value);
  return text;
}

std::string captions(int first, int last) {
  std::string text;
  for (int reg = first; reg <= last; ++reg) {
    char one[96];
    snprintf(one, sizeof one, "Closed caption data registers 5150 reg =0x%x  data1 = 0x%x\n", reg,
             kCaptions[reg - 0x90]);
    text += one;
  }
  return text;
}

std::string report(const ReportValues& v) {
  std::string text = line("Interrupt Status Register A =0xc0  data1 = 0x%x\n", v.c0) +
                     line("Interrupt Status Register A =0xc1  data1 = 0x%x\n", v.c1) +
                     line("Closed caption Status Register reg =0xc6  data1 = 0x%x\n", v.c6);
  if ((v.c6 & 0x10) != 0) text += "Field 1 data available\n" + captions(0x90, 0x94);
  if ((v.c6 & 0x08) != 0) text += "Field 2 data available\n" + captions(0x92, 0x93);
  return text + tvp5150_texts::fifo(v.c6) + line("Vertical line = %d \n", v.msb * 256 + v.lsb) +
         tvp5150_texts::status1(v.s1) + line("Status Register #2 reg =0x89  data = 0x%x\n", v.s2) +
         tvp5150_texts::status2_bits(v.s2) +
         line("Status Register #3 reg =0x8a  data = 0x%x\n", v.s3) +
         line("Status Register #4 reg =0x8b  data = 0x%x\n", v.s4) +
         "Status Register #5 reg =0x8C \n" + tvp5150_texts::status5_bits(v.s5, true);
}

class Tvp5150ReportLoop : public Tvp5150Bench {
 protected:
  Tvp5150ReportLoop() {
    for (int i = 0; i < 5; ++i) stick(0x90 + i, kCaptions[i]);
  }
  // Runs the loop for one report.
  void one_report() {
    EXPECT_FALSE(bench.run_for(1'000'000, [] { tvp5150_report_loop(); }));
  }
};

TEST_F(Tvp5150ReportLoop, traffic_in_order_every_2_s) {
  stick_all({0x11, 0x12, 0xF8, 0x02, 0x71, 0x6E, 0x30, 0x33, 0x44, 0x83});

  EXPECT_FALSE(bench.run_for(5'000'000, [] { tvp5150_report_loop(); }));

  const Lines round = {
      rd(kChip, 0xC0, 0x11), rd(kChip, 0xC1, 0x12), rd(kChip, 0xC6, 0xF8), "i2c 5d wr c6 20",
      rd(kChip, 0x90, 0xA0), rd(kChip, 0x91, 0xA1), rd(kChip, 0x92, 0xA2), rd(kChip, 0x93, 0xA3),
      rd(kChip, 0x94, 0xA4), rd(kChip, 0x92, 0xA2), rd(kChip, 0x93, 0xA3), "i2c 5d wr c6 ff",
      rd(kChip, 0x84, 0x02), rd(kChip, 0x85, 0x71), rd(kChip, 0x88, 0x6E), rd(kChip, 0x89, 0x30),
      rd(kChip, 0x8A, 0x33), rd(kChip, 0x8B, 0x44), rd(kChip, 0x8C, 0x83), "wait 2000000"};
  Lines expected = {"open /dev/i2c-1"};
  for (int time = 0; time < 3; ++time) add(expected, round);
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
}

TEST_F(Tvp5150ReportLoop, whole_text_of_a_locked_pal_signal_with_captions) {
  stick_all({0x11, 0x12, 0x58, 0x02, 0x71, 0x6F, 0x31, 0x33, 0x44, 0x8B});
  one_report();
  EXPECT_EQ(bench.output(),
            "Interrupt Status Register A =0xc0  data1 = 0x11\n"
            "Interrupt Status Register A =0xc1  data1 = 0x12\n"
            "Closed caption Status Register reg =0xc6  data1 = 0x58\n"
            "Field 1 data available\n"
            "Closed caption data registers 5150 reg =0x90  data1 = 0xa0\n"
            "Closed caption data registers 5150 reg =0x91  data1 = 0xa1\n"
            "Closed caption data registers 5150 reg =0x92  data1 = 0xa2\n"
            "Closed caption data registers 5150 reg =0x93  data1 = 0xa3\n"
            "Closed caption data registers 5150 reg =0x94  data1 = 0xa4\n"
            "Field 2 data available\n"
            "Closed caption data registers 5150 reg =0x92  data1 = 0xa2\n"
            "Closed caption data registers 5150 reg =0x93  data1 = 0xa3\n"
            "FIFO is empty\nNo FIFO full error.\n"
            "Vertical line = 625 \n"  // 2 * 256 + 0x71
            "Status Register #1 reg =0x88 \n \n"
            "VCR \n***********  Horizontal sync lock status\n"
            "***********  Vertical sync lock status\n***********  Color subcarrier is locked\n"
            "No lost lock since status register\nField rate status: 50Hz\n"
            "Line-alternating status\nPeak white is not detected.\n"
            "Status Register #2 reg =0x89  data = 0x31\n"
            "PAL switch is 1.\nOdd field.\nAGC and offset are not frozen\n"
            "AGC pulses/pseudo-syncs present\n"
            "Status Register #3 reg =0x8a  data = 0x33\n"
            "Status Register #4 reg =0x8b  data = 0x44\n"
            "Status Register #5 reg =0x8C \n"
            "Autoswitch mode \nSECAM ITU-R BT.601\n");
}

TEST_F(Tvp5150ReportLoop, every_value_of_each_decoded_register) {
  int ReportValues::*const decoded[] = {&ReportValues::c6, &ReportValues::s1, &ReportValues::s2,
                                        &ReportValues::s5, &ReportValues::msb};
  for (int ReportValues::*field : decoded)
    for (int value = 0; value < 256; ++value) {
      ReportValues values;
      values.*field = value;
      stick_all(values);
      one_report();
      ASSERT_EQ(bench.output(), report(values)) << value;
    }
}

TEST_F(Tvp5150ReportLoop, caption_status_is_acknowledged_by_its_bits) {
  for (int status = 0; status < 256; ++status) {
    ReportValues values;
    values.c6 = status;
    stick_all(values);
    bench.trace();
    one_report();
    Lines expected;
    if ((status & 0x20) != 0) expected.push_back("i2c 5d wr c6 20");
    expected.push_back("i2c 5d wr c6 ff");
    ASSERT_THAT(bench.trace({"i2c 5d wr"}), ElementsAreArray(expected)) << status;
  }
}

TEST_F(Tvp5150ReportLoop, silent_chip_reads_as_zeros_and_the_loop_goes_on) {
  bench.world("fault i2c-fail 5d");
  EXPECT_FALSE(bench.run_for(3'000'000, [] { tvp5150_report_loop(); }));
  EXPECT_EQ(bench.output(), report({}) + report({}));
}

TEST_F(Tvp5150ReportLoop, bus_missing_prints_and_is_minus_1) {
  bench.world("fault missing i2c");
  int result = 0;
  EXPECT_TRUE(bench.run_for(1'000'000, [&] { result = tvp5150_report_loop(); }));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(bench.output(), kNoBus);
}

// ---- GetStatusTVP5150 -----------------------------------------------------------------

std::string whole_report(const ReportValues& v) {
  return "set input to S-video selection reg 0 data1 = 0x0\n" + std::string(63, '-') + "\n" +
         line("Interrupt Status Register A =0xc0  data1 = 0x%x\n", v.c0) +
         line("Interrupt Status Register A =0xc1  data1 = 0x%x\n", v.c1) +
         line("Closed caption Status Register reg =0xc6  data1 = 0x%x\n", v.c6) +
         tvp5150_texts::fifo(v.c6) +
         line("Status Register reg =0x84  Vertical line count MSB = 0x%x\n", v.msb) +
         line("Status Register reg =0x85  Vertical line count LSB = 0x%x\n", v.lsb) +
         tvp5150_texts::status1(v.s1) + line("Status Register #2 reg =0x89  data = 0x%x\n", v.s2) +
         "Weak signal mode.\n" + tvp5150_texts::status2_bits(v.s2) +
         line("Status Register #3 reg =0x8a  data = 0x%x\n", v.s3) +
         line("Status Register #4 reg =0x8b  data = 0x%x\n", v.s4) +
         "Status Register #5 reg =0x8C \n" + ((v.s5 & 1) != 0 ? "ITU-R BT.601 \n" : "") +
         tvp5150_texts::status5_bits(v.s5, false);
}

using GetStatus5150 = Tvp5150Bench;

TEST_F(GetStatus5150, traffic_in_order) {
  stick_all({0x11, 0x12, 0xFF, 0x02, 0x71, 0x6E, 0x30, 0x33, 0x44, 0x83});

  EXPECT_EQ(GetStatusTVP5150(), 0);

  EXPECT_THAT(
      bench.trace(),
      ElementsAre("open /dev/i2c-1", wr(kChip, 0x05, 0x01), "wait 500", wr(kChip, 0x05, 0x00),
                  "wait 500", wr(kChip, 0x1C, 0xFF), rd(kChip, 0xC0, 0x11), rd(kChip, 0xC1, 0x12),
                  rd(kChip, 0xC6, 0xFF), wr(kChip, 0xC6, 0xFF), rd(kChip, 0x84, 0x02),
                  rd(kChip, 0x85, 0x71), rd(kChip, 0x88, 0x6E), rd(kChip, 0x89, 0x30),
                  rd(kChip, 0x8A, 0x33), rd(kChip, 0x8B, 0x44), rd(kChip, 0x8C, 0x83),
                  "wait 2000000", "close /dev/i2c-1"));
}

TEST_F(GetStatus5150, whole_text_of_a_locked_pal_signal) {
  stick_all({0x11, 0x12, 0x40, 0x02, 0x71, 0x6E, 0x32, 0x33, 0x44, 0x83});
  GetStatusTVP5150();
  EXPECT_EQ(bench.output(),
            "set input to S-video selection reg 0 data1 = 0x0\n"
            "---------------------------------------------------------------\n"
            "Interrupt Status Register A =0xc0  data1 = 0x11\n"
            "Interrupt Status Register A =0xc1  data1 = 0x12\n"
            "Closed caption Status Register reg =0xc6  data1 = 0x40\n"
            "FIFO is empty\nNo FIFO full error.\n"
            "Status Register reg =0x84  Vertical line count MSB = 0x2\n"
            "Status Register reg =0x85  Vertical line count LSB = 0x71\n"
            "Status Register #1 reg =0x88 \n \n"
            "TV \n***********  Horizontal sync lock status\n"
            "***********  Vertical sync lock status\n***********  Color subcarrier is locked\n"
            "No lost lock since status register\nField rate status: 50Hz\n"
            "Line-alternating status\nPeak white is not detected.\n"
            "Status Register #2 reg =0x89  data = 0x32\n"
            "Weak signal mode.\nPAL switch is 1.\nOdd field.\nAGC and offset are not frozen\n"
            "AGC pulses/pseudo-syncs and 2-line color striping present\n"
            "Status Register #3 reg =0x8a  data = 0x33\n"
            "Status Register #4 reg =0x8b  data = 0x44\n"
            "Status Register #5 reg =0x8C \n"
            "ITU-R BT.601 \nAutoswitch mode \n(B, G, H, I, N) PAL ITU-R BT.601\n");
}

TEST_F(GetStatus5150, every_value_of_each_decoded_register) {
  int ReportValues::*const decoded[] = {&ReportValues::c6, &ReportValues::s1, &ReportValues::s2,
                                        &ReportValues::s5};
  for (int ReportValues::*field : decoded)
    for (int value = 0; value < 256; ++value) {
      ReportValues values;
      values.*field = value;
      stick_all(values);
      ASSERT_EQ(GetStatusTVP5150(), 0);
      ASSERT_EQ(bench.output(), whole_report(values)) << value;
    }
}

TEST_F(GetStatus5150, bus_missing_prints_and_is_minus_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(GetStatusTVP5150(), -1);
  EXPECT_EQ(bench.output(), kNoBus);
  EXPECT_THAT(bench.trace({"wait", "i2c", "close"}), IsEmpty());
}

TEST_F(GetStatus5150, silent_chip_reads_as_zeros) {
  bench.world("fault i2c-fail 5d");
  EXPECT_EQ(GetStatusTVP5150(), 0);
  EXPECT_EQ(bench.output(), whole_report({}));
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

// ---- captions -----------------------------------------------------------------------------

using CcStatus = Tvp5150Bench;

TEST_F(CcStatus, acknowledges_the_fields_that_have_data) {
  for (int status = 0; status < 256; ++status) {
    stick(0xC6, status);
    Lines expected = {"open /dev/i2c-1", rd(kChip, 0xC6, status)};
    if ((status & 0x10) != 0) expected.push_back("i2c 5d wr c6 10");
    if ((status & 0x08) != 0) expected.push_back("i2c 5d wr c6 08");
    expected.push_back("close /dev/i2c-1");

    ASSERT_EQ(GetCCStatus(), status);
    ASSERT_THAT(bench.trace(), ElementsAreArray(expected)) << status;
    ASSERT_EQ(bench.output(),
              line("Get TVP5150 Status Register reg =0xc6  data1 = 0x%x\n", status));
  }
}

TEST_F(CcStatus, bus_missing_is_255) {
  bench.world("fault missing i2c");
  EXPECT_EQ(GetCCStatus(), 255);
  EXPECT_EQ(bench.output(), kNoBus);
}

TEST_F(CcStatus, failed_read_is_0) {
  bench.world("fault i2c-fail 5d");
  EXPECT_EQ(GetCCStatus(), 0);
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

class CaptionField : public Tvp5150Bench {
 protected:
  CaptionField() {
    const int values[][2] = {{0x90, 0xA1}, {0x91, 0xA2}, {0x92, 0xB1}, {0x93, 0xB2}};
    for (const auto& [reg, value] : values) stick(reg, value);
    Closed_caption_byte[0] = 0x55;
    Closed_caption_byte[1] = 0x66;
  }
};

TEST_F(CaptionField, field_1_reads_90_and_91) {
  EXPECT_EQ(GetFild(1), 1);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd(kChip, 0x90, 0xA1), rd(kChip, 0x91, 0xA2),
                          "i2c 5d wr c6 10", "close /dev/i2c-1"));
  EXPECT_EQ(Closed_caption_byte[0], 0xA1);
  EXPECT_EQ(Closed_caption_byte[1], 0xA2);
  EXPECT_EQ(bench.output(), "");
}

TEST_F(CaptionField, field_2_reads_92_and_93) {
  EXPECT_EQ(GetFild(2), 1);
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd(kChip, 0x92, 0xB1), rd(kChip, 0x93, 0xB2),
                          "i2c 5d wr c6 08", "close /dev/i2c-1"));
  EXPECT_EQ(Closed_caption_byte[0], 0xB1);
  EXPECT_EQ(Closed_caption_byte[1], 0xB2);
}

TEST_F(CaptionField, any_other_field_reads_nothing) {
  for (const int field : {0, 3, -1, 257}) {
    EXPECT_EQ(GetFild(field), 1);
    EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", "close /dev/i2c-1")) << field;
  }
  EXPECT_EQ(Closed_caption_byte[0], 0x55);
  EXPECT_EQ(Closed_caption_byte[1], 0x66);
}

TEST_F(CaptionField, bus_missing_is_minus_1) {
  bench.world("fault missing i2c");
  for (const int field : {1, 2, 3}) {
    EXPECT_EQ(GetFild(field), -1);
    EXPECT_EQ(bench.output(), kNoBus);
  }
  EXPECT_EQ(Closed_caption_byte[0], 0x55);
}

TEST_F(CaptionField, failed_reads_leave_the_bytes) {
  for (const int field : {1, 2}) {
    bench.world("fault i2c-fail 5d");
    EXPECT_EQ(GetFild(field), 1);
    EXPECT_EQ(Closed_caption_byte[0], 0x55);
    EXPECT_EQ(Closed_caption_byte[1], 0x66);
  }
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST_F(CaptionField, each_byte_is_left_by_its_own_failed_read) {
  bench.world("fault i2c-fail 5d 1");
  EXPECT_EQ(GetFild(1), 1);
  EXPECT_EQ(Closed_caption_byte[0], 0x55);
  EXPECT_EQ(Closed_caption_byte[1], 0xA2);
  bench.world("fault i2c-fail 5d 2");
  EXPECT_EQ(GetFild(2), 1);
  EXPECT_EQ(Closed_caption_byte[0], 0xB1);
  EXPECT_EQ(Closed_caption_byte[1], 0xA2);
}

// ---- bench access ----------------------------------------------------------------------------

using Tvp5150Rw = Tvp5150Bench;

TEST_F(Tvp5150Rw, any_non_zero_flag_reads_and_prints) {
  bench.board().tvp5150.reg[0x0D] = 0x47;
  for (const int flag : {1, 2, 255}) {
    TVP5150_RW(flag, 0x0D, 0x99);
    EXPECT_EQ(bench.output(), "reg 0xd=0x47\n");
    EXPECT_THAT(bench.trace(),
                ElementsAre("open /dev/i2c-1", rd(kChip, 0x0D, 0x47), "close /dev/i2c-1"));
  }
}

TEST_F(Tvp5150Rw, flag_zero_writes_the_low_byte) {
  TVP5150_RW(0, 0x0D, 0x2A7);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", "i2c 5d wr 0d a7", "close /dev/i2c-1"));
}

TEST_F(Tvp5150Rw, bus_missing_prints_and_goes_on) {
  bench.world("fault missing i2c");
  TVP5150_RW(1, 0x88, 0);
  EXPECT_EQ(bench.output(), "Cannot access I2C device - 5150\nreg 0x88=0x0\n");
  TVP5150_RW(0, 0x88, 0);
  EXPECT_EQ(bench.output(), "Cannot access I2C device - 5150\n");
  EXPECT_THAT(bench.trace({"i2c", "close"}), IsEmpty());
}

TEST_F(Tvp5150Rw, failed_read_prints_zero) {
  bench.world("fault i2c-fail 5d");
  TVP5150_RW(1, 0x88, 0);
  EXPECT_EQ(bench.output(), "reg 0x88=0x0\n");
  EXPECT_THAT(bench.trace(),
              ElementsAre("open /dev/i2c-1", rd_failed(kChip, 0x88), "close /dev/i2c-1"));
}

}  // namespace
