// The panel of `melk watch`: readings of the board as lines that fit a screen.
//
// It depends on no terminal and no clock: the screen is whatever implements
// Screen, times are board seconds since the watch began.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "melk/protocol.h"

namespace melk {

enum class Look { kPlain, kGood, kBad, kTitle };

struct PanelLine {
  std::string text;
  Look look = Look::kPlain;
};

class Screen {
 public:
  Screen() = default;
  virtual ~Screen() = default;
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Takes the terminal over, and gives it back as it was.
  virtual void enter() = 0;
  virtual void leave() = 0;
  virtual std::size_t rows() = 0;
  virtual std::size_t columns() = 0;
  virtual void draw(const std::vector<PanelLine>& lines) = 0;
  // Somebody wants to end the watch.
  virtual bool quit_asked() = 0;
  // The size has changed since the last call.
  virtual bool resized() = 0;
};

// One look at the board.
struct Reading {
  double at_s = 0;
  std::uint8_t state = 0;
  Status status;
  std::uint8_t input = 0;
  Bytes record;  // the first bytes of the status record; empty without levels
};

// The field of the reading's record; 0 where the record does not reach so far.
std::uint32_t record_value(const Reading& reading, const char* field);

// Frames a second; 0 without an input.
double frame_rate(const Reading& reading);

class Panel {
 public:
  Panel(std::string board, double interval_s) : board_(std::move(board)), interval_s_(interval_s) {}

  void take(const Reading& reading);
  // The board did not answer, or not what was asked.
  void take_failure(double at_s, const std::string& text);

  // At most `rows` lines of at most `columns` characters.
  std::vector<PanelLine> lines(std::size_t rows, std::size_t columns) const;

 private:
  struct Event {
    double at_s;
    std::string text;
    Look look;
  };
  struct Buffer {
    const char* title;
    const char* level;
    const char* settled;
    std::uint32_t highest = 0;
  };

  void remember(double at_s, const std::string& text, Look look);
  void notice_changes(const Reading& reading);
  PanelLine state_line() const;
  PanelLine rates_line() const;
  PanelLine buffer_line(const Buffer& buffer, std::size_t columns) const;
  double rate(const char* field) const;

  std::string board_;
  double interval_s_;
  double now_s_ = 0;
  std::optional<Reading> last_;
  std::optional<Reading> before_;
  std::string failure_;
  Buffer buffers_[2] = {{"Video buffer", "vi_buff", "vid_buf_init"},
                        {"Audio buffer", "au_buff", "aud_buf_init"}};
  std::deque<Event> events_;  // the newest first
  std::size_t restarts_ = 0;
};

// "0:01:05" for 65 seconds.
std::string clock_text(double seconds);

}  // namespace melk
