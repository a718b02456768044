#!/usr/bin/python3
"""Writes a large export data file for timing the parser by hand.

    bench/gen_data.py OUT.xml [--mb 100] [--kind item|document|folder] [--collection]
                              [--deep N]

The file uses the element and attribute names of examples/settings.xml. An item structure has
one top assembly with sub-assemblies of three levels below it, each item with manufacturers,
vendors, documents with files, folders, reference designators and local alternates; sub-assemblies
are added until the file reaches the requested size. --collection writes the top-level objects
as siblings instead. --deep N writes a single chain N levels deep instead.
"""

import argparse
import sys


def attrs(**kw):
    return " ".join('%s="%s"' % (k, v) for k, v in kw.items())


class Writer:
    def __init__(self, f):
        self.f = f
        self.size = 0
        self.serial = 0

    def w(self, s):
        self.f.write(s)
        self.size += len(s)

    def next_id(self, prefix):
        self.serial += 1
        return "%s-%07d" % (prefix, self.serial)


def item_open(out, close=False):
    iid = out.next_id("IT")
    out.w("<Item %s%s>\n" % (attrs(id=iid, revision="B", description="Part " + iid,
                                   status="Released", owner="eng", unit="EA",
                                   weight="1.5 kg", material="Steel"), "/" if close else ""))
    return iid


def document(out, tag):
    did = out.next_id("DOC")
    out.w("<%s><Document %s>\n" % (tag, attrs(id=did, revision="A", description="Drawing " + did,
                                              doc_type="Drawing", status="Released",
                                              author="eng")))
    for ext in ("pdf", "step"):
        out.w('<Document_Dataset><Dataset %s/></Document_Dataset>\n'
              % attrs(file_name="%s.%s" % (did, ext), file_type=ext.upper(), file_size="1 MB"))
    out.w("</Document></%s>\n" % tag)


def folder(out, tag):
    fid = out.next_id("FLD")
    out.w("<%s><Folder %s/></%s>\n" % (tag, attrs(id=fid, revision="1", description="Folder",
                                                 owner="eng", created="2024-01-01"), tag))


def item_relations(out):
    for m in range(2):
        mpn = out.next_id("MPN")
        out.w('<Item_Manufacturer %s><Manufacturer %s/></Item_Manufacturer>\n'
              % (attrs(part_number=mpn, mnf_status="Approved", country="DE"),
                 attrs(id="MNF-%d" % m, name="Maker %d" % m)))
        if m == 0:
            out.w('<Item_Vendor %s><Vendor %s/><Manufacturer id="MNF-0"/></Item_Vendor>\n'
                  % (attrs(supplier_part_number=out.next_id("SPN"), mnf_part_number=mpn,
                           lead_time="2 weeks", price="1.25"), attrs(id="VND-1", name="Shop")))
    out.w('<Item_Vendor %s><Vendor %s/></Item_Vendor>\n'
          % (attrs(supplier_part_number=out.next_id("SPN"), lead_time="1 week", price="1.10"),
             attrs(id="VND-2", name="Dealer")))
    document(out, "Item_Document")
    folder(out, "Item_Folder")


def item_tree(out, level, fanout):
    item_open(out)
    item_relations(out)
    if level > 0:
        for i in range(fanout):
            out.w('<Item_PS %s>\n' % attrs(find_number=str((i + 1) * 10), quantity=str(i + 1)))
            item_tree(out, level - 1, fanout)
            for d in range(1, 4):
                out.w('<Ref_Des designator="R%d"/>\n' % (i * 4 + d))
            out.w('<Local_Alternate alternate_id="%s"/>\n' % out.next_id("ALT"))
            out.w("</Item_PS>\n")
    out.w("</Item>\n")


def doc_tree(out, level, fanout, ps_tag="Document_PS"):
    did = out.next_id("DOC")
    out.w("<Document %s>\n" % attrs(id=did, revision="A", description="Doc " + did,
                                    doc_type="Drawing", status="Released", author="eng"))
    for ext in ("pdf", "dwg"):
        out.w('<Document_Dataset><Dataset %s/></Document_Dataset>\n'
              % attrs(file_name="%s.%s" % (did, ext), file_type=ext.upper(), file_size="2 MB"))
    out.w('<Document_Item><Item %s/></Document_Item>\n' % attrs(id=out.next_id("IT")))
    folder(out, "Document_Folder")
    document(out, "Document_Document")
    if level > 0:
        for _ in range(fanout):
            out.w("<%s>\n" % ps_tag)
            doc_tree(out, level - 1, fanout)
            out.w("</%s>\n" % ps_tag)
    out.w("</Document>\n")


def folder_tree(out, level, fanout):
    fid = out.next_id("FLD")
    out.w("<Folder %s>\n" % attrs(id=fid, revision="1", description="Folder " + fid,
                                  owner="eng", created="2024-01-01"))
    out.w('<Folder_Item><Item %s/></Folder_Item>\n' % attrs(id=out.next_id("IT")))
    document(out, "Folder_Document")
    folder(out, "Folder_Folder")
    if level > 0:
        for _ in range(fanout):
            out.w("<Folder_PS>\n")
            folder_tree(out, level - 1, fanout)
            out.w("</Folder_PS>\n")
    out.w("</Folder>\n")


TREES = {"item": (item_tree, "Item", "Item_PS"),
         "document": (doc_tree, "Document", "Document_PS"),
         "folder": (folder_tree, "Folder", "Folder_PS")}


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("out")
    ap.add_argument("--mb", type=float, default=100.0)
    ap.add_argument("--kind", choices=sorted(TREES), default="item")
    ap.add_argument("--collection", action="store_true")
    ap.add_argument("--deep", type=int, default=0)
    a = ap.parse_args()
    tree, obj, ps = TREES[a.kind]
    target = int(a.mb * 1024 * 1024)
    with open(a.out, "w", encoding="utf-8", newline="\n") as f:
        out = Writer(f)
        out.w('<?xml version="1.0" encoding="UTF-8"?>\n<Root_Element>\n')
        if a.deep:
            for _ in range(a.deep):
                out.w('<%s id="%s"><%s>' % (obj, out.next_id("D"), ps))
            out.w('<%s id="LEAF"/>' % obj)
            for _ in range(a.deep):
                out.w("</%s></%s>\n" % (ps, obj))
        elif a.collection:
            while out.size < target:
                tree(out, 2, 4)
        else:
            out.w('<%s id="TOP" revision="A" description="Top">\n' % obj)
            while out.size < target:
                out.w("<%s>\n" % ps)
                tree(out, 3, 4)
                out.w("</%s>\n" % ps)
            out.w("</%s>\n" % obj)
        out.w("</Root_Element>\n")
    print("%s: %.1f MB, %d ids" % (a.out, out.size / 1048576.0, out.serial), file=sys.stderr)


if __name__ == "__main__":
    main()
