// Every command code, on the link of a running service: bytes, output, actions.
#include <gmock/gmock.h>

#include <sys/resource.h>
#include <sys/select.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "hostlink/dispatcher.h"
#include "hw/fpga_registers.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "tests/service/host_talk.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vboard::Bench;
using vboard::seam::fail_call;

// The block by byte offset, as the processes beside the service see it.
std::int32_t shared_word(std::size_t offset) {
  std::int32_t value = 0;
  memcpy(&value, reinterpret_cast<const char*>(shared_memory) + offset, sizeof value);
  return value;
}
void set_shared_word(std::size_t offset, std::uint32_t value) {
  memcpy(reinterpret_cast<char*>(shared_memory) + offset, &value, sizeof value);
}

// Nothing came of a command.
void expect_nothing(const Heard& heard) {
  EXPECT_THAT(heard.answer, IsEmpty());
  EXPECT_EQ(heard.printed, "");
  EXPECT_THAT(heard.actions, IsEmpty());
}

// Registers that read as they were written, and the FPGA's own values gone.
void hold_registers(Bench& bench) { bench.board().fpga.held = true; }

// ---- ignored codes --------------------------------------------------------------

TEST(HostCommand, ignored_codes_change_and_answer_nothing) {
  talk([](Talk& host) {
    std::vector<int> ignored;
    for (int code = 0; code <= 255; ++code)
      if (find_host_command(static_cast<std::uint8_t>(code)) == nullptr) ignored.push_back(code);
    const std::vector<char> block(reinterpret_cast<const char*>(shared_memory),
                                  reinterpret_cast<const char*>(shared_memory) + kSharedSize);
    for (const int code : ignored) {
      SCOPED_TRACE(code);
      expect_nothing(host.say({code}));
    }
    EXPECT_EQ(memcmp(block.data(), shared_memory, block.size()), 0);
    EXPECT_EQ(global_status, 0x90);
    EXPECT_EQ(status_vantorig, 0x80);
    EXPECT_EQ(SystemOnUpdate, 0);
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));  // the link still serves
  });
}

// ---- 0, 1, 3 -----------------------------------------------------------------------

TEST(HostCommand, keep_alive_says_nothing_however_often) {
  talk([](Talk& host) {
    for (int i = 0; i < 65; ++i) expect_nothing(host.say({0}, 0.01));
  });
}

TEST(HostCommand, get_hd_version) {
  talk([](Talk& host) {
    const Heard heard = host.say({1});
    EXPECT_THAT(heard.answer, ElementsAre(0x2D));
    EXPECT_EQ(heard.printed, "get GET_HD_VERSION command,hd_version = 2.13\n");
    EXPECT_THAT(heard.actions, IsEmpty());
  });
}

TEST(HostCommand, get_status_gives_three_bytes_in_turn) {
  talk([](Talk& host) {
    global_status = 0x96;
    status_vantorig = 0x83;
    fpga_monitor_flags = 0x2C;
    for (int round = 0; round < 2; ++round)
      for (const int byte : {0x96, 0x83, 0x2C}) {
        const Heard heard = host.say({3});
        EXPECT_THAT(heard.answer, ElementsAre(byte));
        EXPECT_EQ(heard.printed, "");
      }
  });
}

TEST(HostCommand, get_status_keeps_the_later_bytes_of_its_first_call) {
  talk([](Talk& host) {
    global_status = 0x96;
    status_vantorig = 0x83;
    fpga_monitor_flags = 0x2C;
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x96));
    global_status = 0x91;
    status_vantorig = 0x87;
    fpga_monitor_flags = 0x10;
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x83));
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x2C));
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x91));
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x87));
  });
}

TEST(HostCommand, get_status_keeps_its_step_between_other_commands) {
  talk([](Talk& host) {
    status_vantorig = 0x83;
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x90));
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
    host.say({25});  // clears the status itself, not the bytes on their way
    EXPECT_THAT(host.say({3}).answer, ElementsAre(0x83));
  });
}

TEST(HostCommand, get_status_with_a_wrong_size_begins_with_0x9e) {
  talk([](Talk& host) {
    wrong_size_flag = 1;
    global_status = 0x91;
    for (int round = 0; round < 3; ++round)
      for (const int byte : {0x9E, 0x80, 0x00})
        EXPECT_THAT(host.say({3}).answer, ElementsAre(byte));
  });
}

