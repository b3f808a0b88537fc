#!/usr/bin/python3
"""Measures everything, prints the table and writes the JSON: run.py --build FOLDER --json FILE"""
import argparse
import datetime
import json
import os
import pathlib
import platform
import shutil
import subprocess
import sys
import time

import footprint
import in_process
import instructions
import report
import side_by_side
from daemons import Daemons, Failure

ALL = ("in_process", "handles", "bus", "instructions", "footprint")
LEFT_OUT_WHEN_QUICK = ("gdbus", "sdbuscpp")


class Progress:
    """Says on the standard error what is being measured, and how far that is."""

    def __init__(self, steps):
        self.steps = steps
        self.step = 0
        self.begun = time.monotonic()

    def next(self, text):
        self.step += 1
        seconds = int(time.monotonic() - self.begun)
        print(f"bench: {seconds // 60}:{seconds % 60:02} [{self.step}/{self.steps}] {text}",
              file=sys.stderr, flush=True)


def busy_processors(seconds=2):
    """How many of the machine's processors are at work while nothing is measured."""

    def jiffies():
        user, nice, system, idle, waiting, *rest = map(
            int, pathlib.Path("/proc/stat").read_text().splitlines()[0].split()[1:9])
        return user + nice + system + sum(rest), idle + waiting

    busy, idle = jiffies()
    time.sleep(seconds)
    busy, idle = (after - before for before, after in zip((busy, idle), jiffies()))
    return round(busy / max(1, busy + idle) * os.cpu_count(), 1)


def machine():
    facts = {}
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        name, _, value = line.partition(":")
        facts.setdefault(name.strip(), value.strip())
    model = facts.get("model name", "unknown")
    if {"cpu family", "model"} <= facts.keys():
        model += f" (family {facts['cpu family']}, model {facts['model']})"
    return {"processor": model, "processors": os.cpu_count(), "kernel": platform.release(),
            "busy": busy_processors(), "date": datetime.date.today().isoformat()}


def object_size(library):
    """Bytes of the shared object that are loaded: text, data and bss."""
    text, data, bss = subprocess.run(["size", library], stdout=subprocess.PIPE, check=True,
                                     text=True).stdout.splitlines()[1].split()[:3]
    return int(text) + int(data) + int(bss)


def start_buses(arguments, daemons):
    """By name: address and process id, or why there is none."""
    buses = {"dbus-daemon": daemons.dbus_daemon()}
    if arguments.broker:
        try:
            buses["dbus-broker"] = daemons.dbus_broker(arguments.build / "bin" / "bench_broker",
                                                       arguments.broker)
        except (Failure, OSError) as failure:
            buses["dbus-broker"] = str(failure)
    else:
        buses["dbus-broker"] = "it is not installed and could not be fetched"
    for bus in buses.values():
        if isinstance(bus, tuple):
            daemons.switch(arguments.build / "bin" / "varro2-switchd", bus[0])
    return buses


def steps(arguments, buses):
    there = sum(isinstance(bus, tuple) for bus in buses.values())
    peers = 2 if arguments.quick else len(instructions.PEERS)
    each = {"in_process": arguments.rounds, "handles": arguments.rounds, "instructions": peers,
            "footprint": len(footprint.MARKS),
            "bus": there * len(side_by_side.loads(arguments))}
    return sum(each[part] for part in arguments.only)


def measure(arguments, daemons):
    os.environ["LD_LIBRARY_PATH"] = str(arguments.build / "lib")
    environment = dict(os.environ, BENCH_PAYLOAD=str(daemons.folder / "payload"))
    subprocess.run([arguments.build / "bin" / "bench_bus_library", "payload",
                    environment["BENCH_PAYLOAD"]], check=True)
    buses = start_buses(arguments, daemons)
    mosquitto = None
    if arguments.mosquitto:
        environment["BENCH_MQTT_PORT"], mosquitto = daemons.mosquitto(arguments.mosquitto)

    result = {"machine": machine(),
              "shared_object_bytes": object_size(arguments.build / "lib" / "libvarro2.so")}
    progress = Progress(steps(arguments, buses))
    if "in_process" in arguments.only:
        result["in_process"] = in_process.rows(arguments, progress)
    if "handles" in arguments.only:
        result["handles"] = in_process.handles(arguments, progress, buses)
    if "bus" in arguments.only:
        result["bus"] = side_by_side.rows(arguments, progress, environment, buses, mosquitto)
    if "instructions" in arguments.only:
        on_bus = dict(environment, DBUS_SYSTEM_BUS_ADDRESS=buses["dbus-daemon"][0])
        result["instructions"] = instructions.rows(arguments, progress, on_bus)
    if "footprint" in arguments.only and shutil.which("valgrind"):
        on_bus = dict(environment, DBUS_SYSTEM_BUS_ADDRESS=buses["dbus-daemon"][0])
        result["footprint"] = footprint.rows(arguments, progress, on_bus)
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="a release build")
    parser.add_argument("--json", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, help="default: 9, quick 3")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--mosquitto", type=pathlib.Path, help="the broker")
    parser.add_argument("--broker", type=pathlib.Path, help="dbus-broker")
    parser.add_argument("--only", action="append", choices=ALL, help="these parts; default: all")
    parser.add_argument("--shape", action="append", choices=side_by_side.SHAPES)
    arguments = parser.parse_args()
    arguments.build = arguments.build.absolute()
    arguments.only = arguments.only or ALL
    arguments.rounds = arguments.rounds or (3 if arguments.quick else 9)
    arguments.shape = arguments.shape or list(side_by_side.SHAPES)
    arguments.peers = [peer for peer in side_by_side.PEERS
                       if not (arguments.quick and peer in LEFT_OUT_WHEN_QUICK)]

    daemons = Daemons()
    try:
        result = measure(arguments, daemons)
    except (Failure, RuntimeError) as failure:
        sys.exit(f"bench: {failure}")
    finally:
        daemons.end()
    arguments.json.write_text(json.dumps(result, indent=1) + "\n")
    report.write(result, sys.stdout)


main()
