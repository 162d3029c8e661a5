// Bench access to the SPI slave: single reads and an endless drain.
#include "diag/spi_bench.h"

#include <unistd.h>

#include <cstddef>
#include <cstdio>

#include "hw/spi_slave.h"
#include "hw/time_units.h"

static constexpr useconds_t kReadPause_us = 20 * kMillisecond_us;
static constexpr useconds_t kEmptyPause_us = 100;
static constexpr std::intptr_t kNotOpened = 1;

std::intptr_t readSpiSplave(std::intptr_t h) {
  printf("readSpiSplave, h=0x%x\n", static_cast<unsigned>(h));
  if (h == kNotOpened) return kNotOpened;  // the result of a failed call, passed back
  FILE* stream = h == kOpenSpiSlave ? open_spi_slave() : reinterpret_cast<FILE*>(h);
  if (stream == nullptr) return kNotOpened;
  usleep(kReadPause_us);
  puts("trying to read SPI:");
  std::uint8_t byte = 0;
  const std::size_t rc = read_spi_slave(stream, &byte, 1);
  printf("fread rc=%d\n", static_cast<int>(rc));
  usleep(kReadPause_us);
  return reinterpret_cast<std::intptr_t>(stream);
}

void* spi_slave_thread(void* /*argument*/) {
  FILE* stream = open_spi_slave();
  if (stream == nullptr) return nullptr;
  setvbuf(stream, nullptr, _IONBF, 0);
  for (;;) {
    std::uint8_t byte = 0;
    if (read_spi_slave(stream, &byte, 1) == 0) usleep(kEmptyPause_us);
  }
}
