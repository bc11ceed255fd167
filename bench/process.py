#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures whole processes: the instructions and system calls of cpld from exec to exit, and the memory of a process
that uses the configuration store.

usage: process.py --list
       process.py --programs FOLDER [--repetitions N] [--quick] --out RESULT.json ROW

FOLDER is the build's. The result has the form of the benchmark library's, for report.py.

Each process runs in namespaces of its own, with an empty environment, and standard output in a file. There
/dev/analog/0 is an empty file, so that the open succeeds and the ioctl answers ENOTTY, for all who make them; /dev/mem
is a file of zeros, so that devmem finds something to read.
"""
import argparse
import functools
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from collections import Counter

# Runs "$@" with a /dev that holds only the measured device.
DEVICES = """
set -e
devices=$1
shift
mount -t tmpfs none "$devices"
mkdir "$devices/analog"
: >"$devices/analog/0"
head -c 4096 /dev/zero >"$devices/mem"
: >"$devices/null"
mount --bind /dev/null "$devices/null"
mount --move "$devices" /dev
exec env -i "$@"
"""
ISOLATE = (["unshare", "--ipc", "--mount"], ["unshare", "--user", "--map-root-user", "--ipc", "--mount"])
SEARCHED = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"

READ_REGISTER = ["0", "1", "23"]
ANSWER = r"ch=1, reg23, data=0x0 value=0xffffffff\n"

ABOUT = ("Counted by valgrind's callgrind. /dev/analog/0 is an empty file here: the open succeeds and the ioctl answers "
         "ENOTTY, for all who make them. i2cget -V prints its version and opens nothing; devmem reads a word of a file of "
         "zeros in the place of /dev/mem, by open and mmap. Valgrind preloads a small library into dynamic programs, "
         "which is counted for all of them.")
AS_ABOVE = "Run as in cpld_instructions."
ABOUT_MEMORY = ("Resident memory as /proc/self/status has it. own: what the process allocated; shared: the part of the "
                "store's shared memory that it has touched, at most the cache, once for all processes; files: program and "
                "libraries. The store is in memory, 1 operation in 100 changes a setting.")
KINDS = ("own", "shared", "files")


class Failure(Exception):
    """A process that did not do what it is measured for."""


class Program:
    """A participant: what it is run as, and what it must print."""

    def __init__(self, role, who, command, prints=ANSWER, package=None):
        self.role = role
        self.who = who
        self.command = command
        self.prints = prints
        self.package = package  # of a peer that may be missing

    def path(self, folder):
        """Where it is; None where it is missing."""
        if self.package:
            return shutil.which(self.command[0], path=SEARCHED)
        path = os.path.join(os.path.abspath(folder), self.command[0])
        return path if os.path.exists(path) else None


def built(name):
    return ["bench/process/" + name, *READ_REGISTER]


OURS_DYNAMIC = Program("ours", "", ["cpld/cpld", *READ_REGISTER])
OURS_STATIC = Program("ours", "static", built("cpld_static"))
NO_LIBC = Program("floor", "four calls, no C library", built("no_libc"))
FOUR_CALLS = Program("floor", "loader and four calls", built("four_calls"))
PLAIN_DYNAMIC = Program("peer", "plain C", built("plain_c_dynamic"))
PLAIN_STATIC = Program("peer", "plain C, static", built("plain_c_static"))
I2CGET = Program("peer", "i2cget -V", ["i2cget", "-V"], r"i2cget version .*\n", "i2c-tools")
DEVMEM = Program("peer", "busybox devmem 0", ["busybox", "devmem", "0"], r"0x0+\n", "busybox")

DYNAMIC = [OURS_DYNAMIC, FOUR_CALLS, PLAIN_DYNAMIC, I2CGET, DEVMEM]
STATIC = [OURS_STATIC, NO_LIBC, PLAIN_STATIC]


@functools.cache
def isolation():
    """The command that makes the namespaces here."""
    for isolate in ISOLATE:
        if subprocess.run([*isolate, "true"], capture_output=True, check=False).returncode == 0:
            return isolate
    raise Failure("this machine lets us make no namespaces")


def run_alone(command):
    """Runs a command with the devices; what it printed on standard output and on standard error."""
    with tempfile.TemporaryDirectory() as folder, open(f"{folder}/out", "w+", encoding="utf-8") as out:
        os.mkdir(f"{folder}/dev")
        done = subprocess.run([*isolation(), "sh", "-c", DEVICES, "sh", f"{folder}/dev", *command], stdout=out,
                              stderr=subprocess.PIPE, text=True, check=False)
        out.seek(0)
        printed = out.read()
    if done.returncode != 0:
        raise Failure(f"exit status {done.returncode} {done.stderr.strip()}".rstrip())
    return printed, done.stderr


def run_under(tool, program, folder):
    """Runs a program under a tool that writes into a log; the log."""
    with tempfile.TemporaryDirectory() as logs:
        log = f"{logs}/log"
        command = [word.replace("LOG", log) for word in tool]
        command[0] = shutil.which(command[0], path=SEARCHED) or command[0]
        printed = "".join(run_alone([*command, program.path(folder), *program.command[1:]]))
        if not re.fullmatch(program.prints, printed):
            raise Failure(f"it printed {printed!r}")
        with open(log, encoding="utf-8") as file:
            return file.read()


def instructions(program, folder):
    """How many instructions the process executes."""
    log = run_under(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--run-libc-freeres=no",
                     "--log-file=LOG"], program, folder)
    return int(re.search(r"Collected : (\d+)", log)[1])


def calls(program, folder):
    """The process's system calls in their order, as strace writes them; the first is the exec, the last the exit."""
    return run_under(["strace", "-f", "-qq", "-X", "verbose", "-o", "LOG"], program, folder).splitlines()


