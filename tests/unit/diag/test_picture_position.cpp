// The position of the VGA picture.
#include "diag/picture_position.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/i2c_lines.h"
#include "vboard/testing/bench.h"

namespace {

using i2c_lines::Lines;
using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;

// Default V, default H, H step, V step, H floor, V floor.
constexpr int kRows[12][6] = {
    {24, 120, 80, 336, 0, 0},  {30, 164, 116, 336, 0, 0}, {40, 148, 84, 336, 0, 0},
    {32, 34, 80, 336, 0, 0},   {22, 130, 80, 336, 0, 0},  {22, 234, 80, 336, 0, 0},
    {22, 234, 80, 336, 0, 0},  {32, 64, 80, 336, 0, 0},   {26, 194, 80, 336, 0, 0},
    {37, 192, 512, 336, 0, 0}, {18, 48, 128, 160, 0, 8},  {34, 20, 128, 160, 0, 8},
};

TEST(VgaSetTable, rows_and_columns) {
  ASSERT_EQ(kVgaSets, 12);
  for (int row = 0; row < 12; ++row) {
    const VgaSet& set = vga_set[row];
    EXPECT_THAT((std::vector<int>{set.default_v, set.default_h, set.h_step, set.v_step, set.h_floor,
                                  set.v_floor}),
                testing::ElementsAreArray(kRows[row]))
        << row;
  }
}

// ---- SetxySeting ----------------------------------------------------------------

struct Step {
  const char* name;
  int from_x, from_y;
  int dx, dy;
  int h_step, h_floor, v_step, v_floor;
  int x, y;
};

class SetxySetingStep : public testing::TestWithParam<Step> {};

TEST_P(SetxySetingStep, moves_both_offsets) {
  const Step& step = GetParam();
  x_offset = step.from_x;
  y_offset = step.from_y;
  SetxySeting(step.dx, step.dy, step.h_step, step.h_floor, step.v_step, step.v_floor, 7, 9);
  EXPECT_EQ(x_offset, step.x);
  EXPECT_EQ(y_offset, step.y);
}

constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

INSTANTIATE_TEST_SUITE_P(
    Steps, SetxySetingStep,
    testing::Values(
        Step{"none", 100, 50, 0, 0, 80, 0, 336, 0, 100, 50},
        Step{"even_dx", 100, 50, 4, 0, 80, 0, 336, 0, 104, 50},
        Step{"odd_dx_moves_up", 100, 50, 3, 0, 80, 0, 336, 0, 104, 50},
        Step{"odd_dx_moves_down", 100, 50, -3, 0, 80, 0, 336, 0, 96, 50},
        Step{"dx_1", 100, 50, 1, 0, 80, 0, 336, 0, 102, 50},
        Step{"dx_minus_1", 100, 50, -1, 0, 80, 0, 336, 0, 98, 50},
        Step{"odd_dy_stays", 100, 50, 0, 3, 80, 0, 336, 0, 100, 53},
        Step{"odd_dy_down_stays", 100, 50, 0, -3, 80, 0, 336, 0, 100, 47},
        Step{"dx_at_its_limit", 100, 50, 80, 0, 80, 0, 336, 0, 180, 50},
        Step{"dx_odd_below_its_limit", 100, 50, 79, 0, 80, 0, 336, 0, 180, 50},
        Step{"dx_odd_beyond_its_limit", 100, 50, 81, 0, 80, 0, 336, 0, 180, 50},
        Step{"dx_beyond_its_limit", 100, 50, 200, 0, 80, 0, 336, 0, 180, 50},
        Step{"dy_at_its_limit", 100, 50, 0, 336, 80, 0, 336, 0, 100, 386},
        Step{"dy_beyond_its_limit", 100, 50, 0, 337, 80, 0, 336, 0, 100, 386},
        Step{"no_upper_bound", 1000000, 2000000, 80, 336, 80, 0, 336, 0, 1000080, 2000336},
        Step{"decrease_has_no_step_limit", 500, 500, -400, -400, 80, 0, 100, 0, 100, 100},
        Step{"dx_to_just_above_the_floor", 100, 50, -98, 0, 80, 0, 336, 0, 2, 50},
        Step{"dx_to_the_floor", 100, 50, -100, 0, 80, 0, 336, 0, 0, 50},
        Step{"dx_below_the_floor", 100, 50, -102, 0, 80, 0, 336, 0, 0, 50},
        Step{"odd_dx_to_the_floor", 100, 50, -99, 0, 80, 0, 336, 0, 0, 50},
        Step{"dy_to_just_above_the_floor", 100, 50, 0, -41, 80, 0, 336, 8, 100, 9},
        Step{"dy_to_the_floor", 100, 50, 0, -42, 80, 0, 336, 8, 100, 8},
        Step{"dy_below_the_floor", 100, 50, 0, -43, 80, 0, 336, 8, 100, 8},
        Step{"below_the_floor_rises_to_it", 4, 4, -2, -1, 80, 10, 336, 8, 10, 8},
        Step{"most", 100, 50, kMost, kMost, 80, 0, 336, 0, 180, 386},
        Step{"least", 100, 50, kLeast, kLeast, 80, 0, 336, 8, 0, 8},
        Step{"least_odd", 100, 50, kLeast + 1, kLeast + 1, 80, 0, 336, 8, 0, 8}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- Offset ---------------------------------------------------------------------------

class OffsetOf : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
  }
  void configure(int video_std) {
    bench.put_file("hd.ini", "mpgVidRes=" + std::to_string(video_std) + "\n");
  }
  // What a run prints for a standard with this row and these offsets.
  static std::string report(const int (&row)[6], int x, int y, int video_std) {
    char text[320];
    snprintf(text, sizeof text,
             "Default: Horizontal Offset Reg = 0x%x (%d), Vertical Offset Reg = 0x%x (%d)\n"
             "Set:     Horizontal Offset Reg = 0x%x (%d), Vertical Offset Reg = 0x%x (%d), "
             "std=%d\n",
             row[1], row[1], row[0], row[0], x, x, y, y, video_std);
    return text;
  }
  Bench bench;
};

TEST_F(OffsetOf, traffic_in_order) {
  configure(8);
  EXPECT_EQ(Offset(3, 5), 0);  // 130 + 4, 22 + 5
  EXPECT_THAT(bench.trace({"open", "close", "wait", "video0"}),
              ElementsAre("open /dev/video0", "wait 10", "video0 0xc004562c 24",
                          "video0 0xc004562d 134", "wait 1000000", "video0 0xc004562c 16",
                          "video0 0xc004562d 27", "wait 1000000", "close /dev/video0"));
  EXPECT_EQ(bench.output(),
            "Default: Horizontal Offset Reg = 0x82 (130), Vertical Offset Reg = 0x16 (22)\n"
            "Set:     Horizontal Offset Reg = 0x86 (134), Vertical Offset Reg = 0x1b (27), "
            "std=8\n");
  EXPECT_EQ(bench.board().capture.ipipe[24 / 4], 134);
  EXPECT_EQ(bench.board().capture.ipipe[16 / 4], 27);
}

TEST_F(OffsetOf, configuration_is_read_before_the_device_opens) {
  configure(8);
  Offset(0, 0);
  const Lines lines = bench.trace({"file", "open"});
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], testing::StartsWith("file /home/tovin/hd.ini"));
  EXPECT_EQ(lines[1], "open /dev/video0");
}

