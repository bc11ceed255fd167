# SPDX-License-Identifier: MIT
"""The device suite: what must hold on the emulated device. One line for each check, a summary at the end."""

import collections
import contextlib
import glob
import os
import random
import re
import shlex
import subprocess
import threading
import time

from disk import BLOCK, Server
from machine import HERE, OUT, Disk, Machine, MachineOff

ROOT = os.path.normpath(os.path.join(HERE, "../.."))
FIGURES = os.path.join(ROOT, "build/figures/device.txt")
TESTS_DISK = Disk(f"file={OUT}/tests.img,readonly=on", "/tests", "ro")

STORE_BLOCKS = 8192
CUTS_IN_WRITES = 10
CUTS_IN_RECOVERY = 3


class Results:
    """Counts the checks of all machines and says each of them."""

    def __init__(self):
        self.lock = threading.Lock()
        self.passed = 0
        self.failed = 0
        self.figures = collections.Counter()

    def check(self, is_good, name, detail="", weight=1):
        """detail: what there is to say about a failure. weight: how many checks the line counts for."""
        text = f"ok {name}" if is_good else f"not ok {name}"
        if detail and not is_good:
            text += "".join(f"\n  {line}" for line in detail.rstrip().split("\n"))
        with self.lock:
            self.passed += weight if is_good else 0
            self.failed += 0 if is_good else 1
            print(text, flush=True)

    def count(self, figure, number):
        with self.lock:
            self.figures[figure] += number


def capture(device, commands):
    """Status and all output of commands, errors among it where they were said."""
    output = bytearray()
    status = device.run("exec 2>&1\n" + commands, output.extend)
    return status, output.decode(errors="replace")


# ---- cpld with the kernel's driver ----

ANALOG = "/sys/kernel/debug/phone_sim/analog"


def acceptance(device, results):
    """The acceptance of cpld, each script with the driver that it expects."""
    worlds = {
        "cpld": ("true", f"cat {ANALOG}/debug", "off\n"),
        "cpld_failing": (f"cat {ANALOG}/registers >/tmp/before; echo 5 7 >{ANALOG}/fail",
                         f"cat {ANALOG}/fail; cmp {ANALOG}/registers /tmp/before", "0 0\n"),
        "cpld_answer": (f"echo channel=7,register=9,value=0x1234,result=5 >{ANALOG}/answer",
                        f"echo >{ANALOG}/answer", ""),
        "cpld_absent": ("rmmod phone_sim", "modprobe phone_sim", ""),
    }
    for script, (before, after, wanted) in worlds.items():
        device.ask(before)
        _, output = capture(device, f"DRIVER_TRACE={ANALOG}/trace sh /tests/acceptance/{script}.sh")
        for line in re.findall(r"^(?:not )?ok .*(?:\n  .*)*", output, re.MULTILINE):
            first, _, detail = line.partition("\n")
            is_good = first.startswith("ok ")
            results.check(is_good, f"{script}: {first.removeprefix('not ').removeprefix('ok ')}", detail)
            results.count("acceptance-checks", 1 if is_good else 0)
        results.check(re.search(r"^\d+ passed, 0 failed$", output, re.MULTILINE) is not None,
                      f"{script} ran to its end", output)
        status, left = capture(device, after)
        results.check((status, left) == (0, wanted), f"{script} left the driver as it should", left)


# ---- Test programs ----

# On the device, long tests run 20 per cent of their usual rounds.
ENVIRONMENT = "DEVSUPPORT_STORE_ROUNDS=20"


def left_out(program):
    """The tests of a program that do not run on the device."""
    with open(os.path.join(ROOT, "tests/device/left-out.txt"), encoding="ascii") as lines:
        rows = [line.split(None, 2) for line in lines if not line.startswith("#")]
    return [test for name, test, _ in rows if name == program]


def system_v_keys(device):
    """The keys of all semaphores, segments and message queues. (The store keeps its own while it is there.)"""
    return device.ask("cat /proc/sysvipc/sem /proc/sysvipc/shm /proc/sysvipc/msg | awk '$1 != \"key\" { print $1 }'")


