// Every command of the host against the program itself on the virtual board: the
// bytes on the link, transfer by transfer, and the words that melk has for them.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "melk/protocol.h"
#include "tests/command/command_case.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// What a host does with one command, and what it must see. A transfer reads
// "sent>came", "--" where the board had nothing to say. The board answers with
// the transfer after its command, and one byte of an upload after each poll.
struct LinkCase {
  const char* name;
  std::string script;
  std::string seen;     // the host's log
  const char* printed;  // among the program's output, in one piece
};

void PrintTo(const LinkCase& one, std::ostream* out) { *out << one.script; }

// Polls for one upload byte after the other, as fast as a host may.
std::string poll(int count) {
  std::string script;
  for (int i = 0; i < count; ++i) script += "after 1ms collect 1\n";
  return script;
}

// What the host sees then; the first poll asks only.
std::string polled(const std::vector<std::string>& bytes) {
  std::string seen = "link a5>--\n";
  for (const std::string& byte : bytes) seen += "link a5>" + byte + "\n";
  return seen;
}

class HostLink : public testing::TestWithParam<LinkCase> {};

TEST_P(HostLink, moves_these_bytes) {
  const LinkCase& one = GetParam();
  BoardRun board;
  board.put_file("log1.txt", "first\n");
  board.put_file("log2.txt", "second\n");
  board.put_file("temp_log1.tar.gz", "hello");
  board.put_file("monitor.txt", "ok");
  board.put_file("tmp/success.txt", "");
  board.put_file("version.ini", "1.12.3\n");
  ASSERT_EQ(board.vboard("fault stuck 5c 14 55").status, 0);
  const Result result = board.service("-602", "at 10s\n" + one.script, 40);
  EXPECT_EQ(board.host_log(), one.seen);
  EXPECT_THAT(result.out, HasSubstr(one.printed));
}

