#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures the sizes of the device's files and says which aims are met; script/parts/size.sh builds them and calls this.

usage: size.py [--write] [--resident FILE]

Prints the tables with each number's change since it was last recorded in docs/benchmarks.md; --write records them there.
FILE is what the program `resident` printed on the device.
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

TOOLS = "mipsel-linux-gnu-"
PAGE = pathlib.Path("docs/benchmarks.md")
BEGIN, END = "<!-- size:begin -->\n", "<!-- size:end -->"
FIGURES = pathlib.Path("build/figures/size.txt")

LAYERS = {
    0: "L0 diagnostics, numbers and text, IPC primitives",
    1: "L1 tokenizer, containers, shared ring, local addresses",
    2: "L2 log channel and builders, link status",
    3: "L3 configuration store",
    4: "L4 log filter, WAN choice",
}
STORE_LAYER = 3
SOURCES = ("lib/*/*.cpp", "logmgr/*.cpp", "db/*/*.cpp")  # of a family, which is a folder
WITHOUT_STORE = "library without L3"
FILES = {
    "`cpld`": "cpld/cpld",
    "`libdevsupport.so`": "libdevsupport.so",
    "`devlog`": "tools/devlog/devlog",
    "`devconf`": "tools/devconf/devconf",
    "`devdoctor`": "tools/devdoctor/devdoctor",
}
CPLD_BYTES = 5640
LIBRARY_TEXT_BYTES = 35240


def tool(name, *arguments):
    return subprocess.run([TOOLS + name, *map(str, arguments)], check=True, text=True, stdout=subprocess.PIPE).stdout


def sections(path):
    """Text (code and read-only data), data and bss, in bytes."""
    return [int(number) for number in tool("size", path).splitlines()[1].split()[:3]]


def weigh_file(path, work):
    stripped = work / path.name
    tool("strip", "-o", stripped, path)
    return sections(stripped) + [stripped.stat().st_size]


def weigh_layers(build, layers, work):
    """The layers' objects joined, so that what they share counts once."""
    objects = [path for layer in layers for path in sorted(build.glob(f"**/devsupport_L{layer}.dir/**/*.o"))]
    joined = work / "joined.o"
    tool("ld", "-r", "-o", joined, *objects)
    return sections(joined)


class Table:
    def __init__(self, *columns):
        self.columns = columns
        self.rows = {}

    def lines(self, show):
        lines = ["| " + " | ".join(self.columns) + " |", "|---" + "|---:" * (len(self.columns) - 1) + "|"]
        for label, numbers in self.rows.items():
            lines.append("| " + " | ".join([label, *show(label, numbers)]) + " |")
        return lines


def measure_files(work):
    table = Table("file", "text", "data", "bss", "bytes of the file")
    for label, path in FILES.items():
        table.rows[label] = weigh_file(pathlib.Path("build/size", path), work)
    return table


def measure_library(work):
    table = Table("", "static: text", "data", "bss", "shared: text", "data", "bss")
    wanted = {name: [layer] for layer, name in LAYERS.items()}
    wanted[WITHOUT_STORE] = [layer for layer in LAYERS if layer != STORE_LAYER]
    wanted["library"] = list(LAYERS)
    for label, layers in wanted.items():
        table.rows[label] = [number for build in ("build/mips", "build/size")
                             for number in weigh_layers(pathlib.Path(build), layers, work)]
    return table


def measure_families(work):
    """The text of each family's objects, and its share of all; code in several families counts in each."""
    folders = {source.stem: source.parent.as_posix() for pattern in SOURCES for source in pathlib.Path().glob(pattern)}
    objects = {}
    for path in sorted(pathlib.Path("build/mips").glob("**/devsupport_L?.dir/**/*.o")):
        objects.setdefault(folders[path.name.split(".")[0]], []).append(path)
    texts = {}
    for family, paths in sorted(objects.items()):
        joined = work / "family.o"
        tool("ld", "-r", "-o", joined, *paths)
        texts[family] = sections(joined)[0]
    table = Table("family", "static: text", "of a thousand")
    for family, text in texts.items():
        table.rows[f"`{family}`"] = [text, round(1000 * text / sum(texts.values()))]
    return table


