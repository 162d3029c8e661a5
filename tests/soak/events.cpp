// The events, and the draw among them.
#include "tests/soak/storm.h"

#include <cstdio>
#include <iterator>
#include <set>

#include "audio/blkfn.h"
#include "hw/fpga.h"
#include "state/service_flags.h"
#include "tests/soak/bounds.h"
#include "vboard/core/update_fifo.h"
#include "vboard/models/bus.h"

namespace {

constexpr double kUploadGivesUp_s = 31;  // 15 s over the size, 15 s over the data

// A world fault that ends by itself. Lasts between the two times, which keep its cause certain:
// long enough to be found, over before the restart that it causes launches `encode` again.
struct Fault {
  const char* name;
  double shortest_s;
  double longest_s;
  int cycles;    // until it is found
  int restarts;  // that it causes
  int cause;
  bool tvp7002_only = false;
};

constexpr Fault kFaults[] = {
    {"video-overflow", 4, 15, 1, 1, 0x81},
    {"audio-overflow", 4, 15, 1, 1, 0x82},
    {"stall", 18, 28, 11, 1, 0x83},
    {"stall", 1, 10, 1, 0, melk::kCauseNone},
    {"encode-hang", 18, 28, 11, 1, 0x83},
    {"encode-hang", 1, 10, 1, 0, melk::kCauseNone},
    {"video-loss", 5, 1200, 1, 1, 0x85, true},
    {"video-freeze", 18, 28, 11, 1, 0x86, true},
    {"level-jump", 4, 10, 2, 1, 0x87},
    {"i2c-fail 5c", 4, 9, 1, 1, 0x85, true},
    {"fpga-fail 16", 4, 9, 1, 1, 0x87, true},
};

}  // namespace

// ---- events of the world --------------------------------------------------------

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
  recovered(noticed_s, 0, 0, melk::kCauseNone);
}

void Storm::another_standard() {
  begin("standard changed");
  const auto plug = vboard::sender(service_.bench.board().world.video);
  std::vector<const char*> names;
  for (const vboard::VideoStandard& one : vboard::world_standards())
    if ((one.senders & plug) != 0) names.push_back(one.name);
  world(std::string("set-standard ") + names[below(names.size())]);
  host_->wait(2 * kCycle_s);  // until the new rate was latched
  recovered(kCycle_s, 0, 0, melk::kCauseNone);
}

// ---- configurations -------------------------------------------------------------

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
  announce(Code::kSendHdConfiguration, text.size());
  send_bytes(text.substr(0, below(text.size())));
  host_->wait(between(5, 200));
  until_answered();
  configure(current_);
}

// A size too small is refused, and the board holds until a configuration arrives.
void Storm::refused_download() {
  begin("size refused");
  announce(Code::kSendHdConfiguration, below(30));
  host_->wait(between(5, 60));
  if (SystemOnUpdate != 1) fail("the board does not hold");
  configure(current_);
}

// ---- updates and uploads --------------------------------------------------------

// Over the link; returns what was sent.
std::string Storm::send_archive() {
  const std::string archive = kArchive + random_bytes(below(1000));
  announce(Code::kUpdateVersion, archive.size());
  send_bytes(archive);
  return archive;
}

void Storm::whole_update() {
  begin("update");
  const std::string archive = send_archive();
  // encode is let go when the supervision next finds the board healthy; the
  // stalled buffer has not been counted to ten by then.
  recovered(kUpdate_s + restarts_within(0, 3), 0, 0, melk::kCauseNone);
  if (service_.bench.get_file("tmp/new_hd_version.tar.gz") != archive) fail("another archive");
  check_answer(Code::kGetUpdateResult, 1, "update result");
  check_answer(Code::kGetUpdateResult, 0, "update result, asked again");
}

void Storm::update_cut() {
  begin("update cut");
  announce(Code::kUpdateVersion, 200 + below(800));
  send_bytes(random_bytes(below(200)));
  host_->wait(between(5, 200));
  until_answered();
  recovered(kUpdate_s + restarts_within(0, 3), 0, 0, melk::kCauseNone);
  check_answer(Code::kGetUpdateResult, 0, "update result");
}

