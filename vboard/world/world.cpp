// The world's operations: commands, faults and video standards, each a table.
#include "vboard/world/world.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <optional>

#include "vboard/core/clock.h"
#include "vboard/core/record.h"
#include "vboard/core/sources.h"
#include "vboard/core/text.h"
#include "vboard/models/bus.h"
#include "vboard/models/fpga.h"
#include "vboard/models/needs.h"

namespace vboard {

namespace {

// ---- words ---------------------------------------------------------------------

bool fail(std::string& error, const std::string& reason) {
  error = reason;
  return false;
}

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

template <class T>
std::optional<T> number(std::string_view text, int base) {
  T value{};
  const auto [end, result] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (result != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<int> whole(std::string_view text) { return number<int>(text, 10); }

// "0x5c" and "5c" are the same address.
std::optional<int> address(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  const std::optional<int> value = number<int>(text, 16);
  return value && *value >= 0 && *value < kI2cAddresses ? value : std::nullopt;
}

std::optional<double> decimal(std::string_view text) {
  double value = 0;
  const auto [end, result] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result != std::errc{} || end != text.data() + text.size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

// A row of a table whose `name` is `text`, or null.
template <class Table>
auto* row(const Table& table, std::string_view text) {
  const auto found =
      std::ranges::find(table, text, [](const auto& one) { return std::string_view(one.name); });
  return found == std::ranges::end(table) ? nullptr : &*found;
}

template <class Table>
std::string names(const Table& table) {
  std::string all;
  for (const auto& one : table) all += (all.empty() ? "" : ", ") + std::string(one.name);
  return all;
}

bool one_of(std::string& error, std::string_view what, std::string_view given,
            const std::string& known) {
  return fail(error, std::string(what) + " " + quoted(given) + " is none of " + known);
}

bool expect(std::string& error, const Words& arguments, std::size_t least, std::size_t most) {
  if (arguments.size() < least) return fail(error, "an argument is missing");
  if (arguments.size() > most) return fail(error, quoted(arguments[most]) + " is one too many");
  return true;
}

// ---- video -----------------------------------------------------------------------

constexpr double kLowestFps = 1;
constexpr double kHighestFps = 240;

bool is_pal_rate(std::uint32_t fps_milli) { return fps_milli % 25000 == 0; }

void send_standard(World& world, std::uint8_t standard) {
  const VideoStandard& sent = kVideoStandards[standard];
  world.standard = standard;
  world.standard_bit = sent.bit;
  world.fps_milli = sent.fps_milli;
  world.pal = is_pal_rate(sent.fps_milli);
}

bool can_send(VideoSource source, std::uint8_t standard) {
  return source == VideoSource::kNone || (kVideoStandards[standard].senders & sender(source)) != 0;
}

// A source that cannot send what was sent so far sends what is usual for it.
bool source(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  const auto* chosen = row(kVideoSources, arguments[0]);
  if (chosen == nullptr) return one_of(error, "source", arguments[0], names(kVideoSources));
  World& world = board.world;
  world.video = chosen->value;
  world.faults.lost_video = VideoSource::kNone;
  if (!can_send(world.video, world.standard)) send_standard(world, usual_standard(world.video));
  return true;
}

bool set_standard(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  World& world = board.world;
  if (const VideoStandard* standard = row(kVideoStandards, arguments[0])) {
    const auto index = static_cast<std::uint8_t>(standard - kVideoStandards);
    if (!can_send(world.video, index))
      return fail(error, quoted(arguments[0]) + " is not what a " + source_name(world.video) +
                             " source sends");
    send_standard(world, index);
    return true;
  }
  const std::optional<double> fps = decimal(arguments[0]);
  if (!fps || *fps < kLowestFps || *fps > kHighestFps)
    return one_of(error, "standard", arguments[0], names(kVideoStandards) + ", a frame rate");
  world.fps_milli = static_cast<std::uint32_t>(std::lround(*fps * 1000));
  world.pal = is_pal_rate(world.fps_milli);
  return true;
}

bool captions(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  if (arguments[0] != "on" && arguments[0] != "off")
    return one_of(error, "captions", arguments[0], "on, off");
  board.world.captions = arguments[0] == "on";
  return true;
}

// ---- audio -----------------------------------------------------------------------

constexpr int kBitRates[] = {32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                             192, 224, 256, 320, 384, 448, 512, 576, 640};
constexpr Named<std::uint8_t> kSampleRates[] = {{"48", 0}, {"44.1", 1}, {"44", 1}, {"32", 2}};

// Fields of the stream that are set by number.
struct StreamField {
  const char* name;
  int highest;
  std::uint8_t Ac3Stream::*field;
};
constexpr StreamField kStreamFields[] = {
    {"bsid", 31, &Ac3Stream::bsid},          {"bsmod", 7, &Ac3Stream::bsmod},
    {"acmod", 7, &Ac3Stream::acmod},         {"surround", 3, &Ac3Stream::surround},
    {"langcode", 255, &Ac3Stream::langcode}, {"fscod", 3, &Ac3Stream::fscod},
    {"code", 63, &Ac3Stream::frmsizecod},    {"frmsizecod", 63, &Ac3Stream::frmsizecod},
};
constexpr std::string_view kStreamOption = "--ac3";  // may stand before a list of values

bool set_bit_rate(Ac3Stream& stream, std::string_view value, std::string& error) {
  const auto rate = whole(value);
  const auto* found = std::ranges::find(kBitRates, rate.value_or(0));
  if (found == std::ranges::end(kBitRates))
    return fail(error, "bitrate " + quoted(value) + " is no AC-3 rate in kbit/s");
  stream.frmsizecod = static_cast<std::uint8_t>((found - std::ranges::begin(kBitRates)) * 2);
  return true;
}

bool set_stream_value(Ac3Stream& stream, std::string_view key, std::string_view value,
                      std::string& error) {
  if (key == "bitrate") return set_bit_rate(stream, value, error);
  if (key == "rate") {
    const auto* rate = row(kSampleRates, value);
    if (rate == nullptr) return one_of(error, "rate", value, names(kSampleRates));
    stream.fscod = rate->value;
    return true;
  }
  const StreamField* field = row(kStreamFields, key);
  if (field == nullptr)
    return one_of(error, "stream value", key, "bitrate, rate, " + names(kStreamFields));
  const auto number_given = whole(value);
  if (!number_given || *number_given < 0 || *number_given > field->highest)
    return fail(error, std::string(key) + " " + quoted(value) + " is not in 0.." +
                           std::to_string(field->highest));
  stream.*field->field = static_cast<std::uint8_t>(*number_given);
  return true;
}

bool audio(Board& board, const Words& arguments, std::string& error) {
  if (arguments.empty()) return fail(error, "an argument is missing");
  const auto* chosen = row(kAudioSources, arguments[0]);
  if (chosen == nullptr) return one_of(error, "audio", arguments[0], names(kAudioSources));
  Ac3Stream stream = board.world.ac3;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] == kStreamOption) {
      if (i + 1 == arguments.size()) return fail(error, "a list is missing behind --ac3");
      continue;
    }
    for (const std::string_view pair : words_of(arguments[i], ",")) {
      const std::size_t equals = pair.find('=');
      if (equals == std::string_view::npos)
        return fail(error, quoted(pair) + " is not of the form name=value");
      if (!set_stream_value(stream, pair.substr(0, equals), pair.substr(equals + 1), error))
        return false;
    }
  }
  board.world.audio = chosen->value;
  board.world.ac3 = stream;
  board.world.faults.lost_audio = AudioSource::kNone;
  ac3_capture_restart(board, board_now_us());
  return true;
}

// ---- encode ----------------------------------------------------------------------

bool crash_encode(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  if (board.encoder.pid == 0) return fail(error, "encode does not run");
  board.encoder.crash_requested = true;  // it dies by itself, at its next look
  return true;
}

bool encode(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  if (arguments[0] != "crash") return one_of(error, "encode", arguments[0], "crash");
  return crash_encode(board, {}, error);
}

// ---- faults ----------------------------------------------------------------------

using Told = std::vector<std::string>;

// A fault without arguments tells an empty text while it is on.
Told told_if(bool on) { return on ? Told{""} : Told{}; }

std::string hexadecimal(int value) {
  char text[8];
  snprintf(text, sizeof text, "%02x", static_cast<unsigned>(value));
  return text;
}

// A fault that is one flag.
template <bool Faults::*flag>
bool raise(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  board.world.faults.*flag = true;
  return true;
}
template <bool Faults::*flag>
bool lower(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  board.world.faults.*flag = false;
  return true;
}
template <bool Faults::*flag>
Told tell(const Board& board) {
  return told_if(board.world.faults.*flag);
}

template <bool FpgaState::*flag>
bool raise(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  board.fpga.*flag = true;
  return true;
}
template <bool FpgaState::*flag>
bool lower(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  board.fpga.*flag = false;
  return true;
}
template <bool FpgaState::*flag>
Told tell(const Board& board) {
  return told_if(board.fpga.*flag);
}

bool lose_video(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  World& world = board.world;
  if (world.video != VideoSource::kNone) world.faults.lost_video = world.video;
  world.video = VideoSource::kNone;
  return true;
}
bool return_video(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  Faults& faults = board.world.faults;
  if (faults.lost_video != VideoSource::kNone) board.world.video = faults.lost_video;
  faults.lost_video = VideoSource::kNone;
  return true;
}
Told tell_video(const Board& board) {
  return told_if(board.world.faults.lost_video != VideoSource::kNone);
}

bool lose_audio(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  World& world = board.world;
  if (world.audio != AudioSource::kNone) world.faults.lost_audio = world.audio;
  world.audio = AudioSource::kNone;
  return true;
}
bool return_audio(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  Faults& faults = board.world.faults;
  if (faults.lost_audio != AudioSource::kNone) {
    board.world.audio = faults.lost_audio;
    ac3_capture_restart(board, board_now_us());
  }
  faults.lost_audio = AudioSource::kNone;
  return true;
}
Told tell_audio(const Board& board) {
  return told_if(board.world.faults.lost_audio != AudioSource::kNone);
}

constexpr int kFirstCodeBeyondTable = 38;  // rows 0 to 37 are the table of frame sizes
constexpr int kHighestFrameCode = 63;

bool break_frame_code(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 1)) return false;
  const auto code = arguments.empty() ? std::optional(kFirstCodeBeyondTable) : whole(arguments[0]);
  if (!code || *code < 0 || *code > kHighestFrameCode)
    return fail(error, quoted(arguments[0]) + " is not in 0..63");
  board.world.faults.ac3_frame_code = *code;
  return true;
}
bool mend_frame_code(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 1)) return false;
  board.world.faults.ac3_frame_code = -1;
  return true;
}
Told tell_frame_code(const Board& board) {
  const std::int32_t code = board.world.faults.ac3_frame_code;
  return code < 0 ? Told{} : Told{std::to_string(code)};
}

