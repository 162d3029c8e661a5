// The interposer: the C library calls that the product makes, answered by the
// virtual board where they concern a device, the clock or the threads.
//
// Above the marker: what the calls mean on the board. Below it: the overrides,
// each a few lines. Nothing above the marker may be exported under a C library
// name, nothing below it may hold logic.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/core/trace.h"
#include "vboard/interpose/seam.h"
#include "vboard/models/bus.h"
#include "vboard/models/encoder.h"
#include "vboard/models/fpga.h"

namespace vboard::seam {

namespace {

// What device calls cost in virtual time.
constexpr std::int64_t kLinkCost_us = 5;
constexpr std::int64_t kOtherCost_us = 20;

constexpr char kBoardHome[] = "/home/tovin";
constexpr char kBoardMount[] = "/mnt/tovin";  // where the bench captures go

struct Handle {
  Device device = Device::kNone;
  int number = 0;  // bus of an I2C handle, line of a GPIO handle
  int slave = 0;   // address bound with I2C_SLAVE
  bool nonblocking = false;
  bool is_stream = false;
  std::string path;
};

struct CallFault {
  std::string call;
  std::string match;
  int skip;
  int times;
  int error;
};

// The sweep of failing calls.
struct Sweep {
  bool on = false;
  Failing how = Failing::kOnce;
  long fail_at = 0;
  std::vector<SweptCall> calls;
  std::string failed;
};

struct OwnSemaphores {
  int id = 7;
  bool exists = false;
  unsigned short value[3] = {};
};

// All state of the interposer; never destroyed, threads may outlive main.
struct Seam {
  std::mutex lock;
  Board* board = nullptr;
  Settings settings;
  std::map<int, Handle> handles;
  std::map<FILE*, int> streams;
  std::map<FILE*, std::string> files;  // of the board, as the program named them
  std::vector<CallFault> faults;
  Sweep sweep;
  SharedBlock* block = nullptr;
  bool own_block_exists = false;
  OwnSemaphores semaphores;
};
Seam& seam() {
  static Seam* one = new Seam;
  return *one;
}
SharedBlock own_block;

bool active() { return seam().board != nullptr; }

// Errors that a call can give on a machine in trouble; the sweep takes them in turn.
struct CallErrors {
  const char* call;
  std::vector<int> errors;
};
const std::vector<CallErrors>& call_errors() {
  static const auto* all = new std::vector<CallErrors>{
      {"fopen", {EMFILE, EACCES, ENODEV, ENOMEM}},
      {"open", {EMFILE, EBUSY, ENODEV, ENOMEM}},
      {"fclose", {ENOSPC, EIO}},
      {"close", {EIO, EINTR}},
      {"read", {EIO, EINTR, EAGAIN}},
      {"write", {EIO, ENOSPC, EINTR}},
      {"fread", {EIO, EINTR}},
      {"fwrite", {ENOSPC, EIO}},
      {"fgets", {EIO, EINTR}},
      {"fseek", {EIO, EINVAL}},
      {"ftell", {EIO, EBADF}},
      {"fflush", {ENOSPC, EIO}},
      {"select", {EINTR, EBADF, ENOMEM}},
      {"ioctl", {EIO, EREMOTEIO, ETIMEDOUT, EINVAL, EBUSY}},
      {"system", {EAGAIN, ENOMEM}},
      {"pthread_create", {EAGAIN, EPERM}},
      {"shmget", {ENOMEM, ENOSPC, EACCES}},
      {"shmat", {ENOMEM, EACCES, EINVAL}},
      {"semget", {ENOSPC, EACCES}},
      {"semop", {EIDRM, EINTR}},
  };
  return *all;
}

int plausible_error(const char* call, std::size_t turn) {
  for (const CallErrors& row : call_errors())
    if (strcmp(row.call, call) == 0) return row.errors[turn % row.errors.size()];
  return ENOMEM;
}

// Half of what was asked for; a single byte does not come at all.
bool cut_short(const char* call, const std::string& subject, std::size_t* size) {
  Sweep& sweep = seam().sweep;
  if (static_cast<long>(sweep.calls.size()) != sweep.fail_at || size == nullptr) return false;
  sweep.failed = std::string(call) + " " + subject;
  *size /= 2;
  return true;
}

// Counts the call. True when it shall fail; a call that shall be short has its
// size reduced and goes on.
bool sweep_fails(const char* call, const std::string& subject, std::size_t* size) {
  Sweep& sweep = seam().sweep;
  if (!sweep.on) return false;
  sweep.calls.push_back({call, size != nullptr});
  if (sweep.how == Failing::kLost || sweep.how == Failing::kLie) return false;
  if (sweep.how == Failing::kShort) {
    cut_short(call, subject, size);
    return false;
  }
  const long at = static_cast<long>(sweep.calls.size());
  if (sweep.fail_at == 0 || at < sweep.fail_at) return false;
  if (at > sweep.fail_at && sweep.how == Failing::kOnce) return false;
  if (sweep.failed.empty()) sweep.failed = std::string(call) + " " + subject;
  errno = plausible_error(call, sweep.calls.size());
  return true;
}

// A sweep's failed call takes its time: a program may repeat it for ever.
constexpr std::int64_t kSweptCallCost_us = 100;

// `size`, where the call may be short: how much it was asked to move.
bool call_fails(const char* call, const std::string& subject, std::size_t* size = nullptr) {
  if (!active()) return false;
  std::unique_lock<std::mutex> hold(seam().lock);
  if (sweep_fails(call, subject, size)) {
    const int error = errno;
    hold.unlock();
    board_cost(kSweptCallCost_us);
    errno = error;
    return true;
  }
  for (CallFault& fault : seam().faults) {
    if (fault.call != call || subject.find(fault.match) == std::string::npos) continue;
    if (fault.skip > 0) {
      --fault.skip;
      continue;
    }
    if (fault.times == 0) continue;
    if (fault.times > 0) --fault.times;
    errno = fault.error;
    trace("%s %s = %s", call, subject.c_str(), errno_name(fault.error));
    errno = fault.error;
    return true;
  }
  return false;
}

bool find_handle(int fd, Handle* found) {
  if (!active() || fd < 0) return false;
  std::lock_guard<std::mutex> hold(seam().lock);
  const auto one = seam().handles.find(fd);
  if (one == seam().handles.end()) return false;
  *found = one->second;
  return true;
}

// ---- paths --------------------------------------------------------------------

bool numbered(const std::string& path, const char* before, const char* after, int* number) {
  const std::size_t head = strlen(before);
  const std::size_t tail = strlen(after);
  if (path.size() <= head + tail || path.compare(0, head, before) != 0) return false;
  if (path.compare(path.size() - tail, tail, after) != 0) return false;
  const std::string digits = path.substr(head, path.size() - head - tail);
  if (digits.find_first_not_of("0123456789") != std::string::npos || digits.size() > 6)
    return false;
  *number = atoi(digits.c_str());
  return true;
}

Device device_of(const std::string& path, int* number) {
  *number = 0;
  if (path == "/dev/fpga") return Device::kFpga;
  if (path == "/dev/fpga2") return Device::kFpga2;
  if (path == "/dev/spislave") return Device::kSpiSlave;
  if (path == "/dev/video0") return Device::kVideo0;
  if (numbered(path, "/dev/i2c-", "", number)) return Device::kI2c;
  if (numbered(path, "/sys/class/gpio/gpio", "/value", number)) return Device::kGpioValue;
  return Device::kNone;
}

bool node_exists(Device device, int number) {
  const Board& board = *seam().board;
  if (board.world.faults.missing_devices & (1u << static_cast<unsigned>(device))) return false;
  if (device == Device::kI2c) return number == 1;
  if (device == Device::kGpioValue) return number < 128 && board.gpio.exported[number];
  return true;
}

bool lies_under(const std::string& path, const char* directory) {
  const std::size_t size = strlen(directory);
  return path.compare(0, size, directory) == 0 && (path.size() == size || path[size] == '/');
}

// A path of the board as it lies on this machine.
std::string on_machine(const std::string& path) {
  const std::string& home = seam().settings.home;
  if (home.empty()) return path;
  if (lies_under(path, kBoardHome)) return home + path.substr(strlen(kBoardHome));
  if (lies_under(path, kBoardMount)) return home + path;
  return path;
}

// Files that belong to the board rather than to the machine.
bool board_file(const std::string& path) {
  return lies_under(path, kBoardHome) || lies_under(path, kBoardMount) || path[0] != '/';
}

// ---- handles --------------------------------------------------------------------

// A descriptor that reserves its number: a copy of one, which costs less than
// opening it anew.
int placeholder() {
  static std::atomic<int> first{-1};
  if (first < 0) {
    int none = -1;
    const int fd = real::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (fd < 0) return -1;
    if (!first.compare_exchange_strong(none, fd)) real::close(fd);
  }
  const int copy = real::fcntl(first, F_DUPFD_CLOEXEC, 0);
  return copy >= 0 ? copy : real::open("/dev/null", O_RDWR | O_CLOEXEC);
}

// Opens a device: a placeholder descriptor stands for it.
int open_device(const std::string& path, Device device, int number, const char* mode,
                bool is_stream) {
  const char* call = is_stream ? "fopen" : "open";
  if (call_fails(call, path)) return -1;
  if (!node_exists(device, number)) {
    trace("open %s = ENOENT", path.c_str());
    errno = ENOENT;
    return -1;
  }
  const int fd = placeholder();
  if (fd < 0) return -1;
  Handle handle;
  handle.device = device;
  handle.number = number;
  handle.is_stream = is_stream;
  handle.path = path;
  {
    std::lock_guard<std::mutex> hold(seam().lock);
    seam().handles[fd] = handle;
  }
  trace("open %s%s%s", path.c_str(), mode[0] != '\0' ? " " : "", mode);
  return fd;
}

int close_device(int fd, const Handle& handle) {
  {
    std::lock_guard<std::mutex> hold(seam().lock);
    seam().handles.erase(fd);
  }
  trace("close %s", handle.path.c_str());
  return real::close(fd);
}

// Runs one device call: the board acts first, then the model, then time passes.
template <class Call>
auto on_board(std::int64_t cost_us, Call call) {
  heartbeat();
  const std::int64_t now_us = board_now_us();
  int error = 0;
  auto run = [&] {
    Locked hold(*seam().board);
    auto result = call(*seam().board, now_us);
    error = errno;
    return result;
  };
  const auto result = run();
  board_cost(cost_us);
  errno = error;
  return result;
}

// The board reads the link in gulps of which it keeps the first byte, so the host
// must not send on before the gulp is over: until the thread that took a byte
// does something else.
thread_local bool took_host_bytes = false;

void settle_link() {
  if (!took_host_bytes) return;
  took_host_bytes = false;
  Locked hold(*seam().board);
  seam().board->link.settled = true;
  link_changed(*seam().board);
}

long gpio_write(Board& board, const Handle& handle, const std::uint8_t* data, std::size_t size) {
  if (size != 2 || data[1] != 0) violation(board, "gpio write of %zu bytes", size);
  board.gpio.value[handle.number] = size > 0 && data[0] == '1';
  trace("gpio %d <- %c", handle.number, size > 0 ? data[0] : '?');
  return static_cast<long>(size);
}

long device_read(const Handle& handle, std::uint8_t* data, std::size_t size) {
  if (call_fails("read", handle.path, &size)) return errno == 0 ? 0 : -1;
  if (size == 0) return 0;
  if (handle.device == Device::kSpiSlave && !handle.nonblocking)
    board_wait(WaitFor::kHostBytes, kForever);
  if (handle.device == Device::kSpiSlave) took_host_bytes = true;
  return on_board(kLinkCost_us, [&](Board& board, std::int64_t) -> long {
    switch (handle.device) {
      case Device::kSpiSlave:
        return link_board_read(board, data, size);
      case Device::kFpga:
        return fpga_port_read(board, data, size);
      case Device::kFpga2:
        return pll_read(board, data, size);
      default:
        errno = EINVAL;
        return -1;
    }
  });
}

long device_write(const Handle& handle, const std::uint8_t* data, std::size_t size) {
  settle_link();
  if (call_fails("write", handle.path, size > 1 ? &size : nullptr)) return -1;
  return on_board(kLinkCost_us, [&](Board& board, std::int64_t) -> long {
    switch (handle.device) {
      case Device::kSpiSlave:
        return link_board_write(board, data, size);
      case Device::kFpga:
        return fpga_port_write(board, data, size);
      case Device::kFpga2:
        return pll_write(board, data, size);
      case Device::kGpioValue:
        return gpio_write(board, handle, data, size);
      default:
        errno = EINVAL;
        return -1;
    }
  });
}

int i2c_request(Board& board, int fd, const Handle& handle, unsigned long request, void* argument) {
  switch (request) {
    case I2C_RDWR: {
      auto* list = static_cast<i2c_rdwr_ioctl_data*>(argument);
      return i2c_transfer(board, handle.number, list->msgs, list->nmsgs);
    }
    case I2C_SLAVE: {
      const int address = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
      trace("i2c bind %02x", static_cast<unsigned>(address));
      std::lock_guard<std::mutex> hold(seam().lock);
      seam().handles[fd].slave = address;
      return 0;
    }
    case I2C_SMBUS: {
      auto* transfer = static_cast<i2c_smbus_ioctl_data*>(argument);
      if (transfer->read_write != I2C_SMBUS_READ || transfer->size != I2C_SMBUS_BYTE_DATA) {
        violation(board, "i2c smbus transfer of kind %u", transfer->size);
        errno = EINVAL;
        return -1;
      }
      return i2c_smbus_read_byte(board, handle.number, handle.slave, transfer->command,
                                 &transfer->data->byte);
    }
    default:
      violation(board, "i2c request 0x%lx", request);
      errno = ENOTTY;
      return -1;
  }
}

std::int64_t request_cost(const Handle& handle, unsigned long request, void* argument) {
  switch (handle.device) {
    case Device::kFpga:
      return fpga_request_cost(request, argument);
    case Device::kI2c:
      if (request == I2C_RDWR) {
        const auto* list = static_cast<i2c_rdwr_ioctl_data*>(argument);
        return i2c_transfer_cost(*seam().board, list->msgs, list->nmsgs);
      }
      if (request == I2C_SMBUS) return i2c_smbus_cost(*seam().board);
      return kOtherCost_us;
    default:
      return kOtherCost_us;
  }
}

// Notes what the request does that was counted last. True when it is the one that
// claims success.
bool sweep_deceives(const Handle& handle, unsigned long request, const void* argument) {
  Sweep& sweep = seam().sweep;
  if (!sweep.on) return false;  // as it nearly always is: no lock for that
  std::lock_guard<std::mutex> hold(seam().lock);
  if (sweep.calls.empty()) return false;
  SweptCall& call = sweep.calls.back();
  call.effect = effect_of(handle.device, request, argument);
  if (static_cast<long>(sweep.calls.size()) != sweep.fail_at) return false;
  const Effect wanted = sweep.how == Failing::kLost  ? Effect::kWrite
                        : sweep.how == Failing::kLie ? Effect::kRead
                                                     : Effect::kNone;
  if (wanted == Effect::kNone || call.effect != wanted) return false;
  sweep.failed = words_of(handle.device, request, argument);
  return true;
}

int perform_request(int fd, const Handle& handle, unsigned long request, void* argument);

int device_request(int fd, const Handle& handle, unsigned long request, void* argument) {
  settle_link();
  if (call_fails("ioctl", handle.path + " " + std::to_string(request))) return -1;
  if (!sweep_deceives(handle, request, argument))
    return perform_request(fd, handle, request, argument);
  if (effect_of(handle.device, request, argument) == Effect::kWrite) {
    heartbeat();
    board_cost(request_cost(handle, request, argument));
    return success_of(handle.device, request, argument);
  }
  const int result = perform_request(fd, handle, request, argument);
  falsify(handle.device, request, argument);
  return result;
}

int perform_request(int fd, const Handle& handle, unsigned long request, void* argument) {
  return on_board(request_cost(handle, request, argument),
                  [&](Board& board, std::int64_t now_us) -> int {
                    switch (handle.device) {
                      case Device::kFpga:
                        return fpga_request(board, now_us, request, argument);
                      case Device::kI2c:
                        return i2c_request(board, fd, handle, request, argument);
                      case Device::kVideo0:
                        return capture_request(board, now_us, request, argument);
                      default:
                        violation(board, "request 0x%lx on %s", request, handle.path.c_str());
                        errno = ENOTTY;
                        return -1;
                    }
                  });
}

// A request on a descriptor that never opened takes its time too: a program may
// go on issuing it for ever.
constexpr std::int64_t kFailedCallCost_us = 1;

int seam_ioctl(int fd, unsigned long request, void* argument) {
  Handle handle;
  if (find_handle(fd, &handle)) return device_request(fd, handle, request, argument);
  if (active() && fd < 0) board_cost(kFailedCallCost_us);
  return real::ioctl(fd, request, argument);
}

// ---- streams on devices -----------------------------------------------------------
// A device stream is a cookie stream, so that the C library buffers it as it
// would buffer the real one; fileno() names the placeholder descriptor.

int cookie_fd(void* cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

ssize_t cookie_read(void* cookie, char* data, std::size_t size) {
  Handle handle;
  if (!find_handle(cookie_fd(cookie), &handle)) return -1;
  return device_read(handle, reinterpret_cast<std::uint8_t*>(data), size);
}

ssize_t cookie_write(void* cookie, const char* data, std::size_t size) {
  Handle handle;
  if (!find_handle(cookie_fd(cookie), &handle)) return 0;
  const long written = device_write(handle, reinterpret_cast<const std::uint8_t*>(data), size);
  return written < 0 ? 0 : written;  // a cookie reports failure as 0
}

int cookie_close(void* cookie) {
  Handle handle;
  if (!find_handle(cookie_fd(cookie), &handle)) return -1;
  return close_device(cookie_fd(cookie), handle);
}

FILE* open_device_stream(const std::string& path, Device device, int number, const char* mode) {
  const int fd = open_device(path, device, number, mode, true);
  if (fd < 0) return nullptr;
  cookie_io_functions_t calls = {};
  calls.read = cookie_read;
  calls.write = cookie_write;
  calls.close = cookie_close;
  FILE* stream = fopencookie(reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)), mode, calls);
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().streams[stream] = fd;
  return stream;
}

int stream_fd(FILE* stream) {
  if (!active()) return -1;
  std::lock_guard<std::mutex> hold(seam().lock);
  const auto one = seam().streams.find(stream);
  return one == seam().streams.end() ? -1 : one->second;
}

void remember_file(FILE* stream, const char* path) {
  if (stream == nullptr) return;
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().files[stream] = path;
}

std::string file_path(FILE* stream) {
  std::lock_guard<std::mutex> hold(seam().lock);
  const auto one = seam().files.find(stream);
  return one == seam().files.end() ? "" : one->second;
}

void forget_file(FILE* stream) {
  const std::string path = file_path(stream);
  if (path.empty()) return;
  trace_file("file %s closed", path.c_str());
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().files.erase(stream);
}

FILE* seam_fopen(const char* path, const char* mode) {
  if (!active()) return real::fopen(path, mode);
  settle_link();
  int number = 0;
  const Device device = device_of(path, &number);
  if (device != Device::kNone) return open_device_stream(path, device, number, mode);
  if (call_fails("fopen", path)) return nullptr;
  FILE* stream = real::fopen(on_machine(path).c_str(), mode);
  const int error = errno;
  if (board_file(path)) {
    trace("file %s %s%s%s", path, mode, stream == nullptr ? " = " : "",
          stream == nullptr ? errno_name(error) : "");
    remember_file(stream, path);
  }
  errno = error;
  return stream;
}

int seam_open(const char* path, int flags, mode_t mode) {
  if (!active()) return real::open(path, flags, mode);
  int number = 0;
  const Device device = device_of(path, &number);
  if (device != Device::kNone) return open_device(path, device, number, "", false);
  if (call_fails("open", path)) return -1;
  return real::open(on_machine(path).c_str(), flags, mode);
}

int seam_fclose(FILE* stream) {
  const int fd = stream_fd(stream);
  if (fd >= 0) {
    std::lock_guard<std::mutex> hold(seam().lock);
    seam().streams.erase(stream);
  }
  const bool fails = fd < 0 && call_fails("fclose", "");
  forget_file(stream);
  const int result = real::fclose(stream);
  return fails ? EOF : result;
}

// The descriptor is gone, whatever close says.
int seam_close(int fd) {
  const bool fails = fd >= 0 && call_fails("close", "");
  const int error = errno;
  Handle handle;
  const int result = find_handle(fd, &handle) ? close_device(fd, handle) : real::close(fd);
  if (fails) errno = error;
  return fails ? -1 : result;
}

// ---- streams of files ---------------------------------------------------------------

// What a failed transfer leaves behind: the stream's error mark.
void mark_failed(FILE* stream) { stream->_flags |= _IO_ERR_SEEN; }

std::size_t seam_fread(void* data, std::size_t size, std::size_t count, FILE* stream) {
  if (call_fails("fread", "", &count)) {
    mark_failed(stream);
    return 0;
  }
  return count == 0 ? 0 : real::fread(data, size, count, stream);
}

std::size_t seam_fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream) {
  if (call_fails("fwrite", "", count > 1 ? &count : nullptr)) {
    mark_failed(stream);
    return 0;
  }
  if (const std::string path = file_path(stream); !path.empty())
    trace_file("file %s <- %zu bytes", path.c_str(), size * count);
  return real::fwrite(data, size, count, stream);
}

