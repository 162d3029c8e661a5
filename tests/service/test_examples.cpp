// The example configurations: each is sent to a board with the sources that it is
// for, and what its comments promise stands in the FPGA, the chips and the block.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/service_bench.h"

namespace {

using testing::ElementsAre;

// Registers by byte address.
constexpr int kVideoControl = 0x0204;
constexpr int kDtsPath0 = 0x0208;
constexpr int kFramePeriod = 0x0210;
constexpr int kDtsPath1 = 0x0228;
constexpr int kCodecConstant = 0x120C;
constexpr int kOutputInterval = 0x1300;

constexpr int kH264Constant = 44640;
constexpr int kMpeg2Constant = 48032;

struct Example {
  const char* name;
  const char* file;
  std::vector<std::string> world;
  int input_mux;  // as GET_INPUT_MUX answers
  int frame_period;
  int frame_rate_code;
  int output_interval;  // 121844 / (output rate in Mbit/s), cut off
  int video_control;
  int codec_constant;
  const char* suffix;
  int dts_path0;
  int dts_path1;
  int audio_path;
  int gop_size;
  // What leaves the board.
  double Mbit_per_second;
  const char* codec;
  double frames_per_second;
  const char* picture;
  bool captions;
  const char* sound;
};

void PrintTo(const Example& one, std::ostream* out) { *out << one.file; }

// The receiver is asked before the first launch: the first configuration does not
// capture the digital stream's header, and cuts its frames of 1536 bytes at 128.
constexpr char kFirstDigital[] = "digital input 384 kbit/s, 128 bytes, not decodable";

std::string picture_of(const vboard::VideoInStream& video) {
  return std::to_string(video.width) + "x" + std::to_string(video.height) +
         (video.interlaced ? "i" : "p");
}

std::string sound_of(const vboard::SoundInStream& sound) {
  char level[24] = "";
  if (sound.source == "DSP") snprintf(level, sizeof level, ", %.1f dB", sound.left_dB);
  return sound.source + " " + std::to_string(sound.kbit_per_second) + " kbit/s, " +
         std::to_string(sound.frame_bytes) + " bytes" + level +
         (sound.decodable ? "" : ", not decodable");
}

// Output rates: 1.05 x (rate + 0.5) Mbit/s, component's 14 by hand. D of the A/V
// sync is 90 x ms + 15000 on the digital path: above 8000, so D / 4 goes to path 1;
// on the DSP path -7500: (16000 + 7500) / 4 goes to path 0.
const Example kExamples[] = {
    {"start", "hd.ini", {}, 0,  14400,  3,       13651, 0x0100,       kH264Constant, ".264",
     2000,    3750,     1,  25, 8.9256, "H.264", 25,    "1920x1080i", false,         kFirstDigital},
    {"component",
     "examples/component.ini",
     {},
     0,
     15000,
     2,
     8703,
     0x0100,
     kH264Constant,
     ".264",
     2000,
     3750,
     1,
     24,
     14.0002,
     "H.264",
     24,
     "1920x1080i",
     false,
     kFirstDigital},
    {"vga",
     "examples/vga.ini",
     {"source vga"},
     3,
     12012,
     9,
     17852,
     0x0100,
     kH264Constant,
     ".264",
     2000,
     3750,
     1,
     30,
     6.8252,
     "H.264",
     29.97,
     "1024x768p",
     false,
     kFirstDigital},
    {"composite",
     "examples/composite.ini",
     {"source composite", "captions on"},
     4,
     14400,
     3,
     25787,
     0x6000,
     kMpeg2Constant,
     ".mpeg2",
     2000,
     3750,
     1,
     25,
     4.7250,
     "MPEG-2",
     25,
     "720x576i",
     true,
     kFirstDigital},
    {"digital_audio",
     "examples/digital-audio.ini",
     {},
     0,
     14400,
     3,
     13651,
     0x0100,
     kH264Constant,
     ".264",
     2000,
     4200,
     1,
     25,
     8.9256,
     "H.264",
     25,
     "1920x1080i",
     false,
     kFirstDigital},
    {"dsp_audio",
     "examples/dsp-audio.ini",
     {"audio dsp"},
     0,
     14400,
     3,
     13651,
     0x0100,
     kH264Constant,
     ".264",
     5875,
     2000,
     2,
     25,
     8.9256,
     "H.264",
     25,
     "1920x1080i",
     false,
     "DSP 192 kbit/s, 768 bytes, -4.5 dB"},
};

std::string text_of(const char* file) {
  std::ifstream stream(std::string(SOURCE_DIRECTORY "/packaging/") + file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

class ExampleFile : public testing::TestWithParam<Example> {};

TEST_P(ExampleFile, brings_the_board_to_what_it_promises) {
  const Example& one = GetParam();
  const std::string text = text_of(one.file);
  ASSERT_GT(text.size(), 29u);
  ServiceBench service;
  vboard::Bench& bench = service.bench;
  for (const std::string& operation : one.world) bench.world(operation);
  std::vector<int> status;
  std::vector<int> mux;
  service.run(100, [&](Host& host) {
    host.wait(2);
    host.send_config(text);
    host.wait(87);
    for (int i = 0; i < 3; ++i)
      for (const int byte : host.ask(3)) status.push_back(byte);
    mux = host.ask(33);
  });

  EXPECT_EQ(bench.get_file("hd.ini"), text);
  EXPECT_THAT(status, ElementsAre(0x91, 0x80, 0x00));
  EXPECT_THAT(mux, ElementsAre(one.input_mux));
  EXPECT_EQ(bench.board().encoder.launches, 1u);
  EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;

  EXPECT_EQ(bench.fpga(kFramePeriod), one.frame_period);
  EXPECT_EQ(bench.fpga(kOutputInterval), one.output_interval);
  EXPECT_EQ(bench.fpga(kVideoControl), one.video_control);
  EXPECT_EQ(bench.fpga(kCodecConstant), one.codec_constant);
  EXPECT_EQ(bench.fpga(kDtsPath0), one.dts_path0);
  EXPECT_EQ(bench.fpga(kDtsPath1), one.dts_path1);

  const vboard::TransportStream stream = bench.outgoing();
  EXPECT_TRUE(stream.video.there);
  EXPECT_TRUE(stream.sound.there);
  EXPECT_NEAR(stream.Mbit_per_second, one.Mbit_per_second, 0.0001);
  EXPECT_EQ(stream.pcr_pid, 256);
  EXPECT_EQ(stream.video.pid, 256);
  EXPECT_EQ(stream.video.codec, one.codec);
  EXPECT_NEAR(stream.video.frames_per_second, one.frames_per_second, 0.001);
  EXPECT_EQ(picture_of(stream.video), one.picture);
  EXPECT_EQ(stream.video.captions, one.captions);
  EXPECT_EQ(stream.sound.pid, 257);
  EXPECT_EQ(sound_of(stream.sound), one.sound);

  EXPECT_EQ(shared_memory->frame_rate_code, one.frame_rate_code);
  EXPECT_EQ(shared_memory->input_channel, one.input_mux);
  EXPECT_STREQ(reinterpret_cast<const char*>(&shared_memory->file_suffix), one.suffix);
  EXPECT_EQ(shared_memory->AudioInput, one.audio_path);
  EXPECT_EQ(shared_memory->gop_size, one.gop_size);
}

INSTANTIATE_TEST_SUITE_P(each, ExampleFile, testing::ValuesIn(kExamples),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(Examples, composite_asks_for_captions_and_vga_for_the_picture_of_its_comments) {
  ServiceBench service;
  service.bench.world("source composite");
  int captions = -1;
  int interlace = -1;
  service.run(200, [&](Host& host) {
    host.wait(2);
    host.send_config(text_of("examples/composite.ini"));
    host.wait(87);
    captions = shared_memory->closed_caption;
    interlace = shared_memory->interlace_flag;
    host.world("source vga");
    host.send_config(text_of("examples/vga.ini"));
    host.wait(87);
  });
  EXPECT_EQ(captions, 1);
  EXPECT_EQ(interlace, 1);
  EXPECT_EQ(shared_memory->closed_caption, 0);
  EXPECT_EQ(shared_memory->interlace_flag, 0);
  EXPECT_EQ(shared_memory->brightness, 2);  // (139 x 255 - 35190) / 117 = 255 / 117
  EXPECT_EQ(shared_memory->contrast, 16);   // 63 x 16 / 63
}

TEST(Examples, dsp_audio_configures_the_dsp_with_its_rate_and_volume) {
  ServiceBench service;
  service.bench.world("audio dsp");
  service.run(60, [&](Host& host) {
    host.wait(2);
    host.send_config(text_of("examples/dsp-audio.ini"));
    host.wait(50);
  });
  // Mode 1, volume -3 in 16 bits, 192 000 = 0x0002EE00 bit/s.
  EXPECT_THAT(service.bench.board().dsp.configure,
              ElementsAre(1, 0xFD, 0xFF, 0x00, 0xEE, 0x02, 0x00));
}

}  // namespace
