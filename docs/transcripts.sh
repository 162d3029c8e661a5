#!/bin/sh
# Keeps the generated blocks of the pages in docs/, and the pictures, current.
#
# A block stands between "<!-- generated NAME -->" and "<!-- end -->"; the function
# block_NAME below (dashes become underscores) prints what belongs there. Every
# run uses a fresh virtual board and virtual time, so the text is the same on
# every machine. Tables between "<!-- table LIST -->" and "<!-- end -->" are written by
# tables.py, those of the manual pages too.
#
#   docs/transcripts.sh [--build DIR]           rewrite the pages
#   docs/transcripts.sh [--build DIR] --check   exit 1 with a diff when a page is not current
#   docs/transcripts.sh [--build DIR] NAME...   print these blocks
set -eu
docs=$(cd "$(dirname "$0")" && pwd)
build=$docs/../build
mode="write"
names=
while [ $# -gt 0 ]; do
  case $1 in
    --build) build=$2; shift ;;
    --check) mode=check ;;
    -*) echo "usage: docs/transcripts.sh [--build DIR] [--check | NAME...]" >&2; exit 2 ;;
    *) names="$names $1" ;;
  esac
  shift
done
build=$(cd "$build" && pwd)
[ -x "$build/vboard" ] && [ -x "$build/vantorig" ] && [ -x "$build/tables" ] || {
  echo "transcripts.sh: no vboard, vantorig or tables in $build" >&2
  exit 2
}
export LC_ALL=C TZ=UTC0
unset VBOARD_BOARD
umask 022
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# ---- a board -------------------------------------------------------------------

# Every block begins with a fresh board; the first operation makes it.
fresh_board() {
  board=$work/board
  rm -rf "$board"
  "$build/vboard" --board "$board" faults clear >/dev/null
}

# world WORDS...: an operation on the world, shown as typed.
world() {
  echo "\$ vboard $*"
  "$build/vboard" --board "$board" "$@" >/dev/null
}

# Owners, dates and block counts of directory lines, and the answer of date, are
# those of the machine.
steady() {
  sed -E \
    -e 's/^([-d][-rwxs]{9})[.+]? +[0-9]+ +[^ ]+ +[^ ]+ +([0-9]+) +[A-Z][a-z]{2} +[0-9]+ +[0-9:]+ /\1 1 root root \2 Jan  1 00:00 /' \
    -e "s/^read '(-[rwx-]{9}).* ([0-9]+) [A-Z][a-z]{2} .*' OK\$/read '\\1 1 root root \\2 Jan  1 00:00 \\/home\\/tovi' OK/" \
    -e 's/^total [0-9]+$/total 8/' \
    -e 's/^[A-Z][a-z]{2} [A-Z][a-z]{2} +[0-9]+ [0-9:]{8} UTC [0-9]{4}$/Thu Jan  1 00:00:00 UTC 1970/'
}

# The last line of a program may lack its line end.
with_line_end() { sed -e '$a\' "$1"; }

# The program with ARGUMENTS, its output and its exit status.
vantorig() {
  echo "\$ vantorig $*"
  status=0
  rm -f "$work/trace"
  "$build/vboard" --board "$board" run --virtual --trace "$work/trace" -- \
    "$build/vantorig" "$@" >"$work/out" 2>&1 || status=$?
  with_line_end "$work/out" | steady
  echo "[exit status $status]"
}

# vantorig_for TIME ARGUMENTS: an endless command, stopped by the operator.
vantorig_for() {
  limit=$1
  shift
  echo "\$ vantorig $*"
  rm -f "$work/trace"
  "$build/vboard" --board "$board" run --virtual --for "$limit" --trace "$work/trace" -- \
    "$build/vantorig" "$@" >"$work/out" 2>&1
  with_line_end "$work/out" | steady
  echo "[stopped after $limit of board time]"
}

# service TIME ARGUMENTS: the same beside the scripted host and world on standard
# input; what the host saw is in $work/host afterwards.
service() {
  limit=$1
  shift
  cat >"$work/script"
  echo "\$ vantorig $*"
  rm -f "$work/trace"
  "$build/vboard" --board "$board" run --virtual --for "$limit" --trace "$work/trace" \
    --script "$work/script" --host-log "$work/host" -- \
    "$build/vantorig" "$@" >"$work/out" 2>&1
  with_line_end "$work/out" | steady
  echo "[stopped after $limit of board time]"
}

# What the last run did to its devices. trace COUNT [PATTERN]: the first COUNT
# lines that begin with an expression of PATTERN, without sequence, time, thread.
trace() {
  count=$1
  pattern=${2:-.}
  echo
  echo "trace:"
  grep -v '^#' "$work/trace" | cut -d ' ' -f 4- | grep -E "^($pattern)" | elide "$count" 0
}

# elide FIRST LAST: leaves out the middle of a long text.
elide() {
  awk -v first="$1" -v last="$2" '
    { line[NR] = $0 }
    END {
      left_out = NR - first - last
      for (i = 1; i <= NR; i++) {
        if (left_out < 2 || i <= first || i > NR - last) print line[i]
        else if (i == first + 1) printf "[... %d lines ...]\n", left_out
      }
    }'
}

# Breaks lines of many columns after every eighth.
eight_columns() {
  awk -F '\t' '{
    for (i = 1; i <= NF; i++) printf "%s%s", $i, i == NF ? "\n" : i % 8 == 0 ? "\n" : "\t"
  }' | sed -e '/^$/d'
}

