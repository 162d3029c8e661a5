// The stream that leaves the board, described from its registers.
#include "vboard/models/stream.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "hw/fpga_registers.h"
#include "vboard/testing/bench.h"

namespace {

using namespace vboard;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

struct Streaming {
  Bench bench;

  explicit Streaming(std::initializer_list<const char*> world = {}) {
    bench.attach_block();
    for (const char* one : world) bench.world(one);
    bench.set_up();
    EXPECT_EQ(system("./encode&"), 0);
    usleep(2'000'000);
  }
};

// 121844 / 13651 = 8.9256 Mbit/s; 1504 bits of a packet take 168.5 us.
TEST(OutgoingStream, of_a_board_set_up_by_hand) {
  Streaming board;
  const TransportStream stream = board.bench.outgoing();
  EXPECT_TRUE(stream.there);
  EXPECT_NEAR(stream.Mbit_per_second, 8.9256, 0.0001);
  EXPECT_NEAR(stream.packet_us, 168.5, 0.05);
  EXPECT_EQ(stream.pcr_pid, 256);
  EXPECT_TRUE(stream.video.there);
  EXPECT_EQ(stream.video.pid, 256);
  EXPECT_EQ(stream.video.codec, "H.264");
  EXPECT_DOUBLE_EQ(stream.video.frames_per_second, 25);
  EXPECT_EQ(stream.video.width, 1920);
  EXPECT_EQ(stream.video.height, 1080);
  EXPECT_TRUE(stream.video.interlaced);
  EXPECT_TRUE(stream.sound.there);
  EXPECT_EQ(stream.sound.pid, 257);
  EXPECT_EQ(stream.sound.kbit_per_second, 384);
  EXPECT_EQ(stream.sound.sample_rate, 48000);
  EXPECT_EQ(stream.sound.frame_bytes, 1536);
  EXPECT_TRUE(stream.sound.decodable);
  EXPECT_THAT(
      stream_text(board.bench.board()),
      ElementsAre("8.926 Mbit/s, a packet every 168.5 us (13651 ticks of 81 MHz)",
                  "PID 0x0100  PCR",
                  "PID 0x0100  video  H.264, 1920x1080i, 25.000 frames/s, pixels 360 to 2280 "
                  "from line 5, delay 2000",
                  "PID 0x0101  sound  AC-3 of the digital input, 384 kbit/s, 48000 Hz, 1536 bytes "
                  "a frame, delay 3750"));
}

TEST(OutgoingStream, is_none_without_encode_and_says_why) {
  Bench bench;
  bench.set_up();
  EXPECT_FALSE(bench.outgoing().there);
  EXPECT_THAT(stream_text(bench.board()), ElementsAre("no stream", "stream: encode: does not run"));
}

TEST(OutgoingStream, frame_rates_stand_in_the_ratio_of_their_periods) {
  Streaming board;
  struct {
    int period;
    double rate;
  } const rows[] = {{15000, 24}, {14400, 25}, {12000, 30}, {12012, 30000.0 / 1001}};
  for (const auto& one : rows) {
    board.bench.set_fpga(kRegFramePeriod, one.period);
    EXPECT_DOUBLE_EQ(board.bench.outgoing().video.frames_per_second, one.rate);
  }
}

TEST(OutgoingStream, mpeg2_carries_the_decoders_captions) {
  Streaming board({"source composite", "captions on"});
  EXPECT_FALSE(board.bench.outgoing().video.captions);
  board.bench.set_fpga(kRegVideoControl, 0x6000);
  board.bench.set_fpga(kRegVideoCodec3, 48032);
  const TransportStream stream = board.bench.outgoing();
  EXPECT_EQ(stream.video.codec, "MPEG-2");
  EXPECT_TRUE(stream.video.captions);
  EXPECT_EQ(stream.video.width, 720);
  EXPECT_EQ(stream.video.height, 576);
  board.bench.board().tvp5150.reg[0xEE] = 0xFF;  // one field is still read
  EXPECT_TRUE(board.bench.outgoing().video.captions);
  board.bench.board().tvp5150.reg[0xEF] = 0xFF;
  EXPECT_FALSE(board.bench.outgoing().video.captions);
}

TEST(OutgoingStream, picture_is_what_the_digitizers_window_cuts_out) {
  Streaming board({"source vga", "set-standard 1280x1024"});
  Tvp7002State& chip = board.bench.board().tvp7002;
  chip.reg[0x40] = 0x06;  // from 0x106 to 0x506: 1024 pixels
  chip.reg[0x41] = 0x01;
  chip.reg[0x42] = 0x06;
  chip.reg[0x43] = 0x05;
  EXPECT_EQ(board.bench.outgoing().video.left, 262);
  EXPECT_EQ(board.bench.outgoing().video.width, 1024);
  EXPECT_EQ(board.bench.outgoing().video.height, 1024);
}

TEST(OutgoingStream, sound_of_the_dsp_has_the_rate_that_it_was_told_and_its_gain) {
  Streaming board({"audio dsp bitrate=640"});  // the world's wish does not count
  board.bench.board().dsp.codec[0] = 23 + 4;
  board.bench.board().dsp.codec[1] = 0x80 | 23;
  const SoundInStream sound = board.bench.outgoing().sound;
  EXPECT_EQ(sound.source, "DSP");
  EXPECT_EQ(sound.kbit_per_second, 384);
  EXPECT_DOUBLE_EQ(sound.left_dB, 6);
  EXPECT_TRUE(sound.right_silent);
  EXPECT_THAT(stream_text(board.bench.board()),
              Contains(HasSubstr("1536 bytes a frame, left +6.0 dB, right silent, delay 3750")));
}

// Frames of the source end where the registers do not cut.
TEST(OutgoingStream, sound_cut_at_another_length_is_not_decodable) {
  Streaming board;
  board.bench.set_fpga(kRegAc3FrameBytes, 128);
  EXPECT_TRUE(board.bench.outgoing().sound.there);
  EXPECT_FALSE(board.bench.outgoing().sound.decodable);
  EXPECT_THAT(stream_text(board.bench.board()),
              Contains("sound: fpga: AC-3 frame size does not fit the source"));
}

TEST(OutgoingStream, loses_its_picture_with_the_plug_and_keeps_the_sound) {
  Streaming board;
  board.bench.world("source none");
  EXPECT_TRUE(board.bench.outgoing().there);
  EXPECT_FALSE(board.bench.outgoing().video.there);
  EXPECT_TRUE(board.bench.outgoing().sound.there);
}

TEST(OutgoingStream, differs_when_an_analyser_would_see_it) {
  Streaming board;
  const TransportStream before = board.bench.outgoing();
  EXPECT_FALSE(differ(before, board.bench.outgoing()));
  board.bench.set_fpga(kRegPidPcr, 257);
  EXPECT_TRUE(differ(before, board.bench.outgoing()));
}

}  // namespace
