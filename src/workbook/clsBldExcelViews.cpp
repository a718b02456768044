// Views beside the panels, for people who work with product structures: the outline of the main
// panel, the level sheet, the flattened list (each item once, with the quantity the structure
// needs in total) and the where-used list (each item with the parents that use it).
//
// Which views an export writes: the host's choice (SetViews, the command line's --views) when it
// made one, else the settings' section EXPORT_VIEWS; the level sheet and the outline in a
// structure export of any kind, the two item views in an item export (structure or collection).
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modResources.h"
#include "workbook/clsBldExcel.h"
#include "workbook/clsItemUses.h"

using namespace modConst;

namespace {

// Column headings of the views: the settings element under the view's label section, and its
// built-in text.
struct clsViewColumn {
    const char* sElement;
    const char* sDefault;
};

const clsViewColumn kFlatColumns[] = {{"ITEM_ID", "Item ID"},
                                      {"REVISION", "Revision"},
                                      {"DESCRIPTION", "Description"},
                                      {"TOTAL_QUANTITY", "Total Quantity"},
                                      {"USES", "Places Used"}};
const clsViewColumn kWhereUsedColumns[] = {{"ITEM_ID", "Item ID"},
                                           {"REVISION", "Revision"},
                                           {"DESCRIPTION", "Description"},
                                           {"PARENT_ID", "Parent ID"},
                                           {"PARENT_REVISION", "Parent Revision"},
                                           {"FIND_NO", "Find No"},
                                           {"QUANTITY", "Quantity"}};

// The rows above a view's first data row: the caption block (rows 1 and 2), an empty row, the
// heading (row 4).
constexpr long kViewHeadingRow = 4;
// A fitted column grows no wider than this; longer texts wrap.
constexpr double kViewMaxWidth = 50;
// The width of a column of the level sheet's tree that shows nothing but merged cells.
constexpr double kLevelIndentWidth = 3;

std::string Trimmed(const std::string& s) {
    const size_t a = s.find_first_not_of(" \t\r\n");
    if (a == std::string::npos) return std::string();
    return s.substr(a, s.find_last_not_of(" \t\r\n") - a + 1);
}

// A label as a sheet name: the characters a sheet name may not hold, and control characters,
// become "_", apostrophes at its ends go, and it is cut to lMax characters (31, a sheet name's
// limit).
std::string SheetNameOf(const std::string& sLabel, size_t lMax = 31) {
    std::string s = sLabel;
    for (char& c : s) {
        const bool bControl = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
        if (bControl || std::string(":\\/?*[]").find(c) != std::string::npos) c = '_';
    }
    while (!s.empty() && s.front() == '\'')
        s.erase(0, 1);
    while (!s.empty() && s.back() == '\'')
        s.pop_back();
    // Cut to 31 UTF-16 units, whole characters only.
    size_t lUnits = 0;
    size_t i = 0;
    while (i < s.size()) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        const size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        const size_t lNeed = n == 4 ? 2 : 1;
        if (lUnits + lNeed > lMax) break;
        lUnits += lNeed;
        i += n;
    }
    s.erase(std::min(i, s.size()));
    while (!s.empty() && s.back() == '\'')
        s.pop_back();
    return s;
}

// Each item's anchor name by its identifier and revision (joined by \x1F), for the items that
// have a block.
std::unordered_map<std::string, const std::string*> AnchorsOf(const clsItemUses& oUses) {
    std::unordered_map<std::string, const std::string*> map;
    for (const clsViewItem& o : oUses.arrItems) {
        if (!o.sAnchor.empty()) map.emplace(o.sId + '\x1F' + o.sRev, &o.sAnchor);
    }
    return map;
}

}  // namespace

