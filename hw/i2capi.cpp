// I2C transactions on the i2c-dev devices, and the semaphore set that would
// serialise the bus and the status record between processes.
#include "hw/i2capi.h"

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

// --- semaphores ----------------------------------------------------------

static std::int32_t semid = 0;  // the set; -1 when it could be neither found nor created

static constexpr char kSemaphorePath[] = "/tmp/";
static constexpr int kSemaphoreProject = 'a';
static constexpr int kSemaphoreCount = 3;
static constexpr int kSemaphoreCreate = IPC_CREAT | 0666;
static constexpr unsigned short kI2cLock = 0;
static constexpr unsigned short kStatusLock = 2;  // semaphore 1 is reserved
static constexpr short kTake = -1;
static constexpr short kGive = 1;

// The value argument of semctl; its type is left to the caller by POSIX.
union SemaphoreValue {
  int val;
  void* buf;
};

int InitSemaphore(int force) {
  const key_t key = ftok(kSemaphorePath, kSemaphoreProject);
  semid = semget(key, 0, 0);
  if (semid < 0) {
    semid = semget(key, kSemaphoreCount, kSemaphoreCreate);
    force = 1;
  }
  if (semid < 0) return -1;
  if (force != 0) {
    for (int index = 0; index < kSemaphoreCount; ++index) {
      semctl(semid, index, SETVAL, SemaphoreValue{.val = 1});
    }
  }
  return 0;
}

// Without SEM_UNDO: a lock outlives the process that died holding it.
static int operate(unsigned short semaphore, short operation) {
  sembuf step{semaphore, operation, 0};
  return semop(semid, &step, 1);
}

int LockI2C() { return operate(kI2cLock, kTake); }
int UnlockI2C() { return operate(kI2cLock, kGive); }
int LockStatus() { return operate(kStatusLock, kTake); }
int UnLockStatus() { return operate(kStatusLock, kGive); }

// --- transactions --------------------------------------------------------

int init_i2c(int bus) {
  char path[32];
  snprintf(path, sizeof path, "/dev/i2c-%d", bus);
  return open(path, O_RDWR);
}

int open_i2c(const char* message) {
  const int fd = init_i2c(kBoardI2cBus);
  if (fd < 0) puts(message);
  return fd;
}

int close_i2c(int fd) { return fd < 0 ? -1 : close(fd); }

static constexpr int kSubaddrRoom = 1024;  // longest sub-address that a message counts

static bool subaddr_fits(int subaddr_len) {
  return subaddr_len >= 0 && subaddr_len <= kSubaddrRoom;
}

// Fills the sub-address bytes, most significant first. Any length other than 0
// and 1 gives two bytes. Returns how many bytes were filled.
static int put_subaddr(std::uint8_t* out, int subaddr, int subaddr_len) {
  const auto high = static_cast<std::uint8_t>(subaddr >> 8);
  const auto low = static_cast<std::uint8_t>(subaddr);
  if (subaddr_len == 0) return 0;
  if (subaddr_len == 1) {
    out[0] = low;
    return 1;
  }
  out[0] = high;
  out[1] = low;
  return 2;
}

static i2c_msg message(int addr, int flags, int len, std::uint8_t* buf) {
  i2c_msg msg{};
  msg.addr = static_cast<std::uint16_t>(addr);
  msg.flags = static_cast<std::uint16_t>(flags);
  msg.len = static_cast<std::uint16_t>(std::clamp(len, 0, 0xFFFF));
  msg.buf = buf;
  return msg;
}

static int transfer(int fd, i2c_msg* messages, unsigned count) {
  i2c_rdwr_ioctl_data list{messages, count};
  return ioctl(fd, I2C_RDWR, &list);
}

int i2c_readblk(int fd, int addr, int subaddr, int subaddr_len, int len, std::uint8_t* buf) {
  if (!subaddr_fits(subaddr_len)) return -2;
  if (subaddr_len == 0) {
    // One byte whatever len says: chips without registers answer single bytes.
    i2c_msg read_one = message(addr, I2C_M_RD, 1, buf);
    return transfer(fd, &read_one, 1);
  }
  std::uint8_t sub[kSubaddrRoom];
  memset(sub, 0, static_cast<std::size_t>(subaddr_len));
  put_subaddr(sub, subaddr, subaddr_len);
  i2c_msg combined[] = {
      message(addr, 0, subaddr_len, sub),
      message(addr, I2C_M_RD, len, buf),
  };
  return transfer(fd, combined, 2);
}

int i2c_writeblk(int fd, int addr, int subaddr, int subaddr_len, int len,
                 const std::uint8_t* data) {
  if (len < 0 || len >= kI2cMaxWrite || !subaddr_fits(subaddr_len)) return -2;
  std::uint8_t buffer[kSubaddrRoom + kI2cMaxWrite];
  const int count = subaddr_len + len;
  memset(buffer, 0, static_cast<std::size_t>(count));
  const int start = put_subaddr(buffer, subaddr, subaddr_len);
  if (len > 0) memcpy(buffer + start, data, static_cast<std::size_t>(len));
  // The message counts the sub-address length as given: a length of 3 sends two
  // sub-address bytes and one spare byte after the data.
  i2c_msg write_all = message(addr, 0, count, buffer);
  return transfer(fd, &write_all, 1);
}

int i2c_readbyte(int fd, int addr, int reg, std::uint8_t* buf) {
  return i2c_readblk(fd, addr, reg, 1, 1, buf);
}

int i2c_writebyte(int fd, int addr, int reg, int value) {
  const auto byte = static_cast<std::uint8_t>(value);
  return i2c_writeblk(fd, addr, reg, 1, 1, &byte);
}

std::uint8_t read_register(int fd, int addr, int reg) {
  std::uint8_t byte = 0;
  i2c_readbyte(fd, addr, reg, &byte);
  return byte;
}

std::uint8_t refresh_register(int fd, int addr, int reg, Relaxed<std::uint8_t>* kept) {
  std::uint8_t byte = *kept;
  i2c_readbyte(fd, addr, reg, &byte);
  *kept = byte;
  return byte;
}

void write_registers(int fd, int addr, std::span<const RegisterValue> rows) {
  for (const RegisterValue& row : rows) i2c_writebyte(fd, addr, row.reg, row.value);
}

int i2c_writeblkX(int fd, int addr, int value) {
  const auto byte = static_cast<std::uint8_t>(value);
  return i2c_writeblk(fd, addr, 0, 0, 1, &byte);
}

// --- bench dump ----------------------------------------------------------

static constexpr long kDumpAddress = 0x21;

int write_i2c(int fd) {
  if (ioctl(fd, I2C_SLAVE, kDumpAddress) < 0) return -1;
  i2c_smbus_data data{};
  for (unsigned index = 0;; ++index) {
    i2c_smbus_ioctl_data read_byte{};
    read_byte.read_write = I2C_SMBUS_READ;
    read_byte.command = static_cast<std::uint8_t>(index);
    read_byte.size = I2C_SMBUS_BYTE_DATA;
    read_byte.data = &data;
    // A failed read shows the previous byte again.
    ioctl(fd, I2C_SMBUS, &read_byte);
    if (index % 16 == 0) printf("%04x  ", index);
    printf("%02x ", data.byte);
    if (index % 16 == 15) printf("\n");
    if (index % 256 == 255) printf("\n");
  }
}
