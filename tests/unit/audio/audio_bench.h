// What the audio tests share: a board with the FPGA device open and the block
// attached, the audio state at its start values, and trace lines.
#pragma once

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

#include "audio/audio_settings.h"
#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "vboard/testing/bench.h"

namespace audio {

using Lines = std::vector<std::string>;

inline std::string line(const char* format, int a, int b) {
  char text[64];
  snprintf(text, sizeof text, format, a, b);
  return text;
}
inline std::string wr(int address, int value) {
  return line("fpga wr 0x%04x <- 0x%04x", address, value);
}
inline std::string rd(int address, int value) {
  return line("fpga rd 0x%04x -> 0x%04x", address, value);
}
inline std::string wait(int microseconds) { return "wait " + std::to_string(microseconds); }

inline Lines all(std::initializer_list<Lines> parts) {
  Lines whole;
  for (const Lines& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

inline constexpr char kI2cOpen[] = "open /dev/i2c-1";
inline constexpr char kI2cClose[] = "close /dev/i2c-1";

// The audio reset of the FPGA, a second long.
inline Lines reset_lines() {
  return {wr(0x0004, 1), wr(0x0008, 1), wr(0x0010, 0), wr(0x0224, 0),
          wr(0x132C, 0), wait(1000000), wr(0x0004, 0), wait(10000)};
}

class AudioBench {
 public:
  vboard::Bench bench;
  SharedBlock& block;

  AudioBench() : block(bench.attach_block()) {
    fpga_file = fopen(kFpgaDevice, "r+b");
    fpgaregs.AudioInput = 0;
    fpgaregs.inAudioEnable = 0;
    fpgaregs.inAudioSampleRate = 0;
    fpgaregs.AudCodec = 0;
    fpgaregs.AVSync = 0;
    fpgaregs.mpgAudRate = 0;
    fpgaregs.inAudioVolume = 0;
    fpgaregs.DspMode = 0;
    SampleRate = 0;
    enable_capture_mask_reg = 0;
    audio_at_beginning = 0;
    set_descriptor({8, 0, 0, 7, 1, 15});
    bench.trace();
  }
  ~AudioBench() {
    EXPECT_EQ(bench.board().violations.count, allowed_violations) << bench.board().violations.first;
    FILE* open = fpga_file;
    if (open != nullptr) fclose(open);
    fpga_file = nullptr;
  }

  std::uint32_t allowed_violations = 0;

  static void set_descriptor(const std::vector<int>& bytes) {
    for (std::size_t i = 0; i < bytes.size(); ++i)
      hd_ac3_desc_parameters[i] = static_cast<std::uint8_t>(bytes[i]);
  }
  static std::vector<int> descriptor() {
    return {hd_ac3_desc_parameters, hd_ac3_desc_parameters + kAc3DescriptorSize};
  }
  std::vector<int> shared_descriptor() const { return {block.hd_ac3_desc, block.hd_ac3_desc + 6}; }

  // The DSP encodes at this rate, in kbit/s.
  void start_dsp(int rate) {
    vboard::Ac3DspState& dsp = bench.board().dsp;
    dsp.configure[0] = 1;
    for (int i = 0; i < 4; ++i)
      dsp.configure[3 + i] = static_cast<std::uint8_t>(rate * 1000 >> 8 * i);
    dsp.running = true;
  }

  // The FPGA answers reads with the registers as they stand.
  void hold(int address, int value) {
    bench.board().fpga.held = true;
    bench.set_fpga(address, value);
  }
};

}  // namespace audio
