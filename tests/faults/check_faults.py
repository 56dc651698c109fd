#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Makes each call to the system fail in turn while "kxmap apply" runs, and looks at what is left of the files.

Whatever fails, a file is wholly the old one or wholly the one expected, nothing temporary is left, and exit status,
messages and report agree with the files.
"""
import argparse
import concurrent.futures
import errno
import json
import os
import pathlib
import resource
import struct
import subprocess
import sys
import tempfile
import zlib

APPEND = '(0010,0020)=concat("N-",(0010,0020))\n'
FUNCTIONS = ("open", "read", "pread", "lseek", "fstat", "stat", "write", "copy_file_range", "sendfile", "rename", "fsync",
             "fdatasync", "syncfs", "fchmod", "fchown", "ftruncate", "close", "mmap", "getxattr")
ERRORS = (errno.EIO, errno.ENOSPC, errno.EMFILE, errno.ESTALE, errno.ENOMEM)
ON_DISK = "in its place, but perhaps not yet on the disk"
CHANGED = "changed while it was read"
TIMEOUT = 60
LARGE_BYTES = 800_000


class Bench:
    """What all runs share: the program, the preloaded library, the files old and new."""

    def __init__(self, tool, preload, data, work):
        self.tool, self.preload, self.work = tool, preload, work
        self.rules = work / "append.map"
        self.rules.write_text(APPEND)
        small = (data / "test_files" / "CT_small.dcm").read_bytes()
        at = small.rindex(b"\xe0\x7f\x10\x00OW\0\0")
        large = small[:at + 8] + LARGE_BYTES.to_bytes(4, "little") + bytes(range(250)) * (LARGE_BYTES // 250)
        self.old = {"small.dcm": small, "large.dcm": large}
        self.new = {name: self.coerced(name, content) for name, content in self.old.items()}

    def coerced(self, name, content):
        """What a run without faults makes of a file, which must be the old one but for the patient's ID."""
        with tempfile.TemporaryDirectory(dir=self.work) as folder:
            source, target = pathlib.Path(folder, "in.dcm"), pathlib.Path(folder, "out.dcm")
            source.write_bytes(content)
            subprocess.run([self.tool, "apply", "--single", self.rules, "-o", target, source], check=True)
            result = target.read_bytes()
        before, after = b"\x10\x00\x20\x00LO\x04\x001CT1", b"\x10\x00\x20\x00LO\x06\x00N-1CT1"
        if result != content.replace(before, after):
            sys.exit(f"{name}: a run without faults changed more than the patient's ID")
        return result


class Scenario:
    """One way to call the program, on files of its own."""

    def __init__(self, bench, names, is_in_place, options):
        self.bench, self.names, self.is_in_place, self.options = bench, names, is_in_place, options

    def __str__(self):
        return " ".join(("in place" if self.is_in_place else "beside", *self.options, *self.names))

    def run(self, fault, extra=()):
        """Returns the faults found, and whether the fault happened at all."""
        with tempfile.TemporaryDirectory(dir=self.bench.work) as name:
            return self.run_in(pathlib.Path(name), fault, dict(extra))

    def run_in(self, folder, fault, extra):
        """The same, in a given folder."""
        source, out = folder / "in", folder / "out"
        source.mkdir()
        out.mkdir()
        for name in self.names:
            (source / name).write_bytes(self.bench.old[name])
        counter = self.bench.work / f"{folder.name}.count"
        counter.write_bytes(bytes(8))
        environment = dict(os.environ, LD_PRELOAD=str(self.bench.preload), KXDCM_FAULT=fault,
                           KXDCM_FAULT_FOLDER=str(source if extra else folder), KXDCM_FAULT_COUNTER=str(counter))
        if "file" in extra:
            other = folder / "other"
            other.write_bytes(self.bench.old["small.dcm"].replace(b"1CT1", b"2CT2"))
            environment.update(KXDCM_FAULT_FILE=str(source / extra["file"]), KXDCM_FAULT_OTHER=str(other))
        report = folder / "report.jsonl"
        command = [self.bench.tool, "apply", "--single", self.bench.rules, *self.options, "--report", report]
        command += ["--in-place", source] if self.is_in_place else ["-o", out, source]
        done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=TIMEOUT, check=False)
        count = int.from_bytes(counter.read_bytes(), "little")
        counter.unlink()
        struck = count >= int(fault.split()[1])
        result = Result(self, fault, source if self.is_in_place else out, report, done, extra if struck else {})
        return [f"{self}: {fault}: {fault_found}\n{done.stderr}" for fault_found in result.faults(struck)], struck


