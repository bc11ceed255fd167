#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Names the public functions that make calls that can fail, and that no scenario of tests/faults calls.

usage: fallible.py LIBRARY
Follows the calls in the library's machine code from each function of include/devsupport to other libraries.
Calls through pointers are not followed. Fails when a function is left over.
"""

import collections
import pathlib
import re
import subprocess
import sys

# These functions of other libraries call neither the kernel nor the allocator, or only wait, which does not fail.
PURE = re.compile(r"""_*(
    mem\w+ | str\w+ | stp\w+ | isoc23_str\w+ | ctype_\w+ | to(upper|lower) | errno_location | stack_chk_fail | assert_fail
    | cxa_finalize | qsort | abort | pthread_mutex_(lock|trylock|unlock) | getpid | tls_get_addr)""", re.X)


def calls_in(library):
    """What each function calls; a call of another library's function ends with @plt."""
    text = subprocess.run(("objdump", "-d", "--no-show-raw-insn", library), check=True, capture_output=True, text=True)
    calls, function = collections.defaultdict(set), ""
    for line in text.stdout.splitlines():
        if start := re.match(r"[0-9a-f]+ <([^>]+)>:", line):
            function = start[1].removesuffix(".cold")
            calls[function] |= set()
        elif target := re.search(r"\t(?:bnd )?(?:call|j\w+|lea) .*<([^>+]+)>?", line):
            calls[function].add(target[1].removesuffix(".cold"))
    return calls


def can_fail(function, calls, seen):
    seen.add(function)
    for name in calls.get(function, ()):
        own = name.removesuffix("@plt")
        if own not in calls and name.endswith("@plt"):
            if not PURE.fullmatch(own):
                return True
        elif own not in seen and can_fail(own, calls, seen):
            return True
    return False


def main():
    calls = calls_in(sys.argv[1])
    scenarios = "".join(path.read_text() for path in pathlib.Path("tests/faults").glob("*_test.cpp"))
    known = set(re.findall(r"\w+", scenarios))
    left = [f"{header}: {name}" for header in sorted(pathlib.Path("include/devsupport").rglob("*.h"))
            for name in dict.fromkeys(re.findall(r"\b(\w+)\(", re.sub(r"//.*|/\*(.|\n)*?\*/", "", header.read_text())))
            if name in calls and name not in known and can_fail(name, calls, set())]
    print("\n".join(["no scenario of tests/faults calls:", *left]) if left else "all functions have a scenario")
    return 1 if left else 0


if __name__ == "__main__":
    sys.exit(main())
