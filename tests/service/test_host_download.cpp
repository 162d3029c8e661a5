// SEND_HD_CONFIGURATION, from its size to the configured board.
#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "hostlink/dispatcher.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/host_talk.h"
#include "video/tvp5150.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using vboard::seam::fail_call;

constexpr int kCode = 2;
// A configuration that configures nothing.
const std::string kComment30 = std::string(29, ';') + "\n";

std::vector<int> announce(std::uint32_t size) { return command_with_number(kCode, size); }

std::vector<int> download(const std::string& text) {
  std::vector<int> bytes = announce(static_cast<std::uint32_t>(text.size()));
  for (const char c : text) bytes.push_back(static_cast<unsigned char>(c));
  return bytes;
}

std::string received(int size, const char* hexadecimal) {
  return "get SEND_HD_CONFIGURATION command\nf_size = " + std::to_string(size) + " (" +
         hexadecimal + ")\nstart get file hd.ini\n";
}
// What is printed of a file that configures nothing.
constexpr char kApplied[] =
    "Configure_System4\n\n"
    "start Configure_System!!\n"
    "fname = /home/tovin/hd.ini\n"
    "end Configure_System!!\n"
    "END Configure_System SEND_HD_CONFIGURATION!!!!!!!!!\n";
constexpr char kWrongSize[] = "error!! hd.ini wrong size - need reset from MELK\n";

std::string listed(int size) {
  // 50 characters of the directory line.
  const std::string line =
      "-rw-r--r-- 1 root root " + std::to_string(size) + " Jan  1 00:00 /home/tovin/hd.ini";
  return "read '" + line.substr(0, 50) + "' OK\nreal size of hd is " + std::to_string(size) + "\n";
}

// The listing names the path that the board has, wherever the test runs.
void list_as_on_the_board(Talk& host, int size) {
  fail_call("system", "check_hd_size.txt", 0, -1, ECHILD);
  host.bench.put_file("check_hd_size.txt", "-rw-r--r-- 1 root root " + std::to_string(size) +
                                               " Jan  1 00:00 /home/tovin/hd.ini\n");
}

void set_input(int channel) { shared_memory->input_channel = channel; }

// ---- the good case ----------------------------------------------------------------

TEST(Download, steps_in_order) {
  talk([](Talk& host) {
    list_as_on_the_board(host, 30);
    // 3 s, 1 s and 1 s after the last byte the 15 s have begun.
    const Heard heard = host.say(download(kComment30), 10);
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, received(30, "1e") + listed(30) + kApplied);
    EXPECT_THAT(heard.actions,
                ElementsAre("wait 60", "wait 10", "wait 10", "wait 10", "wait 10", "wait 100000",
                            "file /home/tovin/hd.ini wb", "wait 3000000", "wait 1000000",
                            "system ls -l /home/tovin/hd.ini > check_hd_size.txt = ECHILD",
                            "file /home/tovin/check_hd_size.txt r", "fpga wr 0x1328 <- 0x0006",
                            "file /home/tovin/hd.ini r", "wait 1000000", "wait 15000000"));
    EXPECT_EQ(host.bench.get_file("hd.ini"), kComment30);
    EXPECT_EQ(wrong_size_flag, 0);
  });
}

TEST(Download, flags_hold_the_service_until_all_is_done) {
  talk([](Talk& host) {
    host.host.send(announce(30));
    host.host.wait(1);
    EXPECT_EQ(SystemOnUpdate, 1);
    EXPECT_EQ(shared_memory->do_fpga_restart, 1);
    std::vector<int> bytes;
    for (const char c : kComment30) bytes.push_back(static_cast<unsigned char>(c));
    host.host.send(bytes);
    host.host.wait(3.5);  // the file is closed; encode is let go for a second
    EXPECT_EQ(shared_memory->do_fpga_restart, 0);
    EXPECT_EQ(SystemOnUpdate, 1);
    host.host.wait(1);  // the apply holds it again
    EXPECT_EQ(shared_memory->do_fpga_restart, 1);
    host.host.wait(14);  // 18.5 s: within the 15 s that began at 5 s
    EXPECT_EQ(SystemOnUpdate, 1);
    EXPECT_EQ(config_sys, 0);
    host.host.wait(2);
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_EQ(config_sys, 1);
  });
}

