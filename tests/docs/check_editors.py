"""Checks what comes with the tool: that man pages, completions and syntax files can be read by those who read them, and
say no less than the tool's own help and the list of functions.

usage: check_editors.py KXMAP
A shell or editor that is not installed is passed over.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGING = ROOT / "packaging"
MAN = ROOT / "docs/man"
SECTIONS = ("NAME", "SYNOPSIS", "DESCRIPTION", "PARAMETERS", "OPTIONS", "EXAMPLES", "EXIT CODES", "ENVIRONMENT", "FILES")

PARSERS = (
    ("bash", ["bash", "-n", PACKAGING / "completions/kxmap.bash"]),
    ("zsh", ["zsh", "-n", PACKAGING / "completions/_kxmap"]),
    ("fish", ["fish", "-n", PACKAGING / "completions/kxmap.fish"]),
    *(("mandoc", ["mandoc", "-T", "lint", "-W", "warning", page]) for page in sorted(MAN.glob("*.1"))),
)

# What is typed, and what bash and fish have to offer for it.
COMPLETIONS = (
    ("kxmap ch", {"check"}),
    ("kxmap apply --outb", {"--outbound"}),
    ("kxmap apply --mappings examples/mappings --aet ", {"CT_SCANNER1", "MR_NORTH"}),
    ("kxmap apply --outbound --mappings examples/mappings --aet A", {"ARCHIVE"}),
    ("kxmap apply --single examples/mappings/C", {"examples/mappings/CT_SCANNER1.map"}),
    ("kxmap check examples/mappings/global/o", {f"examples/mappings/global/{name}.map" for name in ("outpre", "outpost")}),
    ("kxmap try --color a", {"auto", "always"}),
    ("kxmap functions toU", {"toUpper"}),
    ("kxmap check --format s", {"sarif"}),
    ("kxmap check -Wno-unset", {"-Wno-unset-variable"}),
    ("kxmap try -Wno-ident", {"-Wno-identity"}),
)

# A line, and the scopes that the grammar gives its parts.
LINES = (
    ("# a note", {"comment"}),
    ('(0010,0010)=toUpper("a\\"b")', {"constant.other.tag", "support.function", "string.quoted.double"}),
    ("(0010,0010) =x", {"constant.other.tag", "invalid.illegal.blank"}),
    ("$(@id)=toupper(x)", {"variable.other", "invalid.illegal.function"}),
    ("USER(a)=concat(12,,NULL)", {"support.function", "constant.numeric", "invalid.illegal.comma", "invalid.deprecated"}),
)


def run(command, **options):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, cwd=ROOT, **options)


def helpOf(tool, command=()):
    return run([tool, *command, "--help"]).stdout


def parserFaults():
    for program, command in PARSERS:
        if shutil.which(program):
            result = run(command)
            if result.returncode != 0:
                yield f"{program}: {result.stdout}{result.stderr}"


def manFaults(tool):
    commands = re.findall(r"^  ([a-z]+) ", helpOf(tool).partition("ommands:\n")[2], re.MULTILINE)
    for name, command in [("kxmap", ()), *((f"kxmap-{c}", (c,)) for c in commands)]:
        page = MAN / f"{name}.1"
        if not page.exists():
            yield f"{page.name} is missing"
            continue
        text = page.read_text(encoding="utf-8").replace("\\-", "-")
        told = set(re.findall(r"(?<![\w-])--?[a-zA-Z][\w-]*", text))
        options = re.findall(r"^  (-[^ {]*)", helpOf(tool, command), re.MULTILINE)
        for option in {part for entry in options for part in entry.split(",")} - told:
            yield f"{page.name} does not explain {option}"
        heads = [head.strip('"') for head in re.findall(r"^\.SH (.*)$", text, re.MULTILINE)]
        if [head for head in heads if head in SECTIONS] != [head for head in SECTIONS if head in heads]:
            yield f"{page.name}: its sections are not in the order of {', '.join(SECTIONS)}"


def completionFaults(tool):
    scripts = {
        "bash": f"source {PACKAGING}/completions/kxmap.bash\n" + '''COMP_LINE=$1; read -ra COMP_WORDS <<<"${1//=/ = }"
            [[ $1 == *" " ]] && COMP_WORDS+=("")
            COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kxmap; printf "%s\\n" "${COMPREPLY[@]}"''',
        "fish": f"source {PACKAGING}/completions/kxmap.fish; complete -C $argv[-1]",
    }
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "kxmap").symlink_to(pathlib.Path(tool).resolve())
        environment = {**os.environ, "PATH": f"{folder}:{os.environ['PATH']}", "HOME": folder}
        for shell, script in scripts.items():
            for typed, expected in COMPLETIONS if shutil.which(shell) else ():
                lines = run([shell, "-c", script, *(["kxmap"] if shell == "bash" else []), typed], env=environment).stdout
                offered = {line.partition("\t")[0] for line in lines.splitlines()}
                if offered != expected:
                    yield f"{shell} offers {sorted(offered)} for '{typed}', not {sorted(expected)}"


def scopesOf(grammar, line):
    """The scopes of a line, as an editor finds them: the leftmost match, of those the first in the grammar's order."""
    rules = [grammar["repository"][pattern["include"][1:]] for pattern in grammar["patterns"]]
    position, scopes = 0, set()
    while True:
        found = [(match.start(), number, match) for number, rule in enumerate(rules)
                 if (match := re.compile(rule.get("match") or r'"(?:\\.|[^"\\])*(?:"|$)').search(line, position))]
        if not found:
            return scopes
        _, number, match = min(found, key=lambda one: one[:2])
        scopes.add(rules[number]["name"])
        position = max(match.end(), position + 1)


