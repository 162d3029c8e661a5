// The AC-3 set-up step by step, its timing, and the codes it decodes.
#include "audio/ac3_setup.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "tests/unit/audio/audio_bench.h"

namespace {

using namespace audio;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr int kEnabled = 2;
constexpr int kDisabled = 1;

// What the timing writes, but the sample period and the control words.
Lines timing_lines(int audio_dts, int video_dts, int bytes) {
  return all({reset_lines(),
              {wr(0x0228, audio_dts), wr(0x0208, video_dts), wr(0x022C, bytes), wr(0x1210, 100),
               wr(0x1214, 0), wr(0x1218, 2000), wr(0x121C, 16)}});
}

// The receiver check of the digital path.
const Lines kLocked = {kI2cOpen, "i2c 70 rd 2a -> 01", "i2c 70 rd 13 -> 03", kI2cClose};
const Lines kNotLocked = {kI2cOpen,          "i2c 70 rd 2a -> 00", "i2c 70 rd 13 -> 00",
                          "i2c 70 wr 0d 08", "wait 1000000",       kI2cClose};

// A board whose audio settings are those of a configuration.
struct Applied : AudioBench {
  Applied(int input, int enable, int av_sync = 15000) {
    fpgaregs.AudioInput = static_cast<std::uint8_t>(input);
    fpgaregs.inAudioEnable = static_cast<std::uint8_t>(enable);
    fpgaregs.AVSync = av_sync;
    block.audio_enable = 2;
    audio_at_beginning = 77;  // to be overwritten
  }
  void run() {
    const std::int32_t value = 1;
    EXPECT_EQ(SetAudCodec1(&value, 0), 0);
    EXPECT_EQ(audio_at_beginning, 1);
    EXPECT_EQ(block.audio_configured, 1);
    EXPECT_EQ(block.AudioInput, fpgaregs.AudioInput);
    EXPECT_EQ(shared_descriptor(), descriptor());
  }
};

// ---- the whole set-up ------------------------------------------------------

// Word 2 of the source's header: rate code 00, frame-size code 011100 (28),
// bsid 01000 (8), bsmod 000: 0x1C40. Word 3: acmod 111, centre 00, surround 00,
// effects channel 1, dialogue 11011, compression 0, language 0, production 0:
// 0xE1D8. The FPGA holds both with their bytes swapped.
TEST(SetAudCodec1, digital_with_lock_full_traffic) {
  Applied setup(1, kEnabled);
  setup.bench.world("audio digital bitrate=384,rate=48,acmod=7,bsid=8");

  setup.run();

  EXPECT_THAT(setup.bench.trace(),
              ElementsAreArray(all({{wr(0x0008, 22), wr(0x0224, 0x4011), wait(100000)},
                                    kLocked,
                                    {rd(0x0600, 0x770B), rd(0x0234, 1), rd(0x0608, 0x401C),
                                     rd(0x060C, 0xD8E1), wait(10000)},
                                    reset_lines(),
                                    {rd(0x0608, 0), wr(0x0230, 2880)},
                                    timing_lines(3750, 2000, 1536),  // 15000 / 4; 2 x 768
                                    {wr(0x0224, 0x5C31)}})));
  EXPECT_EQ(setup.bench.output(),
            "SetAudCodec\n"
            "SYNCFRAME_FLIP = 770b add 0 P1_AC3_STATUS_REG = 1\n"
            "get value reg 2 401c  \n"
            "0 bsid = 8\n"
            "1 bsmod = 0\n"
            "2 surround_mode = 0\n"
            "3 num_channels - acmod = 7\n"
            "4 langcode = 1\n"
            "frmsizecod = 1c (28)\n"
            "bit_rate = 384\n"
            "5 bit_rate_code = 14\n"
            "hd_ac3_desc_parameters[5]=14\n"
            "hd_ac3_desc_parameters[4]=1\n"
            "hd_ac3_desc_parameters[3]=7\n"
            "hd_ac3_desc_parameters[2]=0\n"
            "hd_ac3_desc_parameters[1]=0\n"
            "hd_ac3_desc_parameters[0]=8\n"
            "get sync fscod = 0\n"
            "get sync frmsizecod = 28\n"
            "reg 01c40 reg2 0 \n"
            "get sync fscod = 0\n"
            "get sync frmsizecod = 28\n"
            "set the DTS_INIT_AC3 15000\n"
            "fscod = 0\n"
            "frmsizecod = 28\n"
            "bytes_per_frame_ac3 = 1536\n");
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 14));
  EXPECT_EQ(enable_capture_mask_reg, 0x5C31);  // 0x4011 | 0x10 | 28 << 8 | 0x30
  EXPECT_EQ(setup.block.bytes_per_frame_ac3, 1536);
}

