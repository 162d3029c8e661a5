"""The private memory of the running service, as the emulator maps it.

usage: memory.py PID [PID...]

Each is an emulator that runs the static program. Counted is what lies in the
program's own address space: code, data, heap and the stacks of its threads, as
far as they have been touched and are not shared.
"""

import re
import sys

FIRST_PAGE = 0x10000  # where the static program begins in its address space
SPACE = 1 << 32
HEAD = re.compile(r"^([0-9a-f]+)-([0-9a-f]+) (\S+) \S+ \S+ \d+ *(.*)$")
ROW = re.compile(r"^(Private_Clean|Private_Dirty|Rss): +(\d+) kB")


def regions(text):
    """[(start, end, name, {row: kB})] of an smaps file."""
    found = []
    for line in text.splitlines():
        head, row = HEAD.match(line), ROW.match(line)
        if head:
            found.append((int(head.group(1), 16), int(head.group(2), 16), head.group(4), {}))
        elif row:
            found[-1][3][row.group(1)] = int(row.group(2))
    return found


def private_kb(text, program="vantorig"):
    """kB of the program's pages that no other process shares: written, and all."""
    every = regions(text)
    base = min(start for start, _, name, _ in every if program in name) - FIRST_PAGE
    own = [rows for start, end, _, rows in every if base <= start and end <= base + SPACE]
    dirty = sum(rows.get("Private_Dirty", 0) for rows in own)
    return dirty, dirty + sum(rows.get("Private_Clean", 0) for rows in own)


def main():
    for pid in sys.argv[1:]:
        with open(f"/proc/{pid}/smaps", encoding="ascii", errors="replace") as file:
            dirty, private = private_kb(file.read())
        print(f"{pid}: {dirty} kB written, {private} kB private")


if __name__ == "__main__":
    main()
