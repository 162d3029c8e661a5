"""The start script of the board, with the program itself on a virtual board."""

import pathlib
import sys

import common

SCRIPT = common.BOARD_FILES / "S90vantorig"
TESTS = common.ROOT / "tests" / "package"
# Console and log of a service that prints nothing, until it is there.
BRIEF_DAY = """cd /home/tovin
busybox sh "$0" start
until pidof sleep; do usleep 50000; done
cat log1.txt
"""


class Board:
    """A virtual board with the program in its home, and the shell of BusyBox on it."""

    def __init__(self, build, directory):
        self.build = build
        self.directory = directory
        self.home = directory / "home"
        common.run(build / "vboard", "--board", directory, "source", "none")
        common.stripped(build / "vantorig", self.home / "vantorig")

    def shell(self, script, *words):
        run = [self.build / "vboard", "--board", self.directory, "run", "--speed", "5", "--"]
        return common.run(*run, "busybox", "sh", TESTS / script, SCRIPT, *words)


def check_day(found, build, place):
    board = Board(build, place / "day")
    (board.home / "log1.txt").write_text("of yesterday\n", encoding="utf-8")
    # A log that is soon full, and no pause before the next start.
    (board.home / "vantorig.conf").write_text(
        "words=nomon\nrespawn_s=0\nlog_bytes=2000\n", encoding="utf-8"
    )
    configuration = common.ROOT / "packaging" / "hd.ini"
    day = board.shell("start_script.sh", build / "melk", board.directory, configuration)
    print(day.stdout, end="")
    # What the shell could not find or do it says on a line that is none of ours.
    found.check(day.returncode == 0 and "FAIL" not in day.stdout, "the day")


def check_second_boot(found, build, place):
    board = Board(build, place / "boots")
    for boot in ("first", "second", "third"):
        said = board.shell("second_boot.sh")
        started = said.returncode == 0 and "S90vantorig: started\n" in said.stdout
        found.check(started, f"{boot} boot: {said.stdout}")
        found.check((board.home / "vantorig.pid").exists(), f"{boot} boot: no process on record")


def check_warning(found, place):
    """What ls -l shows of a file whose owner has a name, and one that is a number."""
    # Name of user and group 0, what root's files then show.
    for name, shown, warned in (("root", "root", False), ("adm", "adm", True), ("", "0", True)):
        home = place / f"owned by {shown}"
        home.mkdir()
        (home / "vantorig").write_text("#!/bin/sh\nsleep 1000\n", encoding="utf-8")
        (home / "vantorig").chmod(0o755)
        users, groups = place / "users", place / "groups"
        users.write_text(f"{name}:x:0:0::/:/bin/sh\n" if name else "", encoding="utf-8")
        groups.write_text(f"{name}:x:0:\n" if name else "", encoding="utf-8")
        said = common.run(
            *["bwrap", "--dev-bind", "/", "/", "--tmpfs", "/home", "--bind", home, "/home/tovin"],
            *["--ro-bind", users, "/etc/passwd", "--ro-bind", groups, "/etc/group"],
            *["--unshare-user", "--uid", "0", "--gid", "0", "--unshare-pid", "--proc", "/proc"],
            *["--die-with-parent", "busybox", "sh", "-c", BRIEF_DAY, SCRIPT],
        ).stdout
        found.check("S90vantorig: started" in said, said)
        times = said.count(f'has no "t" before the size ({shown} {shown})')
        found.check(times == (2 if warned else 0), f"owner {shown}: console, log: {said}")


def main(build):
    common.need("busybox", "bwrap")
    found = common.Findings()
    with common.temporary() as name:
        place = pathlib.Path(name)
        check_day(found, build, place)
        check_second_boot(found, build, place)
        check_warning(found, place)
    found.finish()


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve())
