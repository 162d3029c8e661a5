"""The shipped program on a real kernel: `run` builds what this needs and calls it."""

import re
import sys
import tempfile

import board
import commands
import compare
import failing
import machine
import service


# How the kernel goes on with a call that a signal interrupted.
RESTARTED = 0
SYSTEM_CALLS = compare.ROOT / "packaging" / "syscalls.txt"


class Findings:
    """Counts what was compared, and prints what is not as it should be."""

    def __init__(self):
        self.checked = 0
        self.failed = 0

    def check(self, good, text):
        self.checked += 1
        if not good:
            self.failed += 1
            print(f"FAIL {text}")

    def same(self, expected, seen, text):
        self.checked += 1
        if seen != expected:
            self.failed += 1
            print(f"FAIL {text}\n{compare.difference(expected, seen)}")


def program_files():
    files = [("home/tovin/vantorig", compare.ROOT / "build-arm" / "vantorig", True)]
    return files + [(f"home/tovin/{name}", data, False) for name, data in commands.FILES.items()]


# Watched from the first command to the last: system calls by number, unaligned
# accesses, violations. A misaligned word ends the program.
WATCH = """\
echo 4 >/proc/cpu/alignment
mount -t tracefs none /sys/kernel/tracing
calls=/sys/kernel/tracing/events/raw_syscalls/sys_enter
[ -e $calls/trigger ] && echo 'hist:keys=id:size=512 if COMM == "vantorig"' >$calls/trigger
"""
TELL = """\
[ -e $calls/trigger ] && cat $calls/hist >/run/out/calls
cat /proc/cpu/alignment >/run/out/alignment
vboard-kernel show $board >/run/out/violations
cat /run/devices.log >>/run/out/violations
"""


def check_calls(outcome, findings):
    if "calls" not in outcome.files:
        return "system calls not counted"
    listed = {int(line.split()[0]) for line in SYSTEM_CALLS.read_text().splitlines() if line[0] != "#"}
    used = {int(number) for number in re.findall(r"id: +(\d+)", outcome.text("calls"))}
    findings.check(len(used) > 20, f"system calls were not counted:\n{outcome.text('calls')}")
    for number in sorted(used - listed - {RESTARTED}):
        findings.check(False, f"system call {number} is not in {SYSTEM_CALLS.name}")
    return f"{len(used - {RESTARTED})} system calls, all listed"


def whole(kind, before="", **options):
    findings = Findings()
    for option in sorted(commands.missing_options()):
        findings.check(False, f"{option} is missing in {commands.LIST.name}")
    with tempfile.TemporaryDirectory() as work:
        files = program_files() + service.files(work)
        job = before + WATCH + commands.job() + service.LIFE + TELL
        outcome = machine.boot(kind, job, files, **options)
        if "violations" not in outcome.files:
            raise SystemExit(f"the board did not come to its end:\n{outcome.console}")
        count = commands.check(outcome, f"{work}/commands", findings)
        service.check(outcome, f"{work}/service", findings)
    calls = check_calls(outcome, findings)
    unaligned = re.findall(r"^User:\s+(\d+)", outcome.text("alignment"), re.MULTILINE)
    findings.same(["0"], unaligned, "unaligned accesses of programs")
    findings.same(["violations 0"], [outcome.text("violations").strip()], "violations")
    print(
        f"{kind.name}: {count} commands and the service as on the virtual board; "
        f"{calls}; {findings.checked} checked, {findings.failed} failed"
    )
    return findings.failed == 0


FORMS = {
    "debian": lambda: whole(machine.machine("debian")),
    "arm926": lambda: whole(machine.machine("arm926")),
    "chips": lambda: board.chips(machine.machine("arm926")),
    "failing": lambda: failing.run(machine.machine("arm926")),
}


def main():
    form = sys.argv[1] if len(sys.argv) > 1 else "debian"
    if form not in FORMS:
        raise SystemExit(f"usage: tests/kernel/run {'|'.join(FORMS)}")
    sys.exit(0 if FORMS[form]() else 1)


if __name__ == "__main__":
    try:
        main()
    except machine.Missing as reason:
        print(f"Skipped: {reason}")
        sys.exit(machine.CANNOT)
