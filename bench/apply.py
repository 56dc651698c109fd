#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Measures "kxmap apply" against the floor, interleaved, and prints medians of five rounds, ratios and peak memory."""
import argparse
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import pydicom

HERE = pathlib.Path(__file__).resolve().parent
DATA = pathlib.Path(pydicom.__file__).parent / "data" / "test_files"
SMALL_BYTES = 200_000
# What DCMTK and so both programs refuse, and what is no image file.
UNFIT = ("truncated", "DICOMDIR", "no_meta", "NoMeta", "nested_priv", "rtplan_truncated")


def make_small(folder, count, floor):
    """Copies real files, over and over, those that the floor can do."""
    sources = [f for f in sorted(DATA.glob("*.dcm"))
               if f.stat().st_size < SMALL_BYTES and not any(word in f.name for word in UNFIT)]
    with tempfile.TemporaryDirectory() as probe:
        bad = subprocess.run([floor, "plain", DATA, probe], capture_output=True, text=True, check=False).stderr
    sources = [f for f in sources if f.name not in bad]
    folder.mkdir()
    for number in range(count):
        shutil.copyfile(sources[number % len(sources)], folder / f"{number:05}.dcm")


def make_large(folder):
    """One CT image of 50 MB."""
    folder.mkdir()
    image = pydicom.dcmread(DATA / "CT_small.dcm")
    image.Rows = image.Columns = 5000
    image.PixelData = os.urandom(1 << 20) * 47 + bytes(5000 * 5000 * 2 - (47 << 20))
    image.save_as(folder / "large.dcm")


def run(command, out):
    """Returns seconds and the peak resident size in KiB of the largest process."""
    shutil.rmtree(out, ignore_errors=True)
    os.sync()
    begin = time.perf_counter()
    # A process's peak begins with that of the one it was forked from: "time" is small, this one is not.
    done = subprocess.run(["/usr/bin/time", "-f", "%M"] + [str(word) for word in command],
                          stderr=subprocess.PIPE, text=True, check=False)
    seconds = time.perf_counter() - begin
    if done.returncode != 0:
        sys.exit(f"apply.py: {command[0]} ended with {done.returncode}: {done.stderr}")
    return seconds, int(done.stderr.split()[-1])


def measure(title, commands, out, rounds):
    """Runs all commands of a round after each other, so that a busy moment hits them alike."""
    results = {name: [] for name in commands}
    for _ in range(rounds):
        for name, command in commands.items():
            results[name].append(run(command, out))
    base = statistics.median(seconds for seconds, _ in results["floor, rename"])
    print(f"\n{title}\n{'':32}{'median s':>10}{'ratio':>8}{'peak MiB':>10}")
    for name, runs in results.items():
        seconds = statistics.median(seconds for seconds, _ in runs)
        print(f"{name:32}{seconds:10.3f}{seconds / base:8.2f}{max(kib for _, kib in runs) / 1024:10.1f}")


def main():
    """See README.md."""
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path, help="a release build with KXDCM_BUILD_BENCH")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--folder", help="where files are made; the disk counts for --fsync", default=None)
    parser.add_argument("--tool", help="another kxmap to compare with")
    options = parser.parse_args()
    floor = options.build / "bench" / "kxdcm_floor"
    tool = options.build / "tool" / "kxmap"
    apply = [tool, "apply", "--single", HERE / "ten.map"]
    with tempfile.TemporaryDirectory(dir=options.folder) as name:
        folder = pathlib.Path(name)
        make_small(folder / "small", 500, floor)
        make_large(folder / "large")
        for kind, title in (("small", "500 small files"), ("large", "one file of 50 MB")):
            source, out = folder / kind, folder / "out"
            commands = {
                "floor, plain": [floor, "plain", source, out],
                "floor, rename": [floor, "rename", source, out],
                "floor, fsync, two processes": [floor, "durable", source, out],
                "apply": apply + ["-o", out, source],
                "apply -j 2": apply + ["-j", "2", "-o", out, source],
                "apply --fsync": apply + ["--fsync", "-o", out, source],
                "apply -j 2 --fsync": apply + ["-j", "2", "--fsync", "-o", out, source],
                "apply --report": apply + ["--report", folder / "report", "-o", out, source],
            }
            if options.tool:
                commands["other kxmap"] = [options.tool] + apply[1:] + ["-o", out, source]
            measure(title, commands, out, options.rounds)


if __name__ == "__main__":
    main()
