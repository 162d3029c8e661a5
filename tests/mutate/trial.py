"""Builds the product with a change and runs the tests, the cheapest ones first."""

import concurrent.futures
import dataclasses
import json
import os
import pathlib
import shlex
import shutil
import subprocess
import threading

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDERS = ["app", "supervision", "hostlink", "diag", "config", "audio", "video", "hw", "state"]
LAYERS = ["unit", "service", "command"]
MAIN = "app/main.cpp"  # the program alone has it


class Stillborn(Exception):
    """The changed product does not compile."""


@dataclasses.dataclass
class Verdict:
    """What became of a change: "killed", "survived" or "stillborn"; by which stage and test."""

    end: str
    stage: str = ""
    test: str = ""


LINKER = ["-fuse-ld=lld"] if shutil.which("ld.lld") else []  # the quicker one


def run(command, **more):
    return subprocess.run(command, capture_output=True, text=True, check=False, **more)


def must(command, **more):
    done = run(command, **more)
    if done.returncode != 0:
        raise RuntimeError(f"{shlex.join(map(str, command))}\n{done.stdout}{done.stderr}")
    return done.stdout


def exported(library):
    """Names that a library gives to others."""
    return set(must(["nm", "-D", "--defined-only", "--format=just-symbols", library]).split())


