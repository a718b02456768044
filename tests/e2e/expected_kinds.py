"""What the workbook of each kind of export holds, written out by hand.

Every value below was worked out from a data file in tests/data and the layout rules of the
export (examples/settings.xml gives the captions), never taken from a workbook the tool wrote.
The data is independent of the file format and of the reader: test_kinds.py checks it against
the saved workbook through a reader adapter (readers.py), so another reader can be pointed at
the same expectations.

How the positions follow from the rules, in short:
- rows 1 and 2: caption labels and setup values (the fourth value is the export date and time);
  row 4 the main-panel bar, row 5 its headings (a collection leaves out the "Level" heading);
- main panel from row 6: one row per object of a structure (level, then ID, then the kind's
  five fields), one row per top-level object of a collection (no level column); one empty row,
  then the property-panel bar;
- a block: the object's header row (label/value pairs of ID, revision, description), the
  "Attributes" band and the attribute grid (three pairs to a row, filled down the columns
  first), then the kind's lists; an item closes its header and attributes with one empty row;
- each list begins with a merged caption band; a document line is followed by its attribute
  values and, when it has files, by the "Files of Document" band, each file's line, its
  attribute values and one empty row;
- anchor names are "ID_" + identifier, revision and object index joined by "_", every character
  other than a letter, digit or one of [ \\ ] ^ _ ` written as "_" and its code (a space is
  _32, a hyphen _45, a full stop _46); the main-panel link of a structure is in column B, of a
  collection in column A, and the name refers to the whole first row of the object's block.
"""


class Like:
    """A text value that must match a regular expression."""

    def __init__(self, pattern):
        self.pattern = pattern

    def __repr__(self):
        return f"Like({self.pattern!r})"


class Row:
    """The six cells A..F of a row and the spans of it that are merged ("A:F", "D:F", ...)."""

    def __init__(self, values, merged=()):
        assert len(values) <= 6, values
        self.values = list(values) + [None] * (6 - len(values))
        self.merged = tuple(merged)

    def __repr__(self):
        return f"Row({self.values!r}, merged={self.merged!r})"


def line(*values):
    """A row of plain cells, nothing merged."""
    return Row(values)


def band(text):
    """A caption band: the text in column A, columns A to F merged."""
    return Row([text], merged=("A:F",))


def refdes_row(description, designators):
    """The second row of a part-list child: the designators span columns D to F."""
    return Row(["Description", description, "Reference Designators", designators],
               merged=("D:F",))


def alternates_heading(child_id):
    """The heading of a child's local alternates: caption over A..B, the child's ID in C."""
    return Row(["Local Alternative Items of Child", None, child_id], merged=("A:B",))


class Link:
    """A main-panel hyperlink: its cell, the defined name it points at and the row that name
    refers to (the first row of the object's block, whose column B holds the object's ID)."""

    def __init__(self, cell, name, block_row, ident):
        self.cell, self.name, self.block_row, self.ident = cell, name, block_row, ident

    def __repr__(self):
        return f"Link({self.cell}, {self.name}, {self.block_row}, {self.ident!r})"


DATE = Like(r"^\d{2}/\d{2}/\d{4} \d{1,2}:\d{2}:\d{2} (AM|PM)$")
CAPTIONS = {1: line("Project", "Workbook", "Exported by", "Export date"),
            2: line("Demo", None, "me", DATE)}

ATTRIBUTES = band("Attributes")
FILES = band("Files of Document")


def item_header(ident, revision, description):
    return line("Item ID", ident, "Revision", revision, "Description", description)


def doc_header(ident, revision, description):
    return line("Doc. ID", ident, "Revision", revision, "Description", description)


def folder_header(ident, revision, description):
    return line("Folder ID", ident, "Revision", revision, "Description", description)


def item_attributes(status=None, owner=None, unit=None, weight=None, material=None):
    """Five item attributes in two rows: Status, Owner down column A; Unit, Weight down C;
    Material in E."""
    return [line("Status", status, "Unit", unit, "Material", material),
            line("Owner", owner, "Weight", weight)]


def doc_attributes(doc_type=None, status=None, author=None):
    return line("Type", doc_type, "Status", status, "Author", author)


def folder_attributes(owner=None, created=None):
    return line("Owner", owner, "Created", created)


def file_lines(name, file_type, size):
    """A file's line (its name a link to the file), its attributes and the empty row after it."""
    return [line("File Name", name), line("File Type", file_type, "Size", size), None]


def rows_from(first, *rows):
    """Numbers a run of rows from `first`; a nested list is spliced in; None is an empty row."""
    out = {}
    r = first
    flat = []
    for x in rows:
        flat.extend(x if isinstance(x, list) else [x])
    for x in flat:
        if x is not None:
            out[r] = x
        r += 1
    return out, r


