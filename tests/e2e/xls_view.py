"""An Excel 97-2003 (.xls) workbook read back with xlrd 1.2, shown through the part of
openpyxl's interface that the workbook tests use, so that one test reads both formats.

xlrd reads values, fonts, cell formats (XF records), merged cells, names, hyperlinks, row heights
and column widths. What it does not read (the footer, the page set-up, the INDEX and EXTSST
records) is read here from the records of the "Workbook" stream.

Differences from openpyxl that the view irons out: xlrd reads every number as a float, so a whole
number comes back as an int (as openpyxl reads "1" from an .xlsx); built-in names (print area,
print titles) are not listed among the defined names but on the sheet, as openpyxl does.
"""
import struct

import xlrd
from xlrd import compdoc

LINE_STYLES = {0: None, 1: "thin", 2: "medium", 3: "dashed", 4: "dotted", 5: "thick",
               6: "double", 7: "hair", 8: "mediumDashed", 9: "dashDot", 10: "mediumDashDot",
               11: "dashDotDot", 12: "mediumDashDotDot", 13: "slantDashDot"}
HORIZONTAL = {0: None, 1: "left", 2: "center", 3: "right", 4: "fill", 5: "justify",
              6: "centerContinuous", 7: "distributed"}
VERTICAL = {0: "top", 1: "center", 2: None, 3: "justify", 4: "distributed"}  # bottom: default


def col_letters(c):
    """'A' for 0."""
    s = ""
    c += 1
    while c:
        c, r = divmod(c - 1, 26)
        s = chr(65 + r) + s
    return s


def parse_ref(ref):
    """'B7' -> (6, 1)."""
    i = 0
    while ref[i].isalpha():
        i += 1
    c = 0
    for ch in ref[:i].upper():
        c = c * 26 + ord(ch) - 64
    return int(ref[i:]) - 1, c - 1


# ---------------------------------------------------------------------------------------------
# The records of the workbook stream

def workbook_stream(path):
    with open(path, "rb") as f:
        data = f.read()
    cd = compdoc.CompDoc(data)
    mem, base, size = cd.locate_named_stream("Workbook")
    return bytes(mem[base:base + size])


def records(stream):
    """(position, type, data) of every record."""
    out = []
    pos = 0
    while pos + 4 <= len(stream):
        rt, n = struct.unpack_from("<HH", stream, pos)
        out.append((pos, rt, stream[pos + 4:pos + 4 + n]))
        pos += 4 + n
    return out


def unicode_string(data, at, cch_size=2):
    """An XLUnicodeString at data[at:]: (text, position after it)."""
    n = data[at] if cch_size == 1 else struct.unpack_from("<H", data, at)[0]
    at += cch_size
    high = data[at] & 1
    at += 1
    if high:
        return data[at:at + 2 * n].decode("utf-16-le"), at + 2 * n
    return data[at:at + n].decode("latin-1"), at + n


