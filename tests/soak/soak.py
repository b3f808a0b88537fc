#!/usr/bin/python3
"""Lets many producers and consumers live a life of accidents, and accounts for every event."""
import argparse
import pathlib
import shutil
import sys
import tempfile

import judge
import life
import samples

SHOWN_FAULTS = 100


def read_arguments():
    parser = argparse.ArgumentParser(prog="soak", description=__doc__)
    parser.add_argument("--build", required=True, type=pathlib.Path, help="the folder of the build")
    parser.add_argument("--seconds", type=float, default=60, help="how long the life goes on")
    parser.add_argument("--seed", type=int, default=1, help="chooses what happens")
    parser.add_argument("--producers", type=int, default=20)
    parser.add_argument("--consumers", type=int, default=20)
    parser.add_argument("--pause", type=int, default=100,
                        help="milliseconds between two events of a producer")
    parser.add_argument("--kills-only", action="store_true",
                        help="nothing but kill -9 of switch, producers and consumers")
    parser.add_argument("--roll-call", type=float, default=15, metavar="SECONDS",
                        help="between two checks that everybody is introduced to everybody")
    parser.add_argument("--memory-not-judged", action="store_true",
                        help="for builds whose memory tells nothing, as those of sanitizers")
    parser.add_argument("--no-foreign", action="store_true",
                        help="without the consumer in another language")
    parser.add_argument("--plot", type=pathlib.Path, metavar="FILE",
                        help="draws memory and descriptors")
    parser.add_argument("--keep", type=pathlib.Path, metavar="FOLDER",
                        help="keeps all logs there; they are kept as well when something is wrong")
    parser.add_argument("--quiet", action="store_true", help="no progress on the standard error")
    return parser.parse_args()


def table(rows):
    width = max(len(name) for name, _ in rows)
    for name, value in rows:
        print(f"  {name:<{width}}  {value}")


def report(run, verdict, faults):
    count = verdict.count
    print(f"\n{run.options.seconds:.0f} s, seed {run.options.seed}, "
          f"{run.options.producers} producers, {run.options.consumers} consumers"
          f"{', kills only' if run.options.kills_only else ''}")
    table([
        ("producer processes", len(verdict.producers)),
        ("consumer processes", len(verdict.consumers)),
        ("switch processes", run.count["switches"]),
        ("declarations", count["streams"]),
        ("subscriptions", count["subscriptions"]),
        ("killed", ", ".join(f"{run.count['killed ' + kind]} {kind}"
                             for kind in ("producer", "consumer", "switch"))),
        ("stopped for a while", run.count["stopped"]),
        ("roll calls", run.count["roll calls"]),
        ("events handed over", f"{count['offered']} ({count['refused']} refused: no switch)"),
        ("events received", count["received"]),
        ("of these required", count["required"] - count["went with an end"]),
        ("went with a process's end", count["went with an end"]),
        ("between two introductions", count["not introduced"]),
        ("property values repeated", count["repeated"]),
        ("not sent, receiver gone", run.count["dropped"]),
        ("warnings in the logs", run.count["warnings"]),
    ])
    print("\n  memory of its own, and descriptors, begin to end; the rise is that of a line through "
          "the second half")
    for series in run.series.values():
        if len(series.points) < samples.FEWEST:
            continue
        memory, descriptors = series.rise(1), series.rise(2)
        print(f"  {series.name:<9} {series.chart(1)} {memory[1]:7.0f} kB, rise {memory[0]:+6.0f} kB, "
              f"{descriptors[1]:.0f} descriptors, rise {descriptors[0]:+.1f}")
    if faults:
        print(f"\n{len(faults)} faults")
        for fault in faults[:SHOWN_FAULTS]:
            print(f"  {fault}")
        if len(faults) > SHOWN_FAULTS:
            print("  ...")
    else:
        print("\nnothing was lost")


def main():
    options = read_arguments()
    folder = pathlib.Path(tempfile.mkdtemp(prefix="varro2-soak-"))
    faults = ["it did not come to an end"]
    try:
        run = life.Life(options, folder)
        run.run()
        verdict = judge.Judge(folder)
        faults = run.faults + verdict.run()
        # Otherwise silence would look like success.
        if verdict.count["required"] == 0:
            faults.append("no event was required to arrive")
        if not options.memory_not_judged:
            for series in run.series.values():
                if series.name in run.judged:
                    faults += series.faults()
        report(run, verdict, faults)
        # The interpreter's memory would set the scale.
        drawn = [series for series in run.series.values() if series.name in run.judged]
        if options.plot and not samples.plot(drawn, f"Soak, seed {options.seed}", options.plot):
            print("python3-matplotlib is not installed: no plot", file=sys.stderr)
    finally:
        if options.keep or faults:
            kept = options.keep or folder
            if options.keep:
                shutil.rmtree(kept, ignore_errors=True)
                shutil.copytree(folder, kept, ignore=shutil.ignore_patterns("socket"))
            print(f"the logs are in {kept}")
        if options.keep or not faults:
            shutil.rmtree(folder, ignore_errors=True)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