bool ParseQuantity(const std::string& sText, double& dValue) {
    const std::string s = Trimmed(sText);
    std::string sNumber;
    size_t i = 0;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) sNumber += s[i++];
    bool bDigits = false;
    bool bSeparator = false;
    for (; i < s.size(); ++i) {
        const char c = s[i];
        if (c >= '0' && c <= '9') {
            sNumber += c;
            bDigits = true;
        } else if ((c == '.' || c == ',') && !bSeparator) {
            sNumber += '.';
            bSeparator = true;
        } else {
            return false;
        }
    }
    if (!bDigits) return false;
    char* pEnd = nullptr;
    const double d = std::strtod(sNumber.c_str(), &pEnd);
    if (*pEnd != '\0' || !std::isfinite(d)) return false;
    dValue = d;
    return true;
}

// A failure here writes no view: the export goes on without them.
clsViews clsBldExcel::GetExportViews() {
    return TrapRun(ctx_, "clsBldExcel", "GetExportViews", clsViews(), [&] {
        // Every switch is read, also when the host decides: the settings check lists them.
        auto fnSwitch = [&](const std::string& sName) {
            return Trimmed(GetCaptionByPath("EXPORT_VIEWS/" + sName, "0")) == "1";
        };
        clsViews oViews;
        oViews.bLevelSheet = fnSwitch("LEVEL_SHEET");
        oViews.bFlatList = fnSwitch("FLAT_LIST");
        oViews.bWhereUsed = fnSwitch("WHERE_USED");
        oViews.bOutline = fnSwitch("OUTLINE");
        if (ctx_.Options.Views) oViews = *ctx_.Options.Views;
        const clsExportModel& m = ctx_.Model;
        const bool bStructure = m.IsStructure == 1 && m.ExportKind >= 1 && m.ExportKind <= 3;
        oViews.bLevelSheet = oViews.bLevelSheet && bStructure;
        oViews.bOutline = oViews.bOutline && bStructure;
        oViews.bFlatList = oViews.bFlatList && m.ExportKind == 1;
        oViews.bWhereUsed = oViews.bWhereUsed && m.ExportKind == 1;
        return oViews;
    });
}

// Each object row of the main panel (from row 6) takes the outline level of its depth: the top
// object none, its children one, ... (seven at most, deeper rows stay at seven), and the
// summary row of each group stands above it, where the parent's row is.
void clsBldExcel::FillOutline(long nCount) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillOutline", [&] {
        xl::xlWorksheet& oSheet = Sheet();
        for (long i = 0; i < nCount; ++i) {
            const long nDepth = std::min<long>(std::max<long>(LevelOf(i), 0), 7);
            if (nDepth > 0) oSheet.Rows(CheckedAdd(i, 6)).OutlineLevel(nDepth + 1);
        }
        oSheet.OutlineSummaryRow(xlSummaryAbove);
    });
}

void clsBldExcel::FillViews(const clsViews& oViews) {
    TrapRunVoid(ctx_, "clsBldExcel", "FillViews", [&] {
        if (oViews.bLevelSheet) FillLevelSheet();
        if (oViews.bFlatList || oViews.bWhereUsed) {
            const clsItemUses oUses = CollectItemUses();
            // The item views read nothing more of the records: the export's records go before
            // the largest sheets are laid out.
            ctx_.Model.ClearRecords();
            if (oViews.bFlatList) FillFlatList(oUses);
            if (oViews.bWhereUsed) FillWhereUsed(oUses);
        }
    });
}

