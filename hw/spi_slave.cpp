// The SPI slave device at the level of single reads; the framing is in hostlink/link.
#include "hw/spi_slave.h"

FILE* open_spi_slave() {
  FILE* stream = fopen(kSpiSlaveDevice, "r+b");
  if (stream == nullptr) puts("Cannot access SPI port (/dev/spislave)");
  return stream;
}

std::size_t read_spi_slave(FILE* stream, void* buffer, std::size_t size) {
  const std::size_t count = fread(buffer, 1, size, stream);
  // A stream that is marked answers the next read without asking the device.
  if (count < size) clearerr(stream);
  return count;
}
