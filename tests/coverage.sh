#!/bin/sh
# Reports how much of the product the tests reach, in lines and branches, and fails
# when a line is not reached that docs/reliability.md does not list.
#
# Covers the in-process tests and the program itself in the sandbox. A process that
# a signal ends leaves no count. Takes a quarter of an hour on two cores.
set -eu
cd "$(dirname "$0")/.."
. ./packaging/setup.sh
need_packages cmake ninja-build g++ python3 libgtest-dev libgmock-dev libcli11-dev \
  nlohmann-json3-dev bubblewrap psmisc groff-base gcovr

place=build-coverage
cmake --preset coverage -DVANTORIG_TESTS=ON >/dev/null
build "$place" all
find "$place" -name '*.gcda' -delete
ctest --test-dir "$place" -j "$(nproc)" --output-on-failure --quiet -O "$place/ctest.log" \
  -L 'inprocess|binary' -E 'Sweep|Soak|BoardWeek' || {
  cat "$place/ctest.log"
  exit 1
}
gcovr --root . --json "$place/coverage.json" \
  --filter '(app|supervision|hostlink|diag|config|audio|video|hw|state)/' \
  "$place/cmake-out/product"
python3 tests/coverage.py "$place/coverage.json"
