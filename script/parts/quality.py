#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the figures that the suites left in build/figures into one page, each with the command that measures it.

usage: quality.py [--missing]
Prints the page. A figure is called missing when its command has not been run.
With --missing it prints only the commands whose figures are missing, one a line.
"""

import pathlib
import platform
import re
import subprocess
import sys

FIGURES = pathlib.Path("build/figures")
HOURS = pathlib.Path("tests/fuzz/hours.txt")

COMMANDS = {
    "dev": "script/test full",
    "asan": "script/test asan",
    "tsan": "script/test tsan",
    "mips": "script/test mips",
    "coverage": "script/coverage",
    "moments": "script/moments",
    "moments-mips": "script/moments mips",
    "faults": "script/faults --every",
    "healing": "script/healing",
    "powerloss": "script/powerloss",
    "fuzz": "script/fuzz",
    "device": "script/device test",
    "mutation": "script/mutate",
    "fleet": "script/fleet",
    "times": "script/times",
    "ci": ".ci/run",
}

AREAS = {
    "diag": "diagnostics", "text": "number parsing, text editing, tokenizer", "container": "containers",
    "ipc": "semaphores, shared memory, shared ring, message queues, timers", "net": "addresses and links",
    "logmgr": "log channel, builders, filter", "db": "configuration store",
    "cpld": "`cpld`, alone and with the simulated driver", "analogsim": "the simulated driver",
    "devlog": "the log viewer", "devconf": "the configuration shell", "devdoctor": "the device check `devdoctor`",
    "common": "code that the tools share", "examples": "the examples",
    "acceptance": "acceptance of `cpld` with the simulated driver", "fuzz": "replay of the fuzzing corpora",
}

PRODUCT = ("include", "lib", "logmgr", "db", "cpld", "tools", "device")

MISSING = "missing"


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


class Figures:
    """The figures of one suite; none when it has not been run or has failed."""

    def __init__(self, suite):
        self.suite = suite
        self.path = FIGURES / f"{suite}.txt"
        self.values = {}
        if self.path.exists():
            lines = self.path.read_text(encoding="ascii").splitlines()
            self.values = {key: value for key, value in (line.split(None, 1) for line in lines if line)}

    def is_old(self):
        """Whether the product has changed since the suite ran."""
        changed = run("git", "log", "-1", "--format=%ct", "--", *PRODUCT)
        return bool(self.values) and self.path.stat().st_mtime < int(changed)

    def number(self, key):
        value = self.values.get(key)
        return MISSING if value is None else f"{int(value):,}"

    def share(self, part, whole):
        if part not in self.values or not int(self.values.get(whole, 0)):
            return MISSING
        percent = 100 * int(self.values[part]) / int(self.values[whole])
        return f"{percent:.1f} % of {int(self.values[whole]):,}"


class Page:
    def __init__(self, suites):
        self.suites = suites
        self.lines = []

    def text(self, *lines):
        self.lines.extend([*lines, ""])

    def table(self, head, rows):
        self.lines.append("| " + " | ".join(head) + " |")
        self.lines.append("|---|" + "---:|" * (len(head) - 2) + "---|")
        for row in rows:
            self.lines.append("| " + " | ".join(row) + " |")
        self.lines.append("")


def cpu():
    text = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    model = re.search(r"model name\s*:\s*(.*)", text)
    return f"{model.group(1) if model else platform.machine()}, {text.count('processor	:')} processors"


def command(suite):
    return f"`{COMMANDS[suite]}`"


def section(page, suite, title, text, rows):
    """A section about one suite: a text and a table of its figures."""
    page.text(f"## {title}", "", text)
    page.table(("", "", "shown by"), [(what, page.suites[suite].number(key), command(suite)) for what, key in rows])


def tests(page):
    dev = page.suites["dev"]
    page.text("## Tests", "", "The tests that ran. All passed.")
    page.table(("suite", "tests", "skipped", "shown by"), [
        ("as built for development, hardened", dev.number("tests"), dev.number("skipped"), command("dev")),
        *((f"under the {name}", page.suites[suite].number("tests"), page.suites[suite].number("skipped"),
           command(suite)) for suite, name in (("asan", "address and undefined-behaviour sanitizers"),
                                               ("tsan", "thread sanitizer"))),
        ("for the device's processor, under user emulation", page.suites["mips"].number("tests"),
         page.suites["mips"].number("skipped"), command("mips")),
        ("on the emulated device, with its kernel's drivers", page.suites["device"].number("device-tests"),
         page.suites["device"].number("skipped"), command("device")),
    ])
    page.text("The sanitizers end a test at their first report. The thread sanitizer runs only tests that use threads. "
              "`tests/emulation.txt` lists the tests that cannot run under user emulation, `tests/device/left-out.txt` "
              "those that cannot run on the emulated device, each with the reason.")
    rows = [(meaning, dev.number(f"tests-{area}"), command("dev")) for area, meaning in AREAS.items()]
    rest = int(dev.values.get("tests", 0)) - sum(int(dev.values.get(f"tests-{area}", 0)) for area in AREAS)
    others = f"{rest:,}" if "tests" in dev.values else MISSING
    rows.append(("headers, the installed package, linkage of the programs", others, command("dev")))
    page.table(("of these, for", "tests", "shown by"), rows)
    seeded = run("grep", "-rho", "TestSeed seed", "tests").count("\n") + 1
    page.table(("among them", "", "shown by"), [
        ("random tests that print their seed and accept it again", f"{seeded}",
         "`grep -rho 'TestSeed seed' tests \\| wc -l`")])


def coverage(page):
    figures = page.suites["coverage"]
    page.text("## Coverage", "", "Lines and branches that the tests execute. The aim is at least 95 % of the lines, "
              "and 98 % of the branches of `lib` and `db`. What a killed process has executed is not counted.")
    names = (("lib", "`lib`"), ("logmgr", "`logmgr`"), ("db", "`db`"), ("cpld", "`cpld`"), ("all", "all"))
    page.table(("folder", "lines", "branches", "shown by"), [
        (name, figures.share(f"{key}-lines-covered", f"{key}-lines"),
         figures.share(f"{key}-branches-covered", f"{key}-branches"), command("coverage")) for key, name in names])


def hours():
    """Processor hours and executions that script/fuzz --record has noted."""
    if not HOURS.exists():
        return MISSING, MISSING
    entries = [line.split() for line in HOURS.read_text(encoding="ascii").splitlines() if line]
    seconds = sum(int(entry[2]) for entry in entries)
    return f"{seconds / 3600:.1f}", f"{sum(int(entry[3]) for entry in entries):,}"


def fuzzing(page):
    figures = page.suites["fuzz"]
    spent, executions = hours()
    page.text("## Fuzzing", "", "Code that reads texts and cells of other programs is compared with a naive reader, "
              "under the address and undefined-behaviour sanitizers. The ordinary tests replay the corpora.")
    page.table(("", "", "shown by"), [
        ("targets", figures.number("targets"), command("fuzz")),
        ("inputs in the corpora", figures.number("inputs"), command("fuzz")),
        ("last run: processor seconds", figures.number("processor-seconds"), command("fuzz")),
        ("last run: executions", figures.number("executions"), command("fuzz")),
        ("last run: failures", figures.number("failures"), command("fuzz")),
        ("processor hours on record", spent, f"`awk '{{ s += $3 }} END {{ print s / 3600 }}' {HOURS}`"),
        ("executions on record", executions, f"`awk '{{ n += $4 }} END {{ print n }}' {HOURS}`"),
    ])
    page.text("What each target reached in its last run, of all edges between blocks of code in its program.")
    page.table(("target", "edges reached", "inputs", "shown by"), [
        (name, figures.share(f"edges-{name}-covered", f"edges-{name}"), figures.number(f"inputs-{name}"), command("fuzz"))
        for name in (path.name.removesuffix("_fuzz.cpp") for path in sorted(pathlib.Path("tests/fuzz").glob("*_fuzz.cpp")))])


def survival(page):
    dev, device = page.suites["dev"], page.suites["device"]
    page.text("## Faults, kills, power cuts", "", "Calls of the C library were made to fail. Processes were killed "
              "while they used shared objects; the others had to continue with correct data. The power of the emulated "
              "device was cut while it wrote its configuration.")
    page.table(("", "", "shown by"), [
        ("faults injected", dev.number("faults"), command("dev")),
        ("kills survived", dev.number("kills"), command("dev")),
        ("checks of `cpld` and its requests at the kernel's driver", device.number("acceptance-checks"),
         command("device")),
        ("power cuts survived", device.number("power-cuts"), command("device")),
        ("writes during these power cuts", device.number("power-cut-writes"), command("device")),
    ])


def moments(page):
    section(page, "moments", "Every moment", "Each single instruction of the ring's operations, of a log message and of the "
            "way through the store's gate was followed by a kill, or by an operation of another process on the same ring "
            "or gate; each single instruction of the timers' operations, of their handler and of the local time by a "
            "signal, or by what another thread may do. Nothing was lost that should not be, and the other processes "
            "continued.",
            (("moments tried, of the release build", "moments"), ("of these, ended by a kill", "kills"),
             ("failures", "failures"), ("seconds", "seconds")))
    section(page, "moments-mips", "Every moment of the device's processor", "The same, under user emulation.",
            (("moments tried", "moments"), ("of these, ended by a kill", "kills"), ("failures", "failures"),
             ("seconds", "seconds")))


def milliseconds(figures, key):
    value = figures.values.get(key)
    return MISSING if value is None else f"{int(value) / 1000:,.1f} ms"


def faults(page):
    section(page, "faults", "Every call", "Each system call, allocation and clock read of the library's functions and of "
            "the programs was made to fail in turn: once, and from then on. Nothing crashed, hung or leaked, "
            "acknowledged data was there, and everything worked again afterwards.",
            (("scenarios", "scenarios"), ("calls that failed", "calls"), ("failures", "failures"),
             ("seconds", "seconds")))


def healing(page):
    figures = page.suites["healing"]
    page.text("## Deaths in the configuration store", "", "Processes were killed while they used the store. The others "
              "continued: no operation failed, acknowledged data was there, and the file and its indexes were "
              "clean. Four survivors mixed all operations. The times are from the kill to the end of the first "
              "operation that a survivor began after it.")
    page.table(("", "in memory", "on a disk", "shown by"), [
        (what, *(show(f"{key}-{where}") for where in ("memory", "disk")), command("healing"))
        for what, key, show in (
            ("killed, with four survivors", "deaths", figures.number),
            ("of these, in the middle of a change", "inside", figures.number),
            ("time to a survivor's next success, median", "median", lambda key: milliseconds(figures, key)),
            ("the longest", "maximum", lambda key: milliseconds(figures, key)),
            ("killed in a crowd: busy, idle, with cursors, without closing", "crowd", figures.number))])
    page.table(("", "", "shown by"), [
        ("killed before and after each system call of a change, of opening, closing and healing",
         figures.number("calls"), command("healing")),
        ("killed at random instructions of reads", figures.number("instructions"), command("healing")),
        ("amounts of free space on the medium, from none to enough", figures.number("sizes"), command("healing")),
        ("damaged copies: each page, each part of the log", figures.number("damages"), command("healing")),
    ])


def powerloss(page):
    figures = page.suites["powerloss"]
    page.text("## Power cuts at every write of the store", "", "The states in which a power failure can leave a home: "
              "after each write, flush and renaming of recorded runs, with any part of the data that was not flushed "
              "(`docs/decisions/store-power.md`). The store must open in each state, with all acknowledged data and "
              "no half-done change. There is no promise for media that write only a part of a table's page.")
    page.table(("the medium writes whole", "events", "states", "cannot be opened", "wrong", "shown by"), [
        (what, *(figures.number(prefix + key) for key in ("events", "states", "refused", "wrong")),
         command("powerloss")) for what, prefix in (("pages", ""), ("sectors of 512 bytes", "torn-"))])
    page.text(f"It took {figures.number('seconds')} seconds.")


def mutation(page):
    section(page, "mutation", "Planted bugs", "Small bugs, planted one at a time, that the tests must catch.",
            (("planted", "planted"), ("caught", "caught")))


def fleet(page):
    section(page, "fleet", "A fleet", "Simulated devices write logs. These go through devlog, rsyslog on the devices, "
            "a central rsyslog, files and PostgreSQL, and all of these are restarted or killed meanwhile. Every record "
            "arrives; it is in the files that people read once and in order, and once in the database (`docs/fleet.md`).",
            (("devices", "devices"), ("records a second, written", "rate"), ("records", "records"),
             ("missing at the end", "missing"), ("arrived more than once", "repeated-on-arrival"),
             ("repeated in the files", "repeated-in-files"), ("out of order in the files", "out-of-order"),
             *((f"processor time of {name} for a record, ns", f"{hop}-nanoseconds") for hop, name in (
                 ("devlog", "devlog"), ("relay", "rsyslog on a device"), ("central", "the central rsyslog"),
                 ("database", "PostgreSQL"))),
             ("records a second, through the central rsyslog", "central-rate"),
             ("memory of devlog, KiB", "devlog-kilobytes"), ("memory of rsyslog on a device, KiB", "relay-kilobytes"),
             ("memory of the central rsyslog, KiB", "central-kilobytes"), ("memory of PostgreSQL, KiB", "database-kilobytes"),
             ("stores that were compared and changed", "stores")))


def times(page):
    figures = page.suites["times"]
    page.text("## Time", "", "How long a newcomer waits after cloning the repository, in seconds. The packages are "
              "installed, and nothing else runs on the machine.")
    page.table(("", "s", "shown by"), [
        ("`cmake -S . -B build && cmake --build build`: library and tools", figures.number("plain"), command("times")),
        ("`script/test`, build and run", figures.number("test"), command("times")),
        ("`script/test dev -L container` after a change of one test file", figures.number("change"), command("times")),
        ("the checks that a change must pass", page.suites["ci"].number("seconds"), command("ci"))])


def main():
    suites = {suite: Figures(suite) for suite in COMMANDS}
    if "--missing" in sys.argv[1:]:
        for suite, figures in suites.items():
            if not figures.values:
                print(COMMANDS[suite])
        return
    page = Page(suites)
    page.text("# Quality", "", "Written by `script/quality --write` from the figures that the commands below left in "
              "`build/figures`. A figure is missing when its command was not run or failed.", "",
              f"- Machine: {cpu()}", f"- System: Linux {platform.release().split('-')[0]}, {platform.libc_ver()[0]} "
              f"{platform.libc_ver()[1]}", f"- Compilers: GCC {run('c++', '-dumpfullversion')}; clang for fuzzing")
    old = ", ".join(command(suite) for suite, figures in suites.items() if figures.is_old())
    if old:
        page.text(f"The product has changed since these were run: {old}.")
    for part in (tests, coverage, fuzzing, survival, moments, faults, healing, powerloss, mutation, fleet, times):
        part(page)
    page.text("To repeat all of it: `rm -r build/figures; script/quality --run --write`.")
    print("\n".join(page.lines).rstrip())


if __name__ == "__main__":
    main()
