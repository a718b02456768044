"""The options of an export as they show in the workbook: the grouping of reference designators
chosen on the command line (the library's own grouping test is in tests/driver)."""
import os
import shutil

from e2e_common import CliCase, Config
from expected_kinds import REFDES
from readers import READERS
from test_workbooks import setup_xml


class TestRefdesGrouping(CliCase):
    def export(self, *options):
        folder = os.path.join(self.tmp, "data")
        os.makedirs(folder, exist_ok=True)
        data = os.path.join(folder, REFDES["data"])
        shutil.copy(os.path.join(Config.source, "tests", "data", REFDES["data"]), data)
        r = self.run_cli(*options, data, self.settings,
                         setup_xml(REFDES["object_type"], REFDES["space_type"]), ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(self.log_lines(), [])
        return r.stdout.strip()

    def assertDesignators(self, path, want):
        for reader in READERS:
            with self.subTest(reader=reader.name):
                book = reader(path)
                for row, expected in REFDES["child_rows"].items():
                    self.assertEqual([book.value(row, c) for c in range(1, 7)], expected.values)
                r = REFDES["designator_row"]
                self.assertEqual([book.value(r, c) for c in range(1, 7)],
                                 ["Description", REFDES["description"], "Reference Designators",
                                  want, None, None])
                self.assertIn(f"D{r}:F{r}", book.merged())

    def test_default_groups_into_ranges(self):
        self.assertDesignators(self.export(), REFDES["grouped"][None])

    def test_ranges_option_is_the_default(self):
        self.assertDesignators(self.export("--refdes-grouping", "ranges"),
                               REFDES["grouped"]["ranges"])

    def test_none_keeps_the_designators_as_exported(self):
        self.assertDesignators(self.export("--refdes-grouping", "none"),
                               REFDES["grouped"]["none"])
