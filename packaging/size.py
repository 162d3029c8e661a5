"""The size of the board's programs, against the limit and against tests/bench/size.txt.

usage: size.py PROGRAM...

A program is known by its place: build-arm/vantorig is "arm" there.
"""

import pathlib
import sys

RECORD = pathlib.Path(__file__).resolve().parents[1] / "tests/bench/size.txt"
LIMIT = 128 * 1024
ROOM = 2048  # what a program may grow by before the record wants a look


def read_record(text):
    """name -> bytes."""
    rows = (row.split("#")[0].split() for row in text.splitlines())
    return {row[0]: int(row[1]) for row in rows if row}


def problem(name, size, recorded):
    """What is wrong with the size of a program; None if nothing."""
    if size > LIMIT:
        return f"{name}: {size} bytes are more than the board's {LIMIT}"
    if name not in recorded:
        return f"{name}: not in tests/bench/size.txt"
    if abs(size - recorded[name]) > ROOM:
        return f"{name}: {size} bytes, but {recorded[name]} in tests/bench/size.txt; record it if that is meant"
    return None


def main():
    recorded = read_record(RECORD.read_text(encoding="utf-8"))
    found = []
    for path in map(pathlib.Path, sys.argv[1:]):
        name = path.resolve().parent.name.removeprefix("build-")
        size = path.stat().st_size
        print(f"{name}: {size} bytes of {LIMIT}")
        found.append(problem(name, size, recorded))
    found = [one for one in found if one]
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
