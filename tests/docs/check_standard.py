"""Applies the example mappings and the cookbook's recipes to real images, and has dciodvfy judge image and result.

usage: check_standard.py --tool KXMAP --data DIR --work DIR [--mappings DIR] [--cookbook PAGE.md]

--tool      the built kxmap
--data      pydicom's DICOM files
--work      a folder for everything that is written; emptied first
--mappings  a folder of mappings to look at; default: examples/mappings
--cookbook  a page of recipes to look at; default: docs/cookbook.md

A fault is
  - an error of dciodvfy in a result that its image did not have,
  - a result that is marked as de-identified and still holds what identifies the patient,
  - the same without the mark, where a mapping's business is to hide the patient,
  - a name whose letters outside ASCII are others after a change of case.
"""
import argparse
import collections
import concurrent.futures
import json
import pathlib
import re
import shutil
import subprocess
import sys

from check_docs import ROOT, blocksOf, casesOf

SOURCES = {"ct": "CT_small.dcm", "mr": "MR_small.dcm", "plan": "rtplan.dcm", "sr": "reportsi.dcm",
           "cr": "dicomdirtests/77654033/CR1/6154"}
# Two characters whose second bytes in GB18030 are those of "w" and "A".
GB18030_NAME = "Zhao^Zi=\u8d99^\u4e04"

# What identifies a patient, in the elements that senders put it into; each text is in no image by chance.
IDENTITY = {"(0008,0050)": "ACC-90417", "(0008,0090)": "Whitcombe^Ref", "(0008,1048)": "Whitcombe^Rec",
            "(0010,0010)": "Featherstone^Jane^Q^Dr", "(0010,0020)": "PID-40713", "(0010,0030)": "19700116",
            "(0010,1000)": "PID-OLD-7", "(0010,1001)": "Featherstone^J", "(0010,1005)": "Maidenname^Jane",
            "(0010,1040)": "1 Main St", "(0010,2154)": "555-0173", "(0010,21b0)": "Featherstone is known here",
            "(0010,4000)": "Featherstone called", "(0020,0010)": "PID-40713-STUDY1", "(0020,4000)": "for Featherstone",
            "(0032,1032)": "Whitcombe^Req", "(0038,0010)": "ADM-5512"}
# Attributes of Type 2, which may be empty, and which senders leave empty.
EMPTY = ("(0008,0020)", "(0008,0030)", "(0008,0050)", "(0008,0070)", "(0008,0090)", "(0008,1070)", "(0010,0010)",
         "(0010,0020)", "(0010,0030)", "(0010,0040)", "(0018,0010)", "(0018,0050)", "(0020,0010)", "(0020,0011)",
         "(0020,0013)")
HIDING = ("examples: outbound to ARCHIVE", "The basics for an outbound file") # the beginning of their names

# Several values, where the element is there at all.
LISTS = {"(0018,0020)": r"SE\\IR", "(0018,1210)": r"STANDARD\\BONE"}


class Run:
    """One mapping, or a folder's mappings for one AE title, and the images that it is tried on."""

    def __init__(self, name, options, images):
        self.name, self.options, self.images = name, options, images
        self.results = []  # in the order of the images, once it was applied


