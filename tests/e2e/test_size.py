"""Exports larger than one worksheet: the property panel continues on new sheets, block by block,
and the main-panel links past a sheet's hyperlink limit are HYPERLINK formulas. The workbooks are
read back as a reader sees them: openpyxl for the cells and the defined names, the sheet's XML
for its hyperlinks; xlrd for the .xls."""
import os
import re
import zipfile
import xml.etree.ElementTree as ET

import openpyxl

from e2e_common import DATE, CliCase

NS = {"m": "http://schemas.openxmlformats.org/spreadsheetml/2006/main",
      "r": "http://schemas.openxmlformats.org/officeDocument/2006/relationships"}
SETUP = ("<SETUP><PROJECT>Demo</PROJECT><WORKBOOK_NAME>{name}</WORKBOOK_NAME><EXPORTED_BY>me"
         "</EXPORTED_BY><EXPORT_DATE/><OBJECT_TYPE>Item</OBJECT_TYPE>"
         "<SPACE_TYPE>{space}</SPACE_TYPE></SETUP>")
LINK_FORMULA = re.compile(r'^=HYPERLINK\("#(.+)","(.*)"\)$')
CELL_REF = re.compile(r"^(?:'((?:[^']|'')+)'|([^'!]+))!\$?([A-Z]+)\$?(\d+)$")


def item(i, inner=""):
    return ('<Item id="P%d" revision="A" description="part %d" status="Released">%s</Item>'
            % (i, i, inner))


def write_structure(path, top, per):
    """A root with TOP children of PER leaves each: 1 + TOP * (PER + 1) objects."""
    def ps(inner):
        return '<Item_PS find_number="10" quantity="1">%s</Item_PS>' % inner

    with open(path, "w", encoding="utf-8") as f:
        f.write('<Root_Element><Item id="ROOT" revision="A" description="root">')
        n = 0
        for _ in range(top):
            leaves = "".join(ps(item(n + 1 + k)) for k in range(per))
            f.write(ps(item(n, leaves)))
            n += per + 1
        f.write("</Item></Root_Element>")
    return 1 + top * (per + 1)


def write_collection(path, n):
    with open(path, "w", encoding="utf-8") as f:
        f.write("<Root_Element>")
        for i in range(n):
            f.write(item(i))
        f.write("</Root_Element>")


class Workbook:
    """Columns A and B of every sheet, the sheets' local names and hyperlinks, the print set-up."""

    def __init__(self, path):
        wb = openpyxl.load_workbook(path, read_only=True)
        self.names = wb.sheetnames
        self.cells = {}
        for ws in wb.worksheets:
            rows = {}
            for r, row in enumerate(ws.iter_rows(max_col=2, values_only=True), start=1):
                if row and (row[0] is not None or (len(row) > 1 and row[1] is not None)):
                    rows[r] = (row[0], row[1] if len(row) > 1 else None)
            self.cells[ws.title] = rows
        wb.close()
        z = zipfile.ZipFile(path)
        book = ET.fromstring(z.read("xl/workbook.xml"))
        rels = ET.fromstring(z.read("xl/_rels/workbook.xml.rels"))
        targets = {r.get("Id"): r.get("Target") for r in rels}
        self.local_names = {n: {} for n in self.names}  # sheet -> {NAME: row}
        self.print_titles, self.print_areas = {}, {}
        for d in book.iterfind("m:definedNames/m:definedName", NS):
            sheet = self.names[int(d.get("localSheetId"))]
            name, ref = d.get("name"), d.text
            if name == "_xlnm.Print_Titles":
                self.print_titles[sheet] = ref.split("!")[-1]
            elif name == "_xlnm.Print_Area":
                self.print_areas[sheet] = ref.split("!")[-1]
            else:
                self.local_names[sheet][name.upper()] = int(re.search(r"\$(\d+)", ref).group(1))
        self.links = {}  # sheet -> {cell: location}
        for s in book.iterfind("m:sheets/m:sheet", NS):
            part = "xl/" + targets[s.get("{%s}id" % NS["r"])]
            links = {}
            for _, el in ET.iterparse(z.open(part)):
                if el.tag == "{%s}hyperlink" % NS["m"]:
                    links[el.get("ref")] = el.get("location")
                el.clear()
            self.links[s.get("name")] = links

    def target(self, sheet, location):
        """The (sheet, row) a link's location leads to."""
        m = CELL_REF.match(location)
        if m:
            name = (m.group(1) or "").replace("''", "'") or m.group(2)
            return name, int(m.group(4))
        return sheet, self.local_names[sheet][location.upper()]