// ---- 4 ---------------------------------------------------------------------------------

std::vector<int> send_rtc(const std::string& text) {
  std::vector<int> bytes = {4};
  for (const char c : text) bytes.push_back(static_cast<unsigned char>(c));
  return bytes;
}

TEST(HostCommand, send_rtc_leaves_the_clock_text) {
  talk([](Talk& host) {
    set_shared_word(76, 0x7A7A7A7A);  // 76 takes the terminator; 77 to 79 are not its
    const Heard heard = host.say(send_rtc("112026194500"));
    EXPECT_EQ(heard.printed, "get SEND_RTC command\nclk_from_melk = 112026194500\n");
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_THAT(heard.actions, IsEmpty());
    EXPECT_STREQ(reinterpret_cast<const char*>(shared_memory) + 64, "112026194500");
    EXPECT_EQ(shared_word(76), 0x7A7A7A00);
  });
}

TEST(HostCommand, send_rtc_text_ends_at_a_zero_byte_but_all_twelve_are_taken) {
  talk([](Talk& host) {
    host.say(send_rtc("XXXXXXXXXXXX"));
    // Behind the zero come codes that would be answered if they were commands.
    const Heard heard = host.say(send_rtc(std::string("ab\0\1\1\1\1\1\1\1\1\1", 12)));
    EXPECT_EQ(heard.printed, "get SEND_RTC command\nclk_from_melk = ab\n");
    EXPECT_THAT(heard.answer, IsEmpty());
    // The rest of the older text stays behind the new end.
    EXPECT_EQ(memcmp(reinterpret_cast<const char*>(shared_memory) + 64, "ab\0XXXXXXXXX\0", 13), 0);
  });
}

