// The command line of melk, parsed into a Request.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "melk/commands.h"

namespace CLI {
class App;
}

namespace melk {

// Declares every sub-command on `app`, with the options common to all.
void add_sub_commands(CLI::App& app, Request& request);

// Parses words into `request` by `app`. Empty when there is something to run;
// otherwise an exit code, help or the complaint having been printed.
std::optional<int> parse_words(CLI::App& app, std::vector<std::string> words, FILE* out, FILE* err);

// Parses one sub-command and runs it, as a script or a test holds it.
Command melk_command;

}  // namespace melk
