"""The completion of bash against what the programs print for --help."""

import pathlib
import re
import subprocess
import sys
import tempfile

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "packaging/completion/melk-vboard.bash"
ASK = """
source "$0"
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_melk_vboard "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
printf '%s\\n' "${COMPREPLY[@]}"
"""


def completed(*words, cwd=None):
    """What bash offers for the last of the words."""
    run = subprocess.run(["bash", "--norc", "-c", ASK, str(SCRIPT), *words],
                         cwd=cwd, capture_output=True, text=True, check=True)
    if run.stderr:
        raise AssertionError(f"{words}: {run.stderr}")
    return {word for word in run.stdout.split("\n") if word}


def helped(program, *words):
    return subprocess.run([program, *words, "--help"], capture_output=True, text=True, check=True).stdout


def sections(text):
    """Headings of a help text with the first words of their entries."""
    found = {}
    heading = None
    for line in text.split("\n"):
        if re.fullmatch(r"[A-Z][A-Za-z ]*:", line):
            heading = line[:-1]
        entry = re.match(r"  (\S+)", line)
        if heading and entry and line[2] != " ":
            found.setdefault(heading, []).append(entry.group(1))
    return found


def commands(program):
    parts = sections(helped(program))
    others = ("Options", "Positionals", "Example")
    return {word for heading, words in parts.items() if heading not in others for word in words}


def options(program, *words):
    return {name for entry in sections(helped(program, *words)).get("Options", []) for name in entry.split(",")}


def fault_lines(vboard):
    """Faults by name, with what `vboard operations` says after it."""
    listed = subprocess.run([vboard, "operations"], capture_output=True, text=True, check=True).stdout
    lines = listed.partition("\nFault\n")[2].partition("\n\n")[0].split("\n")
    return dict(line.split(None, 1) for line in lines if line.startswith("  "))


def findings(melk, vboard):
    def expect(what, is_, should):
        if is_ != should:
            yield f"{what}: {sorted(is_ ^ should)} differ"

    for program, known in ((melk, {"status", "watch", "send-config"}), (vboard, {"run", "source", "fault"})):
        listed = commands(program)
        if not known <= listed:
            yield f"{program} --help does not list {sorted(known - listed)}"
        yield from expect(f"{program} commands", completed(program, ""), listed)
        yield from expect(f"{program} options", completed(program, "-"), options(program))
        for word in sorted(listed):
            both = options(program) | options(program, word)
            yield from expect(f"{program} {word} options", completed(program, word, "-"), both)

    yield from expect("beginning of a command", completed(melk, "sta"), {"status"})
    yield from expect("command behind an option with a value", completed(melk, "--timeout", "5", "sta"), {"status"})
    yield from expect("value that is called as a command", completed(melk, "--board", "status", "sta"), {"status"})
    yield from expect("number", completed(melk, "--timeout", ""), set())
    yield from expect("flag and then an argument", completed(melk, "registers", "--full", ""), set())
    yield from expect("sources", completed(vboard, "source", ""), {"component", "vga", "composite", "none"})
    yield from expect("a fault", completed(vboard, "fault", "video-l"), {"video-loss"})
    faults = fault_lines(vboard)
    yield from expect("faults", completed(vboard, "fault", ""), set(faults))
    devices = set(re.search(r"is gone: (.*)", faults["missing"]).group(1).split())
    yield from expect("devices", completed(vboard, "fault", "missing", ""), devices | {"off"})
    yield from expect("a device", completed(vboard, "fault", "missing", "fp"), {"fpga", "fpga2"})
    yield from expect("behind a device", completed(vboard, "fault", "missing", "i2c", ""), {"off"})
    yield from expect("behind a fault", completed(vboard, "fault", "stall", ""), {"off"})
    yield from expect("a chip's number", completed(vboard, "fault", "i2c-fail", ""), {"off"})
    yield from expect("a word of a fault", completed(vboard, "fault", "nstatus", ""), {"never", "off"})
    yield from expect("standards", completed(vboard, "set-standard", "480"), {"480i", "480p"})
    with tempfile.TemporaryDirectory() as place:
        for name in ("hd.ini", "other"):
            (pathlib.Path(place) / name).touch()
        (pathlib.Path(place) / "board").mkdir()
        yield from expect("a file", completed(melk, "send-config", "h", cwd=place), {"hd.ini"})
        yield from expect("a file behind a flag", completed(melk, "send-config", "--wait", "h", cwd=place), {"hd.ini"})
        yield from expect("an output", completed(melk, "log", "1", "-o", "o", cwd=place), {"other"})
        yield from expect("a directory", completed(melk, "--board", "", cwd=place), {"board"})
        yield from expect("a program to run", completed(vboard, "run", "--", "h", cwd=place), {"hd.ini"})


if __name__ == "__main__":
    wrong = list(findings(*sys.argv[1:3]))
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)
