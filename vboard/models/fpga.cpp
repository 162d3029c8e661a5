// The FPGA behind "/dev/fpga": register file, snapshot, live counters and
// buffers, line actions, LEDs, test registers and the configuration port.
#include "vboard/models/fpga.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <string>

#include "hw/fpga_registers.h"
#include "vboard/core/fnv.h"
#include "vboard/core/text.h"
#include "vboard/core/trace.h"
#include "vboard/models/bus.h"
#include "vboard/models/fpga_requests.h"
#include "vboard/models/needs.h"

namespace vboard {

namespace {

using Single = FpgaSingleRecord;
using Block = FpgaBlockRecord;

// How the buffers behave while the stream runs.
constexpr double kVideoLevelSteady = 40;  // fill at which the video buffer settles
constexpr double kVideoLevelJump = 90;    // where a jumped buffer settles
constexpr double kVideoLevelLow = 6;      // a buffer that never fills
constexpr double kAudioLevelSteady = 24;
constexpr double kLevelRampPerSecond = 12;
constexpr double kAudioFramesPerSecond = 31.25;  // AC-3 sync frames at 48 kHz
constexpr double kAudioSamplesPerSecond = 48000;
constexpr double kDriftShare = 0.99;      // of the frames, where some are lost
constexpr int kVideoLevelNormal = 12000;  // 0x1340
constexpr int kVideoLevelOverflow = 40000;
constexpr int kAudioLevelNormal = 900;  // 0x1344
constexpr int kAudioLevelOverflow = 2500;
constexpr int kHardwareVersion = 0x0117;
constexpr int kNstatus = 2;
constexpr int kConfigDone = 1;

std::uint16_t& word(Board& board, int address) {
  return board.fpga.reg[(address >> 1) % kFpgaWords];
}

void set32(Board& board, int low_address, double value) {
  const auto bits = static_cast<std::uint32_t>(static_cast<std::uint64_t>(value));
  word(board, low_address) = static_cast<std::uint16_t>(bits);
  word(board, low_address + 4) = static_cast<std::uint16_t>(bits >> 16);
}

bool video_plugged(const World& world) {
  return world.video != VideoSource::kNone && !world.faults.video_freeze;
}

bool frames_arrive(const Board& board) {
  return video_plugged(board.world) && verdict(board).frames_in;
}

bool video_goes_out(const Board& board) {
  return board.encoder.streaming && frames_arrive(board) && verdict(board).video_out;
}

bool sound_goes_out(const Board& board) {
  return board.encoder.streaming && audio_playing(board) && verdict(board).sound_out;
}

double approach(double level, double target, double step) {
  return level < target ? std::min(level + step, target) : std::max(level - step, target);
}

void take_snapshot(Board& board) {
  const FpgaState& fpga = board.fpga;
  set32(board, kRegVsOverallLow, fpga.video_frames);
  const double rate = kFrameClock * 1000.0 / board.world.fps_milli;
  set32(board, kRegVsRateLow, frames_arrive(board) ? rate : 0);
  word(board, kRegViBuff) = static_cast<std::uint16_t>(fpga.video_level);
  set32(board, kRegViOverallLow, fpga.video_units);
  set32(board, kRegViRefOverallLow, fpga.video_reference);
  word(board, kRegAuBuff) = static_cast<std::uint16_t>(fpga.audio_level);
  set32(board, kRegAuI2sOverallLow, fpga.audio_samples);
  set32(board, kRegAuOverallLow, fpga.audio_units);
  set32(board, kRegAuRefOverallLow, fpga.audio_reference);
}

const FpgaRegister* known_register(int address) {
  for (const FpgaRegister& one : kFpgaRegisters)
    if (one.address == address) return &one;
  return nullptr;
}

bool captured_header(int address) {
  return address >= kRegAc3Sync && address < kRegAc3Sync + kAc3CaptureWords * kAc3CaptureStride &&
         address % kAc3CaptureStride == 0;
}

// Bytes that wait, in 12 bits.
std::uint16_t update_level(const FpgaState& fpga) {
  constexpr std::uint32_t kMostShown = 0xFFF;
  return static_cast<std::uint16_t>(std::min(fpga.update_head - fpga.update_tail, kMostShown));
}

std::uint16_t read_live(Board& board, std::int64_t now_us, int address) {
  const World& world = board.world;
  if (board.fpga.held) return word(board, address);
  switch (address) {
    case kRegHwVersion:
      return kHardwareVersion;
    case kRegVideoLevel:
      if (world.faults.video_overflow) return kVideoLevelOverflow;
      return video_goes_out(board) ? kVideoLevelNormal : 0;
    case kRegAudioLevel:
      if (world.faults.audio_overflow) return kAudioLevelOverflow;
      return sound_goes_out(board) ? kAudioLevelNormal : 0;
    case kRegAc3Status:
      return audio_playing(board) ? 1 : 0;
    case kRegAudioStatus:
      return audio_playing(board) ? 3 : 0;
    case kRegP0Mpeg2Status:
    case kRegTsMuxStatus:
      return board.encoder.streaming ? 1 : 0;
    case kRegEbBuff:
      return static_cast<std::uint16_t>(board.fpga.video_level * 4);
    case kRegEbBuffMin:
      return static_cast<std::uint16_t>(board.fpga.video_level * 2);
    case kRegEbBuffMax:
      return static_cast<std::uint16_t>(board.fpga.video_level * 6);
    case kRegFrameSize:
      return board.encoder.streaming ? 4000 : 0;
    case kRegFrameSizeMin:
      return board.encoder.streaming ? 900 : 0;
    case kRegFrameSizeMax:
      return board.encoder.streaming ? 12000 : 0;
    case kRegDspSpiStatus:
      return dsp_spi_status(board, now_us);
    case kRegCaptureStatus:
      return ac3_capture_status(board, now_us);
    case kRegCaptureData:
      return ac3_capture_data(board, now_us);
    case kRegUpdateStatus:
      return update_level(board.fpga);
    case kRegUpdateData: {
      FpgaState& fpga = board.fpga;
      std::uint16_t value = 0;
      for (int shift = 8; shift >= 0; shift -= 8) {
        if (fpga.update_head == fpga.update_tail) break;
        const std::uint8_t byte = fpga.update_fifo[fpga.update_tail++ % sizeof fpga.update_fifo];
        value = static_cast<std::uint16_t>(value | (byte << shift));
      }
      return value;
    }
    default:
      if (captured_header(address))
        return ac3_captured_word(board, (address - kRegAc3Sync) / kAc3CaptureStride);
      return word(board, address);
  }
}

void write_effect(Board& board, std::int64_t now_us, int address, std::uint16_t value) {
  switch (address) {
    case kRegLatch:
      if (value == 1 && !board.fpga.held) take_snapshot(board);
      break;
    case kRegReset:
      if (board.fpga.in_reset && value == 0) board.fpga.was_reset = true;
      board.fpga.in_reset = value != 0;
      if (board.fpga.in_reset) board.fpga.audio_level = board.fpga.video_level = 0;
      set_up_changed(board);
      break;
    case kRegDspSpiData:
      dsp_spi_data(board, now_us, value);
      break;
    case kRegDspSpiControl:
      dsp_spi_control(board, now_us, value);
      break;
    case kRegCaptureLoop:
      ac3_capture_restart(board, now_us);
      break;
    default:
      set_up_changed(board);
      break;
  }
}

// The bench test writes a pattern into even word indices up to 134; they lie
// among the snapshot counters and below the codec set-up.
constexpr int kPatternLastWord = 134;

void check_access(Board& board, int address, bool write) {
  const FpgaRegister* known = known_register(address);
  if (captured_header(address) && !write) return;
  if (address >> 1 <= kPatternLastWord) return;
  if (known == nullptr)
    violation(board, "fpga %s of unknown register 0x%04x", write ? "write" : "read", address);
  else if (write && known->access == RegAccess::kRead)
    violation(board, "fpga write of read-only register 0x%04x", address);
}

int single_request(Board& board, std::int64_t now_us, bool write, Single& record) {
  const int address = record.index * 2;
  if (record.index < 0 || record.index >= kFpgaWords) {
    violation(board, "fpga register index %d out of range", record.index);
    errno = EINVAL;
    return -1;
  }
  check_access(board, address, write);
  fpga_advance(board, now_us);
  if (write) {
    trace("fpga wr 0x%04x <- 0x%04x", static_cast<unsigned>(address), record.value);
    word(board, address) = record.value;
    write_effect(board, now_us, address, record.value);
  } else {
    record.value = read_live(board, now_us, address);
    trace("fpga rd 0x%04x -> 0x%04x", static_cast<unsigned>(address), record.value);
  }
  return 0;
}

// A block of 2 carries one 16-bit register; longer blocks go to the bench memory.
constexpr std::uint32_t kRegisterBlock = 2;

int block_request(Board& board, bool write, Block& record) {
  if (record.index < 0 || record.index >= kFpgaWords) {
    violation(board, "fpga block index %d out of range", record.index);
    errno = EINVAL;
    return -1;
  }
  const int address = record.index * 2;
  auto* bytes = static_cast<std::uint8_t*>(record.buffer);
  if (record.count == kRegisterBlock) {
    std::uint16_t& target = word(board, address);
    if (write) {
      memcpy(&target, bytes, 2);
      set_up_changed(board);
    } else {
      memcpy(bytes, &target, 2);
    }
    trace("fpga %s 0x%04x n=2 %s %02x %02x", write ? "wrblk" : "rdblk",
          static_cast<unsigned>(address), write ? "<-" : "->", bytes[0], bytes[1]);
    return 0;
  }
  trace("fpga %s 0x%04x n=%u", write ? "wrblk" : "rdblk", static_cast<unsigned>(address),
        record.count);
  if (record.count > sizeof board.fpga.block_memory) {
    violation(board, "fpga block of %u bytes", record.count);
    errno = EINVAL;
    return -1;
  }
  if (write)
    memcpy(board.fpga.block_memory, bytes, record.count);
  else
    memcpy(bytes, board.fpga.block_memory, record.count);
  return 0;
}

void line_action(Board& board, unsigned long line) {
  ++board.fpga.line[line];
  trace("fpga line %lu", line);
  set_up_changed(board);
  switch (line) {
    case 26:
    case 27:
      return tvp5150_line(board, line == 27);
    case 79:
    case 80:
      board.fpga.front_end = line == 79 ? FrontEnd::kTvp7002 : FrontEnd::kTvp5150;
      return;
    case 28:
    case 29:
      return ac3dsp_line(board, line == 29);
    case 93:
    case 94:
      return tvp7002_line(board, line == 94);
    case 95:
    case 96:
      return audio_line(board, line == 96);
    default:
      return;
  }
}

int config_request(Board& board, unsigned long request, std::int32_t* value) {
  FpgaState& fpga = board.fpga;
  if (request == kConfigLine) {
    trace("fpga config-line %d", *value);
    if (*value == 0) {
      fpga.config_bytes = 0;
      fpga.config_hash = kFnvStart;
      fpga.nstatus_polls = 0;
      fpga.config_readback_len = 0;
    }
    fpga.config_line = *value != 0;
    return 0;
  }
  int status = 0;
  if (fpga.nstatus_delay >= 0 && fpga.nstatus_polls >= fpga.nstatus_delay) status |= kNstatus;
  ++fpga.nstatus_polls;
  // Done shows once a whole bitstream has gone in; of a size that is not known, some
  // byte of it.
  const bool whole = fpga.config_bytes > 0 && fpga.config_bytes >= fpga.config_size;
  if (!fpga.config_broken && whole) status |= kConfigDone;
  *value = status;
  trace("fpga config-status -> %d", status);
  return 0;
}

int test_request(Board& board, unsigned long request, std::int32_t* value) {
  FpgaState& fpga = board.fpga;
  std::uint32_t& cell = fpga.test[fpga.test_address % 32];
  switch (request) {
    case kTestSelect:
      fpga.test_address = static_cast<std::uint32_t>(*value);
      trace("fpga test-select %d", *value);
      return 0;
    case kTestWrite:
      cell = static_cast<std::uint32_t>(*value);
      trace("fpga test-wr %d", *value);
      return 0;
    default:
      *value = static_cast<std::int32_t>(cell);
      trace("fpga test-rd -> %d", *value);
      return 0;
  }
}

void count_config_byte(FpgaState& fpga, std::uint8_t byte) {
  fpga.config_last[fpga.config_bytes % sizeof fpga.config_last] = byte;
  fpga.config_hash = fnv1a(fpga.config_hash, byte);
  ++fpga.config_bytes;
}

constexpr std::size_t kTracedBytes = 32;

std::string first_bytes(const std::uint8_t* data, std::size_t size) {
  return spaced_hex(data, std::min(size, kTracedBytes)) + (size > kTracedBytes ? " ..." : "");
}

}  // namespace

bool audio_playing(const Board& board) { return verdict(board).sound_in; }

std::uint16_t fpga_peek(Board& board, std::int64_t now_us, int address) {
  if (address == kRegCaptureData || address == kRegUpdateData) return word(board, address);
  fpga_advance(board, now_us);
  return read_live(board, now_us, address);
}

void fpga_advance(Board& board, std::int64_t now_us) {
  FpgaState& fpga = board.fpga;
  const double seconds = static_cast<double>(now_us - fpga.updated_us) / 1e6;
  fpga.updated_us = now_us;
  if (seconds <= 0) return;
  const World& world = board.world;
  const double frames = seconds * world.fps_milli / 1000.0;
  const bool video_flows = video_goes_out(board) && !world.faults.stall;
  const bool audio_flows = sound_goes_out(board);
  if (frames_arrive(board) && !fpga.in_reset) fpga.video_frames += frames;
  if (video_flows) {
    fpga.video_units += world.faults.video_drift ? frames * kDriftShare : frames;
    fpga.video_reference += frames;
  }
  if (audio_playing(board)) fpga.audio_samples += seconds * kAudioSamplesPerSecond;
  if (audio_flows) {
    const double share = world.faults.audio_drift ? kDriftShare : 1;
    fpga.audio_units += seconds * kAudioFramesPerSecond * share;
    fpga.audio_reference += seconds * kAudioFramesPerSecond;
  }
  double video_target = 0;
  if (video_flows) video_target = world.faults.level_jump ? kVideoLevelJump : kVideoLevelSteady;
  if (video_flows && world.faults.low_buffer) video_target = kVideoLevelLow;
  // As long as encode lives, a stream that stands still (no source, on hold,
  // stalled, hung) keeps its level. Without encode the buffer drains.
  const bool level_kept =
      board.encoder.pid != 0 && board.encoder.alive_raised && !video_flows && !fpga.in_reset;
  const double step = seconds * kLevelRampPerSecond;
  if (!level_kept) fpga.video_level = approach(fpga.video_level, video_target, step);
  fpga.audio_level = approach(fpga.audio_level, audio_flows ? kAudioLevelSteady : 0, step);
}

int fpga_request(Board& board, std::int64_t now_us, unsigned long request, void* argument) {
  const Faults& faults = board.world.faults;
  if (faults.fpga_fail || (faults.fpga_fail_request >= 0 &&
                           static_cast<unsigned long>(faults.fpga_fail_request) == request)) {
    trace("fpga request %lu = EIO", request);
    errno = EIO;
    return -1;
  }
  switch (request) {
    case kWriteReg:
    case kReadReg:
      return single_request(board, now_us, request == kWriteReg, *static_cast<Single*>(argument));
    case kWriteBlock:
    case kReadBlock:
      return block_request(board, request == kWriteBlock, *static_cast<Block*>(argument));
    case kConfigStatus:
    case kConfigLine:
      return config_request(board, request, static_cast<std::int32_t*>(argument));
    case kConfigAddress:
    case kConfigByte:
      trace("fpga config-%s 0x%lx", request == kConfigByte ? "byte" : "address",
            reinterpret_cast<unsigned long>(argument));
      return 0;
    case kTestSelect:
    case kTestWrite:
    case kTestRead:
      return test_request(board, request, static_cast<std::int32_t*>(argument));
    case kLedOn:
    case kLedOff:
    case kLedStart: {
      const std::int32_t value = *static_cast<std::int32_t*>(argument);
      // 83 and 86 and 87 are shared by the LEDs and the spare lines; the word
      // tells them apart: a line action carries 1.
      if (value == 1) break;
      ++board.fpga.led_requests;
      trace("fpga led %lu", request);
      return 0;
    }
    default:
      break;
  }
  if (fpga_line(request)) {
    if (*static_cast<std::int32_t*>(argument) != 1)
      violation(board, "fpga line %lu with %d", request, *static_cast<std::int32_t*>(argument));
    line_action(board, request);
    return 0;
  }
  violation(board, "fpga request %lu", request);
  errno = ENOTTY;
  return -1;
}

// The bus moves 16 bytes in a microsecond, about 128 Mbit/s.
constexpr std::int64_t kRequestCost_us = 5;
constexpr std::uint32_t kBlockBytesPerMicrosecond = 16;

std::int64_t fpga_request_cost(unsigned long request, const void* argument) {
  if (request != kWriteBlock && request != kReadBlock) return kRequestCost_us;
  return kRequestCost_us + static_cast<const Block*>(argument)->count / kBlockBytesPerMicrosecond;
}

long fpga_port_write(Board& board, const std::uint8_t* data, std::size_t size) {
  FpgaState& fpga = board.fpga;
  const std::size_t taken = fpga.config_short_write && size > 0 ? size - 1 : size;
  for (std::size_t i = 0; i < taken; ++i) {
    count_config_byte(fpga, data[i]);
    if (fpga.config_readback_len < sizeof fpga.config_readback)
      fpga.config_readback[fpga.config_readback_len++] = data[i];
  }
  if (tracing()) trace("fpga port wr%s", first_bytes(data, taken).c_str());
  if (taken < size) {
    errno = EIO;
    return taken == 0 ? -1 : static_cast<long>(taken);
  }
  return static_cast<long>(taken);
}

long fpga_port_read(Board& board, std::uint8_t* data, std::size_t size) {
  FpgaState& fpga = board.fpga;
  const std::size_t count = std::min<std::size_t>(size, fpga.config_readback_len);
  memcpy(data, fpga.config_readback, count);
  memmove(fpga.config_readback, fpga.config_readback + count, fpga.config_readback_len - count);
  fpga.config_readback_len -= static_cast<std::uint32_t>(count);
  if (tracing()) trace("fpga port rd%s", first_bytes(data, count).c_str());
  return static_cast<long>(count);
}

}  // namespace vboard
