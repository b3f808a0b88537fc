"""Plants faults and has the tests look for them: see scripts/plant.

    plant_faults.py [--check] [NAME...] | --check --list
"""

import concurrent.futures
import fnmatch
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PLACE = ROOT / "build" / "plant"
TREE = PLACE / "tree"
ENOUGH = 0.9
JOBS = os.cpu_count() or 1

# Debug information would only make the programs larger.
BUILDS = {
    "dev": ["-DCMAKE_CXX_FLAGS=-Og -D_GLIBCXX_ASSERTIONS"],
    "asan": ["-DCMAKE_CXX_FLAGS=-O1 -D_GLIBCXX_ASSERTIONS", "-DVARRO2_SANITIZE=address,undefined"],
    "tsan": ["-DCMAKE_CXX_FLAGS=-O1", "-DVARRO2_SANITIZE=thread"],
}

LAYERS = ["platform", "foundations", "model", "objects", "bus", "api"]
LIVE = [["bus_registration", "bus_live"], ["cli_tests", "faults", "costs"]]
# Longer than each takes on a busy machine; a test that hangs has found something.
UNIT_SECONDS = 180
LIVE_SECONDS = 1200
# For a condition that a test waits for.
PATIENCE_SECONDS = 20


class Misfit(Exception):
    """The fault does not fit the code any more."""


class Change:
    """Old text that becomes new text. White space of any kind and length is alike."""

    def __init__(self, file):
        self.file = file
        self.after = []
        self.old = []
        self.new = []

    def applied(self, text):
        start = 0
        if self.after:
            start = self.only(text, self.after, 0).end()
        # Behind an anchor the first place is meant, without one there must be no other.
        found = (
            pattern_of(self.old).search(text, start)
            if self.after
            else self.only(text, self.old, 0)
        )
        if found is None:
            raise Misfit(f"{self.file} has no '{' '.join(self.old)}' there")
        return text[: found.start()] + "\n".join(self.new) + text[found.end() :]

    def only(self, text, lines, start):
        found = list(pattern_of(lines).finditer(text, start))
        if len(found) != 1:
            raise Misfit(f"{self.file} has '{' '.join(lines)}' {len(found)} times")
        return found[0]


def pattern_of(lines):
    return re.compile(r"\s+".join(re.escape(word) for word in " ".join(lines).split()))


class Fault:
    def __init__(self, name, build, file, place):
        self.name = name
        self.build = build
        self.place = place
        self.about = ""
        self.changes = [Change(file)]

    @property
    def file(self):
        return self.changes[0].file

    def texts(self, root):
        """What the files become, by their names."""
        texts = {}
        for change in self.changes:
            if change.file not in texts:
                path = root / change.file
                if not path.exists():
                    raise Misfit(f"there is no {change.file}")
                texts[change.file] = path.read_text()
            texts[change.file] = change.applied(texts[change.file])
        return texts


def read_faults(path):
    faults = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        place = f"{path.name}:{number}"
        if not line.strip() or line.startswith("#"):
            continue
        if not line.startswith(" "):
            words = line.split()
            if len(words) not in (2, 3) or (len(words) == 3 and words[2] not in BUILDS):
                sys.exit(f"plant: {place}: expected NAME FILE [BUILD]")
            faults.append(Fault(words[0], words[2] if len(words) == 3 else "dev", words[1], place))
            continue
        if not faults:
            sys.exit(f"plant: {place}: this belongs to no fault")
        fault = faults[-1]
        sign, text = line.strip()[0], line.strip()[1:].strip()
        change = fault.changes[-1]
        if sign in "@-" and change.new:
            change = Change(change.file)
            fault.changes.append(change)
        if sign == "@":
            change.after.append(text)
        elif sign == "-":
            change.old.append(text)
        elif sign == "+" and change.old:
            change.new.append(text)
        elif change.old:
            sys.exit(f"plant: {place}: expected '-', '+' or '@'")
        else:
            fault.about = f"{fault.about} {line.strip()}".strip()
    return faults


def all_faults():
    faults = [f for path in sorted((ROOT / "tests/plant").glob("*.faults")) for f in read_faults(path)]
    names = set()
    for fault in faults:
        if fault.name in names:
            sys.exit(f"plant: {fault.place}: '{fault.name}' is there twice")
        names.add(fault.name)
        if not fault.about or not all(change.old and change.new for change in fault.changes):
            sys.exit(f"plant: {fault.place}: '{fault.name}' lacks its sentence or its change")
    return faults


def chosen(faults, names):
    if not names:
        return faults
    for name in names:
        if not any(fnmatch.fnmatchcase(fault.name, name) for fault in faults):
            print(f"plant: there is no fault '{name}'; try: scripts/plant --list", file=sys.stderr)
            sys.exit(2)
    return [f for f in faults if any(fnmatch.fnmatchcase(f.name, name) for name in names)]


# ---- The copy of the tree