// The prints of a set-up without a frame, from the descriptor on.
std::string output_without_frame(const std::string& timing) {
  return "5 bit_rate_code = 15\n"
         "hd_ac3_desc_parameters[5]=15\n"
         "hd_ac3_desc_parameters[4]=1\n"
         "hd_ac3_desc_parameters[3]=7\n"
         "hd_ac3_desc_parameters[2]=0\n"
         "hd_ac3_desc_parameters[1]=0\n"
         "hd_ac3_desc_parameters[0]=8\n"
         "get sync fscod = 0\n"
         "get sync frmsizecod = 0\n"
         "reg 00 reg2 0 \n"
         "get sync fscod = 0\n"
         "get sync frmsizecod = 0\n" +
         timing +
         "fscod = 0\n"
         "frmsizecod = 0\n"
         "bytes_per_frame_ac3 = 128\n";  // 2 x 64
}

// Behind the first reset, before anything of the timing.
TEST(SetAudCodec1, audio_counts_as_configured_between_the_reset_and_the_timing) {
  Applied setup(1, kDisabled);
  setup.block.audio_configured = 0;
  setup.bench.follow();
  setup.bench.watch("configured", setup.block.audio_configured);
  setup.run();
  const Lines seen = setup.bench.stream();
  const auto flag = std::find(seen.begin(), seen.end(), "configured = 1");
  ASSERT_GE(flag - seen.begin(), 8);
  ASSERT_GE(seen.end() - flag, 3);
  EXPECT_EQ(Lines(flag - 8, flag), reset_lines());
  EXPECT_EQ(Lines(flag + 1, flag + 3),
            (Lines{"say get sync fscod = 0", "say get sync frmsizecod = 0"}));
}

TEST(SetAudCodec1, digital_set_up_in_one_order) {
  Applied setup(1, kEnabled);
  setup.bench.world("audio digital bitrate=384,rate=48,acmod=7,bsid=8");
  setup.block.audio_configured = 0;
  audio_at_beginning = 5;
  setup.bench.follow();
  setup.bench.watch("at beginning", audio_at_beginning);
  setup.bench.watch("configured", setup.block.audio_configured);
  setup.bench.watch("mask", enable_capture_mask_reg);
  for (int i = 0; i < kAc3DescriptorSize; ++i)
    setup.bench.watch("ac3 " + std::to_string(i), hd_ac3_desc_parameters[i]);
  setup.run();
  const Lines expected =
      all({{"say SetAudCodec", wr(0x0008, 22), "at beginning = 0", "mask = 16401",  // 0x4011
            wr(0x0224, 0x4011), wait(100000)},
           kLocked,
           {"at beginning = 1",
            rd(0x0600, 0x770B),
            rd(0x0234, 1),
            "say SYNCFRAME_FLIP = 770b add 0 P1_AC3_STATUS_REG = 1",
            rd(0x0608, 0x401C),
            "say get value reg 2 401c  ",
            rd(0x060C, 0xD8E1),
            wait(10000),
            "say 0 bsid = 8",
            "say 1 bsmod = 0",
            "say 2 surround_mode = 0",
            "say 3 num_channels - acmod = 7",
            "say 4 langcode = 1",
            "say frmsizecod = 1c (28)",
            "say bit_rate = 384",
            "ac3 5 = 14",
            "say 5 bit_rate_code = 14",
            "say hd_ac3_desc_parameters[5]=14",
            "say hd_ac3_desc_parameters[4]=1",
            "say hd_ac3_desc_parameters[3]=7",
            "say hd_ac3_desc_parameters[2]=0",
            "say hd_ac3_desc_parameters[1]=0",
            "say hd_ac3_desc_parameters[0]=8"},
           reset_lines(),
           {"configured = 1", "say get sync fscod = 0", "say get sync frmsizecod = 28",
            rd(0x0608, 0), "say reg 01c40 reg2 0 ", "say get sync fscod = 0",
            "say get sync frmsizecod = 28", wr(0x0230, 2880), "mask = 23601"},  // 0x5c31
           reset_lines(),
           {wr(0x0228, 3750), wr(0x0208, 2000), "say set the DTS_INIT_AC3 15000", "say fscod = 0",
            "say frmsizecod = 28", wr(0x022C, 1536), "say bytes_per_frame_ac3 = 1536",
            wr(0x1210, 100), wr(0x1214, 0), wr(0x1218, 2000), wr(0x121C, 16), wr(0x0224, 0x5C31)}});
  EXPECT_EQ(setup.bench.stream(), expected);
}

