// The host-link thread by itself: start-up, LED, the command table, and what it
// makes of the directory line of a stored configuration.
#include "hostlink/dispatcher.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/unit/hostlink/link_bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vboard::Bench;
using vboard::lines;
using vboard::seam::fail_call;

constexpr std::intptr_t kStillRunning = -1;

// Runs the thread's function for some board seconds. Returns its result.
std::intptr_t run_thread(Bench& bench, double seconds) {
  std::intptr_t result = kStillRunning;
  bench.run_for(static_cast<std::int64_t>(seconds * 1e6), [&result] {
    result = reinterpret_cast<std::intptr_t>(spi_slave_polling_thread(nullptr));
  });
  return result;
}

// ---- start-up -----------------------------------------------------------------

constexpr char kStart[] =
    "OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1\n"
    "Reset FPGA\n"
    "   after Reset FPGA\n";

TEST(SpiSlavePollingThread, start_up_in_order) {
  Bench bench;
  bench.put_file("hd.ini", "vbr=1\n");
  // The reset takes 1.02 s; the first wait for the host is under way then.
  EXPECT_EQ(run_thread(bench, 2), kStillRunning);
  EXPECT_EQ(bench.output(), kStart);
  EXPECT_EQ(bench.get_file("hd.ini"), "");
  EXPECT_THAT(
      bench.trace({"open", "file", "nonblock", "fpga led", "close"}),
      ElementsAre("open /dev/fpga r+b", "file /home/tovin/hd.ini wb", "open /dev/spislave r+b",
                  "nonblock /dev/spislave 1", "open /dev/fpga r+b", "fpga led 83"));
}

TEST(SpiSlavePollingThread, registers_that_do_not_open_are_reported_and_done_without) {
  Bench bench;
  fail_call("fopen", "/dev/fpga", 0, 1, ENODEV);  // the LED's handle opens
  EXPECT_EQ(run_thread(bench, 2), kStillRunning);
  // The first line of the two is that of the register access itself.
  EXPECT_EQ(bench.output(),
            "OPEN NEW /dev/fpga!!!!!!!!!!!!!!!!!!!!!1\n"
            "Cannot access SPI port (/dev/fpga)\n"
            "Cannot access SPI port (/dev/fpga)\n");
  EXPECT_THAT(bench.trace({"fpga"}), ElementsAre("fpga led 83"));
}

TEST(SpiSlavePollingThread, configuration_that_does_not_open_is_passed_over) {
  Bench bench;
  std::filesystem::create_directory(bench.path("hd.ini"));
  EXPECT_EQ(run_thread(bench, 2), kStillRunning);
  EXPECT_EQ(bench.output(), kStart);
}

TEST(SpiSlavePollingThread, missing_link_ends_it_with_0_before_the_led) {
  Bench bench;
  bench.world("fault missing spislave");
  EXPECT_EQ(run_thread(bench, 20), 0);
  EXPECT_EQ(bench.output(), std::string(kStart) + "Cannot access SPI port (/dev/spislave)\n");
  EXPECT_THAT(bench.trace({"fpga led", "select"}), IsEmpty());
}

TEST(SpiSlavePollingThread, missing_led_ends_it) {
  Bench bench;
  fail_call("fopen", "/dev/fpga", 1, 1, ENODEV);
  EXPECT_EQ(run_thread(bench, 20), 0);
  EXPECT_EQ(bench.output(),
            std::string(kStart) + "Cannot access SPI port (/dev/fpga) - for LEDs\n");
  EXPECT_THAT(bench.trace({"fpga led", "select"}), IsEmpty());
}

// ---- the loop -------------------------------------------------------------------

TEST(SpiSlavePollingThread, led_alternates_once_for_each_pass) {
  Bench bench;
  // From 1.02 s on a pass each 15 s without a message: at 1, 16, 31, 46 s.
  EXPECT_EQ(run_thread(bench, 50), kStillRunning);
  EXPECT_THAT(bench.trace({"fpga led", "select"}),
              ElementsAre("fpga led 83", "select 15000000 timeout", "fpga led 86",
                          "select 15000000 timeout", "fpga led 83", "select 15000000 timeout",
                          "fpga led 86"));
  EXPECT_EQ(bench.output(), kStart);
}

TEST(SpiSlavePollingThread, failing_first_led_request_ends_it_with_2) {
  Bench bench;
  fail_call("ioctl", "/dev/fpga 83", 0, 1, EIO);
  EXPECT_EQ(run_thread(bench, 20), 2);
  EXPECT_EQ(bench.output(), std::string(kStart) + "Error -1 in IOCTL - LED\n");
  EXPECT_THAT(bench.trace({"select"}), IsEmpty());
}

