// The command line: options, operands, and the order in which they act.
#pragma once

// Scans the arguments and runs what they ask for. Returns the exit status.
int run_command_line(int argc, char** argv);
