"""What is measured in one process: Google Benchmark programs, in rounds."""
import json
import os
import statistics
import subprocess

PROGRAMS = ("container", "codec", "events", "subscriptions")
COUNTERS = ("allocations", "bytes", "fit")


def by_name(item):
    """Rows of one name in the order of their numbers."""
    head, _, number = item[0].rpartition("/")
    return (head, int(number)) if head else (item[0], 0)


class Rows:
    """Figures by row, of several runs."""

    def __init__(self):
        self.runs = {}

    def add(self, program, seconds, without=None, environment=None):
        """Runs all rows of a program once, in random order."""
        command = [program, "--benchmark_format=json", "--benchmark_enable_random_interleaving=true",
                   f"--benchmark_min_time={seconds}"]
        if without:
            command.append(f"--benchmark_filter=-{without}")
        output = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
                                env=environment)
        if output.returncode != 0:
            raise RuntimeError(output.stderr.decode())
        for row in json.loads(output.stdout)["benchmarks"]:
            if row.get("error_occurred"):
                raise RuntimeError(f"{row['name']}: {row['error_message']}")
            # Processor time, or elapsed time where a row is about waiting.
            figures = {"nanoseconds": row["real_time" if "/real_time" in row["name"] else "cpu_time"]}
            figures.update({counter: row[counter] for counter in COUNTERS if counter in row})
            name = row["name"].replace("/iterations:1", "").replace("/real_time", "")
            self.runs.setdefault(name, []).append(figures)

    def medians(self):
        return {name: {figure: round(statistics.median(run[figure] for run in runs), 1)
                       for figure in runs[0]}
                for name, runs in sorted(self.runs.items(), key=by_name)}


def rows(arguments, progress):
    """Every round runs each program, so that whatever else the machine does falls on all."""
    seconds = 0.02 if arguments.quick else 0.05
    without = "/(4096|100000)$" if arguments.quick else None
    result = Rows()
    for number in range(arguments.rounds):
        progress.next(f"in one process, round {number + 1}")
        for name in PROGRAMS:
            program = arguments.build / "bin" / f"bench_{name}"
            if program.exists():
                result.add(program, seconds, without)
    return result.medians()


def handles(arguments, progress, buses):
    """Starting and holding handles, on each bus in turn in every round."""
    program = arguments.build / "bin" / "bench_handles"
    there = {name: bus for name, bus in buses.items() if isinstance(bus, tuple)}
    results = {name: Rows() for name in there}
    for number in range(arguments.rounds):
        progress.next(f"handles, round {number + 1}")
        for name, (address, _) in there.items():
            results[name].add(program, 0.1, environment=dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=address))
    return {name: result.medians() for name, result in results.items()}
