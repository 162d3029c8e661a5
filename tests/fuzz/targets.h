// The targets by name; the form of their inputs stands at the head of each file.
#pragma once

#include "tests/fuzz/fuzz.h"

namespace fuzz {

void hd_ini(std::string_view input);
void command_line(std::string_view input);
void host_link(std::string_view input);
void parsers(std::string_view input);
void update(std::string_view input);

}  // namespace fuzz
