"""The bundled examples as a reader sees them: the used range that streaming readers get, and,
where LibreOffice is installed, the rows and printed pages that Calc makes of them; part numbers
that hold characters no defined name may hold."""
import json
import os
import re
import shutil
import subprocess
import sys
import unittest
import zipfile

import openpyxl
from openpyxl.utils import get_column_letter

from e2e_common import CliCase, Config

EXAMPLES = [
    ("item-structure.xml", "item-structure.xml"),
    ("item-collection.xml", "item-collection.xml"),
    ("document-structure.xml", "doc-structure.xml"),
    ("folder-structure.xml", "folder-structure.xml"),
]


def lo_rows_tool():
    return os.path.join(Config.source, "tests", "tools", "lo_rows.py")


def last_cell(path):
    """The last row and column of the sheet's XML that hold a cell record."""
    xml = zipfile.ZipFile(path).read("xl/worksheets/sheet1.xml").decode("utf-8")
    rows, cols = 0, 0
    for m in re.finditer(r'<c r="([A-Z]+)([0-9]+)"', xml):
        col = openpyxl.utils.column_index_from_string(m.group(1))
        rows, cols = max(rows, int(m.group(2))), max(cols, col)
    return rows, cols


class ExampleCase(CliCase):
    """Exports every bundled example once for the whole class."""

    @classmethod
    def setUpClass(cls):
        case = CliCase()
        case.setUp()
        cls.shared = case
        cls.workbooks = []
        for data, setup in EXAMPLES:
            path = case.copy_example(data)
            r = case.run_cli(path, case.settings,
                             os.path.join(case.examples, "setup", setup), ".xlsx")
            if r.returncode != 0:
                raise RuntimeError("export of %s failed: %s" % (data, r.stderr))
            cls.workbooks.append(r.stdout.strip())

    @classmethod
    def tearDownClass(cls):
        cls.shared.tearDown()


class TestUsedRange(ExampleCase):
    def test_dimension_is_a1_to_the_last_used_cell(self):
        for path in self.workbooks:
            with self.subTest(path=os.path.basename(path)):
                rows, cols = last_cell(path)
                ws = openpyxl.load_workbook(path, read_only=True).worksheets[0]
                self.assertEqual(ws.calculate_dimension(),
                                 "A1:%s%d" % (get_column_letter(cols), rows))

    def test_a_streaming_reader_sees_only_the_used_columns(self):
        for path in self.workbooks:
            with self.subTest(path=os.path.basename(path)):
                rows, cols = last_cell(path)
                ws = openpyxl.load_workbook(path, read_only=True).worksheets[0]
                self.assertLessEqual(ws.max_column, cols)
                widest = max(len(row) for row in ws.iter_rows())
                self.assertLessEqual(widest, cols)


@unittest.skipUnless(shutil.which("soffice") and shutil.which("pdftotext"),
                     "LibreOffice (soffice) or pdftotext is not installed")
class TestLibreOffice(ExampleCase):
    """One soffice run for all examples: row heights against Calc's fit, and each PDF."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.pdf_dir = os.path.join(cls.shared.tmp, "pdf")
        os.makedirs(cls.pdf_dir)
        r = subprocess.run(["/usr/bin/python3", lo_rows_tool(), "--pdf-dir", cls.pdf_dir,
                            *cls.workbooks], capture_output=True, text=True, timeout=600)
        if r.returncode == 3:
            raise unittest.SkipTest("python3-uno is not installed")
        if r.returncode != 0:
            raise RuntimeError("lo_rows.py failed: " + r.stderr)
        cls.rows = json.loads(r.stdout)

    def test_no_text_runs_out_of_its_row(self):
        # Each row is at least as high as the lines its texts take in Calc need.
        for path in self.workbooks:
            d = self.rows[path]
            for r, (stored, optimal) in enumerate(zip(d["stored"], d["optimal"]), start=1):
                with self.subTest(path=os.path.basename(path), row=r):
                    self.assertGreaterEqual(stored + 0.1, optimal)

    def test_every_page_carries_column_a(self):
        for path in self.workbooks:
            ws = openpyxl.load_workbook(path).worksheets[0]
            label = ws["A1"].value  # a print title of column A: on every page that has column A
            pdf = os.path.join(self.pdf_dir, os.path.splitext(os.path.basename(path))[0] + ".pdf")
            info = subprocess.run(["pdfinfo", pdf], capture_output=True, text=True).stdout
            pages = int(re.search(r"^Pages:\s+(\d+)", info, re.M).group(1))
            self.assertGreater(pages, 0)
            for page in range(1, pages + 1):
                text = subprocess.run(["pdftotext", "-f", str(page), "-l", str(page), pdf, "-"],
                                      capture_output=True, text=True).stdout
                with self.subTest(path=os.path.basename(path), page=page):
                    self.assertIn(label, text)


PART_NUMBERS = ["A[1]", "B]2", "C`3", "D^4", "E 5"]


class TestAnchorNames(CliCase):
    def test_part_numbers_with_brackets_keep_their_blocks_and_links(self):
        children = "".join(
            '<Item_PS find_number="%d" quantity="1"><Item id="%s" revision="A" '
            'description="Part %d"/></Item_PS>' % (10 * (i + 1), pn.replace("`", "&#96;"), i)
            for i, pn in enumerate(PART_NUMBERS))
        xml = ('<?xml version="1.0" encoding="UTF-8"?><Root_Element>'
               '<Item id="TOP[0]" revision="^" description="Top">' + children +
               "</Item></Root_Element>")
        folder = os.path.join(self.tmp, "data")
        os.makedirs(folder)
        data = os.path.join(folder, "brackets.xml")
        with open(data, "w", encoding="utf-8") as f:
            f.write(xml)
        r = self.run_cli(data, self.settings,
                         os.path.join(self.examples, "setup", "item-structure.xml"), ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertEqual(self.log_lines(), [])
        wb = openpyxl.load_workbook(r.stdout.strip())
        ws = wb.worksheets[0]
        names = {}
        for dn in wb.defined_names.definedName:
            names[dn.name] = dn.attr_text
        local = getattr(ws, "defined_names", None)
        if isinstance(local, dict):
            names.update({n: dn.attr_text for n, dn in local.items()})
        self.assertEqual(len(names), 1 + len(PART_NUMBERS))
        for name in names:
            self.assertRegex(name, r"^ID_[A-Za-z0-9_\\]+$")
        # Each main-panel row links to a name that exists, and the name marks its block.
        for i, pn in enumerate(["TOP[0]"] + PART_NUMBERS):
            cell = ws.cell(row=6 + i, column=2)
            self.assertEqual(cell.value, pn)
            self.assertIsNotNone(cell.hyperlink, pn)
            target = names.get(cell.hyperlink.location)
            self.assertIsNotNone(target, pn)
            block_row = int(re.search(r"\$(\d+):\$\d+$", target).group(1))
            self.assertEqual(ws.cell(row=block_row, column=2).value, pn)


if __name__ == "__main__":
    sys.exit("run through run_e2e.py")