TEST(HostCommand, send_rtc_with_a_zero_first_is_an_empty_text) {
  talk([](Talk& host) {
    EXPECT_EQ(host.say(send_rtc(std::string(12, '\0'))).printed,
              "get SEND_RTC command\nclk_from_melk = \n");
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

TEST(HostCommand, send_rtc_waits_for_the_rest_of_its_bytes) {
  talk([](Talk& host) {
    EXPECT_EQ(host.say(send_rtc("1120"), 31).printed,
              "SPI: No data for XX seconds...\nSPI: No data for XX seconds...\n");
    const Heard heard = host.say({'2', '6', '1', '9', '4', '5', '0', '0'});
    EXPECT_EQ(heard.printed, "get SEND_RTC command\nclk_from_melk = 112026194500\n");
  });
}

// ---- 5 -----------------------------------------------------------------------------------

struct ReadRegCase {
  const char* name;
  std::function<void(Bench&)> prepare;
  std::vector<int> bytes;
  int answer;
  std::string printed;
};

class HostReadReg : public testing::TestWithParam<ReadRegCase> {};

TEST_P(HostReadReg, answers_the_low_byte_of_its_result) {
  const ReadRegCase& given = GetParam();
  talk([&given](Talk& host) {
    given.prepare(host.bench);
    const Heard heard = host.say(given.bytes);
    EXPECT_THAT(heard.answer, ElementsAre(given.answer));
    EXPECT_EQ(heard.printed, given.printed);
  });
}

// 0xB8 is the digitizer at 0x5C in 8-bit form; 0xF6 is 0x7B, which the bus reserves: no
// chip is ever there.
INSTANTIATE_TEST_SUITE_P(
    HostCommand, HostReadReg,
    testing::Values(ReadRegCase{"register",
                                [](Bench& bench) { bench.board().tvp7002.reg[0x37] = 0x5A; },
                                {5, 0xB8, 0x37},
                                0x5A,
                                "\n\nget READ_REG command\nAfter write ver,rc = 1,hd_reg = 5a\n"},
                    ReadRegCase{"no_bus",
                                [](Bench& bench) { bench.world("fault missing i2c"); },
                                {5},
                                0xFF,
                                "Cannot access I2C device2 \n\n\nget READ_REG command\n"
                                "After write ver,rc = 1,hd_reg = ff\n"},
                    ReadRegCase{"no_second_link",
                                [](Bench&) { fail_call("fopen", "/dev/spislave", 0, 1, EMFILE); },
                                {5},
                                0xFE,
                                "Cannot access SPI port (/dev/spislave)\n\n\nget READ_REG command\n"
                                "After write ver,rc = 1,hd_reg = fe\n"},
                    ReadRegCase{"no_chip",
                                [](Bench&) {},
                                {5, 0xF6, 0x1F},
                                0xFD,
                                "Error i2c_readbyte2\n\n\nget READ_REG command\n"
                                "After write ver,rc = 1,hd_reg = fd\n"},
                    // The loop waits for its command already: the next select is read_reg's.
                    ReadRegCase{"select_error",
                                [](Bench&) { fail_call("select", "", 0, 1, EBADF); },
                                {5},
                                0x00,
                                "SPI: select error\n\n\nget READ_REG command\n"
                                "After write ver,rc = 1,hd_reg = 0\n"}),
    [](auto& test) { return test.param.name; });

TEST(HostCommand, read_reg_reads_the_chip_that_its_bytes_name) {
  talk([](Talk& host) {
    EXPECT_THAT(host.say({5, 0xF6, 0x1F}).actions,
                ElementsAre("open /dev/i2c-1", "open /dev/spislave r+b", "nonblock /dev/spislave 1",
                            "i2c 7b rd 1f = EREMOTEIO"));
  });
}

TEST(HostCommand, read_reg_leaves_a_stream_behind_and_goes_on_working) {
  talk([](Talk& host) {
    for (int i = 1; i <= 20; ++i) {
      host.bench.board().tvp7002.reg[0x37] = static_cast<std::uint8_t>(i);
      EXPECT_THAT(host.say({5, 0xB8, 0x37}).answer, ElementsAre(i));
    }
    int streams = 0;
    for (const std::string& one : vboard::lines(vboard::seam::open_handles()))
      streams += one == "/dev/spislave" ? 1 : 0;
    EXPECT_EQ(streams, 1 + 20);
  });
}

// Each leaves a handle open; the thousandth comes to where a descriptor set ends.
TEST(HostCommand, read_reg_goes_on_behind_the_thousandth_time) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = limit.rlim_max;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  talk([](Talk& host) {
    for (int i = 1; i <= 1100; ++i) {
      host.bench.board().tvp7002.reg[0x37] = static_cast<std::uint8_t>(i);
      ASSERT_THAT(host.say({5, 0xB8, 0x37}).answer, ElementsAre(i & 0xFF)) << i;
    }
    EXPECT_GT(open_files(), FD_SETSIZE);
    EXPECT_THAT(host.say({1}).answer, ElementsAre(0x2D));
  });
}

// ---- 6, 7 ------------------------------------------------------------------------------

TEST(HostCommand, stop_encode_holds_encode_and_clears_its_bit) {
  talk([](Talk& host) {
    global_status = 0xFF;
    set_shared_word(40, 0);
    const Heard heard = host.say({6});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "\n\nget STOP_ENCODE command\n");
    EXPECT_THAT(heard.actions, IsEmpty());
    EXPECT_EQ(shared_word(40), 1);
    EXPECT_EQ(global_status, 0xFE);
  });
}

TEST(HostCommand, stop_audio_mutes_and_clears_its_bit) {
  talk([](Talk& host) {
    global_status = 0xFF;
    set_shared_word(48, 0x22222200);
    const Heard heard = host.say({7});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "\n\nget STOP_AUDIO command\n");
    EXPECT_THAT(heard.actions, ElementsAre("fpga wr 0x0008 <- 0x0001", "fpga wr 0x0010 <- 0x0000"));
    EXPECT_EQ(shared_word(48), 0x22222201);  // one byte
    EXPECT_EQ(enable_audio, 1);
    EXPECT_EQ(global_status, 0xFD);
  });
}

// ---- 12, 14, 15, 17, 18 ------------------------------------------------------------------

