// Bench readers of the SPI slave device, without the framing of the host link. They
// have no caller.
#pragma once

#include <cstdint>

inline constexpr std::intptr_t kOpenSpiSlave = -1;

// Reads one byte and prints how many came. `h` is the stream of an earlier call,
// or kOpenSpiSlave for a new one. Returns the stream for the next call, or 1
// when the device cannot be opened.
std::intptr_t readSpiSplave(std::intptr_t h);

// Thread entry: reads bytes for ever without a print. Returns null when the
// device cannot be opened; the argument is not used.
void* spi_slave_thread(void* argument);
