// What an input may do to the world around the board, by number.
#pragma once

#include <cstdint>

namespace fuzz {

// An operation of the world; every number names one.
const char* world_operation(int number);

}  // namespace fuzz
