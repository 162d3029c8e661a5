#!/bin/sh
# A boot of a board that is switched off in mid-service. Every boot gives its processes
# the same numbers. Run twice by start_script.py.
#   second_boot.sh SCRIPT
cd /home/tovin || exit 1
rm -f log1.txt
busybox sh "$1" start
left=600
until grep -q 'end configure' log1.txt 2>/dev/null; do
  left=$((left - 1))
  [ $left -gt 0 ] || exit 1
  usleep 50000
done
