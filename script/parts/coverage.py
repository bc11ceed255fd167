#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Sums up what gcovr counted, by folder, and names the lines that no test executes.

usage: coverage.py GCOVR_JSON FIGURES BRANCHES
BRANCHES lists lines of db with branches that no test takes, under their reasons. Another such line fails, and a listed one
whose branches are all taken, unless its reason begins with "Sometimes".
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


def unlisted(files, path):
    """What is wrong with the list of lines of db that have branches without a test."""
    untaken, all_lines = set(), set()
    for name, lines in files.items():
        if name.startswith("db/"):
            with open(name, encoding="utf-8") as file:
                texts = [text.strip() for text in file]
            for line in lines:
                entry = f"{os.path.basename(name)}: {texts[line['line_number'] - 1]}"
                all_lines.add(entry)
                if any(branch["count"] == 0 for branch in line["branches"]):
                    untaken.add(entry)
    reason, listed, stale = "", set(), []
    with open(path, encoding="utf-8") as file:
        for text in file:
            if text.startswith("  "):
                entry = text.strip()
                listed.add(entry)
                if entry not in (all_lines if reason.startswith("Sometimes") else untaken):
                    stale.append(f"every branch is taken: {entry}")
            else:
                reason = text
    return stale + [f"a branch is not taken: {entry}" for entry in sorted(untaken - listed)]


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
    missing = {name: sorted({line["line_number"] for line in lines if line["count"] == 0}) for name, lines in files.items()}
    print("\nlines that no test executes:" if any(missing.values()) else "\nthe tests execute every line")
    for name, numbers in sorted(missing.items()):
        if numbers:
            print(f"  {name}: {ranges(numbers)}")

    with open(sys.argv[2], "w", encoding="ascii") as figures:
        for name, counts in parts.items():
            figures.writelines(f"{name}-{figure} {counts[figure]}\n" for kind in KINDS for figure in (kind, f"{kind}-covered"))
    wrong = unlisted(files, sys.argv[3])
    if wrong:
        print(f"\n{sys.argv[3]} does not fit:", *wrong, sep="\n  ")
    return 0 if percent(parts["all"], "lines") >= 95 and not wrong else 1


if __name__ == "__main__":
    sys.exit(main())