TEST(HostCommand, temp_prints_four_registers) {
  talk([](Talk& host) {
    hold_registers(host.bench);
    host.bench.set_fpga(0x0C, 11);
    host.bench.set_fpga(0x214, 65535);  // printed without sign
    host.bench.set_fpga(0x234, 33);
    host.bench.set_fpga(0x1384, 44);
    const Heard heard = host.say({12});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed,
              "\n\nget TEMP command\n"
              "AUDIO_STATUS_REG = 11\n"
              "P0_MPEG2_STATUS_REG = 65535\n"
              "P1_AC3_STATUS_REG = 33\n"
              "TS_MUX_STATUS_REG = 44\n");
    EXPECT_THAT(heard.actions, ElementsAre("fpga rd 0x000c -> 0x000b", "fpga rd 0x0214 -> 0xffff",
                                           "fpga rd 0x0234 -> 0x0021", "fpga rd 0x1384 -> 0x002c"));
  });
}

TEST(HostCommand, cp_log_file_packs_both_logs) {
  talk([](Talk& host) {
    fail_call("system", "tar", 0, -1, ECHILD);
    const Heard heard = host.say({14});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "get CP_LOG_FILE command\nEND CP_LOG_FILE command\n");
    EXPECT_THAT(heard.actions, ElementsAre("system tar -cvzf temp_log1.tar.gz log1.txt = ECHILD",
                                           "system tar -cvzf temp_log2.tar.gz log2.txt = ECHILD"));
  });
}

TEST(HostCommand, cp_log_file_leaves_two_archives) {
  talk([](Talk& host) {
    host.bench.put_file("log1.txt", "one");
    host.bench.put_file("log2.txt", "two");
    host.say({14});
    EXPECT_TRUE(host.bench.has_file("temp_log1.tar.gz"));
    EXPECT_TRUE(host.bench.has_file("temp_log2.tar.gz"));
  });
}

TEST(HostCommand, get_monitor_state_prints_and_answers_it) {
  talk([](Talk& host) {
    monitor_state = 0xA3;  // the service copies it each cycle of half a second
    host.host.wait(1);
    const Heard heard = host.say({15});
    EXPECT_THAT(heard.answer, ElementsAre(0xA3));
    EXPECT_EQ(heard.printed, "VANTORIG_STATE = 163 (0xa3)\n");
  });
}

TEST(HostCommand, delete_logs_keeps_log_2) {
  talk([](Talk& host) {
    host.bench.put_file("log1.txt", "one");
    host.bench.put_file("log2.txt", "two");
    const Heard heard = host.say({17});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "get DELETE_LOGS command\n");
    EXPECT_THAT(heard.actions, ElementsAre("shell rm /home/tovin/log1.txt"));
    EXPECT_FALSE(host.bench.has_file("log1.txt"));
    EXPECT_TRUE(host.bench.has_file("log2.txt"));
  });
}

TEST(HostCommand, set_spts_stores_a_big_endian_number) {
  talk([](Talk& host) {
    const Heard heard = host.say({18, 0x12, 0x34, 0x56, 0x78});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "get SET_SPTS command\n");
    EXPECT_THAT(heard.actions, ElementsAre("wait 10", "wait 10", "wait 10", "wait 10"));
    EXPECT_EQ(shared_word(100), 0x12345678);
  });
}

TEST(HostCommand, set_spts_after_a_select_error_is_0) {
  talk([](Talk& host) {
    host.say({18, 0x12, 0x34, 0x56, 0x78});
    fail_call("select", "", 0, 1, EBADF);
    EXPECT_EQ(host.say({18}).printed, "get SET_SPTS command\nSPI: select error\n");
    EXPECT_EQ(shared_word(100), 0);
  });
}

// ---- 22, 25 -----------------------------------------------------------------------------

TEST(HostCommand, restore_factory_runs_the_factory_script) {
  talk([](Talk& host) {
    fail_call("system", "", 0, -1, ECHILD);
    const Heard heard = host.say({22});
    EXPECT_THAT(heard.answer, IsEmpty());
    EXPECT_EQ(heard.printed, "Extract the from manufacture file\ncopy file to work dir\n");
    EXPECT_THAT(
        heard.actions,
        ElementsAre("system tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/ = ECHILD",
                    "wait 1000", "system chmod +x * = ECHILD", "system chmod +x *.* = ECHILD",
                    "system tmp/./update.sh = ECHILD", "wait 1000", "system ls -l tmp/ = ECHILD"));
  });
}