def kind(**k):
    return k


# Item collection (tests/data/e2e-item-collection.xml) ------------------------------------------
# Objects: 0 K-1 (level 0), 1 S-1 (its child, level 1), 2 "R 2", 3 P.3. The child is not listed
# in the main panel and has no block, so the links stay in rows 6 to 8 while the names carry the
# object indices 0, 2 and 3.
_ic_main, _ = rows_from(
    4,
    band("Main Panel: Item Collection"),
    line("Item ID", "Find No", "Description", "Quantity", "Revision"),
    # A top-level object of a collection has no product-structure parent: no find number and
    # no quantity.
    line("K-1", None, "Bracket kit", None, "A"),
    line("R 2", None, "Resistor", None, None),
    line("P.3", None, "Plate", None, "C"),
    None,
    band("Property Panel: Items"),
)
_ic_detail, _ic_next = rows_from(
    11,
    # K-1: part list with one child, whose designators are grouped and whose two alternates
    # follow; one manufacturer without suppliers.
    item_header("K-1", "A", "Bracket kit"),
    ATTRIBUTES,
    item_attributes("Released", "ann", "set", "1 kg", "Steel"),
    None,
    band("Part List"),
    line("Child", "S-1", "Find No", "010", "Quantity", "4"),
    refdes_row("Screw", "X1-X3,X5"),
    alternates_heading("S-1"),
    line("Alternate ID", "S-1A"),
    line("Alternate ID", "S-1B"),
    None,
    band("Manufacturers"),
    line("Man. ID", "M-1", "MPN", "MPN-K1", "Name", "Acme"),
    # "R 2" (row 25): a document with a file, a folder, one manufacturer with a supplier and one
    # without, and a supplier of its own: both manufacturer lists and the supplier list.
    item_header("R 2", None, "Resistor"),
    ATTRIBUTES,
    item_attributes("Draft", "bob"),
    None,
    band("Documents"),
    doc_header("DS-2", "1", "Data sheet"),
    doc_attributes("PDF", "Released", "cy"),
    FILES,
    file_lines("https://plm.example.com/ds2.pdf", "PDF", "80 KB"),
    band("Folders"),
    folder_header("LIB", "3", "Library"),
    folder_attributes("dan", "2024"),
    band("Manufacturers"),
    line("Man. ID", "M-2", "MPN", "RC-10K", "Name", "Yageo"),
    line("Man. ID", "M-3", "MPN", "ERJ-10K", "Name", "Panasonic"),
    band("Suppliers"),
    line("Sup. ID", "V-2", "SPN", "MO-10K", "Name", "Mouse"),
    line("Lead Time", "3d", "Price", "0.02"),
    band("Manufacturers and their Suppliers"),
    line("Man. ID", "M-2", "MPN", "RC-10K", "Name", "Yageo"),
    line("Status", "Approved", "Country", "TW"),
    Row(["Suppliers of Manufacturer"], merged=("A:B",)),
    line("Sup. ID", "V-1", "SPN", "DK-10K", "Name", "Digi"),
    line("Lead Time", "2d", "Price", "0.01"),
    line("Man. ID", "M-3", "MPN", "ERJ-10K", "Name", "Panasonic"),
    line("Status", "Pending", "Country", "JP"),
    # P.3 (row 54): attributes only; no manufacturer, no supplier, so no list at all.
    item_header("P.3", "C", "Plate"),
    ATTRIBUTES,
    item_attributes("In Work"),
    None,
)
ITEM_COLLECTION = kind(
    data="e2e-item-collection.xml", object_type="Item", space_type="COLLECTION",
    rows={**CAPTIONS, **_ic_main, **_ic_detail},
    last_row=_ic_next,  # the print area ends on the row after the last block
    links=[Link("A6", "ID_K_451_A_0", 11, "K-1"),
           Link("A7", "ID_R_322__2", 25, "R 2"),
           Link("A8", "ID_P_463_C_3", 54, "P.3")],
    files={"B34": "https://plm.example.com/ds2.pdf"},
)

