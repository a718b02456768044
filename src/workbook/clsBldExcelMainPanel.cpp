// The main panel: the heading row and one row per listed object.
#include <deque>

#include "support/clsRunError.h"
#include "workbook/clsBldExcel.h"

namespace {

// Writes the object rows of one kind from nStartRow. A structure export lists every record,
// with its level (a number) in column 1 and its fields from column 2; a collection export
// lists only the records at level 0, without gaps, from column 1. nCount ends as the number
// of rows written.
template <class Rec, class FillRow>
void FillMainPanelRows(xl::xlWorksheet& oSheet, const clsExportModel& m,
                       const std::deque<Rec>& arrRecords, long& nCount, long nStartRow,
                       FillRow&& fnFillRow) {
    nCount = 0;
    for (long i = 0; i <= m.ObjCount; ++i) {
        if (m.IsStructure == 1) {
            long nRow = CheckedAdd(nStartRow, i);
            oSheet.Cells(nRow, 1).Value(static_cast<long>(At(arrRecords, i).Level));
            fnFillRow(nRow, 1, i);
            nCount = CheckedAdd(nCount, 1);
        } else if (At(arrRecords, i).Level == 0) {
            fnFillRow(CheckedAdd(nStartRow, nCount), 0, i);
            nCount = CheckedAdd(nCount, 1);
        }
    }
}

}  // namespace

// The column headings come from the ordered label list of the kind of the exported objects;
// the first label heads the level column, which only a structure export shows. The captions
// of the additional attributes follow.
void clsBldExcel::FillMainPanelCaption(long nRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillMainPanelCaption", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        const std::string& sRoot = ctx_.Model.RootObjName;
        std::string sKind;
        if (sRoot == ctx_.Res.NameItem) {
            sKind = "ITEM";
        } else if (sRoot == ctx_.Res.NameDoc) {
            sKind = "DOC";
        } else if (sRoot == ctx_.Res.NameFolder) {
            sKind = "FOLDER";
        }

        long nUBound = -1;
        clsOrderArray arrOrder;
        pugi::xpath_node_set oLabels = GetLabelList("MAIN_LBL/" + sKind, nUBound, arrOrder);
        if (nUBound < 0) return;
        auto LabelAt = [&](long j) {
            return clsXMLIniData::NodeText(oLabels[static_cast<size_t>(At(arrOrder, j)[0])].node());
        };

        long nCol;
        if (ctx_.Model.IsStructure == 1) {
            for (long j = 0; j <= nUBound; ++j)
                oSheet.Cells(nRow, j + 1).Value(LabelAt(j));
            nCol = nUBound + 2;
        } else {
            // Position 0 heads the level column, which a collection export does not show.
            for (long j = 1; j <= nUBound; ++j)
                oSheet.Cells(nRow, j).Value(LabelAt(j));
            nCol = nUBound + 1;
        }

        const clsVarTable& oTags = ctx_.Labels.AdditionalTagTable;
        if (oTags.IsArray()) {
            for (long j = 0; j <= oTags.UBound(2); ++j) {
                oSheet.Cells(nRow, CheckedAdd(nCol, j)).Value(oTags.Item(1, j));
            }
        }
    });
}

void clsBldExcel::FillMainPanelItems(long& nCount, long nStartRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillMainPanelItems", [&] {
        FillMainPanelRows(
            Sheet(), ctx_.Model, ctx_.Model.XItems, nCount, nStartRow,
            [&](long nRow, long nColOffset, long i) { FillMainPanelItem(nRow, nColOffset, i); });
    });
}

void clsBldExcel::FillMainPanelDocs(long& nCount, long nStartRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillMainPanelDocs", [&] {
        FillMainPanelRows(
            Sheet(), ctx_.Model, ctx_.Model.XDocs, nCount, nStartRow,
            [&](long nRow, long nColOffset, long i) { FillMainPanelDoc(nRow, nColOffset, i); });
    });
}

void clsBldExcel::FillMainPanelFolders(long& nCount, long nStartRow) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillMainPanelFolders", [&] {
        FillMainPanelRows(
            Sheet(), ctx_.Model, ctx_.Model.XFolders, nCount, nStartRow,
            [&](long nRow, long nColOffset, long i) { FillMainPanelFolder(nRow, nColOffset, i); });
    });
}

namespace {

// The additional attribute values of one object, one column per entry of the additional-tag
// table, from column nColOffset + 6.
void FillMainPanelAttrs(xl::xlWorksheet& oSheet, const clsVarTable& oTags, long nRow,
                        long nColOffset, const VarStrArray& arrAddAttrs) {
    if (!oTags.IsArray()) return;
    for (long j = 0; j <= oTags.UBound(2); ++j) {
        oSheet.Cells(nRow, CheckedAdd(nColOffset, 6 + j)).Value(VarItem(arrAddAttrs, j));
    }
}

}  // namespace

void clsBldExcel::FillMainPanelItem(long nRow, long nColOffset, long nIndex) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillMainPanelItem", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        const XItemStruct& rec = At(ctx_.Model.XItems, nIndex);
        oSheet.Cells(nRow, nColOffset + 1).Value(rec.Head.Key1);
        oSheet.Cells(nRow, nColOffset + 2).Value(rec.PSAttr2);
        oSheet.Cells(nRow, nColOffset + 3).Value(rec.Head.Key2);
        oSheet.Cells(nRow, nColOffset + 4).Value(rec.PSAttr1);
        oSheet.Cells(nRow, nColOffset + 5).Value(rec.Head.Key3);
        FillMainPanelAttrs(oSheet, ctx_.Labels.AdditionalTagTable, nRow, nColOffset, rec.AddAttrs);
    });
}

void clsBldExcel::FillMainPanelDoc(long nRow, long nColOffset, long nIndex) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillMainPanelDoc", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        const XDocStruct& rec = At(ctx_.Model.XDocs, nIndex);
        oSheet.Cells(nRow, nColOffset + 1).Value(rec.Head.Key1);
        oSheet.Cells(nRow, nColOffset + 2).Value(rec.Head.Key3);
        oSheet.Cells(nRow, nColOffset + 3).Value(rec.Head.Key2);
        oSheet.Cells(nRow, nColOffset + 4).Value(rec.MainAttr5);
        oSheet.Cells(nRow, nColOffset + 5).Value(rec.MainAttr6);
        FillMainPanelAttrs(oSheet, ctx_.Labels.AdditionalTagTable, nRow, nColOffset, rec.AddAttrs);
    });
}

// A folder has four fixed fields; the fifth column stays empty so that the attribute values
// stand in the same columns as for items and documents.
void clsBldExcel::FillMainPanelFolder(long nRow, long nColOffset, long nIndex) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillMainPanelFolder", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        const XFoldStruct& rec = At(ctx_.Model.XFolders, nIndex);
        oSheet.Cells(nRow, nColOffset + 1).Value(rec.Head.Key1);
        oSheet.Cells(nRow, nColOffset + 2).Value(rec.Head.Key3);
        oSheet.Cells(nRow, nColOffset + 3).Value(rec.Head.Key2);
        oSheet.Cells(nRow, nColOffset + 4).Value(rec.MainAttr5);
        FillMainPanelAttrs(oSheet, ctx_.Labels.AdditionalTagTable, nRow, nColOffset, rec.AddAttrs);
    });
}
