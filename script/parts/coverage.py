#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Sums up what gcovr counted, by folder, and names the lines that no test executes.

usage: coverage.py GCOVR_JSON FIGURES
Prints the table; writes `lines`, `lines-covered`, `branches`, `branches-covered` and the percentages of each folder.
"""

import collections
import json
import os
import sys

FOLDERS = ("lib", "logmgr", "db", "cpld")


class Counts:
    def __init__(self):
        self.lines = self.hit_lines = self.branches = self.hit_branches = 0

    def add(self, line, branches):
        self.lines += 1
        self.hit_lines += line > 0
        self.branches += len(branches)
        self.hit_branches += sum(count > 0 for count in branches)

    def plus(self, other):
        for name, value in vars(other).items():
            setattr(self, name, getattr(self, name) + value)

    def line_percent(self):
        return 100.0 * self.hit_lines / self.lines if self.lines else 100.0

    def branch_percent(self):
        return 100.0 * self.hit_branches / self.branches if self.branches else 100.0


def merged_files(report):
    """The lines of each file, {number: (count, [branch counts])}. Layers see headers through links: one file, several
    names."""
    files = collections.defaultdict(dict)
    for entry in report["files"]:
        name = os.path.relpath(os.path.realpath(entry["file"]))
        lines = files[name]
        for line in entry["lines"]:
            if line.get("gcovr/noncode"):
                continue
            branches = [branch["count"] for branch in line["branches"]]
            count, before = lines.get(line["line_number"], (0, []))
            longest = max(len(before), len(branches))
            padded = [values + [0] * (longest - len(values)) for values in (before, branches)]
            lines[line["line_number"]] = (count + line["count"], [a + b for a, b in zip(*padded)])
    return files


def ranges(numbers):
    """[3, 4, 5, 9] as "3-5, 9"."""
    runs = []
    for number in sorted(numbers):
        if runs and number == runs[-1][1] + 1:
            runs[-1][1] = number
        else:
            runs.append([number, number])
    return ", ".join(f"{a}" if a == b else f"{a}-{b}" for a, b in runs)


def row(name, counts):
    return (f"{name:<24} {counts.hit_lines:>6} of {counts.lines:<6} {counts.line_percent():6.1f} %"
            f" {counts.hit_branches:>6} of {counts.branches:<6} {counts.branch_percent():6.1f} %")


def main():
    with open(sys.argv[1], encoding="ascii") as file:
        files = merged_files(json.load(file))
    folders = collections.defaultdict(Counts)
    missing = {}
    for name, lines in sorted(files.items()):
        counts = folders[os.path.dirname(name)]
        for line in lines.values():
            counts.add(*line)
        unseen = [number for number, (count, _) in lines.items() if count == 0]
        if unseen:
            missing[name] = unseen

    print(f"{'folder':<24} {'lines':>16} {'':>8} {'branches':>16}")
    parts = {part: Counts() for part in FOLDERS}
    total = Counts()
    for folder, counts in sorted(folders.items()):
        print(row(folder, counts))
        parts[folder.split("/")[0]].plus(counts)
        total.plus(counts)
    print(row("all", total))
    print("\nlines that no test executes:" if missing else "\nthe tests execute every line")
    for name, numbers in missing.items():
        print(f"  {name}: {ranges(numbers)}")

    with open(sys.argv[2], "w", encoding="ascii") as figures:
        for name, counts in [*parts.items(), ("all", total)]:
            figures.write(f"{name}-lines {counts.lines}\n{name}-lines-covered {counts.hit_lines}\n"
                          f"{name}-branches {counts.branches}\n{name}-branches-covered {counts.hit_branches}\n")
    return 0 if total.line_percent() >= 95 else 1


if __name__ == "__main__":
    sys.exit(main())
