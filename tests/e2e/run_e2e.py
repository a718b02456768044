#!/usr/bin/python3
"""End-to-end tests: the command-line tool, and the saved workbooks read back with openpyxl.

Run by ctest as: run_e2e.py --cli PATH --source REPO_ROOT
"""
import argparse
import os
import re
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(1, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

import testreport
from e2e_common import DATE, CliCase, Config


class TestCommandLine(CliCase):
    def test_help_exits_zero_and_shows_usage(self):
        r = self.run_cli("--help")
        self.assertEqual(r.returncode, 0)
        self.assertIn("DATA_XML", r.stdout)
        self.assertIn("SETTINGS_XML", r.stdout)
        self.assertIn("--refdes-grouping", r.stdout)

    def test_version(self):
        r = self.run_cli("--version")
        self.assertEqual(r.returncode, 0)
        self.assertRegex(r.stdout.strip(), r"^orv-export-excel \d+\.\d+\.\d+$")

    def test_missing_arguments_is_a_usage_error(self):
        r = self.run_cli("only-one.xml")
        self.assertEqual(r.returncode, 2)
        self.assertIn("required", r.stderr)
        self.assertIn("Usage:", r.stderr)

    def test_unknown_grouping_is_a_usage_error(self):
        r = self.run_cli("--refdes-grouping", "odd", "a.xml", self.settings, "<S/>")
        self.assertEqual(r.returncode, 2)

    def test_unreadable_setup_file_is_a_usage_error(self):
        r = self.run_cli("a.xml", self.settings, os.path.join(self.tmp, "no-setup.xml"))
        self.assertEqual(r.returncode, 2)
        self.assertIn("cannot read setup file", r.stderr)
        self.assertEqual(self.log_lines(), [])

    def test_missing_settings_fails_with_the_log_line_on_stderr(self):
        missing = os.path.join(self.tmp, "missing-settings.xml")
        r = self.run_cli("a.xml", missing, "<SETUP/>")
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stdout, "")
        lines = self.log_lines()
        self.assertEqual(len(lines), 1)
        self.assertRegex(lines[0], "^INI FILE " + re.escape(missing) + " WAS NOT FOUND " + DATE + "$")
        self.assertEqual(r.stderr.splitlines(), lines)

    def test_missing_data_file_fails_with_the_configured_message(self):
        missing = os.path.join(self.tmp, "nothing.xml")
        setup = os.path.join(self.examples, "setup", "item-structure.xml")
        r = self.run_cli(missing, self.settings, setup)
        self.assertEqual(r.returncode, 1)
        self.assertRegex(r.stderr.strip(),
                         "^The data file " + re.escape(missing) + " was not found. " + DATE + "$")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cli", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("-k", dest="patterns", action="append",
                        help="run only the tests whose name holds this text (as unittest's -k)")
    args = parser.parse_args()
    Config.cli = os.path.abspath(args.cli)
    Config.source = os.path.abspath(args.source)
    loader = unittest.TestLoader()
    if args.patterns:
        loader.testNamePatterns = ["*%s*" % p for p in args.patterns]
    suite = unittest.TestSuite()
    suite.addTests(loader.loadTestsFromModule(sys.modules[__name__]))
    # The workbook read-back tests live beside this file.
    here = os.path.dirname(os.path.abspath(__file__))
    for name in sorted(os.listdir(here)):
        if name.startswith("test_") and name.endswith(".py"):
            suite.addTests(loader.loadTestsFromModule(__import__(name[:-3])))
    return testreport.run(suite, "e2e")


if __name__ == "__main__":
    sys.exit(main())
