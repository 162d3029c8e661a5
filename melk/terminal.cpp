// Escape sequences, terminal settings and the signals that end or stop a program.
//
// A handler may run at any moment, so that it only writes, sets the terminal back
// and raises the signal again.
#include "melk/terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace melk {

namespace {

constexpr char kEnter[] = "\033[?1049h\033[?25l\033[2J";  // other screen, no cursor, empty
constexpr char kLeave[] = "\033[0m\033[?25h\033[?1049l";
constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

termios as_it_was = {};
volatile std::sig_atomic_t taken = 0;
volatile std::sig_atomic_t end_asked = 0;
volatile std::sig_atomic_t size_changed = 0;

void put(const char* text, std::size_t size) {
  while (size > 0) {
    const ssize_t done = write(STDOUT_FILENO, text, size);
    if (done <= 0) return;
    text += done;
    size -= static_cast<std::size_t>(done);
  }
}

void take_over() {
  termios keys = as_it_was;
  keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  keys.c_cc[VMIN] = 0;
  keys.c_cc[VTIME] = 0;
  tcsetattr(STDIN_FILENO, TCSADRAIN, &keys);
  put(kEnter, sizeof kEnter - 1);
  taken = 1;
}

void give_back() {
  if (taken == 0) return;
  taken = 0;
  put(kLeave, sizeof kLeave - 1);
  tcsetattr(STDIN_FILENO, TCSADRAIN, &as_it_was);
}

void on_end(int number);

void handle(int number, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigaction(number, &action, nullptr);
}

// The first ^C ends the watch between two readings; everything else, and a second
// ^C, takes its usual course on a terminal given back.
void on_end(int number) {
  if (number == SIGINT && end_asked == 0) {
    end_asked = 1;
    return;
  }
  const bool held = taken != 0;
  give_back();
  handle(number, SIG_DFL);
  raise(number);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, number);
  sigprocmask(SIG_UNBLOCK, &one, nullptr);
  // Only a stopped program comes here, when it goes on.
  handle(number, on_end);
  if (held) take_over();
  size_changed = 1;
}

void on_resize(int) { size_changed = 1; }

winsize window() {
  winsize size = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
    size = {24, 80, 0, 0};
  return size;
}

const char* paint(Look look) {
  static const bool colours = getenv("NO_COLOR") == nullptr;
  switch (look) {
    case Look::kTitle:
      return "\033[1m";
    case Look::kGood:
      return colours ? "\033[32m" : "";
    case Look::kBad:
      return colours ? "\033[31m" : "";
    case Look::kPlain:
      break;
  }
  return "";
}

}  // namespace

bool Terminal::usable() {
  const char* kind = getenv("TERM");
  return isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0 && kind != nullptr &&
         kind[0] != '\0' && strcmp(kind, "dumb") != 0;
}

void Terminal::enter() {
  tcgetattr(STDIN_FILENO, &as_it_was);
  end_asked = 0;
  size_changed = 0;
  for (const int number : kEnding) handle(number, on_end);
  handle(SIGWINCH, on_resize);
  take_over();
}

void Terminal::leave() {
  give_back();
  for (const int number : kEnding) handle(number, SIG_DFL);
  handle(SIGWINCH, SIG_DFL);
}

std::size_t Terminal::rows() { return window().ws_row; }
std::size_t Terminal::columns() { return window().ws_col; }

// From the upper left corner, each line wiping what stood after it.
void Terminal::draw(const std::vector<PanelLine>& lines) {
  std::string all = "\033[H";
  for (std::size_t i = 0; i < lines.size(); ++i)
    all +=
        (i > 0 ? "\r\n" : "") + std::string(paint(lines[i].look)) + lines[i].text + "\033[0m\033[K";
  all += "\033[J";
  put(all.data(), all.size());
}

bool Terminal::quit_asked() {
  pollfd keys = {STDIN_FILENO, POLLIN, 0};
  char key = 0;
  while (end_asked == 0 && poll(&keys, 1, 0) > 0 && read(STDIN_FILENO, &key, 1) == 1)
    if (key == 'q' || key == 'Q') end_asked = 1;
  return end_asked != 0;
}

bool Terminal::resized() {
  const bool changed = size_changed != 0;
  size_changed = 0;
  return changed;
}

}  // namespace melk
