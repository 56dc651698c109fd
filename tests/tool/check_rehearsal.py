# SPDX-License-Identifier: BSD-3-Clause
"""Random rules on real files: what "kxmap try" and "kxmap apply --dry-run" say is what "kxmap apply" does.

Every set of rules goes four ways over the same files: try, a dry run, apply with a report, and plain apply. All four have
to agree on which files fail, on what changes and on what is warned of; both results have to be the same bytes; and what
pydicom finds changed in a result, against a result without rules, has to be what was told, place by place. A longer run:
--mappings 100 --files 0, with the folder of python3-pydicom in PYTHONPATH.
"""
import argparse
import json
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import warnings

import pydicom
from pydicom.datadict import dictionary_VR
from pydicom.multival import MultiValue
from pydicom.sequence import Sequence

warnings.simplefilter("ignore")

TEXTS = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "LT", "PN", "SH", "ST", "TM", "UC", "UI", "UR", "UT"}

# Targets of every kind: texts, numbers, bytes, tags, sequences, unknown and private ones, groups that are no dataset's.
TARGETS = """(0010,0010) (0010,0020) (0008,0005) (0008,0016) (0008,0018) (0008,0008) (0008,0060) (0008,0020) (0008,0031)
(0008,1010) (0008,1030) (0010,4000) (0020,0013) (0020,000d) (0020,0032) (0018,0050) (0028,0002) (0028,0010) (0028,0106)
(0028,0009) (0028,1201) (0028,3006) (0018,9073) (0040,4010) (0072,0026) (0008,0120) (0040,a160) (0010,0000) (0008,0000)
(7fe0,0000) (0028,0000) (0000,0002) (0000,0100) (0000,0000) (0002,0000) (0002,0010) (0002,0003) (0002,0016) (0004,1130)
(7fe0,0010) (7fe0,0008) (6000,3000) (5400,1010) (0009,0010) (0009,1001) (0011,1001) (0075,1001) (0075,1002) (0029,1010)
(fffe,e000) (fffc,fffc) (0010,1002) (0040,0275) (0008,1140) (0040,a730) (0008,2218) (3006,0020) (0008,1115) (0012,0064)
(0400,0561) (0008,0001) (0018,1271) (0088,0200) (0040,0555) (0008,002a) (0028,2000) (0042,0011) (0022,1436)""".split()
PATHS = """SEQ(0010,1002,0,0010,0020) SEQ(0010,1002,1,0010,0021) SEQ(0008,1140,0,0008,1150) SEQ(0008,1140,0,0008,0000)
SEQ(0040,0275,0,0040,0007) SEQ(0040,a730,0,0040,a730,0,0040,a160) SEQ(0040,a730,0,0040,a043,0,0008,0104)
SEQ(3006,0020,0,3006,0026) SEQ(3006,0020,0,3006,0022) SEQ(0008,1140,0,0002,0010) SEQ(0008,1115,0,0008,1199)
SEQ(0008,2218,0,0008,0100) SEQ(0040,a043,0,0008,0104) SEQ(300a,00b0,0,300a,0111,0,300a,011a)
SEQ(0040,a730,0,0040,a730) SEQ(0010,0010,0,0010,0020) SEQ(0088,0200,0,7fe0,0010) SEQ(5400,0100,0,5400,1010)
SEQ(5400,0100,0,003a,0005) SEQ(0010,1002,0,0075,1001) SEQ(0010,1002,0,0028,0106) SEQ(0008,1140,-1,0008,1155)""".split()
FIELDS = ["USER(a)", "USER(b)"]
VARIABLES = ["$(a)", "$(b)", "$(@c)"]
LITERALS = ['"x"', '""', '" "', '"  lead and trail  "', "20240131", '"1.2.840.10008.1.2"', '"a\\\\b\\\\c"', "7", "-3",
            '"3.25"', "70000", "abc", '"Müller"', '"山田^太郎"', '"\\\\"', '"O\\"Neil"', "1e5", "1.2.3.4", '"ISO_IR 192"',
            '"ISO_IR 100"', '"tab\there"', "(0010,0010", '"' + "long " * 60 + '"', '"00\\\\ff"', "99999999999"]


