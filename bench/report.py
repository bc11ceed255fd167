#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Turns the results of the benchmark programs into tables and plots: ours, the floor, the peers, and the ratios.

usage: report.py [--write FILE] [--plots FOLDER] [--command COMMAND] RESULT.json...
       report.py --device FILE RESULT.json...       writes the counts of the device into the page, beside its times

RESULT.json is what `devsupport_bench --benchmark_out=RESULT.json` or `process.py --out RESULT.json` wrote. Prints plain
text, and draws each series into FOLDER; --write also writes the tables as a page of Markdown, whose plots are in
FOLDER. bench/README.md says how to read them.
"""
import argparse
import os
import platform
import re
import subprocess
import sys
import textwrap

import plot
import results

SIZE_BLOCK = ("<!-- size:begin -->", "<!-- size:end -->")  # belongs to `script/bench size`
DEVICE_BLOCK = ("<!-- device:begin -->", "<!-- device:end -->")  # belongs to `script/bench device`
READING_BLOCK = ("<!-- reading:begin -->", "<!-- reading:end -->")  # belongs to `script/bench reading`
FLEET_BLOCK = ("<!-- fleet:begin -->", "<!-- fleet:end -->")  # belongs to `script/fleet`


def value_text(value, unit):
    if unit == results.TIME:
        return f"{value:,.1f} ns" if value < 1000 else f"{value:,.0f} ns"
    return f"{value:,.0f} {unit}" if unit == "KiB" else f"{value:,.0f}"


def read_remarks(path):
    """The reasons, by row: sections headed `## row, row`."""
    with open(path, encoding="utf-8") as file:
        sections = re.split(r"^## (.+)$", file.read(), flags=re.MULTILINE)[1:]
    return {row.strip(): " ".join(text.split())
            for rows, text in zip(sections[::2], sections[1::2]) for row in rows.split(",")}


def check_remarks(rows, remarks):
    """The page has a remark for every row that misses its aim, and none for rows that are not there."""
    unknown = sorted(set(remarks) - {row.name for row in rows})
    if unknown:
        sys.exit("bench/remarks.md: no such row: " + ", ".join(unknown))
    for row in rows:
        verdict = row.verdict()
        if verdict and not verdict.reached and row.name not in remarks:
            print(f"bench/remarks.md says nothing of {row.name}, which misses its aim", file=sys.stderr)


def plain_table(row):
    """Heading and cells of a row: the participants below each other, with the ratios."""
    ours = next((p.median() for p in row.measured() if p.role == "ours"), None)
    cells = []
    for p in row.measured():
        ratio = f"{ours / p.median():.2f}" if ours and p.role != "ours" else ""
        cells.append([p.label(), value_text(p.median(), row.unit), f"± {p.spread():.0%}", ratio])
    measure = "median" if row.unit in (results.TIME, "KiB") else row.unit
    return ["", measure, "spread", "ours / it"], cells


def series_table(row):
    """Heading and cells of a series: the points below each other, the participants beside each other, the ratio to the
    floor at the end."""
    labels = row.labels()
    floor = next((label for label in labels if label.startswith("floor")), None) if row.unit == results.TIME else None
    cells = []
    for point in row.points:
        found = [row.at(point, label) for label in labels]
        line = [f"{point:,}" if isinstance(point, int) else point]
        line += [cell_text(p, row.unit) if p else "" for p in found]
        if floor:
            ours, below = row.at(point, "ours"), row.at(point, floor)
            line.append(f"{ours.median() / below.median():.2f}" if ours and below else "")
        cells.append(line)
    return ["", *labels] + (["ours / floor"] if floor else []), cells


def cell_text(participant, unit):
    text = value_text(participant.median(), unit)
    return f"{text} ± {participant.spread():.0%}" if unit == results.TIME else text


def table(row):
    return series_table(row) if row.is_series() else plain_table(row)


def notes(row, remarks):
    """The verdict, the reason where an aim is missed, and who failed."""
    verdict = row.verdict()
    lines = [verdict.text + "."] if verdict else []
    lines += [row.note] if row.note else []
    if verdict and not verdict.reached and row.name in remarks:
        lines.append("In the way: " + remarks[row.name])
    return lines + [f"{label}: failed, {why}." for label, why in row.failures.items()]


def columns_text(heading, cells):
    widths = [max(len(line[i]) for line in [heading, *cells]) for i in range(len(heading))]
    return ["  " + "   ".join([line[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in
                                                            zip(line[1:], widths[1:])]).rstrip()
            for line in [heading, *cells]]


def as_text(row, remarks, plots):
    lines = [f"{row.name}: {row.title}", *columns_text(*table(row))]
    lines += ["  " + line for line in (row.listing or "").splitlines()]
    for note in notes(row, remarks):
        lines += textwrap.wrap(note, 116, initial_indent="  -> ", subsequent_indent="     ")
    if plot.can_plot(row):
        lines.append(f"  plot: {plots}/{row.name}.svg")
    return "\n".join(lines) + "\n"


def columns_markdown(heading, cells):
    lines = ["| " + " | ".join(heading) + " |", "|---|" + "---:|" * (len(heading) - 1)]
    return lines + ["| " + " | ".join(line) + " |" for line in cells]


def as_markdown(row, remarks, plots):
    lines = [f"## {row.name}: {row.title}", "", *columns_markdown(*table(row))]
    if row.listing:
        lines += ["", "```", row.listing, "```"]
    for note in notes(row, remarks):
        lines += ["", note]
    if plot.can_plot(row):
        lines += ["", f"![{row.title}]({plots}/{row.name}.svg)", "",
                  f"*Drawn by `script/bench {row.name}`. The whiskers span the middle half of the repetitions.*"]
    return "\n".join(lines) + "\n"


def summary(rows):
    """Heading and cells of the table at the beginning: every row that has an aim."""
    cells = []
    for row in rows:
        verdict = row.verdict()
        if verdict:
            cells.append([f"[{row.name}](#{anchor(row)})", value_text(verdict.ours.median(), row.unit),
                          value_text(verdict.rival.median(), row.unit) + f", {verdict.rival_label}",
                          f"{verdict.ratio:.2f}", f"{row.aim:.2f}", "yes" if verdict.reached else "**no**"])
    return ["", "ours", "measured by", "ratio", "aim at most", "reached"], cells


def anchor(row):
    """The link that a heading gets where Markdown is shown."""
    return re.sub(r"[^\w\- ]", "", f"{row.name}: {row.title}".lower()).replace(" ", "-")


def processor():
    try:
        with open("/proc/cpuinfo", encoding="utf-8") as file:
            return next(line.split(":", 1)[1].strip() for line in file if line.startswith("model name"))
    except (OSError, StopIteration):
        return platform.machine()


def package_version(package):
    """A package's name and version as Debian has them; the name alone elsewhere."""
    try:
        asked = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True,
                               check=True)
        return f"{package} {asked.stdout}"
    except (OSError, subprocess.CalledProcessError):
        return package


