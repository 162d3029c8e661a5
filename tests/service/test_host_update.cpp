// Software updates from the host: over the link and through the FPGA.
#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/host_talk.h"
#include "vboard/core/trace.h"
#include "vboard/core/update_fifo.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vboard::seam::fail_call;

constexpr char kArchive[] = "tmp/new_hd_version.tar.gz";
constexpr char kRunScript[] = "Run Script for Extract the new_hd_version.tar.gz file to tmp dir\n";

std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
  return bytes;
}

struct Procedure {
  const char* name;
  int code;
  const char* command;  // as printed
};
constexpr Procedure kLink = {"over_the_link", 11, "get UPDATE_VERSION command\n"};
constexpr Procedure kFifo = {"through_the_fpga", 43, "get NEW_UPDATE_VERSION command\n"};

void push_update(Talk& host, const std::string& bytes) {
  const auto* const data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  for (std::size_t sent = 0; sent < bytes.size();) {
    sent += feed_update(host.bench.board().fpga, data + sent, bytes.size() - sent);
    host.host.wait(0.001);
  }
}

void push(Talk& host, const Procedure& way, const std::string& bytes) {
  way.code == kLink.code ? host.pour(bytes) : push_update(host, bytes);
}

std::string announced(const Procedure& way, std::size_t size) {
  char text[64];
  snprintf(text, sizeof text, "f_size = %zu (%zx)\n", size, size);
  return std::string(way.command) + text;
}

// The listing behind the script changes from day to day.
void silence_listing() { fail_call("system", "ls -l tmp/", 0, -1, ECHILD); }

// The resident script, as far as tests need one.
void put_script(const vboard::Bench& bench, const std::string& what) {
  bench.put_file("update.sh", "#!/bin/sh\n" + what + "\n");
  chmod(bench.path("update.sh").c_str(), 0755);
}

class HostUpdate : public testing::TestWithParam<Procedure> {};
INSTANTIATE_TEST_SUITE_P(Service, HostUpdate, testing::Values(kLink, kFifo),
                         [](auto& test) { return test.param.name; });

