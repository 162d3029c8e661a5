// The SPI link: two byte queues between the host and the board's slave device.
//
// Every byte that the host clocks out can be read by the board, whichever of its
// open handles it uses; every byte that the board writes is shifted out on a
// later transfer of the host.
#include <cerrno>
#include <string>

#include "vboard/core/clock.h"
#include "vboard/core/record.h"
#include "vboard/core/text.h"
#include "vboard/core/trace.h"
#include "vboard/models/bus.h"

namespace vboard {

namespace {

// A byte for which there is no room is lost, and counted.
bool put(LinkFifo& fifo, std::uint8_t byte) {
  if (fifo.head - fifo.tail >= kLinkDepth) {
    ++fifo.overruns;
    return false;
  }
  fifo.data[fifo.head % kLinkDepth] = byte;
  ++fifo.head;
  return true;
}

bool take(LinkFifo& fifo, std::uint8_t* byte) {
  if (fifo.head == fifo.tail) return false;
  *byte = fifo.data[fifo.tail % kLinkDepth];
  ++fifo.tail;
  return true;
}

void trace_bytes(const char* what, const std::uint8_t* data, std::size_t size) {
  trace("spi %s%s", what, spaced_hex(data, size).c_str());
}

}  // namespace

long link_board_read(Board& board, std::uint8_t* data, std::size_t size) {
  std::size_t got = 0;
  while (got < size && take(board.link.to_board, data + got)) ++got;
  board.link.settled = got == 0;
  if (got == 0) {
    link_changed(board);
    if (board.world.faults.link_ends) return 0;
    errno = EAGAIN;
    return -1;
  }
  link_changed(board);
  trace_bytes("rd", data, got);
  return static_cast<long>(got);
}

long link_board_write(Board& board, const std::uint8_t* data, std::size_t size) {
  std::size_t sent = 0;
  while (sent < size && put(board.link.to_host, data[sent])) ++sent;
  if (sent == 0 && size > 0) {
    trace("spi wr = EAGAIN");
    errno = EAGAIN;
    return -1;
  }
  link_changed(board);
  trace_bytes("wr", data, sent);
  return static_cast<long>(sent);
}

bool link_host_transfer(Board& board, std::uint8_t out, std::uint8_t* in) {
  const bool had = take(board.link.to_host, in);
  if (recording(board)) {
    char back[4] = "--";
    if (had) snprintf(back, sizeof back, "%02x", *in);
    char text[24];
    snprintf(text, sizeof text, "link %02x -> %s", out, back);
    record(board, kHostActs, text);
  }
  put(board.link.to_board, out);
  link_changed(board);
  return had;
}

}  // namespace vboard
