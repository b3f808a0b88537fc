#!/usr/bin/python3
"""Runs the peers of the bus benchmark side by side and prints what an event costs each of them.

Every peer's processes are started once; each round then lets one peer after the other carry its
events, so that whatever else the machine does falls on all alike. Quoted are medians over the
rounds, and the medians of the ratios within a round.
"""
import argparse
import json
import os
import pathlib
import select
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

REFERENCE = "sdbus"
SWITCH_NAME = "com.quor.Event.Switch"

# How often one event is received.
SHAPES = {
    "1 to 1": (1, 1),
    "1 to 10": (1, 10),
    "1 to 50": (1, 50),
    "50 to 1": (50, 1),
}
EVENTS = {"1 to 1": 6000, "1 to 10": 600, "1 to 50": 120, "50 to 1": 6000}
WARM_UP = 640


class Failure(Exception):
    pass


def processor_time(pid):
    """Of all threads of a process, in seconds, as the scheduler counts it."""
    total = 0
    for thread in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((thread / "schedstat").read_text().split()[0])
    return total / 1e9


def wait_until(what, condition):
    end = time.monotonic() + 20
    while not condition():
        if time.monotonic() > end:
            raise Failure(f"{what} did not come")
        time.sleep(0.02)


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


class Peer:
    """The producers and consumers of one peer, in one shape, ready to run."""

    def __init__(self, name, programs, environment, daemon, producers, consumers):
        self.name = name
        self.daemon = daemon  # process id
        self.consumers = []
        self.producers = []
        program = str(programs / f"bench_bus_{name}")
        reader, writer = os.pipe()
        try:
            for number in range(consumers):
                credits = ["--credits", str(writer)] if number == 0 and producers == 1 else []
                self.consumers.append(Process([program, "consumer", *credits], environment,
                                              [writer] if credits else []))
            addresses = [consumer.hear("ready") for consumer in self.consumers]
            for _ in range(producers):
                credits = ["--credits", str(reader)] if producers == 1 else []
                self.producers.append(Process([program, "producer", *credits, *addresses],
                                              environment, [reader] if credits else []))
            for producer in self.producers:
                producer.hear("ready")
        finally:
            os.close(reader)
            os.close(writer)

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


