#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs rows of the benchmarks on the emulated device and writes instructions for an operation, the kernel's included.

usage: device.py --list
       device.py --out RESULT.json DISK ROW...

DISK is the image with the benchmarks, as script/parts/bench-device.sh makes it. The emulator's clock counts instructions, so
the times that the benchmarks measure there are instructions times a constant. The kernel finds that constant out once at
each start, within one in a hundred; a loop whose instructions are known tells it exactly.

The kernel refills the processor's address translations, and how often depends on where a process's pages are. So addresses
are not randomised there, and each row is counted in several processes.
"""
import argparse
import json
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "device/lab"))

import machine  # noqa: E402  (it is found by the path above)

ROWS = ("hash_find_1000", "hash_replace_1000", "slots", "queue", "queue_mutex", "split", "str2int", "ring", "ring_bytes",
        "log", "log_refused", "log_printf", "log_fragments", "store_read", "store_read_number", "store_set")
# One instruction takes 8 ns of the machine's time.
COUNTING = ("-icount", "shift=3", "-rtc", "clock=vm")
PROCESSES = 3
MEASURE = ("cd /tmp; /tests/devsupport_bench '--benchmark_filter=^{row}[@/]' --benchmark_min_time=0.01 "
           "--benchmark_repetitions=3 --benchmark_format=json 2>/dev/null")


def count(disk, rows, out):
    """Measures the rows on one machine."""
    disks = [machine.Disk(f"file={disk},readonly=on", "/tests", "ro")]
    result = {"context": {}, "benchmarks": []}
    with machine.Machine(disks, name="bench", timeout=3600, further=COUNTING) as device:
        device.ask("echo 0 > /proc/sys/kernel/randomize_va_space")
        ns_of_one = float(device.ask("/tests/devsupport_bench_loop"))
        print(f"an instruction takes {ns_of_one:.4f} ns there", file=sys.stderr)
        for row in rows:
            print(f"counting {row} on the device", file=sys.stderr)
            for _ in range(PROCESSES):
                measured = json.loads(device.ask(MEASURE.format(row=row)))
                result["context"] |= measured["context"]
                for run in measured["benchmarks"]:
                    if run["run_type"] == "iteration" and not run.get("error_occurred"):
                        run["instructions"] = run["real_time"] / ns_of_one
                    result["benchmarks"].append(run)
    out.write_text(json.dumps(result, indent=1), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--out", type=pathlib.Path)
    parser.add_argument("words", nargs="*")
    options = parser.parse_args()
    if options.list:
        print("\n".join(ROWS))
    elif options.out and len(options.words) > 1:
        count(options.words[0], options.words[1:], options.out)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
