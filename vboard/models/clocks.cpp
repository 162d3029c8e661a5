// The small chips of the bench commands: the 7353 video encoder, the clock block
// at 0x55, and the PLL behind "/dev/fpga2".
#include <algorithm>
#include <cstring>

#include "vboard/core/trace.h"
#include "vboard/models/bus.h"
#include "vboard/models/needs.h"
#include "vboard/models/register_chip.h"

namespace vboard {

namespace {

constexpr RegisterRange k7353Registers[] = {{1, 3}};  // one a channel
constexpr RegisterRange kClock55Registers[] = {{0x63, 0x63}};
constexpr std::size_t kPllWord = 2;

// The word of the PLL: six bits of address, the enables of its clocks, its rate.
constexpr std::uint8_t kPllAddressBits = 0xFC;
constexpr std::uint8_t kPllAddress = 0x70;
constexpr std::uint8_t kPllClocks = 0xF0;  // of the second byte

template <int channel>
bool channel_not_set_up(const Board& board) {
  return board.chip7353.reg[channel] == 0;
}
constexpr Need k7353Needs[] = {{"channel 1 not set up", channel_not_set_up<1>},
                               {"channel 2 not set up", channel_not_set_up<2>},
                               {"channel 3 not set up", channel_not_set_up<3>}};
constexpr Need kClock55Needs[] = {
    {"not set up", [](const Board& board) { return board.clock_55.reg[0x63] == 0; }}};
constexpr Need kPllNeeds[] = {
    {"clocks off", [](const Board& board) { return (board.pll.last[1] & kPllClocks) == 0; }}};

bool small_write(Board& board, SmallChipState& chip, const char* name,
                 std::span<const RegisterRange> known, const std::uint8_t* data, std::size_t size) {
  return write_registers(board, name, chip.pointer, data, size,
                         [&](std::uint8_t reg, std::uint8_t value) {
                           if (!holds(known, reg))
                             violation(board, "%s write of register %02x", name, reg);
                           chip.reg[reg] = value;
                           ++chip.writes;
                         });
}

bool small_read(Board& board, SmallChipState& chip, int address, const char* name,
                std::span<const RegisterRange> known, std::uint8_t* data, std::size_t size) {
  return read_registers(board, address, chip.pointer, data, size, [&](std::uint8_t reg) {
    if (!holds(known, reg)) violation(board, "%s read of register %02x", name, reg);
    return chip.reg[reg];
  });
}

bool write_7353(Board& board, std::int64_t, const std::uint8_t* data, std::size_t size) {
  return small_write(board, board.chip7353, k7353Chip.name, k7353Registers, data, size);
}
bool read_7353(Board& board, std::int64_t, std::uint8_t* data, std::size_t size) {
  return small_read(board, board.chip7353, k7353Chip.address, k7353Chip.name, k7353Registers, data,
                    size);
}

bool write_clock_55(Board& board, std::int64_t, const std::uint8_t* data, std::size_t size) {
  return small_write(board, board.clock_55, kClock55Chip.name, kClock55Registers, data, size);
}
bool read_clock_55(Board& board, std::int64_t, std::uint8_t* data, std::size_t size) {
  return small_read(board, board.clock_55, kClock55Chip.address, kClock55Chip.name,
                    kClock55Registers, data, size);
}

}  // namespace

const I2cChip k7353Chip = {0x2E, "7353", write_7353, read_7353};
const I2cChip kClock55Chip = {0x55, "clock", write_clock_55, read_clock_55};
constinit const Part k7353Part = {"7353", k7353Needs};
constinit const Part kClock55Part = {"clock", kClock55Needs};
constinit const Part kPllPart = {"pll", kPllNeeds};

long pll_write(Board& board, const std::uint8_t* data, std::size_t size) {
  if (size != kPllWord) violation(board, "pll write of %zu bytes", size);
  if (size == 0) return 0;
  if ((data[0] & kPllAddressBits) != kPllAddress)
    violation(board, "pll word for address %02x", unsigned{data[0]} & kPllAddressBits);
  memcpy(board.pll.last, data, std::min(size, kPllWord));
  ++board.pll.transfers;
  trace("pll wr %02x %02x", board.pll.last[0], board.pll.last[1]);
  return static_cast<long>(size);
}

// What was shifted in comes back. A buffered stream asks for more than there is.
long pll_read(Board& board, std::uint8_t* data, std::size_t size) {
  const std::size_t count = std::min(size, kPllWord);
  memcpy(data, board.pll.last, count);
  trace("pll rd %02x %02x", board.pll.last[0], board.pll.last[1]);
  return static_cast<long>(count);
}

}  // namespace vboard
