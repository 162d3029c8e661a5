"""What the tests of the packages share: board directories and running programs."""

import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
BOARD_FILES = ROOT / "packaging" / "board"
SKIPPED = 77


def run(*command, **options):
    """Runs a command and gives back what it did, output and errors in one."""
    return subprocess.run(
        [str(word) for word in command],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
        **options,
    )


def need(*programs):
    """Ends the test as skipped, and says so, where a program is not installed."""
    missing = [program for program in programs if shutil.which(program) is None]
    if missing:
        print(f"not installed: {', '.join(missing)}: nothing checked")
        sys.exit(SKIPPED)


def stripped(program, to):
    """A copy without what only a debugger reads."""
    subprocess.run(["strip", "-o", str(to), str(program)], check=True)


def temporary():
    return tempfile.TemporaryDirectory(prefix="package-test-")


class Findings:
    """Counts what was checked, and prints what was not as it should be."""

    def __init__(self):
        self.checked = 0
        self.failed = 0

    def check(self, good, text):
        self.checked += 1
        if not good:
            self.failed += 1
            print(f"FAIL {text}")

    def finish(self):
        print(f"{self.checked} checked, {self.failed} failed")
        sys.exit(1 if self.failed or not self.checked else 0)
