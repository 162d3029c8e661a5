// Prints a board for a person.
#include "vboard/cli/show.h"

#include <cstdio>

#include "hw/fpga_registers.h"
#include "vboard/core/clock.h"

namespace vboard {

namespace {

const char* name_of(VideoSource source) {
  switch (source) {
    case VideoSource::kNone:
      return "none";
    case VideoSource::kComponent:
      return "component";
    case VideoSource::kVga:
      return "vga";
    case VideoSource::kComposite:
      return "composite";
  }
  return "?";
}

const char* name_of(AudioSource source) {
  switch (source) {
    case AudioSource::kNone:
      return "none";
    case AudioSource::kDigital:
      return "digital";
    case AudioSource::kDsp:
      return "dsp";
  }
  return "?";
}

}  // namespace

int show_board(const Board& board) {
  printf("time      %.3f s\n", static_cast<double>(board_now_us()) / 1e6);
  printf("video     %s, %.3f frames/s\n", name_of(board.world.video),
         board.world.fps_milli / 1000.0);
  printf("audio     %s\n", name_of(board.world.audio));
  printf("encode    %s, launched %u times, %s\n",
         board.encoder.pid != 0 ? "running" : "not running", board.encoder.launches,
         board.encoder.streaming ? "streaming" : "not streaming");
  printf("buffers   video %.0f, audio %.0f\n", board.fpga.video_level, board.fpga.audio_level);
  printf("dsp       %s, %s\n", board.dsp.has_firmware ? "has firmware" : "no firmware",
         board.dsp.running ? "running" : "stopped");
  printf("link      %u bytes from the host, %u to it\n", board.link.to_board.head,
         board.link.to_host.head);
  if (board.violations.count > 0)
    printf("faulty    %u violations, first: %s\n", board.violations.count, board.violations.first);
  return 0;
}

int show_registers(const Board& board) {
  for (const FpgaRegister& one : kFpgaRegisters)
    printf("0x%04x  %-24s 0x%04x  %s\n", static_cast<unsigned>(one.address), one.name,
           board.fpga.reg[one.address / 2], one.meaning);
  return 0;
}

}  // namespace vboard
