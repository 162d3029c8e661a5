// A board says what it lacks, and stays dark until nothing is lacking: each need is
// taken away from a board that is set up, seen in words and on the counters, and
// given back.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include <unistd.h>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/i2capi.h"
#include "vboard/testing/bench.h"

namespace {

using namespace vboard;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

enum class Dark { kPicture, kSound, kStream, kNothing };

struct Case {
  const char* name;
  const char* world;  // what is plugged in before the board is set up
  void (*harm)(Board& board);
  const char* reason;
  Dark dark;  // what stands still then
};
void PrintTo(const Case& one, std::ostream* out) { *out << one.name; }

template <int address, int value>
void fpga(Board& board) {
  board.fpga.reg[address / 2] = static_cast<std::uint16_t>(value);
}
template <int reg, int value>
void digitizer(Board& board) {
  board.tvp7002.reg[reg] = static_cast<std::uint8_t>(value);
}
template <int reg, int value>
void decoder(Board& board) {
  board.tvp5150.reg[reg] = static_cast<std::uint8_t>(value);
}
template <int reg, int value>
void receiver(Board& board) {
  board.dix4192.reg[reg] = static_cast<std::uint8_t>(value);
}

constexpr char kComponent[] = "source component";
constexpr char kVga[] = "source vga";
constexpr char kComposite[] = "source composite";
constexpr char kDigital[] = "audio digital";
constexpr char kDsp[] = "audio dsp";

const Case kCases[] = {
    {"digitizer_in_reset", kComponent, [](Board& board) { board.tvp7002.in_reset = true; },
     "tvp7002: held in reset", Dark::kPicture},
    {"digitizer_on_another_input", kComponent, digitizer<0x19, 0xAA>, "tvp7002: input not selected",
     Dark::kPicture},
    {"digitizer_on_other_sync_pins", kVga, digitizer<0x1A, 0x6F>, "tvp7002: sync pins not selected",
     Dark::kPicture},
    {"digitizer_powered_down", kComponent, digitizer<0x2B, 0x10>, "tvp7002: powered down",
     Dark::kPicture},
    {"digitizer_without_reference", kComponent, digitizer<0x1A, 0x67>,
     "tvp7002: reference clock not selected", Dark::kPicture},
    {"digitizer_without_its_pll", kComponent, digitizer<0x1A, 0x6D>,
     "tvp7002: PLL not selected as the pixel clock", Dark::kPicture},
    {"digitizer_clock_edge", kVga, digitizer<0x18, 0>, "tvp7002: data clock has the wrong edge",
     Dark::kPicture},
    // blue and red are clamped at their middle, as for component video
    {"digitizer_clamps_of_component", kVga, digitizer<0x10, 0x5D>,
     "tvp7002: clamps are those of other colours", Dark::kNothing},
    // 0x53 << 4 | 0 = 1328 clocks a line instead of 1344
    {"digitizer_pll_off", kVga, digitizer<0x01, 0x53>, "tvp7002: PLL does not fit the standard",
     Dark::kPicture},
    {"digitizer_clock_halved", kVga, digitizer<0x04, 0x81>,
     "tvp7002: PLL does not fit the standard", Dark::kPicture},
    // 65 MHz belong to the range from 36 to 70, number 1
    {"digitizer_range_off", kVga, digitizer<0x03, 0xA0>,
     "tvp7002: range of the PLL does not fit the pixel clock", Dark::kPicture},
    {"digitizer_outputs_off", kComponent, digitizer<0x17, 0x03>,
     "tvp7002: outputs in high impedance", Dark::kPicture},
    {"decoder_in_reset", kComposite, [](Board& board) { board.tvp5150.in_reset = true; },
     "tvp5150: held in reset", Dark::kPicture},
    {"decoder_in_software_reset", kComposite, decoder<0x05, 1>, "tvp5150: software reset held",
     Dark::kPicture},
    {"decoder_powered_down", kComposite, decoder<0x02, 1>, "tvp5150: powered down", Dark::kPicture},
    {"decoder_on_another_input", kComposite, decoder<0x00, 2>, "tvp5150: input not selected",
     Dark::kPicture},
    {"decoder_without_clock", kComposite, decoder<0x03, 0x0E>, "tvp5150: clock output off",
     Dark::kPicture},
    {"decoder_without_syncs", kComposite, decoder<0x03, 0x0B>, "tvp5150: sync outputs off",
     Dark::kPicture},
    {"decoder_without_data", kComposite, decoder<0x03, 0x07>, "tvp5150: data outputs off",
     Dark::kPicture},
    {"decoder_in_another_format", kComposite, decoder<0x0D, 0x40>,
     "tvp5150: output format is not BT.656", Dark::kPicture},
    {"capture_on_another_input", kComponent, [](Board& board) { board.capture.input = 3; },
     "capture: input not selected", Dark::kStream},
    {"select_line_at_the_other_decoder", kComponent,
     [](Board& board) { board.fpga.front_end = FrontEnd::kTvp5150; },
     "fpga: the select line is not at the decoder of the source", Dark::kPicture},
    {"path_of_the_other_decoder", kComposite, fpga<kRegVideoControl, 0x0100>,
     "fpga: the video path is that of the other decoder", Dark::kPicture},

    {"receiver_in_reset", kDigital, [](Board& board) { board.dix4192.in_reset = true; },
     "dix4192: held in reset", Dark::kSound},
    {"receiver_chip_powered_down", kDigital, receiver<0x01, 0x1F>, "dix4192: powered down",
     Dark::kSound},
    {"receiver_powered_down", kDigital, receiver<0x01, 0x3D>, "dix4192: receiver powered down",
     Dark::kSound},
    {"receiver_on_another_input", kDigital, receiver<0x0D, 0x09>, "dix4192: input not selected",
     Dark::kSound},
    {"receiver_without_reference", kDigital, receiver<0x0D, 0x00>,
     "dix4192: receiver without its reference clock", Dark::kSound},
    // 18.432 MHz x 16 / 2 = 147.456 MHz
    {"receiver_pll_off", kDigital, receiver<0x0F, 0x24>, "dix4192: PLL1 does not make 98.304 MHz",
     Dark::kSound},
    {"receiver_port_down", kDigital, receiver<0x01, 0x2F>, "dix4192: port A powered down",
     Dark::kSound},
    {"receiver_port_sends_another_source", kDigital, receiver<0x03, 0x09>,
     "dix4192: port A does not send what is received", Dark::kSound},
    {"receiver_port_muted", kDigital, receiver<0x03, 0x69>, "dix4192: port A muted", Dark::kSound},
    {"receiver_port_is_slave", kDigital, receiver<0x03, 0x21>,
     "dix4192: port A does not clock its data", Dark::kSound},
    {"receiver_port_has_another_clock", kDigital, receiver<0x04, 0x03>,
     "dix4192: port A without the receiver's clock", Dark::kSound},
    {"receiver_port_divides_by_256", kDigital, receiver<0x04, 0x09>,
     "dix4192: clock of port A is not divided by 512", Dark::kSound},
    {"receiver_clock_off", kDigital, receiver<0x0E, 0>, "dix4192: recovered clock off",
     Dark::kSound},
    {"dsp_in_reset", kDsp, [](Board& board) { board.dsp.in_reset = true; }, "ac3dsp: held in reset",
     Dark::kSound},
    {"dsp_without_firmware", kDsp, [](Board& board) { board.dsp.has_firmware = false; },
     "ac3dsp: no firmware", Dark::kSound},
    {"dsp_not_configured", kDsp,
     [](Board& board) {
       for (std::uint8_t& byte : board.dsp.configure) byte = 0;
     },
     "ac3dsp: not configured", Dark::kSound},
    {"dsp_with_a_rate_of_no_ac3", kDsp, [](Board& board) { board.dsp.configure[3] = 1; },
     "ac3dsp: told a rate that AC-3 has not", Dark::kSound},
    {"dsp_encoding_off", kDsp, [](Board& board) { board.dsp.configure[0] = 0; },
     "ac3dsp: encoding is off", Dark::kSound},
    {"dsp_not_started", kDsp, [](Board& board) { board.dsp.running = false; },
     "ac3dsp: not started", Dark::kSound},
    {"dsp_with_a_muted_input", kDsp, [](Board& board) { board.dsp.codec[0] = 0x97; },
     "ac3dsp: left input muted", Dark::kNothing},
    {"audio_path_off", kDigital, fpga<kRegAc3Control, 0>, "fpga: audio path off", Dark::kSound},
    {"audio_path_of_the_other_source", kDigital, fpga<kRegAc3Control, 0x9C31>,
     "fpga: audio path is not that of the source", Dark::kSound},
    {"audio_in_capture_mode", kDigital, fpga<kRegAudioMode, 22>,
     "fpga: audio mode is not that of the stream", Dark::kSound},
    {"audio_without_sample_period", kDigital, fpga<kRegSampleRate, 0>,
     "fpga: no audio sample period", Dark::kSound},
    {"audio_without_frame_size", kDigital, fpga<kRegAc3FrameBytes, 0>, "fpga: no AC-3 frame size",
     Dark::kSound},
    {"audio_multiplexer_not_set_up", kDigital, fpga<kRegAudioMux2, 0>,
     "fpga: audio multiplexer not set up", Dark::kSound},
    {"audio_pid_of_the_tables", kDigital, fpga<kRegPidAudio, 0x000F>, "fpga: no PID for audio",
     Dark::kSound},
    {"audio_without_time_stamps", kDigital, fpga<kRegP1DtsInit, 0>,
     "fpga: no time-stamp offset of the audio", Dark::kNothing},
    // 32 kHz where 48 come
    {"audio_of_another_rate", kDigital, fpga<kRegSampleRate, 4320>,
     "fpga: audio sample period does not fit the source", Dark::kNothing},
    // 384 kbit/s at 48 kHz are 1536 bytes
    {"audio_of_another_frame_size", kDigital, fpga<kRegAc3FrameBytes, 128>,
     "fpga: AC-3 frame size does not fit the source", Dark::kNothing},

    {"codec_not_set_up", kComponent, fpga<kRegVideoCodec1, 0>, "fpga: video codec not set up",
     Dark::kStream},
    {"constant_of_the_other_codec", kComponent, fpga<kRegVideoCodec3, 48032>,
     "fpga: codec constant is that of the other codec", Dark::kStream},
    {"no_frame_period", kComponent, fpga<kRegFramePeriod, 0>, "fpga: no frame period",
     Dark::kNothing},
    {"video_without_time_stamps", kComponent, fpga<kRegP0DtsInit, 0>,
     "fpga: no time-stamp offset of the video", Dark::kNothing},
    {"video_pid_of_null_packets", kComponent, fpga<kRegPidVideo, 0x1FFF>, "fpga: no PID for video",
     Dark::kStream},
    {"pids_equal", kComponent, fpga<kRegPidVideo, 257>, "fpga: PIDs equal", Dark::kStream},
    {"fpga_in_reset", kComponent, [](Board& board) { board.fpga.in_reset = true; },
     "fpga: held in reset", Dark::kPicture},
    {"fpga_never_reset", kComponent, [](Board& board) { board.fpga.was_reset = false; },
     "fpga: not reset since power-on", Dark::kStream},
    {"multiplexer_not_enabled", kComponent, fpga<kRegControl, 0>, "fpga: multiplexer not enabled",
     Dark::kStream},
    {"output_rate_0", kComponent, fpga<kRegOutputInterval, 0>, "fpga: output rate 0",
     Dark::kStream},
    {"output_rate_not_set_up", kComponent, fpga<kRegOutputRate1, 0>, "fpga: output rate not set up",
     Dark::kStream},
    {"no_pcr", kComponent, fpga<kRegPidPcr, 0>, "fpga: no PID for the PCR", Dark::kStream},
};

struct SetUpBoard {
  Bench bench;

