// FPGA registers through "/dev/fpga": the four register operations, the reset
// sequence of the service start, and the line reader.
//
// Registers are 16 bits wide and named by their even byte address (see
// hw/fpga_registers.h); the driver takes the word index, address >> 1.
#pragma once

#include <cstdint>
#include <cstdio>

#include "state/relaxed.h"

inline constexpr char kFpgaDevice[] = "/dev/fpga";

// Driver requests of "/dev/fpga" for registers.
enum FpgaRequest : unsigned long {
  kFpgaTestSelect = 12,  // pointer to a word: select a test address
  kFpgaTestWrite = 13,   // pointer to a word: write a test value
  kFpgaTestRead = 14,    // pointer to a word: read a test value
  kFpgaWriteReg = 15,    // FpgaSingle
  kFpgaReadReg = 16,     // FpgaSingle
  kFpgaWriteBlock = 17,  // FpgaBlock
  kFpgaReadBlock = 18,   // FpgaBlock
};

// Record of requests 15 and 16.
struct FpgaSingle {
  std::int32_t index;   // register word index
  std::uint16_t value;  // filled by the driver on a read
  std::uint16_t padding;
};
static_assert(sizeof(FpgaSingle) == 8);

// Record of requests 17 and 18.
struct FpgaBlock {
  std::int32_t index;   // register word index
  std::uint32_t count;  // as the caller gave it
  void* buffer;
};
static_assert(sizeof(void*) != 4 || sizeof(FpgaBlock) == 12);

// What most callers of open_fpga_stream say when it fails.
inline constexpr char kFpgaNotOpened[] = "Cannot access SPI port (/dev/fpga)";
// And those that open a further handle for the LEDs.
inline constexpr char kSecondHandleNotOpened[] = "Cannot access SPI port (/dev/fpga) - for LEDs";

// Opens a stream of the caller's own on the device, for reading and writing.
// Returns null, after printing the message as a line, when it does not open.
FILE* open_fpga_stream(const char* message);

// The register device, shared by all threads; null until it is opened. Opened and
// closed by the two functions below alone.
extern Relaxed<FILE*> fpga_file;

// Opens the device into fpga_file, or prints that it cannot be opened: requests
// fail then, and reads give 0. Returns whether it is open.
bool open_fpga_file();

// Closes what open_fpga_file opened.
void close_fpga_file();

// Descriptor of a stream for ioctl; -1 for a stream that is not open, so that
// the request fails at the driver.
int descriptor_of(FILE* stream);

// Reads one register, zero-extended. A failed request reads as 0.
unsigned GetValue(int address);

// Writes the low 16 bits of value. Returns the request's result, 0 on success.
int SetValue(int address, int value);

// Reads count units into buffer. Returns the low 16 bits of the count the
// driver left in the record, or 0 on failure. No caller; bench interface.
int GetArray(int address, unsigned count, void* buffer);

// Writes count units from buffer. Returns the request's result.
int SetArray(int address, unsigned count, void* buffer);

// Reads a quantity kept in two registers, low half first.
std::uint32_t GetValue32(int low_address, int high_address);

// Holds the FPGA in reset for a second with its audio path closed, releases it
// and waits 10 ms. Part of the service start and of each AC-3 set-up.
void reset_fpga_path();

// Opens the device and resets the FPGA; sets the start-up defaults of the
// shared block. Returns the last register write's result, or -1 when the device
// cannot be opened.
int open_fpga_dev();

// Reads one line of at most size - 1 characters. Returns 1, or 0 at end of file
// or on error.
int read_line(FILE* stream, char* buffer, int size);