def read_resident(path):
    """Lines of `resident`: a label, a colon, and KiB of resident memory and of the process's own part of it."""
    table = Table("process", "resident", "of it its own")
    for label, numbers in re.findall(r"^(.*):((?: \d+){2})\s*$", path.read_text(), flags=re.MULTILINE):
        table.rows[label] = [int(number) for number in numbers.split()]
    if not table.rows:
        sys.exit(f"{path}: holds no figures")
    return table


def read_recorded(text):
    """The numbers of the recorded tables, by the label of their row."""
    recorded = {}
    for line in text.splitlines():
        label, *cells = [cell.strip() for cell in line.strip("|").split("|")]
        if cells and all(re.fullmatch(r"[\d,]+", cell) for cell in cells):
            recorded[label] = [int(cell.replace(",", "")) for cell in cells]
    return recorded


def as_recorded(_, numbers):
    return [f"{number:,}" for number in numbers]


def as_change_from(recorded):
    def show(label, numbers):
        before = recorded.get(label, numbers)
        if len(before) != len(numbers):
            before = numbers
        return [f"{now:,}" + (f" ({now - then:+,})" if now != then else "") for now, then in zip(numbers, before)]
    return show


def report(files, library, families, resident, aims, show):
    lines = ["## Size on the device", "",
             "Written by `script/bench size --write`: 32-bit MIPS, GCC -Os, in bytes unless said otherwise. Text is code "
             "and what is only read.", "",
             "Stripped files, dynamically linked; the tools hold the parts of the library that they use.", "",
             *files.lines(show), "",
             "The library by its layers, as a static program holds it and as position-independent code for the shared "
             "library, in which every function begins with finding its table of addresses.", "", *library.lines(show), "",
             "The same by families.", "", *families.lines(show), ""]
    if resident:
        lines += ["Memory of a static program on the emulated device, in KiB. Its own part is data, heap and stack; the "
                  "rest is its file and shared memory, which are there once for all processes.", "", *resident.lines(show), ""]
    lines += [f"- {words}: {'reached' if reached else 'MISSED'}." for words, reached in aims]
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--resident", type=pathlib.Path)
    arguments = parser.parse_args()

    with tempfile.TemporaryDirectory() as folder:
        files = measure_files(pathlib.Path(folder))
        library = measure_library(pathlib.Path(folder))
        families = measure_families(pathlib.Path(folder))
    resident = read_resident(arguments.resident) if arguments.resident else None
    cpld = files.rows["`cpld`"][-1]
    static, shared = library.rows[WITHOUT_STORE][0], library.rows[WITHOUT_STORE][3]
    aims = [(f"`cpld` {cpld:,} bytes, aim at most {CPLD_BYTES:,}", cpld <= CPLD_BYTES),
            (f"library without the store wrapper {static:,} bytes of text in a static program, aim at most "
             f"{LIBRARY_TEXT_BYTES:,}", static <= LIBRARY_TEXT_BYTES),
            ("no C++ runtime", True)]  # script/parts/size.sh fails before it comes here

    page = PAGE.read_text()
    head, _, rest = page.partition(BEGIN)
    recorded, _, tail = rest.partition(END)
    print(report(files, library, families, resident, aims, as_change_from(read_recorded(recorded))), end="")
    if arguments.write:
        PAGE.write_text(f"{head}{BEGIN}{report(files, library, families, resident, aims, as_recorded)}{END}{tail}")

    missed = [words for words, reached in aims if not reached]
    if missed:
        sys.exit("missed: " + "; ".join(missed))
    FIGURES.parent.mkdir(parents=True, exist_ok=True)
    figures = {"cpld-bytes": cpld, "library-text-static": static, "library-text-shared": shared}
    if resident:
        figures["resident-kib"] = list(resident.rows.values())[-1][0]
    FIGURES.write_text("".join(f"{key} {value}\n" for key, value in figures.items()))


if __name__ == "__main__":
    main()
