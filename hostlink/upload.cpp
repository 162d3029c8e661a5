// Uploads to the host: archives, status file, a register, AC-3 descriptor.
#include "hostlink/upload.h"

#include <unistd.h>

#include "hostlink/link.h"
#include "hw/i2capi.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"

struct LogPaths {
  LogFile selector;
  const char* size_path;
  const char* data_path;
};

// The status file is measured where the service writes it and read from the
// home directory; the two differ on purpose.
static constexpr LogPaths kLogPaths[] = {
    {kLogFile1, "/home/tovin/temp_log1.tar.gz", "/home/tovin/temp_log1.tar.gz"},
    {kLogFile2, "/home/tovin/temp_log2.tar.gz", "/home/tovin/temp_log2.tar.gz"},
    {kMonitorFile, "monitor.txt", "/home/tovin/monitor.txt"},
};

static constexpr std::int32_t kDumpSize = 150'000;  // bytes shown on the console at most
static constexpr std::int32_t kDumpLine = 20;       // bytes a line

static const LogPaths* find_log(int selector) {
  for (const LogPaths& row : kLogPaths) {
    if (row.selector == selector) return &row;
  }
  return nullptr;
}

std::int32_t get_log_file_size(int selector) {
  const LogPaths* row = find_log(selector);
  FILE* file = row == nullptr ? nullptr : fopen(row->size_path, "r");
  if (file == nullptr) {
    puts("error while open temp_log1.tar.gz file");
    return -1;
  }
  fseek(file, 0, SEEK_END);
  const long size = ftell(file);
  fclose(file);
  return static_cast<std::int32_t>(size);
}

int send_log_file_size(std::int32_t size, FILE* link) {
  const std::uint32_t value = static_cast<std::uint32_t>(size);
  for (int k = 3; k >= 0; --k) {
    const int rc = get_byte_send_byte(link, static_cast<std::uint8_t>(value >> (8 * k)));
    if (rc < 0) {
      puts("error send_log_file_size");
      return rc;
    }
  }
  return 0;
}

// Reads one byte. Returns 1; 0 at the end of the file, with the byte left as it
// was; -1 on a read error.
static int read_file_byte(FILE* file, std::uint8_t* byte) {
  if (fread(byte, 1, 1, file) == 1) return 1;
  return ferror(file) != 0 ? -1 : 0;
}

// Appends a byte in hexadecimal, without a leading zero, and a blank.
static char* put_hex(char* at, std::uint8_t byte) {
  static constexpr char kDigits[] = "0123456789abcdef";
  if (byte > 0xF) *at++ = kDigits[byte >> 4];
  *at++ = kDigits[byte & 0xF];
  *at++ = ' ';
  return at;
}

static void dump_bytes(const std::uint8_t* bytes, std::int32_t count) {
  char line[1 + 3 * kDumpLine + 1];
  char* at = line;
  for (std::int32_t i = 0; i < count; ++i) {
    if (i % kDumpLine == 0) *at++ = '\n';
    at = put_hex(at, bytes[i]);
    if (i % kDumpLine != kDumpLine - 1 && i != count - 1) continue;
    *at = '\0';
    fputs(line, stdout);
    at = line;
  }
  fflush(stdout);  // the last line has no end
}

int send_log_file(std::int32_t size, FILE* link, int selector) {
  static std::uint8_t dump[kDumpSize];
  const LogPaths* row = find_log(selector);
  FILE* file = row == nullptr ? nullptr : fopen(row->data_path, "r");
  if (file == nullptr) {
    puts("error while open temp_log.tar.gz file");
    return 0;
  }
  std::uint8_t byte = 0;
  for (std::int32_t i = 0; i < size; ++i) {
    // A file shorter than its announced size: its last byte goes out again.
    const int got = read_file_byte(file, &byte);
    if (got < 0) {
      puts("error fread (send_log_file)");
      return got;  // the file stays open
    }
    const int rc = get_byte_send_byte(link, byte);
    if (rc < 0) {
      printf("error send_log_file,log_file_size = %d\n", size);
      fclose(file);
      return rc;
    }
    if (i < kDumpSize) dump[i] = byte;
  }
  fclose(file);
  puts("FIN FIN");
  dump_bytes(dump, size < kDumpSize ? size : kDumpSize);
  return 0;
}

// Each call leaves its second link stream open; failures leave the bus open too.
int read_reg() {
  const int fd = open_i2c("Cannot access I2C device2 ");
  if (fd < 0) return -1;
  FILE* link = open_link();
  if (link == nullptr) return -2;
  std::uint8_t device = 0;  // 8-bit form
  std::uint8_t reg = 0;
  // Silent waits repeat without a word.
  if (!receive_byte(link, 1, nullptr, &device) || !receive_byte(link, 1, nullptr, &reg)) return 0;
  std::uint8_t value = 0;
  if (i2c_readbyte(fd, device >> 1, reg, &value) < 0) {
    puts("Error i2c_readbyte2");
    return -3;
  }
  close(fd);
  return value;
}

int get_byte_send_ac3_params(FILE* link) {
  for (int k = kAc3DescriptorSize - 1; k >= 0; --k) {
    const std::uint8_t byte = hd_ac3_desc_parameters[k];
    const int rc = get_byte_send_byte(link, byte);
    shared_set(&SharedBlock::hd_ac3_desc, static_cast<std::size_t>(k), byte);
    if (rc < 0) {
      puts("error get_byte_send_ac3_params");
      return -1;
    }
  }
  return 0;
}

int get_logfile_number_to_send(FILE* link) {
  return await_byte(link, "SPI: No data for XX seconds (get_logfile_number_to_send func)...");
}
