"""`melk watch` on a terminal: what it draws, how it follows a new size, and that
the terminal is as it was afterwards, however the watch ends."""

import fcntl
import os
import pty
import select
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time

PATIENCE = 60  # seconds until a test that hangs has failed
ENTER = b"\033[?1049h\033[?25l"
LEAVE = b"\033[?25h\033[?1049l"


class Board:
    """The service on a board of its own, twenty board seconds a second."""

    def __init__(self, vboard, vantorig):
        self.place = tempfile.TemporaryDirectory()
        self.log = open(self.place.name + "/service.log", "w+", encoding="utf-8")
        self.run = subprocess.Popen([vboard, "--board", self.place.name + "/board", "run", "--speed", "20",
                                     "--", vantorig, "-602"], stdout=self.log, stderr=subprocess.STDOUT)

    def directory(self):
        return self.place.name + "/board"

    def end(self):
        self.run.terminate()
        self.run.wait()
        self.log.close()
        self.place.cleanup()


class Watch:
    """melk watch at the far end of a pseudo-terminal."""

    def __init__(self, melk, board, rows=24, columns=80, term="xterm"):
        self.master, self.slave = pty.openpty()
        self.resize(rows, columns)
        self.before = termios.tcgetattr(self.slave)
        self.seen = b""

        def take_terminal():
            os.setsid()
            fcntl.ioctl(self.slave, termios.TIOCSCTTY, 0)

        self.process = subprocess.Popen(
            [melk, "--board", board, "watch", "--interval", "2"], stdin=self.slave, stdout=self.slave,
            stderr=self.slave, env={**os.environ, "TERM": term}, preexec_fn=take_terminal)

    def resize(self, rows, columns):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def until(self, text):
        """Reads what is drawn until the text has come; returns what came with it."""
        limit = time.monotonic() + PATIENCE
        begin = len(self.seen)
        while text not in self.seen[begin:]:
            if time.monotonic() > limit:
                raise AssertionError(f"{text} never came; seen: {self.seen[begin:]}")
            if select.select([self.master], [], [], 0.2)[0]:
                self.seen += os.read(self.master, 65536)
        return self.seen[begin:]

    def ended(self):
        """The exit status, as subprocess gives it."""
        status = self.process.wait(PATIENCE)
        while select.select([self.master], [], [], 0)[0]:
            self.seen += os.read(self.master, 65536)
        return status

    def as_before(self):
        return termios.tcgetattr(self.slave) == self.before

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        os.close(self.master)
        os.close(self.slave)


def frames(drawn):
    """Lines of each frame that was drawn whole, without colours."""
    for frame in drawn.split(b"\033[H")[1:]:
        if b"\033[J" not in frame:
            continue
        text = frame.split(b"\033[J")[0]
        for code in (b"\033[0m", b"\033[1m", b"\033[31m", b"\033[32m", b"\033[K"):
            text = text.replace(code, b"")
        yield text.decode().replace("\r\r", "\r").split("\r\n")


def expect(true, what):
    if not true:
        raise AssertionError(what)


def panel_is_drawn_and_quit_by_key(watch):
    drawn = watch.until(b"Restarts seen 0")
    drawn += watch.until(b"Audio buffer")
    expect(drawn.startswith(ENTER), f"the screen is not taken: {drawn[:40]}")
    expect(not watch.as_before(), "keys are not read singly")
    lines = list(frames(drawn + watch.until(b"\033[J")))[-1]
    expect(lines[0].startswith("melk watch  "), lines)
    expect(any(line.startswith("Input         component") for line in lines), lines)
    os.write(watch.master, b"q")
    expect(watch.ended() == 0, "q is no failure")
    expect(watch.seen.count(LEAVE) == 1, "the screen is not given back once")
    last = watch.seen.split(LEAVE)[1]
    expect(b" status 0x90 not healthy" in last, f"no last reading behind the panel: {last}")


def new_size_is_followed(watch):
    watch.until(b"Audio buffer")
    watch.resize(6, 30)
    watch.until(b"\033[J")
    limit = time.monotonic() + PATIENCE
    while True:
        lines = list(frames(watch.until(b"\033[J")))[-1:]
        if lines and len(lines[0]) == 6 and max(map(len, lines[0])) == 30:
            break
        expect(time.monotonic() < limit, f"never drawn at 6 by 30: {lines}")
    os.write(watch.master, b"q")
    expect(watch.ended() == 0, "q is no failure")


def interrupt_gives_the_terminal_back(watch):
    watch.until(b"Audio buffer")
    os.write(watch.master, b"\x03")
    expect(watch.ended() == 0, "^C ends the watch as q does")
    expect(LEAVE in watch.seen, "the screen is not given back")


def termination_gives_the_terminal_back(watch):
    watch.until(b"Audio buffer")
    watch.process.terminate()
    expect(watch.ended() == -signal.SIGTERM, "the signal is not passed on")
    expect(watch.seen.endswith(LEAVE), "the screen is not given back")


def dumb_terminal_gets_lines(watch):
    watch.until(b"flags 0x")
    expect(b"\033" not in watch.seen, "escape sequences on a dumb terminal")
    watch.process.terminate()
    watch.ended()


CASES = [panel_is_drawn_and_quit_by_key, new_size_is_followed, interrupt_gives_the_terminal_back,
         termination_gives_the_terminal_back, dumb_terminal_gets_lines]


def answers(melk, board):
    """Until the service has come up."""
    limit = time.monotonic() + PATIENCE
    while subprocess.run([melk, "--board", board, "hd-version"], capture_output=True, check=False).returncode != 0:
        expect(time.monotonic() < limit, "the service never answered")


def main(melk, vboard, vantorig):
    board = Board(vboard, vantorig)
    failed = 0
    try:
        answers(melk, board.directory())
        for case in CASES:
            watch = Watch(melk, board.directory(), term="dumb" if case is dumb_terminal_gets_lines else "xterm")
            try:
                case(watch)
                expect(watch.as_before(), "the terminal is not as it was")
            except AssertionError as problem:
                print(f"{case.__name__}: {problem}")
                failed += 1
            finally:
                watch.close()
    finally:
        board.end()
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4]))
