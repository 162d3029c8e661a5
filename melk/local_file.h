// Whole files of the host.
#pragma once

#include <span>
#include <string>

#include "melk/protocol.h"

namespace melk {

// False with errno set when the file cannot be read or written whole.
bool read_whole_file(const std::string& path, Bytes* content);
// Whether such a file could be written, with errno set; leaves none behind.
bool can_write_file(const std::string& path);
bool write_whole_file(const std::string& path, std::span<const std::uint8_t> content);

}  // namespace melk
