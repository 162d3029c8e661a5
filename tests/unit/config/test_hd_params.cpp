// The words of the table that are held to a range, and the apply of a whole file.
#include "config/hd_params.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "audio/ac3_setup.h"
#include "audio/audio_settings.h"
#include "config/encoder.h"
#include "config/output_rate.h"
#include "config/transport_stream.h"
#include "config/video_format.h"
#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "vboard/testing/bench.h"
#include "video/input_selection.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using vboard::Bench;
namespace seam = vboard::seam;

// ---- the table -----------------------------------------------------------------------

// The rows themselves are compared with tests/contract/keys.json by its check.
std::vector<nlohmann::json> agreed_keys() {
  std::ifstream file(SOURCE_DIRECTORY "/tests/contract/keys.json");
  return nlohmann::json::parse(file).get<std::vector<nlohmann::json>>();
}

// The handler in the last slot of the key's first row.
HdHandler handler_of(const std::string& key) {
  const HdParam* row = hd_params;
  while (row->key != nullptr && row->key != key) ++row;
  return row->fpga;
}

int rows() {
  int count = 0;
  while (hd_params[count].key != nullptr) ++count;
  return count;
}

TEST(HdParams, file_lies_in_the_home_of_the_board) {
  EXPECT_STREQ(kHdIniPath, "/home/tovin/hd.ini");
}

// ---- rate control: words that are held to a range -----------------------------------

// A word for `encode`, as it was agreed on.
struct Ranged {
  std::string key;
  std::int32_t low = 0;
  std::int32_t high = 0;
  std::int32_t fallback = 0;
  std::size_t offset = 0;  // in the shared block
  std::string message;     // before the stored value; "": none
};
void PrintTo(const Ranged& one, std::ostream* out) { *out << one.key; }

std::vector<Ranged> ranged_words() {
  std::vector<Ranged> words;
  for (const nlohmann::json& row : agreed_keys()) {
    if (!row.contains("field")) continue;
    const nlohmann::json& range = row.at("range");
    const nlohmann::json& message = row.at("message");
    words.push_back({row.at("key"), range.at(0), range.at(1), range.at(2), row.at("field"),
                     message.is_null() ? std::string() : message.get<std::string>()});
  }
  return words;
}

class RangedSetting : public testing::TestWithParam<Ranged> {
 protected:
  Bench bench;
  SharedBlock& block = bench.attach_block();

  void expect(std::int32_t given, std::int32_t kept) {
    const Ranged& one = GetParam();
    const HdHandler handler = handler_of(one.key);
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(handler(&given, 0), 0);
    std::int32_t stored = 0;
    memcpy(&stored, reinterpret_cast<const char*>(&block) + one.offset, sizeof stored);
    EXPECT_EQ(stored, kept) << "given " << given;
    EXPECT_EQ(bench.output(),
              one.message.empty() ? "" : one.message + std::to_string(kept) + " \n");
    EXPECT_THAT(bench.trace(), IsEmpty());
  }
};

TEST_P(RangedSetting, both_ends_are_kept) {
  const auto& [key, low, high, fallback, offset, message] = GetParam();
  for (const std::int32_t inside : {low, high, low + (high - low) / 2}) expect(inside, inside);
}

TEST_P(RangedSetting, value_outside_becomes_the_default) {
  const auto& [key, low, high, fallback, offset, message] = GetParam();
  for (const std::int32_t outside : {low - 1, high + 1, INT_MIN, INT_MAX, -1, high + 65536})
    expect(outside, fallback);
}

INSTANTIATE_TEST_SUITE_P(keys, RangedSetting, testing::ValuesIn(ranged_words()),
                         [](const auto& test) { return test.param.key; });

TEST(RateControl, block_not_attached_stores_nothing) {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  shared_memory = nullptr;
  const std::int32_t frames = 12;
  EXPECT_EQ(handler_of("gop_size")(&frames, 0), 0);
  EXPECT_EQ(block.gop_size, 0);
  EXPECT_EQ(bench.output(), "set Gop Size =0 \n");
}

// ---- the apply -----------------------------------------------------------------------

// A board with its block and register device, and no settings applied yet.
struct Fresh {
  Bench bench;
  SharedBlock& block = bench.attach_block();
  Fresh() {
    fpga_file = fopen(kFpgaDevice, "r+b");
    bench.trace();
    fpgaregs.AudioInput = 0;
    fpgaregs.inAudioEnable = 0;
    fpgaregs.AVSync = 0;
    fps_parameter = 0;
    const std::int32_t none = 0;
    SetOutputBitrate(&none, 0);
    const std::int32_t percent = 5;
    SetExtraOutputRate(&percent, 0);
    bench.output();
    enable_capture_mask_reg = 0;
    dbg_encode = 0;
  }
  int apply(const std::string& hd_ini) {
    bench.put_file("hd.ini", hd_ini);
    return Configure_System();
  }
};

