// Audio through the whole service: the DSP path with its firmware, the digital
// path after it, and the loss of audio on each.
#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <vector>

#include "audio/audio_settings.h"
#include "audio/blkfn.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "supervision/supervisor.h"
#include "tests/service/service_bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vboard::lines;

constexpr int kDspInput = 2;
constexpr int kDigitalInput = 1;

// A service whose shared state is that of a fresh process.
struct AudioService : ServiceBench {
  AudioService() {
    global_status = kStatusInitial;
    status_vantorig = kStatusVantorigCleared;
    monitor_state = kMonitorWatching;
    status_init_flag = 0;
    start_bf_st = 0;
    enable_capture_mask_reg = 0;
  }
};

// kbit/s; the volume in 1.5 dB steps.
std::string audio_config(int input, int rate) {
  return example_config_with({{"AudioInput", input}, {"mpgAudRate", rate}, {"inAudioVolume", 5}});
}

std::vector<int> status_of(Host& host) {
  std::vector<int> bytes;
  for (int i = 0; i < 3; ++i)
    for (const int byte : host.ask(3)) bytes.push_back(byte);
  return bytes;
}

// The first 51 bytes of the status record.
melk::Bytes record_of(Host& host) {
  const auto record = melk::read_record(host.link, melk::kShortRecord);
  EXPECT_TRUE(record.ok()) << record.failure.text;
  return record.value.value_or(melk::Bytes(melk::kShortRecord));
}

std::uint32_t word_at(const melk::Bytes& record, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t k = 4; k-- > 0;) value = value << 8 | record[at + k];
  return value;
}
constexpr std::size_t kAudioOverall = 29;  // of the record
constexpr std::size_t kPeakLeft = 37;
constexpr std::size_t kPeakRight = 41;

std::vector<int> descriptor() {
  return {hd_ac3_desc_parameters, hd_ac3_desc_parameters + kAc3DescriptorSize};
}

std::vector<int> shared_descriptor() {
  return {shared_memory->hd_ac3_desc, shared_memory->hd_ac3_desc + kAc3DescriptorSize};
}

long count(const std::vector<std::string>& texts, const std::string& wanted) {
  return std::count(texts.begin(), texts.end(), wanted);
}

// ---- the demonstration's configurations ---------------------------------------

