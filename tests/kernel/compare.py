"""The same things on the virtual board and on a real kernel, and what differs."""

import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build"

# What both boards see of a program; the rest is the business of one of them.
TRAFFIC = re.compile(r"^(fpga|i2c (?!bind)|video0|spi|pll|violation)")


def traffic(lines):
    return [line for line in lines if TRAFFIC.match(line)]


class VirtualBoard:
    """The native program on a virtual board, in virtual time."""

    def __init__(self, directory, files):
        self.directory = pathlib.Path(directory)
        self.vboard("faults", "clear")
        for name, data in files.items():
            (self.directory / "home" / name).write_bytes(data)

    def vboard(self, *words):
        return subprocess.run(
            [BUILD / "vboard", "--board", self.directory, *words],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            check=False,
        )

    def run(self, arguments, *options):
        """Output, exit status and traffic of one run of the program."""
        trace = self.directory / "trace"
        trace.unlink(missing_ok=True)
        run = ["run", "--virtual", "--trace", trace, *options, "--"]
        done = self.vboard(*run, BUILD / "vantorig", *arguments)
        clean = self.vboard("clean", trace).stdout.decode() if trace.exists() else ""
        return done.stdout.decode(errors="replace"), done.returncode, traffic(clean.splitlines())


def difference(expected, seen):
    """Where two lists of lines part, for a person."""
    seen = seen or []
    at = next((i for i, (one, two) in enumerate(zip(expected, seen)) if one != two), None)
    at = min(len(expected), len(seen)) if at is None else at

    def around(lines):
        return "".join(f"      {line}\n" for line in lines[at : at + 3]) or "      (end)\n"

    return (
        f"  from line {at + 1}; the virtual board has {len(expected)} lines:\n{around(expected)}"
        f"    the real kernel has {len(seen)}:\n{around(seen)}"
    )
