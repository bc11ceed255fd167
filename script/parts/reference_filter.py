#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Turns a public header into what Doxygen reads; Doxygen calls it as its input filter (script/reference).

A header is one family. Its first comment, and every comment that belongs to no declaration, describe the family. A
contract's labelled lines become Doxygen's commands: "pText in ..." becomes \\param, "Returns" becomes \\return, and any
other label a paragraph with that title. Declarations without a blank line between them share one contract; one without
a contract gets the family comment before it.
usage: reference_filter.py HEADER
"""
import re
import sys
from pathlib import Path

LABEL = re.compile(r"^([A-Z][a-z]+) {2,}(\S.*)$")
ARGUMENT = re.compile(r"^(\w+)( \.\.\.)? +(in|out|in,out) +(\S.*)$")
FUNCTION = re.compile(r"^(?!typedef)(?!extern [^(]*;)[A-Za-z][^(]*?(\w+)\((.*)\)[^)]*;$", re.DOTALL)
RETURNS_NOTHING = re.compile(r"(DEVSUPPORT_NORETURN )?void \w")
TRAILING = re.compile(r"(?:/\*|///<) *(.*?) *(?:\*/)?$")


def escaped(text):
    """The text as it is; Doxygen reads nothing between quotes, so that they must not be quotes for it."""
    return re.sub(r"([\\@&<>#%$])", r"\\\1", text).replace('"', "&quot;")


def verbatim(lines):
    return ["@verbatim", *lines, "@endverbatim"]


def statements(text):
    """Yields (kind, lines) for each comment, statement, preprocessor line and blank line."""
    lines = text.splitlines()
    at = 0
    while at < len(lines):
        begin = at
        line = lines[at]
        if line.startswith("///"):
            while at < len(lines) and lines[at].startswith("///"):
                at += 1
            yield "contract", [entry[4:] for entry in lines[begin:at]]
        elif line.startswith("//"):
            at += 1
        elif line.startswith("/*"):
            while "*/" not in lines[at]:
                at += 1
            at += 1
            body = "\n".join(lines[begin:at])[2:].rsplit("*/", 1)[0]
            yield "comment", [re.sub(r"^ (\* ?|  )", "", entry) for entry in body.strip("\n ").splitlines()]
        elif line.startswith("#") or not line.strip() or line.startswith("DEVSUPPORT_") and "(" not in line:
            while lines[at].endswith("\\"):
                at += 1
            at += 1
            yield ("blank" if not line.strip() else "other"), lines[begin:at]
        else:
            depth = 0
            while True:
                code = re.sub(r"/\*.*?\*/|//.*", "", lines[at])
                depth += code.count("{") - code.count("}")
                at += 1
                if depth == 0 and code.rstrip().endswith(";"):
                    break
            yield "code", lines[begin:at]


def arguments_of(code):
    match = FUNCTION.match(re.sub(r" DEVSUPPORT_PRINTF\(.*?\)", "", re.sub(r"/\*.*?\*/", "", code).strip()))
    if not match:
        return None, []
    return match[1], re.findall(r"(\w+)(?=\s*(?:,|$))", match[2])


def commands(contract, arguments, returns):
    """The lines of a function's contract as Doxygen's commands; what returns nothing must have no \\return."""
    done = []
    margin = None
    for line in contract:
        label, argument = LABEL.match(line), ARGUMENT.match(line)
        if argument:
            names = [argument[1]]
            if argument[2]:
                prefix = argument[1].rstrip("0123456789")
                names = [name for name in arguments if re.fullmatch(prefix + r"\d+", name)]
            names = [name for name in names if name in arguments]
            if names:
                done.append(f"@param[{argument[3]}] {','.join(names)} {escaped(argument[4])}")
            else:
                done += ["", escaped(f"{argument[1]} ({argument[3]}): {argument[4]}")]
            margin = argument.start(4)
        elif label:
            command = "@return" if label[1] == "Returns" and returns else f"@par {label[1]}\n"
            done.append(f"{command} {escaped(label[2])}")
            margin = label.start(2)
        elif margin and line.startswith(" ") and len(line) - len(line.lstrip()) > margin:
            done.append("<br>" + escaped(line.strip()))
        else:
            done.append(escaped(line.strip()))
    return done


def described(kind, lines):
    """The description of a record or a list of constants."""
    if any(line.startswith("   ") for line in lines):
        return [escaped(lines[0]), "", *verbatim(lines[1:])]
    return [escaped(line) for line in lines]


def document(lines):
    return ["/**", *lines, "*/"]


def with_field_comments(lines):
    for line in lines:
        match = TRAILING.search(line)
        if match and line[: match.start()].strip():
            line = f"{line[:match.start()]}/**< {escaped(match[1])} */"
        yield line


def reference(path):
    parts = list(statements(path.read_text(encoding="utf-8")))
    unit = path.stem
    family, section, contract, declared = [], ["See the description of the family."], None, []
    last = None
    for index, (kind, lines) in enumerate(parts):
        following = parts[index + 1][0] if index + 1 < len(parts) else "blank"
        if kind in ("contract", "comment") and following == "code":
            contract = (kind, lines)
        elif kind in ("contract", "comment"):
            text = [line.strip("- ") if line.startswith("----") else line for line in lines]
            section = text
            if any(text):
                family.append(text)
        elif kind == "blank":
            contract = last = None
        elif kind == "code":
            code = "\n".join(lines)
            name, arguments = arguments_of(code)
            contract = contract or last
            if name:
                body = commands(contract[1], arguments, not RETURNS_NOTHING.match(code)) if contract else verbatim(section)
                comment = TRAILING.search(code)
                if comment:
                    body.append(escaped(comment[1]))
                declared += document(body) + [re.sub(r"/\*.*?\*/", "", code)]
            else:
                declared += document(described(*contract)) if contract else []
                declared += with_field_comments(lines)
            last, contract = contract, None
        elif kind == "other":
            declared += with_field_comments(lines) if lines[0].startswith("#define") else lines
    title = re.split(r"(?<=[.]) ", " ".join(family[0]))[0].rstrip(".")
    include = "devsupport/" + str(path).split("include/devsupport/")[-1]
    head = [f"@defgroup devsupport_{unit} {escaped(title)}", "@code", f"#include <{include}>", "@endcode"]
    for text in family:
        head += verbatim(text)
    return [*document(head + ["@{"]), *declared, "/** @} */"]


print("\n".join(reference(Path(sys.argv[1]))))