INSTANTIATE_TEST_SUITE_P(
    commands, HostLink,
    testing::Values(
        LinkCase{"00_keep_alive", "link 00\nafter 1ms collect 1\n", "link 00>--\nlink a5>--\n", ""},
        LinkCase{"01_get_hd_version", "link 01\nafter 1ms collect 1\n", "link 01>--\nlink a5>2d\n",
                 "get GET_HD_VERSION command,hd_version = 2.13\n"},
        LinkCase{"02_send_hd_configuration_too_small", "link 02 00 00 00 1d\nafter 1ms collect 1\n",
                 "link 02>-- 00>-- 00>-- 00>-- 1d>--\nlink a5>--\n",
                 "get SEND_HD_CONFIGURATION command\nerror file size 29\n"},
        LinkCase{"02_send_hd_configuration",  // thirty line ends
                 "link 02 00 00 00 1e\nlink 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a\n"
                 "link 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a\nlink 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a\n",
                 "link 02>-- 00>-- 00>-- 00>-- 1e>--\n"
                 "link 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>--\n"
                 "link 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>--\n"
                 "link 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>-- 0a>--\n",
                 "f_size = 30 (1e)\nstart get file hd.ini\n"},
        LinkCase{"03_get_status",
                 "link 03\nafter 1ms collect 1\nlink 03\nafter 1ms collect 1\nlink 03\nafter 1ms "
                 "collect 1\n",
                 "link 03>--\nlink a5>90\nlink 03>--\nlink a5>80\nlink 03>--\nlink a5>00\n", ""},
        LinkCase{"04_send_rtc",
                 "link 04 30 31 30 32 30 33 30 34 30 35 30 36\nafter 1ms collect 1\n",
                 "link 04>-- 30>-- 31>-- 30>-- 32>-- 30>-- 33>-- 30>-- 34>-- 30>-- 35>-- 30>-- "
                 "36>--\nlink a5>--\n",
                 "get SEND_RTC command\nclk_from_melk = 010203040506\n"},
        // 0xb8 is the 7-bit address 0x5c.
        LinkCase{"05_read_reg", "link 05 b8 14\nafter 1s collect 1\n",
                 "link 05>-- b8>-- 14>--\nlink a5>55\n",
                 "\n\nget READ_REG command\nAfter write ver,rc = 1,hd_reg = 55\n"},
        // 0xf6 is 0x7b, reserved by the bus; the result is -3.
        LinkCase{"05_read_reg_without_a_chip", "link 05 f6 1f\nafter 1s collect 1\n",
                 "link 05>-- f6>-- 1f>--\nlink a5>fd\n",
                 "Error i2c_readbyte2\n\n\nget READ_REG command\n"},
        LinkCase{"06_stop_encode", "link 06\nafter 1ms collect 1\n", "link 06>--\nlink a5>--\n",
                 "\n\nget STOP_ENCODE command\n"},
        LinkCase{"07_stop_audio", "link 07\nafter 1ms collect 1\n", "link 07>--\nlink a5>--\n",
                 "\n\nget STOP_AUDIO command\n"},
        LinkCase{"08_get_log_file1", "link 08\n" + poll(10),
                 "link 08>--\n" + polled({"00", "00", "00", "05", "68", "65", "6c", "6c", "6f"}),
                 "LF c\nFIN FIN\n\n68 65 6c 6c 6f \nlogfile_size = 5\nEND GET_LOG_FILE1 command\n"},
        // Before any snapshot: no encoder, version 2.13, FPGA version 0x0117.
        LinkCase{"09_get_reg_file_byte",
                 "link 09\nafter 1ms collect 1\nlink 09\nafter 1ms collect 1\nlink 09\nafter 1ms "
                 "collect 1\nlink 09\nafter 1ms collect 1\n",
                 "link 09>--\nlink a5>00\nlink 09>--\nlink a5>2d\nlink 09>--\nlink a5>01\n"
                 "link 09>--\nlink a5>17\n",
                 ""},
        LinkCase{"10_prepare_fpga_registers", "link 0a\nafter 1ms collect 1\n",
                 "link 0a>--\nlink a5>--\n", "get PREPARE_FPGA_REGISTERS .. \nlength=20\n"},
        LinkCase{"11_update_version", "link 0b 00 00 00 02 41 42\n",
                 "link 0b>-- 00>-- 00>-- 00>-- 02>-- 41>-- 42>--\n",
                 "SPI fread write_fleg_ok=1, total=2, f_size 2 \n"},
        LinkCase{"12_temp", "link 0c\nafter 1ms collect 1\n", "link 0c>--\nlink a5>--\n",
                 "\n\nget TEMP command\nAUDIO_STATUS_REG = "},
        LinkCase{"13_get_log_file2_missing", "link 0d\n" + poll(6),
                 "link 0d>--\n" + polled({"ff", "ff", "ff", "ff", "--"}),
                 "LF c\nerror while open temp_log1.tar.gz file\n"
                 "error while open temp_log.tar.gz file\n\nlogfile_size = -1\n"
                 "END GET_LOG_FILE1 command\n"},
        LinkCase{"14_cp_log_file", "link 0e\nafter 1ms collect 1\n", "link 0e>--\nlink a5>--\n",
                 "get CP_LOG_FILE command\nlog1.txt\nlog2.txt\nEND CP_LOG_FILE command\n"},
        LinkCase{"15_get_monitor_state", "link 0f\nafter 1ms collect 1\n",
                 "link 0f>--\nlink a5>00\n", "VANTORIG_STATE = 0 (0x0)\n"},
        LinkCase{"17_delete_logs", "link 11\nafter 1ms collect 1\n", "link 11>--\nlink a5>--\n",
                 "get DELETE_LOGS command\n"},
        LinkCase{"18_set_spts", "link 12 00 00 01 2c\nafter 1ms collect 1\n",
                 "link 12>-- 00>-- 00>-- 01>-- 2c>--\nlink a5>--\n", "get SET_SPTS command\n"},
        LinkCase{"19_get_monitor_file", "link 13\n" + poll(7),
                 "link 13>--\n" + polled({"00", "00", "00", "02", "6f", "6b"}),
                 "monitor.txt\nFIN FIN\n\n6f 6b "},
        LinkCase{"22_restore_factory", "link 16\nafter 1ms collect 1\n", "link 16>--\nlink a5>--\n",
                 "Extract the from manufacture file\n"},
        LinkCase{"25_clear_status", "link 19\nafter 1ms collect 1\n", "link 19>--\nlink a5>--\n",
                 ""},
        LinkCase{"28_get_sw_version",
                 "link 0a\nlink 1c\nafter 1ms collect 1\nlink 1c\nafter 1ms collect 1\nlink "
                 "1c\nafter 1ms collect 1\n",
                 "link 0a>--\nlink 1c>--\nlink a5>01\nlink 1c>--\nlink a5>0c\nlink 1c>--\n"
                 "link a5>03\n",
                 "ver[0]=1\nver[1]=12\nver[2]=3\n"},
        LinkCase{"32_get_shared_status", "link 20\nafter 1ms collect 1\n",
                 "link 20>--\nlink a5>00\n", ""},
        LinkCase{"33_get_input_mux", "link 21\nafter 1ms collect 1\n", "link 21>--\nlink a5>00\n",
                 ""},
        LinkCase{"34_get_update_result_told_once",
                 "link 22\nafter 1ms collect 1\nlink 22\nafter 1ms collect 1\n",
                 "link 22>--\nlink a5>01\nlink 22>--\nlink a5>00\n",
                 "is update passed?\nupdate succeed!!\nis update passed?\nupdate failed!!\n"},
        // No picture reaches the FPGA of a board that nobody has set up.
        LinkCase{"35_get_fps",
                 "link 0a\nafter 1ms link 23\nafter 1ms collect 1\nlink 23\nafter 1ms collect 1\n",
                 "link 0a>--\nlink 23>--\nlink a5>00\nlink 23>--\nlink a5>00\n",
                 "fps_hd_to_send[0]=0\nfps msb reg = 0\nfps_hd_to_send[1]=0\n"
                 "fps lsb reg = 0\n"},
        LinkCase{"36_get_reg_file_size", "link 24\nafter 1ms collect 1\n",
                 "link 24>--\nlink a5>--\n", "GET_REG_FILE_SIZE 104 \n"},
        LinkCase{"43_new_update_version_of_no_bytes", "link 2b 00 00 00 00\n",
                 "link 2b>-- 00>-- 00>-- 00>-- 00>--\n",
                 "max mem buf=0x0\nlast = 0  f_size/2=0 i=0\n"
                 "FPGA  write_fleg_ok=0, total=0, f_size 0 \n"}),
    [](const auto& row) { return row.param.name; });