fence() { # text around a transcript
  echo '```text'
  fresh_board
  "$@"
  echo '```'
}

# ---- bench-manual.md: one recipe an option ---------------------------------------

# Of an option without a recipe of its own.
option_alone() {
  vantorig "-$1"
  trace 8
}

recipe_help() { vantorig -help; }

recipe_loadbf() {
  vantorig -loadbf
  echo
  world fault dsp-no-firmware
  vantorig -loadbf
  trace 6 'fpga wr 0x014'
}

recipe_offset() {
  printf 'mpgVidRes=9\n' >"$board/home/hd.ini"
  vantorig -offset 200 -4
  trace 8 'video0|wait'
}

recipe_bf_rw() {
  vantorig -bf_rw 0 0x10 0x20
  trace 3 'i2c|wait'
  echo
  vantorig -bf_rw 1 0x10
  trace 3 'i2c|wait'
}

recipe_ipiperw() {
  vantorig -ipiperw 0 0x10 0x20
  trace 4
}

recipe_isifrw() {
  vantorig -isifrw 1 0x10
  trace 4
}

recipe_5150rw() {
  vantorig -5150rw 0 0x0a 0x80
  vantorig -5150rw 1 0x0a
}

recipe_5150() {
  world source composite
  vantorig_for 1s -5150
}

recipe_wr() {
  vantorig -wr 0x4031
  trace 4
}

recipe_restor() {
  mkdir -p "$board/home/tmp" "$work/factory"
  rm -f "$board/home/encode"  # lies outside the board; its rights are not ours to change
  printf '#!/bin/sh\necho 1.0.0 >version.ini\n' >"$work/factory/update.sh"
  chmod 755 "$work/factory/update.sh"
  tar -c --mtime=@0 --owner=0 --group=0 -C "$work/factory" ./update.sh | gzip -n \
    >"$board/home/tmp/new_hd_version_master.tar.gz"
  vantorig -restor
}

bitstream() { awk 'BEGIN { for (i = 0; i < 40; i++) printf "U" }' >"$board/home/$1"; }

recipe_f() {
  bitstream board.rbf
  vantorig -f=board.rbf
  trace 17
  echo
  world fault nstatus never
  vantorig -f=board.rbf
}

recipe_w() {
  bitstream board.rbf
  vantorig -w=board.rbf
}

recipe_pll() {
  vantorig_for 3ms -pll
  trace 9 'pll|wait'
}

recipe_i2c_bf() {
  vantorig -i2c_bf 384000
  trace 5 'i2c|wait'
}

recipe_vblk_test() {
  vantorig -vblk_test
  trace 12
}

recipe_vblk_rw() {
  vantorig -vblk_rw 0 0x40 0x47
  vantorig -vblk_rw 1 0x40
}

recipe_i2c_bf_st() {
  vantorig -i2c_bf_st
  trace 5 'i2c|wait'
}

recipe_rdver_bf() {
  vantorig -rdver_bf
  echo
  world fault dsp-dead
  vantorig -rdver_bf
}

recipe_rdstat_bf() {
  vantorig -rdstat_bf
  vantorig -i2c_bf_st
  vantorig -rdstat_bf
}

recipe_7353() {
  vantorig -7353
  echo
  world fault i2c-fail 2e
  vantorig -7353
}

