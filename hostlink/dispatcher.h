// The host-link thread: serves the host's commands for the life of the service.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

#include "state/relaxed.h"

// One host command. `follows` says what travels on the link after the code.
struct HostCommand {
  std::uint8_t code;
  const char* name;
  const char* follows;
  void (*handler)(FILE* link);
};

// 1 once a download had the wrong size; for ever. Read and written by the thread.
extern Relaxed<std::uint8_t> wrong_size_flag;

// Every command, in order of codes.
std::span<const HostCommand> host_commands();

// The row of a command code, or null for a code that is ignored.
const HostCommand* find_host_command(std::uint8_t code);

// Thread entry; the argument is not used. Opens the FPGA, empties hd.ini, opens
// the link and the LED device, then serves commands. An FPGA that does not open
// is reported and tolerated. Ends with 0 when the link or the LED device does
// not open or a wait fails, with 2 when the LED request fails.
void* spi_slave_polling_thread(void* argument);
