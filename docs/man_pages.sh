#!/bin/sh
# Formats the manual pages and fails on any warning. Exits 77 where groff is missing.
set -eu
cd "$(dirname "$0")/../packaging/man"
command -v groff >/dev/null || exit 77
problems=$(for page in *.[15]; do groff -mdoc -Tutf8 -ww -z "$page" 2>&1; done)
[ -z "$problems" ] || {
  echo "$problems" >&2
  exit 1
}
