// Framing of the host link: waits, single bytes, integers, paced answers.
#include "hostlink/link.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "hw/spi_slave.h"

static constexpr useconds_t kIntegerBytePause_us = 10;
static constexpr int kIntegerBytes = 4;

FILE* open_link() {
  FILE* link = open_spi_slave();
  if (link == nullptr) return nullptr;
  setvbuf(link, nullptr, _IONBF, 0);
  const int fd = fileno(link);
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  return link;
}

// Waits for one descriptor, in a set as large as it needs: sets in a row, of which
// the kernel looks at as many bits as it is told. Returns what select returns. The
// row is kept for the next wait; only the link's thread waits.
static int wait_readable(int fd) {
  static fd_set one;  // no allocation for ordinary descriptors
  static fd_set* sets = &one;
  static std::size_t count = 1;
  if (fd < 0) return -1;
  const auto last = static_cast<std::size_t>(fd) / FD_SETSIZE;
  if (last >= count) {
    auto* more = static_cast<fd_set*>(calloc(last + 1, sizeof(fd_set)));
    if (more == nullptr) return -1;
    if (sets != &one) free(sets);
    sets = more;
    count = last + 1;
  }
  memset(sets, 0, (last + 1) * sizeof(fd_set));
  FD_SET(fd % FD_SETSIZE, &sets[last]);
  timeval wait{};
  wait.tv_sec = kLinkWait_s;
  return select(fd + 1, sets, nullptr, nullptr, &wait);
}

LinkWait wait_byte(FILE* link, std::size_t ask, std::uint8_t* byte) {
  const int ready = wait_readable(fileno(link));
  if (ready < 0) {
    puts("SPI: select error");
    return LinkWait::kError;
  }
  if (ready == 0) return LinkWait::kTimeout;
  std::uint8_t scratch[kLinkReadSize];
  if (read_spi_slave(link, scratch, ask) == 0) return LinkWait::kNothing;
  *byte = scratch[0];
  return LinkWait::kByte;
}

bool receive_byte(FILE* link, std::size_t ask, const char* silence, std::uint8_t* byte) {
  for (;;) {
    switch (wait_byte(link, ask, byte)) {
      case LinkWait::kError:
        return false;
      case LinkWait::kTimeout:
        if (silence != nullptr) puts(silence);
        break;
      case LinkWait::kNothing:
        break;
      case LinkWait::kByte:
        return true;
    }
  }
}

int await_byte(FILE* link, const char* silence) {
  std::uint8_t byte = 0;
  return receive_byte(link, kLinkReadSize, silence, &byte) ? byte : 0;
}

int get_byte(FILE* link) { return await_byte(link, kLinkSilence); }

std::int32_t get_int_number(FILE* link) {
  std::uint32_t value = 0;
  for (int count = 0; count < kIntegerBytes; ++count) {
    std::uint8_t byte = 0;
    if (!receive_byte(link, kLinkReadSize, kLinkSilence, &byte)) return 0;
    usleep(kIntegerBytePause_us);
    value = value << 8 | byte;
  }
  return static_cast<std::int32_t>(value);
}

std::int32_t get_file_size(FILE* link) { return get_int_number(link); }

int get_byte_send_byte(FILE* link, std::uint8_t byte) {
  for (;;) {
    std::uint8_t poll = 0;
    switch (wait_byte(link, kLinkReadSize, &poll)) {
      case LinkWait::kError:
        return 0;  // required: the callers cannot tell it from success
      case LinkWait::kTimeout:
        puts("SPI: No data for XX seconds (get_byte_send_byte func)...");
        return -1;
      case LinkWait::kNothing:
        break;
      case LinkWait::kByte:
        if (poll != kHostPollByte) break;
        fwrite(&byte, 1, 1, link);
        return 0;
    }
  }
}