def name_of(call):
    return re.match(r"(?:\d+ +)?(\w+)\(", call)[1]


class Result:
    """Runs and context as the benchmark library writes them."""

    def __init__(self, row, title, aim="nothing 0", rival=None, note=None):
        self.row = row
        self.context = {f"row:{row}": f"{aim} {title}"}
        if rival:
            self.context[f"rival:{row}"] = rival
        if note:
            self.context[f"note:{row}"] = note
        self.runs = []
        self.places = {}

    def add(self, role, who, unit, value, point=None):
        name = self.row + (f"@{point}" if point is not None else "") + f"/{role}" + (f":{who}" if who else "")
        place = self.places.setdefault((role, who), len(self.places))
        self.runs.append({"name": name, "run_type": "iteration", "family_index": place, unit: value})

    def fail(self, program, error):
        self.add(program.role, program.who, "error_occurred", True)
        self.runs[-1]["error_message"] = str(error)

    def each(self, programs, options, measure):
        """Calls measure(program) for all that are there, over and over."""
        for program in programs:
            if program.package:
                self.context[f"peer:{program.command[0]}"] = version_of(program.package)
            if not program.path(options.programs):
                continue
            try:
                for _ in range(options.repetitions):
                    measure(program)
            except Failure as error:
                self.fail(program, error)


def version_of(package):
    """The package, and the version of what is in it where it is installed."""
    asked = subprocess.run(["dpkg-query", "-W", "-f", "${source:Upstream-Version}", package], capture_output=True,
                           text=True, check=False)
    return f"{package} {asked.stdout}".rstrip()


def context_of_tools():
    return {f"tool:{tool}": version_of(tool) for tool in ("strace", "valgrind")}


def measure_instructions(row, title, programs, options, note, **aim):
    result = Result(row, title, note=note, **aim)
    result.each(programs, options, lambda program: result.add(
        program.role, program.who, "instructions", instructions(program, options.programs)))
    return result


def cpld_instructions(options):
    return measure_instructions("cpld_instructions", "instructions of `cpld 0 1 23` from exec to exit", DYNAMIC, options,
                                ABOUT, aim="peer 1.00", rival=I2CGET.who)


def cpld_instructions_static(options):
    return measure_instructions("cpld_instructions_static",
                                "instructions of a static `cpld 0 1 23` from exec to exit", STATIC, options, AS_ABOVE,
                                aim="peer 1.10", rival=PLAIN_STATIC.who)


def measure_calls(row, title, programs, options, **aim):
    result = Result(row, title, note=AS_ABOVE, **aim)
    result.each(programs, options, lambda program: result.add(
        program.role, program.who, "calls", len(calls(program, options.programs))))
    return result