def grammarFaults():
    grammar = json.loads((PACKAGING / "textmate/kxmap.tmLanguage.json").read_text(encoding="utf-8"))
    for line, expected in LINES:
        scopes = scopesOf(grammar, line)
        unmet = [want for want in expected if not any(scope.startswith(want) for scope in scopes)]
        if unmet or len(scopes) != len(expected):
            yield f"the grammar sees {sorted(scopes)} in '{line}', not {sorted(expected)}"
    table = (ROOT / "common/kxdcm/src/kxmap/functions/table.cc").read_text(encoding="utf-8")
    names = set(re.findall(r'FunctionDef f_\w+\s*(?:=\s*)?\{"(\w+)"', table)) - {"assign_to_lvalue"}
    for place, text in (("the grammar", grammar["repository"]["function"]["match"].split("(")[1].split(")")[0]),
                        ("kxmap.vim", re.search(r"kxmapFunction /\\<\\\((.*?)\\\)", (PACKAGING / "vim/syntax/kxmap.vim")
                                                .read_text(encoding="utf-8"))[1].replace("\\", ""))):
        if not names or set(text.split("|")) != names:
            yield f"{place} and the table of functions differ: {sorted(names ^ set(text.split('|')))}"


def vimFaults():
    if not shutil.which("vim"):
        return
    with tempfile.TemporaryDirectory() as folder:
        for name, content, expected in (("ours.map", "# note\n(0010,0010)=x\n", "kxmap"),
                                        ("linker.map", "Archive member included\n(0010,0010) x=1\n", "other")):
            path = pathlib.Path(folder) / name
            path.write_text(content, encoding="ascii")
            answer = pathlib.Path(folder) / "answer"
            run(["vim", "-Nu", "NONE", "-i", "NONE", "-es", "-c", f"set rtp^={PACKAGING}/vim", "-c", "filetype on", "-c",
                 "syntax on", "-c", f"edit {path}", "-c", f"call writefile([&ft, get(b:, 'current_syntax', '')], '{answer}')",
                 "-c", "qa!"], stdin=subprocess.DEVNULL, timeout=60)
            seen = answer.read_text().split() if answer.exists() else []
            if (seen == ["kxmap", "kxmap"]) != (expected == "kxmap"):
                yield f"vim takes {name} for {seen}"


def main():
    tool = sys.argv[1]
    faults = [*parserFaults(), *manFaults(tool), *completionFaults(tool), *grammarFaults(), *vimFaults()]
    for fault in faults:
        print(fault)
    return 1 if faults else 0


sys.exit(main())
