"""Views beside the panels: the level sheet, the outline of the main panel, the flattened list and
the where-used list, exported by the tool and read back with openpyxl (.xlsx) and xlrd (.xls,
through xls_view). What each view must hold is worked out here from the data file itself (an
XML walk of its items and structure elements), never taken from a workbook the tool wrote."""
import os
import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree as ET

import openpyxl
from openpyxl.utils.cell import get_column_letter

import xls_view
from e2e_common import DATE, CliCase, Config

ALL_VIEWS = "level,flat,where-used,outline"


def setup_xml(object_type, space_type):
    return ("<SETUP><PROJECT>Views</PROJECT><WORKBOOK_NAME></WORKBOOK_NAME>"
            "<EXPORTED_BY>me</EXPORTED_BY><EXPORT_DATE></EXPORT_DATE>"
            "<OBJECT_TYPE>" + object_type + "</OBJECT_TYPE><SPACE_TYPE>" + space_type +
            "</SPACE_TYPE></SETUP>")


def quantity(text):
    """A quantity of the data file as a number: "2", "1.5" or "1,5"; None for anything else."""
    t = (text or "").strip()
    if re.fullmatch(r"[+-]?(\d+([.,]\d*)?|[.,]\d+)", t):
        return float(t.replace(",", "."))
    return None


def walk(path):
    """The objects of an item export in the order the tool lists them: each with its depth,
    keys, parent (index) and the quantity and find number of the structure element that holds
    it."""
    root = ET.parse(path).getroot()
    objs = []

    def visit(el, depth, parent, qty, find):
        i = len(objs)
        objs.append({"depth": depth, "id": el.get("id"), "rev": el.get("revision"),
                     "desc": el.get("description"), "parent": parent, "qty": qty,
                     "find": find})
        for ps in el.findall("Item_PS"):
            child = ps.find("Item")
            if child is not None:
                visit(child, depth + 1, i, ps.get("quantity"), ps.get("find_number"))

    for top in root.findall("Item"):
        visit(top, 0, None, None, None)
    return objs


def item_views(objs):
    """The rows of the flattened list and the where-used list, and the quantities that are not
    numbers, as this test works them out."""
    items = {}  # (id, rev) -> facts, in the order of first appearance
    factor, unknown = [], []
    not_numbers = []
    for i, o in enumerate(objs):
        key = (o["id"], o["rev"])
        it = items.setdefault(key, {"desc": o["desc"], "total": 0.0, "unknown": False,
                                    "uses": [], "first": i})
        if o["parent"] is None:
            factor.append(1.0)
            unknown.append(False)
            continue
        p = o["parent"]
        q = quantity(o["qty"])
        factor.append(factor[p] * (q if q is not None else 0))
        unknown.append(unknown[p] or q is None)
        if q is None:
            named = '%s %s: "%s"' % (o["id"], o["rev"], o["qty"])
            if named not in not_numbers:
                not_numbers.append(named)
        if unknown[i]:
            it["unknown"] = True
        else:
            it["total"] += factor[i]
        parent = objs[p]
        use = (parent["id"], parent["rev"], o["find"], o["qty"])
        if use not in it["uses"]:
            it["uses"].append(use)
    flat, where = [], []
    for (ident, rev), it in items.items():
        if not it["uses"]:
            continue
        total = "?" if it["unknown"] else it["total"]
        flat.append(([ident, rev, it["desc"], total, len(it["uses"])], it["first"]))
        for pid, prev, find, qty in it["uses"]:
            q = quantity(qty)
            where.append(([ident, rev, it["desc"], pid, prev, find, q if q is not None else qty],
                          it["first"], items[(pid, prev)]["first"]))
    return flat, where, not_numbers


def number(v):
    """A cell's number as a float (readers give whole numbers as int), texts as they are."""
    return float(v) if isinstance(v, (int, float)) and not isinstance(v, bool) else v


