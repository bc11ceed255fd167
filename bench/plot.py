# SPDX-License-Identifier: MIT
"""Draws a series as an SVG with gnuplot: the cost of one operation against what grows, with the middle half of the
repetitions as whiskers."""
import subprocess

OURS, FLOOR = "lc rgb '#0b5cad' lw 2.6", "lc rgb '#7a7a7a' lw 1.8 dt '--'"
PEERS = [f"lc rgb '{colour}' lw 1.5" for colour in ("#c4561e", "#2f8f5b", "#8a4fa3", "#a8892c")]
UNITS = ((1e9, "s"), (1e6, "ms"), (1e3, "µs"), (1, "ns"))
STEEP = 12  # the highest cost is that often the lowest: a logarithmic axis

SCRIPT = """
set encoding utf8
set terminal svg size 720,{height} font 'Helvetica,12' background '#ffffff'
set title "{what}" font ',13'
set key outside top center horizontal maxcols 2 Left reverse
set border 3
set rmargin 4
set grid ytics
set logscale x
set xrange [{first}:{last}]
set xtics nomirror ({ticks})
set xlabel "{by} (logarithmic)"
set ylabel "time of one operation ({scale})"
set ytics nomirror
{y_axis}
plot {curves}
"""


def curve(row, label, style, unit):
    """A block of medians and quartiles, and the curve over it."""
    found = [(point, row.at(point, label)) for point in row.points]
    lines = [" ".join(str(value) for value in (point, *(ns / unit for ns in (it.median(), *it.quartiles()))))
             for point, it in found if it]
    name = "$" + "".join(letter if letter.isalnum() else "_" for letter in label)
    return [f"{name} << END", *lines, "END"], f"{name} with yerrorlines {style} pt 7 ps 0.4 title \"{label}\" noenhanced"


def can_plot(row):
    """A series of times over numbers."""
    return row.unit == "ns" and len(row.points) > 2 and all(isinstance(p, int) for p in row.points) and \
        any(row.measured(point) for point in row.points)


def draw(row):
    values = [value for point in row.points for p in row.measured(point) for value in p.quartiles()]
    unit, name = next((unit for unit in UNITS if max(values) >= unit[0]), UNITS[-1])
    scale, y_axis = "from 0", f'set yrange [0:*]; set format y "%g {name}"'
    if max(values) > STEEP * min(values):
        unit, scale, y_axis = 1e9, "logarithmic", 'set logscale y; set format y "%.0s %cs"'
    peers = iter(PEERS * len(row.labels()))
    styles = {label: OURS if label.startswith("ours") else FLOOR if label.startswith("floor") else next(peers)
              for label in row.labels()}
    # Ours is drawn last except for the floor. The floor's dashes show both lines where they are the same.
    order = sorted(styles, key=lambda label: (label[:4] != "peer", label[:4] != "ours"))
    data, curves = zip(*(curve(row, label, styles[label], unit) for label in order))
    what, _, by = row.title.partition(", by ")
    script = SCRIPT.format(height=400 + 9 * len(order), what=what, by=by, scale=scale, y_axis=y_axis,
                           first=0.99 * min(row.points), last=1.01 * max(row.points), curves=", \\\n  ".join(curves),
                           ticks=", ".join(f"'{point:,}' {point}" for point in row.points))
    script = "\n".join(line for block in data for line in block) + script
    return subprocess.run(["gnuplot"], input=script, check=True, capture_output=True, text=True).stdout
