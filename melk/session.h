// A running sub-command: its conversation, and its outcome: text or one JSON
// object, and an exit code.
#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "melk/commands.h"
#include "melk/protocol.h"
#include "melk/text.h"

namespace melk {

using Json = nlohmann::ordered_json;

struct Session {
  Link link;
  FILE* out;
  FILE* err;
  const Options& options;
  const Request& request;
  bool json;
};

double board_seconds(std::int64_t us);

// One JSON object on a line of its own.
void print_json(FILE* out, const Json& json);

// Prints an outcome: the text, or the fields with the command's word and exit code.
int report(const Session& session, const std::string& text, const Json& fields = {},
           int exit_code = kDone);

void note(const Session& session, const std::string& text);

// Prints what went wrong and what to do about it, and returns the exit code.
int fail(const Session& session, const std::string& text, int exit_code,
         const std::string& hint = {});
int fail(const Session& session, const Failure& failure);
// errno tells why.
int fail_file(const Session& session, const std::string& path);

int exit_code_of(Trouble trouble);

Json status_json(const Status& status);
std::string status_text(const Status& status);
// Answers of an earlier reading that were passed over.
void note_skipped(const Session& session, const Status& status);

}  // namespace melk