TEST(SpiSlavePollingThread, failing_second_led_request_ends_it_with_2) {
  Bench bench;
  fail_call("ioctl", "/dev/fpga 86", 0, 1, EIO);
  EXPECT_EQ(run_thread(bench, 60), 2);
  EXPECT_EQ(bench.output(), std::string(kStart) + "Error -1 in IOCTL - LED\n");
  EXPECT_THAT(bench.trace({"select"}), ElementsAre("select 15000000 timeout"));
}

TEST(SpiSlavePollingThread, select_error_ends_it_with_0) {
  Bench bench;
  fail_call("select", "", 1, 1, EBADF);
  EXPECT_EQ(run_thread(bench, 60), 0);
  EXPECT_EQ(bench.output(), std::string(kStart) + kSelectError);
  // The streams stay open: registers, link, LED.
  EXPECT_EQ(lines(vboard::seam::open_handles()).size(), 3u);
}

TEST(SpiSlavePollingThread, empty_read_starts_the_next_pass) {
  Bench bench;
  fail_call("read", "/dev/spislave", 0, 1, EAGAIN);
  vboard::LinkFifo& fifo = bench.board().link.to_board;
  fifo.data[fifo.head++] = 1;  // GET_HD_VERSION
  EXPECT_EQ(run_thread(bench, 3), kStillRunning);
  EXPECT_THAT(
      bench.trace({"fpga led", "select", "spi", "read"}),
      ElementsAre("fpga led 83", "select 15000000 ready", "read /dev/spislave = EAGAIN",
                  "fpga led 86", "select 15000000 ready", "spi rd 01", "spi wr 2d", "fpga led 83"));
}

TEST(SpiSlavePollingThread, commands_of_one_transfer_are_all_taken) {
  Bench bench;
  vboard::LinkFifo& fifo = bench.board().link.to_board;
  for (int i = 0; i < 3; ++i) fifo.data[fifo.head++] = 1;
  EXPECT_EQ(run_thread(bench, 3), kStillRunning);
  EXPECT_THAT(bench.trace({"spi"}), ElementsAre("spi rd 01", "spi wr 2d", "spi rd 01", "spi wr 2d",
                                                "spi rd 01", "spi wr 2d"));
}

TEST(SpiSlavePollingThread, link_beyond_a_descriptor_set_serves_as_any_other) {
  const DescriptorsUsedUp used;
  Bench bench;
  vboard::LinkFifo& fifo = bench.board().link.to_board;
  fifo.data[fifo.head++] = 1;
  EXPECT_EQ(run_thread(bench, 20), kStillRunning);
  EXPECT_THAT(bench.trace({"spi"}), ElementsAre("spi rd 01", "spi wr 2d"));
}

// ---- the table --------------------------------------------------------------------

TEST(FindHostCommand, every_row_is_found_and_no_other_code) {
  std::set<int> known;
  for (const HostCommand& row : host_commands()) {
    known.insert(row.code);
    EXPECT_EQ(find_host_command(row.code), &row);
  }
  for (int code = 0; code <= 255; ++code) {
    if (known.count(code) != 0) continue;
    EXPECT_EQ(find_host_command(static_cast<std::uint8_t>(code)), nullptr) << code;
  }
}

TEST(FindHostCommand, rows_stand_in_order_of_their_codes) {
  int before = -1;
  for (const HostCommand& row : host_commands()) {
    EXPECT_GT(row.code, before);
    before = row.code;
  }
}

// Hosts poll with it.
TEST(FindHostCommand, poll_byte_is_no_command) { EXPECT_EQ(find_host_command(0xA5), nullptr); }

// ---- the size in the directory line ---------------------------------------------------

// SEND_HD_CONFIGURATION with a file of 30 bytes, its listing replaced.
class StoredSize : public testing::Test {
 protected:
  StoredSize() {
    one.bench.attach_block();
    one.bench.output();
    wrong_size_flag = 0;
    SystemOnUpdate = 0;
    monitor_state = 0;
    fail_call("system", "check_hd_size.txt", 0, -1, ECHILD);
  }
  // What the download printed between its file and its apply.
  std::vector<std::string> download(const std::string& listing) {
    one.bench.put_file("check_hd_size.txt", listing);
    return download();
  }
  std::vector<std::string> download() {
    std::vector<int> bytes = {0, 0, 0, 30};
    bytes.insert(bytes.end(), 30, ';');
    one.host_sends(bytes);
    find_host_command(2)->handler(one.link);
    const std::string said = one.bench.output();
    const std::string head =
        "get SEND_HD_CONFIGURATION command\n"
        "f_size = 30 (1e)\n"
        "start get file hd.ini\n";
    EXPECT_EQ(said.substr(0, head.size()), head);
    const std::size_t apply = said.find("Configure_System4\n\n");
    EXPECT_NE(apply, std::string::npos);
    return lines(said.substr(head.size(), apply - head.size()));
  }
  LinkBench one;
};

