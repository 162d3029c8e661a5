// The encoder's side of the board: when it comes alive, and what it does to the
// buffers from then on, however rarely they are read.
#include "vboard/models/encoder.h"

#include <gtest/gtest.h>

#include <memory>

#include "vboard/models/fpga.h"
#include "vboard/testing/set_up.h"

namespace {

using namespace vboard;

constexpr std::int64_t kSecond_us = 1000000;

struct Encoder : testing::Test {
  std::unique_ptr<Board> board = std::make_unique<Board>();
  SharedBlock block = {};

  Encoder() {
    set_up_by_hand(*board);
    encoder_started(*board, 1, 0);
  }
};

// Alive at 1.2 s; the video buffer gains 12 a second: 12 x (3.2 - 1.2) = 24, and
// 40 is where it settles.
TEST_F(Encoder, streams_from_its_start_up_time_though_nobody_looked_then) {
  encoder_step(*board, &block, 3200000);
  EXPECT_DOUBLE_EQ(board->fpga.video_level, 24);
  EXPECT_EQ(block.encode_alive, 1);
  EXPECT_TRUE(board->encoder.streaming);
}

TEST_F(Encoder, is_at_its_level_after_a_long_wait) {
  encoder_step(*board, &block, 15 * kSecond_us);
  EXPECT_DOUBLE_EQ(board->fpga.video_level, 40);
}

TEST_F(Encoder, comes_to_the_same_when_looked_at_often) {
  for (std::int64_t at = 0; at <= 3200000; at += 100000) encoder_step(*board, &block, at);
  EXPECT_NEAR(board->fpga.video_level, 24, 1e-9);
}

TEST_F(Encoder, on_hold_is_alive_and_fills_nothing) {
  block.do_fpga_restart = 1;
  encoder_step(*board, &block, 15 * kSecond_us);
  EXPECT_EQ(block.encode_alive, 1);
  EXPECT_EQ(board->fpga.video_level, 0);
}

// It hung from its launch until 10 s; what it missed is not made up for.
TEST_F(Encoder, that_hung_streams_from_the_moment_it_is_mended) {
  board->world.faults.encode_hang = true;
  encoder_step(*board, &block, 9 * kSecond_us);
  fpga_advance(*board, 10 * kSecond_us);
  board->world.faults.encode_hang = false;
  encoder_step(*board, &block, 11 * kSecond_us);
  EXPECT_EQ(board->fpga.video_level, 0);
  encoder_step(*board, &block, 12 * kSecond_us);
  EXPECT_DOUBLE_EQ(board->fpga.video_level, 12);
}

}  // namespace
