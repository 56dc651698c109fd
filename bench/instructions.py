#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Counts the instructions of each workload by callgrind and compares them with baseline.json. Fails when one has grown."""
import argparse
import json
import pathlib
import re
import subprocess
import sys
import tempfile

BASELINE = pathlib.Path(__file__).resolve().parent / "baseline.json"
GROWTH = 0.05
FEW, MANY = 50, 250


def count(program, name, repetitions):
    """Returns the instructions of one whole run."""
    with tempfile.NamedTemporaryFile() as out:
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={out.name}", str(program), name,
                   str(repetitions)]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        found = re.search(r"Collected : (\d+)", done.stderr)
        if done.returncode != 0 or found is None:
            sys.exit(f"instructions.py: {' '.join(command)} failed:\n{done.stderr}")
        return int(found.group(1))


def measure(program):
    """Returns instructions a piece, by name: what start and end of the program cost cancels out between two runs."""
    listing = subprocess.run([program], capture_output=True, text=True, check=True).stdout
    result = {}
    for line in listing.splitlines():
        name, pieces = line.split("\t")
        difference = count(program, name, MANY) - count(program, name, FEW)
        result[name] = round(difference / (MANY - FEW) / int(pieces), 1)
    return result


def main():
    """See README.md."""
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=pathlib.Path, help="a release build with KXDCM_BUILD_BENCH")
    parser.add_argument("--update", action="store_true", help="make these counts the baseline")
    options = parser.parse_args()
    counts = measure(options.build / "bench" / "kxdcm_workload")
    if options.update:
        BASELINE.write_text(json.dumps(counts, indent=4) + "\n", encoding="utf-8")
    baseline = json.loads(BASELINE.read_text(encoding="utf-8"))
    print(f"{'instructions a piece':28}{'now':>10}{'baseline':>10}{'':>8}")
    grown = [] if counts.keys() == baseline.keys() else ["the list of workloads"]
    for name, now in counts.items():
        before = baseline.get(name, now)
        print(f"{name:28}{now:10.1f}{before:10.1f}{(now / before - 1) * 100:+7.1f}%")
        if now > before * (1 + GROWTH):
            grown.append(name)
    if grown:
        sys.exit(f"instructions.py: more than {GROWTH:.0%} above the baseline, or not in it: {', '.join(grown)}. If that is "
                 "worth it, run with --update and say why in the commit.")


if __name__ == "__main__":
    main()
