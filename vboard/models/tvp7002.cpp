// TVP7002: the digitizer of the component and VGA inputs. Its sync detector shows
// a signal on the selected input; pictures come out when the PLL makes the pixel
// clock of the standard and the outputs are on.
#include <algorithm>

#include "vboard/models/bus.h"
#include "vboard/models/needs.h"
#include "vboard/models/picture.h"
#include "vboard/models/register_chip.h"

namespace vboard {

namespace {

constexpr const char* kName = "tvp7002";

enum Register : std::uint8_t {
  kDividerHigh = 0x01,  // clocks a line, bits 4 to 11
  kDividerLow = 0x02,   // bits 0 to 3, in the upper half
  kPllControl = 0x03,   // bits 6 and 7: range of the oscillator
  kPhase = 0x04,        // bit 0 halves the clock
  kClamps = 0x10,       // bits 0 to 2: red, green, blue at the middle of their range
  kSyncStatus = 0x14,
  kOutputs = 0x17,    // bits 0 and 1: high impedance
  kClockEdge = 0x18,  // bit 0
  kInputMux = 0x19,
  kSyncMux = 0x1A,
  kGreenLevel = 0x24,
  kGreenLevelHigh = 0x27,
  kPower = 0x2B,  // a set bit switches a block off
  kBandwidth = 0x3F,
  kFirstPixel = 0x40,  // of the picture in a line, low byte, high byte
  kLastPixel = 0x42,
  kBlankingStart = 0x44,  // lines, first field
  kBlanking = 0x46,       // lines, first field
};

constexpr std::uint8_t kMuxComponent = 0x00;  // first input of each channel
constexpr std::uint8_t kMuxRgb = 0xAA;        // third input of each channel
constexpr std::uint8_t kSyncPinsB = 0x05;     // of register 0x1A: H and V from the second pins
constexpr std::uint8_t kPllClock = 0x02;      // of register 0x1A
constexpr std::uint8_t kReferenceClock = 0x08;
constexpr std::uint8_t kClockHalved = 0x01;
constexpr std::uint8_t kHighImpedance = 0x03;
constexpr std::uint8_t kFallingEdge = 0x01;  // at which the board takes the data
constexpr std::uint8_t kClampBits = 0x07;
constexpr std::uint8_t kClampsComponent = 0x05;  // both colour differences at the middle
constexpr std::uint8_t kClampsRgb = 0x00;

// Pixel clocks for which the oscillator's ranges are, in MHz.
constexpr double kRangeEnds[] = {0, 36, 70, 135, 165};

// Status words of register 0x14.
constexpr std::uint8_t kComponentSync = 0xDA;  // both syncs, from the sync separator
constexpr std::uint8_t kRgbSync = 0xD2;        // both syncs, from their pins
constexpr std::uint8_t kNoSync = 0x0D;

constexpr RegisterRange kReadable[] = {{0x00, 0x5C}};
constexpr RegisterRange kWritable[] = {{0x01, 0x13}, {0x15, 0x22}, {0x26, 0x26}, {0x28, 0x31},
                                       {0x34, 0x36}, {0x3D, 0x3D}, {0x3F, 0x5A}};

// A live measurement never gives the same reading twice running; a steady
// picture, and a frozen chip, do.
constexpr unsigned kGreenStep = 0x2C;
constexpr unsigned kGreenHighStep = 0x04;

const std::uint8_t (&registers(const Board& board))[256] { return board.tvp7002.reg; }

bool from_vga(const Board& board) { return board.world.video == VideoSource::kVga; }
bool from_component(const Board& board) { return board.world.video == VideoSource::kComponent; }

int clocks_a_line(const Board& board) {
  const auto& reg = registers(board);
  return reg[kDividerHigh] << 4 | reg[kDividerLow] >> 4;
}

// A line of more clocks than the divider's 12 bits hold is sampled a little coarser.
int clocks_for(const VideoStandard& standard) { return std::min<int>(standard.line_pixels, 0xFFF); }

int word_at(const Board& board, int low) {
  const auto& reg = registers(board);
  return reg[low] | reg[low + 1] << 8;
}

// ---- needs ---------------------------------------------------------------------

bool input_not_selected(const Board& board) {
  const std::uint8_t mux = registers(board)[kInputMux];
  return (from_component(board) && mux != kMuxComponent) || (from_vga(board) && mux != kMuxRgb);
}

// Component video carries its sync on the green channel, the VGA plug on the
// first pair of pins.
bool sync_pins_not_selected(const Board& board) {
  return from_vga(board) && (registers(board)[kSyncMux] & kSyncPinsB) != 0;
}

bool no_reference(const Board& board) {
  return (registers(board)[kSyncMux] & kReferenceClock) == 0;
}

bool pll_not_selected(const Board& board) { return (registers(board)[kSyncMux] & kPllClock) == 0; }

bool pll_does_not_fit(const Board& board) {
  return (from_vga(board) || from_component(board)) &&
         (clocks_a_line(board) != clocks_for(sent_standard(board.world)) ||
          (registers(board)[kPhase] & kClockHalved) != 0);
}

bool range_does_not_fit(const Board& board) {
  const double clock_MHz = sent_standard(board.world).pixel_clock_MHz();
  const int range = registers(board)[kPllControl] >> 6;
  return (from_vga(board) || from_component(board)) &&
         (clock_MHz < kRangeEnds[range] || clock_MHz >= kRangeEnds[range + 1]);
}

bool clamps_of_others(const Board& board) {
  const int clamps = registers(board)[kClamps] & kClampBits;
  return (from_component(board) && clamps != kClampsComponent) ||
         (from_vga(board) && clamps != kClampsRgb);
}

constexpr Need kSyncNeeds[] = {
    {"held in reset", [](const Board& board) { return board.tvp7002.in_reset; }},
    {"input not selected", input_not_selected},
    {"sync pins not selected", sync_pins_not_selected},
    {"powered down", [](const Board& board) { return registers(board)[kPower] != 0; }},
};

constexpr Need kPictureNeeds[] = {
    {"reference clock not selected", no_reference},
    {"PLL not selected as the pixel clock", pll_not_selected},
    {"PLL does not fit the standard", pll_does_not_fit},
    {"range of the PLL does not fit the pixel clock", range_does_not_fit},
    {"outputs in high impedance",
     [](const Board& board) { return (registers(board)[kOutputs] & kHighImpedance) != 0; }},
    {"data clock has the wrong edge",
     [](const Board& board) { return (registers(board)[kClockEdge] & kFallingEdge) == 0; }},
    {"clamps are those of other colours", clamps_of_others, true},
    {"no picture in the window",
     [](const Board& board) { return word_at(board, kLastPixel) <= word_at(board, kFirstPixel); }},
};

// ---- registers -------------------------------------------------------------------

std::uint8_t sync_status(const Board& board) {
  if (board.world.faults.video_freeze || !works(board, kTvp7002Sync)) return kNoSync;
  if (from_component(board)) return kComponentSync;
  return from_vga(board) ? kRgbSync : kNoSync;
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

int range_for(double clock_MHz) {
  int range = 0;
  while (range < 3 && clock_MHz >= kRangeEnds[range + 1]) ++range;
  return range;
}

}  // namespace

const I2cChip kTvp7002Chip = {0x5C, kName, chip_write, chip_read};
constinit const Part kTvp7002Sync = {kName, kSyncNeeds};
constinit const Part kTvp7002Picture = {kName, kPictureNeeds};

void tvp7002_line(Board& board, bool released) {
  if (!released) board.tvp7002 = Tvp7002State{};
  board.tvp7002.in_reset = !released;
}

// Field 0 counts in lines of a field where the picture has two of them.
PictureWindow tvp7002_window(const Board& board) {
  const VideoStandard& standard = sent_standard(board.world);
  const auto& reg = registers(board);
  const int fields = standard.interlaced ? 2 : 1;
  PictureWindow window;
  window.left = word_at(board, kFirstPixel);
  window.right = word_at(board, kLastPixel);
  window.top = reg[kBlankingStart];
  window.width = std::min<int>(word_at(board, kLastPixel) - window.left, standard.width);
  window.height = std::min<int>(standard.frame_lines - fields * reg[kBlanking], standard.height);
  window.bandwidth = reg[kBandwidth];
  return window;
}

void tvp7002_follow_standard(Board& board) {
  if (!board.tvp7002.in_reset && from_component(board)) tvp7002_fit_standard(board);
}

void tvp7002_fit_standard(Board& board) {
  Tvp7002State& chip = board.tvp7002;
  const VideoStandard& standard = sent_standard(board.world);
  const int first = (standard.line_pixels - standard.width) / 2;
  const int last = first + standard.width;
  const int blanking = (standard.frame_lines - standard.height) / (standard.interlaced ? 2 : 1);
  const auto set = [&chip](int reg, int value) {
    chip.reg[reg] = static_cast<std::uint8_t>(value);
  };
  set(kDividerHigh, clocks_for(standard) >> 4);
  set(kDividerLow, clocks_for(standard) << 4);
  set(kPllControl, range_for(standard.pixel_clock_MHz()) << 6 | 0x20);
  const int thresholds = chip.reg[kClamps] & ~kClampBits;
  set(kClamps, thresholds | (from_vga(board) ? kClampsRgb : kClampsComponent));
  set(kOutputs, 0);
  set(kClockEdge, kFallingEdge);
  set(kFirstPixel, first);
  set(kFirstPixel + 1, first >> 8);
  set(kLastPixel, last);
  set(kLastPixel + 1, last >> 8);
  set(kBlanking, blanking);
  set(kBlanking + 1, standard.interlaced ? blanking : 0);
}

}  // namespace vboard