const std::string kHead = "start Configure_System!!\nfname = /home/tovin/hd.ini\n";
const std::string kTail = "end Configure_System!!\n";

TEST(ConfigureSystem, file_missing_holds_the_path_and_applies_nothing) {
  Fresh on;
  on.block.encode_alive = 1;
  on.block.do_fpga_restart = 0;
  EXPECT_EQ(Configure_System(), -1);
  EXPECT_EQ(on.bench.output(), kHead + "can not open hd.ini file\n");
  EXPECT_EQ(on.block.encode_alive, 0);
  EXPECT_EQ(on.block.do_fpga_restart, 1);
  EXPECT_THAT(on.bench.trace(),
              ElementsAre("fpga wr 0x1328 <- 0x0006", "file /home/tovin/hd.ini r = ENOENT"));
}

TEST(ConfigureSystem, empty_file_holds_the_path_and_waits) {
  Fresh on;
  on.block.encode_alive = 1;
  EXPECT_EQ(on.apply(""), 0);
  EXPECT_EQ(on.bench.output(), kHead + kTail);
  EXPECT_EQ(on.block.encode_alive, 0);
  EXPECT_EQ(on.block.do_fpga_restart, 1);
  EXPECT_THAT(on.bench.trace(),
              ElementsAre("fpga wr 0x1328 <- 0x0006", "file /home/tovin/hd.ini r", "wait 1000000"));
}

TEST(ConfigureSystem, key_without_handlers_changes_nothing) {
  Fresh on;
  EXPECT_EQ(on.apply("inVideoStandard=2\n"), 0);
  EXPECT_EQ(on.bench.output(), kHead + kTail);
  EXPECT_THAT(on.bench.trace(),
              ElementsAre("fpga wr 0x1328 <- 0x0006", "file /home/tovin/hd.ini r", "wait 1000000"));
  std::vector<std::int32_t> words(1024);
  memcpy(words.data(), static_cast<const void*>(&on.block), sizeof on.block);
  std::vector<std::int32_t> expected(1024, 0);
  expected[0] = 308;
  expected[1] = 0x4D454C4B;
  expected[10] = 1;  // do_fpga_restart, the apply's own
  EXPECT_EQ(words, expected);
}

TEST(ConfigureSystem, offset_goes_to_both_of_its_rows) {
  Fresh on;
  EXPECT_EQ(on.apply("offset_x=5\n"), 0);
  EXPECT_EQ(on.bench.output(), kHead + "SetOffsetx\noffsetx = 5\n" + kTail);
  EXPECT_EQ(on.block.offset_x, 5);
  EXPECT_EQ(on.block.offset_y, 0);
}

TEST(ConfigureSystem, audio_codec_goes_to_dsp_then_store_then_set_up) {
  Fresh on;
  fpgaregs.AudioInput = 2;     // so that the DSP row acts
  fpgaregs.inAudioEnable = 1;  // so that the set-up does not wait for audio
  fpgaregs.AudCodec = 0;
  EXPECT_EQ(on.apply("mpgAudCodec=1\n"), 0);
  EXPECT_EQ(fpgaregs.AudCodec, 1);

  const std::vector<std::string> traffic = on.bench.trace({"i2c", "fpga wr", "shell"});
  ASSERT_GE(traffic.size(), 4u);
  EXPECT_EQ(traffic[0], "fpga wr 0x1328 <- 0x0006");
  EXPECT_THAT(traffic[1], testing::StartsWith("i2c"));  // configure the DSP
  EXPECT_THAT(traffic, Contains("fpga wr 0x0008 <- 0x0016"));
  EXPECT_THAT(traffic, Not(Contains("fpga wr 0x1300 <- 0x0000")));
  // Behind the first register write of the set-up nothing goes to the DSP.
  bool set_up = false;
  for (const std::string& line : traffic) {
    set_up = set_up || line == "fpga wr 0x0008 <- 0x0016";
    EXPECT_FALSE(set_up && line.starts_with("i2c")) << line;
    EXPECT_FALSE(line.starts_with("shell")) << line;
  }
  EXPECT_THAT(on.bench.output(), testing::StartsWith(kHead + "SetAudCodec\n"));
}

