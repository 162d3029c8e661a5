// A whole configuration applied, waits taken out, against bare replays of the
// device calls that it makes.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>

#include "config/hd_params.h"
#include "hw/fpga.h"
#include "hw/shared_memory_davinci.h"
#include "tests/bench/seam.h"
#include "tests/bench/workload.h"
#include "vboard/core/clock.h"
#include "vboard/core/real.h"

namespace bench {

namespace {

// The recorded calls once more, as bare system calls.
class Replay {
 public:
  explicit Replay(std::vector<Step> steps) : steps_(std::move(steps)) {
    for (Step& step : steps_)
      for (std::size_t i = 0; i < step.messages.size(); ++i)
        step.messages[i].buf = step.wire[i].data();
    // Descriptors opened before the recording began.
    for (const Step& step : steps_)
      if (step.kind == Step::Kind::kOpen)
        now_[step.fd] = -1;
      else if (!now_.contains(step.fd))
        now_[step.fd] = vboard::real::open("/dev/null", O_RDWR);
    table_.resize(static_cast<std::size_t>(now_.rbegin()->first) + 1, -1);
    for (const auto& [then, fd] : now_) table_[static_cast<std::size_t>(then)] = fd;
  }

  void run() {
    for (Step& step : steps_) {
      int& fd = table_[static_cast<std::size_t>(step.fd)];
      switch (step.kind) {
        case Step::Kind::kOpen:
          fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDWR));
          break;
        case Step::Kind::kClose:
          syscall(SYS_close, fd);
          fd = -1;
          break;
        case Step::Kind::kRequest: {
          i2c_rdwr_ioctl_data list{step.messages.data(),
                                   static_cast<std::uint32_t>(step.messages.size())};
          void* argument = step.messages.empty() ? static_cast<void*>(step.record.data()) : &list;
          syscall(SYS_ioctl, fd, step.number, argument);
          break;
        }
      }
    }
  }

  // Closes what the product leaves open.
  void settle() {
    for (const auto& [then, before] : now_) {
      int& fd = table_[static_cast<std::size_t>(then)];
      if (before >= 0 || fd < 0) continue;
      syscall(SYS_close, fd);
      fd = -1;
    }
  }

 private:
  std::vector<Step> steps_;
  std::map<int, int> now_;  // then -> opened before the recording, or -1
  std::vector<int> table_;
};

// Runs the apply with its messages kept aside.
std::string messages_of_apply() {
  fflush(stdout);
  const int aside = memfd_create("messages", 0);
  const int usual = vboard::real::dup(STDOUT_FILENO);
  vboard::real::dup2(aside, STDOUT_FILENO);
  Configure_System();
  fflush(stdout);
  vboard::real::dup2(usual, STDOUT_FILENO);
  std::string text(static_cast<std::size_t>(lseek(aside, 0, SEEK_END)), '\0');
  if (pread(aside, text.data(), text.size(), 0) < 0) give_up("the messages cannot be read back");
  vboard::real::close(aside);
  vboard::real::close(usual);
  return text;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1);
    lines.push_back(text.substr(at, end + 1 - at));
    at = end + 1;
  }
  return lines;
}

void write_line(const std::string& line) {
  syscall(SYS_write, STDOUT_FILENO, line.data(), line.size());
}

}  // namespace

std::vector<Workload> apply_workloads() {
  std::filesystem::copy_file(SOURCE_DIRECTORY "/packaging/hd.ini", home() + "/hd.ini",
                             std::filesystem::copy_options::overwrite_existing);
  static auto board = std::make_unique<vboard::Board>();
  vboard::clock_attach(board.get());
  record_on(*board);
  get_shm_key();
  open_fpga_dev();
  keep_open();
  // The first apply leaves the state in which every later one begins.
  Configure_System();
  close_left_open();
  take_recording();

  record_on(*board);
  const auto lines = std::make_shared<std::vector<std::string>>(lines_of(messages_of_apply()));
  static const std::vector<Step> steps = take_recording();
  if (steps.size() < 50 || lines->size() < 20) give_up("the apply made hardly a call");
  close_left_open();
  const auto replay = std::make_shared<Replay>(steps);

  const auto product = [] {
    answer_from(steps);
    Configure_System();
  };
  const auto calls_and_messages = [replay, lines] {
    replay->run();
    for (const std::string& line : *lines) write_line(line);
  };
  const auto settle = [replay] { replay->settle(); };
  return {{"apply/product", product, close_left_open},
          {"apply/calls", [replay] { replay->run(); }, settle},
          {"apply/calls+messages", calls_and_messages, settle}};
}

}  // namespace bench
