#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures what following the log ring costs devlog: processor time for a record, looks into the ring, records lost.

usage: script/bench reading [--write]
  --write  also puts the table into docs/benchmarks.md

It runs build/reading/tools/devlog/devlog in shared memory of its own. Whether records are lost depends on how long the
machine lets devlog wait for a processor: run it while nothing else runs.
"""
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

BUILD = pathlib.Path("build/reading")
PAGE = pathlib.Path("docs/benchmarks.md")
BEGIN, END = "<!-- reading:begin -->", "<!-- reading:end -->"
CELLS = 1024  # of the log ring
RATES = (0, 100, 1_000, 10_000, 50_000)
SECONDS = 5


def looks(pid):
    """How often the process has gone to sleep, which it does after each look."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    return int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status, re.M).group(1))


def processor_seconds(pid):
    stat = pathlib.Path(f"/proc/{pid}/schedstat").read_text(encoding="ascii")
    return int(stat.split()[0]) / 1e9


def write(rate, seconds):
    subprocess.run([BUILD / "fleet_writer", "device", str(rate), str(rate * seconds)], check=True)


def follow(rate):
    """Follows a writer of so many records a second; or an idle ring."""
    with tempfile.TemporaryFile(dir="/dev/shm") as shown:
        devlog = subprocess.Popen([BUILD / "tools/devlog/devlog", "-f", "-n", "0", "--json", "--ring", "log"], stdout=shown)
        time.sleep(0.5)
        before, spent, begin = looks(devlog.pid), processor_seconds(devlog.pid), time.monotonic()
        if rate:
            write(rate, SECONDS)
        else:
            time.sleep(SECONDS)
        took = time.monotonic() - begin
        after = looks(devlog.pid)
        time.sleep(0.5)
        spent = processor_seconds(devlog.pid) - spent
        devlog.send_signal(signal.SIGTERM)
        devlog.wait()
        shown.seek(0)
        records = {"ok": 0, "lost": 0}
        for line in shown:
            message = json.loads(line)
            records[message["status"]] += message["records"]
    return (after - before) / took, spent, took, records


def row(rate):
    looked, spent, took, records = follow(rate)
    if not rate:
        return f"| none | {looked:.0f} | | {spent / took * 100:.2f} % | | |"
    rate_reached = rate * SECONDS / took
    return (f"| {rate_reached:,.0f} | {looked:.0f} | {rate_reached / looked:.1f} of {CELLS:,} | {spent / took * 100:.1f} % | "
            f"{spent / sum(records.values()) * 1e6:.1f} µs | {records['lost']:,} of {rate * SECONDS:,} |")


def table():
    write(100, 1)  # makes the rings
    load = os.getloadavg()[0]
    lines = [
        BEGIN, "## Reading the log channel", "",
        "Written by `script/bench reading --write`: `devlog -f --json` beside one program that writes records of 80 "
        f"characters for {SECONDS} seconds. The ring has {CELLS:,} records, so a reader loses none while it never waits longer "
        "for a processor than the writers need to fill it: 10 s at 100 records a second, 1 s at 1,000, 102 ms at 10,000, 20 ms "
        "at 50,000. No reader can change that, as the ring's size is fixed. `devlog` does its part: it looks so often that it "
        "finds the ring nearly empty. "
        f"The machine's load was {load:.1f} when the measurement began.", "",
        "| records a second | looks a second | records found by a look | processor | processor time for a record | lost |",
        "|---:|---:|---:|---:|---:|---:|", *map(row, RATES), END]
    return "\n".join(lines)


def main():
    if sys.argv[1:] not in ([], ["--write"]):
        sys.exit(__doc__)
    text = table()
    print(text)
    if sys.argv[1:]:
        page = PAGE.read_text(encoding="utf-8")
        PAGE.write_text(re.sub(f"{BEGIN}.*{END}", lambda _: text, page, flags=re.S), encoding="utf-8")


if __name__ == "__main__":
    main()