TEST(ConfigureSystem, first_of_two_equal_keys_is_applied) {
  Fresh on;
  EXPECT_EQ(on.apply("mpgVidRes=7\nmpgVidRes=8\n"), 0);
  EXPECT_EQ(on.block.videoStd, 7);
  EXPECT_EQ(fpgaregs.VidRes, 7);
}

TEST(ConfigureSystem, encoder_slot_is_called_before_the_fpga_slot) {
  Fresh on;
  EXPECT_EQ(on.apply("mpgVidRes=5\n"), 0);
  EXPECT_EQ(on.bench.output(), kHead +
                                   "encSetVidRes\nshared_memory->videoStd = 5\n"
                                   "fpgaSetVidRes 5 pram 5\n"
                                   "msb 0 lsb 0 ans 0.000000 ans2 inf  \n"
                                   "fps pram =0\nfps_parameter = 0\n" +
                                   kTail);
}

TEST(ConfigureSystem, value_that_does_not_scan_skips_its_row_silently) {
  Fresh on;
  EXPECT_EQ(on.apply("gop_size=many\nidr=7\n"), 0);
  EXPECT_EQ(on.bench.output(), kHead + "set IDR frame interval =7 \n" + kTail);
  EXPECT_EQ(on.block.gop_size, 0);
}

TEST(ConfigureSystem, section_header_hides_what_follows) {
  Fresh on;
  EXPECT_EQ(on.apply("idr=7\n[rate]\ngop_size=25\n"), 0);
  EXPECT_EQ(on.bench.output(), kHead + "set IDR frame interval =7 \n" + kTail);
}

TEST(ConfigureSystem, handler_that_fails_does_not_stop_the_walk) {
  Fresh on;
  on.bench.world("fault fpga-fail");
  EXPECT_EQ(on.apply("pidVideo=1\npidAudio=2\nidr=3\n"), 0);
  EXPECT_EQ(on.bench.output(),
            kHead + "SetpidVideo\nSetpidAudio\nset IDR frame interval =3 \n" + kTail);
}

TEST(ConfigureSystem, order_of_the_file_does_not_matter) {
  Fresh on;
  EXPECT_EQ(on.apply("interlace_flag=0\nidr=3\neb_mode=0\n"), 0);
  EXPECT_EQ(on.bench.output(), kHead +
                                   "set EB Mode =0 \nset IDR frame interval =3 \n"
                                   "set interlace_flag =0 \n" +
                                   kTail);
}

TEST(ConfigureSystem, changed_file_takes_effect_at_the_next_apply) {
  Fresh on;
  on.apply("idr=3\n");
  on.apply("idr=4\n");
  EXPECT_EQ(on.block.idr, 4);
}

TEST(ConfigureSystem, registers_not_open_and_block_not_attached_still_walks) {
  Bench bench;
  fpga_file = nullptr;
  shared_memory = nullptr;
  bench.put_file("hd.ini", "idr=3\npidVideo=1\n");
  EXPECT_EQ(Configure_System(), 0);
  EXPECT_EQ(bench.output(), kHead + "SetpidVideo\nset IDR frame interval =0 \n" + kTail);
}

// A whole configuration: component video, H.264, digital audio that nobody waits
// for.
constexpr char kWholeFile[] =
    "; every key once\n"
    "eb_mode=1\nextra_output_rate_pct=5\noutput_br=0\nmpgVidRate=8000\ninVideoStandard=1\n"
    "inVideoBrightness=197\ninVideoContrast=128\n"
    "inAudioEnable=1\nmpgAudRate=384\ninAudioVolume=-3\nAudioInput=1\nmpgAudCodec=1\n"
    "inAudioSampleRate=48\n"
    "mpgVidRes=7\nVideoInput=1\nvbr=1\nAVSync=10\nvbiMode=4\nVidCodec=2\n"
    "pidVideo=256\npidAudio=257\npidPCR=258\noffset_x=11\noffset_y=12\n"
    "portActiveEnable=1\n"
    "frame_div=2\nframe_mult=3\neb_delay=500\ngop_size=25\nidr=6\nnull_disable=1\n"
    "bufferconst=70\ninterlace_flag=0\n";