TEST(HostCommand, clear_status_forgets_the_cause) {
  talk([](Talk& host) {
    status_vantorig = 0x87;
    expect_nothing(host.say({25}));
    EXPECT_EQ(status_vantorig, 0x80);
  });
}

// ---- 28, 35 -------------------------------------------------------------------------------

// Steps of GET_SW_VERSION (28) and GET_FPS (35), which share one counter.
struct Step {
  int code;
  std::vector<int> answer;
  std::string printed;
};

// VS_RATE holds 0x1234 low and 0x5678 high here; the version text is 1.12.3.
const Step kVersion0 = {28, {1}, "ver[0]=1\n"};
const Step kVersion1 = {28, {12}, "ver[1]=12\n"};
const Step kVersion2 = {28, {3}, "ver[2]=3\n"};
const Step kFps0 = {35, {0x12}, "fps_hd_to_send[0]=12\nfps msb reg = 5678\n"};
const Step kFps1 = {35, {0x34}, "fps_hd_to_send[1]=34\nfps lsb reg = 1234\n"};
const Step kFpsNone = {35, {}, ""};

struct Sequence {
  const char* name;
  std::vector<Step> steps;
};

class SharedCounter : public testing::TestWithParam<Sequence> {};

TEST_P(SharedCounter, goes_on_from_command_to_command) {
  talk(
      [](Talk& host) {
        hold_registers(host.bench);
        host.bench.set_fpga(kRegVsRateLow, 0x1234);
        host.bench.set_fpga(kRegVsRateHigh, 0x5678);
        host.say({10});  // the version bytes come with a snapshot
        for (const Step& step : GetParam().steps) {
          const Heard heard = host.say({step.code});
          EXPECT_EQ(heard.answer, step.answer);
          EXPECT_EQ(heard.printed, step.printed);
        }
      },
      600, [](Bench& bench) { bench.put_file("version.ini", "1.12.3\nsecond line\n"); });
}

INSTANTIATE_TEST_SUITE_P(
    HostCommand, SharedCounter,
    testing::Values(
        Sequence{"versions", {kVersion0, kVersion1, kVersion2, kVersion0, kVersion1, kVersion2}},
        Sequence{"frame_rates", {kFps0, kFps1, kFps0, kFps1}},
        // The counter stands at 1 behind one version byte: the low byte is answered.
        Sequence{"one_version_skips_the_high_byte", {kVersion0, kFps1, kFps0}},
        Sequence{"two_versions_silence_the_frame_rate",
                 {kVersion0, kVersion1, kFpsNone, kFpsNone, kVersion2, kFps0}},
        Sequence{"high_byte_skips_a_version", {kFps0, kVersion1, kVersion2, kVersion0}}),
    [](auto& test) { return test.param.name; });

TEST(HostCommand, get_fps_reads_one_register_and_prints_beside_it_the_other) {
  talk([](Talk& host) {
    hold_registers(host.bench);
    EXPECT_THAT(host.say({35}).actions,
                ElementsAre("fpga rd 0x004c -> 0x0000", "fpga rd 0x0050 -> 0x0000"));
    EXPECT_THAT(host.say({35}).actions,
                ElementsAre("fpga rd 0x004c -> 0x0000", "fpga rd 0x004c -> 0x0000"));
  });
}

// The low byte that is sent and the print beside it are two readings.
TEST(HostCommand, get_fps_reads_the_low_register_again_for_its_print) {
  talk([](Talk& host) {
    hold_registers(host.bench);
    host.bench.set_fpga(kRegVsRateLow, 0x1234);
    host.say({35});
    fail_call("ioctl", "/dev/fpga 16", 1, 1, EIO);
    const Heard heard = host.say({35});
    EXPECT_THAT(heard.answer, ElementsAre(0x34));
    EXPECT_EQ(heard.printed, "fps_hd_to_send[1]=34\nfps lsb reg = 0\n");
  });
}

TEST(HostCommand, get_sw_version_before_any_snapshot_is_0) {
  talk(
      [](Talk& host) {
        for (int group = 0; group < 3; ++group)
          EXPECT_THAT(host.say({28}).answer, ElementsAre(0)) << group;
      },
      600, [](Bench& bench) { bench.put_file("version.ini", "1.12.3\n"); });
}