def others(context, kind):
    """Other people's programs that took part, with versions and packages, and those that are missing."""
    found, missing = [], []
    for key, value in context.items():
        if key.startswith(kind + ":"):
            name = key.split(":", 1)[1]
            package, _, version = value.partition(" ")
            if version:
                found.append(f"{name} {version} ({package_version(package)})")
            else:
                missing.append(f"{name} (package {package})")
    return found, missing


def head(context):
    found, missing = others(context, "peer")
    tools, _ = others(context, "tool")
    caches = ", ".join(f"L{c['level']} {c['type'].lower()} {c['size'] // 1024} KiB" for c in context.get("caches", []))
    facts = [("Machine", f"{processor()}, {os.cpu_count()} processors; {caches}"),
             ("System", f"Linux {platform.release().split('-')[0]}, {' '.join(platform.libc_ver())}"),
             ("Load when it began", f"{context['load_avg'][0]:.2f}" if context.get("load_avg") else "unknown"),
             ("Peers", ", ".join(found) or "none")]
    if tools:
        facts.insert(2, ("Built and measured with", ", ".join(tools)))
    if missing:
        facts.append(("Missing peers", ", ".join(missing)))
    return facts


def read_page(page):
    try:
        with open(page, encoding="utf-8") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def write_page(page, text):
    with open(page + ".new", "w", encoding="utf-8") as file:
        file.write(text)
    os.replace(page + ".new", page)


def block_of(text, block):
    """A block of the page as it is now, which other scripts write; empty when the page does not have it."""
    begin, end = block
    found = re.search(f"{begin}.*?{end}", text, flags=re.DOTALL)
    return found[0] if found else f"{begin}\n{end}"


