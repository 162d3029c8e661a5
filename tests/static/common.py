"""What the static checks share: the files of the tree, and the report of findings."""

import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Highest first: a file includes from its own folder and the ones after it.
HEIGHTS = ["app", "supervision", "hostlink", "diag", "config", "audio", "video", "hw", "state"]
TOOLS = ["vboard", "melk", "tests"]
OTHERS = ["docs", "packaging", "cmake"]

BINARY = {".png", ".gif", ".gz", ".bin", ".pdf", ".pyc"}


def files(folders, suffixes=None):
    """Every file under the folders, sorted, with its path from the root."""
    found = []
    for folder in folders:
        for path in sorted((ROOT / folder).rglob("*")):
            if "__pycache__" in path.parts or not path.is_file() or path.suffix in BINARY:
                continue
            if suffixes is None or path.suffix in suffixes:
                found.append(path)
    return found


def product_files():
    return files(HEIGHTS, {".cpp", ".h"})


def source_files():
    return files(HEIGHTS + TOOLS, {".cpp", ".h"})


def root_files():
    return [path for path in sorted(ROOT.iterdir()) if path.is_file()]


def name(path):
    return str(path.relative_to(ROOT))


def lines(path):
    """(number, text) of every line; a file that is no text has none."""
    try:
        return list(enumerate(path.read_text(encoding="utf-8").split("\n"), 1))
    except UnicodeDecodeError:
        return []


def finish(findings, remedy):
    """Ends the check: silent success, or the findings and what to do about them."""
    for finding in findings:
        print(finding)
    if findings:
        print(f"{len(findings)} found. {remedy}")
    sys.exit(1 if findings else 0)
