// The course of days: prepares a board, starts a service on it and applies event
// after event.
#include "tests/soak/storm.h"

#include <malloc.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "state/service_flags.h"
#include "tests/soak/bounds.h"
#include "vboard/core/real.h"
#include "vboard/core/trace.h"

using vboard::Bench;

namespace {

// Bytes of the heap in use; 0 where the allocator does not report them.
std::size_t heap_in_use() { return mallinfo2().uordblks; }

// A sanitizer's allocator does not report it.
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

}  // namespace

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

void Storm::announce(Code code, std::size_t size) {
  send(command_with_number(static_cast<int>(code), static_cast<std::uint32_t>(size)));
}

int Storm::ask(int byte) {
  const std::vector<int> answer = host_->ask(byte);
  return answer.size() == 1 ? answer[0] : -1;
}

std::string Storm::random_bytes(std::size_t size) {
  std::string bytes;
  while (bytes.size() < size) bytes += static_cast<char>(below(256));
  return bytes;
}

// Output and trace of the service are the run; both are taken often, so that no
// memory is needed for the report.
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
  service_.status_file = true;
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
  send({static_cast<int>(Code::kReadReg), kTvp7002});
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
  // The service is given the time it takes, and stopped when the report is complete.
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
