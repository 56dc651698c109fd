"""Looks for what makes a fault in the built program and library hard to turn into anything: position independence, no
executable stack, relocations that are done before main() and read only after it, canaries, checked copies, and on x86
marked targets for indirect jumps.

usage: check_hardening.py READELF COMPILER LIBRARY [PROGRAM]

COMPILER is CMake's name for it: of what this code does, only GNU's checks copies by calls that can be seen.
"""
import platform
import re
import subprocess
import sys


def readelf(tool, *options):
    return subprocess.run([tool, "-W", *options], check=True, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL).stdout


def programFaults(tool, compiler, program):
    """Yields what a linked program lacks."""
    header, segments = readelf(tool, "-h", program), readelf(tool, "-l", program)
    dynamic = readelf(tool, "-d", program)
    if not re.search(r"Type:\s+DYN", header) or not re.search(r"FLAGS_1.*\bPIE\b", dynamic):
        yield "not position independent"
    if not re.search(r"GNU_STACK.*\bRW\b", segments):
        yield "the stack is executable"
    if "GNU_RELRO" not in segments:
        yield "no relocations that are read only after the start"
    if not re.search(r"\(FLAGS(_1)?\).*\b(BIND_NOW|NOW)\b", dynamic):
        yield "relocations are done when first used, so they stay writable"
    yield from codeFaults(compiler, readelf(tool, "--dyn-syms", program))


def codeFaults(compiler, symbols):
    """Yields what the code does not call."""
    if "__stack_chk_fail" not in symbols:
        yield "no canaries on the stack"
    if compiler == "GNU" and not re.search(r"\b__\w+_chk\b", symbols):
        yield "no checked copies"


def libraryFaults(tool, compiler, library):
    """Yields what the objects of a static library lack."""
    yield from codeFaults(compiler, readelf(tool, "-s", library))
    if platform.machine() not in ("x86_64", "i686"):
        return
    objects = re.split(r"^File: ", readelf(tool, "-n", library), flags=re.MULTILINE)[1:]
    unmarked = [text.splitlines()[0] for text in objects if not re.search(r"x86 feature:.*IBT.*SHSTK", text)]
    if unmarked or not objects:
        yield "no marked targets for indirect jumps in " + (", ".join(unmarked) or "any object")


def main():
    tool, compiler, library, *programs = sys.argv[1:]
    faults = [(library, fault) for fault in libraryFaults(tool, compiler, library)]
    for program in programs:
        faults += [(program, fault) for fault in programFaults(tool, compiler, program)]
    for where, fault in faults:
        print(f"{where}: {fault}")
    return 1 if faults else 0


sys.exit(main())
