// The SPI slave device at the level of single reads; the framing is in hostlink/link.
#include "hw/spi_slave.h"

FILE* open_spi_slave() {
  FILE* stream = fopen(kSpiSlaveDevice, "r+b");
  if (stream == nullptr) puts("Cannot access SPI port (/dev/spislave)");
  return stream;
}

std::size_t read_spi_slave(FILE* stream, void* buffer, std::size_t size) {
  const std::size_t count = fread(buffer, 1, size, stream);
  // Marks are looked at after an empty read only: what a read brings, it brings
  // whatever marks it leaves.
  if (count == 0 && (feof(stream) != 0 || ferror(stream) != 0)) clearerr(stream);
  return count;
}