TEST(SetAudCodec1, digital_without_lock_skips_the_sync_wait) {
  Applied setup(1, kEnabled);
  setup.bench.world("audio none");
  AudioBench::set_descriptor({1, 2, 3, 4, 5, 6});

  setup.run();

  EXPECT_THAT(setup.bench.trace(),
              ElementsAreArray(all({{wr(0x0008, 22), wr(0x0224, 0x4011), wait(100000)},
                                    kNotLocked,
                                    reset_lines(),
                                    {rd(0x0608, 0), wr(0x0230, 2880)},
                                    timing_lines(3750, 2000, 128),
                                    {wr(0x0224, 0x4031)}})));
  EXPECT_EQ(setup.bench.output(),
            "SetAudCodec\n" + output_without_frame("set the DTS_INIT_AC3 15000\n"));
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 15));
}

TEST(SetAudCodec1, digital_locked_but_block_byte_not_2_skips_the_sync_wait) {
  Applied setup(1, kEnabled);
  setup.block.audio_enable = 1;

  setup.run();

  EXPECT_THAT(setup.bench.trace({"wait", "fpga rd 0x0600"}),
              ElementsAre(wait(100000), wait(1000000), wait(1000000), wait(10000), wait(1000000),
                          wait(10000)));
}

TEST(SetAudCodec1, audio_disabled_on_the_digital_path_writes_the_mask_last) {
  Applied setup(1, kDisabled);

  setup.run();

  // The mask holds 0x10 | 0x30; it goes out without 0x10.
  EXPECT_THAT(setup.bench.trace(),
              ElementsAreArray(all({{wr(0x0008, 22)},
                                    reset_lines(),
                                    {rd(0x0608, 0), wr(0x0230, 2880)},
                                    timing_lines(3750, 2000, 128),
                                    {wr(0x0224, 0x4031), wr(0x0224, 0x0020)}})));
  EXPECT_EQ(setup.bench.output(),
            "SetAudCodec\n" + output_without_frame("set the DTS_INIT_AC3 15000\n"));
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 15));
  EXPECT_EQ(enable_capture_mask_reg, 0x0030);
}

TEST(SetAudCodec1, audio_disabled_on_the_dsp_path_opens_it_and_waits_for_nothing) {
  Applied setup(2, kDisabled, -7500);
  setup.bench.world("audio dsp");

  setup.run();

  // (16000 + 7500) / 4 = 5875.
  EXPECT_THAT(setup.bench.trace(),
              ElementsAreArray(all({{wr(0x0008, 22), wr(0x0010, 1)},
                                    reset_lines(),
                                    {rd(0x0608, 0), wr(0x0230, 2880)},
                                    timing_lines(2000, 5875, 128),
                                    {wr(0x0224, 0x8030), wr(0x0224, 0x8020)}})));
  EXPECT_EQ(setup.bench.output(), "SetAudCodec\n" +
                                      output_without_frame("P1_DTS_INIT_REG = 2000\n"
                                                           "P0_DTS_INIT_REG = 5875\n"
                                                           "set the DTS_INIT_AC3 -7500\n") +
                                      "P1_AC3_CTRL_REG=0x8030\n");
  EXPECT_EQ(enable_capture_mask_reg, 0x8030);
}

