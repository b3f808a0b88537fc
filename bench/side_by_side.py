"""Runs the peers of the bus benchmark side by side: what an event costs each of them.

Every peer's processes are started once; each round then lets one peer after the other carry its
events, in random order, so that whatever else the machine does falls on all alike. Quoted are
medians over the rounds, and the medians of the ratios within a round.
"""
import itertools
import json
import os
import pathlib
import random
import select
import statistics
import subprocess
import time

from daemons import Failure

PEERS = ("library", "sdbus", "gdbus", "sdbuscpp", "mosquitto")
REFERENCE = "sdbus"

# How often one event is received.
SHAPES = {
    "1 to 1": (1, 1),
    "1 to 10": (1, 10),
    "1 to 50": (1, 50),
    "50 to 1": (50, 1),
}
EVENTS = {"1 to 1": 6000, "1 to 10": 600, "1 to 50": 120, "50 to 1": 6000}
WARM_UP = 640


def processor_time(pid):
    """Of all threads of a process, in seconds, as the scheduler counts it."""
    total = 0
    for thread in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((thread / "schedstat").read_text().split()[0])
    return total / 1e9


class Process:
    """A program that is told what to do by lines."""

    def __init__(self, command, environment, descriptors=()):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        env=environment, pass_fds=descriptors)
        self.unread = b""

    def tell(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def hear(self, word, seconds=120):
        end = time.monotonic() + seconds
        while b"\n" not in self.unread:
            ready, _, _ = select.select([self.process.stdout], [], [], max(0, end - time.monotonic()))
            part = os.read(self.process.stdout.fileno(), 65536) if ready else b""
            if not part:
                raise Failure(f"{self.process.args[0]}: no '{word}' " +
                              ("in time" if not ready else "before its end"))
            self.unread += part
        line, self.unread = self.unread.split(b"\n", 1)
        answer, _, rest = line.decode().partition(" ")
        if answer != word:
            raise Failure(f"{self.process.args[0]}: '{line.decode()}' where '{word}' was due")
        return rest

    def end(self):
        self.process.stdin.close()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def options_of(credits):
    return [word for descriptor in credits for word in ("--credits", str(descriptor))]


class Peer:
    """The producers and consumers of one peer, in one shape, ready to run.

    A wrapper is a command that the programs of one role run under.
    """

    def __init__(self, name, programs, environment, daemon, producers, consumers, wrappers=None):
        wrappers = wrappers or {}
        self.name = name
        self.daemon = daemon  # process id
        self.consumers = []
        self.producers = []
        program = str(programs / f"bench_bus_{name}")
        pipes = [os.pipe() for _ in range(producers)]  # for the credits of each producer
        try:
            for number in range(consumers):
                credits = [writer for _, writer in pipes] if number == 0 else []
                self.consumers.append(Process(
                    [*wrappers.get("consumer", []), program, "consumer", *options_of(credits)],
                    environment, credits))
            addresses = [consumer.hear("ready") for consumer in self.consumers]
            for reader, _ in pipes:
                self.producers.append(Process(
                    [*wrappers.get("producer", []), program, "producer", *options_of([reader]),
                     *addresses], environment, [reader]))
            for producer in self.producers:
                producer.hear("ready")
        finally:
            for descriptor in itertools.chain(*pipes):
                os.close(descriptor)

    def run(self, events, rate=None):
        """Carries the events; events per producer are rounded up. Seconds per event received."""
        each = -(-events // len(self.producers))
        due = each * len(self.producers)
        for consumer in self.consumers:
            consumer.tell(f"expect {due}")
        for consumer in self.consumers:
            consumer.hear("waiting")
        daemon_before = processor_time(self.daemon)
        for producer in self.producers:
            producer.tell(f"rate {each} {rate}" if rate else f"send {each}")
        received = [json.loads(consumer.hear("done")) for consumer in self.consumers]
        for producer in self.producers:
            producer.tell("report")
        used = [json.loads(producer.hear("used")) for producer in self.producers]
        daemon = processor_time(self.daemon) - daemon_before
        count = due * len(self.consumers)
        producer = sum(one["processor"] for one in used) / count
        consumer = sum(one["processor"] for one in received) / count
        return {
            "producer": producer * 1e6,
            "consumer": consumer * 1e6,
            "pair": (producer + consumer) * 1e6,
            "daemon": daemon / count * 1e6,
            "rate": count / max(one["wall"] for one in received),
            "latency_50": statistics.median(one["latency_50"] for one in received),
            "latency_99": max(one["latency_99"] for one in received),
        }

    def end(self):
        for process in self.producers + self.consumers:
            process.end()


# ---- Rounds ----

def summary(rounds, reference):
    """Medians, and the medians of the ratios to the reference in the same round."""
    result = {}
    for figure in rounds[0]:
        values = [one[figure] for one in rounds]
        result[figure] = statistics.median(values)
        if reference:
            result[figure + "_ratio"] = statistics.median(
                one[figure] / other[figure] for one, other in zip(rounds, reference)
                if other[figure] > 0)
    return result


def measure(make_peers, count, events, rate=None):
    """Figures by peer."""
    peers = []
    try:
        for make in make_peers:
            peers.append(make())
        for peer in peers:
            peer.run(WARM_UP if rate is None else 100, rate)
        rounds = {peer.name: [] for peer in peers}
        for _ in range(count):
            for peer in random.sample(peers, len(peers)):
                rounds[peer.name].append(peer.run(events, rate))
        return {name: summary(own, rounds.get(REFERENCE)) for name, own in rounds.items()}
    finally:
        for peer in peers:
            peer.end()


def makers(arguments, on_bus, bus_pid, mosquitto, shape):
    """What starts each of the peers."""
    programs = arguments.build / "bin"

    def maker(name, pid, variables):
        return lambda: Peer(name, programs, variables, pid, *SHAPES[shape])

    made = [maker(name, bus_pid, on_bus) for name in arguments.peers
            if name != "mosquitto" and (programs / f"bench_bus_{name}").exists()]
    if mosquitto and "mosquitto" in arguments.peers:
        made.append(maker("mosquitto", mosquitto, on_bus))
    return made


def loads(arguments):
    """Shapes, each with the events a second that are sent or None for as many as there is room for."""
    result = [(shape, None) for shape in arguments.shape]
    if "1 to 1" in arguments.shape:
        result.insert(1, ("1 to 1", 200))
    return result


def rows(arguments, progress, environment, buses, mosquitto):
    """One row for each bus, shape and load. A bus that is not there has a row that says why."""
    result = []
    for name, bus in buses.items():
        if not isinstance(bus, tuple):
            result.append({"bus": name, "absent": bus})
            continue
        on_bus = dict(environment, DBUS_SYSTEM_BUS_ADDRESS=bus[0])
        for shape, rate in loads(arguments):
            load = f"{rate} a second" if rate else "saturation"
            progress.next(f"{name}, {shape}, {load}")
            # A broker of its own is the same beside whichever bus: once is enough.
            peers = makers(arguments, on_bus, bus[1], mosquitto if name == "dbus-daemon" else None,
                           shape)
            events = 200 if rate else EVENTS[shape]
            events = max(64, events // (4 if arguments.quick else 1))
            result.append({"bus": name, "shape": shape, "load": load,
                           "peers": measure(peers, arguments.rounds, events, rate)})
    return result