// A driver may say "nothing more" with 0 bytes, which a stream takes for its end. The
// next read has to ask the driver again: one wait for each byte, none wasted.
TEST(HostLinkDriver, end_behind_a_gulp_costs_the_next_byte_no_wait) {
  BoardRun board;
  ASSERT_EQ(board.vboard("fault link-ends").status, 0);
  board.service("-602", "at 10s\nlink 12 00 00 01 2c\nafter 1ms link 01\nafter 1ms collect 1\n",
                12);
  EXPECT_EQ(board.host_log(), "link 12>-- 00>-- 00>-- 01>-- 2c>--\nlink 01>--\nlink a5>2d\n");
  Lines link;
  for (const std::string& line : board.trace({"select", "spi"}))
    if (line != "select 15000000 timeout") link.push_back(line);
  const std::string ready = "select 15000000 ready";
  EXPECT_THAT(link, ElementsAre(ready, "spi rd 12", ready, "spi rd 00", ready, "spi rd 00", ready,
                                "spi rd 01", ready, "spi rd 2c", ready, "spi rd 01", "spi wr 2d",
                                ready, "spi rd a5"));
}

TEST(HostLinkIgnored, all_other_codes_get_no_answer) {
  BoardRun board;
  std::string script = "at 10s\n";
  std::string seen;
  for (int code = 0; code < 256; ++code) {
    if (std::ranges::any_of(melk::host_commands(), [code](const melk::HostCommand& row) {
          return static_cast<int>(row.code) == code;
        }))
      continue;
    char step[32];
    snprintf(step, sizeof step, "%02x", code);
    script += std::string("link ") + step + "\nafter 1ms collect 1\n";
    seen += std::string("link ") + step + ">--\nlink a5>--\n";
  }
  const Result quiet = board.service("-602", "at 10s\n", 20);
  const Result result = board.service("-602", script, 20);
  EXPECT_EQ(board.host_log(), seen);
  EXPECT_THAT(result.out, Not(HasSubstr("command")));
  EXPECT_EQ(lines_of(result.out).size(), lines_of(quiet.out).size());
}

// ---- the words for a person --------------------------------------------------------

