// Looks at a copy of the board, brought to the time of the look.
#include "vboard/interpose/record_board.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "vboard/core/record.h"
#include "vboard/core/sources.h"
#include "vboard/models/encoder.h"
#include "vboard/models/fpga.h"

namespace vboard {

namespace {

const char* encoder_state(const EncoderState& encoder) {
  if (encoder.pid == 0) return "none";
  if (!encoder.alive_raised) return "starts";
  return encoder.streaming ? "streams" : "waits";
}

std::string levels_of(const FpgaState& fpga) {
  char text[40];
  snprintf(text, sizeof text, "levels %.1f %.1f", fpga.video_level, fpga.audio_level);
  return text;
}

std::string video_of(const World& world) {
  if (world.video != VideoSource::kNone && world.faults.video_freeze) return "frozen";
  return source_name(world.video);
}

void record_change(Board& board, std::string& last, const std::string& now) {
  if (now == last) return;
  last = now;
  record(board, kBoardActs, now);
}

}  // namespace

void record_board(Board& board, const SharedBlock* block, std::int64_t now_us) {
  static Board copy;
  static SharedBlock copied_block;
  static std::string levels;
  static std::string encoder;
  static std::string video;
  static std::string audio;
  {
    Locked hold(board);
    memcpy(static_cast<void*>(&copy), &board, sizeof copy);
  }
  if (block != nullptr) {
    memcpy(static_cast<void*>(&copied_block), block, sizeof copied_block);
    encoder_step(copy, &copied_block, now_us);
  } else {
    fpga_advance(copy, now_us);
  }
  record_change(board, video, "video " + video_of(copy.world));
  record_change(board, audio, std::string("audio ") + source_name(copy.world.audio));
  record_change(board, encoder, std::string("encode ") + encoder_state(copy.encoder));
  record_change(board, levels, levels_of(copy.fpga));
}

}  // namespace vboard