// The level sheet is worksheet 2: when the main sheet continues on other sheets, a new sheet is
// placed right after it first, so that the level sheet takes none of theirs.
bool clsBldExcel::FillLevelSheet() {
    return TrapRun(ctx_, "clsBldExcel", "FillLevelSheet", false, [&] {
        if (!oWorkbook_) RaiseError(errObjectNotSet);
        xl::xlWorksheets& oSheets = oWorkbook_->Worksheets();
        if (oSheets.Count() > 1) oSheets.Add(Sheet());
        if (!AddLevelSheet()) return false;
        xl::xlWorksheet& oLevel = oSheets(2);
        // The heading row and the object rows as AddLevelSheet lays them out: row 4, and one row
        // per object from row 5, up to the column of the deepest level's object.
        const long nLastRow = CheckedAdd(ctx_.Model.ObjCount, 5);
        long nMaxLevel = 0;
        for (long i = 0; i <= ctx_.Model.ObjCount; ++i)
            nMaxLevel = std::max<long>(nMaxLevel, LevelOf(i));
        const long nLastCol = CheckedAdd(nMaxLevel, 2);
        // Fitting widens every column to what it shows outside the merged areas: the level
        // numbers, the deepest level's objects and the caption block. The columns of the
        // indentation (B up to the one before the deepest level's) show nothing else, so they
        // then take one width, so that every level indents its objects by the same step: the
        // widest that the caption block needs in them, no wider than the procedure's own column
        // width, and a few characters when the caption block does not reach them.
        const double dLevelSheetWidth = oLevel.ColumnWidthOf(2);
        oLevel.Range(oLevel.Columns(2), oLevel.Columns(nLastCol)).ColumnWidth(kLevelIndentWidth);
        oLevel.Columns().AutoFit();
        double dIndent = kLevelIndentWidth;
        for (long c = 2; c < nLastCol; ++c)
            dIndent = std::max(dIndent, oLevel.ColumnWidthOf(c));
        dIndent = std::min(dIndent, dLevelSheetWidth);
        if (nLastCol > 2)
            oLevel.Range(oLevel.Columns(2), oLevel.Columns(nLastCol - 1)).ColumnWidth(dIndent);
        oLevel.FreezePanes(kViewHeadingRow + 1, 1);
        oLevel.Range(oLevel.Cells(kViewHeadingRow, 1), oLevel.Cells(nLastRow, nLastCol))
            .AutoFilter();
        FillPageSetup(oLevel, nLastRow, kViewHeadingRow, nLastCol);
        return true;
    });
}

// A failure here leaves the item views without rows.
clsItemUses clsBldExcel::CollectItemUses() {
    return TrapRun(ctx_, "clsBldExcel", "CollectItemUses", clsItemUses(), [&] {
        clsItemUses u;
        const clsExportModel& m = ctx_.Model;
        std::unordered_map<std::string, size_t> mapItems;
        std::unordered_map<std::string, size_t> mapUses;
        std::unordered_map<std::string, bool> mapNotNumbers;
        // Per object: its distinct item, the product of the quantities down to it, and whether a
        // quantity on the way is not a number. The walk lists each object after its parent, so the
        // open ancestors are a stack by level.
        const size_t n = static_cast<size_t>(std::max<long>(m.ObjCount + 1, 0));
        std::vector<size_t> arrItemOf(n);
        std::vector<double> arrFactor(n, 1);
        std::vector<char> arrUnknown(n, 0);
        std::vector<long> arrOpen;
        for (long i = 0; i <= m.ObjCount; ++i) {
            const XItemStruct& rec = At(m.XItems, i);
            const std::string sKey = rec.Head.Key1 + '\x1F' + rec.Head.Key3;
            auto [it, bNew] = mapItems.emplace(sKey, u.arrItems.size());
            if (bNew) {
                clsViewItem o;
                o.sId = rec.Head.Key1;
                o.sRev = rec.Head.Key3;
                o.sDesc = rec.Head.Key2;
                u.arrItems.push_back(std::move(o));
            }
            clsViewItem& oItem = u.arrItems[it->second];
            const size_t k = static_cast<size_t>(i);
            arrItemOf[k] = it->second;
            // A collection gives only its objects at level 0 a detail block.
            if (oItem.sAnchor.empty() && (m.IsStructure == 1 || rec.Level == 0))
                oItem.sAnchor = AnchorNameOf(i);

            const long nLevel = std::max<long>(rec.Level, 0);
            if (static_cast<size_t>(nLevel) > arrOpen.size()) {
                arrOpen.clear();  // a level without its parent: the object starts a new tree
            }
            arrOpen.resize(
                static_cast<size_t>(std::min<long>(nLevel, static_cast<long>(arrOpen.size()))));
            const long lParent = arrOpen.empty() ? -1 : arrOpen.back();
            arrOpen.push_back(i);
            if (lParent < 0) continue;  // a top object: the quantities are counted for it

            const size_t p = static_cast<size_t>(lParent);
            double dQuantity = 0;
            const bool bNumber = ParseQuantity(rec.PSAttr1, dQuantity);
            arrFactor[k] = arrFactor[p] * dQuantity;
            arrUnknown[k] = arrUnknown[p] || !bNumber;
            if (!bNumber) {
                const std::string sNamed =
                    rec.Head.Key1 + " " + rec.Head.Key3 + ": \"" + rec.PSAttr1 + "\"";
                if (mapNotNumbers.emplace(sNamed, true).second) u.arrNotNumbers.push_back(sNamed);
            }
            if (arrUnknown[k]) {
                oItem.bUnknown = true;
            } else {
                oItem.dTotal += arrFactor[k];
            }
            const std::string sUse =
                std::to_string(arrItemOf[p]) + '\x1F' + rec.PSAttr2 + '\x1F' + rec.PSAttr1;
            const std::string sUseKey = std::to_string(it->second) + '\x1F' + sUse;
            auto [itUse, bNewUse] = mapUses.emplace(sUseKey, u.arrUses.size());
            if (bNewUse) {
                clsViewUse oUse;
                oUse.lItem = it->second;
                oUse.lParent = arrItemOf[p];
                oUse.sFindNo = rec.PSAttr2;
                oUse.sQuantity = rec.PSAttr1;
                u.arrUses.push_back(std::move(oUse));
                oItem.arrUses.push_back(itUse->second);
            }
        }
        return u;
    });
}

