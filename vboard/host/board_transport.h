// The link to a virtual board, through the board's state.
//
// One class for both uses: `melk`, which maps the state file of a board that
// another process runs, and a host that is a thread of the board's own process.
#pragma once

#include <memory>
#include <string>

#include "melk/transport.h"
#include "vboard/core/board.h"
#include "vboard/core/clock.h"

namespace vboard {

class BoardTransport : public melk::Transport {
 public:
  // A board that is already the board of this process.
  explicit BoardTransport(Board& board) : board_(board) {}
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

  // For scripts: what lives beside the program acts now; the operator stops the program,
  // which ends with ProgramGone.
  Board& board() const { return board_; }
  virtual void let_act();
  virtual void stop_program();

 protected:
  // Waits in board time; as board_wait().
  virtual bool await(WaitFor what, std::int64_t us);

 private:
  bool wait(WaitFor what, std::int64_t us);

  Board& board_;
  int lock_fd_ = -1;  // of the board directory's link lock
};

}  // namespace vboard
