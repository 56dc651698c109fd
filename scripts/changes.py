#!/usr/bin/python3
"""Shows what differs between pairs of DICOM files, a table a pair, as wide as the terminal.

usage: changes.py BEFORE AFTER [BEFORE AFTER ...]
"""
import re
import shutil
import sys
import unicodedata
import warnings

import pydicom

HEADS = ("Tag", "Name", "Before", "After")
ABSENT = "-"
GAP = "  "


def textOf(element):
    if element.VR == "SQ":
        return f"{len(element.value)} items"
    value = element.value
    if isinstance(value, bytes):  # the private block in implicit VR; what else differs is no text
        return value.decode("latin-1").strip(" \0") if len(value) <= 64 else f"{len(value)} bytes"
    if element.VM > 1:
        return "\\".join(str(part) for part in value)
    return '""' if value is None or str(value) == "" else str(value)


def flatten(item, prefix=""):
    """Yields path, name and text of every element, those of sequence items included."""
    for element in item:
        path = f"{prefix}({element.tag.group:04x},{element.tag.element:04x})"
        name = "Private" if element.tag.is_private and element.tag.element > 0xFF else element.name
        yield path, name, textOf(element)
        for number, inner in enumerate(element.value if element.VR == "SQ" else ()):
            yield from flatten(inner, f"{path}[{number}].")


def changes(before, after):
    """Yields a row for each difference; a sequence that came or went is one row."""
    whole = "("  # no path goes on from it with an item
    old, new = ({path: (name, text) for path, name, text in flatten(item)} for item in (before, after))
    for path in sorted(old.keys() | new.keys()):
        name = (new.get(path) or old[path])[0]
        texts = [side[path][1] if path in side else ABSENT for side in (old, new)]
        if texts[0] == texts[1] or path.startswith(whole + "["):
            continue
        if ABSENT in texts:
            whole = path
        yield re.sub(r"\(.{9}\)\[", "[", path), name, *texts  # the item's number tells enough


def width(text):
    return sum(2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


def fit(text, columns):
    text = "".join(c if c.isprintable() else "?" for c in text)
    if width(text) > columns:
        while width(text) > columns - 3:
            text = text[:-1]
        text += "..."
    return text + " " * (columns - width(text))


def printTable(rows):
    rows = [HEADS, *rows]
    widths = [max(width(row[column]) for row in rows) for column in range(4)]
    room = max(shutil.get_terminal_size((100, 24)).columns, 60) - len(GAP) * 4
    widths[1] = min(widths[1], room // 4)
    texts = room - widths[0] - widths[1]
    if widths[2] + widths[3] > texts:  # the shorter column keeps its width, the longer one what is left
        shorter = 2 if widths[2] < widths[3] else 3
        widths[shorter] = min(widths[shorter], max(texts // 2, 8))
        widths[5 - shorter] = max(texts - widths[shorter], 8)
    for row in rows:
        print(GAP + GAP.join(fit(text, columns) for text, columns in zip(row, widths)).rstrip())


def main(arguments):
    if not arguments or len(arguments) % 2:
        sys.exit(__doc__)
    warnings.simplefilter("ignore")  # about the test files' own faults
    sys.stdout.reconfigure(errors="replace")
    for before, after in zip(arguments[::2], arguments[1::2]):
        printTable(changes(*(pydicom.dcmread(path) for path in (before, after))))


if __name__ == "__main__":
    main(sys.argv[1:])
