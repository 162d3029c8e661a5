"""The system calls that the static program can issue, and what old kernels make of them.

usage: syscalls.py PROGRAM.unstripped [--without-newer COPY]

Reads the disassembly: the number that register r7 holds at each supervisor call,
and the number handed to musl's common entry for cancellation points. Every one
must stand in syscalls.txt; one that is newer than the oldest kernel needs a
fallback there, a call that the program can issue as well. Prints the list. Writes,
if asked to, a copy of the program to which every kernel is an old one: the newer
calls go by numbers that none knows.
"""

import pathlib
import re
import struct
import subprocess
import sys

TABLE = pathlib.Path(__file__).with_name("syscalls.txt")
OLDEST = (2, 6, 32)
FIRST_ADDRESS = 0x10000  # of the file's first byte
UNKNOWN = 4000
COMMON_ENTRY = "__syscall_cp"
# Take their number from their caller; the callers are looked at instead.
PASSING_ON = {"__syscall_cp", "__syscall_cp_c"}

FUNCTION = re.compile(r"^[0-9a-f]+ <(\S+)>:$")
LINE = re.compile(r"^ *([0-9a-f]+):\t([0-9a-f]{8}) \t(\S+)\t?(.*)$")
CONDITIONS = "eq ne cs cc mi pl vs vc hi ls ge lt gt le".split()
OPPOSITE = {one: CONDITIONS[at ^ 1] for at, one in enumerate(CONDITIONS)}
OPERATION = re.compile(rf"^(mov|mvn|ldr|svc|blx|bl|bx|b|pop)s?({'|'.join(CONDITIONS)})?$")
CONSTANT = re.compile(r"^\w+, #(\d+)")
COPY = re.compile(r"^\w+, (\w+)$")
LITERAL = re.compile(r"^\w+, \[pc, #-?\d+\]\s*@ ([0-9a-f]+)")
TARGET = re.compile(r"^([0-9a-f]+) <([^>+]+)")
NO_RESULT = ("cmp", "cmn", "tst", "teq", "str", "stm", "push", "b")


class Instruction:
    """One line of the disassembly."""

    def __init__(self, address, word, operation, operands):
        self.address, self.word, self.operands = address, word, operands
        match = OPERATION.match(operation)
        self.kind, self.condition = (match.group(1), match.group(2)) if match else (operation, None)
        self.before = []  # the instructions that control can come from

    def target(self):
        match = TARGET.match(self.operands)
        return int(match.group(1), 16) if match else None

    def goes_on(self):
        leaves = self.kind in ("b", "bx") or (self.kind == "pop" and "pc" in self.operands)
        return self.condition is not None or not (leaves or self.operands.startswith("pc,"))

    def sets(self, register):
        if self.kind in ("bl", "blx"):
            return register in ("r0", "r1", "r2", "r3")
        if self.kind == "pop":  # one that takes pc returns: nothing behind it sees the rest
            return register in self.operands and "pc" not in self.operands
        return not self.kind.startswith(NO_RESULT) and re.match(rf"{register}\b", self.operands) is not None


def functions(text):
    """name -> its instructions, each knowing those before it."""
    found = {}
    body = None
    for row in text.splitlines():
        head = FUNCTION.match(row)
        if head:
            body = found.setdefault(head.group(1), [])
        line = LINE.match(row)
        if line and body is not None:
            body.append(Instruction(int(line.group(1), 16), int(line.group(2), 16), *line.group(3, 4)))
    for body in found.values():
        places = {one.address: one for one in body}
        for one, following in zip(body, body[1:] + [None]):
            if following is not None and one.goes_on():
                following.before.append(one)
            if one.kind == "b" and one.target() in places:
                places[one.target()].before.append(one)
    return found


def constant(one, words):
    """The number that an instruction sets its register to; None if it is another value."""
    direct, literal = CONSTANT.match(one.operands), LITERAL.match(one.operands)
    if one.kind == "mov" and direct:
        return int(direct.group(1))
    if one.kind == "ldr" and literal:
        return words.get(int(literal.group(1), 16))
    return None


