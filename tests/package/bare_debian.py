#!/usr/bin/env python3
"""Both kinds of packages on a bare Debian 12: made there from sources without history,
installed on others, and used with the commands of README, manual pages, help and hints.

    tests/package/bare_debian.py [--packages DIR] [--cache DIR] [--keep]

On demand: at least ten minutes, most of it to fetch the tools that a bare Debian lacks and
to build. Needs root and Debian's servers; else it says why not and exits with 77.
The first run makes a bare system with debootstrap and keeps it in the cache
(~/.cache/vantorig), with the packages that were fetched. With --packages nothing is
built: DIR holds the output of ./package. --keep leaves the machines for inspection.
"""

import argparse
import contextlib
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time

import common

SUITE = "bookworm"
SERVER = "http://deb.debian.org/debian"
SHARE = "/usr/share/doc/vantorig-tools"
START_SCRIPT = "/etc/init.d/S90vantorig"
HEALTHY = "status 0x91"
PATIENCE_S = 120

# Examples that run until they are ended; timeout then has a status of its own.
ENDLESS = [
    "melk watch --interval 2",
    "melk watch --interval 5",
    "vboard run --speed 5 -- vantorig -602",
    "vboard record -o run.trace -- vantorig -602",
]
TIMED_OUT = 124
# Examples that end otherwise than with 0, want something to read, or more than a board.
STATUS = {
    "melk --spi /dev/spidev0.0 --speed 500000 status": 4,  # no such device here
    "melk update-result": 1,  # was reported to the update before it
}
CONFIGURED = ["vboard encode crash"]  # wants an encode that runs
INPUT = {
    "vboard shell --speed 5": "vantorig -rdreg 0\n",
}


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(common.SKIPPED)


# ---- machines -------------------------------------------------------------------------


class Machine:
    """A Debian in a directory. Each command is a boot of its own: with its processes,
    which end with it."""

    def __init__(self, base, place, name, cache):
        self.root = place / name
        self.root.mkdir()
        subprocess.run(["tar", "-xpf", base, "-C", self.root], check=True)
        self.archives = cache / "archives"
        self.archives.mkdir(exist_ok=True)

    def _sandbox(self, cwd):
        kept = {name: os.environ[name] for name in ("http_proxy", "https_proxy") if name in os.environ}
        settings = {**kept, "PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C"}
        resolver = os.path.realpath("/etc/resolv.conf")
        return [
            *["bwrap", "--bind", self.root, "/", "--dev", "/dev", "--proc", "/proc"],
            *["--ro-bind", resolver, "/etc/resolv.conf"],
            *["--bind", self.archives, "/var/cache/apt/archives"],
            *["--unshare-pid", "--unshare-ipc", "--die-with-parent", "--cap-add", "ALL"],
            *["--clearenv", *[word for one in settings.items() for word in ("--setenv", *one)]],
            *["--chdir", cwd, "sh", "-c"],
            # A process list with nothing hidden: a user's sandbox takes no other.
            'mount -t proc proc /proc && exec sh -c "$0"',
        ]

    def run(self, command, cwd="/root", stdin=""):
        """What a command for the shell printed, and its status."""
        done = subprocess.run(
            [str(word) for word in [*self._sandbox(cwd), command]],
            input=stdin,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            errors="replace",
            check=False,
        )
        return done

    @contextlib.contextmanager
    def running(self, command, cwd="/root"):
        """Runs it in another terminal meanwhile; gives the file with its output."""
        log = self.root / "root" / "terminal.log"
        with open(log, "w", encoding="utf-8") as out:
            process = subprocess.Popen(
                [str(word) for word in [*self._sandbox(cwd), f"exec {command}"]],
                stdin=subprocess.DEVNULL,
                stdout=out,
                stderr=subprocess.STDOUT,
            )
            try:
                yield log
            finally:
                process.send_signal(signal.SIGKILL)
                process.wait()

    def unpack(self, tarball, into="/", *options):
        place = self.root / into.lstrip("/")
        place.mkdir(parents=True, exist_ok=True)
        subprocess.run(["tar", "-xzpf", tarball, "-C", place, *options], check=True)


def until(condition):
    """Whether it came true, for as long as a busy machine may take."""
    end = time.monotonic() + PATIENCE_S
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.2)
    return True


