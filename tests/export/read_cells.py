"""Every cell of a saved workbook that holds something, as an independent reader sees it: one
line "sheet<TAB>row<TAB>column<TAB>value" per cell, sheets in order, rows and columns from 1 in
order. A number prints as %.15g; a formula as the value it shows; a tab, line break or backslash
in a text as \\t, \\n, \\r or \\\\.

Usage: read_cells.py WORKBOOK (.xlsx through openpyxl, .xls through xlrd)
"""
import sys


def show(v):
    if isinstance(v, bool):
        return "TRUE" if v else "FALSE"
    if isinstance(v, (int, float)):
        return "%.15g" % v
    s = str(v)
    return (s.replace("\\", "\\\\").replace("\t", "\\t").replace("\n", "\\n")
            .replace("\r", "\\r"))


def main():
    path = sys.argv[1]
    out = sys.stdout
    if path.lower().endswith(".xls"):
        import xlrd
        book = xlrd.open_workbook(path)
        for sh in book.sheets():
            for r in range(sh.nrows):
                for c in range(sh.ncols):
                    cell = sh.cell(r, c)
                    if cell.ctype in (xlrd.XL_CELL_EMPTY, xlrd.XL_CELL_BLANK):
                        continue
                    if cell.ctype == xlrd.XL_CELL_TEXT and cell.value == "":
                        continue
                    out.write("%s\t%d\t%d\t%s\n" % (sh.name, r + 1, c + 1, show(cell.value)))
    else:
        import openpyxl
        book = openpyxl.load_workbook(path, read_only=True, data_only=True)
        for ws in book.worksheets:
            for row in ws.iter_rows():
                for cell in row:
                    v = getattr(cell, "value", None)
                    if v is None or v == "":
                        continue
                    out.write("%s\t%d\t%d\t%s\n" % (ws.title, cell.row, cell.column, show(v)))


if __name__ == "__main__":
    main()
