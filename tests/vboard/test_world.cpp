// The world's operations: what each changes on the board, that each fault can be
// taken back, and what is said about one that makes no sense.
#include <gmock/gmock.h>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/i2capi.h"
#include "vboard/models/bus.h"
#include "vboard/testing/bench.h"

namespace {

using namespace vboard;

// ---- looking at a board as a program does ------------------------------------------

constexpr int kTvp7002 = 0x5C;
constexpr int kDix4192 = 0x70;
constexpr int kDsp = 0x1C;

// A board whose encoder streams, with the FPGA open.
struct Streaming {
  Bench bench;

  Streaming() {
    fpga_file = fopen("/dev/fpga", "r+b");
    bench.attach_block();
    bench.set_up();
    launch();
  }
  ~Streaming() {
    if (fpga_file != nullptr) fclose(fpga_file);
    fpga_file = nullptr;
  }
  static void launch() {
    EXPECT_EQ(system("./encode&"), 0);
    usleep(12'000'000);  // alive, and the buffers at their levels
  }
};

int after_latch(int address) {
  SetValue(kRegLatch, 1);
  return static_cast<int>(GetValue(address));
}

// How far a counter lags behind its reference after a minute.
int lag(int counter, int reference) {
  const int counted = after_latch(counter) - after_latch(reference);
  usleep(60'000'000);
  return counted - after_latch(counter) + after_latch(reference);
}

bool video_units_move() {
  const int before = after_latch(kRegViOverallLow);
  usleep(1'000'000);
  return after_latch(kRegViOverallLow) != before;
}

// A chip's register; -1 when the transfer fails.
int chip_register(int address, int reg) {
  const int bus = init_i2c(1);
  std::uint8_t byte = 0;
  const int result = i2c_readbyte(bus, address, reg, &byte);
  close(bus);
  return result < 0 ? -1 : byte;
}

bool dsp_answers() {
  const int bus = init_i2c(1);
  const std::uint8_t ask[] = {0x80, 0x00};
  const int result = i2c_writeblk(bus, kDsp, 0, 0, 2, ask);
  close(bus);
  return result >= 0;
}

// What a read of the link gives when the host has sent nothing.
ssize_t silent_link_read() {
  const int fd = open("/dev/spislave", O_RDWR);
  fcntl(fd, F_SETFL, O_NONBLOCK);
  char byte = 0;
  const ssize_t got = read(fd, &byte, 1);
  close(fd);
  return got;
}

bool opens(const char* device) {
  const int fd = open(device, O_RDWR);
  if (fd < 0) return false;
  close(fd);
  return true;
}

constexpr int kCaptureMode = 22;

unsigned captured_sync_word() {
  SetValue(kRegAudioMode, kCaptureMode);
  SetValue(kRegAc3Control, 0x4011);
  return GetValue(kRegAc3Sync);
}

std::uint64_t standard_mask() {
  const int fd = open("/dev/video0", O_RDWR);
  v4l2_std_id mask = 0;
  ioctl(fd, VIDIOC_QUERYSTD, &mask);
  close(fd);
  return mask;
}

int config_status() {
  std::int32_t status = 0;
  ioctl(fileno(fpga_file), 0, &status);
  return status;
}

void pulse_config_line() {
  for (std::int32_t level : {1, 0, 1}) ioctl(fileno(fpga_file), 1, &level);
}

// The FIFO's level a while after ten bytes went in.
int firmware_fifo_level() {
  SetValue(kRegDspSpiControl, 0);
  SetValue(kRegDspSpiControl, 3);
  for (int i = 0; i < 10; ++i) SetValue(kRegDspSpiData, i);
  usleep(100'000);
  const int level = static_cast<int>(GetValue(kRegDspSpiStatus) & 0x1FF);
  SetValue(kRegDspSpiControl, 2);
  return level;
}

bool encode_comes_alive() {
  (void)!system("killall encode");
  shared_memory->encode_alive = 0;
  Streaming::launch();
  return shared_memory->encode_alive == 1;
}

// ---- faults ------------------------------------------------------------------------

struct FaultCase {
  const char* name;
  const char* fault;  // as it stands behind "fault"
  bool (*seen)();     // true when a program sees the board broken so
};

void PrintTo(const FaultCase& one, std::ostream* out) { *out << one.fault; }

const FaultCase kFaultCases[] = {
    {"video_loss", "video-loss", [] { return after_latch(kRegVsRateLow) == 0; }},
    {"video_freeze", "video-freeze", [] { return chip_register(kTvp7002, 0x14) == 0x0D; }},
    {"video_overflow", "video-overflow", [] { return GetValue(kRegVideoLevel) > 34899; }},
    {"audio_loss", "audio-loss", [] { return chip_register(kDix4192, 0x13) == 0; }},
    {"audio_overflow", "audio-overflow", [] { return GetValue(kRegAudioLevel) > 1989; }},
    {"stall", "stall", [] { return !video_units_move(); }},
    {"low_buffer", "low-buffer",
     [] {
       usleep(10'000'000);
       return after_latch(kRegViBuff) < 10;
     }},
    {"level_jump", "level-jump",
     [] {
       usleep(10'000'000);
       return after_latch(kRegViBuff) > 80;
     }},
    {"video_drift", "video-drift", [] { return lag(kRegViOverallLow, kRegViRefOverallLow) > 10; }},
    {"audio_drift", "audio-drift", [] { return lag(kRegAuOverallLow, kRegAuRefOverallLow) > 10; }},
    {"encode_hang", "encode-hang", [] { return !video_units_move(); }},
    {"encode_never_alive", "encode-never-alive", [] { return !encode_comes_alive(); }},
    {"no_ac3_sync", "no-ac3-sync", [] { return captured_sync_word() == 0; }},
    {"wrong_ac3_sync", "wrong-ac3-sync",
     [] { return captured_sync_word() != 0x770B && captured_sync_word() != 0; }},
    {"ac3_frame_code", "ac3-frame-code",
     [] {
       captured_sync_word();  // capture on
       return (GetValue(kRegAc3Word2) & 0x3F) == 38;
     }},
    {"dsp_dead", "dsp-dead", [] { return !dsp_answers(); }},
    {"dsp_no_firmware", "dsp-no-firmware", [] { return !dsp_answers(); }},
    {"dsp_fifo_stuck", "dsp-fifo-stuck", [] { return firmware_fifo_level() == 10; }},
    {"i2c_fail", "i2c-fail 5c", [] { return chip_register(kTvp7002, 0x14) == -1; }},
    {"i2c_hung", "i2c-hung", [] { return chip_register(kTvp7002, 0x14) == -1; }},
    {"stuck", "stuck 5c 14 55", [] { return chip_register(kTvp7002, 0x14) == 0x55; }},
    {"ghost_standard", "ghost-standard 10",
     [] { return (standard_mask() & (std::uint64_t{1} << 10)) != 0; }},
    {"fpga_fail", "fpga-fail", [] { return GetValue(kRegHwVersion) == 0; }},
    {"fpga_fail_one_request", "fpga-fail 15",
     [] { return SetValue(kRegLatch, 1) != 0 && GetValue(kRegHwVersion) != 0; }},
    {"link_ends", "link-ends", [] { return silent_link_read() == 0; }},
    {"missing_fpga", "missing fpga", [] { return !opens("/dev/fpga"); }},
    {"missing_fpga2", "missing fpga2", [] { return !opens("/dev/fpga2"); }},
    {"missing_spislave", "missing spislave", [] { return !opens("/dev/spislave"); }},
    {"missing_i2c", "missing i2c", [] { return !opens("/dev/i2c-1"); }},
    {"missing_video0", "missing video0", [] { return !opens("/dev/video0"); }},
    {"missing_gpio", "missing gpio", [] { return !opens("/sys/class/gpio/gpio5/value"); }},
    {"nstatus_never", "nstatus never",
     [] {
       pulse_config_line();
       return (config_status() & 2) == 0;
     }},
    {"nstatus_delayed", "nstatus 1",
     [] {
       pulse_config_line();
       const bool late = (config_status() & 2) == 0;
       return late && (config_status() & 2) != 0;
     }},
    {"config_broken", "config-broken",
     [] {
       pulse_config_line();
       return write(fileno(fpga_file), "x", 1) == 1 && (config_status() & 1) == 0;
     }},
    {"short_write", "short-write", [] { return write(fileno(fpga_file), "0123456789", 10) == 9; }},
};

class Fault : public testing::TestWithParam<FaultCase> {};

TEST_P(Fault, is_seen_and_taken_back) {
  const FaultCase& one = GetParam();
  Streaming board;
  board.bench.board().gpio.exported[5] = true;
  EXPECT_FALSE(one.seen()) << "before";
  board.bench.world(std::string("fault ") + one.fault);
  EXPECT_TRUE(one.seen());
  std::string name = one.fault;
  if (name.compare(0, 7, "missing") != 0 && name.compare(0, 8, "i2c-fail") != 0)
    name = name.substr(0, name.find(' '));
  board.bench.world("fault " + name + " off");
  EXPECT_FALSE(one.seen()) << "behind 'off'";
}

TEST_P(Fault, is_mended_with_all_others) {
  const FaultCase& one = GetParam();
  Streaming board;
  board.bench.board().gpio.exported[5] = true;
  board.bench.world(std::string("fault ") + one.fault);
  board.bench.world("faults clear");
  EXPECT_FALSE(one.seen());
}

TEST_P(Fault, leaves_nothing_behind_in_the_world) {
  Bench bench;
  const auto before = std::make_unique<std::array<unsigned char, sizeof(World)>>();
  memcpy(before->data(), &bench.board().world, sizeof(World));
  bench.world(std::string("fault ") + GetParam().fault);
  bench.world("faults clear");
  // A record of what was stuck stays after its count.
  memset(static_cast<void*>(bench.board().world.faults.stuck), 0, sizeof Faults::stuck);
  Faults fresh;
  memcpy(before->data() + offsetof(World, faults) + offsetof(Faults, stuck),
         bench.board().world.faults.stuck, sizeof fresh.stuck);
  EXPECT_EQ(memcmp(before->data(), &bench.board().world, sizeof(World)), 0);
}

TEST_P(Fault, is_told_as_it_was_said_until_it_is_mended) {
  const std::string said = GetParam().fault;
  Bench bench;
  bench.world("fault " + said);
  const std::string told = said == "ac3-frame-code" ? "ac3-frame-code 38" : said;
  EXPECT_EQ(faults_on(bench.board()), std::vector<std::string>{told});
  bench.world("faults clear");
  EXPECT_TRUE(faults_on(bench.board()).empty());
}

INSTANTIATE_TEST_SUITE_P(each, Fault, testing::ValuesIn(kFaultCases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(Faults, each_of_the_table_has_its_case) {
  std::set<std::string> tested = {"encode-crash"};
  for (const FaultCase& one : kFaultCases) {
    const std::string words = one.fault;
    tested.insert(words.substr(0, words.find(' ')));
  }
  std::set<std::string> listed;
  for (const WorldFault& one : world_faults()) listed.insert(one.name);
  EXPECT_EQ(tested, listed);
}

TEST(Faults, encode_crash_ends_the_process) {
  for (const char* words : {"fault encode-crash", "encode crash"}) {
    Streaming board;
    EXPECT_NE(board.bench.board().encoder.pid, 0);
    board.bench.world(words);
    usleep(1);
    EXPECT_EQ(board.bench.board().encoder.pid, 0);
    EXPECT_FALSE(board.bench.board().encoder.streaming);
    board.launch();
    EXPECT_TRUE(video_units_move());
  }
}

TEST(Faults, several_are_told_in_the_order_of_the_table) {
  Bench bench;
  for (const char* one : {"missing i2c", "missing fpga2", "stuck 70 13 0", "ghost-standard 63",
                          "ghost-standard 3", "fpga-fail 83", "fpga-fail", "stall"})
    bench.world(std::string("fault ") + one);
  const std::vector<std::string> told = {
      "stall",     "stuck 70 13 00", "ghost-standard 3", "ghost-standard 63",
      "fpga-fail", "fpga-fail 83",   "missing fpga2",    "missing i2c"};
  EXPECT_EQ(faults_on(bench.board()), told);
}

TEST(Faults, firmware_that_was_loaded_again_is_not_told_as_lost) {
  Bench bench;
  bench.world("fault dsp-no-firmware");
  bench.board().dsp.has_firmware = true;  // as the end of a download leaves it
  EXPECT_TRUE(faults_on(bench.board()).empty());
}

TEST(Faults, i2c_fail_counts_transfers) {
  Bench bench;
  bench.world("fault i2c-fail 5c 2");
  EXPECT_EQ(chip_register(kTvp7002, 0x14), 0xDA);
  EXPECT_EQ(faults_on(bench.board()), std::vector<std::string>{"i2c-fail 5c 1"});
  EXPECT_EQ(chip_register(kTvp7002, 0x14), -1);
  EXPECT_TRUE(faults_on(bench.board()).empty());
  EXPECT_EQ(chip_register(kTvp7002, 0x14), 0xDA);
}

TEST(Faults, i2c_fail_concerns_one_address) {
  Bench bench;
  bench.world("fault i2c-fail 0x5C");
  EXPECT_EQ(chip_register(kTvp7002, 0x14), -1);
  EXPECT_EQ(chip_register(kDix4192, 0x13), 3);
}

TEST(Faults, video_loss_gives_the_lost_source_back) {
  Bench bench;
  bench.world("source vga");
  bench.world("fault video-loss");
  bench.world("fault video-loss");  // twice: still remembers
  bench.world("fault video-loss off");
  EXPECT_EQ(bench.board().world.video, VideoSource::kVga);
}

TEST(Faults, source_plugged_in_during_a_loss_stays) {
  Bench bench;
  bench.world("fault video-loss");
  bench.world("source composite");
  bench.world("fault video-loss off");
  EXPECT_EQ(bench.board().world.video, VideoSource::kComposite);
}

TEST(Faults, audio_loss_gives_the_lost_source_back) {
  Bench bench;
  bench.world("audio dsp");
  bench.world("fault audio-loss");
  EXPECT_EQ(bench.board().world.audio, AudioSource::kNone);
  bench.world("fault audio-loss off");
  EXPECT_EQ(bench.board().world.audio, AudioSource::kDsp);
}

// ---- operations ----------------------------------------------------------------------

TEST(Source, decides_which_chip_sees_sync) {
  Bench bench;
  bench.world("source component");
  EXPECT_EQ(chip_register(kTvp7002, 0x14), 0xDA);
  EXPECT_EQ(chip_register(0x5D, 0x88) & 0x06, 0);
  bench.world("source composite");
  EXPECT_EQ(chip_register(kTvp7002, 0x14), 0x0D);
  EXPECT_EQ(chip_register(0x5D, 0x88) & 0x06, 0x06);
  bench.world("source none");
  EXPECT_EQ(chip_register(0x5D, 0x88) & 0x06, 0);
  EXPECT_EQ(standard_mask(), 0u);
}

TEST(SetStandard, each_name_reports_its_bit_and_rate) {
  fpga_file = nullptr;
  for (const VideoStandard& one : world_standards()) {
    Bench bench;
    fpga_file = fopen("/dev/fpga", "r+b");
    bench.world((one.senders & sender(VideoSource::kVga)) != 0 ? "source vga" : "source component");
    bench.world(std::string("set-standard ") + one.name);
    bench.set_up();
    EXPECT_EQ(standard_mask(), one.bit == kNoStandardBit ? 0 : std::uint64_t{1} << one.bit)
        << one.name;
    const int low = after_latch(kRegVsRateLow);
    const int rate = static_cast<int>(GetValue(kRegVsRateLow + 4)) << 16 | low;
    // rate = 1 440 000 / frames per second, cut
    EXPECT_EQ(rate, static_cast<int>(1440000000.0 / one.fps_milli)) << one.name;
    fclose(fpga_file);
    fpga_file = nullptr;
  }
}

TEST(SetStandard, takes_a_frame_rate) {
  Bench bench;
  bench.world("set-standard 59.94");
  EXPECT_EQ(bench.board().world.fps_milli, 59940u);
}

TEST(Audio, describes_the_stream) {
  Bench bench;
  bench.world("audio dsp bitrate=640,rate=32 acmod=2 bsid=6,bsmod=1,surround=1,langcode=9");
  const Ac3Stream& stream = bench.board().world.ac3;
  EXPECT_EQ(bench.board().world.audio, AudioSource::kDsp);
  EXPECT_EQ(stream.frmsizecod, 36);  // 640 is the 19th rate: 2 x 18
  EXPECT_EQ(stream.fscod, 2);
  EXPECT_EQ(stream.acmod, 2);
  EXPECT_EQ(stream.bsid, 6);
  EXPECT_EQ(stream.bsmod, 1);
  EXPECT_EQ(stream.surround, 1);
  EXPECT_EQ(stream.langcode, 9);
}

TEST(Audio, list_may_stand_behind_its_option) {
  Bench bench;
  bench.world("audio digital --ac3 bitrate=192,rate=44.1");
  EXPECT_EQ(bench.board().world.ac3.frmsizecod, 20);  // 192 is the 11th rate: 2 x 10
  EXPECT_EQ(bench.board().world.ac3.fscod, 1);
  bench.world("audio digital --ac3 frmsizecod=38");
  EXPECT_EQ(bench.board().world.ac3.frmsizecod, 38);
}

TEST(Audio, frame_code_fault_is_38_unless_named) {
  Streaming board;
  const auto captured_code = [] {
    SetValue(kRegAudioMode, kCaptureMode);
    SetValue(kRegAc3Control, 0x4011);
    return GetValue(kRegAc3Word2) & 0x3F;  // first byte of the swapped word: fscod, code
  };
  EXPECT_EQ(captured_code(), 28u);  // 384 kbit/s
  board.bench.world("fault ac3-frame-code");
  EXPECT_EQ(captured_code(), 38u);
  board.bench.world("fault ac3-frame-code 63");
  EXPECT_EQ(captured_code(), 63u);
  board.bench.world("fault ac3-frame-code off");
  EXPECT_EQ(captured_code(), 28u);
}

TEST(Captions, switch_on_and_off) {
  Bench bench;
  bench.world("source composite");
  bench.world("captions on");
  bench.set_up();
  EXPECT_EQ(chip_register(0x5D, 0xC6), 0x18);
  bench.world("captions off");
  EXPECT_EQ(chip_register(0x5D, 0xC6), 0x40);
}

// ---- refusals ------------------------------------------------------------------------

struct Refusal {
  const char* name;
  const char* command;
  const char* reason;  // how the message begins
};
void PrintTo(const Refusal& one, std::ostream* out) { *out << one.command; }

class Refused : public testing::TestWithParam<Refusal> {};

TEST_P(Refused, says_why_and_changes_nothing) {
  Bench bench;
  const auto before = std::make_unique<std::array<unsigned char, sizeof(World)>>();
  memcpy(before->data(), &bench.board().world, sizeof(World));
  std::string error;
  EXPECT_FALSE(world_command(bench.board(), GetParam().command, error));
  EXPECT_EQ(error.substr(0, strlen(GetParam().reason)), GetParam().reason);
  EXPECT_EQ(memcmp(before->data(), &bench.board().world, sizeof(World)), 0);
}

INSTANTIATE_TEST_SUITE_P(
    operations, Refused,
    testing::Values(
        Refusal{"nothing", "", "no command"}, Refusal{"blanks", " \t ", "no command"},
        Refusal{"unknown_command", "explode", "command 'explode' is none of source, set-standard"},
        Refusal{"source_missing", "source", "source: an argument is missing"},
        Refusal{"source_unknown", "source hdmi",
                "source: source 'hdmi' is none of component, vga, composite, none"},
        Refusal{"source_too_much", "source vga now", "source: 'now' is one too many"},
        Refusal{"standard_missing", "set-standard", "set-standard: an argument is missing"},
        Refusal{"standard_unknown", "set-standard secam", "set-standard: standard 'secam' is none"},
        Refusal{"standard_of_another_plug", "set-standard 1024x768",
                "set-standard: '1024x768' is not what a component source sends"},
        Refusal{"bitstream_of_no_size", "bitstream x", "bitstream: 'x' is no count of bytes"},
        Refusal{"power_cycle_of_something", "power-cycle fpga",
                "power-cycle: 'fpga' is one too many"},
        Refusal{"rate_too_low", "set-standard 0.5", "set-standard: standard '0.5' is none"},
        Refusal{"rate_too_high", "set-standard 241", "set-standard: standard '241' is none"},
        Refusal{"captions_unknown", "captions maybe",
                "captions: captions 'maybe' is none of on, off"},
        Refusal{"audio_missing", "audio", "audio: an argument is missing"},
        Refusal{"audio_unknown", "audio loud", "audio: audio 'loud' is none of digital, dsp, none"},
        Refusal{"audio_no_pair", "audio dsp fast", "audio: 'fast' is not of the form name=value"},
        Refusal{"audio_bitrate", "audio dsp bitrate=300",
                "audio: bitrate '300' is no AC-3 rate in kbit/s"},
        Refusal{"audio_rate", "audio dsp rate=22", "audio: rate '22' is none of 48"},
        Refusal{"audio_range", "audio dsp acmod=8", "audio: acmod '8' is not in 0..7"},
        Refusal{"audio_list_missing", "audio dsp --ac3", "audio: a list is missing behind --ac3"},
        Refusal{"frame_code_range", "fault ac3-frame-code 64", "fault: '64' is not in 0..63"},
        Refusal{"audio_key", "audio dsp pitch=1", "audio: stream value 'pitch' is none of bitrate"},
        Refusal{"encode_unknown", "encode sing", "encode: encode 'sing' is none of crash"},
        Refusal{"fault_missing", "fault", "fault: a fault's name is missing"},
        Refusal{"fault_unknown", "fault fire", "fault: fault 'fire' is none of video-loss"},
        Refusal{"fault_too_much", "fault stall now", "fault: 'now' is one too many"},
        Refusal{"i2c_no_address", "fault i2c-fail 80", "fault: '80' is no 7-bit address"},
        Refusal{"i2c_no_count", "fault i2c-fail 5c 0", "fault: '0' is no count of transfers"},
        Refusal{"fpga_no_request", "fault fpga-fail x", "fault: 'x' is no request number"},
        Refusal{"no_device", "fault missing mouse", "fault: device 'mouse' is none of fpga"},
        Refusal{"no_delay", "fault nstatus soon",
                "fault: 'soon' is neither a count of polls nor 'never'"},
        Refusal{"ghost_out_of_range", "fault ghost-standard 64", "fault: '64' is not in 0..63"},
        Refusal{"faults_unknown", "faults hide", "faults: faults 'hide' is none of clear"}),
    [](const auto& one) { return std::string(one.param.name); });

}  // namespace
