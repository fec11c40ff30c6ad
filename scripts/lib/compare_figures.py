#!/usr/bin/env python3
"""Compares the figures of two sides that took turns, for bench/against.

compare_figures.py FOLDER                       FOLDER/before.N and FOLDER/now.N: prints the lines of the comparison
compare_figures.py --record FILE TABLE COMMAND  puts such lines into FILE, in the place of the last comparison
"""
import datetime
import pathlib
import statistics
import sys

HEADING = "## Before and after"


def is_rate(metric):
    return metric.endswith("_per_s")


def figures(path):
    """The figures of one run: (case, metric) to its value."""
    found = {}
    for line in path.read_text().splitlines():
        fields = line.split("\t")
        if len(fields) == 6:
            found.setdefault((fields[0], fields[1]), float(fields[2]))
    return found


def compare(folder):
    sides = {side: [figures(path) for path in sorted(folder.glob(f"{side}.*"))] for side in ("before", "now")}
    for case, metric in sides["now"][0]:
        if not all((case, metric) in run for run in sides["before"]):
            continue
        before = [run[case, metric] for run in sides["before"]]
        now = [run[case, metric] for run in sides["now"]]
        speed = [n / b if is_rate(metric) else b / n for b, n in zip(before, now)]
        middle = statistics.median(speed)
        print(case, metric, *(f"{each:.4g}" for each in
                              (statistics.median(before), statistics.median(now), middle, min(speed), max(speed))), sep="\t")


def record(page, table, command):
    text = page.read_text().split("\n" + HEADING)[0].rstrip("\n")
    lines = [text, "", HEADING, "",
             f"Written by {command} on {datetime.date.today()}. Both sides took turns; speed is that of now divided by that "
             "of before, the median, the smallest and the largest of the turns.", "",
             "| case | metric | before | now | speed | smallest | largest |", "| --- | --- | ---: | ---: | ---: | ---: | ---: |"]
    lines += ["| " + " | ".join(line.split("\t")) + " |" for line in table.read_text().splitlines()]
    page.write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    if sys.argv[1] == "--record":
        record(pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]), sys.argv[4])
    else:
        compare(pathlib.Path(sys.argv[1]))
