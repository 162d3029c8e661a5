// The demonstration; see the header.
#include "vboard/cli/demo.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>

#include "hw/fpga_registers.h"
#include "melk/make_update.h"
#include "melk/protocol.h"
#include "vboard/cli/sandbox.h"
#include "vboard/core/clock.h"
#include "vboard/core/real.h"
#include "vboard/host/board_transport.h"
#include "vboard/models/needs.h"
#include "vboard/models/stream.h"
#include "vboard/world/world.h"

namespace vboard {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kSecond_us = 1000000;
constexpr int kDspResetLine = 28;
constexpr std::int64_t kLinkPatience_us = 200 * kSecond_us;  // board time flies here
constexpr std::uint8_t kCauseStalled = 0x83;
constexpr std::uint8_t kCauseNoAudio = 0x84;
constexpr std::uint8_t kCauseInputBack = 0x85;

// Where the board has its program.
constexpr char kInstalled[] = "/home/tovin/vantorig";

// Colours only on a terminal.
struct Colours {
  const char* title = "";
  const char* good = "";
  const char* bad = "";
  const char* off = "";
};

Colours colours() {
  if (isatty(STDOUT_FILENO) == 0) return {};
  return {"\033[1;36m", "\033[32m", "\033[1;31m", "\033[0m"};
}

class Stage {
 public:
  void title(const char* text) {
    printf("\n%s== %s%s\n", colour_.title, text, colour_.off);
    fflush(stdout);
  }
  __attribute__((format(printf, 2, 3))) void tell(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fputs("   ", stdout);
    vprintf(format, arguments);
    fputs("\n", stdout);
    va_end(arguments);
    fflush(stdout);
  }
  // A verified step; returns what it was given.
  bool check(bool good, const std::string& text) {
    printf("   %s%s%s %s\n", good ? colour_.good : colour_.bad, good ? "ok  " : "FAIL", colour_.off,
           text.c_str());
    fflush(stdout);
    ++steps_;
    if (!good) ++failed_;
    return good;
  }
  int steps() const { return steps_; }
  int failed() const { return failed_; }

