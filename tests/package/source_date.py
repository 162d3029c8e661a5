"""The date of a package: that of the last commit, or of the newest source file where
there is no history, none that may be read, or no git."""

import os
import pathlib
import shutil

import common

COMMITTED = 1700000000
NEWEST = 1650000000
FILES = {"a": NEWEST - 5, "folder/b c": NEWEST, "build-package/object": NEWEST + 5, "out/x.deb": NEWEST + 9}


def date_of(tree, **environment):
    script = f". {common.ROOT}/packaging/setup.sh; source_date"
    found = common.run("sh", "-euc", script, cwd=tree, env={**os.environ, **environment})
    return found.stdout.strip()


def main():
    common.need("git")
    found = common.Findings()
    with common.temporary() as name:
        place = pathlib.Path(name)
        tree = place / "sources"
        for file, date in FILES.items():
            (tree / file).parent.mkdir(parents=True, exist_ok=True)
            (tree / file).touch()
            os.utime(tree / file, (date, date))
        found.check(date_of(tree) == str(NEWEST), f"without history: {date_of(tree)}")

        # A history around the sources is not theirs.
        git = ["git", "-c", "user.name=a", "-c", "user.email=a@b", "-C"]
        dated = {**os.environ, "GIT_COMMITTER_DATE": f"{COMMITTED} +0000"}
        commit = ["commit", "-q", "--allow-empty", "-m", "a"]
        common.run("git", "init", "-q", place)
        common.run(*git, place, *commit, env=dated)
        found.check(date_of(tree) == str(NEWEST), f"history of a folder above: {date_of(tree)}")

        common.run("git", "init", "-q", tree)
        found.check(date_of(tree) == str(NEWEST), f"no commit: {date_of(tree)}")
        common.run(*git, tree, *commit, env=dated)
        found.check(date_of(tree) == str(COMMITTED), f"with history: {date_of(tree)}")

        tools = place / "tools"
        tools.mkdir()
        for tool in ("sh", "find", "sort", "tail", "cut"):
            (tools / tool).symlink_to(shutil.which(tool))
        found.check(date_of(tree, PATH=str(tools)) == str(NEWEST), "no git")
        (tools / "git").write_text("#!/bin/sh\necho fatal: dubious ownership >&2\nexit 128\n")
        (tools / "git").chmod(0o755)
        found.check(date_of(tree, PATH=str(tools)) == str(NEWEST), "another user's history")
    found.finish()


if __name__ == "__main__":
    main()