TEST(Download, stored_file_is_listed_by_the_shell) {
  talk([](Talk& host) {
    const Heard heard = host.say(download(kComment30), 10);
    EXPECT_THAT(heard.actions,
                testing::Contains("shell ls -l /home/tovin/hd.ini > check_hd_size.txt"));
    EXPECT_THAT(host.bench.get_file("check_hd_size.txt"), HasSubstr(" root root 30 "));
    EXPECT_THAT(heard.printed, HasSubstr("real size of hd is 30\n"));
    EXPECT_THAT(heard.printed, Not(HasSubstr(kWrongSize)));
  });
}

TEST(Download, large_file_comes_through) {
  talk([](Talk& host) {
    std::string text;
    while (text.size() < 20000) text += "; line " + std::to_string(text.size()) + "\n";
    host.host.send(announce(static_cast<std::uint32_t>(text.size())));
    host.pour(text);
    host.host.wait(10);
    EXPECT_TRUE(host.bench.get_file("hd.ini") == text);
    EXPECT_EQ(wrong_size_flag, 0);
  });
}

TEST(Download, decoder_input_waits_6_seconds) {
  talk([](Talk& host) {
    set_input(4);
    const Heard heard = host.say(download(kComment30), 10);
    EXPECT_EQ(heard.actions.back(), "wait 6000000");
    host.host.wait(2);  // 6 s from the fifth second on are over after 11 s
    EXPECT_EQ(config_sys, 1);
  });
}

// ---- sizes that are none ------------------------------------------------------------

struct BadSize {
  const char* name;
  std::uint32_t size;
  const char* printed;
};

class DownloadSize : public testing::TestWithParam<BadSize> {};

TEST_P(DownloadSize, is_refused_and_the_service_stays_on_hold) {
  talk([](Talk& host) {
    const Heard heard = host.say(announce(GetParam().size), 1);
    EXPECT_EQ(heard.printed, std::string("get SEND_HD_CONFIGURATION command\nerror file size ") +
                                 GetParam().printed + "\n");
    EXPECT_THAT(heard.actions,
                ElementsAre("wait 60", "wait 10", "wait 10", "wait 10", "wait 10", "wait 100000"));
    host.host.wait(60);
    EXPECT_EQ(SystemOnUpdate, 1);
    EXPECT_EQ(shared_memory->do_fpga_restart, 1);
    EXPECT_EQ(config_sys, 0);
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

INSTANTIATE_TEST_SUITE_P(Download, DownloadSize,
                         testing::Values(BadSize{"zero", 0, "0"}, BadSize{"one", 1, "1"},
                                         BadSize{"twenty_nine", 29, "29"},
                                         BadSize{"minus_one", 0xFFFFFFFF, "-1"},
                                         BadSize{"smallest", 0x80000000, "-2147483648"}),
                         [](auto& test) { return test.param.name; });

TEST(Download, good_one_behind_a_refused_one_lets_the_service_go) {
  talk([](Talk& host) {
    host.say(announce(29), 1);
    host.say(download(kComment30), 25);
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_EQ(config_sys, 1);
  });
}

// ---- a stored size that differs --------------------------------------------------------

TEST(Download, wrong_size_is_applied_and_answers_0x9e_for_ever_after) {
  talk([](Talk& host) {
    host.bench.put_file("check_hd_size.txt", "");
    list_as_on_the_board(host, 29);
    const Heard heard = host.say(download(kComment30), 10);
    EXPECT_EQ(heard.printed, received(30, "1e") + listed(29) + kWrongSize + kApplied);
    EXPECT_EQ(wrong_size_flag, 1);
    host.host.wait(12);
    EXPECT_EQ(config_sys, 1);
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x9E));
    host.say({3});
    host.say({3});

    list_as_on_the_board(host, 30);  // a good download changes nothing about it
    host.say(download(kComment30), 25);
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x9E));
  });
}

// ---- a host that stops, waits that fail ---------------------------------------------------

TEST(Download, host_that_stops_in_the_size_is_waited_for) {
  talk([](Talk& host) {
    EXPECT_EQ(host.say({kCode, 0, 0}, 46).printed,
              "get SEND_HD_CONFIGURATION command\n"
              "SPI: No data for XX seconds...\n"
              "SPI: No data for XX seconds...\n"
              "SPI: No data for XX seconds...\n");
    EXPECT_EQ(SystemOnUpdate, 1);
    EXPECT_EQ(host.say({0, 29}, 1).printed, "error file size 29\n");
  });
}

