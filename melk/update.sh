#!/bin/sh
# Installs the files of an update package. The board's resident update.sh, or a
# factory restore, unpacked it into /home/tovin/tmp and runs this: files in new/,
# their checksums, modes and names in update.list.
#
# A new file lies complete and checked beside the one that it replaces before
# anything is changed; then each is put in place by a rename, and what it replaced
# is kept as NAME.previous. success.txt says that all of it went well.
#
# Runs on the BusyBox of an old board: plain sh, cp, mv, md5sum.
home=/home/tovin
work=$home/tmp
patience_s=10 # for a program that is asked for its help

changed= # names of the files that differ from those of the board

say() { echo "update: $*"; }

give_up() {
  rm -rf "$work/new" "$home"/*.new "$home"/*.kept
  say "$*; nothing was changed"
  exit 1
}

# has_sum FILE SUM
has_sum() {
  found=$(md5sum "$1" 2>/dev/null) || return 1
  [ "${found%% *}" = "$2" ]
}

# Calls a function with checksum, mode and name of every file.
for_every_file() {
  while read -r sum mode name; do
    "$1" "$sum" "$mode" "$name" || return 1
  done <"$work/update.list"
}

check() { has_sum "$work/new/$3" "$1" || give_up "$3 is damaged"; }

stage() {
  has_sum "$home/$3" "$1" && chmod "$2" "$home/$3" && return 0
  cp "$work/new/$3" "$home/$3.new" && chmod "$2" "$home/$3.new"
  has_sum "$home/$3.new" "$1" || give_up "$3 does not fit on the board"
  changed="$changed $3"
}

# answers FILE: a program for this machine that knows its own help. One that hangs
# is ended, one that babbles stopped.
answers() {
  case $(dd if="$1" bs=4 count=1 2>/dev/null) in
    ?ELF) ;;
    *) return 1 ;;
  esac
  (
    ulimit -f 64
    exec "$1" -help
  ) >"$work/help.txt" 2>/dev/null </dev/null &
  program=$!
  (
    trap 'kill "$timer"; exit' TERM
    sleep $patience_s &
    timer=$!
    wait $timer
    kill -9 $program
  ) >/dev/null 2>&1 &
  watchdog=$!
  wait $program
  status=$?
  kill $watchdog
  grep -q "help for command line to vantorig" "$work/help.txt" || status=1
  rm -f "$work/help.txt"
  return $status
}

keep() {
  for name in $changed; do
    [ -f "$home/$name" ] || continue
    cp -p "$home/$name" "$home/$name.kept" || give_up "no room to keep the old $name"
  done
  rm -f "$home"/*.previous
  for name in $changed; do
    [ -f "$home/$name.kept" ] && mv -f "$home/$name.kept" "$home/$name.previous"
  done
}

put_back() {
  for name in $changed; do
    if [ -f "$home/$name.previous" ]; then
      cp -p "$home/$name.previous" "$home/$name.kept"
      mv -f "$home/$name.kept" "$home/$name"
    else
      rm -f "$home/$name"
    fi
  done
  give_up "$1 could not be put in place"
}

swap() {
  for name in $changed; do
    mv -f "$home/$name.new" "$home/$name" || put_back "$name"
  done
}

update() {
  rm -f "$work/success.txt"
  [ -s "$work/update.list" ] || give_up "the package has no list of files"
  for_every_file check
  for_every_file stage
  program_file=$home/vantorig
  [ -f "$program_file.new" ] && program_file=$program_file.new
  answers "$program_file" || give_up "the new program does not answer"
  if [ -n "$changed" ]; then
    keep
    swap
  fi
  rm -rf "$work/new"
  sync
  say "installed:${changed:- nothing, all of it was there}"
  echo ok >"$work/success.txt"
}

update
