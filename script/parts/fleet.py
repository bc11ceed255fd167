#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The trial of script/fleet, inside its namespaces: devices write numbered records, and each one must arrive in the
central files and in PostgreSQL, while everything on the way is restarted or killed.

usage: fleet.py --devices N --seconds N --group N
A group of devices shares one rsyslog, because 200 of them would mostly measure task switches. Each device has
its own shared memory, /dev/log and devlog. The central rsyslog and PostgreSQL have a lower priority, because on real
machines they take no time from the devices. Leaves figures.txt, and the tables for the pages, in build/fleet.
"""

import argparse
import collections
import itertools
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

from fleet_tables import SECTION, table

RATE = 100  # records a second of each device
HERE = pathlib.Path("/mnt/fleet")  # build/fleet
PACKAGING = pathlib.Path("packaging/rsyslog")
TICK = os.sysconf("SC_CLK_TCK")
Cost = collections.namedtuple("Cost", "seconds kilobytes")


def proc(pid, name):
    """The kernel's status of a process; nothing when it has just ended."""
    try:
        return pathlib.Path(f"/proc/{pid}/{name}").read_text(encoding="ascii")
    except (FileNotFoundError, ProcessLookupError):
        return ""


def children(pid):
    return [int(child) for child in proc(pid, f"task/{pid}/children").split()]


def cost(pid):
    """Processor seconds of a process with its children, those that have ended too; its highest memory."""
    stat = proc(pid, "stat").rpartition(")")[2].split()
    memory = re.search(r"VmHWM:\s*(\d+)", proc(pid, "status"))
    costs = [cost(child) for child in children(pid)]
    return Cost(sum(int(ticks) for ticks in stat[11:15]) / TICK + sum(one.seconds for one in costs),
                max([int(memory.group(1)) if memory else 0, *(one.kilobytes for one in costs)]))


class Service:
    """A program that can be ended and started again. Its costs are summed up."""

    def __init__(self, name, command, nice=0):
        self.name, self.command = name, ["nice", "-n", str(nice), *command]
        self.seconds, self.kilobytes = 0.0, 0
        self.start()

    def start(self):
        with open(HERE / "said" / self.name, "ab") as said:
            self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=said, stderr=said)

    def count(self):
        now = cost(self.process.pid)
        return Cost(self.seconds + now.seconds, max(self.kilobytes, now.kilobytes))

    def end(self, number=signal.SIGTERM):
        assert self.process.poll() is None, f"{self.name} ended unexpectedly"
        self.seconds, self.kilobytes = self.count()
        self.process.send_signal(number)
        self.process.wait()


def config(name, places, more=""):
    """A shipped configuration with this trial's paths and addresses."""
    text = (PACKAGING / name).read_text(encoding="utf-8")
    for place, here in places.items():
        assert place in text, f"{name} does not name {place}"
        text = text.replace(place, str(here))
    return text + more


def rsyslog(name, text, nice=0):
    spool = HERE / name
    spool.mkdir()
    (spool / "rsyslog.conf").write_text(text, encoding="utf-8")
    run("/usr/sbin/rsyslogd", "-N1", "-f", spool / "rsyslog.conf")
    # A copy: where AppArmor confines Debian's program, it may not use these folders.
    return Service(name, [HERE / "rsyslogd", "-n", "-i", "NONE", "-f", spool / "rsyslog.conf"], nice)


def statistics(name):
    return f"""
module(load="impstats" interval="1" format="json" log.syslog="off" log.file="{HERE / name / 'statistics'}")
"""


class Database:
    BIN = max(pathlib.Path("/usr/lib/postgresql").iterdir(), key=lambda path: int(path.name)) / "bin"
    AS = ["setpriv", "--reuid=postgres", "--regid=postgres", "--clear-groups"]

    def __init__(self):
        folder = HERE / "postgresql"
        folder.mkdir()
        shutil.chown(folder, "postgres", "postgres")
        run(*self.AS, self.BIN / "initdb", "-D", folder / "data", "-A", "trust", "-U", "postgres")
        self.service = Service("postgres", [*self.AS, self.BIN / "postgres", "-D", folder / "data", "-k", folder,
                                            "-c", "listen_addresses="], nice=10)
        self.folder = folder
        until(lambda: subprocess.run([self.BIN / "pg_isready", "-qh", folder], check=False).returncode == 0)
        self.ask("create role rsyslog login")
        self.ask("create database logs")
        self.psql("-f", PACKAGING / "records.sql")

    def psql(self, *words, database="logs", **how):
        return run(self.BIN / "psql", "-qAtX", "-v", "ON_ERROR_STOP=1", "-h", self.folder, "-U", "postgres",
                   "-d", database, *words, **how)

    def ask(self, query):
        return self.psql("-c", query, database="logs" if "records" in query else "postgres")


