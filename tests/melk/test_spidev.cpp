// The client over a spidev master, with the real service at the other end of the
// wire: in virtual time, with the gaps that a wire needs, on wires that are low,
// high or keep their last byte while the board has nothing to say.
#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

#include "melk/commands.h"
#include "melk/spidev_transport.h"
#include "tests/melk/fake_spidev.h"
#include "tests/melk/outcome.h"
#include "tests/service/service_bench.h"

namespace {

using melk::SpidevOptions;
using melk::SpidevTransport;
using testing::HasSubstr;
using testing::Not;

SpidevOptions at_usual_speed() {
  SpidevOptions options;
  options.device = "/dev/spidev0.0";
  return options;
}

// A service, and melk at the other end of a wire once the service is up.
class Wire : public testing::TestWithParam<IdleWire> {
 protected:
  Wire() { spidev.idle = GetParam(); }

  void talk(const std::function<void(melk::Transport&, Host&)>& script, double seconds = 600) {
    bool finished = false;
    service.run(seconds, [&](Host& host) {
      host.wait(2);
      SpidevTransport::Refusal refusal;
      const auto transport = SpidevTransport::open(at_usual_speed(), &refusal);
      ASSERT_NE(transport, nullptr) << refusal.text;
      script(*transport, host);
      finished = true;
    });
    EXPECT_TRUE(finished) << "the script did not come to its end";
  }