char* seam_fgets(char* text, int size, FILE* stream) {
  auto room = static_cast<std::size_t>(size);
  if (call_fails("fgets", "", &room)) {
    mark_failed(stream);
    return nullptr;
  }
  return real::fgets(text, static_cast<int>(room), stream);
}

int seam_dup(int fd, int to) {
  const int copy = to < 0 ? real::dup(fd) : real::dup2(fd, to);
  Handle handle;
  if (copy >= 0 && find_handle(fd, &handle)) {
    std::lock_guard<std::mutex> hold(seam().lock);
    seam().handles[copy] = handle;
  }
  return copy;
}

int seam_fcntl(int fd, int command, long argument) {
  Handle handle;
  if (!find_handle(fd, &handle) || (command != F_GETFL && command != F_SETFL))
    return real::fcntl(fd, command, argument);
  if (command == F_GETFL) return O_RDWR | (handle.nonblocking ? O_NONBLOCK : 0);
  trace("nonblock %s %d", handle.path.c_str(), (argument & O_NONBLOCK) != 0 ? 1 : 0);
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().handles[fd].nonblocking = (argument & O_NONBLOCK) != 0;
  return 0;
}

// ---- waiting -------------------------------------------------------------------------

// Descriptors beyond the first set stand in further sets after it.
bool in_set(int fd, const fd_set* set) {
  return FD_ISSET(fd % FD_SETSIZE, set + fd / FD_SETSIZE) != 0;
}

