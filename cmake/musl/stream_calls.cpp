// How the static program's streams talk to a device: one transfer, one call.
//
// musl reads and writes in two parts, its buffer and what was asked for, and either
// part may be empty. A driver would see a byte of the link as a write of nothing and
// a write of one, and a read of two bytes as a read of one and a read of 1024. These
// stand in for musl's two routines and make the calls that glibc makes.
#include <unistd.h>

#include <cstddef>
#include <cstring>

// The beginning of musl's stream, unchanged from version 1.1.0 to 1.2.5.
struct Stream {
  unsigned flags;
  unsigned char *read_at, *read_end;
  int (*close)(Stream*);
  unsigned char *write_end, *write_at;
  unsigned char* unused;
  unsigned char* write_begin;
  std::size_t (*read)(Stream*, unsigned char*, std::size_t);
  std::size_t (*write)(Stream*, const unsigned char*, std::size_t);
  off_t (*seek)(Stream*, off_t, int);
  unsigned char* buffer;
  std::size_t buffer_size;
  Stream *previous, *next;
  int fd;
};

static constexpr unsigned kEndSeen = 16;
static constexpr unsigned kErrorSeen = 32;

// Returns how many bytes a driver took until all were taken or one call failed.
static std::size_t write_all(int fd, const unsigned char* data, std::size_t size) {
  std::size_t taken = 0;
  while (taken < size) {
    const ssize_t count = write(fd, data + taken, size - taken);
    if (count < 0) break;
    taken += static_cast<std::size_t>(count);
  }
  return taken;
}

extern "C" {

std::size_t __stdio_read(Stream* stream, unsigned char* data, std::size_t size) {
  const bool past_buffer = size >= stream->buffer_size;
  const ssize_t result = read(stream->fd, past_buffer ? data : stream->buffer,
                              past_buffer ? size : stream->buffer_size);
  if (result <= 0) {
    stream->flags |= result == 0 ? kEndSeen : kErrorSeen;
    return 0;
  }
  const auto count = static_cast<std::size_t>(result);
  if (past_buffer) return count;
  const std::size_t wanted = count < size ? count : size;
  memcpy(data, stream->buffer, wanted);
  stream->read_at = stream->buffer + wanted;
  stream->read_end = stream->buffer + count;
  return wanted;
}

// Writes what the stream holds, then the data: together where the buffer has room.
std::size_t __stdio_write(Stream* stream, const unsigned char* data, std::size_t size) {
  auto held = static_cast<std::size_t>(stream->write_at - stream->write_begin);
  const auto room =
      static_cast<std::size_t>(stream->buffer + stream->buffer_size - stream->write_at);
  const bool joined = held > 0 && size <= room;
  if (joined && size > 0) memcpy(stream->write_at, data, size);
  if (joined) held += size;

  bool failed = write_all(stream->fd, stream->write_begin, held) != held;
  std::size_t taken = failed ? 0 : size;
  if (!failed && !joined) {
    taken = write_all(stream->fd, data, size);
    failed = taken != size;
  }
  stream->write_begin = stream->write_at = failed ? nullptr : stream->buffer;
  stream->write_end = failed ? nullptr : stream->buffer + stream->buffer_size;
  if (failed) stream->flags |= kErrorSeen;
  return taken;
}

}  // extern "C"
