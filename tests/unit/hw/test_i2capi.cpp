// I2C transactions message by message, and the semaphore set.
#include "hw/i2capi.h"

#include <gmock/gmock.h>

#include <linux/i2c-dev.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "vboard/testing/bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using vboard::Bench;
namespace seam = vboard::seam;

constexpr int kChip = 0x2E;  // a chip that takes messages of any shape

// A bench with bus 1 open, with nothing traced yet.
struct OpenBus {
  Bench bench;
  int fd = init_i2c(1);
  OpenBus() { bench.trace(); }
  ~OpenBus() { close(fd); }
  // What went over the wires; the chip's own opinion of it left out.
  std::vector<std::string> traffic() { return bench.trace({"i2c"}); }
};

// ---- opening ----------------------------------------------------------------------

TEST(InitI2c, bus_is_opened_by_its_number) {
  Bench bench;
  const int fd = init_i2c(1);
  EXPECT_GE(fd, 0);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-1"));
  close(fd);
}

TEST(InitI2c, bus_that_is_not_there_gives_minus_one) {
  Bench bench;
  EXPECT_EQ(init_i2c(2), -1);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/i2c-2 = ENOENT"));
  EXPECT_EQ(bench.output(), "");
}

TEST(InitI2c, number_of_any_size_is_refused_by_the_kernel) {
  Bench bench;
  EXPECT_EQ(init_i2c(INT32_MIN), -1);
  EXPECT_EQ(init_i2c(INT32_MAX), -1);
}

// ---- reading ----------------------------------------------------------------------

TEST(I2cReadblk, one_byte_sub_address_then_a_combined_read) {
  OpenBus on;
  on.bench.board().chip7353.reg[1] = 0xAA;
  on.bench.board().chip7353.reg[2] = 0xBB;
  std::uint8_t bytes[3] = {0, 0, 0xEE};
  EXPECT_EQ(i2c_readblk(on.fd, kChip, 0xF01, 1, 2, bytes), 2);  // two messages done
  EXPECT_THAT(on.traffic(), ElementsAre("i2c 2e rd 01 -> aa bb"));
  EXPECT_THAT(bytes, ElementsAre(0xAA, 0xBB, 0xEE));
}

TEST(I2cReadblk, two_byte_sub_address_goes_most_significant_first) {
  OpenBus on;
  std::uint8_t byte = 0;
  EXPECT_EQ(i2c_readblk(on.fd, kChip, 0x71234, 2, 1, &byte), 2);
  EXPECT_THAT(on.traffic(), ElementsAre(MatchesRegex("i2c 2e rd 12 34 -> [0-9a-f][0-9a-f]")));
}

TEST(I2cReadblk, without_sub_address_one_byte_whatever_the_length) {
  OpenBus on;
  on.bench.board().chip7353.reg[0] = 0x5A;
  std::uint8_t bytes[8];
  for (std::uint8_t& byte : bytes) byte = 0xEE;
  EXPECT_EQ(i2c_readblk(on.fd, kChip, 0x12, 0, 8, bytes), 1);
  EXPECT_THAT(on.traffic(), ElementsAre("i2c 2e rd -> 5a"));
  EXPECT_THAT(bytes, ElementsAre(0x5A, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE));
}

TEST(I2cReadblk, sub_address_of_three_sends_two_bytes_and_a_spare_one) {
  OpenBus on;
  std::uint8_t byte = 0;
  EXPECT_EQ(i2c_readblk(on.fd, kChip, 0x0102, 3, 1, &byte), 2);
  EXPECT_THAT(on.traffic(),
              ElementsAre(MatchesRegex("i2c 2e rd 01 02 [0-9a-f]{2} -> [0-9a-f]{2}")));
}

// Two bytes of sub-address, and zeros up to the length: all of it goes out.
TEST(I2cReadblk, longer_sub_address_goes_out_whole) {
  OpenBus on;
  std::uint8_t byte = 0;
  EXPECT_EQ(i2c_readblk(on.fd, kChip, 0x70102, 5, 1, &byte), 2);
  EXPECT_THAT(on.traffic(), ElementsAre(MatchesRegex("i2c 2e rd 01 02 00 00 00 -> [0-9a-f]{2}")));
}

TEST(I2cReadblk, longest_sub_address_goes_out_whole) {
  OpenBus on;
  std::uint8_t byte = 0;
  EXPECT_EQ(i2c_readblk(on.fd, kChip, 0x0102, 1024, 1, &byte), 2);
  std::string line = "i2c 2e rd 01 02";
  for (int i = 0; i < 30; ++i) line += " 00";  // the trace shows 32 bytes
  EXPECT_THAT(on.traffic(), ElementsAre(testing::StartsWith(line + " ... n=1024 -> ")));
}