// Word 2: rate code 10 (32 kHz), frame-size code 011100, bsid 00110, bsmod 000:
// 0x9C30. Word 3: acmod 010, matrix 00, no effects channel, dialogue 11011,
// compression, language, production, copyright 0, original 1: 0x4361. Its bit 0
// is 1, so the language code is its bit 7, 0.
TEST(SetAudCodec1, dsp_path_full_traffic) {
  Applied setup(2, kEnabled, -7500);
  setup.bench.world("audio dsp rate=32,acmod=2,bsid=6");
  setup.start_dsp(384);

  setup.run();

  // 1152 words at 32 kHz. Mask: 0x8011 | 2 << 6 | 28 << 8 | 0x30.
  EXPECT_THAT(setup.bench.trace(),
              ElementsAreArray(all({{wr(0x0008, 22), wr(0x0010, 1), wr(0x0224, 0x8011),
                                     wait(100000), rd(0x0600, 0x770B), rd(0x0234, 1),
                                     rd(0x0608, 0x309C), rd(0x060C, 0x6143), wait(10000)},
                                    reset_lines(),
                                    {rd(0x0608, 0), wr(0x0230, 4320)},
                                    timing_lines(2000, 5875, 2304),
                                    {wr(0x0224, 0x9CB1)}})));
  EXPECT_EQ(setup.bench.output(),
            "SetAudCodec\n"
            "SYNCFRAME_FLIP = 770b add 0 P1_AC3_STATUS_REG = 1\n"
            "get value reg 2 309c  \n"
            "0 bsid = 6\n"
            "1 bsmod = 0\n"
            "2 surround_mode = 0\n"
            "3 num_channels - acmod = 2\n"
            "4 langcode = 0\n"
            "frmsizecod = 1c (28)\n"
            "bit_rate = 384\n"
            "5 bit_rate_code = 14\n"
            "hd_ac3_desc_parameters[5]=14\n"
            "hd_ac3_desc_parameters[4]=1\n"
            "hd_ac3_desc_parameters[3]=7\n"
            "hd_ac3_desc_parameters[2]=0\n"
            "hd_ac3_desc_parameters[1]=0\n"
            "hd_ac3_desc_parameters[0]=8\n"
            "get sync fscod = 2\n"
            "get sync frmsizecod = 28\n"
            "reg 09c30 reg2 0 \n"
            "get sync fscod = 2\n"
            "get sync frmsizecod = 28\n"
            "P1_DTS_INIT_REG = 2000\n"
            "P0_DTS_INIT_REG = 5875\n"
            "set the DTS_INIT_AC3 -7500\n"
            "fscod = 2\n"
            "frmsizecod = 28\n"
            "bytes_per_frame_ac3 = 2304\n"
            "P1_AC3_CTRL_REG=0x9cb1\n");
  // The DSP's stream has fixed values but the rate.
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 14));
  EXPECT_EQ(enable_capture_mask_reg, 0x9CB1);
}

TEST(SetAudCodec1, other_input_takes_the_dsp_capture_and_the_plain_control_word) {
  Applied setup(3, kEnabled);
  setup.bench.world("audio dsp acmod=2,bsid=6");
  setup.start_dsp(32);
  setup.bench.set_fpga(0x0010, 1);  // the gate that another set-up left open

  setup.run();

  EXPECT_THAT(setup.bench.trace({"fpga wr 0x0010", "fpga wr 0x0224", "open"}),
              ElementsAre(wr(0x0224, 0x8011), wr(0x0010, 0), wr(0x0224, 0), wr(0x0010, 0),
                          wr(0x0224, 0), wr(0x0224, 0x4031)));
  // Decoded, not replaced: 32 kbit/s is code 0.
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(6, 0, 0, 2, 0, 0));
}

// ---- the sync wait ------------------------------------------------------------

TEST(SetAudCodec1, no_sync_in_15_tries_programs_the_defaults) {
  Applied setup(1, kEnabled);
  setup.bench.world("fault no-ac3-sync");
  AudioBench::set_descriptor({1, 2, 3, 4, 5, 6});

  setup.run();

  Lines tries;
  std::string prints;
  for (int i = 0; i < 15; ++i) {
    tries.insert(tries.end(), {rd(0x0600, 0), rd(0x0234, 1), wait(1000000)});
    prints += "SYNCFRAME_FLIP = 0 add 0 P1_AC3_STATUS_REG = 1\n";
  }
  EXPECT_THAT(setup.bench.trace(),
              ElementsAreArray(all({{wr(0x0008, 22), wr(0x0224, 0x4011), wait(100000)},
                                    kLocked,
                                    tries,
                                    {wait(10000)},
                                    reset_lines(),
                                    {rd(0x0608, 0), wr(0x0230, 2880)},
                                    timing_lines(3750, 2000, 128),
                                    {wr(0x0224, 0x4031)}})));
  EXPECT_EQ(setup.bench.output(),
            "SetAudCodec\n" + prints + output_without_frame("set the DTS_INIT_AC3 15000\n"));
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 15));
}

TEST(SetAudCodec1, wrong_sync_word_counts_as_no_sync) {
  Applied setup(1, kEnabled);
  setup.bench.world("fault wrong-ac3-sync");

  setup.run();

  const Lines syncs = setup.bench.trace({"fpga rd 0x0600"});
  EXPECT_EQ(syncs, Lines(15, rd(0x0600, 0x760B)));
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 15));
}

