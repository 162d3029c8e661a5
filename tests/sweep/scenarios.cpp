// The scenarios of the sweep: every option, every host command, every cause of a
// restart, the re-apply after it, and the operations that no option reaches. An
// option or command of the tables that has none of its own is run alone.
#include "tests/sweep/scenarios.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>

#include "app/command_line.h"
#include "diag/fpga_bench.h"
#include "diag/spi_bench.h"
#include "diag/tvp5150_bench.h"
#include "hostlink/dispatcher.h"
#include "hw/bitstream.h"
#include "hw/gpio.h"
#include "hw/shared_memory_davinci.h"
#include "state/service_flags.h"
#include "supervision/supervisor.h"
#include "video/capture.h"
#include "video/tvp7002.h"

using vboard::Bench;

namespace {

using Settings = std::vector<std::pair<std::string, int>>;

// ---- bench commands ------------------------------------------------------------

Scenario command(const std::string& name, std::vector<std::string> arguments, double limit_s) {
  Scenario one;
  one.name = name;
  one.limit_s = limit_s;
  one.arguments = std::move(arguments);
  return one;
}

Scenario operation(const std::string& name, double limit_s, std::function<void()> call) {
  Scenario one;
  one.name = name;
  one.limit_s = limit_s;
  one.call = std::move(call);
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

Scenario prepared(Scenario one, std::function<void(Bench&)> prepare) {
  one.prepare = std::move(prepare);
  return one;
}

constexpr int kFirmwareFileMissing = 1;
constexpr int kFirmwareNoMemory = 2;
constexpr int kFirmwareReadFailed = 3;

// The push keeps its device open, or the firmware that it could not read. The process ends itself
// when it has no firmware to push.
Scenario load_firmware(const std::string& name, const std::string& fault) {
  Scenario one = command(name, {"-loadbf"}, 60);
  one.ends = {kFirmwareFileMissing, kFirmwareNoMemory, kFirmwareReadFailed};
  one.extra_handles = 1;
  one.prepare = [fault](Bench& bench) {
    if (!fault.empty()) bench.world(fault);
    bench.put_file("MELK_spi.bin", std::string(200, 'x'));
  };
  return one;
}

Scenario with_bitstream(Scenario one, std::size_t size) {
  return prepared(std::move(one),
                  [size](Bench& bench) { bench.put_file("stream.rbf", std::string(size, 'b')); });
}

// Two million requests that are all alike; a pass that takes no time divides by zero.
Scenario block_speed() {
  Scenario one = command("perf", {"-perf"}, 1000);
  one.at_most = 40;
  one.ends = {128 + SIGFPE};
  return one;
}

void add_bench_commands(std::vector<Scenario>* all) {
  const auto add = [all](Scenario one) { all->push_back(std::move(one)); };
  add(command("help", {"-help"}, 1));
  add(command("ts", {"-ts", "1", "2"}, 1));
  add(command("rdreg", {"-rdreg", "4"}, 1));
  add(command("wrreg", {"-wrreg", "4", "5"}, 1));
  add(command("gpio", {"-gpio", "26"}, 1));
  add(command("offset", {"-offset", "3", "4"}, 5));
  add(command("bf_rw_read", {"-bf_rw", "1", "2"}, 1));
  add(command("bf_rw_write", {"-bf_rw", "0", "2", "3"}, 1));
  add(command("ipiperw_write", {"-ipiperw", "0", "16", "32"}, 1));
  add(command("ipiperw_read", {"-ipiperw", "1", "16"}, 1));
  add(command("isifrw_write", {"-isifrw", "0", "16", "32"}, 1));
  add(command("isifrw_read", {"-isifrw", "1", "16"}, 1));
  add(command("5150rw_read", {"-5150rw", "1", "0x88"}, 1));
  add(command("5150rw_write", {"-5150rw", "0", "0x88", "1"}, 1));
  add(command("vblk_rw_read", {"-vblk_rw", "1", "0x14"}, 1));
  add(command("vblk_rw_write", {"-vblk_rw", "0", "0x14", "1"}, 1));
  add(command("vblk_test", {"-vblk_test"}, 1));
  add(command("wr", {"-wr", "5"}, 1));
  add(command("i2c_bf", {"-i2c_bf", "5"}, 5));
  add(command("i2c_bf_st", {"-i2c_bf_st"}, 5));
  add(command("rdver_bf", {"-rdver_bf"}, 1));
  add(command("rdstat_bf", {"-rdstat_bf"}, 1));
  add(command("7353", {"-7353"}, 1));
  add(command("blk", {"-blk"}, 5));
  add(endless(command("aablk", {"-aablk"}, 0.05)));
  add(command("i2c", {"-i2c", "0xB8", "0x14", "1", "2"}, 5));
  add(command("7002", {"-7002"}, 5));
  add(command("4192", {"-4192"}, 5));
  add(command("reg", {"-reg"}, 1));
  add(block_speed());
  add(endless(command("pll", {"-pll"}, 0.05)));
  add(endless(command("5150", {"-5150"}, 6)));
  add(command("restor", {"-restor"}, 5));
  add(load_firmware("loadbf", "fault dsp-no-firmware"));
  add(load_firmware("loadbf_dead_dsp", "fault dsp-dead"));
  add(load_firmware("loadbf_loaded", ""));
  add(leaving(with_bitstream(command("bitstream", {"-f=stream.rbf"}, 5), 40), 2));
  add(leaving(with_bitstream(command("bitstream_w", {"-w=stream.rbf"}, 5), 40), 2));
  // Without the FPGA's reset the link comes up within the time.
  add(prepared(endless(leaving(command("ac3", {"-ac3"}, 0.104), 3)),
               [](Bench& bench) { bench.put_file("mnt/tovin/home/pero/lumos.ac3", ""); }));
}

// Operations of the bench that no option reaches.
void add_operations(std::vector<Scenario>* all) {
  const auto add = [all](Scenario one) { all->push_back(std::move(one)); };
  add(leaving(
      with_bitstream(operation("file_to_fpga", 5, [] { WriteFileToFpga("stream.rbf"); }), 1100),
      1));
  add(operation("register_read", 1, [] { prog_rdreg(4); }));
  add(operation("register_write", 1, [] { prog_wrreg(4, 5); }));
  add(operation("crossed_write", 1, [] { wr_fpga(4, 5); }));
  add(operation("crossed_read", 1, [] { wr_fpga(4, 0); }));
  add(endless(operation("link_read", 1, [] { readSpiSplave(kOpenSpiSlave); })));
  add(endless(operation("link_drain", 0.01, [] { spi_slave_thread(nullptr); })));
  add(operation("decoder_bench", 10, [] { TestTVP5150(); }));
  add(operation("standard", 5, [] { GetSTD(); }));
  add(prepared(operation("gpio_value", 1, [] { SetNewGpio(5, 1); }),
               [](Bench& bench) { bench.board().gpio.exported[5] = true; }));
}

// ---- the service -----------------------------------------------------------------

Scenario served(const std::string& name, double limit_s, std::function<void(Host&)> host) {
  Scenario one;
  one.name = name;
  one.limit_s = limit_s;
  one.arguments = {"-602"};
  one.host = std::move(host);
  return one;
}

constexpr int kSendHdConfiguration = 2;

// Without comments, which are bytes and lines like all others, only more of them.
std::string compact(const std::string& text) {
  std::string kept;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    if (text[at] != ';' && text[at] != '\n') kept += text.substr(at, end - at);
    at = end;
  }
  return kept;
}

std::vector<int> config_head(const std::string& text) {
  return command_with_number(kSendHdConfiguration, static_cast<std::uint32_t>(text.size()));
}

// The file in one piece, which takes less time where nothing fails.
void send_config(Host& host, const std::string& text) {
  host.send(config_head(text));
  vboard::Board& board = vboard::board_of_process();
  {
    const vboard::Locked hold(board);
    vboard::LinkFifo& fifo = board.link.to_board;
    for (const char c : text)
      fifo.data[fifo.head++ % vboard::kLinkDepth] = static_cast<std::uint8_t>(c);
    vboard::link_changed(board);
  }
  vboard::board_wait(vboard::WaitFor::kBoardTook, 60'000'000);
}

constexpr double kStart_s = 2;
void started(Host& host) { host.wait(kStart_s); }

bool until(Host& host, double limit_s, const std::function<bool()>& so) {
  for (const double end = host.now() + limit_s; !so();) {
    if (host.now() > end) return false;
    host.wait(0.1);
  }
  return true;
}

bool deaf() {
  const vboard::LinkFifo& fifo = vboard::board_of_process().link.to_board;
  return fifo.head != fifo.tail;
}

// A board that takes a byte no more gets no others.
void pour(Host& host, const std::vector<int>& bytes) {
  for (std::size_t i = 0; i < bytes.size() && !deaf(); ++i) host.send({bytes[i]});
}

// Byte by byte, as a host does that waits for the board.
void pour_config(Host& host) {
  const std::string text = compact(example_config());
  std::vector<int> bytes = config_head(text);
  for (const char c : text) bytes.push_back(static_cast<unsigned char>(c));
  pour(host, bytes);
}

vboard::EncoderState& encoder() { return vboard::board_of_process().encoder; }

bool streams_and_is_watched() {
  return global_status == kStatusHealthy && monitor_state == kMonitorWatching &&
         status_init_flag == 2 && encoder().streaming;
}

Scenario service_start(const std::string& name, std::vector<std::string> arguments) {
  Scenario one = served(name, 40, [](Host& host) { host.wait(9); });
  one.arguments = std::move(arguments);
  return one;
}

// The status thread writes its file every 25 s.
Scenario service_with_status_thread() {
  Scenario one = service_start("service_getmon", {"-602", "getmon"});
  one.host = [](Host& host) { host.wait(27); };
  return one;
}

// A transfer that a wait or read error ends keeps its file open.
constexpr int kTransferFile = 1;

// A kind of input and audio, and the world that fits it.
struct Setup {
  const char* name;
  Settings settings;
  std::vector<const char*> world;
};
const Setup kComponentDigital = {"digital", {}, {}};
const Setup kDspAudio = {"dsp", {{"AudioInput", 2}, {"inAudioEnable", 2}}, {"audio dsp"}};
const Setup kComposite = {
    "composite", {{"VideoInput", 4}, {"mpgVidRes", 6}, {"mpgAudCodec", 1}}, {"source composite"}};
const Setup kVga = {
    "vga", {{"VideoInput", 2}, {"mpgVidRes", 25}}, {"source vga", "set-standard 1400x1050"}};

void set_world(Host& host, const std::vector<const char*>& operations) {
  for (const char* operation : operations) host.world(operation);
}

// As every board is found when a scenario is over.
void usual_world(Host& host) {
  for (const char* operation : {"faults clear", "source component", "audio digital"})
    host.world(operation);
}

void configure(Host& host, const Setup& setup) {
  set_world(host, setup.world);
  send_config(host, compact(example_config_with(setup.settings)));
  until(host, 100, [] { return config_sys == 1 && streams_and_is_watched(); });
}

bool applied() { return config_sys == 1 && SystemOnUpdate == 0; }

// The download, byte by byte, and what it sets off.
Scenario configuration() {
  Scenario one = served("configuration", 200, [](Host& host) {
    pour_config(host);
    until(host, 60, applied);
  });
  one.before = started;
  return leaving(std::move(one), kTransferFile);
}

// What a download of another kind sets off: calls fail once it has arrived.
Scenario application(const Setup& setup) {
  Scenario one =
      served(std::string("apply_") + setup.name, 200, [](Host& host) { until(host, 60, applied); });
  one.before = [&setup](Host& host) {
    started(host);
    set_world(host, setup.world);
    send_config(host, compact(example_config_with(setup.settings)));
  };
  one.after = usual_world;
  return leaving(std::move(one), kTransferFile);
}

// ---- host commands -----------------------------------------------------------------

// READ_REG closes its bus only when it has read the register.
constexpr int kBusOfReadReg = 1;

// One command to a service that runs: its bytes, and those it is polled for.
Scenario talked(int code, const std::string& suffix, double limit_s,
                std::function<void(Host&)> host) {
  const HostCommand* row = find_host_command(static_cast<std::uint8_t>(code));
  Scenario one = served(std::string("host_") + row->name + suffix, limit_s, std::move(host));
  one.code = code;
  one.before = started;
  return one;
}

Scenario said(const std::vector<int>& bytes) {
  return talked(bytes[0], "", 30, [bytes](Host& host) {
    pour(host, bytes);
    host.wait(0.2);
  });
}

Scenario asked(int code, int times) {
  return talked(code, "", 30, [code, times](Host& host) {
    for (int i = 0; i < times && !deaf(); ++i) host.ask(code);
  });
}

Scenario fetched(int code, const std::string& path, std::size_t size) {
  constexpr int kSizeBytes = 4;
  const auto polls = kSizeBytes + static_cast<int>(size);
  Scenario one = talked(code, size == 0 ? "_missing" : "", 60, [code, polls](Host& host) {
    std::vector<int> bytes(static_cast<std::size_t>(polls) + 1, 0xA5);
    bytes[0] = code;
    pour(host, bytes);
    host.wait(1);
  });
  if (size > 0)
    one.prepare = [path, size](Bench& bench) { bench.put_file(path, std::string(size, 'l')); };
  return leaving(std::move(one), kTransferFile);
}

constexpr char kUpdateScript[] = "#!/bin/sh\necho done > tmp/success.txt\n";

void put_update_script(Bench& bench) {
  bench.put_file("update.sh", kUpdateScript);
  chmod(bench.path("update.sh").c_str(), 0755);
  bench.put_file("tmp/.keep", "");
}

// Neither the sizes nor the data are codes of commands: unwanted, they are read as such.
constexpr int kArchive = 16;
constexpr int kArchiveByFpga = 20;
constexpr int kNoCommand = 99;

Scenario update_over_the_link() {
  Scenario one = talked(11, "", 40, [](Host& host) {
    std::vector<int> bytes = {11, 0, 0, 0, kArchive};
    bytes.insert(bytes.end(), kArchive, kNoCommand);
    pour(host, bytes);
    host.wait(6);
    if (!deaf()) host.ask(34);
  });
  one.prepare = put_update_script;
  return leaving(std::move(one), kTransferFile);
}

Scenario update_through_the_fpga(const std::string& suffix, std::uint32_t size) {
  Scenario one = talked(43, suffix, 40, [size](Host& host) {
    pour(host, {43, 0, 0, 0, static_cast<int>(size)});
    vboard::FpgaState& fpga = vboard::board_of_process().fpga;
    for (std::uint32_t i = 0; i < size + size % 2; ++i)
      fpga.update_fifo[fpga.update_head++ % sizeof fpga.update_fifo] = kNoCommand;
    host.wait(6);
    if (!deaf()) host.ask(34);
  });
  one.prepare = put_update_script;
  return leaving(std::move(one), kTransferFile);
}

// With the DSP's audio the record carries the peaks, for which its marker is sought.
Scenario record_with_peaks() {
  Scenario one = talked(10, "_dsp", 30, [](Host& host) {
    host.send({10});
    host.wait(2);
  });
  one.before = [](Host& host) {
    started(host);
    start_bf_st = 1;
  };
  one.after = [](Host&) { start_bf_st = 0; };
  return one;
}

void add_host_commands(std::vector<Scenario>* all) {
  const auto add = [all](Scenario one) { all->push_back(std::move(one)); };
  add(said({0}));
  add(asked(1, 1));
  add(talked(2, "_too_small", 30, [](Host& host) {
    pour(host, {2, 0, 0, 0, 29});
    host.wait(1);
  }));
  add(asked(3, 3));
  add(said({4, '2', '0', '1', '1', '2', '6', '1', '2', '0', '0', '0', '0'}));
  add(leaving(said({5, 0xB8, 0x14}), kBusOfReadReg));
  add(said({6}));
  add(said({7}));
  add(fetched(8, "temp_log1.tar.gz", 9));
  add(fetched(8, "", 0));
  add(asked(9, 6));
  add(said({10}));
  add(record_with_peaks());
  add(update_over_the_link());
  add(asked(12, 1));
  add(fetched(13, "temp_log2.tar.gz", 9));
  add(said({14}));
  add(asked(15, 1));
  add(said({17}));
  add(said({18, 0, 0, 0, 7}));
  add(fetched(19, "monitor.txt", 25));
  add(said({22}));
  add(said({25}));
  add(asked(28, 3));
  add(asked(32, 1));
  add(asked(33, 1));
  add(asked(34, 1));
  add(asked(35, 2));
  add(said({36}));
  add(update_through_the_fpga("", kArchiveByFpga));
  add(update_through_the_fpga("_odd", kArchiveByFpga + 1));
}

// ---- restarts ------------------------------------------------------------------------

struct Cause {
  const char* name;
  int code;  // in status_vantorig
  std::vector<const char*> provoke;
  const Setup& setup = kComponentDigital;
  bool before_configuration = false;  // provoked before there is anything to restart
};

const Setup kWithoutAudio = {"no_audio", {}, {"audio none"}};

const std::vector<Cause>& causes() {
  static const std::vector<Cause> all = {
      {"video_overflow", 0x81, {"fault video-overflow"}},
      {"audio_overflow", 0x82, {"fault audio-overflow"}},
      {"audio_overflow_no_input", 0x82, {"fault video-loss", "fault audio-overflow"}},
      {"stalled", 0x83, {"fault stall"}},
      {"encode_hang", 0x83, {"fault encode-hang"}},
      {"audio_missing", 0x84, {"fault audio-loss"}, kDspAudio},
      {"audio_appeared", 0x84, {"audio digital"}, kWithoutAudio},
      {"input_back", 0x85, {"fault video-loss", "fault video-loss off"}},
      {"input_frozen", 0x86, {"fault video-freeze"}},
      {"level_far_away", 0x87, {"fault level-jump"}},
      {"encode_crash", 0x87, {"encode crash"}},
      {"composite_lost", 0x85, {"fault video-loss"}, kComposite},
      {"low_buffer", 0x80, {"fault low-buffer"}, kComponentDigital, true},
  };
  return all;
}

// Without the codec rows nobody looks for audio when encode is started.
std::string configuration_of(const Cause& cause) {
  std::string text = compact(example_config_with(cause.setup.settings));
  if (&cause.setup != &kWithoutAudio) return text;
  const std::size_t at = text.find("mpgAudCodec=");
  text.erase(at, text.find('\n', at) + 1 - at);
  return text;
}

void provoke(Host& host, const std::vector<const char*>& operations) {
  constexpr double kShows_s = 6;
  for (const char* operation : operations) {
    if (operation != operations.front()) host.wait(kShows_s);
    host.world(operation);
  }
}

// A restart has begun when it has killed encode. A crash kills it before.
bool restart_begun() {
  return status_init_flag == 0 && (encoder().pid == 0 || encoder().launches > 1);
}

void run_configured(Host& host, const Cause& cause) {
  started(host);
  set_world(host, cause.setup.world);
  if (cause.before_configuration) set_world(host, cause.provoke);
  send_config(host, configuration_of(cause));
  until(host, 100, [&cause] {
    return config_sys == 1 && (cause.before_configuration || streams_and_is_watched());
  });
}

// Calls fail from the disturbance on until the restart has killed encode.
Scenario restarted(const Cause& cause) {
  Scenario one = served(std::string("restart_") + cause.name, 400, [&cause](Host& host) {
    if (!cause.before_configuration) provoke(host, cause.provoke);
    until(host, 60, restart_begun);
  });
  one.before = [&cause](Host& host) { run_configured(host, cause); };
  one.after = usual_world;
  one.cause = cause.code;
  return one;
}

// Calls fail from the killing of encode on: while the restart applies the
// configuration again, launches encode and waits for it.
Scenario applied_again(const Setup& setup) {
  Scenario one = served(std::string("reapply_") + setup.name, 400, [](Host& host) {
    until(host, 60, [] { return encoder().launches > 1 && streams_and_is_watched(); });
  });
  one.before = [&setup](Host& host) {
    started(host);
    configure(host, setup);
    host.world("fault video-overflow");
    until(host, 30, restart_begun);
    host.world("fault video-overflow off");
  };
  one.after = usual_world;
  one.cause = 0x81;
  return one;
}

// Alone, for what has no scenario of its own.
void add_others(std::vector<Scenario>* all) {
  const auto there = [all](const auto& about) { return std::ranges::any_of(*all, about); };
  for (const Option& option : options()) {
    const std::string text = option.text;
    const auto about = [&text](const Scenario& one) {
      return !one.arguments.empty() && one.arguments[0].starts_with(text);
    };
    if (!there(about)) all->push_back(command(text.substr(1), {text}, 5));
  }
  for (const HostCommand& row : host_commands())
    if (!there([&row](const Scenario& one) { return one.code == row.code; }))
      all->push_back(asked(row.code, 1));
}

std::vector<Scenario> make() {
  std::vector<Scenario> all;
  add_bench_commands(&all);
  add_operations(&all);
  all.push_back(service_start("service_start", {"-602"}));
  all.push_back(service_with_status_thread());
  all.push_back(service_start("service_nomon", {"-602", "nomon", "dbg"}));
  all.back().watched = false;
  all.push_back(configuration());
  for (const Setup* setup : {&kDspAudio, &kComposite, &kVga}) all.push_back(application(*setup));
  add_host_commands(&all);
  for (const Cause& cause : causes()) all.push_back(restarted(cause));
  for (const Setup* setup : {&kComponentDigital, &kDspAudio, &kComposite, &kVga})
    all.push_back(applied_again(*setup));
  add_others(&all);
  return all;
}

}  // namespace

const std::vector<Scenario>& scenarios() {
  static const std::vector<Scenario> all = make();
  return all;
}

void send_usual_configuration(Host& host) { send_config(host, compact(example_config())); }
