// The scenarios of the sweep.
#include "tests/sweep/scenarios.h"

using vboard::Bench;

namespace {

Scenario command(const std::string& name, std::vector<std::string> arguments, double limit_s) {
  Scenario one;
  one.name = name;
  one.limit_s = limit_s;
  one.arguments = std::move(arguments);
  return one;
}

Scenario endless(Scenario one) {
  one.endless = true;
  return one;
}

Scenario leaving(Scenario one, int handles) {
  one.extra_handles = handles;
  return one;
}

// Three tries of the firmware push, each of which leaves its device and two line
// streams open.
Scenario load_firmware() {
  Scenario one = command("loadbf", {"-loadbf"}, 60);
  one.may_exit = true;
  one.extra_handles = 9;
  one.prepare = [](Bench& bench) {
    bench.world("fault dsp-no-firmware");
    bench.put_file("MELK_spi.bin", std::string(200, 'x'));
  };
  return one;
}

Scenario bitstream() {
  Scenario one = leaving(command("bitstream", {"-f=stream.rbf"}, 5), 2);
  one.prepare = [](Bench& bench) { bench.put_file("stream.rbf", std::string(40, 'b')); };
  return one;
}

Scenario served(const std::string& name, double limit_s, std::function<void(Host&)> host) {
  Scenario one;
  one.name = name;
  one.limit_s = limit_s;
  one.endless = true;
  one.extra_handles = 8;
  one.host = std::move(host);
  return one;
}

void configure(Host& host) {
  host.wait(2);
  host.send_config(example_config());
  host.wait(45);
}

// A configured board meets a world operation and is left alone with it; the calls
// that fail are those of the restart that follows, its re-apply included.
Scenario disturbed(const std::string& name, const std::string& operation, const std::string& undo) {
  Scenario one = served("restart_" + name, 220, [operation, undo](Host& host) {
    host.world(operation);
    host.wait(20);
    if (!undo.empty()) host.world(undo);
    host.wait(60);
  });
  one.before = configure;
  return one;
}

std::vector<Scenario> make() {
  std::vector<Scenario> all = {
      command("rdreg", {"-rdreg", "4"}, 1),
      command("wrreg", {"-wrreg", "4", "5"}, 1),
      command("gpio", {"-gpio", "26"}, 1),
      command("offset", {"-offset", "3", "4"}, 5),
      command("bf_rw_read", {"-bf_rw", "1", "2"}, 1),
      command("bf_rw_write", {"-bf_rw", "0", "2", "3"}, 1),
      command("ipiperw", {"-ipiperw", "0", "16", "32"}, 1),
      command("isifrw", {"-isifrw", "0", "16", "32"}, 1),
      command("5150rw", {"-5150rw", "1", "0x88"}, 1),
      command("vblk_rw", {"-vblk_rw", "1", "0x14"}, 1),
      command("vblk_test", {"-vblk_test"}, 1),
      command("wr", {"-wr", "5"}, 1),
      command("i2c_bf", {"-i2c_bf", "5"}, 5),
      command("i2c_bf_st", {"-i2c_bf_st"}, 5),
      command("rdver_bf", {"-rdver_bf"}, 1),
      command("rdstat_bf", {"-rdstat_bf"}, 1),
      command("7353", {"-7353"}, 1),
      command("blk", {"-blk"}, 5),
      endless(command("aablk", {"-aablk"}, 0.05)),
      command("i2c", {"-i2c", "0xB8", "0x14", "1", "2"}, 5),
      command("7002", {"-7002"}, 5),
      command("4192", {"-4192"}, 5),
      command("reg", {"-reg"}, 1),
      endless(command("pll", {"-pll"}, 0.05)),
      endless(command("5150", {"-5150"}, 6)),
      command("restor", {"-restor"}, 5),
      load_firmware(),
      bitstream(),
      served("service_start", 10, [](Host& host) { host.wait(9); }),
      served("configuration", 60, [](Host& host) { configure(host); }),
      served("questions", 30,
             [](Host& host) {
               host.wait(2);
               for (const int code : {1,  3,  3,  3,  10, 9, 9, 12, 15, 28, 28, 28, 32,
                                      33, 34, 35, 35, 36, 0, 6, 7,  14, 17, 25, 99})
                 host.ask(code);
               host.send({5, 0xB8, 0x14});
               host.send({18, 0, 0, 0, 7});
               host.send({4, '2', '0', '1', '1', '2', '6', '1', '2', '0', '0', '0', '0'});
             }),
      served("upload", 60,
             [](Host& host) {
               host.wait(2);
               host.send({8});
               for (int polls = 0; polls < 12; ++polls) host.send({0xA5});
               host.wait(40);
             }),
      served("update", 30,
             [](Host& host) {
               host.wait(2);
               // The data are no command's codes: unwanted, they are read as commands.
               host.send({11, 0, 0, 0, 5, 99, 99, 99, 99, 99});
               host.wait(10);
             }),
      disturbed("input_back", "source none", "source component"),
      disturbed("stalled", "fault stall", "fault stall off"),
      disturbed("video_overflow", "fault video-overflow", "fault video-overflow off"),
      disturbed("crash", "encode crash", ""),
  };
  return all;
}

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = make();
  return all;
}
