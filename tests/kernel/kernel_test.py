"""The shipped program on a real kernel: `run` builds what this needs and calls it."""

import re
import sys
import tempfile

import compare
import commands
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
echo 'hist:keys=id:size=512 if COMM == "vantorig"' >$calls/trigger
"""
TELL = """\
cat $calls/hist >/run/out/calls
cat /proc/cpu/alignment >/run/out/alignment
vboard-kernel show $board >/run/out/violations
cat /run/devices.log >>/run/out/violations
"""


def check_calls(outcome, findings):
    listed = {int(line.split()[0]) for line in SYSTEM_CALLS.read_text().splitlines() if line[0] != "#"}
    used = {int(number) for number in re.findall(r"id: +(\d+)", outcome.text("calls"))}
    findings.check(len(used) > 20, f"system calls were not counted:\n{outcome.text('calls')}")
    for number in sorted(used - listed - {RESTARTED}):
        findings.check(False, f"system call {number} is not in {SYSTEM_CALLS.name}")
    return len(used - {RESTARTED})


def whole(kind):
    findings = Findings()
    for option in sorted(commands.missing_options()):
        findings.check(False, f"{option} is missing in {commands.LIST.name}")
    with tempfile.TemporaryDirectory() as work:
        files = program_files() + service.files(work)
        job = WATCH + commands.job() + service.LIFE + TELL
        outcome = machine.boot(kind, job, files)
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
        f"{calls} system calls, all listed; {findings.checked} checked, {findings.failed} failed"
    )
    return findings.failed == 0


def main():
    words = sys.argv[1:]
    kind = machine.machine(words[0] if words else "debian")
    sys.exit(0 if whole(kind) else 1)


if __name__ == "__main__":
    try:
        main()
    except machine.Missing as reason:
        print(f"Skipped: {reason}")
        sys.exit(machine.CANNOT)