def run_program(device, path, results):
    """Runs one test program as a whole: every test in it must pass, none may be skipped, nothing be left over."""
    name = os.path.basename(path)
    excluded = left_out(name)
    for test in excluded:
        listed = device.ask(f"/tests/build/{path} --gtest_list_tests --gtest_filter={shlex.quote(test)}")
        if "\n  " not in listed:
            results.check(False, f"{name}: {test} is left out, but there is no such test")
    words = [f"/tests/build/{path}", "--gtest_color=no", f"--gtest_filter=-{':'.join(excluded)}"]
    # Tests call other programs through the system's shell. Busybox's shell would prefer its own commands.
    device.ask("ln -sf /tests/bin/dash /bin/sh")
    before = system_v_keys(device)
    start = time.monotonic()
    status, output = capture(device, f"cd /tmp && {ENVIRONMENT} {shlex.join(words)}")
    seconds = time.monotonic() - start
    passed = re.search(r"^\[  PASSED  \] (\d+) tests?\.$", output, re.MULTILINE)
    count = int(passed[1]) if passed else 0
    skipped = output.count("[  SKIPPED ]")
    is_good = status == 0 and count > 0 and skipped == 0
    # The names of the tests show that the machine lives; of those that pass they tell nothing more.
    told = re.sub(r"^\[(?: RUN  |---|     * OK ).*\n", "", output, flags=re.MULTILINE)
    results.check(is_good, f"{name}: {count} tests, {seconds:.1f} s", f"status {status}\n{told}", count)
    results.count("device-tests", count)
    results.count("skipped", skipped)
    after = system_v_keys(device)
    if after != before:
        results.check(False, f"{name} leaves System V objects", f"before:\n{before}\nafter:\n{after}")


def network(device, results):
    """The network queries beside the real switch and link file, and the drivers under fire."""
    device.ask("devconf init")
    run_program(device, "tests/device/device_Drivers_test", results)
    device.ask("rm -rf /config_fs/DB/*")


def programs():
    """All test programs of the library and the tools, the replay of the corpora among them, as paths on the disk."""
    home = os.path.join(OUT, "tests/build")
    paths = sorted(os.path.relpath(path, home)
                   for path in glob.glob(f"{home}/tests/*/*_test") + glob.glob(f"{home}/tests/fuzz/fuzz_*"))
    return collections.deque(path for path in paths
                             if not path.startswith("tests/device/") and "*" not in left_out(os.path.basename(path)))


def library(device, results, waiting):
    """Runs test programs as long as some are waiting; several machines may take from the same queue."""
    while waiting:
        try:
            path = waiting.popleft()
        except IndexError:
            return
        run_program(device, path, results)


def kernel(device, results):
    """Whatever the tests did, the kernel took it."""
    complaints = device.ask("dmesg | grep -E 'BUG|Oops|WARNING|Call Trace' || true")
    results.check(complaints == "", "the kernel has nothing to complain about", complaints)


# ---- Power cuts ----

