// The detail blocks of the property panel: one block per object, with its header row, its
// attributes and the lists of what it is related to; and the part list of an item.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modEnvironment.h"
#include "workbook/clsBldExcel.h"

namespace {

// A key of a child list: the child's index in its top-level array, in decimal. Anything else
// is a type mismatch.
long ChildIndex(const std::string& sKey) {
    size_t p = 0;
    size_t q = sKey.size();
    while (p < q && sKey[p] == ' ') {
        ++p;
    }
    while (q > p && sKey[q - 1] == ' ') {
        --q;
    }
    if (p == q) RaiseError(modConst::errTypeMismatch);
    long long n = 0;
    for (size_t i = p; i < q; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(sKey[i]))) {
            RaiseError(modConst::errTypeMismatch);
        }
        n = n * 10 + (sKey[i] - '0');
        if (n > INT32_MAX) RaiseError(modConst::errOverflow);
    }
    return static_cast<long>(n);
}

// Takes the first key off a child list ("1!4!9!" gives 1 and leaves "4!9!"), so that the
// children come in the order in which the export lists them.
long TakeFirstChild(std::string& sChildren) {
    const size_t p = sChildren.find('!');
    std::string sKey = sChildren.substr(0, p);
    sChildren.erase(0, p == std::string::npos ? p : p + 1);
    return ChildIndex(sKey);
}

// Reads the key at position p of a child list and moves p past it and its "!"; the list itself
// is left as it is, so that a long part list is walked once.
long NextChild(const std::string& sChildren, size_t& p) {
    size_t q = sChildren.find('!', p);
    if (q == std::string::npos) q = sChildren.size();
    std::string sKey = sChildren.substr(p, q - p);
    p = q < sChildren.size() ? q + 1 : q;
    return ChildIndex(sKey);
}

template <class T>
void FreeAll(T& o) {
    T().swap(o);
}

// What only the blocks show of an object. Its level, identifier and revision stay, for the
// main panel's links are formed from them after the blocks; with bViews, also its description,
// quantity and find number, which the views read after the blocks.
void ReleaseBlockData(ItemStruct& o, bool bViews) {
    if (!bViews) FreeAll(o.Key2);
    o.Attrs.reset();
}

void ReleaseBlockData(DocStruct& o, bool bViews) {
    if (!bViews) FreeAll(o.Key2);
    o.Attrs.reset();
    FreeAll(o.Files);
}

// What every object's record holds beside its level and the part of its kind: the header, the
// additional attributes, the related documents and folders, and the child list.
template <class T>
void ReleaseRecordData(T& o, bool bViews) {
    ReleaseBlockData(o.Head, bViews);
    o.AddAttrs.reset();
    FreeAll(o.Docs);
    FreeAll(o.Folders);
    FreeAll(o.Children);
}

void ReleaseBlockData(XItemStruct& o, bool bViews) {
    ReleaseRecordData(o, bViews);
    if (!bViews) {
        FreeAll(o.PSAttr1);
        FreeAll(o.PSAttr2);
    }
    FreeAll(o.RefDes);
    FreeAll(o.LAIs);
    FreeAll(o.MNFs);
    FreeAll(o.VNDs);
}

void ReleaseBlockData(XDocStruct& o, bool bViews) {
    ReleaseRecordData(o, bViews);
    FreeAll(o.MainAttr5);
    FreeAll(o.MainAttr6);
    FreeAll(o.Items);
}

void ReleaseBlockData(XFoldStruct& o, bool bViews) {
    ReleaseRecordData(o, bViews);
    FreeAll(o.MainAttr5);
    FreeAll(o.Items);
}

// Lets go of each object's block data once no block to come reads it: a block reads its own
// record and those of its children. A large export's records would otherwise stay whole until
// the whole workbook is laid out. With bViews, what the views read stays.
template <class T>
class clsBlockDataRelease {
public:
    clsBlockDataRelease(std::deque<T>& arr, long lObjCount, bool bStructure, bool bViews,
                        bool bReturnMemory)
        : arr_(arr),
          lLast_(std::min<long>(lObjCount, static_cast<long>(arr.size()) - 1)),
          bViews_(bViews),
          bReturnMemory_(bReturnMemory) {
        if (lLast_ < 0) return;
        // The last block that reads each record: its own, or its parent's, whichever is later;
        // -1 for one that no block reads.
        arrLastReader_.assign(static_cast<size_t>(lLast_) + 1, -1);
        for (long j = 0; j <= lLast_; ++j) {
            if (!bStructure && arr_[static_cast<size_t>(j)].Level != 0) continue;
            int32_t& lOwn = arrLastReader_[static_cast<size_t>(j)];
            lOwn = std::max(lOwn, static_cast<int32_t>(j));
            const std::string& sChildren = arr_[static_cast<size_t>(j)].Children;
            size_t p = 0;
            while (p < sChildren.size()) {
                long k = -1;
                try {
                    k = NextChild(sChildren, p);
                } catch (...) {
                    k = -1;
                }
                if (k < 0 || k > lLast_) {
                    // A list the blocks will not read in full: nothing goes.
                    lLast_ = -1;
                    arrLastReader_.clear();
                    return;
                }
                int32_t& lReader = arrLastReader_[static_cast<size_t>(k)];
                lReader = std::max(lReader, static_cast<int32_t>(j));
            }
        }
    }