def bare_base(cache):
    """A tarball of a bare system, made when the cache has none."""
    base = cache / f"{SUITE}.tar"
    if base.exists():
        return base
    if shutil.which("debootstrap") is None:
        common.run("apt-get", "install", "-y", "--no-install-recommends", "debootstrap")
    if shutil.which("debootstrap") is None:
        skip("debootstrap is not installed and could not be")
    with common.temporary() as name:
        root = pathlib.Path(name) / "root"
        made = common.run("debootstrap", "--variant=minbase", SUITE, root, SERVER)
        if made.returncode != 0:
            skip(f"debootstrap failed:\n{made.stdout[-2000:]}")
        packed = cache / f"{SUITE}.tar.new"
        subprocess.run(["tar", "-cpf", packed, "-C", root, "."], check=True)
        packed.rename(base)
    return base


# ---- commands that the texts give ------------------------------------------------------


def readme_commands():
    """The commands of the README for two terminals, as they are once it is installed."""
    text = (common.ROOT / "README.md").read_text(encoding="utf-8")
    by_hand = text.partition("\nBy hand, ")[2].partition("\n## ")[0]
    lines = re.findall(r"^    ((?:sleep|build)[^#\n]*)", by_hand, re.MULTILINE)
    installed = by_hand.partition("\nInstalled, ")[2]
    lines += re.findall(r"^    ((?:melk|vboard) [^#\n]*)", installed, re.MULTILINE)
    found = [line.strip().replace("build/", "").replace("packaging/", f"{SHARE}/") for line in lines]
    return list(dict.fromkeys(found))


def manual_commands(machine, page):
    """The examples of a manual page as it is installed."""
    text = machine.run(f"zcat /usr/share/man/man1/{page}.1.gz").stdout
    return re.findall(rf"^\.Dl ({page} .*)", text, re.MULTILINE)


def help_commands(machine, program):
    """The examples of a program's help, and of that of each of its commands."""
    overview = machine.run(f"{program} --help").stdout
    sections = re.split(r"^([A-Z][A-Za-z ]*):$", overview, flags=re.MULTILINE)
    found = []
    for heading, entries in zip(sections[1::2], sections[2::2]):
        if heading in ("Options", "Positionals", "Example"):
            continue
        for word in re.findall(r"^  ([a-z][a-z-]*)", entries, re.MULTILINE):
            told = machine.run(f"{program} {word} --help").stdout
            example = re.search(rf"^Example:\s+({program} .*)", told, re.MULTILINE)
            found.append(example.group(1) if example else f"{program} {word}: no example")
    return found


# ---- the packages ----------------------------------------------------------------------


def make_packages(found, base, place, cache):
    """Makes all packages on a bare system, from sources without history."""
    maker = Machine(base, place, "maker", cache)
    listed = common.run("git", "-C", common.ROOT, "ls-files", "--cached", "--others", "--exclude-standard")
    (maker.root / "src").mkdir()
    pack = subprocess.Popen(
        ["tar", "-c", "-C", common.ROOT, "--ignore-failed-read", "-T", "-"],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
    )
    unpack = subprocess.Popen(["tar", "-x", "-C", maker.root / "src"], stdin=pack.stdout)
    pack.stdin.write(listed.stdout.encode())
    pack.stdin.close()
    unpack.wait()
    pack.wait()
    for kind in ("host", "board", "board default"):
        made = maker.run(f"./package {kind}", cwd="/src")
        found.check(made.returncode == 0, f"./package {kind}: {made.stdout[-3000:]}")
    program = "/board/home/tovin/vantorig"
    for tarball in (maker.root / "src/out").glob("*-board-armv5te.tar.gz"):
        maker.unpack(tarball, "board")
        helped = maker.run(f"qemu-arm-static -cpu arm926 {program} -help")
        found.check("help for command line to vantorig" in helped.stdout, helped.stdout)
    return maker.root / "src/out"


def package(packages, pattern):
    return next(iter(sorted(packages.glob(pattern))))


# ---- the tools -------------------------------------------------------------------------


def check_readme(found, user):
    commands = readme_commands()
    service = [one for one in commands if one.endswith("-602")]
    others = [one for one in commands if not one.endswith("-602")]
    found.check(len(service) == 1 and len(others) >= 4, f"commands of the README: {commands}")
    with user.running(service[0]) as log:
        up = until(lambda: "end configure" in log.read_text(errors="replace"))
        found.check(up, f"{service[0]}: {log.read_text(errors='replace')}")
        told = {}
        for command in others:
            if "--virtual" in command:
                continue
            done = user.run(command)
            told[command] = done.stdout
            found.check(done.returncode == 0, f"{command}: {done.returncode}: {done.stdout}")
        at = {command.partition(" ")[0]: text for command, text in told.items() if "status" in command}
        found.check(HEALTHY in at.get("melk", ""), f"after the configuration: {told}")
        found.check("no video input" in at.get("sleep", ""), f"without its input: {told}")
        for command in CONFIGURED:
            done = user.run(command)
            found.check(done.returncode == 0, f"{command}: {done.stdout}")
    for command in others:
        if "--virtual" in command:
            done = user.run(command)
            found.check("addr 0x20: 0x" in done.stdout, f"{command}: {done.stdout}")


