"""A file includes only from folders at its own height or below."""

import re

import common

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')

# What a folder of the tools includes besides its own files. A client does not know
# the board behind its link; its program picks the transport.
MACHINE = ["hw/"]  # of the product: register map and shared block
BOARD = ["vboard/core/", "vboard/models/", *MACHINE]
TOOL_HEIGHTS = {
    "melk/main.cpp": ["melk/", "vboard/host/board_transport.h"],
    "melk": [],
    "vboard/core": MACHINE,
    "vboard/models": BOARD,
    "vboard/world": BOARD,
    "vboard/encode": BOARD,
    "vboard/interpose": BOARD,
    "vboard/kernel": [*BOARD, "vboard/world/", "vboard/host/", "melk/"],
    "vboard/testing": [*BOARD, "vboard/world/", "vboard/interpose/", "state/"],
    "vboard/host": [*BOARD, "vboard/world/", "melk/"],
    "vboard/cli": [*BOARD, "vboard/world/", "vboard/host/", "melk/"],
    "vboard/remote": [],
}
GENERATED = ["update_script.h"]


def problem(folder, text):
    """What is wrong with an include line of a file in the folder; None if nothing."""
    match = INCLUDE.match(text)
    if match is None:
        return None
    target = match.group(1)
    from_folder = target.split("/")[0]
    if "/" not in target or from_folder not in common.HEIGHTS:
        return f'"{target}" is not of the product, or not named from the root'
    if common.HEIGHTS.index(from_folder) < common.HEIGHTS.index(folder):
        return f'"{target}" lies above {folder}/'
    return None


def tool_problem(place, text):
    """The same for a file of the tools, by its path from the root."""
    match = INCLUDE.match(text)
    if match is None or match.group(1) in GENERATED:
        return None
    known = max((one for one in TOOL_HEIGHTS if place.startswith(one)), key=len, default=None)
    if known is None:
        return "its folder has no height in include_heights.py"
    if match.group(1).startswith((known + "/", *TOOL_HEIGHTS[known])):
        return None
    return f'"{match.group(1)}" does not lie below {known}'


def findings():
    for path in common.product_files():
        folder = path.relative_to(common.ROOT).parts[0]
        for number, text in common.lines(path):
            wrong = problem(folder, text)
            if wrong:
                yield f"{common.name(path)}:{number}: {wrong}"
    for path in common.files(["vboard", "melk"], {".cpp", ".h"}):
        for number, text in common.lines(path):
            wrong = tool_problem(common.name(path), text)
            if wrong:
                yield f"{common.name(path)}:{number}: {wrong}"


if __name__ == "__main__":
    common.finish(list(findings()), "The order is " + " > ".join(common.HEIGHTS) + ".")
