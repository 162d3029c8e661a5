# SANITIZE=address,undefined or SANITIZE=thread builds everything that way.
set(SANITIZE "" CACHE STRING "sanitizers, as -fsanitize= takes them")
if(SANITIZE)
  add_compile_options(-fsanitize=${SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${SANITIZE})
endif()
option(VANTORIG_HOST_TOOLS "build the virtual board and the host client" ON)
option(VANTORIG_TESTS "build the tests" ON)
option(VANTORIG_FUZZ "link the fuzz targets with libFuzzer (clang)" OFF)
