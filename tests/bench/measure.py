"""Measures the programs and their peers and prints the tables of docs/performance.md.

usage: measure.py [--quick] BUILD_DIRECTORY

Programs that are compared run alternately in one run of this script; a ratio is ours
over theirs, of the minima and of the medians. --quick measures every figure once, to
check that all can be measured.
"""

import argparse
import collections
import ctypes
import json
import os
import pathlib
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
DAY = 86400
STARTING_TRIES = 100
PR_SET_CHILD_SUBREAPER = 36
MISSING_REGISTER = ["-rdreg", "0x20"]

Effort = collections.namedtuple(
    "Effort", "repetitions seconds_each starts idle_seconds idle_speed calls call_rounds days")
FULL = Effort(15, 0.05, 300, 20, 20, 200000, 7, 5)
QUICK = Effort(1, 0.0001, 3, 0.3, 100, 200, 1, 0.01)

LOOKUP_PEERS = [
    ("inih-each", "inih, the file once a key"),
    ("iniparser-each", "iniparser, the file once a key"),
    ("inih-once", "inih, the file once for all"),
    ("iniparser-once", "iniparser, the file once for all"),
]


class Sample:
    """Figures of one thing, measured several times."""

    def __init__(self, values):
        if not values or min(values) <= 0:
            raise SystemExit("a figure is missing")
        self.least = min(values)
        self.median = statistics.median(values)


def number(value):
    """Three digits that count, for a table."""
    if value >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def row(name, ours, theirs=None, peer="", unit=""):
    cells = [name, f"{number(ours.least)} / {number(ours.median)} {unit}"]
    if theirs is None:
        cells += ["", "", ""]
    else:
        cells += [peer, f"{number(theirs.least)} / {number(theirs.median)} {unit}",
                  f"{number(ours.least / theirs.least)} / {number(ours.median / theirs.median)}"]
    print("| " + " | ".join(cells) + " |")


def heading(title, ours="ours"):
    print(f"\n{title}\n")
    print(f"| what | {ours}, min / median | beside it | its min / median | ratio of min / of median |")
    print("|---|---|---|---|---|")


# ---- workloads in one process ---------------------------------------------------


