"""The pages say what the programs have, and no more: options, commands, keys, messages, links.

Tables of the pages are made from the lists (docs/tables.py); here the rest is compared:
the manual pages with --help, headings, examples and what the symptoms quote.

    pages.py MELK VBOARD TABLES VANTORIG
"""

import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
def read(name):
    return (ROOT / name).read_text(encoding="utf-8")

def differ(what, page, program):
    for one in sorted(page - program):
        yield f"{what}: the page has {one}, the program has not"
    for one in sorted(program - page):
        yield f"{what}: the program has {one}, the page has not"

# ---- help and manual pages ----------------------------------------------------------

def helped(program, *words):
    return subprocess.run([program, *words, "--help"], capture_output=True, text=True, check=True).stdout

def entries(text, headings):
    """First words of the entries below the headings for which `headings` is true."""
    found = []
    listed = False
    for line in text.split("\n"):
        if re.fullmatch(r"[A-Z][A-Za-z ]*:", line):
            listed = headings(line[:-1])
        elif listed and re.match(r"  \S", line):
            found.append(line.split()[0])
    return found

def options(program, *words):
    """Options as a manual page writes them: "-speed" for --speed, "o" for -o,--output."""
    return {entry.split(",")[0][1:] for entry in entries(helped(program, *words), lambda at: at == "Options")}

def commands(program):
    return set(entries(helped(program), lambda at: at not in ("Options", "Positionals", "Example")))

def flags(macros):
    return {one for one in re.findall(r"\bFl (\S+)", macros) if one != "-"}

def manual(page):
    """(options of the program, {command: its options}) by synopsis and tags of a manual page."""
    text = read(page)
    own = {}
    synopsis = text[text.index(".Sh SYNOPSIS"):text.index(".Sh DESCRIPTION")]
    for form in synopsis.split(".Nm\n"):
        for line in re.findall(r"^\.Cm (.*)", form, re.M):
            for word in re.findall(r"(?:^|\| )([a-z-]+)", line):
                own.setdefault(word, set()).update(flags(form))
    whole = flags(synopsis)
    for line in re.findall(r"^\.It (.*)", text, re.M):
        if line.startswith("Fl "):
            whole.update(flags(line))
            continue
        words = re.match(r"Cm ([a-z-]+(?: , [a-z-]+)*)", line)
        for word in words.group(1).split(" , ") if words else []:
            own.setdefault(word, set()).update(flags(line))
    return whole, own

def tool_findings(program, page):
    whole, own = manual(page)
    always = options(program) | {"h"}
    yield from differ(f"{page}, commands", set(own), commands(program))
    for word in sorted(commands(program) & set(own)):
        yield from differ(f"{page}, {word}", own[word] - always, options(program, word) - always)
    of_commands = set().union(*own.values())
    yield from differ(f"{page}, options", whole - (of_commands - always), always - {"h"})

# ---- tables of the program -----------------------------------------------------------

def option_findings(tables):
    known = {row["text"][1:] for row in tables["options"]}
    headed = re.findall(r"^### (.*)", read("docs/bench-manual.md"), re.M)
    words = {name for line in headed for name in re.findall(r"-([A-Za-z0-9_]+=?)", "".join(re.findall("`[^`]*`", line)))}
    yield from (f"bench-manual.md: the program has no -{name}" for name in sorted(words - known))

def cause_findings(tables):
    listed = re.findall(r"^\| 0x(8[1-9]) \|", read("docs/host-protocol.md"), re.M)
    yield from differ("host-protocol.md, causes", set(listed), {f"{row['code']:x}" for row in tables["restart_causes"]})

def example_findings(tables):
    known = {row["key"] for row in tables["keys"]}
    examples = ["packaging/hd.ini"] + sorted(f"packaging/examples/{path.name}" for path in (ROOT / "packaging/examples").iterdir())
    tested = read("tests/service/test_examples.cpp")
    page = read("docs/hd-ini.md")
    for name in examples:
        yield from differ(name, set(re.findall(r"^([^;#=\s]+)=", read(name), re.M)), known)
        if f'"{name.removeprefix("packaging/")}"' not in tested:
            yield f"{name}: no test sends it"
        if f"(../{name})" not in page:
            yield f"{name}: hd-ini.md does not name it"

# ---- symptoms ------------------------------------------------------------------------

def symptom_findings(melk, vantorig, tables):
    page = read("docs/symptoms.md")
    printed = pathlib.Path(vantorig).read_bytes().decode("latin-1")
    for quoted in re.findall(r'"([^"|]{8,})"', page):
        for part in re.split(" *… *", quoted):
            # A number of the page stands for itself or for a conversion of printf.
            wanted = re.sub(r"\d+", lambda number: f"(?:{number[0]}|%[a-z0-9]+)", re.escape(part.strip()))
            if not re.search(wanted, printed):
                yield f'symptoms.md: the program prints no "{part}"'
    faults = {row["name"] for row in tables["faults"]}
    for name in re.findall(r"`fault ([a-z0-9-]+)", page):
        if name not in faults:
            yield f"symptoms.md: vboard knows no fault {name}"
    for name in re.findall(r"`melk ([a-z-]+)", page):
        if name not in commands(melk):
            yield f"symptoms.md: melk has no command {name}"

# ---- links ---------------------------------------------------------------------------

def anchors(page):
    """Headings of a page as links name them."""
    return {re.sub(r"[^\w\- ]", "", heading.lower()).strip().replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)", page.read_text(encoding="utf-8"), re.M)}

def link_findings():
    for page in [ROOT / "README.md"] + sorted((ROOT / "docs").glob("*.md")):
        for target in re.findall(r"\]\(([^)\s]+)\)", page.read_text(encoding="utf-8")):
            if "://" in target:
                continue
            name, _, anchor = target.partition("#")
            linked = page.parent / name if name else page
            if not linked.exists():
                yield f"{page.name}: there is no {target}"
            elif anchor and anchor not in anchors(linked):
                yield f"{page.name}: no heading for {target}"

def findings(melk, vboard, tables, vantorig):
    tables = json.loads(subprocess.run([tables], capture_output=True, text=True, check=True).stdout)
    yield from tool_findings(melk, "packaging/man/melk.1")
    yield from tool_findings(vboard, "packaging/man/vboard.1")
    yield from option_findings(tables)
    yield from cause_findings(tables)
    yield from example_findings(tables)
    yield from symptom_findings(melk, vantorig, tables)
    yield from link_findings()

if __name__ == "__main__":
    wrong = list(findings(*sys.argv[1:]))
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)
