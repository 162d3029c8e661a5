"""What goes to a board as a whole: the tarball, at two boots; and chips of the
emulator's own behind a real bus driver."""

import pathlib

import compare
import machine
import service

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
    good = "0x47" in outcome.console.split("./")[-1]
    print(outcome.console)
    return good


# The root of the board in flash memory; what the tarball does not hold is put beside.
ROOT = """\
vboard-kernel flash $board && mount -t ubifs ubi0:home /mnt || switch_off
if [ ! -e /mnt/etc/init.d/S90vantorig ]; then
  tar -xzf /job/board.tar.gz -C /mnt
  cp -a /bin /mnt/bin
  mkdir -p /mnt/dev /mnt/proc /mnt/run /mnt/tmp
  cp -a /etc/passwd /etc/group /mnt/etc
  cp -a /home/tovin/encode /mnt/home/tovin
fi
for one in dev proc run; do mount --bind /$one /mnt/$one; done
chroot /mnt /etc/init.d/S90vantorig start
sleep 3
vboard-kernel melk $board send-config /job/config.ini
sleep 40
vboard-kernel melk $board status
chroot /mnt /etc/init.d/S90vantorig status
ls /mnt/home/tovin
chroot /mnt /etc/init.d/S90vantorig stop
umount /mnt/dev /mnt/proc /mnt/run
umount /mnt
"""


def tarball(kind):
    made = sorted((compare.ROOT / "out").glob("vantorig-*-board-armv5te.tar.gz"))
    if not made:
        raise SystemExit("no tarball in out/: ./package board")
    files = [("job/board.tar.gz", made[-1], False), ("job/config.ini", service.CONFIGURATION, False)]
    with machine.tempfile.TemporaryDirectory() as work:
        disk = pathlib.Path(work) / "disk"
        machine.blank(kind, disk)
        good = True
        for number in (1, 2):
            outcome = machine.boot(kind, ROOT, files, disk=disk)
            healthy = service.statuses(outcome.console) == ["0x91 0x80"]
            runs = "S90vantorig: runs, process" in outcome.console
            print(f"boot {number}: {'healthy' if healthy and runs else outcome.console}")
            good = good and healthy and runs
    return good
