// Formatting and joining text.
#pragma once

#include <string>
#include <vector>

namespace melk {

// What printf would print; "" when there is no memory for it.
std::string text_of(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The texts with a comma between them.
std::string joined(const std::vector<const char*>& texts);

}  // namespace melk
