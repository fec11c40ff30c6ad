"""What scripts/lib/count_results.py makes of reports and checks, run as scripts/test runs it: count_results_test.py COUNT_RESULTS"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

COUNT_RESULTS = str(pathlib.Path(sys.argv[1]).resolve())

REPORT = """<testsuites><testsuite><testcase classname="é" name="good"/>
<testcase classname="c" name="skipped"><skipped/></testcase>{more}</testsuite></testsuites>"""
FAILED = '<testcase classname="c" name="bad"><failure/></testcase>'
CTEST = """1/3 Test  #1: suite ............   Passed    0.01 sec
2/3 Test #2: script ....   Passed    0.01 sec
"""


class CountResults(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        self.results = self.folder / "results"
        self.results.mkdir()

    def count(self, *presets):
        run = subprocess.run([sys.executable, COUNT_RESULTS, self.results, *presets], cwd=self.folder, capture_output=True,
                             encoding="utf-8", env={"PYTHONIOENCODING": "utf-8"}, check=False)
        return run.returncode, run.stdout.splitlines()

    def checks(self, **outcomes):
        for name, outcome in outcomes.items():
            (self.results / f"{name}.check").write_text(outcome + "\n", encoding="utf-8")

    def preset(self, more="", ctest=CTEST):
        reports = self.folder / "build/release/reports"
        reports.mkdir(parents=True)
        (reports / "suite.xml").write_text(REPORT.format(more=more), encoding="utf-8")
        (self.results / "release.ctest").write_text(ctest, encoding="utf-8")

    def test_passed_and_failed_close_the_output(self):
        self.checks(a="passed", b="passed", c="failed")
        self.assertEqual((1, "2 passed, 1 failed"), (self.count()[0], self.count()[1][-1]))

    def test_what_was_skipped_is_told_and_does_not_count_as_passed(self):
        self.checks(a="passed", b="skipped")
        self.assertEqual((0, "1 passed, 0 failed, 1 skipped"), (self.count()[0], self.count()[1][-1]))

    def test_skipping_everything_is_no_success(self):
        self.checks(a="skipped")
        self.assertEqual((1, "0 passed, 0 failed, 1 skipped"), (self.count()[0], self.count()[1][-1]))

    def test_an_outcome_that_nobody_knows_is_a_failure(self):
        self.checks(a="passed", b="")
        self.assertEqual((1, "1 passed, 1 failed"), (self.count()[0], self.count()[1][-1]))

    def test_cases_and_scripts_without_a_report_are_counted(self):
        self.preset()
        self.checks(a="passed")
        code, lines = self.count("release")
        self.assertEqual((0, "3 passed, 0 failed, 1 skipped"), (code, lines[-1]))
        self.assertIn("  skipped release c.skipped", lines)

    def test_a_failed_case_and_a_crash_count_once_each(self):
        self.preset(FAILED, CTEST + "The following tests FAILED:\n\t  1 - suite (Failed)\n\t  3 - crash (SEGFAULT)\n")
        code, lines = self.count("release")
        self.assertEqual((1, "2 passed, 2 failed, 1 skipped"), (code, lines[-1]))


unittest.main(argv=sys.argv[:1])
