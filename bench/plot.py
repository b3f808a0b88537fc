#!/usr/bin/python3
"""Draws the plots of docs/performance.md: plot.py RESULTS.json FOLDER"""
import json
import pathlib
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "varro2"  # the same figures make the same files
import matplotlib.pyplot as pyplot


def series(rows, name):
    """The points of NAME/NUMBER."""
    points = {int(key.rpartition("/")[2]): row["nanoseconds"] for key, row in rows.items()
              if key.rpartition("/")[0] == name}
    return sorted(points), [points[number] for number in sorted(points)]


def save(figure, folder, name):
    figure.tight_layout()
    figure.savefig(folder / f"{name}.svg", metadata={"Date": None})
    pyplot.close(figure)


def curves(folder, name, title, across, down, lines, per_item=False):
    figure, axes = pyplot.subplots(figsize=(6.4, 4))
    for label, (numbers, values) in lines.items():
        if numbers:
            values = [value / number for value, number in zip(values, numbers)] if per_item else values
            axes.plot(numbers, values, marker="o", label=label)
    axes.set(title=title, xlabel=across, ylabel=down, xscale="log", yscale="log")
    axes.grid(alpha=0.3)
    axes.legend()
    save(figure, folder, name)


def shapes(folder, rows):
    rows = [row for row in rows if row["load"] == "saturation"]
    peers = list(rows[0]["peers"])
    figure, axes = pyplot.subplots(figsize=(6.4, 4))
    for at, peer in enumerate(peers):
        axes.bar([place + at / (len(peers) + 1) for place in range(len(rows))],
                 [row["peers"].get(peer, {}).get("pair", 0) for row in rows],
                 1 / (len(peers) + 1), label=peer)
    axes.set(title="Producers and consumers together", ylabel="microseconds per event received",
             yscale="log")
    axes.set_xticks([place + 0.4 for place in range(len(rows))], [row["shape"] for row in rows])
    axes.grid(alpha=0.3, axis="y")
    axes.legend()
    save(figure, folder, "consumers")


def main():
    results, folder = json.loads(pathlib.Path(sys.argv[1]).read_text()), pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    rows = results["in_process"]
    ways = {"library": "Library", "GVariant": "Variant", "protobuf": "Protobuf",
            "FlatBuffers": "FlatBuffer"}
    for name, title in (("build_and_serialise", "Build and serialise an event"),
                        ("read_back", "Read an event back")):
        curves(folder, name, title, "keys", "nanoseconds per key",
               {label: series(rows, f"{name}<{way}>") for label, way in ways.items()}, True)
    curves(folder, "subscriptions", "An event that ten subscriptions want", "subscriptions",
           "nanoseconds", {"looked up": series(rows, "match_in_order"),
                           "each asked": series(rows, "ask_each")})
    shapes(folder, results["bus"])


main()
