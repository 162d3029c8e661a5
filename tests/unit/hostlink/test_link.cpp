// The link's primitives: opening, waits, bytes, integers and paced answers.
#include "hostlink/link.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "tests/unit/hostlink/link_bench.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;

constexpr double kSecond_us = 1e6;

TEST(OpenLink, device_present_opens_read_write_without_blocking) {
  Bench bench;
  FILE* link = open_link();
  ASSERT_NE(link, nullptr);
  EXPECT_THAT(bench.trace(), ElementsAre("open /dev/spislave r+b", "nonblock /dev/spislave 1"));
  EXPECT_EQ(bench.output(), "");
  fclose(link);
}

TEST(OpenLink, device_missing_prints_and_gives_nothing) {
  Bench bench;
  bench.world("fault missing spislave");
  EXPECT_EQ(open_link(), nullptr);
  EXPECT_EQ(bench.output(), "Cannot access SPI port (/dev/spislave)\n");
}

TEST(OpenLink, a_write_reaches_the_device_at_once) {
  LinkBench one;
  fputc(0x2D, one.link);
  EXPECT_THAT(one.written(), ElementsAre(0x2D));
}

class GetByteValue : public testing::TestWithParam<int> {};

TEST_P(GetByteValue, comes_back_unsigned) {
  LinkBench one;
  one.gulp({GetParam()});
  EXPECT_EQ(get_byte(one.link), GetParam());
  EXPECT_EQ(one.bench.output(), "");
}

INSTANTIATE_TEST_SUITE_P(Link, GetByteValue, testing::Values(0x00, 0x01, 0x7F, 0x80, 0xA5, 0xFF),
                         [](auto& test) { return "byte_" + std::to_string(test.param); });

TEST(GetByte, several_bytes_of_one_transfer_give_only_the_first) {
  LinkBench one;
  one.gulp({0x31, 0x32, 0x33});
  EXPECT_EQ(get_byte(one.link), 0x31);
  one.gulp({0x41});
  EXPECT_EQ(get_byte(one.link), 0x41);  // 0x32 and 0x33 are lost
}

TEST(GetByte, at_most_32_bytes_go_with_one_read) {
  LinkBench one;
  std::vector<int> bytes(33, 0x01);
  bytes[32] = 0x77;
  one.gulp(bytes);
  EXPECT_EQ(get_byte(one.link), 0x01);
  EXPECT_EQ(get_byte(one.link), 0x77);
}

TEST(GetByte, silent_host_is_reported_every_15_seconds_for_ever) {
  LinkBench one;
  const std::int64_t start_us = one.bench.now_us();
  // 15, 30, 45, 60 s have passed by then, 75 s not yet.
  EXPECT_FALSE(
      one.bench.run_for(static_cast<std::int64_t>(74 * kSecond_us), [&] { get_byte(one.link); }));
  EXPECT_EQ(one.bench.output(), std::string(kSilent) + kSilent + kSilent + kSilent);
  EXPECT_THAT(one.bench.trace(), ElementsAre("select 15000000 timeout", "select 15000000 timeout",
                                             "select 15000000 timeout", "select 15000000 timeout"));
  EXPECT_EQ(one.bench.now_us() - start_us, 74 * kSecond_us);
}

TEST(GetByte, byte_after_silence_ends_the_wait) {
  LinkBench one;
  one.host_sends({0x19}, 40);
  EXPECT_EQ(get_byte(one.link), 0x19);
  EXPECT_EQ(one.bench.output(), std::string(kSilent) + kSilent);
}

TEST(GetByte, select_error_gives_0_and_leaves_the_byte) {
  LinkBench one;
  one.gulp({0x55});
  one.fail_select(0);
  EXPECT_EQ(get_byte(one.link), 0);
  EXPECT_EQ(one.bench.output(), kSelectError);
  EXPECT_EQ(get_byte(one.link), 0x55);
}

TEST(GetByte, empty_reads_wait_again_without_a_word) {
  LinkBench one;
  one.gulp({0x55});
  vboard::seam::fail_call("read", "/dev/spislave", 0, 3, EAGAIN);
  EXPECT_EQ(get_byte(one.link), 0x55);
  EXPECT_EQ(one.bench.output(), "");
  const std::vector<std::string> waits = one.bench.trace({"select"});
  EXPECT_EQ(waits.size(), 4u);  // three empty reads, then the byte
}

