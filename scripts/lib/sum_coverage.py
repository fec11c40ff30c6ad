"""Adds up gcov's JSON reports for one folder: coverage by file, then the lines that were never run.

A template's line counts as run when one of its instances ran it; so does a branch."""
import json
import sys


def main():
    folder, reports = sys.argv[1] + "/", sys.argv[2:]
    lines, branches = {}, {}
    for report in reports:
        for text in open(report, encoding="utf-8"):
            for file in json.loads(text)["files"]:
                _, found, rest = file["file"].rpartition(folder)
                if not found:
                    continue
                name = folder + rest
                for line in file["lines"]:
                    place = (name, line["line_number"])
                    lines[place] = lines.get(place, 0) + line["count"]
                    for number, branch in enumerate(line["branches"]):
                        if not branch["throw"]:
                            key = place + (number,)
                            branches[key] = branches.get(key, 0) + branch["count"]

    def share(counts, name):
        own = [count for place, count in counts.items() if name in (None, place[0])]
        ran = sum(count > 0 for count in own)
        return f"{ran:5d} of {len(own):5d} {100 * ran / len(own) if own else 100:6.1f} %"

    print(f"{'':44} {'lines':>23}   {'branches':>23}")
    for name in sorted({place[0] for place in lines}) + [None]:
        print(f"{name or 'all':44} {share(lines, name):>23}   {share(branches, name):>23}")
    missed = sorted(place for place, count in lines.items() if count == 0)
    for name, number in missed:
        print(f"not run: {name}:{number}")
    for name, number, branch in sorted(place for place, count in branches.items() if count == 0):
        print(f"not taken: {name}:{number} way {branch}")
    return 1 if missed or not lines else 0


sys.exit(main())