  explicit SetUpBoard(const char* world) {
    fpga_file = fopen("/dev/fpga", "r+b");
    bench.attach_block();
    bench.world(world);
    set_up();
    EXPECT_EQ(system("./encode&"), 0);
    usleep(12'000'000);  // alive, and the buffers at their levels
  }
  ~SetUpBoard() {
    fclose(fpga_file);
    fpga_file = nullptr;
  }
  void set_up() {
    bench.board().tvp7002.in_reset = bench.board().tvp5150.in_reset = false;
    bench.board().dix4192.in_reset = bench.board().dsp.in_reset = false;
    bench.set_up();
  }
  std::vector<std::string> reasons() const {
    const Lacking lacking = bench.lacking();
    std::vector<std::string> all;
    for (const auto* some : {&lacking.picture, &lacking.sound, &lacking.stream})
      all.insert(all.end(), some->begin(), some->end());
    return all;
  }
  static unsigned counter(int address) {
    SetValue(kRegLatch, 1);
    return GetValue(address);
  }
  static bool moves(int address) {
    const unsigned before = counter(address);
    usleep(2'000'000);
    return counter(address) != before;
  }
  bool frames_arrive() const { return moves(kRegVsOverallLow); }
  bool video_goes_out() const { return moves(kRegViOverallLow); }
  bool sound_goes_out() const { return moves(kRegAuOverallLow); }
};

class Needed : public testing::TestWithParam<Case> {};

TEST_P(Needed, is_said_when_lacking_and_keeps_dark_what_needs_it) {
  const Case& one = GetParam();
  SetUpBoard board(one.world);
  EXPECT_THAT(board.reasons(), IsEmpty());
  EXPECT_TRUE(board.frames_arrive() && board.video_goes_out() && board.sound_goes_out());
  one.harm(board.bench.board());
  EXPECT_THAT(board.reasons(), Contains(one.reason));
  EXPECT_EQ(board.frames_arrive(), one.dark != Dark::kPicture);
  EXPECT_EQ(board.video_goes_out(), one.dark != Dark::kPicture && one.dark != Dark::kStream);
  if (one.dark == Dark::kSound || one.dark == Dark::kNothing) {
    EXPECT_EQ(board.sound_goes_out(), one.dark == Dark::kNothing);
  }
}

INSTANTIATE_TEST_SUITE_P(each, Needed, testing::ValuesIn(kCases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(Needed, of_no_source_is_its_plug) {
  Bench bench;
  bench.world("source none");
  bench.world("audio none");
  bench.set_up();
  EXPECT_THAT(bench.lacking().picture, ElementsAre("no source is plugged in"));
  EXPECT_THAT(bench.lacking().sound, ElementsAre("no source is plugged in"));
  EXPECT_THAT(bench.lacking().stream, ElementsAre("encode: does not run"));
}

TEST(Needed, by_chips_out_of_the_way_is_told_apart) {
  Bench bench;
  bench.set_up();
  EXPECT_THAT(bench.lacking().picture, IsEmpty());
  EXPECT_THAT(bench.lacking().others, Contains("tvp5150: data outputs off"));
  EXPECT_THAT(bench.lacking().others, Contains("ac3dsp: not started"));
  EXPECT_THAT(bench.lacking().others, Contains("7353: channel 2 not set up"));
  EXPECT_THAT(bench.lacking().others, Contains("pll: clocks off"));
}

int receiver_status() {
  const int bus = init_i2c(1);
  std::uint8_t byte = 0xFF;
  EXPECT_EQ(i2c_readbyte(bus, 0x70, 0x13, &byte), 2);
  close(bus);
  return byte;
}

TEST(Receiver, locks_when_it_is_programmed_and_powered) {
  Bench bench;
  EXPECT_EQ(receiver_status(), 3);  // as the board's boot leaves it
  bench.world("power-cycle");
  EXPECT_EQ(receiver_status(), 0);
  EXPECT_THAT(bench.lacking().sound, Contains("dix4192: powered down"));
}

TEST(PowerCycle, takes_what_devices_were_told) {
  Bench bench;
  bench.set_up();
  bench.world("power-cycle");
  EXPECT_EQ(bench.fpga(kRegPidVideo), 0);
  EXPECT_EQ(bench.board().tvp7002.reg[0x17], 0x03);  // outputs off, by the data sheet
  EXPECT_EQ(bench.board().tvp5150.reg[0x03], 0x01);  // clock alone
  EXPECT_FALSE(bench.board().dsp.has_firmware);
  EXPECT_FALSE(verdict(bench.board()).frames_in);
}

// The driver keeps the digitizer with the standard that it detects; a VGA plug it
// leaves to the program.
TEST(CaptureDriver, sets_the_digitizer_up_for_what_component_brings) {
  Bench bench;
  bench.set_up();
  bench.world("set-standard 720p60");
  EXPECT_EQ(bench.board().tvp7002.reg[0x01], 0x67);  // 1650 clocks a line
  EXPECT_EQ(bench.board().tvp7002.reg[0x02], 0x20);
  EXPECT_TRUE(verdict(bench.board()).frames_in);
  bench.world("source vga");
  bench.set_up();
  bench.world("set-standard 800x600");
  EXPECT_THAT(bench.lacking().picture, Contains("tvp7002: PLL does not fit the standard"));
}

}  // namespace