class ViewsCase(CliCase):
    ext = ".xlsx"
    data_name = "e2e-views.xml"
    data_dir = "tests/data"

    def export(self, data, views=ALL_VIEWS, object_type="Item", space_type="STRUCTURE",
               settings=None):
        args = ["--views", views] if views is not None else []
        r = self.run_cli(*args, data, settings or self.settings,
                         setup_xml(object_type, space_type), self.ext)
        self.assertEqual(r.returncode, 0, r.stderr)
        path = r.stdout.strip()
        if self.ext == ".xls":
            wb = xls_view.load_workbook(path)
            self.assertEqual(wb.facts.problems, [])
        else:
            wb = openpyxl.load_workbook(path)
        return wb, r

    def copy_data(self, name, folder="tests/data"):
        dst_dir = os.path.join(self.tmp, "data")
        os.makedirs(dst_dir, exist_ok=True)
        dst = os.path.join(dst_dir, name)
        shutil.copy(os.path.join(Config.source, folder, name), dst)
        return dst

    @staticmethod
    def titles(wb):
        return [ws.title for ws in wb.worksheets]

    @staticmethod
    def rows(ws, first, width):
        out = []
        r = first
        while ws.cell(row=r, column=1).value not in (None, "") or \
                ws.cell(row=r, column=2).value not in (None, ""):
            out.append([number(ws.cell(row=r, column=c).value) for c in range(1, width + 1)])
            r += 1
        return out

    @staticmethod
    def area(ref):
        return str(ref[0] if isinstance(ref, list) else ref).replace("$", "")

    def block_rows(self, ws_main):
        """The first row of each item block on the first sheet: (id, rev) -> rows, in order."""
        out = {}
        for r in range(1, ws_main.max_row + 1):
            if ws_main.cell(row=r, column=1).value == "Item ID" and \
                    ws_main.cell(row=r, column=3).value == "Revision":
                key = (ws_main.cell(row=r, column=2).value, ws_main.cell(row=r, column=4).value)
                out.setdefault(key, []).append(r)
        return out

    def assert_link(self, ws, ref, main_title, block_row):
        link = ws[ref].hyperlink
        self.assertIsNotNone(link, ref)
        self.assertEqual(link.location, "%s!$A$%d" % (main_title, block_row), ref)

    def assert_view_sheet(self, ws, last_row, last_col, heading):
        """Heading row 4 under the caption block, frozen below it, the AutoFilter over the
        view's columns, the page set-up of the main sheet."""
        self.assertEqual(ws.freeze_panes, "A5")
        self.assertEqual(ws.auto_filter.ref, "A4:%s%d" % (get_column_letter(last_col), last_row))
        self.assertEqual([ws.cell(row=4, column=c).value for c in range(1, len(heading) + 1)],
                         heading)
        self.assertEqual(ws["A1"].value, "Project")
        self.assertEqual(ws["A2"].value, "Views")
        self.assertEqual(ws.page_setup.orientation, "landscape")
        self.assertIn(ws.print_title_rows, ("1:4", "$1:$4"))
        self.assertEqual(ws.oddFooter.center.text, "&P")
        self.assertEqual(self.area(ws.print_area),
                         "A1:%s%d" % (get_column_letter(last_col), last_row))


