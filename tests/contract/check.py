"""The tables of the programs are those that were agreed on, row by row.

Each file of this folder is the second copy of one list, written by hand: what it
says is what the boards, hosts and files in the field rely on.

    check.py TABLES LIST
"""

import json
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
SLOTS = ["encoder", "video_input", "audio_input", "fpga"]


def contract(name):
    return json.loads((HERE / f"{name}.json").read_text(encoding="utf-8"))


def differ(what, agreed, program):
    """What is wrong with a list in which the order counts."""
    for place, (one, other) in enumerate(zip(agreed, program), 1):
        if one != other:
            yield f"{what}, row {place}: agreed is {one}, the program has {other}"
            return
    if len(agreed) != len(program):
        longer = max(agreed, program, key=len)
        where = "the contract" if longer is agreed else "the program"
        yield f"{what}: only {where} has {longer[min(len(agreed), len(program))]}"


def options(programs):
    parts = ["text", "look", "act", "skip"]
    yield from differ("options", [[row.get(part, 0) for part in parts] for row in contract("options")],
                      [[row[part] for part in parts] for row in programs["options"]])


def keys(programs):
    yield from differ("keys", [[row["key"], "%d"] + [row.get(slot, "") for slot in SLOTS] for row in contract("keys")],
                      [[row["key"], row["format"]] + [row[slot] for slot in SLOTS] for row in programs["keys"]])


def host_commands(programs):
    agreed = contract("host_commands")
    yield from differ("host commands", [[row["code"], row["name"]] for row in agreed],
                      [[row["code"], row["name"]] for row in programs["host_commands"]])
    for row in programs["host_commands"]:
        if not row["follows"] or row["handler"] in ("", "?"):
            yield f"host commands: {row['name']} does not say what follows, or has no handler"
    yield from differ("host commands of melk", [[row["code"], row["name"], row["word"]] for row in agreed],
                      [[row["code"], row["name"], row["word"]] for row in programs["melk_commands"]])
    words = [row["word"] for row in programs["melk_words"]]
    for row in agreed:
        if row["word"] not in words:
            yield f"words of melk: no {row['word']} for {row['name']}"
    if len(words) != len(set(words)):
        yield "words of melk: one stands twice"


def registers(programs):
    yield from differ("registers", [[int(row["address"], 16), row["access"]] for row in contract("registers")],
                      [[row["address"], row["access"]] for row in programs["registers"]])


def shared_block(programs):
    """A word of a key is agreed on with its key."""
    agreed = [[row["name"], row["offset"], row["size"], row["width"]] for row in contract("shared_block")]
    agreed += [[row["key"], row["field"], 4, 4] for row in contract("keys") if "field" in row]
    yield from differ("shared block", sorted(agreed, key=lambda row: row[1]),
                      [[row["name"], row["offset"], row["size"], row["width"]] for row in programs["shared_block"]])


def restart_causes(programs):
    agreed = contract("restart_causes")
    yield from differ("restart causes", [[int(row["code"], 16), row["message"]] for row in agreed],
                      [[row["code"], row["message"]] for row in programs["restart_causes"]])
    yield from differ("restart causes of melk", sorted({int(row["code"], 16) for row in agreed}),
                      [row["code"] for row in programs["melk_causes"]])


LISTS = {one.__name__: one for one in (options, keys, host_commands, registers, shared_block, restart_causes)}


def main():
    programs = json.loads(subprocess.run([sys.argv[1]], capture_output=True, text=True, check=True).stdout)
    wrong = list(LISTS[sys.argv[2]](programs))
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