  ServiceBench service;
  FakeSpidev spidev;  // behind the board whose link it is at
};

std::string wire_name(const testing::TestParamInfo<IdleWire>& one) {
  constexpr const char* kNames[] = {"low", "high", "last_byte"};
  return kNames[static_cast<int>(one.param)];
}
INSTANTIATE_TEST_SUITE_P(Idle, Wire,
                         testing::Values(IdleWire::kLow, IdleWire::kHigh, IdleWire::kLastByte),
                         wire_name);

TEST_P(Wire, status_of_a_fresh_board) {
  talk([](melk::Transport& wire, Host&) {
    const Outcome outcome = run(wire, {"status"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("status 0x90  not healthy\ncause  0x80  no restart\n"));
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(run(wire, {"hd-version"}).out, "45 (0x2d)  version 2.13\n");
  });
}

TEST_P(Wire, transfers_are_single_bytes_of_8_bits_with_a_gap) {
  talk([this](melk::Transport& wire, Host&) {
    EXPECT_EQ(spidev.mode, 0);
    EXPECT_EQ(spidev.bits, 8);
    EXPECT_EQ(spidev.speed_hz, 1000000u);
    run(wire, {"status"});
    ASSERT_GT(spidev.transfers.size(), 10u);
    for (std::size_t i = 0; i < spidev.transfers.size(); ++i) {
      const FakeSpidev::Transfer& one = spidev.transfers[i];
      EXPECT_EQ(one.length, 1u);
      EXPECT_EQ(one.speed_hz, 1000000u);
      EXPECT_EQ(one.bits, 8);
      if (i > 0) {
        EXPECT_GE(one.at_us - spidev.transfers[i - 1].at_us, 10000);
      }
    }
    EXPECT_EQ(spidev.locks, 0);
  });
  EXPECT_EQ(spidev.open_count, 0);
}

TEST_P(Wire, configuration_is_downloaded_and_applied) {
  talk([this](melk::Transport& wire, Host&) {
    const Outcome outcome =
        run(wire, {"send-config", "--wait", SOURCE_DIRECTORY "/packaging/hd.ini"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("status 0x91  healthy\n")) << outcome.err;
    EXPECT_EQ(service.bench.get_file("hd.ini"), example_config());
    EXPECT_EQ(run(wire, {"input-mux"}).out, "0 (0x00)  component\n");
  });
}

// Data bytes have a smaller gap than those of a conversation.
TEST_P(Wire, file_data_is_sent_a_millisecond_apart) {
  const std::string text(300, ';');
  service.bench.put_file("send.ini", text);
  talk([&](melk::Transport& wire, Host&) {
    const std::size_t from = spidev.transfers.size();
    EXPECT_EQ(run(wire, {"send-config", service.bench.path("send.ini")}).code, 0);
    std::size_t data = 0;
    for (std::size_t i = from + 1; i < spidev.transfers.size(); ++i)
      if (spidev.transfers[i].out == ';' && spidev.transfers[i - 1].out == ';') {
        EXPECT_GE(spidev.transfers[i].at_us - spidev.transfers[i - 1].at_us, 1000);
        EXPECT_LT(spidev.transfers[i].at_us - spidev.transfers[i - 1].at_us, 10000);
        ++data;
      }
    EXPECT_EQ(data, 299u);
    wire.pause(30000000);
    EXPECT_EQ(service.bench.get_file("hd.ini"), text);
  });
}

TEST_P(Wire, busy_board_is_waited_for_and_answers_in_step) {
  service.bench.put_file("send.ini", std::string(40, ';'));
  talk([&](melk::Transport& wire, Host&) {
    run(wire, {"send-config", service.bench.path("send.ini")});
    // 3, 1, 1 and 15 s of waits in the board.
    EXPECT_EQ(run(wire, {"--timeout", "3", "status"}).code, 3);
    const Outcome outcome = run(wire, {"--timeout", "60", "status"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("status 0x9"));
    EXPECT_EQ(run(wire, {"hd-version"}).out, "45 (0x2d)  version 2.13\n");
    EXPECT_EQ(run(wire, {"input-mux"}).out, "0 (0x00)  component\n");
  });
}

// Every byte value, the version and the poll among them.
TEST_P(Wire, upload_brings_every_byte) {
  std::string archive;
  for (int i = 0; i < 600; ++i) archive += static_cast<char>(i);
  service.bench.put_file("temp_log1.tar.gz", archive);
  talk([&](melk::Transport& wire, Host&) {
    const std::string target = service.bench.path("fetched");
    const Outcome outcome = run(wire, {"log", "1", "-o", target});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(service.bench.get_file("fetched"), archive);
    EXPECT_EQ(run(wire, {"log", "2", "-o", target}).code, 1);  // there is none
    EXPECT_EQ(run(wire, {"hd-version"}).code, 0);
  });
}

TEST_P(Wire, update_is_stored_installed_and_its_result_told) {
  service.bench.put_file("update.sh", "#!/bin/sh\necho >tmp/success.txt\n");
  chmod(service.bench.path("update.sh").c_str(), 0755);
  std::string package;
  for (int i = 0; i < 1001; ++i) package += static_cast<char>(i * 7);
  service.bench.put_file("package", package);
  talk([&](melk::Transport& wire, Host&) {
    const Outcome outcome = run(wire, {"update", "--wait", service.bench.path("package")});
    EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("the update succeeded"));
    EXPECT_EQ(service.bench.get_file("tmp/new_hd_version.tar.gz"), package);
    EXPECT_EQ(run(wire, {"update-result"}).code, 1);  // reported once
  });
}

TEST_P(Wire, whole_record_and_register_of_a_chip) {
  talk([](melk::Transport& wire, Host& host) {
    const Outcome record = run(wire, {"registers", "--full", "--json"});
    EXPECT_EQ(record.code, 0) << record.err;
    EXPECT_THAT(record.out,
                HasSubstr("\"encode_ver\":0,\"hd_version\":45,\"fpga_hw_version\":279,"));
    const auto known = melk::read_reg(host.link, 0xB8, 0x14);
    char value[8];
    snprintf(value, sizeof value, "= 0x%02x", *known.value);
    EXPECT_THAT(run(wire, {"read-reg", "0xb8", "0x14"}).out, HasSubstr(value));
  });
}

TEST_P(Wire, watch_reads_again_and_again) {
  talk([](melk::Transport& wire, Host&) {
    const Outcome outcome = run(wire, {"watch", "--count", "3", "--json"});
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 3);
  });
}

TEST_P(Wire, fifo_of_the_fpga_is_out_of_reach_and_nothing_is_sent) {
  service.bench.put_file("package", "abcd");
  talk([&](melk::Transport& wire, Host&) {
    const Outcome outcome = run(wire, {"update", "--via-fpga", service.bench.path("package")});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_THAT(outcome.err, HasSubstr("not on this wire"));
    EXPECT_TRUE(spidev.transfers.empty());
  });
}

// The questions fall into an upload that somebody else has left.
TEST_P(Wire, upload_of_another_host_is_recognised) {
  std::string archive;
  for (int i = 0; i < 5000; ++i) archive += static_cast<char>(i * 7 + i / 251);
  service.bench.put_file("temp_log1.tar.gz", archive);
  talk([](melk::Transport& wire, Host& host) {
    for (const int byte : {8, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5}) host.send({byte});
    host.take();
    const Outcome outcome = run(wire, {"status"});
    EXPECT_EQ(outcome.code, 1) << outcome.out;
    EXPECT_THAT(outcome.err, HasSubstr("in the middle of an upload"));
    wire.pause(16000000);  // a silence of 15 s ends it
    EXPECT_EQ(run(wire, {"status"}).code, 0);
  });
}

// Every other byte of the file looks like the version.
TEST_P(Wire, version_in_an_upload_deceives_nobody) {
  std::string archive;
  for (int i = 0; i < 2500; ++i) archive += "x-";
  service.bench.put_file("temp_log1.tar.gz", archive);
  talk([](melk::Transport& wire, Host& host) {
    for (const int byte : {8, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5}) host.send({byte});
    host.take();
    EXPECT_EQ(run(wire, {"status"}).code, 1);
  });
}

TEST_P(Wire, without_a_board_it_is_silent) {
  service.bench.beside("host", [] {
    SpidevTransport::Refusal refusal;
    const auto wire = SpidevTransport::open(at_usual_speed(), &refusal);
    ASSERT_NE(wire, nullptr);
    const std::int64_t start_us = wire->now_us();
    const Outcome outcome = run(*wire, {"hd-version"});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_THAT(outcome.err, HasSubstr("for 20 s nobody answered GET_HD_VERSION on the wire"));
    EXPECT_NEAR(static_cast<double>(wire->now_us() - start_us) / 1e6, 20, 1);
  });
  service.bench.run_for(60000000, [] { vboard::board_wait(vboard::WaitFor::kNothing, 50000000); });
}

TEST_P(Wire, broken_transfer_is_told_as_such) {
  talk([this](melk::Transport& wire, Host&) {
    spidev.transfer_error = EIO;
    const Outcome outcome = run(wire, {"status"});
    EXPECT_EQ(outcome.code, 3);
    EXPECT_THAT(outcome.err, HasSubstr("melk: status: /dev/spidev0.0: a transfer at 1000000 Hz "
                                       "failed: Input/output error\nmelk: hint: "));
  });
}

// ---- devices that do not serve ---------------------------------------------------------
struct RefusalCase {
  const char* name;
  void (*spoil)(FakeSpidev&);
  const char* text;
  const char* hint;
};

class SpidevRefusal : public testing::TestWithParam<RefusalCase> {};

TEST_P(SpidevRefusal, says_why_and_what_to_do) {
  FakeSpidev spidev;
  GetParam().spoil(spidev);
  SpidevTransport::Refusal refusal;
  EXPECT_EQ(SpidevTransport::open(at_usual_speed(), &refusal), nullptr);
  EXPECT_EQ(refusal.text, std::string("/dev/spidev0.0: ") + GetParam().text);
  EXPECT_THAT(refusal.hint, HasSubstr(GetParam().hint));
  EXPECT_EQ(spidev.open_count, 0);
  EXPECT_TRUE(spidev.transfers.empty());
}

INSTANTIATE_TEST_SUITE_P(
    each, SpidevRefusal,
    testing::Values(RefusalCase{"no_device", [](FakeSpidev& one) { one.open_error = ENOENT; },
                                "No such file or directory", "ls /dev/spidev*"},
                    RefusalCase{"not_permitted", [](FakeSpidev& one) { one.open_error = EACCES; },
                                "Permission denied", "ls -l /dev/spidev0.0"},
                    RefusalCase{"busy", [](FakeSpidev& one) { one.open_error = EBUSY; },
                                "Device or resource busy", "another program"},
                    RefusalCase{"wrong_device", [](FakeSpidev& one) { one.is_spi = false; },
                                "not an SPI device", "driver spidev"},
                    RefusalCase{"mode", [](FakeSpidev& one) { one.most_modes = 0; },
                                "refuses mode 0: Invalid argument", "clock mode"},
                    RefusalCase{"speed", [](FakeSpidev& one) { one.highest_hz = 500000; },
                                "refuses 1000000 Hz: Invalid argument", "lower --speed"}),
    [](const auto& one) { return std::string(one.param.name); });

}  // namespace
