// TVP7002: the digitizer of the component and VGA inputs. Sync shows when the
// connected source is the one that the chip is set for.
#include "vboard/models/bus.h"
#include "vboard/models/register_chip.h"

namespace vboard {

namespace {

constexpr const char* kName = "tvp7002";

enum Register : std::uint8_t {
  kSyncStatus = 0x14,
  kInputMux = 0x19,
  kGreenLevel = 0x24,
  kGreenLevelHigh = 0x27,
};

constexpr std::uint8_t kMuxComponent = 0x00;
constexpr std::uint8_t kMuxRgb = 0xAA;

// Status words of register 0x14.
constexpr std::uint8_t kComponentSync = 0xDA;  // both syncs, from the sync separator
constexpr std::uint8_t kRgbSync = 0xD2;        // both syncs, from their pins
constexpr std::uint8_t kNoSync = 0x0D;

constexpr RegisterRange kReadable[] = {{0x00, 0x49}};
constexpr RegisterRange kWritable[] = {{0x01, 0x0A}, {0x0E, 0x13}, {0x15, 0x15}, {0x17, 0x1A},
                                       {0x21, 0x22}, {0x26, 0x26}, {0x28, 0x2C}, {0x31, 0x31},
                                       {0x34, 0x36}, {0x3D, 0x3D}, {0x3F, 0x47}};

// A live measurement never gives the same reading twice running; a steady
// picture, and a frozen chip, do.
constexpr unsigned kGreenStep = 0x2C;
constexpr unsigned kGreenHighStep = 0x04;

std::uint8_t sync_status(const Board& board) {
  const World& world = board.world;
  const std::uint8_t mux = board.tvp7002.reg[kInputMux];
  if (world.faults.video_freeze) return kNoSync;
  if (world.video == VideoSource::kComponent && mux == kMuxComponent) return kComponentSync;
  if (world.video == VideoSource::kVga && mux == kMuxRgb) return kRgbSync;
  return kNoSync;
}

std::uint8_t get(Board& board, std::uint8_t reg) {
  Tvp7002State& chip = board.tvp7002;
  if (!holds(kReadable, reg)) violation(board, "%s read of register %02x", kName, reg);
  switch (reg) {
    case kSyncStatus:
      return sync_status(board);
    case kGreenLevel:
      if (sync_status(board) == kNoSync && !board.world.faults.video_freeze) ++chip.reads;
      return static_cast<std::uint8_t>(chip.reads * kGreenStep);
    case kGreenLevelHigh:
      return static_cast<std::uint8_t>((chip.reads * kGreenHighStep) & 0x0C);
    default:
      return chip.reg[reg];
  }
}

void put(Board& board, std::uint8_t reg, std::uint8_t value) {
  if (!holds(kWritable, reg)) {
    violation(board, "%s write of register %02x", kName, reg);
    return;
  }
  board.tvp7002.reg[reg] = value;
}

bool chip_write(Board& board, std::int64_t, const std::uint8_t* data, std::size_t size) {
  Tvp7002State& chip = board.tvp7002;
  if (chip.in_reset) return false;
  return write_registers(board, kName, chip.pointer, data, size,
                         [&](std::uint8_t reg, std::uint8_t value) { put(board, reg, value); });
}

bool chip_read(Board& board, std::int64_t, std::uint8_t* data, std::size_t size) {
  Tvp7002State& chip = board.tvp7002;
  if (chip.in_reset) return false;
  return read_registers(board, kTvp7002Chip.address, chip.pointer, data, size,
                        [&](std::uint8_t reg) { return get(board, reg); });
}

}  // namespace

const I2cChip kTvp7002Chip = {0x5C, kName, chip_write, chip_read};

void tvp7002_line(Board& board, bool released) {
  if (!released) board.tvp7002 = Tvp7002State{};
  board.tvp7002.in_reset = !released;
}

}  // namespace vboard