    // Every block up to index j is filled.
    void BlocksDone(long j) {
        while (lNext_ <= lLast_ && arrLastReader_[static_cast<size_t>(lNext_)] <= j) {
            ReleaseBlockData(arr_[static_cast<size_t>(lNext_)], bViews_);
            ++lNext_;
            // What the records let go of lies in small pieces among what stays: the pages that
            // came wholly free go back to the system now and then, not only at the end.
            if (bReturnMemory_ && lNext_ % kRecordsPerReturn == 0) {
                modEnvironment::ReturnFreedMemory();
            }
        }
    }

private:
    static constexpr long kRecordsPerReturn = 4096;
    std::deque<T>& arr_;
    long lLast_;
    bool bViews_;
    bool bReturnMemory_;
    long lNext_ = 0;
    std::vector<int32_t> arrLastReader_;
};

}  // namespace

// In a collection export only the objects at level 0 get a block; in a structure export all.
void clsBldExcel::FillItemsDetail(long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillItemsDetail", [&] {
        clsExportModel& m = ctx_.Model;
        clsBlockDataRelease<XItemStruct> oRelease(m.XItems, m.ObjCount, m.IsStructure == 1,
                                                  bViewsReadRecords_,
                                                  ctx_.Options.ReturnFreedMemory);
        for (long i = 0; i <= m.ObjCount; ++i) {
            if (m.IsStructure == 1 || At(m.XItems, i).Level == 0) FillItemDetail(i, nRow);
            oRelease.BlocksDone(i);
        }
    });
}

void clsBldExcel::FillDocsDetail(long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillDocsDetail", [&] {
        clsExportModel& m = ctx_.Model;
        clsBlockDataRelease<XDocStruct> oRelease(m.XDocs, m.ObjCount, m.IsStructure == 1,
                                                 bViewsReadRecords_,
                                                 ctx_.Options.ReturnFreedMemory);
        for (long i = 0; i <= m.ObjCount; ++i) {
            if (m.IsStructure == 1 || At(m.XDocs, i).Level == 0) FillDocDetail(i, nRow);
            oRelease.BlocksDone(i);
        }
    });
}

void clsBldExcel::FillFoldersDetail(long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillFoldersDetail", [&] {
        clsExportModel& m = ctx_.Model;
        clsBlockDataRelease<XFoldStruct> oRelease(m.XFolders, m.ObjCount, m.IsStructure == 1,
                                                  bViewsReadRecords_,
                                                  ctx_.Options.ReturnFreedMemory);
        for (long i = 0; i <= m.ObjCount; ++i) {
            if (m.IsStructure == 1 || At(m.XFolders, i).Level == 0) FillFolderDetail(i, nRow);
            oRelease.BlocksDone(i);
        }
    });
}

// An item's block: its anchor name on the block's first row, the header and attributes, then
// the part list, the related documents and folders, and the manufacturers and suppliers.
void clsBldExcel::FillItemDetail(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillItemDetail", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        oSheet.KeepRowsTogetherFrom(nRow);
        oSheet.Names().Add(GetItemHyperlinkName(nIndex), oSheet.Rows(nRow));
        const XItemStruct& rec = At(ctx_.Model.XItems, nIndex);
        FillItem(rec.Head, nRow, 15, true);
        if (!rec.Children.empty()) FillChild(nIndex, nRow);
        if (rec.DocCount > -1) FillDocListForItem(nIndex, nRow);
        if (rec.FolderCount > -1) FillFolderListForItem(nIndex, nRow);
        FillManufacturAndSupp(nIndex, nRow);
    });
}

