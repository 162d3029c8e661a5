// The chips behind the kernel's I2C bus: takes its transfers from the bus module and
// hands them to the models.
#include <fcntl.h>
#include <linux/i2c.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "vboard/kernel/devices.h"
#include "vboard/models/bus.h"

namespace vboard::kernel {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr char kModuleFile[] = "/dev/vboard-i2c";
constexpr int kBus = 1;
constexpr std::size_t kLongest = 65536;
// What i2c-dev adds for the bus driver's use.
constexpr std::uint16_t kForDriver = I2C_M_DMA_SAFE;

// As the module writes them.
struct TransferHead {
  std::uint32_t messages;
  std::uint32_t thread;
};
struct MessageHead {
  std::uint16_t address;
  std::uint16_t flags;
  std::uint16_t length;
  std::uint16_t padding;
};

std::vector<i2c_msg> messages_of(std::uint8_t* at, std::uint32_t count, Bytes& answers) {
  std::vector<i2c_msg> list(count);
  answers.assign(kLongest, 0);
  std::uint8_t* answer = answers.data();
  for (i2c_msg& message : list) {
    MessageHead head = {};
    memcpy(&head, at, sizeof head);
    at += sizeof head;
    message.addr = head.address;
    message.flags = static_cast<std::uint16_t>(head.flags & ~kForDriver);
    message.len = head.length;
    std::uint8_t*& place = (head.flags & I2C_M_RD) != 0 ? answer : at;
    message.buf = place;
    place += head.length;
  }
  answers.resize(static_cast<std::size_t>(answer - answers.data()));
  return list;
}

void serve(Board* board, int fd) {
  Bytes question(kLongest);
  Bytes answers;
  for (;;) {
    if (read(fd, question.data(), question.size()) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    TransferHead head = {};
    memcpy(&head, question.data(), sizeof head);
    settle_link(*board, head.thread);
    std::vector<i2c_msg> messages =
        messages_of(question.data() + sizeof head, head.messages, answers);
    std::int32_t result = 0;
    {
      Locked hold(*board);
      result = i2c_transfer(*board, kBus, messages.data(), head.messages);
      if (result < 0) result = -errno;
    }
    Bytes reply(sizeof result);
    memcpy(reply.data(), &result, sizeof result);
    reply.insert(reply.end(), answers.begin(), answers.end());
    // A bus that gave up waiting needs no answer.
    [[maybe_unused]] const ssize_t taken = write(fd, reply.data(), reply.size());
  }
}

}  // namespace

bool serve_bus(Board& board, std::string* problem) {
  const int fd = open(kModuleFile, O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    *problem = std::string(kModuleFile) + ": " + strerror(errno);
    return false;
  }
  std::thread(serve, &board, fd).detach();
  return true;
}

}  // namespace vboard::kernel
