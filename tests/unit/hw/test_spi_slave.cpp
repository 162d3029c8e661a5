// The reads of the SPI slave device: what came, and that the next one reaches the
// device again.
#include "hw/spi_slave.h"

#include <unistd.h>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace {

// A link that ends when nothing is waiting: a pipe whose other end is closed.
class EndedLink : public testing::Test {
 protected:
  EndedLink() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(write(ends[1], "\x03\x1c", 2), 2);
    close(ends[1]);
    link = fdopen(ends[0], "rb");
    setvbuf(link, nullptr, _IONBF, 0);
  }
  ~EndedLink() override { fclose(link); }
  FILE* link;
};

TEST_F(EndedLink, short_read_gives_what_came) {
  unsigned char bytes[32] = {};
  EXPECT_EQ(read_spi_slave(link, bytes, sizeof bytes), 2u);
  EXPECT_EQ(bytes[0], 0x03);
  EXPECT_EQ(bytes[1], 0x1c);
}

TEST_F(EndedLink, short_read_leaves_no_marks) {
  unsigned char bytes[32];
  EXPECT_EQ(read_spi_slave(link, bytes, sizeof bytes), 2u);
  EXPECT_EQ(feof(link), 0);
  EXPECT_EQ(ferror(link), 0);
}

TEST_F(EndedLink, empty_read_leaves_no_marks) {
  unsigned char bytes[32];
  read_spi_slave(link, bytes, sizeof bytes);
  EXPECT_EQ(read_spi_slave(link, bytes, sizeof bytes), 0u);
  EXPECT_EQ(feof(link), 0);
  EXPECT_EQ(ferror(link), 0);
}

TEST(SpiSlaveRead, reaches_the_device_again_after_an_end) {
  FILE* link = tmpfile();
  setvbuf(link, nullptr, _IONBF, 0);
  unsigned char byte = 0;
  EXPECT_EQ(read_spi_slave(link, &byte, 1), 0u);
  EXPECT_EQ(pwrite(fileno(link), "\x2d", 1, 0), 1);
  EXPECT_EQ(read_spi_slave(link, &byte, 1), 1u);
  EXPECT_EQ(byte, 0x2d);
  fclose(link);
}

}  // namespace
