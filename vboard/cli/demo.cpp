// The demonstration; see the header.
#include "vboard/cli/demo.h"

#include <fcntl.h>
#include <unistd.h>

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
#include "melk/board_transport.h"
#include "melk/protocol.h"
#include "vboard/cli/sandbox.h"
#include "vboard/core/clock.h"
#include "vboard/core/world.h"

namespace vboard {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kSecond_us = 1000000;
constexpr std::uint8_t kCauseStalled = 0x83;
constexpr std::uint8_t kCauseInputBack = 0x85;

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

struct Demo {
  Stage stage;
  BoardDirectory directory;
  Board* board = nullptr;
  std::unique_ptr<melk::BoardTransport> transport;
  std::unique_ptr<melk::Link> link;

  explicit Demo(const fs::path& path) : directory(path) {}
};

std::string read_file(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Waits in board time until `holds`; false when it never did.
bool until(std::int64_t seconds, const std::function<bool()>& holds) {
  const std::int64_t limit_us = board_now_us() + seconds * kSecond_us;
  while (!holds()) {
    if (board_now_us() > limit_us) return false;
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
void tell_service(Demo& demo, std::size_t* seen, std::initializer_list<const char*> wanted) {
  const std::string log = read_file(demo.directory.home() / "log1.txt");
  std::size_t at = *seen;
  while (at < log.size()) {
    const std::size_t end = std::min(log.find('\n', at), log.size());
    const std::string line = log.substr(at, end - at);
    for (const char* text : wanted)
      if (line.find(text) != std::string::npos) demo.stage.tell("service: %s", line.c_str());
    at = end + 1;
  }
  *seen = log.size();
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

bool boot(Demo& demo) {
  demo.stage.title("The board boots; the control program runs as its service (-602)");
  const bool up = until(20, [&] { return melk::ask_byte(*demo.link, melk::Code::kGetHdVersion).ok(); });
  if (!demo.stage.check(up, "the service answers on the SPI link")) return false;
  const auto version = melk::ask_byte(*demo.link, melk::Code::kGetHdVersion);
  demo.stage.check(version.ok() && *version.value == 0x2D, "GET_HD_VERSION answers 0x2D, 2.13");
  demo.stage.check(read_file(demo.directory.home() / "hd.ini").empty(),
                   "hd.ini is empty: the configuration is the host's to give");
  return true;
}

bool configure(Demo& demo, const std::string& config, std::size_t* log_seen) {
  demo.stage.title("The host sends hd.ini; the service stores it, applies it, starts encode");
  auto before = std::make_unique<FpgaState>();
  {
    Locked hold(*demo.board);
    *before = demo.board->fpga;
  }
  const std::vector<std::uint8_t> bytes(config.begin(), config.end());
  demo.stage.tell("host: SEND_HD_CONFIGURATION, %zu bytes", bytes.size());
  if (!demo.stage.check(melk::send_configuration(*demo.link, bytes).ok(), "every byte was taken"))
    return false;
  demo.stage.check(until(60, [&] { return demo.board->encoder.pid != 0; }), "encode was launched");
  const bool stored = read_file(demo.directory.home() / "hd.ini") == config;
  demo.stage.check(stored, "hd.ini on the board equals what the host sent");
  const bool healthy =
      until(60, [&] { return status_of(demo).status == 0x91 && demo.board->encoder.streaming; });
  tell_service(demo, log_seen,
               {"real size", "Configure_System", "Set output bitrate", "Set Video Input To",
                "frmsizecod = ", "start_hd", "encode is alive"});
  tell_changed_registers(demo, *before);
  demo.stage.check(demo.board->fpga.reg[kRegOutputInterval / 2] == 13651,
                   "output packet interval 13651: (8 Mbit/s + 0.5) x 1.05 = 8.925 Mbit/s");
  return demo.stage.check(healthy, "status 0x91: healthy, encode streams");
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
  const auto record = melk::read_record(*demo.link, melk::kFullRecord);
  if (!record.ok()) return;
  for (const melk::RecordField& field : melk::record_fields())
    if (field.first < 29)
      demo.stage.tell("record %3zu..%-3zu %-18s %u", field.first, field.last, field.name,
                      melk::field_value(*record.value, field));
  demo.stage.check((*record.value)[1] == 0x2D, "the record carries the hardware version");
}

void pull_plug(Demo& demo, std::size_t* log_seen) {
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
  tell_service(demo, log_seen, {"restart", "RESTART"});
  demo.stage.check(status.cause == kCauseInputBack,
                   "cause " + hex(kCauseInputBack) + ": " + melk::describe_cause(kCauseInputBack));
  demo.stage.check(healthy, "healthy again");
}

void stall(Demo& demo, std::size_t* log_seen) {
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
  tell_service(demo, log_seen, {"restart", "RESTART", "There is no video_buf"});
  demo.stage.check(status.cause == kCauseStalled,
                   "cause " + hex(kCauseStalled) + ": " + melk::describe_cause(kCauseStalled));
  demo.stage.check(healthy, "healthy again");
}

bool play(Demo& demo, const std::string& config) {
  std::size_t log_seen = 0;
  if (!boot(demo) || !configure(demo, config, &log_seen)) return false;
  read_back(demo);
  pull_plug(demo, &log_seen);
  stall(demo, &log_seen);
  return true;
}

} // namespace

int demo(const DemoOptions& options) {
  const fs::path program =
      options.program.empty() ? helper("vantorig") : fs::path(fs::absolute(options.program));
  const fs::path config_file =
      options.config.empty() ? helper("hd.ini") : fs::path(fs::absolute(options.config));
  const std::string config = read_file(config_file);
  if (program.empty() || config.empty()) {
    fprintf(stderr, "vboard: no program (%s) or no configuration (%s)\n", program.c_str(),
            config_file.c_str());
    return 125;
  }
  char place[] = "/tmp/vboard-demo-XXXXXX";
  if (mkdtemp(place) == nullptr) return 125;
  Demo demo(place);
  std::string problem;
  if (!demo.directory.prepare(&problem)) {
    fprintf(stderr, "vboard: %s\n", problem.c_str());
    return 125;
  }
  const int log = open((demo.directory.home() / "log1.txt").c_str(),
                       O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  RunOptions run_options;
  run_options.speed = options.speed;
  printf("A virtual board in %s, board time %gx.\n", place, options.speed);
  int status = 1;
  {
    Run run(demo.directory, run_options, {program, "-602"}, log);
    close(log);
    demo.transport = melk::BoardTransport::open(place, &problem);
    if (run.problem().empty() && demo.transport != nullptr) {
      demo.board = &board_of_process();
      demo.link = std::make_unique<melk::Link>(melk::Link{*demo.transport});
      const bool complete = play(demo, config);
      demo.stage.check(demo.board->violations.count == 0,
                       demo.board->violations.count == 0
                           ? "the program did nothing to its chips that they do not know"
                           : std::string("first violation: ") + demo.board->violations.first);
      status = complete && demo.stage.failed() == 0 ? 0 : 1;
    } else {
      fprintf(stderr, "vboard: %s\n", (run.problem() + problem).c_str());
    }
  }
  printf("\n%d steps verified, %d failed.\n", demo.stage.steps() - demo.stage.failed(),
         demo.stage.failed());
  if (status == 0)
    fs::remove_all(place);
  else
    printf("The board is left in %s for a look.\n", place);
  return status;
}

} // namespace vboard
