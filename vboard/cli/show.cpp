// Prints a board for a person.
#include "vboard/cli/show.h"

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "hw/fpga_registers.h"
#include "vboard/core/clock.h"
#include "vboard/core/sources.h"
#include "vboard/core/trace.h"
#include "vboard/models/fpga.h"
#include "vboard/models/needs.h"
#include "vboard/models/stream.h"
#include "vboard/world/world.h"

namespace vboard {

using nlohmann::ordered_json;

namespace {

const char* name_of(RegAccess access) {
  switch (access) {
    case RegAccess::kRead:
      return "R";
    case RegAccess::kWrite:
      return "W";
    case RegAccess::kReadWrite:
      return "R/W";
    case RegAccess::kLatch:
      return "latch";
  }
  return "?";
}

// A bar inside a Markdown table cell would end the cell.
std::string cell(const std::string& text) {
  std::string escaped;
  for (const char c : text) escaped += c == '|' ? "\\|" : std::string(1, c);
  return escaped;
}

void print_operation(bool markdown, const std::string& invocation, const char* meaning) {
  if (markdown)
    printf("| `%s` | %s |\n", cell(invocation).c_str(), cell(meaning).c_str());
  else
    printf("  %-40s %s\n", invocation.c_str(), meaning);
}

void print_heading(bool markdown, const char* first, const char* second) {
  if (markdown)
    printf("| %s | %s |\n|---|---|\n", first, second);
  else
    printf("%s\n", first);
}

// "fault missing" + "DEVICE" -> "fault missing DEVICE"
std::string invocation_of(std::string name, const std::string& usage) {
  if (!usage.empty()) name += " " + usage;
  return name;
}

// ---- JSON ----------------------------------------------------------------------------

int print_json(const ordered_json& value) {
  printf("%s\n", value.dump(2).c_str());
  return 0;
}

ordered_json json_of(const Board& board) {
  ordered_json out;
  out["time_s"] = static_cast<double>(board_now_us()) / 1e6;
  out["video"] = {{"source", source_name(board.world.video)},
                  {"frames_per_second", board.world.fps_milli / 1000.0}};
  out["audio"] = {{"source", source_name(board.world.audio)}};
  out["encode"] = {{"running", board.encoder.pid != 0},
                   {"launches", board.encoder.launches},
                   {"streaming", board.encoder.streaming}};
  out["buffers"] = {{"video", board.fpga.video_level}, {"audio", board.fpga.audio_level}};
  out["dsp"] = {{"firmware", board.dsp.has_firmware}, {"running", board.dsp.running}};
  const Lacking reasons = lacking(board);
  out["lacking"] = {{"picture", reasons.picture},
                    {"sound", reasons.sound},
                    {"stream", reasons.stream},
                    {"others", reasons.others}};
  out["link"] = {{"bytes_from_host", board.link.to_board.head},
                 {"bytes_to_host", board.link.to_host.head}};
  out["faults"] = faults_on(board);
  out["violations"] = {{"count", board.violations.count}, {"first", board.violations.first}};
  return out;
}

ordered_json registers_json(Board& board, std::int64_t now_us) {
  ordered_json all = ordered_json::array();
  for (const FpgaRegister& one : kFpgaRegisters)
    all.push_back({{"address", one.address},
                   {"name", one.name},
                   {"access", name_of(one.access)},
                   {"value", fpga_peek(board, now_us, one.address)},
                   {"meaning", one.meaning}});
  return all;
}

template <class Table>
ordered_json table_json(const Table& table) {
  ordered_json all = ordered_json::array();
  for (const auto& one : table)
    all.push_back({{"name", one.name}, {"usage", one.usage}, {"meaning", one.meaning}});
  return all;
}

ordered_json operations_json() {
  ordered_json standards = ordered_json::array();
  for (const VideoStandard& one : world_standards())
    standards.push_back({{"name", one.name}, {"frames_per_second", one.fps_milli / 1000.0}});
  return {{"operations", table_json(world_commands())},
          {"faults", table_json(world_faults())},
          {"standards", standards}};
}

void print_reasons(const char* what, const std::vector<std::string>& reasons) {
  printf("%-9s %s\n", what, reasons.empty() ? "nothing is lacking" : reasons.front().c_str());
  for (std::size_t i = 1; i < reasons.size(); ++i) printf("%-9s %s\n", "", reasons[i].c_str());
}

ordered_json stream_json(const Board& board) {
  const TransportStream stream = stream_of(board);
  const VideoInStream& video = stream.video;
  const SoundInStream& sound = stream.sound;
  ordered_json out = {{"there", stream.there},
                      {"megabits_per_second", stream.Mbit_per_second},
                      {"packet_interval", stream.packet_interval},
                      {"packet_us", stream.packet_us},
                      {"pcr_pid", stream.pcr_pid}};
  out["video"] = {{"there", video.there},
                  {"pid", video.pid},
                  {"codec", video.codec},
                  {"width", video.width},
                  {"height", video.height},
                  {"interlaced", video.interlaced},
                  {"frames_per_second", video.frames_per_second},
                  {"first_pixel", video.left},
                  {"last_pixel", video.right},
                  {"first_line", video.top},
                  {"bandwidth_step", video.bandwidth},
                  {"captions", video.captions},
                  {"delay", video.delay}};
  out["sound"] = {{"there", sound.there},
                  {"pid", sound.pid},
                  {"source", sound.source},
                  {"kbits_per_second", sound.kbit_per_second},
                  {"sample_rate", sound.sample_rate},
                  {"frame_bytes", sound.frame_bytes},
                  {"decodable", sound.decodable},
                  {"left_dB", sound.left_dB},
                  {"right_dB", sound.right_dB},
                  {"left_silent", sound.left_silent},
                  {"right_silent", sound.right_silent},
                  {"delay", sound.delay}};
  return out;
}

}  // namespace

int show_stream(const Board& board, bool as_json) {
  if (as_json) return print_json(stream_json(board));
  for (const std::string& line : stream_text(board)) printf("%s\n", line.c_str());
  return 0;
}

int show_board(const Board& board, bool as_json) {
  if (as_json) return print_json(json_of(board));
  printf("time      %.3f s\n", static_cast<double>(board_now_us()) / 1e6);
  printf("video     %s, %.3f frames/s\n", source_name(board.world.video),
         board.world.fps_milli / 1000.0);
  printf("audio     %s\n", source_name(board.world.audio));
  printf("encode    %s, launched %u times, %s\n",
         board.encoder.pid != 0 ? "running" : "not running", board.encoder.launches,
         board.encoder.streaming ? "streaming" : "not streaming");
  printf("buffers   video %.0f, audio %.0f\n", board.fpga.video_level, board.fpga.audio_level);
  printf("dsp       %s, %s\n", board.dsp.has_firmware ? "has firmware" : "no firmware",
         board.dsp.running ? "running" : "stopped");
  printf("link      %u bytes from the host, %u to it\n", board.link.to_board.head,
         board.link.to_host.head);
  const Lacking reasons = lacking(board);
  print_reasons("picture", reasons.picture);
  print_reasons("sound", reasons.sound);
  print_reasons("stream", reasons.stream);
  if (!reasons.others.empty()) print_reasons("besides", reasons.others);
  std::string faults;
  for (const std::string& one : faults_on(board)) faults += (faults.empty() ? "" : ", ") + one;
  printf("faults    %s\n", faults.empty() ? "none" : faults.c_str());
  if (board.violations.count > 0)
    printf("faulty    %u violations, first: %s\n", board.violations.count, board.violations.first);
  return 0;
}

int show_registers(Board& board, bool as_json) {
  const std::int64_t now_us = board_now_us();
  if (as_json) return print_json(registers_json(board, now_us));
  for (const FpgaRegister& one : kFpgaRegisters)
    printf("0x%04x  %-24s 0x%04x  %s\n", static_cast<unsigned>(one.address), one.name,
           fpga_peek(board, now_us, one.address), one.meaning);
  return 0;
}

int print_register_map() {
  printf("| Address | Word | Name | Access | Meaning |\n|---|---|---|---|---|\n");
  for (const FpgaRegister& one : kFpgaRegisters)
    printf("| 0x%03X | 0x%03X | `%s` | %s | %s |\n", static_cast<unsigned>(one.address),
           static_cast<unsigned>(one.address / 2), one.name, name_of(one.access),
           cell(one.meaning).c_str());
  return 0;
}

int print_operations(bool markdown, bool as_json) {
  if (as_json) return print_json(operations_json());
  print_heading(markdown, "Operation", "What it does");
  for (const WorldCommand& one : world_commands())
    print_operation(markdown, invocation_of(one.name, one.usage), one.meaning);
  printf("\n");
  print_heading(markdown, "Fault", "What is wrong while it is on");
  for (const WorldFault& one : world_faults())
    print_operation(markdown, invocation_of(one.name, one.usage), one.meaning);
  printf("\n");
  print_heading(markdown, "Standard", "Frames per second");
  for (const VideoStandard& one : world_standards()) {
    char rate[16];
    snprintf(rate, sizeof rate, "%.2f", one.fps_milli / 1000.0);
    print_operation(markdown, one.name, rate);
  }
  return 0;
}

int show_clean_trace(const std::string& file) {
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    const std::string clean = trace_clean(line);
    if (!clean.empty()) printf("%s\n", clean.c_str());
  }
  return 0;
}

}  // namespace vboard
