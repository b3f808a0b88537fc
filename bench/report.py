#!/usr/bin/python3
"""The tables of what was measured, as text for a terminal and as Markdown.

report.py RESULTS.json                      prints them
report.py RESULTS.json --renew PAGE.md      puts them into the page, between the lines
                                            "<!-- tables -->" and "<!-- end of tables -->"
"""
import argparse
import io
import json
import pathlib
import sys

BEGIN, END = "<!-- tables -->\n", "<!-- end of tables -->\n"
BUS_COLUMNS = (("pair", "pair"), ("producer", "producer"), ("consumer", "consumer"),
               ("daemon", "daemon"), ("rate", "events/s"), ("latency_50", "latency"),
               ("latency_99", "99 %"))


class Text:
    """Columns of even width."""

    def __init__(self, out):
        self.out = out

    def title(self, text):
        self.out.write(f"\n{text}\n")

    def note(self, text):
        self.out.write(f"{text}\n")

    def table(self, head, rows):
        widths = [max(len(line[at]) for line in [head, *rows]) for at in range(len(head))]
        for line in [head, *rows]:
            cells = [line[0].ljust(widths[0])]
            cells += [cell.rjust(width) for cell, width in zip(line[1:], widths[1:])]
            self.out.write("  ".join(cells).rstrip() + "\n")


class Markdown:
    def __init__(self, out):
        self.out = out

    def title(self, text):
        self.out.write(f"### {text}\n\n")

    def note(self, text):
        self.out.write(f"{text}\n\n")

    def table(self, head, rows):
        self.out.write("| " + " | ".join(head) + " |\n|---|" + "---:|" * (len(head) - 1) + "\n")
        for row in rows:
            first = f"`{row[0]}`" if "/" in row[0] or "<" in row[0] or "_" in row[0] else row[0]
            self.out.write("| " + " | ".join([first, *row[1:]]) + " |\n")
        self.out.write("\n")


def number(value):
    if value is None:
        return ""
    return f"{value:,.1f}" if abs(value) < 100 and value != int(value) else f"{value:,.0f}"


def write_bus(style, rows):
    for row in rows:
        if "absent" in row:
            style.title(row["bus"])
            style.note(f"Left out: {row['absent']}.")
            continue
        style.title(f"{row['bus']}, {row['shape']}, {row['load']}")
        # At saturation events wait in the sender's own queue, which is as long as it is; at a given
        # rate the rate says nothing.
        unsaid = ("latency_50", "latency_99") if row["load"] == "saturation" else ("rate",)
        columns = [column for column in BUS_COLUMNS if column[0] not in unsaid]
        lines = []
        for name, figures in row["peers"].items():
            cells = [name]
            for key, _ in columns:
                ratio = figures.get(key + "_ratio")
                cells.append(number(figures[key]) + (f" ({ratio:.2f})" if ratio else ""))
            lines.append(cells)
        style.table(["", *(title for _, title in columns)], lines)


# A row's family: what stands before its peer and its number.
def family(name):
    return name.partition("<")[0].partition("/")[0]


def write_in_process(style, rows):
    timed = {name: row for name, row in rows.items() if not family(name).startswith("hold")}
    by_number = [name for name in timed if "/" in name]
    style.title("In one process")
    style.table(["", "ns", "allocations"],
                [[name, number(timed[name]["nanoseconds"]), number(timed[name].get("allocations"))]
                 for name in timed if name not in by_number])
    style.title("In one process, by number")
    numbers = sorted({int(name.rpartition("/")[2]) for name in by_number})
    columns = {}
    for name in by_number:
        head, _, at = name.rpartition("/")
        columns.setdefault(head, {})[int(at)] = timed[name]
    style.table(["ns", *(f"{at:,}" for at in numbers)],
                [[head, *(number(points[at]["nanoseconds"]) if at in points else "" for at in numbers)]
                 for head, points in columns.items()])
    style.table(["allocations", *(f"{at:,}" for at in numbers)],
                [[head, *(number(points[at].get("allocations")) if at in points else ""
                          for at in numbers)]
                 for head, points in columns.items()])


