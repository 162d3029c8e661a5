"""A product file includes only from folders at its own height or below."""

import re

import common

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


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


def findings():
    for path in common.product_files():
        folder = path.relative_to(common.ROOT).parts[0]
        for number, text in common.lines(path):
            wrong = problem(folder, text)
            if wrong:
                yield f"{common.name(path)}:{number}: {wrong}"


if __name__ == "__main__":
    common.finish(list(findings()), "The order is " + " > ".join(common.HEIGHTS) + ".")
