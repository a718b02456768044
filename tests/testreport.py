"""Runs a unittest suite and writes what happened to each test as a JUnit-style XML report (the
form GoogleTest writes), so that one summary counts the tests, failures and skips of every
suite: see skip_summary.py. The report goes to $ORV_TEST_REPORTS/NAME.xml when that is set."""
import os
import sys
import unittest
from xml.sax.saxutils import quoteattr


class RecordingResult(unittest.TextTestResult):
    def __init__(self, *args, **kwargs):
        super().__init__(*args, **kwargs)
        self.outcomes = []  # (class name, test name, outcome, message)

    @staticmethod
    def _names(test):
        parts = test.id().split(".")
        return ".".join(parts[-2:-1]) or "tests", parts[-1]

    def _record(self, test, outcome, message=""):
        self.outcomes.append((*self._names(test), outcome, message))

    def addSuccess(self, test):
        super().addSuccess(test)
        self._record(test, "passed")

    def addFailure(self, test, err):
        super().addFailure(test, err)
        self._record(test, "failed", self._exc_info_to_string(err, test))

    def addError(self, test, err):
        super().addError(test, err)
        self._record(test, "failed", self._exc_info_to_string(err, test))

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        self._record(test, "skipped", reason)

    def addSubTest(self, test, subtest, err):
        super().addSubTest(test, subtest, err)
        if err is not None:
            self._record(subtest, "failed", self._exc_info_to_string(err, test))

    def addExpectedFailure(self, test, err):
        super().addExpectedFailure(test, err)
        self._record(test, "passed")

    def addUnexpectedSuccess(self, test):
        super().addUnexpectedSuccess(test)
        self._record(test, "failed", "unexpected success")


def write_report(name, result):
    folder = os.environ.get("ORV_TEST_REPORTS")
    if not folder:
        return
    os.makedirs(folder, exist_ok=True)
    lines = ['<?xml version="1.0" encoding="UTF-8"?>', "<testsuites name=%s>" % quoteattr(name),
             "<testsuite name=%s>" % quoteattr(name)]
    for classname, test, outcome, message in result.outcomes:
        head = "<testcase classname=%s name=%s" % (quoteattr(classname), quoteattr(test))
        if outcome == "passed":
            lines.append(head + ' result="completed"/>')
        elif outcome == "skipped":
            lines.append(head + ' result="skipped"><skipped message=%s/></testcase>'
                         % quoteattr(message))
        else:
            lines.append(head + ' result="completed"><failure message=%s/></testcase>'
                         % quoteattr(message[:2000]))
    lines += ["</testsuite>", "</testsuites>"]
    with open(os.path.join(folder, name + ".xml"), "w", encoding="utf-8") as f:
        f.write("\n".join(lines) + "\n")


def run(suite, name, verbosity=2):
    """Runs the suite, prints the counts, writes the report; returns the exit status."""
    runner = unittest.TextTestRunner(verbosity=verbosity, resultclass=RecordingResult)
    result = runner.run(suite)
    write_report(name, result)
    failed = len(result.failures) + len(result.errors) + len(result.unexpectedSuccesses)
    skipped = len(result.skipped)
    print(f"{result.testsRun - failed - skipped} passed, {failed} failed, {skipped} skipped",
          file=sys.stderr)
    return 0 if result.wasSuccessful() else 1
