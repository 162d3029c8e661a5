// The host's end of the link: what a protocol conversation needs of it.
//
// The link is full duplex, a byte each way per transfer. What the host clocks
// out lands in the board's receive queue; what the board answers comes back on
// a later transfer. All times are board microseconds, so that a conversation
// runs the same on a live board, a scaled one and in virtual time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace melk {

class Transport {
 public:
  Transport() = default;
  virtual ~Transport() = default;
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  // One transfer. True when the board had a byte queued, which then is *in.
  virtual bool transfer(std::uint8_t out, std::uint8_t* in) = 0;

  // Waits until the board has read every byte sent; false after `us`.
  virtual bool wait_taken(std::int64_t us) = 0;

  // Waits until the board has queued a byte; false after `us`. 0 only looks.
  virtual bool wait_answer(std::int64_t us) = 0;

  virtual void pause(std::int64_t us) = 0;
  virtual std::int64_t now_us() = 0;

  // The host sees what is queued each way. On a wire it does not: every transfer
  // brings a byte in, whether the board had one or not, and the two waits only
  // leave the board its time.
  virtual bool sees_queues() const { return true; }

  // As wait_taken, between two bytes of file data, which the board reads singly.
  virtual bool wait_data_taken(std::int64_t us) { return wait_taken(us); }

  // What broke the link itself; empty while it works.
  virtual std::string broken() const { return {}; }

  // The update FIFO of the FPGA can be filled from here.
  virtual bool reaches_update_fifo() const { return true; }

  // The link is this host's alone from seize to release, so that what two clients
  // say to a board does not mix.
  virtual void seize() {}
  virtual void release() {}

  // Puts a block into the update FIFO of the FPGA, in one piece, once there is
  // room for all of it; false when the FIFO stays full for `us`. A block is at
  // most kUpdateBlock bytes.
  virtual bool push_update(const std::uint8_t* data, std::size_t size, std::int64_t us) = 0;
};

inline constexpr std::size_t kUpdateBlock = 1024;

// Seizes the link for as long as it lives.
class Conversation {
 public:
  explicit Conversation(Transport& transport) : transport_(transport) { transport_.seize(); }
  ~Conversation() { transport_.release(); }
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

 private:
  Transport& transport_;
};

}  // namespace melk
