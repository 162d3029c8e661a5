// An upload to the host and a bitstream load, against loops of the same system
// calls.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fstream>

#include "hostlink/link.h"
#include "hostlink/upload.h"
#include "hw/bitstream.h"
#include "tests/bench/seam.h"
#include "tests/bench/workload.h"
#include "vboard/core/real.h"

namespace bench {

namespace {

constexpr std::size_t kFileBlock = 4096;
constexpr std::size_t kPortChunk = 16;
constexpr std::int32_t kConfigReady = 3;  // nSTATUS and done
constexpr char kArchive[] = "/temp_log1.tar.gz";
constexpr char kBitstream[] = "/bitstream.rbf";

void put_file(const std::string& path, int bytes) {
  std::ofstream file(path, std::ios::binary);
  for (int i = 0; i < bytes; ++i) file.put(static_cast<char>(i * 7 + i / 256));
}

// A link on which the host always polls: what is read from it is poll bytes.
int polling_link(int bytes) {
  const int fd = memfd_create("link", 0);
  const std::string polls(static_cast<std::size_t>(bytes) * (kLinkReadSize + 1),
                          static_cast<char>(kHostPollByte));
  if (vboard::real::write(fd, polls.data(), polls.size()) < 0) give_up("no room for the link");
  lseek(fd, 0, SEEK_SET);
  return fd;
}

void upload_loop(int fd, int bytes) {
  static const std::string path = home() + kArchive;
  const int file = vboard::real::open(path.c_str(), O_RDONLY);
  std::uint8_t block[kFileBlock];
  std::uint8_t polls[kLinkReadSize];
  long in_block = 0;
  long at = 0;
  for (int i = 0; i < bytes; ++i) {
    if (at == in_block) {
      in_block = syscall(SYS_read, file, block, sizeof block);
      at = 0;
    }
    do {
      fd_set readable;
      FD_ZERO(&readable);
      FD_SET(fd, &readable);
      timeval wait{kLinkWait_s, 0};
      vboard::real::select(fd + 1, &readable, nullptr, nullptr, &wait);
      syscall(SYS_read, fd, polls, sizeof polls);
    } while (polls[0] != kHostPollByte);
    syscall(SYS_write, fd, &block[at++], 1);
  }
  vboard::real::close(file);
}

// The bytes on the console, twenty a line, as the upload shows them afterwards.
void dump_loop(int bytes) {
  static const std::string path = home() + kArchive;
  const int file = vboard::real::open(path.c_str(), O_RDONLY);
  static std::uint8_t all[1 << 20];
  const long count = syscall(SYS_read, file, all, static_cast<std::size_t>(bytes));
  vboard::real::close(file);
  static constexpr char kDigits[] = "0123456789abcdef";
  char line[80];
  std::size_t used = 0;
  for (long i = 0; i < count; ++i) {
    if (i % 20 == 0) {
      line[used++] = '\n';
      syscall(SYS_write, STDOUT_FILENO, line, used);
      used = 0;
    }
    if (all[i] >= 16) line[used++] = kDigits[all[i] >> 4];
    line[used++] = kDigits[all[i] & 15];
    line[used++] = ' ';
  }
  syscall(SYS_write, STDOUT_FILENO, line, used);
}

std::uint8_t reversed(std::uint8_t value) {
  std::uint8_t result = 0;
  for (int bit = 0; bit < 8; ++bit)
    result = static_cast<std::uint8_t>(result << 1 | (value >> bit & 1));
  return result;
}

void bitstream_loop() {
  static const std::string path = home() + kBitstream;
  static const auto table = [] {
    std::array<std::uint8_t, 256> all{};
    for (unsigned i = 0; i < all.size(); ++i) all[i] = reversed(static_cast<std::uint8_t>(i));
    return all;
  }();
  const int file = vboard::real::open(path.c_str(), O_RDONLY);
  const int port = vboard::real::open("/dev/zero", O_RDWR);
  std::uint8_t block[kFileBlock];
  std::uint8_t back[kPortChunk];
  for (long got = 0; (got = syscall(SYS_read, file, block, sizeof block)) > 0;) {
    for (long i = 0; i < got; ++i) block[i] = table[block[i]];
    for (long at = 0; at < got; at += static_cast<long>(kPortChunk)) {
      const std::size_t size = std::min(kPortChunk, static_cast<std::size_t>(got - at));
      syscall(SYS_write, port, block + at, size);
      syscall(SYS_read, port, back, size);
    }
  }
  vboard::real::close(port);
  vboard::real::close(file);
}

}  // namespace

std::vector<Workload> transfer_workloads(int bytes) {
  put_file(home() + kArchive, bytes);
  put_file(home() + kBitstream, bytes);
  const int polls = polling_link(bytes);
  use_link(polls);
  answer_always(kConfigReady);
  FILE* link = open_link();
  // Back to where only polls are: what the board wrote is overwritten.
  const auto settle = [polls, bytes] {
    const std::string fresh(static_cast<std::size_t>(bytes) * (kLinkReadSize + 1),
                            static_cast<char>(kHostPollByte));
    if (pwrite(polls, fresh.data(), fresh.size(), 0) < 0) give_up("no room for the link");
    lseek(polls, 0, SEEK_SET);
  };
  const auto upload = [link, bytes] {
    if (send_log_file(bytes, link, kLogFile1) != 0) give_up("the upload failed");
  };
  const auto load = [] {
    answer_always(kConfigReady);
    if (fpgaLoadBitstream((home() + kBitstream).c_str()) != 0) give_up("the load failed");
  };
  const auto loop = [polls, bytes] {
    upload_loop(polls, bytes);
    dump_loop(bytes);
  };
  return {{"upload/product", upload, settle},
          {"upload/loop", loop, settle},
          {"bitstream/product", load, close_left_open},
          {"bitstream/loop", bitstream_loop, {}}};
}

}  // namespace bench