// Leaves nothing in the set but this descriptor (-1: nothing at all).
void leave_in_set(int count, int only, fd_set* set) {
  for (int fd = 0; fd < count; ++fd) FD_CLR(fd % FD_SETSIZE, set + fd / FD_SETSIZE);
  if (only >= 0) FD_SET(only % FD_SETSIZE, set + only / FD_SETSIZE);
}

int link_descriptor(int count, const fd_set* set) {
  if (set == nullptr || !active()) return -1;
  std::lock_guard<std::mutex> hold(seam().lock);
  for (const auto& [fd, handle] : seam().handles)
    if (fd < count && handle.device == Device::kSpiSlave && in_set(fd, set)) return fd;
  return -1;
}

int seam_select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout) {
  const int fd = link_descriptor(count, read);
  if (fd < 0) return real::select(count, read, write, except, timeout);
  settle_link();
  if (call_fails("select", "/dev/spislave")) return -1;
  const std::int64_t limit_us =
      timeout == nullptr ? kForever
                         : static_cast<std::int64_t>(timeout->tv_sec) * 1000000 + timeout->tv_usec;
  const bool ready = board_wait(WaitFor::kHostBytes, limit_us);
  trace("select %lld %s", static_cast<long long>(limit_us), ready ? "ready" : "timeout");
  leave_in_set(count, ready ? fd : -1, read);
  if (timeout != nullptr && !ready) *timeout = {0, 0};
  return ready ? 1 : 0;
}

