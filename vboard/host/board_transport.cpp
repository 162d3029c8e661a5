// Transfers, waits and the update FIFO of a virtual board.
#include "vboard/host/board_transport.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "vboard/core/clock.h"
#include "vboard/core/guest.h"
#include "vboard/core/real.h"
#include "vboard/core/record.h"
#include "vboard/core/text.h"
#include "vboard/core/update_fifo.h"
#include "vboard/models/bus.h"

namespace vboard {

namespace {

constexpr std::int64_t kFifoPollUs = 1000;

}  // namespace

std::unique_ptr<BoardTransport> BoardTransport::open(const std::string& directory,
                                                     std::string* problem) {
  const std::string file = directory + "/board.state";
  if (access(file.c_str(), F_OK) != 0) {
    *problem = "no board in " + directory + " (there is no " + file + ")";
    return nullptr;
  }
  Board* board = map_board(file.c_str());
  if (board == nullptr) {
    *problem = errno == EPROTO ? file + " is of another version of the virtual board"
                               : file + ": " + strerror(errno);
    return nullptr;
  }
  clock_attach(board);
  auto transport = std::make_unique<BoardTransport>(*board);
  transport->lock_fd_ =
      real::open((directory + "/link.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  return transport;
}

BoardTransport::~BoardTransport() {
  if (lock_fd_ >= 0) real::close(lock_fd_);
}

void BoardTransport::seize() {
  while (lock_fd_ >= 0 && flock(lock_fd_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

void BoardTransport::release() {
  if (lock_fd_ >= 0) flock(lock_fd_, LOCK_UN);
}

bool BoardTransport::reachable(const std::string& directory, std::string* problem) const {
  Locked hold(board_);
  // The lock shows a run that was killed and could not say so.
  if (board_.clock.running == 0 || !board_in_use(directory.c_str())) {
    *problem = "no program runs on the board";
    return false;
  }
  if (board_.clock.mode == TimeMode::kVirtual) {
    *problem = "the board runs in virtual time, where only its own scripted host can talk to it";
    return false;
  }
  return true;
}

void BoardTransport::let_act() { heartbeat(); }

// Out of reach in another process: the host ends.
void BoardTransport::stop_program() { throw ProgramGone(); }

bool BoardTransport::transfer(std::uint8_t out, std::uint8_t* in) {
  Locked hold(board_);
  return link_host_transfer(board_, out, in);
}

bool BoardTransport::await(WaitFor what, std::int64_t us) { return board_wait(what, us); }

bool BoardTransport::wait(WaitFor what, std::int64_t us) {
  const bool came_true = await(what, us);
  record_look(board_);
  return came_true;
}

bool BoardTransport::wait_taken(std::int64_t us) { return wait(WaitFor::kBoardTook, us); }

bool BoardTransport::wait_answer(std::int64_t us) { return wait(WaitFor::kAnswer, us); }

void BoardTransport::pause(std::int64_t us) { wait(WaitFor::kNothing, us); }

std::int64_t BoardTransport::now_us() { return board_now_us(); }

bool BoardTransport::push_update(const std::uint8_t* data, std::size_t size, std::int64_t us) {
  const std::int64_t limit = now_us() + us;
  for (std::size_t done = 0;;) {
    {
      Locked hold(board_);
      const std::size_t fed = feed_update(board_.fpga, data + done, size - done);
      if (fed > 0 && recording(board_))
        record(board_, kHostActs, "fifo" + spaced_hex(data + done, fed));
      done += fed;
    }
    if (done == size) return true;
    if (now_us() >= limit) return false;
    pause(kFifoPollUs);
  }
}

}  // namespace vboard
