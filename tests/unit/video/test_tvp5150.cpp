// The composite decoder: initialisation, lock monitor, report, captions and
// bench access.
#include "video/tvp5150.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

#include "hw/i2capi.h"
#include "tests/support/i2c_lines.h"
#include "tests/support/tvp5150_texts.h"
#include "tests/support/video_traffic.h"
#include "vboard/testing/bench.h"

namespace {

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
constexpr char kNoLock[] = "******** Tvp 5150 is status register no lock ******** \n";

std::string hex(int value) {
  char text[8];
  snprintf(text, sizeof text, "%02x", value);
  return text;
}

class Tvp5150 : public testing::Test {
 protected:
  Tvp5150() {
    i2c_handle = -1;
    count_st = 0;
    error_count = 0;
    old_data1 = 0;
    Closed_caption_byte[0] = 0;
    Closed_caption_byte[1] = 0;
  }
  void TearDown() override {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }

  void stick(int reg, int value) { bench.world("fault stuck 5d " + hex(reg) + " " + hex(value)); }
  // Opens the bus for the steps and setters that work on i2c_handle.
  void open_handle() {
    i2c_handle = init_i2c(1);
    bench.trace();
  }

  Bench bench;
};

// ---- InitTVP5150 and its steps ----------------------------------------------------

using InitTvp5150 = Tvp5150;

TEST_F(InitTvp5150, traffic_in_order) {
  EXPECT_EQ(InitTVP5150(), 1);

  const Lines lines = bench.trace();
  ASSERT_GT(lines.size(), 2u);
  EXPECT_THAT(masked(lines, 2), ElementsAreArray(video_traffic::tvp5150_setup()));
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST_F(InitTvp5150, line_data_lands_in_both_pages_of_the_vbi_ram) {
  InitTVP5150();
  for (const int page : {0xE0, 0xF0})
    for (int i = 0; i < 16; ++i)
      EXPECT_EQ(bench.board().tvp5150.vbi_ram[page + i], video_traffic::kWssLine[i]) << page + i;
}

TEST_F(InitTvp5150, bus_missing_prints_and_is_minus_1) {
  bench.world("fault missing i2c");
  EXPECT_EQ(InitTVP5150(), -1);
  EXPECT_EQ(bench.output(), kNoBus);
  EXPECT_THAT(bench.trace({"i2c", "wait", "close"}), IsEmpty());
}

TEST_F(InitTvp5150, failed_writes_are_not_noticed) {
  bench.world("fault i2c-fail 5d");
  EXPECT_EQ(InitTVP5150(), 1);
  EXPECT_EQ(bench.trace({"i2c"}).size(), 3u + 92 + 45 + 36 + 8 + 1);
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

using Tvp5150Step = Tvp5150;

TEST_F(Tvp5150Step, default_table_has_the_documented_pairs) {
  Lines table;
  for (const RegisterValue& row : TVP5150_default_reg_array)
    table.push_back(wr(kChip, row.reg, row.value));
  ASSERT_EQ(table.size(), 92u);
  EXPECT_THAT(table, ElementsAreArray(video_traffic::tvp5150_default_lines()));
}

TEST_F(Tvp5150Step, resetsw_pulses_the_reset_register) {
  open_handle();
  ResetSW();
  EXPECT_THAT(bench.trace(), ElementsAre("i2c 5d wr 05 01", "wait 500", "i2c 5d wr 05 00",
                                         "wait 500", "i2c 5d wr 1c ff"));
}

TEST_F(Tvp5150Step, loadinitvalue_ends_with_register_00_twice) {
  open_handle();
  LoadInitValue();
  const Lines lines = bench.trace();
  EXPECT_THAT(lines, ElementsAreArray(video_traffic::tvp5150_default_lines()));
  ASSERT_EQ(lines.size(), 92u);
  EXPECT_EQ(lines[89], "i2c 5d wr fb ff");
  EXPECT_EQ(lines[90], "i2c 5d wr 00 00");
  EXPECT_EQ(lines[91], "i2c 5d wr 00 00");
}

TEST_F(Tvp5150Step, cleartvp_ram_fills_44_registers) {
  open_handle();
  ClearTVP_RAM();
  const Lines lines = bench.trace();
  EXPECT_THAT(lines, ElementsAreArray(video_traffic::tvp5150_clear_lines()));
  EXPECT_EQ(lines.size(), 1u + 44);
}

TEST_F(Tvp5150Step, loadtvp_ram_data_writes_the_line_twice) {
  open_handle();
  LoadTVP_RAM_Data();
  EXPECT_THAT(bench.trace(), ElementsAreArray(video_traffic::tvp5150_ram_lines()));
}

TEST_F(Tvp5150Step, without_a_bus_nothing_reaches_the_chip) {
  ResetSW();
  LoadInitValue();
  ClearTVP_RAM();
  LoadTVP_RAM_Data();
  EXPECT_THAT(bench.trace(), ElementsAre("wait 500", "wait 500"));
}

// ---- setters ------------------------------------------------------------------------

struct Setter {
  const char* name;
  int (*set)(int value);
  const char* line;  // without the byte
};

class Tvp5150Setter : public Tvp5150, public testing::WithParamInterface<Setter> {};

TEST_P(Tvp5150Setter, writes_one_byte_to_its_register) {
  open_handle();
  EXPECT_EQ(GetParam().set(0x33), 0);
  const Lines lines = bench.trace();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(masked(lines, 1)[0], std::string(GetParam().line) + " ??");
  EXPECT_EQ(bench.output(), "");
}

TEST_P(Tvp5150Setter, argument_does_not_reach_the_chip) {
  open_handle();
  std::set<std::string> sent;
  for (int value = 0; value < 256; ++value) {
    GetParam().set(value);
    for (const std::string& line : bench.trace()) sent.insert(line);
  }
  // The byte follows the place of a local, of which this loop sees few.
  EXPECT_LT(sent.size(), 64u);
}

TEST_P(Tvp5150Setter, without_a_bus_is_0_and_silent) {
  EXPECT_EQ(GetParam().set(1), 0);
  EXPECT_THAT(bench.trace(), IsEmpty());
  EXPECT_EQ(bench.output(), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, Tvp5150Setter,
    testing::Values(Setter{"brightness", TVP5150_SetBrightness, "i2c 5d wr 09"},
                    Setter{"contrast", TVP5150_SetContrast, "i2c 5d wr 0c"},
                    Setter{"saturation", TVP5150_SetSaturation, "i2c 5d wr 0a"},
                    Setter{"video_std", TVP5150_SetVideoStd, "i2c 5d wr 28"}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- video_monitorTVP5150 --------------------------------------------------------------

class VideoMonitor5150 : public Tvp5150 {
 protected:
  // The next call reads the chip.
  int monitor_now(int mode) {
    count_st = 4;
    return video_monitorTVP5150(mode);
  }
};

TEST_F(VideoMonitor5150, reads_the_chip_on_every_fifth_call_only) {
  stick(0x88, 0x06);
  for (int round = 0; round < 3; ++round) {
    for (int call = 1; call <= 4; ++call) {
      EXPECT_EQ(video_monitorTVP5150(1), 0);
      EXPECT_THAT(bench.trace(), IsEmpty()) << round << " " << call;
      EXPECT_EQ(bench.output(), "");
      EXPECT_EQ(count_st, static_cast<unsigned>(call));
    }
    EXPECT_EQ(video_monitorTVP5150(1), 0);
    EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", rd(kChip, 0x88, 0x06),
                                           "i2c 5d wr c6 ff", "close /dev/i2c-1"));
    EXPECT_EQ(count_st, 0u);
    bench.output();
  }
}

TEST_F(VideoMonitor5150, both_callers_share_the_count) {
  stick(0x88, 0x00);
  for (const int mode : {1, 2, 1, 2}) EXPECT_EQ(video_monitorTVP5150(mode), 0);
  EXPECT_EQ(video_monitorTVP5150(1), -1);
}

TEST_F(VideoMonitor5150, skipped_calls_leave_open_descriptors_alone) {
  open_handle();
  for (int call = 1; call <= 4; ++call) video_monitorTVP5150(1);
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/i2c-1\n");
}

TEST_F(VideoMonitor5150, count_beyond_five_skips) {
  stick(0x88, 0x06);
  count_st = 5;
  EXPECT_EQ(video_monitorTVP5150(1), 0);
  EXPECT_EQ(count_st, 6u);
  EXPECT_THAT(bench.trace(), IsEmpty());
}

TEST_F(VideoMonitor5150, every_status_by_its_bits_in_both_modes) {
  for (const int mode : {1, 2})
    for (int status = 0; status < 256; ++status) {
      stick(0x88, status);
      error_count = 0;
      const bool locked = (status & 0x06) == 0x06;
      ASSERT_EQ(monitor_now(mode), locked ? 0 : -1) << mode << " " << status;
      std::string expected = tvp5150_texts::locks(status);
      expected +=
          locked ? std::string("Tvp 5150 is status register  lock \n")
                 : std::string(" Tvp 5150 is status register no lock error_count=1\n") + kNoLock;
      ASSERT_EQ(bench.output(), expected);
      ASSERT_EQ(error_count, 0u);
      ASSERT_EQ(old_data1, status);
      ASSERT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", rd(kChip, 0x88, status),
                                             "i2c 5d wr c6 ff", "close /dev/i2c-1"));
    }
}

TEST_F(VideoMonitor5150, messages_of_no_bit_and_of_all_four) {
  stick(0x88, 0x00);
  monitor_now(1);
  EXPECT_EQ(bench.output(),
            "Horizontal sync is not locked\nVertical sync is not locked\n"
            "Color subcarrier is not locked.\nNo lost lock since status register\n"
            " Tvp 5150 is status register no lock error_count=1\n"
            "******** Tvp 5150 is status register no lock ******** \n");
  stick(0x88, 0x1E);
  monitor_now(1);
  EXPECT_EQ(bench.output(),
            "***********  Horizontal sync lock status\n***********  Vertical sync lock status\n"
            "***********  Color subcarrier is locked\nLost lock since status register\n"
            "Tvp 5150 is status register  lock \n");
}

TEST_F(VideoMonitor5150, lock_clears_the_error_count) {
  stick(0x88, 0x06);
  error_count = 7;
  EXPECT_EQ(monitor_now(1), 0);
  EXPECT_EQ(error_count, 0u);
}

TEST_F(VideoMonitor5150, later_errors_are_reported_after_a_configuration_only) {
  stick(0x88, 0x02);
  error_count = 1;
  EXPECT_EQ(monitor_now(1), 0);
  EXPECT_EQ(error_count, 2u);
  std::string output = bench.output();
  EXPECT_THAT(output, testing::EndsWith(" Tvp 5150 is status register no lock error_count=2\n"));

  EXPECT_EQ(monitor_now(2), -1);
  EXPECT_EQ(error_count, 0u);
  EXPECT_THAT(bench.output(),
              testing::EndsWith(" Tvp 5150 is status register no lock error_count=3\n" +
                                std::string(kNoLock)));
}

TEST_F(VideoMonitor5150, bus_missing_is_minus_1_and_the_count_starts_again) {
  bench.world("fault missing i2c");
  for (const int mode : {1, 2}) {
    error_count = 3;
    EXPECT_EQ(monitor_now(mode), -1);
    EXPECT_EQ(bench.output(), kNoBus);
    EXPECT_EQ(count_st, 0u);
    EXPECT_EQ(error_count, 3u);
  }
  EXPECT_THAT(bench.trace({"close", "i2c"}), IsEmpty());
}

TEST_F(VideoMonitor5150, failed_read_counts_as_no_lock) {
  old_data1 = 0x1E;
  bench.world("fault i2c-fail 5d");
  EXPECT_EQ(monitor_now(1), -1);
  EXPECT_EQ(old_data1, 0);
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST_F(VideoMonitor5150, follows_the_plug) {
  bench.world("source composite");
  EXPECT_EQ(monitor_now(1), 0);
  bench.world("source none");
  EXPECT_EQ(monitor_now(1), -1);
  bench.world("source composite");
  EXPECT_EQ(monitor_now(2), 0);
}

// ---- GetStatusTVP5150 -----------------------------------------------------------------

struct ReportValues {
  int c0 = 0, c1 = 0, c6 = 0, msb = 0, lsb = 0, s1 = 0, s2 = 0, s3 = 0, s4 = 0, s5 = 0;
};

std::string line(const char* format, int value) {
  char text[128];
  snprintf(text, sizeof text, format, value);
  return text;
}

std::string report(const ReportValues& v) {
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

class GetStatus5150 : public Tvp5150 {
 protected:
  void stick_all(const ReportValues& v) {
    const int values[][2] = {{0xC0, v.c0}, {0xC1, v.c1}, {0xC6, v.c6}, {0x84, v.msb}, {0x85, v.lsb},
                             {0x88, v.s1}, {0x89, v.s2}, {0x8A, v.s3}, {0x8B, v.s4},  {0x8C, v.s5}};
    for (const auto& [reg, value] : values) stick(reg, value);
  }
};

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
      ASSERT_EQ(bench.output(), report(values)) << value;
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
  EXPECT_EQ(bench.output(), report({}));
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

// ---- captions -----------------------------------------------------------------------------

using CcStatus = Tvp5150;

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

class CaptionField : public Tvp5150 {
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

// ---- bench access ----------------------------------------------------------------------------

using Tvp5150Rw = Tvp5150;

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

TEST_F(Tvp5150, loadprogramram_opens_writes_the_low_byte_and_closes_the_access) {
  const int fd = init_i2c(1);
  bench.trace();
  TVP5150ALoadProgramRAM(fd, 0x1AB, 0x0B);
  Lines expected = i2c_lines::writes(kChip, "7F=00, 03=69, 21=51, 22=50, 23=FF, 24=04");
  expected.push_back("i2c 5d wr 0b ab");
  i2c_lines::add(expected, i2c_lines::writes(kChip, "7F=00, 21=00, 22=00, 23=FF, 24=04"));
  EXPECT_THAT(bench.trace(), ElementsAreArray(expected));
  EXPECT_EQ(bench.output(), "");
  EXPECT_EQ(vboard::seam::open_handles(), "/dev/i2c-1\n");  // it is the caller's
}

}  // namespace
