// Why nobody on the board's side notices a write that is lost.
#pragma once

// The reason for a write in a set-up, or null.
const char* reason_unnoticed(const char* set_up, const char* write);
