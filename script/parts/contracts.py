#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks the labelled lines of the contracts in the headers; script/check calls it.

A contract is a comment with lines such as "/// Returns    1 stored, 0 full". A label is a word of the list below and
begins its line. A formatter that joins two such lines makes a contract hard to read, and this check finds that.
"""
import re
import subprocess
import sys

LABELS = "Again Before Cost Death Length Lock Order Owner Prints Returns Room Signals Threads Time Trust Waits".split()

LABELLED = re.compile(r"^\s*(?:///?|/?\*+)\s+([A-Z][a-z]+(?: [a-z]+)?) {2,}(\S.*)$")
JOINED = re.compile(r"^\s*(?:///?|/?\*+)\s.*\S\s+(?:" + "|".join(LABELS) + r") {2,}\S")


def faults(path):
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, 1):
            match = LABELLED.match(line)
            if match and match[1] not in LABELS:
                yield f"{path}:{number}: unknown label '{match[1]}'"
            elif match and match[1] == "Signals" and not re.match(r"(yes|no)\b", match[2]):
                yield f"{path}:{number}: 'Signals' is answered with yes or no"
            elif JOINED.match(line):
                yield f"{path}:{number}: a label within a line"


def main():
    headers = subprocess.run(["git", "ls-files", "include/*.h", "cpld/*.h"], check=True, text=True,
                             stdout=subprocess.PIPE).stdout.split()
    found = [fault for path in headers for fault in faults(path)]
    sys.exit("\n".join(found) if found else 0)


if __name__ == "__main__":
    main()
