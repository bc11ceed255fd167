#!/usr/bin/env python3
"""Turns the results of the benchmark program into tables: ours, the floor, the peers, and the ratios.

usage: report.py [--write FILE] [--command COMMAND] RESULT.json...

RESULT.json is what `devsupport_bench --benchmark_out=RESULT.json` wrote. Prints plain text; --write also writes the
tables as a page of Markdown, with machine and versions in its head and COMMAND at its foot. bench/README.md says how
to read them.
"""
import argparse
import json
import os
import platform
import re
import statistics
import sys
import textwrap

NAME = re.compile(r"(?P<row>[^/@]+)(@(?P<point>\d+))?/(?P<role>ours|floor|peer)(:(?P<who>.*?))?"
                  r"(/manual_time|/repeats:\d+)*$")


class Participant:
    """One benchmark: the times of its repetitions, in nanoseconds."""

    def __init__(self, role, who, place):
        self.role = role
        self.who = who or ""
        self.place = place  # in the order of registration
        self.times = []
        self.error = None

    def label(self):
        return f"{self.role} {self.who}".rstrip()

    def median(self):
        return statistics.median(self.times)

    def spread(self):
        """Half of what the middle half of the repetitions spans, as a part of the median."""
        if len(self.times) < 2:
            return 0.0
        lower, _, upper = statistics.quantiles(self.times, n=4)
        return (upper - lower) / 2 / self.median()


class Row:
    """One job: its participants at each point of the series; an ordinary row has the one point None."""

    def __init__(self, name, aim, title):
        self.name = name
        self.title = title
        self.against, ratio = aim
        self.aim = float(ratio)
        self.points = {}

    def measured(self, point=None):
        return sorted((p for p in self.points[point].values() if p.times), key=lambda p: p.place)

    def failed(self):
        return [p for point in self.points.values() for p in point.values() if p.error]


