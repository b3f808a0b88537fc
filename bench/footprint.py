"""Cache lines and pages that an event touches which comes alone, outside the kernel.

Where events are far apart, or go to many processes in turn, the processor has forgotten a process
between two of them: what an event costs then depends less on how many instructions it takes than on
how much has to be fetched again. Traced by valgrind's lackey, event by event.
"""
import bisect
import os
import pathlib
import statistics
import subprocess

from side_by_side import REFERENCE, Peer

# Each event comes by the function once.
MARKS = {
    "library": {"producer": ("libvarro2.so", "event_producer_send_event"),
                "consumer": ("libvarro2.so", "event_deserialize")},
    REFERENCE: {"producer": ("libsystemd.so", "sd_bus_call_async"),
                "consumer": ("libsystemd.so", "sd_bus_reply_method_return")},
}
# Slow enough for a traced process to be done with one event before the next.
EVENTS, RATE = 24, 8
UNSETTLED = 8  # the first ones
LINE, PAGE = 6, 12  # bits of an address


class Places:
    """What lies where in a process."""

    def __init__(self, maps):
        self.starts, self.places = [], []
        for line in maps.splitlines():
            fields = line.split(None, 5)
            start, end = (int(part, 16) for part in fields[0].split("-"))
            path = fields[5] if len(fields) > 5 and fields[5].startswith("/") else ""
            self.starts.append(start)
            self.places.append((end, path))

    def path_at(self, address):
        at = bisect.bisect(self.starts, address) - 1
        return self.places[at][1] if at >= 0 and address < self.places[at][0] else ""

    def start_of(self, name):
        for start, (_, path) in zip(self.starts, self.places):
            if pathlib.Path(path).name.startswith(name):
                return start, path
        raise RuntimeError(f"the traced program has no {name}")

    def name_at(self, address):
        name = pathlib.Path(self.path_at(address)).name
        if name.startswith("bench_"):
            return "the program"
        return name.partition(".so")[0] if ".so" in name else "heap, stack"


def address_of(places, mark):
    start, path = places.start_of(mark[0])
    for line in subprocess.run(["nm", "-D", path], stdout=subprocess.PIPE, check=True,
                               text=True).stdout.splitlines():
        address, _, name = line.rpartition(" ")
        if name.partition("@")[0] == mark[1] and address.strip()[:1].isalnum():
            return start + int(address.split()[0], 16)
    raise RuntimeError(f"{path} has no {mark[1]}")


def accesses(trace):
    """Whether it is an instruction, the address and the size of each."""
    with open(trace, errors="replace") as lines:
        for line in lines:
            if line[:2] in ("I ", " L", " S", " M"):
                address, _, size = line[3:].partition(",")
                yield line[0] == "I", int(address, 16), int(size)


def events(trace, mark):
    """The lines that each event touched."""
    touched = None
    for is_instruction, address, size in accesses(trace):
        if is_instruction and address == mark:
            if touched is not None:
                yield touched
            touched = set()
        if touched is not None:
            touched.add(address >> LINE)
            touched.add((address + size - 1) >> LINE)


def trace(name, programs, environment, folder, role):
    """The accesses of one side, and what lay where."""
    path = folder / f"footprint.{name}.{role}"
    wrapper = ["valgrind", "--quiet", "--tool=lackey", "--trace-mem=yes", f"--log-file={path}"]
    peer = Peer(name, programs, environment, os.getpid(), 1, 1, {role: wrapper})
    try:
        peer.run(EVENTS, RATE)
        traced = (peer.producers if role == "producer" else peer.consumers)[0].process
        return path, Places(pathlib.Path(f"/proc/{traced.pid}/maps").read_text())
    finally:
        peer.end()


def touched_by(name, programs, environment, folder, role):
    path, places = trace(name, programs, environment, folder, role)
    try:
        sets = list(events(path, address_of(places, MARKS[name][role])))[UNSETTLED:]
    finally:
        path.unlink()
    usual = sorted(sets, key=len)[len(sets) // 2]
    lines = {}
    for line in usual:
        place = places.name_at(line << LINE)
        lines[place] = lines.get(place, 0) + 1
    return {"lines": statistics.median(len(touched) for touched in sets),
            "pages": statistics.median(len({line >> PAGE - LINE for line in touched})
                                       for touched in sets),
            "lines_by_place": lines}


def rows(arguments, progress, environment):
    result = {}
    for name in MARKS:
        progress.next(f"footprint, {name}")
        result[name] = {role: touched_by(name, arguments.build / "bin", environment,
                                         arguments.build, role) for role in MARKS[name]}
    return result