class Checker:
    def __init__(self, tool, data, work):
        self.tool, self.data, self.work = tool.resolve(), data, work
        self.errors, self.runs = {}, 0

    def kxmap(self, *arguments):
        run = subprocess.run([self.tool, *arguments], cwd=self.work, capture_output=True)
        if run.returncode > 1:
            raise SystemExit(f"kxmap {arguments}: {run.stderr.decode()}")
        return run.stdout

    def made(self, source, name, rules):
        """A copy of the image as these rules make it."""
        target = self.work / "images" / f"{name}.dcm"
        target.parent.mkdir(exist_ok=True)
        (self.work / "make.map").write_bytes(rules)
        self.kxmap("apply", "--single", "make.map", "-o", target, source)
        return target

    def images(self):
        """Images of several kinds: as they are, with what may be empty emptied, with all that identifies a patient."""
        empty = "".join(f'{tag}=if({tag},"",NULL())\n' for tag in EMPTY).encode()
        filled = "".join(f'{tag}="{text}"\n' for tag, text in IDENTITY.items()).encode()
        filled += "".join(f'{tag}=if({tag},"{text}",NULL())\n' for tag, text in LISTS.items()).encode()
        made = []
        for name, source in SOURCES.items():
            source = self.data / "test_files" / source
            for variant, rules in (("", b"$(a)=1\n"), ("-empty", empty), ("-filled", filled)):
                made.append(self.made(source, name + variant, rules))
        scripts = sorted((self.data / "charset_files").glob("chr[!S]*.dcm"))
        chinese = f'(0008,0005)="GB18030"\n(0010,0010)="{GB18030_NAME}"\n'.encode("gb18030")
        return made + scripts + [self.made(scripts[0], "gb18030", chinese)]

    def errorsOf(self, image):
        """What dciodvfy has against an image, and how often; the values themselves left out."""
        if image not in self.errors:
            run = subprocess.run(["dciodvfy", image], capture_output=True)
            lines = (run.stdout + run.stderr).decode("latin-1").splitlines()
            errors = (re.sub(r"(\[\d+\] =) <[^>]*>", r"\1 ...", line) for line in lines if "Error - " in line)
            self.errors[image] = collections.Counter(errors)
            if not any(re.fullmatch(r"[A-Za-z]\w+", line) for line in lines):
                raise SystemExit(f"dciodvfy does not know what {image} is:\n" + "\n".join(lines))
        return self.errors[image]

    def apply(self, run):
        """Applies a run's rules, all images at once. Returns pairs of image and result."""
        self.runs += 1
        folder = self.work / f"run{self.runs}"
        self.kxmap("apply", *run.options, "-o", folder, *run.images)
        run.results = [folder / image.name for image in run.images]
        return list(zip(run.images, run.results))

    def valuesOf(self, images, tags):
        """The texts of these elements in each image, in UTF-8; None where one is absent."""
        (self.work / "values.map").write_text("".join(f"$(v{i})={tag}\n" for i, tag in enumerate(tags)))
        printed = self.kxmap("try", "--format=json", "--single", "values.map", *images).decode()
        values = {}
        for line in printed.splitlines():
            found = json.loads(line)
            texts = {change["place"]: change["after"] for change in found["changes"]}
            values[pathlib.Path(found["file"])] = [texts.get(f"$(v{i})") for i in range(len(tags))]
        return values

    def faultsOf(self, run):
        pairs = self.apply(run)
        with concurrent.futures.ThreadPoolExecutor() as pool:
            list(pool.map(self.errorsOf, [file for pair in pairs for file in pair]))
        for image, result in pairs:
            for error in self.errorsOf(result) - self.errorsOf(image):
                yield f"{run.name}: {image.name}: {error}"
        values = self.valuesOf(sum(map(list, pairs), []), ["(0012,0062)", "(0010,0010)", "(0010,0020)"])
        for image, result in pairs:
            before, after = values[image][1] or "", values[result][1] or ""
            if any(not character.isascii() or character == "\x1b" for character in {*after} - {*before}):
                yield f"{run.name}: {image.name}: the name {before} is now {after!r}"
            isMarked = values[result][0] == "YES" and values[image][0] != "YES"
            if isMarked or run.name.startswith(HIDING):
                bytesLeft = result.read_bytes().upper()
                texts = {*IDENTITY.values(), *values[image][1:]} - {None, ""}
                left = sorted(text for text in texts if text.encode().upper() in bytesLeft)
                if left:
                    mark = "is marked and " if isMarked else ""
                    yield f"{run.name}: {image.name}: {mark}still holds {', '.join(left)}"


def ruleOf(element):
    """The rules that put an element of a case into an image; items are copies of those in a sequence of the CT."""
    target, _, text = element.partition("=")
    text = text.strip('"').replace("\\", "\\\\").replace('"', '\\"')
    path = re.findall(r"\(([0-9a-fA-F]{4}),([0-9a-fA-F]{4})\)(?:\[(\d+)\])?", target)
    if len(path) == 1:
        return f'{target}="{text}"\n'
    sequence = f"({path[0][0]},{path[0][1]})"
    numbers = ",".join(part for step in path for part in step if part)
    return f'{sequence}=or({sequence},(0010,1002))\nSEQ({numbers})="{text}"\n'


