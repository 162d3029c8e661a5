"""The interposer is split: what calls mean above the marker, overrides below it."""

import re

import common

FILE = common.ROOT / "vboard/interpose/interpose.cpp"
MARKER = "// ==== overrides below"
LONGEST_BODY = 6
LOGIC = re.compile(r"\b(for|while|do|switch|try|goto|static|struct|class)\b")
# Setting the arguments of a variadic call apart is no logic.
PLUMBING = re.compile(r"^\s*(va_list \w+;|va_start\(.*\);|va_end\(.*\);|.*va_arg\(.*\);)$")


def problems(lines):
    """Findings in the numbered lines of an interposer."""
    marker = [number for number, text in lines if text.startswith(MARKER)]
    if len(marker) != 1:
        yield 1, f"{len(marker)} markers instead of one"
        return
    opened = 0
    body = []
    start = 0
    for number, text in lines:
        if number < marker[0]:
            if 'extern "C"' in text:
                yield number, "an override above the marker"
            continue
        code = text.split("//")[0].rstrip()
        if code == 'extern "C" {':
            opened = 1
            continue
        if opened == 0:
            if code and not code.startswith("using namespace"):
                yield number, "something that is no override below the marker"
            continue
        before = opened
        opened += code.count("{") - code.count("}")
        if before == 1 and opened == 2:
            start, body = number, []
        elif before >= 2 and opened >= 2 and code and not PLUMBING.match(code):
            body.append(code)
        if before >= 2 and LOGIC.search(code):
            yield number, "logic in an override"
        if before == 2 and opened == 1 and len(body) > LONGEST_BODY:
            yield start, f"an override of {len(body)} lines; {LONGEST_BODY} are the most"


def findings():
    return [f"{common.name(FILE)}:{number}: {text}" for number, text in problems(common.lines(FILE))]


if __name__ == "__main__":
    common.finish(findings(), "Logic goes above the marker, overrides below it.")