class Base:
    """The unchanged build: objects by source, what each depends on, and the stages' executables."""

    def __init__(self, place, layers, jobs, told=print):
        self.place = place
        self.told = told
        self.layers = layers
        self.jobs = jobs
        self._build()
        self._read()
        self._link()

    # ---- the build by CMake ------------------------------------------------------

    def _build(self):
        self.told(f"building in {self.place}")
        must(
            [
                "cmake", "-S", ROOT, "-B", self.place, "-G", "Ninja", "-DVANTORIG_TESTS=ON",
                "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O2 -g0",
                "-DCMAKE_POSITION_INDEPENDENT_CODE=ON",
            ]
        )  # fmt: skip
        self.stages = [f"unit_{folder}" for folder in FOLDERS if (ROOT / "tests/unit" / folder).is_dir()]
        if "service" in self.layers:
            self.stages.append("service_tests")
        targets = self.stages + ["tests_apart"]
        if "command" in self.layers:
            targets.append("command_tests")
        must(["ninja", "-C", self.place, f"-j{self.jobs}", "vantorig"] + targets)
        if "command" in self.layers:
            self.stages.append("command_tests")

    def _read(self):
        entries = json.loads((self.place / "compile_commands.json").read_text())
        self.entries = {}  # object, from the build directory: (source, command)
        for entry in entries:
            command = shlex.split(entry["command"])
            built = command[command.index("-o") + 1]
            if built.endswith(".o"):  # no precompiled header
                self.entries[built] = (entry["file"], command)
        self.needs = self._dependencies()
        self.product = self._objects("product", "vantorig-main")
        self.library = [one for one in self.product if not self.entries[one][0].endswith(MAIN)]
        self.objects, self.libraries = {}, {}
        for stage in self.stages:
            self.objects[stage], self.libraries[stage] = self._parts(stage)

    def _parts(self, stage):
        """What CMake links a stage of: objects, those of the tree's archives too, and the machine's libraries."""
        words = shlex.split(must(["ninja", "-C", self.place, "-t", "commands", stage]).splitlines()[-1])
        objects, libraries = self._objects("tests_apart"), []
        for word in words:
            name = pathlib.PurePath(word).name
            if word in self.entries and word not in self.product:
                objects.append(word)
            elif name.endswith(".a") and not word.startswith("/"):
                objects += self._objects(name[len("lib") : -len(".a")])
            elif (name.endswith((".a", ".so")) or word.startswith("-l")) and "gtest_main" not in name:
                libraries.append(word)
        return list(dict.fromkeys(objects)), libraries

    def _objects(self, *targets):
        return [one for one in self.entries if any(f"/{target}.dir/" in one for target in targets)]

    def _dependencies(self):
        """Files of the tree that each object was made from."""
        needs, current = {}, None
        for line in must(["ninja", "-C", self.place, "-t", "deps"]).splitlines():
            if line and not line.startswith(" "):
                current = needs.setdefault(line.split(":")[0], set())
            elif current is not None and line.strip():
                path = (self.place / line.strip()).resolve()
                if path.is_relative_to(ROOT):
                    current.add(str(path.relative_to(ROOT)))
        return needs

    # ---- linking -------------------------------------------------------------------

    def link_library(self, objects, out):
        must(["g++", "-shared", *LINKER, "-Wl,-soname,libproduct.so", "-o", out] + objects, cwd=self.place)

    def link_program(self, objects, out):
        must(["gcc", *LINKER, "-Wl,--gc-sections", "-o", out] + objects, cwd=self.place)

    def link_stage(self, stage, objects, library, out):
        product = [] if stage == "command_tests" else [str(library)]
        must(["g++", *LINKER, "-o", out] + objects + product + self.libraries[stage], cwd=self.place)

    def _link(self):
        self.home = self.place / "apart"
        self.home.mkdir(exist_ok=True)
        library = self.home / "libproduct.so"
        self.link_library(self.library, library)
        for stage in self.stages:
            self.link_stage(stage, self.objects[stage], library, self.home / stage)
        self._check_that_the_library_is_taken()
        self.exported = exported(library)
        shutil.copy2(self.place / "vantorig", self.home / "vantorig")
        self.times = {}
        for stage in self.stages:
            record = self.home / f"{stage}.times"
            done = run_stage(self, stage, self.home, [f"--record={record}"])
            if done.returncode != 0:
                raise RuntimeError(f"{stage} fails as it is:\n{done.stdout}{done.stderr}")
            self.times[stage] = sum(float(line.split()[1]) for line in record.read_text().splitlines())
        self.told("tests as they are: " + ", ".join(f"{one} {self.times[one]:.1f} s" for one in self.stages))

    def _check_that_the_library_is_taken(self):
        """Else every change would survive."""
        other = self.place / "elsewhere"
        other.mkdir(exist_ok=True)
        shutil.copy2(self.home / "libproduct.so", other / "libproduct.so")
        environment = dict(os.environ, LD_LIBRARY_PATH=str(other), LD_TRACE_LOADED_OBJECTS="1")
        if str(other / "libproduct.so") not in must([self.home / self.stages[0]], env=environment):
            raise RuntimeError("the tests do not take the library of the changed product")

    def stages_for(self, path):
        """Cheapest first: the folder's own tests, the other units, service, command."""
        if path == MAIN:
            return [stage for stage in self.stages if stage == "command_tests"]
        own = f"unit_{path.split('/')[0]}"
        units = sorted((one for one in self.stages if one.startswith("unit_")), key=lambda one: self.times[one])
        units.sort(key=lambda one: one != own)
        return units + [one for one in self.stages if not one.startswith("unit_")]


def run_stage(base, stage, library_place, options):
    """Runs a stage's executable: the changed one beside the library if there is one."""
    own = library_place / stage
    program = own if own.exists() else base.home / stage
    command = [str(program)] + options
    environment = dict(os.environ, LD_LIBRARY_PATH=str(library_place))
    if stage == "command_tests":  # brings a sandbox of its own
        return run(command + [f"--jobs={base.jobs}"], env=environment)
    # A changed path or command must not reach the machine.
    sandbox = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp"]
    for place in (ROOT, base.place):
        sandbox += ["--ro-bind", str(place), str(place)]
    if any(option.startswith("--record=") for option in options):
        sandbox += ["--bind", str(base.home), str(base.home)]
    sandbox += ["--unshare-pid", "--unshare-net", "--unshare-ipc", "--die-with-parent"]
    return run(sandbox + command, env=environment)


