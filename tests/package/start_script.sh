#!/bin/sh
# A board's day with the start script, on the BusyBox shell of the sandbox: start,
# logs as the host sees them, a service or a logger that dies, stop, roll-back. Run by
# start_script.py, which makes the board.
#   start_script.sh SCRIPT MELK BOARD CONFIGURATION
script=$1
melk=$2
board=$3
configuration=$4
failed=0

check() { # TEXT, condition
  text=$1
  shift
  if "$@"; then
    echo "ok   $text"
  else
    echo "FAIL $text"
    failed=1
  fi
}

# Waits until a condition holds, for as long as a busy machine may take.
until_holds() {
  left=600
  while ! "$@"; do
    left=$((left - 1))
    [ $left -gt 0 ] || return 1
    usleep 50000
  done
}

S90() { busybox sh "$script" "$@"; }
host() { env -u LD_PRELOAD "$melk" --board "$board" "$@" >/dev/null; }
service_pid() { pidof vantorig; }
says() { grep -q "$2" "$1" 2>/dev/null; }
is_up() { says log1.txt 'end configure'; }
differs() { pid=$(service_pid) && [ "$pid" != "$1" ]; }
size_at_most() { [ "$(wc -c <"$1")" -le "$2" ]; }
nobody_runs() { ! pidof vantorig >/dev/null && ! pidof encode >/dev/null; }
no_encode() { ! pidof encode; }
no_file() { [ ! -e "$1" ]; }
on_record() { head -n 1 vantorig.pid; }
begun() { sed -n 2p vantorig.pid; }
record() { printf '%s\n' "$1" "$2" >vantorig.pid; }
nothing_runs() { [ "$(S90 status)" = "S90vantorig: does not run" ]; }
runs() { S90 status >/dev/null; }
loggers() { pgrep -P "$(on_record)" | grep -v "^$(service_pid)\$"; }
is_running() { [ -e "/proc/$1" ]; }
# The limit on open handles that a process may get here, by trying.
most_handles() {
  most=$(cat /proc/sys/fs/nr_open)
  (ulimit -n "$most") 2>/dev/null || most=$(ulimit -H -n)
  echo "$most"
}
handles_of() { awk '/^Max open files/ { print $4, $5 }' "/proc/$1/limits"; }

cd /home/tovin || exit 1

check "status says that nothing runs" test "$(S90 status; echo $?)" = "S90vantorig: does not run
3"
ulimit -S -n 256
most=$(most_handles)
S90 start
check "the service runs" until_holds is_up
check "with as many handles as the kernel gives" test "$(handles_of "$(service_pid)")" = "$most $most"
check "in its working directory" test "$(readlink "/proc/$(service_pid)/cwd")" = /home/tovin
check "with the words of vantorig.conf" says log1.txt 'monitor is disabled'
check "the log of before is log 2" test "$(cat log2.txt)" = "of yesterday"
check "status says so" S90 status
first=$(service_pid)
S90 start
check "a second start changes nothing" test "$(service_pid)" = "$first"

keeper=$(on_record)
mark=$(begun)
record "$keeper" "${mark% *} 00000000-0000-0000-0000-000000000000"
check "a process of another boot is none of ours" nothing_runs
record "$keeper" "1 ${mark#* }"
check "nor is one that began at another time" nothing_runs
busybox sh -c 'sleep 1000; exit' S90vantorig &
namesake=$!
record $namesake "$mark"
check "nor one whose command line names the script" nothing_runs
kill $namesake
record "$keeper" ""
check "nor one of which only the number is known" nothing_runs
record "$keeper" "$mark"
check "but the one on record is" runs

(./encode &)
check "an encode is there" until_holds pidof encode
kill -9 "$first"
check "a service that is killed is started again" until_holds differs "$first"
check "the log says how it ended" until_holds says log1.txt 'S90vantorig: the service ended with status 137'
check "the log of the dead is kept" test "$(grep -c 'end configure' log1.txt)" -ge 1
check "encode has ended with it" until_holds no_encode

rm log1.txt
host temp
check "a log that the host deleted begins anew" until_holds says log1.txt AUDIO_STATUS_REG

rm log2.txt
while no_file log2.txt; do host temp || break; done
check "a full log becomes log 2" says log2.txt AUDIO_STATUS_REG
check "and is no larger than it may be" size_at_most log2.txt 2100
host make-logs
host log 1 -o "$board/log1.tar.gz"
check "the host fetches log 1" test "$(tar -tzf "$board/log1.tar.gz")" = log1.txt
host log 2 -o "$board/log2.tar.gz"
tar -xzOf "$board/log2.tar.gz" >"$board/log2.txt"
check "the host fetches log 2 as it is" says "$board/log2.txt" AUDIO_STATUS_REG

first=$(service_pid)
logger=$(loggers)
rm log1.txt
kill -9 "$logger"
host temp
check "with a dead logger the service goes on" is_running "$first"
check "and what it prints goes into the log" until_holds says log1.txt AUDIO_STATUS_REG
check "by another logger" test "$(loggers)" != "$logger"
kill -9 "$(loggers)"
host send-config "$configuration"
check "so it does while the host sends a file" until_holds says log1.txt 'END Configure_System'
check "which it has whole" cmp hd.ini "$configuration"
check "it is still the same service" test "$(service_pid)" = "$first"

S90 stop
check "stop ends service and encode" nobody_runs
check "and leaves neither process number nor pipe" test ! -e vantorig.pid -a ! -e vantorig.pipe
S90 stop
check "a second stop is no failure" test $? -eq 0

check "nothing to roll back to" test "$(S90 rollback; echo $?)" = "S90vantorig: nothing was replaced
1"
echo 1.0.9 >version.ini.previous
cp -p vantorig vantorig.previous
S90 rollback
check "roll-back brings the old version back" test "$(cat version.ini version.ini.previous)" = "1.0.9
1.12.3"
check "and starts nothing that did not run" nobody_runs
S90 start
S90 rollback
check "again, it goes forth" test "$(cat version.ini version.ini.previous)" = "1.12.3
1.0.9"
check "and what ran runs again" until_holds is_up
S90 stop

# As a line of inittab has it, with the number of a process of long ago.
record 99999 "$mark"
rm log1.txt
busybox sh "$script" run &
keeper=$!
check "run starts the service" until_holds is_up
check "run is the process on record" until_holds test "$(on_record)" = "$keeper"
kill "$keeper"
wait "$keeper"
check "it ends when told to" test $? -eq 0
check "with its service" nobody_runs

exit $failed