def read_results(paths):
    """All rows in the order of the files, and the context of the first file."""
    rows, context = {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            result = json.load(file)
        context = context or result["context"]
        for run in result["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            add_run(rows, context, run)
    return list(rows.values()), context


def add_run(rows, context, run):
    name = NAME.match(run["name"])
    row = name["row"]
    if row not in rows:
        against, ratio, title = context[f"row:{row}"].split(" ", 2)
        rows[row] = Row(row, (against, ratio), title)
    point = int(name["point"]) if name["point"] else None
    participants = rows[row].points.setdefault(point, {})
    participant = participants.setdefault((name["role"], name["who"]),
                                          Participant(name["role"], name["who"], run["family_index"]))
    if run.get("error_occurred"):
        participant.error = run["error_message"]
    else:
        elapsed = "/manual_time" in run["name"]
        participant.times.append(run["real_time" if elapsed else "cpu_time"])


def nanoseconds(value):
    return f"{value:,.1f} ns" if value < 1000 else f"{value:,.0f} ns"


def read_remarks(path):
    """What stands in the way, by row: sections headed `## row, row`."""
    with open(path, encoding="utf-8") as file:
        sections = re.split(r"^## (.+)$", file.read(), flags=re.MULTILINE)[1:]
    return {row.strip(): " ".join(text.split())
            for rows, text in zip(sections[::2], sections[1::2]) for row in rows.split(",")}


class Verdict:
    """What a row was to reach, and whether it did."""

    def __init__(self, row, rivals):
        best = min(rivals, key=Participant.median)
        ours = next(p for p in row.measured() if p.role == "ours")
        what = f"the best peer ({best.who})" if row.against == "peer" else "the floor"
        ratio = ours.median() / best.median()
        self.reached = ratio <= row.aim
        self.text = (f"{ratio:.2f} times {what}; aim at most {row.aim:.2f}: "
                     f"{'reached' if self.reached else 'MISSED'}")


def verdict(row):
    """None where nothing is aimed at."""
    rivals = [p for p in row.measured() if p.role == row.against] if None in row.points else []
    return Verdict(row, rivals) if rivals else None


def plain_table(row):
    """Heading and cells of a row: the participants below each other, with the ratios."""
    ours = next((p.median() for p in row.measured() if p.role == "ours"), None)
    cells = []
    for p in row.measured():
        ratio = f"{ours / p.median():.2f}" if ours and p.role != "ours" else ""
        cells.append([p.label(), nanoseconds(p.median()), f"± {p.spread():.0%}", ratio])
    return ["", "median", "spread", "ours / it"], cells


def series_table(row):
    """Heading and cells of a series: the points below each other, the participants beside each other."""
    labels = list(dict.fromkeys(p.label() for point in sorted(row.points) for p in row.measured(point)))
    cells = []
    for point in sorted(row.points):
        by_label = {p.label(): p for p in row.measured(point)}
        cells.append([f"{point:,}"] + [
            f"{nanoseconds(by_label[label].median())} ± {by_label[label].spread():.0%}" if label in by_label else ""
            for label in labels])
    return ["", *labels], cells


def table(row):
    return plain_table(row) if None in row.points else series_table(row)


def notes(row, remarks):
    """The verdict, what stands in the way where it is bad, and who failed."""
    found = verdict(row)
    lines = [found.text + "."] if found else []
    if found and not found.reached and row.name in remarks:
        lines.append("In the way: " + remarks[row.name])
    return lines + [f"{p.label()}: failed, {p.error}." for p in row.failed()]


def as_text(row, remarks):
    heading, cells = table(row)
    widths = [max(len(line[i]) for line in [heading, *cells]) for i in range(len(heading))]
    lines = [f"{row.name}: {row.title}"]
    for line in [heading, *cells]:
        padded = [line[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(line[1:], widths[1:])]
        lines.append("  " + "   ".join(padded).rstrip())
    for note in notes(row, remarks):
        lines += textwrap.wrap(note, 116, initial_indent="  -> ", subsequent_indent="     ")
    return "\n".join(lines) + "\n"


def as_markdown(row, remarks):
    heading, cells = table(row)
    lines = [f"## {row.name}: {row.title}", "", "| " + " | ".join(heading) + " |",
             "|---|" + "---:|" * (len(heading) - 1)]
    lines += ["| " + " | ".join(line) + " |" for line in cells]
    for note in notes(row, remarks):
        lines += ["", note]
    return "\n".join(lines) + "\n"


def processor():
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as file:
            return next(line.split(":", 1)[1].strip() for line in file if line.startswith("model name"))
    except (OSError, StopIteration):
        return platform.machine()


def peers(context):
    """Peers that took part, with versions, and those that are missing."""
    found, missing = [], []
    for key, value in context.items():
        if key.startswith("peer:"):
            (missing if value.startswith("missing ") else found).append((key[5:], value.removeprefix("missing ")))
    return found, missing


def head(context):
    found, missing = peers(context)
    caches = ", ".join(f"L{c['level']} {c['type'].lower()} {c['size'] // 1024} KiB" for c in context["caches"])
    facts = [("Machine", f"{processor()}, {os.cpu_count()} processors; {caches}"),
             ("System", f"Linux {platform.release().split('-')[0]}, {' '.join(platform.libc_ver())}"),
             ("Compiler", f"{context['compiler']}, -O2"),
             ("Load when it began", f"{context['load_avg'][0]:.2f}" if context["load_avg"] else "unknown"),
             ("Peers", ", ".join(f"{name} {version}" for name, version in found) or "none")]
    if missing:
        facts.append(("Missing peers", ", ".join(f"{name} (package {package})" for name, package in missing)))
    return facts


def page(rows, context, remarks, command):
    lines = ["# Benchmarks", "",
             "Written by `script/bench --write`. The time of one operation: median of the repetitions, which are shuffled "
             "with those of the row's other participants; the spread is half of what the middle half of them spans.", ""]
    lines += [f"- {name}: {value}" for name, value in head(context)]
    lines += ["", *(as_markdown(row, remarks) for row in rows), "## Repeat it", "", "```", command, "```"]
    return "\n".join(lines) + "\n"


def check_remarks(rows, remarks):
    """The page has a remark for every row that misses its aim, and none for rows that are not there."""
    unknown = sorted(set(remarks) - {row.name for row in rows})
    if unknown:
        sys.exit("bench/remarks.md: no such row: " + ", ".join(unknown))
    for row in rows:
        found = verdict(row)
        if found and not found.reached and row.name not in remarks:
            print(f"bench/remarks.md says nothing of {row.name}, which misses its aim", file=sys.stderr)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--write", metavar="FILE", help="also write a page of Markdown")
    parser.add_argument("--command", default="script/bench", help="the command that the page names at its foot")
    parser.add_argument("results", nargs="+", metavar="RESULT.json")
    arguments = parser.parse_args()

    rows, context = read_results(arguments.results)
    remarks = read_remarks(os.path.join(os.path.dirname(__file__), "remarks.md"))
    for name, value in head(context):
        print(f"{name}: {value}")
    print()
    for row in rows:
        print(as_text(row, remarks))
    if arguments.write:
        check_remarks(rows, remarks)
        with open(arguments.write, "w", encoding="utf-8") as file:
            file.write(page(rows, context, remarks, arguments.command))
    return 0


if __name__ == "__main__":
    sys.exit(main())
