// The whole service in the test's process; see the header.
#include "tests/service/service_bench.h"

#include <dirent.h>
#include <sys/stat.h>

#include <gtest/gtest.h>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <fstream>
#include <iterator>

#include "app/service.h"
#include "state/service_flags.h"
#include "supervision/supervisor.h"
#include "vboard/models/bus.h"

using namespace vboard;

namespace {

constexpr std::int64_t kTakenLimit_us = 60'000'000;
constexpr std::int64_t kAnswerLimit_us = 1'000'000;
constexpr int kSendHdConfiguration = 2;

// The size stands behind an owner with a 't', as in the listings of the board.
constexpr char kList[] =
    "#!/bin/sh\n"
    "[ -f \"$2\" ] || exec /bin/ls \"$@\"\n"
    "echo \"-rw-r--r-- 1 root root $(stat -c %s \"$2\") Jan  1 00:00 $2\"\n";
constexpr char kDate[] = "#!/bin/sh\n";

}  // namespace

ServiceBench::ServiceBench() {
  static const std::string usual = getenv("PATH");
  bench.put_file("bin/ls", kList);
  bench.put_file("bin/date", kDate);
  for (const char* command : {"bin/ls", "bin/date"}) chmod(bench.path(command).c_str(), 0755);
  setenv("PATH", (bench.path("bin") + ":" + usual).c_str(), 1);
}

std::vector<int> command_with_number(int code, std::uint32_t number) {
  std::vector<int> bytes = {code};
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes.push_back(static_cast<int>(number >> shift & 0xFF));
  return bytes;
}

void Host::send(const std::vector<int>& bytes) {
  for (const int byte : bytes) {
    transport_.wait_taken(kTakenLimit_us);
    Board& board = board_of_process();
    Locked hold(board);
    LinkFifo& fifo = board.link.to_board;
    fifo.data[fifo.head++ % kLinkDepth] = static_cast<std::uint8_t>(byte);
    link_changed(board);
  }
  transport_.wait_taken(kTakenLimit_us);
}

std::vector<int> Host::take() {
  std::vector<int> bytes;
  Board& board = board_of_process();
  Locked hold(board);
  LinkFifo& fifo = board.link.to_host;
  while (fifo.head != fifo.tail) bytes.push_back(fifo.data[fifo.tail++ % kLinkDepth]);
  return bytes;
}

std::vector<int> Host::ask(int code) {
  send({code});
  transport_.wait_answer(kAnswerLimit_us);
  return take();
}

void Host::world(const std::string& operation) {
  std::string error;
  Board& board = board_of_process();
  Locked hold(board);
  if (!world_command(board, operation, error)) ADD_FAILURE() << operation << ": " << error;
}

void Host::send_config(const std::string& text) {
  std::vector<int> bytes =
      command_with_number(kSendHdConfiguration, static_cast<std::uint32_t>(text.size()));
  for (const char c : text) bytes.push_back(static_cast<unsigned char>(c));
  send(bytes);
}

bool ServiceBench::run(double seconds, const std::function<void(Host&)>& host,
                       int monitor_disabled) {
  bench.beside("host", [&host] {
    Host end(board_of_process());
    host(end);
  });
  return bench.run_for(static_cast<std::int64_t>(seconds * 1e6),
                       [=, this] { prog602(monitor_disabled != 0, status_file); });
}

bool serves(const Board& board) {
  return config_sys == 1 && SystemOnUpdate == 0 && global_status == kStatusHealthy &&
         board.encoder.streaming;
}

bool watches() { return monitor_state == kMonitorWatching && status_init_flag == 2; }

bool keeps_its_value(const FpgaRegister& one) {
  return one.access == RegAccess::kWrite || one.access == RegAccess::kReadWrite;
}

long open_files() {
  long count = 0;
  DIR* directory = opendir("/proc/self/fd");
  while (directory != nullptr && readdir(directory) != nullptr) ++count;
  if (directory != nullptr) closedir(directory);
  return count;
}

std::string example_config() {
  std::ifstream file(SOURCE_DIRECTORY "/packaging/hd.ini");
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string example_config_with(const std::vector<std::pair<std::string, int>>& changes) {
  std::string text = example_config();
  for (const auto& [key, value] : changes) {
    const std::string line = key + "=" + std::to_string(value) + "\n";
    const std::size_t at = text.find("\n" + key + "=");
    if (at == std::string::npos) {
      text += line;
    } else {
      text.replace(at + 1, text.find('\n', at + 1) - at, line);
    }
  }
  return text;
}