# Document structure (tests/data/e2e-doc-structure.xml) -----------------------------------------
# Objects: 0 TD-1 (level 0), 1 DRW-1 (1), 2 DRW-2 (2), 3 "MAN 1" (1).
_ds_main, _ = rows_from(
    4,
    band("Main Panel: Document Structure"),
    line("Level", "Doc. ID", "Revision", "Description", "Type", "Status"),
    line(0, "TD-1", "B", "Doc set", "SET", "Released"),
    line(1, "DRW-1", "C", "Drawing", "DWG", "Released"),
    line(2, "DRW-2", "A", "Part drawing", "DWG", "Draft"),
    line(1, "MAN 1", None, "Manual", "MAN", "In Work"),
    None,
    band("Property Panel: Documents"),
)
_ds_detail, _ds_next = rows_from(
    12,
    # TD-1: its file, then related items, related folders, child documents (each with its
    # files), related documents, in that order.
    doc_header("TD-1", "B", "Doc set"),
    ATTRIBUTES,
    doc_attributes("SET", "Released", "ann"),
    FILES,
    file_lines("https://plm.example.com/td1.pdf", "PDF", "9 KB"),
    band("Items"),
    # An item in a document's list: its attribute values without a heading, one empty row.
    item_header("P-1", "A", "Pump"),
    item_attributes("Released", "bob", "ea", "3 kg", "Cast"),
    None,
    band("Folders"),
    folder_header("F-9", "2", "Project"),
    folder_attributes("ann", "2024"),
    band("Child Documents"),
    doc_header("DRW-1", "C", "Drawing"),
    doc_attributes("DWG", "Released", "cy"),
    FILES,
    file_lines("/srv/drw1.pdf", "PDF", "1 MB"),
    file_lines("/srv/drw1.dwg", "DWG", "2 MB"),
    doc_header("MAN 1", None, "Manual"),
    doc_attributes("MAN", "In Work", "dan"),
    band("Reference Documents"),
    doc_header("REF-1", "A", "Standard"),
    doc_attributes("STD", "Released", "iso"),
    # DRW-1 (row 42)
    doc_header("DRW-1", "C", "Drawing"),
    ATTRIBUTES,
    doc_attributes("DWG", "Released", "cy"),
    FILES,
    file_lines("/srv/drw1.pdf", "PDF", "1 MB"),
    file_lines("/srv/drw1.dwg", "DWG", "2 MB"),
    band("Child Documents"),
    doc_header("DRW-2", "A", "Part drawing"),
    doc_attributes("DWG", "Draft", "cy"),
    # DRW-2 (row 55)
    doc_header("DRW-2", "A", "Part drawing"),
    ATTRIBUTES,
    doc_attributes("DWG", "Draft", "cy"),
    # "MAN 1" (row 58)
    doc_header("MAN 1", None, "Manual"),
    ATTRIBUTES,
    doc_attributes("MAN", "In Work", "dan"),
)
DOC_STRUCTURE = kind(
    data="e2e-doc-structure.xml", object_type="Document", space_type="STRUCTURE",
    rows={**CAPTIONS, **_ds_main, **_ds_detail},
    last_row=_ds_next,
    links=[Link("B6", "ID_TD_451_B_0", 12, "TD-1"),
           Link("B7", "ID_DRW_451_C_1", 42, "DRW-1"),
           Link("B8", "ID_DRW_452_A_2", 55, "DRW-2"),
           Link("B9", "ID_MAN_321__3", 58, "MAN 1")],
    files={"B16": "https://plm.example.com/td1.pdf",
           "B31": "/srv/drw1.pdf", "B34": "/srv/drw1.dwg",
           "B46": "/srv/drw1.pdf", "B49": "/srv/drw1.dwg"},
)

# Folder structure (tests/data/e2e-folder-tree.xml) ---------------------------------------------
# Objects: 0 PRJ-1 (level 0), 1 WP-1 (1), 2 WP-1.1 (2), 3 "WP 2" (1). A folder has four fixed
# main-panel fields; the fifth column stays empty.
_fs_main, _ = rows_from(
    4,
    band("Main Panel: Folder Structure"),
    line("Level", "Folder ID", "Revision", "Description", "Owner"),
    line(0, "PRJ-1", "1", "Programme", "ann"),
    line(1, "WP-1", "2", "Work package one", "bob"),
    line(2, "WP-1.1", "1", "Task", "eve"),
    line(1, "WP 2", None, "Work package two", "cy"),
    None,
    band("Property Panel: Folders"),
)
_fs_detail, _fs_next = rows_from(
    12,
    # PRJ-1: child folders first, then items, documents, related folders.
    folder_header("PRJ-1", "1", "Programme"),
    ATTRIBUTES,
    folder_attributes("ann", "2024"),
    band("Child Folders"),
    folder_header("WP-1", "2", "Work package one"),
    folder_attributes("bob", "2025"),
    folder_header("WP 2", None, "Work package two"),
    folder_attributes("cy"),
    band("Items"),
    item_header("P-1", "A", "Pump"),
    item_attributes("Released", "bob", "ea", "3 kg", "Cast"),
    None,
    band("Documents"),
    doc_header("REQ-1", "B", "Requirements"),
    doc_attributes("REQ", "Released", "cy"),
    FILES,
    file_lines("https://plm.example.com/req1.docx", "DOCX", "40 KB"),
    band("Reference Folders"),
    folder_header("ARCH", "1", "Archive"),
    folder_attributes("dan", "2019"),
    # WP-1 (row 35)
    folder_header("WP-1", "2", "Work package one"),
    ATTRIBUTES,
    folder_attributes("bob", "2025"),
    band("Child Folders"),
    folder_header("WP-1.1", "1", "Task"),
    folder_attributes("eve", "2025"),
    # WP-1.1 (row 41)
    folder_header("WP-1.1", "1", "Task"),
    ATTRIBUTES,
    folder_attributes("eve", "2025"),
    # "WP 2" (row 44)
    folder_header("WP 2", None, "Work package two"),
    ATTRIBUTES,
    folder_attributes("cy"),
)
FOLDER_STRUCTURE = kind(
    data="e2e-folder-tree.xml", object_type="Folder", space_type="STRUCTURE",
    rows={**CAPTIONS, **_fs_main, **_fs_detail},
    last_row=_fs_next,
    links=[Link("B6", "ID_PRJ_451_1_0", 12, "PRJ-1"),
           Link("B7", "ID_WP_451_2_1", 35, "WP-1"),
           Link("B8", "ID_WP_451_461_1_2", 41, "WP-1.1"),
           Link("B9", "ID_WP_322__3", 44, "WP 2")],
    files={"B29": "https://plm.example.com/req1.docx"},
)

