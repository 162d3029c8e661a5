"""Every C++ file is as clang-format leaves it."""

import shutil
import subprocess
import sys

import common

SKIPPED = 77


def main():
    if shutil.which("clang-format") is None:
        print("clang-format is not installed (package clang-format): nothing checked")
        sys.exit(SKIPPED)
    paths = [str(path) for path in common.source_files()]
    run = subprocess.run(
        ["clang-format", "--dry-run", "-Werror", "-style=file", *paths],
        cwd=common.ROOT,
        capture_output=True,
        text=True,
        check=False,
    )
    wrong = {line.split(":")[0] for line in run.stderr.splitlines() if ": error:" in line}
    found = [common.name(common.pathlib.Path(path)) + ": not formatted" for path in sorted(wrong)]
    if run.returncode != 0 and not found:
        found = [run.stderr.strip()]
    common.finish(found, "Run clang-format -i on them.")


if __name__ == "__main__":
    main()