int seam_wait(std::int64_t microseconds) {
  settle_link();
  trace("wait %lld", static_cast<long long>(microseconds));
  board_wait(WaitFor::kNothing, microseconds);
  return 0;
}

// Board time as a date: the board's clock starts with this second.
constexpr time_t kBoardEpoch = 1767225600;

void seam_gettimeofday(timeval* time) {
  board_cost(1);
  const std::int64_t now_us = board_now_us();
  time->tv_sec = kBoardEpoch + static_cast<time_t>(now_us / 1000000);
  time->tv_usec = static_cast<suseconds_t>(now_us % 1000000);
}

// ---- encode ----------------------------------------------------------------------------

void board_beat(Board& board, std::int64_t now_us) {
  if (!seam().settings.encoder_in_process) return;
  Locked hold(board);
  EncoderState& encoder = board.encoder;
  if (encoder.crash_requested) {
    encoder.crash_requested = false;
    if (!seam().settings.own_ipc && encoder.pid > 0) kill(encoder.pid, SIGKILL);
    encoder_gone(board);
  }
  encoder_step(board, seam().block, now_us);
}

constexpr int kReportTries = 5000;  // of 1 ms each, on the machine's clock

// An encode process reports for duty by itself; waiting for it here keeps
// virtual time from running ahead of it.
void await_launch(std::uint32_t launches) {
  for (int i = 0; i < kReportTries && seam().board->encoder.launches == launches; ++i)
    real::sleep_ns(1000000);
}

