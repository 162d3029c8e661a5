// A kernel of long ago, as far as a program can tell.
#pragma once

namespace vboard::kernel {

// For this process and all that come of it: calls that Linux 2.6.32 did not have are
// answered by ENOSYS. False with errno set.
bool forget_new_calls();

}  // namespace vboard::kernel
