"""Words that have no place in the tree: it speaks for itself, and is finished."""

import re

import common

# Put together here, so that this file does not hold them.
WORDS = [
    r"\bsp" + r"ec\b",
    "specif" + "ication",
    r"\bpart" + r" [0-9]",
    "as speci" + "fied",
    r"\bTO" + r"DO\b",
    r"\bFIX" + r"ME\b",
]
PATTERN = re.compile("|".join(WORDS), re.IGNORECASE)


def unwanted(text):
    match = PATTERN.search(text)
    return match.group(0) if match else None


def findings():
    everything = common.files(common.HEIGHTS + common.TOOLS + common.OTHERS) + common.root_files()
    for path in everything:
        for number, text in common.lines(path):
            word = unwanted(text)
            if word:
                yield f"{common.name(path)}:{number}: '{word}'"


if __name__ == "__main__":
    common.finish(list(findings()), "Say what the thing does instead.")