recipe_blk() {
  vantorig -blk
  trace 5
}

recipe_aablk() {
  vantorig_for 3ms -aablk
  trace 4
}

recipe_i2c() { vantorig -i2c 0xb8 0x14 1 2; }

recipe_7002() {
  world source vga
  vantorig -7002
}

recipe_rdreg() {
  vantorig -rdreg 0
  echo
  world fault missing fpga
  vantorig -rdreg 0
}

recipe_wrreg() {
  vantorig -wrreg 0x102 0x4000
  vantorig -rdreg 0x102
}

example_configuration() { cp "$docs/../packaging/hd.ini" "$board/home/example.ini"; }

recipe_602() {
  example_configuration
  { service 35s -602 <<'SCRIPT'
at 3s  melk send-config /home/tovin/example.ini
at 33s melk status
SCRIPT
  } | elide 34 26
  echo
  echo "what the host saw:"
  cat "$work/host"
}

recipe_ac3() { vantorig_for 1400ms -ac3; }

recipe_4192() { vantorig -4192 | eight_columns; }

recipe_reg() { vantorig -reg | elide 6 4 | eight_columns; }

recipe_ts() {
  vantorig -ts a b -gpio 5
}

recipe_perf() { vantorig -perf; }

recipe_gpio() {
  vantorig -gpio 26
  trace 4
}

# ---- other pages -------------------------------------------------------------------

block_register_map() { "$build/vboard" registers --markdown; }

block_operations() { "$build/vboard" operations --markdown; }

# What each example configuration comes to, with the sources that it is for.
recipe_examples() {
  for example in hd.ini examples/component.ini examples/vga.ini examples/composite.ini \
    examples/digital-audio.ini examples/dsp-audio.ini; do
    fresh_board
    case $example in
      *vga*) world source vga ;;
      *composite*) world source composite && world captions on ;;
      *dsp*) world audio dsp ;;
    esac >/dev/null
    cp "$docs/../packaging/$example" "$board/home/example.ini"
    service 100s -602 <<'SCRIPT' >/dev/null
at 3s  melk send-config /home/tovin/example.ini
at 90s melk status
       melk input-mux
SCRIPT
    echo "$example"
    grep -v -e '^\[' -e '^sent' "$work/host"
  done
}

recipe_script_example() {
  example_configuration
  cat >"$work/example.script" <<'SCRIPT'
at 3s   melk send-config /home/tovin/example.ini
at 60s  melk status
at 61s  world source none
after 6s melk status
after 1s world source component
after 60s melk status
        link 0f a5
SCRIPT
  echo '$ cat plug.script'
  cat "$work/example.script"
  echo '$ vboard run --virtual --for 3min --script plug.script --host-log host.log -- vantorig -602'
  service 3min -602 <"$work/example.script" >/dev/null
  echo '$ cat host.log'
  cat "$work/host"
}

# A dump from one board to a fresh one.
recipe_dump_example() {
  vantorig -wrreg 0x102 0x4000 | sed -e '$d'
  echo '$ vboard save board.dump'
  "$build/vboard" --board "$board" save "$work/board.dump"
  echo '$ grep VIDEO_CONTROL board.dump'
  grep VIDEO_CONTROL "$work/board.dump"
  fresh_board
  echo '$ rm -r board'
  echo '$ vboard load board.dump'
  "$build/vboard" --board "$board" load "$work/board.dump"
  vantorig -rdreg 0x102 | sed -e '$d'
  echo 'addr 0x102: 0x14000' >"$work/board.dump"
  echo '$ echo "addr 0x102: 0x14000" >board.dump'
  echo '$ vboard load board.dump'
  (cd "$work" && "$build/vboard" --board "$board" load board.dump 2>&1) || true
}

# A run recorded and played again, by the program and by one that does otherwise.
recipe_record_example() {
  example_configuration
  cat >"$work/plug.script" <<'SCRIPT'
at 3s  melk send-config /home/tovin/example.ini
at 60s world source none
at 65s world source component
SCRIPT
  echo '$ vboard record --virtual --for 2min --script plug.script -o run.trace -- vantorig -602'
  "$build/vboard" --board "$board" record --virtual --for 2min --script "$work/plug.script" \
    --host-log /dev/null -o "$work/run.trace" -- "$build/vantorig" -602 >/dev/null 2>&1
  echo '$ vboard replay run.trace'
  "$build/vboard" replay "$work/run.trace"
  echo '$ vboard replay run.trace -- vantorig -602 getmon'
  "$build/vboard" replay "$work/run.trace" -- "$build/vantorig" -602 getmon || echo "[exit status $?]"
}

