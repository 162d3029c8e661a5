// Events of the storm, the questions after each, and the bounds.
//
// An event begins at a random moment of the supervision's cycle. After it the
// board must be healthy within the event's bound and stay so for a while; then
// the host asks all that it can, the status record whole, and the settings are
// compared with those of a fresh board.
//
// Where the bounds come from. A supervised cycle sleeps 1 s for the input and
// 0.5 s at its end; reading the chips takes less than 0.1 s of it: 1.6 s. A
// restart is
//
//     kill 5 s, apply, 15 s, end of cycle 0.5 s, alive wait at most 3.0 s
//
// and an apply: volume 2 s; video selection 2 s (composite 4 s); capture 0.1 s;
// digital receiver not ready 1 s; AC-3 sync 1 s a try; two resets of 1.01 s each;
// settling 1 s; 11.2 s with one try and the composite input, 12 s with the chips'
// traffic. A restart ends 35.5 s after it began. Then the levels are captured:
// two cycles for video, two for audio, one to find all well: 5 cycles, 8 s. A
// fault is found one cycle after it can be, counts of 10 after 11, and the
// restart begins in the cycle after that.
//
// A download: settling 0.1 s, 3 s, 1 s, apply 12 s, then 15 s: 31.1 s, and its bytes.
#include "tests/soak/storm.h"

#include <dirent.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <map>
#include <random>
#include <set>

#include "audio/blkfn.h"
#include "hw/fpga.h"
#include "hw/fpga_registers.h"
#include "state/service_flags.h"
#include "vboard/core/real.h"
#include "vboard/core/trace.h"
#include "vboard/models/bus.h"

using vboard::Bench;

namespace {

constexpr double kCycle_s = 1.6;
constexpr double kRestart_s = 35.5;
constexpr double kCapture_s = 5 * kCycle_s;
constexpr double kDownload_s = 31.1;
constexpr double kUpdate_s = 4;          // 1 s settling, 3 s hold
constexpr double kSteady_s = 20;         // healthy for so long counts as recovered
constexpr double kUploadGivesUp_s = 31;  // 15 s over the size, 15 s over the data
constexpr double kLook_s = 0.25;

double restarts_within(int restarts, int cycles) {
  return (cycles + 1) * kCycle_s + restarts * (kRestart_s + kCycle_s) + kCapture_s;
}

constexpr int kPoll = 0xA5;
constexpr int kNoCause = 0x80;
constexpr int kAnyCause = -1;
constexpr int kFlagNoAudio = 0x10;
constexpr std::uint8_t kHdVersionByte = 0x2D;

enum Code : int {
  kGetHdVersion = 1,
  kSendConfiguration = 2,
  kGetStatus = 3,
  kReadReg = 5,
  kStopAudio = 7,
  kGetLog1 = 8,
  kGetRecordByte = 9,
  kPrepare = 10,
  kUpdate = 11,
  kPackLogs = 14,
  kGetMonitorState = 15,
  kGetMonitorFile = 19,
  kRestoreFactory = 22,
  kClearStatus = 25,
  kGetSwVersion = 28,
  kGetSharedStatus = 32,
  kGetInputMux = 33,
  kGetUpdateResult = 34,
  kGetFps = 35,
  kWholeRecord = 36,
  kFpgaUpdate = 43,
};

// ---- world faults that end by themselves -----------------------------------------

// Lasts between the two times, which keep its cause certain: long enough to be
// found, over before the restart that it brings about launches `encode` again.
struct Fault {
  const char* name;
  double shortest_s;
  double longest_s;
  int cycles;    // until it is found
  int restarts;  // it brings about
  int cause;
  bool tvp7002_only = false;
};

constexpr Fault kFaults[] = {
    {"video-overflow", 4, 15, 1, 1, 0x81},
    {"audio-overflow", 4, 15, 1, 1, 0x82},
    {"stall", 18, 28, 11, 1, 0x83},
    {"stall", 1, 10, 1, 0, kNoCause},
    {"encode-hang", 18, 28, 11, 1, 0x83},
    {"encode-hang", 1, 10, 1, 0, kNoCause},
    {"video-loss", 5, 1200, 1, 1, 0x85, true},
    {"video-freeze", 18, 28, 11, 1, 0x86, true},
    {"level-jump", 4, 10, 2, 1, 0x87},
    {"i2c-fail 5c", 4, 9, 1, 1, 0x85, true},
    {"fpga-fail 16", 4, 9, 1, 1, 0x87, true},
};

// ---- what a run comes to ------------------------------------------------------------

class Digest {
 public:
  void add(const char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
      value_ = (value_ ^ static_cast<unsigned char>(data[i])) * 1099511628211u;
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 14695981039346656037u;
};

// What the trace tells on its way into the digest.
struct Traffic {
  Digest digest;
  long line_actions = 0;
  long set_ups = 0;  // of the TVP7002
  long links = 0;    // opened
  long latches = 0;
};
Traffic traffic;

bool begins(const char* line, const char* with) { return strncmp(line, with, strlen(with)) == 0; }

// The standard register of the decoder is set to the low byte of an address, which
// changes from one process to the next: its value is no part of the digest.
constexpr char kDecoderStandard[] = "i2c 5d wr 28 ";

void take_trace(const char* clean) {
  const std::size_t size =
      begins(clean, kDecoderStandard) ? sizeof kDecoderStandard - 1 : strlen(clean) + 1;
  traffic.digest.add(clean, size);
  if (begins(clean, "fpga wr 0x0040")) ++traffic.latches;
  if (begins(clean, "fpga line ")) {
    ++traffic.line_actions;
    if (strcmp(clean, "fpga line 79") == 0) ++traffic.set_ups;
  }
  if (begins(clean, "open /dev/spislave")) ++traffic.links;
}

long open_files() {
  long count = 0;
  DIR* directory = opendir("/proc/self/fd");
  while (directory != nullptr && readdir(directory) != nullptr) ++count;
  if (directory != nullptr) closedir(directory);
  return count;
}

// Bytes of the heap in use; 0 where the allocator does not tell.
std::size_t heap_in_use() { return mallinfo2().uordblks; }

// A sanitizer's allocator does not tell.
std::string in_kilobytes(std::size_t heap) {
  return heap == 0 ? "not told" : std::to_string(heap / 1024) + " kB";
}

// What one device stream that stays open costs; of many, as freed blocks that the
// allocator keeps at hand count as in use.
std::size_t heap_of_a_stream() {
  constexpr std::size_t kMany = 256;
  FILE* streams[kMany];
  const std::size_t before = heap_in_use();
  for (FILE*& one : streams) one = fopen("/dev/fpga", "r+b");
  const std::size_t cost = (heap_in_use() - before) / kMany;
  for (FILE* one : streams) fclose(one);
  return cost;
}

constexpr std::size_t kHeapSlack = 32768;  // of the bench: its maps, its buffers

struct Told {
  long count = 0;
  double slowest_s = 0;
  double bound_s = 0;
};

constexpr char kArchive[] = "GOOD";  // what the update script looks for
constexpr char kUpdateScript[] =
    "#!/bin/sh\n"
    "case $(head -c 4 tmp/new_hd_version.tar.gz | tr -d '\\000') in\n"
    "GOOD) : > tmp/success.txt ;;\n"
    "esac\n";
constexpr char kQuiet[] = "#!/bin/sh\nexec /bin/NAME \"$@\" 2>/dev/null\n";
constexpr char kPack[] = "#!/bin/sh\nprintf 'archive of %s\\n' \"$3\" > \"$2\"\n";
constexpr char kListing[] =
    "#!/bin/sh\n"
    "[ -f \"$2\" ] || exit 0\n"
    "echo \"-rw-r--r-- 1 root root $(stat -c %s \"$2\") Jan  1 00:00 hd.ini\"\n";

// ---- the storm -------------------------------------------------------------------------

class Storm {
 public:
  Storm(const Course& course, const std::vector<Reference>& references)
      : course_(course), references_(references), random_(course.seed) {}