bool lose_firmware(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  Ac3DspState& dsp = board.dsp;
  if (dsp.has_firmware) board.world.faults.lost_firmware = true;
  dsp.has_firmware = false;
  dsp.running = false;
  return true;
}
bool return_firmware(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  Faults& faults = board.world.faults;
  if (faults.lost_firmware) board.dsp.has_firmware = true;
  faults.lost_firmware = false;
  return true;
}
// Firmware that was loaded since is no loss any more.
Told tell_firmware(const Board& board) {
  return told_if(board.world.faults.lost_firmware && !board.dsp.has_firmware);
}

bool fail_i2c(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 2)) return false;
  const auto chip = address(arguments[0]);
  if (!chip) return fail(error, quoted(arguments[0]) + " is no 7-bit address");
  int countdown = -1;
  if (arguments.size() == 2) {
    countdown = whole(arguments[1]).value_or(0);
    if (countdown < 1) return fail(error, quoted(arguments[1]) + " is no count of transfers");
  }
  board.world.faults.i2c_fail[*chip] = countdown;
  return true;
}
bool mend_i2c(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 1)) return false;
  Faults& faults = board.world.faults;
  if (arguments.empty()) {
    std::ranges::fill(faults.i2c_fail, 0);
    return true;
  }
  const auto chip = address(arguments[0]);
  if (!chip) return fail(error, quoted(arguments[0]) + " is no 7-bit address");
  faults.i2c_fail[*chip] = 0;
  return true;
}
Told tell_i2c(const Board& board) {
  Told all;
  for (int chip = 0; chip < kI2cAddresses; ++chip) {
    const std::int32_t countdown = board.world.faults.i2c_fail[chip];
    if (countdown == 0) continue;
    all.push_back(hexadecimal(chip) + (countdown > 0 ? " " + std::to_string(countdown) : ""));
  }
  return all;
}

