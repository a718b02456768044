"""Exports of small crafted data files, read back with openpyxl: cell texts and positions,
fonts, fills, borders, merged areas, sizes, defined names, hyperlinks and page set-up. Every
test runs twice: on the .xlsx export, and on the .xls export of the same data read back with xlrd
(through xls_view, which shows it the way openpyxl shows an .xlsx)."""
import os
import re
import shutil
import subprocess
import unittest

import openpyxl

import xls_view
from e2e_common import CliCase, Config

BLACK, WHITE, GREY25, GREY40 = "FF000000", "FFFFFFFF", "FFC0C0C0", "FF969696"


def setup_xml(object_type, space_type, name=""):
    return ("<SETUP><PROJECT>Demo</PROJECT><WORKBOOK_NAME>" + name + "</WORKBOOK_NAME>"
            "<EXPORTED_BY>me</EXPORTED_BY><EXPORT_DATE></EXPORT_DATE>"
            "<OBJECT_TYPE>" + object_type + "</OBJECT_TYPE><SPACE_TYPE>" + space_type +
            "</SPACE_TYPE></SETUP>")


class WorkbookCase(CliCase):
    data_name = None
    object_type = None
    space_type = None
    ext = ".xlsx"

    def setUp(self):
        super().setUp()
        folder = os.path.join(self.tmp, "data")
        os.makedirs(folder)
        self.data = os.path.join(folder, self.data_name)
        shutil.copy(os.path.join(Config.source, "tests", "data", self.data_name), self.data)
        r = self.run_cli(self.data, self.settings, setup_xml(self.object_type, self.space_type),
                         self.ext)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.path = r.stdout.strip()
        self.assertEqual(self.path, self.data[:-4] + self.ext)
        self.assertEqual(self.log_lines(), [])
        if self.ext == ".xls":
            self.wb = xls_view.load_workbook(self.path)
            self.assertEqual(self.wb.facts.problems, [])
        else:
            self.wb = openpyxl.load_workbook(self.path)
        self.ws = self.wb.worksheets[0]

    # Helpers -----------------------------------------------------------------------------
    def v(self, ref):
        return self.ws[ref].value

    def row_values(self, row, first="A", last="F"):
        return [self.ws[f"{chr(c)}{row}"].value for c in range(ord(first), ord(last) + 1)]

    def assertRow(self, row, expected):
        got = self.row_values(row, "A", chr(ord("A") + len(expected) - 1))
        self.assertEqual(got, expected, f"row {row}")

    def merged(self):
        return {str(r) for r in self.ws.merged_cells.ranges}

    def names(self):
        """Defined names: name -> (local sheet index, refers-to)."""
        out = {}
        for dn in self.wb.defined_names.definedName:
            out[dn.name] = (dn.localSheetId, dn.attr_text)
        return out

    def assertBand(self, row, last_col="F", merged=True, borders=True):
        if merged:
            self.assertIn(f"A{row}:{last_col}{row}", self.merged())
        for col in "ABCDEF"[: "ABCDEF".index(last_col) + 1]:
            c = self.ws[f"{col}{row}"]
            if borders:
                self.assertEqual(c.border.top.style, "thin", f"{col}{row} top")
                self.assertEqual(c.border.bottom.style, "thin", f"{col}{row} bottom")

    def assertBoldItalic(self, ref):
        f = self.ws[ref].font
        self.assertTrue(f.b and f.i, ref)

    def assertBold(self, ref):
        f = self.ws[ref].font
        self.assertTrue(f.b and not f.i, ref)

    def assertPageSetup(self, last_row):
        self.assertEqual(self.ws.page_setup.orientation, "landscape")
        self.assertIn(self.ws.print_title_rows, ("1:3", "$1:$3"))
        self.assertEqual(self.ws.oddFooter.center.text, "&P")
        area = self.ws.print_area
        area = area[0] if isinstance(area, list) else area
        self.assertTrue(str(area).endswith(f"$A$1:$F${last_row}"), area)


