// The sub-commands of melk: what they take, running one, printing the outcome.
//
// Used by the program and by scripted hosts in virtual time, so that nothing
// here looks at a clock or sleeps but through the transport.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "melk/make_update.h"
#include "melk/panel.h"
#include "melk/transport.h"

namespace melk {

// Exit codes.
inline constexpr int kDone = 0;
inline constexpr int kBoardSaysNo = 1;  // the board answered, and something is wrong
inline constexpr int kUsage = 2;
inline constexpr int kBoardSilent = 3;
inline constexpr int kLocalFile = 4;  // a file of the host, the board directory, the SPI device
inline constexpr int kIncompleteTransfer = 5;

struct Options;

// Takes the words of one sub-command and runs it; see melk/arguments.h.
using Command = int(Transport& transport, const std::vector<std::string>& words, FILE* out,
                    FILE* err, const Options& options);

// What the surroundings offer.
struct Options {
  bool json = false;
  std::int64_t timeout_us = 20000000;
  bool out_is_terminal = false;                   // the shell prompts
  Screen* screen = nullptr;                       // where watch draws its panel
  std::string board_name = {};                    // what the panel is called
  bool err_is_terminal = false;                   // long transfers show their progress
  bool stoppable = false;                         // ^C ends a transfer, not the program
  FILE* in = nullptr;                             // commands of the shell
  std::function<std::string()> local_clock = {};  // DDMMYYhhmmss, for set-rtc without a text
  decltype(&melk::make_update) make_update = nullptr;
  Command* command = nullptr;  // of the shell
  // Where the file lies that a name means; empty: where it says.
  std::function<std::string(const std::string& name)> place_of = {};
};

// One parsed command line.
struct Request {
  std::string word;
  bool json = false;
  std::optional<double> timeout_s;
  std::string file;
  std::string directory;
  std::string text;
  int log = 1;
  int device = 0;
  int reg = 0;
  std::int64_t number = 0;
  std::vector<int> codes;
  std::optional<std::size_t> answers;
  bool wait = false;
  bool force = false;
  bool full = false;
  bool via_fpga = false;
  bool no_levels = false;
  std::int64_t rate = 0;
  std::int64_t count = 0;
  double interval_s = 1;
};

// What the text of an argument may be.
struct Allowed {
  enum Kind { kAnything, kRange, kCount, kSeconds };
  Kind kind = kAnything;
  double least = 0;  // of a range, of seconds
  double most = 0;
};

// An operand or an option of a sub-command.
struct Argument {
  const char* name;  // "FILE", "-o,--output"
  const char* help;
  // What it sets; a bool makes it a flag.
  std::variant<bool Request::*, int Request::*, std::int64_t Request::*, double Request::*,
               std::string Request::*, std::vector<int> Request::*,
               std::optional<std::size_t> Request::*>
      field;
  const char* value = "";  // as help shows its value
  bool required = false;
  Allowed allowed = {};
  const char* needs = nullptr;  // the option that must stand beside it
};

struct Session;

struct SubCommand {
  const char* word;
  std::span<const Argument> takes;
  int (*run)(Session&);
  const char* group;           // heading in the help
  const char* example;         // what stands behind `melk`
  const char* help = nullptr;  // that of the host command if null
  bool wants_board = true;
};
std::span<const SubCommand> sub_commands();
const char* help_of(const SubCommand& row);

// What went wrong, and what to do about it.
struct Complaint {
  std::string word;  // the sub-command, if there is one
  std::string text;
  std::string hint;
  int exit_code;
};

// Prints a complaint, with --json as an object too, and returns its exit code.
int complain(const Complaint& complaint, bool json, FILE* out, FILE* err);

// False for what is done without a board; any transport will do then.
bool wants_board(const Request& request);

int run_request(Transport& transport, const Request& request, FILE* out, FILE* err,
                const Options& options);

}  // namespace melk
