#!/bin/sh
# Compares the pages in docs/ with the tables of the program: every option, host
# command, configuration key and restart cause has its place in a page.
# Exits 1 and names what is missing.
set -eu
cd "$(dirname "$0")/.."
missing=0

# expect PAGE EXPRESSION: a line of the page matches.
expect() {
  grep -qE -e "$2" "docs/$1" || {
    echo "docs/$1: nothing about $2" >&2
    missing=1
  }
}

# Rows of a table in a source: what stands in the first quotes of lines like PATTERN.
rows() { sed -nE "s/^ *\\{$2.*/\\1/p" "$1"; }

checked=0
check() { # page, text around the name, names
  for name in $3; do
    # shellcheck disable=SC2059
    expect "$1" "$(printf "$2" "$name")"
    checked=$((checked + 1))
  done
}

check bench-manual.md '^### `%s[^a-z0-9_]' "$(rows app/command_line.cpp '"(-[^"]+)", +Look')"
check host-protocol.md '`%s`' "$(rows hostlink/dispatcher.cpp '[0-9]+, "([A-Z_0-9]+)"')"
check hd-ini.md '`%s`' "$(rows config/hd_params.cpp '"([A-Za-z_]+)", +"%d"')"
check host-protocol.md '%s' "$(rows supervision/supervisor.cpp 'k[A-Za-z]+, (0x8[0-9]),')"

# 33 options, 28 commands, 37 keys, 9 causes: fewer means that a table moved.
[ $checked -ge 107 ] || {
  echo "coverage.sh: only $checked rows found in the tables" >&2
  exit 1
}
exit $missing