class TestItemStructureWorkbook(WorkbookCase):
    data_name = "e2e-item-structure.xml"
    object_type = "Item"
    space_type = "STRUCTURE"

    def test_caption_block(self):
        self.assertRow(1, ["Project", "Workbook", "Exported by", "Export date"])
        self.assertRow(2, ["Demo", None, "me"])
        self.assertRegex(self.v("D2"), r"^\d{2}/\d{2}/\d{4} \d{1,2}:\d{2}:\d{2} (AM|PM)$")
        self.assertTrue(self.ws["A1"].font.b)
        self.assertFalse(self.ws["A2"].font.b)
        self.assertRow(3, [None] * 6)

    def test_main_panel_bar_and_headings(self):
        self.assertEqual(self.v("A4"), "Main Panel: Item Structure")
        self.assertIn("A4:F4", self.merged())
        a4 = self.ws["A4"]
        self.assertTrue(a4.font.b)
        self.assertEqual(a4.font.color.rgb, WHITE)
        self.assertEqual(a4.font.sz, 14)
        self.assertEqual(a4.fill.fgColor.rgb, BLACK)
        self.assertEqual(self.ws.row_dimensions[4].height, 18)
        self.assertBand(4)
        self.assertRow(5, ["Level", "Item ID", "Find No", "Description", "Quantity", "Revision"])
        self.assertTrue(all(self.ws[f"{c}5"].font.b for c in "ABCDEF"))

    def test_main_panel_rows(self):
        self.assertRow(6, [0, "A-1", None, "Assembly", None, "B"])
        self.assertRow(7, [1, "C-1", "010", "Child one", "2", "A"])
        self.assertRow(8, [1, "C-2", "020", "Child two", "1", None])
        self.assertIsInstance(self.v("A7"), int)  # levels are numbers
        self.assertEqual(self.ws["C7"].number_format, "@")  # everything else is text
        self.assertRow(9, [None] * 6)

    def test_property_panel_bar(self):
        self.assertEqual(self.v("A10"), "Property Panel: Items")
        self.assertIn("A10:F10", self.merged())
        self.assertEqual(self.ws["A10"].fill.fgColor.rgb, BLACK)
        self.assertEqual(self.ws.row_dimensions[10].height, 18)

    def test_item_header_and_attributes(self):
        self.assertRow(11, ["Item ID", "A-1", "Revision", "B", "Description", "Assembly"])
        for col in "ABCDEF":
            self.assertEqual(self.ws[f"{col}11"].fill.fgColor.rgb, GREY25)
        self.assertBand(11, merged=False)
        self.assertNotIn("A11:F11", self.merged())
        self.assertBold("A11")
        self.assertBold("C11")
        self.assertBold("E11")
        self.assertEqual(self.v("A12"), "Attributes")
        self.assertBoldItalic("A12")
        self.assertBand(12)
        # Three pairs to a row, filled down the columns first.
        self.assertRow(13, ["Status", "Released", "Unit", "ea", "Material", "Steel"])
        self.assertRow(14, ["Owner", "ann", "Weight", "5", None, None])
        self.assertBold("A13")
        self.assertBold("C14")
        self.assertRow(15, [None] * 6)

    def test_part_list_in_document_order(self):
        self.assertEqual(self.v("A16"), "Part List")
        self.assertBoldItalic("A16")
        self.assertBand(16)
        self.assertRow(17, ["Child", "C-1", "Find No", "010", "Quantity", "2"])
        self.assertRow(18, ["Description", "Child one", "Reference Designators", "R1-R3"])
        self.assertIn("D18:F18", self.merged())
        self.assertEqual(self.ws["D18"].border.bottom.style, None)
        self.assertEqual(self.v("A19"), "Local Alternative Items of Child")
        self.assertBoldItalic("A19")
        self.assertIn("A19:B19", self.merged())
        self.assertEqual(self.ws["A19"].font.color.rgb, GREY40)
        self.assertEqual(self.v("C19"), "C-1")
        self.assertEqual(self.ws["C19"].font.color.rgb, GREY40)
        self.assertRow(20, ["Alternate ID", "C-1X"])
        self.assertRow(21, [None] * 6)
        self.assertRow(22, ["Child", "C-2", "Find No", "020", "Quantity", "1"])
        self.assertRow(23, ["Description", "Child two", "Reference Designators", None])
        self.assertIn("D23:F23", self.merged())

    def test_documents_with_files(self):
        self.assertEqual(self.v("A24"), "Documents")
        self.assertBoldItalic("A24")
        self.assertBand(24)
        self.assertRow(25, ["Doc. ID", "D-1", "Revision", "A", "Description", "Drawing"])
        self.assertRow(26, ["Type", "DWG", "Status", "Released", "Author", "bob"])
        self.assertEqual(self.v("A27"), "Files of Document")
        self.assertEqual(self.ws["A27"].font.color.rgb, GREY40)
        self.assertBoldItalic("A27")
        self.assertBand(27)
        self.assertRow(28, ["File Name", "/files/d1.pdf"])
        link = self.ws["B28"].hyperlink
        self.assertIsNotNone(link)
        # A local absolute path is written as a file URL, which spreadsheet applications open.
        self.assertEqual(link.target, "file:///files/d1.pdf")
        self.assertRow(29, ["File Type", "PDF", "Size", "12 KB", None, None])
        self.assertRow(30, [None] * 6)

    def test_folders_manufacturers_and_suppliers(self):
        self.assertEqual(self.v("A31"), "Folders")
        self.assertRow(32, ["Folder ID", "F-1", "Revision", "1", "Description", "Project"])
        self.assertRow(33, ["Owner", "ann", "Created", "2026", None, None])
        self.assertEqual(self.v("A34"), "Manufacturers")
        self.assertBoldItalic("A34")
        self.assertRow(35, ["Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme"])
        self.assertEqual(self.v("A36"), "Suppliers")
        self.assertRow(37, ["Sup. ID", "V-9", "SPN", "SPN-9", "Name", "Distri"])
        self.assertRow(38, ["Lead Time", "5d", "Price", "1.20", None, None])

    def test_child_blocks(self):
        self.assertRow(39, ["Item ID", "C-1", "Revision", "A", "Description", "Child one"])
        self.assertEqual(self.v("A40"), "Attributes")
        self.assertRow(41, ["Status", "Draft", "Unit", None, "Material", None])
        self.assertRow(42, ["Owner", None, "Weight", None, None, None])
        self.assertRow(44, ["Item ID", "C-2", "Revision", None, "Description", "Child two"])
        self.assertIsNone(self.ws.cell(row=49, column=1).value)

    def test_names_and_hyperlinks(self):
        names = self.names()
        expected = {"ID_A_451_B_0": 11, "ID_C_451_A_1": 39, "ID_C_452__2": 44}
        self.assertEqual(set(names), set(expected))
        for name, row in expected.items():
            local, refers = names[name]
            self.assertEqual(local, 0)  # local to the first worksheet
            self.assertEqual(refers, f"{self.ws.title}!${row}:${row}")
        for row, name in ((6, "ID_A_451_B_0"), (7, "ID_C_451_A_1"), (8, "ID_C_452__2")):
            link = self.ws[f"B{row}"].hyperlink
            self.assertIsNotNone(link, row)
            self.assertEqual(link.location, name)
            self.assertIsNone(self.ws[f"A{row}"].hyperlink)

    def test_sheet_format_and_page_setup(self):
        self.assertEqual(len(self.wb.worksheets), 1)
        for col in range(1, 7):
            dims = [d for d in self.ws.column_dimensions.values() if d.min <= col <= d.max]
            self.assertEqual(len(dims), 1, col)
            self.assertAlmostEqual(dims[0].width, 21, delta=1)
        for ref in ("A4", "A11", "D18", "B28", "A40"):
            self.assertEqual(self.ws[ref].alignment.vertical, "top", ref)
            self.assertEqual(self.ws[ref].alignment.horizontal, "left", ref)
            self.assertTrue(self.ws[ref].alignment.wrap_text, ref)
        self.assertPageSetup(49)