// One row per item that the structure uses somewhere below a top object: its identifier (a link
// to its block), revision, description, the total quantity (a number, or "?" when a quantity on
// a path to it is not one) and the number of its distinct uses.
bool clsBldExcel::FillFlatList(const clsItemUses& oUses) {
    return TrapRun(ctx_, "clsBldExcel", "FillFlatList", false, [&] {
        const std::string sSection = "EXPORT_VIEWS/FLAT_LIST_LBL/";
        xl::xlWorksheet& oSheet =
            AddViewSheet(GetCaptionByPath(sSection + "SHEET_NAME", "Flattened List"));
        std::vector<std::string> arrLabels;
        for (const clsViewColumn& c : kFlatColumns)
            arrLabels.push_back(GetCaptionByPath(sSection + c.sElement, c.sDefault));
        FillViewHeading(oSheet, arrLabels);
        long nRow = kViewHeadingRow;
        for (const clsViewItem& o : oUses.arrItems) {
            if (o.arrUses.empty()) continue;
            nRow = CheckedAdd(nRow, 1);
            oSheet.KeepRowsTogetherFrom(nRow);
            oSheet.Cells(nRow, 1).Value(o.sId);
            oSheet.Cells(nRow, 2).Value(o.sRev);
            oSheet.Cells(nRow, 3).Value(o.sDesc);
            if (o.bUnknown) {
                oSheet.Cells(nRow, 4).Value("?");
            } else {
                oSheet.Cells(nRow, 4).Value(o.dTotal);
            }
            oSheet.Cells(nRow, 5).Value(static_cast<long>(o.arrUses.size()));
        }
        if (!oUses.arrNotNumbers.empty()) {
            // One line names every quantity that is not a number (the first twenty of them).
            std::string sList;
            const size_t lShown = std::min<size_t>(oUses.arrNotNumbers.size(), 20);
            for (size_t i = 0; i < lShown; ++i)
                sList += (i ? ", " : "") + oUses.arrNotNumbers[i];
            if (oUses.arrNotNumbers.size() > lShown) {
                sList += " and " + std::to_string(oUses.arrNotNumbers.size() - lShown) + " more";
            }
            const std::string& sMsg = ctx_.Res.MsgQuantityNotNumber;
            modResources::WriteLog(
                ctx_,
                (sMsg.empty() ? "Quantities that are not numbers (the totals that include them "
                                "show \"?\"):"
                              : sMsg) +
                    " " + sList + ".",
                "", -1, false);
        }
        const auto mapAnchors = AnchorsOf(oUses);
        for (xl::xlWorksheet* pSheet : FinishViewSheet(oSheet, 5, {3}, {4, 5})) {
            const long nLast = pSheet->UsedLastRow();
            for (long r = kViewHeadingRow + 1; r <= nLast; ++r) {
                auto it = mapAnchors.find(pSheet->Cells(r, 1).Text() + '\x1F' +
                                          pSheet->Cells(r, 2).Text());
                if (it != mapAnchors.end()) AddAnchorLink(*pSheet, r, 1, *it->second);
            }
        }
        return true;
    });
}

