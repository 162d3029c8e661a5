# Tool chain of the board's processor, dynamic against its C library: an ARM926EJ-S,
# ARMv5TE, soft float, little endian. With another tool chain of the same kind:
#   cmake --preset arm-glibc -DVANTORIG_CROSS=/opt/some/bin/arm-none-linux-gnueabi-
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5te)

set(VANTORIG_CROSS "arm-linux-gnueabi-" CACHE STRING "what the names of the cross tools begin with")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VANTORIG_CROSS)
set(CMAKE_C_COMPILER ${VANTORIG_CROSS}gcc)
set(CMAKE_CXX_COMPILER ${VANTORIG_CROSS}g++)

set(arm "-march=armv5te -mtune=arm926ej-s -mfloat-abi=soft -marm")
set(CMAKE_C_FLAGS_INIT "${arm}")
set(CMAKE_CXX_FLAGS_INIT "${arm}")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
