// The host link: bytes and integers over the SPI slave device.
//
// The host clocks one meaningful byte per transfer. There is no header, length
// or checksum: structure comes from the command byte and the fixed sequences
// behind it. Integers travel most significant byte first. Used by the host-link
// thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

inline constexpr long kLinkWait_s = 15;              // set again before every single wait
inline constexpr std::size_t kLinkReadSize = 32;     // asked for by each read of a primitive
inline constexpr std::uint8_t kHostPollByte = 0xA5;  // the host wants one byte of an answer
inline constexpr char kLinkSilence[] = "SPI: No data for XX seconds...";

// What one wait for a byte came to.
enum class LinkWait { kByte, kNothing, kTimeout, kError };  // kNothing: an empty read

// Opens the device unbuffered and non-blocking. Returns null (with a message)
// when it cannot be opened.
FILE* open_link();

// Waits up to 15 s and reads up to `ask` bytes (at most kLinkReadSize), of which the
// first is taken and the others are dropped. An error of the wait is reported here.
LinkWait wait_byte(FILE* link, std::size_t ask, std::uint8_t* byte);

// wait_byte again and again until a byte comes; each silent wait is reported with
// `silence`, if any. Returns false after an error of the wait.
bool receive_byte(FILE* link, std::size_t ask, const char* silence, std::uint8_t* byte);

// The first byte of the next non-empty read, 0..255, after any number of silent
// waits, each reported with `silence`. 0 after a wait error.
int await_byte(FILE* link, const char* silence);

// As await_byte, with the common silence message.
int get_byte(FILE* link);

// A 32-bit integer from the next four bytes, most significant first. 0 after a
// wait error, whatever had arrived.
std::int32_t get_int_number(FILE* link);

// get_int_number where the integer is a byte count.
std::int32_t get_file_size(FILE* link);

// Waits for the host's poll byte and answers it with `byte`. Returns 0 when the
// byte was handed over, and after a wait error too; -1 after one silent wait.
int get_byte_send_byte(FILE* link, std::uint8_t byte);
