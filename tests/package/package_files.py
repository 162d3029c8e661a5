"""What is in the packages: every file in its place with its mode, the installed tools
at work, and the tarball the same bytes when it is packed again."""

import gzip
import os
import pathlib
import re
import sys
import tarfile

import common

EPOCH = 1700000000
PROGRAMS = ["etc/init.d/S90vantorig", "home/tovin/update.sh", "home/tovin/vantorig"]
TEXTS = ["home/tovin/version.ini"] + [
    f"usr/share/doc/vantorig/{name}"
    for name in ("COPYRIGHT", "hd.ini", "host-protocol.md", "hd-ini.md", "examples/vga.ini")
]
TOOLS = ["bin/melk", "bin/vboard"] + [
    f"lib/vboard/{name}"
    for name in ("demo.ini", "libvboard.so", "update.sh", "vantorig", "vboard-encode")
]
TOOLS += [f"share/bash-completion/completions/{name}" for name in ("melk", "vboard")]
MAN_PAGES = ["man1/melk.1.gz", "man1/vantorig.1.gz", "man1/vboard.1.gz", "man5/hd.ini.5.gz"]


def check_tarball(found, build, place):
    packed = []
    for turn in ("one", "two"):
        umask = os.umask(0o022 if turn == "one" else 0o077)
        environment = {**os.environ, "SOURCE_DATE_EPOCH": str(EPOCH)}
        made = common.run(
            *["cpack", "--config", build / "CPackConfig.cmake", "-G", "TGZ", "-B", place / turn],
            cwd=build,
            env=environment,
        )
        os.umask(umask)
        tarballs = list((place / turn).glob("*.tar.gz"))
        found.check(len(tarballs) == 1, f"cpack: {made.stdout}")
        packed += [tarball.read_bytes() for tarball in tarballs]
    found.check(len(packed) == 2 and packed[0] == packed[1], "two tarballs of one build differ")
    with tarfile.open(next((place / "one").glob("*.tar.gz"))) as tarball:
        members = {member.name.removeprefix("./"): member for member in tarball.getmembers()}
    in_order = sorted(members, key=lambda name: name.split("/"))
    found.check(list(members) == in_order, f"the tarball is in no order: {list(members)}")
    for name, mode in [(name, 0o755) for name in PROGRAMS] + [(name, 0o644) for name in TEXTS]:
        found.check(name in members, f"{name} is not in the tarball")
        found.check(name in members and members[name].mode == mode, f"{name} has another mode")
    for name, member in members.items():
        found.check((member.uid, member.gid) == (0, 0), f"{name} is not root's")
        found.check(member.mtime == EPOCH, f"{name} has a date of its own")
        found.check(not name.startswith(("/", "..")), f"{name} leaves the root")
        found.check("hd.ini" not in name or "share" in name, f"{name}: the service would empty it")


def check_places(found, prefix):
    """Manual pages and help texts name what is installed, nothing of the source tree."""
    texts = {page: gzip.decompress((prefix / "share/man" / page).read_bytes()).decode() for page in MAN_PAGES}
    for program in ("melk", "vboard"):
        texts[f"{program} --help"] = overview = common.run(prefix / "bin" / program, "--help").stdout
        for word in set(re.findall(r"^  ([a-z][a-z-]+) ", overview, re.MULTILINE)):
            texts[f"{program} {word} --help"] = common.run(prefix / "bin" / program, word, "--help").stdout
    found.check(len(texts) > 40, f"only {len(texts)} texts: {sorted(texts)}")
    named = set()
    for name, text in texts.items():
        found.check(not re.search(r"(?<![\w/])(build|packaging|docs)/", text), f"{name}: a place of the source tree")
        named |= set(re.findall(r"(?<![\w/])/usr/([\w/.-]+\w)", text))
    found.check("share/doc/vantorig-tools/hd.ini" in named, f"named are {named}")
    for one in sorted(named):
        found.check((prefix / one).exists(), f"/usr/{one} is named and not installed")


def check_tools(found, build, place):
    prefix = place / "usr"
    installed = common.run("cmake", "--install", build, "--component", "tools", "--prefix", prefix)
    found.check(installed.returncode == 0, installed.stdout)
    for name in TOOLS + ["share/man/" + page for page in MAN_PAGES]:
        found.check((prefix / name).is_file(), f"{name} is not installed")
    board = place / "board"
    run = [prefix / "bin/vboard", "--board", board, "run", "--virtual", "--"]
    helped = common.run(*run, "vantorig", "-help", cwd=place)
    found.check("help for command line to vantorig" in helped.stdout, helped.stdout)
    check_places(found, prefix)
    found.check((board / "home/encode").exists(), "the board finds the installed encode")
    found.check((board / "home/update.sh").exists(), "the board has its update script")
    told = common.run(prefix / "bin/melk", "--version", cwd=place)
    found.check(told.stdout.startswith("melk "), told.stdout)


def check_version(found, build):
    """The board takes three numbers of at most two digits from the first line."""
    text = (build / "package" / "version.ini").read_text(encoding="utf-8")
    numbers = text.rstrip("\n").split(".")
    good = len(numbers) == 3 and all(one.isdigit() and len(one) <= 2 for one in numbers)
    found.check(good, f"version.ini holds '{text}'")


def main(build):
    common.need("cpack", "bwrap")
    found = common.Findings()
    with common.temporary() as name:
        check_tarball(found, build, pathlib.Path(name))
        check_tools(found, build, pathlib.Path(name))
    check_version(found, build)
    found.finish()


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve())