def run(*command, **how):
    result = subprocess.run(command, check=False, capture_output=True, text=True, **how)
    if result.returncode != 0:
        sys.exit(f"script/fleet: {' '.join(map(str, command))} failed:\n{result.stdout}{result.stderr}")
    return result.stdout


def until(is_done, seconds=600):
    end = time.monotonic() + seconds
    while not is_done():
        if time.monotonic() > end:
            sys.exit("script/fleet: what was waited for did not happen")
        time.sleep(0.2)


class Device:
    """Shared memory and /dev/log of its own, and a devlog that is started again when it ends."""

    COMMAND = re.search("^ExecStart=(.*)$", (PACKAGING / "devlog.service").read_text(encoding="utf-8"), re.M).group(1)

    def __init__(self, number):
        self.name = f"device'{number:03}"  # the quote may not end a text in SQL
        self.folder = pathlib.Path(f"/mnt/{number}")
        self.folder.mkdir()
        devlog = self.COMMAND.replace("/usr/bin", str(HERE / "release/tools/devlog")).replace("%t/devlog", "/mnt/self")
        self.service = Service(self.name, [
            "unshare", "--ipc", "--mount", "--propagation", "private", "sh", "-c",
            f"mount --bind {self.folder} /mnt/self; while :; do {devlog}; sleep 0.2; done"])
        self.writer = None

    def write(self, seconds):
        self.writer = subprocess.Popen([
            "nsenter", "--ipc", "-t", str(self.service.process.pid), HERE / "fleet_writer", self.name, str(RATE),
            str(RATE * seconds)])

    def signal(self, number):
        for devlog in children(self.service.process.pid):
            os.kill(devlog, number)

    def stop(self):
        devlogs = children(self.service.process.pid)
        for pid in (self.service.process.pid, *devlogs):
            os.kill(pid, signal.SIGKILL)


