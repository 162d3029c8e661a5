// `vboard-remote PROGRAM ARGUMENTS`: lets a program of another processor, as an
// emulator runs it, be the program of a virtual board.
//
// Run by `vboard run`. It makes the program's device calls under their ordinary
// names, so that the preloaded board answers them as it answers any program's:
// the trace, the clock and the threads are those of a run without it. Records of
// driver requests are read from the program's bytes as a 32-bit kernel reads them.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "vboard/remote/protocol.h"

namespace {

using namespace vboard::remote;

using Bytes = std::vector<std::uint8_t>;

constexpr int kUsage = 2;
constexpr int kCannotRun = 127;

int ends[kChannels];  // of the channels, this side's

// ---- the program's memory, as far as a request concerns it ---------------------

class Memory {
 public:
  // Pieces as they came: address, size, bytes.
  explicit Memory(Bytes& message) {
    std::size_t at = 0;
    while (at + 8 <= message.size()) {
      const std::uint32_t address = word(&message[at]);
      const std::uint32_t size = word(&message[at + 4]);
      at += 8;
      pieces_.push_back({address, size, message.data() + at});
      at += size;
    }
  }

  // The bytes at an address, null when `size` of them did not come.
  std::uint8_t* at(std::uint32_t address, std::size_t size) const {
    for (const Piece& piece : pieces_)
      if (address == piece.address && size <= piece.size) return piece.bytes;
    return nullptr;
  }

  // What the program gets back: every piece, in the same order.
  Bytes content() const {
    Bytes all;
    for (const Piece& piece : pieces_) all.insert(all.end(), piece.bytes, piece.bytes + piece.size);
    return all;
  }

  static std::uint32_t word(const std::uint8_t* bytes) {
    std::uint32_t value = 0;
    memcpy(&value, bytes, sizeof value);
    return value;
  }
  static std::uint16_t half(const std::uint8_t* bytes) {
    std::uint16_t value = 0;
    memcpy(&value, bytes, sizeof value);
    return value;
  }

 private:
  struct Piece {
    std::uint32_t address;
    std::uint32_t size;
    std::uint8_t* bytes;
  };
  std::vector<Piece> pieces_;
};

int bad_address() {
  errno = EFAULT;
  return -1;
}

// ---- records of 32 bits and their like of this machine ---------------------------

constexpr unsigned long kFpgaWriteBlock = 17;
constexpr unsigned long kFpgaReadBlock = 18;

struct FpgaBlock {
  std::int32_t index;
  std::uint32_t count;
  void* buffer;
};

// Twelve bytes: index, count, address of the buffer.
int fpga_block(int fd, unsigned long request, const std::uint8_t* record, const Memory& memory) {
  FpgaBlock block = {static_cast<std::int32_t>(Memory::word(record)), Memory::word(record + 4),
                     nullptr};
  block.buffer = memory.at(Memory::word(record + 8), block.count);
  return block.buffer == nullptr && block.count > 0 ? bad_address() : ioctl(fd, request, &block);
}

// Eight bytes: address of the messages, their number. A message has twelve:
// chip, flags, length, address of its bytes.
int i2c_messages(int fd, const std::uint8_t* record, const Memory& memory) {
  constexpr std::size_t kMessageSize = 12;
  const std::uint32_t count = Memory::word(record + 4);
  const std::uint8_t* from = memory.at(Memory::word(record), count * kMessageSize);
  if (from == nullptr) return bad_address();
  std::vector<i2c_msg> messages(count);
  for (i2c_msg& message : messages) {
    message.addr = Memory::half(from);
    message.flags = Memory::half(from + 2);
    message.len = Memory::half(from + 4);
    message.buf = memory.at(Memory::word(from + 8), message.len);
    if (message.buf == nullptr && message.len > 0) return bad_address();
    from += kMessageSize;
  }
  i2c_rdwr_ioctl_data list = {messages.data(), count};
  return ioctl(fd, I2C_RDWR, &list);
}

// Twelve bytes: direction, command, size, address of the data.
int smbus_transfer(int fd, const std::uint8_t* record, const Memory& memory) {
  i2c_smbus_ioctl_data transfer = {};
  transfer.read_write = record[0];
  transfer.command = record[1];
  transfer.size = Memory::word(record + 4);
  auto* data = memory.at(Memory::word(record + 8), sizeof(i2c_smbus_data));
  if (data == nullptr) return bad_address();
  i2c_smbus_data native = {};
  memcpy(&native, data, sizeof native);
  transfer.data = &native;
  const int result = ioctl(fd, I2C_SMBUS, &transfer);
  memcpy(data, &native, sizeof native);
  return result;
}

int request(const Question& question, const Memory& memory) {
  const int fd = question.descriptor;
  const auto number = static_cast<unsigned long>(question.number);
  if (const auto* record = memory.at(question.argument, 12); record != nullptr) {
    if (number == kFpgaWriteBlock || number == kFpgaReadBlock)
      return fpga_block(fd, number, record, memory);
    if (number == I2C_SMBUS) return smbus_transfer(fd, record, memory);
  }
  if (const auto* record = memory.at(question.argument, 8); record != nullptr && number == I2C_RDWR)
    return i2c_messages(fd, record, memory);
  // No pointer inside: the same bytes here and there; or no pointer at all.
  if (void* record = memory.at(question.argument, 1); record != nullptr)
    return ioctl(fd, number, record);
  return ioctl(fd, number, static_cast<unsigned long>(question.argument));
}

// ---- the calls -------------------------------------------------------------------

std::mutex streams_lock;
std::map<int, FILE*> streams;  // by descriptor

int open_stream(const char* path, const char* mode) {
  FILE* stream = fopen(path, mode);
  if (stream == nullptr) return -1;
  std::lock_guard<std::mutex> hold(streams_lock);
  streams[fileno(stream)] = stream;
  return fileno(stream);
}

int close_any(int fd) {
  FILE* stream = nullptr;
  {
    std::lock_guard<std::mutex> hold(streams_lock);
    if (const auto one = streams.find(fd); one != streams.end()) {
      stream = one->second;
      streams.erase(one);
    }
  }
  return stream == nullptr ? close(fd) : fclose(stream);
}

int touch(const char* path, const char* mode) {
  FILE* stream = fopen(path, mode);
  return stream == nullptr ? -1 : fclose(stream);
}

int wait_readable(int fd, std::int64_t limit_us) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  timeval limit = {static_cast<time_t>(limit_us / 1000000),
                   static_cast<suseconds_t>(limit_us % 1000000)};
  return select(fd + 1, &set, nullptr, nullptr, limit_us < 0 ? nullptr : &limit);
}

