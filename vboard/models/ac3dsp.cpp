// The AC-3 DSP: its command protocol over I2C, and its firmware, which comes in
// through the SPI master of the FPGA. Without firmware, in reset or while it
// starts it does not acknowledge.
//
// The firmware survives the reset line: only a push replaces it.
#include <algorithm>
#include <cstring>

#include "vboard/core/clock.h"
#include "vboard/models/ac3_table.h"
#include "vboard/models/bus.h"
#include "vboard/models/needs.h"

namespace vboard {

namespace {

constexpr const char* kName = "ac3dsp";

// First byte of a write message.
enum Command : std::uint8_t {
  kReadStatus = 0x00,
  kConfigure = 0x01,
  kStart = 0x02,
  kStop = 0x04,
  kReset = 0x08,
  kWriteCodec = 0x10,
  kReadCodec = 0x20,
  kReadPeak = 0x40,
  kReadVersion = 0x80,
  kReadPeakRightLeft = 0x90,
};

struct Frame {
  Command command;
  std::size_t size;
  bool answers;
};
constexpr Frame kFrames[] = {
    {kReadStatus, 2, true},  {kConfigure, 8, false},
    {kStart, 1, false},      {kStop, 1, false},
    {kReset, 1, false},      {kWriteCodec, 4, false},
    {kReadCodec, 2, true},   {kReadPeak, 2, true},
    {kReadVersion, 2, true}, {kReadPeakRightLeft, 2, true},
};
constexpr std::size_t kLongestFrame = 8;
constexpr std::uint8_t kNothingPending = 0xFF;

constexpr std::uint8_t kStatusRunning = 1;
constexpr std::uint8_t kStatusConfigured = 2;

// The peak stream: a marker, then the left and the right level, low byte first.
constexpr std::uint8_t kPeakMarker = 0xAB;
constexpr std::uint32_t kPeakPeriod = 9;

constexpr std::int64_t kStartUp_us = 50000;      // after reset or a push, until it answers
constexpr std::int64_t kBootRomReady_us = 5000;  // after reset, until it takes firmware

constexpr std::int64_t kReply_us = 10;

// When a message of so many bytes is over that begins now. On a clock that runs by
// itself it already is.
std::int64_t sent_us(const Board& board, std::int64_t now_us, std::size_t size) {
  if (board.clock.mode != TimeMode::kVirtual) return now_us;
  const i2c_msg message = {0, 0, static_cast<std::uint16_t>(size), nullptr};
  return now_us + i2c_transfer_cost(board, &message, 1);
}

// The codec's line inputs, left and right: gain in steps of 1.5 dB, 0 dB at 23.
constexpr std::uint16_t kCodecMute = 0x80;

std::uint32_t told_bits_per_second(const Ac3DspState& dsp) {
  const std::uint8_t* const rate = dsp.configure + 3;
  return std::uint32_t{rate[0]} | std::uint32_t{rate[1]} << 8 | std::uint32_t{rate[2]} << 16 |
         std::uint32_t{rate[3]} << 24;
}

bool not_configured(const Board& board) {
  return std::ranges::all_of(board.dsp.configure, [](auto byte) { return byte == 0; });
}

constexpr Need kNeeds[] = {
    {"held in reset", [](const Board& board) { return board.dsp.in_reset; }},
    {"no firmware", [](const Board& board) { return !board.dsp.has_firmware; }},
    {"not configured", not_configured},
    {"told a rate that AC-3 has not",
     [](const Board& board) {
       return !not_configured(board) && ac3_rate_row(told_bits_per_second(board.dsp)) < 0;
     }},
    {"encoding is off",
     [](const Board& board) {
       return !not_configured(board) && (board.dsp.configure[0] & 1) == 0;
     }},
    {"not started", [](const Board& board) { return !board.dsp.running; }},
    {"answers nothing", [](const Board& board) { return board.world.faults.dsp_dead; }},
    {"left input muted", [](const Board& board) { return (board.dsp.codec[0] & kCodecMute) != 0; },
     true},
    {"right input muted", [](const Board& board) { return (board.dsp.codec[1] & kCodecMute) != 0; },
     true},
};

const Frame* frame_of(std::uint8_t command) {
  for (const Frame& frame : kFrames) {
    if (frame.command == command) return &frame;
  }
  return nullptr;
}

bool answers(const Board& board, std::int64_t now_us) {
  const Ac3DspState& dsp = board.dsp;
  return dsp.has_firmware && !dsp.in_reset && !dsp.loading && now_us >= dsp.ready_us &&
         !board.world.faults.dsp_dead;
}

void forget_settings(Ac3DspState& dsp) {
  dsp.running = false;
  std::ranges::fill(dsp.configure, std::uint8_t{0});
  std::ranges::fill(dsp.codec, std::uint16_t{0});
  dsp.codec[0] = dsp.codec[1] = kCodecInputAtPowerOn;
  dsp.pending_command = kNothingPending;
  dsp.peak_index = 0;
}

void run(Board& board, std::int64_t now_us, const Frame& frame,
         const std::uint8_t (&data)[kLongestFrame]) {
  Ac3DspState& dsp = board.dsp;
  switch (frame.command) {
    case kConfigure:
      std::copy(data + 1, data + kLongestFrame, dsp.configure);
      break;
    case kStart:
      dsp.running = true;
      break;
    case kStop:
      dsp.running = false;
      break;
    case kReset:
      forget_settings(dsp);
      break;
    case kWriteCodec:
      dsp.codec[data[1]] = static_cast<std::uint16_t>(data[2] | data[3] << 8);
      break;
    default:  // reads: the answer is fetched by the read message that follows
      dsp.pending_command = frame.command;
      dsp.pending_register = data[1];
      dsp.reply_us = sent_us(board, now_us, frame.size) + kReply_us;
      break;
  }
}

bool chip_write(Board& board, std::int64_t now_us, const std::uint8_t* data, std::size_t size) {
  Ac3DspState& dsp = board.dsp;
  if (!answers(board, now_us)) return false;
  const Frame* frame = size == 0 ? nullptr : frame_of(data[0]);
  if (frame == nullptr) {
    violation(board, "%s command %02x of %zu bytes", kName, size == 0 ? 0u : unsigned{data[0]},
              size);
    return true;
  }
  if (size != frame->size)
    violation(board, "%s command %02x of %zu bytes", kName, unsigned{data[0]}, size);
  else if (frame->answers && frame->command != kReadCodec && data[1] != 0)
    violation(board, "%s command %02x with %02x", kName, unsigned{data[0]}, unsigned{data[1]});
  std::uint8_t whole[kLongestFrame] = {};
  memcpy(whole, data, std::min(size, kLongestFrame));
  ++dsp.commands;
  run(board, now_us, *frame, whole);
  return true;
}

bool hears_source(const Board& board) {
  return board.dsp.running && board.world.audio == AudioSource::kDsp;
}

std::uint8_t next_peak_byte(Board& board) {
  Ac3DspState& dsp = board.dsp;
  const std::uint32_t at = dsp.peak_index;
  dsp.peak_index = (at + 1) % kPeakPeriod;
  if (at == 0) return kPeakMarker;
  if (!hears_source(board)) return 0;
  const std::uint32_t level = at <= 4 ? dsp.peak_left : dsp.peak_right;
  return static_cast<std::uint8_t>(level >> 8 * ((at - 1) % 4));
}

std::uint8_t status(const Ac3DspState& dsp) {
  const bool configured = std::ranges::any_of(dsp.configure, [](auto byte) { return byte != 0; });
  return static_cast<std::uint8_t>((dsp.running ? kStatusRunning : 0) |
                                   (configured ? kStatusConfigured : 0));
}

std::uint8_t answer(Board& board) {
  const Ac3DspState& dsp = board.dsp;
  switch (dsp.pending_command) {
    case kReadStatus:
      return status(dsp);
    case kReadCodec:
      return static_cast<std::uint8_t>(dsp.codec[dsp.pending_register]);
    case kReadPeak:
      return next_peak_byte(board);
    case kReadVersion:
      return dsp.version;
    case kReadPeakRightLeft:
      return hears_source(board) ? static_cast<std::uint8_t>(dsp.peak_left >> 16) : std::uint8_t{0};
    default:
      violation(board, "%s read without a command", kName);
      return 0;
  }
}

bool chip_read(Board& board, std::int64_t now_us, std::uint8_t* data, std::size_t size) {
  if (!answers(board, now_us)) return false;
  // The reply stands when the DSP has made it.
  if (now_us < board.dsp.reply_us) {
    violation(board, "%s read before its reply", kName);
    std::fill_n(data, size, std::uint8_t{0});
    return true;
  }
  if (size != 1) violation(board, "%s read of %zu bytes", kName, size);
  for (std::size_t i = 0; i < size; ++i) data[i] = answer(board);
  return true;
}

// ---- firmware -------------------------------------------------------------

// Control word of the SPI master.
constexpr std::uint16_t kSpiStart = 1;   // a push is under way
constexpr std::uint16_t kSpiEnable = 2;  // the clock runs
constexpr std::uint16_t kSpiEcho = 4;    // repeats HWAIT as it stood before the push

// Status word.
constexpr std::uint32_t kSpiDepth = 0x1FF;
constexpr std::uint32_t kSpiNearlyFull = 0x180;  // busy from here on
constexpr std::uint16_t kSpiBusy = 0x0800;
constexpr std::uint16_t kSpiHwait = 0x8000;

constexpr std::int64_t kSpiByte_us = 10;

// The DSP holds the master off while it is not there to take a byte.
bool holds_off(const Board& board, std::int64_t now_us) {
  const Ac3DspState& dsp = board.dsp;
  return dsp.in_reset || now_us - dsp.released_us < kBootRomReady_us ||
         board.world.faults.dsp_dead || board.world.faults.dsp_fifo_stuck;
}

// Moves the FIFO to now_us.
void drain(Board& board, std::int64_t now_us) {
  FpgaState& fpga = board.fpga;
  if (fpga.spi_level == 0 || holds_off(board, now_us) || board.dsp.spi_misled ||
      (board.dsp.spi_control & kSpiEnable) == 0) {
    fpga.spi_drained_us = now_us;
    return;
  }
  const std::int64_t shifted =
      std::min<std::int64_t>((now_us - fpga.spi_drained_us) / kSpiByte_us, fpga.spi_level);
  fpga.spi_level -= static_cast<std::uint32_t>(shifted);
  fpga.spi_drained_us = fpga.spi_level == 0 ? now_us : fpga.spi_drained_us + shifted * kSpiByte_us;
}

// The old firmware is gone with the first byte of a push.
void begin_push(Board& board, bool echo, bool waits) {
  board.dsp.spi_misled = echo != waits;
  if (echo != waits) violation(board, "dsp spi control without the echo of HWAIT");
  board.fpga.firmware_bytes = 0;
  board.fpga.spi_level = 0;
  board.dsp.firmware_hash = kFnvStart;
  board.dsp.loading = true;
}

void end_push(Board& board, std::int64_t now_us) {
  Ac3DspState& dsp = board.dsp;
  dsp.loading = false;
  if (board.fpga.firmware_bytes == 0) return;
  dsp.has_firmware = !dsp.spi_misled;
  forget_settings(dsp);
  set_up_changed(board);
  dsp.ready_us = now_us + board.fpga.spi_level * kSpiByte_us + kStartUp_us;
}

}  // namespace

const I2cChip kAc3DspChip = {0x1C, kName, chip_write, chip_read};
constinit const Part kAc3DspPart = {kName, kNeeds};

// The rate is what the DSP was told; the rest is the source's.
Ac3Stream dsp_stream(const Board& board) {
  Ac3Stream stream = board.world.ac3;
  const int row = ac3_rate_row(told_bits_per_second(board.dsp));
  if (row >= 0) stream.frmsizecod = static_cast<std::uint8_t>(row * 2);
  return stream;
}

void ac3dsp_line(Board& board, bool released) {
  Ac3DspState& dsp = board.dsp;
  if (!released) {
    forget_settings(dsp);
    dsp.loading = false;
    dsp.in_reset = true;
  } else if (dsp.in_reset) {
    dsp.in_reset = false;
    dsp.released_us = board_now_us();
    dsp.ready_us = dsp.released_us + kStartUp_us;
  }
}

void dsp_spi_control(Board& board, std::int64_t now_us, std::uint16_t value) {
  drain(board, now_us);
  const std::uint16_t before = board.dsp.spi_control;
  board.dsp.spi_control = value;
  const bool pushing = (value & kSpiStart) != 0;
  // The master begins anew from its idle state only.
  if (pushing && before == 0)
    begin_push(board, (value & kSpiEcho) != 0, holds_off(board, now_us));
  else if (pushing && (before & kSpiStart) == 0)
    violation(board, "dsp spi start behind control 0x%04x", before);
  if (!pushing && board.dsp.loading && (value & kSpiEnable) != 0) end_push(board, now_us);
}

void dsp_spi_data(Board& board, std::int64_t now_us, std::uint16_t value) {
  FpgaState& fpga = board.fpga;
  Ac3DspState& dsp = board.dsp;
  drain(board, now_us);
  if (!dsp.loading) violation(board, "dsp spi data outside a push");
  if (value > 0xFF) violation(board, "dsp spi data 0x%04x", value);
  if (fpga.spi_level >= kSpiDepth) {
    violation(board, "dsp spi data into a full fifo");
    return;
  }
  if (dsp.has_firmware) set_up_changed(board);
  dsp.has_firmware = false;
  ++fpga.spi_level;
  ++fpga.firmware_bytes;
  dsp.firmware_hash = fnv1a(dsp.firmware_hash, static_cast<std::uint8_t>(value));
}

std::uint16_t dsp_spi_status(Board& board, std::int64_t now_us) {
  drain(board, now_us);
  const std::uint32_t level = board.fpga.spi_level;
  return static_cast<std::uint16_t>(level | (level >= kSpiNearlyFull ? kSpiBusy : 0) |
                                    (holds_off(board, now_us) ? kSpiHwait : 0));
}

}  // namespace vboard
