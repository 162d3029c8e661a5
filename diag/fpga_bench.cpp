// FPGA bench: raw requests on streams of its own, beside the register operations.
#include "diag/fpga_bench.h"

#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "hw/time_units.h"

static constexpr int kNotOpened = 1;  // result of every command here

static FILE* open_fpga_for_register() {
  return open_fpga_stream("Cannot access SPI port (/dev/fpga) - 1");
}

static int request(FILE* fpga, FpgaRequest number, void* record) {
  return ioctl(descriptor_of(fpga), number, record);
}

// --- single registers ----------------------------------------------------

int prog_rdreg(int address) {
  FILE* fpga = open_fpga_for_register();
  if (fpga == nullptr) return kNotOpened;
  FpgaSingle single{};
  single.index = address >> 1;
  return request(fpga, kFpgaReadReg, &single) == 0 ? single.value : 0;
}

int prog_wrreg(int address, int value) {
  FILE* fpga = open_fpga_for_register();
  if (fpga == nullptr) return kNotOpened;
  FpgaSingle single{};
  single.index = address >> 1;
  single.value = static_cast<std::uint16_t>(value);
  return request(fpga, kFpgaWriteReg, &single);
}

// The requests are crossed: data goes out with the read request and the other
// way round.
int wr_fpga(int address, int data) {
  FILE* fpga = open_fpga_stream(kFpgaNotOpened);
  if (fpga == nullptr) return kNotOpened;
  usleep(kMillisecond_us);
  const int even = address & ~1;
  FpgaSingle single{};
  single.index = even;
  if (data != 0) {
    const int low = data & 0xFF;
    single.value = static_cast<std::uint16_t>(low << 8 | low);
    if (request(fpga, kFpgaReadReg, &single) != 0) puts("Cannot access ioctl");
    printf("write add reg 0x%x data 0x%x\n", static_cast<unsigned>(even),
           static_cast<unsigned>(data));
  } else {
    if (request(fpga, kFpgaWriteReg, &single) != 0) puts("Cannot access ioctl");
    printf("read reg add 0x%x data org:0x%x  hi:0x%x   lw:0x%x\n", static_cast<unsigned>(address),
           single.value, single.value >> 8, single.value & 0xFF);
  }
  return fclose(fpga);
}

// --- registers of the operator, in 16-bit words ---------------------------

static int byte_address(int word) { return static_cast<int>(static_cast<unsigned>(word) * 2U); }

void print_fpga_word(int word) {
  open_fpga_file();
  printf("addr 0x%x: 0x%x\n", static_cast<unsigned>(word), GetValue(byte_address(word)));
  close_fpga_file();
}

void write_fpga_word(int word, int value) {
  puts("wr_fpga_reg!!!!!!!!!!!!!");
  open_fpga_file();
  printf("Write 0x%x to reg 0x%x\n", static_cast<unsigned>(value), static_cast<unsigned>(word));
  SetValue(byte_address(word), value);
  close_fpga_file();
}

int SetAC3ctrl(int value) {
  const int rc = SetValue(kRegAc3Control, value & 0xFFFF);
  // The word address, as the register commands take it.
  printf("read reg add 0x%x data 0x%x \n", kRegAc3Control / 2, value);
  return rc;
}

void write_ac3_control(int value) {
  puts("FPGA WR  command");
  open_fpga_file();
  SetAC3ctrl(value & 0xFFFF);
  usleep(kMillisecond_us);
  close_fpga_file();
}

// --- register test -------------------------------------------------------

static constexpr std::uint32_t kTestRegisters = 32;
static constexpr int kPatternLast = 134;  // word indices 0, 2 .. 134
static constexpr int kPatternStep = 2;
static constexpr int kPatternBase = 0x1234;

static void exercise_test_registers(FILE* fpga) {
  for (std::uint32_t i = 0; i < kTestRegisters; ++i) {
    std::uint32_t address = i;
    std::uint32_t value = i;
    request(fpga, kFpgaTestSelect, &address);
    int rc = request(fpga, kFpgaTestWrite, &value);
    printf("13 - WR  i=%u rc=%d\n", i, rc);
    address = i;
    std::uint32_t v = 0;
    request(fpga, kFpgaTestSelect, &address);
    rc = request(fpga, kFpgaTestRead, &v);
    printf("14 - RD i=%u rc=%d val=0x%x\n", i, rc, v);
  }
}