TEST(ConfigureSystem, whole_file_drives_the_fpga_in_row_order) {
  Fresh on;
  EXPECT_EQ(on.apply(kWholeFile), 0);
  EXPECT_THAT(
      on.bench.trace({"fpga", "shell"}),
      ElementsAre(
          "fpga wr 0x1328 <- 0x0006",
          // mpgVidRate: R = 8.925 Mbit/s, 121844 / 8.925 = 13651 = 0x3553
          "fpga wr 0x1300 <- 0x3553", "fpga wr 0x1304 <- 0x0035", "fpga wr 0x1308 <- 0x0035",
          "fpga wr 0x130c <- 0x0002",
          // inAudioSampleRate: 2880
          "fpga wr 0x0230 <- 0x0b40",
          // mpgVidRes: the measured frame rate, twice
          "fpga rd 0x0050 -> 0x0000", "fpga rd 0x004c -> 0x0000", "fpga rd 0x0050 -> 0x0000",
          "fpga rd 0x004c -> 0x0000",
          // VideoInput
          "fpga line 79", "fpga wr 0x0204 <- 0x0000", "fpga line 27",
          // VidCodec: H.264, frame period 12000
          "fpga rd 0x0204 -> 0x0000", "fpga wr 0x0204 <- 0x0100", "fpga wr 0x120c <- 0xae60",
          "fpga wr 0x0210 <- 0x2ee0", "fpga wr 0x1200 <- 0x1a80", "fpga wr 0x1204 <- 0x0006",
          "fpga wr 0x1208 <- 0x88b8",
          // third audio codec row: mode 22, reset sequence, word 2 once more
          "fpga wr 0x0008 <- 0x0016", "fpga wr 0x0004 <- 0x0001", "fpga wr 0x0008 <- 0x0001",
          "fpga wr 0x0010 <- 0x0000", "fpga wr 0x0224 <- 0x0000", "fpga wr 0x132c <- 0x0000",
          "fpga wr 0x0004 <- 0x0000", "fpga rd 0x0608 -> 0x0000",
          // its timing: 48 kHz, reset sequence again
          "fpga wr 0x0230 <- 0x0b40", "fpga wr 0x0004 <- 0x0001", "fpga wr 0x0008 <- 0x0001",
          "fpga wr 0x0010 <- 0x0000", "fpga wr 0x0224 <- 0x0000", "fpga wr 0x132c <- 0x0000",
          "fpga wr 0x0004 <- 0x0000",
          // D = 90 * 10 + 15000 = 15900 > 8000: 15900 / 4 = 3975 and 2000
          "fpga wr 0x0228 <- 0x0f87", "fpga wr 0x0208 <- 0x07d0",
          // frame-size code 0 at 48 kHz: 64 words
          "fpga wr 0x022c <- 0x0080", "fpga wr 0x1210 <- 0x0064", "fpga wr 0x1214 <- 0x0000",
          "fpga wr 0x1218 <- 0x07d0", "fpga wr 0x121c <- 0x0010",
          // control word 0x4000 | 0x20 | 0x10 | 0x01; then the mask 0x30 without 0x10
          "fpga wr 0x0224 <- 0x4031", "fpga wr 0x0224 <- 0x0020", "fpga wrblk 0x1000 n=2 <- 00 01",
          "fpga wrblk 0x1004 n=2 <- 01 01", "fpga wrblk 0x1320 n=2 <- 02 01", "shell ./encode&"));
}

TEST(ConfigureSystem, whole_file_fills_the_block) {
  Fresh on;
  EXPECT_EQ(on.apply(kWholeFile), 0);
  EXPECT_EQ(on.block.videoStd, 7);
  EXPECT_EQ(on.block.input_channel, 0);  // component is published as channel 0
  EXPECT_EQ(on.block.video_bitrate, 8000000);
  EXPECT_EQ(on.block.file_suffix[1], '2');
  EXPECT_EQ(on.block.do_fpga_restart, 0);
  EXPECT_EQ(on.block.SampleRate, 2880);
  EXPECT_EQ(on.block.audio_enable, 1);
  EXPECT_EQ(on.block.VidCodec, 2);
  EXPECT_EQ(on.block.frame_rate_code, 7);
  EXPECT_EQ(on.block.vbr, 1);
  EXPECT_EQ(on.block.offset_x, 11);
  EXPECT_EQ(on.block.offset_y, 12);
  EXPECT_EQ(on.block.closed_caption, 0);
  EXPECT_EQ(on.block.frame_div, 2);
  EXPECT_EQ(on.block.frame_mult, 3);
  EXPECT_EQ(on.block.eb_mode, 1);
  EXPECT_EQ(on.block.eb_delay, 500);
  EXPECT_EQ(on.block.null_disable, 1);
  EXPECT_EQ(on.block.gop_size, 25);
  EXPECT_EQ(on.block.idr, 6);
  EXPECT_EQ(on.block.bufferconst, 70);
  EXPECT_EQ(on.block.interlace_flag, 0);
  EXPECT_EQ(fpgaregs.mpgAudRate, 384);
  EXPECT_EQ(fpgaregs.inAudioVolume, 0xFFFD);
  EXPECT_EQ(fpgaregs.AVSync, 15900);
}