class Trial:
    """One changed tree at a time, in a directory of its own."""

    program_lock = threading.Lock()  # the command tests know one place of the program

    def __init__(self, base, place):
        self.base = base
        self.place = place

    def _command(self, built, changed):
        """The compiler's call for an object of the changed tree, and where it lands."""
        source, command = self.base.entries[built]
        path = str(pathlib.Path(source).relative_to(ROOT)) if pathlib.Path(source).is_relative_to(ROOT) else source
        out = self.place / built
        out.parent.mkdir(parents=True, exist_ok=True)
        kept, skip = [], 0
        for word in command:
            if skip:
                skip -= 1
            elif word in ("-MT", "-MF", "-o"):
                skip = 1
            elif word not in ("-MD", "-Werror", "-c", source) and not word.endswith("ccache"):
                kept.append("-O0" if word == "-O2" and built in self.base.product else word)
        text = str(self.place / "tree" / path) if path in changed else source
        return kept[:1] + [f"-I{self.place / 'tree'}"] + kept[1:] + ["-w", "-c", text, "-o", str(out)], out

    def _compiled(self, objects, changed):
        """The objects with those that a change touches made anew. Gives (objects, any new)."""
        result, calls = [], []
        for built in objects:
            if self.base.needs.get(built, set()).isdisjoint(changed):
                result.append(built)
                continue
            if built not in self.made:
                command, out = self._command(built, changed)
                calls.append(command)
                self.made[built] = str(out)
            result.append(self.made[built])
        with concurrent.futures.ThreadPoolExecutor(self.base.jobs) as pool:
            for done in pool.map(lambda call: run(call, cwd=self.base.place), calls):
                if done.returncode != 0:
                    raise Stillborn(done.stderr)
        return result, result != list(objects)

    def judge(self, changed):
        """`changed`: {path: text} of the files that differ."""
        shutil.rmtree(self.place, ignore_errors=True)
        for path, text in changed.items():
            file = self.place / "tree" / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        self.made = {}
        try:
            return self._judge(set(changed))
        except Stillborn:
            return Verdict("stillborn")

    def compiles(self, changed):
        """As judge, but without the tests."""
        shutil.rmtree(self.place, ignore_errors=True)
        for path, text in changed.items():
            file = self.place / "tree" / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        self.made = {}
        try:
            self._compiled(self.base.product, set(changed))
        except Stillborn:
            return Verdict("stillborn")
        return Verdict("untried")

    def _judge(self, changed):
        base = self.base
        objects, _ = self._compiled(base.library, changed)
        library = self.place / "libproduct.so"
        base.link_library(objects, library)
        if base.exported - exported(library):  # would not link
            raise Stillborn
        path = sorted(changed)[0]
        first = f"test_{pathlib.Path(path).stem}.cpp"
        for stage in base.stages_for(path):
            if stage == "command_tests":
                done = self._run_command_tests(changed)
            else:
                objects, new = self._compiled(base.objects[stage], changed)
                if new:
                    base.link_stage(stage, objects, library, self.place / stage)
                options = [f"--first={first}", f"--times={base.home / stage}.times"]
                done = run_stage(base, stage, self.place, options)
            if done.returncode != 0:
                said = done.stdout.split()
                return Verdict("killed", stage, said[-1] if said else "ended")
        return Verdict("survived")

    def _run_command_tests(self, changed):
        base = self.base
        objects, _ = self._compiled(base.product, changed)
        base.link_program(objects, self.place / "vantorig")
        with self.program_lock:
            try:
                shutil.copy2(self.place / "vantorig", base.place / "vantorig")
                return run_stage(base, "command_tests", self.place, [f"--times={base.home}/command_tests.times"])
            finally:
                shutil.copy2(base.home / "vantorig", base.place / "vantorig")

    def same_code(self, changed):
        """True when an optimising compiler makes the same of both: no test can tell them apart."""
        for built in self.base.product:
            if self.base.needs.get(built, set()).isdisjoint(changed):
                continue
            made = []
            for tree in (set(), set(changed)):
                command, out = self._command(built, tree)
                if not tree:  # without the changed tree in front
                    command.remove(f"-I{self.place / 'tree'}")
                run(["-O2" if word == "-O0" else word for word in command] + ["-frandom-seed=1"], cwd=self.base.place)
                made.append(out.read_bytes() if out.exists() else b"")
            if made[0] != made[1]:
                return False
        return True
