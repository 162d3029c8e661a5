// What the program says when a call fails.
#pragma once

#include <string>

// True when the documented message of a scenario's failed call ("open /dev/i2c-1")
// stands in the output, or none is documented. `wanted` is set to the message.
bool message_given(const std::string& scenario, const std::string& failed,
                   const std::string& output, std::string* wanted);
