// TVP5150: the decoder of the composite input, with its caption slicer and the
// RAM that holds the line data of its VBI processor.
#include <algorithm>

#include "vboard/models/bus.h"
#include "vboard/models/needs.h"
#include "vboard/models/register_chip.h"

namespace vboard {

namespace {

constexpr const char* kName = "tvp5150";

enum Register : std::uint8_t {
  kInput = 0x00,   // bits 0 and 1
  kMode = 0x02,    // bit 0: power down
  kEnable = 0x03,  // of clock, syncs and data outputs
  kSoftReset = 0x05,
  kFormat = 0x0D,  // bits 0 to 2
  kClearInterrupts = 0x1C,
  kLine21 = 0xEE,  // mode of the line, first field, second field
  kLineCountMsb = 0x84,
  kLineCountLsb = 0x85,
  kStatus1 = 0x88,
  kStatus2 = 0x89,
  kStatus5 = 0x8C,
  kCaptions = 0x90,  // two bytes of field 1, then two of field 2
  kVbiData = 0xC3,
  kVbiAddressLow = 0xC4,
  kVbiAddressHigh = 0xC5,
  kCaptionStatus = 0xC6,
};

constexpr RegisterRange kReadable[] = {{0x00, 0x0F}, {0x11, 0x16}, {0x18, 0x1E}, {0x21, 0x24},
                                       {0x28, 0x28}, {0x2C, 0x30}, {0x7F, 0x97}, {0xB0, 0xBB},
                                       {0xC0, 0xC8}, {0xCA, 0xFC}};
constexpr RegisterRange kWritable[] = {{0x00, 0x0F}, {0x11, 0x16}, {0x18, 0x1E}, {0x21, 0x24},
                                       {0x28, 0x28}, {0x2C, 0x30}, {0x7F, 0x7F}, {0xB1, 0xBB},
                                       {0xC0, 0xC6}, {0xC8, 0xFC}};

constexpr std::uint8_t kInputBits = 0x03;  // 0: composite on the first pin
constexpr std::uint8_t kPowerDown = 0x01;
constexpr std::uint8_t kClockOut = 0x01;  // of kEnable
constexpr std::uint8_t kSyncsOut = 0x04;
constexpr std::uint8_t kDataOut = 0x08;
constexpr std::uint8_t kFormatBits = 0x07;  // all set: ITU-R BT.656
constexpr std::uint8_t kModeBits = 0x0F;    // of a line
constexpr std::uint8_t kCaptionsNtsc = 0x07;
constexpr std::uint8_t kFilterBypass = 0x80;

// Bits of status register #1.
constexpr std::uint8_t kHorizontalLock = 0x02;
constexpr std::uint8_t kVerticalLock = 0x04;
constexpr std::uint8_t kColourLock = 0x08;
constexpr std::uint8_t kLostLock = 0x10;
constexpr std::uint8_t kField50Hz = 0x20;
constexpr std::uint8_t kLineAlternating = 0x40;
constexpr std::uint8_t kAllLocked = kHorizontalLock | kVerticalLock | kColourLock;

constexpr std::uint8_t kPalSwitch = 0x20;  // status register #2
constexpr std::uint8_t kOddField = 0x10;
constexpr std::uint8_t kAutoswitch = 0x80;  // status register #5
constexpr std::uint8_t kStandardNtsc = 0x01;
constexpr std::uint8_t kStandardPal = 0x03;
constexpr unsigned kPalLines = 625;
constexpr unsigned kNtscLines = 525;

// Bits of the caption status, by field, and what empties come to.
constexpr std::uint8_t kCaptionField[] = {0x10, 0x08};
constexpr std::uint8_t kCaptionFifoEmpty = 0x40;
constexpr std::int64_t kCaptionPeriod_us = 40000;
constexpr std::uint8_t kCaptionBytes[] = {0xC8, 0x49, 0x80, 0x80};  // "HI", then nothing

// Line records of the VBI processor that the board uses; wide-screen signalling.
constexpr std::uint16_t kVbiFirst = 0xE0;
constexpr std::uint16_t kVbiLast = 0xFF;
constexpr std::uint16_t kRecord625 = 0xE0;  // how a caption line is read, 16 bytes
constexpr std::uint16_t kRecord525 = 0xF0;
constexpr int kRecordSize = 16;
constexpr std::uint8_t kRunIn[] = {0xAA, 0x2A};  // the record begins with the clock run-in

// ---- needs ---------------------------------------------------------------------

std::uint8_t value(const Board& board, Register reg) { return board.tvp5150.reg[reg]; }

bool output_off(const Board& board, std::uint8_t output) {
  return (value(board, kEnable) & output) == 0;
}

bool line_not_read(const Board& board, int field) {
  const std::uint8_t mode = board.tvp5150.reg[kLine21 + field];
  return (mode & kFilterBypass) != 0 || (mode & kModeBits) != kCaptionsNtsc;
}

bool record_broken(const Board& board, std::uint16_t record) {
  const Tvp5150State& chip = board.tvp5150;
  const bool* const loaded = chip.vbi_loaded + record;
  return !std::all_of(loaded, loaded + kRecordSize, [](bool one) { return one; }) ||
         !std::equal(std::begin(kRunIn), std::end(kRunIn), chip.vbi_ram + record);
}

constexpr Need kLockNeeds[] = {
    {"held in reset", [](const Board& board) { return board.tvp5150.in_reset; }},
    {"software reset held", [](const Board& board) { return (value(board, kSoftReset) & 1) != 0; }},
    {"powered down", [](const Board& board) { return (value(board, kMode) & kPowerDown) != 0; }},
    {"input not selected",
     [](const Board& board) { return (value(board, kInput) & kInputBits) != 0; }},
};

constexpr Need kPictureNeeds[] = {
    {"clock output off", [](const Board& board) { return output_off(board, kClockOut); }},
    {"sync outputs off", [](const Board& board) { return output_off(board, kSyncsOut); }},
    {"data outputs off", [](const Board& board) { return output_off(board, kDataOut); }},
    {"output format is not BT.656",
     [](const Board& board) { return (value(board, kFormat) & kFormatBits) != kFormatBits; }},
};

// A line that is read without need fills the FIFO with what is none of its kind.
bool other_lines_read(const Board& board) {
  constexpr int kFirstLine = 0xD0;
  constexpr int kLastLine = 0xFB;
  for (int line = kFirstLine; line <= kLastLine; ++line)
    if (line / 2 != kLine21 / 2 && board.tvp5150.reg[line] != 0xFF) return true;
  return false;
}

constexpr Need kCaptionNeeds[] = {
    {"lines without captions are read", other_lines_read, true},
    {"captions of field 1 are not read", [](const Board& board) { return line_not_read(board, 0); },
     true},
    {"captions of field 2 are not read", [](const Board& board) { return line_not_read(board, 1); },
     true},
    {"record of captions in 625 lines is broken",
     [](const Board& board) { return record_broken(board, kRecord625); }, true},
    {"record of captions in 525 lines is broken",
     [](const Board& board) { return record_broken(board, kRecord525); }, true},
};

// ---- registers -------------------------------------------------------------------

bool locked(const Board& board) {
  return board.world.video == VideoSource::kComposite && !board.world.faults.video_freeze &&
         works(board, kTvp5150Lock);
}

std::uint8_t status_1(Board& board) {
  Tvp5150State& chip = board.tvp5150;
  const bool is_locked = locked(board);
  unsigned status = is_locked ? kAllLocked : 0;
  if (chip.was_locked && !is_locked) status |= kLostLock;
  if (is_locked && board.world.pal) status |= kField50Hz | kLineAlternating;
  chip.was_locked = is_locked;
  return static_cast<std::uint8_t>(status);
}

// Fields alternate from read to read.
std::uint8_t status_2(Board& board) {
  if (!locked(board)) return 0;
  const bool odd = (++board.tvp5150.reads & 1) != 0;
  return static_cast<std::uint8_t>((odd ? kOddField : 0) |
                                   (odd && board.world.pal ? kPalSwitch : 0));
}

std::uint8_t status_5(const Board& board) {
  if (!locked(board)) return kAutoswitch;
  return static_cast<std::uint8_t>(kAutoswitch | (board.world.pal ? kStandardPal : kStandardNtsc));
}

unsigned line_count(const Board& board) {
  if (!locked(board)) return 0;
  return board.world.pal ? kPalLines : kNtscLines;
}

bool captions(const Board& board) { return locked(board) && board.world.captions; }

bool captions_of(const Board& board, int field) {
  return captions(board) && !line_not_read(board, field) &&
         !record_broken(board, board.world.pal ? kRecord625 : kRecord525);
}

// A field's bit comes back with the next frame after it was acknowledged.
std::uint8_t caption_status(const Board& board, std::int64_t now_us) {
  if (!captions_of(board, 0) && !captions_of(board, 1)) return kCaptionFifoEmpty;
  unsigned status = 0;
  for (int field = 0; field < 2; ++field) {
    if (captions_of(board, field) &&
        now_us - board.tvp5150.captions_taken_us[field] >= kCaptionPeriod_us)
      status |= kCaptionField[field];
  }
  return static_cast<std::uint8_t>(status);
}

void acknowledge_captions(Board& board, std::int64_t now_us, std::uint8_t bits) {
  for (int field = 0; field < 2; ++field) {
    if ((bits & kCaptionField[field]) != 0 &&
        (caption_status(board, now_us) & kCaptionField[field]) != 0)
      board.tvp5150.captions_taken_us[field] = now_us;
  }
}

// The address moves on with every byte of line data.
void put_vbi(Board& board, std::uint8_t value) {
  Tvp5150State& chip = board.tvp5150;
  if (chip.vbi_address < kVbiFirst || chip.vbi_address > kVbiLast)
    violation(board, "%s line data at address %03x", kName, chip.vbi_address);
  if (chip.vbi_address < sizeof chip.vbi_ram) {
    chip.vbi_ram[chip.vbi_address] = value;
    chip.vbi_loaded[chip.vbi_address] = true;
  }
  ++chip.vbi_address;
}

std::uint8_t get(Board& board, std::int64_t now_us, std::uint8_t reg) {
  Tvp5150State& chip = board.tvp5150;
  if (!holds(kReadable, reg)) violation(board, "%s read of register %02x", kName, reg);
  switch (reg) {
    case kStatus1:
      return status_1(board);
    case kStatus2:
      return status_2(board);
    case kStatus5:
      return status_5(board);
    case kLineCountMsb:
      return static_cast<std::uint8_t>(line_count(board) >> 8);
    case kLineCountLsb:
      return static_cast<std::uint8_t>(line_count(board));
    case kCaptionStatus:
      return caption_status(board, now_us);
    case kCaptions:
    case kCaptions + 1:
    case kCaptions + 2:
    case kCaptions + 3:
      return captions_of(board, (reg - kCaptions) / 2) ? kCaptionBytes[reg - kCaptions]
                                                       : std::uint8_t{0};
    case kVbiData:
      return chip.vbi_address < sizeof chip.vbi_ram ? chip.vbi_ram[chip.vbi_address]
                                                    : std::uint8_t{0};
    default:
      return chip.reg[reg];
  }
}

// Registers only: line data, what was seen and the reset line stay.
void reset_registers(Tvp5150State& chip) {
  static constexpr Tvp5150State kFresh;
  std::copy(std::begin(kFresh.reg), std::end(kFresh.reg), std::begin(chip.reg));
  std::copy(std::begin(kFresh.vbi_loaded), std::end(kFresh.vbi_loaded),
            std::begin(chip.vbi_loaded));
  chip.vbi_address = 0;
}

void put(Board& board, std::int64_t now_us, std::uint8_t reg, std::uint8_t value) {
  Tvp5150State& chip = board.tvp5150;
  if (!holds(kWritable, reg)) {
    violation(board, "%s write of register %02x", kName, reg);
    return;
  }
  if (reg == kSoftReset && (value & 1) != 0) reset_registers(chip);
  if (reg == kVbiData) return put_vbi(board, value);
  if (reg == kClearInterrupts) return;  // a bit that is set clears one; nothing stays
  if (reg == kCaptionStatus) return acknowledge_captions(board, now_us, value);
  chip.reg[reg] = value;
  if (reg == kVbiAddressLow || reg == kVbiAddressHigh) {
    chip.vbi_address =
        static_cast<std::uint16_t>(chip.reg[kVbiAddressHigh] << 8 | chip.reg[kVbiAddressLow]);
  }
}

bool chip_write(Board& board, std::int64_t now_us, const std::uint8_t* data, std::size_t size) {
  Tvp5150State& chip = board.tvp5150;
  if (chip.in_reset) return false;
  return write_registers(
      board, kName, chip.pointer, data, size,
      [&](std::uint8_t reg, std::uint8_t value) { put(board, now_us, reg, value); });
}

bool chip_read(Board& board, std::int64_t now_us, std::uint8_t* data, std::size_t size) {
  Tvp5150State& chip = board.tvp5150;
  if (chip.in_reset) return false;
  return read_registers(board, kTvp5150Chip.address, chip.pointer, data, size,
                        [&](std::uint8_t reg) { return get(board, now_us, reg); });
}

}  // namespace

const I2cChip kTvp5150Chip = {0x5D, kName, chip_write, chip_read};
constinit const Part kTvp5150Lock = {kName, kLockNeeds};
constinit const Part kTvp5150Picture = {kName, kPictureNeeds};
constinit const Part kTvp5150Captions = {kName, kCaptionNeeds};

void tvp5150_line(Board& board, bool released) {
  if (!released) board.tvp5150 = Tvp5150State{};
  board.tvp5150.in_reset = !released;
}

bool tvp5150_delivers_captions(const Board& board) {
  return captions_of(board, 0) || captions_of(board, 1);
}

}  // namespace vboard