class TestViewsOfAnItemStructure(ViewsCase):
    """Every view of tests/data/e2e-views.xml, checked cell by cell."""

    def setUp(self):
        super().setUp()
        self.data = self.copy_data(self.data_name, self.data_dir)
        self.objs = walk(self.data)
        self.wb, self.result = self.export(self.data)
        self.main = self.wb.worksheets[0]

    def test_sheets_in_their_order(self):
        self.assertEqual(self.titles(self.wb),
                         ["Sheet1", "Sheet2", "Flattened List", "Where Used"])

    def test_outline_of_the_main_panel(self):
        ws = self.main
        for i, o in enumerate(self.objs):
            self.assertEqual(ws.cell(row=6 + i, column=2).value, o["id"])
            self.assertEqual(ws.row_dimensions[6 + i].outline_level or 0, min(o["depth"], 7),
                             o["id"])
        self.assertFalse(ws.row_dimensions[6 + len(self.objs)].outline_level)
        self.assertFalse(ws.sheet_properties.outlinePr.summaryBelow)
        self.assertIsNone(ws.freeze_panes)
        self.assertIsNone(ws.auto_filter.ref)

    def test_level_sheet_as_its_algorithm_lays_it_out(self):
        ws = self.wb.worksheets[1]
        depth = [o["depth"] for o in self.objs]
        deepest = max(depth)
        last_col = deepest + 2
        merged = {str(m) for m in ws.merged_cells.ranges}
        self.assertEqual(ws["A4"].value, "Level")
        self.assertEqual(ws["B4"].value, "Item ID")
        self.assertIn("B4:%s4" % get_column_letter(last_col), merged)
        for i, o in enumerate(self.objs):
            r = 5 + i
            level = depth[i]
            self.assertEqual(ws.cell(row=r, column=1).value, level)
            self.assertEqual(ws.cell(row=r, column=level + 2).value, o["id"], r)
            if level > 1:
                self.assertIn("B%d:%s%d" % (r, get_column_letter(level + 1), r), merged)
            if level + 2 < last_col:
                self.assertIn("%s%d:%s%d" % (get_column_letter(level + 2), r,
                                             get_column_letter(last_col), r), merged)
        self.assertEqual(ws.freeze_panes, "A5")
        self.assertEqual(ws.auto_filter.ref, "A4:%s%d" % (get_column_letter(last_col),
                                                          4 + len(self.objs)))
        self.assertIn(ws.print_title_rows, ("1:4", "$1:$4"))

    def test_level_sheet_indents_each_level_by_the_same_step(self):
        # The caption block reaches into the indentation's columns: they all take the width its
        # widest text there needs, but no more than the level sheet's own 21.
        ws = self.wb.worksheets[1]
        last_col = max(o["depth"] for o in self.objs) + 2
        def width(c):
            dims = [d for d in ws.column_dimensions.values() if d.min <= c <= d.max]
            self.assertEqual(len(dims), 1, c)
            return dims[0].width

        widths = [width(c) for c in range(2, last_col)]
        self.assertGreater(len(widths), 3)
        self.assertEqual(len(set(widths)), 1, widths)
        self.assertGreater(widths[0], len("PLM administrator"))
        self.assertLessEqual(widths[0], 22)

    def test_flattened_list_totals_and_links(self):
        flat, _, _ = item_views(self.objs)
        ws = self.wb["Flattened List"] if self.ext == ".xlsx" else self.wb.worksheets[2]
        got = self.rows(ws, 5, 5)
        self.assertEqual(got, [row for row, _ in flat])
        # The example of the issue: the screw under the brake (2, the brake 4 times) and the
        # frame (3).
        screw = [row for row, _ in flat if row[0] == "SCR-M5"][0]
        self.assertEqual(screw[3], 2 * 4 + 3)
        self.assertEqual(screw[4], 2)
        blocks = self.block_rows(self.main)
        for k, (row, first) in enumerate(flat):
            r = 5 + k
            self.assertIsInstance(ws.cell(row=r, column=5).value, (int, float))
            if row[3] != "?":
                self.assertIsInstance(ws.cell(row=r, column=4).value, (int, float))
            self.assert_link(ws, "A%d" % r, self.main.title, blocks[(row[0], row[1])][0])
        self.assert_view_sheet(ws, 4 + len(flat), 5, ["Item ID", "Revision", "Description",
                                                      "Total Quantity", "Places Used"])

    def test_where_used_rows_and_links(self):
        _, where, _ = item_views(self.objs)
        ws = self.wb["Where Used"] if self.ext == ".xlsx" else self.wb.worksheets[3]
        self.assertEqual(self.rows(ws, 5, 7), [row for row, _, _ in where])
        blocks = self.block_rows(self.main)
        for k, (row, _, _) in enumerate(where):
            r = 5 + k
            self.assert_link(ws, "A%d" % r, self.main.title, blocks[(row[0], row[1])][0])
            self.assert_link(ws, "D%d" % r, self.main.title, blocks[(row[3], row[4])][0])
        # The nut is used in the kit alone, however often the kit appears.
        self.assertEqual([row[3:] for row, _, _ in where if row[0] == "NUT-01"],
                         [["KIT-700", "A", "10", 5.0]])
        self.assert_view_sheet(ws, 4 + len(where), 7,
                               ["Item ID", "Revision", "Description", "Parent ID",
                                "Parent Revision", "Find No", "Quantity"])

    def test_one_log_line_names_the_quantity_that_is_not_a_number(self):
        _, _, not_numbers = item_views(self.objs)
        self.assertEqual(not_numbers, ['DEC-01 A: "x"'])
        lines = self.log_lines()
        self.assertEqual(len(lines), 1, lines)
        self.assertRegex(lines[0], "^" + re.escape(
            'Quantities that are not numbers (the totals that include them show "?"): '
            'DEC-01 A: "x".') + " " + DATE + "$")
        self.assertEqual(self.result.stderr.splitlines(), lines)


