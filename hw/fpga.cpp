// FPGA register access: the register requests on the stream that all threads
// share, and the reset sequence. Bench commands issue requests on streams of their
// own beside it.
#include "hw/fpga.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "hw/time_units.h"

Relaxed<FILE*> fpga_file;

FILE* open_fpga_stream(const char* message) {
  FILE* stream = fopen(kFpgaDevice, "r+b");
  if (stream == nullptr) puts(message);
  return stream;
}

bool open_fpga_file() {
  fpga_file = open_fpga_stream(kFpgaNotOpened);
  return fpga_file != nullptr;
}

void close_fpga_file() {
  if (fpga_file != nullptr) fclose(fpga_file);
  fpga_file = nullptr;
}

int descriptor_of(FILE* stream) { return stream == nullptr ? -1 : fileno(stream); }

static std::int32_t word_index(int address) { return address >> 1; }

static int request(FpgaRequest number, void* record) {
  return ioctl(descriptor_of(fpga_file), number, record);
}

unsigned GetValue(int address) {
  FpgaSingle record{word_index(address), 0, 0};
  return request(kFpgaReadReg, &record) == 0 ? record.value : 0U;
}

int SetValue(int address, int value) {
  FpgaSingle record{word_index(address), static_cast<std::uint16_t>(value), 0};
  return request(kFpgaWriteReg, &record);
}

int GetArray(int address, unsigned count, void* buffer) {
  FpgaBlock record{word_index(address), count, buffer};
  return request(kFpgaReadBlock, &record) == 0 ? static_cast<int>(record.count & 0xFFFF) : 0;
}

int SetArray(int address, unsigned count, void* buffer) {
  FpgaBlock record{word_index(address), count, buffer};
  return request(kFpgaWriteBlock, &record);
}

std::uint32_t GetValue32(int low_address, int high_address) {
  const std::uint32_t low = GetValue(low_address);
  const std::uint32_t high = GetValue(high_address);
  return high << 16 | (low & 0xFFFF);
}

// --- reset and start-up defaults -----------------------------------------

static constexpr useconds_t kResetSettle_us = 10 * kMillisecond_us;

void reset_fpga_path() {
  SetValue(kRegReset, 1);
  SetValue(kRegAudioMode, kAudioModeStop);
  SetValue(kRegDspAudioEnable, 0);
  SetValue(kRegAc3Control, 0);
  SetValue(kRegAudioControl, 0);
  usleep(kSecond_us);
  SetValue(kRegReset, 0);
  usleep(kResetSettle_us);
}

// What `encode` finds when no configuration has set its rate control yet.
static void store_start_up_defaults() {
  shared_set(&SharedBlock::bufferconst, 60);
  shared_set(&SharedBlock::frame_div, 1);
  shared_set(&SharedBlock::frame_mult, 1);
  shared_set(&SharedBlock::eb_mode, 1);
  shared_set(&SharedBlock::eb_delay, 700);
  shared_set(&SharedBlock::interlace_flag, 0);
  shared_set(&SharedBlock::null_disable, 0);
  shared_set(&SharedBlock::gop_size, 30);
  shared_set(&SharedBlock::idr, 0);
}

int open_fpga_dev() {
  if (!open_fpga_file()) return -1;
  shared_set(&SharedBlock::do_fpga_restart, 1);
  usleep(kResetSettle_us);
  puts("Reset FPGA");
  reset_fpga_path();
  puts("   after Reset FPGA");
  const int result = SetValue(kRegControl, kControlRunning);
  store_start_up_defaults();
  return result;
}

int read_line(FILE* stream, char* buffer, int size) {
  return fgets(buffer, size, stream) != nullptr ? 1 : 0;
}
