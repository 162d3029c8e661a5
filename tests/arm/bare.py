"""The board's program as it ships, on a machine without a board.

usage: bare.py PROGRAM BOARD_PROGRAM [EMULATOR...]

Runs both in a sandbox without devices, with the same arguments: they have to say
the same and end the same way. What the first must say is looked at here and there.
"""

import pathlib
import subprocess
import sys

HELP = pathlib.Path(__file__).resolve().parents[1] / "command/help.txt"
SANDBOX = "bwrap --ro-bind / / --dev /dev --proc /proc --tmpfs /home --dir /home/tovin --chdir /home/tovin --unshare-ipc --unshare-pid --".split()
LIMIT_S = 60

# Arguments, and what has to be in the output.
NO_FPGA = "Cannot access SPI port (/dev/fpga)"
CASES = {
    "-help": "help for command line to vantorig",
    "": "",
    "-rdreg 0x20": NO_FPGA + "\naddr 0x20: 0x0",
    "-wrreg 0x102 0x55": NO_FPGA,
    "-f=missing.rbf": NO_FPGA,
    "-gpio 28": "Start prog_gpio,input_data = 28\n" + NO_FPGA + " - 1",
    "-ipiperw 1 0x10": "",
    "-isifrw 0 0x10 0x20": "",
    "-5150rw 1 0x10": "",
    "-i2c 0x38 0 0 5": "",
    "-4192": "",
    "-reg": "",
    "-ts": "",
    "-perf": NO_FPGA,
    "-no-such-option": "",
}


def run(command, arguments):
    """Status and output of a program in the sandbox."""
    done = subprocess.run(
        SANDBOX + command + arguments.split(),
        capture_output=True,
        timeout=LIMIT_S,
        check=False,
        stdin=subprocess.DEVNULL,
    )
    return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")


def problems(arguments, ours, theirs):
    """What is wrong with the run of the board's program."""
    if theirs != ours:
        yield f"'{arguments}': {theirs}, but {ours} on this machine"
    if CASES[arguments] not in theirs[1]:
        yield f"'{arguments}': {theirs[1]!r} does not hold {CASES[arguments]!r}"


def main():
    program, board_program = (str(pathlib.Path(one).resolve()) for one in sys.argv[1:3])
    emulated = sys.argv[3:] + [board_program]
    found = []
    for arguments in CASES:
        found += problems(arguments, run([program], arguments), run(emulated, arguments))
    if run(emulated, "-help")[1] != HELP.read_text(encoding="utf-8"):
        found.append("-help: not the text of tests/command/help.txt")
    for one in found:
        print(one)
    print(f"static program without a board: {len(CASES)} commands, {len(found)} differences")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
