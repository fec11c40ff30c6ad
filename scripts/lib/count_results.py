"""Adds up the reports of all test programs and prints "N passed, N failed" as the last line, with ", N skipped" where some were.

A ctest test whose program left no readable report (it crashed, hung or was never built) counts as one failure. What could
not be run where this runs counts as skipped, never as passed."""
import pathlib
import re
import sys
import xml.etree.ElementTree as xml


def count_report(path):
    """Of a JUnit-style report: how many cases passed, the names of the failed ones, and of the skipped ones."""
    passed, failed, skipped = 0, [], []
    for case in xml.parse(path).getroot().iter("testcase"):
        name = f"{case.get('classname')}.{case.get('name')}"
        if case.find("failure") is not None or case.find("error") is not None:
            failed.append(name)
        elif case.find("skipped") is not None or case.get("status") == "notrun":
            skipped.append(name)
        else:
            passed += 1
    return passed, failed, skipped


def ctest_passes(log):
    """Names of the ctest tests that passed."""
    return re.findall(r"Test +#\d+: (\S+) \.+ +Passed ", log.read_text(encoding="utf-8", errors="replace"))


def ctest_failures(log):
    """Names of the ctest tests that failed, from ctest's own closing list."""
    names, listing = [], False
    for line in log.read_text(encoding="utf-8", errors="replace").splitlines():
        if line.startswith("The following tests FAILED"):
            listing = True
        elif listing and " - " in line:
            names.append(line.split(" - ", 1)[1].split(" (", 1)[0].strip())
    return names


def summary(passed, failed, skipped):
    return f"{passed} passed, {failed} failed" + (f", {skipped} skipped" if skipped else "")


def main():
    results, presets = pathlib.Path(sys.argv[1]), sys.argv[2:]
    passed = failed = skipped = 0
    for preset in presets:
        reports = pathlib.Path("build", preset, "reports")
        preset_passed, preset_failed, preset_skipped, seen_failing = 0, [], [], set()
        for report in sorted(reports.rglob("*.xml")):
            try:
                report_passed, report_failed, report_skipped = count_report(report)
            except xml.ParseError:
                continue
            preset_passed += report_passed
            preset_failed += report_failed
            preset_skipped += report_skipped
            if report_failed:
                seen_failing.add(report.relative_to(reports).parts[0].removesuffix(".xml"))
        # A script that leaves no report counts as one test.
        preset_passed += sum(not (reports / f"{name}.xml").exists() for name in ctest_passes(results / f"{preset}.ctest"))
        for name in ctest_failures(results / f"{preset}.ctest"):
            if name not in seen_failing:
                preset_failed.append(f"{name} (no report of a failed case: crashed, hung or not built)")
        print(f"{preset}: {summary(preset_passed, len(preset_failed), len(preset_skipped))}")
        for name in preset_failed:
            print(f"  FAILED {preset} {name}")
        for name in preset_skipped:
            print(f"  skipped {preset} {name}")
        passed += preset_passed
        failed += len(preset_failed)
        skipped += len(preset_skipped)
    for check in sorted(results.glob("*.check")):
        outcome = check.read_text(encoding="utf-8").strip()
        print(f"{check.stem}: {outcome if outcome in ('passed', 'skipped') else 'FAILED'}")
        passed += outcome == "passed"
        skipped += outcome == "skipped"
        failed += outcome not in ("passed", "skipped")
    print(summary(passed, failed, skipped))
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
