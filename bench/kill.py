#!/usr/bin/python3
# SPDX-License-Identifier: BSD-3-Clause
"""Ends "kxmap apply --in-place" by SIGKILL at random moments; every file must be the whole old or the whole new one."""
import argparse
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import pydicom

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = pathlib.Path(pydicom.__file__).parent / "data" / "test_files" / "CT_small.dcm"
OPTIONS = ([], ["-j", "2"], ["--fsync"], ["-j", "2", "--fsync"])


def main():
    """Prints a line for each kill, and ends with 1 if a file was neither."""
    parser = argparse.ArgumentParser()
    parser.add_argument("tool", help="the kxmap to try")
    parser.add_argument("--kills", type=int, default=20)
    parser.add_argument("--files", type=int, default=300)
    options = parser.parse_args()
    apply = [options.tool, "apply", "--single", str(HERE / "ten.map")]
    old = SOURCE.read_bytes()
    bad = 0
    durations = []
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        subprocess.run(apply + ["-o", folder / "new.dcm", SOURCE], check=True)
        new = (folder / "new.dcm").read_bytes()
        files = folder / "files"
        for kill in range(-len(OPTIONS), options.kills):
            shutil.rmtree(files, ignore_errors=True)
            files.mkdir()
            for number in range(options.files):
                (files / f"{number}.dcm").write_bytes(old)
            words = OPTIONS[kill % len(OPTIONS)]
            begin = time.monotonic()
            process = subprocess.Popen(apply + words + ["--in-place", files], start_new_session=True)
            if kill < 0:  # a whole run first, to know how long one is
                process.wait()
                durations.append(time.monotonic() - begin)
                continue
            time.sleep(random.uniform(0, durations[kill % len(OPTIONS)]))
            os.killpg(process.pid, signal.SIGKILL)  # workers too
            process.wait()
            contents = [file.read_bytes() for file in files.glob("*.dcm")]
            broken = sum(content not in (old, new) for content in contents) + options.files - len(contents)
            bad += broken
            print(f"{' '.join(words):16} {contents.count(new):4} new, {contents.count(old):4} old, {broken} broken, "
                  f"{len(list(files.glob('.kxmap-*')))} temporary files left")
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main()