struct VersionFile {
  const char* name;
  const char* content;
  int bytes[3];
};

class HostVersionFile : public testing::TestWithParam<VersionFile> {};

TEST_P(HostVersionFile, is_answered_in_three_bytes) {
  talk(
      [](Talk& host) {
        host.say({10});
        for (const int byte : GetParam().bytes)
          EXPECT_THAT(host.say({28}).answer, ElementsAre(byte));
      },
      600, [](Bench& bench) { bench.put_file("version.ini", GetParam().content); });
}

INSTANTIATE_TEST_SUITE_P(
    HostCommand, HostVersionFile,
    testing::Values(VersionFile{"usual", "1.12.3\n", {1, 12, 3}},
                    VersionFile{"three_digits", "123.4.5\n", {3, 4, 5}},
                    VersionFile{"empty", "", {0, 0, 0}}, VersionFile{"letter", "v1\n", {0, 0, 0}},
                    VersionFile{"no_line_end", "4.5.6", {4, 5, 6}},
                    VersionFile{"nineteen_characters", "12.34.56.78.90.1234\n", {12, 34, 56}}),
    [](auto& test) { return test.param.name; });

// ---- 32, 33, 34, 36 --------------------------------------------------------------------------

TEST(HostCommand, get_shared_status_is_byte_12_of_the_block) {
  talk([](Talk& host) {
    set_shared_word(12, 0x11223344);
    const Heard heard = host.say({32});
    EXPECT_THAT(heard.answer, ElementsAre(0x44));
    EXPECT_EQ(heard.printed, "");
  });
}

TEST(HostCommand, get_input_mux_is_the_low_byte_of_the_channel) {
  talk([](Talk& host) {
    SetInputMuxCH = 0x1234;
    const Heard heard = host.say({33});
    EXPECT_THAT(heard.answer, ElementsAre(0x34));
    EXPECT_EQ(heard.printed, "");
  });
}

TEST(HostCommand, get_update_result_tells_a_success_once) {
  talk([](Talk& host) {
    host.bench.put_file("tmp/success.txt", "");
    const Heard first = host.say({34});
    EXPECT_THAT(first.answer, ElementsAre(1));
    EXPECT_EQ(first.printed, "is update passed?\nupdate succeed!!\n");
    const Heard second = host.say({34});
    EXPECT_THAT(second.answer, ElementsAre(0));
    EXPECT_EQ(second.printed, "is update passed?\nupdate failed!!\n");
  });
}

// ---- the LED, and the end of the link ----------------------------------------------------------

TEST(HostCommand, led_changes_with_every_command) {
  talk([](Talk& host) {
    host.bench.trace();
    for (int i = 0; i < 4; ++i) host.host.send({0});
    host.host.wait(0.1);
    // The start-up showed the first of the two.
    EXPECT_THAT(host.bench.trace({"fpga led"}),
                ElementsAre("fpga led 86", "fpga led 83", "fpga led 86", "fpga led 83"));
  });
}

TEST(HostCommand, failing_led_ends_the_link_but_not_the_service) {
  talk([](Talk& host) {
    fail_call("ioctl", "/dev/fpga 86", 0, -1, EIO);
    EXPECT_EQ(host.say({0}).printed, "Error -1 in IOCTL - LED\n");
    monitor_state = 1;
    host.host.wait(1);
    EXPECT_EQ(global_monitor_state, 1);  // the supervision goes on
    EXPECT_THAT(host.bench.trace({"wait 500000"}), testing::Not(IsEmpty()));
    host.bench.board().link.to_board.head++;  // nobody takes this byte
    expect_nothing(host.hear(20));
  });
}

TEST(HostCommand, select_error_in_the_loop_ends_the_link) {
  talk([](Talk& host) {
    // The wait under way is not touched; the one behind this command fails.
    fail_call("select", "", 0, 1, EBADF);
    EXPECT_EQ(host.say({0}).printed, "SPI: select error\n");
    host.bench.board().link.to_board.head++;
    expect_nothing(host.hear(20));
  });
}

}  // namespace
