// The link to a virtual board in virtual time, for a host that is a guest of it.
#pragma once

#include "vboard/core/guest.h"
#include "vboard/host/board_transport.h"

namespace vboard {

class GuestTransport : public BoardTransport {
 public:
  explicit GuestTransport(Board& board) : BoardTransport(board) {}

  void let_act() override { guest_heartbeat(board()); }
  void stop_program() override { guest_stops_program(board()); }

 protected:
  bool await(WaitFor what, std::int64_t us) override { return guest_wait(board(), what, us); }
};

}  // namespace vboard
