"""Runs the manual: every fenced block of docs/*.md, and the site's build.

usage: check_docs.py --tool KXMAP --cases RUNNER --data DIR --work DIR [--rewrite] [PAGE.md ...]

--tool     the built kxmap
--cases    the program that runs the *.case files in WORK/tests/cases; without it, and for
           single pages, they are only written
--data     pydicom's DICOM files, $DATA in the pages
--work     a folder for everything that is written; emptied first
--rewrite  put what the commands print now into the pages; for the author, who reads the difference

What a block is, its first line and the comment before it say:
  ```kxmap    rules, an empty line, then pairs "before: ELEMENTS" and "after: ELEMENTS" in the notation of
              tests/cases/README.case; a line that begins with a blank goes on with the one above
  ```console  "$ command", "> its next line", and what it prints, errors among it; a line "..." stands for any lines.
              The blocks of a page run one after the other in one shell, in a folder with the source tree's examples/
  ```sh       commands for machines that a test does not have; bash has to be able to read them
  <!-- file: NAME -->  the block is that file, written before the commands that follow
  <!-- from: NAME -->  the block stands in that file of the source tree, line for line
"""
import argparse
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
FENCE = re.compile(r"^```(\w*)$")
COMMENT = re.compile(r"^<!-- (file|from): (\S+) -->$")
MARK = "@@ kxmap manual @@"


class Block:
    def __init__(self, page, kind, begin, lines, role):
        self.page, self.kind, self.begin, self.lines, self.role = page, kind, begin, lines, role

    def place(self):
        return f"{self.page.name}:{self.begin}"


def blocksOf(page):
    """Yields the fenced blocks of a page; begin is the number of the line with the opening fence, from 1."""
    text = page.read_text(encoding="utf-8").splitlines()
    opened, role = None, None
    for number, line in enumerate(text, 1):
        fence = FENCE.match(line)
        if opened is None and fence:
            opened = (fence[1], number, role)
        elif opened is not None and line == "```":
            yield Block(page, opened[0], opened[1], text[opened[1] : number - 1], opened[2])
            opened = None
        if opened is None and line:
            comment = COMMENT.match(line)
            role = comment.groups() if comment else None
    if opened is not None:
        raise SystemExit(f"{page.name}:{opened[1]}: the block has no end")