class Result:
    """What a run has left."""

    def __init__(self, scenario, fault, place, report, done, extra):
        self.scenario, self.fault, self.place, self.done, self.extra = scenario, fault, place, done, extra
        self.source = place.parent / "in"
        self.lines = {}
        if report.exists():
            for line in report.read_text().splitlines():
                entry = json.loads(line)
                self.lines[pathlib.Path(entry["input"]).name] = entry

    def faults(self, struck):
        """Lists what is wrong."""
        bench = self.scenario.bench
        if (not struck or self.fault.endswith("kill")) and self.done.returncode != 0:
            yield f"exit {self.done.returncode} though nothing failed"
        states = {name: self.state(name, bench) for name in self.scenario.names}
        for name, state in states.items():
            if state == "mixed":
                yield f"{name} is neither the old file nor the new one"
            told = self.lines.get(name, {}).get("status")
            if told == "done" and state != "new":
                yield f"{name} is {state}, the report has it done"
            if told == "failed" and state == "new" and ON_DISK not in self.done.stderr:
                yield f"{name} is new, the report has it failed"
        if self.done.returncode < 0 or self.done.returncode > 2:
            yield f"ended with {self.done.returncode}"
        if self.done.returncode == 0 and any(state != "new" for state in states.values()):
            yield f"exit 0, but {states}"
        if self.done.returncode == 0 and len(self.lines) != len(states):
            yield "exit 0, but the report is not complete"
        if self.done.returncode != 0 and "kxmap: " not in self.done.stderr:
            yield f"exit {self.done.returncode} without a word"
        left = [path.name for folder in (self.place, self.source) for path in folder.glob(".kxmap-*")]
        if left:
            yield f"left behind: {left}"

    def state(self, name, bench):
        """Tells which content a result has."""
        path = self.place / name
        if name == self.extra.get("file"):
            return self.state_of_victim(path)
        content = path.read_bytes() if path.exists() else None
        if content == bench.new[name]:
            return "new"
        is_old = content == bench.old[name] if self.scenario.is_in_place else content is None
        if not self.scenario.is_in_place and (self.source / name).read_bytes() != bench.old[name]:
            return "mixed"
        return "old" if is_old else "mixed"

    def state_of_victim(self, path):
        """The same for the file to which something was done: it has to stay as that left it, and to be told."""
        if self.extra["action"] == "pipe":
            return "old" if path.is_fifo() or not self.scenario.is_in_place else "mixed"
        if CHANGED not in self.done.stderr:
            return "not told of"
        content = path.read_bytes() if path.exists() else None
        if not self.scenario.is_in_place:
            return "old" if content is None else "mixed"
        old = self.scenario.bench.old
        left = {"remove": None, "replace": old["small.dcm"].replace(b"1CT1", b"2CT2"), "cut": old[path.name][:1000]}
        return "old" if content == left[self.extra["action"]] else "mixed"


def failing_calls(scenario, is_thorough, turn):
    """Lets each call fail until there is no such call any more."""
    faults, runs = [], 0
    for function in FUNCTIONS:
        number = 1
        while True:
            errors = ERRORS if is_thorough else (ERRORS[(turn + number) % len(ERRORS)],)
            struck = False
            for error in errors:
                found, struck = scenario.run(f"{function} {number} {error}")
                faults += found
                runs += struck
            if not struck:
                break
            number += 1
    for error in (errno.EXDEV, errno.EOPNOTSUPP):  # the system's own copying is not to be had: it goes on without
        found, struck = scenario.run(f"copy_file_range+ 1 {error}")
        faults += found
        runs += struck
    return faults, runs


def changing_inputs(scenario):
    """Has an input replaced, cut or removed after it was opened, at each step until its result takes its place."""
    faults, runs = [], 0
    if len(scenario.names) == 1:  # a pipe that nobody writes into, opened as if it were a file, would be waited for
        faults, runs = scenario.run("open 1 pipe", {"file": scenario.names[0], "action": "pipe"})
    for victim in scenario.names if len(scenario.names) == 1 else ():  # of several, the others' steps would count
        for action in ("replace", "cut", "remove"):
            for function in ("pread", "write", "copy_file_range", "fdatasync", "syncfs"):
                for number in (1, 2, 3):
                    found, struck = scenario.run(f"{function} {number} {action}", {"file": victim, "action": action})
                    faults += found
                    runs += struck
                    if not struck:
                        break
    return faults, runs


def dying_workers(scenario):
    """Kills a worker at each step that changes something: what it had not done is done by another, and nothing twice."""
    faults, runs = [], 0
    for function in ("open", "write", "copy_file_range", "fchmod", "rename", "fdatasync", "syncfs", "fsync", "close"):
        number, struck = 1, True
        while struck:
            found, struck = scenario.run(f"{function} {number} kill")
            faults += found
            runs += struck
            number += 1
    return faults, runs


