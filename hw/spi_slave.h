// The SPI slave character device: opening it, and reading it as the device it is.
#pragma once

#include <cstddef>
#include <cstdio>

inline constexpr char kSpiSlaveDevice[] = "/dev/spislave";

// Opens the device read-write. Returns null (with a message) when it cannot.
FILE* open_spi_slave();

// Reads up to size bytes and returns how many came. Clears the stream's error
// and end-of-file marks after a read that brought less, so that the next read
// reaches the device again.
std::size_t read_spi_slave(FILE* stream, void* buffer, std::size_t size);