class TestViewsOfAnItemStructureXls(TestViewsOfAnItemStructure):
    ext = ".xls"


class TestViewsOfAGeneratedStructure(ViewsCase):
    """A generated structure (bench/gen_data.py) whose bottom parts are often shared."""

    def setUp(self):
        super().setUp()
        os.makedirs(os.path.join(self.tmp, "data"))
        self.data = os.path.join(self.tmp, "data", "generated.xml")
        subprocess.run([sys.executable, os.path.join(Config.source, "bench", "gen_data.py"),
                        self.data, "--objects", "400", "--depth", "5", "--fanout", "4",
                        "--common", "0.4", "--seed", "11"], check=True, capture_output=True)
        self.objs = walk(self.data)

    def test_every_view(self):
        wb, _ = self.export(self.data)
        self.assertEqual(self.titles(wb), ["Sheet1", "Sheet2", "Flattened List", "Where Used"])
        flat, where, not_numbers = item_views(self.objs)
        self.assertEqual(not_numbers, [])
        # Shared parts: some item is used in several places.
        self.assertTrue(any(row[4] > 1 for row, _ in flat))
        main = wb.worksheets[0]
        for i, o in enumerate(self.objs):
            self.assertEqual(main.row_dimensions[6 + i].outline_level or 0, min(o["depth"], 7))
        level = wb.worksheets[1]
        self.assertEqual([level.cell(row=5 + i, column=o["depth"] + 2).value
                          for i, o in enumerate(self.objs)], [o["id"] for o in self.objs])
        got_flat = self.rows(wb.worksheets[2], 5, 5)
        self.assertEqual(len(got_flat), len(flat))
        for got, (want, _) in zip(got_flat, flat):
            self.assertEqual(got[:3] + got[4:], want[:3] + want[4:])
            self.assertAlmostEqual(got[3], want[3], places=9)
        self.assertEqual(self.rows(wb.worksheets[3], 5, 7), [row for row, _, _ in where])
        self.assert_view_sheet(wb.worksheets[2], 4 + len(flat), 5,
                               ["Item ID", "Revision", "Description", "Total Quantity",
                                "Places Used"])


class TestViewsOfAGeneratedStructureXls(TestViewsOfAGeneratedStructure):
    ext = ".xls"