def elementsOf(line):
    """The elements of a case's line that an image can have: neither variables nor custom fields."""
    return re.findall(r'(?<!\S)\([^\s=]+=(?:"[^"]*"|\S*)', line)


def headingOf(page, begin):
    lines = page.read_text(encoding="utf-8").splitlines()[: begin - 1]
    return next(line.lstrip("# ") for line in reversed(lines) if line.startswith("#"))


def imagesOf(block, checker):
    """Images with the elements that stand in the block before its rules."""
    made = []
    for number, case in enumerate(casesOf(block)):
        elements = elementsOf(case[-3])
        source = "MR_small.dcm" if "(0008,0060)=MR" in elements else "CT_small.dcm"
        # Modality is left to the image, and the variable keeps a file without other rules from being none.
        rules = "$(a)=1\n" + "".join(ruleOf(e) for e in elements if not e.startswith("(0008,0060)"))
        source = checker.data / "test_files" / source
        made.append(checker.made(source, f"line{block.begin}-case{number}", rules.encode()))
    return made


def recipesOf(page, checker, images):
    """Yields a run for each recipe of the page, on the images and on ones like those that it shows."""
    folders = {}  # files for one AE title, which are applied with the global ones beside them
    for block in blocksOf(page):
        name = headingOf(page, block.begin)
        if block.role and block.kind == "kxmap":
            file = checker.work / block.role[1]
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text("\n".join(block.lines) + "\n", encoding="utf-8")
            if file.parent == checker.work:
                yield Run(name, ("--single", file), images)
            elif file.parent.name != "global":
                folders[file] = name
        elif block.kind == "kxmap":
            rules = "\n".join(block.lines[: block.lines.index("")]) + "\n"
            file = checker.work / f"line{block.begin}.map"
            file.write_text(rules, encoding="utf-8")
            yield Run(name, ("--single", file), images + imagesOf(block, checker))
            if "toUpper" in rules:
                lower = checker.work / f"line{block.begin}-lower.map"
                lower.write_text(rules.replace("toUpper", "toLower"), encoding="utf-8")
                yield Run(f"{name}, toLower in its place", ("--single", lower), images)
    for file, name in folders.items():
        yield Run(name, ("--mappings", file.parent, "--aet", file.stem), images)


def faultsOfExamples(checker, mappings, images):
    """Yields what is wrong with a folder's mappings: inbound from their senders and from one without a mapping of its
    own, outbound for what arrived from the first and from the last of them."""
    arrived = []
    senders = sorted(file.stem for file in mappings.glob("*.map") if not file.stem.endswith(".out"))
    for title in senders + ["SENDER9"]:
        run = Run(f"examples: inbound from {title}", ("--mappings", mappings, "--aet", title), images)
        yield from checker.faultsOf(run)
        arrived.append((title, run.results))
    for sender, came in (arrived[0], arrived[-1]):
        for title in sorted(file.name[:-8] for file in mappings.glob("*.out.map")) + ["VIEWER1"]:
            options = ("--outbound", "--mappings", mappings, "--aet", title)
            yield from checker.faultsOf(Run(f"examples: outbound to {title} from {sender}", options, came))


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--tool", required=True, type=pathlib.Path)
    parser.add_argument("--data", required=True, type=pathlib.Path)
    parser.add_argument("--work", required=True, type=pathlib.Path)
    parser.add_argument("--mappings", type=pathlib.Path, default=ROOT / "examples/mappings")
    parser.add_argument("--cookbook", type=pathlib.Path, default=ROOT / "docs/cookbook.md")
    options = parser.parse_args()
    work = options.work.resolve()
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    checker = Checker(options.tool, options.data.resolve(), work)
    images = checker.images()
    faults = list(faultsOfExamples(checker, options.mappings.resolve(), images))
    for run in recipesOf(options.cookbook, checker, images):
        faults += checker.faultsOf(run)
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
