#!/usr/bin/env python3
"""Emulated boards: a real kernel on an emulated ARM processor, with the board's
devices behind character devices in user space, and the shipped program unmodified.

  debian   Debian's own ARM kernel on a Raspberry Pi Zero; nothing is compiled but
           one small module
  arm926   the board's own processor, and a kernel of our own configuration from
           Debian's sources; compiling it takes some minutes, once

All that is needed comes from Debian's packages, which are unpacked, not installed.
What is made lies in build/kernel and is made once.
"""

import argparse
import gzip
import hashlib
import io
import os
import pathlib
import re
import shutil
import signal
import stat
import subprocess
import sys
import tarfile
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
PLACE = ROOT / "build" / "kernel"
CANNOT = 77  # exit status: what is needed cannot be had here
CROSS = ["ARCH=arm", "CROSS_COMPILE=arm-linux-gnueabi-"]


class Missing(Exception):
    """What is needed cannot be had on this machine."""


def run(*command, **options):
    """Runs a quiet command; shows what it said when it fails."""
    done = subprocess.run(
        [str(word) for word in command],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
        **options,
    )
    if done.returncode != 0:
        sys.stderr.write(done.stdout)
        raise SystemExit(f"failed: {' '.join(str(word) for word in command)}")
    return done.stdout


# ---- Debian's packages ----------------------------------------------------------


def ask_apt(*command, **options):
    """What apt says; as root, once more after it has fetched its lists."""
    for fetch_lists in (False, True):
        if fetch_lists and (os.geteuid() != 0 or ask_apt.fetched):
            break
        if fetch_lists:
            ask_apt.fetched = True
            subprocess.run(["dpkg", "--add-architecture", "armel"], check=False)
            subprocess.run(["apt-get", "-q", "update"], stdout=subprocess.DEVNULL, check=False)
        done = subprocess.run(
            command,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            check=False,
            **options,
        )
        if done.returncode == 0 and done.stdout.strip():
            break
    return done.stdout


ask_apt.fetched = False


def depends(package, pattern):
    """The dependency of a package whose name begins in this way."""
    found = re.search(rf"Depends: ({pattern}\S*)", ask_apt("apt-cache", "depends", package))
    if found is None:
        raise Missing(f"apt knows no {package}")
    return found.group(1)


def package_file(package):
    """A package as it lies in the cache, fetched when it does not."""
    place = PLACE / "packages"
    place.mkdir(parents=True, exist_ok=True)
    name = package.split(":")[0]
    said = ""
    if not list(place.glob(f"{name}_*.deb")):
        said = ask_apt("apt-get", "-q", "download", package, cwd=place)
    for file in place.glob(f"{name}_*.deb"):
        return file
    raise Missing(f"{package} cannot be had:\n{said.strip()}")


def unpack(packages, to):
    """Unpacks packages into a directory, once."""
    stamp = to / "unpacked"
    names = "\n".join(packages)
    if stamp.exists() and stamp.read_text() == names:
        return
    files = [package_file(package) for package in packages]
    shutil.rmtree(to, ignore_errors=True)
    to.mkdir(parents=True)
    for file in files:
        run("dpkg-deb", "-x", file, to)
    stamp.write_text(names)


# ---- the archive that a kernel unpacks at its start ------------------------------


def archive(entries):
    """A cpio archive, packed: entries are (path, mode, bytes)."""
    made = {}

    def add(path, mode, data):
        parent = os.path.dirname(path)
        if parent and parent not in made:
            add(parent, stat.S_IFDIR | 0o755, b"")
        made[path] = (mode, data)

    for path, mode, data in entries:
        add(path, mode, data)
    out = io.BytesIO()

    def put(path, mode, data, inode):
        name = path.encode() + b"\0"
        fields = (inode, mode, 0, 0, 1, 0, len(data), 0, 0, 0, 0, len(name), 0)
        out.write(b"070701" + b"".join(b"%08x" % field for field in fields) + name)
        out.write(b"\0" * (-out.tell() % 4) + data)
        out.write(b"\0" * (-out.tell() % 4))

    for inode, (path, (mode, data)) in enumerate(made.items(), 1):
        put(path, mode, data, inode)
    put("TRAILER!!!", 0, b"", 0)
    return gzip.compress(out.getvalue(), 1, mtime=0)


def file_entry(path, source, executable=False):
    data = source if isinstance(source, bytes) else pathlib.Path(source).read_bytes()
    return path, stat.S_IFREG | (0o755 if executable else 0o644), data


# ---- machines ---------------------------------------------------------------------


