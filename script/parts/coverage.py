#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Sums up what gcovr counted, by folder, and names the lines that no test executes, or not all branches of.

usage: coverage.py GCOVR_JSON FIGURES
Fails below 95 % of all lines, and below 97 % of the branches of lib or db.
Prints the table; writes `lines`, `lines-covered`, `branches` and `branches-covered` of each folder and of all.
"""

import collections
import json
import os
import sys

FOLDERS = ("lib", "logmgr", "db", "cpld")
KINDS = ("lines", "branches")


def count(lines):
    branches = [branch["count"] for line in lines for branch in line["branches"]]
    return collections.Counter({
        "lines": len(lines), "lines-covered": sum(line["count"] > 0 for line in lines),
        "branches": len(branches), "branches-covered": sum(taken > 0 for taken in branches)})


def percent(counts, kind):
    return 100.0 * counts[f"{kind}-covered"] / counts[kind] if counts[kind] else 100.0


def row(name, counts):
    cells = (f"{counts[f'{kind}-covered']:>6} of {counts[kind]:<6} {percent(counts, kind):6.1f} %" for kind in KINDS)
    return f"{name:<24} {' '.join(cells)}"


def ranges(numbers):
    """[3, 4, 5, 9] as "3-5, 9"."""
    runs = []
    for number in numbers:
        if runs and number == runs[-1][1] + 1:
            runs[-1][1] = number
        else:
            runs.append([number, number])
    return ", ".join(f"{a}" if a == b else f"{a}-{b}" for a, b in runs)


def name_lines(what, files, is_missing):
    missing = {name: sorted({line["line_number"] for line in lines if is_missing(line)}) for name, lines in files.items()}
    print(f"\nlines {what}:{'' if any(missing.values()) else ' none'}")
    for name, numbers in sorted(missing.items()):
        if numbers:
            print(f"  {name}: {ranges(numbers)}")


def main():
    with open(sys.argv[1], encoding="ascii") as file:
        files = {entry["file"]: [line for line in entry["lines"] if not line.get("gcovr/noncode")]
                 for entry in json.load(file)["files"]}
    folders = collections.defaultdict(collections.Counter)
    parts = {name: collections.Counter() for name in (*FOLDERS, "all")}
    for name, lines in sorted(files.items()):
        for counts in (folders[os.path.dirname(name)], parts[name.split("/")[0]], parts["all"]):
            counts.update(count(lines))

    print(f"{'folder':<24} {'lines':>16} {'':>8} {'branches':>16}")
    for name, counts in (*sorted(folders.items()), ("all", parts["all"])):
        print(row(name, counts))
    name_lines("that no test executes", files, lambda line: line["count"] == 0)
    name_lines("with a branch that no test takes", files, lambda line: any(b["count"] == 0 for b in line["branches"]))

    with open(sys.argv[2], "w", encoding="ascii") as figures:
        for name, counts in parts.items():
            figures.writelines(f"{name}-{figure} {counts[figure]}\n" for kind in KINDS for figure in (kind, f"{kind}-covered"))
    enough = percent(parts["all"], "lines") >= 95 and all(percent(parts[name], "branches") >= 97 for name in ("lib", "db"))
    return 0 if enough else 1


if __name__ == "__main__":
    sys.exit(main())
