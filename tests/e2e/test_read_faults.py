"""Faults met while reading the data file, seen from outside: the exact bytes of the log, and
what the saved workbook shows (read back with openpyxl)."""
import os
import re

import openpyxl

from e2e_common import DATE, CliCase

SETUP = ("<SETUP><PROJECT>Demo</PROJECT><WORKBOOK_NAME></WORKBOOK_NAME>"
         "<EXPORTED_BY>me</EXPORTED_BY><EXPORT_DATE></EXPORT_DATE><OBJECT_TYPE>Item</OBJECT_TYPE>"
         "<SPACE_TYPE>STRUCTURE</SPACE_TYPE></SETUP>")

# One manufacturer and two vendor elements of one child node each. The first names the
# manufacturer, so it is one of the manufacturer's suppliers and the item's own list has room for
# one supplier only: the second one does not fit.
VENDORS = """<Root_Element>
  <Item id="P-1" revision="A" description="Pump">
    <Item_Manufacturer part_number="MPN-1" mnf_status="ok" country="DE"><Manufacturer id="M-1" name="Acme"/></Item_Manufacturer>
    <Item_Vendor supplier_part_number="SPN-1" mnf_part_number="MPN-1" lead_time="1w" price="2.50"><Vendor id="V-1" name="Distri"/></Item_Vendor>
    <Item_Vendor supplier_part_number="SPN-2" lead_time="3d" price="9"><Vendor id="V-2" name="Direct"/></Item_Vendor>
  </Item>
</Root_Element>
"""


class ReadFaultCase(CliCase):
    def export(self, text):
        folder = os.path.join(self.tmp, "data")
        os.makedirs(folder, exist_ok=True)
        self.data = os.path.join(folder, "export.xml")
        with open(self.data, "wb") as f:
            f.write(text.encode("utf-8"))
        return self.run_cli(self.data, self.settings, SETUP, ".xlsx")

    def log_bytes(self):
        path = os.path.join(self.export_dir, "ExportExcel.log")
        if not os.path.exists(path):
            return None
        with open(path, "rb") as f:
            return f.read()

    def assertLogBytes(self, *lines):
        """The log holds exactly these lines (DATE stands for the date-time), each with CR LF."""
        pattern = b"".join(line.encode("utf-8") + b"\r\n" for line in lines)
        self.assertRegex(self.log_bytes() or b"", re.compile(b"^" + pattern + b"$"))


class TestAFailingSupplierListKeepsWhatItRead(ReadFaultCase):
    def test_the_supplier_read_before_the_error_is_listed(self):
        r = self.export(VENDORS)
        self.assertEqual(r.returncode, 0, r.stderr)
        self.assertLogBytes(re.escape("Run-time error: Subscript out of range 9 ") + DATE +
                            re.escape(" in orvExportExcel:clsXMLPars[FillVNDOfItem]"))
        ws = openpyxl.load_workbook(self.data[:-4] + ".xlsx").worksheets[0]
        row = lambda n: [ws[f"{c}{n}"].value for c in "ABCDEF"]
        # The suppliers list, with the first vendor, then the manufacturer with its own.
        self.assertEqual(ws["A14"].value, "Suppliers")
        self.assertIn("A14:F14", {str(m) for m in ws.merged_cells.ranges})
        self.assertEqual(row(15), ["Sup. ID", "V-1", "SPN", "SPN-1", "Name", "Distri"])
        self.assertEqual(row(16), ["Lead Time", "1w", "Price", "2.50", None, None])
        self.assertEqual(ws["A17"].value, "Manufacturers and their Suppliers")
        self.assertEqual(row(18), ["Man. ID", "M-1", "MPN", "MPN-1", "Name", "Acme"])
        self.assertEqual(ws["A20"].value, "Suppliers of Manufacturer")
        self.assertEqual(row(21), ["Sup. ID", "V-1", "SPN", "SPN-1", "Name", "Distri"])
        values = [c.value for r in ws.iter_rows() for c in r]
        self.assertNotIn("V-2", values)


class TestAnEmptyRootSaysNothing(ReadFaultCase):
    def test_no_workbook_no_line(self):
        for text in ("<Root_Element/>", "<Root_Element>\n  \n</Root_Element>\n"):
            with self.subTest(text=text):
                r = self.export(text)
                self.assertEqual(r.returncode, 1)
                self.assertEqual(r.stdout, "")
                self.assertEqual(r.stderr, "")
                self.assertIsNone(self.log_bytes())
                self.assertEqual(os.listdir(os.path.dirname(self.data)), ["export.xml"])

    def test_a_comment_is_a_first_child_of_the_wrong_kind(self):
        r = self.export("<Root_Element><!-- nothing --></Root_Element>")
        self.assertEqual(r.returncode, 1)
        self.assertLogBytes(re.escape("Item is not the first child node of the root. Error in "
                                      "the XML structure: ") + DATE)


class TestLoadErrorPositionsCountCharacters(ReadFaultCase):
    def test_same_position_for_one_and_two_byte_letters(self):
        for word in ("eee", "\u00e9\u00e9\u00e9"):
            with self.subTest(word=word):
                path = os.path.join(self.export_dir, "ExportExcel.log")
                if os.path.exists(path):
                    os.remove(path)
                r = self.export("<Root_Element>\n  <B>" + word + "</C>\n</Root_Element>\n")
                self.assertEqual(r.returncode, 1)
                self.assertLogBytes(re.escape("The data file could not be parsed: Start-end tags "
                                              "mismatch on line 2 at position 11 ") + DATE)
