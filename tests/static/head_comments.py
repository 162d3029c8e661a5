"""Every source file opens with a paragraph that says what it is for."""

import common

SUFFIXES = {".cpp": "//", ".h": "//", ".py": '"""', ".cmake": "#", ".sh": "#"}
SHORTEST = 12  # characters


def has_head(marker, text):
    """True when the text opens with a comment that says something."""
    rows = text.split("\n")
    while rows and (rows[0].startswith("#!") or rows[0].startswith("cmake_minimum_required")):
        rows.pop(0)
    if not rows or not rows[0].startswith(marker):
        return False
    return len(rows[0].strip('/#" ')) >= SHORTEST


def findings():
    paths = common.files(common.HEIGHTS + common.TOOLS + ["cmake"], set(SUFFIXES))
    for path in paths:
        if not has_head(SUFFIXES[path.suffix], path.read_text(encoding="utf-8")):
            yield f"{common.name(path)}:1: no opening comment"
    makes = [path for path in common.files(common.HEIGHTS + common.TOOLS + ["cmake"]) if path.name == "CMakeLists.txt"]
    for path in makes + [common.ROOT / "CMakeLists.txt"]:
        if not has_head("#", path.read_text(encoding="utf-8")):
            yield f"{common.name(path)}:1: no opening comment"


if __name__ == "__main__":
    common.finish(list(findings()), "Open the file with a short paragraph: what it owns, or does.")