TEST(GetByte, failed_reads_do_not_end_the_link) {
  LinkBench one;
  one.gulp({0x55});
  vboard::seam::fail_call("read", "/dev/spislave", 0, 1, EIO);
  EXPECT_EQ(get_byte(one.link), 0x55);
  one.gulp({0x56});
  EXPECT_EQ(get_byte(one.link), 0x56);
}

TEST(AwaitByte, silence_is_reported_in_the_callers_words) {
  LinkBench one;
  one.host_sends({0x19}, 16);
  EXPECT_EQ(await_byte(one.link, "nobody there"), 0x19);
  EXPECT_EQ(one.bench.output(), "nobody there\n");
}

struct Integer {
  const char* name;
  std::vector<int> bytes;
  std::int32_t value;
};

class GetIntNumber : public testing::TestWithParam<Integer> {};

TEST_P(GetIntNumber, most_significant_byte_comes_first) {
  LinkBench one;
  one.host_sends(GetParam().bytes);
  EXPECT_EQ(get_int_number(one.link), GetParam().value);
  EXPECT_EQ(one.bench.output(), "");
}

TEST_P(GetIntNumber, as_a_file_size_is_the_same) {
  LinkBench one;
  one.host_sends(GetParam().bytes);
  EXPECT_EQ(get_file_size(one.link), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Link, GetIntNumber,
    testing::Values(Integer{"zero", {0, 0, 0, 0}, 0},
                    Integer{"three_hundred", {0x00, 0x00, 0x01, 0x2C}, 300},
                    Integer{"five_million", {0x00, 0x4C, 0x4B, 0x40}, 5'000'000},
                    Integer{"all_bytes_differ", {0x12, 0x34, 0x56, 0x78}, 0x12345678},
                    Integer{"largest", {0x7F, 0xFF, 0xFF, 0xFF}, INT_MAX},
                    Integer{"smallest", {0x80, 0x00, 0x00, 0x00}, INT_MIN},
                    Integer{"minus_one", {0xFF, 0xFF, 0xFF, 0xFF}, -1}),
    [](auto& test) { return test.param.name; });

TEST(GetIntNumberTraffic, each_byte_has_its_wait_and_its_pause) {
  LinkBench one;
  one.host_sends({1, 2, 3, 4});
  get_int_number(one.link);
  EXPECT_THAT(one.bench.trace(),
              ElementsAre("select 15000000 ready", "spi rd 01", "wait 10", "select 15000000 ready",
                          "spi rd 02", "wait 10", "select 15000000 ready", "spi rd 03", "wait 10",
                          "select 15000000 ready", "spi rd 04", "wait 10"));
}

TEST(GetIntNumberTraffic, bytes_of_one_transfer_count_once) {
  LinkBench one;
  one.gulp({0x01, 0xEE, 0xEE, 0xEE});
  one.host_sends({0x02, 0x03, 0x04});
  EXPECT_EQ(get_int_number(one.link), 0x01020304);
}

TEST(GetIntNumberTraffic, silence_in_the_middle_is_reported_and_waited_out) {
  LinkBench one;
  one.host_sends({0x00, 0x00, 0x01, 0x2C}, 20);
  EXPECT_EQ(get_int_number(one.link), 300);
  // Each of the four bytes comes 20 s after the one before: one report each.
  EXPECT_EQ(one.bench.output(), std::string(kSilent) + kSilent + kSilent + kSilent);
}

class GetIntNumberError : public testing::TestWithParam<int> {};

TEST_P(GetIntNumberError, select_error_gives_0_not_the_partial_value) {
  LinkBench one;
  one.host_sends({0x11, 0x22, 0x33, 0x44});
  one.fail_select(GetParam());
  EXPECT_EQ(get_int_number(one.link), 0);
  EXPECT_EQ(one.bench.output(), kSelectError);
}

INSTANTIATE_TEST_SUITE_P(Link, GetIntNumberError, testing::Values(0, 1, 2, 3), [](auto& test) {
  return "after_" + std::to_string(test.param) + "_bytes";
});

TEST(GetByteSendByte, poll_byte_is_answered_once) {
  LinkBench one;
  one.gulp({0xA5});
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), 0);
  EXPECT_THAT(one.bench.trace(), ElementsAre("select 15000000 ready", "spi rd a5", "spi wr 3c"));
  EXPECT_EQ(one.bench.output(), "");
}

