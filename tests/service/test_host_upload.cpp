// Log and status files on their way to the host, and the status record.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/host_talk.h"
#include "vboard/core/trace.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kSilentByte[] = "SPI: No data for XX seconds (get_byte_send_byte func)...\n";

struct File {
  const char* name;
  int code;
  const char* path;
  const char* begin;  // printed before and behind
  bool has_end;
};

std::string end_of(const File& file, int size) {
  if (!file.has_end) return "";
  return "\nlogfile_size = " + std::to_string(size) + "\nEND GET_LOG_FILE1 command\n";
}

class HostUpload : public testing::TestWithParam<File> {};
INSTANTIATE_TEST_SUITE_P(Service, HostUpload,
                         testing::Values(File{"log_1", 8, "temp_log1.tar.gz", "LF c\n", true},
                                         File{"log_2", 13, "temp_log2.tar.gz", "LF c\n", true},
                                         File{"monitor_file", 19, "monitor.txt", "monitor.txt\n",
                                              false}),
                         [](auto& test) { return test.param.name; });

TEST_P(HostUpload, five_bytes_follow_their_size) {
  talk([](Talk& host) {
    const File& file = GetParam();
    host.bench.put_file(file.path, std::string("ab\0\xFFz", 5));
    EXPECT_THAT(host.say({file.code}).answer, IsEmpty());  // all is paced by the host
    EXPECT_THAT(host.poll(9), ElementsAre(0, 0, 0, 5, 'a', 'b', 0, 0xFF, 'z'));
    EXPECT_EQ(host.hear(0.1).printed, "FIN FIN\n\n61 62 0 ff 7a " + end_of(file, 5));
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

TEST_P(HostUpload, begins_with_its_words) {
  talk([](Talk& host) {
    host.bench.put_file(GetParam().path, "a");
    EXPECT_EQ(host.say({GetParam().code}).printed, GetParam().begin);
  });
}

TEST_P(HostUpload, other_bytes_than_polls_are_skipped) {
  talk([](Talk& host) {
    host.bench.put_file(GetParam().path, "ab");
    host.say({GetParam().code});
    EXPECT_THAT(host.say({0x00, 0x01, 0xA5, 0x5A, 0xA5, 0xA5, 0xA5, 0xFF, 0xA5, 0x11, 0xA5}).answer,
                ElementsAre(0, 0, 0, 2, 'a', 'b'));
  });
}

TEST_P(HostUpload, empty_file_is_its_size_alone) {
  talk([](Talk& host) {
    const File& file = GetParam();
    host.bench.put_file(file.path, "");
    host.say({file.code});
    EXPECT_THAT(host.poll(4), ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(host.hear(0.1).printed, "FIN FIN\n" + end_of(file, 0));
    EXPECT_THAT(host.say({0xA5}).answer, IsEmpty());
  });
}

TEST_P(HostUpload, missing_file_has_size_minus_1_and_no_bytes) {
  talk([](Talk& host) {
    const File& file = GetParam();
    EXPECT_EQ(host.say({file.code}).printed,
              std::string(file.begin) + "error while open temp_log1.tar.gz file\n");
    EXPECT_THAT(host.poll(4), ElementsAre(0xFF, 0xFF, 0xFF, 0xFF));
    EXPECT_EQ(host.hear(0.1).printed, "error while open temp_log.tar.gz file\n" + end_of(file, -1));
    EXPECT_THAT(host.say({0xA5}).answer, IsEmpty());  // an ignored command by now
  });
}

TEST_P(HostUpload, host_silent_in_the_size_ends_both_parts) {
  talk([](Talk& host) {
    const File& file = GetParam();
    host.bench.put_file(file.path, "abcde");
    host.say({file.code});
    EXPECT_THAT(host.poll(2), ElementsAre(0, 0));
    EXPECT_EQ(host.hear(31).printed, std::string(kSilentByte) + "error send_log_file_size\n" +
                                         kSilentByte + "error send_log_file,log_file_size = 5\n" +
                                         end_of(file, 5));
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

TEST_P(HostUpload, host_silent_in_the_data_ends_them) {
  talk([](Talk& host) {
    const File& file = GetParam();
    host.bench.put_file(file.path, "abcde");
    host.say({file.code});
    EXPECT_THAT(host.poll(6), ElementsAre(0, 0, 0, 5, 'a', 'b'));
    EXPECT_EQ(
        host.hear(16).printed,
        std::string(kSilentByte) + "error send_log_file,log_file_size = 5\n" + end_of(file, 5));
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

TEST_P(HostUpload, file_that_shrinks_behind_its_size_repeats_its_last_byte) {
  talk([](Talk& host) {
    const File& file = GetParam();
    host.bench.put_file(file.path, "abcde");
    host.say({file.code});
    EXPECT_THAT(host.poll(3), ElementsAre(0, 0, 0));
    ASSERT_EQ(truncate(host.bench.path(file.path).c_str(), 2), 0);
    EXPECT_THAT(host.poll(6), ElementsAre(5, 'a', 'b', 'b', 'b', 'b'));
  });
}

TEST(HostUploadWhileSent, file_that_shrinks_repeats_what_was_read_last) {
  talk([](Talk& host) {
    // Read in blocks of 4096: what lies after the first is gone by then.
    host.bench.put_file("temp_log1.tar.gz", std::string(4095, 'a') + "b" + std::string(904, 'c'));
    host.say({8});
    std::vector<int> got = host.poll(4 + 1);
    ASSERT_EQ(truncate(host.bench.path("temp_log1.tar.gz").c_str(), 100), 0);
    for (const int byte : host.poll(4999)) got.push_back(byte);
    std::vector<int> expected = {0, 0, 0x13, 0x88};  // 5000
    expected.insert(expected.end(), 4095, 'a');
    expected.insert(expected.end(), 905, 'b');
    EXPECT_EQ(got, expected);
  });
}

TEST(HostUploadWhileSent, file_that_vanishes_is_sent_on_as_it_was) {
  talk([](Talk& host) {
    host.bench.put_file("temp_log1.tar.gz", "abc");
    host.say({8});
    EXPECT_THAT(host.poll(5), ElementsAre(0, 0, 0, 3, 'a'));
    std::filesystem::remove(host.bench.path("temp_log1.tar.gz"));
    EXPECT_THAT(host.poll(2), ElementsAre('b', 'c'));
  });
}

class BigHostUpload : public testing::TestWithParam<int> {};

TEST_P(BigHostUpload, arrives_whole) {
  talk([](Talk& host) {
    const int size = GetParam();
    std::string content;
    for (int i = 0; i < size; ++i) content += static_cast<char>(i % 251);
    host.bench.put_file("temp_log1.tar.gz", content);
    host.say({8});
    vboard::set_trace_sink(nullptr);
    EXPECT_THAT(host.poll(4), ElementsAre(0, size >> 16, size >> 8 & 0xFF, size & 0xFF));
    const std::vector<int> got = host.poll(size);
    ASSERT_EQ(got.size(), content.size());
    for (std::size_t i = 0; i < got.size(); ++i)
      ASSERT_EQ(got[i], static_cast<unsigned char>(content[i])) << "byte " << i;
    EXPECT_THAT(host.hear(0.1).printed,
                testing::EndsWith("\nlogfile_size = " + std::to_string(size) +
                                  "\nEND GET_LOG_FILE1 command\n"));
  });
}

INSTANTIATE_TEST_SUITE_P(Service, BigHostUpload, testing::Values(150'000, 150'001),
                         [](auto& test) { return std::to_string(test.param) + "_bytes"; });

// ---- the status record ------------------------------------------------------------------

std::vector<int> record(Talk& host, int count) {
  std::vector<int> bytes;
  for (int i = 0; i < count; ++i)
    for (const int byte : host.host.ask(9)) bytes.push_back(byte);
  return bytes;
}

void set_shared_word(std::size_t offset, std::uint32_t value) {
  memcpy(reinterpret_cast<char*>(shared_memory) + offset, &value, sizeof value);
}

TEST(HostRecord, snapshot_is_taken_without_an_answer) {
  talk([](Talk& host) {
    const Heard heard = host.say({10});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "get PREPARE_FPGA_REGISTERS .. \nlength=20\n");
    ASSERT_EQ(heard.actions.size(), 18u);  // the latch, seven pairs and three single registers
    EXPECT_EQ(heard.actions[0], "fpga wr 0x0040 <- 0x0001");
    EXPECT_THAT(heard.actions[1], HasSubstr("fpga rd 0x0044"));
    EXPECT_THAT(heard.actions[17], HasSubstr("fpga rd 0x1380"));
  });
}

TEST(HostRecord, fifty_second_byte_is_byte_0_again) {
  talk([](Talk& host) {
    set_shared_word(152, 0x77);
    host.say({10});
    const std::vector<int> bytes = record(host, 53);
    ASSERT_EQ(bytes.size(), 53u);
    EXPECT_EQ(bytes[0], 0x77);
    EXPECT_EQ(bytes[1], 0x2D);
    EXPECT_EQ(bytes[51], 0x77);
    EXPECT_EQ(bytes[52], 0x2D);
  });
}

TEST(HostRecord, whole_record_has_104_bytes) {
  talk([](Talk& host) {
    const Heard heard = host.say({36});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "GET_REG_FILE_SIZE 104 \n");
    host.bench.board().fpga.held = true;
    host.bench.set_fpga(kRegVsOverallLow, 0x2211);
    host.bench.set_fpga(kRegVsOverallHigh, 0x4433);
    set_shared_word(152, 0x77);
    set_shared_word(180, 0x6655);
    set_shared_word(284, 0xDDCCBBAA);
    vid_buf_init = 0x3412;
    host.say({10});
    const std::vector<int> bytes = record(host, 105);
    std::vector<int> expected(105, 0);
    expected[0] = expected[104] = 0x77;
    expected[1] = 0x2D;
    expected[2] = 0x01;  // hardware version 0x0117, read at the service's start
    expected[3] = 0x17;
    expected[4] = 0x21;  // version of the DSP's firmware
    expected[5] = 0x11;
    expected[6] = 0x22;
    expected[7] = 0x33;
    expected[8] = 0x44;
    expected[45] = 0x12;
    expected[46] = 0x34;
    expected[51] = 0x55;
    expected[52] = 0x66;
    expected[100] = 0xAA;
    expected[101] = 0xBB;
    expected[102] = 0xCC;
    expected[103] = 0xDD;
    EXPECT_EQ(bytes, expected);
  });
}

TEST(HostRecord, asking_for_all_behind_the_short_record_starts_at_byte_0) {
  talk([](Talk& host) {
    set_shared_word(152, 0x77);
    EXPECT_EQ(record(host, 51).size(), 51u);
    host.say({36});
    EXPECT_THAT(record(host, 2), ElementsAre(0x77, 0x2D));
  });
}

}  // namespace
