// The storm: seeded random events on one board, and the checks after each.
//
// An event begins at a random moment of the supervision's cycle. After it the
// board must be healthy within the event's bound and stay so for a while; then
// the host sends every query, including the whole status record, and the settings
// are compared with those of a fresh board.
//
// The course of days is in storm.cpp, the events in events.cpp, the checks after
// each in checks.cpp, the derivation of the bounds in bounds.h.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/soak/known_good.h"
#include "tests/soak/traffic.h"

using melk::Code;

// Settings with what they make of a fresh board.
struct Reference {
  const Setting* setting;
  KnownGood good;
};

struct Course {
  double hours = 0;
  std::uint64_t seed = 0;
  FILE* report = nullptr;  // of the run; standard output belongs to the service
};

// How often an event came, and how soon the board was well again after it.
struct Told {
  long count = 0;
  double slowest_s = 0;
  double bound_s = 0;
};

// A cause that chance decides.
inline constexpr int kAnyCause = -1;

// What a good update archive begins with: the update script looks for it.
inline constexpr char kArchive[] = "GOOD";

class Storm {
 public:
  // The last reference is that of the DSP.
  Storm(const Course& course, const std::vector<Reference>& references)
      : course_(course), references_(references), random_(course.seed) {}

  // Runs the course over a board of its own, to its end or to the first failure,
  // which stands in the report then. Returns true when nothing was.
  bool run();
  // What the whole run came to.
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
  void send(Code code) { send({static_cast<int>(code)}); }
  void send_bytes(const std::string& bytes);
  // A command with the size of what is to follow.
  void announce(Code code, std::size_t size);
  int ask(int byte);
  int ask(Code code) { return ask(static_cast<int>(code)); }
  int poll() { return ask(melk::kPoll); }
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
  std::string send_archive();
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
  void check_answer(int byte, int should_be, const char* what);
  void check_answer(Code code, int should_be, const char* what) {
    check_answer(static_cast<int>(code), should_be, what);
  }
  void check_handles();
  void read_register();
  void until_answered();
  std::vector<std::uint8_t> fetch(Code code);
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