constexpr char kWrongSize[] = "error!! hd.ini wrong size - need reset from MELK";

struct Listing {
  const char* name;
  std::string line;
  int size;
};

class ListingLine : public StoredSize, public testing::WithParamInterface<Listing> {};

TEST_P(ListingLine, gives_the_first_number_behind_the_first_t) {
  const std::vector<std::string> said = download(GetParam().line);
  const std::string real_size = "real size of hd is " + std::to_string(GetParam().size);
  if (GetParam().size == 30) {
    EXPECT_EQ(said.back(), real_size);
    EXPECT_EQ(wrong_size_flag, 0);
  } else {
    ASSERT_GE(said.size(), 2u);
    EXPECT_EQ(said[said.size() - 2], real_size);
    EXPECT_EQ(said.back(), kWrongSize);
    EXPECT_EQ(wrong_size_flag, 1);
  }
}

std::string at_column(std::size_t column, const std::string& what) {
  std::string line = "-rw-r--r-- 1 root root";
  line.resize(column, ' ');
  return line + what + "\n";
}

INSTANTIATE_TEST_SUITE_P(
    Dispatcher, ListingLine,
    testing::Values(
        Listing{"owner_root", "-rw-r--r-- 1 root root 30 Jan  1 00:00 /home/tovin/hd.ini\n", 30},
        Listing{"no_line_end", "-rw-r--r-- 1 root root 30 Jan", 30},
        Listing{"other_size", "-rw-r--r-- 1 root root 29 Jan  1 00:00 /home/tovin/hd.ini\n", 29},
        Listing{"large_size", "-rw-r--r-- 1 root root 5000000 Jan  1 00:00 hd.ini\n", 5'000'000},
        // The first 't' is that of the path, with no number after it.
        Listing{"owner_without_t", "-rw-r--r-- 1 adm adm 30 Jan  1 00:00 /home/tovin/hd.ini\n", 0},
        // ... or that of the month, with the day after it.
        Listing{"month_with_t", "-rw-r--r-- 1 adm adm 30 Oct 12 10:30 /home/tovin/hd.ini\n", 12},
        Listing{"owners_as_numbers", "-rw-r--r-- 1 0 0 30 Jan  1 00:00 /home/tovin/hd.ini\n", 0},
        Listing{"t_in_the_group", "-rw-r--r-- 1 adm staff 30 Jan  1 00:00 hd.ini\n", 30},
        Listing{"digit_in_the_owner", "-rw-r--r-- 1 test7 root 30 Jan  1 00:00 hd.ini\n", 7},
        Listing{"size_directly_behind_the_t", "t30", 30},  //
        Listing{"no_digits", "ls: cannot access 'hd.ini': No such file or directory\n", 0},
        Listing{"ends_at_a_letter", "t 30k\n", 30}, Listing{"number_before_the_t", "30 t\n", 0},
        // Characters 0 to 48 are scanned: two digits of three, then one.
        Listing{"number_at_the_end_of_the_scan", at_column(47, "309"), 30},
        Listing{"number_beyond_the_scan", at_column(49, "30"), 0}, Listing{"empty_line", "\n", 0}),
    [](auto& test) { return test.param.name; });

// ---- what an applied configuration leaves -----------------------------------------

struct StatusBits {
  const char* name;
  int before;
  int after;  // 0x90 OR (before AND 0x0E)
};

class StatusAfterDownload : public StoredSize, public testing::WithParamInterface<StatusBits> {};

TEST_P(StatusAfterDownload, keeps_the_restarts_alone) {
  global_status = static_cast<std::uint8_t>(GetParam().before);
  config_sys = 0;
  download("root 30\n");
  EXPECT_EQ(global_status, GetParam().after);
  EXPECT_EQ(config_sys, 1);
}

TEST_P(StatusAfterDownload, stays_when_nothing_could_be_applied) {
  global_status = static_cast<std::uint8_t>(GetParam().before);
  config_sys = 0;
  fail_call("fopen", "hd.ini", 1, 1, EACCES);  // stored, then not to be read
  download("root 30\n");
  EXPECT_EQ(global_status, GetParam().before);
  EXPECT_EQ(config_sys, 0);
  EXPECT_EQ(SystemOnUpdate, 0);
}

