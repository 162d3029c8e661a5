// DIX4192: the digital audio receiver. It locks on the connected source when it is
// powered and programmed; its port A then delivers the sound.
#include <algorithm>
#include <cmath>

#include "vboard/models/bus.h"
#include "vboard/models/needs.h"
#include "vboard/models/register_chip.h"

namespace vboard {

namespace {

constexpr const char* kName = "dix4192";

enum Register : std::uint8_t {
  kPowerReset = 0x01,
  kPortA1 = 0x03,
  kPortA2 = 0x04,
  kReceiver1 = 0x0D,
  kReceiver2 = 0x0E,
  kPll1 = 0x0F,  // P 4 bits, J 6 bits, D 14 bits: the reference times J.D by P
  kReceiverStatus = 0x13,
  kBurstStatus = 0x2A,
  kPageSelect = 0x7F,
};

// A power bit switches its block on when it is set.
constexpr std::uint8_t kResetBit = 0x80;
constexpr std::uint8_t kPowerAll = 0x20;
constexpr std::uint8_t kPowerPortA = 0x10;
constexpr std::uint8_t kPowerReceiver = 0x02;
// Port A.
constexpr std::uint8_t kSourceBits = 0x30;
constexpr std::uint8_t kFromReceiver = 0x20;
constexpr std::uint8_t kMaster = 0x08;
constexpr std::uint8_t kMute = 0x40;
constexpr std::uint8_t kClockBits = 0x0C;
constexpr std::uint8_t kClockFromReceiver = 0x08;
constexpr std::uint8_t kDividerBits = 0x03;
constexpr std::uint8_t kDivider512 = 0x03;
// Receiver.
constexpr std::uint8_t kInputBits = 0x03;  // 0: input 1, where the plug is
constexpr std::uint8_t kReferenceMaster = 0x08;
constexpr std::uint8_t kClockOut = 0x01;

constexpr double kMasterClock_MHz = 18.432;
constexpr double kPllOut_MHz = 98.304;

constexpr std::uint8_t kReceiverLocked = 3;  // the recovered clock is 512 times the sample rate
constexpr std::uint8_t kBurstPresent = 1;    // the burst is AC-3

constexpr RegisterRange kReadable[] = {{0x01, 0x2C}, {0x7F, 0x7F}};
constexpr RegisterRange kWritable[] = {
    {0x01, 0x01}, {0x03, 0x09}, {0x0B, 0x11}, {0x16, 0x1E}, {0x7F, 0x7F}};

// ---- needs ---------------------------------------------------------------------

std::uint8_t value(const Board& board, Register reg) { return board.dix4192.reg[reg]; }

template <Register reg, std::uint8_t bits, std::uint8_t wanted = bits>
bool differs(const Board& board) {
  return (value(board, reg) & bits) != wanted;
}

bool pll_does_not_fit(const Board& board) {
  const std::uint8_t* const pll = board.dix4192.reg + kPll1;
  const int divider = pll[0] >> 4;
  const int whole = (pll[0] & 0x0F) << 2 | pll[1] >> 6;
  const int fraction = (pll[1] & 0x3F) << 8 | pll[2];  // ten-thousandths
  if (divider == 0) return true;
  const double out_MHz = kMasterClock_MHz * (whole + fraction / 1e4) / divider;
  return std::abs(out_MHz - kPllOut_MHz) > 0.001;
}

constexpr Need kLockNeeds[] = {
    {"held in reset", [](const Board& board) { return board.dix4192.in_reset; }},
    {"powered down", differs<kPowerReset, kPowerAll>},
    {"receiver powered down", differs<kPowerReset, kPowerReceiver>},
    {"input not selected", differs<kReceiver1, kInputBits, 0>},
    {"receiver without its reference clock", differs<kReceiver1, kReferenceMaster>},
    {"PLL1 does not make 98.304 MHz", pll_does_not_fit},
};

constexpr Need kOutputNeeds[] = {
    {"port A powered down", differs<kPowerReset, kPowerPortA>},
    {"port A does not send what is received", differs<kPortA1, kSourceBits, kFromReceiver>},
    {"port A muted", differs<kPortA1, kMute, 0>},
    {"port A does not clock its data", differs<kPortA1, kMaster>},
    {"port A without the receiver's clock", differs<kPortA2, kClockBits, kClockFromReceiver>},
    {"clock of port A is not divided by 512", differs<kPortA2, kDividerBits, kDivider512>},
    {"recovered clock off", differs<kReceiver2, kClockOut>},
};

// ---- registers -------------------------------------------------------------------

bool plays(const Board& board) { return verdict(board).receiver_lock; }

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

// Every register is 0 then: all is powered down.
void power_on(Dix4192State& chip) { std::ranges::fill(chip.reg, std::uint8_t{0}); }

void put(Board& board, std::uint8_t reg, std::uint8_t value) {
  if (!holds(kWritable, reg)) {
    violation(board, "%s write of register %02x", kName, reg);
    return;
  }
  if (reg == kPowerReset && (value & kResetBit) != 0) {
    power_on(board.dix4192);
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
constinit const Part kDix4192Lock = {kName, kLockNeeds};
constinit const Part kDix4192Output = {kName, kOutputNeeds};

void audio_line(Board& board, bool released) {
  if (!released) power_on(board.dix4192);
  board.dix4192.in_reset = !released;
}

}  // namespace vboard
