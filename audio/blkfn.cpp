// Owns the AC-3 DSP: command protocol, peak stream and firmware push.
#include "audio/blkfn.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/gpio.h"
#include "hw/i2capi.h"
#include "hw/time_units.h"

static constexpr int kDspAddress = 0x1C;  // 7-bit

// First byte of each write.
enum DspCommand : std::uint8_t {
  kReadStatus = 0x00,
  kConfigure = 0x01,
  kStart = 0x02,
  kStop = 0x04,
  kReset = 0x08,
  kCodecWrite = 0x10,
  kCodecRead = 0x20,
  kReadPeak = 0x40,
  kReadVersion = 0x80,
  kReadPeakLeftRight = 0x90,
};

static constexpr std::int32_t kNotOpened = -1;
static constexpr std::int32_t kTransferFailed = -2;
static constexpr int kConfigAttempts = 5;
static constexpr useconds_t kReplyWait_us = 10;

static constexpr char kI2cError[] = "blkfn i2c error";
static constexpr char kI2cErrorBlank[] = "blkfn i2c error ";
static constexpr char kI2cErrorStart[] = "blkfn i2c error : Cannot access I2C device";

// Peak stream.
static constexpr int kPeakRounds = 10;
static constexpr int kPeakBytes = 4;  // a word
static constexpr int kPeakMarker = 0xAB;

// Firmware push.
static constexpr char kFirmwareFile[] = "/home/tovin/MELK_spi.bin";
static constexpr int kExitNoFile = 1;
static constexpr int kExitNoMemory = 2;
static constexpr int kExitReadFailed = 3;
static constexpr int kPushAttempts = 3;
static constexpr useconds_t kLineWait_us = 10 * kMillisecond_us;
static constexpr useconds_t kFifoWait_us = 6 * kMillisecond_us;
static constexpr int kFifoWaits = 30;  // a byte that needs more ends the push
static constexpr int kFifoMaxLevel = 400;
static constexpr long kProgressStep = 50000;  // bytes between two progress lines

static int write_frame(int fd, const std::uint8_t* frame, int size) {
  return i2c_writeblk(fd, kDspAddress, 0, 0, size, frame);
}

static int read_reply(int fd, std::uint8_t* reply) {
  usleep(kReplyWait_us);
  return i2c_readblk(fd, kDspAddress, 0, 0, 1, reply);
}

// One command byte, one attempt.
static std::int32_t send_byte(std::uint8_t command, const char* open_error) {
  const int fd = open_i2c(open_error);
  if (fd < 0) return kNotOpened;
  const int rc = write_frame(fd, &command, 1);
  close_i2c(fd);
  if (rc < 0) {
    puts(kI2cError);
    return kTransferFailed;
  }
  return 0;
}

// Asks for one byte. label, when given, prints the byte before the read is
// checked.
static std::int32_t query(std::uint8_t command, const char* open_error,
                          const char* label = nullptr) {
  const int fd = open_i2c(open_error);
  if (fd < 0) return kNotOpened;
  const std::uint8_t frame[] = {command, 0x00};
  std::uint8_t reply = 0;
  int rc = write_frame(fd, frame, sizeof frame);
  if (rc >= 0) {
    rc = read_reply(fd, &reply);
    if (label != nullptr) printf("%s =0x%x \n", label, reply);
  }
  close_i2c(fd);
  if (rc < 0) {
    puts(kI2cError);
    return kTransferFailed;
  }
  return reply;
}

static std::int32_t read_codec(int fd, std::uint8_t reg) {
  const std::uint8_t frame[] = {kCodecRead, reg};
  std::uint8_t reply = 0;
  if (write_frame(fd, frame, sizeof frame) < 0 || read_reply(fd, &reply) < 0) {
    puts(kI2cError);
    close_i2c(fd);
    return kCodecTransferFailed;
  }
  return reply;  // the descriptor stays open on this path
}

