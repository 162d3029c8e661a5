#!/bin/sh
# The program itself under valgrind's memcheck, through one life of a service on the
# virtual board: a configuration, questions, an upload, a lost input and the restart
# after it, an update. Any error fails it.
#
#   tests/valgrind.sh [BUILD]     BUILD: where vantorig and vboard are; default build
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/packaging/setup.sh"
need_packages valgrind bubblewrap psmisc
build=$(cd "${1:-$root/build}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The board's library is for the program alone: the tool is started without its
# launcher, which would take the board for itself.
tool=$(find /usr/libexec/valgrind /usr/lib/valgrind -name 'memcheck-*-linux' 2>/dev/null |
  grep -F -- "-$(dpkg --print-architecture)-")
VALGRIND_LAUNCHER=$(command -v valgrind)
VBOARD_BOARD=$work/board
export VALGRIND_LAUNCHER VBOARD_BOARD

"$build/vboard" run --virtual --for 1s -- "$build/vantorig" -help >/dev/null
home=$VBOARD_BOARD/home
cp "$root/packaging/hd.ini" "$home/example.ini"
echo 'a line' >"$home/log1.txt"
printf '#!/bin/sh\necho ok >/home/tovin/tmp/success.txt\n' >"$work/update.sh"
chmod +x "$work/update.sh"
tar -czf "$home/update.tar.gz" -C "$work" update.sh

cat >"$work/script" <<'END'
at 3s     melk send-config /home/tovin/example.ini
at 60s    melk status
          melk registers
          melk sw-version
          melk fps
          melk read-reg 0xb8 0x14
          link 0e
after 3s  link 08
after 1ms collect 200
after 40s world source none
after 6s  melk status
          world source component
after 60s melk status
          melk update /home/tovin/update.tar.gz
after 8s  melk update-result
          melk send-config /home/tovin/example.ini
after 60s melk status
END
"$build/vboard" run --virtual --for 5min --script "$work/script" --host-log "$work/host.log" -- \
  "$tool" --log-file="$work/errors" "$build/vantorig" -602 getmon >"$work/printed" 2>&1
cat "$work/host.log"
tail -n 1 "$work/errors"
# All of it must have happened, and without an error.
[ "$(grep -c 'status 0x91' "$work/host.log")" -eq 3 ] && grep -q 'cause  0x85' "$work/host.log" &&
  grep -q 'ERROR SUMMARY: 0 errors' "$work/errors" || {
  cat "$work/errors"
  exit 1
}
