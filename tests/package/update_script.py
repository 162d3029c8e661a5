"""Update packages on the BusyBox of a board: what is installed, what is kept, and
that a package with any fault leaves everything as it was.

Every package goes through the board's resident script. The sandbox has no shell and
no tools but those of BusyBox.
"""

import gzip
import io
import pathlib
import random
import subprocess
import sys
import tarfile

import common

SEED = 20261120


class Board:
    """A /home/tovin with an installed program, and a shell of BusyBox on it."""

    def __init__(self, place):
        self.home = place / "home"
        self.tools = place / "tools"
        self.tools.mkdir()
        applets = subprocess.run(
            ["busybox", "--list"], capture_output=True, text=True, check=True
        ).stdout
        for applet in applets.split():
            (self.tools / applet).symlink_to("/bin/busybox")
        self.home.mkdir()
        (self.home / "tmp").mkdir()
        (self.home / "update.sh").write_bytes((common.BOARD_FILES / "update.sh").read_bytes())
        (self.home / "update.sh").chmod(0o755)

    def put(self, name, content, mode=0o644):
        (self.home / name).write_bytes(content)
        (self.home / name).chmod(mode)

    def files(self):
        """Names and contents of what is installed."""
        found = sorted(path for path in self.home.iterdir() if path.is_file())
        return {path.name: path.read_bytes() for path in found}

    def shell(self, command):
        return common.run(
            *["bwrap", "--dev-bind", "/", "/", "--tmpfs", "/home"],
            *["--bind", self.home, "/home/tovin", "--ro-bind", "/bin/busybox", "/bin/sh"],
            *["--unshare-pid", "--proc", "/proc", "--chdir", "/home/tovin"],
            *["--setenv", "PATH", self.tools, "/bin/sh", "-c", command],
        )

    def update(self, package):
        """Does with a package what the service does; true when it left its marker."""
        for name in ("update.sh", "success.txt"):
            (self.home / "tmp" / name).unlink(missing_ok=True)
        (self.home / "tmp" / "new_hd_version.tar.gz").write_bytes(package)
        self.said = self.shell("/home/tovin/update.sh").stdout
        return (self.home / "tmp" / "success.txt").exists()


def packed(melk, place, files):
    """A package of these files, by melk."""
    source = place / "files"
    source.mkdir(exist_ok=True)
    for old in source.iterdir():
        old.unlink()
    for name, content in files.items():
        (source / name).write_bytes(content)
    package = place / "package.tar.gz"
    made = common.run(melk, "make-update", source, "-o", package)
    if made.returncode != 0:
        raise RuntimeError(made.stdout)
    return package.read_bytes()


def altered(package, change):
    """The package with one member's content changed, packed again without a fault."""
    out = io.BytesIO()
    with tarfile.open(fileobj=io.BytesIO(package)) as old, tarfile.open(
        fileobj=out, mode="w", format=tarfile.USTAR_FORMAT
    ) as new:
        for member in old.getmembers():
            content = old.extractfile(member).read() if member.isfile() else b""
            content = change(member.name, content)
            if content is None:
                continue
            member.size = len(content)
            new.addfile(member, io.BytesIO(content) if member.isfile() else None)
    return gzip.compress(out.getvalue(), mtime=0)


def only(name, content):
    return lambda member, old: content if member == name else old


def flipped(content, at):
    return content[:at] + bytes([content[at] ^ 0x10]) + content[at + 1 :]


def faulty_packages(package, program, melk, place):
    """(what is wrong, package)"""
    chance = random.Random(SEED)
    for at in sorted(chance.sample(range(10, len(package)), 12)):
        yield f"byte {at} flipped", flipped(package, at)
    for size in [0, 1, 5000] + sorted(chance.sample(range(len(package)), 5)) + [len(package) - 9]:
        yield f"cut to {size} bytes", package[:size]
    # Whole archives of bad content: only the script itself can tell.
    damaged = flipped(program, len(program) // 2)
    yield "program damaged", altered(package, only("new/vantorig", damaged))
    yield "program missing", altered(package, only("new/vantorig", None))
    yield "version damaged", altered(package, only("new/version.ini", b"3.0.0\n"))
    wrong = b"0" * 32 + b" 755 vantorig\n"
    yield "wrong checksum", altered(package, only("update.list", wrong))
    yield "empty list", altered(package, only("update.list", b""))
    yield "no list", altered(package, only("update.list", None))
    yield "no script", altered(package, only("update.sh", None))
    script = altered(package, lambda name, old: old[:2000] if name == "update.sh" else old)
    yield "half a script", script
    # In good order, but not the program.
    true = pathlib.Path("/bin/true").read_bytes()
    for what, other in [
        ("a program that does not answer", true),
        ("a program that fails", pathlib.Path("/bin/false").read_bytes()),
        ("a program cut short", program[: len(program) // 3]),
        ("no program at all", b"#!/bin/sh\necho help for command line to vantorig\n"),
        ("nothing", b""),
    ]:
        yield what, packed(melk, place, {"vantorig": other, "version.ini": b"2.0.1\n"})


def main(build):
    common.need("busybox", "bwrap", "strip")
    found = common.Findings()
    with common.temporary() as name:
        place = pathlib.Path(name)
        common.stripped(build / "vantorig", place / "vantorig")
        program = (place / "vantorig").read_bytes()
        newer = program + b"2.0.1"
        board = Board(place)
        board.put("vantorig", program, 0o755)
        board.put("version.ini", b"1.12.3\n")
        before = board.files()
        files = {"vantorig": newer, "version.ini": b"2.0.1\n", "extra": b"new here\n"}
        package = packed(build / "melk", place, files)

        for what, faulty in faulty_packages(package, newer, build / "melk", place):
            success = board.update(faulty)
            found.check(not success, f"{what}: reported as a success: {board.said}")
            found.check(board.files() == before, f"{what}: changed the board: {board.said}")

        found.check(board.update(package), f"a good package: {board.said}")
        after = {**before, **files, "vantorig.previous": program, "version.ini.previous": b"1.12.3\n"}
        found.check(board.files() == after, f"what is installed: {sorted(board.files())}")
        mode = (board.home / "vantorig").stat().st_mode & 0o777
        found.check(mode == 0o755, f"mode of the program: {mode:o}")
        found.check(not (board.home / "tmp" / "new").exists(), "the unpacked files are gone")

        found.check(board.update(package), f"the same package again: {board.said}")
        found.check(board.files() == after, "the same package again keeps what it replaced first")

        third = {"version.ini": b"2.0.2\n", "vantorig": newer}
        found.check(board.update(packed(build / "melk", place, third)), f"version only: {board.said}")
        kept = {name: text for name, text in board.files().items() if name.endswith(".previous")}
        found.check(kept == {"version.ini.previous": b"2.0.1\n"}, f"kept of the last update: {kept}")

        # As the factory's archive, with the commands of a factory restore.
        (board.home / "tmp" / "new_hd_version_master.tar.gz").write_bytes(package)
        (board.home / "tmp" / "success.txt").unlink()
        board.shell("tar -xvzf tmp/new_hd_version_master.tar.gz -C tmp/; tmp/./update.sh")
        found.check(board.files()["version.ini"] == b"2.0.1\n", "a factory restore installs")
    found.finish()


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve())
