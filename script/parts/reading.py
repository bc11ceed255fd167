#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures what following the log ring costs devlog: processor time for a record, reads of the ring, records lost.

usage: script/bench reading [--write]
  --write  also puts the table into docs/benchmarks.md

It runs build/reading/tools/devlog/devlog in shared memory of its own. Whether records are lost depends on how long the
machine lets devlog wait for a processor: run it while nothing else runs, and as root, because the program that writes
has a real-time priority, so that it keeps its rate.
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
SECONDS = 5
BUSY = 4  # programs for each processor that only use processor time
ROWS = [(0, "", 0), (100, "", 0), (1_000, "", 0), (10_000, "", 0), (50_000, "", 0), (50_000, "busy programs", 0),
        (50_000, "busy programs, `chrt -r 2`", 2)]  # records a second, other load, real-time priority


def looks(pid):
    """How often the process has gone to sleep, which it does after each read."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii")
    return int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", status, re.M).group(1))


def processor_seconds(pid):
    stat = pathlib.Path(f"/proc/{pid}/schedstat").read_text(encoding="ascii")
    return int(stat.split()[0]) / 1e9


def write(rate, seconds):
    subprocess.run([*priority(1), BUILD / "fleet_writer", "device", str(rate), str(rate * seconds)], check=True)


def priority(number):
    return ["chrt", "-r", str(number)] if number else []


def follow(rate, number):
    """Follows a writer of so many records a second; or an idle ring."""
    with tempfile.TemporaryFile(dir="/dev/shm") as shown:
        devlog = subprocess.Popen([*priority(number), BUILD / "tools/devlog/devlog", "-f", "-n", "0", "--json", "--ring", "log"],
                                  stdout=shown)
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


def row(rate, beside, number):
    busy = [subprocess.Popen(["sh", "-c", "while :; do :; done"]) for _ in range(BUSY * os.cpu_count() if beside else 0)]
    try:
        looked, spent, took, records = follow(rate, number)
    finally:
        for program in busy:
            program.kill()
            program.wait()
    if not rate:
        return f"| none | | {looked:.0f} | | {spent / took * 100:.2f} % | | |"
    reached = rate * SECONDS / took
    return (f"| {reached:,.0f} | {beside} | {looked:.0f} | {reached / looked:,.0f} | {spent / took * 100:.1f} % | "
            f"{spent / records['ok'] * 1e6:.1f} µs | {records['lost']:,} of {rate * SECONDS:,} |")


def table():
    write(100, 1)  # makes the rings
    load = os.getloadavg()[0]
    lines = [
        BEGIN, "## Reading the log channel", "",
        "Written by `script/bench reading --write`: `devlog -f --json` beside one program that writes records of 80 "
        f"characters for {SECONDS} seconds. The ring holds {CELLS:,} records, and its size is fixed. So a reader loses none "
        "while it never waits longer for a processor than the writers need to fill the ring: 10 s at 100 records a second, "
        "1 s at 1,000, 102 ms at 10,000, 20 ms at 50,000. An idle reader looks each 10 ms, which leaves 10 ms of these 20. "
        f"On a busy machine, here with {BUSY} busy programs for each processor, a real-time priority keeps the wait short. "
        f"The machine's load was {load:.1f} when the measurement began.", "",
        "| records a second | beside | looks a second | records written between two looks | processor "
        "| processor time for a record | lost |",
        "|---:|---|---:|---:|---:|---:|---:|", *(row(*each) for each in ROWS), END]
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