void await_death(std::int32_t pid) {
  for (int i = 0; i < kReportTries && pid > 0 && kill(pid, 0) == 0; ++i) real::sleep_ns(1000000);
  Locked hold(*seam().board);
  if (seam().board->encoder.pid == pid) encoder_gone(*seam().board);
}

bool launches_encode(const std::string& command) {
  return command.find("./encode&") != std::string::npos;
}
bool kills_encode(const std::string& command) { return command == "killall encode"; }

// In a test the process is only a mark in the board's state.
int shell_without_processes(const std::string& command) {
  Board& board = *seam().board;
  if (launches_encode(command)) {
    Locked hold(board);
    encoder_started(board, 1, board_now_us());
    return 0;
  }
  if (kills_encode(command)) {
    Locked hold(board);
    const bool lived = board.encoder.pid != 0;
    encoder_gone(board);
    return lived ? 0 : 256;
  }
  std::string on_disk = command;
  const std::string& home = seam().settings.home;
  for (std::size_t at = on_disk.find(kBoardHome); at != std::string::npos;
       at = on_disk.find(kBoardHome, at + home.size()))
    on_disk.replace(at, strlen(kBoardHome), home);
  return real::system(on_disk.c_str());
}

int seam_system(const char* command) {
  if (!active() || command == nullptr) return real::system(command);
  settle_link();
  if (call_fails("system", command)) return -1;
  trace("shell %s", command);
  heartbeat();
  if (seam().settings.own_ipc) return shell_without_processes(command);
  const std::uint32_t launches = seam().board->encoder.launches;
  const std::int32_t pid = seam().board->encoder.pid;
  const int status = real::system(command);
  const int error = errno;
  if (launches_encode(command) && access("./encode", X_OK) == 0) await_launch(launches);
  if (kills_encode(command)) await_death(pid);
  errno = error;
  return status;
}

