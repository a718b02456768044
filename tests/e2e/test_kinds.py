"""Every kind of export not covered by test_workbooks.py, read back by an independent reader and
checked against the hand-written expectations of expected_kinds.py: caption block, main panel,
hyperlinks and the names they target, detail blocks, merged areas, file links, print area."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest

from e2e_common import Config
from expected_kinds import KINDS, Like
from readers import READERS, cell_name, split_cell
from test_workbooks import setup_xml


class KindCase(unittest.TestCase):
    """One export of one kind, read back once by one reader; the tests check parts of it."""

    expected = None
    reader = None

    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="orv-e2e-kind-")
        export_dir = os.path.join(cls.tmp, "Korvane", "Addin Modules", "Zenfold", "Export")
        os.makedirs(export_dir)
        cls.log = os.path.join(export_dir, "ExportExcel.log")
        folder = os.path.join(cls.tmp, "data")
        os.makedirs(folder)
        e = cls.expected
        cls.data = os.path.join(folder, e["data"])
        shutil.copy(os.path.join(Config.source, "tests", "data", e["data"]), cls.data)
        cls.result = subprocess.run(
            [Config.cli, cls.data, os.path.join(Config.source, "examples", "settings.xml"),
             setup_xml(e["object_type"], e["space_type"]), ".xlsx"],
            capture_output=True, text=True, env=dict(os.environ, APPDATA=cls.tmp),
            stdin=subprocess.DEVNULL, timeout=600)
        cls.book = None
        if cls.result.returncode == 0:
            cls.book = cls.reader(cls.result.stdout.strip())

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def setUp(self):
        self.assertEqual(self.result.returncode, 0, self.result.stderr)

    # Helpers -------------------------------------------------------------------------------
    def first_block_row(self):
        return min(link.block_row for link in self.expected["links"])

    def assertCell(self, row, col, want):
        got = self.book.value(row, col)
        where = cell_name(row, col)
        if isinstance(want, Like):
            self.assertIsInstance(got, str, where)
            self.assertRegex(got, want.pattern, where)
        elif isinstance(want, int):
            # Levels are numbers, not texts.
            self.assertIsInstance(got, (int, float), where)
            self.assertNotIsInstance(got, bool, where)
            self.assertEqual(got, want, where)
        else:
            self.assertEqual(got, want, where)

    def assertRows(self, first, last):
        """Rows first..last (inclusive) hold exactly the expected cells; rows not listed are
        empty."""
        rows = self.expected["rows"]
        for r in range(first, last + 1):
            want = rows[r].values if r in rows else [None] * 6
            with self.subTest(row=r):
                for col, v in enumerate(want, start=1):
                    self.assertCell(r, col, v)

    # Tests ---------------------------------------------------------------------------------
    def test_export_writes_the_workbook_and_no_log_line(self):
        self.assertEqual(self.result.stdout.strip(), self.data[:-4] + ".xlsx")
        self.assertFalse(os.path.exists(self.log) and os.path.getsize(self.log) > 0,
                         "log lines were written")
        self.assertEqual(self.result.stderr, "")
        self.assertEqual(self.book.sheet_count(), 1)

    def test_caption_block_and_main_panel(self):
        self.assertRows(1, self.first_block_row() - 1)

    def test_detail_blocks(self):
        self.assertRows(self.first_block_row(), self.expected["last_row"])

    def test_nothing_outside_the_expected_rows_and_columns(self):
        last = self.expected["last_row"]
        stray = sorted(cell_name(r, c) for r, c in self.book.filled_cells()
                       if c > 6 or r >= last)
        self.assertEqual(stray, [])

    def test_merged_areas(self):
        want = set()
        for r, row in self.expected["rows"].items():
            for span in row.merged:
                a, b = span.split(":")
                want.add(f"{a}{r}:{b}{r}")
        self.assertEqual(self.book.merged(), want)

    def test_each_main_panel_link_points_at_its_block(self):
        names = self.book.names()
        links = self.book.links()
        for link in self.expected["links"]:
            with self.subTest(link=link.cell):
                self.assertEqual(links.get(link.cell), ("internal", link.name))
                row, col = split_cell(link.cell)
                self.assertEqual(self.book.value(row, col), link.ident)
                self.assertEqual(names.get(link.name), link.block_row)
                # The named row is the header of that object's block.
                self.assertEqual(self.book.value(link.block_row, 2), link.ident)
                self.assertIn(self.book.value(link.block_row, 1),
                              ("Item ID", "Doc. ID", "Folder ID"))
                # The expectations agree with themselves: the block row was written out.
                self.assertEqual(self.expected["rows"][link.block_row].values[1], link.ident)

    def test_defined_names_are_the_anchors_of_the_listed_objects(self):
        self.assertEqual(set(self.book.names()), {link.name for link in self.expected["links"]})

    def test_file_names_link_to_the_files_and_nothing_else_is_linked(self):
        links = self.book.links()
        files = self.expected["files"]
        for ref, address in files.items():
            with self.subTest(cell=ref):
                self.assertEqual(links.get(ref), ("external", self.book.external_target(address)))
                row, col = split_cell(ref)
                self.assertEqual(self.book.value(row, col), address)
                self.assertEqual(self.book.value(row, col - 1), "File Name")
        want = set(files) | {link.cell for link in self.expected["links"]}
        self.assertEqual(set(links), want)

    def test_print_area_ends_after_the_last_block(self):
        self.assertEqual(self.book.print_area_last_row(), self.expected["last_row"])


def _make_cases():
    """One test class per kind and reader, named like TestItemCollectionOpenpyxl."""
    made = {}
    for kind_name, expected in KINDS.items():
        for reader in READERS:
            name = ("Test" + "".join(w.capitalize() for w in re.split(r"\W+", kind_name)) +
                    reader.name.capitalize())
            made[name] = type(name, (KindCase,), {"expected": expected, "reader": reader})
    return made


globals().update(_make_cases())
del KindCase  # only its subclasses run