// A document's block shows its related items first and its child documents after the
// related folders.
void clsBldExcel::FillDocDetail(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillDocDetail", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        oSheet.KeepRowsTogetherFrom(nRow);
        oSheet.Names().Add(GetDocHyperlinkName(nIndex), oSheet.Rows(nRow));
        const XDocStruct& rec = At(ctx_.Model.XDocs, nIndex);
        FillDoc(rec.Head, nRow, "PROPERTY_LBL/DOCUMENT_LBL", 15, true);
        if (rec.ItemCount > -1) FillItemListForDoc(nIndex, nRow);
        if (rec.FolderCount > -1) FillFolderListForDoc(nIndex, nRow);
        if (!rec.Children.empty()) {
            std::string sChildren = rec.Children;
            FillDocChild(sChildren, nRow);
        }
        if (rec.DocCount > -1) FillDocListForDoc(nIndex, nRow);
    });
}

// A folder's block shows its child folders first.
void clsBldExcel::FillFolderDetail(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillFolderDetail", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        oSheet.KeepRowsTogetherFrom(nRow);
        oSheet.Names().Add(GetFolderHyperlinkName(nIndex), oSheet.Rows(nRow));
        const XFoldStruct& rec = At(ctx_.Model.XFolders, nIndex);
        FillFolder(rec.Head, nRow, "PROPERTY_LBL/FOLDER_LBL", 15, true);
        if (!rec.Children.empty()) {
            std::string sChildren = rec.Children;
            FillFolderChild(sChildren, nRow);
        }
        if (rec.ItemCount > -1) FillItemListForFolder(nIndex, nRow);
        if (rec.DocCount > -1) FillDocListForFolder(nIndex, nRow);
        if (rec.FolderCount > -1) FillFolderListForFolder(nIndex, nRow);
    });
}

// The header row of an item (ID, revision, description), its attributes and one empty row.
// Only an item export heads the attributes with a caption band.
void clsBldExcel::FillItem(const ItemStruct& rec, long& nRow, long nColorIndex, bool bTopBorder) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillItem", [&] {
        long lLen = -1;
        SelectLabels("PROPERTY_LBL/ITEM_LBL/ITEM_CAP_LBL");
        FillCaption(nRow, 1, 6, nColorIndex, 0, 0, 0, bTopBorder, false);
        FillKeyRow(nRow, GetCaptionById(1, "ID", lLen), rec.Key1,
                   GetCaptionById(2, "Revision", lLen), rec.Key3,
                   GetCaptionById(3, "Description", lLen), rec.Key2);
        nRow = CheckedAdd(nRow, 1);
        if (ctx_.Model.ExportKind == 1) FillAttributesHeading(nRow);
        if (rec.Attrs) {
            FillAttrByCol(rec.Attrs, ctx_.Labels.ItemAttrLabels, VarUBound(rec.Attrs), nRow);
        }
        nRow = CheckedAdd(nRow, 1);
    });
}

// The child documents of a document, in the order of the child list, which is consumed.
void clsBldExcel::FillDocChild(std::string& sChildren, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillDocChild", [&] {
        FillListCaption(nRow, GetCaptionByPath("//DOC_CHLD_LBL", ""));
        while (!sChildren.empty()) {
            long k = TakeFirstChild(sChildren);
            FillDoc(At(ctx_.Model.XDocs, k).Head, nRow, "PROPERTY_LBL/DOCUMENT_LBL", 0, false);
        }
    });
}

// The child folders of a folder, in the order of the child list, which is consumed.
void clsBldExcel::FillFolderChild(std::string& sChildren, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillFolderChild", [&] {
        FillListCaption(nRow, GetCaptionByPath("//FOLDER_CHLD_LBL", ""));
        while (!sChildren.empty()) {
            long k = TakeFirstChild(sChildren);
            FillFolder(At(ctx_.Model.XFolders, k).Head, nRow, "PROPERTY_LBL/FOLDER_LBL", 0, false);
        }
    });
}

void clsBldExcel::FillItemLines(const std::vector<ItemStruct>& arrItems, long lUBound, long& nRow,
                                const std::string& sCaption) {
    FillListCaption(nRow, sCaption);
    for (long i = 0; i <= lUBound; ++i)
        FillItem(At(arrItems, i), nRow, 0, false);
}

void clsBldExcel::FillItemListForDoc(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillItemListForDoc", [&] {
        const XDocStruct& rec = At(ctx_.Model.XDocs, nIndex);
        FillItemLines(rec.Items, rec.ItemCount, nRow,
                      GetCaptionByPath("PROPERTY_LBL/ITEM_LBL/CAPTION_LBL", "Items"));
    });
}

void clsBldExcel::FillItemListForFolder(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillItemListForFolder", [&] {
        const XFoldStruct& rec = At(ctx_.Model.XFolders, nIndex);
        FillItemLines(rec.Items, rec.ItemCount, nRow,
                      GetCaptionByPath("PROPERTY_LBL/ITEM_LBL/CAPTION_LBL", "Items"));
    });
}