TEST(GetByteSendByte, other_bytes_are_passed_over_before_the_poll) {
  LinkBench one;
  one.host_sends({0x00, 0x11, 0xA5});
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), 0);
  EXPECT_THAT(one.bench.trace({"spi"}),
              ElementsAre("spi rd 00", "spi rd 11", "spi rd a5", "spi wr 3c"));
}

TEST(GetByteSendByte, poll_byte_behind_another_in_one_transfer_is_lost) {
  LinkBench one;
  one.gulp({0x00, 0xA5});
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), -1);
  EXPECT_THAT(one.written(), IsEmpty());
}

TEST(GetByteSendByte, silent_host_ends_it_after_one_wait) {
  LinkBench one;
  const std::int64_t start_us = one.bench.now_us();
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), -1);
  EXPECT_EQ(one.bench.now_us() - start_us, 15 * kSecond_us);
  EXPECT_EQ(one.bench.output(), kSilentByte);
  EXPECT_THAT(one.written(), IsEmpty());
}

TEST(GetByteSendByte, each_ignored_byte_starts_a_fresh_wait) {
  LinkBench one;
  const std::int64_t start_us = one.bench.now_us();
  one.host_sends({0x00, 0x00}, 14);
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), -1);
  // 14 s, 14 s, then 15 s of silence; device calls cost microseconds.
  EXPECT_NEAR(static_cast<double>(one.bench.now_us() - start_us), 43 * kSecond_us, 1000);
  EXPECT_EQ(one.bench.output(), kSilentByte);
}

TEST(GetByteSendByte, select_error_looks_like_success_and_sends_nothing) {
  LinkBench one;
  one.gulp({0xA5});
  one.fail_select(0);
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), 0);
  EXPECT_EQ(one.bench.output(), kSelectError);
  EXPECT_THAT(one.written(), IsEmpty());
}

TEST(GetByteSendByte, empty_reads_wait_again) {
  LinkBench one;
  one.gulp({0xA5});
  vboard::seam::fail_call("read", "/dev/spislave", 0, 2, EAGAIN);
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), 0);
  EXPECT_THAT(one.written(), ElementsAre(0x3C));
}

// ---- descriptors of any number ----------------------------------------------------

TEST(LinkDescriptor, beyond_a_descriptor_set_works_as_any_other) {
  const DescriptorsUsedUp used;
  LinkBench one;
  ASSERT_NE(one.link, nullptr);
  ASSERT_GE(fileno(one.link), FD_SETSIZE);
  one.gulp({0x31});
  std::uint8_t byte = 0;
  ASSERT_EQ(wait_byte(one.link, 1, &byte), LinkWait::kByte);
  EXPECT_EQ(byte, 0x31);
  one.host_sends({0x00, 0x00, 0x01, 0x2C, 0xA5});
  EXPECT_EQ(get_int_number(one.link), 300);
  EXPECT_EQ(get_byte_send_byte(one.link, 0x3C), 0);
  EXPECT_THAT(one.written(), ElementsAre(0x3C));
  EXPECT_EQ(wait_byte(one.link, 1, &byte), LinkWait::kTimeout);
  EXPECT_EQ(one.bench.output(), "");
}

class KernelWait : public testing::TestWithParam<int> {};

// No board: a pipe, and the kernel's own waits.
TEST_P(KernelWait, sees_the_byte_behind_a_descriptor_of_this_number) {
  raise_descriptor_limit();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  ASSERT_EQ(dup2(ends[0], GetParam()), GetParam());
  FILE* link = fdopen(GetParam(), "rb");
  setvbuf(link, nullptr, _IONBF, 0);
  ASSERT_EQ(write(ends[1], "\x2d", 1), 1);
  std::uint8_t byte = 0;
  EXPECT_EQ(wait_byte(link, 1, &byte), LinkWait::kByte);
  EXPECT_EQ(byte, 0x2D);
  fclose(link);
  close(ends[0]);
  close(ends[1]);
}

INSTANTIATE_TEST_SUITE_P(Link, KernelWait, testing::Values(500, 1023, 1024, 1087, 2048, 4000),
                         [](auto& test) { return "descriptor_" + std::to_string(test.param); });

}  // namespace