def host_ratios(text):
    """The ratios and their rivals in the page's table of all aims, by row."""
    lines = re.findall(r"^\| \[(\w+)\]\([^|]*\| [^|]* \| [^|]*?, ((?:peer|floor|ours)[^|]*?) \| ([\d.]+) \|", text, re.MULTILINE)
    return {row: f"{ratio}, {rival}" for row, rival, ratio in lines}


def device_block(rows, text):
    """The counts of the device beside the ratios of this machine's times."""
    hosts = host_ratios(text)
    heading = ["", "ours, instructions", "measured by", "ratio on the device", "ratio of the times above"]
    cells = []
    for row in rows:
        verdict = row.verdict()
        if verdict:
            cells.append([row.name, value_text(verdict.ours.median(), row.unit),
                          value_text(verdict.rival.median(), row.unit) + f", {verdict.rival_label}",
                          f"{verdict.ratio:.2f}", hosts.get(row.name, "")])
    return "\n".join([DEVICE_BLOCK[0], "## Instructions on the device", "",
                      "Written by `script/bench device --write`: instructions for one operation on the emulated device, "
                      "the kernel's included, built with -Os as the device's programs are. The rows of the log channel "
                      "and of the store differ by a tenth to a third between two starts of the machine, all others by "
                      "less than 2 %.", "", *columns_markdown(heading, cells), DEVICE_BLOCK[1]])


def page(rows, context, remarks, arguments):
    plots = os.path.relpath(arguments.plots, os.path.dirname(arguments.write))
    lines = ["# Benchmarks", "",
             f"Written by `{arguments.command}`. Times are those of one operation: the median of the repetitions, which "
             "are shuffled with those of the row's other participants; the spread is half of what the middle half of "
             "them spans. A ratio below 1 means that we are faster or need less. `script/bench ROW` prints "
             "one table again, `bench/README.md` says how to read them and what the aims are.", ""]
    lines += [f"- {name}: {value}" for name, value in head(context)]
    lines += ["", *columns_markdown(*summary(rows)), ""]
    lines += [as_markdown(row, remarks, plots) for row in rows]
    commands = {"--write": "this page and its plots",
                rows[0].name: "one row, or all rows whose names begin so",
                "--list": "names the rows",
                "--quick": "all rows, fewer and shorter repetitions: a look, no proof"}
    now = read_page(arguments.write)
    for block in (DEVICE_BLOCK, READING_BLOCK, FLEET_BLOCK, SIZE_BLOCK):
        lines += [block_of(now, block), ""]
    lines += ["## Repeat it", "", "```"]
    lines += [f"script/bench {argument.ljust(16)} # {what}" for argument, what in commands.items()] + ["```"]
    return "\n".join(lines) + "\n"


def draw(rows, folder):
    """The plots of these rows; others that are there stay."""
    wanted = list(filter(plot.can_plot, rows))
    if wanted:
        subprocess.run(["script/bootstrap", "gnuplot-nox"], check=True)
    for row in wanted:
        os.makedirs(folder, exist_ok=True)
        with open(f"{folder}/{row.name}.svg", "w", encoding="utf-8") as file:
            file.write(plot.draw(row))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--write", metavar="FILE", help="also write a page of Markdown")
    parser.add_argument("--device", metavar="FILE", help="write the counts of the device into a page")
    parser.add_argument("--plots", metavar="FOLDER", default="build/bench/plots", help="where the plots go")
    parser.add_argument("--command", default="script/bench", help="the command that the page names in its head")
    parser.add_argument("results", nargs="+", metavar="RESULT.json")
    arguments = parser.parse_args()

    rows, context = results.read(arguments.results)
    if arguments.device:
        text = read_page(arguments.device)
        old = block_of(text, DEVICE_BLOCK)
        if old not in text:
            text = text.replace(SIZE_BLOCK[0], f"{old}\n\n{SIZE_BLOCK[0]}", 1)
        write_page(arguments.device, text.replace(old, device_block(rows, text)))
        return 0
    remarks = read_remarks(os.path.join(os.path.dirname(__file__), "remarks.md"))
    for name, value in head(context):
        print(f"{name}: {value}")
    print()
    for row in rows:
        print(as_text(row, remarks, arguments.plots))
    draw(rows, arguments.plots)
    if arguments.write:
        check_remarks(rows, remarks)
        write_page(arguments.write, page(rows, context, remarks, arguments))
    return 0


if __name__ == "__main__":
    sys.exit(main())
