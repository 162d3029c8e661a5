// The composite decoder: initialisation, setters and lock monitor.
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

// As a fresh process has them: taken before any test runs.
const std::int32_t handle_at_start = i2c_handle;
const std::uint32_t count_at_start = count_st;
const std::uint32_t errors_at_start = error_count;
const int status_at_start = old_data1;

TEST(Tvp5150State, starts_closed_with_nothing_counted_or_read) {
  EXPECT_EQ(handle_at_start, -1);
  EXPECT_EQ(count_at_start, 0u);
  EXPECT_EQ(errors_at_start, 0u);
  EXPECT_EQ(status_at_start, 0);
}

class Tvp5150 : public testing::Test {
 protected:
  Tvp5150() {
    i2c_handle = -1;
    count_st = 0;
    error_count = 0;
    old_data1 = 0;
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

TEST_F(VideoMonitor5150, failed_read_judges_the_status_of_the_last_one) {
  bench.world("fault i2c-fail 5d");
  for (const int mode : {1, 2}) {
    old_data1 = 0x1E;
    error_count = 0;
    EXPECT_EQ(monitor_now(mode), 0);
    EXPECT_EQ(old_data1, 0x1E);
    EXPECT_EQ(bench.output(), tvp5150_texts::locks(0x1E) + "Tvp 5150 is status register  lock \n");
    EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1", rd_failed(kChip, 0x88),
                                           "i2c 5d wr c6 ff = EREMOTEIO", "close /dev/i2c-1"));

    old_data1 = 0x02;
    EXPECT_EQ(monitor_now(mode), -1);
    EXPECT_EQ(old_data1, 0x02);
    EXPECT_EQ(bench.output(), tvp5150_texts::locks(0x02) +
                                  " Tvp 5150 is status register no lock error_count=1\n" + kNoLock);
    bench.trace();
  }
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST_F(VideoMonitor5150, failed_read_before_any_other_is_no_lock) {
  bench.world("fault i2c-fail 5d");
  EXPECT_EQ(monitor_now(1), -1);
  EXPECT_EQ(old_data1, 0);
}

TEST_F(VideoMonitor5150, follows_the_plug) {
  bench.world("source composite");
  EXPECT_EQ(monitor_now(1), 0);
  bench.world("source none");
  EXPECT_EQ(monitor_now(1), -1);
  bench.world("source composite");
  EXPECT_EQ(monitor_now(2), 0);
}

// ---- RAM access ---------------------------------------------------------------------------

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

// ---- messages and traffic in one order ----------------------------------------------

using Tvp5150Order = Tvp5150;

TEST_F(Tvp5150Order, locked_reading) {
  stick(0x88, 0x06);
  count_st = 4;
  error_count = 3;
  bench.follow();
  bench.watch("count", count_st);
  bench.watch("errors", error_count);
  bench.watch("status", old_data1);
  EXPECT_EQ(video_monitorTVP5150(1), 0);
  EXPECT_THAT(
      bench.stream(),
      ElementsAre("count = 0", "open /dev/i2c-1", "i2c 5d rd 88 -> 06", "status = 6",
                  "i2c 5d wr c6 ff", "say ***********  Horizontal sync lock status",
                  "say ***********  Vertical sync lock status",
                  "say Color subcarrier is not locked.", "say No lost lock since status register",
                  "say Tvp 5150 is status register  lock ", "errors = 0", "close /dev/i2c-1"));
}

TEST_F(Tvp5150Order, unlocked_reading) {
  stick(0x88, 0x12);
  count_st = 4;
  error_count = 0;
  bench.follow();
  bench.watch("errors", error_count);
  EXPECT_EQ(video_monitorTVP5150(1), -1);
  EXPECT_THAT(
      bench.stream(),
      ElementsAre("open /dev/i2c-1", "i2c 5d rd 88 -> 12", "i2c 5d wr c6 ff",
                  "say ***********  Horizontal sync lock status", "say Vertical sync is not locked",
                  "say Color subcarrier is not locked.", "say Lost lock since status register",
                  "errors = 1", "say  Tvp 5150 is status register no lock error_count=1",
                  "errors = 0", "say ******** Tvp 5150 is status register no lock ******** ",
                  "close /dev/i2c-1"));
}

}  // namespace
