#!/usr/bin/python3
"""The .xls baseline of the benchmark writes the export's own workbook.

bench/orv-baseline-xls lays a workbook out in the model straight from the dump that
bench/orv-model-dump writes of an export (no builder) and saves it with the project's .xls saver;
the benchmark times .xls exports against it. Here small generated exports are written as .xls by
the command-line tool, and their dumps replayed by the baseline; both files, read back with xlrd
(and the records xlrd does not read, with tests/e2e/xls_view.py), must show the same workbook:
sheets, cells with their values and formats, rows, columns, merged areas, hyperlinks, names,
window and page set-up. The export's own date and time is the one cell allowed to differ.

Run by ctest as:
    test_xls_replay.py --cli PATH --dump-tool PATH --baseline PATH --source REPO_ROOT
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))
sys.path.insert(1, os.path.dirname(HERE))

import testreport  # noqa: E402
import xlrd  # noqa: E402
import xls_view  # noqa: E402

DATE = r"\d{1,2}/\d{1,2}/\d{4} \d{1,2}:\d{2}:\d{2} (AM|PM)"
ALL_VIEWS = "level,flat,where-used,outline"
# The benchmark's mixes of an item structure and of a document structure (bench/run_bench.py).
ITEM_MIX = ["--attrs", "6", "--mnfs", "0.5", "--vnds", "0.25", "--docs", "0.2", "--files", "1",
            "--alternates", "0.2", "--refdes", "2", "--folders", "0.05"]
DOC_MIX = ["--attrs", "6", "--files", "2", "--items", "0.5", "--folders", "0.2", "--docs", "0.3"]


class Config:
    cli = None
    dump_tool = None
    baseline = None
    source = None


def workbook_facts(path):
    """What a reader sees of an .xls workbook, independent of the order of its formats: each
    cell format is given by what it holds, not by its number."""
    book = xlrd.open_workbook(path, formatting_info=True, ragged_rows=True)
    stream = xls_view.StreamFacts(path)

    def rgb(icv):
        return book.colour_map.get(icv)

    def style(xf_index):
        xf = book.xf_list[xf_index]
        f = book.font_list[xf.font_index]
        a, b, bg = xf.alignment, xf.border, xf.background
        return (f.name, f.height, f.bold, f.italic, f.underline_type, f.struck_out,
                rgb(f.colour_index), book.format_map[xf.format_key].format_str,
                a.hor_align, a.vert_align, a.text_wrapped, a.indent_level, a.rotation,
                a.shrink_to_fit, b.left_line_style, b.right_line_style, b.top_line_style,
                b.bottom_line_style, rgb(b.left_colour_index), rgb(b.right_colour_index),
                rgb(b.top_colour_index), rgb(b.bottom_colour_index), bg.fill_pattern,
                rgb(bg.pattern_colour_index), rgb(bg.background_colour_index),
                xf.protection.cell_locked, xf.protection.formula_hidden)

    def value(ctype, v):
        if ctype == xlrd.XL_CELL_TEXT and re.fullmatch(DATE, v):
            return "<the export's date and time>"
        return v

    sheets = []
    for index in range(book.nsheets):
        sh = book.sheet_by_index(index)
        raw = dict(stream.sheets[index])
        for positions in ("index", "dbcells"):  # stream positions, not content
            raw.pop(positions)
        sheets.append({
            "name": sh.name,
            "cells": {(r, c): (sh.cell_type(r, c), value(sh.cell_type(r, c), sh.cell_value(r, c)),
                               style(sh.cell_xf_index(r, c)))
                      for r in range(sh.nrows) for c in range(sh.row_len(r))},
            "rows": {r: (i.height, i.height_mismatch, i.outline_level, i.hidden,
                         i.has_default_xf_index,
                         style(i.xf_index) if i.has_default_xf_index else None)
                     for r, i in sh.rowinfo_map.items()},
            "columns": {c: (i.width, i.hidden, i.outline_level, style(i.xf_index))
                        for c, i in sh.colinfo_map.items()},
            "merged": sorted(sh.merged_cells),
            "links": sorted((h.frowx, h.lrowx, h.fcolx, h.lcolx, h.type, h.url_or_path,
                             h.textmark, h.desc, h.quicktip) for h in sh.hyperlink_list),
            "window": (sh.panes_are_frozen, sh.horz_split_pos, sh.vert_split_pos,
                       sh.default_row_height, sh.default_row_height_mismatch,
                       sh.defcolwidth, sh.standardwidth),
            "records": raw,
        })
    names = sorted((n.name, n.scope, n.builtin, n.hidden,
                    tuple(r.coords for r in n.result.value) if n.result is not None else None)
                   for n in book.name_obj_list)
    return {"sheets": sheets, "names": names, "problems": stream.problems}


def differences(a, b, where="workbook"):
    """Every place where two facts differ, as "where: a != b" lines."""
    if isinstance(a, dict) and isinstance(b, dict):
        out = []
        for k in sorted(set(a) | set(b), key=repr):
            if k not in b:
                out.append("%s[%r]: only in the first" % (where, k))
            elif k not in a:
                out.append("%s[%r]: only in the second" % (where, k))
            else:
                out += differences(a[k], b[k], "%s[%r]" % (where, k))
        return out
    if isinstance(a, list) and isinstance(b, list) and len(a) == len(b) and \
            all(isinstance(x, dict) for x in a + b):
        out = []
        for i, (x, y) in enumerate(zip(a, b)):
            out += differences(x, y, "%s[%d]" % (where, i))
        return out
    return [] if a == b else ["%s: %r != %r" % (where, a, b)]


class XlsBaselineTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tmp = tempfile.mkdtemp(prefix="orv-xls-baseline-")
        cls.env = dict(os.environ, APPDATA=cls.tmp, ALLUSERSPROFILE=cls.tmp)
        gen = os.path.join(Config.source, "bench", "gen_data.py")
        cls.items = os.path.join(cls.tmp, "items.xml")
        cls.item_settings = os.path.join(cls.tmp, "items-settings.xml")
        subprocess.run([sys.executable, gen, cls.items, "--kind", "item", "--objects", "300",
                        "--depth", "5", "--fanout", "4", *ITEM_MIX,
                        "--settings", cls.item_settings,
                        "--setup-dir", os.path.join(cls.tmp, "items-setup")],
                       check=True, capture_output=True)
        cls.docs = os.path.join(cls.tmp, "docs.xml")
        cls.doc_settings = os.path.join(cls.tmp, "docs-settings.xml")
        subprocess.run([sys.executable, gen, cls.docs, "--kind", "document", "--objects", "200",
                        "--depth", "4", "--fanout", "4", *DOC_MIX,
                        "--settings", cls.doc_settings,
                        "--setup-dir", os.path.join(cls.tmp, "docs-setup")],
                       check=True, capture_output=True)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.tmp, ignore_errors=True)

    def run_tool(self, *cmd):
        r = subprocess.run(list(cmd), capture_output=True, text=True, env=self.env,
                           stdin=subprocess.DEVNULL, timeout=600)
        self.assertEqual(r.returncode, 0, "%s failed: %s" % (cmd[0], r.stderr))
        return r

    def export_and_replay(self, name, data, settings, setup, views=None):
        """The export's .xls (by the command-line tool) and the baseline's of its dump; returns
        the two paths and the dump's."""
        folder = os.path.join(self.tmp, name)
        os.makedirs(folder)
        view_args = ["--views", views] if views else []
        self.run_tool(Config.cli, "--quiet", "-o", folder, *view_args, data, settings, setup,
                      ".xls")
        exported = os.path.join(folder, os.path.basename(data)[:-4] + ".xls")
        self.assertTrue(os.path.isfile(exported))
        dump = os.path.join(folder, name + ".dump")
        self.run_tool(Config.dump_tool, data, settings, setup, dump, "--xls", *view_args)
        replayed = os.path.join(folder, name + ".baseline.xls")
        r = self.run_tool(Config.baseline, dump, replayed)
        self.assertRegex(r.stdout, r"^write \d+\.\d{3}\n$")
        return exported, replayed, dump

    def assert_same_workbook(self, exported, replayed):
        a, b = workbook_facts(exported), workbook_facts(replayed)
        self.assertEqual(a["problems"], [])
        self.assertEqual(b["problems"], [])
        diff = differences(a, b)
        self.assertEqual(diff, [], "\n".join(diff[:40]))
        return a

    def test_item_structure(self):
        exported, replayed, _ = self.export_and_replay(
            "items", self.items, self.item_settings,
            os.path.join(self.tmp, "items-setup", "item-structure.xml"))
        facts = self.assert_same_workbook(exported, replayed)
        # What the comparison covered: a workbook with all of it.
        sheet = facts["sheets"][0]
        self.assertGreater(len(sheet["cells"]), 10000)
        self.assertGreater(len(sheet["merged"]), 100)
        self.assertGreater(len(sheet["links"]), 300)
        self.assertGreaterEqual(len([n for n in facts["names"] if not n[2]]), 300)
        self.assertTrue(any(r[1] for r in sheet["rows"].values()))  # heights of their own
        self.assertGreater(len({c[2] for c in sheet["cells"].values()}), 5)
        self.assertIn("<the export's date and time>", {c[1] for c in sheet["cells"].values()})

    def test_item_structure_with_all_views(self):
        exported, replayed, _ = self.export_and_replay(
            "views", self.items, self.item_settings,
            os.path.join(self.tmp, "items-setup", "item-structure.xml"), ALL_VIEWS)
        facts = self.assert_same_workbook(exported, replayed)
        sheets = facts["sheets"]
        self.assertEqual(len(sheets), 4)
        self.assertTrue(any(s["window"][0] for s in sheets))  # frozen panes
        self.assertTrue(any(r[2] for s in sheets for r in s["rows"].values()))  # outline levels
        self.assertIn("_FilterDatabase", {n[0] for n in facts["names"]})

    def test_document_structure_with_file_links(self):
        exported, replayed, _ = self.export_and_replay(
            "docs", self.docs, self.doc_settings,
            os.path.join(self.tmp, "docs-setup", "doc-structure.xml"))
        facts = self.assert_same_workbook(exported, replayed)
        kinds = {link[4] for link in facts["sheets"][0]["links"]}
        self.assertEqual(kinds, {"workbook", "url"})

    def test_a_cell_changed_in_the_dump_is_the_one_difference_found(self):
        exported, _, dump = self.export_and_replay(
            "changed", self.items, self.item_settings,
            os.path.join(self.tmp, "items-setup", "item-structure.xml"))
        with open(dump, encoding="utf-8") as f:
            lines = f.read().split("\n")
        # The first text cell below the caption rows.
        k = next(i for i, s in enumerate(lines) if s.startswith("S\t") and int(s.split("\t")[1]) > 3)
        fields = lines[k].split("\t")
        fields[4] = "changed " + fields[4]
        lines[k] = "\t".join(fields)
        with open(dump, "w", encoding="utf-8") as f:
            f.write("\n".join(lines))
        replayed = os.path.join(self.tmp, "changed", "changed.xls")
        self.run_tool(Config.baseline, dump, replayed)
        diff = differences(workbook_facts(exported), workbook_facts(replayed))
        r, c = int(fields[1]), int(fields[2])
        self.assertEqual(len(diff), 1, "\n".join(diff[:10]))
        self.assertTrue(diff[0].startswith("workbook['sheets'][0]['cells'][(%d, %d)]: " % (r, c)),
                        diff[0])
        self.assertIn("'changed ", diff[0])

    def test_a_dump_it_cannot_replay_fails_with_the_reason(self):
        dump = os.path.join(self.tmp, "odd.dump")
        with open(dump, "w") as f:
            f.write("W\tSheet1\t15\nK\t1\t2\n")
        r = subprocess.run([Config.baseline, dump, os.path.join(self.tmp, "odd.xls")],
                           capture_output=True, text=True, env=self.env, timeout=60)
        self.assertEqual(r.returncode, 1)
        self.assertEqual(r.stdout, "")
        self.assertRegex(r.stderr, r"an unknown line: K .*orvExportExcel:orvBaselineXls"
                                   r"\[FillWorkbook\]")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cli", required=True)
    parser.add_argument("--dump-tool", required=True)
    parser.add_argument("--baseline", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("-k", dest="patterns", action="append")
    args = parser.parse_args()
    Config.cli = os.path.abspath(args.cli)
    Config.dump_tool = os.path.abspath(args.dump_tool)
    Config.baseline = os.path.abspath(args.baseline)
    Config.source = os.path.abspath(args.source)
    loader = unittest.TestLoader()
    if args.patterns:
        loader.testNamePatterns = ["*%s*" % p for p in args.patterns]
    suite = loader.loadTestsFromModule(sys.modules[__name__])
    return testreport.run(suite, "bench_xls_replay")


if __name__ == "__main__":
    sys.exit(main())