  bool run();
  std::uint64_t digest() const { return whole_.value(); }

 private:
  // Chance.
  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
  double between(double low, double high) {
    return low + (high - low) * static_cast<double>(below(1000001)) / 1e6;
  }

  // The world and the host.
  void prepare();
  void tell(Host& host);
  void world(const std::string& operation);
  void fault(const std::string& name, bool on) { world("fault " + name + (on ? "" : " off")); }
  void send(const std::vector<int>& bytes) { host_->send(bytes); }
  void send_bytes(const std::string& bytes);
  void send_number(std::uint32_t number);
  int ask(int code);
  std::string random_bytes(std::size_t size);

  // Events.
  void happen();
  void world_fault();
  void crash();
  void moment_without_plug();
  void composite_without_plug();
  void audio_lost();
  void another_standard();
  void another_configuration();
  void configure(std::size_t choice);
  void download_cut();
  void refused_download();
  void whole_update();
  void update_cut();
  void fpga_update(bool cut);
  void whole_upload();
  void upload_cut();
  void noise(bool wild);
  void update_in_restart();
  void configuration_in_restart();
  void firmware_push();
  void dsp_interlude();
  void dsp_lost_for_good();

  // What must hold.
  void begin(const std::string& name);
  void recovered(double bound_s, int least_restarts, int most_restarts, int cause, int flags = 0);
  void interview(int cause, int flags);
  void check_record();
  void check_answer(int code, int should_be, const char* what);
  void check_handles();
  void read_register();
  void until_answered();
  std::vector<std::uint8_t> fetch(int code);
  void end_of_day();
  void take_output();
  void fail(const char* format, ...) __attribute__((format(printf, 2, 3)));
  bool good() const { return problem_.empty(); }
  unsigned launches() { return service_.bench.board().encoder.launches; }
  const Setting& setting() const { return *references_[current_].setting; }