class Rules:
    """A random mapping file of at most so many rules."""

    def __init__(self, chance):
        self.chance = chance
        self.text = "\n".join(self.line() for _ in range(chance.randint(1, 9))) + "\n"

    def line(self):
        if self.chance.random() < 0.03:  # a value longer than two bytes of length can tell
            target = self.chance.choice(["(0008,1030)", "(0010,4000)", "(0010,0010)"])
            hundreds = ",".join(["$(h)"] * 90)
            return f'$(h)="{"0123456789" * 80}"\n{target}=concat({hundreds})'
        return f"{self.target()}={self.expression(3)}"

    def target(self):
        kind = self.chance.random()
        return self.chance.choice(TARGETS if kind < 0.6 else PATHS if kind < 0.82 else FIELDS if kind < 0.9 else VARIABLES)

    def expression(self, depth):
        pick, one = self.chance.choice, lambda: self.expression(depth - 1)
        if depth == 0 or self.chance.random() < 0.45:
            return pick(TARGETS + PATHS + FIELDS + VARIABLES + LITERALS * 2 + ["NULL()"] * 4)
        number = lambda: str(self.chance.randint(-1, 5))
        return pick([
            lambda: f"concat({one()},{one()})", lambda: f"if({one()},{one()},{one()})", lambda: f"or({one()},{one()})",
            lambda: f"and({one()},{one()})", lambda: f"not({one()})", lambda: f"equals({one()},{one()})",
            lambda: f"toUpper({one()})", lambda: f"toLower({one()})", lambda: f"substr({one()},{number()},{number()})",
            lambda: f'split({one()},"^",{number()})', lambda: f"strlen({one()})", lambda: f"indexof({one()},{one()})",
            lambda: f"contains({one()},{one()})", lambda: f"add({one()},{one()})", lambda: f"sub({one()},{one()})",
            lambda: f"mul({one()},{one()})", lambda: f"div({one()},{one()})", lambda: f"mod({one()},{one()})",
            lambda: f"dicomAge({one()},{one()})", lambda: f"rnd({self.chance.randint(1, 99)})",
            lambda: f"rnd(9999,{one()})", lambda: f"between({one()},{one()},{one()})",
            lambda: f"codenumber({one()})", lambda: f"codestring({one()})",
            lambda: f"translate({one()},{one()},{one()},{one()})",
        ])()


class Faults(list):
    """What did not hold; each with where to see it."""

    def __init__(self):
        super().__init__()
        self.where = ""

    def expect(self, holds, *words):
        if not holds:
            self.append(f"{self.where}: {' '.join(str(word) for word in words)}")


def nameOf(path):
    return path.split("/")[-1]


def read(path):
    """The elements of a file by place: VR, or none, and bytes. None where pydicom cannot."""
    try:
        data = pydicom.dcmread(path, force=True)
        places = {}
        collect(data, "", places)
        return places, {element.tag: str(element.value) for element in data.file_meta}
    except Exception:  # pydicom has many
        return None


def elementOf(data, tag):
    """An element as it was read. Pydicom refuses US or SS without Pixel Representation, but keeps the element."""
    try:
        return data.get_item(tag)
    except AttributeError:
        return data.get_item(tag)


def collect(data, around, places):
    for tag in sorted(data.keys()):
        place = f"{around}({tag.group:04x},{tag.element:04x})"
        raw = elementOf(data, tag)
        vr = raw.VR
        if vr is None:
            try:
                vr = dictionary_VR(tag)
            except KeyError:
                vr = "UN"
        if vr == "SQ" or isinstance(raw.value, Sequence):
            items = data[tag].value
            places[place] = ("SQ", len(items))
            for index, item in enumerate(items):
                collect(item, f"{place}[{index}].", places)
        else:
            places[place] = (vr, bytesOf(raw.value))


def bytesOf(value):
    """The bytes of a value; pydicom has taken a few apart before it is asked."""
    if value is None or isinstance(value, (bytes, bytearray)):
        return bytes(value or b"")
    return ("\\".join(map(str, value)) if isinstance(value, MultiValue) else str(value)).encode()


def shown(vr, value):
    """A value as the tool shows it; None where this cannot tell."""
    if vr == "SQ":
        return f"<{value} item{'' if value == 1 else 's'}>"
    if vr in TEXTS:
        text = value.rstrip(b"\0 ")
        return text.decode() if all(0x1B != byte < 0x80 for byte in text) and b"\0" not in text else None
    return None


def isSame(one, other):
    if one is None or other is None or one[0] != other[0]:
        # Encapsulated pixel data that their file calls OW become OB when they are loaded.
        return one == other or bool(one and other) and {one[0], other[0]} == {"OB", "OW"} and one[1] == other[1]
    return one == other or one[0] in TEXTS and one[1].rstrip(b"\0 ") == other[1].rstrip(b"\0 ")


def isWithin(place, around):
    return place == around or place.startswith(around + "[")