// Two hexadecimal digits, with or without "0x".
std::optional<std::uint8_t> hex_byte(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  return number<std::uint8_t>(text, 16);
}

bool stick_register(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 3, 3)) return false;
  const auto chip = address(arguments[0]);
  const auto reg = hex_byte(arguments[1]);
  const auto value = hex_byte(arguments[2]);
  if (!chip) return fail(error, quoted(arguments[0]) + " is no 7-bit address");
  if (!reg) return fail(error, quoted(arguments[1]) + " is no register");
  if (!value) return fail(error, quoted(arguments[2]) + " is no byte");
  Faults& faults = board.world.faults;
  StuckRegister* const end = faults.stuck + faults.stuck_count;
  StuckRegister* const found = std::find_if(faults.stuck, end, [&](const StuckRegister& one) {
    return one.address == *chip && one.reg == *reg;
  });
  if (found == end && faults.stuck_count == kStuckRegisters)
    return fail(error, "no more registers can be stuck");
  if (found == end) ++faults.stuck_count;
  *found = {static_cast<std::uint8_t>(*chip), *reg, *value};
  return true;
}
bool free_registers(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  board.world.faults.stuck_count = 0;
  return true;
}
Told tell_registers(const Board& board) {
  const Faults& faults = board.world.faults;
  Told all;
  for (std::uint32_t i = 0; i < faults.stuck_count; ++i) {
    const StuckRegister& one = faults.stuck[i];
    all.push_back(hexadecimal(one.address) + " " + hexadecimal(one.reg) + " " +
                  hexadecimal(one.value));
  }
  return all;
}

