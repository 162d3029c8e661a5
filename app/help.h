// The text of "-help".
#pragma once

// Prints the help text to standard output.
void print_help();