TEST(I2cReadblk, sub_address_without_room_is_refused_off_the_bus) {
  OpenBus on;
  std::uint8_t byte = 0xEE;
  for (const int length : {1025, 65537, INT32_MAX, -1, INT32_MIN})
    EXPECT_EQ(i2c_readblk(on.fd, kChip, 0x0102, length, 1, &byte), -2) << length;
  EXPECT_THAT(on.bench.trace(), IsEmpty());
  EXPECT_EQ(byte, 0xEE);
}

TEST(I2cReadblk, failed_transfer_is_negative_and_leaves_the_buffer) {
  OpenBus on;
  on.bench.world("fault i2c-fail 2e");
  std::uint8_t bytes[] = {0xEE, 0xEE};
  EXPECT_LT(i2c_readblk(on.fd, kChip, 1, 1, 2, bytes), 0);
  EXPECT_THAT(bytes, ElementsAre(0xEE, 0xEE));
  EXPECT_EQ(on.bench.output(), "");
}

TEST(I2cReadblk, bus_that_did_not_open_fails) {
  Bench bench;
  std::uint8_t byte = 0xEE;
  EXPECT_EQ(i2c_readblk(-1, kChip, 1, 1, 1, &byte), -1);
  EXPECT_EQ(byte, 0xEE);
  EXPECT_THAT(bench.trace(), IsEmpty());
}

TEST(I2cReadbyte, names_a_register_and_reads_one_byte) {
  OpenBus on;
  on.bench.board().chip7353.reg[3] = 0x77;
  std::uint8_t bytes[] = {0, 0xEE};
  EXPECT_EQ(i2c_readbyte(on.fd, kChip, 0x103, bytes), 2);
  EXPECT_THAT(on.traffic(), ElementsAre("i2c 2e rd 03 -> 77"));
  EXPECT_THAT(bytes, ElementsAre(0x77, 0xEE));
}

// ---- writing ----------------------------------------------------------------------

struct SubAddress {
  int length;
  const char* traffic;
};

class I2cWriteSubAddress : public testing::TestWithParam<SubAddress> {};

TEST_P(I2cWriteSubAddress, precedes_the_data_in_one_message) {
  OpenBus on;
  const std::uint8_t data[] = {0xAB, 0xCD};
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x71234, GetParam().length, 2, data), 1);
  EXPECT_THAT(on.traffic(), ElementsAre(MatchesRegex(GetParam().traffic)));
}

INSTANTIATE_TEST_SUITE_P(
    I2cWriteblk, I2cWriteSubAddress,
    testing::Values(SubAddress{0, "i2c 2e wr ab cd"}, SubAddress{1, "i2c 2e wr 34 ab cd"},
                    SubAddress{2, "i2c 2e wr 12 34 ab cd"},
                    // Two bytes of sub-address, but counted as three: a spare byte at the end.
                    SubAddress{3, "i2c 2e wr 12 34 ab cd [0-9a-f]{2}"},
                    SubAddress{4, "i2c 2e wr 12 34 ab cd 00 00"},
                    SubAddress{5, "i2c 2e wr 12 34 ab cd 00 00 00"},
                    SubAddress{9, "i2c 2e wr 12 34 ab cd 00 00 00 00 00 00 00"}),
    [](const auto& test) { return "length_" + std::to_string(test.param.length); });

TEST(I2cWriteblk, longest_block_is_sent_whole) {
  OpenBus on;
  const std::vector<std::uint8_t> data(1023, 0x5A);
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x12, 1, 1023, data.data()), 1);
  std::string line = "i2c 2e wr 12";
  for (int i = 0; i < 31; ++i) line += " 5a";  // the trace shows 32 bytes
  EXPECT_THAT(on.traffic(), ElementsAre(line + " ... n=1024"));
}

TEST(I2cWriteblk, longest_block_with_two_byte_sub_address_is_sent_whole) {
  OpenBus on;
  const std::vector<std::uint8_t> data(1023, 0x5A);
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x1234, 2, 1023, data.data()), 1);
  EXPECT_THAT(on.traffic(), ElementsAre(testing::EndsWith(" ... n=1025")));
}