def check_hints(found, user):
    """What melk says to one who has no board, then no service, is the way to both."""
    said = user.run("melk status", cwd="/tmp").stdout
    found.check("no board in" in said, said)
    user.run("vboard source component", cwd="/tmp")
    said = user.run("melk status", cwd="/tmp").stdout
    hint = re.search(r"hint: start the service on it: (vboard .*)", said)
    found.check(hint is not None, said)
    with user.running(hint.group(1), cwd="/tmp"):
        there = until(lambda: user.run("melk status", cwd="/tmp").returncode == 0)
        found.check(there, f"{hint.group(1)}: {user.run('melk status', cwd='/tmp').stdout}")


def furnish(user, place):
    """The files that examples take for granted, in a directory with a board."""
    user.run(
        f"mkdir -p {place} && cd {place} && mkdir files && cp /usr/lib/vboard/vantorig . &&"
        f" cp vantorig files && echo 2.0.1 >files/version.ini && cp {SHARE}/hd.ini . &&"
        " echo status >commands.txt && vboard source component && vboard save board.dump &&"
        " melk make-update files -o new_version.tar.gz && melk make-update files -o new_hd_version.tar.gz"
    )


def check_example(found, user, command, place, where):
    if command in ENDLESS:
        done = user.run(f"timeout 8 {command}", cwd=place)
        wanted = TIMED_OUT
    else:
        done = user.run(command, cwd=place, stdin=INPUT.get(command, ""))
        wanted = STATUS.get(command, 0)
    found.check(done.returncode == wanted, f"{where}: {command}: {done.returncode}: {done.stdout[-1500:]}")
    return done.stdout


def check_examples(found, user):
    """Every example of a manual page and of a help text does what it is an example of."""
    vantorig = manual_commands(user, "vantorig")
    found.check(len(vantorig) >= 3, f"examples of vantorig(1): {vantorig}")
    furnish(user, "/root/examples")
    for command in vantorig:
        run = f"vboard run --virtual --for 60s -- {command}"
        check_example(found, user, run, "/root/examples", "vantorig(1)")

    for where, examples in (
        ("vboard(1)", manual_commands(user, "vboard")),
        ("vboard --help", help_commands(user, "vboard")),
    ):
        found.check(len(examples) >= 6, f"{where}: {examples}")
        # A record is there before it is replayed.
        for command in sorted(examples, key=lambda one: (" replay " in one, " timeline " in one)):
            if command not in CONFIGURED:
                check_example(found, user, command, "/root/examples", where)

    furnish(user, "/root/host")
    # With the status file that one of them fetches, after 25 board seconds.
    with user.running("vboard run --speed 20 -- vantorig -602 getmon", cwd="/root/host"):
        until(lambda: (user.root / "root/host/board/home/monitor.txt").exists())
        for where, examples in (
            ("melk(1)", manual_commands(user, "melk")),
            ("melk --help", help_commands(user, "melk")),
        ):
            found.check(len(examples) >= 6, f"{where}: {examples}")
            # Bytes sent as they are may leave the board in the middle of something.
            for command in sorted(examples, key=lambda one: " raw " in one):
                check_example(found, user, command, "/root/host", where)


def check_completion(found, user):
    ask = (
        ". /usr/share/bash-completion/completions/vboard; COMP_WORDS=(vboard fault missing f);"
        ' COMP_CWORD=3; _melk_vboard vboard f missing; echo "${COMPREPLY[@]}"'
    )
    done = user.run(f"bash --norc -c {shlex.quote(ask)}")
    found.check(done.stdout == "fpga fpga2\n", f"completion: {done.stdout}")


def check_ordinary_user(found, user):
    run = "cd && vboard run --virtual -- vantorig -rdreg 0x20"
    done = user.run(f"useradd -m guest && su guest -c {shlex.quote(run)}")
    found.check("addr 0x20: 0x" in done.stdout, f"as an ordinary user: {done.stdout}")


def check_chroot(found, user):
    """Where there can be no sandbox, it is told why."""
    done = user.run("mkdir -p /tmp/c && chroot / sh -c 'cd /tmp/c && vboard run --virtual -- vantorig -help'")
    found.check(done.returncode == 0, f"a chroot that is a mount point: {done.stdout}")
    said = common.run("chroot", user.root, "sh", "-c", "mount -t proc proc /proc; vboard demo; umount /proc")
    found.check("bwrap: " in said.stdout and "chroot" in said.stdout, f"in a chroot: {said.stdout}")
    found.check("user namespaces" not in said.stdout, f"in a chroot: {said.stdout}")