void clsBldExcel::FillDocListForItem(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillDocListForItem", [&] {
        const XItemStruct& rec = At(ctx_.Model.XItems, nIndex);
        FillDocLines(rec.Docs, rec.DocCount, nRow,
                     GetCaptionByPath("PROPERTY_LBL/DOCUMENT_LBL/CAPTION_LBL", "Documents"));
    });
}

void clsBldExcel::FillDocListForFolder(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillDocListForFolder", [&] {
        const XFoldStruct& rec = At(ctx_.Model.XFolders, nIndex);
        FillDocLines(rec.Docs, rec.DocCount, nRow,
                     GetCaptionByPath("PROPERTY_LBL/DOCUMENT_LBL/CAPTION_LBL", "Documents"));
    });
}

// The part list of an item: two rows per child (key, find number and quantity; description
// and reference designators) and, for a child with local alternates, their sub-block followed
// by one empty row. Labels are read from the settings section current at the time, freshly
// for every child.
void clsBldExcel::FillChild(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillChild", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        long lLen = -1;
        const std::string sPartList = "PROPERTY_LBL/PART_LIST_LBL";
        SelectLabels(sPartList);
        FillListCaption(nRow, GetCaptionByName("CAPTION_LBL", "Part List", lLen));

        const std::string& sChildren = At(ctx_.Model.XItems, nIndex).Children;
        size_t p = 0;
        while (p < sChildren.size()) {
            long k = NextChild(sChildren, p);
            const XItemStruct& oChild = At(ctx_.Model.XItems, k);

            oSheet.Cells(nRow, 1).Value(GetCaptionByName("CHILD", "Child", lLen));
            oSheet.Cells(nRow, 1).Font().FontStyle("Bold");
            oSheet.Cells(nRow, 2).Value(oChild.Head.Key1);
            SelectLabels(sPartList + "/CHILD_LIST_LBL");
            oSheet.Cells(nRow, 3).Value(GetCaptionById(1, "Find No", lLen));
            oSheet.Cells(nRow, 3).Font().FontStyle("Bold");
            oSheet.Cells(nRow, 4).Value(oChild.PSAttr2);
            oSheet.Cells(nRow, 5).Value(GetCaptionById(2, "Quantity", lLen));
            oSheet.Cells(nRow, 5).Font().FontStyle("Bold");
            oSheet.Cells(nRow, 6).Value(oChild.PSAttr1);
            nRow = CheckedAdd(nRow, 1);

            oSheet.Cells(nRow, 1).Value(GetCaptionById(3, "Description", lLen));
            oSheet.Cells(nRow, 1).Font().FontStyle("Bold");
            oSheet.Cells(nRow, 2).Value(oChild.Head.Key2);
            oSheet.Cells(nRow, 3).Value(GetCaptionById(4, "Reference Designators", lLen));
            oSheet.Cells(nRow, 3).Font().FontStyle("Bold");
            // The designator list gets the merged span of columns D to F.
            FillCaption(nRow, 4, 6, 0, 0, 0, 0, false, true);
            oSheet.Cells(nRow, 4).Value(oChild.RefDes);
            nRow = CheckedAdd(nRow, 1);

            if (oChild.LAICount > -1) {
                FillCaption(nRow, 1, 2, 0, 0, 48, 0, false, true);
                oSheet.Cells(nRow, 1).Value(GetCaptionByName(
                    "LOCAL_ALTERNATIVE_ITEMS_OF_CHILD", "Local Alternative Items of Child", lLen));
                oSheet.Cells(nRow, 1).Font().FontStyle("Bold Italic");
                oSheet.Cells(nRow, 3).Value(oChild.Head.Key1);
                oSheet.Cells(nRow, 3).Font().ColorIndex(48);
                nRow = CheckedAdd(nRow, 1);
                FillLAIOfChild2(k, nRow);
                nRow = CheckedAdd(nRow, 1);
            }
        }
    });
}

// One row per local alternate of an item: the caption and the alternate's key.
void clsBldExcel::FillLAIOfChild2(long nIndex, long& nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillLAIOfChild2", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        long lLen = -1;
        SelectLabels("PROPERTY_LBL/PART_LIST_LBL/ALTERNATE_LIST_LBL");
        const XItemStruct& rec = At(ctx_.Model.XItems, nIndex);
        for (long i = 0; i <= rec.LAICount; ++i) {
            oSheet.Cells(nRow, 1).Value(GetCaptionById(1, "ALTERNATE ID", lLen));
            oSheet.Cells(nRow, 1).Font().FontStyle("Bold");
            oSheet.Cells(nRow, 2).Value(At(rec.LAIs, i).Key1);
            nRow = CheckedAdd(nRow, 1);
        }
    });
}
