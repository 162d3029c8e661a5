"""The start script of the board, with the program itself on a virtual board."""

import pathlib
import sys

import common


def main(build):
    common.need("busybox", "bwrap")
    with common.temporary() as place:
        board = pathlib.Path(place) / "board"
        common.run(build / "vboard", "--board", board, "source", "none")
        home = board / "home"
        common.stripped(build / "vantorig", home / "vantorig")
        (home / "log1.txt").write_text("of yesterday\n", encoding="utf-8")
        # A log that is soon full, and no pause before the next start.
        (home / "vantorig.conf").write_text(
            "words=nomon\nrespawn_s=0\nlog_bytes=2000\n", encoding="utf-8"
        )
        day = common.ROOT / "tests" / "package" / "start_script.sh"
        script = common.BOARD_FILES / "S90vantorig"
        shell = ["busybox", "sh", day, script, build / "melk", board]
        result = common.run(build / "vboard", "--board", board, "run", "--speed", "5", "--", *shell)
        print(result.stdout, end="")
        # What the shell could not find or do it says on a line that is none of ours.
        sys.exit(0 if result.returncode == 0 and "FAIL" not in result.stdout else 1)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve())
