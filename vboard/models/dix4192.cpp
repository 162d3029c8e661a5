// DIX4192: the digital audio receiver. Its lock and rate registers follow the
// connected source.
#include "vboard/models/bus.h"
#include "vboard/models/register_chip.h"

namespace vboard {

namespace {

constexpr const char* kName = "dix4192";

enum Register : std::uint8_t {
  kPowerReset = 0x01,
  kReceiverStatus = 0x13,
  kBurstStatus = 0x2A,
  kPageSelect = 0x7F,
};

constexpr std::uint8_t kResetBit = 0x80;
constexpr std::uint8_t kReceiverLocked = 3;
constexpr std::uint8_t kBurstPresent = 1;

constexpr RegisterRange kReadable[] = {{0x01, 0x01}, {0x03, 0x2C}, {0x7F, 0x7F}};
constexpr RegisterRange kWritable[] = {
    {0x01, 0x01}, {0x03, 0x04}, {0x0D, 0x11}, {0x1B, 0x1B}, {0x7F, 0x7F}};

bool plays(const Board& board) { return board.world.audio == AudioSource::kDigital; }

std::uint8_t get(Board& board, std::uint8_t reg) {
  if (!holds(kReadable, reg)) violation(board, "%s read of register %02x", kName, reg);
  switch (reg) {
    case kReceiverStatus:
      return plays(board) ? kReceiverLocked : std::uint8_t{0};
    case kBurstStatus:
      return plays(board) ? kBurstPresent : std::uint8_t{0};
    default:
      return board.dix4192.reg[reg];
  }
}

void put(Board& board, std::uint8_t reg, std::uint8_t value) {
  if (!holds(kWritable, reg)) {
    violation(board, "%s write of register %02x", kName, reg);
    return;
  }
  if (reg == kPowerReset && (value & kResetBit) != 0) {
    board.dix4192 = Dix4192State{};
    return;
  }
  if (reg == kPageSelect && value != 0) violation(board, "%s page %u", kName, value);
  board.dix4192.reg[reg] = value;
}

bool chip_write(Board& board, std::int64_t, const std::uint8_t* data, std::size_t size) {
  Dix4192State& chip = board.dix4192;
  if (chip.in_reset) return false;
  return write_registers(board, kName, chip.pointer, data, size,
                         [&](std::uint8_t reg, std::uint8_t value) { put(board, reg, value); });
}

bool chip_read(Board& board, std::int64_t, std::uint8_t* data, std::size_t size) {
  Dix4192State& chip = board.dix4192;
  if (chip.in_reset) return false;
  return read_registers(board, kDix4192Chip.address, chip.pointer, data, size,
                        [&](std::uint8_t reg) { return get(board, reg); });
}

}  // namespace

const I2cChip kDix4192Chip = {0x70, kName, chip_write, chip_read};

void audio_line(Board& board, bool released) {
  if (!released) board.dix4192 = Dix4192State{};
  board.dix4192.in_reset = !released;
}

}  // namespace vboard
