// Character devices in user space: each a conversation with /dev/cuse, in which the
// kernel hands over the calls of the program one by one.
//
// A driver's request brings the address of its record, not the record: the answer
// to the first round names the places that it reads and fills, and the request
// comes again with their bytes.
#include "vboard/kernel/devices.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <linux/futex.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "vboard/core/clock.h"
#include "vboard/kernel/trace_file.h"
#include "vboard/models/bus.h"

namespace vboard::kernel {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kLongestTransfer = 128 * 1024;
constexpr int kSettleAfter_ms = 3;

// ---- devices, one row each ------------------------------------------------------

// A stretch of the program's memory.
struct Extent {
  std::uint64_t address;
  std::uint64_t size;
};
using Extents = std::vector<Extent>;

// What a request reads and fills, as far as it is known from what has come so far.
struct Places {
  Extents in;
  Extents out;
};

struct Request {
  std::uint32_t number;
  std::uint64_t argument;
  Bytes in;  // what it reads, once it is there
};

struct Row {
  Device device;
  const char* node;
  long (*read)(Board& board, std::uint8_t* data, std::size_t size);
  long (*write)(Board& board, const std::uint8_t* data, std::size_t size);
  int (*request)(Board& board, std::int64_t now_us, unsigned long request, void* argument);
  Places (*places)(const Request& request);
};

// Requests of the FPGA driver, as its records go.
constexpr std::uint32_t kFpgaAddress = 2;  // the argument itself, no address
constexpr std::uint32_t kFpgaByte = 3;
constexpr std::uint32_t kFpgaWrite = 15;
constexpr std::uint32_t kFpgaRead = 16;
constexpr std::uint32_t kFpgaWriteBlock = 17;
constexpr std::uint32_t kFpgaReadBlock = 18;
constexpr std::size_t kSingleSize = 8;
constexpr std::size_t kWordSize = 4;

struct Block {
  std::int32_t index;
  std::uint32_t count;
  void* buffer;
};
static_assert(sizeof(Block) == 12, "the record of a 32-bit board");

Places block_places(const Request& request) {
  Places places = {{{request.argument, sizeof(Block)}}, {}};
  if (request.in.size() < sizeof(Block)) return places;
  Block block = {};
  memcpy(&block, request.in.data(), sizeof block);
  const Extent buffer = {reinterpret_cast<std::uintptr_t>(block.buffer), block.count};
  if (block.count > 0)
    (request.number == kFpgaWriteBlock ? places.in : places.out).push_back(buffer);
  return places;
}

Places fpga_places(const Request& request) {
  switch (request.number) {
    case kFpgaAddress:
    case kFpgaByte:
      return {};
    case kFpgaWriteBlock:
    case kFpgaReadBlock:
      return block_places(request);
    default:
      break;
  }
  const bool single = request.number == kFpgaWrite || request.number == kFpgaRead;
  const Extent record = {request.argument, single ? kSingleSize : kWordSize};
  return {{record}, {record}};
}

// A request number of the capture driver contains the size of its record.
Places capture_places(const Request& request) {
  const Extent record = {request.argument, _IOC_SIZE(request.number)};
  return {{record}, {record}};
}

// Lines of whoever drives the board into the trace, in their place among the calls.
long note_write(Board&, const std::uint8_t* data, std::size_t size) {
  note_in_trace(std::string(reinterpret_cast<const char*>(data), size));
  return static_cast<long>(size);
}

constexpr Row kRows[] = {
    {Device::kFpga, "fpga", fpga_port_read, fpga_port_write, fpga_request, fpga_places},
    {Device::kFpga2, "fpga2", pll_read, pll_write, nullptr, nullptr},
    {Device::kSpiSlave, "spislave", link_board_read, link_board_write, nullptr, nullptr},
    {Device::kVideo0, "video0", nullptr, nullptr, capture_request, capture_places},
    {Device::kNone, "vboard-trace", nullptr, note_write, nullptr, nullptr},
};

// ---- the conversation -------------------------------------------------------------

// A call that the kernel handed over.
struct Call {
  fuse_in_header head;
  const std::uint8_t* rest;