static std::int32_t write_codec(int fd, std::uint8_t reg, int data) {
  const std::uint8_t low = static_cast<std::uint8_t>(data);
  const std::uint8_t high = static_cast<std::uint8_t>(data >> 8);
  printf(" data1=0x%x data2=0x%x\n", low, high);
  const std::uint8_t frame[] = {kCodecWrite, reg, low, high};
  const int rc = write_frame(fd, frame, sizeof frame);
  close_i2c(fd);
  if (rc < 0) {
    puts(kI2cError);
    return kCodecTransferFailed;
  }
  return 0;
}

static std::uint32_t read_peak_word() {
  std::uint32_t word = 0;
  for (int k = 0; k < kPeakBytes; ++k) {
    word |= (static_cast<std::uint32_t>(blkfn_read_peak()) & 0xFF) << (8 * k);
    usleep(kReplyWait_us);
  }
  return word;
}

// The board cannot work without its DSP: the process ends here.
[[noreturn]] static void firmware_error(const char* message, int exit_status) {
  fputs(message, stderr);
  exit(exit_status);
}

struct Firmware {
  FILE* file;
  std::uint8_t* bytes;
  long size;
};

static Firmware read_firmware() {
  FILE* file = fopen(kFirmwareFile, "rb");
  puts("open file MELK_spi.bin");
  if (file == nullptr) firmware_error("File error", kExitNoFile);
  fseek(file, 0, SEEK_END);
  const long size = ftell(file);
  rewind(file);
  printf("the size is=%d off MELK_spi.bin\n", static_cast<int>(size));
  if (size < 0) firmware_error("Reading error", kExitReadFailed);
  const size_t count = static_cast<size_t>(size);
  // One byte more, so that an empty file has a buffer too. No board holds a
  // file beyond 32 bits.
  auto* bytes = count < INT32_MAX ? static_cast<std::uint8_t*>(malloc(count + 1)) : nullptr;
  if (bytes == nullptr) firmware_error("Memory error", kExitNoMemory);
  if (fread(bytes, 1, count, file) != count) firmware_error("Reading error", kExitReadFailed);
  return {file, bytes, size};
}

static void release(const Firmware& firmware) {
  fclose(firmware.file);
  free(firmware.bytes);
}

static void reset_dsp_lines() {
  prog_gpio(kAc3DspReset);
  usleep(kLineWait_us);
  prog_gpio(kAc3DspRelease);
  usleep(kLineWait_us);
}

// Starts the SPI master. Returns HWAIT as the control words carry it.
static int start_spi() {
  const int hwait = static_cast<int>(GetValue(kRegDspSpiStatus) >> kDspSpiHwaitBit) & 1;
  printf("Initial SPI state: HWAIT=%d, SPI_STATUS_REG 0x%x\n", hwait, GetValue(kRegDspSpiStatus));
  const int run = 4 * hwait + kDspSpiRun;
  printf("Writing control_data 0x%x\n", run);
  SetValue(kRegDspSpiControl, 0);
  SetValue(kRegDspSpiControl, run);
  return hwait;
}

static bool fifo_accepts(unsigned status) {
  return (status & kDspSpiLevelMask) <= kFifoMaxLevel && (status & kDspSpiBusy) == 0;
}

// Waits for room in the FIFO and sends byte number index. Returns 0, or -1 after
// too many waits.
static int push_byte(long index, std::uint8_t byte) {
  unsigned status = GetValue(kRegDspSpiStatus);
  for (int waits = 0; !fifo_accepts(status);) {
    usleep(kFifoWait_us);
    if (++waits > kFifoWaits) {
      printf("exit  %d \n", waits);
      return -1;
    }
    status = GetValue(kRegDspSpiStatus);
  }
  SetValue(kRegDspSpiData, byte);
  if (index % kProgressStep == 0) {
    printf("sending data %d 0x%x level %d 0x%x\n", static_cast<int>(index), byte,
           static_cast<int>(status & kDspSpiLevelMask), status);
  }
  return 0;
}

std::int32_t blkfn_start() { return send_byte(kStart, kI2cErrorStart); }
std::int32_t blkfn_stop() { return send_byte(kStop, kI2cError); }
std::int32_t blkfn_reset() { return send_byte(kReset, kI2cError); }
std::int32_t blkfn_send_cmd(std::uint8_t command) { return send_byte(command, kI2cError); }