constexpr int kHighestStandardBit = 63;

bool add_ghost_standard(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  const auto bit = whole(arguments[0]);
  if (!bit || *bit < 0 || *bit > kHighestStandardBit)
    return fail(error, quoted(arguments[0]) + " is not in 0..63");
  board.world.faults.ghost_standards |= std::uint64_t{1} << *bit;
  return true;
}
bool drop_ghost_standards(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  board.world.faults.ghost_standards = 0;
  return true;
}
Told tell_ghost_standards(const Board& board) {
  Told all;
  for (int bit = 0; bit <= kHighestStandardBit; ++bit)
    if ((board.world.faults.ghost_standards >> bit & 1) != 0) all.push_back(std::to_string(bit));
  return all;
}

bool fail_fpga(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 1)) return false;
  Faults& faults = board.world.faults;
  if (arguments.empty()) {
    faults.fpga_fail = true;
    return true;
  }
  const auto request = whole(arguments[0]);
  if (!request || *request < 0) return fail(error, quoted(arguments[0]) + " is no request number");
  faults.fpga_fail_request = *request;
  return true;
}
bool mend_fpga(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 1)) return false;
  board.world.faults.fpga_fail = false;
  board.world.faults.fpga_fail_request = -1;
  return true;
}
Told tell_fpga(const Board& board) {
  const Faults& faults = board.world.faults;
  Told all = told_if(faults.fpga_fail);
  if (faults.fpga_fail_request >= 0) all.push_back(std::to_string(faults.fpga_fail_request));
  return all;
}