TEST(ConfigureSystem, messages_stores_and_traffic_in_one_order) {
  Fresh on;
  on.block.encode_alive = 1;
  on.bench.follow();
  on.bench.watch("encode_alive", on.block.encode_alive);
  on.bench.watch("do_fpga_restart", on.block.do_fpga_restart);
  on.bench.watch("idr", on.block.idr);
  EXPECT_EQ(on.apply("idr=6\n"), 0);
  EXPECT_THAT(
      on.bench.stream(),
      ElementsAre("say start Configure_System!!", "encode_alive = 0", "do_fpga_restart = 1",
                  "fpga wr 0x1328 <- 0x0006", "say fname = /home/tovin/hd.ini",
                  "file /home/tovin/hd.ini r", "idr = 6", "say set IDR frame interval =6 ",
                  "say end Configure_System!!", "file /home/tovin/hd.ini closed", "wait 1000000"));
}

TEST(ConfigureSystem, missing_file_is_told_behind_its_opening) {
  Fresh on;
  on.bench.follow();
  EXPECT_EQ(Configure_System(), -1);
  EXPECT_THAT(on.bench.stream(),
              ElementsAre("say start Configure_System!!", "fpga wr 0x1328 <- 0x0006",
                          "say fname = /home/tovin/hd.ini", "file /home/tovin/hd.ini r = ENOENT",
                          "say can not open hd.ini file"));
}

// Every setting that an apply leaves in memory, at a value that it will not keep.
void watch_settings(Fresh& on) {
  SharedBlock& block = on.block;
  Bench& bench = on.bench;
  block.encode_alive = 1;
  block.do_fpga_restart = 5;
  block.input_channel = 77;
  block.closed_caption = 1;
  block.encoder_running = 1;
  block.launch_zero = 1;
  block.interlace_flag = 5;
  for (auto& byte : block.hd_ac3_desc) byte = 99;
  for (auto& byte : hd_ac3_desc_parameters) byte = 98;
  audio_at_beginning = 5;
  SetInputMuxCH = 77;
  enable_audio = 5;
  SampleRate = 5;
  fpgaregs.mpgAudRate = 5;
  fpgaregs.inAudioVolume = 5;
  fpgaregs.AudCodec = 5;
  fpgaregs.inAudioSampleRate = 5;
  fpgaregs.VidRes = 5;
  fpgaregs.VidCodec = 5;
  fpgaregs.VideoBitrate = 5;
  fpgaregs.pidVideo = 5;
  fpgaregs.pidAudio = 5;
  fpgaregs.pidPCR = 5;
  bench.follow();
  const auto in_block = [&bench](const std::string& name, const auto& value) {
    bench.watch("block " + name, value);
  };
  in_block("alive", block.encode_alive);
  in_block("restart", block.do_fpga_restart);
  in_block("running", block.encoder_running);
  in_block("zero", block.launch_zero);
  in_block("audio", block.audio_enable);
  in_block("rate", block.video_bitrate);
  in_block("suffix", block.file_suffix[1]);
  in_block("std", block.videoStd);
  in_block("channel", block.input_channel);
  in_block("sample", block.SampleRate);
  in_block("codec", block.VidCodec);
  in_block("fps", block.frame_rate_code);
  in_block("vbr", block.vbr);
  for (int i = 5; i >= 0; --i) in_block("ac3 " + std::to_string(i), block.hd_ac3_desc[i]);
  in_block("x", block.offset_x);
  in_block("y", block.offset_y);
  in_block("bytes", block.bytes_per_frame_ac3);
  in_block("configured", block.audio_configured);
  in_block("path", block.AudioInput);
  in_block("captions", block.closed_caption);
  in_block("brightness", block.brightness);
  in_block("contrast", block.contrast);
  in_block("div", block.frame_div);
  in_block("mult", block.frame_mult);
  in_block("eb mode", block.eb_mode);
  in_block("eb delay", block.eb_delay);
  in_block("null", block.null_disable);
  in_block("gop", block.gop_size);
  in_block("idr", block.idr);
  in_block("const", block.bufferconst);
  in_block("interlace", block.interlace_flag);
  bench.watch("period", fps_parameter);
  bench.watch("mux", SetInputMuxCH);
  bench.watch("mask", enable_capture_mask_reg);
  bench.watch("at beginning", audio_at_beginning);
  bench.watch("SampleRate", SampleRate);
  bench.watch("enable_audio", enable_audio);
  for (int i = 0; i < kAc3DescriptorSize; ++i)
    bench.watch("ac3 " + std::to_string(i), hd_ac3_desc_parameters[i]);
  bench.watch("AudioInput", fpgaregs.AudioInput);
  bench.watch("inAudioEnable", fpgaregs.inAudioEnable);
  bench.watch("inAudioSampleRate", fpgaregs.inAudioSampleRate);
  bench.watch("VidRes", fpgaregs.VidRes);
  bench.watch("VidCodec", fpgaregs.VidCodec);
  bench.watch("AudCodec", fpgaregs.AudCodec);
  bench.watch("AVSync", fpgaregs.AVSync);
  bench.watch("pidVideo", fpgaregs.pidVideo);
  bench.watch("pidAudio", fpgaregs.pidAudio);
  bench.watch("pidPCR", fpgaregs.pidPCR);
  bench.watch("VideoBitrate", fpgaregs.VideoBitrate);
  bench.watch("mpgAudRate", fpgaregs.mpgAudRate);
  bench.watch("inAudioVolume", fpgaregs.inAudioVolume);
}