TEST_P(HostUpdate, flags_hold_the_service_until_3_seconds_behind_the_transfer) {
  talk([](Talk& host) {
    const Procedure& way = GetParam();
    shared_memory->do_fpga_restart = 0;
    host.host.send(command_with_number(way.code, 4));
    host.host.wait(0.5);
    EXPECT_EQ(SystemOnUpdate, 1);
    EXPECT_EQ(shared_memory->do_fpga_restart, 1);
    push(host, way, "abcd");
    host.host.wait(3.9);  // a second for the file, three after it
    EXPECT_EQ(SystemOnUpdate, 1);
    EXPECT_EQ(host.bench.get_file(kArchive), "abcd");
    host.host.wait(0.2);
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_EQ(shared_memory->do_fpga_restart, 1);  // encode stays on hold
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

TEST_P(HostUpdate, too_large_is_refused_and_the_link_serves_on) {
  talk([](Talk& host) {
    const Procedure& way = GetParam();
    const Heard heard = host.say(command_with_number(way.code, 5'000'001), 4);
    EXPECT_EQ(heard.printed, announced(way, 5'000'001) + "limit file size file\n");
    EXPECT_THAT(
        heard.actions,
        ElementsAre("wait 10", "wait 10", "wait 10", "wait 10", "shell mkdir /home/tovin/tmp",
                    "shell rm /home/tovin/tmp/new_hd_version.tar.gz",
                    "shell rm /home/tovin/tmp/update.sh", "shell rm /home/tovin/tmp/success.txt",
                    "shell date", "wait 3000000"));
    EXPECT_FALSE(host.bench.has_file(kArchive));
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

TEST_P(HostUpdate, negative_size_is_refused) {
  talk([](Talk& host) {
    const Procedure& way = GetParam();
    EXPECT_EQ(host.say(command_with_number(way.code, 0xFFFFFFFF), 4).printed,
              std::string(way.command) + "f_size = -1 (ffffffff)\nlimit file size file\n");
  });
}

TEST_P(HostUpdate, directory_that_cannot_be_written_takes_nothing) {
  talk([](Talk& host) {
    const Procedure& way = GetParam();
    host.bench.put_file("tmp", "a file where the directory belongs");
    EXPECT_EQ(host.say(command_with_number(way.code, 4), 4).printed,
              announced(way, 4) + "can not open new application file\n");
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

TEST_P(HostUpdate, select_error_in_the_size_is_an_update_of_0_bytes) {
  talk([](Talk& host) {
    const Procedure& way = GetParam();
    silence_listing();
    fail_call("select", "", 0, 1, EBADF);
    const std::string printed = host.say({way.code}, 5).printed;
    EXPECT_THAT(printed, testing::StartsWith(std::string(way.command) +
                                             "SPI: select error\nf_size = 0 (0)\n"));
  });
}

struct Size {
  Procedure way;
  std::size_t bytes;
};

class HostUpdateSize : public testing::TestWithParam<Size> {};

TEST_P(HostUpdateSize, archive_arrives_and_the_script_runs) {
  talk([](Talk& host) {
    const auto& [way, size] = GetParam();
    put_script(host.bench, "wc -c < tmp/new_hd_version.tar.gz > installed");
    const std::string archive = pattern(size);
    silence_listing();
    host.hear(0);
    vboard::set_trace_sink(nullptr);  // millions of lines
    host.host.send(command_with_number(way.code, static_cast<std::uint32_t>(size)));
    push(host, way, archive);
    host.host.wait(5);
    EXPECT_TRUE(host.bench.get_file(kArchive) == archive);
    EXPECT_THAT(host.bench.get_file("installed"), testing::EndsWith(std::to_string(size) + "\n"));
    const std::string last_step = way.code == kLink.code ? "SPI fread write_fleg_ok=1, total="
                                                         : "FPGA  write_fleg_ok=1, total=";
    const std::string printed = host.hear(0).printed;
    EXPECT_THAT(printed, testing::StartsWith(announced(way, size)));
    EXPECT_THAT(printed, HasSubstr(last_step));
    EXPECT_THAT(printed, HasSubstr(", f_size " + std::to_string(size) + " \n" + kRunScript));
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));  // no byte is left over
  });
}

INSTANTIATE_TEST_SUITE_P(
    Service, HostUpdateSize,
    testing::Values(Size{kLink, 0}, Size{kLink, 1}, Size{kLink, 2}, Size{kLink, 3},
                    Size{kLink, 30'001}, Size{kLink, 5'000'000}, Size{kFifo, 1}, Size{kFifo, 2},
                    Size{kFifo, 3}, Size{kFifo, 30'001}, Size{kFifo, 5'000'000}),
    [](auto& test) {
      return std::string(test.param.way.name) + "_" + std::to_string(test.param.bytes) + "_bytes";
    });

TEST(HostUpdateThroughTheFpga, size_0_is_no_success) {
  talk([](Talk& host) {
    put_script(host.bench, "touch installed");
    const Heard heard = host.say(command_with_number(kFifo.code, 0), 5);
    EXPECT_EQ(heard.printed, announced(kFifo, 0) +
                                 "in get_file function size=0 \n"
                                 "start get file status=0x0\n"
                                 "max mem buf=0x0\n"
                                 "last = 0  f_size/2=0 i=0\n"
                                 "FPGA  write_fleg_ok=0, total=0, f_size 0 \n");
    EXPECT_FALSE(host.bench.has_file("installed"));
  });
}

TEST(HostUpdateThroughTheFpga, empty_fifo_is_waited_on_without_limit) {
  talk(
      [](Talk& host) {
        vboard::set_trace_sink(nullptr);
        host.host.send(command_with_number(kFifo.code, 2));
        host.host.wait(5);
        EXPECT_EQ(SystemOnUpdate, 1);
        EXPECT_THAT(host.hear(0).printed, testing::EndsWith("start get file status=0x0\n"));
        push(host, kFifo, "ab");
        host.host.wait(5);
        EXPECT_EQ(host.bench.get_file(kArchive), "ab");
        EXPECT_EQ(SystemOnUpdate, 0);
      },
      20);
}

TEST(HostUpdateOverTheLink, host_that_stops_is_waited_for) {
  talk([](Talk& host) {
    host.host.send(command_with_number(kLink.code, 3));
    host.pour("ab");
    EXPECT_THAT(host.hear(31).printed, testing::EndsWith("f_size = 3 (3)\n"
                                                         "SPI: No data for XX seconds...\n"
                                                         "SPI: No data for XX seconds...\n"));
    EXPECT_EQ(SystemOnUpdate, 1);
    host.pour("c");
    host.host.wait(5);
    EXPECT_EQ(host.bench.get_file(kArchive), "abc");
  });
}

TEST(HostUpdateOverTheLink, select_error_writes_nothing) {
  talk([](Talk& host) {
    put_script(host.bench, "touch installed");
    fail_call("select", "", 4, 1, EBADF);  // behind those of the size
    const Heard heard = host.say(command_with_number(kLink.code, 3), 5);
    EXPECT_EQ(heard.printed, announced(kLink, 3) + "SPI: select error\n");
    EXPECT_EQ(host.bench.get_file(kArchive), "");
    EXPECT_FALSE(host.bench.has_file("installed"));
    EXPECT_EQ(SystemOnUpdate, 0);
  });
}

TEST_P(HostUpdate, script_that_leaves_the_marker_is_told_once) {
  talk([](Talk& host) {
    const Procedure& way = GetParam();
    put_script(host.bench, "touch " + host.bench.path("tmp/success.txt"));
    host.bench.put_file("tmp/success.txt", "of the last update");
    host.host.send(command_with_number(way.code, 4));
    push(host, way, "abcd");
    host.host.wait(5);
    EXPECT_THAT(host.say({34}).answer, ElementsAre(1));
    EXPECT_THAT(host.say({34}).answer, ElementsAre(0));
  });
}

TEST_P(HostUpdate, marker_of_an_earlier_update_does_not_count) {
  talk([](Talk& host) {
    const Procedure& way = GetParam();
    host.bench.put_file("tmp/success.txt", "of the last update");
    host.host.send(command_with_number(way.code, 4));
    push(host, way, "abcd");
    host.host.wait(5);
    EXPECT_THAT(host.say({34}).answer, ElementsAre(0));
  });
}

}  // namespace
