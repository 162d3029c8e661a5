// The command line: the table of options, and running what they ask for.
#pragma once

#include <span>

// The arguments, and what one action leaves for another or for the exit.
struct CommandLine {
  int argc;
  char** argv;
  int status = 0;            // exit status
  bool status_file = false;  // "-602 getmon" was given
};

// Where an option is looked for, once for every argument there is.
enum class Look { kFirst, kEach };  // always argument 1, or the argument whose turn it is

// When its action runs, and whether the program goes on behind it.
enum class Act { kAtOnce, kGoOn, kEnd };  // during the scan; after it, in table order

struct Option {
  const char* text;  // ends in '=' where a file name follows
  Look look;
  Act act;
  int skip;                      // arguments passed over behind the option
  void (*action)(CommandLine&);  // null: none
};

// Every option, in the order in which they act.
std::span<const Option> options();

// Scans the arguments and runs what they ask for. Returns the exit status.
int run_command_line(int argc, char** argv);