# ---- The daemons ----

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
"""


class Daemons:
    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="varro2-bench-"))
        self.started = []

    def start(self, command, **options):
        log = open(self.folder / f"{pathlib.Path(command[0]).name}.log", "wb")
        process = subprocess.Popen(command, stderr=log, stdout=log, **options)
        self.started.append(process)
        return process.pid

    def dbus_daemon(self):
        path = self.folder / "dbus-daemon"
        configuration = self.folder / "bus.conf"
        configuration.write_text(BUS_CONFIGURATION.format(socket=path))
        pid = self.start(["dbus-daemon", "--nofork", "--nopidfile",
                          f"--config-file={configuration}"])
        wait_until("the bus", path.exists)
        return f"unix:path={path}", pid

    def mosquitto(self, program):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        configuration = self.folder / "mosquitto.conf"
        configuration.write_text(f"listener {port} 127.0.0.1\nallow_anonymous true\n"
                                 "max_queued_messages 0\nset_tcp_nodelay true\n"
                                 f"persistence false\nuser {os.environ.get('USER', 'root')}\n")
        pid = self.start([str(program), "-c", str(configuration)])

        def listens():
            try:
                socket.create_connection(("127.0.0.1", port), 1).close()
                return True
            except OSError:
                return False

        wait_until("mosquitto", listens)
        return str(port), pid

    def switch(self, program, address):
        self.start([str(program), "--bus-address", address])

        def has_name():
            return b"true" in subprocess.run(
                ["dbus-send", f"--bus={address}", "--print-reply=literal",
                 "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                 "org.freedesktop.DBus.NameHasOwner", f"string:{SWITCH_NAME}"],
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False).stdout

        wait_until("the switch", has_name)

    def end(self):
        for process in reversed(self.started):
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        shutil.rmtree(self.folder)


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
        for number in range(count):
            turn = number % len(peers)
            for peer in peers[turn:] + peers[:turn]:
                rounds[peer.name].append(peer.run(events, rate))
        return {name: summary(own, rounds.get(REFERENCE)) for name, own in rounds.items()}
    finally:
        for peer in peers:
            peer.end()


def bus_rows(arguments, daemons, log):
    programs = arguments.build / "bin"
    environment = dict(os.environ)
    environment["BENCH_PAYLOAD"] = str(daemons.folder / "payload")
    library_path = str(arguments.build / "lib")
    environment["LD_LIBRARY_PATH"] = library_path
    os.environ["LD_LIBRARY_PATH"] = library_path
    subprocess.run([programs / "bench_bus_library", "payload", environment["BENCH_PAYLOAD"]],
                   check=True)

    buses = {"dbus-daemon": daemons.dbus_daemon()}
    for address, _ in buses.values():
        daemons.switch(programs / "varro2-switchd", address)
    if arguments.mosquitto:
        port, mosquitto_pid = daemons.mosquitto(arguments.mosquitto)
        environment["BENCH_MQTT_PORT"] = port

    rows = []
    for bus, (address, bus_pid) in buses.items():
        on_bus = dict(environment, DBUS_SYSTEM_BUS_ADDRESS=address)
        for shape, (producers, consumers) in SHAPES.items():
            if arguments.shape and shape not in arguments.shape:
                continue

            def maker(name, pid, variables):
                return lambda: Peer(name, programs, variables, pid, producers, consumers)

            makers = [maker(name, bus_pid, on_bus) for name in arguments.peers
                      if name != "mosquitto" and (programs / f"bench_bus_{name}").exists()]
            if arguments.mosquitto and bus == "dbus-daemon" and "mosquitto" in arguments.peers:
                makers.append(maker("mosquitto", mosquitto_pid, environment))
            log(f"{bus}, {shape}, as fast as it goes")
            events = max(64, EVENTS[shape] // (4 if arguments.quick else 1))
            rows.append({"bus": bus, "shape": shape, "load": "saturation",
                         "peers": measure(makers, arguments.rounds, events)})
            if shape == "1 to 1" and not arguments.no_latency:
                log(f"{bus}, {shape}, 200 events a second")
                rows.append({"bus": bus, "shape": shape, "load": "200 a second",
                             "peers": measure(makers, arguments.rounds,
                                              100 if arguments.quick else 300, 200)})
    return rows


def print_rows(rows):
    columns = [("pair", "pair"), ("producer", "producer"), ("consumer", "consumer"),
               ("daemon", "daemon"), ("rate", "events/s"), ("latency_50", "latency"),
               ("latency_99", "99 %")]
    for row in rows:
        print(f"\n{row['bus']}, {row['shape']}, {row['load']}: microseconds per event received"
              f" (ratio to {REFERENCE})")
        print(f"{'':10}" + "".join(f"{title:>17}" for _, title in columns))
        for name, figures in row["peers"].items():
            cells = []
            for key, _ in columns:
                ratio = figures.get(key + "_ratio")
                cells.append(f"{figures[key]:9.1f}" + (f" ({ratio:4.2f})" if ratio else " " * 7))
            print(f"{name:10}" + "".join(f"{cell:>17}" for cell in cells))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="a release build")
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--mosquitto", type=pathlib.Path, help="the broker")
    parser.add_argument("--peers", nargs="+",
                        default=["library", "sdbus", "gdbus", "sdbuscpp", "mosquitto"])
    parser.add_argument("--shape", action="append", choices=SHAPES)
    parser.add_argument("--no-latency", action="store_true")
    parser.add_argument("--json", type=pathlib.Path)
    arguments = parser.parse_args()
    arguments.build = arguments.build.absolute()

    def log(text):
        print(f"bench: {text}", file=sys.stderr)

    daemons = Daemons()
    try:
        rows = bus_rows(arguments, daemons, log)
    except Failure as failure:
        sys.exit(f"bench: {failure}")
    finally:
        daemons.end()
    print_rows(rows)
    if arguments.json:
        arguments.json.write_text(json.dumps(rows, indent=1) + "\n")


main()