TEST(HostLinkMelk, every_word_does_its_command) {
  BoardRun board;
  board.put_file("log1.txt", "first\n");
  board.put_file("log2.txt", "second\n");
  board.put_file("monitor.txt", "ok\n");
  board.put_file("package", "no archive");
  const std::string home = board.path("");
  std::vector<std::string> words = {"keep-alive",
                                    "hd-version",
                                    "status",
                                    "set-rtc 010203040506",
                                    "read-reg 0xb8 0x14",
                                    "stop-encode",
                                    "stop-audio",
                                    "registers",
                                    "registers --full",
                                    "sw-version",
                                    "fps",
                                    "monitor-state",
                                    "shared-status",
                                    "input-mux",
                                    "clear-status",
                                    "set-spts 300",
                                    "reg-file-size",
                                    "temp",
                                    "make-logs",
                                    "log 1 -o " + home + "one.tar.gz",
                                    "log 2 -o " + home + "two.tar.gz",
                                    "delete-logs",
                                    "monitor-file",
                                    "restore-factory",
                                    "raw 1",
                                    "watch --count 2",
                                    "update " + home + "package",
                                    "update " + home + "package --via-fpga --rate 5"};
  // The answer of one is an exit status, the other keeps the board busy.
  std::set<std::string> there = {"update-result", "send-config"};
  for (const std::string& one : words) there.insert(one.substr(0, one.find(' ')));
  for (const melk::HostCommand& row : melk::host_commands())
    if (there.insert(row.word).second) words.emplace_back(row.word);
  std::string script = "at 10s\n";
  for (const std::string& one : words) {
    script += "melk " + one + "\nmelk " + one + " --json\n";
    if (one.starts_with("update")) script += "after 10s\n";
  }
  board.service("-602", script, 120);
  const std::string log = board.host_log();
  EXPECT_THAT(log, Not(HasSubstr("exit status"))) << log;
  EXPECT_THAT(log, HasSubstr("version 2.13\n"));
  EXPECT_THAT(log, HasSubstr("{\"command\":\"hd-version\",\"hd_version\":45,"));
  EXPECT_THAT(log, HasSubstr("\nok\n"));
  for (const std::string& one : words) {
    const std::string word = one.substr(0, one.find(' '));
    if (word == "watch") continue;  // a line per reading
    EXPECT_THAT(log, HasSubstr("{\"command\":\"" + word + "\",")) << one;
  }
  EXPECT_EQ(board.get_file("one.tar.gz"), board.get_file("temp_log1.tar.gz"));
  EXPECT_EQ(board.get_file("two.tar.gz"), board.get_file("temp_log2.tar.gz"));
  EXPECT_FALSE(board.get_file("one.tar.gz").empty());
  EXPECT_EQ(board.get_file("tmp/new_hd_version.tar.gz"), "no archive");
  EXPECT_EQ(board.get_file("log1.txt"), "");
  EXPECT_EQ(board.get_file("log2.txt"), "second\n");
}

TEST(HostLinkMelk, says_no_where_there_is_nothing) {
  BoardRun board;
  board.service("-602", "at 10s melk update-result\nmelk log 1 -o /tmp/none\nmelk monitor-file\n",
                20);
  const std::string log = board.host_log();
  EXPECT_THAT(log, HasSubstr("no success on record"));
  EXPECT_THAT(log, HasSubstr("melk: log: the board has no such file (size 0xFFFFFFFF)"));
  EXPECT_THAT(log, HasSubstr("melk: monitor-file: the board has no such file"));
}

// ---- the AC-3 stream as an option ----------------------------------------------------

TEST(VboardAudio, stream_is_given_as_an_option_or_a_word) {
  BoardRun board;
  EXPECT_EQ(board.vboard("audio digital --ac3 bitrate=384,rate=48,acmod=7,bsid=8").status, 0);
  EXPECT_EQ(board.vboard("audio --ac3 frmsizecod=38 digital").out,
            "audio digital --ac3 frmsizecod=38\n");
  EXPECT_EQ(board.vboard("audio dsp bitrate=192").status, 0);
  EXPECT_NE(board.vboard("audio digital --ac3").status, 0);
  EXPECT_NE(board.vboard("audio digital --ac3 pitch=1").status, 0);
  EXPECT_NE(board.vboard("source none --ac3 acmod=2").status, 0);
}

}  // namespace