INSTANTIATE_TEST_SUITE_P(Dispatcher, StatusAfterDownload,
                         testing::Values(StatusBits{"start_value", 0x90, 0x90},
                                         StatusBits{"healthy", 0x91, 0x90},
                                         StatusBits{"three_restarts", 0x96, 0x96},
                                         StatusBits{"all_bits", 0xFF, 0x9E},
                                         StatusBits{"none", 0x00, 0x90}),
                         [](auto& test) { return test.param.name; });

TEST_F(StoredSize, line_is_printed_with_its_end_when_it_is_short) {
  EXPECT_THAT(download("root 30\n"), ElementsAre("read 'root 30", "' OK", "real size of hd is 30"));
}

TEST_F(StoredSize, line_is_read_up_to_50_characters) {
  std::string line = "root 30 ";
  line.resize(50, 'x');
  EXPECT_THAT(download(line + "yz\nsecond line\n"),
              ElementsAre("read '" + line + "' OK", "real size of hd is 30"));
}

TEST_F(StoredSize, empty_listing_is_a_read_error) {
  EXPECT_THAT(download(""), ElementsAre("read error", "real size of hd is 0", kWrongSize));
}

TEST_F(StoredSize, missing_listing_is_size_0) {
  const std::vector<std::string> said = download();
  ASSERT_GE(said.size(), 2u);
  EXPECT_EQ(said[said.size() - 2], "real size of hd is 0");
  EXPECT_EQ(said.back(), kWrongSize);
}

TEST_F(StoredSize, number_too_large_for_any_file_is_a_wrong_size) {
  EXPECT_EQ(download("root 99999999999999999999999999\n").back(), kWrongSize);
}

// ---- the download in one order --------------------------------------------------------

class DownloadOrder : public StoredSize {
 protected:
  std::vector<std::string> follow_download(const std::string& listing) {
    one.bench.put_file("check_hd_size.txt", listing);
    std::vector<int> bytes = {0, 0, 0, 30};
    bytes.insert(bytes.end(), 30, ';');
    one.host_sends(bytes);
    global_status = 0x91;
    config_sys = 0;
    shared_memory->do_fpga_restart = 5;
    one.bench.follow();
    one.bench.watch("SystemOnUpdate", SystemOnUpdate);
    one.bench.watch("restart", shared_memory->do_fpga_restart);
    one.bench.watch("wrong size", wrong_size_flag);
    one.bench.watch("status", global_status);
    one.bench.watch("config_sys", config_sys);
    one.bench.watch("monitor", monitor_state);
    find_host_command(2)->handler(one.link);
    std::vector<std::string> seen;
    for (std::string& line : one.bench.stream())
      if (!line.starts_with("select") && !line.starts_with("spi") && line != "wait 10")
        seen.push_back(std::move(line));
    return seen;
  }
};

const std::vector<std::string> kDownloaded = {
    "say get SEND_HD_CONFIGURATION command",
    "SystemOnUpdate = 1",
    "restart = 1",
    "wait 60",
    "wait 100000",
    "say f_size = 30 (1e)",
    "file /home/tovin/hd.ini wb",
    "say start get file hd.ini",
    "file /home/tovin/hd.ini <- 30 bytes",
    "wait 3000000",
    "file /home/tovin/hd.ini closed",
    "restart = 0",
    "wait 1000000",
    "system ls -l /home/tovin/hd.ini > check_hd_size.txt = ECHILD",
    "file /home/tovin/check_hd_size.txt r"};
const std::vector<std::string> kConfigured = {
    "say Configure_System4",
    "say ",
    "say start Configure_System!!",
    "restart = 1",
    "say fname = /home/tovin/hd.ini",
    "file /home/tovin/hd.ini r",
    "say end Configure_System!!",
    "file /home/tovin/hd.ini closed",
    "wait 1000000",
    "say END Configure_System SEND_HD_CONFIGURATION!!!!!!!!!",
    "status = 144",
    "wait 15000000"};

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts) {
  std::vector<std::string> all;
  for (const std::vector<std::string>& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST_F(DownloadOrder, good_file) {
  EXPECT_EQ(follow_download("root 30\n"),
            joined({kDownloaded,
                    {"say read 'root 30", "say ' OK", "file /home/tovin/check_hd_size.txt closed",
                     "say real size of hd is 30"},
                    kConfigured,
                    {"SystemOnUpdate = 0", "config_sys = 1"}}));
}

TEST_F(DownloadOrder, wrong_size) {
  EXPECT_EQ(follow_download(""),
            joined({kDownloaded,
                    {"say read error", "file /home/tovin/check_hd_size.txt closed",
                     "say real size of hd is 0",
                     "say error!! hd.ini wrong size - need reset from MELK", "wrong size = 1"},
                    kConfigured,
                    {"SystemOnUpdate = 0", "config_sys = 1"}}));
}

}  // namespace
