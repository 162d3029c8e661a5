// The two stand-alone looks at the AC-3 stream.
#include "audio/ac3_setup.h"

#include <gmock/gmock.h>

#include "tests/unit/audio/audio_bench.h"

namespace {

using namespace audio;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

Lines timing_lines(int period, int bytes, int control) {
  return all({{wr(0x0230, period)},
              reset_lines(),
              {wr(0x0228, 3750), wr(0x0208, 2000), wr(0x022C, bytes), wr(0x1210, 100),
               wr(0x1214, 0), wr(0x1218, 2000), wr(0x121C, 16), wr(0x0224, control)}});
}

// ---- polling -------------------------------------------------------------------

TEST(AudioPollingThread, held_frame_programs_the_timing) {
  AudioBench audio;
  fpgaregs.AudioInput = 1;
  fpgaregs.inAudioEnable = 2;
  fpgaregs.AVSync = 15000;
  audio.block.audio_configured = 5;
  audio.hold(0x0600, 0x770B);
  audio.hold(0x0234, 0x0001);
  audio.hold(0x0608, 0x009C);  // 0x9C00: 32 kHz, code 28

  EXPECT_EQ(AudioPolling_thread(nullptr), nullptr);

  // 2 x 1152 bytes; 0x4000 | 28 << 8 | 2 << 6 | 0x31.
  EXPECT_THAT(
      audio.bench.trace(),
      ElementsAreArray(all({{rd(0x0600, 0x770B), rd(0x0234, 1), rd(0x0608, 0x009C), wait(1000)},
                            timing_lines(4320, 2304, 0x5CB1)})));
  EXPECT_EQ(audio.bench.output(),
            " AudioPolling_thread\n"
            "get value reg 2 9c  \n"
            "set the DTS_INIT_AC3 15000\n"
            "fscod = 2\n"
            "frmsizecod = 28\n"
            "bytes_per_frame_ac3 = 2304\n");
  EXPECT_EQ(audio.block.audio_configured, 1);
  // The mask is that of a set-up: 0x4011, then the timing's bits.
  EXPECT_EQ(enable_capture_mask_reg, 0x5CB1);
}

TEST(AudioPollingThread, waits_10_ms_between_looks) {
  AudioBench audio;
  fpgaregs.AudioInput = 1;
  audio.hold(0x0600, 0);
  audio.bench.beside("world", [&] {
    vboard::board_wait(vboard::WaitFor::kNothing, 15000);
    audio.bench.set_fpga(0x0600, 0x770B);
  });

  AudioPolling_thread(nullptr);

  Lines trace = audio.bench.trace();
  trace.resize(8);
  EXPECT_THAT(trace, ElementsAre(rd(0x0600, 0), rd(0x0234, 0), wait(10000), rd(0x0600, 0),
                                 rd(0x0234, 0), wait(10000), rd(0x0600, 0x770B), rd(0x0234, 0)));
}

TEST(AudioPollingThread, without_a_stream_never_returns) {
  AudioBench audio;
  audio.block.audio_configured = 1;

  EXPECT_FALSE(audio.bench.run_for(3600'000'000, [] { AudioPolling_thread(nullptr); }));

  EXPECT_EQ(audio.block.audio_configured, 0);
  EXPECT_EQ(audio.bench.output(), " AudioPolling_thread\n");
}

TEST(AudioPollingThread, frame_size_code_beyond_the_table_is_reported_and_replaced) {
  AudioBench audio;
  fpgaregs.AudioInput = 1;
  audio.hold(0x0600, 0x770B);
  audio.hold(0x0608, 0x0026);  // 0x2600: code 38

  AudioPolling_thread(nullptr);

  EXPECT_THAT(audio.bench.output(), HasSubstr("get error frmsizecod = 38 set to 30\n"));
  EXPECT_EQ(audio.block.bytes_per_frame_ac3, 128);
}

TEST(AudioPollingThread, dsp_path_writes_the_mask) {
  AudioBench audio;
  fpgaregs.AudioInput = 2;
  fpgaregs.inAudioEnable = 2;
  audio.hold(0x0600, 0x770B);
  audio.hold(0x0608, 0x001C);

  AudioPolling_thread(nullptr);

  EXPECT_EQ(audio.bench.trace({"fpga wr 0x0224"}).back(), wr(0x0224, 0x9C31));
}

// ---- descriptor ------------------------------------------------------------------

struct Reread : AudioBench {
  explicit Reread(int input) {
    fpgaregs.AudioInput = static_cast<std::uint8_t>(input);
    block.audio_enable = 2;
  }
  // A header of the held capture; the other words count.
  void hold_frame(int word2, int word3) {
    for (int i = 0; i < 127; ++i) hold(0x0600 + 4 * i, 0x0100 + i);
    hold(0x0608, (word2 & 0xFF) << 8 | word2 >> 8);
    hold(0x060C, (word3 & 0xFF) << 8 | word3 >> 8);
  }
  Lines capture_reads() const {
    Lines reads;
    for (int i = 0; i < 127; ++i) reads.push_back(rd(0x0600 + 4 * i, bench.fpga(0x0600 + 4 * i)));
    return reads;
  }
};

constexpr char kDecoded[] =
    "0 bsid = 8\n"
    "1 bsmod = 2\n"
    "2 surround_mode = 3\n"
    "3 num_channels - acmod = 2\n"
    "4 langcode = 1\n"
    "frmsizecod = 14 (20)\n"
    "bit_rate = 192\n"
    "5 bit_rate_code = 10\n";
// Code 20, bsid 01000, bsmod 010; acmod 010, surround 11, bits 7 and 0.
constexpr int kWord2 = 20 << 8 | 0x42;
constexpr int kWord3 = 0x4000 | 0x1800 | 0x81;

TEST(GetHdAc3DescParameters, digital_path_full_traffic) {
  Reread audio(1);
  audio.hold_frame(kWord2, kWord3);

  EXPECT_EQ(get_hd_ac3_desc_parameters(), 0);

  EXPECT_THAT(
      audio.bench.trace(),
      ElementsAreArray(all({{wr(0x0008, 22), wr(0x0224, 0x4011), wait(100000)},
                            audio.capture_reads(),
                            {kI2cOpen, "i2c 70 rd 2a -> 01", "i2c 70 rd 13 -> 03", kI2cClose},
                            reset_lines()})));
  EXPECT_EQ(audio.bench.output(), kDecoded);
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 2, 3, 2, 1, 10));
  EXPECT_EQ(audio.shared_descriptor(), AudioBench::descriptor());
  EXPECT_EQ(enable_capture_mask_reg, 0x4011);
}

