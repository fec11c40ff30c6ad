"""Adds up the reports of all test programs and prints "N passed, N failed" as the last line.

A ctest test whose program left no readable report (it crashed, hung or was never built) counts as one failure."""
import pathlib
import sys
import xml.etree.ElementTree as xml


def count_report(path):
    """Cases passed and failed in a JUnit-style report, with the names of the failed ones."""
    passed, failed = 0, []
    for case in xml.parse(path).getroot().iter("testcase"):
        if case.find("failure") is not None or case.find("error") is not None:
            failed.append(f"{case.get('classname')}.{case.get('name')}")
        elif case.find("skipped") is not None or case.get("status") == "notrun":
            continue
        else:
            passed += 1
    return passed, failed


def ctest_failures(log):
    """Names of the ctest tests that failed, from ctest's own closing list."""
    names, listing = [], False
    for line in log.read_text(errors="replace").splitlines():
        if line.startswith("The following tests FAILED"):
            listing = True
        elif listing and " - " in line:
            names.append(line.split(" - ", 1)[1].split(" (", 1)[0].strip())
    return names


def main():
    results, presets = pathlib.Path(sys.argv[1]), sys.argv[2:]
    passed = failed = 0
    for preset in presets:
        preset_passed, preset_failed, seen_failing = 0, [], set()
        for report in sorted(pathlib.Path("build", preset, "reports").rglob("*.xml")):
            try:
                report_passed, report_failed = count_report(report)
            except xml.ParseError:
                continue
            preset_passed += report_passed
            preset_failed += report_failed
            if report_failed:
                seen_failing.add(report.relative_to(pathlib.Path("build", preset, "reports")).parts[0].removesuffix(".xml"))
        for name in ctest_failures(results / f"{preset}.ctest"):
            if name not in seen_failing:
                preset_failed.append(f"{name} (no report of a failed case: crashed, hung or not built)")
        print(f"{preset}: {preset_passed} passed, {len(preset_failed)} failed")
        for name in preset_failed:
            print(f"  FAILED {preset} {name}")
        passed += preset_passed
        failed += len(preset_failed)
    for check in sorted(results.glob("*.check")):
        good = check.read_text().strip() == "pass"
        print(f"{check.stem}: {'passed' if good else 'FAILED'}")
        passed, failed = passed + good, failed + (not good)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


sys.exit(main())