  Course course_;
  const std::vector<Reference>& references_;
  std::mt19937_64 random_;
  ServiceBench service_;
  Host* host_ = nullptr;
  std::size_t current_ = 0;
  bool dsp_spent_ = false;  // its audio was missing five times: the path is lost
  std::string event_;
  double event_began_s_ = 0;
  unsigned launches_before_ = 0;
  std::string problem_;
  Digest whole_;
  std::map<std::string, Told> told_;
  long events_today_ = 0;
  unsigned launches_at_dawn_ = 0;
  double slowest_today_s_ = 0;
  std::string slowest_today_;
  int day_ = 1;
  long first_handles_ = 0;
  long failed_reads_ = 0;  // of READ_REG
  long handles_at_dawn_ = 0;
  std::size_t stream_cost_ = 0;
  std::size_t heap_reference_ = 0;
  long handles_reference_ = 0;
};

void Storm::fail(const char* format, ...) {
  if (!good()) return;
  char text[400];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  problem_ = text;
  fprintf(course_.report, "FAIL day %d, %.3f s, seed %llu, setting \"%s\", %s: %s\n", day_,
          host_->now(), static_cast<unsigned long long>(course_.seed), setting().name,
          event_.c_str(), text);
  fflush(course_.report);
}

void Storm::world(const std::string& operation) {
  std::string error;
  vboard::Board& board = service_.bench.board();
  const vboard::Locked hold(board);
  if (!vboard::world_command(board, operation, error))
    fail("world '%s': %s", operation.c_str(), error.c_str());
}

void Storm::send_bytes(const std::string& bytes) {
  for (const char byte : bytes) send({static_cast<unsigned char>(byte)});
}

void Storm::send_number(std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) send({static_cast<int>(number >> shift & 0xFF)});
}

int Storm::ask(int code) {
  const std::vector<int> answer = host_->ask(code);
  return answer.size() == 1 ? answer[0] : -1;
}

std::string Storm::random_bytes(std::size_t size) {
  std::string bytes;
  while (bytes.size() < size) bytes += static_cast<char>(below(256));
  return bytes;
}

// Output and trace of the service are the run; both are taken often, so that no
// memory is needed for what was told.
void Storm::take_output() {
  fflush(stdout);
  const off_t size = lseek(STDOUT_FILENO, 0, SEEK_CUR);
  char block[4096];
  std::string text;
  for (off_t at = 0; at < size;) {
    const ssize_t got = pread(STDOUT_FILENO, block, sizeof block, at);
    if (got <= 0) break;
    text.append(block, static_cast<std::size_t>(got));
    at += got;
  }
  traffic.digest.add(text.data(), text.size());
  for (std::size_t at = text.find("Error i2c_readbyte2"); at != std::string::npos;
       at = text.find("Error i2c_readbyte2", at + 1))
    ++failed_reads_;
  if (ftruncate(STDOUT_FILENO, 0) != 0) fail("the service's output cannot be emptied");
  lseek(STDOUT_FILENO, 0, SEEK_SET);
}

// ---- what must hold ------------------------------------------------------------------------

void Storm::begin(const std::string& name) {
  event_ = name;
  launches_before_ = launches();
  event_began_s_ = host_->now();
}

// The board has to be healthy within the bound from now on, and to stay so.
void Storm::recovered(double bound_s, int least_restarts, int most_restarts, int cause, int flags) {
  if (!good()) return;
  const double from = host_->now();
  double since = -1;
  while (since < 0 || host_->now() - since < kSteady_s) {
    const bool so = healthy(service_.bench) && fpga_monitor_flags == flags &&
                    static_cast<int>(launches() - launches_before_) >= least_restarts;
    if (!so) since = -1;
    if (so && since < 0) since = host_->now();
    if (since < 0 && host_->now() - from > bound_s)
      return fail("not recovered within %.1f s: status 0x%x, state %d, flags 0x%x, restarts %u",
                  bound_s, global_status.load(), monitor_state.load(), fpga_monitor_flags.load(),
                  launches() - launches_before_);
    host_->wait(kLook_s);
  }
  const double took = since - from;
  const auto restarts = static_cast<int>(launches() - launches_before_);
  if (restarts > most_restarts)
    fail("%d launches of encode, %d at most expected", restarts, most_restarts);
  Told& told = told_[event_];
  ++told.count;
  told.slowest_s = std::max(told.slowest_s, took);
  told.bound_s = std::max(told.bound_s, bound_s);
  ++events_today_;
  if (took > slowest_today_s_) {
    slowest_today_s_ = took;
    slowest_today_ = event_;
  }
  interview(cause, flags);
}

void Storm::check_answer(int code, int should_be, const char* what) {
  if (!good()) return;
  const int is = ask(code);
  if (is != should_be) fail("%s is 0x%x instead of 0x%x", what, is, should_be);
}

// All that a host can ask.
void Storm::interview(int cause, int flags) {
  host_->take();
  check_answer(kGetHdVersion, kHdVersionByte, "host interface version");
  // A question that was cut short is ended first.
  int status = ask(kGetStatus);
  for (int skipped = 0; skipped < 2 && (status & 0xF0) != 0x90; ++skipped) status = ask(kGetStatus);
  if (status != kStatusHealthy) fail("status is 0x%x", status);
  const int told = ask(kGetStatus);
  if (cause != kAnyCause && told != cause) fail("cause is 0x%x instead of 0x%x", told, cause);
  check_answer(kGetStatus, flags, "health flags");
  send({kClearStatus});
  check_answer(kGetMonitorState, kMonitorWatching, "monitor state");
  check_answer(kGetSharedStatus, shared_memory->videoStd & 0xFF, "shared status");
  check_answer(kGetInputMux, setting().input_mux, "input");
  check_record();
  // Versions and frame rate share a counter: the third group ends it.
  for (int asked = 0; asked < 3 && ask(kGetSwVersion) != 3; ++asked) {
  }
  for (const int group : {1, 12, 3}) check_answer(kGetSwVersion, group, "software version");
  // 1 440 000 000 by frames per 1000 s; the low half of it.
  const unsigned period =
      static_cast<unsigned>(1440000.0 * 1000 / service_.bench.board().world.fps_milli) & 0xFFFF;
  check_answer(kGetFps, static_cast<int>(period >> 8), "frame rate, high byte");
  check_answer(kGetFps, static_cast<int>(period & 0xFF), "frame rate, low byte");
  const std::string other =
      difference(known_good(service_.bench, setting()), references_[current_].good);
  if (!other.empty()) fail("%s", other.c_str());
  const vboard::Violations& violations = service_.bench.board().violations;
  if (violations.count > 0) fail("against a device: %s", violations.first);
  take_output();
}

void put_number(std::uint8_t* at, int width, std::uint32_t value) {
  for (int i = 0; i < width; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// The record as it must be: counters as they were latched, words of encode as the
// model publishes them (1000, 1001, … from offset 172 and 2000, … from 276).
constexpr int kRecordSize = 104;
constexpr int kSecondsAt = 57;  // word at 172: how long encode has run
struct CounterAt {
  int at;
  int low;
};
constexpr CounterAt kCounters[] = {{5, kRegVsOverallLow},     {9, kRegVsRateLow},
                                   {15, kRegViOverallLow},    {19, kRegViRefOverallLow},
                                   {25, kRegAuI2sOverallLow}, {29, kRegAuOverallLow},
                                   {33, kRegAuRefOverallLow}};
struct WordAt {
  int at;
  int width;
  int offset;
};
constexpr WordAt kWords[] = {{51, 2, 180}, {53, 2, 176}, {55, 2, 184}, {59, 2, 188}, {61, 2, 192},
                             {63, 2, 196}, {65, 2, 200}, {67, 2, 204}, {69, 2, 208}, {71, 1, 216},
                             {72, 1, 220}, {73, 1, 252}, {74, 2, 256}, {76, 4, 224}, {80, 4, 232},
                             {84, 4, 236}, {88, 4, 212}};

// The buffers settle at 40 and 24. A capture ends at the first level that is not
// above the highest before it, and that of audio is never cleared: after two
// launches in a row a level on its way up may be kept. A video level that is more
// than 16 off brings about another restart.
struct LevelAt {
  int at;
  int low;
  int high;
};
constexpr LevelAt kLevels[] = {{45, 40 - 16, 40}, {47, 11, 24}};

void Storm::check_record() {
  Bench& bench = service_.bench;
  std::uint8_t is[kRecordSize] = {};
  std::uint8_t should_be[kRecordSize] = {};
  constexpr int kTries = 5;  // the supervision may latch in between
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (!good()) return;
    send({kWholeRecord});
    const long latches = traffic.latches;
    send({kPrepare});
    for (std::uint8_t& byte : is) byte = static_cast<std::uint8_t>(ask(kGetRecordByte));
    if (traffic.latches == latches + 1) break;
    if (attempt == kTries - 1) return fail("the record was never read between two cycles");
  }
  const vboard::Board& board = bench.board();
  should_be[0] = static_cast<std::uint8_t>(shared_memory->encode_version);
  should_be[1] = kHdVersionByte;
  should_be[2] = 0x01;
  should_be[3] = 0x17;
  should_be[4] = board.dsp.version;
  for (const CounterAt& one : kCounters) {
    put_number(should_be + one.at, 2, bench.fpga(one.low));
    put_number(should_be + one.at + 2, 2, bench.fpga(one.low + 4));
  }
  put_number(should_be + 13, 2, bench.fpga(kRegViBuff));
  put_number(should_be + 23, 2, bench.fpga(kRegAuBuff));
  const bool dsp_plays = board.dsp.running && board.world.audio == vboard::AudioSource::kDsp;
  if (start_bf_st != 0 && dsp_plays) {
    put_number(should_be + 37, 4, board.dsp.peak_left);
    put_number(should_be + 41, 4, board.dsp.peak_right);
  }
  for (const LevelAt& one : kLevels) {
    const int level = is[one.at];
    if (level < one.low || level > one.high) fail("captured level %d", level);
    put_number(should_be + one.at, 2, static_cast<std::uint32_t>(level));
  }
  put_number(should_be + 49, 2, 1);
  for (const WordAt& one : kWords)
    put_number(should_be + one.at, one.width,
               static_cast<std::uint32_t>(1000 + (one.offset - 172) / 4));
  for (int i = 0; i < 3; ++i)
    put_number(should_be + 92 + 4 * i, 4, static_cast<std::uint32_t>(2000 + i));
  // A second may have begun since.
  const auto seconds = (bench.now_us() - board.encoder.started_us) / 1000000;
  const int told = is[kSecondsAt] | is[kSecondsAt + 1] << 8;
  put_number(should_be + kSecondsAt, 2, static_cast<std::uint32_t>(told));
  if (((seconds - told) & 0xFFFF) > 1) fail("encode has run %d s in the record", told);
  for (int i = 0; i < kRecordSize; ++i)
    if (is[i] != should_be[i])
      return fail("byte %d of the record is 0x%x instead of 0x%x", i, is[i], should_be[i]);
}

// Every line action leaves its stream open, every set-up of the TVP7002 its bus,
// every READ_REG its link, and its bus when the read failed; nothing else does.
void Storm::check_handles() {
  take_output();
  const long documented = traffic.line_actions + traffic.set_ups + traffic.links + failed_reads_;
  const long is = open_files() - first_handles_;
  if (is != documented) fail("%ld handles are open, %ld are known of", is, documented);
}

// A host that is back asks until the board answers; what it asks in the middle of a
// transfer becomes part of it.
void Storm::until_answered() {
  constexpr int kPatience = 5000;
  for (int asked = 0; asked < kPatience; ++asked)
    if (ask(kGetHdVersion) == kHdVersionByte) return;
  fail("the board never answered again");
}

// ---- events of the world -----------------------------------------------------------------------

void Storm::world_fault() {
  const Fault* chosen = nullptr;
  do {
    chosen = &kFaults[below(std::size(kFaults))];
  } while (chosen->tvp7002_only && setting().composite());
  begin(std::string(chosen->name) + (chosen->restarts == 0 ? ", short" : ""));
  fault(chosen->name, true);
  host_->wait(between(chosen->shortest_s, chosen->longest_s));
  fault(chosen->name, false);
  recovered(restarts_within(chosen->restarts, chosen->cycles), chosen->restarts, chosen->restarts,
            chosen->cause);
}

void Storm::crash() {
  begin("encode crash");
  world("encode crash");
  // The buffer drains below its window within two cycles.
  recovered(restarts_within(1, 3), 1, 1, 0x87);
}

// May fall between two looks at the input.
void Storm::moment_without_plug() {
  if (setting().composite()) return crash();
  begin("plug out for a moment");
  fault("video-loss", true);
  host_->wait(between(0.05, 1.4));
  fault("video-loss", false);
  recovered(restarts_within(1, 1), 0, 1, kAnyCause);
}

// The decoder is looked at every fifth cycle, and every other look takes the input
// for good: restarts follow one another while the plug is out.
void Storm::composite_without_plug() {
  if (!setting().composite()) return crash();
  begin("composite plug out");
  fault("video-loss", true);
  host_->wait(between(10, 900));
  fault("video-loss", false);
  const double under_way_s = kRestart_s;
  recovered(under_way_s + restarts_within(2, 10), 0, 1000, kAnyCause);
}

void Storm::audio_lost() {
  begin("digital audio lost");
  fault("audio-loss", true);
  // The receiver's check waits 1 s more while there is nothing.
  const double noticed_s = 2 * (kCycle_s + 1);
  host_->wait(noticed_s + between(0, 600));
  if (fpga_monitor_flags != kFlagNoAudio) fail("flags are 0x%x", fpga_monitor_flags.load());
  fault("audio-loss", false);
  recovered(noticed_s, 0, 0, kNoCause);
}

void Storm::another_standard() {
  begin("standard changed");
  const auto standards = vboard::world_standards();
  world(std::string("set-standard ") + standards[below(standards.size())].name);
  host_->wait(2 * kCycle_s);  // until the new rate was latched
  recovered(kCycle_s, 0, 0, kNoCause);
}

// ---- configurations
// ------------------------------------------------------------------------------

// The host brings the setting's source along and sends its configuration. What was
// lost meanwhile restarts once or twice more.
void Storm::configure(std::size_t choice) {
  const bool same = choice == current_;
  current_ = choice;
  const std::string text = setting().text();
  world(std::string("source ") + setting().source);
  world(std::string("set-standard ") + setting().standard);
  world(setting().dsp ? "audio dsp" : "audio digital");
  host_->send_config(text);
  recovered(kDownload_s + restarts_within(2, 11), same ? 0 : 1, 4, kAnyCause);
}

void Storm::another_configuration() {
  begin("new configuration");
  configure(below(references_.size() - 1));
}

// The host goes away in the middle of a download, comes back and asks; its
// questions fill the file. Then it sends the configuration anew.
void Storm::download_cut() {
  begin("download cut");
  const std::string text = setting().text();
  send({kSendConfiguration});
  send_number(static_cast<std::uint32_t>(text.size()));
  send_bytes(text.substr(0, below(text.size())));
  host_->wait(between(5, 200));
  until_answered();
  configure(current_);
}

// A size too small is refused, and the board holds until a configuration arrives.
void Storm::refused_download() {
  begin("size refused");
  send({kSendConfiguration});
  send_number(static_cast<std::uint32_t>(below(30)));
  host_->wait(between(5, 60));
  if (SystemOnUpdate != 1) fail("the board does not hold");
  configure(current_);
}

// ---- updates and uploads
// ---------------------------------------------------------------------------

void Storm::whole_update() {
  begin("update");
  const std::string archive = kArchive + random_bytes(below(1000));
  send({kUpdate});
  send_number(static_cast<std::uint32_t>(archive.size()));
  send_bytes(archive);
  // encode is let go when the supervision next finds the board healthy; the
  // stalled buffer has not been counted to ten by then.
  recovered(kUpdate_s + restarts_within(0, 3), 0, 0, kNoCause);
  if (service_.bench.get_file("tmp/new_hd_version.tar.gz") != archive) fail("another archive");
  check_answer(kGetUpdateResult, 1, "update result");
  check_answer(kGetUpdateResult, 0, "update result, asked again");
}

void Storm::update_cut() {
  begin("update cut");
  send({kUpdate});
  send_number(static_cast<std::uint32_t>(200 + below(800)));
  send_bytes(random_bytes(below(200)));
  host_->wait(between(5, 200));
  until_answered();
  recovered(kUpdate_s + restarts_within(0, 3), 0, 0, kNoCause);
  check_answer(kGetUpdateResult, 0, "update result");
}

// Through the FIFO of the FPGA, by words. A host that went away goes on with
// anything until the announced size is in.
void Storm::fpga_update(bool cut) {
  begin(cut ? "FPGA update cut" : "FPGA update");
  const std::string archive = kArchive + random_bytes(2 * (50 + below(500)));
  const std::size_t first = cut ? below(archive.size() / 2) * 2 : archive.size();
  send({kFpgaUpdate});
  send_number(static_cast<std::uint32_t>(archive.size()));
  vboard::FpgaState& fpga = service_.bench.board().fpga;
  const auto push = [&](const std::string& bytes) {
    const vboard::Locked hold(service_.bench.board());
    for (const char byte : bytes)
      fpga.update_fifo[fpga.update_head++ % sizeof fpga.update_fifo] =
          static_cast<std::uint8_t>(byte);
  };
  push(archive.substr(0, first));
  if (cut) {
    host_->wait(between(0.5, 3));
    push(std::string(archive.size() - first, '\0'));
  }
  recovered(kUpdate_s + restarts_within(0, 3), 0, 0, kNoCause);
  const bool whole = first >= sizeof kArchive - 1;
  check_answer(kGetUpdateResult, whole ? 1 : 0, "update result");
}

std::vector<std::uint8_t> Storm::fetch(int code) {
  send({code});
  std::vector<std::uint8_t> bytes;
  std::uint32_t size = 4;
  for (std::uint32_t i = 0; i < size && good(); ++i) {
    const int byte = ask(kPoll);
    if (byte < 0) fail("the upload stops after %u bytes", i);
    bytes.push_back(static_cast<std::uint8_t>(byte));
    if (i == 3)
      size +=
          static_cast<std::uint32_t>(bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3]);
  }
  if (bytes.size() >= 4) bytes.erase(bytes.begin(), bytes.begin() + 4);
  return bytes;
}

void Storm::whole_upload() {
  begin("upload");
  const bool monitor = below(2) == 0;
  if (!monitor) {
    service_.bench.put_file("log1.txt", "log");
    send({kPackLogs});
  }
  // The status file is written anew every 25 s; not while it is fetched.
  const std::string file = service_.bench.get_file(monitor ? "monitor.txt" : "temp_log1.tar.gz");
  const std::vector<std::uint8_t> bytes = fetch(monitor ? kGetMonitorFile : kGetLog1);
  if (file.empty() || std::string(bytes.begin(), bytes.end()) != file) fail("another file");
  recovered(kCycle_s, 0, 0, kNoCause);
}

void Storm::upload_cut() {
  begin("upload cut");
  send({kPackLogs});
  send({kGetLog1});
  for (std::uint64_t polls = below(10); polls > 0; --polls) ask(kPoll);
  host_->wait(kUploadGivesUp_s);
  recovered(kCycle_s, 0, 0, kNoCause);
}

// ---- the link
// ----------------------------------------------------------------------------------------

// Random bytes between two transfers; what they began is over afterwards: uploads
// give up, and what waits for parameters (12 at most) gets polls. Not among them:
// what begins a transfer, a register read and the factory software. Only wild
// noise stops the audio, which takes two configurations to mend: the first finds
// the digital audio not enabled.
void Storm::noise(bool wild) {
  begin(wild ? "noise, then configurations" : "noise");
  std::set<int> kept = {kSendConfiguration, kReadReg, kUpdate, kRestoreFactory, kFpgaUpdate};
  if (!wild) kept.insert(kStopAudio);
  for (std::uint64_t count = 1 + below(60); count > 0; --count) {
    int byte = 0;
    do {
      byte = static_cast<int>(below(256));
    } while (kept.contains(byte));
    send({byte});
    if (below(8) == 0) host_->wait(between(0, 2));
  }
  host_->wait(kUploadGivesUp_s);
  for (int polls = 0; polls < 12; ++polls) send({kPoll});
  host_->wait(1);
  if (!wild) return recovered(restarts_within(0, 3), 0, 0, kNoCause);
  host_->send_config(setting().text());
  host_->wait(kDownload_s + restarts_within(0, 0));
  configure(current_);
}

// ---- two things at once
// ----------------------------------------------------------------------------------

void Storm::update_in_restart() {
  begin("update in a restart");
  world("encode crash");
  host_->wait(between(0, kRestart_s + 2 * kCycle_s));
  const std::string archive = kArchive + random_bytes(below(1000));
  send({kUpdate});
  send_number(static_cast<std::uint32_t>(archive.size()));
  send_bytes(archive);
  recovered(kUpdate_s + restarts_within(2, 11), 1, 2, kAnyCause);
  check_answer(kGetUpdateResult, 1, "update result");
}

// Both apply at once; the host, not knowing, sends again what it wants.
void Storm::configuration_in_restart() {
  begin("configuration in a restart");
  world("encode crash");
  host_->wait(between(0, kRestart_s + 2 * kCycle_s));
  host_->send_config(setting().text());
  recovered(kDownload_s + restarts_within(2, 11), 1, 4, kAnyCause);
}

// ---- the DSP
// -----------------------------------------------------------------------------------------------

// Its firmware is gone; somebody at the bench pushes it again while the service
// runs. The push belongs to another process: its stream is not the service's.
void Storm::firmware_push() {
  begin("DSP firmware lost and pushed");
  fault("dsp-no-firmware", true);
  host_->wait(between(5, 600));
  FILE* of_service = fpga_file;
  Load_BF();
  FILE* of_bench = fpga_file;
  fpga_file = of_service;
  fclose(of_bench);
  host_->wait(0.5);
  recovered(kCycle_s, 0, 0, kNoCause);
}

// The DSP as the audio path. Fewer than five cycles without audio are borne.
void Storm::dsp_interlude() {
  if (dsp_spent_) return audio_lost();
  begin("DSP audio, lost shortly");
  const std::size_t before = current_;
  configure(references_.size() - 1);
  begin("DSP audio, lost shortly");
  fault("audio-loss", true);
  host_->wait(between(1, 3 * 1.5));
  fault("audio-loss", false);
  recovered(restarts_within(0, 2), 0, 0, kNoCause);
  begin("DSP audio, back to digital");
  configure(before);
}

// Five cycles without audio: the restarts go on until another path is configured.
// The path cannot be used any more in this run.
void Storm::dsp_lost_for_good() {
  if (dsp_spent_) return audio_lost();
  begin("DSP audio lost for good");
  const std::size_t before = current_;
  configure(references_.size() - 1);
  begin("DSP audio lost for good");
  dsp_spent_ = true;
  fault("audio-loss", true);
  host_->wait(60);
  fault("audio-loss", false);
  host_->wait(300);
  // Six cycles to the first restart, and each of them begins anew at once.
  const auto least = static_cast<unsigned>((360 - 7 * kCycle_s) / (kRestart_s + kCycle_s));
  if (launches() - launches_before_ < least)
    fail("%u restarts in 360 s", launches() - launches_before_);
  begin("DSP audio, restarts ended by digital audio");
  configure(before);
}

// ---- days
// ----------------------------------------------------------------------------------------------------

// What happens next: one row, by its weight. Weights sum up to 100.
void Storm::happen() {
  static constexpr struct {
    unsigned weight;
    void (*event)(Storm&);
  } kChances[] = {
      {38, [](Storm& one) { one.world_fault(); }},
      {5, [](Storm& one) { one.crash(); }},
      {3, [](Storm& one) { one.moment_without_plug(); }},
      {3, [](Storm& one) { one.composite_without_plug(); }},
      {4, [](Storm& one) { one.audio_lost(); }},
      {4, [](Storm& one) { one.another_standard(); }},
      {8, [](Storm& one) { one.another_configuration(); }},
      {3, [](Storm& one) { one.download_cut(); }},
      {1, [](Storm& one) { one.refused_download(); }},
      {3, [](Storm& one) { one.whole_update(); }},
      {2, [](Storm& one) { one.update_cut(); }},
      {2, [](Storm& one) { one.fpga_update(false); }},
      {1, [](Storm& one) { one.fpga_update(true); }},
      {3, [](Storm& one) { one.whole_upload(); }},
      {2, [](Storm& one) { one.upload_cut(); }},
      {6, [](Storm& one) { one.noise(false); }},
      {2, [](Storm& one) { one.noise(true); }},
      {3, [](Storm& one) { one.update_in_restart(); }},
      {3, [](Storm& one) { one.configuration_in_restart(); }},
      {2, [](Storm& one) { one.firmware_push(); }},
      {2, [](Storm& one) { one.dsp_interlude(); }},
  };
  std::uint64_t draw = below(100);
  for (const auto& chance : kChances) {
    if (draw < chance.weight) return chance.event(*this);
    draw -= chance.weight;
  }
}

void Storm::prepare() {
  rlimit files = {};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  setvbuf(stdout, nullptr, _IOLBF, 0);  // as the program itself does
  Bench& bench = service_.bench;
  for (const std::string name : {"rm", "mkdir"}) {
    std::string text = kQuiet;
    text.replace(text.find("NAME"), 4, name);
    bench.put_file("bin/" + name, text);
  }
  bench.put_file("bin/tar", kPack);
  bench.put_file("bin/ls", kListing);
  bench.put_file("update.sh", kUpdateScript);
  for (const char* name : {"bin/rm", "bin/mkdir", "bin/tar", "bin/ls", "update.sh"})
    chmod(bench.path(name).c_str(), 0755);
  bench.put_file("version.ini", "1.12.3\n");
  bench.put_file("MELK_spi.bin", std::string(600, '\x42'));
  start_monitoring = 1;
  vboard::set_trace_sink(nullptr);
  stream_cost_ = heap_of_a_stream();
  vboard::set_trace_sink(take_trace);
}

// READ_REG waits on a second link, for which a descriptor beyond those that select()
// knows is of no use.
void Storm::read_register() {
  if (open_files() >= FD_SETSIZE) return;
  constexpr int kTvp7002 = 0xB8;  // 8-bit form
  constexpr int kInputMux = 0x19;
  send({kReadReg, kTvp7002});
  check_answer(kInputMux, service_.bench.board().tvp7002.reg[kInputMux], "TVP7002 register 0x19");
}

// The first day warms up; from its end on the heap grows by open streams alone.
void Storm::end_of_day() {
  read_register();
  check_handles();
  const long handles = open_files() - first_handles_;
  const std::size_t heap = heap_in_use();
  if (day_ == 1) {
    heap_reference_ = heap;
    handles_reference_ = handles;
  }
  const std::size_t allowed =
      heap_reference_ + static_cast<std::size_t>(handles - handles_reference_) * stream_cost_ +
      kHeapSlack;
  if (heap > allowed) fail("%zu bytes of heap in use, %zu allowed", heap, allowed);
  const std::uint64_t digest = traffic.digest.value();
  whole_.add(reinterpret_cast<const char*>(&digest), sizeof digest);
  traffic.digest = {};
  fprintf(course_.report,
          "day %2d: %3ld events, %3u launches, slowest recovery %5.1f s (%s), handles %ld (+%ld), "
          "heap %s, digest %016llx\n",
          day_, events_today_, launches() - launches_at_dawn_, slowest_today_s_,
          slowest_today_.c_str(), handles, handles - handles_at_dawn_, in_kilobytes(heap).c_str(),
          static_cast<unsigned long long>(digest));
  fflush(course_.report);
  ++day_;
  events_today_ = 0;
  launches_at_dawn_ = launches();
  handles_at_dawn_ = handles;
  slowest_today_s_ = 0;
}

constexpr double kHour_s = 3600;
constexpr double kDay_s = 24 * kHour_s;
constexpr double kShortestPeace_s = 60;
constexpr double kLongestPeace_s = 3600;
constexpr double kLostAudioAt = 2.0 / 3;  // of the course

void Storm::tell(Host& host) {
  host_ = &host;
  host.wait(2);
  // What the service holds from its start: registers, LED, link, hd.ini.
  first_handles_ = open_files();
  traffic.links = 0;
  // The first configuration after a start finds the digital audio not yet enabled.
  host.send_config(setting().text());
  host.wait(kDownload_s + restarts_within(0, 0));
  begin("new configuration");
  configure(0);
  const double end = course_.hours * kHour_s;
  while (good() && host.now() < end) {
    host.wait(between(kShortestPeace_s, kLongestPeace_s));
    if (host.now() >= end) break;
    if (host.now() >= day_ * kDay_s) end_of_day();
    if (!dsp_spent_ && host.now() > end * kLostAudioAt) {
      dsp_lost_for_good();
    } else {
      happen();
    }
  }
  if (good()) end_of_day();
}

bool Storm::run() {
  prepare();
  bool told = false;
  // The service is given the time it takes, and stopped when all is told.
  service_.run(course_.hours * kHour_s + 2 * kDay_s, [&](Host& host) {
    tell(host);
    told = true;
    vboard::ClockState& clock = service_.bench.board().clock;
    clock.limit_us = clock.now_us;
  });
  vboard::set_trace_sink(nullptr);
  if (!told) {
    problem_ = "the service ended";
    fprintf(course_.report, "FAIL seed %llu: %s\n", static_cast<unsigned long long>(course_.seed),
            problem_.c_str());
  }
  for (const auto& [name, one] : told_)
    fprintf(course_.report, "%-44s %4ld times, recovered after %5.1f s at most, bound %6.1f s\n",
            name.c_str(), one.count, one.slowest_s, one.bound_s);
  return good();
}

}  // namespace

bool run_storm(const Course& course, const std::vector<Reference>& references,
               std::uint64_t* digest) {
  Storm storm(course, references);
  const bool good = storm.run();
  *digest = storm.digest();
  return good;
}
