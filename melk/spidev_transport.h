// The link to a real board: this machine is the SPI master, through Linux spidev.
//
// One byte a transfer, with a gap after it in which the board can read it and
// queue what it has to say. There is no other pacing on the wire, and no sign of
// life: see Transport::sees_queues.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "melk/transport.h"

namespace melk {

struct SpidevOptions {
  std::string device;  // "/dev/spidev0.0"
  std::uint32_t speed_hz = 1000000;
  std::uint8_t mode = 0;   // clock polarity and phase, 0 to 3
  double gap_ms = 10;      // after every byte of a conversation
  double data_gap_ms = 1;  // after every byte of file data
};

class SpidevTransport : public Transport {
 public:
  // Null with what is wrong, and what to do, when the device is none that serves.
  struct Refusal {
    std::string text;
    std::string hint;
  };
  static std::unique_ptr<SpidevTransport> open(const SpidevOptions& options, Refusal* refusal);
  ~SpidevTransport() override;

  bool transfer(std::uint8_t out, std::uint8_t* in) override;
  bool wait_taken(std::int64_t us) override;
  bool wait_answer(std::int64_t us) override;
  bool wait_data_taken(std::int64_t us) override;
  void pause(std::int64_t us) override;
  std::int64_t now_us() override;
  void seize() override;
  void release() override;
  bool sees_queues() const override { return false; }
  std::string broken() const override { return broken_; }
  bool reaches_update_fifo() const override { return false; }
  bool push_update(const std::uint8_t* data, std::size_t size, std::int64_t us) override;

 private:
  SpidevTransport(int fd, const SpidevOptions& options);
  bool leave_gap(double gap_ms, std::int64_t us);

  int fd_;
  SpidevOptions options_;
  std::string broken_;
  bool gap_due_ = false;     // nothing was waited for since the last transfer
  bool answer_due_ = false;  // the byte of the next transfer is an answer
};

}  // namespace melk
