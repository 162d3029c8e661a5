// Entry of vantorig: encoder service and bench commands of the board.
#include <cstdio>

#include "app/command_line.h"

int main(int argc, char** argv) {
  // Messages reach the log line by line, in order with those of shell commands.
  setvbuf(stdout, nullptr, _IOLBF, 0);
  return run_command_line(argc, argv);
}
