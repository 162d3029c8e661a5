"""The sweep of failing calls leaves no import of the program out."""

import pathlib
import re

import common
import imports

HERE = pathlib.Path(__file__).parent
SEAM = ["vboard/interpose/interpose.cpp", "tests/sweep/wrapped_calls.cpp"]


def read_list(text):
    """name -> None for a swept call, or the reason why it is none."""
    names = {}
    for line in text.split("\n"):
        swept = re.fullmatch(r"swept (\w+)", line)
        other = re.fullmatch(r"(\w+): (.+)", line)
        if swept:
            names[swept[1]] = None
        elif other:
            names[other[1]] = other[2]
        elif line and not line.startswith("#"):
            raise SystemExit(f"fallible.txt: cannot make sense of '{line}'")
    return names


def asked(text):
    """The calls for which the sweep is asked."""
    return set(re.findall(r'(?:call_fails|should_fail)\("(\w+)"', text))


def problems(imported, listed, asked_for):
    """What the sweep leaves out."""
    for one in sorted(set(imported) - set(listed)):
        yield f"{one}: imported, but not in fallible.txt"
    for one in sorted(set(listed) - set(imported)):
        yield f"{one}: in fallible.txt, but not imported"
    for one, reason in listed.items():
        if reason is None and one not in asked_for:
            yield f"{one}: listed as swept, but the sweep is not asked for it"


def read(path):
    return (common.ROOT / path).read_text(encoding="utf-8")


def main():
    found = problems(
        imports.read_list((HERE / "imports.txt").read_text(encoding="utf-8")),
        read_list((HERE / "fallible.txt").read_text(encoding="utf-8")),
        set().union(*(asked(read(path)) for path in SEAM)),
    )
    common.finish(list(found), "tests/sweep makes each call fail.")


if __name__ == "__main__":
    main()