class Trial:
    def __init__(self, options):
        self.options = options
        self.expected = options.devices * options.seconds * RATE
        (HERE / "said").mkdir()
        shutil.copy("/usr/sbin/rsyslogd", HERE)
        self.database = Database()
        self.reload = None
        self.central = rsyslog("central", config("central.conf", {
            "/var/spool/rsyslog": HERE / "central", "/var/log/devices": HERE / "devices",
            "/var/run/postgresql": self.database.folder}, statistics("central")), nice=5)
        self.devices = [Device(number) for number in range(options.devices)]
        mine = os.readlink("/proc/self/ns/ipc")
        until(lambda: all(os.readlink(f"/proc/{device.service.process.pid}/ns/ipc") != mine for device in self.devices))
        self.relays = [self.relay(first) for first in range(0, options.devices, options.group)]

    def relay(self, first):
        name = f"relay-{first:03}"
        inputs = "".join(f'input(type="imuxsock" Socket="{device.folder}/log" HostName="{device.name}" '
                         'RateLimit.Interval="0")\n'
                         for device in self.devices[first:first + self.options.group])
        return rsyslog(name, config("device.conf", {
            "/var/spool/rsyslog": HERE / name, "logs.example.net": "127.0.0.1",
            'SysSock.RateLimit.Interval="0"': 'SysSock.Use="off"', "64m": f"{64 * self.options.group}m"}, inputs + statistics(name)))

    def start_central(self):
        """Starts it, and with it the service that stores what its queue has lost."""
        unit = (PACKAGING / "reload.service").read_text(encoding="utf-8").replace("\\\n", "")
        command = re.search("^ExecStart=/bin/sh -euc '(.*)'$", unit, re.M).group(1)
        for place, here in (("/var/log/devices", HERE / "devices"), ("/usr/local/bin", PACKAGING),
                            ("/run/reload", HERE / "reload")):
            assert place in command, f"reload.service does not name {place}"
            command = command.replace(place, str(here))
        (HERE / "reload").mkdir(exist_ok=True)
        if self.reload and self.reload.poll() is None:  # reload.service ends when rsyslog ends
            os.killpg(self.reload.pid, signal.SIGTERM)
            self.reload.wait()
        self.central.start()
        with open(HERE / "said/reload", "ab") as said:
            self.reload = subprocess.Popen(["nice", "-n", "10", "/bin/sh", "-euc", command], stdout=said, stderr=said,
                                           env=os.environ | {"PGHOST": str(self.database.folder)}, start_new_session=True)

    def restart_relay(self):
        """Restarts an rsyslog on devices while it sends what waits in its queue, which is no more than it can send in time."""
        relay = self.relays[-1]
        mine = self.devices[-self.options.group:]
        before = size_of(mine)

        def waiting():
            return sum(path.stat().st_size for path in (HERE / relay.name).glob("central.0*"))
        until(lambda: size_of(mine) > before and waiting() < 4 << 20)
        print(f"        {waiting() // 1024:,} KiB are in its queue", flush=True)
        relay.end()
        relay.start()

    def stored(self):
        return int(self.database.ask("select last_value from records_id_seq"))

    def disturb(self):
        """Restarts and kills everything while the devices write. Yields what to do, with its time."""
        def each_tenth(first, number):
            for device in self.devices[first::10]:
                device.signal(number)
        yield 0.10, "devlog restarted on each tenth device", lambda: each_tenth(0, signal.SIGTERM)
        yield 0.15, "devlog killed on each tenth device", lambda: each_tenth(5, signal.SIGKILL)
        yield 0.25, "the central rsyslog ended", self.central.end
        yield 0.45, "the central rsyslog started", self.start_central
        yield 0.46, "an rsyslog on devices restarted, while records wait in its queue", self.restart_relay
        yield 0.55, "publish started", lambda: publish(wait=False)
        yield 0.60, "PostgreSQL restarted", lambda: (self.database.service.end(signal.SIGINT),
                                                     self.database.service.start())
        yield 0.80, "the central rsyslog killed", lambda: self.central.end(signal.SIGKILL)
        yield 0.85, "the central rsyslog started", self.start_central
        yield 0.95, "publish killed", lambda: publish(kill=True)

    def run(self):
        start = time.monotonic()
        for number, device in enumerate(self.devices):
            if number == self.options.group:
                time.sleep(1)
                self.relays[0].end()  # before the load makes records wait in its queue
                self.relays[0].start()
                print(f"{time.monotonic() - start:5.1f} s  an rsyslog on a device restarted", flush=True)
            device.write(self.options.seconds)
        for when, what, act in self.disturb():
            time.sleep(max(0, start + when * self.options.seconds - time.monotonic()))
            print(f"{time.monotonic() - start:5.1f} s  {what}", flush=True)
            act()
        usages = [os.wait4(device.writer.pid, 0) for device in self.devices]
        assert not any(status for _, status, _ in usages), "a device could not write"
        written = time.monotonic() - start
        print(f"{written:5.1f} s  all records written", flush=True)
        settled = self.settle(start + written, lambda: size_of(self.devices))
        print(f"{settled - start:5.1f} s  the files have all that comes", flush=True)
        costs = {"writer": Cost(sum(usage.ru_utime + usage.ru_stime for _, _, usage in usages),
                                max(usage.ru_maxrss for _, _, usage in usages)),
                 "devlog": sum_up(device.service for device in self.devices), "relay": sum_up(self.relays)}
        for device in self.devices:  # they would continue to wait for records
            device.stop()
        stored = self.settle(settled, self.stored) - start
        print(f"{stored:5.1f} s  the database has all that comes", flush=True)
        costs |= {"central": self.central.count(), "database": self.database.service.count()}
        return costs, written, stored

    @staticmethod
    def settle(changed, measure, seconds=5):
        """Waits until a value stops changing. Returns the time of the last change, or the one given."""
        last, begin = measure(), time.monotonic()
        while time.monotonic() - max(begin, changed) < seconds:
            time.sleep(0.5)
            now = measure()
            if now != last:
                last, changed = now, time.monotonic()
        return changed


def size_of(devices):
    """Bytes that have arrived from these devices."""
    return sum(path.stat().st_size for device in devices for path in (HERE / "devices" / device.name).glob("*.arrived"))


def publish(wait=True, kill=False):
    process = subprocess.Popen(["nice", "-n", "10", PACKAGING / "publish", HERE / "devices"], start_new_session=True)
    if kill:
        time.sleep(0.1)
        os.killpg(process.pid, signal.SIGKILL)
    assert not wait or process.wait() == 0 or kill, "publish failed"


def try_publish():
    """What kills leave in files of arrival: repetitions, also in the next hour, and records that were cut off."""
    folder = HERE / "published/device"
    folder.mkdir(parents=True)
    one, two, three = (f'{{"time":"{number}","text":"{text}"}}' for number, text in enumerate(("a", "b\\\\", 'c\\"} d')))
    (folder / "1.arrived").write_text(f"{one}\n{two}\n{one}\n{two[:9]}{two}\n", encoding="utf-8")
    (folder / "2.arrived").write_text(f"{two}\n{two[:9]}{three}\n{one}\n{three}\n{three[:24]}\n", encoding="utf-8")
    run(PACKAGING / "publish", folder.parent)
    assert (folder / "1.jsonl").read_text(encoding="utf-8") == f"{one}\n{two}\n"
    assert (folder / "2.jsonl").read_text(encoding="utf-8") == f"{three}\n"


