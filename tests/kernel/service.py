"""The service, started by the board's start script on a real kernel, with a host."""

import hashlib
import pathlib
import re
import subprocess

import compare

CONFIGURATION = compare.ROOT / "packaging" / "examples" / "digital-audio.ini"
START_SCRIPT = compare.ROOT / "packaging" / "board" / "S90vantorig"
UPDATE_SCRIPT = compare.ROOT / "packaging" / "board" / "update.sh"
OLD_VERSION = b"1.12.3\n"
NEW_VERSION = b"1.12.4\n"

# The same script for both boards: a configuration, the plug out and back, a crash
# of encode. The times leave each state room to settle.
SCRIPT = """\
after 3s melk status
after 1s melk send-config /home/tovin/digital-audio.ini
after 40s melk status
after 1s melk monitor-state
after 1s world source none
after 8s melk status
after 1s world source component
after 60s melk status
after 1s melk clear-status
after 1s world encode crash
after 60s melk status
after 1s melk input-mux
after 1s end
"""
# What it must lead to: status and cause at each "melk status".
STATUSES = ["0x90 0x80", "0x91 0x80", "0x90 0x80", "0x91 0x85", "0x91 0x87"]

# The board only: killed by anything, the service is started again; an update is
# what runs after a restart. Each time it takes a configuration and is healthy.
LIFE = """\
S90=/etc/init.d/S90vantorig
host() { vboard-kernel melk $board "$@" 2>&1; }
configure() {
  host send-config /home/tovin/digital-audio.ini
  sleep 40
  host status
}
mkdir /run/out/service
fresh_board
$under $S90 start
vboard-kernel script $board /job/script >/run/out/service/host
cp log1.txt /run/out/service/log1
{
  killall -9 vantorig
  sleep 8
  configure
} >/run/out/service/respawn
{
  host registers >/dev/null
  host sw-version
  host update --via-fpga --wait /job/update.tar.gz
  $under $S90 restart
  sleep 3
  configure
  host registers >/dev/null
  host sw-version
  $S90 stop
  $S90 status
} >/run/out/service/update
cat log1.txt log2.txt >/run/out/service/last
md5sum vantorig vantorig.previous >/run/out/service/programs
"""


def old_program():
    return (compare.ROOT / "build-arm" / "vantorig").read_bytes()


# The same program; what stands after its end does nothing.
def new_program():
    return old_program() + b"new"


def files(work):
    """What the job needs, beside the program."""
    new = pathlib.Path(work) / "new"
    new.mkdir()
    (new / "vantorig").write_bytes(new_program())
    (new / "version.ini").write_bytes(NEW_VERSION)
    package = pathlib.Path(work) / "update.tar.gz"
    subprocess.run([compare.BUILD / "melk", "make-update", new, "-o", package], check=True, stdout=subprocess.DEVNULL)
    return [
        ("job/script", SCRIPT.encode(), False),
        ("job/update.tar.gz", package, False),
        ("home/tovin/digital-audio.ini", CONFIGURATION, False),
        ("home/tovin/version.ini", OLD_VERSION, False),
        ("home/tovin/update.sh", UPDATE_SCRIPT, True),
        ("etc/init.d/S90vantorig", START_SCRIPT, True),
    ]


def without_times(text):
    """What was said, without when and how long it took."""
    text = re.sub(r"^\[\d+\.\d+\] ", "", text, flags=re.MULTILINE)
    return re.sub(r" in \d+\.\d+ s;", ";", text).splitlines()


# A line of ls and a date are the machine's; the program shows what it read of them.
MACHINE = re.compile(r"^read '(-rw|[A-Z][a-z]{2} ).*' OK$")
# Counters, and the levels of buffers that fill or drain, go by the clock.
COUNTER = re.compile(r"^(\w+_OVERALL|\w+_BUFF|--> EB BUFF)\b.*")
# What killall says goes into the log there, and to the console here; how many cycles
# look at a draining buffer depends on when between two of them it began.
LEFT_OUT = re.compile(r"^killall: encode: no process killed$|^video_buf is not o\.k\., cnt=")


def log_lines(text):
    lines = [line for line in text.splitlines() if not LEFT_OUT.match(line)]
    return [COUNTER.sub(r"\1", MACHINE.sub("read", line)) for line in lines]


def statuses(text):
    return [
        f"{status} {cause}"
        for status, cause in re.findall(r"status (0x\w\w).*\ncause  (0x\w\w)", text)
    ]


def check_script(outcome, directory, findings):
    """The same host and world on both boards."""
    name = CONFIGURATION.name
    files = {name: CONFIGURATION.read_bytes(), "version.ini": OLD_VERSION}
    board = compare.VirtualBoard(directory, files)
    script = pathlib.Path(directory) / "script"
    script.write_text(SCRIPT)
    log = pathlib.Path(directory) / "host"
    out, status, _ = board.run(["-602"], "--script", script, "--host-log", log)
    findings.check(status == 0, f"the service on the virtual board ended with {status}")
    seen = outcome.text("service/host")
    findings.same(STATUSES, statuses(seen), "the service: states")
    findings.same(without_times(log.read_text()), without_times(seen), "the service: host")
    findings.same(log_lines(out), log_lines(outcome.text("service/log1")), "the service: log")


def check(outcome, directory, findings):
    check_script(outcome, directory, findings)
    respawn = outcome.text("service/respawn")
    findings.same(["0x91 0x80"], statuses(respawn), "the service, killed: state")
    update = outcome.text("service/update")
    findings.same(["0x91 0x80"], statuses(update), "the service, updated: state")
    versions = re.findall(r"^\d+\.\d+\.\d+$", update, re.MULTILINE)
    expected = [version.decode().strip() for version in (OLD_VERSION, NEW_VERSION)]
    findings.same(expected, versions, "the update: versions before and after")
    findings.check("; the update succeeded" in update, f"the update: result\n{update}")
    findings.check(update.endswith("does not run\n"), f"the service: stop\n{update}")
    programs = [line.split() for line in outcome.text("service/programs").splitlines()]
    sums = [hashlib.md5(data).hexdigest() for data in (new_program(), old_program())]
    findings.same(sums, [words[0] for words in programs], "the update: programs on the board")
