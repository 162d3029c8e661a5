// A scripted host's talk with a running service; see the header.
#include <functional>
#include <string>
#include <vector>

#include "tests/service/host_talk.h"

#include <gtest/gtest.h>

#include "hostlink/dispatcher.h"
#include "state/fpgaregs.h"
#include "state/service_flags.h"
#include "supervision/supervisor.h"
#include "vboard/models/bus.h"

using namespace vboard;

namespace {

constexpr double kStartUp_s = 2;  // the FPGA's reset takes 1.02 s
constexpr std::int64_t kPollLimit_us = 100'000;

// Lines that every pass of the link thread has, and the service's own sleep.
bool usual(const std::string& line) {
  for (const char* prefix : {"select ", "spi ", "fpga led "})
    if (line.compare(0, std::string(prefix).size(), prefix) == 0) return true;
  return line == "wait 500000";
}

}  // namespace

Heard Talk::hear(double seconds) {
  host.wait(seconds);
  Heard heard;
  heard.answer = host.take();
  heard.printed = bench.output();
  for (const std::string& line : bench.trace())
    if (!usual(line)) heard.actions.push_back(line);
  return heard;
}

Heard Talk::say(const std::vector<int>& bytes, double seconds) {
  hear(0);
  host.send(bytes);
  return hear(seconds);
}

std::vector<int> Talk::poll(int count) {
  std::vector<int> all;
  for (int i = 0; i < count; ++i) {
    host.send({0xA5});
    board_wait(WaitFor::kAnswer, kPollLimit_us);
    for (const int byte : host.take()) all.push_back(byte);
  }
  return all;
}

void Talk::pour(const std::string& bytes) {
  Board& board = board_of_process();
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    {
      const Locked hold(board);
      LinkFifo& fifo = board.link.to_board;
      for (; sent < bytes.size() && fifo.head - fifo.tail < kLinkDepth; ++sent)
        fifo.data[fifo.head++ % kLinkDepth] = static_cast<std::uint8_t>(bytes[sent]);
      link_changed(board);
    }
    board_wait(WaitFor::kBoardTook, 60'000'000);
  }
}

void restore_start_values() {
  global_status = kStatusInitial;
  status_vantorig = kStatusVantorigCleared;
  fpga_monitor_flags = 0;
  monitor_state = 0;
  wrong_size_flag = 0;
  SystemOnUpdate = 0;
  config_sys = 0;
  SetInputMuxCH = 0;
  enable_audio = 0;
  start_bf_st = 0;
  for (auto& character : ver) character = '\0';
  status_init_flag = 0;
  vid_buf_init = 0;
  aud_buf_init = 0;
  audio_at_beginning = 0;
  fpgaregs.AudioInput = 0;
  fpgaregs.inAudioEnable = 0;
}

void talk(const std::function<void(Talk&)>& script, double seconds,
          const std::function<void(Bench&)>& prepare) {
  restore_start_values();
  ServiceBench service;
  if (prepare) prepare(service.bench);
  bool finished = false;
  service.run(seconds, [&](Host& host) {
    host.wait(kStartUp_s);
    Talk one(service.bench);
    script(one);
    finished = true;
  });
  EXPECT_TRUE(finished) << "the script did not come to its end";
}