TEST(Download, host_that_stops_in_the_file_is_waited_for) {
  talk([](Talk& host) {
    list_as_on_the_board(host, 30);
    std::vector<int> bytes = download(kComment30);
    const std::vector<int> rest(bytes.end() - 10, bytes.end());
    bytes.resize(bytes.size() - 10);
    EXPECT_EQ(host.say(bytes, 31).printed, received(30, "1e") +
                                               "SPI: No data for XX seconds...\n"
                                               "SPI: No data for XX seconds...\n");
    EXPECT_EQ(host.bench.get_file("hd.ini"), "");
    EXPECT_EQ(SystemOnUpdate, 1);
    EXPECT_EQ(host.say(rest, 10).printed, listed(30) + kApplied);
    EXPECT_EQ(host.bench.get_file("hd.ini"), kComment30);
  });
}

TEST(Download, select_error_in_the_size_makes_it_0) {
  talk([](Talk& host) {
    fail_call("select", "", 2, 1, EBADF);
    EXPECT_EQ(host.say({kCode, 1, 1}, 1).printed,
              "get SEND_HD_CONFIGURATION command\n"
              "SPI: select error\n"
              "error file size 0\n");
  });
}

TEST(Download, select_error_in_the_file_leaves_it_empty_and_applies_it) {
  talk([](Talk& host) {
    fail_call("select", "", 4 + 10, 1, EBADF);  // the size's waits, then ten bytes
    std::vector<int> bytes = download(kComment30);
    bytes.resize(1 + 4 + 10);
    const Heard heard = host.say(bytes, 5);
    EXPECT_THAT(heard.printed,
                testing::StartsWith(received(30, "1e") + "SPI: select error\nread '"));
    EXPECT_THAT(heard.printed,
                testing::EndsWith(std::string("real size of hd is 0\n") + kWrongSize + kApplied));
    EXPECT_EQ(host.bench.get_file("hd.ini"), "");
    EXPECT_THAT(heard.actions, Not(testing::Contains("wait 3000000")));
  });
}

// ---- files that do not open --------------------------------------------------------------

TEST(Download, configuration_that_does_not_open_leaves_its_bytes_to_be_commands) {
  talk([](Talk& host) {
    host.bench.put_file("check_hd_size.txt", "");
    fail_call("system", "check_hd_size.txt", 0, -1, ECHILD);
    fail_call("fopen", "hd.ini", 0, -1, EACCES);
    const Heard heard = host.say(announce(30), 5);
    EXPECT_EQ(heard.printed, std::string("get SEND_HD_CONFIGURATION command\n"
                                         "f_size = 30 (1e)\n"
                                         "can not open hd.ini file\n"
                                         "read error\n"
                                         "real size of hd is 0\n") +
                                 kWrongSize +
                                 "Configure_System4\n\n"
                                 "start Configure_System!!\n"
                                 "fname = /home/tovin/hd.ini\n"
                                 "can not open hd.ini file\n"
                                 "END Configure_System SEND_HD_CONFIGURATION!!!!!!!!!\n");
    // Nothing was applied, and nothing is waited for.
    EXPECT_EQ(config_sys, 0);
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_THAT(heard.actions, Not(testing::Contains("wait 15000000")));
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

// ---- the check of the decoder ---------------------------------------------------------------

// The decoder is read on every fifth call only: four calls bring the download's
// check to the fifth.
void count_to_the_reading() {
  count_st = 0;
  for (int i = 0; i < 4; ++i) EXPECT_EQ(video_monitorTVP5150(1), 0);
}

// Waits until the download is over, and for the check after it.
void await_end(Talk& host) {
  while (SystemOnUpdate == 1) host.host.wait(0.001);
  host.host.wait(0.01);
}

TEST(Download, decoder_without_lock_asks_for_a_restart) {
  talk([](Talk& host) {
    host.bench.world("source none");
    set_input(4);
    count_to_the_reading();
    host.say(download(kComment30), 10);
    await_end(host);
    EXPECT_EQ(monitor_state, 2);
    EXPECT_THAT(host.hear(0).printed,
                HasSubstr("******** Tvp 5150 is status register no lock ******** "));
  });
}

TEST(Download, locked_decoder_asks_for_nothing) {
  talk([](Talk& host) {
    host.bench.world("source composite");
    set_input(4);
    count_to_the_reading();
    host.say(download(kComment30), 10);
    await_end(host);
    EXPECT_EQ(monitor_state, 0);
    EXPECT_THAT(host.hear(0).printed, HasSubstr("Tvp 5150 is status register  lock "));
  });
}

TEST(Download, other_input_leaves_the_decoder_alone) {
  talk([](Talk& host) {
    host.bench.world("source none");
    set_input(3);
    count_to_the_reading();
    host.say(download(kComment30), 10);
    await_end(host);
    EXPECT_EQ(monitor_state, 0);
    EXPECT_EQ(count_st, 4u);
  });
}

}  // namespace
