# SPDX-License-Identifier: MIT
"""Draws a series as an SVG: the cost of one operation against what grows.

Plain SVG without anything that varies from run to run but the figures, so that a new plot differs from the old one
where the measurements do.
"""
import math
from html import escape

WIDTH, HEIGHT = 720, 400
LEFT, RIGHT, BOTTOM = 76, 40, 56  # margins; the one on top grows with the legend
LEGEND_COLUMNS, LEGEND_LINE = 2, 18
OURS, FLOOR = "#0b5cad", "#7a7a7a"
PEERS = ("#c4561e", "#2f8f5b", "#8a4fa3", "#a8892c")
FONT = "font-family='Helvetica, Arial, sans-serif' font-size='12'"
UNITS = ((1e9, "s"), (1e6, "ms"), (1e3, "µs"), (1, "ns"))


def unit_of(nanoseconds):
    """The largest unit in which it is not a fraction."""
    return next((unit for unit in UNITS if nanoseconds >= unit[0]), UNITS[-1])


def count_text(number):
    return f"{number:,}"


class LogScale:
    """Whole decades, with a tick at each; 1, 2, 5 where there are few decades."""

    def __init__(self, low, high):
        steps = [s * 10.0 ** d for d in range(-1, 13) for s in (1, 2, 5)]
        self.low = max(s for s in steps if s <= low)
        self.high = min(s for s in steps if s >= high)
        decades = math.log10(self.high / self.low)
        wanted = (1, 2, 5) if decades <= 2.5 else (1,)
        self.ticks = [s for s in steps
                      if self.low <= s <= self.high and round(s / 10 ** math.floor(math.log10(s) + 1e-9)) in wanted]

    def part(self, value):
        return math.log(value / self.low) / math.log(self.high / self.low)

    def text(self, tick):
        size, unit = unit_of(tick)
        return f"{tick / size:g} {unit}"


class LinearScale:
    """From 0, with four to eight ticks."""

    def __init__(self, high):
        step = next(s * 10.0 ** d for d in range(-1, 13) for s in (1, 2, 2.5, 5) if high <= 8 * s * 10.0 ** d)
        self.high = step * math.ceil(high / step)
        self.ticks = [step * i for i in range(round(self.high / step) + 1)]

    def part(self, value):
        return value / self.high

    def text(self, tick):
        """All ticks in the unit of the highest."""
        size, unit = unit_of(self.high)
        return f"{tick / size:g} {unit}" if tick else "0"


class PointScale:
    """The points of the series on a logarithmic axis, with a tick at each."""

    def __init__(self, points):
        self.ticks = points

    def part(self, value):
        return math.log(value / self.ticks[0]) / math.log(self.ticks[-1] / self.ticks[0])


def style(participant_label, peer_number):
    """Colour, line width and dashes."""
    if participant_label.startswith("ours"):
        return OURS, 2.6, ""
    if participant_label.startswith("floor"):
        return FLOOR, 1.8, "6 4"
    return PEERS[peer_number % len(PEERS)], 1.5, ""


