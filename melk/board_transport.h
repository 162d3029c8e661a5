// The link to a virtual board, through the board's state.
//
// One class for both uses: `melk`, which maps the state file of a board that
// another process runs, and a scripted host, a thread in the board's own process.
#pragma once

#include <memory>
#include <string>

#include "melk/transport.h"
#include "vboard/core/board.h"
#include "vboard/core/clock.h"

namespace melk {

class BoardTransport : public Transport {
 public:
  // A board that is already the board of this process.
  explicit BoardTransport(vboard::Board& board) : board_(board) {}
  ~BoardTransport() override;

  // Maps the board kept in `directory` and makes it the board of this process.
  // Returns null with a text in `problem` when there is no usable board there.
  static std::unique_ptr<BoardTransport> open(const std::string& directory, std::string* problem);

  // A program runs on the board in `directory`, in a time that another process
  // can share.
  bool reachable(const std::string& directory, std::string* problem) const;

  bool transfer(std::uint8_t out, std::uint8_t* in) override;
  bool wait_taken(std::int64_t us) override;
  bool wait_answer(std::int64_t us) override;
  void pause(std::int64_t us) override;
  void seize() override;
  void release() override;
  std::int64_t now_us() override;
  bool push_update(const std::uint8_t* data, std::size_t size, std::int64_t us) override;

 private:
  bool wait(vboard::WaitFor what, std::int64_t us);

  vboard::Board& board_;
  int lock_fd_ = -1;  // of the board directory's link lock
};

}  // namespace melk