// For each item, every distinct use: the item (a link to its block), its revision and
// description, the parent (a link to its block) and revision, the find number and the quantity
// of that use (a number when it is one). An item's uses stay together on one sheet.
bool clsBldExcel::FillWhereUsed(const clsItemUses& oUses) {
    return TrapRun(ctx_, "clsBldExcel", "FillWhereUsed", false, [&] {
        const std::string sSection = "EXPORT_VIEWS/WHERE_USED_LBL/";
        xl::xlWorksheet& oSheet =
            AddViewSheet(GetCaptionByPath(sSection + "SHEET_NAME", "Where Used"));
        std::vector<std::string> arrLabels;
        for (const clsViewColumn& c : kWhereUsedColumns)
            arrLabels.push_back(GetCaptionByPath(sSection + c.sElement, c.sDefault));
        FillViewHeading(oSheet, arrLabels);
        long nRow = kViewHeadingRow;
        for (const clsViewItem& o : oUses.arrItems) {
            if (o.arrUses.empty()) continue;
            oSheet.KeepRowsTogetherFrom(CheckedAdd(nRow, 1));
            for (size_t k : o.arrUses) {
                const clsViewUse& oUse = oUses.arrUses[k];
                const clsViewItem& oParent = oUses.arrItems[oUse.lParent];
                nRow = CheckedAdd(nRow, 1);
                oSheet.Cells(nRow, 1).Value(o.sId);
                oSheet.Cells(nRow, 2).Value(o.sRev);
                oSheet.Cells(nRow, 3).Value(o.sDesc);
                oSheet.Cells(nRow, 4).Value(oParent.sId);
                oSheet.Cells(nRow, 5).Value(oParent.sRev);
                oSheet.Cells(nRow, 6).Value(oUse.sFindNo);
                double dQuantity = 0;
                if (ParseQuantity(oUse.sQuantity, dQuantity)) {
                    oSheet.Cells(nRow, 7).Value(dQuantity);
                } else {
                    oSheet.Cells(nRow, 7).Value(oUse.sQuantity);
                }
            }
        }
        const auto mapAnchors = AnchorsOf(oUses);
        auto fnLink = [&](xl::xlWorksheet& ws, long r, long cId, long cRev) {
            auto it = mapAnchors.find(ws.Cells(r, cId).Text() + '\x1F' + ws.Cells(r, cRev).Text());
            if (it != mapAnchors.end()) AddAnchorLink(ws, r, cId, *it->second);
        };
        for (xl::xlWorksheet* pSheet : FinishViewSheet(oSheet, 7, {3}, {7})) {
            const long nLast = pSheet->UsedLastRow();
            for (long r = kViewHeadingRow + 1; r <= nLast; ++r) {
                fnLink(*pSheet, r, 1, 2);
                fnLink(*pSheet, r, 4, 5);
            }
        }
        return true;
    });
}