class Store:
    """The configuration store on a disk whose power fails, over all the machines that use it."""

    def __init__(self, results, dice):
        self.results = results
        self.dice = dice
        self.acknowledged = 0  # the last change that the device said to be on the disk
        self.image = os.path.join(OUT, "store.img")

    def make(self):
        """An empty disk with an empty store."""
        with open(self.image, "wb") as image:
            image.truncate(STORE_BLOCKS * BLOCK)
        subprocess.run(["mke2fs", "-q", "-t", "ext4", "-b", str(BLOCK), "-F", self.image],
                       check=True, env={**os.environ, "PATH": os.environ["PATH"] + ":/usr/sbin:/sbin"})
        with Server(self.image, self.dice) as server, self.machine(server) as device:
            device.ask("mkdir -p /config_fs/DB && devconf init")
            device.power_off()

    def machine(self, server):
        disks = [TESTS_DISK, Disk(f"file=nbd+unix:///?socket={server.path}", "/config_fs", "rw")]
        device = Machine(disks, "store")
        server.on_power_failure = device.process.kill
        return device

    def use(self, server, device, when_written):
        """Checks the store as a power cut left it, then writes until the machine is off. Returns what went wrong.

        when_written: called with the server after each acknowledged change of this run, and their number"""
        status, output = capture(device, "devconf verify")
        if status != 0:
            return f"devconf verify: status {status}\n{output}"
        written = 0
        for line in device.follow(f"exec /tests/build/tests/device/device_store_writer {self.acknowledged}"):
            if line.startswith("lost"):
                return line
            self.acknowledged = int(line.removeprefix("found "))
            if not line.startswith("found"):
                written += 1
                self.results.count("power-cut-writes", 1)
            when_written(server, written)
        return ""

    def cut_in_writes(self, name):
        """The power fails at some write to the disk, after some acknowledged changes."""
        changes, requests = self.dice.randint(1, 60), self.dice.randint(0, 25)
        before = self.acknowledged

        def when_written(server, written):
            if written == changes:
                server.fail_after(requests)

        with Server(self.image, self.dice) as server, self.machine(server) as device:
            complaint = self.use(server, device, when_written)
        self.check_cut(server, complaint, f"{name}: all {before} changes were there, the store verified, "
                       f"{self.acknowledged - before} more written")

    def cut_in_recovery(self, name):
        """The power fails again while the file system or the store recovers."""
        requests = self.dice.randint(0, 30)
        with Server(self.image, self.dice) as server, self.machine(server) as device:
            server.fail_after(requests)
            complaint = ""
            with contextlib.suppress(MachineOff):
                complaint = self.use(server, device, lambda server, written: None)
        self.check_cut(server, complaint, f"{name}: at write or flush {requests + 1} after the start")

    def check_cut(self, server, complaint, name):
        if not complaint and not server.has_power_failed:
            complaint = "the machine went off by itself"
        self.results.check(not complaint, name, complaint)
        self.results.count("power-cuts", 1)

    def final_look(self):
        """Everything is there in the end."""
        with Server(self.image, self.dice) as server, self.machine(server) as device:
            complaint = self.use(server, device, lambda server, written: device.cut())
        self.results.check(not complaint, f"after the last cut: all {self.acknowledged} changes are there", complaint)


def cuts(results):
    """Power cuts in the middle of writes to the store."""
    seed = int(os.environ.get("DEVSUPPORT_TEST_SEED", "0"), 0) or random.randrange(1, 2**32)
    print(f"power cuts with DEVSUPPORT_TEST_SEED={seed}", flush=True)
    store = Store(results, random.Random(seed))
    store.make()
    for number in range(1, CUTS_IN_WRITES + 1):
        store.cut_in_writes(f"power cut {number}")
        if number <= CUTS_IN_RECOVERY:
            store.cut_in_recovery(f"power cut in the recovery from cut {number}")
    store.final_look()


# ---- The whole suite ----

PARTS = ("acceptance", "network", "library", "cuts")


def first_lane(chosen, results, waiting):
    """One machine for all that needs the drivers, and then for test programs."""
    with Machine([TESTS_DISK], "drivers") as device:
        for part in acceptance, network:
            if part.__name__ in chosen:
                part(device, results)
        library(device, results, waiting)
        kernel(device, results)
        device.power_off()


def second_lane(chosen, results, waiting):
    """The machines whose power fails, and then one for the test programs that are still waiting."""
    if "cuts" in chosen:
        cuts(results)
    if waiting:
        with Machine([TESTS_DISK], "tests") as device:
            library(device, results, waiting)
            kernel(device, results)
            device.power_off()


def test(parts):
    """Runs parts of the suite, or all, on two machines at a time. Returns the exit status."""
    chosen = parts or PARTS
    results = Results()
    waiting = programs() if "library" in chosen else collections.deque()

    def run(lane):
        try:
            lane(chosen, results, waiting)
        except (MachineOff, RuntimeError, OSError, subprocess.SubprocessError) as error:
            results.check(False, "the machine works", f"{error}\nsee {OUT}/console-*.log")

    # An interrupted suite does not wait for these threads. Their machines stop with them.
    lanes = [threading.Thread(target=run, args=[lane], daemon=True) for lane in (first_lane, second_lane)
             if lane is second_lane or set(chosen) - {"cuts"}]
    for lane in lanes:
        lane.start()
    for lane in lanes:
        lane.join()
    if results.failed == 0 and set(chosen) == set(PARTS):
        os.makedirs(os.path.dirname(FIGURES), exist_ok=True)
        with open(FIGURES, "w", encoding="ascii") as figures:
            figures.writelines(f"{key} {number}\n" for key, number in sorted(results.figures.items()))
    print(f"{results.passed} passed, {results.failed} failed")
    return 0 if results.failed == 0 else 1
