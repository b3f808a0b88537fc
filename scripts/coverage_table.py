"""Prints what a gcovr report (JSON) says per file: the most lines missing first.

    coverage_table.py REPORT
"""

import json
import sys

ENOUGH = 0.95  # of the lines of a file in src/; below, they are named


def ranges(numbers):
    """"3, 7-9" of sorted line numbers."""
    found = []
    for number in numbers:
        if found and number == found[-1][1] + 1:
            found[-1][1] = number
        else:
            found.append([number, number])
    return ", ".join(str(a) if a == b else f"{a}-{b}" for a, b in found)


class File:
    def __init__(self, entry):
        self.name = entry["file"]
        lines = {}  # a line counts once, however many templates it was compiled into
        branches = {}
        for line in entry["lines"]:
            if line.get("gcovr/noncode") or line.get("gcovr/excluded"):
                continue
            number = line["line_number"]
            lines[number] = lines.get(number, 0) + line["count"]
            for at, branch in enumerate(line["branches"]):
                if branch.get("throw"):
                    continue
                branches[number, at] = branches.get((number, at), 0) + branch["count"]
        self.lines = len(lines)
        self.missing = sorted(number for number, count in lines.items() if count == 0)
        self.branches = len(branches)
        self.taken = sum(count > 0 for count in branches.values())

    @property
    def reached(self):
        return self.lines - len(self.missing)

    def is_short(self):
        return self.name.startswith("src/") and self.reached < ENOUGH * self.lines


def percent(part, whole):
    return f"{100 * part / whole:5.1f} %" if whole else "      -"


def row(name, lines, reached, branches, taken):
    print(
        f"{name:44} {lines - reached:7} {lines:7} {percent(reached, lines)}"
        f" {branches:9} {percent(taken, branches)}"
    )


def main(report):
    with open(report, encoding="utf-8") as opened:
        files = [File(entry) for entry in json.load(opened)["files"]]
    files = [file for file in files if file.lines]
    files.sort(key=lambda file: (-len(file.missing), file.name))
    print(f"{'':44} missing   lines reached  branches   taken")
    for file in files:
        row(file.name, file.lines, file.reached, file.branches, file.taken)
    for folder in ("src/", "switch/", "cli/", ""):
        inside = [file for file in files if file.name.startswith(folder)]
        row(
            f"total {folder}",
            sum(file.lines for file in inside),
            sum(file.reached for file in inside),
            sum(file.branches for file in inside),
            sum(file.taken for file in inside),
        )
    for file in filter(File.is_short, files):
        print(f"\n{file.name}: no test reaches the lines {ranges(file.missing)}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: coverage_table.py REPORT")
    main(sys.argv[1])