class SizeCase(CliCase):
    def export(self, data, space, ext):
        r = self.run_cli("-q", data, self.settings, SETUP.format(name="big", space=space), ext)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r.stdout.strip()

    def check_links(self, wb, id_col, first_row, count):
        """Every main-panel row from FIRST_ROW links, by a hyperlink or a formula, to the header
        row of its object's block: the row whose column B holds the object's identifier."""
        main = wb.names[0]
        links = wb.links[main]
        formulas = 0
        for r in range(first_row, first_row + count):
            ref = "%s%d" % (id_col, r)
            value = wb.cells[main][r][0 if id_col == "A" else 1]
            if ref in links:
                sheet, row = wb.target(main, links[ref])
                shown = value
            else:
                m = LINK_FORMULA.match(value or "")
                self.assertIsNotNone(m, "%s holds neither a hyperlink nor a formula: %r"
                                     % (ref, value))
                sheet, row = wb.target(main, m.group(1))
                shown = m.group(2)
                formulas += 1
            self.assertEqual(wb.cells[sheet][row][1], shown, "%s leads to %s!%d" % (ref, sheet, row))
        self.assertLessEqual(len(links), 65530)
        return formulas

    def check_continuation_sheets(self, wb):
        first = wb.names[0]
        self.assertGreater(len(wb.names), 1)
        # The first sheet prints down to its own last row, not to the end of the blocks that
        # went on.
        self.assertEqual(wb.print_areas.get(first), "$A$1:$F$%d" % max(wb.cells[first]))
        for k, sheet in enumerate(wb.names[1:], start=2):
            self.assertEqual(sheet, "%s (%d)" % (first, k))
            top = wb.cells[sheet]
            # The caption block and the property-panel bar at the top.
            for r in (1, 2):
                self.assertEqual(top.get(r), wb.cells[first].get(r), "%s row %d" % (sheet, r))
            self.assertEqual(top[4][0], "Property Panel: Items")
            # A block starts right below them: no block is split.
            self.assertIn(5, wb.local_names[sheet].values(), sheet)
            self.assertEqual(wb.print_titles.get(sheet), "$1:$3")
            area = re.match(r"^\$A\$1:\$F\$(\d+)$", wb.print_areas.get(sheet, ""))
            self.assertIsNotNone(area, wb.print_areas.get(sheet))
            self.assertGreaterEqual(int(area.group(1)), max(top))


class TestContinuationXlsx(SizeCase):
    def test_an_item_structure_of_100000_objects(self):
        data = os.path.join(self.tmp, "data", "big.xml")
        os.makedirs(os.path.dirname(data))
        n = write_structure(data, 316, 316)
        self.assertGreater(n, 100000)
        path = self.export(data, "STRUCTURE", ".xlsx")
        lines = self.log_lines()
        wb = Workbook(path)
        self.assertEqual(len(lines), len(wb.names) - 1, lines)
        for line, sheet in zip(lines, wb.names[1:]):
            self.assertTrue(line.startswith("The workbook continues on sheet '%s'. " % sheet), line)
        formulas = self.check_links(wb, "B", 6, n)
        self.assertEqual(formulas, n - 65530)
        self.check_continuation_sheets(wb)

    def test_65531_and_70000_main_panel_links(self):
        for n in (65531, 70000):
            with self.subTest(objects=n):
                data = os.path.join(self.tmp, "data%d" % n, "big.xml")
                os.makedirs(os.path.dirname(data))
                write_collection(data, n)
                wb = Workbook(self.export(data, "COLLECTION", ".xlsx"))
                self.assertEqual(self.check_links(wb, "A", 6, n), n - 65530)
                self.assertEqual(len(wb.links[wb.names[0]]), 65530)