TEST(ConfigureSystem, whole_file_in_one_order) {
  Fresh on;
  on.bench.world("fault stuck 5c 14 c2");
  on.bench.world("fault stuck 5c 15 00");
  watch_settings(on);
  EXPECT_EQ(on.apply(kWholeFile), 0);
  const std::vector<std::string> reset = {"fpga wr 0x0004 <- 0x0001", "fpga wr 0x0008 <- 0x0001",
                                          "fpga wr 0x0010 <- 0x0000", "fpga wr 0x0224 <- 0x0000",
                                          "fpga wr 0x132c <- 0x0000", "wait 1000000",
                                          "fpga wr 0x0004 <- 0x0000", "wait 10000"};
  std::vector<std::string> expected = {
      "say start Configure_System!!", "block alive = 0", "block restart = 1",
      "fpga wr 0x1328 <- 0x0006", "say fname = /home/tovin/hd.ini", "file /home/tovin/hd.ini r",
      // eb_mode, extra_output_rate_pct, output_br
      "block eb mode = 1", "say set EB Mode =1 ", "say SetOutputBitrate 0",
      // mpgVidRate: (8000000 + 500000) * 1.05 = 8925000, 121844 / 8.925 = 13651 = 0x3553
      "block rate = 8000000", "say end SetVidRate", "say Setoutput_bitrate",
      "VideoBitrate = 8000000",
      "say Set output bitrate to 8.925000 (UI 8000000, manual set 0, extra 5 pct)",
      "fpga wr 0x1300 <- 0x3553", "say tmp1 8.925000 btr 13651 output_bitrate 8000000",
      "fpga wr 0x1304 <- 0x0035", "fpga wr 0x1308 <- 0x0035", "fpga wr 0x130c <- 0x0002",
      // inVideoBrightness: (197 * 255 - 35190) / 117; inVideoContrast: (128 * 231 - 14553) / 192 +
      // 16
      "block brightness = 128", "say SetBrightness 128", "block contrast = 94",
      "say SetContrast 94",
      // inAudioEnable, mpgAudRate
      "say SetinAudioEnable", "inAudioEnable = 1", "say setAudRate", "mpgAudRate = 384",
      // inAudioVolume: -3 is 0xfffd in 16 bits; -3 + 23 = 20 = 0x14
      "inAudioVolume = 65533", "say SetinAudioVolume = 20 (1.5 DB)", "open /dev/i2c-1",
      "say  data1=0x14 data2=0x0", "i2c 1c wr 10 00 14 00", "close /dev/i2c-1", "wait 1000000",
      "open /dev/i2c-1", "say  data1=0x14 data2=0x0", "i2c 1c wr 10 01 14 00", "close /dev/i2c-1",
      "wait 1000000",
      // AudioInput, inAudioSampleRate
      "say SetAudioInput", "AudioInput = 1", "say SetinAudioSampleRate", "SampleRate = 2880",
      "inAudioSampleRate = 48", "fpga wr 0x0230 <- 0x0b40", "block sample = 2880",
      // mpgVidRes
      "say encSetVidRes", "block std = 7", "say shared_memory->videoStd = 7", "VidRes = 7",
      "say fpgaSetVidRes 7 pram 7", "fpga rd 0x0050 -> 0x0000", "fpga rd 0x004c -> 0x0000",
      "fpga rd 0x0050 -> 0x0000", "fpga rd 0x004c -> 0x0000",
      "say msb 0 lsb 0 ans 0.000000 ans2 inf  ", "block fps = 7", "period = 12000",
      "say fps pram =7", "say fps_parameter = 12000",
      // VideoInput
      "mux = 1", "say Start prog_gpio,input_data = 79", "open /dev/fpga r+b", "fpga line 79",
      "say ************** set TVP7002 SW GPIO 79 ******************", "wait 1000000",
      "fpga wr 0x0204 <- 0x0000", "open /dev/video0", "video0 S_INPUT 1", "say Set CH input to 1 ",
      "close /dev/video0", "mux = 0", "open /dev/i2c-1", "i2c 5c wr 19 00", "wait 100",
      "i2c 5c rd 19 -> 00", "say read reg 19 0 ", "i2c 5c wr 1a 6f", "wait 100",
      "i2c 5c rd 1a -> 6f", "say read reg 1A 6f ", "i2c 5c rd 14 -> c2", "say -- reg 14 c2 ",
      "i2c 5c rd 15 -> 00", "say -- reg 15 0 ", "wait 1000000",
      "say ************** run tvp7002 init  ******************",
      "say Start prog_gpio,input_data = 27", "open /dev/fpga r+b", "fpga line 27",
      "say ==========  Set Video Input To 0 =====================", "block channel = 0",
      // vbr, AVSync (90 * 10 + 15000), vbiMode
      "say SetVBR", "block vbr = 1", "AVSync = 15900", "say SetAVSync 15900", "block captions = 0",
      // VidCodec: '2' of ".264" is 50
      "say encSetVidCode", "block suffix = 50", "say fpgaSetVidCodec", "VidCodec = 2",
      "say MPEG2 (1) or H264 (0): fpgaregs.VidCodec = 2", "block codec = 2", "say set H264",
      "fpga rd 0x0204 -> 0x0000", "fpga wr 0x0204 <- 0x0100", "fpga wr 0x120c <- 0xae60",
      "fpga wr 0x0210 <- 0x2ee0", "fpga wr 0x1200 <- 0x1a80", "fpga wr 0x1204 <- 0x0006",
      "fpga wr 0x1208 <- 0x88b8",
      // mpgAudCodec: the store, then the set-up, which waits for nobody
      "AudCodec = 1", "say SetAudCodec", "fpga wr 0x0008 <- 0x0016", "at beginning = 1",
      "ac3 0 = 8", "ac3 1 = 0", "ac3 2 = 0", "ac3 3 = 7", "ac3 4 = 1", "ac3 5 = 15",
      "say 5 bit_rate_code = 15", "block ac3 5 = 15", "say hd_ac3_desc_parameters[5]=15",
      "block ac3 4 = 1", "say hd_ac3_desc_parameters[4]=1", "block ac3 3 = 7",
      "say hd_ac3_desc_parameters[3]=7", "block ac3 2 = 0", "say hd_ac3_desc_parameters[2]=0",
      "block ac3 1 = 0", "say hd_ac3_desc_parameters[1]=0", "block ac3 0 = 8",
      "say hd_ac3_desc_parameters[0]=8"};
  const auto add = [&expected](const std::vector<std::string>& more) {
    expected.insert(expected.end(), more.begin(), more.end());
  };
  add(reset);
  add({"block configured = 1", "say get sync fscod = 0", "say get sync frmsizecod = 0",
       "fpga rd 0x0608 -> 0x0000", "say reg 00 reg2 0 ", "say get sync fscod = 0",
       "say get sync frmsizecod = 0", "fpga wr 0x0230 <- 0x0b40", "mask = 48"});
  add(reset);
  add({// 15900 / 4 = 3975 = 0xf87; 2 * 64 words
       "fpga wr 0x0228 <- 0x0f87", "fpga wr 0x0208 <- 0x07d0", "say set the DTS_INIT_AC3 15900",
       "say fscod = 0", "say frmsizecod = 0", "fpga wr 0x022c <- 0x0080",
       "say bytes_per_frame_ac3 = 128", "block bytes = 128", "block path = 1",
       "fpga wr 0x1210 <- 0x0064", "fpga wr 0x1214 <- 0x0000", "fpga wr 0x1218 <- 0x07d0",
       "fpga wr 0x121c <- 0x0010", "fpga wr 0x0224 <- 0x4031", "fpga wr 0x0224 <- 0x0020",
       // pidVideo, pidAudio, pidPCR
       "say SetpidVideo", "pidVideo = 256", "fpga wrblk 0x1000 n=2 <- 00 01", "say SetpidAudio",
       "pidAudio = 257", "fpga wrblk 0x1004 n=2 <- 01 01", "say SetpidPCR", "pidPCR = 258",
       "say fpgaregs.pidPCR = 258", "fpga wrblk 0x1320 n=2 <- 02 01",
       // offset_x, offset_y: printed first, stored by the second pair of rows
       "say SetOffsetx", "say offsetx = 11", "say SetOffsety", "say offsety = 12", "block x = 11",
       "block y = 12",
       // portActiveEnable
       "say start_hd - with system command", "block restart = 0", "block running = 0",
       "block zero = 0", "block audio = 1", "enable_audio = 1", "shell ./encode&", "wait 1000",
       // the rate-control rows
       "block div = 2", "say set frame div =2 ", "block mult = 3", "say set frame mult =3 ",
       "block eb delay = 500", "say set EB Delay =500 ", "block gop = 25", "say set Gop Size =25 ",
       "block idr = 6", "say set IDR frame interval =6 ", "block null = 1", "block const = 70",
       "say set frame const =70 ", "block interlace = 0", "say set interlace_flag =0 ",
       "say end Configure_System!!", "file /home/tovin/hd.ini closed", "wait 1000000"});
  EXPECT_EQ(on.bench.stream(), expected);
}