struct StandardRow {
  int video_std;
  int row;
};

class OffsetStandard : public OffsetOf, public testing::WithParamInterface<StandardRow> {};

TEST_P(OffsetStandard, starts_from_the_defaults_of_its_row) {
  const auto& [video_std, number] = GetParam();
  const int(&row)[6] = kRows[number];
  configure(video_std);

  Offset(0, 0);
  EXPECT_EQ(x_offset, row[1]);
  EXPECT_EQ(y_offset, row[0]);
  EXPECT_EQ(bench.output(), report(row, row[1], row[0], video_std));

  // Beyond every limit of the row, both ways.
  Offset(10000, 10000);
  EXPECT_EQ(bench.output(), report(row, row[1] + row[2], row[0] + row[3], video_std));
  Offset(-10000, -10000);
  EXPECT_EQ(bench.output(), report(row, row[4], row[5], video_std));
}

INSTANTIATE_TEST_SUITE_P(Mapping, OffsetStandard,
                         testing::Values(StandardRow{8, 4}, StandardRow{9, 1}, StandardRow{10, 2},
                                         StandardRow{23, 0}, StandardRow{25, 7}, StandardRow{30, 8},
                                         StandardRow{35, 9}, StandardRow{40, 10}, StandardRow{0, 0},
                                         StandardRow{7, 0}, StandardRow{11, 0}, StandardRow{41, 0},
                                         StandardRow{577, 0}),
                         [](const auto& row) {
                           return "standard_" + std::to_string(row.param.video_std);
                         });