class Plot:
    def __init__(self, row):
        self.row = row
        self.labels = row.labels()
        self.top = 44 + LEGEND_LINE * math.ceil(len(self.labels) / LEGEND_COLUMNS)
        self.height = HEIGHT + self.top - 44
        self.x = PointScale(list(row.points))
        values = [value for point in row.points for p in row.measured(point) for value in (*p.quartiles(), p.median())]
        steep = max(values) / min(values) > 12
        self.y = LogScale(min(values), max(values)) if steep else LinearScale(max(values))
        self.out = []

    def at_x(self, point):
        return LEFT + (WIDTH - LEFT - RIGHT) * self.x.part(point)

    def at_y(self, value):
        bottom = self.height - BOTTOM
        return bottom - (bottom - self.top) * self.y.part(value)

    def line(self, x1, y1, x2, y2, colour, width=1.0, dashes=""):
        dash = f" stroke-dasharray='{dashes}'" if dashes else ""
        self.out.append(f"<line x1='{x1:.1f}' y1='{y1:.1f}' x2='{x2:.1f}' y2='{y2:.1f}' stroke='{colour}' "
                        f"stroke-width='{width:g}'{dash}/>")

    def text(self, x, y, text, anchor="start", extra=""):
        self.out.append(f"<text x='{x:.1f}' y='{y:.1f}' text-anchor='{anchor}'{extra}>{escape(text)}</text>")

    def axes(self):
        bottom = self.height - BOTTOM
        for tick in self.y.ticks:
            self.line(LEFT, self.at_y(tick), WIDTH - RIGHT, self.at_y(tick), "#dddddd")
            self.text(LEFT - 8, self.at_y(tick) + 4, self.y.text(tick), "end")
        for tick in self.x.ticks:
            self.line(self.at_x(tick), bottom, self.at_x(tick), bottom + 5, "#333333")
            self.text(self.at_x(tick), bottom + 20, count_text(tick), "middle")
        self.line(LEFT, bottom, WIDTH - RIGHT, bottom, "#333333")
        what, _, by = self.row.title.partition(", by ")
        self.text(LEFT, 20, what, extra=" font-weight='bold'")
        self.text((LEFT + WIDTH - RIGHT) / 2, self.height - 14, f"{by} (logarithmic)", "middle")
        middle = (self.top + bottom) / 2
        scale = "logarithmic" if isinstance(self.y, LogScale) else "from 0"
        self.text(16, middle, f"time of one operation ({scale})", "middle", f" transform='rotate(-90 16 {middle:.1f})'")

    def legend(self, number, label, colour, width, dashes):
        x = LEFT + (number % LEGEND_COLUMNS) * (WIDTH - LEFT - RIGHT) / LEGEND_COLUMNS
        y = 40 + LEGEND_LINE * (number // LEGEND_COLUMNS)
        self.line(x, y - 4, x + 26, y - 4, colour, width, dashes)
        self.text(x + 32, y, label)

    def curve(self, label, colour, width, dashes):
        """The medians, and at each of them a whisker over the middle half of the repetitions."""
        points = [(point, self.row.at(point, label)) for point in self.row.points]
        points = [(self.at_x(point), found) for point, found in points if found]
        path = " ".join(f"{x:.1f},{self.at_y(found.median()):.1f}" for x, found in points)
        dash = f" stroke-dasharray='{dashes}'" if dashes else ""
        self.out.append(f"<polyline points='{path}' fill='none' stroke='{colour}' stroke-width='{width:g}'{dash}/>")
        for x, found in points:
            lower, upper = found.quartiles()
            if self.at_y(lower) - self.at_y(upper) > 6:
                self.line(x, self.at_y(lower), x, self.at_y(upper), colour)
            self.out.append(f"<circle cx='{x:.1f}' cy='{self.at_y(found.median()):.1f}' r='{width + 0.8:g}' "
                            f"fill='{colour}'/>")

    def draw(self):
        self.axes()
        peers = [label for label in self.labels if label.startswith("peer")]
        styles = {label: style(label, peers.index(label) if label in peers else 0) for label in self.labels}
        for number, label in enumerate(self.labels):
            self.legend(number, label, *styles[label])
        # Ours is drawn last, but for the floor, whose dashes show it where the two are one.
        for label in sorted(self.labels, key=lambda label: (label[:4] != "peer", label[:4] != "ours")):
            self.curve(label, *styles[label])
        return "\n".join([
            f"<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {WIDTH} {self.height}' width='{WIDTH}' "
            f"height='{self.height}' {FONT} fill='#222222'>",
            f"<title>{escape(self.row.title)}</title>",
            f"<rect width='{WIDTH}' height='{self.height}' fill='#ffffff'/>",
            *self.out, "</svg>"]) + "\n"


def can_plot(row):
    """A series of times over numbers."""
    return row.unit == "ns" and len(row.points) > 2 and all(isinstance(p, int) for p in row.points) and \
        any(row.measured(point) for point in row.points)


def draw(row):
    return Plot(row).draw()