def numbers(records):
    """Checks the records of one device: which are missing or repeated, and whether the rest is in order."""
    seen, highest, again, disorder, lost = set(), -1, 0, 0, 0
    for record in records:
        fields = json.loads(record)
        if fields["status"] == "lost":
            lost += fields["records"]
            continue
        number = int(fields["text"].split()[1])
        if number in seen:
            again += 1
            continue
        seen.add(number)
        disorder += number < highest
        highest = max(highest, number)
    return collections.Counter(seen=len(seen), again=again, disorder=disorder, lost=lost)


def in_files(trial, kind):
    total = collections.Counter()
    for device in trial.devices:
        lines = []
        for path in sorted((HERE / "devices" / device.name).glob("*." + kind)):
            lines += path.read_text(encoding="utf-8").splitlines()
        total += numbers(lines)
    return total


def in_database(trial):
    text = trial.database.ask("copy (select device, record from records order by device, id) "
                              "to stdout (format csv, quote e'\\x01', delimiter e'\\x02')")
    total = collections.Counter()
    rows = (line.split("\x02") for line in text.splitlines())
    for _, group in itertools.groupby(rows, key=lambda row: row[0]):
        total += numbers(record for _, record in group)
    return total


def rates(name, counter):
    """The records that one rsyslog received in each second, from its statistics; it counts from 0 after a restart."""
    taken, last = [], 0
    for line in (HERE / name / "statistics").read_text(encoding="utf-8").splitlines():
        entry = json.loads(line[line.index("{"):])
        if entry["name"].startswith(counter) and "submitted" in entry:
            taken.append(entry["submitted"] - (last if entry["submitted"] >= last else 0))
            last = entry["submitted"]
    return taken


def busy(taken):
    """Mean rate from the first to the last second with records, and the highest of a second."""
    used = [second for second, count in enumerate(taken) if count]
    return sum(taken) // (used[-1] - used[0] + 1), max(taken)


def report(trial, costs, written, stored):
    processes = {"writer": len(trial.devices), "devlog": len(trial.devices), "relay": len(trial.relays)}
    relayed = [sum(each) for each in itertools.zip_longest(*(rates(relay.name, "imuxsock") for relay in trial.relays),
                                                           fillvalue=0)]
    speeds = {"writer": (trial.expected / written, RATE * len(trial.devices)), "devlog": busy(relayed),
              "relay": busy(rates("central", "imrelp")), "central": busy(rates("central", "imrelp")),
              "database": (trial.expected / stored, 0)}
    figures = {}
    for hop, spent in costs.items():
        figures |= {f"{hop}-rate": int(speeds[hop][0]), f"{hop}-peak": int(speeds[hop][1]),
                    f"{hop}-nanoseconds": int(spent.seconds * 1e9 / trial.expected),
                    f"{hop}-kilobytes": spent.kilobytes, f"{hop}-processes": processes.get(hop, 1)}
    return figures


def sum_up(services):
    costs = [service.count() for service in services]
    return Cost(sum(one.seconds for one in costs), max(one.kilobytes for one in costs))


def main():
    parser = argparse.ArgumentParser()
    for name in ("--devices", "--seconds", "--group"):
        parser.add_argument(name, type=int, required=True)
    try_publish()
    trial = Trial(parser.parse_args())
    figures = report(trial, *trial.run())
    for service in (*trial.relays, trial.central):
        service.end()
    assert trial.reload.wait() == 0, "reload.service failed"
    publish()
    arrived, files, database = in_files(trial, "arrived"), in_files(trial, "jsonl"), in_database(trial)
    for name, counts in (("arrived", arrived), ("files", files), ("database", database)):
        print(f"{name:8}", dict(counts), flush=True)
    trial.database.service.end(signal.SIGINT)
    figures |= {"devices": len(trial.devices), "records": trial.expected, "rate": RATE * len(trial.devices),
                "missing": trial.expected - min(files["seen"], database["seen"]), "repeated-in-files": files["again"],
                "repeated-on-arrival": arrived["again"], "out-of-order": files["disorder"]}
    (HERE / "figures.txt").write_text("".join(f"{key} {value}\n" for key, value in figures.items()), encoding="ascii")
    (HERE / "fleet.md").write_text(table(figures), encoding="utf-8")
    (HERE / "benchmarks.md").write_text(SECTION + table(figures), encoding="utf-8")
    print(table(figures))
    faults = [what for what, is_so in (
        ("records are missing in the files", files["seen"] != trial.expected),
        ("records are missing in the database", database["seen"] != trial.expected),
        ("records are twice in the files", files["again"]),
        ("records are twice in the database", database["again"]),
        ("records are out of order in the files", files["disorder"]),
        (f"rings were overrun: this machine is too slow, and {files['lost']:,} records are lost", files["lost"])) if is_so]
    if faults:
        sys.exit("script/fleet: " + "; ".join(faults))
    print(f"each of {trial.expected:,} records arrived")


if __name__ == "__main__":
    main()
