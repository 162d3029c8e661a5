# Tool chain of the board's processor, static with musl: the executable needs no
# library of the board. The compiler is the one of arm-glibc.cmake and may be named
# in the same way; musl is Debian's musl-dev:armel, or any other by its two places:
#   cmake --preset arm -DVANTORIG_MUSL_INCLUDE=/opt/musl/include -DVANTORIG_MUSL_LIB=/opt/musl/lib
include(${CMAKE_CURRENT_LIST_DIR}/arm-glibc.cmake)

set(VANTORIG_MUSL_INCLUDE /usr/include/arm-linux-musleabi CACHE PATH "headers of musl")
set(VANTORIG_MUSL_LIB /usr/lib/arm-linux-musleabi CACHE PATH "libc.a and start files of musl")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VANTORIG_MUSL_INCLUDE VANTORIG_MUSL_LIB)

function(compiler_answer variable)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${ARGN}
    OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(${variable} "${answer}" PARENT_SCOPE)
endfunction()

# The compiler's own headers, those of its C++ library, the kernel's.
compiler_answer(own_include -print-file-name=include)
compiler_answer(begin_object -print-file-name=crtbeginT.o)
compiler_answer(end_object -print-file-name=crtend.o)
compiler_answer(machine -dumpmachine)
compiler_answer(version -dumpversion)
find_path(VANTORIG_CXX_INCLUDE ${machine}/bits/c++config.h NO_CMAKE_FIND_ROOT_PATH
  PATHS /usr/${machine}/include/c++/${version} ${own_include}/../../../../../${machine}/include/c++/${version}
  REQUIRED)
find_path(VANTORIG_KERNEL_INCLUDE linux/i2c-dev.h NO_CMAKE_FIND_ROOT_PATH
  PATHS /usr/${machine}/include ${own_include}/../../../../../${machine}/sysroot/usr/include
  REQUIRED)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VANTORIG_CXX_INCLUDE VANTORIG_KERNEL_INCLUDE)

# The kernel's headers lie among those of glibc; only they are wanted.
set(kernel ${CMAKE_BINARY_DIR}/kernel-headers)
file(MAKE_DIRECTORY ${kernel})
foreach(folder linux asm asm-generic)
  file(CREATE_LINK ${VANTORIG_KERNEL_INCLUDE}/${folder} ${kernel}/${folder} SYMBOLIC)
endforeach()

set(c_headers "-isystem ${VANTORIG_MUSL_INCLUDE} -isystem ${own_include} -isystem ${kernel}")
string(CONCAT cxx_headers "-isystem ${CMAKE_CURRENT_LIST_DIR}/musl"
  " -isystem ${VANTORIG_CXX_INCLUDE} -isystem ${VANTORIG_CXX_INCLUDE}/${machine} ${c_headers}")
string(APPEND CMAKE_C_FLAGS_INIT " -fno-pie -nostdinc ${c_headers}")
string(APPEND CMAKE_CXX_FLAGS_INIT " -fno-pie -nostdinc -nostdinc++ ${cxx_headers}")

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -no-pie -nostdlib -Wl,-z,norelro -L${VANTORIG_MUSL_LIB} \
${VANTORIG_MUSL_LIB}/crt1.o ${VANTORIG_MUSL_LIB}/crti.o ${begin_object}")
set(CMAKE_C_STANDARD_LIBRARIES_INIT
  "-Wl,--start-group -lc -lgcc -Wl,--end-group ${end_object} ${VANTORIG_MUSL_LIB}/crtn.o")
set(CMAKE_CXX_STANDARD_LIBRARIES_INIT "${CMAKE_C_STANDARD_LIBRARIES_INIT}")

# What the static program links beside the product.
set(VANTORIG_LEAN ${CMAKE_CURRENT_LIST_DIR}/musl/lean.cpp
  ${CMAKE_CURRENT_LIST_DIR}/musl/stream_calls.cpp)
