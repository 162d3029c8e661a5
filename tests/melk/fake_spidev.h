// A spidev master at the end of the virtual board's link, for programs that open
// /dev/spidev0.0: what they clock out goes into the board's link, what the board
// has queued comes back, and where it has nothing the wire has its level.
//
// The calls are caught when the test is linked (-Wl,--wrap=open,...). While one
// is there, nanosleep and clock_gettime are the board's time.
#pragma once

#include <cstdint>
#include <vector>

// What comes in when the board has nothing queued.
enum class IdleWire { kLow, kHigh, kLastByte };

struct FakeSpidev {
  FakeSpidev();
  ~FakeSpidev();
  FakeSpidev(const FakeSpidev&) = delete;
  FakeSpidev& operator=(const FakeSpidev&) = delete;

  // The device.
  int open_error = 0;  // errno of open; 0 opens
  bool is_spi = true;  // knows the requests of spidev
  std::uint32_t highest_hz = 50000000;
  int most_modes = 4;      // modes below this one are accepted
  int transfer_error = 0;  // errno of every transfer
  IdleWire idle = IdleWire::kLow;

  // What was asked of it.
  struct Transfer {
    std::int64_t at_us;  // board time
    std::uint8_t out;
    std::uint8_t in;
    std::uint32_t length;
    std::uint32_t speed_hz;
    std::uint8_t bits;
  };
  std::vector<Transfer> transfers;
  int mode = -1;
  int bits = -1;
  std::uint32_t speed_hz = 0;
  int open_count = 0;
  int locks = 0;  // held now
};