class Machine:
    """What kinds of machines have in common."""

    name = ""
    emulator = []
    command_line = "console=ttyAMA0 quiet rdinit=/init"
    modules = []
    script = ""  # /etc/machine
    disk_size = 16 << 20

    def __init__(self):
        self.place = PLACE / self.name
        self.prepare()
        self.base = self.place / "base.cpio.gz"
        self.make_base()

    def prepare(self):
        """Fetches and builds the kernel."""
        raise NotImplementedError

    def module(self, path):
        """A module of the kernel."""
        raise NotImplementedError

    def build_bus(self, tree, *more):
        """The bus module, for the kernel whose build tree this is."""
        place = self.place / "bus"
        source = (HERE / "bus_module.c").read_bytes()
        built = place / "vboard_bus.ko"
        if not built.exists() or (place / "bus_module.c").read_bytes() != source:
            shutil.rmtree(place, ignore_errors=True)
            place.mkdir(parents=True)
            (place / "bus_module.c").write_bytes(source)
            (place / "Kbuild").write_text("obj-m := vboard_bus.o\nvboard_bus-y := bus_module.o\n")
            run("make", "-C", tree, f"M={place}", *CROSS, *more, "modules")
            run("arm-linux-gnueabi-strip", "--strip-debug", built)
        return built

    def make_base(self):
        """The part of the file system that all runs share."""
        busybox = PLACE / "busybox"
        unpack(["busybox-static:armel"], busybox)
        static = ROOT / "build-arm-glibc"
        entries = [
            file_entry("init", HERE / "init", True),
            file_entry("bin/busybox", busybox / "bin/busybox", True),
            file_entry("bin/vboard-kernel", static / "vboard-kernel", True),
            file_entry("etc/machine", self.script.encode()),
            # The program reads a size behind the "t" of root in what ls prints.
            file_entry("etc/passwd", b"root:x:0:0:root:/home/tovin:/bin/sh\n"),
            file_entry("etc/group", b"root:x:0:\n"),
            file_entry("lib/vboard_bus.ko", self.bus),
            file_entry("home/tovin/encode", static / "vboard-kernel-encode", True),
        ]
        for path in self.modules:
            name = os.path.basename(path)
            entries.append(file_entry(f"lib/{name}.ko", self.module(path)))
        for folder in ("proc", "sys", "dev", "run", "tmp", "mnt"):
            entries.append((folder, stat.S_IFDIR | 0o755, b""))
        digest = hashlib.sha256(repr(entries).encode()).hexdigest()
        stamp = self.place / "base.sum"
        if self.base.exists() and stamp.exists() and stamp.read_text() == digest:
            return
        self.base.write_bytes(archive(entries))
        stamp.write_text(digest)

    def command(self, initrd, more_arguments="", memory=None):
        words = ["qemu-system-arm", *self.emulator, "-nic", "none", "-display", "none"]
        if memory is not None:
            words += ["-m", memory]
        words += ["-no-reboot", "-kernel", str(self.kernel), "-dtb", str(self.tree_file)]
        words += ["-initrd", str(initrd)]
        return words + ["-append", f"{self.command_line} {more_arguments}".strip()]


class Debian(Machine):
    """Debian's kernel for the Raspberry Pi Zero."""

    name = "debian"
    emulator = ["-M", "raspi0"]
    # The power driver waits for a part that the emulator lacks.
    command_line = Machine.command_line + " initcall_blacklist=bcm2835_power_driver_init"
    modules = [
        "fs/fuse/fuse",
        "fs/fuse/cuse",
        "drivers/i2c/i2c-dev",
        "lib/crc16",
        "fs/mbcache",
        "crypto/crc32c_generic",
        "fs/jbd2/jbd2",
        "fs/ext4/ext4",
    ]
    script = """\
modules="fuse cuse i2c-dev"
disk=/dev/mmcblk0
free_bus() { echo 20804000.i2c >/sys/bus/platform/drivers/i2c-bcm2835/unbind; }
need_ext4() { for one in crc16 mbcache crc32c_generic jbd2 ext4; do insmod /lib/$one.ko 2>/dev/null; done; }
switch_off() { deliver; poweroff -f; }
"""

    def prepare(self):
        image = depends("linux-image-rpi:armel", "linux-image-")
        headers = depends("linux-headers-rpi:armel", "linux-headers-")
        version = re.match(r"linux-image-((\d+\.\d+)\.[^:]*)-rpi", image)
        if version is None:
            raise Missing(f"{image} is no kernel of a known name")
        self.unpacked = self.place / "packages"
        build_tools = f"linux-kbuild-{version.group(2)}"
        common = f"linux-headers-{version.group(1)}-common"
        unpack([image, headers, common, build_tools], self.unpacked)
        self.release = f"{version.group(1)}-rpi"
        self.kernel = self.unpacked / "boot" / f"vmlinuz-{self.release}"
        trees = self.unpacked / "usr/lib" / f"linux-image-{self.release}"
        self.tree_file = trees / "bcm2835-rpi-zero.dtb"
        sources = self.unpacked / "usr/src"
        headers_place = sources / f"linux-headers-{self.release}"
        # Its makefile names the place where the package would be installed.
        (headers_place / "Makefile").write_text(
            f"include {sources}/linux-headers-{version.group(1)}-common/Makefile\n"
        )
        self.bus = self.build_bus(headers_place, "CC=arm-linux-gnueabi-gcc")

    def module(self, path):
        return self.unpacked / "lib/modules" / self.release / "kernel" / f"{path}.ko"

    def disk(self, image):
        return ["-drive", f"if=sd,format=raw,file={image}"]


