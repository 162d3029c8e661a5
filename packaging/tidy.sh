#!/bin/sh
# clang-tidy over every source of the product, the client and the virtual board, but
# for what is only built for another processor.
#   packaging/tidy.sh BUILD_DIRECTORY [JOBS]
# One file a process: the analyser's view of variable arguments is wrong in the
# second file of a run.
set -eu
build=$1
jobs=${2:-1}
ls app/*.cpp supervision/*.cpp hostlink/*.cpp diag/*.cpp config/*.cpp audio/*.cpp video/*.cpp \
  hw/*.cpp melk/*.cpp vboard/*/*.cpp | grep -v -e vboard/testing/ -e vboard/kernel/ -e vboard/remote/program_side.cpp |
  xargs -P "$jobs" -n 1 clang-tidy --quiet -p "$build" 2>/dev/null