# The run that is drawn in the README.
picture_run() {
  fresh_board
  cp "$docs/../packaging/hd.ini" "$board/home/hd-example.ini"
  "$build/vboard" --board "$board" record --virtual --for 6min \
    --script "$docs/pictures/run.script" --host-log /dev/null -o "$work/picture.trace" \
    -- "$build/vantorig" -602 >/dev/null 2>&1
  "$build/vboard" timeline "$work/picture.trace" -o "$1"
}

recipe_trace_example() {
  echo '$ vboard run --virtual --trace trace.txt -- vantorig -rdver_bf'
  vantorig -rdver_bf | sed -e 1d -e '$d'
  echo '$ cat trace.txt'
  cat "$work/trace"
}

# Each answer is collected by a poll, some time after the question.
recipe_host_exchange() {
  sed -n 's/^\([^#]*\)#.*$/\1/p' <<'SCRIPT' >"$work/exchange"
at 3s link 01       # GET_HD_VERSION
after 50ms link a5  #
link 03             # GET_STATUS, three times
after 50ms link a5  #
link 03             #
after 50ms link a5  #
link 03             #
after 50ms link a5  #
link 12 00 00 01 2c # SET_SPTS 300
link 0a             # PREPARE_FPGA_REGISTERS
after 50ms link 09  # GET_REG_FILE_BYTE, twice
after 50ms link a5  #
link 09             #
after 50ms link a5  #
link 1c             # GET_SW_VERSION, first byte
after 50ms link a5  #
link 23             # GET_FPS: the counter stands at 1
after 50ms link a5  #
link 08             # GET_LOG_FILE1, there is none
after 50ms link a5  #
after 50ms link a5  #
after 50ms link a5  #
after 50ms link a5  #
after 50ms link 10  # ignored; collects the last byte
SCRIPT
  service 8s -602 <"$work/exchange" >/dev/null
  cat "$work/host"
}

# ---- pages -----------------------------------------------------------------------

block() {
  function=$(echo "$1" | tr - _)
  if command -v "recipe_$function" >/dev/null; then
    fence "recipe_$function"
  elif command -v "block_$function" >/dev/null; then
    "block_$function"
  elif "$build/tables" | grep -q "\"text\": \"-$1\""; then
    fence option_alone "$1"
  else
    echo "transcripts.sh: no recipe for the block $1" >&2
    exit 2
  fi
}

if [ -n "$names" ]; then
  for name in $names; do block "$name"; done
  exit 0
fi

stale=0
if [ $mode = write ]; then python3 -B "$docs/tables.py" "$build/tables"; fi
for page in "$docs"/*.md; do
  blocks=$(sed -n 's/^<!-- generated \([-a-z0-9_]*\) -->$/\1/p' "$page")
  [ -n "$blocks" ] || continue
  rm -rf "$work/blocks"
  mkdir "$work/blocks"
  for name in $blocks; do block "$name" >"$work/blocks/$name"; done
  awk -v blocks="$work/blocks/" '
    inside && $0 == "<!-- end -->" { inside = 0 }
    !inside { print }
    $1 == "<!--" && $2 == "generated" {
      inside = 1
      while ((getline text < (blocks $3)) > 0) print text
    }' "$page" >"$work/page"
  cmp -s "$page" "$work/page" && continue
  if [ $mode = check ]; then
    diff -u --label "docs/$(basename "$page")" --label "as it should be" "$page" "$work/page" || stale=1
  else
    cat "$work/page" >"$page"
    echo "docs/$(basename "$page") rewritten"
  fi
done

for script in "$docs"/pictures/*.script; do
  name=$(basename "$script" .script)
  "picture_$name" "$work/picture.svg"
  cmp -s "$docs/pictures/$name.svg" "$work/picture.svg" && continue
  if [ $mode = check ]; then
    echo "docs/pictures/$name.svg is not what its script draws" >&2
    stale=1
  else
    cat "$work/picture.svg" >"$docs/pictures/$name.svg"
    echo "docs/pictures/$name.svg rewritten"
  fi
done
[ $stale -eq 0 ] || echo "Not current: run docs/transcripts.sh and look at what changed." >&2
exit $stale
