// The board's one I2C bus: finds the chip by its address, hands it the messages
// unchanged, and writes the trace of what went over the wires.
#include <linux/i2c.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "vboard/core/clock.h"
#include "vboard/core/trace.h"
#include "vboard/models/bus.h"
#include "vboard/models/fpga.h"
#include "vboard/models/needs.h"

namespace vboard {

namespace {

constexpr int kChipBus = 1;
constexpr unsigned kMessagesAtOnce = 2;   // a register read: name it, then read it
constexpr unsigned kKernelMessages = 42;  // the most that the bus driver takes
constexpr std::size_t kTracedBytes = 32;

struct Place {
  int address;  // 7-bit
  const I2cChip* chip;
};
#define VBOARD_CHIP_PLACE(address, name, model) {address, &(model)},
constexpr Place kPlaces[] = {VBOARD_CHIPS(VBOARD_CHIP_PLACE)};
#undef VBOARD_CHIP_PLACE

const I2cChip* chip_at(int bus, int address) {
  if (bus != kChipBus) return nullptr;
  for (const Place& place : kPlaces) {
    if (place.address == address) return place.chip;
  }
  return nullptr;
}

// Counts one transfer against the failures ordered for this address.
bool transfer_fails(Board& board, int address) {
  if (address < 0 || address >= kI2cAddresses) return true;
  std::int32_t& countdown = board.world.faults.i2c_fail[address];
  if (countdown < 0) return true;
  return countdown > 0 && --countdown == 0;
}

bool is_read(const i2c_msg& message) { return (message.flags & I2C_M_RD) != 0; }

bool forward(Board& board, std::int64_t now_us, const I2cChip* chip, i2c_msg& message) {
  if (chip == nullptr) return false;
  if ((message.flags & ~I2C_M_RD) != 0)
    violation(board, "i2c %02x message flags 0x%x", message.addr, message.flags);
  if (is_read(message)) return chip->read(board, now_us, message.buf, message.len);
  // A single byte only names a register.
  if (message.len > 1 || chip == &kAc3DspChip) {
    fpga_advance(board, now_us);
    set_up_changed(board);
  }
  return chip->write(board, now_us, message.buf, message.len);
}

// One trace line, put together piece by piece.
class Line {
 public:
  void bytes(const i2c_msg& message) {
    const std::size_t shown = std::min<std::size_t>(message.len, kTracedBytes);
    for (std::size_t i = 0; i < shown; ++i) hex(message.buf[i]);
    if (shown < message.len) add(" ... n=%u", message.len);
  }
  void add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    const std::size_t room = sizeof text_ - used_;
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(text_ + used_, room, format, values);
    va_end(values);
    if (length > 0) used_ = std::min(used_ + static_cast<std::size_t>(length), sizeof text_ - 1);
  }
  const char* text() const { return text_; }

 private:
  // A blank and two digits.
  void hex(std::uint8_t byte) {
    static constexpr char kDigits[] = "0123456789abcdef";
    if (used_ + 3 >= sizeof text_) return;
    text_[used_++] = ' ';
    text_[used_++] = kDigits[byte >> 4];
    text_[used_++] = kDigits[byte & 0xF];
    text_[used_] = '\0';
  }

  char text_[512] = {};
  std::size_t used_ = 0;
};

// A write that names a register and the read that follows it are one line.
void trace_messages(const i2c_msg* messages, unsigned count, bool done) {
  for (unsigned i = 0; i < count; ++i) {
    const i2c_msg& message = messages[i];
    Line line;
    line.add("i2c %02x %s", message.addr, is_read(message) ? "rd" : "wr");
    const bool combined = !is_read(message) && i + 1 < count && is_read(messages[i + 1]) &&
                          messages[i + 1].addr == message.addr;
    const i2c_msg* answer = is_read(message) ? &message : nullptr;
    if (combined) {
      line = Line();
      line.add("i2c %02x rd", message.addr);
      answer = &messages[++i];
    }
    if (!is_read(message)) line.bytes(message);
    if (done && answer != nullptr) {
      line.add(" ->");
      line.bytes(*answer);
    }
    trace("%s%s", line.text(), done ? "" : " = EREMOTEIO");
  }
}

}  // namespace

int i2c_transfer(Board& board, int bus, i2c_msg* messages, unsigned count) {
  if (count == 0 || count > kKernelMessages) {
    violation(board, "i2c transfer of %u messages", count);
    errno = EINVAL;
    return -1;
  }
  if (count > kMessagesAtOnce) violation(board, "i2c transfer of %u messages", count);
  if (board.world.faults.i2c_hung) {
    trace("i2c %02x = ETIMEDOUT", messages[0].addr);
    errno = ETIMEDOUT;
    return -1;
  }
  const std::int64_t now_us = board_now_us();
  bool done = !transfer_fails(board, messages[0].addr);
  for (unsigned i = 0; done && i < count; ++i)
    done = forward(board, now_us, chip_at(bus, messages[i].addr), messages[i]);
  if (tracing()) trace_messages(messages, count, done);
  if (done) return static_cast<int>(count);
  errno = EREMOTEIO;
  return -1;
}

// Nine clocks a byte, of which the address is one; one each for start and stop. The
// driver gives a hung bus a second.
std::int64_t i2c_transfer_cost(const Board& board, const i2c_msg* messages, unsigned count) {
  constexpr std::int64_t kClock_us = 10;
  constexpr std::int64_t kTimeout_us = 1000000;
  if (board.world.faults.i2c_hung) return kTimeout_us;
  std::int64_t clocks = 0;
  for (unsigned i = 0; i < std::min(count, kKernelMessages); ++i)
    clocks += 2 + 9 * (1 + messages[i].len);
  return clocks * kClock_us;
}

std::int64_t i2c_smbus_cost(const Board& board) {
  const i2c_msg messages[] = {{0, 0, 1, nullptr}, {0, I2C_M_RD, 1, nullptr}};
  return i2c_transfer_cost(board, messages, 2);
}

int i2c_smbus_read_byte(Board& board, int bus, int address, std::uint8_t reg, std::uint8_t* value) {
  const auto slave = static_cast<std::uint16_t>(address);
  i2c_msg messages[] = {{slave, 0, 1, &reg}, {slave, I2C_M_RD, 1, value}};
  return i2c_transfer(board, bus, messages, 2) < 0 ? -1 : 0;
}

}  // namespace vboard
