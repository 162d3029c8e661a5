// Owns the DIX4192: its lock check.
#include "audio/dix4192.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "hw/i2capi.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"
#include "state/fpgaregs.h"

enum Dix4192Register : int {
  kReceiverControl = 0x0D,
  kReceiverStatus = 0x13,
  kAudioStatus = 0x2A,
};

// What the check expects.
static constexpr int kAudioStatusLocked = 1;
static constexpr int kReceiverStatusLocked = 3;

static void write_chip(int fd, int reg, int value) {
  i2c_writebyte(fd, kDix4192Address, reg, value);
}

int audio_monitor_4192(int value) {
  const int fd = open_i2c("Cannot access I2C device - 4192");
  if (fd < 0) return -1;
  std::uint8_t audio_status = 0;
  std::uint8_t receiver_status = 0;
  if (i2c_readbyte(fd, kDix4192Address, kAudioStatus, &audio_status) < 0 ||
      i2c_readbyte(fd, kDix4192Address, kReceiverStatus, &receiver_status) < 0) {
    puts("Error i2c_readbyte - 4192-");
    close_i2c(fd);
    return -2;
  }
  const bool present = audio_status == kAudioStatusLocked &&
                       receiver_status == kReceiverStatusLocked &&
                       shared_get(&SharedBlock::audio_enable) == kAudioEnabled;
  if (!present) {
    write_chip(fd, kReceiverControl, value);
    usleep(kSecond_us);
  }
  close_i2c(fd);
  return present ? 1 : 0;
}
