// Files and single values to the host: logs, the status file, chip registers.
//
// Every byte of a file waits for the host's poll; a silent wait of 15 s ends the
// transfer.
#pragma once

#include <cstdint>
#include <cstdio>

enum LogFile : int { kLogFile1 = 1, kLogFile2 = 2, kMonitorFile = 3 };

// Length of a file in bytes, or -1 (with a message) when it does not open.
std::int32_t get_log_file_size(int selector);

// Sends a size, most significant byte first. Returns 0, or the negative result
// of the byte that did not go out.
int send_log_file_size(std::int32_t size, FILE* link);

// Sends size bytes of a file and dumps them on the console. Returns 0, also
// when the file is missing, or a negative value on failure.
int send_log_file(std::int32_t size, FILE* link, int selector);

// Reads one register of a chip that the host names with two more bytes: 8-bit
// device address, register. Returns the register 0..255; -1 no bus, -2 no
// second link stream, -3 failed read, 0 after a wait error.
int read_reg();

// Sends the six AC-3 descriptor bytes, last first, and copies each into the
// shared block. Returns 0 or -1. No caller; bench interface.
int get_byte_send_ac3_params(FILE* link);

// The next byte from the host, as get_byte with its own silence message. No caller;
// bench interface.
int get_logfile_number_to_send(FILE* link);