xl::xlWorksheet& clsBldExcel::AddViewSheet(const std::string& sName) {
    if (!oWorkbook_) RaiseError(errObjectNotSet);
    xl::xlWorksheets& oSheets = oWorkbook_->Worksheets();
    xl::xlWorksheet& oSheet = oSheets.Add();
    // A name another sheet has already gets " (2)", " (3)", ...; an empty one keeps the name
    // that adding the sheet gave it.
    const std::string sBase = SheetNameOf(sName);
    if (!sBase.empty()) {
        std::string sTry = sBase;
        for (long n = 2;; ++n) {
            const xl::xlWorksheet* pOther = oSheets.Find(sTry);
            if (!pOther || pOther == &oSheet) break;
            const std::string sSuffix = " (" + std::to_string(n) + ")";
            sTry = SheetNameOf(sBase, 31 - sSuffix.size()) + sSuffix;
        }
        oSheet.Name(sTry);
    }
    // Rows may run past the sheet's last row: they continue on new sheets when it is finished.
    oSheet.ContinuePastLastRow();
    return oSheet;
}

// The caption block as the main panel's sheet has it (rows 1 and 2, up to one column past its
// last entry), and the heading row 4: the labels in bold between top and bottom borders.
void clsBldExcel::FillViewHeading(xl::xlWorksheet& oSheet,
                                  const std::vector<std::string>& arrLabels) {
    xl::xlWorksheet& oMain = Sheet();
    const long nCapCol = CheckedAdd(ctx_.Labels.CaptionTable.EntryUBoundOrNone(), 2);
    oMain.Range(oMain.Cells(1, 1), oMain.Cells(2, nCapCol))
        .Copy(oSheet.Range(oSheet.Cells(1, 1), oSheet.Cells(2, nCapCol)));
    const long nLastCol = static_cast<long>(arrLabels.size());
    for (long c = 1; c <= nLastCol; ++c)
        oSheet.Cells(kViewHeadingRow, c).Value(arrLabels[static_cast<size_t>(c - 1)]);
    xl::xlRange oHeading =
        oSheet.Range(oSheet.Cells(kViewHeadingRow, 1), oSheet.Cells(kViewHeadingRow, nLastCol));
    oHeading.Font().Bold(true);
    oHeading.Borders(xlEdgeTop).LineStyle(xlContinuous);
    oHeading.Borders(xlEdgeBottom).LineStyle(xlContinuous);
}

std::vector<xl::xlWorksheet*> clsBldExcel::FinishViewSheet(xl::xlWorksheet& oSheet, long nLastCol,
                                                           const std::vector<long>& arrWrapCols,
                                                           const std::vector<long>& arrRightCols) {
    // Quantities to the right, numbers and the texts among them alike.
    const long nLastData = oSheet.UsedLastRow();
    if (nLastData > kViewHeadingRow) {
        for (long c : arrRightCols) {
            oSheet.Range(oSheet.Cells(kViewHeadingRow + 1, c), oSheet.Cells(nLastData, c))
                .HorizontalAlignment(xlRight);
        }
    }
    // Columns as wide as their texts, up to a limit past which the longest texts wrap.
    oSheet.Columns().AutoFit();
    for (long c = 1; c <= nLastCol; ++c) {
        if (oSheet.ColumnWidthOf(c) > kViewMaxWidth) oSheet.Columns(c).ColumnWidth(kViewMaxWidth);
    }
    for (long c : arrWrapCols)
        oSheet.Columns(c).WrapText(true);
    oSheet.FreezePanes(kViewHeadingRow + 1, 1);
    std::vector<xl::xlWorksheet*> arrSheets{&oSheet};
    for (xl::xlWorksheet* p : ContinueSheet(oSheet, {1, 2, 3, kViewHeadingRow}, 0))
        arrSheets.push_back(p);
    for (xl::xlWorksheet* p : arrSheets) {
        const long nLastRow = std::max(p->UsedLastRow(), kViewHeadingRow);
        p->Range(p->Cells(kViewHeadingRow, 1), p->Cells(nLastRow, nLastCol)).AutoFilter();
        FillPageSetup(*p, nLastRow, kViewHeadingRow, nLastCol);
    }
    return arrSheets;
}