class TestWhichViews(ViewsCase):
    """Which views an export writes: the settings, the option, the kind and mode."""

    def settings_with(self, **switches):
        with open(self.settings, encoding="utf-8") as f:
            s = f.read()
        for tag, value in switches.items():
            s = s.replace("<%s>0</%s>" % (tag, tag), "<%s>%s</%s>" % (tag, value, tag))
        path = os.path.join(self.tmp, "settings-views.xml")
        with open(path, "w", encoding="utf-8") as f:
            f.write(s)
        return path

    def test_without_option_or_switch_the_workbook_has_its_one_sheet(self):
        data = self.copy_data("e2e-views.xml")
        wb, _ = self.export(data, views=None)
        self.assertEqual(self.titles(wb), ["Sheet1"])
        self.assertEqual({r: d.outline_level for r, d in wb.worksheets[0].row_dimensions.items()
                          if d.outline_level}, {})
        self.assertEqual(self.log_lines(), [])

    def test_the_settings_switch_views_on_and_the_option_replaces_them(self):
        data = self.copy_data("e2e-views.xml")
        settings = self.settings_with(WHERE_USED="1", OUTLINE="1")
        wb, _ = self.export(data, views=None, settings=settings)
        self.assertEqual(self.titles(wb), ["Sheet1", "Where Used"])
        self.assertEqual(wb.worksheets[0].row_dimensions[7].outline_level, 1)
        wb, _ = self.export(data, views="none", settings=settings)
        self.assertEqual(self.titles(wb), ["Sheet1"])
        self.assertFalse(wb.worksheets[0].row_dimensions[7].outline_level)
        wb, _ = self.export(data, views="level", settings=settings)
        self.assertEqual(self.titles(wb), ["Sheet1", "Sheet2"])

    def test_a_document_structure_gets_the_level_sheet_and_the_outline(self):
        data = self.copy_data("e2e-doc-structure.xml")
        wb, _ = self.export(data, object_type="Document")
        self.assertEqual(self.titles(wb), ["Sheet1", "Sheet2"])
        main = wb.worksheets[0]
        levels = [main.cell(row=r, column=1).value for r in range(6, 6 + 20)]
        levels = levels[:levels.index(None)] if None in levels else levels
        for k, level in enumerate(levels):
            self.assertEqual(main.row_dimensions[6 + k].outline_level or 0, min(level, 7))
            self.assertEqual(wb.worksheets[1].cell(row=5 + k, column=1).value, level)
        self.assertTrue(any(levels))

    def test_an_item_collection_gets_the_item_views_only(self):
        data = self.copy_data("e2e-item-collection.xml")
        wb, _ = self.export(data, space_type="COLLECTION")
        self.assertEqual(self.titles(wb), ["Sheet1", "Flattened List", "Where Used"])
        self.assertFalse(any(d.outline_level for d in
                             wb.worksheets[0].row_dimensions.values()))

    def test_a_folder_collection_gets_none(self):
        data = self.copy_data("e2e-folder-collection.xml")
        wb, _ = self.export(data, object_type="Folder", space_type="COLLECTION")
        self.assertEqual(self.titles(wb), ["Sheet1"])

    def test_an_unknown_view_is_a_usage_error(self):
        data = self.copy_data("e2e-views.xml")
        r = self.run_cli("--views", "flat,tree", data, self.settings,
                         setup_xml("Item", "STRUCTURE"), self.ext)
        self.assertEqual(r.returncode, 2)
        self.assertIn("orv-export-excel: --views: unknown view 'tree' (the views are level, "
                      "flat, where-used and outline, or none)", r.stderr)
        self.assertEqual(os.listdir(os.path.dirname(data)), ["e2e-views.xml"])
        self.assertEqual(self.log_lines(), [])
        r = self.run_cli("--views", "none,flat", data, self.settings,
                         setup_xml("Item", "STRUCTURE"))
        self.assertEqual(r.returncode, 2)
        self.assertIn("'none' stands alone", r.stderr)
        r = self.run_cli("--help")
        self.assertIn("--views", r.stdout)


class TestWhichViewsXls(TestWhichViews):
    ext = ".xls"


class TestLibreOfficeReadsTheViews(ViewsCase):
    """LibreOffice Calc opens the .xls with views and keeps its frozen panes, AutoFilters and
    outline when it saves the workbook as .xlsx."""

    def test_xls_converted_to_xlsx(self):
        soffice = shutil.which("soffice") or shutil.which("libreoffice")
        if not soffice:
            self.skipTest("LibreOffice (soffice) is not installed: the views were not opened "
                          "in Calc")
        self.ext = ".xls"
        data = self.copy_data("e2e-views.xml")
        r = self.run_cli("--views", ALL_VIEWS, data, self.settings,
                         setup_xml("Item", "STRUCTURE"), ".xls")
        self.assertEqual(r.returncode, 0, r.stderr)
        out = os.path.join(self.tmp, "converted")
        conv = subprocess.run([soffice, "--headless", "--convert-to", "xlsx", "--outdir", out,
                               r.stdout.strip()], capture_output=True, text=True, timeout=300,
                              env=dict(os.environ, HOME=self.tmp))
        self.assertEqual(conv.returncode, 0, conv.stderr)
        wb = openpyxl.load_workbook(os.path.join(out, "e2e-views.xlsx"))
        self.assertEqual(wb.sheetnames, ["Sheet1", "Sheet2", "Flattened List", "Where Used"])
        objs = walk(data)
        flat, where, _ = item_views(objs)
        for name, last_col, n in (("Sheet2", max(o["depth"] for o in objs) + 2, len(objs)),
                                  ("Flattened List", 5, len(flat)),
                                  ("Where Used", 7, len(where))):
            ws = wb[name]
            self.assertEqual(ws.freeze_panes, "A5", name)
            self.assertEqual(ws.auto_filter.ref, "A4:%s%d" % (get_column_letter(last_col), 4 + n),
                             name)
        main = wb["Sheet1"]
        for i, o in enumerate(objs):
            self.assertEqual(main.row_dimensions[6 + i].outline_level or 0, min(o["depth"], 7))
