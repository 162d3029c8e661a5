"""Scripts that keep their temporary files together: whatever ends them, the folder goes
with them, and so do all processes that they started."""

import os
import pathlib
import pty
import shlex
import signal
import subprocess
import time

import common

USERS = ["check", "tests/sweep/run", "tests/soak/run"]
PATIENCE_S = 30

# Files, a job beside, a job in a process group of its own.
WORK = """
  touch "$TMPDIR/file"
  sleep 1000.5 &
  timeout 1000.5 sleep 1000.5 &
  touch "$TMPDIR/begun"
"""
# A job that is not to be asked, and goes on writing.
STUBBORN = """sh -c 'trap "" TERM; while :; do touch "$TMPDIR/more"; sleep 0.2; done' in_scratch_test &"""


def script(end, begin=""):
    return f". {common.ROOT}/packaging/setup.sh; in_scratch sh -euc {shlex.quote(begin + WORK + end)}"


def processes():
    return common.run("pgrep", "-f", "sleep 1000[.]5|in_scratch[_]test").stdout.split()


def wait_for(folder):
    end = time.monotonic() + PATIENCE_S
    while not list(folder.glob("*/begun")) and time.monotonic() < end:
        time.sleep(0.02)


def ended_by(folder, number):
    """The exit status of a script that is sent a signal in the midst of its work."""
    run = subprocess.Popen(
        ["sh", "-euc", script("sleep 1000.5", STUBBORN if number == signal.SIGTERM else "")],
        env={**os.environ, "TMPDIR": str(folder)},
        stdin=subprocess.DEVNULL,
    )
    wait_for(folder)
    run.send_signal(number)
    return run.wait(PATIENCE_S)


def ended_by_control_c(folder):
    child, terminal = pty.fork()
    if child == 0:
        os.environ["TMPDIR"] = str(folder)
        os.execvp("sh", ["sh", "-euc", script("sleep 1000.5")])
    wait_for(folder)
    os.write(terminal, b"\x03")
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])


def ended_by_a_closed_pipe(folder):
    run = subprocess.Popen(
        ["sh", "-euc", script("while :; do echo more; done")],
        env={**os.environ, "TMPDIR": str(folder)},
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        preexec_fn=lambda: signal.signal(signal.SIGPIPE, signal.SIG_DFL),
    )
    wait_for(folder)
    run.stdout.close()
    return run.wait(PATIENCE_S)


def ended_by_itself(folder, status):
    run = common.run(
        *["sh", "-euc", script(f"exit {status}") + "; echo behind"],
        env={**os.environ, "TMPDIR": str(folder)},
    )
    return run.returncode, run.stdout


def main():
    common.need("pkill", "setsid")
    found = common.Findings()

    def check(name, got, wanted, folder):
        found.check(got == wanted, f"{name}: {got}, not {wanted}")
        found.check(not list(folder.iterdir()), f"{name}: {list(folder.iterdir())}")
        found.check(not processes(), f"{name}: processes {processes()}")

    with common.temporary() as name:
        folder = pathlib.Path(name)
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            check(number.name, ended_by(folder, number), 128 + number, folder)
        check("^C", ended_by_control_c(folder), 128 + signal.SIGINT, folder)
        check("closed pipe", ended_by_a_closed_pipe(folder), 128 + signal.SIGPIPE, folder)
        check("failure", ended_by_itself(folder, 3), (3, ""), folder)
        check("success", ended_by_itself(folder, 0), (0, "behind\n"), folder)
    for user in USERS:
        text = (common.ROOT / user).read_text(encoding="utf-8")
        found.check("\nin_scratch " in text or "\n  in_scratch " in text, f"{user} leaves files")
    found.finish()


if __name__ == "__main__":
    main()
