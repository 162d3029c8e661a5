// vboard save and load: registers of one board on another.
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

TEST(RegisterDump, faulty_line_is_named_and_nothing_is_set) {
  BoardRun board;
  board.put_file("dump", "0x0204 0x0011\n0x0205 0x0001\n");
  const Result load = board.vboard("load " + board.path("dump"));
  EXPECT_EQ(load.status, 125);
  EXPECT_THAT(load.err, HasSubstr("dump:2: "));
  EXPECT_EQ(board.vantorig("-rdreg 0x102").out, "addr 0x102: 0x0\n");
}

}  // namespace
