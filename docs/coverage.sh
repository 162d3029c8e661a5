#!/bin/sh
# Compares the documents with the tables of the program: every option, host command,
# configuration key, restart cause and word of melk has its place in a page.
# Exits 1 and names what is missing.
set -eu
cd "$(dirname "$0")/.."
missing=0

# expect PAGE EXPRESSION: a line of the page matches.
expect() {
  grep -qE -e "$2" "$1" || {
    echo "$1: nothing matches $2" >&2
    missing=1
  }
}

# Rows of a table in a source: what stands in the first quotes of lines like PATTERN.
rows() { sed -nE "s/^ *\\{$2.*/\\1/p" "$1"; }

checked=0
check() { # page, expression with NAME in it, names
  for name in $3; do
    expect "$1" "$(printf '%s\n' "$2" | sed "s/NAME/$name/")"
    checked=$((checked + 1))
  done
}

check docs/bench-manual.md '^### `NAME[^a-z0-9_]' "$(rows app/command_line.cpp '"(-[^"]+)", +k(First|Each)')"
check docs/host-protocol.md '`NAME`' "$(rows hostlink/dispatcher.cpp '[0-9]+, "([A-Z_0-9]+)"')"
check docs/hd-ini.md '`NAME`' "$(rows config/hd_params.cpp '"([A-Za-z_]+)", +"%d"')"
check docs/host-protocol.md 'NAME' "$(sed -nE 's/.*RestartCause k[A-Za-z]+ = \{(0x8[0-9]),.*/\1/p; s/^    (0x8[0-9]), ".*/\1/p' supervision/restart_causes.h)"

# Manual pages write options without their dash, and words of melk as commands.
check packaging/man/vantorig.1 '^\.It .*Fl NAME( |$)' "$(rows app/command_line.cpp '"-([^"]+)", +k(First|Each)')"
check packaging/man/hd.ini.5 '^\.It Cm .*\bNAME\b' "$(rows config/hd_params.cpp '"([A-Za-z_]+)", +"%d"')"
check packaging/man/melk.1 '^\.It Cm (.*[ ,])?NAME( |$)' "$(rows melk/commands.cpp '"([a-z-]+)", k[A-Z][A-Za-z]*, run_')"

# As many rows as the tables had when this was written: fewer means that a table moved.
[ $checked -ge 206 ] || {
  echo "coverage.sh: only $checked rows found in the tables" >&2
  exit 1
}
exit $missing
