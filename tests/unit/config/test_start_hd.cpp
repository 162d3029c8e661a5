// The launch of `encode`.
#include "config/start_hd.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using vboard::Bench;
namespace seam = vboard::seam;

constexpr std::int32_t kOne = 1;

TEST(StartHd, launches_in_the_background_and_waits_a_millisecond) {
  Bench bench;
  bench.attach_block();
  dbg_encode = 0;
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_EQ(bench.output(), "start_hd - with system command\n");
  EXPECT_THAT(bench.trace(), ElementsAre("shell ./encode&", "wait 1000"));
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

TEST(StartHd, debug_word_launches_with_debug) {
  Bench bench;
  bench.attach_block();
  dbg_encode = 1;
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("shell DMAI_DEBUG=2 ./encode&", "wait 1000"));
  dbg_encode = 0;
}

TEST(StartHd, block_is_handed_over) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.do_fpga_restart = 1;
  block.encoder_running = -1;
  block.launch_zero = -1;
  block.audio_enable = 0xEE;
  block.VidCodec = 0x11223344;
  block.encode_alive = 1;
  fpgaregs.inAudioEnable = 2;
  enable_audio = 0;

  start_hd(&kOne, 0);

  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(block.encoder_running, 0);
  EXPECT_EQ(block.launch_zero, 0);
  EXPECT_EQ(block.audio_enable, 2);
  EXPECT_EQ(enable_audio, 2);
  EXPECT_EQ(block.VidCodec, 0x11223344);  // the neighbours of what is cleared
  EXPECT_EQ(block.encode_alive, 1);
}

TEST(StartHd, value_is_not_looked_at) {
  Bench bench;
  bench.attach_block();
  const std::int32_t zero = 0;
  EXPECT_EQ(start_hd(&zero, 5), 0);
  EXPECT_EQ(start_hd(nullptr, 0), 0);
  EXPECT_EQ(bench.board().encoder.launches, 2u);
}

TEST(StartHd, shell_that_fails_is_not_noticed) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  block.do_fpga_restart = 1;
  seam::fail_call("system", "encode", 0, 1, ENOMEM);
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_EQ(block.do_fpga_restart, 0);
  EXPECT_EQ(bench.output(), "start_hd - with system command\n");
}

TEST(StartHd, block_not_attached_launches_all_the_same) {
  Bench bench;
  shared_memory = nullptr;
  fpgaregs.inAudioEnable = 1;
  EXPECT_EQ(start_hd(&kOne, 0), 0);
  EXPECT_EQ(enable_audio, 1);
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

}  // namespace