def time_workloads(build, effort):
    """name -> Sample of processor time a run, in microseconds."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        subprocess.run(
            [build / "workloads", f"--benchmark_repetitions={effort.repetitions}",
             f"--benchmark_min_time={effort.seconds_each}", "--benchmark_enable_random_interleaving=true",
             f"--benchmark_out={out.name}", "--benchmark_out_format=json"],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        runs = json.load(open(out.name, encoding="utf-8"))["benchmarks"]
    times = collections.defaultdict(list)
    for run in runs:
        if run["run_type"] == "iteration":
            times[run["run_name"]].append(run["cpu_time"] / 1000)
    return {name: Sample(values) for name, values in times.items()}


def system_calls(build, workload):
    """Counter of the system calls of one run, without what starting takes; None where nothing can be traced."""
    counts = []
    for times in (1, 3):
        with tempfile.NamedTemporaryFile(mode="r", suffix=".strace") as out:
            command = [build / "workloads", "--calls", workload, str(times)]
            if subprocess.run(["strace", "-f", "-c", "-o", out.name, *command], check=False).returncode != 0:
                return None
            rows = re.findall(r"^\s*[\d.]+\s+[\d.]+\s+\d+\s+(\d+)(?:\s+\d+)?\s+(\w+)$", out.read(), re.MULTILINE)
        counts.append(collections.Counter({name: int(calls) for calls, name in rows if name != "total"}))
    return collections.Counter({name: round((counts[1][name] - counts[0][name]) / 2) for name in counts[1]})


def report_apply(build, times):
    heading("Configuration apply, waits taken out: processor time")
    for peer, meaning in (("calls", "its device calls alone"),
                          ("calls+messages", "its device calls and messages")):
        row("apply", times["apply/product"], times["apply/" + peer], meaning, "µs")
    kinds = (("product", "product"), ("calls", "its device calls alone"),
             ("calls+messages", "its device calls and messages"))
    counts = [shutil.which("strace") and system_calls(build, "apply/" + name) for name, _ in kinds]
    if None in counts:
        print("\n(System calls are not counted: strace is missing, or may not trace.)")
        return
    print("\n| system calls of an apply | device requests | opened, closed | messages | hd.ini | all |")
    print("|---|---|---|---|---|---|")
    for (_, meaning), calls in zip(kinds, counts):
        parts = [calls["ioctl"], calls["openat"] + calls["close"], calls["write"],
                 calls["read"] + calls["lseek"] + calls["newfstatat"]]
        print(f"| {meaning} | " + " | ".join(str(part) for part in parts) + f" | {sum(parts)} |")
    if counts[0]["ioctl"] != counts[1]["ioctl"] or counts[2]["write"] != counts[0]["write"]:
        raise SystemExit("the replay does not make the calls of the apply")


def report_lookups(times):
    heading("All keys of the table looked up in hd.ini: processor time")
    for lines in (40, 400, 4000):
        for peer, meaning in LOOKUP_PEERS:
            row(f"{lines} lines", times[f"lookup-{lines}/product"], times[f"lookup-{lines}/{peer}"], meaning, "µs")


def report_transfers(times):
    heading("Transfers of 16 KB: processor time")
    for name in ("upload", "bitstream"):
        row(name, times[name + "/product"], times[name + "/loop"], "a loop of the same system calls", "µs")


# ---- whole processes ----------------------------------------------------------------


def spend(command):
    """Processor and elapsed time of a program from start to end, in microseconds."""
    quiet = [(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0), (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0)]
    began = time.perf_counter()
    pid = os.posix_spawn(command[0], command, os.environ, file_actions=quiet)
    usage = os.wait4(pid, 0)[2]
    elapsed = time.perf_counter() - began
    return (usage.ru_utime + usage.ru_stime) * 1e6, elapsed * 1e6


def report_one_shot(build, effort):
    programs = {"ours": [str(build / "vantorig"), *MISSING_REGISTER]}
    i2cget = shutil.which("i2cget", path=os.environ["PATH"] + ":/usr/sbin:/sbin")
    if i2cget and not os.path.exists("/dev/i2c-1"):
        programs["`i2cget -y 1 0x5c 0x20`, no device"] = [i2cget, "-y", "1", "0x5c", "0x20"]
    busybox = shutil.which("busybox")
    if busybox and not os.path.exists("/dev/mem"):
        programs["`busybox devmem 0x20`, no device"] = [busybox, "devmem", "0x20"]
    programs["a program that does nothing, dynamic"] = [str(build / "empty_program")]
    programs["a program that does nothing, static"] = [str(build / "empty_static")]
    if len(programs) < 3:
        print("\n(Nothing that fails on a missing device stands beside -rdreg here.)")
    figures = {name: ([], []) for name in programs}
    for _ in range(effort.starts):
        for name, command in programs.items():
            for kept, figure in zip(figures[name], spend(command)):
                kept.append(figure)
    for index, title in ((0, "processor time"), (1, "elapsed time")):
        heading(f"One bench command (`-rdreg 0x20`, no device), start to exit: {title}")
        for name in list(programs)[1:]:
            row("-rdreg", Sample(figures["ours"][index]), Sample(figures[name][index]), name, "µs")


# ---- the service at rest ---------------------------------------------------------------


def children(pid):
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        for child in (task / "children").read_text().split():
            yield int(child)
            yield from children(int(child))


def find_service(launcher):
    """The process of the service below the launcher's; None when it is not there."""
    for pid in children(launcher):
        words = pathlib.Path(f"/proc/{pid}/cmdline").read_bytes().split(b"\0")
        if words[0].endswith(b"vantorig"):
            return pid
    return None


def activity(pid):
    """Processor seconds and voluntary switches of all threads so far."""
    cpu = 0.0
    switches = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        cpu += int((task / "schedstat").read_text().split()[0]) / 1e9
        switches += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", (task / "status").read_text(), re.MULTILINE)[1])
    return cpu, switches


def private_memory(pid):
    """(kB private to the program, kB private to the virtual board within it)."""
    sums = [0, 0]
    board = False
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().split("\n"):
        if re.match(r"^[0-9a-f]+-[0-9a-f]+ ", line):
            board = "libvboard" in line or "board.state" in line
        elif line.startswith(("Private_Clean:", "Private_Dirty:")):
            sums[board] += int(line.split()[1])
    return sums


def watch_service(pid, effort):
    before = activity(pid)
    time.sleep(effort.idle_seconds)
    after = activity(pid)
    board_seconds = effort.idle_seconds * effort.idle_speed
    cpu_a_day = (after[0] - before[0]) / board_seconds * DAY
    wake_ups = (after[1] - before[1]) / board_seconds
    program, board = private_memory(pid)
    if program <= 0:
        raise SystemExit("a figure is missing")
    return f"{number(cpu_a_day)} s | {wake_ups:.2f} | {program} kB | {board} kB"


