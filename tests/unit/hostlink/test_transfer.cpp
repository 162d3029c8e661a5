// Receiving hd.ini and updates, the update's result, the factory restore.
#include "hostlink/transfer.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "tests/unit/hostlink/link_bench.h"
#include "vboard/core/trace.h"
#include "vboard/core/update_fifo.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;
using vboard::seam::fail_call;

constexpr char kArchive[] = "tmp/new_hd_version.tar.gz";
constexpr char kRunScript[] = "Run Script for Extract the new_hd_version.tar.gz file to tmp dir\n";

// Bytes that tell their places: neighbours differ, no period of a power of two.
std::string pattern(std::int32_t size) {
  std::string bytes(static_cast<std::size_t>(size), '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
  return bytes;
}

std::vector<int> bytes_of(const std::string& text) {
  std::vector<int> bytes;
  for (const char c : text) bytes.push_back(static_cast<unsigned char>(c));
  return bytes;
}

// A date that says nothing and no directory listing: their output changes from
// day to day.
void silence_listings(const Bench& bench) {
  static const std::string usual = getenv("PATH");
  bench.put_file("bin/date", "#!/bin/sh\n");
  chmod(bench.path("bin/date").c_str(), 0755);
  setenv("PATH", (bench.path("bin") + ":" + usual).c_str(), 1);
  fail_call("system", "ls -l tmp/", 0, -1, ECHILD);
}

// A resident script that leaves a trace of its run, beside the archive's size.
void put_update_script(const Bench& bench) {
  bench.put_file("update.sh", "#!/bin/sh\nwc -c < tmp/new_hd_version.tar.gz > installed\n");
  chmod(bench.path("update.sh").c_str(), 0755);
}

// ---- get_file ---------------------------------------------------------------

TEST(GetFile, bytes_of_the_link_become_hd_ini) {
  LinkBench one;
  one.bench.put_file("hd.ini", "old and longer than the new one");
  one.gulp(bytes_of("vbr=1\n"));  // one transfer or six: every byte counts
  get_file(one.link, 6);
  EXPECT_EQ(one.bench.get_file("hd.ini"), "vbr=1\n");
  EXPECT_EQ(one.bench.output(), "start get file hd.ini\n");
  EXPECT_THAT(one.written(), IsEmpty());
  EXPECT_THAT(one.bench.trace({"file", "wait", "close"}),
              ElementsAre("file /home/tovin/hd.ini wb", "wait 3000000"));
}

TEST(GetFile, poll_bytes_and_zero_bytes_are_data) {
  LinkBench one;
  one.host_sends({0xA5, 0x00, 0xA5, 0xFF});
  get_file(one.link, 4);
  EXPECT_EQ(one.bench.get_file("hd.ini"), std::string("\xA5\x00\xA5\xFF", 4));
  EXPECT_THAT(one.written(), IsEmpty());
}

TEST(GetFile, bytes_beyond_the_size_stay_in_the_link) {
  LinkBench one;
  one.gulp({'a', 'b', 'c'});
  get_file(one.link, 2);
  EXPECT_EQ(one.bench.get_file("hd.ini"), "ab");
  EXPECT_EQ(fgetc(one.link), 'c');
}

TEST(GetFile, size_0_stores_an_empty_file_without_waiting_for_the_host) {
  LinkBench one;
  one.bench.put_file("hd.ini", "old");
  get_file(one.link, 0);
  EXPECT_TRUE(one.bench.has_file("hd.ini"));
  EXPECT_EQ(one.bench.get_file("hd.ini"), "");
  EXPECT_THAT(one.bench.trace({"select", "wait"}), ElementsAre("wait 3000000"));
}

TEST(GetFile, file_that_does_not_open_takes_nothing) {
  LinkBench one;
  std::filesystem::create_directory(one.bench.path("hd.ini"));
  one.gulp({'a', 'b'});
  get_file(one.link, 2);
  EXPECT_EQ(one.bench.output(), "can not open hd.ini file\n");
  EXPECT_THAT(one.bench.trace({"select", "spi", "wait"}), IsEmpty());
}

TEST(GetFile, size_that_no_memory_holds_leaves_the_stored_file) {
  LinkBench one;
  one.bench.put_file("hd.ini", "old");
  get_file(one.link, -1);
  EXPECT_EQ(one.bench.output(), "error file size -1\n");
  EXPECT_EQ(one.bench.get_file("hd.ini"), "old");
}

TEST(GetFile, select_error_leaves_an_empty_file_at_once) {
  LinkBench one;
  one.bench.put_file("hd.ini", "old");
  one.gulp({'a', 'b', 'c'});
  one.fail_select(2);
  const int before = open_files();
  get_file(one.link, 3);
  EXPECT_EQ(open_files(), before + 1);  // the file stays open
  EXPECT_EQ(one.bench.get_file("hd.ini"), "");
  EXPECT_EQ(one.bench.output(), "start get file hd.ini\nSPI: select error\n");
  EXPECT_THAT(one.bench.trace({"wait"}), IsEmpty());
}

TEST(GetFile, host_that_pauses_is_waited_for) {
  LinkBench one;
  one.host_sends({'a', 'b'}, 31);
  get_file(one.link, 2);
  EXPECT_EQ(one.bench.get_file("hd.ini"), "ab");
  EXPECT_EQ(one.bench.output(),
            std::string("start get file hd.ini\n") + kSilent + kSilent + kSilent + kSilent);
}

TEST(GetFile, host_that_stops_in_the_middle_is_waited_for_without_limit) {
  LinkBench one;
  one.gulp({'a'});
  EXPECT_TRUE(one.still_runs_after(3600, [&one] { get_file(one.link, 2); }));
  // 3600 s / 15 s: 240 reports, and the select that ends with the run.
  const std::size_t reports = vboard::lines(one.bench.output()).size() - 1;
  EXPECT_GE(reports, 239u);
  EXPECT_LE(reports, 240u);
}

TEST(GetFile, empty_reads_are_ignored) {
  LinkBench one;
  one.gulp({'a', 'b'});
  fail_call("read", "/dev/spislave", 1, 3, EAGAIN);
  get_file(one.link, 2);
  EXPECT_EQ(one.bench.get_file("hd.ini"), "ab");
}

TEST(GetFile, file_is_written_then_rests_then_is_closed) {
  LinkBench one;
  one.gulp({'a', 'b'});
  one.bench.follow();
  get_file(one.link, 2);
  EXPECT_THAT(one.bench.stream(),
              ElementsAre("file /home/tovin/hd.ini wb", "say start get file hd.ini",
                          "select 15000000 ready", "spi rd 61", "select 15000000 ready",
                          "spi rd 62", "file /home/tovin/hd.ini <- 2 bytes", "wait 3000000",
                          "file /home/tovin/hd.ini closed"));
}

TEST(GetFile, silent_host_is_told_behind_each_wait) {
  LinkBench one;
  one.host_sends({'a'}, 31);
  one.bench.follow();
  get_file(one.link, 1);
  EXPECT_THAT(
      one.bench.stream(),
      ElementsAre("file /home/tovin/hd.ini wb", "say start get file hd.ini",
                  "select 15000000 timeout", "say SPI: No data for XX seconds...",
                  "select 15000000 timeout", "say SPI: No data for XX seconds...",
                  "select 15000000 ready", "spi rd 61", "file /home/tovin/hd.ini <- 1 bytes",
                  "wait 3000000", "file /home/tovin/hd.ini closed"));
}

TEST(GetFile, select_error_in_one_order) {
  LinkBench one;
  one.gulp({'a'});
  one.fail_select(0);
  one.bench.follow();
  get_file(one.link, 1);
  EXPECT_THAT(one.bench.stream(),
              ElementsAre("file /home/tovin/hd.ini wb", "say start get file hd.ini",
                          "select /dev/spislave = EBADF", "say SPI: select error"));
}

// ---- both update procedures ---------------------------------------------------

enum class Way { kLink, kFifo };

void receive(Way way, FILE* link, std::int32_t size) {
  way == Way::kLink ? get_upgrate_file(link, size) : new_get_upgrate_file(link, size);
}

class Update : public testing::TestWithParam<Way> {
 protected:
  Update() {
    fpga_file = fopen("/dev/fpga", "r+b");
    one.bench.trace();
  }
  ~Update() override { fclose(fpga_file); }

  void receive(std::int32_t size) { ::receive(GetParam(), one.link, size); }

  LinkBench one;
};

std::string way_name(const testing::TestParamInfo<Way>& test) {
  return test.param == Way::kLink ? "over_the_link" : "through_the_fpga";
}
INSTANTIATE_TEST_SUITE_P(Transfer, Update, testing::Values(Way::kLink, Way::kFifo), way_name);

TEST_P(Update, too_large_is_refused_after_the_area_was_cleared) {
  one.bench.put_file("tmp/update.sh", "old");
  one.bench.put_file("tmp/success.txt", "old");
  one.bench.put_file(kArchive, "old");
  silence_listings(one.bench);
  receive(5'000'001);
  EXPECT_THAT(one.bench.trace(), ElementsAre("shell mkdir /home/tovin/tmp",
                                             "shell rm /home/tovin/tmp/new_hd_version.tar.gz",
                                             "shell rm /home/tovin/tmp/update.sh",
                                             "shell rm /home/tovin/tmp/success.txt", "shell date"));
  EXPECT_EQ(one.bench.output(), "limit file size file\n");
  EXPECT_FALSE(one.bench.has_file("tmp/update.sh"));
  EXPECT_FALSE(one.bench.has_file("tmp/success.txt"));
  EXPECT_FALSE(one.bench.has_file(kArchive));
}

TEST_P(Update, negative_size_is_refused_like_one_too_large) {
  silence_listings(one.bench);
  receive(-1);
  EXPECT_EQ(one.bench.output(), "limit file size file\n");
  EXPECT_FALSE(one.bench.has_file(kArchive));
}

TEST_P(Update, directory_that_cannot_be_written_takes_nothing) {
  one.bench.put_file("tmp", "a file where the directory belongs");
  silence_listings(one.bench);
  receive(2);
  EXPECT_EQ(one.bench.output(), "can not open new application file\n");
  EXPECT_THAT(one.bench.trace({"select", "spi", "fpga", "wait"}), IsEmpty());
}

TEST_P(Update, failing_shell_commands_change_nothing) {
  fail_call("system", "", 0, -1, ECHILD);
  std::filesystem::create_directory(one.bench.path("tmp"));
  one.gulp({'a', 'b'});
  one.bench.board().fpga.held = true;
  one.bench.set_fpga(kRegUpdateStatus, 1);
  one.bench.set_fpga(kRegUpdateData, 'a' << 8 | 'b');
  receive(2);
  EXPECT_EQ(one.bench.get_file(kArchive), "ab");
}

struct Size {
  Way way;
  std::int32_t bytes;
};

// Keeps the link or the FIFO filled with the archive.
void feed(Way way, const std::string& archive) {
  vboard::Board& board = vboard::board_of_process();
  std::size_t sent = 0;
  while (sent < archive.size()) {
    {
      const vboard::Locked hold(board);
      if (way == Way::kLink) {
        vboard::LinkFifo& fifo = board.link.to_board;
        for (; sent < archive.size() && fifo.head - fifo.tail < vboard::kLinkDepth; ++sent)
          fifo.data[fifo.head++ % vboard::kLinkDepth] = static_cast<std::uint8_t>(archive[sent]);
      } else {
        sent += vboard::feed_update(board.fpga,
                                    reinterpret_cast<const std::uint8_t*>(archive.data()) + sent,
                                    archive.size() - sent);
      }
    }
    if (way == Way::kLink)
      vboard::board_wait(vboard::WaitFor::kBoardTook, 1'000'000);
    else
      vboard::board_wait(vboard::WaitFor::kNothing, 1000);
  }
}

class UpdateSize : public testing::TestWithParam<Size> {};

TEST_P(UpdateSize, archive_is_stored_whole_and_the_script_runs) {
  const Way way = GetParam().way;
  const std::int32_t size = GetParam().bytes;
  LinkBench one;
  fpga_file = fopen("/dev/fpga", "r+b");
  silence_listings(one.bench);
  put_update_script(one.bench);
  const std::string archive = pattern(size);
  vboard::set_trace_sink(nullptr);  // millions of lines
  one.bench.beside("host", [way, &archive] { feed(way, archive); });
  receive(way, one.link, size);
  EXPECT_TRUE(one.bench.get_file(kArchive) == archive);  // no dump of megabytes
  EXPECT_EQ(std::stoi(one.bench.get_file("installed")), size);
  const std::vector<std::string> said = vboard::lines(one.bench.output());
  EXPECT_EQ(said.back() + "\n", kRunScript);
  EXPECT_EQ(one.bench.board().violations.count, 0u);
  fclose(fpga_file);
}

INSTANTIATE_TEST_SUITE_P(
    Transfer, UpdateSize,
    testing::Values(Size{Way::kLink, 0}, Size{Way::kLink, 1}, Size{Way::kLink, 2},
                    Size{Way::kLink, 3}, Size{Way::kLink, 40'001}, Size{Way::kLink, 4'999'999},
                    Size{Way::kLink, 5'000'000}, Size{Way::kFifo, 1}, Size{Way::kFifo, 2},
                    Size{Way::kFifo, 3}, Size{Way::kFifo, 40'001}, Size{Way::kFifo, 4'999'999},
                    Size{Way::kFifo, 5'000'000}),
    [](auto& test) {
      return std::string(test.param.way == Way::kLink ? "over_the_link_" : "through_the_fpga_") +
             std::to_string(test.param.bytes) + "_bytes";
    });

// ---- over the link ----------------------------------------------------------

TEST(GetUpgrateFile, steps_in_order) {
  LinkBench one;
  silence_listings(one.bench);
  one.gulp({'a', 'b', 'c'});
  get_upgrate_file(one.link, 3);
  EXPECT_THAT(
      one.bench.trace(),
      ElementsAre("shell mkdir /home/tovin/tmp", "shell rm /home/tovin/tmp/new_hd_version.tar.gz",
                  "shell rm /home/tovin/tmp/update.sh", "shell rm /home/tovin/tmp/success.txt",
                  "shell date", "file /home/tovin/tmp/new_hd_version.tar.gz wb",
                  "select 15000000 ready", "spi rd 61", "select 15000000 ready", "spi rd 62",
                  "select 15000000 ready", "spi rd 63", "wait 1000000",
                  "shell /home/tovin/update.sh", "system ls -l tmp/ = ECHILD"));
  EXPECT_EQ(one.bench.output(),
            std::string("SPI fread write_fleg_ok=1, total=3, f_size 3 \n") + kRunScript);
}

const std::vector<std::string> kAreaCleared = {
    "shell mkdir /home/tovin/tmp", "shell rm /home/tovin/tmp/new_hd_version.tar.gz",
    "shell rm /home/tovin/tmp/update.sh", "shell rm /home/tovin/tmp/success.txt", "shell date"};

// The area cleared, then these.
std::vector<std::string> after_clearing(const std::vector<std::string>& steps) {
  std::vector<std::string> all = kAreaCleared;
  all.insert(all.end(), steps.begin(), steps.end());
  return all;
}

TEST(GetUpgrateFile, archive_messages_and_script_in_one_order) {
  LinkBench one;
  silence_listings(one.bench);
  one.gulp({'a', 'b'});
  one.bench.follow();
  get_upgrate_file(one.link, 2);
  EXPECT_EQ(one.bench.stream(),
            after_clearing({"file /home/tovin/tmp/new_hd_version.tar.gz wb",
                            "select 15000000 ready", "spi rd 61", "select 15000000 ready",
                            "spi rd 62", "file /home/tovin/tmp/new_hd_version.tar.gz <- 2 bytes",
                            "wait 1000000", "file /home/tovin/tmp/new_hd_version.tar.gz closed",
                            "say SPI fread write_fleg_ok=1, total=2, f_size 2 ",
                            "say Run Script for Extract the new_hd_version.tar.gz file to tmp dir",
                            "shell /home/tovin/update.sh", "system ls -l tmp/ = ECHILD"}));
}

TEST(GetUpgrateFile, refusals_are_told_behind_the_clearing) {
  LinkBench one;
  silence_listings(one.bench);
  one.bench.follow();
  get_upgrate_file(one.link, 5'000'001);
  EXPECT_EQ(one.bench.stream(), after_clearing({"say limit file size file"}));
  fail_call("fopen", "new_hd_version", 0, 1, EACCES);
  get_upgrate_file(one.link, 2);
  EXPECT_EQ(one.bench.stream(),
            after_clearing({"fopen /home/tovin/tmp/new_hd_version.tar.gz = EACCES",
                            "say can not open new application file"}));
}

TEST(GetUpgrateFile, size_0_counts_as_a_success_and_runs_the_script) {
  LinkBench one;
  silence_listings(one.bench);
  get_upgrate_file(one.link, 0);
  EXPECT_EQ(one.bench.output(),
            std::string("SPI fread write_fleg_ok=1, total=0, f_size 0 \n") + kRunScript);
  EXPECT_TRUE(one.bench.has_file(kArchive));
}

TEST(GetUpgrateFile, select_error_writes_nothing_and_runs_nothing) {
  LinkBench one;
  silence_listings(one.bench);
  put_update_script(one.bench);
  one.gulp({'a', 'b', 'c'});
  one.fail_select(1);
  const int before = open_files();
  get_upgrate_file(one.link, 3);
  EXPECT_EQ(open_files(), before + 1);  // the archive stays open
  EXPECT_EQ(one.bench.output(), kSelectError);
  EXPECT_EQ(one.bench.get_file(kArchive), "");
  EXPECT_FALSE(one.bench.has_file("installed"));
  EXPECT_THAT(one.bench.trace({"wait", "shell /home"}), IsEmpty());
}

TEST(GetUpgrateFile, silent_host_is_reported_and_waited_for) {
  LinkBench one;
  silence_listings(one.bench);
  one.host_sends({'a'}, 35);
  get_upgrate_file(one.link, 1);
  EXPECT_EQ(one.bench.output(), std::string(kSilent) + kSilent +
                                    "SPI fread write_fleg_ok=1, total=1, f_size 1 \n" + kRunScript);
}

// ---- through the FPGA ---------------------------------------------------------

class Fifo : public testing::Test {
 protected:
  Fifo() {
    fpga_file = fopen("/dev/fpga", "r+b");
    silence_listings(one.bench);
    std::filesystem::create_directory(one.bench.path("tmp"));
  }
  ~Fifo() override { fclose(fpga_file); }

  void fill(const std::string& bytes) {
    vboard::FpgaState& fpga = one.bench.board().fpga;
    for (const char c : bytes)
      fpga.update_fifo[fpga.update_head++ % sizeof fpga.update_fifo] = static_cast<std::uint8_t>(c);
  }
  std::vector<std::string> traffic() { return one.bench.trace({"fpga", "wait", "spi", "select"}); }

  LinkBench one;
};

// The fill level of the FIFO is in bytes here: 4, then 2 and 0 behind the words.
TEST_F(Fifo, even_archive_takes_its_words_and_no_more) {
  fill("abcd");
  one.bench.trace();
  new_get_upgrate_file(one.link, 4);
  EXPECT_EQ(one.bench.get_file(kArchive), "abcd");
  EXPECT_THAT(traffic(), ElementsAre("wait 100", "fpga rd 0x0124 -> 0x0004",  //
                                     "fpga rd 0x0124 -> 0x0004", "fpga rd 0x0120 -> 0x6162",
                                     "fpga rd 0x0124 -> 0x0002",  //
                                     "fpga rd 0x0124 -> 0x0002", "fpga rd 0x0120 -> 0x6364",
                                     "fpga rd 0x0124 -> 0x0000", "wait 1000000"));
  // The largest level is looked for after each word: 2. The last word stood at 2.
  EXPECT_EQ(one.bench.output(), std::string("in get_file function size=4 \n"
                                            "start get file status=0x4\n"
                                            "write_fleg_ok\n"
                                            "max mem buf=0x2\n"
                                            "last = 0  f_size/2=2 i=2\n"
                                            "FPGA  write_fleg_ok=1, total=2, f_size 4 \n") +
                                    kRunScript);
}

TEST_F(Fifo, odd_archive_takes_one_extra_word_without_polling) {
  fill("abcdef");
  one.bench.trace();
  new_get_upgrate_file(one.link, 3);
  EXPECT_EQ(one.bench.get_file(kArchive), "abc");
  EXPECT_THAT(traffic(), ElementsAre("wait 100", "fpga rd 0x0124 -> 0x0006",  //
                                     "fpga rd 0x0124 -> 0x0006", "fpga rd 0x0120 -> 0x6162",
                                     "fpga rd 0x0124 -> 0x0004",  //
                                     "fpga rd 0x0124 -> 0x0004", "fpga rd 0x0120 -> 0x6364",
                                     "fpga rd 0x0124 -> 0x0002",  //
                                     "fpga rd 0x0120 -> 0x6566", "wait 1000000"));
  // 3 - 2 leaves 1; 3 / 2 is 1.
  EXPECT_EQ(one.bench.output(), std::string("in get_file function size=3 \n"
                                            "start get file status=0x6\n"
                                            "write_fleg_ok\n"
                                            "max mem buf=0x4\n"
                                            "last = 1  f_size/2=1 i=2\n"
                                            "FPGA  write_fleg_ok=1, total=2, f_size 3 \n") +
                                    kRunScript);
}

// The first word stands at 0; the extra word goes to 1 and 2, behind the one
// byte that is written.
TEST_F(Fifo, one_byte_takes_two_words) {
  fill("abcd");
  new_get_upgrate_file(one.link, 1);
  EXPECT_EQ(one.bench.get_file(kArchive), "a");
  EXPECT_EQ(one.bench.board().fpga.update_tail, 4u);
  EXPECT_THAT(one.bench.output(),
              testing::HasSubstr("last = 1  f_size/2=0 i=0\n"
                                 "FPGA  write_fleg_ok=1, total=0, f_size 1 \n"));
}

TEST_F(Fifo, size_0_is_no_success_and_runs_nothing) {
  put_update_script(one.bench);
  one.bench.trace();
  new_get_upgrate_file(one.link, 0);
  EXPECT_EQ(one.bench.output(),
            "in get_file function size=0 \n"
            "start get file status=0x0\n"
            "max mem buf=0x0\n"
            "last = 0  f_size/2=0 i=0\n"
            "FPGA  write_fleg_ok=0, total=0, f_size 0 \n");
  EXPECT_THAT(
      one.bench.trace({"shell", "system", "wait", "fpga"}),
      ElementsAre("shell mkdir /home/tovin/tmp", "shell rm /home/tovin/tmp/new_hd_version.tar.gz",
                  "shell rm /home/tovin/tmp/update.sh", "shell rm /home/tovin/tmp/success.txt",
                  "shell date", "wait 100", "fpga rd 0x0124 -> 0x0000", "wait 1000000",
                  "shell date"));
}

TEST_F(Fifo, words_archive_messages_and_script_in_one_order) {
  fill("abcdef");
  one.bench.follow();
  new_get_upgrate_file(one.link, 3);
  EXPECT_EQ(one.bench.stream(),
            after_clearing({"file /home/tovin/tmp/new_hd_version.tar.gz wb",
                            "say in get_file function size=3 ",
                            "wait 100",
                            "fpga rd 0x0124 -> 0x0006",
                            "say start get file status=0x6",
                            "fpga rd 0x0124 -> 0x0006",
                            "fpga rd 0x0120 -> 0x6162",
                            "fpga rd 0x0124 -> 0x0004",
                            "fpga rd 0x0124 -> 0x0004",
                            "fpga rd 0x0120 -> 0x6364",
                            "fpga rd 0x0124 -> 0x0002",
                            "say write_fleg_ok",
                            "fpga rd 0x0120 -> 0x6566",
                            "say max mem buf=0x4",
                            "say last = 1  f_size/2=1 i=2",
                            "file /home/tovin/tmp/new_hd_version.tar.gz <- 3 bytes",
                            "wait 1000000",
                            "file /home/tovin/tmp/new_hd_version.tar.gz closed",
                            "say FPGA  write_fleg_ok=1, total=2, f_size 3 ",
                            "shell date",
                            "say Run Script for Extract the new_hd_version.tar.gz file to tmp dir",
                            "shell /home/tovin/update.sh",
                            "system ls -l tmp/ = ECHILD"}));
}

TEST_F(Fifo, size_0_in_one_order) {
  one.bench.follow();
  new_get_upgrate_file(one.link, 0);
  EXPECT_EQ(one.bench.stream(),
            after_clearing({"file /home/tovin/tmp/new_hd_version.tar.gz wb",
                            "say in get_file function size=0 ", "wait 100",
                            "fpga rd 0x0124 -> 0x0000", "say start get file status=0x0",
                            "say max mem buf=0x0", "say last = 0  f_size/2=0 i=0", "wait 1000000",
                            "file /home/tovin/tmp/new_hd_version.tar.gz closed",
                            "say FPGA  write_fleg_ok=0, total=0, f_size 0 ", "shell date"}));
}

TEST_F(Fifo, shell_commands_and_files_in_order) {
  fill("ab");
  one.bench.trace();
  new_get_upgrate_file(one.link, 2);
  EXPECT_THAT(
      one.bench.trace({"shell", "system", "file"}),
      ElementsAre("shell mkdir /home/tovin/tmp", "shell rm /home/tovin/tmp/new_hd_version.tar.gz",
                  "shell rm /home/tovin/tmp/update.sh", "shell rm /home/tovin/tmp/success.txt",
                  "shell date", "file /home/tovin/tmp/new_hd_version.tar.gz wb", "shell date",
                  "shell /home/tovin/update.sh", "system ls -l tmp/ = ECHILD"));
}

TEST_F(Fifo, level_is_the_low_twelve_bits_and_data_the_low_eight) {
  one.bench.board().fpga.held = true;
  one.bench.set_fpga(kRegUpdateStatus, 0xFABC);
  one.bench.set_fpga(kRegUpdateData, 0x4142);
  new_get_upgrate_file(one.link, 4);
  EXPECT_EQ(one.bench.get_file(kArchive), "ABAB");
  const std::string said = one.bench.output();
  EXPECT_THAT(said, testing::HasSubstr("start get file status=0xfabc\n"));
  EXPECT_THAT(said, testing::HasSubstr("max mem buf=0xabc\n"));
}

TEST_F(Fifo, level_without_waiting_bits_is_waited_on_for_ever) {
  one.bench.board().fpga.held = true;
  one.bench.set_fpga(kRegUpdateStatus, 0xFF00);
  vboard::set_trace_sink(nullptr);
  // Beyond the second that stands after the last word.
  EXPECT_TRUE(one.still_runs_after(2, [this] { new_get_upgrate_file(one.link, 2); }));
  EXPECT_EQ(one.bench.get_file(kArchive), "");
}

TEST_F(Fifo, slow_host_is_polled_for) {
  one.bench.beside("host", [this] {
    for (const char* word : {"ab", "cd", "ef"}) {
      vboard::board_wait(vboard::WaitFor::kNothing, 200'000);
      fill(word);
    }
  });
  vboard::set_trace_sink(nullptr);
  const std::int64_t start_us = one.bench.now_us();
  new_get_upgrate_file(one.link, 6);
  EXPECT_EQ(one.bench.get_file(kArchive), "abcdef");
  // Three words 0.2 s apart and the second behind the write.
  EXPECT_NEAR(static_cast<double>(one.bench.now_us() - start_us), 1.6e6, 1000);
  EXPECT_THAT(one.bench.output(), testing::HasSubstr("max mem buf=0x0\n"));
}

// ---- result of an update ------------------------------------------------------

TEST(GetSuccessFileUpdate, marker_is_told_once_and_deleted) {
  Bench bench;
  bench.put_file("tmp/success.txt", "");
  const int before = open_files();
  EXPECT_EQ(GetSuccessFileUpdate(), 1);
  EXPECT_EQ(open_files(), before);
  EXPECT_THAT(bench.trace(), ElementsAre("file /home/tovin/tmp/success.txt r+",
                                         "shell rm /home/tovin/tmp/success.txt"));
  EXPECT_FALSE(bench.has_file("tmp/success.txt"));
  EXPECT_EQ(GetSuccessFileUpdate(), 0);
  EXPECT_THAT(bench.trace(), ElementsAre("file /home/tovin/tmp/success.txt r+ = ENOENT"));
  EXPECT_EQ(bench.output(), "");
}

TEST(GetSuccessFileUpdate, marker_is_closed_before_it_is_removed) {
  Bench bench;
  bench.put_file("tmp/success.txt", "");
  bench.follow();
  EXPECT_EQ(GetSuccessFileUpdate(), 1);
  EXPECT_THAT(bench.stream(), ElementsAre("file /home/tovin/tmp/success.txt r+",
                                          "file /home/tovin/tmp/success.txt closed",
                                          "shell rm /home/tovin/tmp/success.txt"));
}

// ---- factory restore ------------------------------------------------------------

TEST(RestorFromManufacture, steps_in_order) {
  Bench bench;
  fail_call("system", "", 0, -1, ECHILD);
  EXPECT_EQ(restor_from_manufacture(), -1);  // as the last command
  EXPECT_THAT(
      bench.trace(),
      ElementsAre("system tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/ = ECHILD", "wait 1000",
                  "system chmod +x * = ECHILD", "system chmod +x *.* = ECHILD",
                  "system tmp/./update.sh = ECHILD", "wait 1000", "system ls -l tmp/ = ECHILD"));
  EXPECT_EQ(bench.output(),
            "Extract the from manufacture file\n"
            "copy file to work dir\n");
}

TEST(RestorFromManufacture, steps_and_messages_in_one_order) {
  Bench bench;
  fail_call("system", "", 0, -1, ECHILD);
  bench.follow();
  restor_from_manufacture();
  EXPECT_THAT(bench.stream(),
              ElementsAre("say Extract the from manufacture file",
                          "system tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/ = ECHILD",
                          "wait 1000", "say copy file to work dir", "system chmod +x * = ECHILD",
                          "system chmod +x *.* = ECHILD", "system tmp/./update.sh = ECHILD",
                          "wait 1000", "system ls -l tmp/ = ECHILD"));
}

TEST(RestorFromManufacture, factory_archive_is_unpacked_and_its_script_run) {
  Bench bench;
  bench.put_file("factory/update.sh", "#!/bin/sh\necho restored > restored.txt\n");
  bench.put_file("tmp/keep", "");
  const std::string pack = "cd " + bench.path("factory") + " && chmod +x update.sh && tar -czf " +
                           bench.path("tmp/new_hd_version_master.tar.gz") + " update.sh";
  ASSERT_EQ(system(pack.c_str()), 0);
  EXPECT_EQ(restor_from_manufacture(), 0);
  EXPECT_EQ(bench.get_file("restored.txt"), "restored\n");
}

TEST(RestorFromManufacture, result_is_that_of_the_last_command_alone) {
  Bench bench;
  bench.put_file("tmp/keep", "");
  fail_call("system", "tar", 0, -1, ECHILD);
  fail_call("system", "update.sh", 0, -1, ECHILD);
  EXPECT_EQ(restor_from_manufacture(), 0);
}

}  // namespace
