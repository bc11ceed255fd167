#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Counts instructions for an operation, and holds them against those that are on record.

usage: counted.py --list
       counted.py --out RESULT.json [--ours] PROGRAM ROW... counts rows on this machine, with valgrind's callgrind
       counted.py --check BASELINE [--growth PERCENT] [--accept] RESULT.json...

PROGRAM is devsupport_bench. A row's participants are run twice, with different numbers of jobs: what the runs differ in
is the jobs' own, so neither the start nor the preparation counts. Only what the process itself executes is counted, so
the rows are those without kernel work. The C library is kept from choosing by processor, so that machines agree.

--check fails when ours takes over 2 % (or --growth) more instructions than BASELINE says, in any row that has a line there; --accept
writes new numbers into these lines.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys

import results

ROWS = ("hash_find_1000", "hash_replace_1000", "slots", "queue", "queue_mutex", "split", "str2int", "log_refused",
        "store_read", "store_read_number")
JOBS = (3000, 9000)  # whole rounds of the inputs that the rows go through
MOST_GROWTH = 2  # percent
ONE_FOR_ALL = "glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX2,-AVX,-BMI2,-ERMS,-FSRM,-MOVBE,-LZCNT"


def names(program, row):
    """The row's benchmarks, as the program names them."""
    listed = subprocess.run([program, "--benchmark_list_tests"], check=True, capture_output=True, text=True).stdout
    return [line for line in listed.splitlines() if results.NAME.match(line) and re.match(f"{row}[/@]", line)]


def instructions_of_run(program, name, jobs):
    """The instructions of the whole process."""
    wanted = re.sub(r"[^\w/ :-]", ".", name)
    environment = {**os.environ, "DEVSUPPORT_BENCH_JOBS": str(jobs), "GLIBC_TUNABLES": ONE_FOR_ALL}
    done = subprocess.run(["unshare", "--ipc", "valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", program,
                           f"--benchmark_filter=^{wanted}(/iterations:[0-9]+)?(/manual_time)?$"],
                          env=environment, capture_output=True, text=True, check=False)
    found = re.search(r"Collected : (\d+)", done.stderr)
    if done.returncode != 0 or not found or "ERROR OCCURRED" in done.stdout:
        raise RuntimeError(f"{name}: {done.stdout}{done.stderr}")
    return int(found[1])


def instructions_of_job(program, name):
    few, many = (instructions_of_run(program, name, jobs) for jobs in JOBS)
    return (many - few) / (JOBS[1] - JOBS[0])


def count(program, rows, only_ours, out):
    """Counts the rows and writes them as the benchmark library writes its results."""
    measured = [name for row in rows for name in names(program, row)
                if not only_ours or results.NAME.match(name)["role"] == "ours"]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        counted = list(pool.map(lambda name: instructions_of_job(program, name), measured))
    runs = [{"name": name, "run_type": "iteration", "family_index": place, "instructions": value}
            for place, (name, value) in enumerate(zip(measured, counted))]
    out.write_text(json.dumps({"context": context_of(program, measured[0]), "benchmarks": runs}, indent=1),
                   encoding="utf-8")


def context_of(program, name):
    """Aims and titles of all rows, as the program says them with any benchmark."""
    done = subprocess.run([program, f"--benchmark_filter=^{name}", "--benchmark_format=json"], check=True,
                          env={**os.environ, "DEVSUPPORT_BENCH_JOBS": "1"}, capture_output=True, text=True)
    return json.loads(done.stdout)["context"]


def ours(paths):
    """Our instructions for each row and point: the least of the runs, since what disturbs a run only adds to it."""
    rows, _ = results.read(paths)
    return {row.name + (f"@{point}" if point is not None else ""): min(participant.values)
            for row in rows for point in row.points for participant in row.measured(point) if participant.role == "ours"}


def check(baseline, paths, growth, accept):
    """Ends the script when a row has grown. A row is held to its line in the baseline; one without a line is not held."""
    now = ours(paths)
    known = dict(line.split() for line in baseline.read_text(encoding="utf-8").splitlines())
    if accept:
        baseline.write_text("".join(f"{name} {now[name]:.1f}\n" for name in known if name in now), encoding="utf-8")
        return
    held = {name: value for name, value in now.items() if name in known}
    grown = [f"{name}: {value:.1f} instructions, {known[name]} on record" for name, value in held.items()
             if value > (1 + growth / 100) * float(known[name])]
    if grown:
        sys.exit(f"over {growth} % more than in {baseline}:\n" + "\n".join(grown))
    print(f"{len(held)} rows, none over {growth} % more than in {baseline}")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--out", type=pathlib.Path)
    parser.add_argument("--ours", action="store_true")
    parser.add_argument("--check", type=pathlib.Path)
    parser.add_argument("--growth", type=int, default=MOST_GROWTH)
    parser.add_argument("--accept", action="store_true")
    parser.add_argument("words", nargs="*")
    options = parser.parse_args()
    if options.list:
        print("\n".join(ROWS))
    elif options.check:
        check(options.check, options.words, options.growth, options.accept)
    elif options.out and len(options.words) > 1:
        count(options.words[0], options.words[1:], options.ours, options.out)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