TEST(SetAudCodec1, sync_on_the_third_try_stops_the_wait) {
  Applied setup(1, kEnabled);
  setup.bench.world("fault no-ac3-sync");
  // Tries stand at 0.1 s, 1.1 s and 2.1 s.
  setup.bench.beside("world", [&] {
    vboard::board_wait(vboard::WaitFor::kNothing, 1600000);
    setup.bench.world("fault no-ac3-sync off");
  });

  setup.run();

  EXPECT_THAT(
      setup.bench.trace(),
      ElementsAreArray(all({{wr(0x0008, 22), wr(0x0224, 0x4011), wait(100000)},
                            kLocked,
                            {rd(0x0600, 0), rd(0x0234, 1), wait(1000000), rd(0x0600, 0),
                             rd(0x0234, 1), wait(1000000), rd(0x0600, 0x770B), rd(0x0234, 1),
                             rd(0x0608, 0x401C), rd(0x060C, 0xD8E1), wait(10000)},
                            reset_lines(),
                            {rd(0x0608, 0), wr(0x0230, 2880)},
                            timing_lines(3750, 2000, 1536),
                            {wr(0x0224, 0x5C31)}})));
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 14));
}

TEST(SetAudCodec1, receiver_that_does_not_open_still_waits_for_sync) {
  Applied setup(1, kEnabled);
  setup.bench.world("fault missing i2c");

  setup.run();

  const std::string output = setup.bench.output();
  EXPECT_EQ(output.find("SetAudCodec\nCannot access I2C device - 4192\nSYNCFRAME_FLIP = 770b"), 0u)
      << output;
  EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 7, 1, 14));
}

TEST(SetAudCodec1, receiver_that_does_not_answer_still_waits_for_sync) {
  Applied setup(1, kEnabled);
  setup.bench.world("fault i2c-fail 70");

  setup.run();

  const std::string output = setup.bench.output();
  EXPECT_EQ(output.find("SetAudCodec\nError i2c_readbyte - 4192-\nSYNCFRAME_FLIP = 770b"), 0u)
      << output;
}

TEST(SetAudCodec1, second_set_up_does_not_remember_the_header) {
  Applied setup(1, kEnabled);
  setup.run();
  ASSERT_EQ(setup.block.bytes_per_frame_ac3, 1536);
  setup.bench.world("audio none");

  setup.run();

  EXPECT_EQ(setup.block.bytes_per_frame_ac3, 128);
}

// ---- the decoded header --------------------------------------------------------

std::uint16_t swapped(int word) {
  return static_cast<std::uint16_t>((word & 0xFF) << 8 | word >> 8);
}

// Holds a captured frame in the FPGA.
void hold_frame(AudioBench& bench, int word2, int word3) {
  bench.hold(0x0600, 0x770B);
  bench.hold(0x0608, swapped(word2));
  bench.hold(0x060C, swapped(word3));
}

struct HeaderRow {
  const char* name;
  int a;
  int b;
  std::vector<int> fields;  // bsid, bsmod, surround mode, acmod, language code
};

class Ac3Header5 : public testing::TestWithParam<HeaderRow> {};

TEST_P(Ac3Header5, decodes_and_prints_the_fields) {
  const HeaderRow& row = GetParam();
  Applied setup(1, kEnabled);
  hold_frame(setup, row.a, row.b);

  setup.run();

  std::vector<int> decoded = AudioBench::descriptor();
  decoded.pop_back();
  EXPECT_EQ(decoded, row.fields);
  char prints[160];
  snprintf(prints, sizeof prints,
           "0 bsid = %x\n1 bsmod = %x\n2 surround_mode = %x\n3 num_channels - acmod = %x\n"
           "4 langcode = %x\n",
           row.fields[0], row.fields[1], row.fields[2], row.fields[3], row.fields[4]);
  EXPECT_THAT(setup.bench.output(), testing::HasSubstr(prints));
}

