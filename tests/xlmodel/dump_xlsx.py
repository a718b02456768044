#!/usr/bin/python3
"""Prints a JSON description of an .xlsx workbook, as openpyxl reads it, for the saver tests.

Usage: dump_xlsx.py FILE

For every sheet: the cells (value, type and format), merged ranges, row heights and row formats,
column widths and formats, hyperlinks, print titles, print area, footer, orientation, the
fit-to-page set-up, the dimension and the rows whose height is stored as set, the frozen panes
(the top-left cell of the part that scrolls), the AutoFilter's range, the rows' outline levels and
whether outline summary rows stand below their details; every
cell record of the sheet's XML with its format ("raw": openpyxl keeps only the top-left cell of a
merged area); for the workbook: the defined names with the sheet they are local to, and the
number of distinct cell formats.
"""
import json
import re
import sys
import zipfile
from types import SimpleNamespace

import openpyxl
from openpyxl.styles.numbers import BUILTIN_FORMATS


def rgb(color):
    """An "RRGGBB" text for an RGB colour, None for none, "theme"/"indexed" for the others."""
    if color is None:
        return None
    if color.type == "rgb" and isinstance(color.rgb, str):
        return color.rgb[-6:].upper()
    return color.type


def font(f):
    return {
        "bold": bool(f.b),
        "italic": bool(f.i),
        "underline": f.u,
        "color": rgb(f.color),
        "size": float(f.sz) if f.sz is not None else None,
    }


def fill(fl):
    if fl is None or fl.fill_type != "solid":
        return None
    return rgb(fl.fgColor)


def style(obj):
    a = obj.alignment
    b = obj.border
    d = font(obj.font)
    d.update(
        {
            "fill": fill(obj.fill),
            "top": b.top.style if b.top is not None else None,
            "bottom": b.bottom.style if b.bottom is not None else None,
            "left": b.left.style if b.left is not None else None,
            "right": b.right.style if b.right is not None else None,
            "horizontal": a.horizontal,
            "vertical": a.vertical,
            "wrap": bool(a.wrap_text),
            "format": obj.number_format,
        }
    )
    return d


def xf_style(wb, xf_index):
    """The format of cell-format record xf_index of the file."""
    sa = wb._cell_styles[xf_index]
    if sa.numFmtId < 164:
        number_format = BUILTIN_FORMATS.get(sa.numFmtId, "General")
    else:
        number_format = wb._number_formats[sa.numFmtId - 164]
    return style(
        SimpleNamespace(
            font=wb._fonts[sa.fontId],
            fill=wb._fills[sa.fillId],
            border=wb._borders[sa.borderId],
            alignment=wb._alignments[sa.alignmentId],
            number_format=number_format,
        )
    )


def raw_cells(wb, archive, sheet_index):
    """Every cell record of the sheet's XML with its format. openpyxl itself keeps only the
    top-left cell of a merged area."""
    xml = archive.read("xl/worksheets/sheet%d.xml" % (sheet_index + 1)).decode("utf-8")
    out = {}
    for m in re.finditer(r'<c r="([A-Z]+[0-9]+)"([^>]*?)(/?)>', xml):
        attrs = m.group(2)
        s = re.search(r' s="([0-9]+)"', attrs)
        d = xf_style(wb, int(s.group(1)) if s else 0)
        d["has_value"] = m.group(3) != "/"
        out[m.group(1)] = d
    return out


def dump_sheet(ws):
    cells = {}
    for row in ws.iter_rows():
        for c in row:
            if c.__class__.__name__ == "MergedCell":
                continue
            if c.value is None and not c.has_style:
                continue
            d = {"value": c.value, "type": c.data_type}
            d.update(style(c))
            cells[c.coordinate] = d
    rows = {}
    for r, dim in ws.row_dimensions.items():
        e = {}
        if dim.height is not None:
            e["height"] = float(dim.height)
        if dim.customFormat:
            e["style"] = style(dim)
        if e:
            rows[str(r)] = e
    cols = []
    for key, dim in ws.column_dimensions.items():
        if dim.min is None:
            continue
        e = {"min": dim.min, "max": dim.max, "width": dim.width}
        if dim.style_id:
            e["style"] = style(dim)
        cols.append(e)
    links = []
    for row in ws.iter_rows():
        for c in row:
            h = c.hyperlink
            if h is None:
                continue
            links.append(
                {
                    "ref": c.coordinate,
                    "location": h.location,
                    "target": h.target,
                    "tooltip": h.tooltip,
                    "display": h.display,
                }
            )
    footer = ws.oddFooter
    xml = ws.parent._orv_archive.read(ws.parent._orv_sheet_paths[ws.title]).decode("utf-8")
    dimension = re.search(r'<dimension ref="([^"]+)"', xml)
    pr = ws.sheet_properties.pageSetUpPr
    outline_pr = ws.sheet_properties.outlinePr or SimpleNamespace(summaryBelow=None)
    return {
        "title": ws.title,
        "cells": cells,
        "merged": sorted(str(m) for m in ws.merged_cells.ranges),
        "rows": rows,
        "cols": cols,
        "hyperlinks": links,
        "print_title_rows": ws.print_title_rows,
        "print_area": ws.print_area,
        "footer_center": footer.center.text if footer is not None and footer.center else None,
        "orientation": ws.page_setup.orientation,
        "dimension": dimension.group(1) if dimension else None,
        "fit_to_page": bool(pr is not None and pr.fitToPage),
        "fit_to_width": ws.page_setup.fitToWidth,
        "fit_to_height": ws.page_setup.fitToHeight,
        "scale": ws.page_setup.scale,
        "custom_heights": sorted(int(m.group(1)) for m in re.finditer(
            r'<row r="([0-9]+)"[^>]*customHeight="1"', xml)),
        "freeze_panes": ws.freeze_panes,
        "auto_filter": ws.auto_filter.ref,
        "outline_levels": {str(r): dim.outline_level for r, dim in ws.row_dimensions.items()
                           if dim.outline_level},
        "summary_below": outline_pr.summaryBelow is not False,
    }


def main():
    # Opened as a stream: the reader would refuse a name ending in ".xls" whatever it holds.
    with open(sys.argv[1], "rb") as f:
        wb = openpyxl.load_workbook(f)
    archive = zipfile.ZipFile(sys.argv[1])
    wb._orv_archive = archive
    wb._orv_sheet_paths = {ws.title: "xl/worksheets/sheet%d.xml" % (i + 1)
                           for i, ws in enumerate(wb.worksheets)}
    names = []
    for dn in wb.defined_names.definedName:
        names.append({"name": dn.name, "local_sheet": dn.localSheetId, "refers_to": dn.attr_text})
    # Newer openpyxl keeps local names on their sheet.
    for i, ws in enumerate(wb.worksheets):
        local = getattr(ws, "defined_names", None)
        if isinstance(local, dict):
            for n, dn in local.items():
                names.append({"name": n, "local_sheet": i, "refers_to": dn.attr_text})
    out = {
        "sheets": [dump_sheet(ws) for ws in wb.worksheets],
        "raw": [raw_cells(wb, archive, i) for i in range(len(wb.worksheets))],
        "names": names,
        "cell_formats": len(wb._cell_styles),  # distinct cell formats in the file
    }
    json.dump(out, sys.stdout, default=str)


if __name__ == "__main__":
    main()
