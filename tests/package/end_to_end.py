"""An update as a host makes it: the service is configured, gets a damaged package and
a good one over its link, and says the new version after its restart."""

import pathlib
import sys

import common

# Virtual time: what it takes is not waited for.
FIRST_DAY = """at 10s
melk send-config --wait {config}
melk registers
melk sw-version
melk update --wait {damaged}
melk update --wait --via-fpga {fake}
melk update-result
melk update --wait {package}
melk update-result
melk sw-version
"""
AFTER_RESTART = """at 10s
melk registers
melk sw-version
"""


class Host:
    """A board with an installed program, and a host that follows a script."""

    def __init__(self, build, place):
        self.build = build
        self.place = place
        self.board = place / "board"
        common.run(build / "vboard", "--board", self.board, "source", "component")
        self.home = self.board / "home"
        common.stripped(build / "vantorig", self.home / "vantorig")

    def package(self, name, program):
        files = self.place / name
        files.mkdir()
        (files / "vantorig").write_bytes(program)
        (files / "version.ini").write_text("2.0.1\n", encoding="utf-8")
        package = self.place / f"{name}.tar.gz"
        made = common.run(self.build / "melk", "make-update", files, "-o", package)
        if made.returncode != 0:
            raise RuntimeError(made.stdout)
        return package

    def follow(self, script):
        """Runs the installed service; gives back what it printed and the host saw."""
        (self.place / "script").write_text(script, encoding="utf-8")
        log = self.place / "host.log"
        run = ["--virtual", "--for", "200s", "--script", self.place / "script", "--host-log", log]
        service = common.run(
            *[self.build / "vboard", "--board", self.board, "run", *run],
            *["--", "/home/tovin/vantorig", "-602"],
        )
        return service.stdout, log.read_text(encoding="utf-8")


def outcomes(log, command):
    """What the host printed for each call of one command, in order."""
    blocks = log.split("\n[")
    return [block.partition("\n")[2] for block in blocks if f"] melk {command}" in block]


def main(build):
    common.need("bwrap", "strip")
    found = common.Findings()
    with common.temporary() as name:
        host = Host(build, pathlib.Path(name))
        old = (host.home / "vantorig").read_bytes()
        new = old + b"2.0.1"
        package = host.package("good", new)
        damaged = host.place / "damaged.tar.gz"
        content = bytearray(package.read_bytes())
        content[len(content) // 2] ^= 1
        damaged.write_bytes(content)
        fake = host.package("fake", pathlib.Path("/bin/true").read_bytes())

        config = common.ROOT / "packaging" / "hd.ini"
        _, log = host.follow(
            FIRST_DAY.format(config=config, damaged=damaged, fake=fake, package=package)
        )
        updates = outcomes(log, "update ")
        found.check(len(updates) == 3, log)
        for one, end in zip(updates, ["failed", "failed", "succeeded"]):
            found.check(f"; the update {end}" in one, f"wanted {end}: {one}")
        for one in outcomes(log, "update-result"):
            found.check("no success on record" in one, f"a success is told once: {one}")
        for one in outcomes(log, "sw-version"):
            found.check("1.12.3" in one, f"the running program has its version: {one}")
        found.check("status 0x91" in log, f"configured and healthy before the updates: {log}")
        found.check((host.home / "vantorig").read_bytes() == new, "the new program is installed")
        found.check((host.home / "vantorig.previous").read_bytes() == old, "the old one is kept")

        said, log = host.follow(AFTER_RESTART)
        found.check("read '2.0.1\n' OK" in said, said)
        found.check(outcomes(log, "sw-version") == ["2.0.1\n"], log)
    found.finish()


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve())