TEST(I2cWriteblk, longest_block_with_the_longest_sub_address_is_sent_whole) {
  OpenBus on;
  const std::vector<std::uint8_t> data(1023, 0x5A);
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x1234, 1024, 1023, data.data()), 1);
  std::string line = "i2c 2e wr 12 34";
  for (int i = 0; i < 30; ++i) line += " 5a";
  EXPECT_THAT(on.traffic(), ElementsAre(line + " ... n=2047"));
}

TEST(I2cWriteblk, sub_address_without_room_is_refused_off_the_bus) {
  OpenBus on;
  const std::uint8_t byte = 1;
  for (const int length : {1025, 65537, INT32_MAX, -1, INT32_MIN})
    EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x12, length, 1, &byte), -2) << length;
  EXPECT_THAT(on.bench.trace(), IsEmpty());
}

TEST(I2cWriteblk, oversized_block_is_refused_off_the_bus) {
  OpenBus on;
  const std::vector<std::uint8_t> data(2000, 0x5A);
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x12, 1, 1024, data.data()), -2);
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x12, 1, INT32_MAX, data.data()), -2);
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x12, 1, -1, data.data()), -2);
  EXPECT_THAT(on.traffic(), IsEmpty());
}

TEST(I2cWriteblk, no_data_sends_the_sub_address_alone) {
  OpenBus on;
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x12, 1, 0, nullptr), 1);
  EXPECT_THAT(on.traffic(), ElementsAre("i2c 2e wr 12"));
}

TEST(I2cWriteblk, failed_transfer_is_negative) {
  OpenBus on;
  on.bench.world("fault i2c-fail 2e");
  const std::uint8_t byte = 1;
  EXPECT_EQ(i2c_writeblk(on.fd, kChip, 0x12, 1, 1, &byte), -1);
}

TEST(I2cWritebyte, only_the_low_byte_is_sent) {
  OpenBus on;
  EXPECT_EQ(i2c_writebyte(on.fd, kChip, 2, 0x1A5), 1);
  EXPECT_THAT(on.traffic(), ElementsAre("i2c 2e wr 02 a5"));
}

TEST(I2cWriteblkX, one_raw_byte_without_sub_address) {
  OpenBus on;
  EXPECT_EQ(i2c_writeblkX(on.fd, kChip, 0x1A5), 1);
  EXPECT_THAT(on.traffic(), ElementsAre("i2c 2e wr a5"));
}

// ---- bench dump --------------------------------------------------------------------

TEST(WriteI2c, address_that_cannot_be_bound_gives_minus_one) {
  OpenBus on;
  seam::fail_call("ioctl", "/dev/i2c-1 " + std::to_string(I2C_SLAVE), 0, 1, EBUSY);
  EXPECT_EQ(write_i2c(on.fd), -1);
  EXPECT_EQ(on.bench.output(), "");
}

TEST(WriteI2c, dumps_register_after_register_for_ever) {
  OpenBus on;
  // A read costs 400 us: more than 256 + 17 of them.
  EXPECT_FALSE(on.bench.run_for(400 * 300, [&on] { write_i2c(on.fd); }));
  const std::vector<std::string> printed = vboard::lines(on.bench.output());
  const std::string sixteen =
      "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ";  // no chip answers: an unset buffer
  ASSERT_GE(printed.size(), 18u);
  EXPECT_EQ(printed[0], "0000  " + sixteen);
  EXPECT_EQ(printed[1], "0010  " + sixteen);
  EXPECT_EQ(printed[15], "00f0  " + sixteen);
  EXPECT_EQ(printed[16], "");
  EXPECT_EQ(printed[17], "0100  " + sixteen);  // the index counts on, the register wraps

  const std::vector<std::string> traffic = on.bench.trace();
  ASSERT_GE(traffic.size(), 258u);
  EXPECT_EQ(traffic[0], "i2c bind 21");
  EXPECT_EQ(traffic[1], "i2c 21 rd 00 = EREMOTEIO");
  EXPECT_EQ(traffic[2], "i2c 21 rd 01 = EREMOTEIO");
  EXPECT_EQ(traffic[256], "i2c 21 rd ff = EREMOTEIO");
  EXPECT_EQ(traffic[257], "i2c 21 rd 00 = EREMOTEIO");
}

// ---- semaphores ------------------------------------------------------------------------

std::string set_request(int count, int flags) {
  char line[64];
  snprintf(line, sizeof line, "semget 0x%x %d %d", static_cast<unsigned>(ftok("/tmp/", 97)), count,
           flags);
  return line;
}