TEST(AudioPath, dsp_with_new_firmware_brings_sound_then_the_digital_input_takes_over) {
  AudioService service;
  vboard::Bench& bench = service.bench;
  bench.world("audio dsp bitrate=192,rate=48,acmod=2,bsid=6");
  bench.world("fault dsp-no-firmware");
  bench.put_file("MELK_spi.bin", std::string(600, '\x42'));

  Load_BF();
  EXPECT_THAT(bench.output(), testing::EndsWith("The BF is Loaded from SPI\n"));
  EXPECT_EQ(bench.board().fpga.firmware_bytes, 600u);

  melk::Bytes before;
  melk::Bytes with_dsp;
  std::vector<int> dsp_descriptor;
  std::vector<int> dsp_status;
  int dsp_control = 0;
  int dsp_path = 0;
  std::vector<int> digital_status;
  service.run(240, [&](Host& host) {
    host.wait(2);
    before = record_of(host);
    host.send_config(audio_config(kDspInput, 192));
    host.wait(60);
    with_dsp = record_of(host);
    dsp_status = status_of(host);
    dsp_descriptor = descriptor();
    dsp_control = bench.fpga(0x0224);
    dsp_path = shared_memory->AudioInput;
    bench.world("audio digital bitrate=320,rate=32,acmod=7,bsid=8");
    host.send_config(audio_config(kDigitalInput, 320));
    host.wait(60);
    digital_status = status_of(host);
  });

  // No peaks are read before the DSP is known to run; then they stand in the
  // record, low byte first, and audio has flowed.
  EXPECT_EQ(word_at(before, kPeakLeft), 0u);
  EXPECT_EQ(word_at(before, kPeakRight), 0u);
  EXPECT_EQ(word_at(with_dsp, kPeakLeft), bench.board().dsp.peak_left);
  EXPECT_EQ(word_at(with_dsp, kPeakRight), bench.board().dsp.peak_right);
  EXPECT_EQ(with_dsp[4], 0x21);  // the DSP's version
  EXPECT_GT(word_at(with_dsp, kAudioOverall), 0u);
  EXPECT_EQ(start_bf_st, 1);
  EXPECT_THAT(dsp_status, ElementsAre(0x91, 0x80, 0x00));
  // The DSP was configured: mode 1, volume 5, 192 000 = 0x0002EE00 bit/s.
  EXPECT_THAT(bench.board().dsp.configure, ElementsAre(1, 5, 0, 0x00, 0xEE, 0x02, 0x00));
  // 192 kbit/s is rate code 10 and frame-size code 20: the capture's 0x8011, the
  // timing's 20 << 8 | 0x30.
  EXPECT_THAT(dsp_descriptor, ElementsAre(8, 0, 0, 7, 1, 10));
  EXPECT_EQ(dsp_control, 0x9431);
  EXPECT_EQ(dsp_path, 2);

  // The digital stream: rate code 13, frame-size code 26, 32 kHz; 960 words.
  EXPECT_THAT(descriptor(), ElementsAre(8, 0, 0, 7, 1, 13));
  EXPECT_EQ(bench.fpga(0x0224), 0x4000 | 26 << 8 | 2 << 6 | 0x31);
  EXPECT_EQ(bench.fpga(0x022C), 1920);
  EXPECT_EQ(bench.fpga(0x0230), 4320);
  EXPECT_EQ(shared_memory->AudioInput, 1);
  EXPECT_EQ(shared_memory->bytes_per_frame_ac3, 1920);
  EXPECT_THAT(shared_descriptor(), ElementsAre(8, 0, 0, 7, 1, 13));
  EXPECT_THAT(digital_status, ElementsAre(0x91, 0x80, 0x00));
  EXPECT_EQ(bench.board().violations.count, 0u) << bench.board().violations.first;
}

// The receiver check wants the shared audio byte, which comes with the first
// launch: a first set-up of the digital path publishes the defaults.
TEST(AudioPath, first_digital_configuration_has_the_defaults_and_the_second_the_header) {
  AudioService service;
  service.bench.world("audio digital bitrate=320,acmod=2,bsid=6");
  std::vector<int> first;
  service.run(150, [&](Host& host) {
    host.wait(2);
    host.send_config(audio_config(kDigitalInput, 320));
    host.wait(40);
    first = descriptor();
    host.send_config(audio_config(kDigitalInput, 320));
    host.wait(40);
  });
  EXPECT_THAT(first, ElementsAre(8, 0, 0, 7, 1, 15));
  EXPECT_THAT(descriptor(), ElementsAre(6, 0, 0, 2, 0, 13));
}

// ---- loss -------------------------------------------------------------------------

