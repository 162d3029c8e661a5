"""The pages say what the programs have, and no more: options, commands, keys, ranges, messages, links.

coverage.sh asks for each row of a table whether a page has it; here it goes the
other way too, and the options of melk and vboard are those of their --help.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ["app", "supervision", "hostlink", "diag", "config", "audio", "video", "hw"]

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

def table(source, pattern):
    return re.findall(pattern, read(source), re.M)

def option_findings():
    known = set(table("app/command_line.cpp", r'^    \{"-([^"]+)", +k(?:First|Each)'))
    page = read("packaging/man/vantorig.1")
    tagged = {name for line in re.findall(r"^\.It (Fl .*)", page, re.M) for name in flags(line)}
    yield from differ("vantorig.1", tagged, known)
    headed = re.findall(r"^### (.*)", read("docs/bench-manual.md"), re.M)
    words = {name for line in headed for name in re.findall(r"-([A-Za-z0-9_]+=?)", "".join(re.findall("`[^`]*`", line)))}
    yield from differ("bench-manual.md", words, known)

def command_findings():
    rows = table("hostlink/dispatcher.cpp", r'^    \{(\d+), "([A-Z_0-9]+)"')
    page = read("docs/host-protocol.md")
    listed = re.findall(r"^\| (\d+) \| `([A-Z_0-9]+)` \|", page, re.M)
    yield from differ("host-protocol.md, commands", {" ".join(row) for row in listed}, {" ".join(row) for row in rows})
    ignored = re.search(r"\*\*Unknown codes\*\* \(([^)]*)\)", page).group(1)
    unknown = set()
    for first, last in re.findall(r"(\d+)(?: to (\d+))?", ignored):
        unknown.update(range(int(first), int(last or first) + 1))
    yield from differ("host-protocol.md, unknown codes", unknown, set(range(256)) - {int(code) for code, _ in rows})

def key_findings():
    known = set(table("config/hd_params.cpp", r'^    \{"([A-Za-z_]+)", +"%d"'))
    page = read("docs/hd-ini.md")
    keys = page[page.index("\n## Keys\n"):page.index("\n## Examples\n")]
    rows = {cells[0]: cells[1:] for cells in (
        [cell.strip(" `*") for cell in line.strip("| ").split("|")]
        for line in re.findall(r"^\| `[A-Za-z_]+` \|.*", keys, re.M))}
    yield from differ("hd-ini.md, keys", set(rows), known)
    tagged = {key for line in re.findall(r"^\.It Cm (.*)", read("packaging/man/hd.ini.5"), re.M) for key in line.split(" , ")}
    yield from differ("hd.ini.5", tagged, known)

    # Key, handler, range: 1...100 and what is stored for anything else.
    handlers = dict((handler, [int(number.replace("'", "")) for number in numbers.split(", ")])
                    for source in ("config/encoder.cpp", "config/output_rate.cpp")
                    for handler, numbers in re.findall(
                        r"^int (\w+)\(const std::int32_t\* value[^{]*\{[^}]*?\*value, \{([-\d', ]+)\}", read(source), re.M))
    ranged = {key: handlers[handler] for key, handler in table(
        "config/hd_params.cpp", r'^    \{"([A-Za-z_]+)",.* (\w+)\},$') if handler in handlers}
    if len(ranged) != len(handlers):
        yield f"config/: {len(handlers)} ranges, but {len(ranged)} were found in use"
    for key, (low, high, other) in ranged.items():
        cells = [cell.replace(" ", "").strip("*") for cell in rows.get(key, ["", "", ""])]
        if (cells[0], cells[2]) != (f"{low}…{high}", str(other)):
            yield f"hd-ini.md, {key}: the program has {low}…{high} and else {other}"

def example_findings():
    known = set(table("config/hd_params.cpp", r'^    \{"([A-Za-z_]+)", +"%d"'))
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

def symptom_findings(melk, vboard):
    page = read("docs/symptoms.md")
    printed = "".join("".join(re.findall(r'"((?:[^"\\]|\\.)*)"', path.read_text(encoding="utf-8")))
                      for folder in FOLDERS for path in sorted((ROOT / folder).rglob("*.[ch]*")))
    for quoted in re.findall(r'"([^"|]{8,})"', page):
        for part in re.split(" *… *", quoted):
            # A number of the page stands for itself or for a conversion of printf.
            wanted = re.sub(r"\d+", lambda number: f"(?:{number[0]}|%[a-z0-9]+)", re.escape(part.strip()))
            if not re.search(wanted, printed):
                yield f'symptoms.md: the program prints no "{part}"'
    faults = {line.split()[0] for line in re.findall(r"^  (\S+)", subprocess.run(
        [vboard, "operations"], capture_output=True, text=True, check=True).stdout, re.M)}
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

def findings(melk, vboard):
    yield from tool_findings(melk, "packaging/man/melk.1")
    yield from tool_findings(vboard, "packaging/man/vboard.1")
    yield from option_findings()
    yield from command_findings()
    yield from key_findings()
    yield from example_findings()
    yield from symptom_findings(melk, vboard)
    yield from link_findings()

if __name__ == "__main__":
    wrong = list(findings(*sys.argv[1:3]))
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)