def copy_tree():
    listed = subprocess.run(
        ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        cwd=ROOT, check=True, capture_output=True, text=True,
    ).stdout
    names = {name for name in listed.split("\0") if name and (ROOT / name).is_file()}
    for path in [p for p in TREE.rglob("*") if p.is_file() or p.is_symlink()]:
        if str(path.relative_to(TREE)) not in names:
            path.unlink()
    # What has not changed keeps its time, and need not be built again.
    for name in names:
        source, target = ROOT / name, TREE / name
        if target.exists() and target.read_bytes() == source.read_bytes():
            shutil.copymode(source, target)
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)


def write_files(texts):
    for name, text in texts.items():
        (TREE / name).write_text(text)


# ---- Building and running


class Build:
    def __init__(self, name):
        self.name = name
        self.folder = PLACE / name

    def configure(self):
        launchers = [
            f"-D{name}={os.environ[name]}"
            for name in ("CMAKE_C_COMPILER_LAUNCHER", "CMAKE_CXX_COMPILER_LAUNCHER")
            if os.environ.get(name)
        ]
        subprocess.run(
            ["cmake", "-S", TREE, "-B", self.folder, "-G", "Ninja", "--log-level=WARNING",
             "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_C_FLAGS_DEBUG=-g0", "-DCMAKE_CXX_FLAGS_DEBUG=-g0",
             *BUILDS[self.name], *launchers],
            check=True, stdout=subprocess.DEVNULL,
        )

    def build(self, targets):
        """The compiler's complaint, or nothing."""
        done = subprocess.run(
            ["nice", "-n", "5", "ninja", "-C", self.folder, f"-j{JOBS}", "--quiet", *targets],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
        )
        if done.returncode == 0:
            return ""
        return "\n".join(line for line in done.stdout.splitlines() if "error" in line.lower()) or done.stdout

    def stages(self, file):
        """Which programs run, in which order: what stands next to the fault first."""
        part = file.split("/")[1] if file.startswith("src/") else file.split("/")[0]
        part = "foundations" if part == "base" else part
        live = [["bus_live"]] if self.name == "tsan" else LIVE
        if part == "cli":
            return [["cli_tests"]]
        if part == "switch":
            return [["unit_switch"], *live]
        units = [f"unit_{layer}" for layer in LAYERS[LAYERS.index(part) :]]
        # The switch has one thread, and some of its tests have GDBus on the other side.
        units += ["unit_switch"] if self.name != "tsan" else []
        return [stage for stage in (units[:1], units[1:], *live) if stage]


def environment(build):
    added = {}
    if build.name == "tsan":
        # As scripts/test has it.
        suppressions = f"suppressions={ROOT}/tests/support/tsan.supp"
        added = {"G_SLICE": "always-malloc",
                 "TSAN_OPTIONS": f"{suppressions} halt_on_error=1 {os.environ.get('TSAN_OPTIONS', '')}"}
    return {**os.environ, "VARRO2_TEST_PATIENCE": str(PATIENCE_SECONDS), **added}


class Run:
    """One run of one program, or of a part of it, that ends at its first failure."""

    def __init__(self, build, program, shard=0, shards=1, filter_=None):
        self.build = build
        self.program = program
        self.limit = UNIT_SECONDS if program.startswith("unit_") else LIVE_SECONDS
        self.environment = environment(build)
        if shards > 1:
            self.environment |= {"GTEST_TOTAL_SHARDS": str(shards), "GTEST_SHARD_INDEX": str(shard)}
        if build.name == "tsan" and program == "bus_live" and (filter_ or "-").startswith("-"):
            filter_ = f"*RealThreads*{filter_ or ''}"
        self.arguments = ["--gtest_fail_fast", "--gtest_color=no"]
        if filter_:
            self.arguments.append(f"--gtest_filter={filter_}")
        self.process = None
        self.stopped = False

    def run(self):
        """The test that failed, or None."""
        if self.stopped:
            return None
        log = PLACE / f"{self.program}-{self.environment.get('GTEST_SHARD_INDEX', '0')}.log"
        with log.open("w") as output:
            self.process = subprocess.Popen(
                ["nice", "-n", "5", self.build.folder / "bin" / self.program, *self.arguments],
                stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
                env=self.environment, cwd=self.build.folder, start_new_session=True,
            )
            hung = False
            try:
                self.process.wait(self.limit)
            except subprocess.TimeoutExpired:
                hung = True
            self.end_group()
        if self.stopped or (self.process.returncode == 0 and not hung):
            return None
        text = log.read_text(errors="replace")
        failed = re.findall(r"^\[  FAILED  \] ([^\s,]+)", text, re.M)
        if failed:
            return f"{self.program}:{failed[0]}"
        begun = re.findall(r"^\[ RUN      \] (\S+)", text, re.M)
        how = "hangs" if hung else "crashes"
        return f"{self.program}:{begun[-1] if begun else '?'} ({how})"

    def end_group(self):
        """With all that the tests had started."""
        for number in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(self.process.pid, number)
            except ProcessLookupError:
                return
            if number == signal.SIGTERM:
                time.sleep(0.2)
        self.process.wait()

    def stop(self):
        self.stopped = True
        if self.process and self.process.poll() is None:
            self.end_group()