def talk(melk, place, *words):
    """What melk says to these words; waits for the program on the board to come up."""
    for _ in range(STARTING_TRIES):
        result = subprocess.run([melk, "--timeout", "120", *words], cwd=place, check=False, capture_output=True, text=True)
        if result.returncode == 0:
            return result.stdout
        time.sleep(0.1)
    raise SystemExit(f"melk {words[0]}: {result.stderr}")


def report_idle(build, effort):
    print(f"\nThe service at rest, on the virtual board at {effort.idle_speed} times board speed\n")
    print("| state | processor time a board-day | wake-ups a board-second | private memory of the program | and of the virtual board in its process |")
    print("|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as place:
        launcher = subprocess.Popen(
            [build / "vboard", "run", "--speed", str(effort.idle_speed), "--", build / "vantorig", "-602"],
            cwd=place, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            talk(build / "melk", place, "sw-version")
            pid = find_service(launcher.pid)
            print("| no configuration yet | " + watch_service(pid, effort) + " |", flush=True)
            talk(build / "melk", place, "send-config", ROOT / "packaging/hd.ini")
            talk(build / "melk", place, "status")  # answered when all of it is applied
            time.sleep(60 / effort.idle_speed)  # until buffers and levels stand
            if "0x91" not in talk(build / "melk", place, "status"):
                raise SystemExit("the board does not stream")
            print("| streaming, supervised | " + watch_service(pid, effort) + " |", flush=True)
        finally:
            launcher.send_signal(signal.SIGTERM)
            launcher.wait()


# ---- the virtual board -------------------------------------------------------------------


def call_time(command, place):
    return float(subprocess.run(command, cwd=place, check=True, capture_output=True, text=True).stdout)


def report_calls(build, effort):
    heading("A device call: processor time", "on the virtual board")
    with tempfile.TemporaryDirectory() as place:
        on_board = [build / "vboard", "run", "--virtual"]
        trace = ["--trace", os.path.join(place, "trace")]
        program = build / "device_calls"
        for what, name in (("fpga", "register read of the FPGA"), ("i2c", "register read on the I2C bus")):
            plain, emulated, traced = [], [], []
            for _ in range(effort.call_rounds):
                call = [program, what, str(effort.calls)]
                plain.append(call_time([*call, "/dev/null"], place))
                emulated.append(call_time([*on_board, "--", *call], place))
                traced.append(call_time([*on_board, *trace, "--", *call], place))
                os.unlink(trace[1])
            row(name, Sample(emulated), Sample(plain), "the bare system call on /dev/null", "ns")
            row(name + ", traced", Sample(traced), Sample(plain), "the bare system call on /dev/null", "ns")


def spend_with_orphans(command, place):
    """As spend(), for a program whose grandchildren outlive their parents."""
    began = time.perf_counter()
    subprocess.run(command, cwd=place, check=True, stdout=subprocess.DEVNULL)
    elapsed = time.perf_counter() - began
    while True:
        try:
            os.wait()
        except ChildProcessError:
            return elapsed


def report_days(build, effort):
    print("\nBoard-days a second, the service configured and streaming, virtual time, on one core\n")
    print("| run | board-days a second of processor time | a second |")
    print("|---|---|---|")
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    cores = os.sched_getaffinity(0)
    os.sched_setaffinity(0, {min(cores)})  # threads that run in turns only wake the other core
    for name, with_trace in (("without a trace", False), ("with a trace", True)):
        with tempfile.TemporaryDirectory() as place:
            script = pathlib.Path(place, "script")
            script.write_text(f"at 3s melk send-config {ROOT}/packaging/hd.ini\n", encoding="utf-8")
            command = [build / "vboard", "run", "--virtual", "--for", f"{effort.days}d", "--script", script]
            if with_trace:
                command += ["--trace", os.path.join(place, "trace")]
            before = os.times()
            elapsed = spend_with_orphans([*command, "--", build / "vantorig", "-602"], place)
            after = os.times()
            cpu = after.children_user - before.children_user + after.children_system - before.children_system
            if cpu <= 0:
                raise SystemExit("a figure is missing")
            print(f"| {name} | {effort.days / cpu:.2f} | {effort.days / elapsed:.2f} |")
    os.sched_setaffinity(0, cores)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("--quick", action="store_true", help="take every figure once")
    parser.add_argument("build", type=pathlib.Path)
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    effort = QUICK if arguments.quick else FULL
    times = time_workloads(build, effort)
    report_apply(build, times)
    report_lookups(times)
    report_transfers(times)
    report_one_shot(build, effort)
    report_idle(build, effort)
    report_calls(build, effort)
    report_days(build, effort)


if __name__ == "__main__":
    sys.stdout.reconfigure(line_buffering=True)
    main()