TEST(AudioLoss, dsp_path_resets_the_dsp_and_restarts_for_good) {
  AudioService service;
  vboard::Bench& bench = service.bench;
  bench.world("audio dsp");
  std::vector<int> steady;
  std::vector<int> lost;
  std::uint32_t launches = 0;
  unsigned resets_when_lost = 0;
  unsigned resets_when_back = 0;
  unsigned resets_on_digital = 0;
  unsigned resets_at_end = 0;
  std::vector<std::string> first_prints;
  std::vector<std::string> first_trace;
  const auto resets = [&] { return bench.board().fpga.line[28]; };

  service.run(600, [&](Host& host) {
    host.wait(2);
    host.send_config(audio_config(kDspInput, 384));
    host.wait(60);
    steady = status_of(host);
    launches = bench.board().encoder.launches;
    bench.output();
    bench.trace();
    bench.world("fault audio-loss");
    host.wait(15);  // six cycles of about 1.5 s
    first_prints = lines(bench.output());
    first_trace = bench.trace();
    lost = status_of(host);
    resets_when_lost = resets();
    // The counter is never cleared: audio that is back does not end it.
    bench.world("fault audio-loss off");
    host.wait(120);
    resets_when_back = resets();
    // Another audio input does.
    host.send_config(audio_config(kDigitalInput, 384));
    host.wait(60);
    resets_on_digital = resets();
    host.wait(120);
    resets_at_end = resets();
  });

  EXPECT_THAT(steady, ElementsAre(0x91, 0x80, 0x00));
  // Five cycles without audio, then the restart.
  EXPECT_EQ(count(first_prints, "no audio!!!!!!!!,we will check again!,audio_at_beginning=1"), 5);
  const auto message =
      std::find(first_prints.begin(), first_prints.end(), "RESTART!! - no audio!!");
  ASSERT_NE(message, first_prints.end());
  EXPECT_EQ(*(message - 1), "Start prog_gpio,input_data = 29");
  EXPECT_EQ(*(message - 2), "Start prog_gpio,input_data = 28");
  // Line 28, 10 us, line 29.
  const auto line28 = std::find(first_trace.begin(), first_trace.end(), "fpga line 28");
  ASSERT_NE(line28, first_trace.end());
  EXPECT_THAT(std::vector<std::string>(line28, line28 + 4),
              ElementsAre("fpga line 28", "wait 10", "open /dev/fpga r+b", "fpga line 29"));
  EXPECT_EQ(count(first_trace, "shell killall encode"), 2);
  // Restart 1 in progress: 0x90 | 1 << 1, cause 0x84. The restart runs, so the
  // flags are those of the cycle that asked for it.
  ASSERT_EQ(lost.size(), 3u);
  EXPECT_EQ(lost[0], 0x92);
  EXPECT_EQ(lost[1], 0x84);
  EXPECT_EQ(launches, 1u);
  EXPECT_EQ(resets_when_lost, 1u);
  EXPECT_GE(resets_when_back, 4u);  // about 28 s each
  EXPECT_EQ(resets_at_end, resets_on_digital);
}

TEST(AudioLoss, digital_path_shows_in_the_flags_alone) {
  AudioService service;
  vboard::Bench& bench = service.bench;
  std::vector<int> lost;
  std::vector<int> back;
  service.run(200, [&](Host& host) {
    host.wait(2);
    host.send_config(audio_config(kDigitalInput, 384));
    host.wait(60);
    bench.world("fault audio-loss");
    host.wait(40);
    lost = status_of(host);
    bench.world("fault audio-loss off");
    host.wait(20);
    back = status_of(host);
  });
  EXPECT_THAT(lost, ElementsAre(0x91, 0x80, 0x10));  // 16: no audio
  EXPECT_THAT(back, ElementsAre(0x91, 0x80, 0x00));
  EXPECT_EQ(bench.board().encoder.launches, 1u);
  EXPECT_EQ(bench.board().fpga.line[28], 0u);
}

TEST(AudioDisabled, nothing_is_waited_for_and_nothing_restarts) {
  AudioService service;
  vboard::Bench& bench = service.bench;
  bench.world("audio none");
  std::vector<int> status;
  service.run(120, [&](Host& host) {
    host.wait(2);
    host.send_config(example_config_with({{"AudioInput", kDspInput}, {"inAudioEnable", 1}}));
    host.wait(60);
    status = status_of(host);
  });
  EXPECT_THAT(descriptor(), ElementsAre(8, 0, 0, 7, 1, 15));
  EXPECT_THAT(bench.output(), testing::Not(HasSubstr("SYNCFRAME_FLIP")));
  EXPECT_EQ(shared_memory->audio_enable, 1);
  EXPECT_THAT(status, ElementsAre(0x91, 0x80, 0x10));
  EXPECT_EQ(bench.board().encoder.launches, 1u);
}

}  // namespace
