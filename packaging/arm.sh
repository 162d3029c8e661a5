#!/bin/sh
# Builds the program for the board, static and dynamic, and tests both under
# emulation of its processor with the tests of the commands and of the service.
#
#   packaging/arm.sh         a sample of the tests; what ./check runs
#   packaging/arm.sh all     every one of them
#
# Needs build/ (cmake --preset default && ninja -C build) for the virtual board and
# the tests. Exit status 77, with the reason, where the cross compiler cannot be had.
set -eu
cd "$(dirname "$0")/.."
. ./packaging/setup.sh
try_arm_packages || exit 77

host=$PWD/build
emulator='qemu-arm-static -cpu arm926'
jobs=$(nproc)

cmake --preset arm >/dev/null
build build-arm vantorig vantorig-remote
cmake --preset arm-glibc >/dev/null
build build-arm-glibc vantorig remote-preload
python3 -B tests/arm/test_scripts.py -q
python3 -B packaging/size.py build-arm/vantorig build-arm-glibc/vantorig
python3 -B packaging/syscalls.py build-arm/vantorig.unstripped
python3 -B tests/arm/bare.py build/vantorig build-arm/vantorig $emulator

# What is quick, and what the whole leaves out: tests of the virtual board's own
# doings, in which no program of the board runs or it runs on the machine's clock.
own='*Vboard*:*vboard*:*Dump*'
slow='rows/EveryOption.*:OptionPerf.*:words/RunMode.*'
case ${1:-} in
  all) static="-$own" dynamic="-$own" ;;
  *) static="-$own:$slow" dynamic='*/HostLink*:HostLink*:first_ten/Order.*:RunMode*:fpga/*:Pll.*' ;;
esac

run_tests() { # name, filter, program
  name=$1
  shard=0
  running=
  while [ "$shard" -lt "$jobs" ]; do
    GTEST_TOTAL_SHARDS=$jobs GTEST_SHARD_INDEX=$shard VANTORIG_PROGRAM=$3 \
      "$host/command_tests" --gtest_filter="$2" --gtest_brief=1 \
      >"$host/arm-$name.$shard.log" 2>&1 &
    running="$running $!"
    shard=$((shard + 1))
  done
  failed=0
  for one in $running; do wait "$one" || failed=1; done
  passed=$(sed -n 's/.*PASSED *\] \([0-9]*\).*/\1/p' "$host/arm-$name".*.log | awk '{ n += $1 } END { print n + 0 }')
  if [ "$failed" -ne 0 ] || [ "$passed" -eq 0 ]; then
    cat "$host/arm-$name".*.log >&2
    echo "$name: tests failed; $passed passed" >&2
    exit 1
  fi
  echo "$name program: $passed tests passed"
}

remote="$host/vboard-remote $emulator"
run_tests static "$static" "$remote $PWD/build-arm/vantorig-remote"
run_tests dynamic "$dynamic" "$remote -L /usr/arm-linux-gnueabi \
  -E LD_PRELOAD=$PWD/build-arm-glibc/libvboard-remote.so $PWD/build-arm-glibc/vantorig"
