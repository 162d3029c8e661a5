"""The program takes only listed names from outside, and each is accounted for.

usage: imports.py VANTORIG LIBVBOARD
"""

import pathlib
import subprocess
import sys

import common

LIST = pathlib.Path(__file__).with_name("imports.txt")
KINDS = ("wrapped", "pass", "compiler")


def read_list(text):
    """name -> kind."""
    names = {}
    for line in text.split("\n"):
        words = line.split("#")[0].split()
        if len(words) == 2 and words[0] in KINDS and words[1] not in names:
            names[words[1]] = words[0]
        elif words:
            raise SystemExit(f"imports.txt: cannot make sense of '{line}'")
    return names


def symbols(binary, which):
    output = subprocess.run(["nm", "-D", which, binary], check=True, capture_output=True, text=True)
    return {line.split()[-1].split("@")[0] for line in output.stdout.splitlines()}


def problems(listed, imported, defined, provided):
    """What is wrong with the imports and definitions of the program."""
    for one in sorted(imported - set(listed)):
        where = " (the C++ library)" if one.startswith("_Z") else ""
        yield f"{one}: imported{where}, but not listed"
    for one, kind in listed.items():
        if kind != "compiler" and one not in imported:
            yield f"{one}: listed as {kind}, but not imported"
        if kind == "wrapped" and one not in provided:
            yield f"{one}: listed as wrapped, but the virtual board does not provide it"
        if kind != "wrapped" and one in provided and one in imported:
            yield f"{one}: listed as {kind}, but the virtual board provides it"
    for one in sorted(defined):
        if "vboard" in one:
            yield f"{one}: of the virtual board, but in the program"


def main():
    program, library = sys.argv[1:3]
    every = subprocess.run(["nm", program], check=True, capture_output=True, text=True).stdout
    names = {line.split()[-1] for line in every.splitlines() if line.strip()}
    found = list(
        problems(
            read_list(LIST.read_text(encoding="utf-8")),
            symbols(program, "--undefined-only"),
            names,
            symbols(library, "--defined-only"),
        )
    )
    needed = subprocess.run(["readelf", "-d", program], check=True, capture_output=True, text=True)
    for line in needed.stdout.splitlines():
        if "NEEDED" in line and "libc.so" not in line and "ld-linux" not in line:
            found.append(f"needs a library beside the C library: {line.split('[')[-1].rstrip(']')}")
    common.finish(found, "Each import stands in imports.txt, and what concerns a device is wrapped.")


if __name__ == "__main__":
    main()
