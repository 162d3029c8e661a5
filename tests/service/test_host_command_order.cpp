// Every command that says or changes something: what it says, answers, stores and
// does, in the one order in which it happens.
#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/host_talk.h"

namespace {

using vboard::Bench;
using vboard::seam::fail_call;

using Lines = std::vector<std::string>;

Lines joined(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// The four bytes of a number, low ones last.
Lines number(const char* byte) {
  return {"spi rd 00", "wait 10", "spi rd 00", "wait 10", "spi rd 00", "wait 10", byte, "wait 10"};
}

struct Order {
  const char* name;
  std::vector<int> bytes;
  Lines stream;
  std::function<void(Bench&)> before = nullptr;  // after the start of the service
  double seconds = 1;
};
void PrintTo(const Order& one, std::ostream* out) { *out << one.name; }

class HostCommandOrder : public testing::TestWithParam<Order> {};

// The bytes of the service that commands change, and of the block.
void watch_all(Bench& bench) {
  SharedBlock& block = *shared_memory;
  bench.watch("update", SystemOnUpdate);
  bench.watch("block 40", block.do_fpga_restart);
  bench.watch("block 48", block.audio_enable);
  bench.watch("block 100", block.spts);
  for (std::size_t i = 0; i < 13; ++i)
    bench.watch("block " + std::to_string(64 + i), block.clock_text[i]);
  bench.watch("status", global_status);
  bench.watch("cause", status_vantorig);
  bench.watch("enable_audio", enable_audio);
}

TEST_P(HostCommandOrder, stands_as_it_happens) {
  talk([](Talk& host) {
    if (GetParam().before) GetParam().before(host.bench);
    global_status = 0xFF;
    status_vantorig = 0x85;
    shared_memory->do_fpga_restart = 0;
    shared_memory->audio_enable = 0;
    enable_audio = 0;
    host.bench.follow();
    watch_all(host.bench);
    host.say(GetParam().bytes, GetParam().seconds);
    Lines seen;
    for (const std::string& line : host.bench.stream())
      if (!line.starts_with("select") && !line.starts_with("fpga led") && line != "wait 500000")
        seen.push_back(line);
    EXPECT_EQ(seen, GetParam().stream);
  });
}

void hold(Bench& bench) { bench.board().fpga.held = true; }

// No command of the shell is run; the log of the first archive has two bytes.
void silence(Bench&) { fail_call("system", "", 0, -1, ECHILD); }
void put_logs(Bench& bench) {
  bench.put_file("temp_log1.tar.gz", "ab");
  bench.put_file("temp_log2.tar.gz", "c");
  bench.put_file("monitor.txt", "d");
}

const Lines kUpdateRefused = {"system mkdir /home/tovin/tmp = ECHILD",
                              "system rm /home/tovin/tmp/new_hd_version.tar.gz = ECHILD",
                              "system rm /home/tovin/tmp/update.sh = ECHILD",
                              "system rm /home/tovin/tmp/success.txt = ECHILD",
                              "system date = ECHILD",
                              "say limit file size file",
                              "wait 3000000",
                              "status = 145",  // the supervision, meanwhile
                              "update = 0"};

INSTANTIATE_TEST_SUITE_P(
    Codes, HostCommandOrder,
    testing::Values(
        Order{"GET_HD_VERSION",
              {1},
              {"spi rd 01", "say get GET_HD_VERSION command,hd_version = 2.13", "spi wr 2d"}},
        Order{"SEND_RTC",
              {4, '1', '2', 0, '4', '5', '6', '7', '8', '9', 'a', 'b', 'c'},
              {"spi rd 04", "spi rd 31", "spi rd 32", "spi rd 00", "spi rd 34", "spi rd 35",
               "spi rd 36", "spi rd 37", "spi rd 38", "spi rd 39", "spi rd 61", "spi rd 62",
               "spi rd 63", "say get SEND_RTC command", "block 64 = 49", "block 65 = 50",
               "say clk_from_melk = 12"}},
        // 0xba / 2 = 0x5d, the decoder; its register 0x05
        Order{"READ_REG",
              {5, 0xBA, 0x05},
              {"spi rd 05", "open /dev/i2c-1", "open /dev/spislave r+b", "nonblock /dev/spislave 1",
               "spi rd ba", "spi rd 05", "i2c 5d rd 05 -> 00", "close /dev/i2c-1", "say ", "say ",
               "say get READ_REG command", "spi wr 00", "say After write ver,rc = 1,hd_reg = 0"}},
        Order{"STOP_ENCODE",
              {6},
              {"spi rd 06", "say ", "say ", "say get STOP_ENCODE command", "block 40 = 1",
               "status = 254"}},
        Order{
            "STOP_AUDIO",
            {7},
            {"spi rd 07", "say ", "say ", "say get STOP_AUDIO command", "fpga wr 0x0008 <- 0x0001",
             "fpga wr 0x0010 <- 0x0000", "block 48 = 1", "status = 253", "enable_audio = 1"}},
        Order{"GET_LOG_FILE1",
              {8, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5},
              {"spi rd 08",
               "say LF c",
               "file /home/tovin/temp_log1.tar.gz r",
               "file /home/tovin/temp_log1.tar.gz closed",
               "spi rd a5",
               "spi wr 00",
               "spi rd a5",
               "spi wr 00",
               "spi rd a5",
               "spi wr 00",
               "spi rd a5",
               "spi wr 02",
               "file /home/tovin/temp_log1.tar.gz r",
               "spi rd a5",
               "spi wr 61",
               "spi rd a5",
               "spi wr 62",
               "file /home/tovin/temp_log1.tar.gz closed",
               "say FIN FIN",
               "say ",
               "say 61 62 ",
               "say logfile_size = 2",
               "say END GET_LOG_FILE1 command"},
              put_logs},
        Order{"GET_LOG_FILE2",
              {13, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5},
              {"spi rd 0d",
               "say LF c",
               "file /home/tovin/temp_log2.tar.gz r",
               "file /home/tovin/temp_log2.tar.gz closed",
               "spi rd a5",
               "spi wr 00",
               "spi rd a5",
               "spi wr 00",
               "spi rd a5",
               "spi wr 00",
               "spi rd a5",
               "spi wr 01",
               "file /home/tovin/temp_log2.tar.gz r",
               "spi rd a5",
               "spi wr 63",
               "file /home/tovin/temp_log2.tar.gz closed",
               "say FIN FIN",
               "say ",
               "say 63 ",
               "say logfile_size = 1",
               "say END GET_LOG_FILE1 command"},
              put_logs},
        Order{"GET_MONITOR_FILE",
              {19, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5},
              {"spi rd 13", "say monitor.txt", "file monitor.txt r", "file monitor.txt closed",
               "spi rd a5", "spi wr 00", "spi rd a5", "spi wr 00", "spi rd a5", "spi wr 00",
               "spi rd a5", "spi wr 01", "file /home/tovin/monitor.txt r", "spi rd a5", "spi wr 64",
               "file /home/tovin/monitor.txt closed", "say FIN FIN", "say ", "say... 64 "},
              put_logs},
        // The poll that does not come ends the size, then the file.
        Order{"GET_LOG_FILE1_unpolled",
              {8},
              {"spi rd 08", "say LF c", "file /home/tovin/temp_log1.tar.gz r",
               "file /home/tovin/temp_log1.tar.gz closed",
               "say SPI: No data for XX seconds (get_byte_send_byte func)...",
               "say error send_log_file_size", "file /home/tovin/temp_log1.tar.gz r",
               "say SPI: No data for XX seconds (get_byte_send_byte func)...",
               "say error send_log_file,log_file_size = 2",
               "file /home/tovin/temp_log1.tar.gz closed", "say ", "say logfile_size = 2",
               "say END GET_LOG_FILE1 command"},
              put_logs,
              31},
        Order{"PREPARE_FPGA_REGISTERS",
              {10},
              {"spi rd 0a",
               "say get PREPARE_FPGA_REGISTERS .. ",
               "fpga wr 0x0040 <- 0x0001",
               "fpga rd 0x0044 -> 0x0000",
               "fpga rd 0x0048 -> 0x0000",
               "fpga rd 0x004c -> 0x0000",
               "fpga rd 0x0050 -> 0x0000",
               "fpga rd 0x0060 -> 0x0000",
               "fpga rd 0x0064 -> 0x0000",
               "fpga rd 0x0068 -> 0x0000",
               "fpga rd 0x006c -> 0x0000",
               "fpga rd 0x0070 -> 0x0000",
               "fpga rd 0x0080 -> 0x0000",
               "fpga rd 0x0084 -> 0x0000",
               "fpga rd 0x0088 -> 0x0000",
               "fpga rd 0x008c -> 0x0000",
               "fpga rd 0x0090 -> 0x0000",
               "fpga rd 0x0094 -> 0x0000",
               "fpga rd 0x0098 -> 0x0000",
               "fpga rd 0x1380 -> 0x0000",
               "say length=20"},
              hold},
        Order{"UPDATE_VERSION",
              {11, 0xFF, 0xFF, 0xFF, 0xFF},
              joined({{"spi rd 0b", "say get UPDATE_VERSION command", "update = 1", "block 40 = 1",
                       "spi rd ff", "wait 10", "spi rd ff", "wait 10", "spi rd ff", "wait 10",
                       "spi rd ff", "wait 10", "say f_size = -1 (ffffffff)"},
                      kUpdateRefused}),
              silence,
              4},
        Order{"NEW_UPDATE_VERSION",
              {43, 0xFF, 0xFF, 0xFF, 0xFF},
              joined({{"spi rd 2b", "say get NEW_UPDATE_VERSION command", "update = 1",
                       "block 40 = 1", "spi rd ff", "wait 10", "spi rd ff", "wait 10", "spi rd ff",
                       "wait 10", "spi rd ff", "wait 10", "say f_size = -1 (ffffffff)"},
                      kUpdateRefused}),
              silence,
              4},
        Order{
            "TEMP",
            {12},
            {"spi rd 0c", "say ", "say ", "say get TEMP command", "fpga rd 0x000c -> 0x0000",
             "say AUDIO_STATUS_REG = 0", "fpga rd 0x0214 -> 0x0000", "say P0_MPEG2_STATUS_REG = 0",
             "fpga rd 0x0234 -> 0x0000", "say P1_AC3_STATUS_REG = 0", "fpga rd 0x1384 -> 0x0000",
             "say TS_MUX_STATUS_REG = 0"},
            hold},
        Order{
            "CP_LOG_FILE",
            {14},
            {"spi rd 0e", "say get CP_LOG_FILE command",
             "system tar -cvzf temp_log1.tar.gz log1.txt = ECHILD",
             "system tar -cvzf temp_log2.tar.gz log2.txt = ECHILD", "say END CP_LOG_FILE command"},
            silence},
        Order{
            "GET_MONITOR_STATE", {15}, {"spi rd 0f", "say VANTORIG_STATE = 0 (0x0)", "spi wr 00"}},
        Order{
            "DELETE_LOGS",
            {17},
            {"spi rd 11", "say get DELETE_LOGS command", "system rm /home/tovin/log1.txt = ECHILD"},
            silence},
        Order{"SET_SPTS",
              {18, 0, 0, 0, 9},
              joined({{"spi rd 12", "say get SET_SPTS command"},
                      number("spi rd 09"),
                      {"block 100 = 9"}})},
        Order{"RESTORE_FACTORY",
              {22},
              {"spi rd 16", "say Extract the from manufacture file",
               "system tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/ = ECHILD", "wait 1000",
               "say copy file to work dir", "system chmod +x * = ECHILD",
               "system chmod +x *.* = ECHILD", "system tmp/./update.sh = ECHILD", "wait 1000",
               "system ls -l tmp/ = ECHILD"},
              silence},
        Order{"CLEAR_STATUS", {25}, {"spi rd 19", "cause = 128"}},
        Order{"GET_SW_VERSION", {28}, {"spi rd 1c", "spi wr 00", "say ver[0]=0"}},
        Order{"GET_UPDATE_RESULT_failed",
              {34},
              {"spi rd 22", "say is update passed?", "file /home/tovin/tmp/success.txt r+ = ENOENT",
               "spi wr 00", "say update failed!!"}},
        Order{"GET_UPDATE_RESULT_passed",
              {34},
              {"spi rd 22", "say is update passed?", "file /home/tovin/tmp/success.txt r+",
               "file /home/tovin/tmp/success.txt closed", "shell rm /home/tovin/tmp/success.txt",
               "spi wr 01", "say update succeed!!"},
              [](Bench& bench) { bench.put_file("tmp/success.txt", ""); }},
        // 0x004c = 0x1234: its high byte goes out.
        Order{"GET_FPS",
              {35},
              {"spi rd 23", "fpga rd 0x004c -> 0x1234", "spi wr 12", "say fps_hd_to_send[0]=12",
               "fpga rd 0x0050 -> 0x0056", "say fps msb reg = 56"},
              [](Bench& bench) {
                hold(bench);
                bench.set_fpga(0x4C, 0x1234);
                bench.set_fpga(0x50, 0x56);
              }},
        Order{"GET_REG_FILE_SIZE", {36}, {"spi rd 24", "say GET_REG_FILE_SIZE 104 "}}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
