"""The Excel 97-2003 workbook as a file: which extension gives it, a large export read back with
xlrd against the .xlsx of the same data, and LibreOffice Calc and Gnumeric opening the .xls of
every example export (skipped with a message where they are not installed)."""
import os
import shutil
import subprocess
import sys

import openpyxl
import xlrd

import xls_view
from e2e_common import DATE, CliCase, Config

OLE2 = b"\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"
EXAMPLES = [("item-structure.xml", "item-structure.xml"),
            ("item-collection.xml", "item-collection.xml"),
            ("document-structure.xml", "doc-structure.xml"),
            ("folder-structure.xml", "folder-structure.xml")]


def trimmed(values):
    while values and values[-1] is None:
        values.pop()
    return values


def head(path, n=8):
    with open(path, "rb") as f:
        return f.read(n)


def plain(v):
    """A value as both readers agree on it: whole numbers as int, empty as None."""
    if v == "" or v is None:
        return None
    if isinstance(v, float) and v.is_integer():
        return int(v)
    return v


class XlsCase(CliCase):
    def export(self, data, setup, *ext):
        r = self.run_cli("--quiet", data, self.settings, setup, *ext)
        self.assertEqual(r.returncode, 0, r.stderr[-2000:])
        self.assertEqual(self.log_lines(), [])
        return r.stdout.strip()

    def export_examples(self):
        paths = []
        for data_name, setup_name in EXAMPLES:
            data = self.copy_example(data_name)
            setup = os.path.join(self.examples, "setup", setup_name)
            paths.append(self.export(data, setup))
        return paths


class TestXlsFiles(XlsCase):
    def test_no_extension_or_xls_in_any_case_gives_an_excel97_workbook(self):
        data = self.copy_example("item-structure.xml")
        setup = os.path.join(self.examples, "setup", "item-structure.xml")
        path = self.export(data, setup)  # no extension: ".xls"
        self.assertEqual(path, data[:-4] + ".xls")
        self.assertEqual(head(path), OLE2)
        self.assertEqual(head(self.export(data, setup, ".XLS")), OLE2)
        self.assertEqual(head(self.export(data, setup, ".xlsx"), 2), b"PK")
        self.assertEqual(head(self.export(data, setup, ".xlsm"), 2), b"PK")
        book = xlrd.open_workbook(path, formatting_info=True)
        self.assertEqual(book.biff_version, 80)
        self.assertEqual(book.sheet_by_index(0).cell_value(3, 0), "Main Panel: Item Structure")

    def test_ten_thousand_items_read_back_as_the_xlsx_does(self):
        folder = os.path.join(self.tmp, "big")
        os.makedirs(folder)
        data = os.path.join(folder, "items.xml")
        settings = os.path.join(folder, "settings.xml")
        subprocess.run([sys.executable, os.path.join(Config.source, "bench", "gen_data.py"),
                        data, "--kind", "item", "--mode", "collection", "--objects", "10000",
                        "--depth", "1", "--fanout", "1", "--attrs", "1", "--mnfs", "0", "--vnds", "0",
                        "--docs", "0", "--files", "0", "--alternates", "0", "--refdes", "0",
                        "--folders", "0", "--settings", settings,
                        "--setup-dir", os.path.join(folder, "setup")],
                       check=True, capture_output=True)
        setup = os.path.join(folder, "setup", "item-collection.xml")
        self.settings = settings
        xls = self.export(data, setup, ".xls")
        xlsx = self.export(data, setup, ".xlsx")

        view = xls_view.load_workbook(xls)
        self.assertEqual(view.facts.problems, [])
        sheet = view.xl.sheet_by_index(0)
        self.assertGreater(sheet.nrows, 40000)
        ws = openpyxl.load_workbook(xlsx, read_only=True).worksheets[0]
        rows = 0
        for r, row in enumerate(ws.iter_rows(values_only=True, max_col=sheet.ncols + 1)):
            want = trimmed([plain(v) for v in row])
            got = trimmed([plain(sheet.cell_value(r, c)) for c in range(sheet.row_len(r))])
            if r == 1:  # each export's own date and time
                self.assertRegex(got[3], DATE)
                got[3] = want[3]
            self.assertEqual(got, want, "row %d" % (r + 1))
            rows += 1
        self.assertEqual(rows, sheet.nrows)
        names = [n.name for n in view.xl.name_obj_list if not n.builtin]
        self.assertEqual(len(names), 10000)
        self.assertEqual(len(sheet.hyperlink_list), 10000)
        self.assertTrue(all(h.type == "workbook" and h.textmark in set(names)
                            for h in sheet.hyperlink_list))


class TestXlsInOtherApplications(XlsCase):
    def test_libreoffice_converts_every_example_and_keeps_the_links(self):
        soffice = shutil.which("soffice") or shutil.which("libreoffice")
        if not soffice:
            self.skipTest("LibreOffice (soffice) is not installed: the .xls files were not "
                          "opened in Calc")
        paths = self.export_examples()
        out = os.path.join(self.tmp, "converted")
        profile = "file://" + os.path.join(self.tmp, "lo-profile")
        conv = subprocess.run([soffice, "-env:UserInstallation=" + profile, "--headless",
                               "--convert-to", "xlsx", "--outdir", out] + paths,
                              capture_output=True, text=True, timeout=600,
                              env=dict(os.environ, HOME=self.tmp))
        self.assertEqual(conv.returncode, 0, conv.stderr)
        # Only the note that Java is missing may appear: nothing about the files.
        complaints = [l for l in conv.stderr.splitlines() if l.strip() and "javaldx" not in l]
        self.assertEqual(complaints, [])
        for path in paths:
            converted = os.path.join(out, os.path.basename(path)[:-4] + ".xlsx")
            self.assertTrue(os.path.exists(converted), conv.stdout)
            wb = openpyxl.load_workbook(converted)
            ws = wb.worksheets[0]
            names = {dn.name for dn in wb.defined_names.definedName}
            local = getattr(ws, "defined_names", None)
            if isinstance(local, dict):
                names |= set(local)
            links = [c.hyperlink.location for row in ws.iter_rows() for c in row
                     if c.hyperlink is not None and c.hyperlink.location]
            self.assertTrue(links, path)
            self.assertTrue(set(links) <= names, (path, set(links) - names))
            self.assertTrue(ws["A4"].value.startswith("Main Panel"), path)
            self.assertEqual(ws.page_setup.orientation, "landscape")

    def test_gnumeric_reads_every_example_without_a_warning(self):
        ssconvert = shutil.which("ssconvert")
        if not ssconvert:
            self.skipTest("Gnumeric (ssconvert) is not installed: the .xls files were not "
                          "opened in Gnumeric")
        for path in self.export_examples():
            csv = path[:-4] + ".csv"
            r = subprocess.run([ssconvert, path, csv], capture_output=True, text=True,
                               timeout=300, env=dict(os.environ, HOME=self.tmp))
            self.assertEqual(r.returncode, 0, r.stderr)
            self.assertEqual(r.stderr.strip(), "", path)
            with open(csv, encoding="utf-8") as f:
                self.assertIn("Main Panel", f.read())