def write_held(style, results):
    style.title("Held")
    rows = results.get("in_process", {})
    lines = [[name, number(row["bytes"])] for name, row in rows.items()
             if family(name).startswith("hold")]
    subscriptions = [(int(name.rpartition("/")[2]), row["bytes"]) for name, row in rows.items()
                     if family(name) == "match_in_order"]
    if subscriptions:
        count, held = max(subscriptions)
        lines.append([f"one subscription of 3 tests, of {count:,}, with address and index",
                      number(held)])
    for name, row in results.get("handles", {}).get("dbus-daemon", {}).items():
        if name.startswith("hold"):
            lines.append([name, number(row["bytes"])])
    lines.append(["the shared object, loaded", number(results["shared_object_bytes"])])
    style.table(["", "bytes"], lines)


def write_handles(style, handles):
    style.title("Until a handle is of use")
    names = [name for name in next(iter(handles.values())) if name.startswith("start")]
    style.table(["microseconds", *handles],
                [[name, *(number(rows[name]["nanoseconds"] / 1000) for rows in handles.values())]
                 for name in names])


def write_instructions(style, rows):
    style.title("Instructions per event")
    reference = rows.get("sdbus")
    lines = []
    for peer, counts in rows.items():
        cells = [peer]
        for role in ("producer", "consumer"):
            cells.append(number(counts[role]) +
                         (f" ({counts[role] / reference[role]:.2f})" if reference else ""))
        lines.append(cells)
    style.table(["", "producer", "consumer"], lines)


def write_footprint(style, rows):
    style.title("What an event touches that comes alone")
    columns = [(peer, role) for role in ("producer", "consumer") for peer in rows]
    places = {}
    for peer, role in columns:
        for place, lines in rows[peer][role]["lines_by_place"].items():
            places.setdefault(place, {})[peer, role] = lines
    lines = [[place, *(number(counts.get(column)) for column in columns)]
             for place, counts in sorted(places.items(), key=lambda one: -sum(one[1].values()))]
    for figure in ("lines", "pages"):
        lines.append([f"all {figure}", *(number(rows[peer][role][figure]) for peer, role in columns)])
    style.table(["lines of the cache", *(f"{role}, {peer}" for peer, role in columns)], lines)


def write(results, out, style_of=Text):
    style = style_of(out)
    about = results["machine"]
    style.note(f"{about['processors']} x {about['processor']}, Linux {about['kernel']}, "
               f"{about['date']}; {about['busy']} processors were at work before it began.")
    if about["busy"] > about["processors"] / 4:
        style.note("The machine was busy with other work: throughput and latency say little here, the "
                   "ratios of processor time more, allocations and instructions all.")
    if "bus" in results:
        write_bus(style, results["bus"])
    if results.get("instructions"):
        write_instructions(style, results["instructions"])
    if results.get("footprint"):
        write_footprint(style, results["footprint"])
    if results.get("handles"):
        write_handles(style, results["handles"])
    if "in_process" in results:
        write_in_process(style, results["in_process"])
    if "in_process" in results or "handles" in results:
        write_held(style, results)


def renew(results, page):
    text = page.read_text()
    before, begin, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        sys.exit(f"report: {page} has no place for the tables")
    tables = io.StringIO()
    write(results, tables, Markdown)
    page.write_text(before + BEGIN + "\n" + tables.getvalue() + END + after)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("results", type=pathlib.Path)
    parser.add_argument("--renew", type=pathlib.Path)
    arguments = parser.parse_args()
    results = json.loads(arguments.results.read_text())
    if arguments.renew:
        renew(results, arguments.renew)
    else:
        write(results, sys.stdout)


if __name__ == "__main__":
    main()