class TestDocumentCollectionWorkbook(WorkbookCase):
    data_name = "e2e-doc-collection.xml"
    object_type = "Document"
    space_type = "COLLECTION"

    def test_main_panel_without_level_column(self):
        self.assertEqual(self.v("A4"), "Main Panel: Document Collection")
        self.assertRow(5, ["Doc. ID", "Revision", "Description", "Type", "Status", None])
        self.assertRow(6, ["D-1", "A", "Drawing", "DWG", "Released", None])
        self.assertRow(7, ["D 2", "C", "Test procedure", "SPEC", "Draft", None])
        self.assertEqual(self.v("A9"), "Property Panel: Documents")

    def test_hyperlinks_in_column_a_point_at_their_blocks(self):
        names = self.names()
        self.assertEqual(set(names), {"ID_D_451_A_0", "ID_D_322_C_1"})
        self.assertEqual(self.ws["A6"].hyperlink.location, "ID_D_451_A_0")
        self.assertEqual(self.ws["A7"].hyperlink.location, "ID_D_322_C_1")
        first = int(names["ID_D_451_A_0"][1].split("$")[-1])
        self.assertEqual(first, 10)
        self.assertRow(first, ["Doc. ID", "D-1", "Revision", "A", "Description", "Drawing"])

    def test_files_are_external_hyperlinks(self):
        targets = {}
        for row in self.ws.iter_rows():
            for c in row:
                if c.hyperlink is not None and c.hyperlink.target:
                    targets[c.value] = c.hyperlink.target
        self.assertEqual(targets.get("https://plm.example.com/files/d1.pdf"),
                         "https://plm.example.com/files/d1.pdf")
        self.assertIn("\\\\server\\share\\d1.dwg", targets)

    def test_related_items_of_a_document(self):
        second = int(self.names()["ID_D_322_C_1"][1].split("$")[-1])
        rows = {self.ws.cell(row=r, column=1).value: r for r in range(second, second + 10)}
        self.assertIn("Items", rows)
        r = rows["Items"]
        self.assertBoldItalic(f"A{r}")
        self.assertRow(r + 1, ["Item ID", "P-7", "Revision", "B", "Description", "Bracket"])