  template <class T>
  T as() const {
    T value = {};
    memcpy(&value, rest, sizeof value);
    return value;
  }
};

struct Channel {
  const Row* row = nullptr;
  Board* board = nullptr;
  int fd = -1;
  // Of the link only, under the board's lock: who waits for bytes of the host.
  std::uint64_t poller = 0;  // a select, by its handle; 0 for none
  struct Reader {
    std::uint64_t call = 0;
    std::uint32_t size = 0;
    unsigned thread = 0;
  };
  std::vector<Reader> readers;
};

std::atomic<unsigned> link_taker{0};

void answer(const Channel& channel, std::uint64_t call, int error, const void* data = nullptr,
            std::size_t size = 0) {
  fuse_out_header head = {};
  head.len = static_cast<std::uint32_t>(sizeof head + size);
  head.error = error;
  head.unique = call;
  Bytes whole(head.len);
  memcpy(whole.data(), &head, sizeof head);
  if (size > 0) memcpy(whole.data() + sizeof head, data, size);
  // A caller that was killed meanwhile needs no answer.
  if (write(channel.fd, whole.data(), whole.size()) < 0 && errno != ENOENT)
    fprintf(stderr, "/dev/%s: answer not taken: %s\n", channel.row->node, strerror(errno));
}

template <class T>
void answer_with(const Channel& channel, std::uint64_t call, const T& data) {
  answer(channel, call, 0, &data, sizeof data);
}

bool node_exists(const Channel& channel) {
  const auto bit = 1u << static_cast<unsigned>(channel.row->device);
  return (channel.board->world.faults.missing_devices & bit) == 0;
}

void open_call(const Channel& channel, const Call& call) {
  if (!node_exists(channel)) return answer(channel, call.head.unique, -ENOENT);
  fuse_open_out out = {};
  out.open_flags = FOPEN_DIRECT_IO | FOPEN_NONSEEKABLE;
  answer_with(channel, call.head.unique, out);
}

// ---- reading and writing ---------------------------------------------------------

void answer_read(Channel& channel, const Channel::Reader& reader) {
  Bytes data(reader.size);
  const long got = channel.row->read(*channel.board, data.data(), data.size());
  if (channel.row->device == Device::kSpiSlave && got > 0) link_taker = reader.thread;
  answer(channel, reader.call, got < 0 ? -errno : 0, data.data(),
         got < 0 ? 0 : static_cast<std::size_t>(got));
}

bool waits_for_host(const Channel& channel, const fuse_read_in& read) {
  const LinkFifo& from_host = channel.board->link.to_board;
  return channel.row->device == Device::kSpiSlave && (read.flags & O_NONBLOCK) == 0 &&
         from_host.head == from_host.tail;
}

void read_call(Channel& channel, const Call& call) {
  if (channel.row->read == nullptr) return answer(channel, call.head.unique, -EINVAL);
  const auto read = call.as<fuse_read_in>();
  const Channel::Reader reader = {call.head.unique, read.size, call.head.pid};
  Locked hold(*channel.board);
  if (waits_for_host(channel, read))
    channel.readers.push_back(reader);
  else
    answer_read(channel, reader);
}

void write_call(const Channel& channel, const Call& call) {
  if (channel.row->write == nullptr) return answer(channel, call.head.unique, -EINVAL);
  const auto size = call.as<fuse_write_in>().size;
  long done = 0;
  int error = 0;
  {
    Locked hold(*channel.board);
    done = channel.row->write(*channel.board, call.rest + sizeof(fuse_write_in), size);
    error = errno;
  }
  if (done < 0) return answer(channel, call.head.unique, -error);
  fuse_write_out out = {};
  out.size = static_cast<std::uint32_t>(done);
  answer_with(channel, call.head.unique, out);
}

// ---- requests ----------------------------------------------------------------------

std::uint64_t size_of(const Extents& list) {
  std::uint64_t size = 0;
  for (const Extent& one : list) size += one.size;
  return size;
}

// Asks for the bytes behind the addresses.
void ask_again(const Channel& channel, std::uint64_t call, const Places& places) {
  fuse_ioctl_out head = {};
  head.flags = FUSE_IOCTL_RETRY;
  head.in_iovs = static_cast<std::uint32_t>(places.in.size());
  head.out_iovs = static_cast<std::uint32_t>(places.out.size());
  Bytes reply(sizeof head);
  memcpy(reply.data(), &head, sizeof head);
  for (const Extents* list : {&places.in, &places.out})
    for (const Extent& one : *list) {
      const fuse_ioctl_iovec place = {one.address, one.size};
      const auto* bytes = reinterpret_cast<const std::uint8_t*>(&place);
      reply.insert(reply.end(), bytes, bytes + sizeof place);
    }
  answer(channel, call, 0, reply.data(), reply.size());
}

bool is_block(const Channel& channel, const Request& request) {
  return channel.row->device == Device::kFpga &&
         (request.number == kFpgaWriteBlock || request.number == kFpgaReadBlock);
}

// The record, with the addresses in it replaced by places of this process.
int run_request(const Channel& channel, Request& request, Bytes& out) {
  void* argument = reinterpret_cast<void*>(static_cast<std::uintptr_t>(request.argument));
  if (!request.in.empty()) argument = request.in.data();
  Block block = {};
  if (is_block(channel, request)) {
    memcpy(&block, request.in.data(), sizeof block);
    block.buffer =
        request.number == kFpgaWriteBlock ? request.in.data() + sizeof block : out.data();
    argument = &block;
  }
  Locked hold(*channel.board);
  const int result = channel.row->request(*channel.board, board_now_us(), request.number, argument);
  if (result < 0) return -errno;
  if (!is_block(channel, request)) out = request.in;
  return result;
}

// A C library asks what it opens whether it is a terminal.
bool asks_for_terminal(std::uint32_t request) { return _IOC_TYPE(request) == 'T'; }

void request_call(const Channel& channel, const Call& call) {
  const auto head = call.as<fuse_ioctl_in>();
  if (asks_for_terminal(head.cmd)) return answer(channel, call.head.unique, -ENOTTY);
  if (channel.row->request == nullptr) {
    Locked hold(*channel.board);
    violation(*channel.board, "request 0x%x on /dev/%s", head.cmd, channel.row->node);
    return answer(channel, call.head.unique, -ENOTTY);
  }
  const std::uint8_t* data = call.rest + sizeof head;
  Request request = {head.cmd, head.arg, Bytes(data, data + head.in_size)};
  const Places places = channel.row->places(request);
  if (size_of(places.in) != head.in_size || size_of(places.out) != head.out_size)
    return ask_again(channel, call.head.unique, places);
  Bytes out(head.out_size);
  fuse_ioctl_out reply_head = {};
  reply_head.result = run_request(channel, request, out);
  Bytes reply(sizeof reply_head);
  memcpy(reply.data(), &reply_head, sizeof reply_head);
  if (reply_head.result >= 0) reply.insert(reply.end(), out.begin(), out.end());
  answer(channel, call.head.unique, 0, reply.data(), reply.size());
}

// ---- waiting ------------------------------------------------------------------------

void poll_call(Channel& channel, const Call& call) {
  const auto poll = call.as<fuse_poll_in>();
  fuse_poll_out out = {};
  out.revents = POLLOUT | POLLWRNORM;
  Locked hold(*channel.board);
  const LinkFifo& from_host = channel.board->link.to_board;
  if (channel.row->device != Device::kSpiSlave || from_host.head != from_host.tail)
    out.revents |= POLLIN | POLLRDNORM;
  else if ((poll.flags & FUSE_POLL_SCHEDULE_NOTIFY) != 0)
    channel.poller = poll.kh;
  answer_with(channel, call.head.unique, out);
}

// A signal for a call: one that waits for the host ends.
void interrupt_call(Channel& channel, const Call& call) {
  const std::uint64_t which = call.as<fuse_interrupt_in>().unique;
  Locked hold(*channel.board);
  const std::size_t ended = std::erase_if(
      channel.readers, [which](const Channel::Reader& one) { return one.call == which; });
  if (ended > 0) answer(channel, which, -EINTR);
}

void wake_poller(Channel& channel) {
  const fuse_notify_poll_wakeup_out wake = {channel.poller};
  channel.poller = 0;
  answer(channel, 0, FUSE_NOTIFY_POLL, &wake, sizeof wake);
}

// Bytes of the host wake who waits for them.
void watch_link(Channel& channel) {
  LinkState& link = channel.board->link;
  for (;;) {
    std::uint32_t seen = 0;
    {
      Locked hold(*channel.board);
      seen = link.event;
      const bool bytes = link.to_board.head != link.to_board.tail;
      if (bytes && channel.poller != 0) wake_poller(channel);
      if (bytes && !channel.readers.empty()) {
        answer_read(channel, channel.readers.front());
        channel.readers.erase(channel.readers.begin());
      }
    }
    syscall(SYS_futex, &link.event, FUTEX_WAIT, seen, nullptr, nullptr, 0);
  }
}

// ---- a device's thread --------------------------------------------------------------

void serve_call(Channel& channel, const Call& call) {
  const bool reads_link = channel.row->device == Device::kSpiSlave && call.head.opcode == FUSE_READ;
  if (!reads_link) settle_link(*channel.board, call.head.pid);
  switch (call.head.opcode) {
    case FUSE_OPEN:
      return open_call(channel, call);
    case FUSE_READ:
      return read_call(channel, call);
    case FUSE_WRITE:
      return write_call(channel, call);
    case FUSE_IOCTL:
      return request_call(channel, call);
    case FUSE_POLL:
      return poll_call(channel, call);
    case FUSE_INTERRUPT:
      return interrupt_call(channel, call);
    case FUSE_RELEASE:
    case FUSE_FLUSH:
    case FUSE_FSYNC:
      return answer(channel, call.head.unique, 0);
    default:
      return answer(channel, call.head.unique, -ENOSYS);
  }
}

// False when nothing comes for so long that the board must be done with what it took.
bool call_comes(const Channel& channel) {
  if (channel.row->device != Device::kSpiSlave || link_taker == 0) return true;
  pollfd one = {channel.fd, POLLIN, 0};
  return poll(&one, 1, kSettleAfter_ms) != 0;
}

void serve(Channel& channel) {
  Bytes buffer(kLongestTransfer + 64 * 1024);
  for (;;) {
    if (!call_comes(channel)) {
      settle_link(*channel.board, link_taker);
      continue;
    }
    const ssize_t size = read(channel.fd, buffer.data(), buffer.size());
    if (size < 0 && (errno == EINTR || errno == ENOENT)) continue;
    if (size < static_cast<ssize_t>(sizeof(fuse_in_header))) return;
    Call call = {};
    memcpy(&call.head, buffer.data(), sizeof call.head);
    call.rest = buffer.data() + sizeof call.head;
    serve_call(channel, call);
  }
}

// The kernel's first call: what the device is called and can do.
bool introduce(const Channel& channel) {
  Bytes buffer(kLongestTransfer);
  if (read(channel.fd, buffer.data(), buffer.size()) < 0) return false;
  fuse_in_header head = {};
  cuse_init_in in = {};
  memcpy(&head, buffer.data(), sizeof head);
  memcpy(&in, buffer.data() + sizeof head, sizeof in);
  if (head.opcode != CUSE_INIT) return false;
  cuse_init_out out = {};
  out.major = in.major;
  out.minor = in.minor;
  out.flags = CUSE_UNRESTRICTED_IOCTL;
  out.max_read = out.max_write = kLongestTransfer;
  const std::string name = std::string("DEVNAME=") + channel.row->node;
  Bytes reply(sizeof out);
  memcpy(reply.data(), &out, sizeof out);
  reply.insert(reply.end(), name.c_str(), name.c_str() + name.size() + 1);
  answer(channel, head.unique, 0, reply.data(), reply.size());
  return true;
}

}  // namespace

void settle_link(Board& board, unsigned thread) {
  if (thread == 0 || !link_taker.compare_exchange_strong(thread, 0)) return;
  Locked hold(board);
  board.link.settled = true;
  link_changed(board);
}

bool serve_devices(Board& board, std::string* problem) {
  for (const Row& row : kRows) {
    auto* channel = new Channel;  // for the life of the process
    channel->row = &row;
    channel->board = &board;
    channel->fd = open("/dev/cuse", O_RDWR | O_CLOEXEC);
    if (channel->fd < 0 || !introduce(*channel)) {
      *problem = std::string("/dev/") + row.node + ": " + strerror(errno);
      return false;
    }
    std::thread(serve, std::ref(*channel)).detach();
    if (row.device == Device::kSpiSlave) std::thread(watch_link, std::ref(*channel)).detach();
  }
  return true;
}

}  // namespace vboard::kernel