def check_tools(found, user, packages):
    deb = package(packages, "vantorig-tools_*.deb")
    shutil.copy(deb, user.root / "root")
    done = user.run(f"apt-get update && apt-get install -y --no-install-recommends ./{deb.name}")
    found.check(done.returncode == 0, f"{deb.name}: {done.stdout[-3000:]}")
    check_readme(found, user)
    check_hints(found, user)
    check_examples(found, user)
    check_completion(found, user)
    check_ordinary_user(found, user)
    check_chroot(found, user)


# ---- the board's package ---------------------------------------------------------------


def check_start_script(found, board):
    """Each run is a boot, in which processes get the same numbers as in the one before."""
    for boot in ("first", "second", "third"):
        done = board.run(f"{START_SCRIPT} start; sleep 2; {START_SCRIPT} status")
        started = done.stdout.startswith("S90vantorig: started\n") and done.returncode == 0
        found.check(started, f"{boot} boot: {done.stdout}")
    log = (board.root / "home/tovin/log1.txt").read_text(errors="replace")
    found.check("end configure" in log, f"log 1: {log}")
    done = board.run(f"{START_SCRIPT} start; sleep 2; {START_SCRIPT} stop; {START_SCRIPT} status")
    found.check("S90vantorig: stopped\n" in done.stdout and done.returncode == 3, done.stdout)


def check_board_in_use(found, user, packages, tarball):
    """The board's package on a virtual board, with a board's shell: its start script, a
    configuration, an update, a roll-back."""
    user.run("apt-get install -y --no-install-recommends busybox-static")
    user.unpack(tarball)
    furnish(user, "/root/lab")
    user.unpack(tarball, "root/lab/board/home", "--strip-components=2", "home/tovin")
    home = user.root / "root/lab/board/home"
    update = package(packages, "*-board-x86_64-update.tar.gz")
    shutil.copy(update, user.root / "root/lab/new_hd_version.tar.gz")
    before = (home / "version.ini").read_text()
    (home / "version.ini").write_text("0.9.1\n", encoding="utf-8")
    with user.running(f"vboard run --speed 10 -- busybox sh {START_SCRIPT} run", cwd="/root/lab"):
        log = home / "log1.txt"
        found.check(until(lambda: log.exists() and "end configure" in log.read_text(errors="replace")), "no service")
        for command, wanted in (
            ("melk send-config --wait hd.ini", HEALTHY),
            ("melk make-logs && melk log 1 -o log1.tar.gz && tar -tzf log1.tar.gz", "log1.txt"),
            ("melk update --wait new_hd_version.tar.gz", "succeeded"),
        ):
            done = user.run(command, cwd="/root/lab")
            found.check(wanted in done.stdout, f"{command}: {done.stdout}")
    found.check((home / "version.ini").read_text() == before, "the update is installed")
    done = user.run(f"vboard run --speed 10 -- busybox sh {START_SCRIPT} rollback", cwd="/root/lab")
    found.check((home / "version.ini").read_text() == "0.9.1\n", f"rollback: {done.stdout}")


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--packages", type=pathlib.Path)
    options.add_argument("--cache", type=pathlib.Path, default=pathlib.Path.home() / ".cache/vantorig")
    options.add_argument("--keep", action="store_true")
    chosen = options.parse_args()
    if os.geteuid() != 0:
        skip("a bare system is made and run by root")
    common.need("bwrap", "tar", "git")
    chosen.cache.mkdir(parents=True, exist_ok=True)
    base = bare_base(chosen.cache)
    found = common.Findings()
    with contextlib.ExitStack() as left:
        place = pathlib.Path(common.tempfile.mkdtemp(prefix="bare-debian-"))
        if chosen.keep:
            print(f"machines in {place}")
        else:
            left.callback(shutil.rmtree, place, ignore_errors=True)
        board = Machine(base, place, "board", chosen.cache)
        reached = board.run("apt-get update")
        if reached.returncode != 0 or "Err:" in reached.stdout:
            skip(f"Debian's servers are out of reach:\n{reached.stdout[-1000:]}")
        packages = chosen.packages or make_packages(found, base, place, chosen.cache)
        check_tools(found, user := Machine(base, place, "user", chosen.cache), packages)
        tarball = package(packages, "*-board-x86_64.tar.gz")
        board.unpack(tarball)
        check_start_script(found, board)
        check_board_in_use(found, user, packages, tarball)
    found.finish()


if __name__ == "__main__":
    main()
