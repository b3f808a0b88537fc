#!/usr/bin/python3
"""Draws the plots of docs/performance.md: plot.py RESULTS.json FOLDER"""
import json
import math
import pathlib
import sys

WIDTH, HEIGHT = 640, 360
LEFT, RIGHT, TOP, BOTTOM = 84, 140, 40, 50
COLOURS = ("#1f5fa8", "#c0392b", "#2e8b57", "#8e5ea2", "#d68910", "#555555", "#17a2b8")


def decades(low, high):
    return [10.0**power for power in range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)]


def ticks(low, high):
    """Round numbers around both ends: decades, and their 2 and 5 where the decades are few."""
    marks = decades(low, high)
    if len(marks) <= 3:
        marks = sorted({mark * part for mark in marks for part in (1, 2, 5)})
    below = max([mark for mark in marks if mark <= low], default=marks[0])
    above = min([mark for mark in marks if mark >= high], default=marks[-1])
    return [mark for mark in marks if below <= mark <= above]


def label(value):
    if value >= 1e6:
        return f"{value / 1e6:,.0f} M"
    return f"{value:,.0f}" if value >= 1 else f"{value:g}"


class Plot:
    """Lines over two logarithmic axes."""

    def __init__(self, title, across, down, lines):
        self.lines = lines
        points = [point for line in self.lines.values() for point in line]
        self.xs = sorted({x for x, _ in points})
        self.ys = ticks(min(y for _, y in points), max(y for _, y in points))
        self.parts = [
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
            'font-family="sans-serif" font-size="12" fill="#222">',
            f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#fff"/>',
            f'<text x="{LEFT}" y="22" font-size="15">{title}</text>',
            f'<text x="{(LEFT + WIDTH - RIGHT) / 2:.0f}" y="{HEIGHT - 10}" text-anchor="middle">{across}</text>',
            f'<text transform="translate(14 {(TOP + HEIGHT - BOTTOM) / 2:.0f}) rotate(-90)" '
            f'text-anchor="middle">{down}</text>']

    def x(self, value):
        low, high = math.log(self.xs[0]), math.log(self.xs[-1])
        return LEFT + (math.log(value) - low) / (high - low) * (WIDTH - LEFT - RIGHT)

    def y(self, value):
        low, high = math.log(self.ys[0]), math.log(self.ys[-1])
        return HEIGHT - BOTTOM - (math.log(value) - low) / (high - low) * (HEIGHT - TOP - BOTTOM)

    def draw_axes(self):
        right = WIDTH - RIGHT
        for value in self.ys:
            self.parts.append(f'<path d="M{LEFT} {self.y(value):.1f}H{right}" stroke="#ddd"/>')
            self.parts.append(f'<text x="{LEFT - 6}" y="{self.y(value) + 4:.1f}" '
                              f'text-anchor="end">{label(value)}</text>')
        for value in self.xs:
            self.parts.append(f'<text x="{self.x(value):.1f}" y="{HEIGHT - BOTTOM + 18}" '
                              f'text-anchor="middle">{label(value)}</text>')

    def label_places(self):
        """Beside the ends of the lines, far enough apart to be read."""
        ends = sorted((self.y(points[-1][1]), name) for name, points in self.lines.items())
        places, last = {}, -math.inf
        for at, name in ends:
            last = max(at, last + 15)
            places[name] = last
        excess = last - (HEIGHT - BOTTOM)
        return {name: at - max(0, excess) for name, at in places.items()} if excess > 0 else places

    def draw(self):
        self.draw_axes()
        places = self.label_places()
        for (name, points), colour in zip(self.lines.items(), COLOURS):
            path = " ".join(f"{self.x(x):.1f},{self.y(y):.1f}" for x, y in points)
            marks = "".join(f"M{self.x(x):.1f} {self.y(y):.1f}h0" for x, y in points)
            self.parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
            self.parts.append(f'<path d="{marks}" stroke="{colour}" stroke-width="7" stroke-linecap="round"/>')
            self.parts.append(f'<text x="{WIDTH - RIGHT + 10}" y="{places[name] + 4:.1f}" '
                              f'fill="{colour}">{name}</text>')
        return "\n".join(self.parts) + "\n</svg>\n"


def series(rows, name, per_item=False):
    """The points of NAME/NUMBER."""
    points = {int(key.rpartition("/")[2]): row["nanoseconds"] for key, row in rows.items()
              if key.rpartition("/")[0] == name}
    return [(at, points[at] / (at if per_item else 1)) for at in sorted(points)]


def by_consumers(rows, bus):
    lines = {}
    for row in rows:
        producers, _, consumers = row.get("shape", "").partition(" to ")
        if row["bus"] == bus and producers == "1" and row["load"] == "saturation":
            for peer, figures in row["peers"].items():
                lines.setdefault(peer, []).append((int(consumers), figures["pair"]))
    return lines


def plots(results):
    """Name, title, axes and lines of each."""
    rows = results["in_process"]
    yield "keys", ("What the library does with an event", "keys", "nanoseconds per key", {
        title: series(rows, name, True) for title, name in (
            ("declare and create", "create"), ("build and serialise", "build_and_serialise<Library>"),
            ("serialise", "serialise"), ("read back", "read_back<Library>"), ("copy", "copy"),
            ("JSON", "json"), ("read XML", "read_declaration_xml"))})
    yield "match", ("Three tests against an event", "keys", "nanoseconds",
                    {"match": series(rows, "match")})
    ways = {"library": "Library", "GVariant": "Variant", "protobuf": "Protobuf",
            "FlatBuffers": "FlatBuffer"}
    for name, title in (("build_and_serialise", "Build and serialise an event"),
                        ("read_back", "Read an event back")):
        yield name, (title, "keys", "nanoseconds per key",
                     {peer: series(rows, f"{name}<{way}>", True) for peer, way in ways.items()})
    yield "subscriptions", ("An event that ten subscriptions want", "subscriptions", "nanoseconds",
                            {"looked up": series(rows, "match_in_order"),
                             "each asked": series(rows, "ask_each")})
    yield "declarations", ("An event of one of a producer's declarations", "declarations",
                           "nanoseconds", {"prepare and send": series(rows, "prepare_and_send")})
    for bus in dict.fromkeys(row["bus"] for row in results["bus"] if "absent" not in row):
        yield f"consumers_{bus}", (
            f"One producer and its consumers together, {bus}", "consumers",
            "microseconds per event received", by_consumers(results["bus"], bus))


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    results, folder = json.loads(pathlib.Path(sys.argv[1]).read_text()), pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    for name, (*texts, lines) in plots(results):
        lines = {line: points for line, points in lines.items() if points}
        if lines:
            (folder / f"{name}.svg").write_text(Plot(*texts, lines).draw())


main()
