"""Readers of a saved workbook for the checks of test_kinds.py.

A reader answers a few plain questions about the first worksheet, in terms that do not depend on
the file format: the text or number of a cell, the merged areas, the hyperlinks and the defined
names. A reader for another file format offers the same methods.
"""
import re

import openpyxl
from openpyxl.utils.cell import column_index_from_string, get_column_letter


def cell_name(row, col):
    return f"{get_column_letter(col)}{row}"


def split_cell(ref):
    m = re.fullmatch(r"([A-Z]+)(\d+)", ref)
    return int(m.group(2)), column_index_from_string(m.group(1))


class OpenpyxlReader:
    """An .xlsx workbook read with openpyxl."""

    name = "openpyxl"

    def __init__(self, path):
        self.wb = openpyxl.load_workbook(path)
        self.ws = self.wb.worksheets[0]

    def sheet_count(self):
        return len(self.wb.worksheets)

    def value(self, row, col):
        """The cell's value; an empty text counts as no value."""
        v = self.ws.cell(row=row, column=col).value
        return None if v == "" else v

    def filled_cells(self):
        """(row, col) of every cell that holds a value."""
        return {(c.row, c.column) for row in self.ws.iter_rows() for c in row
                if c.value not in (None, "")}

    def merged(self):
        """Merged areas as "A4:F4" texts."""
        return {str(r) for r in self.ws.merged_cells.ranges}

    def links(self):
        """Hyperlinks by cell name: ("internal", defined name) or ("external", address)."""
        out = {}
        for row in self.ws.iter_rows():
            for c in row:
                if c.hyperlink is not None:
                    out[c.coordinate] = self._describe(c.hyperlink)
        return out

    @staticmethod
    def _describe(link):
        if link.location:
            return ("internal", link.location)
        return ("external", link.target)

    @staticmethod
    def external_target(address):
        """How a file's address shows as the target of its hyperlink: a local absolute path
        is written as a file URL, anything else as it stands."""
        if address.startswith("/") and not address.startswith("//"):
            return "file://" + address
        return address

    def names(self):
        """Defined names other than the print settings: name -> the row it refers to. Each one
        must be local to the first worksheet and refer to one whole row of it."""
        out = {}
        title = re.escape(self.ws.title)
        for dn in self.wb.defined_names.definedName:
            if dn.name.startswith("_xlnm."):
                continue
            m = re.fullmatch(r"'?" + title + r"'?!\$(\d+):\$(\d+)", dn.attr_text)
            if dn.localSheetId != 0 or not m or m.group(1) != m.group(2):
                raise AssertionError(f"name {dn.name}: local to {dn.localSheetId}, "
                                     f"refers to {dn.attr_text}")
            out[dn.name] = int(m.group(1))
        return out

    def print_area_last_row(self):
        area = self.ws.print_area
        area = area[0] if isinstance(area, list) else area
        m = re.search(r"\$A\$1:\$F\$(\d+)$", str(area))
        return int(m.group(1)) if m else None


READERS = [OpenpyxlReader]