def two_at_once(bench, rounds):
    """Runs twice at once on one folder: each file is coerced once or twice, and keeps its own pixels."""
    faults = []
    for _ in range(rounds):
        with tempfile.TemporaryDirectory(dir=bench.work) as name:
            folder = pathlib.Path(name)
            originals = {}
            for number in range(60):
                content = bench.old["large.dcm" if number % 3 == 0 else "small.dcm"]
                content = content[:-100] + number.to_bytes(4, "little") * 25
                originals[f"{number:02}.dcm"] = content
                (folder / f"{number:02}.dcm").write_bytes(content)
            command = [bench.tool, "apply", "--single", bench.rules, "--in-place", "-j", "2", folder]
            runs = [subprocess.Popen(command, stderr=subprocess.PIPE, text=True) for _ in range(2)]
            errors = [run.communicate(timeout=TIMEOUT)[1] for run in runs]
            for name, content in originals.items():
                before = b"\x10\x00\x20\x00LO\x04\x001CT1"
                once = content.replace(before, b"\x10\x00\x20\x00LO\x06\x00N-1CT1")
                twice = content.replace(before, b"\x10\x00\x20\x00LO\x08\x00N-N-1CT1")
                if (folder / name).read_bytes() not in (once, twice):
                    faults.append(f"two runs at once: {name} is mixed or was left out\n{errors}")
            for text in errors:
                faults += [f"two runs at once: {line}" for line in text.splitlines()
                           if CHANGED not in line and not line.startswith("kxmap: ") and line]
    return faults, rounds


def grown_by_deflating(bench):
    """Gives a small file whose dataset inflates to a thousand times its size, which must be refused early."""
    def element(group, number, vr, value):
        return struct.pack("<HH2sH", group, number, vr, len(value)) + value
    syntax = element(2, 0x10, b"UI", b"1.2.840.10008.1.2.1.99")
    meta = element(2, 0, b"UL", struct.pack("<I", len(syntax))) + syntax
    deflate = zlib.compressobj(9, zlib.DEFLATED, -zlib.MAX_WBITS)
    pieces = [element(8, 0x60, b"CS", b"CT"), struct.pack("<HH2sHI", 0x7FE0, 0x10, b"OW", 0, 300_000_000)]
    dataset = b"".join(deflate.compress(piece) for piece in pieces + [bytes(1_000_000)] * 300)
    content = bytes(128) + b"DICM" + meta + dataset + deflate.flush()
    with tempfile.TemporaryDirectory(dir=bench.work) as name:
        file = pathlib.Path(name, "grown.dcm")
        file.write_bytes(content)
        done = subprocess.run([bench.tool, "apply", "--single", bench.rules, "--in-place", file], capture_output=True,
                              text=True, timeout=TIMEOUT, check=False)
        peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss // 1024
        if done.returncode != 1 or "inflates to more than" not in done.stderr or file.read_bytes() != content:
            return [f"a file that grows: exit {done.returncode}\n{done.stderr}"], 1
        return [f"a file that grows took {peak} MiB"] if peak > 200 else [], 1


def scenarios(bench):
    """Lists the ways to call the program."""
    for is_in_place in (True, False):
        for options in ((), ("--fsync",), ("-j", "2"), ("-j", "2", "--fsync")):
            yield Scenario(bench, ("small.dcm",), is_in_place, options)
            yield Scenario(bench, ("large.dcm",), is_in_place, options)
        yield Scenario(bench, ("large.dcm", "small.dcm"), is_in_place, ("--fsync",))


def main():
    """See above."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--tool", type=pathlib.Path, required=True)
    parser.add_argument("--preload", type=pathlib.Path, required=True)
    parser.add_argument("--data", type=pathlib.Path, required=True, help="pydicom's folder \"data\"")
    parser.add_argument("--thorough", action="store_true", help="each call with each error, not with one in turn")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as name:
        bench = Bench(options.tool.resolve(), options.preload.resolve(), options.data, pathlib.Path(name))
        jobs = []
        with concurrent.futures.ThreadPoolExecutor(max_workers=os.cpu_count()) as pool:
            for turn, scenario in enumerate(scenarios(bench)):
                jobs.append(pool.submit(failing_calls, scenario, options.thorough, turn))
                jobs.append(pool.submit(changing_inputs, scenario))
                if scenario.is_in_place and "-j" not in scenario.options:
                    jobs.append(pool.submit(dying_workers, scenario))
            jobs.append(pool.submit(two_at_once, bench, 3))
            jobs.append(pool.submit(grown_by_deflating, bench))
        faults = [fault for job in jobs for fault in job.result()[0]]
        runs = sum(job.result()[1] for job in jobs)
    for fault in faults:
        print(fault, file=sys.stderr)
    print(f"{runs} runs with a fault, {len(faults)} of them ended wrong")
    return 1 if faults or runs < 500 else 0


if __name__ == "__main__":
    sys.exit(main())