// ---- System V ---------------------------------------------------------------------------

int seam_shmget(key_t key, std::size_t size, int flags) {
  if (!active()) return real::shmget(key, size, flags);
  if (call_fails("shmget", "")) return -1;
  trace("shmget 0x%x %zu 0x%x", static_cast<unsigned>(key), size, static_cast<unsigned>(flags));
  if (!seam().settings.own_ipc) return real::shmget(key, size, flags);
  if (!seam().own_block_exists && (flags & IPC_CREAT) == 0) {
    errno = ENOENT;
    return -1;
  }
  seam().own_block_exists = true;
  return 1;
}

void* seam_shmat(int id, const void* address, int flags) {
  if (!active()) return real::shmat(id, address, flags);
  if (call_fails("shmat", "")) return reinterpret_cast<void*>(-1);
  void* place = nullptr;
  if (!seam().settings.own_ipc) {
    place = real::shmat(id, address, flags);
  } else if (id == 1) {
    place = &own_block;
  } else {
    errno = EINVAL;
    place = reinterpret_cast<void*>(-1);
  }
  if (place != reinterpret_cast<void*>(-1)) seam().block = static_cast<SharedBlock*>(place);
  return place;
}

int own_semget(key_t key, int count, int flags) {
  OwnSemaphores& set = seam().semaphores;
  const bool found = set.exists || (flags & IPC_CREAT) != 0;
  trace("semget 0x%x %d %d%s", static_cast<unsigned>(key), count, flags, found ? "" : " = ENOENT");
  if (!found) {
    errno = ENOENT;
    return -1;
  }
  if (!set.exists && count != 3) violation(*seam().board, "semaphore set of %d", count);
  set.exists = true;
  return set.id;
}