constexpr Named<Device> kDevices[] = {
    {"fpga", Device::kFpga}, {"fpga2", Device::kFpga2},   {"spislave", Device::kSpiSlave},
    {"i2c", Device::kI2c},   {"video0", Device::kVideo0}, {"gpio", Device::kGpioValue},
};

bool remove_device(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  const auto* device = row(kDevices, arguments[0]);
  if (device == nullptr) return one_of(error, "device", arguments[0], names(kDevices));
  board.world.faults.missing_devices |= 1u << static_cast<unsigned>(device->value);
  return true;
}
bool return_device(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 1)) return false;
  std::uint32_t& missing = board.world.faults.missing_devices;
  if (arguments.empty()) {
    missing = 0;
    return true;
  }
  const auto* device = row(kDevices, arguments[0]);
  if (device == nullptr) return one_of(error, "device", arguments[0], names(kDevices));
  missing &= ~(1u << static_cast<unsigned>(device->value));
  return true;
}
Told tell_devices(const Board& board) {
  Told all;
  for (const auto& device : kDevices)
    if ((board.world.faults.missing_devices >> static_cast<unsigned>(device.value) & 1) != 0)
      all.emplace_back(device.name);
  return all;
}

bool delay_nstatus(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  const auto delay = arguments[0] == "never" ? std::optional(-1) : whole(arguments[0]);
  if (!delay || *delay < -1)
    return fail(error, quoted(arguments[0]) + " is neither a count of polls nor 'never'");
  board.fpga.nstatus_delay = *delay;
  return true;
}
bool restore_nstatus(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 1)) return false;
  board.fpga.nstatus_delay = 0;
  return true;
}
Told tell_nstatus(const Board& board) {
  const int delay = board.fpga.nstatus_delay;
  if (delay == 0) return {};
  return {delay < 0 ? "never" : std::to_string(delay)};
}

// ---- the board's own power, its configuration memory ----------------------------------

// What a device was told is gone, the DSP's firmware too; the world stays.
bool power_cycle(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 0, 0)) return false;
  const FpgaState before = board.fpga;
  board.fpga = FpgaState{};
  board.fpga.updated_us = before.updated_us;
  board.fpga.config_broken = before.config_broken;
  board.fpga.config_short_write = before.config_short_write;
  board.fpga.config_size = before.config_size;
  board.fpga.nstatus_delay = before.nstatus_delay;
  board.tvp7002 = Tvp7002State{};
  board.tvp5150 = Tvp5150State{};
  board.capture = CaptureState{};
  board.dsp = Ac3DspState{};
  board.dsp.has_firmware = false;
  board.ac3_capture = Ac3CaptureState{};
  board.chip7353 = SmallChipState{};
  board.clock_55 = SmallChipState{};
  board.pll = PllState{};
  audio_line(board, false);
  audio_line(board, true);
  return true;
}

bool size_bitstream(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  const auto size = whole(arguments[0]);
  if (!size || *size < 0) return fail(error, quoted(arguments[0]) + " is no count of bytes");
  board.fpga.config_size = static_cast<std::uint32_t>(*size);
  return true;
}

// A new process comes with the next launch; there is nothing to take back.
bool nothing_to_undo(Board&, const Words& arguments, std::string& error) {
  return expect(error, arguments, 0, 0);
}
Told nothing_to_tell(const Board&) { return {}; }

using F = Faults;

