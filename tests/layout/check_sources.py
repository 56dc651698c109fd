"""Reads the sources and fails, naming file and line, when the house is not in order: an include against the arrows, the
signedness of char outside its one header, a release by hand outside destructors and guards.h, a file without an end.

usage: check_sources.py ROOT
"""
import pathlib
import re
import sys

# Folder below common/kxdcm/src -> folders below kxmap/ that it may include.
ARROWS = {
    "kxmap/core": {"core"},
    "kxmap/functions": {"functions", "core"},
    "kxmap/targets": {"targets", "core"},
    "kxmap/mappings": {"mappings", "functions", "targets", "core"},
    ".": {"core"},  # sources only: the headers beside kxmap.h are installed, what lies below kxmap/ is not
}
# Room below tool/ -> rooms that its files may include. main.cc may include all.
FOUNDATION = {"console", "system"}
MIDDLE = FOUNDATION | {"dicom", "rules"}
UPPER = MIDDLE | {"record", "lint"}
ROOMS = {
    "console": {"console"},
    "system": FOUNDATION,
    "dicom": FOUNDATION | {"dicom"},
    "rules": FOUNDATION | {"rules"},
    "record": MIDDLE | {"record"},
    "lint": MIDDLE | {"lint"},
    "conformance": UPPER | {"conformance"},
    "apply": UPPER | {"apply"},
    "shell": UPPER | {"shell"},
    "commands": UPPER | {"conformance", "apply", "shell", "commands"},
}
PUBLIC = {"kxmap.h", "KXItem.h", "KXCustomFields.h", "QVDate.h"}
FOR_THE_TOOL = {"kxmap/core/inspect.h", "kxmap/core/filenames.h"}  # private headers that the tool shares
LINE_LIMIT = 400
CHECKED = ("common", "tool", "tests", "fuzz", "examples")

INCLUDE = re.compile(r'\s*#\s*include\s*([<"])([^>"]+)[>"]')
RELEASE = re.compile(r"(?<!operator )\bdelete\b(?!\s*;)|\b(fclose|closedir|free)\s*\(|--[\w.>-]*refCount|refCount\s*--")
NOISE = re.compile(r'//.*|"(?:\\.|[^"\\])*"|=\s*delete\b|\'"\'')


def includeFault(folder, name, mark, target):
    """Says what is wrong with one include line of the library, or nothing."""
    if target in ("cctype", "ctype.h") and (folder, name) != ("kxmap/core", "bytes.h"):
        return f"<{target}> belongs into kxmap/core/bytes.h alone"
    if target.startswith("kxmap/"):
        if folder == "." and name.endswith(".h"):
            return f"an installed header includes the private {target}"
        if target.split("/")[1] not in ARROWS.get(folder, ()):
            return f"{target} is against the arrows"
    elif mark == '"' and target not in PUBLIC:
        return f'"{target}": includes are written from src, and private headers lie below kxmap/'
    return None


def roomFault(room, target):
    """Says what is wrong with one include line of the tool, or nothing."""
    if target.startswith("tool/") and target.split("/")[1] not in ROOMS[room]:
        return f"{target} is no room to the left of {room}"
    return None


def releaseFaults(path, lines):
    """Yields the lines that release or count by hand. The code's form puts each function's head at column 0."""
    if path.name == "guards.h":
        return
    head = ""
    for number, line in enumerate(lines, 1):
        code = NOISE.sub("", line)
        if re.match(r"[\w:*&<>~ ]+\(", code) and not code[0].isspace():
            head = code
        if RELEASE.search(code) and "~" not in head and "~" not in code:
            yield number, "delete, fclose and counting live in destructors and guards.h"


def faults(root):
    source = root / "common/kxdcm/src"
    seen = 0
    for top in CHECKED:
        for path in sorted((root / top).rglob("*")):
            if path.suffix not in (".cc", ".h"):
                continue
            seen += 1
            where = path.relative_to(root).as_posix()
            lines = path.read_text(encoding="utf-8").splitlines()
            if len(lines) >= LINE_LIMIT:
                yield where, len(lines), f"a file ends before {LINE_LIMIT} lines"
            if lines[:1] != ["// SPDX-License-Identifier: BSD-3-Clause"]:
                yield where, 1, "the first line is the licence tag"
            inLibrary = source in path.parents
            for number, line in enumerate(lines, 1):
                match = INCLUDE.match(line)
                if inLibrary and match:
                    fault = includeFault(path.parent.relative_to(source).as_posix(), path.name, *match.groups())
                    if fault:
                        yield where, number, fault
                elif top == "tool" and match and path.parent != root / top:
                    room = path.parent.name
                    fault = roomFault(room, match.group(2)) if room in ROOMS else f"{room} is no room"
                    if fault:
                        yield where, number, fault
                if top in ("tool", "examples") and match and match.group(2).startswith("kxmap/") and not (
                    top == "tool" and match.group(2) in FOR_THE_TOOL):
                    yield where, number, f"{match.group(2)} is private to the library"
            if inLibrary:
                for number, fault in releaseFaults(path, lines):
                    yield where, number, fault
    if seen == 0:
        yield str(root), 0, "no sources here"


def main():
    found = list(faults(pathlib.Path(sys.argv[1])))
    for where, number, fault in found:
        print(f"{where}:{number}: {fault}")
    return 1 if found else 0


sys.exit(main())