class Arm926(Machine):
    """The board's own processor, with a kernel of our own configuration."""

    name = "arm926"
    emulator = ["-M", "versatilepb", "-cpu", "arm926", "-audiodev", "none,id=none"]
    script = """\
modules=
disk=/dev/mtdblock0
free_bus() { :; }
switch_off() { deliver; reboot -f; }
"""
    # The first part of the flash memory is the board's.
    disk_size = 64 << 20
    disk_used = 16 << 20
    command_line = Machine.command_line + " mtdparts=34000000.flash:16m(home),-(rest)"

    def prepare(self):
        source = self.place / "source"
        unpack(["linux-source-6.1"], source)
        tree = source / "linux-source-6.1"
        if not (tree / "Makefile").exists():
            run("tar", "-xJf", source / "usr/src/linux-source-6.1.tar.xz", "-C", source)
        build = self.place / "build"
        self.kernel = build / "arch/arm/boot/zImage"
        self.tree_file = build / "arch/arm/boot/dts/versatile-pb.dtb"
        config = HERE / "arm926.config"
        used = build / "used.config"
        if not used.exists() or used.read_bytes() != config.read_bytes():
            for program in ("flex", "bison", "bc"):
                if shutil.which(program) is None:
                    raise Missing(f"{program} is not installed")
            build.mkdir(exist_ok=True)
            make = ["make", "-s", "-C", tree, f"O={build}", *CROSS]
            run(*make, f"KCONFIG_ALLCONFIG={config}", "allnoconfig")
            print("Building the kernel; it takes some minutes.", flush=True)
            run("nice", *make, f"-j{os.cpu_count()}", "zImage", "modules", "dtbs")
            shutil.copy(config, used)
        self.bus = self.build_bus(build)

    def module(self, path):
        raise AssertionError(path)

    # Its controller for memory cards finds none, so results go out by flash memory.
    def disk(self, image):
        return ["-drive", f"if=pflash,format=raw,file={image}"]


MACHINES = {machine.name: machine for machine in (Debian, Arm926)}


def machine(name):
    if shutil.which("qemu-system-arm") is None:
        raise Missing("qemu-system-arm is not installed")
    return MACHINES[name]()


def blank(kind, path):
    """A disk as it comes from its maker: erased where flash memory is the board's."""
    with open(path, "wb") as made:
        made.write(b"\xff" * getattr(kind, "disk_used", 0))
        made.truncate(kind.disk_size)


# ---- runs ---------------------------------------------------------------------------


class Outcome:
    """What a run left: the console's text and the files of its disk."""

    def __init__(self, console, disk):
        self.console = console
        self.files = {}
        if disk is None:
            return
        try:
            with tarfile.open(disk, "r:") as tape:
                for member in tape:
                    if member.isfile():
                        name = member.name.removeprefix("./")
                        self.files[name] = tape.extractfile(member).read()
        except tarfile.TarError:
            pass  # the run never came to its end: the console tells

    def text(self, name):
        return self.files.get(name, b"").decode(errors="replace")


# Idle time is skipped, and the same job gives the same run.
STEADY = ["-icount", "shift=2,sleep=off"]


def boot(kind, job, files=(), *, disk=None, deliver=True, steady=True, limit_s=600, **options):
    """Runs a job, the text of a shell script, on a machine.

    files: (path, bytes or file, executable) beside those of the base. disk: an image
    to be seen as the machine's disk, in place of the one that results go out on.
    """
    with tempfile.TemporaryDirectory(prefix="vboard-kernel-") as work:
        initrd = pathlib.Path(work) / "initrd"
        entries = [file_entry(*file) for file in files] + [file_entry("job/run", job.encode())]
        initrd.write_bytes(kind.base.read_bytes() + archive(entries))
        words = kind.command(initrd, options.get("more", ""), options.get("memory"))
        words += STEADY if steady else []
        image = disk
        if disk is None and deliver:
            image = pathlib.Path(work) / "disk"
            blank(kind, image)
        if image is not None:
            words += kind.disk(image)
        words += ["-serial", "stdio", "-monitor", "none", *options.get("emulator", [])]
        console = run_emulator(words, limit_s)
        return Outcome(console, image if disk is None and deliver else None)


def run_emulator(words, limit_s):
    with subprocess.Popen(
        words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    ) as emulator:
        try:
            out, _ = emulator.communicate(timeout=limit_s)
        except subprocess.TimeoutExpired:
            emulator.send_signal(signal.SIGKILL)
            out, _ = emulator.communicate()
            out += b"\n[the emulator was stopped: it took too long]\n"
    return out.decode(errors="replace").replace("\r\n", "\n")


# ---- for people -----------------------------------------------------------------------


def main():
    parser = argparse.ArgumentParser(description="Runs a command on an emulated board.")
    parser.add_argument("--machine", choices=MACHINES, default="debian")
    parser.add_argument("command", nargs="*")
    options = parser.parse_args()
    kind = machine(options.machine)
    print(kind.kernel, options.command)


if __name__ == "__main__":
    try:
        main()
    except Missing as reason:
        print(f"Skipped: {reason}")
        sys.exit(CANNOT)
