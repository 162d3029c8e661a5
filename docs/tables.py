#!/usr/bin/env python3
"""Writes the tables of the pages and manual pages from the lists that they show.

    docs/tables.py TABLES           rewrite the pages
    docs/tables.py TABLES --check   exit 1 with a diff when a page is not current

TABLES is the program `tables` of the build: what the programs have. What only prose
has comes from tests/contract. A table stands between "table LIST WORDS" and "end", each
a comment of its own in the page: <!-- --> in docs/, .\\" in packaging/man/.
"""

import difflib
import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]


def contract(name):
    return json.loads((ROOT / f"tests/contract/{name}.json").read_text(encoding="utf-8"))


def figure(number):
    """1000000 as "1 000 000"; up to six digits as they are."""
    return f"{number:,}".replace(",", " ") if abs(number) >= 1_000_000 else str(number)


def line(*cells):
    """A row of a table; a cell that is empty takes one blank."""
    return "|" + "".join(f" {cell} |" if cell else " |" for cell in cells)


def head(*cells):
    return [line(*cells), "|" + "---|" * len(cells)]


# ---- docs/ -----------------------------------------------------------------------

def keys_page(programs, section):
    rows = [row for row in contract("keys") if row.get("section") == section]
    reset = any("after_reset" in row for row in rows)
    yield from head("Key", "Range", "Unit", "Out of range", "Changes", *(["After FPGA reset"] if reset else []))
    for row in rows:
        low, high, other = row.get("range", (None, None, None))
        takes = row.get("takes", "–") if low is None else f"{figure(low)}…{figure(high)}"
        start = row.get("after_reset")
        mark = "**" if reset and start != other else ""
        cells = [f"`{row['key']}`", takes, row.get("unit", ""), "–" if low is None else f"{mark}{figure(other)}{mark}"]
        cells.append(row.get("changes") or f"field {row['field']}")
        yield line(*cells, *([f"{mark}{start}{mark}"] if reset else []))


def host_commands_page(programs, _):
    yield from head("Code", "Name", "Behind the code", "Back", "Busy, remarks", "`melk`")
    words = {row["code"]: row["word"] for row in programs["melk_commands"]}
    for row in contract("host_commands"):
        word = row.get("melk", words.get(row["code"], ""))
        yield line(str(row["code"]), f"`{row['name']}`", row.get("behind", "–"), row.get("back", "–"), row.get("remarks", ""), f"`{word}`")


def unknown_codes_page(programs, _):
    known = {row["code"] for row in programs["host_commands"]}
    spans = []
    for code in range(256):
        if code in known:
            continue
        if spans and spans[-1][1] == code - 1:
            spans[-1][1] = code
        else:
            spans.append([code, code])
    texts = [str(a) if a == b else f"{a}, {b}" if a + 1 == b else f"{a} to {b}" for a, b in spans]
    yield f"- **Unknown codes** ({', '.join(texts)}) are ignored"
    yield "  without an answer."


def options_page(programs, _):
    yield from head("Option", "Argument", "Acts, then")
    for row in programs["options"]:
        lasts = any(one["text"] == row["text"] and one.get("lasts") for one in contract("options"))
        then = {"at once": "at once, goes on", "go on": "goes on", "end": "ends"}[row["act"]]
        yield line(f"`{row['text']}`", "1" if row["look"] == "first" else "any", "never ends" if lasts else then)


def chips_page(programs, _):
    names = [f"{row['name']} {row['address']:02x}" for row in programs["chips"]]
    yield f"I2C addresses are 7-bit: {', '.join(names)}."


PAGE = {"keys": keys_page, "host-commands": host_commands_page, "unknown-codes": unknown_codes_page,
        "options": options_page, "chips": chips_page}


# ---- packaging/man/ ----------------------------------------------------------------

def between(low, high, unit, other):
    return f"{low} {'or' if high == low + 1 else 'to'} {high}{' ' + unit if unit else ''}, else {other}."


def keys_manual(programs, section, _):
    """Keys of which the same is said are one item."""
    items = []
    for row in contract("keys"):
        if row.get("section") != section:
            continue
        says = list(row.get("man", []))
        if "range" in row:
            low, high, other = row["range"]
            unit = {"%": "percent"}.get(row.get("unit", ""), row.get("unit", ""))
            says.insert(0, between(low, high, unit, other))
        if items and items[-1][1] == says:
            items[-1][0].append(row["key"])
        else:
            items.append(([row["key"]], says))
    yield ".Bl -tag -width Ds"
    for keys, says in items:
        yield ".It Cm " + " , ".join(keys)
        yield from says
    yield ".El"


def options_manual(programs, section, _):
    items = []
    for row in contract("options"):
        if row["section"] != section:
            continue
        tag = f"Fl {row['text'][1:]}" + (f" {row['operands']}" if "operands" in row else "")
        if items and items[-1][1] == row["man"]:
            items[-1][0].append(tag)
        else:
            items.append(([tag], row["man"]))
    yield ".Bl -tag -width Ds"
    for tags, says in items:
        yield ".It " + " , ".join(tags)
        yield from says
    yield ".El"


def words_manual(programs, group, text):
    """Words of the group that take nothing and have no item of their own."""
    own = set()
    for tag in re.findall(r"^\.It Cm ([a-z-]+(?: , [a-z-]+)*)", BLOCK[".1"].sub("", text), re.M):
        own.update(tag.split(" , "))
    words = [row["word"] for row in programs["melk_words"]
             if row["group"] == group and not row["takes"] and row["word"] not in own]
    if words:
        yield ".It Cm " + " , ".join(words)


MANUAL = {"keys": keys_manual, "options": options_manual, "words": words_manual}


# ---- pages ---------------------------------------------------------------------------

BLOCK = {
    ".md": re.compile(r"(?<=^<!-- table )([a-z-]+) ?(.*)( -->\n)(?:(?!<!-- end -->)[^\n]*\n)*", re.M),
    ".1": re.compile(r'(?<=^\.\\" table )([a-z-]+) ?(.*)(\n)(?:(?!\.\\" end)[^\n]*\n)*', re.M),
}
BLOCK[".5"] = BLOCK[".1"]


def current(path, programs):
    """The text that the page should have."""
    text = path.read_text(encoding="utf-8")

    def block(found):
        name, words, close = found.groups()
        made = PAGE[name](programs, words) if path.suffix == ".md" else MANUAL[name](programs, words, text)
        return f"{name}{' ' + words if words else ''}{close}" + "".join(one + "\n" for one in made)

    return text, BLOCK[path.suffix].sub(block, text)


def main():
    programs = json.loads(subprocess.run([sys.argv[1]], capture_output=True, text=True, check=True).stdout)
    check = sys.argv[2:] == ["--check"]
    stale = False
    for path in sorted((ROOT / "docs").glob("*.md")) + sorted((ROOT / "packaging/man").iterdir()):
        text, wanted = current(path, programs)
        if text == wanted:
            continue
        stale = True
        if check:
            sys.stdout.writelines(difflib.unified_diff(
                text.splitlines(True), wanted.splitlines(True), path.name, "as it should be"))
        else:
            path.write_text(wanted, encoding="utf-8")
            print(f"{path.relative_to(ROOT)} rewritten")
    if check and stale:
        sys.exit("Not current: run docs/transcripts.sh and look at what changed.")


if __name__ == "__main__":
    main()
