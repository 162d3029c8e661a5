"""How many restarts a limit on open handles allows: a stream that stalls for ever is
restarted for ever, in virtual time, and each restart leaves three handles open.

    handles.py BUILD            the test: sixty handles more allow twenty restarts more
    handles.py BUILD LIMIT...   prints the restart in which a handle is first refused
"""

import pathlib
import resource
import sys

import common

KEPT_OPEN = 3  # by each restart with component input
RESTART_S = 40  # a stalled stream is restarted every 37 s
STALLED = """at 3s melk send-config {config}
at 60s world fault stall
"""


def first_refused(build, place, limit):
    """The restart in which the first handle is refused; None when none is."""
    board = place / f"limit {limit}"
    script = place / "script"
    config = common.ROOT / "packaging" / "hd.ini"
    script.write_text(STALLED.format(config=config), encoding="utf-8")
    common.run(build / "vboard", "--board", board, "source", "component")
    duration = RESTART_S * (limit // KEPT_OPEN + 4) + 60
    run = ["run", "--virtual", "--for", f"{duration}s", "--script", script, "--host-log", "/dev/null"]
    said = common.run(
        *[build / "vboard", "--board", board, *run, "--", build / "vantorig", "-602"],
        errors="replace",
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit)),
    ).stdout
    before, refused, _ = said.partition("\nCannot ")
    return before.count("\nrestart!!\n") if refused else None


def main(build, limits):
    common.need("bwrap")
    with common.temporary() as name:
        place = pathlib.Path(name)
        for limit in limits:
            print(f"limit {limit}: refused in restart {first_refused(build, place, limit)}")
        if limits:
            return
        found = common.Findings()
        few = first_refused(build, place, 64)
        more = first_refused(build, place, 64 + 20 * KEPT_OPEN)
        found.check(few is not None, "no handle was refused at 64")
        found.check(few is not None and more == few + 20, f"restarts: {few} at 64, {more} at 124")
    found.finish()


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve(), [int(word) for word in sys.argv[2:]])
