// The trace of an emulated board: clean lines in a file, in the order of the calls.
#pragma once

#include <string>

namespace vboard::kernel {

// Appends what the devices see to this file from now on. False with errno set when
// it cannot be opened.
bool open_trace(const std::string& path);

// Appends a text as it is, and sees to it that all of the file is there.
void note_in_trace(const std::string& text);

}  // namespace vboard::kernel