constexpr WorldFault kFaults[] = {
    {"video-loss", "", "the video plug is pulled", lose_video, return_video, tell_video},
    {"video-freeze", "", "sync is gone and the picture readings stand still",
     raise<&F::video_freeze>, lower<&F::video_freeze>, tell<&F::video_freeze>},
    {"video-overflow", "", "the video buffer level is beyond its limit", raise<&F::video_overflow>,
     lower<&F::video_overflow>, tell<&F::video_overflow>},
    {"audio-loss", "", "the audio plug is pulled", lose_audio, return_audio, tell_audio},
    {"audio-overflow", "", "the audio buffer level is beyond its limit", raise<&F::audio_overflow>,
     lower<&F::audio_overflow>, tell<&F::audio_overflow>},
    {"stall", "", "the video buffer stops moving at its level", raise<&F::stall>, lower<&F::stall>,
     tell<&F::stall>},
    {"low-buffer", "", "the video buffer never fills", raise<&F::low_buffer>, lower<&F::low_buffer>,
     tell<&F::low_buffer>},
    {"level-jump", "", "the video buffer settles at another level", raise<&F::level_jump>,
     lower<&F::level_jump>, tell<&F::level_jump>},
    {"video-drift", "", "frames are lost on the way into the video buffer", raise<&F::video_drift>,
     lower<&F::video_drift>, tell<&F::video_drift>},
    {"audio-drift", "", "AC-3 frames are lost on the way into the audio buffer",
     raise<&F::audio_drift>, lower<&F::audio_drift>, tell<&F::audio_drift>},
    {"encode-crash", "", "encode dies at once", crash_encode, nothing_to_undo, nothing_to_tell},
    {"encode-hang", "", "encode lives and does nothing", raise<&F::encode_hang>,
     lower<&F::encode_hang>, tell<&F::encode_hang>},
    {"encode-never-alive", "", "encode starts and never reports itself alive",
     raise<&F::encode_never_alive>, lower<&F::encode_never_alive>, tell<&F::encode_never_alive>},
    {"no-ac3-sync", "", "the FPGA never captures an AC-3 frame", raise<&F::no_ac3_sync>,
     lower<&F::no_ac3_sync>, tell<&F::no_ac3_sync>},
    {"wrong-ac3-sync", "", "captured AC-3 frames lack the sync word", raise<&F::wrong_ac3_sync>,
     lower<&F::wrong_ac3_sync>, tell<&F::wrong_ac3_sync>},
    {"ac3-frame-code", "[CODE]", "captured AC-3 frames carry this frame-size code: 38, or CODE",
     break_frame_code, mend_frame_code, tell_frame_code},
    {"dsp-dead", "", "the DSP answers nothing and takes no firmware", raise<&F::dsp_dead>,
     lower<&F::dsp_dead>, tell<&F::dsp_dead>},
    {"dsp-no-firmware", "", "the DSP has lost its firmware", lose_firmware, return_firmware,
     tell_firmware},
    {"dsp-fifo-stuck", "", "the firmware FIFO never drains", raise<&F::dsp_fifo_stuck>,
     lower<&F::dsp_fifo_stuck>, tell<&F::dsp_fifo_stuck>},
    {"i2c-fail", "ADDR [N]", "transfers to the chip at ADDR fail: all, or the N-th from now",
     fail_i2c, mend_i2c, tell_i2c},
    {"i2c-hung", "", "a line of the I2C bus is held low: every transfer times out",
     raise<&F::i2c_hung>, lower<&F::i2c_hung>, tell<&F::i2c_hung>},
    {"stuck", "ADDR REG VALUE", "register REG of the chip at ADDR answers VALUE for ever",
     stick_register, free_registers, tell_registers},
    {"ghost-standard", "BIT", "the capture driver reports one standard bit too many",
     add_ghost_standard, drop_ghost_standards, tell_ghost_standards},
    {"fpga-fail", "[REQUEST]", "requests of the FPGA driver fail: all, or this number", fail_fpga,
     mend_fpga, tell_fpga},
    {"link-ends", "", "a read of the link that finds nothing ends with 0 bytes, not with EAGAIN",
     raise<&F::link_ends>, lower<&F::link_ends>, tell<&F::link_ends>},
    {"missing", "DEVICE", "the device node is gone: fpga fpga2 spislave i2c video0 gpio",
     remove_device, return_device, tell_devices},
    {"nstatus", "DELAY|never", "the configuration port shows nSTATUS after DELAY polls",
     delay_nstatus, restore_nstatus, tell_nstatus},
    {"config-broken", "", "loading a bitstream never reaches done",
     raise<&FpgaState::config_broken>, lower<&FpgaState::config_broken>,
     tell<&FpgaState::config_broken>},
    {"short-write", "", "the configuration port takes one byte less",
     raise<&FpgaState::config_short_write>, lower<&FpgaState::config_short_write>,
     tell<&FpgaState::config_short_write>},
};

