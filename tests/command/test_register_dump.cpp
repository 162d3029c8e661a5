// vboard save and load: registers of one board on another.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/board_run.h"

namespace {

using testing::HasSubstr;

TEST(RegisterDump, saved_registers_load_on_another_board) {
  BoardRun one;
  one.vantorig("-wrreg 0x102 0x55");  // byte address 0x204
  ASSERT_EQ(one.vboard("save " + one.path("dump")).status, 0);
  EXPECT_THAT(one.get_file("dump"), HasSubstr("0x0204 0x0055 VIDEO_CONTROL\n"));

  BoardRun other;
  ASSERT_EQ(other.vboard("load " + one.path("dump")).status, 0);
  EXPECT_EQ(other.vantorig("-rdreg 0x102").out, "addr 0x102: 0x55\n");
}

TEST(RegisterDump, what_rdreg_prints_loads) {
  BoardRun board;
  board.put_file("dump", "# read on the bench\naddr 0x102: 0x77\n\n");
  ASSERT_EQ(board.vboard("load " + board.path("dump")).status, 0);
  EXPECT_EQ(board.vantorig("-rdreg 0x102").out, "addr 0x102: 0x77\n");
}

// The hardware version is 0x0117; nothing but the program would pop a FIFO.
TEST(RegisterDump, saves_what_the_program_would_read) {
  BoardRun board;
  ASSERT_EQ(board.vboard("save " + board.path("dump")).status, 0);
  EXPECT_THAT(board.get_file("dump"), HasSubstr("0x0000 0x0117 FPGA_HW_VERSION\n"));
  EXPECT_THAT(board.vboard("registers").out,
              HasSubstr("0x0000  FPGA_HW_VERSION          0x0117  "));
}

TEST(RegisterDump, held_dump_saves_the_same_again) {
  BoardRun one;
  one.vantorig("-wrreg 0x102 0x55");
  one.vantorig("-wrreg 0 0x1234");
  ASSERT_EQ(one.vboard("save " + one.path("dump")).status, 0);
  BoardRun other;
  ASSERT_EQ(other.vboard("load --hold " + one.path("dump")).status, 0);
  ASSERT_EQ(other.vboard("save " + other.path("dump")).status, 0);
  EXPECT_EQ(other.get_file("dump"), one.get_file("dump"));
}

// Another board's version stands only as long as the registers are held.
TEST(RegisterDump, hold_lasts_until_the_next_load) {
  BoardRun board;
  board.put_file("dump", "0x0000 0x0123\n");
  ASSERT_EQ(board.vboard("load --hold " + board.path("dump")).status, 0);
  EXPECT_EQ(board.vantorig("-rdreg 0").out, "addr 0x0: 0x123\n");
  ASSERT_EQ(board.vboard("load " + board.path("dump")).status, 0);
  EXPECT_EQ(board.vantorig("-rdreg 0").out, "addr 0x0: 0x117\n");
}

TEST(RegisterDump, last_line_of_a_register_counts) {
  BoardRun board;
  board.put_file("dump", "0x204 0x1 VIDEO_CONTROL\r\n  addr 0x102: 0x2  \n \n# 0x0204 0x3\n");
  ASSERT_EQ(board.vboard("load " + board.path("dump")).status, 0);
  EXPECT_EQ(board.vantorig("-rdreg 0x102").out, "addr 0x102: 0x2\n");
}

struct Damage {
  const char* name;
  const char* line;  // the second, behind a good one
};
void PrintTo(const Damage& one, std::ostream* out) { *out << one.name; }
class DamagedDump : public testing::TestWithParam<Damage> {};

TEST_P(DamagedDump, is_named_by_line_and_nothing_is_set) {
  BoardRun board;
  board.put_file("dump", std::string("0x0204 0x0011\n") + GetParam().line + "\n");
  const Result load = board.vboard("load " + board.path("dump"));
  EXPECT_EQ(load.status, 125);
  EXPECT_EQ(load.out, "");
  EXPECT_THAT(load.err, HasSubstr("dump:2: wanted "));
  EXPECT_EQ(board.vantorig("-rdreg 0x102").out, "addr 0x102: 0x0\n");
}

INSTANTIATE_TEST_SUITE_P(
    lines, DamagedDump,
    testing::Values(Damage{"odd_address", "0x0205 0x0001"},
                    Damage{"address_beyond_the_registers", "0x2000 0x0001"},
                    Damage{"word_beyond_the_registers", "addr 0x1000: 0x1"},
                    Damage{"address_too_long", "0x100000204 0x0005"},
                    Damage{"value_too_long", "0x0208 0x10005"},
                    Damage{"value_cut_off", "0x0208 0x"}, Damage{"value_missing", "0x0208"},
                    Damage{"value_negative", "0x0208 0x-1"}, Damage{"value_decimal", "0x0208 12"},
                    Damage{"digit_damaged", "0x0208 0x00g1"},
                    Damage{"name_of_another_register", "0x0208 0x0001 VIDEO_CONTROL"},
                    Damage{"name_of_no_register", "0x0206 0x0001 VIDEO_CONTROL"},
                    Damage{"words_behind_the_name", "0x0204 0x0001 VIDEO_CONTROL 0x0208"},
                    Damage{"colon_missing", "addr 0x102 0x1"}, Damage{"noise", "\x01\x7f\xfe"}),
    [](const auto& one) { return std::string(one.param.name); });

TEST(RegisterDump, file_without_a_register_is_refused) {
  BoardRun board;
  board.put_file("dump", "# nothing\n");
  const Result empty = board.vboard("load " + board.path("dump"));
  EXPECT_EQ(empty.status, 125);
  EXPECT_THAT(empty.err, HasSubstr("dump holds no register"));
  EXPECT_EQ(board.vboard("load /tmp").status, 125);  // a directory
  const Result missing = board.vboard("load " + board.path("no-such-dump"));
  EXPECT_EQ(missing.status, 125);
  EXPECT_THAT(missing.err, HasSubstr("cannot read "));
}

TEST(RegisterDump, full_disk_is_told) {
  BoardRun board;
  const Result save = board.vboard("save /dev/full");
  EXPECT_EQ(save.status, 125);
  EXPECT_THAT(save.err, HasSubstr("cannot write /dev/full: No space left on device"));
}

TEST(RegisterDump, save_wants_a_board) {
  const Result save =
      shell(std::string(BUILD_DIRECTORY) + "/vboard --board /tmp/no/such/board save /dev/null");
  EXPECT_EQ(save.status, 125);
  EXPECT_THAT(save.err, HasSubstr("vboard: no board in /tmp/no/such/board"));
}

}  // namespace