// Through the FIFO of the FPGA, by words. A host that went away goes on with
// anything until the announced size is in.
void Storm::fpga_update(bool cut) {
  begin(cut ? "FPGA update cut" : "FPGA update");
  const std::string archive = kArchive + random_bytes(2 * (50 + below(500)));
  const std::size_t first = cut ? below(archive.size() / 2) * 2 : archive.size();
  announce(Code::kNewUpdateVersion, archive.size());
  // No board takes more than a moment for what is in the FIFO.
  const auto push = [&](const std::string& bytes) {
    const auto* const data = reinterpret_cast<const std::uint8_t*>(bytes.data());
    for (std::size_t sent = 0; sent < bytes.size();) {
      {
        const vboard::Locked hold(service_.bench.board());
        sent += vboard::feed_update(service_.bench.board().fpga, data + sent, bytes.size() - sent);
      }
      if (sent < bytes.size()) host_->wait(0.001);
    }
  };
  push(archive.substr(0, first));
  if (cut) {
    host_->wait(between(0.5, 3));
    push(std::string(archive.size() - first, '\0'));
  }
  recovered(kUpdate_s + restarts_within(0, 3), 0, 0, melk::kCauseNone);
  const bool whole = first >= sizeof kArchive - 1;
  check_answer(Code::kGetUpdateResult, whole ? 1 : 0, "update result");
}

std::vector<std::uint8_t> Storm::fetch(Code code) {
  send(code);
  std::vector<std::uint8_t> bytes;
  std::uint32_t size = 4;
  for (std::uint32_t i = 0; i < size && good(); ++i) {
    const int byte = poll();
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
    send(Code::kCpLogFile);
  }
  // The status file is written anew every 25 s; not while it is fetched.
  const std::string file = service_.bench.get_file(monitor ? "monitor.txt" : "temp_log1.tar.gz");
  const std::vector<std::uint8_t> bytes =
      fetch(monitor ? Code::kGetMonitorFile : Code::kGetLogFile1);
  if (file.empty() || std::string(bytes.begin(), bytes.end()) != file) fail("another file");
  recovered(kCycle_s, 0, 0, melk::kCauseNone);
}

void Storm::upload_cut() {
  begin("upload cut");
  send(Code::kCpLogFile);
  send(Code::kGetLogFile1);
  for (std::uint64_t polls = below(10); polls > 0; --polls) poll();
  host_->wait(kUploadGivesUp_s);
  recovered(kCycle_s, 0, 0, melk::kCauseNone);
}

// ---- the link -------------------------------------------------------------------

// Random bytes between two transfers; what they began is over afterwards: uploads
// give up, and what waits for parameters (12 at most) gets polls. Not among them:
// what begins a transfer, a register read and the factory software. Only wild
// noise stops the audio, which two configurations restore: the first finds
// the digital audio not enabled.
void Storm::noise(bool wild) {
  begin(wild ? "noise, then configurations" : "noise");
  std::set<Code> kept = {Code::kSendHdConfiguration, Code::kReadReg, Code::kUpdateVersion,
                         Code::kRestoreFactory, Code::kNewUpdateVersion};
  if (!wild) kept.insert(Code::kStopAudio);
  for (std::uint64_t count = 1 + below(60); count > 0; --count) {
    int byte = 0;
    do {
      byte = static_cast<int>(below(256));
    } while (kept.contains(static_cast<Code>(byte)));
    send({byte});
    if (below(8) == 0) host_->wait(between(0, 2));
  }
  host_->wait(kUploadGivesUp_s);
  for (int polls = 0; polls < 12; ++polls) send({melk::kPoll});
  host_->wait(1);
  if (!wild) return recovered(restarts_within(0, 3), 0, 0, melk::kCauseNone);
  host_->send_config(setting().text());
  host_->wait(kDownload_s + restarts_within(0, 0));
  configure(current_);
}

// ---- two things at once ---------------------------------------------------------

void Storm::update_in_restart() {
  begin("update in a restart");
  world("encode crash");
  host_->wait(between(0, kRestart_s + 2 * kCycle_s));
  send_archive();
  recovered(kUpdate_s + restarts_within(2, 11), 1, 2, kAnyCause);
  check_answer(Code::kGetUpdateResult, 1, "update result");
}

// Both apply at once; the host, not knowing, sends again what it wants.
void Storm::configuration_in_restart() {
  begin("configuration in a restart");
  world("encode crash");
  host_->wait(between(0, kRestart_s + 2 * kCycle_s));
  host_->send_config(setting().text());
  recovered(kDownload_s + restarts_within(2, 11), 1, 4, kAnyCause);
}

// ---- the DSP --------------------------------------------------------------------

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
  recovered(kCycle_s, 0, 0, melk::kCauseNone);
}

// The DSP as the audio path. Fewer than five cycles without audio are tolerated.
void Storm::dsp_interlude() {
  if (dsp_spent_) return audio_lost();
  begin("DSP audio, lost shortly");
  const std::size_t before = current_;
  configure(references_.size() - 1);
  begin("DSP audio, lost shortly");
  fault("audio-loss", true);
  host_->wait(between(1, 3 * 1.5));
  fault("audio-loss", false);
  recovered(restarts_within(0, 2), 0, 0, melk::kCauseNone);
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

// ---- the draw -------------------------------------------------------------------

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
