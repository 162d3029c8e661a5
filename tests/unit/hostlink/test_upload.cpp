// Uploads: sizes, files, chip registers, the AC-3 descriptor.
#include "hostlink/upload.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/unit/hostlink/link_bench.h"
#include "vboard/core/trace.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::seam::fail_call;

constexpr char kNoSizeFile[] = "error while open temp_log1.tar.gz file\n";
constexpr char kNoDataFile[] = "error while open temp_log.tar.gz file\n";

int count_of(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

// ---- sizes --------------------------------------------------------------------

// The service's directory is apart from its home here.
class Elsewhere {
 public:
  explicit Elsewhere(const vboard::Bench& bench) {
    std::filesystem::create_directory(bench.path("work"));
    std::filesystem::current_path(bench.path("work"));
  }
};

struct Selector {
  const char* name;
  int number;
  const char* size_file;  // below the home
  const char* data_file;
};

class LogFiles : public testing::TestWithParam<Selector> {
 protected:
  LogFiles() : elsewhere(one.bench) {}
  LinkBench one;
  Elsewhere elsewhere;
};

TEST_P(LogFiles, size_comes_from_the_size_path) {
  one.bench.put_file(GetParam().size_file, "12345");
  EXPECT_EQ(get_log_file_size(GetParam().number), 5);
  EXPECT_EQ(one.bench.output(), "");
}

TEST_P(LogFiles, missing_file_has_size_minus_1_and_the_words_of_log_1) {
  EXPECT_EQ(get_log_file_size(GetParam().number), -1);
  EXPECT_EQ(one.bench.output(), kNoSizeFile);
}

TEST_P(LogFiles, data_come_from_the_data_path) {
  one.bench.put_file(GetParam().data_file, "xyz");
  one.host_polls(3);
  EXPECT_EQ(send_log_file(3, one.link, GetParam().number), 0);
  EXPECT_THAT(one.written(), ElementsAre('x', 'y', 'z'));
}

TEST_P(LogFiles, missing_data_file_sends_nothing_and_is_no_failure) {
  one.gulp({0xA5});
  EXPECT_EQ(send_log_file(3, one.link, GetParam().number), 0);
  EXPECT_EQ(one.bench.output(), kNoDataFile);
  EXPECT_THAT(one.bench.trace({"select", "spi"}), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Upload, LogFiles,
    testing::Values(Selector{"log_1", 1, "temp_log1.tar.gz", "temp_log1.tar.gz"},
                    Selector{"log_2", 2, "temp_log2.tar.gz", "temp_log2.tar.gz"},
                    Selector{"monitor_file", 3, "work/monitor.txt", "monitor.txt"}),
    [](auto& test) { return test.param.name; });

TEST(LogFileSelector, unknown_number_is_a_missing_file) {
  LinkBench one;
  EXPECT_EQ(get_log_file_size(0), -1);
  EXPECT_EQ(get_log_file_size(4), -1);
  EXPECT_EQ(one.bench.output(), std::string(kNoSizeFile) + kNoSizeFile);
  EXPECT_EQ(send_log_file(1, one.link, 4), 0);
  EXPECT_EQ(one.bench.output(), kNoDataFile);
}

struct SizeBytes {
  const char* name;
  std::int32_t size;
  std::vector<int> bytes;
};

class SendLogFileSize : public testing::TestWithParam<SizeBytes> {};

TEST_P(SendLogFileSize, goes_out_most_significant_byte_first) {
  LinkBench one;
  one.host_polls(4);
  EXPECT_EQ(send_log_file_size(GetParam().size, one.link), 0);
  EXPECT_EQ(one.written(), GetParam().bytes);
  EXPECT_EQ(one.bench.output(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Upload, SendLogFileSize,
    testing::Values(SizeBytes{"zero", 0, {0, 0, 0, 0}}, SizeBytes{"five", 5, {0, 0, 0, 5}},
                    // 150000 = 0x249F0
                    SizeBytes{"dump_size", 150'000, {0x00, 0x02, 0x49, 0xF0}},
                    SizeBytes{"all_bytes_differ", 0x12345678, {0x12, 0x34, 0x56, 0x78}},
                    SizeBytes{"missing_file", -1, {0xFF, 0xFF, 0xFF, 0xFF}}),
    [](auto& test) { return test.param.name; });

class SendLogFileSizeSilence : public testing::TestWithParam<int> {};

TEST_P(SendLogFileSizeSilence, ends_it) {
  LinkBench one;
  one.host_polls(GetParam());
  EXPECT_EQ(send_log_file_size(0x12345678, one.link), -1);
  EXPECT_EQ(one.bench.output(), std::string(kSilentByte) + "error send_log_file_size\n");
  EXPECT_EQ(one.written().size(), std::size_t(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Upload, SendLogFileSizeSilence, testing::Values(0, 1, 2, 3),
                         [](auto& test) {
                           return "after_" + std::to_string(test.param) + "_bytes";
                         });

TEST(SendLogFileSizeError, select_error_passes_for_a_byte_sent) {
  LinkBench one;
  one.host_polls(3);
  one.fail_select(0);
  EXPECT_EQ(send_log_file_size(0x12345678, one.link), 0);
  EXPECT_EQ(one.bench.output(), kSelectError);
  EXPECT_THAT(one.written(), ElementsAre(0x34, 0x56, 0x78));
}

// ---- files ----------------------------------------------------------------------

class SendLogFile : public testing::Test {
 protected:
  int send(std::int32_t size, const std::string& content) {
    one.bench.put_file("temp_log1.tar.gz", content);
    return send_log_file(size, one.link, kLogFile1);
  }
  LinkBench one;
};

TEST_F(SendLogFile, five_bytes_go_out_one_for_each_poll) {
  one.host_polls(5);
  EXPECT_EQ(send(5, std::string("\x00\x0F\xFFza", 5)), 0);
  EXPECT_THAT(one.bench.trace({"spi"}),
              ElementsAre("spi rd a5", "spi wr 00", "spi rd a5", "spi wr 0f", "spi rd a5",
                          "spi wr ff", "spi rd a5", "spi wr 7a", "spi rd a5", "spi wr 61"));
  EXPECT_EQ(one.bench.output(), "FIN FIN\n\n0 f ff 7a 61 ");
}

TEST_F(SendLogFile, other_bytes_than_the_poll_are_skipped_and_not_counted) {
  one.host_sends({0x00, 0xA5, 0x11, 0x22, 0xA5});
  EXPECT_EQ(send(2, "ab"), 0);
  EXPECT_THAT(one.written(), ElementsAre('a', 'b'));
}

TEST_F(SendLogFile, empty_file_of_size_0_sends_nothing) {
  EXPECT_EQ(send(0, ""), 0);
  EXPECT_EQ(one.bench.output(), "FIN FIN\n");
  EXPECT_THAT(one.bench.trace({"select", "spi"}), IsEmpty());
}

TEST_F(SendLogFile, negative_size_sends_nothing) {
  EXPECT_EQ(send(-1, "abc"), 0);
  EXPECT_EQ(one.bench.output(), "FIN FIN\n");
  EXPECT_THAT(one.bench.trace({"select", "spi"}), IsEmpty());
}

TEST_F(SendLogFile, file_that_shrank_repeats_its_last_byte) {
  one.host_polls(5);
  EXPECT_EQ(send(5, "ab"), 0);
  EXPECT_THAT(one.written(), ElementsAre('a', 'b', 'b', 'b', 'b'));
}

TEST_F(SendLogFile, file_that_grew_is_sent_up_to_its_size) {
  one.host_polls(2);
  EXPECT_EQ(send(2, "abc"), 0);
  EXPECT_THAT(one.written(), ElementsAre('a', 'b'));
}

TEST_F(SendLogFile, empty_file_with_a_size_sends_zero_bytes) {
  one.host_polls(3);
  EXPECT_EQ(send(3, ""), 0);
  EXPECT_THAT(one.written(), ElementsAre(0, 0, 0));
}

TEST_F(SendLogFile, dump_begins_a_line_before_every_20th_byte) {
  one.host_polls(41);
  EXPECT_EQ(send(41, std::string(41, '\x1A')), 0);
  std::string row = "\n";
  for (int i = 0; i < 20; ++i) row += "1a ";
  EXPECT_EQ(one.bench.output(), "FIN FIN\n" + row + row + "\n1a ");
}

TEST_F(SendLogFile, byte_of_16_and_more_has_two_digits_in_the_dump) {
  one.host_polls(3);
  EXPECT_EQ(send(3, "\x0F\x10\xA0"), 0);
  EXPECT_EQ(one.bench.output(), "FIN FIN\n\nf 10 a0 ");
}

TEST_F(SendLogFile, whole_file_is_closed) {
  one.host_polls(1);
  const int before = open_files();
  EXPECT_EQ(send(1, "a"), 0);
  EXPECT_EQ(open_files(), before);
}

TEST_F(SendLogFile, silent_host_ends_it) {
  one.host_polls(2);
  const int before = open_files();
  EXPECT_EQ(send(5, "abcde"), -1);
  EXPECT_EQ(open_files(), before);
  EXPECT_THAT(one.written(), ElementsAre('a', 'b'));
  EXPECT_EQ(one.bench.output(),
            std::string(kSilentByte) + "error send_log_file,log_file_size = 5\n");
}

TEST_F(SendLogFile, read_error_ends_it) {
  // A directory opens for reading and then cannot be read.
  std::filesystem::create_directory(one.bench.path("temp_log1.tar.gz"));
  one.gulp({0xA5});
  const int before = open_files();
  EXPECT_EQ(send_log_file(1, one.link, kLogFile1), -1);
  EXPECT_EQ(open_files(), before + 1);  // the file stays open
  EXPECT_EQ(one.bench.output(), "error fread (send_log_file)\n");
  EXPECT_THAT(one.written(), IsEmpty());
}

TEST_F(SendLogFile, select_error_passes_for_a_byte_sent) {
  one.host_polls(2);
  one.fail_select(0);
  EXPECT_EQ(send(3, "abc"), 0);
  EXPECT_THAT(one.written(), ElementsAre('b', 'c'));
}

class BigUpload : public SendLogFile, public testing::WithParamInterface<int> {};

// Polls as fast as the board answers, and keeps what came.
std::vector<int> collect(int count) {
  vboard::Board& board = vboard::board_of_process();
  std::vector<int> bytes;
  for (int i = 0; i < count; ++i) {
    {
      const vboard::Locked hold(board);
      vboard::LinkFifo& fifo = board.link.to_board;
      fifo.data[fifo.head++ % vboard::kLinkDepth] = 0xA5;
    }
    vboard::board_wait(vboard::WaitFor::kAnswer, 1'000'000);
    const vboard::Locked hold(board);
    vboard::LinkFifo& back = board.link.to_host;
    while (back.head != back.tail) bytes.push_back(back.data[back.tail++ % vboard::kLinkDepth]);
  }
  return bytes;
}

TEST_P(BigUpload, goes_out_whole_and_at_most_150000_bytes_are_dumped) {
  const int size = GetParam();
  std::string content;
  for (int i = 0; i < size; ++i) content += static_cast<char>(i % 251);
  content.back() = '\xFE';
  vboard::set_trace_sink(nullptr);
  std::vector<int> got;
  one.bench.beside("host", [&got, size] { got = collect(size); });
  EXPECT_EQ(send(size, content), 0);
  vboard::board_wait(vboard::WaitFor::kNothing, 1000);  // the host takes the last byte
  ASSERT_EQ(got.size(), content.size());
  for (std::size_t i = 0; i < got.size(); ++i)
    ASSERT_EQ(got[i], static_cast<unsigned char>(content[i])) << "byte " << i;
  const std::string said = one.bench.output();
  EXPECT_EQ(count_of(said, " "), 150'000 + 1);  // one after each byte, one in FIN FIN
  EXPECT_EQ(count_of(said, "fe "), size == 150'000 ? 1 : 0) << "the last byte";
}

INSTANTIATE_TEST_SUITE_P(Upload, BigUpload, testing::Values(150'000, 150'001),
                         [](auto& test) { return std::to_string(test.param) + "_bytes"; });

// ---- READ_REG ----------------------------------------------------------------------

class ReadReg : public testing::Test {
 protected:
  // The stream that read_reg leaves behind is not the bench's.
  LinkBench one;
  std::string handles() { return vboard::seam::open_handles(); }
};

TEST_F(ReadReg, chip_answers_with_its_register) {
  one.bench.board().tvp7002.reg[0x37] = 0x5A;
  one.gulp({0xB8, 0x37});  // 0xB8 >> 1 = 0x5C; one byte is read per wait
  EXPECT_EQ(read_reg(), 0x5A);
  EXPECT_THAT(one.bench.trace(),
              ElementsAre("open /dev/i2c-1", "open /dev/spislave r+b", "nonblock /dev/spislave 1",
                          "select 15000000 ready", "spi rd b8", "select 15000000 ready",
                          "spi rd 37", "i2c 5c rd 37 -> 5a", "close /dev/i2c-1"));
  EXPECT_EQ(one.bench.output(), "");
  EXPECT_EQ(handles(), "/dev/spislave\n/dev/spislave\n");  // the second stream stays
}

TEST_F(ReadReg, lowest_bit_of_the_address_does_not_count) {
  one.bench.board().tvp7002.reg[0x37] = 0x5A;
  one.gulp({0xB9, 0x37});
  EXPECT_EQ(read_reg(), 0x5A);
}

// The bus reserves 0x78 to 0x7F: no chip is ever there.
TEST_F(ReadReg, device_0xf6_register_0x1f_goes_to_address_0x7b) {
  one.gulp({0xF6, 0x1F});
  EXPECT_EQ(read_reg(), -3);
  EXPECT_THAT(one.bench.trace({"i2c"}), ElementsAre("i2c 7b rd 1f = EREMOTEIO"));
  EXPECT_EQ(one.bench.output(), "Error i2c_readbyte2\n");
  EXPECT_THAT(handles(), testing::HasSubstr("/dev/i2c-1"));  // the bus stays open too
}

TEST_F(ReadReg, no_bus_takes_no_parameters) {
  one.bench.world("fault missing i2c");
  one.gulp({0xB8, 0x37});
  EXPECT_EQ(read_reg(), -1);
  EXPECT_EQ(one.bench.output(), "Cannot access I2C device2 \n");
  EXPECT_THAT(one.bench.trace({"select", "spi", "close"}), IsEmpty());
}

TEST_F(ReadReg, no_second_link_takes_no_parameters) {
  fail_call("fopen", "/dev/spislave", 0, 1, EMFILE);
  one.gulp({0xB8, 0x37});
  EXPECT_EQ(read_reg(), -2);
  EXPECT_EQ(one.bench.output(), "Cannot access SPI port (/dev/spislave)\n");
  EXPECT_THAT(one.bench.trace({"select", "spi", "close"}), IsEmpty());
  EXPECT_EQ(handles(), "/dev/spislave\n/dev/i2c-1\n");
}

TEST_F(ReadReg, select_error_gives_0) {
  for (const int bytes_before : {0, 1}) {
    one.gulp({0xB8, 0x37});
    one.fail_select(bytes_before);
    EXPECT_EQ(read_reg(), 0);
    EXPECT_EQ(one.bench.output(), kSelectError);
    EXPECT_THAT(one.bench.trace({"i2c"}), IsEmpty());
  }
}

TEST_F(ReadReg, silent_host_is_waited_for_without_a_word) {
  one.bench.board().tvp7002.reg[0x37] = 0x5A;
  one.host_sends({0xB8, 0x37}, 40);
  EXPECT_EQ(read_reg(), 0x5A);
  EXPECT_EQ(one.bench.output(), "");
}

TEST_F(ReadReg, empty_reads_wait_again) {
  one.bench.board().tvp7002.reg[0x37] = 0x5A;
  one.gulp({0xB8, 0x37});
  fail_call("read", "/dev/spislave", 1, 2, EAGAIN);
  EXPECT_EQ(read_reg(), 0x5A);
}

// After months of READ_REG its streams reach beyond a descriptor set.
TEST_F(ReadReg, stream_beyond_a_descriptor_set_reads_as_any_other) {
  const DescriptorsUsedUp used;
  one.bench.board().tvp7002.reg[0x37] = 0x5A;
  one.gulp({0xB8, 0x37});
  EXPECT_EQ(read_reg(), 0x5A);
  EXPECT_EQ(one.bench.output(), "");
}

// ---- operations that no command calls ---------------------------------------------------

class Ac3Params : public testing::Test {
 protected:
  Ac3Params() : block(one.bench.attach_block()) {
    const int values[] = {8, 0, 3, 7, 1, 15};
    for (std::size_t k = 0; k < 6; ++k)
      hd_ac3_desc_parameters[k] = static_cast<std::uint8_t>(values[k]);
    one.bench.output();
  }
  int shared_byte(std::size_t offset) {
    std::uint8_t byte = 0;
    memcpy(&byte, reinterpret_cast<const char*>(&block) + offset, 1);
    return byte;
  }
  LinkBench one;
  SharedBlock& block;
};

TEST_F(Ac3Params, go_out_last_first_and_into_the_block) {
  one.host_polls(6);
  EXPECT_EQ(get_byte_send_ac3_params(one.link), 0);
  EXPECT_THAT(one.written(), ElementsAre(15, 1, 7, 3, 0, 8));
  EXPECT_EQ(shared_byte(92), 8);
  EXPECT_EQ(shared_byte(93), 0);
  EXPECT_EQ(shared_byte(94), 3);
  EXPECT_EQ(shared_byte(95), 7);
  EXPECT_EQ(shared_byte(96), 1);
  EXPECT_EQ(shared_byte(97), 15);
  EXPECT_EQ(one.bench.output(), "");
}

TEST_F(Ac3Params, silent_host_ends_it) {
  one.host_polls(2);
  EXPECT_EQ(get_byte_send_ac3_params(one.link), -1);
  EXPECT_EQ(one.bench.output(), std::string(kSilentByte) + "error get_byte_send_ac3_params\n");
  EXPECT_THAT(one.written(), ElementsAre(15, 1));
  EXPECT_EQ(shared_byte(97), 15);
  EXPECT_EQ(shared_byte(96), 1);
  EXPECT_EQ(shared_byte(95), 7);  // copied before the result is looked at
  EXPECT_EQ(shared_byte(94), 0);  // bytes behind the failure are not reached
}

TEST(GetLogfileNumberToSend, next_byte_with_a_message_of_its_own) {
  LinkBench one;
  one.host_sends({2}, 16);
  EXPECT_EQ(get_logfile_number_to_send(one.link), 2);
  EXPECT_EQ(one.bench.output(),
            "SPI: No data for XX seconds (get_logfile_number_to_send func)...\n");
}

TEST(GetLogfileNumberToSend, select_error_gives_0) {
  LinkBench one;
  one.gulp({2});
  one.fail_select(0);
  EXPECT_EQ(get_logfile_number_to_send(one.link), 0);
  EXPECT_EQ(one.bench.output(), kSelectError);
}

// ---- AC-3 descriptor ------------------------------------------------------------------------

TEST(GetByteSendAc3Params, byte_goes_out_before_it_is_published) {
  LinkBench one;
  SharedBlock& block = one.bench.attach_block();
  const int bytes[] = {8, 0, 0, 7, 1, 15};
  for (int i = 0; i < kAc3DescriptorSize; ++i) {
    hd_ac3_desc_parameters[i] = static_cast<std::uint8_t>(bytes[i]);
    block.hd_ac3_desc[i] = 99;
  }
  one.host_polls(6);
  one.bench.follow();
  for (std::size_t i = 0; i < 6; ++i)
    one.bench.watch("block " + std::to_string(92 + i), block.hd_ac3_desc[i]);
  EXPECT_EQ(get_byte_send_ac3_params(one.link), 0);
  std::vector<std::string> seen;
  for (const std::string& line : one.bench.stream())
    if (!line.starts_with("select") && line != "spi rd a5") seen.push_back(line);
  EXPECT_THAT(seen, ElementsAre("spi wr 0f", "block 97 = 15", "spi wr 01", "block 96 = 1",
                                "spi wr 07", "block 95 = 7", "spi wr 00", "block 94 = 0",
                                "spi wr 00", "block 93 = 0", "spi wr 08", "block 92 = 8"));
}

}  // namespace