struct EdgeCase {
  const char* name;
  int video_std;
  int dx, dy;
  int x, y;
};

class OffsetEdge : public OffsetOf, public testing::WithParamInterface<EdgeCase> {};

TEST_P(OffsetEdge, lands_where_expected) {
  const EdgeCase& edge = GetParam();
  configure(edge.video_std);
  Offset(edge.dx, edge.dy);
  EXPECT_EQ(x_offset, edge.x);
  EXPECT_EQ(y_offset, edge.y);
  EXPECT_THAT(bench.trace({"video0"}),
              ElementsAre("video0 0xc004562c 24", "video0 0xc004562d " + std::to_string(edge.x),
                          "video0 0xc004562c 16", "video0 0xc004562d " + std::to_string(edge.y)));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, OffsetEdge,
    testing::Values(EdgeCase{"odd_shift", 8, 3, 0, 134, 22},          // 130 + 4
                    EdgeCase{"step_limit", 9, 200, 0, 280, 30},       // 164 + 116
                    EdgeCase{"both_floors", 40, -200, -50, 0, 8},     // below 0 and below 8
                    EdgeCase{"exactly_zero", 40, 0, -18, 48, 8},      // 18 - 18 = 0, not above 8
                    EdgeCase{"onto_the_floor", 40, 0, -10, 48, 8},    // 18 - 10 = 8
                    EdgeCase{"above_the_floor", 40, 0, -9, 48, 9},    // 18 - 9 = 9
                    EdgeCase{"large_step", 35, 512, 0, 704, 37},      // 192 + 512
                    EdgeCase{"odd_shift_down", 25, -3, -1, 60, 31}),  // 64 - 4, 32 - 1
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(OffsetOf, shifts_do_not_add_up) {
  configure(8);
  for (int time = 0; time < 3; ++time) {
    Offset(10, 10);
    EXPECT_EQ(x_offset, 140);
    EXPECT_EQ(y_offset, 32);
  }
}

TEST_F(OffsetOf, without_a_configuration_row_0_and_standard_minus_1) {
  EXPECT_EQ(Offset(2, 1), 0);
  // Whatever the reader says of the missing file comes first.
  EXPECT_THAT(bench.output(), testing::EndsWith(report(kRows[0], 122, 25, -1)));
}

TEST_F(OffsetOf, configuration_without_the_key_is_standard_0) {
  bench.put_file("hd.ini", "mpgGopSize=12\n");
  Offset(0, 0);
  EXPECT_THAT(bench.output(), testing::EndsWith(report(kRows[0], 120, 24, 0)));
}

TEST_F(OffsetOf, missing_device_prints_and_goes_on_to_the_end) {
  configure(8);
  bench.world("fault missing video0");
  EXPECT_EQ(Offset(3, 0), -1);  // nothing to close
  EXPECT_EQ(bench.output(), "Cannot open video 0\n" + report(kRows[4], 134, 22, 8));
  EXPECT_THAT(bench.trace({"video0", "close", "wait"}),
              ElementsAre("wait 10", "wait 1000000", "wait 1000000"));
}

TEST_F(OffsetOf, failed_requests_are_not_noticed) {
  configure(8);
  vboard::seam::fail_call("ioctl", "/dev/video0", 0, -1, 5);
  EXPECT_EQ(Offset(3, 0), 0);
  EXPECT_EQ(bench.output(), report(kRows[4], 134, 22, 8));
  EXPECT_THAT(bench.trace({"video0"}), IsEmpty());
  EXPECT_EQ(vboard::seam::open_handles(), "");
}

TEST(Offset, messages_and_requests_in_one_order) {
  Bench bench;
  bench.put_file("hd.ini", "mpgVidRes=40\n");  // row 10: V 18, H 48, V floor 8
  bench.follow();
  Offset(-4, -18);
  EXPECT_THAT(
      bench.stream(),
      ElementsAre("file /home/tovin/hd.ini r", "file /home/tovin/hd.ini closed", "open /dev/video0",
                  "wait 10",
                  "say Default: Horizontal Offset Reg = 0x30 (48), Vertical Offset Reg = 0x12 (18)",
                  "say Set:     Horizontal Offset Reg = 0x2c (44), Vertical Offset Reg = 0x8 (8), "
                  "std=40",
                  "video0 0xc004562c 24", "video0 0xc004562d 44", "wait 1000000",
                  "video0 0xc004562c 16", "video0 0xc004562d 8", "wait 1000000",
                  "close /dev/video0"));
}

}  // namespace
