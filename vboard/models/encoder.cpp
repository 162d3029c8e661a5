// The encoder's side of the shared block.
#include "vboard/models/encoder.h"

#include "vboard/models/fpga.h"

namespace vboard {

namespace {

// Video standards of the status file by "mpgVidRes" code.
struct Picture {
  std::int32_t code;
  std::int32_t width;
  std::int32_t height;
};
constexpr Picture kPictures[] = {{6, 720, 576},   {7, 720, 480},   {8, 720, 576},   {9, 1280, 720},
                                 {10, 1280, 720}, {11, 1280, 720}, {12, 1920, 1080}};

void publish_alive(SharedBlock& block) {
  block.encode_alive = 1;
  block.encode_version = kEncodeVersion;
  block.encoder_running = 1;
}

// Statistics that the host's status record carries: a plain function of what is
// configured and of how long the encoder has run, so that a reader can check it.
void publish_statistics(const Board& board, SharedBlock& block, std::int64_t now_us) {
  const auto seconds = static_cast<std::int32_t>((now_us - board.encoder.started_us) / 1000000);
  for (int i = 0; i < 22; ++i) block.statistics[i] = 1000 + i;
  block.statistics[0] = seconds;
  for (int i = 0; i < 3; ++i) block.statistics2[i] = 2000 + i;
  block.status_bitrate = block.video_bitrate.load();
  block.status_frame_rate = static_cast<std::uint8_t>(board.world.fps_milli / 1000);
  const std::int32_t code = block.videoStd;
  block.status_video_std = code;
  for (const Picture& one : kPictures) {
    if (one.code != code) continue;
    block.status_width = one.width;
    block.status_height = one.height;
  }
  block.status_vbr = block.vbr.load();
}

}  // namespace

void encoder_step(Board& board, SharedBlock* block, std::int64_t now_us) {
  EncoderState& encoder = board.encoder;
  const std::int64_t ready_us = encoder.started_us + encoder.start_up_us;
  const bool working = encoder.pid != 0 && !board.world.faults.encode_hang &&
                       !board.world.faults.encode_never_alive && now_us >= ready_us;
  // In virtual time nobody may have looked since it was ready: the stream began then.
  if (working && block != nullptr && !encoder.alive_raised && ready_us > board.fpga.updated_us) {
    fpga_advance(board, ready_us);
    encoder.alive_raised = true;
    encoder.streaming = block->do_fpga_restart == 0;
    publish_alive(*block);
  }
  fpga_advance(board, now_us);
  if (block == nullptr || !working) {
    encoder.streaming = false;
    return;
  }
  if (!encoder.alive_raised) publish_alive(*block);
  encoder.alive_raised = true;
  publish_statistics(board, *block, now_us);
  encoder.streaming = block->do_fpga_restart == 0;
}

void encoder_started(Board& board, std::int32_t pid, std::int64_t now_us) {
  fpga_advance(board, now_us);
  board.encoder.pid = pid;
  board.encoder.started_us = now_us;
  board.encoder.alive_raised = false;
  board.encoder.streaming = false;
  ++board.encoder.launches;
}

void encoder_gone(Board& board) {
  board.encoder.pid = 0;
  board.encoder.streaming = false;
}

}  // namespace vboard