INSTANTIATE_TEST_SUITE_P(
    Words, Ac3Header5,
    testing::Values(HeaderRow{"all_clear", 0x0000, 0x0000, {0, 0, 0, 0, 0}},
                    HeaderRow{"all_set", 0x00FF, 0xFFFF, {31, 7, 3, 7, 1}},
                    HeaderRow{"bsid_alone", 0x00F8, 0x0000, {31, 0, 0, 0, 0}},
                    HeaderRow{"bsmod_alone", 0x0005, 0x0000, {0, 5, 0, 0, 0}},
                    HeaderRow{"surround_alone", 0x0000, 0x1800, {0, 0, 3, 0, 0}},
                    HeaderRow{"surround_low_bit", 0x0000, 0x0800, {0, 0, 1, 0, 0}},
                    HeaderRow{"acmod_alone", 0x0000, 0x6000, {0, 0, 0, 3, 0}},
                    // Bit 0 clear: the language code is bit 15, also acmod's.
                    HeaderRow{"language_in_bit_15", 0x0000, 0x8000, {0, 0, 0, 4, 1}},
                    HeaderRow{"bit_7_without_bit_0", 0x0000, 0x0080, {0, 0, 0, 0, 0}},
                    // Bit 0 set: it is bit 7.
                    HeaderRow{"language_in_bit_7", 0x0000, 0x0081, {0, 0, 0, 0, 1}},
                    HeaderRow{"bit_15_with_bit_0", 0x0000, 0x8001, {0, 0, 0, 4, 0}}),
    [](const auto& row) { return row.param.name; });

// Rate codes of A/52: the index of the nominal rate.
TEST(SetAudCodec1, every_frame_size_code_gives_its_bit_rate_code) {
  constexpr int kRates[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                            192, 224, 256, 320, 384, 448, 512, 576, 640};
  Applied setup(1, kEnabled);
  for (int code = 0; code < 38; ++code) {
    SCOPED_TRACE(code);
    hold_frame(setup, code << 8, 0);
    setup.run();
    EXPECT_EQ(hd_ac3_desc_parameters[kAc3BitRateCode], code / 2);
    char prints[128];
    snprintf(prints, sizeof prints, "frmsizecod = %x (%i)\nbit_rate = %i\n5 bit_rate_code = %i\n",
             code, code, kRates[code / 2], code / 2);
    const std::string output = setup.bench.output();
    EXPECT_THAT(output, testing::HasSubstr(prints));
    EXPECT_THAT(output, testing::Not(testing::HasSubstr("get error")));
    if (HasFailure()) return;  // its text would be part of the next output
  }
}

TEST(SetAudCodec1, frame_size_code_beyond_the_table_is_reported_and_replaced) {
  Applied setup(1, kEnabled);
  for (int code = 38; code < 64; ++code) {
    SCOPED_TRACE(code);
    AudioBench::set_descriptor({1, 1, 1, 1, 1, 9});
    hold_frame(setup, code << 8 | 0x40, 0);
    setup.run();
    // The previous bit-rate code stays; the rest is decoded.
    EXPECT_THAT(AudioBench::descriptor(), ElementsAre(8, 0, 0, 0, 0, 9));
    EXPECT_EQ(setup.block.bytes_per_frame_ac3, 128);  // code 0: 2 x 64
    char prints[160];
    snprintf(prints, sizeof prints, "frmsizecod = %x (%i)\nbit_rate = 0\n5 bit_rate_code = 9\n",
             code, code);
    const std::string output = setup.bench.output();
    EXPECT_THAT(output, testing::HasSubstr(prints));
    snprintf(prints, sizeof prints,
             "get error frmsizecod = %i set to 30\nget sync fscod = 0\nget sync frmsizecod = 0\n",
             code);
    EXPECT_THAT(output, testing::HasSubstr(prints));
    if (HasFailure()) return;  // its text would be part of the next output
  }
}

TEST(SetAudCodec1, prints_the_held_word_and_a_fresh_one) {
  Applied setup(1, kEnabled);
  hold_frame(setup, 0x1C40, 0);

  setup.run();

  EXPECT_THAT(setup.bench.output(), testing::HasSubstr("\nreg 01c40 reg2 401c \n"));
}

TEST(Ac3Codes, impossible_rate_code_is_reported_and_becomes_0) {
  AudioBench audio;
  // Five above bit 14; no captured word is that wide.
  const Ac3Codes codes = ac3_codes(5u << 14 | 3u << 8);

  EXPECT_EQ(codes.fscod, 0);
  EXPECT_EQ(codes.frmsizecod, 3);
  EXPECT_EQ(audio.bench.output(), "get error fscod = 5 set to 0\n");
}

TEST(Ac3Codes, highest_codes_that_pass) {
  AudioBench audio;
  const Ac3Codes codes = ac3_codes(4u << 14 | 37u << 8);

  EXPECT_EQ(codes.fscod, 4);
  EXPECT_EQ(codes.frmsizecod, 37);
  EXPECT_EQ(audio.bench.output(), "");
}

// ---- the timing ------------------------------------------------------------------

constexpr int kRates[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                          192, 224, 256, 320, 384, 448, 512, 576, 640};