def run_side_by_side(runs):
    """The first failure; the others are ended then."""
    found = None
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        futures = [pool.submit(run.run) for run in runs]
        try:
            for future in concurrent.futures.as_completed(futures):
                if future.result() and not found:
                    found = future.result()
                    break
        finally: # also when interrupted
            for run in runs:
                run.stop()
    return found


def runs_of(build, programs):
    runs = []
    for program in programs:
        shards = 2 * JOBS if program in ("bus_live", "cli_tests", "faults") and build.name != "tsan" else 1
        runs += [Run(build, program, shard, shards) for shard in range(shards)]
    return runs


def look(build, programs):
    """The test that fails, or None. A live test has to fail twice: the machine may have been busy."""
    found = run_side_by_side(runs_of(build, programs))
    if not found or found.startswith("unit_"):
        return found
    program, test = found.split(" ")[0].split(":", 1)
    if test == "?" or Run(build, program, filter_=test).run():
        return found
    print(f"    {found} failed once only: the rest again without it", flush=True)
    again = [Run(build, program, filter_=f"-{test}")]
    return run_side_by_side(again + runs_of(build, [p for p in programs if p != program]))


def plant(fault, build):
    """What came of it, and by what it was noticed."""
    try:
        texts = fault.texts(TREE)
    except Misfit as misfit:
        return "stale", str(misfit)
    former = {name: (TREE / name).read_text() for name in texts}
    write_files(texts)
    try:
        for programs in build.stages(fault.file):
            complaint = build.build(programs)
            if complaint:
                return "does not compile", complaint.splitlines()[0]
            found = look(build, programs)
            if found:
                return "noticed", found
        return "not noticed", ""
    finally:
        write_files(former)


def prove_sound(build, faults):
    """A test that fails without a fault would notice anything."""
    print(f"plant: {build.name}: building, and running the tests without a fault", flush=True)
    build.configure()
    programs = sorted({p for fault in faults for stage in build.stages(fault.file) for p in stage})
    complaint = build.build(programs)
    if complaint:
        sys.exit(f"plant: {build.name} does not build:\n{complaint}")
    found = look(build, programs)
    if found:
        sys.exit(f"plant: {found} fails in {build.name} without any fault")


def table(results):
    width = max(len(fault.name) for fault in results)
    print(f"\n{'FAULT':{width}}  BUILD  RESULT")
    for fault, (outcome, by) in results.items():
        print(f"{fault.name:{width}}  {fault.build:5}  {outcome if outcome != 'noticed' else by}")
        if outcome in ("stale", "does not compile"):
            print(f"{'':{width}}         {fault.place}: {by}")


def fit(faults):
    """Whether all fit the code: 0, or 1 after the names of those that do not."""
    result = 0
    for fault in faults:
        try:
            fault.texts(ROOT)
        except Misfit as misfit:
            print(f"plant: {fault.place}: {fault.name}: {misfit}", file=sys.stderr)
            result = 1
    return result


def main(arguments):
    check = "--check" in arguments
    arguments = [a for a in arguments if a != "--check"]
    faults = all_faults()
    if arguments == ["--list"]:
        width = max(len(fault.name) for fault in faults)
        for fault in faults:
            print(f"{fault.name:{width}}  {fault.build:5}  {fault.about}")
        return 0
    if any(argument.startswith("-") for argument in arguments):
        wrong = next(argument for argument in arguments if argument.startswith("-"))
        print(f"plant: there is no '{wrong}'; try: scripts/plant [NAME...] | --list", file=sys.stderr)
        return 2
    faults = chosen(faults, arguments)
    if check:
        return fit(faults)

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    begin = time.monotonic()
    copy_tree()
    results = {}
    for name in BUILDS:
        planted = [fault for fault in faults if fault.build == name]
        if not planted:
            continue
        build = Build(name)
        prove_sound(build, planted)
        for fault in planted:
            since = time.monotonic()
            results[fault] = outcome, by = plant(fault, build)
            print(f"[{len(results):3}/{len(faults)}] {fault.name}: {outcome}{' by ' if outcome == 'noticed' else ''}"
                  f"{by if outcome == 'noticed' else ''} ({time.monotonic() - since:.0f} s)", flush=True)
    table({fault: results[fault] for fault in faults})
    noticed = sum(outcome == "noticed" for outcome, _ in results.values())
    unfit = sum(outcome in ("stale", "does not compile") for outcome, _ in results.values())
    minutes = (time.monotonic() - begin) / 60
    print(f"\n{noticed} of {len(faults)} noticed, {len(faults) - noticed - unfit} not,"
          f" {unfit} that do not fit the code ({minutes:.0f} minutes)")
    return 0 if unfit == 0 and noticed >= ENOUGH * len(faults) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
