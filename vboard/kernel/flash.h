// The board's flash memory, for machines that have some.
#pragma once

#include <string>

namespace vboard::kernel {

// Attaches flash device 0 to the kernel's wear levelling (ubi0), and makes the volume
// "home" of all its room where there is none. False with a reason in `problem`.
bool attach_flash(std::string* problem);

}  // namespace vboard::kernel