// Words by the rule of ATSC A/52: 1536 samples a frame, 16 bits a word.
int frame_words(int fscod, int code) {
  const int rate = kRates[code / 2];
  if (fscod == 0) return rate * 2;
  if (fscod == 2) return rate * 3;
  return rate * 96000 / 44100 + code % 2;
}

struct RateRow {
  const char* name;
  int fscod;
  Lines period;
};

class SetAudCodecPramRate : public testing::TestWithParam<RateRow> {};

TEST_P(SetAudCodecPramRate, every_frame_size_code_full_traffic) {
  const RateRow& row = GetParam();
  AudioBench audio;
  fpgaregs.AudioInput = 1;
  fpgaregs.inAudioEnable = kEnabled;
  fpgaregs.AVSync = 15000;
  for (int code = 0; code < 38; ++code) {
    SCOPED_TRACE(code);
    enable_capture_mask_reg = 0;
    const int bytes = 2 * frame_words(row.fscod, code);

    EXPECT_EQ(
        SetAudCodecPram(static_cast<std::uint16_t>(row.fscod), static_cast<std::uint16_t>(code)),
        0);

    EXPECT_THAT(audio.bench.trace(),
                ElementsAreArray(all({row.period,
                                      timing_lines(3750, 2000, bytes),
                                      {wr(0x0224, 0x4031 | code << 8 | row.fscod << 6)}})));
    EXPECT_EQ(enable_capture_mask_reg, 0x30 | code << 8 | row.fscod << 6);
    EXPECT_EQ(audio.block.bytes_per_frame_ac3, bytes);
    EXPECT_EQ(audio.block.AudioInput, 1);
    char prints[128];
    snprintf(prints, sizeof prints,
             "set the DTS_INIT_AC3 15000\nfscod = %i\nfrmsizecod = %i\nbytes_per_frame_ac3 = %i\n",
             row.fscod, code, bytes);
    EXPECT_EQ(audio.bench.output(), prints);
    if (HasFailure()) return;  // its text would be part of the next output
  }
}

// Only 48 and 32 kHz write the sample period.
INSTANTIATE_TEST_SUITE_P(Rates, SetAudCodecPramRate,
                         testing::Values(RateRow{"rate_48", 0, {wr(0x0230, 2880)}},
                                         RateRow{"rate_44_1", 1, {}},
                                         RateRow{"rate_32", 2, {wr(0x0230, 4320)}}),
                         [](const auto& row) { return row.param.name; });

TEST(SetAudCodecPram, example_384_kbit_at_48_khz_has_1536_bytes) {
  AudioBench audio;
  SetAudCodecPram(0, 28);
  EXPECT_EQ(audio.bench.fpga(0x022C), 1536);
}

TEST(SetAudCodecPram, reserved_rate_code_gives_0_bytes) {
  AudioBench audio;
  fpgaregs.AVSync = 15000;
  SetAudCodecPram(3, 28);
  EXPECT_THAT(audio.bench.trace(),
              ElementsAreArray(all({timing_lines(3750, 2000, 0), {wr(0x0224, 0x5CF1)}})));
  EXPECT_EQ(audio.block.bytes_per_frame_ac3, 0);
}

TEST(SetAudCodecPram, code_beyond_the_table_gives_0_bytes) {
  for (const int code : {38, 39, 63, 65535}) {
    AudioBench audio;
    audio.block.bytes_per_frame_ac3 = 7;
    SetAudCodecPram(0, static_cast<std::uint16_t>(code));
    EXPECT_EQ(audio.block.bytes_per_frame_ac3, 0) << code;
  }
}

struct DtsRow {
  const char* name;
  int sync;
  int audio_dts;
  int video_dts;
  const char* prints;
};

class SetAudCodecPramDts : public testing::TestWithParam<DtsRow> {};

TEST_P(SetAudCodecPramDts, writes_both_offsets) {
  const DtsRow& row = GetParam();
  AudioBench audio;
  fpgaregs.AVSync = row.sync;

  SetAudCodecPram(0, 0);

  EXPECT_THAT(audio.bench.trace({"fpga wr 0x0208", "fpga wr 0x0228"}),
              ElementsAre(wr(0x0228, row.audio_dts), wr(0x0208, row.video_dts)));
  EXPECT_EQ(audio.bench.output(), std::string(row.prints) + "set the DTS_INIT_AC3 " +
                                      std::to_string(row.sync) +
                                      "\nfscod = 0\nfrmsizecod = 0\nbytes_per_frame_ac3 = 128\n");
}

