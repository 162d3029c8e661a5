# Prints the size of a program, and fails when it is beyond the limit.
#   cmake -D PROGRAM=FILE -D LIMIT=BYTES -P weigh.cmake
file(SIZE ${PROGRAM} size)
cmake_path(GET PROGRAM FILENAME name)
message("${name}: ${size} bytes, limit ${LIMIT}")
if(size GREATER LIMIT)
  message(FATAL_ERROR "${PROGRAM} is too large for the board")
endif()
