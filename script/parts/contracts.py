#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks the labelled lines of the contracts in the headers, and that the tests named in docs/behaviour.md exist.

script/check calls it.

A contract is a comment with lines such as "/// Returns    1 stored, 0 full". A label is a word of the list below and
begins its line. A formatter that joins two such lines makes a contract hard to read, and this check finds that.
"""
import glob
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


def test_faults(path):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    for area, suite, test in re.findall(r"`(\w+): (\w+)\.(\w+)`", text):
        definition = re.compile(rf"^TEST(?:_F|_P)?\({suite},\s*{test}\)", re.M)
        if not any(definition.search(open(source, encoding="utf-8").read()) for source in glob.glob(f"tests/{area}/*.cpp")):
            yield f"{path}: no test '{area}: {suite}.{test}'"
    for entry in text.split("\n- ")[1:]:
        entry = entry.split("\n\n")[0].rstrip()
        if not re.search(r"`\w+: \w+\.\w+`$|\(No test: .*\)$", entry):
            yield f"{path}: no test is named after '{entry.splitlines()[0]}'"


def main():
    headers = subprocess.run(["git", "ls-files", "include/*.h", "cpld/*.h"], check=True, text=True,
                             stdout=subprocess.PIPE).stdout.split()
    found = [fault for path in headers for fault in faults(path)]
    found += test_faults("docs/behaviour.md")
    sys.exit("\n".join(found) if found else 0)


if __name__ == "__main__":
    main()
