"""Compares the lines of the product that no test reached with those that docs/reliability.md
lists, and prints how much was reached. Reads gcovr's JSON."""

import json
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "reliability.md"
# | `folder/file.cpp` | `text of the line` | reason |
ROW = re.compile(r"^\| `([a-z]+/[^`]+)` \| `([^`]+)` \| .+ \|$")


def listed():
    """(file, text of the line) of every row."""
    rows = (ROW.match(line) for line in PAGE.read_text(encoding="utf-8").split("\n"))
    return {(row.group(1), row.group(2)) for row in rows if row}


def is_code(line):
    return not line.get("gcovr/noncode", False)


def unreached(report):
    """(file, number, text) of every line that no test reached."""
    for entry in report["files"]:
        source = (ROOT / entry["file"]).read_text(encoding="utf-8").split("\n")
        for line in entry["lines"]:
            if line["count"] == 0 and is_code(line):
                number = line["line_number"]
                yield entry["file"], number, source[number - 1].strip()


def share(what, counts):
    reached = sum(1 for count in counts if count > 0)
    print(f"{what}: {reached} of {len(counts)}, {100 * reached / len(counts):.1f} %")


def main():
    report = json.loads(Path(sys.argv[1]).read_text(encoding="utf-8"))
    lines = [line for entry in report["files"] for line in entry["lines"] if is_code(line)]
    share("lines", [line["count"] for line in lines])
    share("branches", [branch["count"] for line in lines for branch in line["branches"]])
    known = listed()
    found = list(unreached(report))
    surprises = [one for one in found if (one[0], one[2]) not in known]
    for name, number, text in surprises:
        print(f"{name}:{number}: not reached: {text}")
    for name, text in sorted(known - {(name, text) for name, _, text in found}):
        print(f"{PAGE.name}: {name} `{text}` is reached, or is no more")
        surprises.append((name, 0, text))
    sys.exit(1 if surprises else 0)


if __name__ == "__main__":
    main()
