#!/usr/bin/python3
"""Writes export data files of a chosen size and shape, with a matching settings file and setup
strings, for measuring exports. The same arguments always give the same files (seeded).

    bench/gen_data.py OUT.xml [--kind item|document|folder] [--mode structure|collection]
                      [--objects N | --mb MB] [--depth D] [--fanout F] [--attrs A]
                      [--docs N] [--files N] [--folders N] [--mnfs N] [--vnds N]
                      [--alternates N] [--refdes N] [--common P] [--seed S]
                      [--settings SETTINGS.xml] [--setup-dir DIR]
    bench/gen_data.py OUT.xml --deep N      a single chain N levels deep (parser stress)

A structure export is one top object with complete subtrees of the given depth and fan-out
below it, as many as the number of objects asks for (the last one cut short); a collection
lists the objects as siblings, each with its own subtree of the same depth. --objects counts
the objects the export lists in its main panel (for a collection, the top-level ones); --mb keeps adding subtrees until
the file reaches that size. The counts of related objects are averages (0.25: one object in
four has one). Every object carries A attributes (attr_01 ...); items carry the
related documents (each with its files), folders, manufacturers, vendors, and each child its
local alternates and reference designators; documents carry files, related items, folders and
documents; folders related items, documents and folders. With --common P, an item at the bottom
of a structure is, with probability P, one of 20 common parts (CP-001 ... CP-020, revision A,
without relations) that many assemblies share, as screws and washers are shared; the top's
structure elements then carry a find number and a quantity as all others do.

--settings writes the settings file that shows exactly those attributes (from
examples/settings.xml); --setup-dir writes the setup strings of the six exports.
"""

import argparse
import os
import random
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
WORDS = ("bracket housing shaft cover gasket bearing valve sensor cable board screw washer "
         "spring seal pump motor flange clamp plate nut bolt pin ring filter fan relay").split()


def esc(s):
    return s.replace("&", "&amp;").replace("<", "&lt;").replace('"', "&quot;")


def attrs(**kw):
    return " ".join('%s="%s"' % (k, esc(str(v))) for k, v in kw.items())