def cpld_calls(options):
    """And as its listing, what cpld itself calls, once the loader has done its work."""
    result = measure_calls("cpld_calls", "system calls of `cpld 0 1 23` from exec to exit", DYNAMIC, options,
                           aim="floor 1.00")
    if not any(run["name"].endswith("/ours") and "calls" in run for run in result.runs):
        return result
    made = calls(OURS_DYNAMIC, options.programs)
    # The loader's last call unmaps its cache; cpld itself unmaps nothing.
    loader = max(i for i, call in enumerate(made) if name_of(call) == "munmap") + 1
    own = [re.sub(r"^\d+ +", "", re.sub(r"0x7f\w+", "0x7f...", call)) for call in made[loader:]]
    result.context["listing:cpld_calls"] = "\n".join([f"the exec and the loader: {loader} calls; cpld itself:", *own])
    return result


def cpld_calls_static(options):
    return measure_calls("cpld_calls_static", "system calls of a static `cpld 0 1 23` from exec to exit", STATIC, options)


def cpld_calls_by_name(options):
    result = Result("cpld_calls_by_name", "the same system calls, by name")
    options.repetitions = 1
    counted = {}

    def count(program):
        counted[program] = Counter(map(name_of, calls(program, options.programs)))

    result.each(DYNAMIC + STATIC, options, count)
    for name in dict.fromkeys(name for count in counted.values() for name in count):
        for program, count in counted.items():
            if name in count:
                result.add(program.role, program.who, "calls", count[name], name)
    return result


def resident(records, operations, options):
    """Yields each number of operations, and the KiB of resident memory after them, by kind."""
    program = os.path.join(os.path.abspath(options.programs), "bench/process/store_memory")
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # a disk to wait for is not what is measured
    with tempfile.TemporaryDirectory(dir=memory) as home:
        done = subprocess.run([*isolation(), program, home, str(records), *map(str, operations)], capture_output=True,
                              text=True, check=False)
    if done.returncode != 0:
        raise Failure(f"store_memory: {done.stderr.strip()}")
    for line in done.stdout.splitlines():
        done_operations, *kib = map(int, line.split())
        yield done_operations, dict(zip(KINDS, kib))


def memory_row(row, title, options, points):
    """points: what yields each point with the memory by kind."""
    result = Result(row, title, note=ABOUT_MEMORY)
    try:
        for _ in range(options.repetitions):
            for point, kinds in points():
                for kind, kib in kinds.items():
                    result.add("ours", kind, "KiB", kib, point)
    except Failure as error:
        result.fail(Program("ours", KINDS[0], []), error)
    return result


def store_memory_operations(options):
    operations = [0, 1000, 10000, 100000] + ([] if options.quick else [1000000])
    return memory_row("store_memory_operations", "resident memory of a process that uses a store of 1,000 records, by "
                      "operations done", options, lambda: resident(1000, operations, options))


def store_memory_records(options):
    operations = 10000 if options.quick else 100000
    return memory_row("store_memory_records", f"resident memory of a process after {operations:,} operations, by records "
                      "in the store", options, lambda: (
                          (records, kinds) for records in (1000, 10000, 100000)
                          for _, kinds in resident(records, [operations], options)))


ROWS = {row.__name__: row for row in (cpld_instructions, cpld_instructions_static, cpld_calls, cpld_calls_static,
                                      cpld_calls_by_name, store_memory_operations, store_memory_records)}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--list", action="store_true", help="names the rows")
    parser.add_argument("--programs", metavar="FOLDER", default="build/bench", help="where the build is")
    parser.add_argument("--repetitions", type=int, default=3)
    parser.add_argument("--quick", action="store_true", help="fewer operations")
    parser.add_argument("--out", metavar="RESULT.json")
    parser.add_argument("row", nargs="?", choices=ROWS)
    options = parser.parse_args()
    if options.list:
        print("\n".join(ROWS))
        return 0
    if not options.row or not options.out:
        parser.error("a row and --out are needed")
    result = ROWS[options.row](options)
    with open(options.out, "w", encoding="utf-8") as file:
        json.dump({"context": context_of_tools() | result.context, "benchmarks": result.runs}, file, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
