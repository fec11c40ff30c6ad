#!/usr/bin/env python3
"""Writes gcov's JSON reports of the bridge, from one run of its contract suite: coverage.py BUILD_DIR OUTPUT_DIR

BUILD_DIR is a finished release build: its rows are linked with bridge sources that are compiled anew and count their lines."""
import pathlib
import subprocess
import sys

from mutate import SOURCES, Bench


def main():
    build, output = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    folder = output / "javanew"
    folder.mkdir()
    bench = Bench(build)
    everything = SOURCES / "native.h"  # every source sees it
    if not bench.make(folder, everything.name, everything.read_text(encoding="utf-8"), "--coverage"):
        raise SystemExit("coverage: the bridge does not compile")
    subprocess.run([folder / "contract", "--gtest_brief=1"], cwd=folder, check=True)
    for data in sorted(folder.glob("*.gcda")):
        report = subprocess.run(["gcov", "--json-format", "--stdout", "--branch-probabilities", data], cwd=folder,
                                capture_output=True, check=True)
        (output / f"{data.name}.json").write_bytes(report.stdout)


if __name__ == "__main__":
    main()
