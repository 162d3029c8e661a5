// Settings of a board under a configuration, and those of a fresh board.
#include "tests/soak/known_good.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "hw/fpga_registers.h"
#include "state/service_flags.h"

using vboard::Bench;

// Every setting names a frame period of its own: codes without one keep what the
// configuration before had.
const std::vector<Setting>& settings() {
  static const std::vector<Setting> all = {
      {"component 25 H.264", {}, "component", "1080i50", 0},
      {"component 29.97 MPEG-2",
       {{"mpgVidRes", 9},
        {"VidCodec", 1},
        {"mpgVidRate", 6000},
        {"pidVideo", 512},
        {"pidAudio", 513},
        {"pidPCR", 512},
        {"gop_size", 30}},
       "component",
       "720p59.94",
       0},
      {"composite with captions",
       {{"VideoInput", 4}, {"mpgVidRes", 8}, {"VidCodec", 1}, {"vbiMode", 5}},
       "composite",
       "480i",
       4},
      {"VGA at a fixed rate",
       {{"VideoInput", 2}, {"mpgVidRes", 10}, {"output_br", 12000000}},
       "vga",
       "1280x1024",
       3},
      {"component 30 VBR",
       {{"mpgVidRes", 7}, {"vbr", 1}, {"eb_mode", 0}, {"AVSync", 120}, {"offset_x", 4}},
       "component",
       "1080i60",
       0},
  };
  return all;
}

const Setting& dsp_setting() {
  static const Setting one = {
      "AC-3 DSP", {{"AudioInput", 2}, {"inAudioVolume", 5}}, "component", "1080i50", 0, true};
  return one;
}

bool healthy(Bench& bench) { return serves(bench.board()) && watches(); }

namespace {

// Registers that keep what was written to them and belong to the configuration;
// the firmware push has its own.
bool is_setting(const FpgaRegister& one) {
  if (one.address == kRegDspSpiData || one.address == kRegDspSpiControl) return false;
  return keeps_its_value(one);
}

// What `encode` reports, and what the host sets beside the configuration.
struct Live {
  std::size_t first;
  std::size_t size;
};
constexpr Live kLive[] = {
    {offsetof(SharedBlock, clock_text), sizeof(SharedBlock::clock_text)},
    {offsetof(SharedBlock, spts), sizeof(SharedBlock::spts)},
    {offsetof(SharedBlock, status_frame_rate), sizeof(SharedBlock::status_frame_rate)},
    {offsetof(SharedBlock, status_width), sizeof(SharedBlock::status_width)},
    {offsetof(SharedBlock, status_height), sizeof(SharedBlock::status_height)},
    {offsetof(SharedBlock, statistics), sizeof(SharedBlock::statistics)},
    {offsetof(SharedBlock, statistics2), sizeof(SharedBlock::statistics2)},
};

constexpr int kComponentRegisters[] = {0x19, 0x1A};  // all that its set-up writes
constexpr int kDecoderStandard = 0x28;  // holds the low byte of an address, any of them

// A text ends at its zero; a longer one before it may have left more.
void forget_behind_end(std::uint8_t* text, std::size_t size) {
  std::fill(std::find(text, text + size, 0), text + size, std::uint8_t{0});
}

std::string at(const char* what, std::size_t index, unsigned is, unsigned should_be) {
  char text[96];
  snprintf(text, sizeof text, "%s 0x%zx is 0x%x instead of 0x%x", what, index, is, should_be);
  return text;
}

template <class T, std::size_t N>
std::string differs(const char* what, const T (&is)[N], const T (&should_be)[N]) {
  const auto [one, other] = std::mismatch(std::begin(is), std::end(is), std::begin(should_be));
  if (one == std::end(is)) return "";
  return at(what, static_cast<std::size_t>(one - std::begin(is)), *one, *other);
}

constexpr double kApplied_s = 60;
constexpr double kSettled_s = 120;

KnownGood run_fresh_board(const Setting& setting) {
  ServiceBench service;
  KnownGood result = {};
  service.run(600, [&](Host& host) {
    host.wait(2);
    host.send_config(example_config());
    host.wait(kApplied_s);
    host.world(std::string("source ") + setting.source);
    host.world(std::string("set-standard ") + setting.standard);
    host.world(setting.dsp ? "audio dsp" : "audio digital");
    host.send_config(setting.text());
    host.wait(kApplied_s);
    host.send_config(setting.text());
    host.wait(kSettled_s);
    result = known_good(service.bench, setting);
  });
  return result;
}

}  // namespace

KnownGood known_good(Bench& bench, const Setting& setting) {
  KnownGood taken = {};
  std::size_t row = 0;
  for (const FpgaRegister& one : kFpgaRegisters) {
    if (is_setting(one)) taken.fpga[row] = bench.fpga(one.address);
    ++row;
  }
  const vboard::Board& board = bench.board();
  if (setting.vga()) {
    std::copy(std::begin(board.tvp7002.reg), std::end(board.tvp7002.reg), taken.tvp7002);
  } else if (setting.composite()) {
    std::copy(std::begin(board.tvp5150.reg), std::end(board.tvp5150.reg), taken.tvp5150);
    taken.tvp5150[kDecoderStandard] = 0;
  } else {
    for (const int reg : kComponentRegisters) taken.tvp7002[reg] = board.tvp7002.reg[reg];
  }
  if (setting.dsp) memcpy(taken.dsp, board.dsp.configure, sizeof taken.dsp);
  memcpy(taken.block, static_cast<const void*>(shared_memory), sizeof taken.block);
  forget_behind_end(taken.block + offsetof(SharedBlock, file_suffix),
                    sizeof(SharedBlock::file_suffix));
  for (const Live& one : kLive) memset(taken.block + one.first, 0, one.size);
  taken.healthy = healthy(bench);
  return taken;
}

std::string difference(const KnownGood& is, const KnownGood& should_be) {
  std::size_t row = 0;
  for (const FpgaRegister& one : kFpgaRegisters) {
    if (is.fpga[row] != should_be.fpga[row])
      return std::string(one.name) + " " +
             at("at", static_cast<std::size_t>(one.address), is.fpga[row], should_be.fpga[row]);
    ++row;
  }
  for (const std::string& one : {differs("TVP7002 register", is.tvp7002, should_be.tvp7002),
                                 differs("TVP5150 register", is.tvp5150, should_be.tvp5150),
                                 differs("DSP setting", is.dsp, should_be.dsp),
                                 differs("shared block", is.block, should_be.block)})
    if (!one.empty()) return one;
  return is.healthy ? "" : "not healthy";
}

KnownGood fresh_board(const Setting& setting) {
  static_assert(std::size(kFpgaRegisters) <= std::size(KnownGood{}.fpga));
  void* place =
      mmap(nullptr, sizeof(KnownGood), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* shared = static_cast<KnownGood*>(place);
  fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    *shared = run_fresh_board(setting);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  const KnownGood result = *shared;
  munmap(place, sizeof(KnownGood));
  return result;
}
