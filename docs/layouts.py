#!/usr/bin/env python3
"""Writes the tables of sizes and offsets into docs/formats.md; script/layouts calls it.

usage: layouts.py [--check] --device PROGRAM... --host PROGRAM...

The records are those whose layout the sources assert (devsupport/detail/Layout.h, static_assert). Sizes and offsets
come out of the programs' debugging information, so that nothing needs to run. Fails when a record of the public headers
or a field of a record is not asserted, and with --check when the tables in the page are out of date.
"""
import argparse
import collections
import pathlib
import re
import subprocess
import sys

PAGE = pathlib.Path("docs/formats.md")
BEGIN, END = "<!-- layouts:begin -->\n", "<!-- layouts:end -->\n"
FOLDERS = ("include", "lib", "logmgr", "db", "cpld")

ASSERTED_RECORD = re.compile(r"RECORD_BYTES\((\w+)|static_assert\(sizeof\((T\w+)\) == \d")
ASSERTED_FIELD = re.compile(r"(?:FIELD_AT\(|static_assert\(offsetof\()(\w+), (\w+)")
DECLARED_RECORD = re.compile(r"^typedef struct (\w+) {", re.MULTILINE)

FIELD_LINE = re.compile(r"(\w+)(?:\[\d+\])*(?: __attribute__\(\(.*\)\))?;\s*/\*\s*(\d+)\s+(\d+) \*/")
SIZE_LINE = re.compile(r"/\* size: (\d+)")

Record = collections.namedtuple("Record", "size fields")  # fields: name -> (offset, bytes)


def read_sources():
    """The asserted records with their fields, in the order of the sources; the records that the headers declare."""
    asserted, declared = {}, set()
    for folder in FOLDERS:
        for path in sorted(pathlib.Path(folder).rglob("*")):
            if path.suffix not in (".h", ".cpp") or path.name == "Layout.h":
                continue
            text = path.read_text()
            for names in ASSERTED_RECORD.findall(text):
                asserted.setdefault("".join(names), set())
            for name, field in ASSERTED_FIELD.findall(text):
                asserted.setdefault(name, set()).add(field)
            if folder == "include":
                declared.update(DECLARED_RECORD.findall(text))
    return asserted, declared


def read_layout(programs, name):
    """The record's layout in the first of the programs whose debugging information has it; None when none has."""
    for program in programs:
        text = subprocess.run(["pahole", "-C", name, program], check=False, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
        if size := SIZE_LINE.search(text):
            return Record(int(size[1]), {m[1]: (int(m[2]), int(m[3])) for m in FIELD_LINE.finditer(text)})
    return None


def table(name, device, host):
    if device == host:
        lines = [f"`{name}`: {device.size} bytes everywhere.", "", "| field | offset | bytes |", "|---|---:|---:|"]
        lines += [f"| `{field}` | {offset} | {size} |" for field, (offset, size) in device.fields.items()]
    else:
        lines = [f"`{name}`: {device.size} bytes on the device, {host.size} on the host.", "",
                 "| field | device: offset | bytes | host: offset | bytes |", "|---|---:|---:|---:|---:|"]
        for field in dict.fromkeys([*device.fields, *host.fields]):
            places = [where.fields.get(field, ("", "")) for where in (device, host)]
            lines.append(f"| `{field}` | " + " | ".join(f"{o} | {s}" for o, s in places) + " |")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--device", nargs="+", required=True)
    parser.add_argument("--host", nargs="+", required=True)
    arguments = parser.parse_args()

    asserted, declared = read_sources()
    device = {name: read_layout(arguments.device, name) for name in asserted}
    host = {name: read_layout(arguments.host, name) for name in asserted}
    faults = [f"{name}: declared in a header, its layout asserted nowhere" for name in sorted(declared - set(asserted))]
    for name, fields in asserted.items():
        if device[name] is None or host[name] is None:
            faults.append(f"{name}: not in the programs' debugging information")
            continue
        faults += [f"{name}.{field}: its offset is asserted nowhere" for field in device[name].fields
                   if field not in fields]
    if faults:
        sys.exit("\n".join(faults))

    tables = "\n".join(table(name, device[name], host[name]) for name in asserted)
    page = PAGE.read_text()
    head, _, rest = page.partition(BEGIN)
    _, _, tail = rest.partition(END)
    renewed = f"{head}{BEGIN}\n{tables}\n{END}{tail}"
    if renewed == page:
        return
    if arguments.check:
        sys.exit(f"{PAGE}: the sizes and offsets are out of date; script/layouts renews them")
    PAGE.write_text(renewed)


if __name__ == "__main__":
    main()
