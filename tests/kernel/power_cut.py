"""Power cuts during an update and a configuration download, and what comes up after.

The board's files lie on a file system that outlives the machine. The emulator runs
until something begins, its state is kept, and from there every point is a run of
its own: a timer of the emulated machine restarts it so many nanoseconds, that is
instructions, later, with nothing written back, and the emulator ends. The next boot
must find the old program or the new one, whole, with its own version, start the
service, take a configuration and be healthy.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import time

import compare
import machine
import service

CONFIGURATION = service.CONFIGURATION

MOUNT = """\
mount_home() { vboard-kernel flash $board && mount -t ubifs ubi0:home /home/tovin; }
host() { vboard-kernel melk $board "$@" 2>&1; }
"""

# A board in service.
INSTALL = MOUNT + """\
cp -a /home/tovin /run/new
mount_home && cp -a /run/new/* /home/tovin/ && umount /home/tovin && echo "@@ installed"
sync
"""

# Gets the service going, and waits: for "begin" the harness keeps the state of the
# machine, and says what to do and when to cut.
RUN = MOUNT + """\
mount_home && cd /home/tovin || switch_off
/etc/init.d/S90vantorig start
sleep 2
cut=/sys/module/vboard_bus/parameters/cut_ns
echo "@@ begin"
read -r what point <&3
case $what in
  config)
    echo $point >$cut
    host send-config /job/config.ini
    ;;
  update)
    echo $point >$cut
    host update --via-fpga --wait /job/update.tar.gz
    ;;
  archive)
    (
      until [ -s tmp/new_hd_version.tar.gz ]; do sleep 0.005; done
      echo "@@ archive $(cut -d " " -f 1 /proc/uptime)"
      read -r point <&3
      echo $point >$cut
    ) &
    host update --via-fpga --wait /job/update.tar.gz
    ;;
esac
echo "@@ end $(cut -d " " -f 1 /proc/uptime)"
sleep 1000
"""

# After the cut.
CHECK = MOUNT + """\
dmesg -n 1
mount_home || echo "the file system cannot be mounted"
cd /home/tovin || switch_off
/etc/init.d/S90vantorig start
sleep 3
ls -la
md5sum vantorig version.ini
host send-config /job/config.ini
sleep 40
host status
host registers >/dev/null
host sw-version
"""


def board_files(kind, directory):
    """The flash memory of a board in service."""
    disk = pathlib.Path(directory) / "disk"
    machine.blank(kind, disk)
    files = [
        ("home/tovin/vantorig", service.old_program(), True),
        ("home/tovin/version.ini", service.OLD_VERSION, False),
        ("home/tovin/update.sh", service.UPDATE_SCRIPT, True),
    ]
    outcome = machine.boot(kind, INSTALL, files, disk=disk)
    if "@@ installed" not in outcome.console:
        raise SystemExit(f"the board could not be installed:\n{outcome.console}")
    return disk


def copy(disk, to):
    machine.run("cp", "--sparse=always", disk, to)


class Emulator:
    """A running machine whose console is a pipe, stopped and kept through QMP."""

    def __init__(self, words, directory):
        self.control_path = f"{directory}/control"
        words = [*words, "-serial", "stdio", "-monitor", "none"]
        words += ["-qmp", f"unix:{self.control_path},server=on,wait=off"]
        self.process = subprocess.Popen(
            words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL
        )
        self.console = b""

    def until(self, text):
        """Reads the console up to a text; False at the machine's end."""
        while text not in self.console:
            more = os.read(self.process.stdout.fileno(), 65536)
            if not more:
                return False
            self.console += more
        return True

    def say(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def control(self, steps):
        """Hands steps a function that asks the emulator and gives its answer."""
        with socket.socket(socket.AF_UNIX) as control:
            while control.connect_ex(self.control_path) != 0:
                if self.process.poll() is not None:
                    raise SystemExit(self.end())
                time.sleep(0.05)
            replies = control.makefile("r")

            def ask(command, **arguments):
                control.sendall(json.dumps({"execute": command, "arguments": arguments}).encode())
                for line in replies:
                    reply = json.loads(line)
                    if "return" in reply or "error" in reply:
                        return reply.get("return")
                return None

            replies.readline()
            ask("qmp_capabilities")
            steps(ask)

    def keep(self, path):
        """Stops the machine and writes its state, without its disk."""

        def steps(ask):
            ask("stop")
            ask("migrate", uri=f"exec:cat >{path}")
            while ask("query-migrate").get("status") not in ("completed", "failed"):
                time.sleep(0.05)
            ask("quit")

        self.control(steps)
        self.process.wait()

    def go_on(self):
        """Starts a machine whose state has been read."""

        def steps(ask):
            while ask("query-status")["status"] == "inmigrate":
                time.sleep(0.05)
            ask("cont")

        self.control(steps)

    def end(self):
        """What the console said up to the machine's end."""
        out, _ = self.process.communicate()
        return (self.console + out).decode(errors="replace").replace("\r\n", "\n")


class Sweep:
    """One board, its states, and runs that start from them."""

    def __init__(self, kind, directory):
        self.kind = kind
        self.directory = pathlib.Path(directory)
        self.disk = board_files(kind, directory)
        files = service.files(directory)
        files += [("job/config.ini", CONFIGURATION, False)]
        self.files = [file for file in files if not file[0].startswith("home/")]
        self.run_initrd = self.initrd("run", RUN)
        self.check_initrd = self.initrd("check", CHECK)
        self.verdicts = {}

    def initrd(self, name, job):
        path = self.directory / f"{name}.cpio"
        entries = [machine.file_entry(*file) for file in self.files]
        entries.append(machine.file_entry("job/run", b"exec 3</dev/console\n" + job.encode()))
        path.write_bytes(self.kind.base.read_bytes() + machine.archive(entries))
        return path

    def words(self, initrd, disk):
        return [*self.kind.command(initrd), *machine.STEADY, *self.kind.disk(disk)]

    def keep(self, name, script):
        """Runs up to a point of the job and keeps machine and disk as NAME."""
        disk = self.directory / f"{name}.disk"
        copy(self.disk, disk)
        emulator = Emulator(self.words(self.run_initrd, disk), self.directory)
        for wanted, line in script:
            if not emulator.until(wanted):
                raise SystemExit(f"the board did not get to {wanted}:\n{emulator.end()}")
            if line is not None:
                emulator.say(line)
        emulator.keep(self.directory / f"{name}.state")
        return name

    def cut(self, name, line, number):
        """Goes on from a kept state until the power is cut; the disk then."""
        with tempfile.TemporaryDirectory(dir=self.directory) as place:
            disk = pathlib.Path(place) / "disk"
            copy(self.directory / f"{name}.disk", disk)
            words = self.words(self.run_initrd, disk)
            words += ["-incoming", f"exec:cat {self.directory}/{name}.state"]
            emulator = Emulator(words, place)
            emulator.go_on()
            emulator.say(line)
            console = emulator.end()
            with open(disk, "rb") as image:
                data = image.read(self.kind.disk_used)
        digest = hashlib.sha256(data).hexdigest()
        kept = self.directory / f"{digest}.cut"
        if not kept.exists():
            with open(kept, "wb") as image:
                image.write(data)
                image.truncate(self.kind.disk_size)
        return number, digest, "@@ end" in console

    def verdict(self, digest):
        """What comes up from a disk: "old", "new", or what is wrong."""
        disk = self.directory / f"{digest}.cut"
        outcome = machine.run_emulator(
            [*self.words(self.check_initrd, disk), "-serial", "stdio", "-monitor", "none"], 300
        )
        sums = dict(reversed(line) for line in re.findall(r"^(\w{32})  (\S+)$", outcome, re.M))
        for name, program, version in (
            ("old", service.old_program(), service.OLD_VERSION),
            ("new", service.new_program(), service.NEW_VERSION),
        ):
            wanted = {"vantorig": program, "version.ini": version}
            whole = {file: hashlib.md5(data).hexdigest() for file, data in wanted.items()}
            runs = re.search(rf"^{re.escape(version.decode().strip())}$", outcome, re.M)
            if sums == whole and runs and service.statuses(outcome) == ["0x91 0x80"]:
                return name
        return "broken:\n" + outcome


def sweep(board, name, line, points, workers):
    """Cuts at every point; counts what comes up."""
    counts = collections.Counter()
    broken = []
    ended = 0
    with concurrent.futures.ThreadPoolExecutor(workers) as pool:
        cuts = list(
            pool.map(lambda at: board.cut(name, line.format(at), at), points)
        )
        new = sorted({digest for _, digest, _ in cuts} - set(board.verdicts))
        board.verdicts.update(zip(new, pool.map(board.verdict, new)))
    for number, digest, end in cuts:
        verdict = board.verdicts[digest]
        ended += end
        counts[verdict.split(":")[0]] += 1
        if verdict.startswith("broken"):
            broken.append((number, verdict))
    different = len({digest for _, digest, _ in cuts})
    return counts, broken, ended, different


# Name, what is kept, what is said from there, first and last nanosecond.
WINDOWS = {
    "configuration": ("begin", "config {}", 0, 6_000_000_000),
    "update, its begin": ("begin", "update {}", 0, 600_000_000),
    "update, from the whole archive": ("archive", "{}", 0, 6_000_000_000),
}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("machine", nargs="?", default="arm926", choices=["arm926"])
    parser.add_argument("--points", type=int, default=200, help="of the update, evenly")
    parser.add_argument("--window", choices=WINDOWS, help="this one only")
    parser.add_argument("--at", type=int, help="this point only, in nanoseconds")
    parser.add_argument("--workers", type=int, default=os.cpu_count())
    options = parser.parse_args()
    kind = machine.machine(options.machine)
    failed = False
    with tempfile.TemporaryDirectory(prefix="power-cut-") as directory:
        board = Sweep(kind, directory)
        board.keep("begin", [(b"@@ begin", None)])
        board.keep("archive", [(b"@@ begin", "archive 0"), (b"@@ archive", None)])
        for window, (name, line, first, last) in WINDOWS.items():
            if options.window not in (None, window):
                continue
            count = options.points if name == "archive" else options.points // 4
            points = [first + (last - first) * i // count for i in range(1, count + 1)]
            if options.at is not None:
                points = [options.at]
            counts, broken, ended, different = sweep(board, name, line, points, options.workers)
            print(
                f"{window}: cut at {len(points)} points, {different} different disks: "
                f"old program {counts['old']}, new {counts['new']}, broken {counts['broken']}"
                f"; {ended} behind the end",
                flush=True,
            )
            for number, verdict in broken:
                failed = True
                print(f"at {number}: {verdict}")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    try:
        main()
    except machine.Missing as reason:
        print(f"Skipped: {reason}")
        sys.exit(machine.CANNOT)