TEST(ConfigureSystem, rate_control_rows_come_after_the_launch) {
  Fresh on;
  // Abandoned in the wait behind the launch.
  on.bench.put_file("hd.ini", "frame_div=2\nportActiveEnable=1\noffset_x=11\n");
  EXPECT_FALSE(on.bench.run_for(500, [] { Configure_System(); }));
  EXPECT_EQ(on.bench.board().encoder.launches, 1u);
  EXPECT_EQ(on.block.offset_x, 11);
  EXPECT_EQ(on.block.frame_div, 0);
}

TEST(ConfigureSystem, settings_come_before_the_video_rate_that_uses_them) {
  Fresh on;
  on.block.eb_mode = 0;
  EXPECT_EQ(on.apply("mpgVidRate=8000\noutput_br=999\nextra_output_rate_pct=0\neb_mode=1\n"), 0);
  EXPECT_EQ(on.bench.fpga(0x1300), 14334);  // 121844 / 8.5
}

TEST(ConfigureSystem, captions_come_before_the_codec_that_uses_them) {
  Fresh on;
  EXPECT_EQ(on.apply("VidCodec=1\nvbiMode=5\nmpgVidRes=258\n"), 0);
  EXPECT_EQ(on.bench.fpga(0x204), 0x2000);
  EXPECT_EQ(on.bench.fpga(0x120C), 41248);
}