def numbers_at(start, register, words):
    """The constants that a register can hold before an instruction; None if unknown."""
    found, seen = set(), set()
    waiting = [(one, register, None) for one in start.before] or [None]
    while waiting:
        if waiting[-1] is None:
            return None  # the function's entry: the value came from outside
        one, wanted, unless = state = waiting.pop()
        if state in seen:
            continue
        seen.add(state)
        if one.sets(wanted):
            copy = COPY.match(one.operands)
            value = constant(one, words)
            if value is not None:
                found.add(value)
            elif one.kind == "mov" and copy:
                wanted = copy.group(1)
            else:
                return None
            # Set under a condition and under its opposite: set on every way.
            if value is not None and (one.condition is None or one.condition == OPPOSITE.get(unless)):
                continue
            unless = one.condition
        waiting += [(previous, wanted, unless) for previous in one.before] or [None]
    return found


def issued(text):
    """number -> names of functions that issue it; and places that could not be read."""
    calls, unread = {}, []
    every = functions(text)
    words = {one.address: one.word for body in every.values() for one in body}
    for name, body in every.items():
        if name in PASSING_ON:
            continue
        for one in body:
            called = TARGET.match(one.operands)
            if one.kind == "svc":
                register = "r7"
            elif one.kind in ("b", "bl") and called and called.group(2) == COMMON_ENTRY:
                register = "r0"
            else:
                continue
            numbers = numbers_at(one, register, words)
            if not numbers:
                unread.append(f"{name} at {one.address:x}")
            for number in numbers or ():
                calls.setdefault(number, set()).add(name)
    return calls, unread


def read_table(text):
    """number -> (name, version, fallback or None, remark)."""
    table = {}
    for row in text.splitlines():
        words = row.split("#")[0].split()
        if not words:
            continue
        number, name, version, *rest = words
        fallback = rest[0] if rest else None
        table[int(number)] = (name, tuple(int(part) for part in version.split(".")), fallback)
    return table


def problems(calls, unread, table):
    """What is wrong with the calls of a program."""
    by_name = {name: number for number, (name, _, _) in table.items()}
    for place in unread:
        yield f"{place}: the number of the system call could not be read"
    for number in sorted(calls):
        if number not in table:
            yield f"system call {number} ({', '.join(sorted(calls[number]))}): not in {TABLE.name}"
            continue
        name, version, fallback = table[number]
        if version > OLDEST and fallback is None:
            yield f"{name}: since {'.'.join(map(str, version))}, and nothing to fall back on"
        elif version > OLDEST and fallback != "none-needed" and by_name.get(fallback) not in calls:
            yield f"{name}: falls back on {fallback}, which the program cannot issue"


def without_newer(program, text, table):
    """The program's bytes with unknown numbers in place of the newer calls'."""
    every = [one for body in functions(text).values() for one in body]
    words = {one.address: one.word for one in every}
    newer = {number for number, (_, version, _) in table.items() if version > OLDEST}
    content = bytearray(program)
    for one in every:
        literal = LITERAL.match(one.operands)
        if one.kind == "ldr" and literal and words.get(int(literal.group(1), 16)) in newer:
            place = int(literal.group(1), 16)
            struct.pack_into("<I", content, place - FIRST_ADDRESS, UNKNOWN + words[place])
    return bytes(content)


def main():
    program = pathlib.Path(sys.argv[1])
    command = ["arm-linux-gnueabi-objdump", "-d", "-z", str(program)]
    run = subprocess.run(command, check=True, capture_output=True, text=True)
    calls, unread = issued(run.stdout)
    table = read_table(TABLE.read_text(encoding="utf-8"))
    if sys.argv[2:3] == ["--without-newer"]:
        copy = pathlib.Path(sys.argv[3])
        copy.write_bytes(without_newer(program.read_bytes(), run.stdout, table))
        copy.chmod(0o755)
    newer = []
    for number in sorted(calls):
        name, version, fallback = table.get(number, ("?", (0,), None))
        if version > OLDEST:
            newer.append(f"{name} (since {'.'.join(map(str, version))}) -> {fallback}")
    names = [table.get(number, (str(number),))[0] for number in sorted(calls)]
    print(f"{len(names)} system calls: {' '.join(sorted(names))}")
    print(f"newer than {'.'.join(map(str, OLDEST))}, with what stands in: {'; '.join(newer) or 'none'}")
    found = list(problems(calls, unread, table))
    for one in found:
        print(one)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
