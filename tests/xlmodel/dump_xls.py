#!/usr/bin/python3
"""Prints a JSON description of an Excel 97-2003 (.xls) workbook, as xlrd reads it, for the saver
tests: the same shape as dump_xlsx.py gives for an .xlsx (see there), plus "problems" (what the
record checks of xls_view found wrong with the INDEX, DBCELL and EXTSST records) and, per sheet,
"fit_to_page", "fit_to_width", "fit_to_height" and the print "scale" of its page set-up.

Usage: dump_xls.py FILE
"""
import json
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "e2e"))
import xls_view  # noqa: E402


def rgb(color):
    if color is None or color.rgb is None:
        return None
    return color.rgb[-6:]


def style(obj):
    a, b, f = obj.alignment, obj.border, obj.font
    return {
        "bold": f.b,
        "italic": f.i,
        "underline": f.u,
        "color": rgb(f.color),
        "size": f.sz,
        "fill": rgb(obj.fill.fgColor) if obj.fill.fill_type == "solid" else None,
        "top": b.top.style,
        "bottom": b.bottom.style,
        "left": b.left.style,
        "right": b.right.style,
        "horizontal": a.horizontal,
        "vertical": a.vertical,
        "wrap": a.wrap_text,
        "format": obj.number_format,
    }


def dump_sheet(book, ws):
    covered = set()
    for r1, r2, c1, c2 in ws.xs.merged_cells:
        for r in range(r1, r2):
            for c in range(c1, c2):
                if (r, c) != (r1, c1):
                    covered.add((r, c))
    cells, raw = {}, {}
    for row in ws.iter_rows():
        for c in row:
            if c.record_type == xls_view.xlrd.XL_CELL_EMPTY:
                continue
            d = style(c)
            raw_d = dict(d, has_value=c.value is not None)
            raw[c.coordinate] = raw_d
            if (c.row - 1, c.column - 1) in covered:
                continue
            e = {"value": c.value, "type": c.data_type}
            e.update(d)
            cells[c.coordinate] = e
    rows = {}
    for r, info in ws.xs.rowinfo_map.items():
        e = {}
        if info.height_mismatch:
            e["height"] = info.height / 20.0
        if info.has_default_xf_index:  # xlrd's name for "the row has a format"
            e["style"] = style(book.style(info.xf_index))
        if e:
            rows[str(r + 1)] = e
    cols = []
    for d in ws.column_dimensions.values():
        e = {"min": d.min, "max": d.max, "width": d.width}
        if d.xf != 15:
            e["style"] = style(book.style(d.xf))
        cols.append(e)
    links = []
    for (r, c), h in sorted(ws.links.items()):
        links.append({"ref": "%s%d" % (xls_view.col_letters(c), r + 1), "location": h.location,
                      "target": h.target, "tooltip": h.tooltip})
    return {
        "title": ws.title,
        "cells": cells,
        "merged": sorted(ws.merged_cells.ranges),
        "rows": rows,
        "cols": cols,
        "hyperlinks": links,
        "print_title_rows": ws.print_title_rows,
        "print_area": ws.print_area,
        "footer_center": ws.oddFooter.center.text,
        "orientation": ws.page_setup.orientation,
        "fit_to_page": ws.facts["fit"],
        "fit_to_width": ws.facts.get("fit_pages", (None, None))[0],
        "fit_to_height": ws.facts.get("fit_pages", (None, None))[1],
        "scale": ws.facts.get("scale"),
        "freeze_panes": ws.freeze_panes,
        "auto_filter": ws.auto_filter.ref,
        "outline_levels": {str(r + 1): info.outline_level
                           for r, info in ws.xs.rowinfo_map.items() if info.outline_level},
        "summary_below": ws.sheet_properties.outlinePr.summaryBelow,
    }, raw


def main():
    main_to(sys.argv[1], sys.stdout)


def main_to(path, out, indent=None):
    book = xls_view.load_workbook(path)
    sheets, raws = [], []
    for ws in book.worksheets:
        s, r = dump_sheet(book, ws)
        sheets.append(s)
        raws.append(r)
    names = [{"name": n.name, "local_sheet": n.localSheetId, "refers_to": n.attr_text}
             for n in book.defined_names.definedName]
    result = {
        "sheets": sheets,
        "raw": raws,
        "names": names,
        "cell_formats": sum(1 for xf in book.xl.xf_list if not xf.is_style),
        "problems": book.facts.problems,
    }
    out.write(json.dumps(result, default=str, indent=indent, sort_keys=indent is not None))


if __name__ == "__main__":
    main()