class StreamFacts:
    """What the view reads from the records themselves, per sheet and for the workbook."""

    def __init__(self, path):
        stream = workbook_stream(path)
        recs = records(stream)
        by_pos = {p: t for p, t, _ in recs}
        self.sheets = []
        self.problems = []
        self.sst_strings = []
        sheet = None
        sst_parts = []
        in_sst = False
        extsst = None
        for pos, rt, data in recs:
            if rt == 0x0809:
                dt = struct.unpack_from("<H", data, 2)[0]
                if dt == 0x0010:
                    sheet = {"footer": None, "landscape": False, "fit": None, "index": None,
                             "dbcells": [], "types": [], "wsbool": None, "guts": None,
                             "autofilter_entries": None, "pane": None}
                    self.sheets.append(sheet)
                continue
            if in_sst and rt != 0x003C:
                in_sst = False
            if sheet is None:
                if rt == 0x00FC:
                    in_sst = True
                    sst_parts.append((pos, data))
                elif rt == 0x003C and in_sst:
                    sst_parts.append((pos, data))
                elif rt == 0x00FF:
                    extsst = data
                continue
            sheet["types"].append(rt)
            if rt == 0x0015 and data:
                sheet["footer"] = unicode_string(data, 0)[0]
            elif rt == 0x00A1:
                flags = struct.unpack_from("<H", data, 10)[0]
                sheet["landscape"] = not flags & 0x02 and not flags & 0x04
                sheet["fit_pages"] = struct.unpack_from("<HH", data, 6)
                sheet["scale"] = struct.unpack_from("<H", data, 2)[0]
            elif rt == 0x0081:
                sheet["wsbool"] = struct.unpack_from("<H", data)[0]
                sheet["fit"] = bool(sheet["wsbool"] & 0x0100)
            elif rt == 0x0080:
                sheet["guts"] = struct.unpack_from("<4H", data)
            elif rt == 0x009D:
                sheet["autofilter_entries"] = struct.unpack_from("<H", data)[0]
            elif rt == 0x0041:
                sheet["pane"] = struct.unpack_from("<4HB", data)
            elif rt == 0x020B:
                sheet["index"] = data
            elif rt == 0x00D7:
                sheet["dbcells"].append(pos)
            elif rt == 0x000A:
                self._check_index(sheet, by_pos)
                sheet = None
        self._check_extsst(stream, sst_parts, extsst)

    def _check_index(self, sheet, by_pos):
        """The INDEX record points at the sheet's DEFCOLWIDTH and at every DBCELL, in order."""
        data = sheet["index"]
        if data is None:
            self.problems.append("a sheet without INDEX")
            return
        _, mic, mac, ib_xf = struct.unpack_from("<4I", data)
        ptrs = list(struct.unpack_from("<%dI" % ((len(data) - 16) // 4), data, 16))
        if by_pos.get(ib_xf) != 0x0055:
            self.problems.append("INDEX does not point at DEFCOLWIDTH")
        if ptrs != sheet["dbcells"]:
            self.problems.append("INDEX does not list the DBCELL records: %r %r"
                                 % (ptrs, sheet["dbcells"]))
        if mac and (mac - 1) // 32 - mic // 32 + 1 != len(ptrs):
            self.problems.append("INDEX lists %d blocks for rows %d..%d" % (len(ptrs), mic, mac))

    def _check_extsst(self, stream, parts, extsst):
        """Each EXTSST entry points at the header of every dsst-th string of the SST."""
        if extsst is None:
            self.problems.append("no EXTSST")
            return
        dsst = struct.unpack_from("<H", extsst)[0]
        entries = [struct.unpack_from("<IHH", extsst, 2 + 8 * i)
                   for i in range((len(extsst) - 2) // 8)]
        # Decode the strings with their positions, following the CONTINUE rules.
        starts = []
        strings = []
        k = 0
        rec_i = 0
        pos, data = parts[0]
        at = 8
        total_unique = struct.unpack_from("<I", data, 4)[0]
        while len(strings) < total_unique:
            if at >= len(data):
                rec_i += 1
                pos, data = parts[rec_i]
                at = 0
            starts.append((pos + 4 + at, at + 4))
            n = struct.unpack_from("<H", data, at)[0]
            high = data[at + 2] & 1
            at += 3
            got = b""  # as UTF-16: the count is in UTF-16 units
            while len(got) < 2 * n:
                if at >= len(data):
                    rec_i += 1
                    pos, data = parts[rec_i]
                    high = data[0] & 1  # a continued string starts with its flags
                    at = 1
                size = 2 if high else 1
                take = min(n - len(got) // 2, (len(data) - at) // size)
                if take == 0:
                    self.problems.append("SST string %d is cut" % k)
                    return
                raw = data[at:at + take * size]
                got += raw if high else raw.decode("latin-1").encode("utf-16-le")
                at += take * size
            got = got.decode("utf-16-le")
            strings.append(got)
            k += 1
        self.sst_strings = strings
        want = [starts[i] for i in range(0, len(starts), dsst)][:128]
        got = [(ib, cb) for ib, cb, _ in entries]
        if got != want:
            self.problems.append("EXTSST %r does not match the strings %r" % (got[:5], want[:5]))


# ---------------------------------------------------------------------------------------------
# The openpyxl-like view

class _Obj:
    def __init__(self, **kw):
        self.__dict__.update(kw)


class Book:
    def __init__(self, path):
        self.xl = xlrd.open_workbook(path, formatting_info=True, ragged_rows=True)
        self.facts = StreamFacts(path)
        self._styles = {}
        self.worksheets = [Sheet(self, i) for i in range(self.xl.nsheets)]
        names = []
        for n in self.xl.name_obj_list:
            if n.builtin:
                continue
            names.append(_Obj(name=n.name, localSheetId=n.scope if n.scope >= 0 else None,
                              attr_text=self.ref_text(n)))
        self.defined_names = _Obj(definedName=names)

    def rgb(self, icv):
        if icv is None or icv >= 0x7FFF or icv not in self.xl.colour_map:
            return None
        c = self.xl.colour_map[icv]
        if c is None:
            return None
        return "FF%02X%02X%02X" % c

    def ref_text(self, name, with_sheet=True):
        """"Sheet1!$11:$11" for a name's reference, as openpyxl gives it."""
        refs = name.result.value if name.result is not None else None
        if not refs:
            return None
        sx, _, r1, r2, c1, c2 = refs[0].coords
        sheet = self.xl.sheet_by_index(sx).name
        if c1 == 0 and c2 == 256:
            a = "$%d:$%d" % (r1 + 1, r2)
        elif r1 == 0 and r2 == 65536:
            a = "$%s:$%s" % (col_letters(c1), col_letters(c2 - 1))
        elif r2 - r1 == 1 and c2 - c1 == 1:
            a = "$%s$%d" % (col_letters(c1), r1 + 1)
        else:
            a = "$%s$%d:$%s$%d" % (col_letters(c1), r1 + 1, col_letters(c2 - 1), r2)
        return sheet + "!" + a if with_sheet else a

    def style(self, xf_index):
        if xf_index not in self._styles:
            self._styles[xf_index] = self._make_style(xf_index)
        return self._styles[xf_index]

    def _make_style(self, xf_index):
        xf = self.xl.xf_list[xf_index]
        f = self.xl.font_list[xf.font_index]
        fmt = self.xl.format_map[xf.format_key].format_str
        b = xf.border
        bg = xf.background
        return _Obj(
            font=_Obj(b=bool(f.bold), i=bool(f.italic), u="single" if f.underline_type else None,
                      color=_Obj(rgb=self.rgb(f.colour_index)) if f.colour_index < 0x7FFF
                      else None,
                      sz=f.height / 20.0),
            fill=_Obj(fill_type="solid" if bg.fill_pattern == 1 else None,
                      fgColor=_Obj(rgb=self.rgb(bg.pattern_colour_index)
                                   if bg.fill_pattern == 1 else "00000000")),
            border=_Obj(top=_Obj(style=LINE_STYLES[b.top_line_style]),
                        bottom=_Obj(style=LINE_STYLES[b.bottom_line_style]),
                        left=_Obj(style=LINE_STYLES[b.left_line_style]),
                        right=_Obj(style=LINE_STYLES[b.right_line_style])),
            alignment=_Obj(horizontal=HORIZONTAL[xf.alignment.hor_align],
                           vertical=VERTICAL[xf.alignment.vert_align],
                           wrap_text=bool(xf.alignment.text_wrapped)),
            number_format=fmt,
        )


class Cell:
    def __init__(self, sheet, r, c):
        self.row, self.column = r + 1, c + 1
        self.coordinate = "%s%d" % (col_letters(c), r + 1)
        xs = sheet.xs
        if r < xs.nrows and c < xs.row_len(r):
            t = xs.cell_type(r, c)
            v = xs.cell_value(r, c)
            xf = xs.cell_xf_index(r, c)
            self.has_record = True
        else:
            t, v, xf = xlrd.XL_CELL_EMPTY, "", None
            self.has_record = False
        if t in (xlrd.XL_CELL_EMPTY, xlrd.XL_CELL_BLANK):
            self.value = None
        elif t == xlrd.XL_CELL_NUMBER and float(v).is_integer():
            self.value = int(v)
        else:
            self.value = v
        self.data_type = {xlrd.XL_CELL_TEXT: "s", xlrd.XL_CELL_NUMBER: "n"}.get(t)
        self.record_type = t
        if xf is None:
            xf = sheet.background_xf(r, c)
        self.xf_index = xf
        st = sheet.book.style(xf)
        self.font, self.fill, self.border = st.font, st.fill, st.border
        self.alignment, self.number_format = st.alignment, st.number_format
        self.hyperlink = sheet.links.get((r, c))


class Sheet:
    def __init__(self, book, index):
        self.book = book
        self.xs = book.xl.sheet_by_index(index)
        self.index = index
        self.title = self.xs.name
        self.facts = book.facts.sheets[index]
        self.merged_cells = _Obj(ranges=[
            "%s%d:%s%d" % (col_letters(c1), r1 + 1, col_letters(c2 - 1), r2)
            for r1, r2, c1, c2 in self.xs.merged_cells])
        self.links = {}
        for h in self.xs.hyperlink_list:
            if h.type == "workbook":
                link = _Obj(location=h.textmark, target=None, tooltip=h.quicktip)
            else:
                link = _Obj(location=h.textmark, target=h.url_or_path, tooltip=h.quicktip)
            self.links[(h.frowx, h.fcolx)] = link
        self.row_dimensions = _Dims(lambda r: _Obj(height=self._height(r),
                                                   outline_level=self._outline_level(r)),
                                    lambda: [r + 1 for r in sorted(self.xs.rowinfo_map)])
        # The window and the outline: frozen panes as the top-left cell of the part that
        # scrolls, the AutoFilter's range (the sheet's built-in name _FilterDatabase), where
        # outline summary rows stand (WSBOOL).
        self.freeze_panes = None
        if self.xs.panes_are_frozen:
            self.freeze_panes = "%s%d" % (col_letters(self.xs.vert_split_pos),
                                          self.xs.horz_split_pos + 1)
        wsbool = self.facts["wsbool"] or 0
        self.sheet_properties = _Obj(outlinePr=_Obj(summaryBelow=bool(wsbool & 0x0040)))
        self.auto_filter = _Obj(ref=None)
        dims = []
        for c in sorted(self.xs.colinfo_map):
            ci = self.xs.colinfo_map[c]
            if dims and dims[-1].max == c and dims[-1].width == ci.width / 256.0 \
                    and dims[-1].xf == ci.xf_index:
                dims[-1].max = c + 1
            else:
                dims.append(_Obj(min=c + 1, max=c + 1, width=ci.width / 256.0, xf=ci.xf_index))
        self.column_dimensions = {d.min: d for d in dims}
        self.page_setup = _Obj(orientation="landscape" if self.facts["landscape"]
                               else "portrait")
        footer = self.facts["footer"] or ""
        center = footer[2:] if footer.startswith("&C") else None
        self.oddFooter = _Obj(center=_Obj(text=center))
        self.print_title_rows = None
        self.print_area = None
        for n in book.xl.name_obj_list:
            if n.scope != index or not n.builtin:
                continue
            if n.name == "Print_Titles":
                self.print_title_rows = book.ref_text(n, with_sheet=False)
            elif n.name == "Print_Area":
                self.print_area = [book.ref_text(n, with_sheet=False)]
            elif n.name == "_FilterDatabase":
                self.auto_filter = _Obj(ref=book.ref_text(n, with_sheet=False).replace("$", ""))
        self._check_window_records()

    def _check_window_records(self):
        """The records behind the window and the outline agree with each other: AUTOFILTERINFO
        counts the columns of _FilterDatabase; GUTS gives the deepest row outline level plus one
        (0 without an outline); a PANE record follows frozen panes and names their counts."""
        problems = self.book.facts.problems
        entries = self.facts["autofilter_entries"]
        if self.auto_filter.ref is None:
            if entries is not None:
                problems.append("AUTOFILTERINFO without _FilterDatabase on %s" % self.title)
        else:
            ends = self.auto_filter.ref.split(":")
            c1, c2 = parse_ref(ends[0])[1], parse_ref(ends[-1])[1]
            if entries != c2 - c1 + 1:
                problems.append("AUTOFILTERINFO %r for %s on %s" % (entries, self.auto_filter.ref,
                                                                     self.title))
        levels = [info.outline_level for info in self.xs.rowinfo_map.values()]
        deepest = max(levels, default=0)
        guts = self.facts["guts"]
        if guts is None or guts[2] != (deepest + 1 if deepest else 0):
            problems.append("GUTS %r for the deepest level %d on %s" % (guts, deepest,
                                                                       self.title))
        pane = self.facts["pane"]
        if self.xs.panes_are_frozen:
            if pane is None or pane[0] != self.xs.vert_split_pos or pane[1] != \
                    self.xs.horz_split_pos or pane[2] != pane[1] or pane[3] != pane[0]:
                problems.append("PANE %r on %s" % (pane, self.title))
        elif pane is not None:
            problems.append("a PANE record without frozen panes on %s" % self.title)

    def _outline_level(self, r):
        info = self.xs.rowinfo_map.get(r - 1)
        return info.outline_level if info is not None else 0

    def _height(self, r):
        info = self.xs.rowinfo_map.get(r - 1)
        if info is None or not info.height_mismatch:
            return None
        return info.height / 20.0

    def background_xf(self, r, c):
        """The format a cell without a record shows: its row's, else its column's."""
        info = self.xs.rowinfo_map.get(r)
        # xlrd's "has_default_xf_index" is the ROW record's bit for "the row has a format".
        if info is not None and info.has_default_xf_index:
            return info.xf_index
        ci = self.xs.colinfo_map.get(c)
        return ci.xf_index if ci is not None else 15

    @property
    def max_row(self):
        return self.xs.nrows

    def __getitem__(self, ref):
        return Cell(self, *parse_ref(ref))

    def cell(self, row, column):
        return Cell(self, row - 1, column - 1)

    def iter_rows(self):
        """The cells of each row up to its last record (rows are not padded to the widest)."""
        for r in range(self.xs.nrows):
            yield [Cell(self, r, c) for c in range(self.xs.row_len(r))]


class _Dims:
    def __init__(self, fn, keys=lambda: []):
        self.fn = fn
        self.keys = keys

    def __getitem__(self, key):
        return self.fn(key)

    def items(self):
        return [(k, self.fn(k)) for k in self.keys()]

    def values(self):
        return [self.fn(k) for k in self.keys()]


def load_workbook(path):
    return Book(path)
