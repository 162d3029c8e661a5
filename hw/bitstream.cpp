// FPGA configuration through "/dev/fpga": the configuration line and status by
// request, the bitstream by stream writes, every byte bit-reversed.
#include "hw/bitstream.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <tuple>

#include "hw/fpga.h"
#include "hw/time_units.h"

enum ConfigRequest : unsigned long {
  kConfigStatus = 0,   // pointer to a word: read the status
  kConfigLine = 1,     // pointer to a word: drive the line low (0) or high (1)
  kDataAddress = 2,    // value: target address of the following bytes
  kDataWriteByte = 3,  // value: one byte
};

static constexpr std::int32_t kStatusDone = 1;
static constexpr std::int32_t kStatusReady = 2;  // nSTATUS

static constexpr int kReadyPolls = 100;
static constexpr std::size_t kChunk = 16;
static constexpr std::uint8_t kClosingByte = 0xFF;

static constexpr unsigned long kDataStart = 0x4000000;
static constexpr std::size_t kDataChunk = 1024;

enum LoadResult {
  kLoaded = 0,
  kNoDevice = 1,
  kNoFile = 2,
  kFirstHighFailed = 3,
  kLowFailed = 4,
  kSecondHighFailed = 5,
  kPollFailed = 6,
  kNeverReady = 7,
  kFinalStatusFailed = 8,
};

// Entry i is i with its eight bits in reverse order.
static constexpr std::array<std::uint8_t, 256> kReversed = [] {
  std::array<std::uint8_t, 256> table{};
  for (unsigned value = 0; value < table.size(); ++value) {
    unsigned reversed = 0;
    for (unsigned bit = 0; bit < 8; ++bit) reversed |= ((value >> bit) & 1U) << (7 - bit);
    table[value] = static_cast<std::uint8_t>(reversed);
  }
  return table;
}();

void swapp(std::uint8_t* buffer, int length) {
  for (int index = 0; index < length; ++index) buffer[index] = kReversed[buffer[index]];
}

// --- steps of the load ---------------------------------------------------

static bool drive_line(FILE* device, std::int32_t level) {
  const int result = ioctl(fileno(device), kConfigLine, &level);
  if (result != 0) printf("Error %d in IOCTL\n", result);
  return result == 0;
}

// High for a millisecond, then a short low pulse.
static int pulse_line(FILE* device) {
  if (!drive_line(device, 1)) return kFirstHighFailed;
  usleep(kMillisecond_us);
  if (!drive_line(device, 0)) return kLowFailed;
  if (!drive_line(device, 1)) return kSecondHighFailed;
  return kLoaded;
}

static int wait_ready(FILE* device) {
  std::int32_t status = 0;
  int waits = 0;
  for (; waits < kReadyPolls; ++waits) {
    const int result = ioctl(fileno(device), kConfigStatus, &status);
    if (result != 0) {
      printf("Error %d in IOCTL\n", result);
      return kPollFailed;
    }
    if ((status & kStatusReady) != 0) break;
    usleep(kMillisecond_us);
  }
  printf("waited %d loops for nSTATUS to respond\n", waits);
  if ((status & kStatusReady) == 0) {
    printf("nSTATUS = %d, expected 2\n", status);
    return kNeverReady;
  }
  return kLoaded;
}

// Sends the file in chunks, reading each chunk back as the device wants it
// before the next one. What comes back does not matter.
static void send_bitstream(FILE* device, FILE* file) {
  std::uint8_t chunk[kChunk];
  std::size_t total = 0;
  for (;;) {
    const std::size_t length = fread(chunk, 1, sizeof chunk, file);
    if (length == 0) break;
    swapp(chunk, static_cast<int>(length));
    const std::size_t written = fwrite(chunk, 1, length, device);
    total += written;
    if (written < length) {
      printf("Failed to write %d (wrote %d,  total %d)\n", static_cast<int>(length),
             static_cast<int>(written), static_cast<int>(total));
      break;
    }
    std::ignore = fread(chunk, 1, length, device);
    clearerr(device);  // or a port that gave nothing back once were never read again
  }
  printf("Wrote %d configuration bytes to the FPGA\n", static_cast<int>(total));
}

static int report_final_status(FILE* device) {
  std::int32_t status = 0;
  const int result = ioctl(fileno(device), kConfigStatus, &status);
  if (result != 0) {
    printf("Error %d in IOCTL read\n", result);
    return kFinalStatusFailed;
  }
  if ((status & kStatusDone) != 0) {
    puts("Configuartion completed successfully");
  } else {
    printf("Configuration error: status=0x%x\n", static_cast<unsigned>(status));
  }
  return kLoaded;
}

int fpgaLoadBitstream(const char* path) {
  FILE* device = open_fpga_stream(kFpgaNotOpened);
  if (device == nullptr) return kNoDevice;
  FILE* file = fopen(path, "rb");
  if (file == nullptr) {
    puts("Cannot access RBF file");
    fclose(device);
    return kNoFile;
  }
  if (const int failed = pulse_line(device); failed != kLoaded) return failed;
  if (const int failed = wait_ready(device); failed != kLoaded) return failed;
  usleep(kMillisecond_us);
  send_bitstream(device, file);
  fwrite(&kClosingByte, 1, 1, device);
  if (const int failed = report_final_status(device); failed != kLoaded) return failed;
  fclose(file);
  fclose(device);
  return kLoaded;
}

int WriteFileToFpga(const char* path) {
  FILE* device = open_fpga_stream(kFpgaNotOpened);
  if (device == nullptr) return kNoDevice;
  FILE* file = fopen(path, "rb");
  if (file == nullptr) {
    puts("Cannot access MPEG2 file");
    return kNoFile;
  }
  ioctl(fileno(device), kDataAddress, kDataStart);
  std::uint8_t chunk[kDataChunk];
  std::size_t length;
  while ((length = fread(chunk, 1, sizeof chunk, file)) > 0) {
    for (std::size_t index = 0; index < length; ++index) {
      ioctl(fileno(device), kDataWriteByte, static_cast<unsigned long>(chunk[index]));
    }
  }
  fclose(file);
  return kLoaded;
}