def casesOf(block):
    """Turns a block of rules into cases: the rules once more for each pair of before and after."""
    empty = block.lines.index("") if "" in block.lines else len(block.lines)
    rules, pairs = block.lines[:empty], []
    for line in block.lines[empty + 1 :]:
        label, _, elements = line.partition(": ")
        if label in ("before", "after"):
            pairs.append([label, elements.strip()])
        elif line.startswith(" ") and pairs:
            pairs[-1][1] += " " + line.strip()
        else:
            return None
    if not pairs or [label for label, _ in pairs] != ["before", "after"] * (len(pairs) // 2):
        return None
    return [[f"# {block.place()}", *rules, pairs[i][1], pairs[i + 1][1], ""] for i in range(0, len(pairs), 2)]


def runCases(runner, work, blocks):
    """Yields what is wrong with the blocks of rules."""
    folder = work / "tests/cases"
    folder.mkdir(parents=True)
    lines = []
    for block in blocks:
        cases = casesOf(block)
        if cases is None:
            yield f"{block.place()}: no pairs of before and after"
        else:
            lines += sum(cases, [])
    (folder / "manual.case").write_text("\n".join(lines) + "\n", encoding="utf-8")
    if runner:
        run = subprocess.run([runner, "--gtest_brief=1"], capture_output=True, text=True)
        if run.returncode != 0:
            yield f"in {folder}/manual.case:\n{run.stdout}{run.stderr}"


class Command:
    def __init__(self, block, number, text):
        self.block, self.number, self.text = block, number, text  # number: of its first line in the block, from 0
        self.expected = []


def commandsOf(block):
    commands = []
    for number, line in enumerate(block.lines):
        if line.startswith("$ "):
            commands.append(Command(block, number, line[2:]))
        elif line.startswith("> ") and commands and not commands[-1].expected:
            commands[-1].text += "\n" + line[2:]
        elif commands:
            commands[-1].expected.append(line)
        else:
            raise SystemExit(f"{block.place()}: the block does not begin with a command")
    return commands


def matches(expected, actual):
    pattern = "".join(".*" if line == "..." else re.escape(line) + "\n" for line in expected)
    return re.fullmatch(pattern, "".join(line + "\n" for line in actual), re.DOTALL) is not None


def runPage(page, blocks, options):
    """Runs a page's commands in one shell. Returns (command, what it printed) in their order."""
    folder = options.work / "pages" / page.stem
    folder.mkdir(parents=True)
    (folder / "examples").symlink_to(ROOT / "examples")
    commands, script = [], ["status() { return $1; }"]
    for block in blocks:
        if block.role and block.role[0] == "file":
            name = block.role[1]
            script.append(f"mkdir -p $(dirname {name}); cat >{name} <<'{MARK}'\n" + "\n".join(block.lines) + f"\n{MARK}")
        elif block.kind == "console":
            for command in commandsOf(block):
                commands.append(command)
                script.append(f'status "$kxmapStatus"\n{command.text}\nkxmapStatus=$?; echo; echo "{MARK}"')
    environment = {"PATH": f"{options.work / 'bin'}:/usr/bin:/bin", "DATA": str(options.data), "HOME": str(folder),
                   "LC_ALL": "C.UTF-8", "TZ": "UTC", "COLUMNS": "100", "kxmapStatus": "0"}
    run = subprocess.run(["bash", "-c", "\n".join(script)], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300)
    printed = run.stdout.decode("utf-8", "replace").split(f"\n{MARK}\n")[:-1]
    if len(printed) != len(commands):
        raise SystemExit(f"{page.name}: {len(commands)} commands, {len(printed)} of them ended")
    return [(c, [line.rstrip() for line in text.splitlines()]) for c, text in zip(commands, printed)]


def rewrite(page, results):
    lines = page.read_text(encoding="utf-8").splitlines()
    for command, actual in reversed(results):
        if not matches(command.expected, actual):
            first = command.block.begin + command.number + 1 + command.text.count("\n")
            lines[first : first + len(command.expected)] = actual
    page.write_text("\n".join(lines) + "\n", encoding="utf-8")


def checkPages(pages, options):
    """Yields what is wrong with the pages' blocks."""
    cases = []
    for page in pages:
        blocks = list(blocksOf(page))
        for block in blocks:
            if block.role and block.role[0] == "from":
                source = (ROOT / block.role[1]).read_text(encoding="utf-8")
                if "\n".join(block.lines) + "\n" not in source:
                    yield f"{block.place()}: does not stand so in {block.role[1]}"
            elif not block.role and block.kind == "kxmap":
                cases.append(block)
            elif not block.role and block.kind == "sh":
                parsed = subprocess.run(["bash", "-n"], input="\n".join(block.lines), capture_output=True, text=True)
                if parsed.returncode != 0:
                    yield f"{block.place()}: {parsed.stderr}"
            elif not block.role and block.kind != "console":
                yield f"{block.place()}: nothing runs a block of the kind '{block.kind}'"
        results = runPage(page, blocks, options)
        if options.rewrite:
            rewrite(page, results)
            continue
        for command, actual in results:
            if not matches(command.expected, actual):
                yield "\n".join([f"{command.block.place()}: $ {command.text}", "--- expected", *command.expected,
                                 "--- printed", *actual])
    yield from runCases("" if options.pages else options.cases, options.work, cases)


def buildSite(work):
    """Yields what MkDocs has against the pages: links and anchors into nothing, pages in no menu."""
    command = ["mkdocs", "build", "--strict", "--quiet", "--config-file", str(ROOT / "mkdocs.yml"), "--site-dir",
               str(work / "site")]
    run = subprocess.run(command, capture_output=True, text=True)
    if run.returncode != 0:
        yield f"mkdocs build --strict:\n{run.stdout}{run.stderr}"
    for page in (work / "site").rglob("*.html"):
        for link in re.findall(r'(?:src|href)="((?:https?:)?//[^"]+)"', page.read_text(encoding="utf-8")):
            if re.search(r"\.(js|css|woff2?)\b", link) or "fonts" in link:
                yield f"{page.name} loads {link}: a hospital's network may not reach it"


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--tool", required=True, type=pathlib.Path)
    parser.add_argument("--cases")
    parser.add_argument("--data", required=True, type=pathlib.Path)
    parser.add_argument("--work", required=True, type=pathlib.Path)
    parser.add_argument("--rewrite", action="store_true")
    parser.add_argument("pages", nargs="*", type=pathlib.Path)
    options = parser.parse_args()
    options.work = options.work.resolve()
    shutil.rmtree(options.work, ignore_errors=True)
    (options.work / "bin").mkdir(parents=True)
    (options.work / "bin/kxmap").symlink_to(options.tool.resolve())
    faults = list(checkPages(options.pages or sorted((ROOT / "docs").glob("*.md")), options))
    if not options.pages and not options.rewrite:
        faults += buildSite(options.work)
    for fault in faults:
        print(fault, end="\n\n")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
