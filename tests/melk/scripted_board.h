// A board that follows a script, and melk run against it.
//
// A script lists the bytes that the host clocks out, in order, each with what
// the board queues once it has taken that byte. A one-byte question is therefore
// {code, {answer}} followed by the poll {0xA5} that collects the answer.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <string>
#include <vector>

#include "melk/commands.h"
#include "melk/protocol.h"
#include "tests/melk/outcome.h"

using melk::Bytes;
using melk::Code;

struct Step {
  std::uint8_t out;
  Bytes answers = {};
  bool taken = true;
};

class ScriptedBoard : public melk::Transport {
 public:
  std::deque<Step> script;
  std::deque<std::uint8_t> queued;
  Bytes unexpected;  // sent where the script has another byte or none
  Bytes fifo;        // update FIFO contents, in order of arrival
  std::vector<std::size_t> fifo_blocks;
  std::size_t fifo_room = SIZE_MAX;
  std::int64_t clock_us = 0;

  void add(std::vector<Step> steps) { script.insert(script.end(), steps.begin(), steps.end()); }
  void add_question(std::uint8_t code, std::uint8_t answer) { add({{code, {answer}}, {0xA5}}); }

  bool transfer(std::uint8_t out, std::uint8_t* in) override {
    const bool had = !queued.empty();
    if (had) {
      *in = queued.front();
      queued.pop_front();
    }
    if (script.empty() || script.front().out != out) {
      unexpected.push_back(out);
      taken_ = false;
      return had;
    }
    for (const std::uint8_t byte : script.front().answers) queued.push_back(byte);
    taken_ = script.front().taken;
    script.pop_front();
    return had;
  }
  bool wait_taken(std::int64_t us) override { return taken_ || pass(us); }
  bool wait_answer(std::int64_t us) override { return !queued.empty() || pass(us); }
  void pause(std::int64_t us) override { pass(us); }
  std::int64_t now_us() override { return clock_us; }
  bool push_update(const std::uint8_t* data, std::size_t size, std::int64_t us) override {
    if (fifo.size() + size > fifo_room) return pass(us);
    fifo.insert(fifo.end(), data, data + size);
    fifo_blocks.push_back(size);
    return true;
  }

  // Every byte of the script went out, and no other.
  bool finished() const { return script.empty() && unexpected.empty(); }

 private:
  bool pass(std::int64_t us) {
    clock_us += us;
    return false;
  }
  bool taken_ = true;
};

// A file of the host that goes away with the test.
class HostFile {
 public:
  explicit HostFile(const std::string& content = "") {
    const int fd = mkstemp(path_.data());
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fd);
  }
  ~HostFile() {
    unlink(path_.c_str());
    unlink((path_ + ".part").c_str());
  }
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;

  std::string path() const { return path_; }
  static std::string content_of(const std::string& path) {
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) return "(none)";
    std::string content(4096, '\0');
    content.resize(fread(content.data(), 1, content.size(), file));
    fclose(file);
    return content;
  }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "melk_test_XXXXXX";
};

inline bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}