class Check:
    def __init__(self, options, folder):
        self.tool, self.folder, self.faults = options.tool, folder, Faults()
        self.files = self.readable(options)
        self.compared = self.failed = self.changed = 0
        (folder / "none.map").write_text("")
        self.run("apply", "--single", "none.map", "-o", "base", *self.files)
        self.base = {file: read(folder / "base" / nameOf(file)) for file in self.files}

    def readable(self, options):
        every = [path for part in ("test_files", "charset_files") for path in (options.data / part).rglob("*")]
        every = [path for path in every if path.is_file() and path.name != "DICOMDIR" and path.suffix in (".dcm", "")]
        every = sorted({path.name: path for path in sorted(every)}.values())
        if options.files:
            every = random.Random(options.seed).sample(every, min(options.files, len(every)))
        return [str(path) for path in every]

    def run(self, *arguments):
        done = subprocess.run([self.tool, *arguments], cwd=self.folder, capture_output=True, timeout=600)
        self.faults.expect(done.returncode in (0, 1, 2), arguments[0], "ended with", done.returncode, done.stderr[-400:])
        return done

    def reports(self, name):
        lines = (self.folder / name).read_text().splitlines()
        return {line["input"]: line for line in map(json.loads, lines)}

    def one(self, number, rules):
        (self.folder / "r.map").write_text(rules.text)
        for name in ("dry.jsonl", "told.jsonl"):
            (self.folder / name).unlink(missing_ok=True)
        tried = self.run("try", "--single", "r.map", "--format=json", *self.files).stdout.decode().splitlines()
        tried = {line["file"]: line for line in map(json.loads, tried)}
        self.run("apply", "--single", "r.map", "--dry-run", "--report", "dry.jsonl", *self.files)
        self.run("apply", "--single", "r.map", "--report", "told.jsonl", "-o", "told", *self.files)
        self.run("apply", "--single", "r.map", "-o", "plain", *self.files)
        dry, told = self.reports("dry.jsonl"), self.reports("told.jsonl")
        for file in self.files:
            self.faults.where = f"mapping {number}, {nameOf(file)}"
            self.compare(file, tried.get(file), dry[file], told[file])
        for folder in ("told", "plain"):
            for result in (self.folder / folder).glob("*"):
                result.unlink()

    def compare(self, file, tried, dry, told):
        expect, name = self.faults.expect, nameOf(file)
        results = [self.folder / way / name for way in ("told", "plain")]
        fails = tried is None or tried["failure"] is not None or tried.get("unwritable") is not None
        expect(fails == (dry["status"] == "failed"), "try and a dry run:", tried, dry)
        expect(fails == (told["status"] == "failed"), "try and apply:", tried, told)
        expect([fails, fails] == [not result.exists() for result in results], "results:", results, told)
        self.compared += 1
        self.failed += fails
        if fails or told["status"] == "failed" or not all(result.exists() for result in results):
            return
        written = [result.read_bytes() for result in results]
        expect(written[0] == written[1], "apply with a report and without write other bytes")
        changes = [change for change in tried["changes"] if change["kind"] != "variable"]
        said = [(c["place"], c["vr"], c["before"], c["after"]) for c in changes]
        for way, report in (("dry run", dry), ("report", told)):
            lines = [(c["target"], c.get("vr", ""), c["before"], c["after"]) for c in report["changes"]]
            expect(said == lines, "try and", way, said, lines)
            expect(tried["warnings"] == report.get("warnings"), "warnings of try and", way)
        self.written(file, [change for change in changes if change["kind"] == "element"], read(results[0]))

    def written(self, file, changes, now):
        """Compares what was told with what pydicom finds."""
        if self.base[file] is None or now is None:
            self.faults.expect(self.base[file] is None, "pydicom can no longer read it")
            return
        before, after = self.base[file][0], now[0]
        different = [place for place in sorted(set(before) | set(after)) if not isSame(before.get(place), after.get(place))]
        told = [change["place"] for change in changes]
        for place in different:
            isCounted = place.endswith(",0000)") and place in before and place in after  # a group length follows
            self.faults.expect(isCounted or any(isWithin(place, one) for one in told), place, "differs and is not told:",
                               before.get(place), after.get(place))
        for change in changes:
            place = change["place"]
            isCounted = place.endswith(",0000)")  # and was wrong before: the result without rules has it right
            self.faults.expect(isCounted or any(isWithin(one, place) for one in different), place,
                               "is told and does not differ:", change)
            for when, places in (("before", before), ("after", after)):
                there = places.get(place)
                self.faults.expect((there is None) == (change[when] is None), when, change, there)
                isBytes = re.fullmatch(r"<\d+ bytes>", change[when] or "")  # pydicom knows what its dictionary has
                text = shown(*there) if there is not None and not isBytes else None
                self.faults.expect(text is None or text == change[when], when, change, text)
            self.changed += 1
        uids = {0x00020002, 0x00020003, 0x00020000}
        self.faults.expect({tag: value for tag, value in self.base[file][1].items() if tag not in uids} ==
                           {tag: value for tag, value in now[1].items() if tag not in uids}, "meta information differs")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--tool", required=True, type=lambda path: str(pathlib.Path(path).resolve()))
    parser.add_argument("--data", required=True, type=pathlib.Path, help="pydicom's folder \"data\"")
    parser.add_argument("--mappings", type=int, default=12)
    parser.add_argument("--files", type=int, default=30, help="0 for all")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as name:
        check = Check(options, pathlib.Path(name))
        for number in range(options.mappings):
            rules = Rules(random.Random(f"{options.seed}/{number}"))
            begin = len(check.faults)
            check.one(number, rules)
            if len(check.faults) > begin:
                print(f"--- mapping {number} of seed {options.seed}\n{rules.text}", end="")
                print("\n".join(check.faults[begin:begin + 12]))
    print(f"{options.mappings} mappings on {len(check.files)} files: {check.compared} compared, {check.failed} of them "
          f"failed alike, {check.changed} changes found as told, {len(check.faults)} faults")
    sys.exit(1 if check.faults or check.changed == 0 else 0)


main()
