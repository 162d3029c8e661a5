"""Chips of the emulator's own behind a real bus driver."""

import compare
import machine

# The bus of the emulated machine, bit by bit over two lines, has number 0 there.
CHIPS = """\
rm /dev/i2c-1
ln -s i2c-0 /dev/i2c-1
./vantorig -5150rw 0 0x10 0x47
./vantorig -5150rw 1 0x10
./vantorig -5150rw 1 0x11
./vantorig -vblk_rw 1 0x40
"""
# A clock with 56 bytes of memory at the address of the video decoder.
CHIP = ["-device", "ds1338,address=0x5d"]


def chips(kind):
    program = ("home/tovin/vantorig", compare.ROOT / "build-arm" / "vantorig", True)
    outcome = machine.boot(kind, CHIPS, [program], deliver=False, emulator=CHIP)
    good = "\nreg 0x10=0x47\nreg 0x11=0x0\n" in outcome.console
    print("chips: what was written reads back" if good else outcome.console)
    return good