int own_semop(int id, const sembuf& operation) {
  if (id != seam().semaphores.id || !seam().semaphores.exists) {
    errno = EINVAL;
    return -1;
  }
  unsigned short& value = seam().semaphores.value[operation.sem_num % 3];
  trace("semop %d %d flags %d", operation.sem_num, operation.sem_op, operation.sem_flg);
  if (operation.sem_op < 0 && value < -operation.sem_op) {
    errno = EAGAIN;  // a real lock would block here for ever
    return -1;
  }
  value = static_cast<unsigned short>(value + operation.sem_op);
  return 0;
}

int own_semctl(int number, int command, long value) {
  if (command == GETVAL) return seam().semaphores.value[number % 3];
  if (command == IPC_RMID) {
    seam().semaphores = {};
    return 0;
  }
  trace("semctl %d setval %ld", number, value);
  seam().semaphores.value[number % 3] = static_cast<unsigned short>(value);
  return 0;
}

// ---- threads -------------------------------------------------------------------------------

struct ThreadStart {
  void* (*start)(void*);
  void* argument;
  int id;
};

struct LeaveOnExit {
  ~LeaveOnExit() { leave_thread(); }
};

void* run_thread(void* given) {
  const ThreadStart start = *static_cast<ThreadStart*>(given);
  delete static_cast<ThreadStart*>(given);
  enter_thread(start.id);
  const LeaveOnExit leave;
  return start.start(start.argument);
}

int seam_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                        void* argument) {
  if (!active()) return real::pthread_create(thread, attributes, start, argument);
  if (call_fails("pthread_create", "")) return errno;
  static int threads = 0;
  const std::string name = "t" + std::to_string(++threads);
  trace("thread %s", name.c_str());
  auto* given = new ThreadStart{start, argument, announce_thread(name.c_str())};
  return real::pthread_create(thread, attributes, run_thread, given);
}

}  // namespace

void start(Board& board, const Settings& settings) {
  Seam& one = seam();
  one.settings = settings;
  one.handles.clear();
  one.streams.clear();
  one.files.clear();
  one.faults.clear();
  one.sweep = {};
  one.block = nullptr;
  one.own_block_exists = false;
  one.semaphores = {};
  memset(static_cast<void*>(&own_block), 0, sizeof own_block);
  set_heartbeat(board_beat);
  one.board = &board;
}

// Streams that the program never closed stay, their descriptors do not: a test
// process has only so many.
void stop() {
  Seam& one = seam();
  one.board = nullptr;
  std::lock_guard<std::mutex> hold(one.lock);
  for (const auto& [fd, handle] : one.handles) real::close(fd);
  one.handles.clear();
}

SharedBlock* shared_block() { return seam().block; }
void set_semaphore_id(int id) { seam().semaphores.id = id; }

void fail_call(const std::string& call, const std::string& match, int skip, int times, int error) {
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().faults.push_back({call, match, skip, times, error});
}

void start_sweep(long fail_at, Failing how) {
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().sweep = {};
  seam().sweep.on = true;
  seam().sweep.fail_at = fail_at;
  seam().sweep.how = how;
}

void stop_sweep() {
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().sweep.on = false;
}

const std::vector<SweptCall>& swept_calls() { return seam().sweep.calls; }
std::string sweep_failed_call() { return seam().sweep.failed; }
bool should_fail(const char* call) { return call_fails(call, ""); }

void clear_call_faults() {
  std::lock_guard<std::mutex> hold(seam().lock);
  seam().faults.clear();
}

