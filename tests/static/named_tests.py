"""The tests that a page names are there, with the cases it names."""

import re

import common

PAGES = ["docs/bad-input.md"]
NAMED = re.compile(r"`([A-Z]\w+)\.(\w+)`(?: \(([\w.]+)\))?")
DEFINED = re.compile(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", re.MULTILINE)
FUZZED = re.compile(r"^(\w+)_corpus$")


def named(text):
    """(suite, test, case) of every test that a text names; no case is ''."""
    return NAMED.findall(text)


def problem(suite, test, case, defined, sources):
    """What is wrong with one name; None if nothing."""
    if suite == "Fuzz":
        stored = common.ROOT / "tests/fuzz/corpus" / FUZZED.sub(r"\1", test)
        missing = not stored.is_dir() or (case and not (stored / case).is_file())
        return f"no stored input {test} {case}" if missing else None
    if (suite, test) not in defined:
        return f"no test {suite}.{test}"
    return f"no case {case}" if case and f'"{case}"' not in sources else None


def findings():
    sources = "".join(path.read_text(encoding="utf-8") for path in common.files(["tests"], {".cpp"}))
    defined = set(DEFINED.findall(sources))
    for page in PAGES:
        for suite, test, case in named((common.ROOT / page).read_text(encoding="utf-8")):
            wrong = problem(suite, test, case, defined, sources)
            if wrong:
                yield f"{page}: {wrong}"


if __name__ == "__main__":
    common.finish(list(findings()), "Name the test that shows it now.")