bool fault(Board& board, const Words& arguments, std::string& error) {
  if (arguments.empty()) return fail(error, "a fault's name is missing");
  const WorldFault* chosen = row(kFaults, arguments[0]);
  if (chosen == nullptr) return one_of(error, "fault", arguments[0], names(kFaults));
  Words rest(arguments.begin() + 1, arguments.end());
  const bool off = !rest.empty() && rest.back() == "off";
  if (off) rest.pop_back();
  return off ? chosen->clear(board, rest, error) : chosen->set(board, rest, error);
}

bool faults(Board& board, const Words& arguments, std::string& error) {
  if (!expect(error, arguments, 1, 1)) return false;
  if (arguments[0] != "clear") return one_of(error, "faults", arguments[0], "clear");
  bool done = true;
  for (const WorldFault& one : kFaults) done = one.clear(board, {}, error) && done;
  return done;
}

constexpr WorldCommand kCommands[] = {
    {"source", "component|vga|composite|none", "plug a video source in, or pull it", "source vga",
     source},
    {"set-standard", "NAME|FPS", "what the video source sends, by name or frames per second",
     "set-standard 720p60", set_standard},
    {"captions", "on|off", "closed captions in the composite signal", "captions on", captions},
    {"audio", "digital|dsp|none [--ac3 bitrate=KBPS,rate=KHZ,acmod=N,bsid=N,...]",
     "plug an audio source in, or pull it; describe its AC-3 stream",
     "audio dsp bitrate=192,rate=48", audio},
    {"power-cycle", "", "devices lose what they were told, the DSP its firmware", "power-cycle",
     power_cycle},
    {"bitstream", "BYTES", "the FPGA's bitstream has this size: done shows when all of it is in",
     "bitstream 510856", size_bitstream},
    {"encode", "crash", "kill the running encode", "encode crash", encode},
    {"fault", "NAME [ARGUMENTS] [off]", "inject a fault, or remove it", "fault i2c-fail 5c", fault},
    {"faults", "clear", "remove all faults", "faults clear", faults},
};

}  // namespace

std::span<const WorldCommand> world_commands() { return kCommands; }
std::span<const WorldFault> world_faults() { return kFaults; }
std::span<const VideoStandard> world_standards() { return kVideoStandards; }

std::vector<std::string> faults_on(const Board& board) {
  std::vector<std::string> all;
  for (const WorldFault& one : kFaults)
    for (const std::string& arguments : one.tell(board))
      all.push_back(arguments.empty() ? one.name : one.name + (" " + arguments));
  return all;
}

bool world_command(Board& board, std::string_view line, std::string& error) {
  error.clear();
  Words words = words_of(line);
  if (words.empty()) return fail(error, "no command");
  const WorldCommand* command = row(kCommands, words[0]);
  if (command == nullptr) return one_of(error, "command", words[0], names(kCommands));
  words.erase(words.begin());
  // What has passed so far went by the old world.
  fpga_advance(board, board_now_us());
  if (command->run(board, words, error)) {
    set_up_changed(board);
    capture_follow_standard(board);
    record(board, kWorldActs, std::string(line));
    return true;
  }
  error = std::string(command->name) + ": " + error;
  return false;
}

}  // namespace vboard
