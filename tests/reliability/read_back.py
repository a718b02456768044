"""Reads a saved workbook back the way a strict reader does.

Prints "OK" and one line per non-empty cell of the first sheet ("A1=<value as JSON>"), or the
error. openpyxl parses the sheet with a conforming XML parser, so a character XML 1.0 does not
allow makes it fail; the raw sheet XML is also checked for control characters, for
"_xHHHH_" escapes of them and for ill-formed UTF-8.
"""
import json
import os
import re
import sys
import zipfile

import openpyxl


def xls_parts(path):
    """An Excel 97-2003 workbook: everything xlrd reads of it (see tests/xlmodel/dump_xls.py)."""
    here = os.path.dirname(os.path.abspath(__file__))
    sys.path.insert(0, os.path.join(here, "..", "xlmodel"))
    import dump_xls
    dump_xls.main_to(path, sys.stdout, indent=0)
    return 0


def parts(path):
    """Prints every part of the package but the document properties (which hold the time)."""
    with open(path, "rb") as f:
        if f.read(8) == b"\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1":
            return xls_parts(path)
    with zipfile.ZipFile(path) as z:
        for name in sorted(z.namelist()):
            if name.startswith("docProps/"):
                continue
            print("== " + name)
            print(z.read(name).decode("utf-8"))
    return 0


def main(path):
    with zipfile.ZipFile(path) as z:
        for name in z.namelist():
            if not name.endswith(".xml") and not name.endswith(".rels"):
                continue
            raw = z.read(name)
            raw.decode("utf-8")  # raises on ill-formed UTF-8
            if re.search(rb"[\x00-\x08\x0b\x0c\x0e-\x1f]", raw):
                print("raw control character in " + name)
                return 1
            if re.search(rb"_x00[01][0-9A-Fa-f]_", raw):
                print("escaped control character in " + name)
                return 1
    wb = openpyxl.load_workbook(path)
    ws = wb.worksheets[0]
    print("OK")
    for row in ws.iter_rows():
        for c in row:
            if c.value is not None:
                print(c.coordinate + "=" + json.dumps(c.value, ensure_ascii=False))
    return 0


if __name__ == "__main__":
    try:
        if sys.argv[1] == "--parts":
            sys.exit(parts(sys.argv[2]))
        sys.exit(main(sys.argv[1]))
    except Exception as e:  # the reader's refusal is the answer
        print("ERROR " + type(e).__name__ + ": " + str(e))
        sys.exit(1)
