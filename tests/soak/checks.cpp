// The checks after each event, and the host's queries for them.
#include "tests/soak/storm.h"

#include <algorithm>

#include "hw/fpga_registers.h"
#include "state/service_flags.h"
#include "tests/soak/bounds.h"

using vboard::Bench;

namespace {

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
// than 16 off causes another restart.
struct LevelAt {
  int at;
  int low;
  int high;
};
constexpr LevelAt kLevels[] = {{45, 40 - 16, 40}, {47, 11, 24}};

}  // namespace

void Storm::begin(const std::string& name) {
  event_ = name;
  launches_before_ = launches();
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

void Storm::check_answer(int byte, int should_be, const char* what) {
  if (!good()) return;
  const int is = ask(byte);
  if (is != should_be) fail("%s is 0x%x instead of 0x%x", what, is, should_be);
}

// All that a host can ask.
void Storm::interview(int cause, int flags) {
  host_->take();
  check_answer(Code::kGetHdVersion, melk::kHdVersion, "host interface version");
  // A question that was cut short is ended first.
  int status = ask(Code::kGetStatus);
  for (int skipped = 0; skipped < 2 && (status & 0xF0) != 0x90; ++skipped)
    status = ask(Code::kGetStatus);
  if (status != kStatusHealthy) fail("status is 0x%x", status);
  const int told = ask(Code::kGetStatus);
  if (cause != kAnyCause && told != cause) fail("cause is 0x%x instead of 0x%x", told, cause);
  check_answer(Code::kGetStatus, flags, "health flags");
  send(Code::kClearStatus);
  check_answer(Code::kGetMonitorState, kMonitorWatching, "monitor state");
  check_answer(Code::kGetSharedStatus, shared_memory->videoStd & 0xFF, "shared status");
  check_answer(Code::kGetInputMux, setting().input_mux, "input");
  check_record();
  // Versions and frame rate share a counter: the third group ends it.
  for (int asked = 0; asked < 3 && ask(Code::kGetSwVersion) != 3; ++asked) {
  }
  for (const int group : {1, 12, 3}) check_answer(Code::kGetSwVersion, group, "software version");
  // 1 440 000 000 by frames per 1000 s; the low half of it.
  const unsigned period =
      static_cast<unsigned>(1440000.0 * 1000 / service_.bench.board().world.fps_milli) & 0xFFFF;
  check_answer(Code::kGetFps, static_cast<int>(period >> 8), "frame rate, high byte");
  check_answer(Code::kGetFps, static_cast<int>(period & 0xFF), "frame rate, low byte");
  const std::string other =
      difference(known_good(service_.bench, setting()), references_[current_].good);
  if (!other.empty()) fail("%s", other.c_str());
  const vboard::Violations& violations = service_.bench.board().violations;
  if (violations.count > 0) fail("against a device: %s", violations.first);
  take_output();
}

void Storm::check_record() {
  Bench& bench = service_.bench;
  std::uint8_t is[kRecordSize] = {};
  std::uint8_t should_be[kRecordSize] = {};
  constexpr int kTries = 5;  // the supervision may latch in between
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (!good()) return;
    send(Code::kGetRegFileSize);
    const long latches = traffic.latches;
    send(Code::kPrepareFpgaRegisters);
    for (std::uint8_t& byte : is) byte = static_cast<std::uint8_t>(ask(Code::kGetRegFileByte));
    if (traffic.latches == latches + 1) break;
    if (attempt == kTries - 1) return fail("the record was never read between two cycles");
  }
  const vboard::Board& board = bench.board();
  should_be[0] = static_cast<std::uint8_t>(shared_memory->encode_version);
  should_be[1] = melk::kHdVersion;
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
    if (ask(Code::kGetHdVersion) == melk::kHdVersion) return;
  fail("the board never answered again");
}
