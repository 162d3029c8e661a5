// The product's device calls as bare system calls.
//
// Linked beside the product, this stands at the C library's names as the virtual
// board does, but costs next to nothing: a device is a placeholder descriptor, a
// request on it enters the kernel and comes back, and the answer is the one that
// the models of the virtual board gave when the calls were recorded. Waits and
// shell commands return at once.
#pragma once

#include <linux/i2c.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vboard/core/board.h"

namespace bench {

// One device call of the recorded list.
struct Step {
  enum class Kind : std::uint8_t { kOpen, kClose, kRequest };
  Kind kind = Kind::kRequest;
  int fd = -1;  // descriptor at the time of the recording
  unsigned long number = 0;
  int result = 0;
  std::vector<std::uint8_t> record;             // the argument, as the call left it
  std::vector<i2c_msg> messages;                // of an I2C transfer
  std::vector<std::vector<std::uint8_t>> wire;  // their bytes, as the call left them
};

// The board's files lie here instead of /home/tovin.
void use_home(const std::string& directory);
const std::string& home();

// What a stream opened on the host link reads and writes; -1 for a placeholder.
void use_link(int fd);

// Calls are answered by the models of this board, and kept in a list.
void record_on(vboard::Board& board);
// The list so far; recording ends.
std::vector<Step> take_recording();
// Calls are answered from this list, in order. A call that is not the next one
// of the list ends the program: then the figures would be worth nothing.
void answer_from(const std::vector<Step>& steps);
void rewind_answers();
// Every call enters the kernel; every request succeeds with this word.
void answer_always(std::int32_t word);

// The device streams open now stay; what the product leaves open after that is
// closed by close_left_open().
void keep_open();
void close_left_open();

}  // namespace bench
