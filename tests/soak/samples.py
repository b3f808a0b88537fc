"""Memory and descriptors of processes over time, and whether they stay flat."""
import os
import pathlib

KINDS = {"p": "producer", "c": "consumer", "s": "switch"}
COLOURS = {"producer": "tab:green", "consumer": "tab:blue", "switch": "tab:red"}
FEWEST = 20     # points that tell something
BLOCKS = " ▁▂▃▄▅▆▇█"


def measure(pid):
    """(kilobytes of memory of its own, descriptors), or None when it has gone."""
    try:
        status = pathlib.Path(f"/proc/{pid}/status").read_text()
        memory = next(int(line.split()[1]) for line in status.splitlines()
                      if line.startswith("RssAnon:"))
        return memory, len(os.listdir(f"/proc/{pid}/fd"))
    except (OSError, StopIteration):
        return None


class Series:
    """One process: (seconds, kilobytes, descriptors)."""

    # What a fitted line may rise by over the second half.
    memory_share = 0.10
    memory_kilobytes = 256
    descriptors = 2

    def __init__(self, name):
        self.name, self.points = name, []

    def add(self, seconds, measured):
        if measured:
            self.points.append((seconds, *measured))

    def rise(self, column):
        """What the line fitted to the second half rises by from its begin to its end, and the mean."""
        half = [(point[0], point[column]) for point in self.points[len(self.points) // 2:]]
        mean_time = sum(time for time, _ in half) / len(half)
        mean = sum(value for _, value in half) / len(half)
        spread = sum((time - mean_time) ** 2 for time, _ in half)
        if spread == 0:
            return 0.0, mean
        slope = sum((time - mean_time) * (value - mean) for time, value in half) / spread
        return slope * (half[-1][0] - half[0][0]), mean

    def faults(self):
        if len(self.points) < FEWEST:
            return []
        found = []
        rise, mean = self.rise(1)
        if rise > self.memory_share * mean + self.memory_kilobytes:
            found.append(f"{self.name}: memory rose by {rise:.0f} kB in the second half, "
                         f"from about {mean - rise / 2:.0f} kB")
        rise, mean = self.rise(2)
        if rise > self.descriptors:
            found.append(f"{self.name}: descriptors rose by {rise:.1f} in the second half, "
                         f"from about {mean - rise / 2:.0f}")
        return found

    def chart(self, column, width=40):
        values = [point[column] for point in self.points]
        if not values:
            return ""
        picked = [values[at * len(values) // width] for at in range(min(width, len(values)))] \
            if len(values) > width else values
        top = max(values)
        return "".join(BLOCKS[max(1, round(8 * value / top))] if top else BLOCKS[0]
                       for value in picked)


def plot(all_series, title, file):
    """As an SVG; False where the plotting library is not installed."""
    try:
        import matplotlib
    except ImportError:
        return False
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "varro2"
    from matplotlib import pyplot
    figure, (memory, descriptors) = pyplot.subplots(2, 1, figsize=(6.4, 6), sharex=True)
    named = set()
    for series in all_series:
        kind = KINDS[series.name[0]]
        for axes, column in ((memory, 1), (descriptors, 2)):
            axes.plot([point[0] for point in series.points],
                      [point[column] for point in series.points], color=COLOURS[kind],
                      label=None if kind in named else kind,
                      linewidth=1.6 if kind == "switch" else 0.8)
        named.add(kind)
    memory.set(title=title, ylabel="kB of memory of its own", ylim=(0, None))
    descriptors.set(xlabel="seconds", ylabel="descriptors", ylim=(0, None))
    for axes in (memory, descriptors):
        axes.grid(alpha=0.3)
    memory.legend()
    figure.tight_layout()
    figure.savefig(file, metadata={"Date": None})
    pyplot.close(figure)
    return True