 private:
  Colours colour_ = colours();
  int steps_ = 0;
  int failed_ = 0;
};

// The service on the board, and the host's end of its link.
struct Demo {
  Stage stage;
  BoardDirectory directory;
  fs::path program;
  double speed;
  std::string config;
  Board* board = nullptr;
  std::unique_ptr<Run> service;
  std::unique_ptr<BoardTransport> transport;
  std::unique_ptr<melk::Link> link;
  std::size_t log_seen = 0;  // of the service's output
};

// Waits until `holds`, for this board time and, on a busy machine, for some real
// time at least; false when it never did. The clock of a board on which nothing
// runs stands.
bool until(std::int64_t seconds, const std::function<bool()>& holds) {
  constexpr std::int64_t kPatience_ns = 20'000'000'000;
  const std::int64_t limit_us = board_now_us() + seconds * kSecond_us;
  const std::int64_t patience_ns = real::monotonic_ns() + kPatience_ns;
  while (!holds()) {
    const bool stands = board_of_process().clock.running == 0;
    if ((stands || board_now_us() > limit_us) && real::monotonic_ns() > patience_ns) return false;
    board_wait(WaitFor::kNothing, kSecond_us / 2);
  }
  return true;
}

std::string hex(unsigned value) {
  char text[16];
  snprintf(text, sizeof text, "0x%02X", value);
  return text;
}

void world(Demo& demo, const char* command) {
  std::string problem;
  Locked hold(*demo.board);
  const bool done = world_command(*demo.board, command, problem);
  demo.stage.tell("world: %s%s%s", command, done ? "" : ": ", problem.c_str());
}

melk::Status status_of(Demo& demo) {
  const auto reply = melk::get_status(*demo.link);
  return reply.ok() ? *reply.value : melk::Status{};
}

void tell_status(Demo& demo, const melk::Status& status) {
  demo.stage.tell("host: GET_STATUS %02X %02X %02X: %s; cause: %s", status.status, status.cause,
                  status.flags, melk::describe_status(status.status).c_str(),
                  melk::describe_cause(status.cause));
}

// Lines of the service's output since the last look that say something.
void tell_service(Demo& demo, std::initializer_list<const char*> wanted) {
  const std::string log = read_file(demo.directory.home() / "log1.txt");
  std::size_t at = demo.log_seen;
  while (at < log.size()) {
    const std::size_t end = std::min(log.find('\n', at), log.size());
    const std::string line = log.substr(at, end - at);
    for (const char* text : wanted)
      if (line.find(text) != std::string::npos) demo.stage.tell("service: %s", line.c_str());
    at = end + 1;
  }
  demo.log_seen = log.size();
}

void tell_changed_registers(Demo& demo, const FpgaState& before) {
  for (const FpgaRegister& one : kFpgaRegisters) {
    if (one.access == RegAccess::kRead || one.access == RegAccess::kLatch) continue;
    const unsigned was = before.reg[one.address / 2];
    const unsigned is = demo.board->fpga.reg[one.address / 2];
    if (was != is)
      demo.stage.tell("fpga 0x%04x %-22s %5u -> %5u", static_cast<unsigned>(one.address), one.name,
                      was, is);
  }
}

// Runs the program on the board with its output in the board's log.
std::unique_ptr<Run> start(Demo& demo, const std::vector<std::string>& arguments) {
  const int log = open((demo.directory.home() / "log1.txt").c_str(),
                       O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  RunOptions options;
  options.speed = demo.speed;
  std::vector<std::string> command = {kInstalled};
  command.insert(command.end(), arguments.begin(), arguments.end());
  auto run = std::make_unique<Run>(demo.directory, options, command, log);
  close(log);
  if (!run->problem().empty()) fprintf(stderr, "vboard: %s\n", run->problem().c_str());
  return run;
}

// True once the service answers. One that has ended never will.
bool start_service(Demo& demo) {
  demo.service = start(demo, {"-602"});
  if (!demo.service->problem().empty()) return false;
  bool answers = false;
  until(20, [&] {
    answers = melk::ask_byte(*demo.link, melk::Code::kGetHdVersion).ok();
    return answers || !demo.service->alive();
  });
  return answers;
}

void load_firmware(Demo& demo) {
  demo.stage.title("Behind power-on: the AC-3 DSP gets its firmware through the FPGA (-loadbf)");
  world(demo, "power-cycle");
  start(demo, {"-loadbf"})->wait();
  tell_service(demo, {"download", "the size is", "Initial SPI", "end send file", "The BF is"});
  demo.stage.check(
      demo.board->fpga.firmware_bytes == fs::file_size(demo.directory.home() / "MELK_spi.bin"),
      "every byte of the firmware went through the FIFO");
  demo.stage.check(demo.board->dsp.has_firmware, "the DSP has firmware");
}

void program_receiver(Demo& demo) {
  demo.stage.title("And the digital audio receiver is programmed (-4192)");
  start(demo, {"-4192"})->wait();
  Locked hold(*demo.board);
  for (const std::string& lack : lacks(*demo.board, kDix4192Lock))
    demo.stage.tell("%s", lack.c_str());
  demo.stage.check(works(*demo.board, kDix4192Lock) && works(*demo.board, kDix4192Output),
                   "the receiver lacks nothing");
}

bool boot(Demo& demo) {
  demo.stage.title("The board boots; the control program runs as its service (-602)");
  if (!demo.stage.check(start_service(demo), "the service answers on the SPI link")) return false;
  const auto version = melk::ask_byte(*demo.link, melk::Code::kGetHdVersion);
  demo.stage.check(version.ok() && *version.value == 0x2D, "GET_HD_VERSION answers 0x2D, 2.13");
  demo.stage.check(read_file(demo.directory.home() / "hd.ini").empty(),
                   "hd.ini is empty: the configuration is the host's to give");
  return true;
}

// What leaves the board now, as an analyser behind it would show it.
void tell_stream(Demo& demo) {
  TransportStream stream;
  std::vector<std::string> lines;
  {
    Locked hold(*demo.board);
    stream = stream_of(*demo.board);
    lines = stream_text(*demo.board);
  }
  for (const std::string& line : lines) demo.stage.tell("stream: %s", line.c_str());
  demo.stage.check(stream.video.there && stream.sound.there && stream.sound.decodable,
                   "picture and sound leave the board");
}

// Sends a configuration and waits until the encoder that it launched streams.
bool send(Demo& demo, const std::string& config) {
  const std::uint32_t launches = demo.board->encoder.launches;
  const std::vector<std::uint8_t> bytes(config.begin(), config.end());
  demo.stage.tell("host: SEND_HD_CONFIGURATION, %zu bytes", bytes.size());
  if (!demo.stage.check(melk::send_configuration(*demo.link, bytes).ok(), "every byte was taken"))
    return false;
  demo.stage.check(until(60, [&] { return demo.board->encoder.launches != launches; }),
                   "encode was launched");
  demo.stage.check(read_file(demo.directory.home() / "hd.ini") == config,
                   "hd.ini on the board equals what the host sent");
  const bool healthy =
      until(60, [&] { return status_of(demo).status == 0x91 && demo.board->encoder.streaming; });
  demo.stage.check(healthy, "status 0x91: healthy, encode streams");
  tell_stream(demo);
  return healthy;
}

bool configure(Demo& demo) {
  demo.stage.title("The host sends hd.ini; the service stores it, applies it, starts encode");
  auto before = std::make_unique<FpgaState>();
  {
    Locked hold(*demo.board);
    *before = demo.board->fpga;
  }
  world(demo, "audio dsp");
  const bool healthy = send(demo, demo.config);
  tell_service(demo, {"real size", "Configure_System", "Set output bitrate", "Set Video Input To",
                      "bit_rate = ", "start_hd", "encode is alive"});
  tell_changed_registers(demo, *before);
  demo.stage.check(demo.board->fpga.reg[kRegOutputInterval / 2] == 13651,
                   "output packet interval 13651: (8 Mbit/s + 0.5) x 1.05 = 8.925 Mbit/s");
  demo.stage.check(demo.board->fpga.reg[kRegAc3FrameBytes / 2] == 1536,
                   "AC-3 frame 1536 bytes: 384 kbit/s at 48 kHz, from the stream's own header");
  return healthy;
}

void read_back(Demo& demo) {
  demo.stage.title("The host reads back status, versions, frame rate and the status record");
  tell_status(demo, status_of(demo));
  const auto version = melk::get_sw_version(*demo.link);
  demo.stage.check(melk::read_record(*demo.link, melk::kFullRecord).ok(), "status record read");
  const auto parsed = melk::get_sw_version(*demo.link);
  demo.stage.check(version.ok() && parsed.ok() && (*parsed.value)[0] == 1 &&
                       (*parsed.value)[1] == 12 && (*parsed.value)[2] == 3,
                   "software version 1.12.3");
  const auto fps = melk::get_fps(*demo.link);
  demo.stage.check(fps.ok() && *fps.value == 57600, "VS_RATE 57600: 25 frames/s");
  board_wait(WaitFor::kNothing, 10 * kSecond_us);  // supervision has seen the DSP path by then
  const auto record = melk::read_record(*demo.link, melk::kFullRecord);
  if (!record.ok()) return;
  for (const melk::RecordField& field : melk::record_fields())
    if (field.first < 45)
      demo.stage.tell("record %3zu..%-3zu %-18s %u", field.first, field.last, field.name,
                      melk::field_value(*record.value, field));
  demo.stage.check((*record.value)[1] == 0x2D, "the record carries the hardware version");
  const auto field = [&](const char* name) {
    for (const melk::RecordField& one : melk::record_fields())
      if (strcmp(one.name, name) == 0) return melk::field_value(*record.value, one);
    return 0u;
  };
  demo.stage.check(
      field("peak_1") == demo.board->dsp.peak_left && field("peak_2") == demo.board->dsp.peak_right,
      "the record carries the sound's peaks from the DSP");
}

void pull_plug(Demo& demo) {
  demo.stage.title("The video plug is pulled, and put back");
  const std::uint32_t launches = demo.board->encoder.launches;
  world(demo, "source none");
  const bool lost = until(30, [&] { return (status_of(demo).flags & 3) == 1; });
  tell_status(demo, status_of(demo));
  demo.stage.check(lost, "the host sees state 1, no video input");
  world(demo, "source component");
  const bool back = until(90, [&] { return demo.board->encoder.launches != launches; });
  demo.stage.check(back, "the service restarted encode");
  const bool healthy = until(90, [&] { return status_of(demo).status == 0x91; });
  const melk::Status status = status_of(demo);
  tell_status(demo, status);
  tell_service(demo, {"restart", "RESTART"});
  demo.stage.check(status.cause == kCauseInputBack,
                   "cause " + hex(kCauseInputBack) + ": " + melk::describe_cause(kCauseInputBack));
  demo.stage.check(healthy, "healthy again");
}

void stall(Demo& demo) {
  demo.stage.title("The stream stalls");
  melk::send_command(*demo.link, melk::Code::kClearStatus);
  const bool captured = until(60, [&] { return demo.board->fpga.video_level >= 40; });
  demo.stage.check(captured, "the video buffer is at its level again");
  board_wait(WaitFor::kNothing, 10 * kSecond_us);
  const std::uint32_t launches = demo.board->encoder.launches;
  world(demo, "fault stall");
  const bool again = until(120, [&] { return demo.board->encoder.launches != launches; });
  world(demo, "fault stall off");
  demo.stage.check(again, "the service restarted encode");
  const bool healthy = until(120, [&] { return status_of(demo).status == 0x91; });
  const melk::Status status = status_of(demo);
  tell_status(demo, status);
  tell_service(demo, {"restart", "RESTART", "There is no video_buf"});
  demo.stage.check(status.cause == kCauseStalled,
                   "cause " + hex(kCauseStalled) + ": " + melk::describe_cause(kCauseStalled));
  demo.stage.check(healthy, "healthy again");
}

void lose_audio(Demo& demo) {
  demo.stage.title("The sound is lost; the host then changes to the digital audio input");
  melk::send_command(*demo.link, melk::Code::kClearStatus);
  const std::uint32_t launches = demo.board->encoder.launches;
  const std::uint32_t resets = demo.board->fpga.line[kDspResetLine];
  world(demo, "fault audio-loss");
  const bool again = until(120, [&] { return demo.board->encoder.launches != launches; });
  demo.stage.check(again, "the service restarted encode");
  const melk::Status status = status_of(demo);
  tell_status(demo, status);
  tell_service(demo, {"no audio", "restart!!"});
  demo.stage.check(status.cause == kCauseNoAudio,
                   "cause " + hex(kCauseNoAudio) + ": " + melk::describe_cause(kCauseNoAudio));
  demo.stage.check(demo.board->fpga.line[kDspResetLine] > resets, "the DSP was reset by its line");
  world(demo, "audio digital");
  std::string digital = demo.config;
  digital.replace(digital.find("AudioInput=2"), strlen("AudioInput=2"), "AudioInput=1");
  send(demo, digital);
}

// Without what only a debugger reads: the link carries the bytes one by one.
void copy_program(const Demo& demo, const fs::path& to) {
  const std::string command =
      "strip -o '" + to.string() + "' '" + demo.program.string() + "' 2>/dev/null";
  if (system(command.c_str()) != 0)
    fs::copy_file(demo.program, to, fs::copy_options::overwrite_existing);
}

// A package with version 2.0.1 and a program to go with it.
std::vector<std::uint8_t> make_package(Demo& demo) {
  const fs::path files = demo.directory.path() / "package";
  fs::create_directories(files);
  copy_program(demo, files / "vantorig");
  std::ofstream(files / "vantorig", std::ios::app) << "2.0.1";  // behind all that is loaded
  std::ofstream(files / "version.ini") << "2.0.1\n";
  std::string problem;
  auto package = melk::make_update(files, &problem);
  if (package) return std::move(package->archive);
  demo.stage.tell("%s", problem.c_str());
  return {};
}

bool says_success(Demo& demo) {
  const auto answer = melk::ask_byte(*demo.link, melk::Code::kGetUpdateResult);
  return answer.ok() && *answer.value == 1;
}

void refuse_update(Demo& demo, std::vector<std::uint8_t> package) {
  demo.stage.title("A software update through the FPGA, one of its bytes flipped on the way");
  const std::string before = read_file(demo.directory.home() / "vantorig");
  package[package.size() / 2] ^= 0x10;
  demo.stage.tell("host: NEW_UPDATE_VERSION, %zu bytes", package.size());
  demo.stage.check(melk::send_update_by_fpga(*demo.link, package, 0).ok(), "every byte was taken");
  demo.stage.check(!says_success(demo), "GET_UPDATE_RESULT answers 0: it failed");
  demo.stage.check(read_file(demo.directory.home() / "vantorig") == before,
                   "the old program is in its place");
}

void update(Demo& demo) {
  const std::vector<std::uint8_t> package = make_package(demo);
  if (!demo.stage.check(!package.empty(), "melk made a package of program and version")) return;
  refuse_update(demo, package);
  demo.stage.title("The same software update over the link, whole");
  const std::string before = read_file(demo.directory.home() / "vantorig");
  demo.stage.tell("host: UPDATE_VERSION, %zu bytes", package.size());
  demo.stage.check(melk::send_update(*demo.link, package).ok(), "every byte was taken");
  demo.stage.check(says_success(demo), "GET_UPDATE_RESULT answers 1: it succeeded");
  demo.stage.check(!says_success(demo), "asked again it answers 0: told once only");
  tell_service(demo, {"update:"});
  demo.stage.check(read_file(demo.directory.home() / "vantorig") ==
                           read_file(demo.directory.path() / "package/vantorig") &&
                       read_file(demo.directory.home() / "vantorig.previous") == before,
                   "the new program is in its place, the old one kept beside it");
  demo.service.reset();
  const bool up = start_service(demo);
  melk::read_record(*demo.link, melk::kShortRecord);
  const auto version = melk::get_sw_version(*demo.link);
  demo.stage.check(up && version.ok() && (*version.value)[0] == 2 && (*version.value)[1] == 0 &&
                       (*version.value)[2] == 1,
                   "after a restart the new program says version 2.0.1");
}

bool play(Demo& demo) {
  copy_program(demo, demo.directory.home() / "vantorig");
  load_firmware(demo);
  program_receiver(demo);
  if (!boot(demo) || !configure(demo)) return false;
  read_back(demo);
  pull_plug(demo);
  stall(demo);
  lose_audio(demo);
  update(demo);
  return true;
}

}  // namespace

int demo(const DemoOptions& options, const fs::path& place) {
  const fs::path program =
      options.program.empty() ? helper("vantorig") : fs::path(fs::absolute(options.program));
  const fs::path config_file =
      options.config.empty() ? helper("demo.ini") : fs::path(fs::absolute(options.config));
  const std::string config = read_file(config_file);
  if (program.empty() || config.empty()) {
    fprintf(stderr, "vboard: no program (%s) or no configuration (%s)\n", program.c_str(),
            config_file.c_str());
    return 125;
  }
  std::string problem = sandbox_problem();
  if (access(program.c_str(), X_OK) != 0)
    problem = "cannot run " + program.string() + ": " + strerror(errno);
  if (!problem.empty()) {
    fprintf(stderr, "vboard: %s\n", problem.c_str());
    return 125;
  }
  Demo demo{{}, BoardDirectory(place), program, options.speed, config, {}, {}, {}, {}, {}};
  if (demo.directory.prepare(&problem) && demo.directory.map(&problem) != nullptr)
    demo.transport = BoardTransport::open(place.string(), &problem);
  if (demo.transport == nullptr) {
    fprintf(stderr, "vboard: %s\n", problem.c_str());
    return 125;
  }
  printf("A virtual board in %s, board time %gx.\n", place.c_str(), options.speed);
  demo.board = &board_of_process();
  demo.link = std::make_unique<melk::Link>(melk::Link{*demo.transport});
  demo.link->timeout_us = kLinkPatience_us;
  const bool complete = play(demo);
  demo.service.reset();
  const Violations& violations = demo.board->violations;
  demo.stage.check(violations.count == 0,
                   violations.count == 0
                       ? "the program did nothing to its chips that they do not know"
                       : std::string("first violation: ") + violations.first);
  printf("\n%d steps verified, %d failed.\n", demo.stage.steps() - demo.stage.failed(),
         demo.stage.failed());
  if (complete && demo.stage.failed() == 0) return 0;
  printf("The board is left in %s for a look.\n", place.c_str());
  return kDemoFailed;
}

}  // namespace vboard