# Folder collection (tests/data/e2e-folder-collection.xml) --------------------------------------
# Objects: 0 LIB (level 0), 1 LIB-SUB (its sub-folder, level 1), 2 ARCH, 3 E_1.
_fc_main, _ = rows_from(
    4,
    band("Main Panel: Folder Collection"),
    line("Folder ID", "Revision", "Description", "Owner"),
    line("LIB", "3", "Library", "ann"),
    line("ARCH", None, "Archive", "dan"),
    line("E_1", "1", "Empty", None),
    None,
    band("Property Panel: Folders"),
)
_fc_detail, _fc_next = rows_from(
    11,
    # LIB: its sub-folder is listed among its child folders although it has no block.
    folder_header("LIB", "3", "Library"),
    ATTRIBUTES,
    folder_attributes("ann", "2019"),
    band("Child Folders"),
    folder_header("LIB-SUB", "1", "Sub library"),
    folder_attributes("bob", "2020"),
    band("Items"),
    item_header("R-1", "A", "Resistor"),
    item_attributes("Released", "ann", "ea", None, "Film"),
    None,
    item_header("C-1", "B", "Capacitor"),
    item_attributes("Draft"),
    None,
    # ARCH (row 26): a document without files, then a related folder.
    folder_header("ARCH", None, "Archive"),
    ATTRIBUTES,
    folder_attributes("dan"),
    band("Documents"),
    doc_header("OLD-1", "Z", "Old drawing"),
    doc_attributes("DWG", "Obsolete", "eve"),
    band("Reference Folders"),
    folder_header("LIB", "3", "Library"),
    folder_attributes("ann", "2019"),
    # E_1 (row 35): nothing but its attributes.
    folder_header("E_1", "1", "Empty"),
    ATTRIBUTES,
    folder_attributes(),
)
FOLDER_COLLECTION = kind(
    data="e2e-folder-collection.xml", object_type="Folder", space_type="COLLECTION",
    rows={**CAPTIONS, **_fc_main, **_fc_detail},
    last_row=_fc_next,
    links=[Link("A6", "ID_LIB_3_0", 11, "LIB"),
           Link("A7", "ID_ARCH__2", 26, "ARCH"),
           # The underscore of the identifier is kept as it is.
           Link("A8", "ID_E_1_1_3", 35, "E_1")],
    files={},
)

KINDS = {"item collection": ITEM_COLLECTION, "document structure": DOC_STRUCTURE,
         "folder structure": FOLDER_STRUCTURE, "folder collection": FOLDER_COLLECTION}

# Reference designators (tests/data/e2e-refdes.xml) ---------------------------------------------
# An item structure: B-1 (row 6) and its child R-10K (row 7); B-1's block starts at row 10
# (header, attributes band, two attribute rows, empty row, part-list band at 15), so the child's
# two part-list rows are 16 and 17, the designators in D17. Exported in the order
# R3 R1 R2 R10 C7 R2: the built-in grouping sorts by prefix and number, drops the duplicate and
# writes the run R1 R2 R3 as a range; without grouping they stay as exported. Joined with ",".
REFDES = kind(
    data="e2e-refdes.xml", object_type="Item", space_type="STRUCTURE",
    child_rows={16: line("Child", "R-10K", "Find No", "1", "Quantity", "5")},
    designator_row=17, description="Resistor",
    grouped={None: "C7,R1-R3,R10", "ranges": "C7,R1-R3,R10", "none": "R3,R1,R2,R10,C7,R2"},
)