std::string open_handles() {
  std::lock_guard<std::mutex> hold(seam().lock);
  std::string text;
  for (const auto& [fd, handle] : seam().handles) text += handle.path + "\n";
  return text;
}

}  // namespace vboard::seam

// ==== overrides below; no logic from here on ====================================

using namespace vboard;  // NOLINT(google-build-using-namespace): overrides are global

extern "C" {

int open(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  return seam::seam_open(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  return seam::seam_open(path, flags, mode);
}
int __open_2(const char* path, int flags) { return seam::seam_open(path, flags, 0); }
int __open64_2(const char* path, int flags) { return seam::seam_open(path, flags, 0); }
int close(int fd) { return seam::seam_close(fd); }
int dup(int fd) __THROW { return seam::seam_dup(fd, -1); }
int dup2(int fd, int to) __THROW { return seam::seam_dup(fd, to); }

int fcntl(int fd, int command, ...) {
  va_list list;
  va_start(list, command);
  const long argument = va_arg(list, long);
  va_end(list);
  return seam::seam_fcntl(fd, command, argument);
}
int fcntl64(int fd, int command, ...) {
  va_list list;
  va_start(list, command);
  const long argument = va_arg(list, long);
  va_end(list);
  return seam::seam_fcntl(fd, command, argument);
}

int ioctl(int fd, unsigned long request, ...) __THROW {
  va_list list;
  va_start(list, request);
  void* argument = va_arg(list, void*);
  va_end(list);
  return seam::seam_ioctl(fd, request, argument);
}

ssize_t read(int fd, void* data, std::size_t size) {
  seam::Handle handle;
  return seam::find_handle(fd, &handle)
             ? seam::device_read(handle, static_cast<std::uint8_t*>(data), size)
             : real::read(fd, data, size);
}
ssize_t write(int fd, const void* data, std::size_t size) {
  seam::Handle handle;
  return seam::find_handle(fd, &handle)
             ? seam::device_write(handle, static_cast<const std::uint8_t*>(data), size)
             : real::write(fd, data, size);
}

FILE* fopen(const char* path, const char* mode) { return seam::seam_fopen(path, mode); }
FILE* fopen64(const char* path, const char* mode) { return seam::seam_fopen(path, mode); }
int fclose(FILE* stream) { return seam::seam_fclose(stream); }
int fileno(FILE* stream) __THROW {
  const int fd = seam::stream_fd(stream);
  return fd >= 0 ? fd : real::fileno(stream);
}
std::size_t fread(void* data, std::size_t size, std::size_t count, FILE* stream) {
  return seam::seam_fread(data, size, count, stream);
}
std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream) {
  return seam::seam_fwrite(data, size, count, stream);
}
char* fgets(char* text, int size, FILE* stream) { return seam::seam_fgets(text, size, stream); }

int select(int count, fd_set* read_set, fd_set* write_set, fd_set* except_set, timeval* timeout) {
  return seam::seam_select(count, read_set, write_set, except_set, timeout);
}
int usleep(useconds_t microseconds) {
  if (seam::active()) return seam::seam_wait(microseconds);
  real::sleep_ns(static_cast<std::int64_t>(microseconds) * 1000);
  return 0;
}
unsigned sleep(unsigned seconds) {
  if (seam::active())
    seam::seam_wait(static_cast<std::int64_t>(seconds) * 1000000);
  else
    real::sleep_ns(static_cast<std::int64_t>(seconds) * 1000000000);
  return 0;
}
int gettimeofday(timeval* time, void* zone) __THROW {
  if (!seam::active()) return real::gettimeofday(time, zone);
  seam::seam_gettimeofday(time);
  return 0;
}

int system(const char* command) { return seam::seam_system(command); }

int shmget(key_t key, std::size_t size, int flags) __THROW {
  return seam::seam_shmget(key, size, flags);
}
void* shmat(int id, const void* address, int flags) __THROW {
  return seam::seam_shmat(id, address, flags);
}
int semget(key_t key, int count, int flags) __THROW {
  if (seam::call_fails("semget", "")) return -1;
  return seam::active() && seam::seam().settings.own_ipc ? seam::own_semget(key, count, flags)
                                                         : real::semget(key, count, flags);
}
int semop(int id, sembuf* operations, std::size_t count) __THROW {
  if (seam::call_fails("semop", "")) return -1;
  return seam::active() && seam::seam().settings.own_ipc ? seam::own_semop(id, *operations)
                                                         : real::semop(id, operations, count);
}
int semctl(int id, int number, int command, ...) __THROW {
  va_list list;
  va_start(list, command);
  const long value = va_arg(list, long);
  va_end(list);
  return seam::active() && seam::seam().settings.own_ipc ? seam::own_semctl(number, command, value)
                                                         : real::semctl(id, number, command, value);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) __THROWNL {
  return seam::seam_pthread_create(thread, attributes, start, argument);
}

}  // extern "C"
