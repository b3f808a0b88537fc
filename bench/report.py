#!/usr/bin/python3
"""Puts what was measured together: one table, and one JSON file with the machine's description."""
import argparse
import datetime
import json
import os
import pathlib
import platform
import subprocess


def machine():
    model = "unknown"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.partition(":")[2].strip()
            break
    return {"processor": model, "processors": os.cpu_count(), "kernel": platform.release(),
            "load": os.getloadavg()[0], "date": datetime.date.today().isoformat()}


def in_process_rows(files):
    """Medians over the repetitions, in nanoseconds of processor time."""
    rows = {}
    for file in files:
        for row in json.loads(file.read_text())["benchmarks"]:
            if row.get("aggregate_name") not in (None, "median"):
                continue
            figures = {"nanoseconds": row["cpu_time"]}
            for counter in ("allocations", "bytes", "fit"):
                if counter in row:
                    figures[counter] = round(row[counter], 1)
            rows[row["run_name"].replace("/iterations:1", "")] = figures
    return rows


def object_size(library):
    """Bytes of the shared object that are loaded: text, data and bss."""
    text, data, bss = subprocess.run(["size", library], stdout=subprocess.PIPE, check=True,
                                     text=True).stdout.splitlines()[1].split()[:3]
    return int(text) + int(data) + int(bss)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("files", nargs="+", type=pathlib.Path)
    parser.add_argument("--bus", type=pathlib.Path, required=True)
    parser.add_argument("--library", type=pathlib.Path, required=True)
    parser.add_argument("--json", type=pathlib.Path, required=True)
    arguments = parser.parse_args()
    result = {"machine": machine(), "shared_object_bytes": object_size(arguments.library),
              "in_process": in_process_rows(arguments.files),
              "bus": json.loads(arguments.bus.read_text())}

    print(f"\n{'In one process':45}{'ns':>12}{'allocations':>13}{'bytes':>10}")
    for name, figures in result["in_process"].items():
        allocations = figures.get("allocations", "")
        print(f"{name:45}{figures['nanoseconds']:12.0f}{allocations:>13}{figures.get('bytes', ''):>10}")
    print(f"\nThe shared object, loaded: {result['shared_object_bytes']} bytes")
    about = result["machine"]
    print(f"{about['processors']} x {about['processor']}, Linux {about['kernel']}, "
          f"load {about['load']:.1f}, {about['date']}")
    arguments.json.write_text(json.dumps(result, indent=1) + "\n")


main()