class TestFolderStructureWorkbook(WorkbookCase):
    data_name = "e2e-folder-structure.xml"
    object_type = "Folder"
    space_type = "STRUCTURE"

    def test_main_panel_and_child_folders(self):
        self.assertEqual(self.v("A4"), "Main Panel: Folder Structure")
        self.assertRow(5, ["Level", "Folder ID", "Revision", "Description", "Owner", None])
        self.assertRow(6, [0, "F-1", "1", "Programme", "ann", None])
        self.assertRow(7, [1, "F-2", "1", "Work package", "bob", None])
        names = self.names()
        self.assertEqual(set(names), {"ID_F_451_1_0", "ID_F_452_1_1"})
        self.assertEqual(self.ws["B6"].hyperlink.location, "ID_F_451_1_0")
        self.assertEqual(self.ws["B7"].hyperlink.location, "ID_F_452_1_1")
        first = int(names["ID_F_451_1_0"][1].split("$")[-1])
        self.assertRow(first, ["Folder ID", "F-1", "Revision", "1", "Description", "Programme"])
        column_a = [self.ws.cell(row=r, column=1).value for r in range(first, first + 8)]
        self.assertIn("Child Folders", column_a)


class TestItemStructureWorkbookXls(TestItemStructureWorkbook):
    ext = ".xls"


class TestDocumentCollectionWorkbookXls(TestDocumentCollectionWorkbook):
    ext = ".xls"


class TestFolderStructureWorkbookXls(TestFolderStructureWorkbook):
    ext = ".xls"


class TestLibreOfficeOpensTheDemoWorkbook(CliCase):
    def test_converts_to_csv(self):
        soffice = shutil.which("soffice") or shutil.which("libreoffice")
        if not soffice:
            self.skipTest("LibreOffice (soffice) is not installed: the workbook was not opened "
                          "in Calc")
        data = self.copy_example("item-structure.xml")
        r = self.run_cli(data, self.settings,
                         os.path.join(self.examples, "setup", "item-structure.xml"), ".xlsx")
        self.assertEqual(r.returncode, 0, r.stderr)
        out = os.path.join(self.tmp, "csv")
        conv = subprocess.run([soffice, "--headless", "--convert-to", "csv", "--outdir", out,
                               r.stdout.strip()], capture_output=True, text=True, timeout=300,
                              env=dict(os.environ, HOME=self.tmp))
        self.assertEqual(conv.returncode, 0, conv.stderr)
        csv_files = os.listdir(out)
        self.assertEqual(len(csv_files), 1)
        with open(os.path.join(out, csv_files[0]), encoding="utf-8", errors="replace") as f:
            text = f.read()
        self.assertIn("Main Panel: Item Structure", text)
        self.assertIn("Property Panel: Items", text)