#define BOTH_PRINTS(video) "P1_DTS_INIT_REG = 2000\nP0_DTS_INIT_REG = " #video "\n"

INSTANTIATE_TEST_SUITE_P(
    Sync, SetAudCodecPramDts,
    testing::Values(DtsRow{"at_8000", 8000, 2000, 2000, BOTH_PRINTS(2000)},
                    DtsRow{"at_8001", 8001, 2000, 2000, ""},                 // 8001 / 4 rounds down
                    DtsRow{"at_8004", 8004, 2001, 2000, ""},                 //
                    DtsRow{"at_15000", 15000, 3750, 2000, ""},               //
                    DtsRow{"at_7999", 7999, 2000, 2000, BOTH_PRINTS(2000)},  // 8001 / 4
                    DtsRow{"at_0", 0, 2000, 4000, BOTH_PRINTS(4000)},        //
                    DtsRow{"at_minus_7500", -7500, 2000, 5875, BOTH_PRINTS(5875)},  // 23500 / 4
                    DtsRow{"at_minus_6600", -6600, 2000, 5650, BOTH_PRINTS(5650)},  // 22600 / 4
                    DtsRow{"beyond_16_bits", 400000, 0x86A0, 2000, ""},  // 100000 = 0x186A0
                    DtsRow{"below_16_bits", -300000, 2000, 0x3498,
                           BOTH_PRINTS(79000)},                    // 79000 = 0x13498
                    DtsRow{"highest", INT_MAX, 0xFFFF, 2000, ""},  // 0x1FFFFFFF
                    // (2^31 + 16000) / 4 = 2^29 + 4000.
                    DtsRow{"lowest", INT_MIN, 2000, 4000, BOTH_PRINTS(536874912)}),
    [](const auto& row) { return row.param.name; });

// ---- the mask ------------------------------------------------------------------------

TEST(EnableCaptureMask, bits_of_earlier_applies_stay) {
  Applied setup(1, kEnabled);
  const auto control = [&] {
    setup.run();
    return setup.bench.trace({"fpga wr 0x0224"});
  };
  const std::string off = wr(0x0224, 0);  // once in each of two resets

  hold_frame(setup, 28 << 8, 0);
  EXPECT_THAT(control(), ElementsAre(wr(0x0224, 0x4011), off, off, wr(0x0224, 0x5C31)));
  EXPECT_EQ(enable_capture_mask_reg, 0x5C31);

  // 32 kHz, code 2: 0x5C31 | 2 << 6 | 2 << 8; the control word has only its own.
  hold_frame(setup, 2 << 14 | 2 << 8, 0);
  EXPECT_THAT(control(), ElementsAre(wr(0x0224, 0x5C31), off, off, wr(0x0224, 0x42B1)));
  EXPECT_EQ(enable_capture_mask_reg, 0x5EB1);

  // The DSP path, disabled: the mask moves over to it.
  fpgaregs.AudioInput = 2;
  fpgaregs.inAudioEnable = kDisabled;
  EXPECT_THAT(control(), ElementsAre(off, off, wr(0x0224, 0x9EB1), wr(0x0224, 0x9EA1)));
  EXPECT_EQ(enable_capture_mask_reg, 0x9EB1);
  EXPECT_THAT(setup.bench.output(), testing::EndsWith("P1_AC3_CTRL_REG=0x9eb1\n"));

  // The digital path, disabled: the mask goes out as the DSP left it.
  fpgaregs.AudioInput = 1;
  EXPECT_THAT(control(), ElementsAre(off, off, wr(0x0224, 0x4031), wr(0x0224, 0x9EA1)));
  EXPECT_EQ(enable_capture_mask_reg, 0x9EB1);

  // Enabled again: the path bits are chosen anew.
  fpgaregs.inAudioEnable = kEnabled;
  hold_frame(setup, 0, 0);
  EXPECT_THAT(control(), ElementsAre(wr(0x0224, 0x5EB1), off, off, wr(0x0224, 0x4031)));
  EXPECT_EQ(enable_capture_mask_reg, 0x5EB1);
}

TEST(EnableCaptureMask, dsp_capture_replaces_the_digital_path_bit) {
  Applied setup(2, kEnabled);
  enable_capture_mask_reg = 0x7FE0;
  setup.run();
  EXPECT_EQ(setup.bench.trace({"fpga wr 0x0224"}).front(), wr(0x0224, 0xBFF1));
}

}  // namespace