std::int32_t blkfn_config_cmd(int mode, int volume, std::int32_t rate_bps) {
  const int fd = open_i2c(kI2cErrorBlank);
  if (fd < 0) return kNotOpened;
  const std::uint8_t frame[] = {
      kConfigure,
      static_cast<std::uint8_t>(mode & 1),
      static_cast<std::uint8_t>(volume),
      static_cast<std::uint8_t>(volume >> 8),
      static_cast<std::uint8_t>(rate_bps),
      static_cast<std::uint8_t>(rate_bps >> 8),
      static_cast<std::uint8_t>(rate_bps >> 16),
      static_cast<std::uint8_t>(rate_bps >> 24),
  };
  for (int attempt = 0; attempt < kConfigAttempts; ++attempt) {
    if (write_frame(fd, frame, sizeof frame) >= 0) break;
  }
  close_i2c(fd);
  return 0;  // success, silently, even when every attempt failed
}

std::int32_t WritereadCODEC(int read, int reg, int data) {
  const int fd = open_i2c(kI2cError);
  if (fd < 0) return kCodecNotOpened;
  const std::uint8_t codec_reg = static_cast<std::uint8_t>(reg);
  return read != 0 ? read_codec(fd, codec_reg) : write_codec(fd, codec_reg, data);
}

std::int32_t blkfn_read_status() { return query(kReadStatus, kI2cErrorBlank); }

std::int32_t blkfn_read_version() {
  const std::int32_t version = query(kReadVersion, kI2cError);
  if (version >= 0) printf("---------------bf version = 0x%x --------------------\n", version);
  return version;
}

std::int32_t blkfn_read_peak() { return query(kReadPeak, kI2cError); }

std::int32_t blkfn_read_peak_r_l() {
  return query(kReadPeakLeftRight, kI2cError, "blkfn_read_peak PEAK_LEFT");
}

// The stream repeats its marker and two words for ever: find the marker, then read.
void blkfn_add_peaks(std::uint32_t* left, std::uint32_t* right) {
  while (blkfn_read_peak() != kPeakMarker) {
  }
  *left |= read_peak_word();
  *right |= read_peak_word();
}

std::int32_t blkfn_new_read_peak() {
  // The words are not cleared between rounds: each ORs onto the last.
  std::uint32_t left = 0;
  std::uint32_t right = 0;
  std::int32_t left_maximum = 0;
  std::int32_t right_maximum = 0;
  for (int round = 0; round < kPeakRounds; ++round) {
    blkfn_add_peaks(&left, &right);
    left_maximum = std::max(left_maximum, static_cast<std::int32_t>(left));
    right_maximum = std::max(right_maximum, static_cast<std::int32_t>(right));
  }
  printf("blkfn_read_peak tatal PEAK_LEFT =0x%x \n", left_maximum);
  printf("blkfn_read_peak tatal PEAK_RIGHT =0x%x \n", right_maximum);
  return 0;
}

std::int32_t TestIfBFisEmpty() {
  puts("Test if BF is Empty");
  return blkfn_read_version();
}

std::int32_t SendBFFileUpdate() {
  if (!open_fpga_file()) return 1;  // stays open, also after the push
  const Firmware firmware = read_firmware();
  reset_dsp_lines();
  const int hwait = start_spi();
  for (long index = 0; index < firmware.size; ++index) {
    if (push_byte(index, firmware.bytes[index]) != 0) {
      release(firmware);
      return -1;
    }
  }
  printf("end send file MELK_spi.bin size %d\n", static_cast<int>(firmware.size));
  SetValue(kRegDspSpiControl, 4 * hwait + kDspSpiEnd);
  release(firmware);
  return 0;
}

std::int32_t Load_BF() {
  if (TestIfBFisEmpty() >= 0) {
    puts("The BF is Loaded");
    return 0;
  }
  puts("start download file to the BF");
  for (int attempt = 0; attempt < kPushAttempts; ++attempt) {
    if (SendBFFileUpdate() == 0) {
      puts("The BF is Loaded from SPI");
      return 0;
    }
  }
  puts("Fault To load BF from SPI");
  return 0;
}