std::vector<int> values() {
  const int id = semget(ftok("/tmp/", 97), 0, 0);
  return {semctl(id, 0, GETVAL), semctl(id, 1, GETVAL), semctl(id, 2, GETVAL)};
}

TEST(InitSemaphore, fresh_system_creates_the_set_with_ones) {
  Bench bench;
  EXPECT_EQ(InitSemaphore(0), 0);
  EXPECT_THAT(bench.trace(),
              ElementsAre(set_request(0, 0) + " = ENOENT", set_request(3, 950), "semctl 0 setval 1",
                          "semctl 1 setval 1", "semctl 2 setval 1"));
  EXPECT_THAT(values(), ElementsAre(1, 1, 1));
}

TEST(InitSemaphore, existing_set_is_left_with_its_values) {
  Bench bench;
  InitSemaphore(0);
  LockI2C();
  bench.trace();
  EXPECT_EQ(InitSemaphore(0), 0);
  EXPECT_THAT(bench.trace(), ElementsAre(set_request(0, 0)));
  EXPECT_THAT(values(), ElementsAre(0, 1, 1));
}

TEST(InitSemaphore, force_sets_all_three_to_one) {
  Bench bench;
  InitSemaphore(0);
  LockI2C();
  UnLockStatus();
  EXPECT_THAT(values(), ElementsAre(0, 1, 2));
  bench.trace();
  EXPECT_EQ(InitSemaphore(1), 0);
  EXPECT_THAT(bench.trace(), ElementsAre(set_request(0, 0), "semctl 0 setval 1",
                                         "semctl 1 setval 1", "semctl 2 setval 1"));
  EXPECT_THAT(values(), ElementsAre(1, 1, 1));
}

TEST(InitSemaphore, set_with_identifier_0_is_as_good_as_any) {
  Bench bench;
  seam::set_semaphore_id(0);
  EXPECT_EQ(InitSemaphore(0), 0);  // created
  EXPECT_EQ(InitSemaphore(0), 0);  // found
  EXPECT_THAT(bench.trace(),
              ElementsAre(set_request(0, 0) + " = ENOENT", set_request(3, 950), "semctl 0 setval 1",
                          "semctl 1 setval 1", "semctl 2 setval 1", set_request(0, 0)));
  EXPECT_EQ(LockI2C(), 0);
}

TEST(InitSemaphore, set_neither_found_nor_created_gives_minus_one) {
  Bench bench;
  seam::fail_call("semget", "", 0, 2, ENOSPC);
  EXPECT_EQ(InitSemaphore(1), -1);
  EXPECT_THAT(bench.trace({"semctl"}), IsEmpty());
  EXPECT_EQ(LockI2C(), -1);
}

struct Lock {
  const char* name;
  int (*call)();
  const char* traffic;
};

class SemaphoreStep : public testing::TestWithParam<Lock> {};

TEST_P(SemaphoreStep, is_one_operation_without_undo) {
  Bench bench;
  InitSemaphore(1);
  bench.trace();
  EXPECT_EQ(GetParam().call(), 0);
  EXPECT_THAT(bench.trace(), ElementsAre(GetParam().traffic));
}

TEST_P(SemaphoreStep, refused_gives_minus_one) {
  Bench bench;
  InitSemaphore(1);
  seam::fail_call("semop", "", 0, 1, EIDRM);
  EXPECT_EQ(GetParam().call(), -1);
}

INSTANTIATE_TEST_SUITE_P(I2cApi, SemaphoreStep,
                         testing::Values(Lock{"LockI2C", LockI2C, "semop 0 -1 flags 0"},
                                         Lock{"UnlockI2C", UnlockI2C, "semop 0 1 flags 0"},
                                         Lock{"LockStatus", LockStatus, "semop 2 -1 flags 0"},
                                         Lock{"UnLockStatus", UnLockStatus, "semop 2 1 flags 0"}),
                         [](const auto& test) { return std::string(test.param.name); });

// In a process of its own, as every test is run: nothing has looked a set up yet.
TEST(LockI2C, before_any_look_up_takes_the_set_with_identifier_0) {
  Bench bench;
  seam::set_semaphore_id(0);
  const int id = semget(ftok("/tmp/", 97), 3, IPC_CREAT | 0666);
  ASSERT_EQ(semctl(id, 0, SETVAL, 1), 0);
  bench.trace();
  EXPECT_EQ(LockI2C(), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("semop 0 -1 flags 0"));
}

TEST(LockI2C, set_never_initialised_fails) {
  Bench bench;
  EXPECT_EQ(LockI2C(), -1);
}

}  // namespace