class TestContinuationXls(SizeCase):
    def test_more_objects_than_the_first_sheet_has_rows_are_refused_with_1004(self):
        # The main panel starts at row 6: 65,531 objects fill an .xls sheet to its last row,
        # one more does not fit.
        data = os.path.join(self.tmp, "data", "big.xml")
        os.makedirs(os.path.dirname(data))
        write_collection(data, 65532)
        r = self.run_cli("-q", data, self.settings, SETUP.format(name="big", space="COLLECTION"),
                         ".xls")
        self.assertEqual(r.returncode, 1, r.stderr)
        lines = self.log_lines()
        self.assertEqual(len(lines), 2, lines)
        for line, proc in zip(lines, ("FillMainPanelItem", "FillExlFile")):
            self.assertRegex(line, "^" + re.escape(
                "Run-time error: Application-defined or object-defined error 1004 ") + DATE +
                re.escape(" in orvExportExcel:clsBldExcel[%s]" % proc) + "$")

    def test_an_item_structure_over_three_sheets(self):
        import xlrd
        data = os.path.join(self.tmp, "data", "mid.xml")
        os.makedirs(os.path.dirname(data))
        n = write_structure(data, 150, 150)
        book = xlrd.open_workbook(self.export(data, "STRUCTURE", ".xls"))
        sheets = book.sheets()
        self.assertEqual([s.name for s in sheets], ["Sheet1", "Sheet1 (2)", "Sheet1 (3)"])
        self.assertEqual(len(self.log_lines()), 2)
        # Each sheet's local names by upper-case text: the row (0-based) of its block.
        names = {s.name: {} for s in sheets}
        for nm in book.name_obj_list:
            if nm.builtin or nm.scope < 0:
                continue
            ref = nm.area2d()
            names[sheets[nm.scope].name][nm.name.upper()] = ref[1]
        main = sheets[0]
        for r in range(5, 5 + n):
            link = main.hyperlink_map.get((r, 1))
            self.assertIsNotNone(link, "B%d has no link" % (r + 1))
            m = CELL_REF.match(link.textmark)
            if m:
                target = (m.group(1) or "").replace("''", "'") or m.group(2)
                row = int(m.group(4)) - 1
            else:
                target, row = main.name, names[main.name][link.textmark.upper()]
            sheet = book.sheet_by_name(target)
            self.assertEqual(sheet.cell_value(row, 1), main.cell_value(r, 1), link.textmark)
        for s in sheets[1:]:
            self.assertEqual(s.cell_value(3, 0), "Property Panel: Items")
            self.assertEqual([s.cell_value(r, 0) for r in (0, 1)],
                             [main.cell_value(r, 0) for r in (0, 1)])
            self.assertIn(4, names[s.name].values(), s.name)


class TestAcrossSheets(SizeCase):
    def test_libreoffice_converts_without_a_warning(self):
        import shutil
        import subprocess
        soffice = shutil.which("soffice") or shutil.which("libreoffice")
        if not soffice:
            self.skipTest("LibreOffice (soffice) is not installed")
        data = os.path.join(self.tmp, "data", "big.xml")
        os.makedirs(os.path.dirname(data))
        write_collection(data, 70000)
        path = self.export(data, "COLLECTION", ".xlsx")
        out = os.path.join(self.tmp, "converted")
        conv = subprocess.run([soffice, "-env:UserInstallation=file://" + os.path.join(
            self.tmp, "lo-profile"), "--headless", "--convert-to", "ods", "--outdir", out, path],
            capture_output=True, text=True, timeout=900, env=dict(os.environ, HOME=self.tmp))
        self.assertEqual(conv.returncode, 0, conv.stderr)
        complaints = [l for l in conv.stderr.splitlines() if l.strip() and "javaldx" not in l]
        self.assertEqual(complaints, [])
        self.assertTrue(os.path.exists(os.path.join(out, "big.ods")), conv.stdout)

    def run_watched(self, args, stop_after_rows=None):
        """Runs the tool on a pseudo-terminal; with stop_after_rows, sends SIGINT once the
        progress line has passed that many rows written. Returns the exit code, the output and
        the last (written, total) the progress showed."""
        import signal
        seen = {"last": None, "sent": False}

        def watch(text, pid):
            found = re.findall(r"Writing the workbook: (\d+) of (\d+) rows", text)
            if found:
                seen["last"] = tuple(int(x) for x in found[-1])
                if (stop_after_rows is not None and not seen["sent"]
                        and seen["last"][0] > stop_after_rows):
                    os.kill(pid, signal.SIGINT)
                    seen["sent"] = True

        code, text = self.run_on_terminal(*args, on_output=watch)
        return code, text, seen["last"]

    def test_progress_and_cancellation_over_all_sheets(self):
        data = os.path.join(self.tmp, "data", "big.xml")
        os.makedirs(os.path.dirname(data))
        write_collection(data, 150000)
        args = [data, self.settings, SETUP.format(name="big", space="COLLECTION"), ".xlsx"]
        code, text, last = self.run_watched(args)
        self.assertEqual(code, 0, text[-2000:])
        wb = openpyxl.load_workbook(os.path.join(self.tmp, "data", "big.xlsx"), read_only=True)
        rows = sum(ws.max_row for ws in wb.worksheets)
        first = wb.worksheets[0].max_row
        self.assertGreater(len(wb.worksheets), 1)
        wb.close()
        # The progress counts the rows of every sheet, up to the last.
        self.assertEqual(last[0], last[1])
        self.assertGreaterEqual(last[1], rows)
        os.remove(os.path.join(self.tmp, "data", "big.xlsx"))
        os.remove(os.path.join(self.export_dir, "ExportExcel.log"))
        # Stopped while the second sheet is written: nothing is left.
        code, text, _ = self.run_watched(args, stop_after_rows=first + 1000)
        self.assertEqual(code, 130, text[-2000:])
        self.assertEqual(sorted(os.listdir(os.path.join(self.tmp, "data"))), ["big.xml"])
        self.assertEqual(len([l for l in self.log_lines() if "User interrupt occurred" in l]), 1)