std::int64_t now_us() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_usec;
}

void* partner(void* channel);

int start_partner(std::int64_t number) {
  pthread_t thread = {};
  const int refused = pthread_create(&thread, nullptr, partner, &ends[number]);
  if (refused == 0) pthread_detach(thread);
  return refused;
}

std::int64_t attach(int id, int flags) {
  return shmat(id, nullptr, flags) == reinterpret_cast<void*>(-1) ? -1 : 0;
}

std::int64_t act(const Question& question, Bytes& message, Bytes& reply) {
  const int fd = question.descriptor;
  const auto number = static_cast<int>(question.number);
  const char* text = reinterpret_cast<const char*>(message.data());
  switch (question.call) {
    case Call::kOpen:
      return open(text, number);
    case Call::kOpenStream:
      return open_stream(text, text + strlen(text) + 1);
    case Call::kClose:
      return close_any(fd);
    case Call::kTouch:
      return touch(text, text + strlen(text) + 1);
    case Call::kRead: {
      reply.resize(static_cast<std::size_t>(question.number));
      const ssize_t got = read(fd, reply.data(), reply.size());
      reply.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
      return got;
    }
    case Call::kWrite:
      return write(fd, message.data(), message.size());
    case Call::kControl:
      return fcntl(fd, number, static_cast<long>(question.argument));
    case Call::kRequest: {
      const Memory memory(message);
      const int result = request(question, memory);
      const int error = errno;
      reply = memory.content();
      errno = error;
      return result;
    }
    case Call::kSelect:
      return wait_readable(fd, question.number);
    case Call::kSleep:
      return usleep(static_cast<useconds_t>(question.number));
    case Call::kTime:
      return now_us();
    case Call::kShell:
      return system(text);
    case Call::kSharedGet:
      return shmget(number, question.argument, fd);
    case Call::kSharedAttach:
      return attach(fd, number);
    case Call::kThread:
      return start_partner(question.number);
  }
  errno = ENOSYS;
  return -1;
}

// ---- one thread of the program -----------------------------------------------------

bool receive(int channel, void* data, std::size_t size) {
  return size == 0 || recv(channel, data, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

void answer(int channel, std::int64_t result, int error, const Bytes& reply) {
  const Answer head = {result, error, static_cast<std::uint32_t>(reply.size())};
  Bytes whole(sizeof head);
  memcpy(whole.data(), &head, sizeof head);
  whole.insert(whole.end(), reply.begin(), reply.end());
  // A program that ended meanwhile needs no answer.
  for (std::size_t sent = 0; sent < whole.size();) {
    const ssize_t more = send(channel, whole.data() + sent, whole.size() - sent, MSG_NOSIGNAL);
    if (more <= 0) return;
    sent += static_cast<std::size_t>(more);
  }
}

void serve(int channel) {
  Question question = {};
  while (receive(channel, &question, sizeof question) && question.size <= kLongestMessage) {
    Bytes message(question.size);
    if (!receive(channel, message.data(), message.size())) return;
    Bytes reply;
    errno = 0;
    const std::int64_t result = act(question, message, reply);
    answer(channel, result, errno, reply);
  }
}

void* partner(void* channel) {
  const int end = *static_cast<int*>(channel);
  send(end, &kGo, sizeof kGo, MSG_NOSIGNAL);
  serve(end);
  return nullptr;
}

pid_t start_program(char** command) {
  int theirs[kChannels];
  for (int i = 0; i < kChannels; ++i) {
    int pair[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return -1;
    ends[i] = pair[0];
    theirs[i] = pair[1];
  }
  const pid_t child = fork();
  if (child == 0) {
    for (int i = 0; i < kChannels; ++i) dup2(theirs[i], kFirstChannel + i);
    execvp(command[0], command);
    fprintf(stderr, "vboard-remote: cannot run %s: %s\n", command[0], strerror(errno));
    _exit(kCannotRun);
  }
  for (const int one : theirs) close(one);
  return child;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fputs("usage: vboard run [OPTIONS] -- vboard-remote PROGRAM ARGUMENTS\n", stderr);
    return kUsage;
  }
  const pid_t program = start_program(argv + 1);
  if (program < 0) {
    fprintf(stderr, "vboard-remote: cannot start a program: %s\n", strerror(errno));
    return kCannotRun;
  }
  serve(ends[0]);
  int status = 0;
  waitpid(program, &status, 0);
  // The program's end is this one's too.
  if (WIFSIGNALED(status)) {
    signal(WTERMSIG(status), SIG_DFL);
    raise(WTERMSIG(status));
  }
  return WEXITSTATUS(status);
}