static bool pattern_request_failed(int rc) {
  if (rc == 0) return false;
  printf("ioctl failed rc=%d errno=%d\n", rc, errno);
  return true;
}

static void write_pattern(FILE* fpga) {
  for (int n = 0; n <= kPatternLast; n += kPatternStep) {
    FpgaSingle single{};
    single.index = n;
    single.value = static_cast<std::uint16_t>(n + kPatternBase);
    if (pattern_request_failed(request(fpga, kFpgaWriteReg, &single))) return;
  }
}

// Each register is read twice; only the second result counts.
static void read_pattern(FILE* fpga) {
  for (int n = 0; n <= kPatternLast; n += kPatternStep) {
    FpgaSingle single{};
    single.index = n;
    request(fpga, kFpgaReadReg, &single);
    if (pattern_request_failed(request(fpga, kFpgaReadReg, &single))) return;
    printf("0x%x\t", single.value);
  }
}

int FpgaReg() {
  FILE* fpga = open_fpga_stream(kFpgaNotOpened);
  if (fpga == nullptr) return kNotOpened;
  exercise_test_registers(fpga);
  write_pattern(fpga);
  read_pattern(fpga);
  fclose(fpga);
  return 0;
}

// --- block speed ---------------------------------------------------------

static constexpr std::uint32_t kPerfBytes = 40'000'000;  // a block size
static constexpr std::uint32_t kSmallestBlock = 256;
static constexpr std::uint32_t kLargestBlock = 65'536;

struct PerfPass {
  const char* name;
  FpgaRequest request;
};
static constexpr PerfPass kPerfPasses[] = {{"Write", kFpgaWriteBlock}, {"Read", kFpgaReadBlock}};

// What an integer division by zero does on a machine that traps it.
[[noreturn]] static void end_by_division_by_zero() {
  signal(SIGFPE, SIG_DFL);
  raise(SIGFPE);
  abort();
}

static int elapsed_ms(const timeval& start, const timeval& end) {
  return static_cast<int>((end.tv_sec - start.tv_sec) * 1000 +
                          (end.tv_usec / 1000 - start.tv_usec / 1000));
}

static int transfer_duration_ms(FILE* fpga, FpgaRequest number, std::uint32_t size, void* buffer) {
  timeval start{};
  timeval end{};
  gettimeofday(&start, nullptr);
  for (std::uint32_t counted = 0; counted < kPerfBytes; counted += size) {
    FpgaBlock block{};
    block.count = size;
    block.buffer = buffer;
    request(fpga, number, &block);
  }
  gettimeofday(&end, nullptr);
  return elapsed_ms(start, end);
}

static void print_speed(std::uint32_t size, int duration_ms) {
  if (duration_ms == 0) end_by_division_by_zero();
  const int bytes_a_ms = static_cast<int>(kPerfBytes) / duration_ms;
  printf("block size=%u  duration=%d mSec, speed=%f Mb/Sec\n", size, duration_ms,
         bytes_a_ms / 1000.0 * 8.0);
}

static void measure_pass(FILE* fpga, const PerfPass& pass) {
  printf("%s performance:\n", pass.name);
  for (std::uint32_t size = kSmallestBlock; size <= kLargestBlock; size *= 2) {
    // Cleared, so that a write pass sends defined bytes.
    void* buffer = calloc(size, 1);
    if (buffer == nullptr) return;
    print_speed(size, transfer_duration_ms(fpga, pass.request, size, buffer));
    free(buffer);
  }
}

int FpgaPerf() {
  FILE* fpga = open_fpga_stream(kFpgaNotOpened);
  if (fpga == nullptr) return kNotOpened;
  for (const PerfPass& pass : kPerfPasses) measure_pass(fpga, pass);
  fclose(fpga);
  return 0;
}
