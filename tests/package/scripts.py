"""The shell scripts that go to a board, and those that make what goes there: in the
words of a board's BusyBox, and as shellcheck has it."""

import common

SCRIPTS = [
    common.ROOT / "melk" / "update.sh",
    common.BOARD_FILES / "update.sh",
    common.BOARD_FILES / "S90vantorig",
    common.ROOT / "package",
]


def main():
    common.need("busybox", "shellcheck")
    found = common.Findings()
    for path in SCRIPTS:
        result = common.run("busybox", "sh", "-n", path)
        found.check(result.returncode == 0, f"{path}: {result.stdout}")
        result = common.run("shellcheck", "-x", "--shell=sh", path, cwd=common.ROOT)
        found.check(result.returncode == 0, f"{path}\n{result.stdout}")
    found.finish()


if __name__ == "__main__":
    main()
