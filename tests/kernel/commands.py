"""Every bench command that ends: a real kernel against the virtual board."""

import json
import re
import shlex

import compare

OPTIONS = compare.ROOT / "tests" / "contract" / "options.json"
LIST = compare.ROOT / "tests" / "kernel" / "commands.txt"
ENDLESS = {"-5150", "-pll", "-aablk", "-602", "-ac3", "-perf"}
FILES = {
    "board.rbf": bytes(n * 7 % 251 for n in range(3000)),
    "MELK_spi.bin": bytes(n * 13 % 253 for n in range(2000)),
}


def lines():
    text = LIST.read_text()
    return [line for line in text.splitlines() if line and not line.startswith("#")]


def missing_options():
    """Options of the program that end and that no line of the list has."""
    options = {row["text"] for row in json.loads(OPTIONS.read_text())}
    used = {line.split()[0] for line in lines()}
    return {one for one in options - ENDLESS if not any(word.startswith(one) for word in used)}


def job():
    """What the emulated board does: number.out, number.status, and one trace."""
    text = ["mkdir /run/out/commands", "cd /home/tovin"]
    for number, line in enumerate(lines()):
        text.append(f"echo '@@ {number}' >/dev/vboard-trace")
        if line.startswith("world "):
            text.append(f"vboard-kernel world $board {line[6:]} || echo 'not done: {line}'")
            continue
        out = f"/run/out/commands/{number}"
        text.append(f"$under ./vantorig {line} >{out}.out 2>/dev/null; echo $? >{out}.status")
    text += ["echo @@ >/dev/vboard-trace", "cp $board/trace /run/out/commands/trace"]
    return "\n".join(text) + "\n"


def traces(text):
    """The traffic of each line of the list."""
    parts = re.split(r"^@@ (\d+)\n", text, flags=re.MULTILINE)
    return {
        int(number): compare.traffic(part.splitlines())
        for number, part in zip(parts[1::2], parts[2::2])
    }


# Counters that go by the clock.
LIVE = re.compile(r"^(fpga rd 0x(?:0104|0148)) -> .*")
# The place of 0x0104 among the values that -reg prints.
LIVE_VALUE = re.compile(r"^((?:0x\w+\t){65})0x\w+")


def steady(line):
    return LIVE_VALUE.sub(r"\1live", LIVE.sub(r"\1 live", line))


def check(outcome, directory, findings):
    """Does the same on the virtual board and compares."""
    board = compare.VirtualBoard(directory, FILES)
    seen_traces = traces(outcome.text("commands/trace"))
    compared = 0
    for number, line in enumerate(lines()):
        if line.startswith("world "):
            board.vboard(*line.split()[1:])
            continue
        out, status, trace = board.run(shlex.split(line))
        seen = outcome.text(f"commands/{number}.out")
        findings.same(
            list(map(steady, out.splitlines())),
            list(map(steady, seen.splitlines())),
            f"{line}: output",
        )
        findings.same([str(status)], outcome.text(f"commands/{number}.status").split(), f"{line}: status")
        findings.same(
            list(map(steady, trace)),
            list(map(steady, seen_traces.get(number, []))),
            f"{line}: device traffic",
        )
        compared += 1
    return compared