TEST(GetHdAc3DescParameters, digital_path_without_audio_gives_the_defaults_after_the_prints) {
  Reread audio(1);
  audio.bench.world("audio none");
  audio.hold_frame(kWord2, kWord3);

  EXPECT_EQ(get_hd_ac3_desc_parameters(), 0);

  EXPECT_EQ(audio.bench.output(), kDecoded);
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 15));
  EXPECT_THAT(audio.shared_descriptor(), ElementsAre(8, 0, 0, 7, 1, 15));
}

TEST(GetHdAc3DescParameters, dsp_path_opens_it_and_counts_as_audio) {
  Reread audio(2);
  audio.bench.world("audio none");
  audio.hold_frame(kWord2, kWord3);

  EXPECT_EQ(get_hd_ac3_desc_parameters(), 0);

  EXPECT_THAT(
      audio.bench.trace(),
      ElementsAreArray(all({{wr(0x0008, 22), wr(0x0010, 1), wr(0x0224, 0x8011), wait(100000)},
                            audio.capture_reads(),
                            reset_lines()})));
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 2, 3, 2, 1, 10));
}

TEST(GetHdAc3DescParameters, unlisted_frame_size_code_keeps_the_bit_rate_code) {
  Reread audio(2);
  AudioBench::set_descriptor({0, 0, 0, 0, 0, 4});
  audio.hold_frame(39 << 8, 0);

  get_hd_ac3_desc_parameters();

  EXPECT_THAT(audio.bench.output(),
              HasSubstr("frmsizecod = 27 (39)\nbit_rate = 0\n5 bit_rate_code = 4\n"));
  EXPECT_EQ(hd_ac3_desc_parameters[kAc3BitRateCode], 4);
}

TEST(GetHdAc3DescParameters, live_stream_of_the_source) {
  Reread audio(1);
  audio.bench.world("audio digital bitrate=640,acmod=2,bsid=6,bsmod=1");

  get_hd_ac3_desc_parameters();

  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(6, 1, 0, 2, 0, 18));
}

}  // namespace