// ---- GetVideoStdFromHDini ---------------------------------------------------------------

TEST(GetVideoStdFromHDini, value_of_the_key) {
  Bench bench;
  bench.put_file("hd.ini", "vbr=1\nmpgVidRes=25\n");
  EXPECT_EQ(GetVideoStdFromHDini(), 25);
  EXPECT_EQ(bench.output(), "");
  EXPECT_THAT(bench.trace(), ElementsAre("file /home/tovin/hd.ini r"));
}

TEST(GetVideoStdFromHDini, key_absent_gives_zero) {
  Bench bench;
  bench.put_file("hd.ini", "vbr=1\n");
  EXPECT_EQ(GetVideoStdFromHDini(), 0);
}

TEST(GetVideoStdFromHDini, value_that_does_not_scan_gives_zero) {
  Bench bench;
  bench.put_file("hd.ini", "mpgVidRes=x\n");
  EXPECT_EQ(GetVideoStdFromHDini(), 0);
}

TEST(GetVideoStdFromHDini, file_missing_prints_and_gives_minus_one) {
  Bench bench;
  EXPECT_EQ(GetVideoStdFromHDini(), -1);
  EXPECT_EQ(bench.output(), "can not open hd.ini file\n");
}

TEST(GetVideoStdFromHDini, key_is_read_once_for_each_row) {
  const int reads = rows();
  Bench bench;
  bench.put_file("hd.ini", "mpgVidRes=25\n");  // one line, one read a lookup
  seam::fail_call("fgets", "", reads - 1, 1, EIO);
  GetVideoStdFromHDini();
  EXPECT_THAT(bench.trace(), Contains("fgets  = EIO"));  // the last row reads
  seam::clear_call_faults();
  seam::fail_call("fgets", "", reads, 1, EIO);
  GetVideoStdFromHDini();
  EXPECT_THAT(bench.trace(), Not(Contains("fgets  = EIO")));  // and nothing after it
}

}  // namespace