class Gen:
    def __init__(self, f, a):
        self.f = f
        self.a = a
        self.rnd = random.Random(a.seed)
        self.size = 0
        self.serial = 0
        self.objects = 0  # objects in the file
        self.listed = 0  # objects the export lists: all of a structure, the top level of a collection

    def w(self, s):
        self.f.write(s)
        self.size += len(s)

    def next_id(self, prefix):
        self.serial += 1
        return "%s-%07d" % (prefix, self.serial)

    def count(self, x):
        """A count of x on average: its whole part, plus one as often as its fraction says."""
        n = int(x)
        return n + (1 if self.rnd.random() < x - n else 0)

    def text(self, n=3):
        return " ".join(self.rnd.choice(WORDS) for _ in range(n))

    def obj_attrs(self):
        return {"attr_%02d" % (i + 1): "%s %d" % (self.rnd.choice(WORDS), self.rnd.randrange(1000))
                for i in range(self.a.attrs)}

    # Related objects (never exported objects themselves).
    def document(self, tag, files):
        did = self.next_id("DOC")
        self.w("<%s><Document %s>\n" % (tag, attrs(id=did, revision="A",
                                                   description="Drawing " + self.text(2),
                                                   doc_type="Drawing", status="Released",
                                                   author="eng", **self.obj_attrs())))
        for k in range(files):
            ext = ("pdf", "step", "dwg", "docx")[k % 4]
            self.w('<Document_Dataset><Dataset %s/></Document_Dataset>\n'
                   % attrs(file_name="/vault/%s/%s_%d.%s" % (did[-3:], did, k, ext),
                           file_type=ext.upper(), file_size="%d KB" % self.rnd.randrange(1, 9999)))
        self.w("</Document></%s>\n" % tag)

    def folder(self, tag):
        self.w("<%s><Folder %s/></%s>\n" % (tag, attrs(id=self.next_id("FLD"), revision="1",
                                                      description="Folder " + self.text(2),
                                                      owner="eng", created="2024-01-01",
                                                      **self.obj_attrs()), tag))

    def item_ref(self, tag):
        self.w("<%s><Item %s/></%s>\n" % (tag, attrs(id=self.next_id("IT"), revision="A",
                                                    description=self.text(), status="Released",
                                                    **self.obj_attrs()), tag))

    def item_relations(self):
        a = self.a
        mpns = []
        for m in range(self.count(a.mnfs)):
            mpn = self.next_id("MPN")
            mpns.append(mpn)
            self.w('<Item_Manufacturer %s><Manufacturer %s/></Item_Manufacturer>\n'
                   % (attrs(part_number=mpn, mnf_status="Approved", country="DE"),
                      attrs(id="MNF-%03d" % self.rnd.randrange(500), name="Maker " + self.text(1))))
        for v in range(self.count(a.vnds)):
            # Every other vendor supplies one of the manufacturers' parts.
            if mpns and v % 2 == 0:
                self.w('<Item_Vendor %s><Vendor %s/><Manufacturer id="MNF"/></Item_Vendor>\n'
                       % (attrs(supplier_part_number=self.next_id("SPN"),
                                mnf_part_number=mpns[(v // 2) % len(mpns)], lead_time="2 weeks",
                                price="%.2f" % self.rnd.uniform(0.1, 99)),
                          attrs(id="VND-%03d" % self.rnd.randrange(500), name="Shop")))
            else:
                self.w('<Item_Vendor %s><Vendor %s/></Item_Vendor>\n'
                       % (attrs(supplier_part_number=self.next_id("SPN"), lead_time="1 week",
                                price="%.2f" % self.rnd.uniform(0.1, 99)),
                          attrs(id="VND-%03d" % self.rnd.randrange(500), name="Dealer")))
        for _ in range(self.count(a.docs)):
            self.document("Item_Document", self.count(a.files))
        for _ in range(self.count(a.folders)):
            self.folder("Item_Folder")

    # Exported objects, with their subtrees.
    def item(self, level, budget):
        a = self.a
        self.objects += 1
        budget[0] -= 1
        if level == 0 and a.common > 0 and self.rnd.random() < a.common:
            k = self.rnd.randrange(20) + 1
            self.w("<Item %s/>\n" % attrs(id="CP-%03d" % k, revision="A",
                                          description="Common part %d" % k, status="Released",
                                          owner="eng"))
            return
        self.w("<Item %s>\n" % attrs(id=self.next_id("IT"), revision=self.rnd.choice("ABCD"),
                                     description=self.text(), status="Released", owner="eng",
                                     **self.obj_attrs()))
        self.item_relations()
        if level > 0:
            for i in range(a.fanout):
                if budget[0] <= 0:
                    break
                self.w('<Item_PS %s>\n' % attrs(find_number=(i + 1) * 10,
                                                quantity=self.rnd.randrange(1, 9)))
                self.item(level - 1, budget)
                for d in range(self.count(a.refdes)):
                    self.w('<Ref_Des designator="%s%d"/>\n' % (self.rnd.choice("RCLU"),
                                                              i * a.refdes + d + 1))
                for _ in range(self.count(a.alternates)):
                    self.w('<Local_Alternate alternate_id="%s"/>\n' % self.next_id("ALT"))
                self.w("</Item_PS>\n")
        self.w("</Item>\n")

    def doc(self, level, budget):
        a = self.a
        self.objects += 1
        budget[0] -= 1
        did = self.next_id("DOC")
        self.w("<Document %s>\n" % attrs(id=did, revision="A", description="Doc " + self.text(),
                                         doc_type="Drawing", status="Released", author="eng",
                                         **self.obj_attrs()))
        for k in range(self.count(a.files)):
            ext = ("pdf", "dwg", "step", "docx")[k % 4]
            self.w('<Document_Dataset><Dataset %s/></Document_Dataset>\n'
                   % attrs(file_name="/vault/%s/%s_%d.%s" % (did[-3:], did, k, ext),
                           file_type=ext.upper(), file_size="%d KB" % self.rnd.randrange(1, 9999)))
        for _ in range(self.count(a.items)):
            self.item_ref("Document_Item")
        for _ in range(self.count(a.folders)):
            self.folder("Document_Folder")
        for _ in range(self.count(a.docs)):
            self.document("Document_Document", self.count(a.files))
        if level > 0:
            for _ in range(a.fanout):
                if budget[0] <= 0:
                    break
                self.w("<Document_PS>\n")
                self.doc(level - 1, budget)
                self.w("</Document_PS>\n")
        self.w("</Document>\n")

    def fold(self, level, budget):
        a = self.a
        self.objects += 1
        budget[0] -= 1
        self.w("<Folder %s>\n" % attrs(id=self.next_id("FLD"), revision="1",
                                       description="Folder " + self.text(), owner="eng",
                                       created="2024-01-01", **self.obj_attrs()))
        for _ in range(self.count(a.items)):
            self.item_ref("Folder_Item")
        for _ in range(self.count(a.docs)):
            self.document("Folder_Document", self.count(a.files))
        for _ in range(self.count(a.folders)):
            self.folder("Folder_Folder")
        if level > 0:
            for _ in range(a.fanout):
                if budget[0] <= 0:
                    break
                self.w("<Folder_PS>\n")
                self.fold(level - 1, budget)
                self.w("</Folder_PS>\n")
        self.w("</Folder>\n")


TREES = {"item": ("item", "Item", "Item_PS"),
         "document": ("doc", "Document", "Document_PS"),
         "folder": ("fold", "Folder", "Folder_PS")}


def write_data(a):
    meth, obj, ps = TREES[a.kind]
    target = int(a.mb * 1024 * 1024) if a.mb else 0
    # With --mb the number of objects is open: subtrees are added until the size is reached.
    budget = [a.objects if not target else 1 << 62]

    def more():
        return budget[0] > 0 and (not target or g.size < target)

    with open(a.out, "w", encoding="utf-8", newline="\n") as f:
        g = Gen(f, a)
        tree = getattr(g, meth)
        g.w('<?xml version="1.0" encoding="UTF-8"?>\n<Root_Element>\n')
        if a.deep:
            for _ in range(a.deep):
                g.w('<%s id="%s"><%s>' % (obj, g.next_id("D"), ps))
            g.w('<%s id="LEAF"/>' % obj)
            for _ in range(a.deep):
                g.w("</%s></%s>\n" % (ps, obj))
        elif a.mode == "collection":
            # Only the objects of the top level are listed; their subtrees come on top.
            while more():
                budget[0] -= 1
                g.listed += 1
                tree(a.depth - 1, [1 << 62])
        else:
            # The top object, then complete subtrees below it until the budget is spent.
            g.objects += 1
            budget[0] -= 1
            g.w('<%s %s>\n' % (obj, attrs(id="TOP-0000001", revision="A",
                                          description="Top assembly", **g.obj_attrs())))
            while more():
                # With shared parts the top's structure elements carry a find number and a
                # quantity like every other one, so that every total of the structure is known.
                g.w("<%s%s>\n" % (ps, ' find_number="10" quantity="1"' if a.common > 0 else ""))
                tree(a.depth - 2, budget)
                g.w("</%s>\n" % ps)
            g.w("</%s>\n" % obj)
        g.w("</Root_Element>\n")
    return g


def write_settings(a, path):
    with open(os.path.join(HERE, "..", "examples", "settings.xml"), encoding="utf-8") as f:
        s = f.read()
    rows = "\n".join('          <ATTR_%02d ORDER="%d" FIELD="attr_%02d" VISIBLE="True">Attribute %d'
                     '</ATTR_%02d>' % (i + 1, i + 1, i + 1, i + 1, i + 1) for i in range(a.attrs))
    for section in ("ITEM_ATTR_LBL", "DOC_ATTR_LBL", "FOLDER_ATTR_LBL"):
        s = re.sub(r"(<%s>\s*<ATTRIBUTE_LIST_LBL>).*?(\s*</ATTRIBUTE_LIST_LBL>)" % section,
                   lambda m: m.group(1) + "\n" + rows + m.group(2), s, flags=re.S)
    with open(path, "w", encoding="utf-8", newline="\n") as f:
        f.write(s)


def write_setups(folder):
    os.makedirs(folder, exist_ok=True)
    for kind, obj in (("item", "Item"), ("doc", "Document"), ("folder", "Folder")):
        for mode in ("structure", "collection"):
            with open(os.path.join(folder, "%s-%s.xml" % (kind, mode)), "w",
                      encoding="utf-8", newline="\n") as f:
                f.write("<SETUP>\n  <PROJECT>Benchmark</PROJECT>\n  <WORKBOOK_NAME></WORKBOOK_NAME>\n"
                        "  <EXPORTED_BY>bench</EXPORTED_BY>\n  <EXPORT_DATE>1/1/2025</EXPORT_DATE>\n"
                        "  <OBJECT_TYPE>%s</OBJECT_TYPE>\n  <SPACE_TYPE>%s</SPACE_TYPE>\n"
                        "</SETUP>\n" % (obj, mode.upper()))


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("out")
    ap.add_argument("--kind", choices=sorted(TREES), default="item")
    ap.add_argument("--mode", choices=("structure", "collection"), default="structure")
    ap.add_argument("--collection", dest="mode", action="store_const", const="collection")
    ap.add_argument("--objects", type=int, default=1000)
    ap.add_argument("--mb", type=float, default=0.0)
    ap.add_argument("--depth", type=int, default=5, help="levels of a tree, the top one included")
    ap.add_argument("--fanout", type=int, default=4)
    ap.add_argument("--attrs", type=int, default=5)
    ap.add_argument("--docs", type=float, default=1)
    ap.add_argument("--files", type=float, default=2)
    ap.add_argument("--folders", type=float, default=0)
    ap.add_argument("--items", type=float, default=1, help="related items of documents and folders")
    ap.add_argument("--mnfs", type=float, default=1)
    ap.add_argument("--vnds", type=float, default=1)
    ap.add_argument("--alternates", type=float, default=1)
    ap.add_argument("--refdes", type=float, default=2)
    ap.add_argument("--common", type=float, default=0.0,
                    help="share of bottom items that are one of 20 common parts")
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--deep", type=int, default=0)
    ap.add_argument("--settings")
    ap.add_argument("--setup-dir")
    a = ap.parse_args()
    if a.depth < (1 if a.mode == "collection" else 2):
        ap.error("--depth must be at least 2 (1 for a collection)")
    g = write_data(a)
    if a.settings:
        write_settings(a, a.settings)
    if a.setup_dir:
        write_setups(a.setup_dir)
    listed = g.listed if a.mode == "collection" else g.objects
    print("%s: %.1f MB, %d objects, %d listed" % (a.out, g.size / 1048576.0, g.objects, listed),
          file=sys.stderr)


if __name__ == "__main__":
    main()
