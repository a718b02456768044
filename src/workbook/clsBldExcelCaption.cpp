// Caption bands, merging, the level sheet, and the caption texts read from the settings.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "settings/clsLookupRecorder.h"
#include "support/clsRunError.h"
#include "support/modConst.h"
#include "workbook/clsBldExcel.h"

using namespace modConst;

namespace {

// The length of a text as the spreadsheet counts characters (UTF-16 code units).
long TextLength(const std::string& s) {
    long n = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if ((c & 0xC0) == 0x80) continue;  // continuation byte
        n += (c >= 0xF0) ? 2 : 1;          // a character beyond the BMP takes two units
    }
    return n;
}

// The whole number in a level cell (fraction dropped); a cell without a number is a type
// mismatch.
long WholeNumber(const xl::xlVariant& v) {
    double d = 0;
    if (const double* p = std::get_if<double>(&v)) {
        d = *p;
    } else if (const std::string* s = std::get_if<std::string>(&v)) {
        char* pEnd = nullptr;
        d = std::strtod(s->c_str(), &pEnd);
        if (s->empty() || pEnd == s->c_str()) RaiseError(errTypeMismatch);
        while (*pEnd == ' ')
            ++pEnd;
        if (*pEnd != '\0') RaiseError(errTypeMismatch);
    } else {
        RaiseError(errTypeMismatch);
    }
    d = std::trunc(d);
    if (!std::isfinite(d) || d > INT32_MAX || d < INT32_MIN) RaiseError(errOverflow);
    return static_cast<long>(d);
}

}  // namespace

// Formats one caption band of the current worksheet. Zero (or less) in the height, a colour or
// the size keeps the sheet's default; the band is always left and bottom aligned. The borders
// flag draws the top and bottom edges of the band, nothing else.
bool clsBldExcel::FillCaption(long nRow, long nFirstCol, long nLastCol, long nInteriorColor,
                              double dRowHeight, long nFontColor, long nFontSize, bool bBorders,
                              bool bMerge) {
    return TrapRun(ctx_, "clsBldExcel", "FillCaption", false, [&] {
        xl::xlWorksheet& oSheet = Sheet();
        if (dRowHeight > 0) oSheet.Rows(nRow).RowHeight(dRowHeight);
        xl::xlRange oRange =
            oSheet.Range(oSheet.Cells(nRow, nFirstCol), oSheet.Cells(nRow, nLastCol));
        if (bMerge) oRange.MergeCells(true);
        oRange.HorizontalAlignment(xlLeft);
        oRange.VerticalAlignment(xlBottom);
        if (nInteriorColor > 0) oRange.Interior().ColorIndex(nInteriorColor);
        if (nFontColor > 0) oRange.Font().ColorIndex(nFontColor);
        if (nFontSize > 0) oRange.Font().Size(static_cast<double>(nFontSize));
        if (bBorders) {
            oRange.Borders(xlEdgeTop).LineStyle(xlContinuous);
            oRange.Borders(xlEdgeBottom).LineStyle(xlContinuous);
        }
        return true;
    });
}

// Merges one span of one row of oSheet, left and bottom aligned.
bool clsBldExcel::MergeLevel(long nRow, long nFirstCol, long nLastCol, xl::xlWorksheet& oSheet) {
    return TrapRun(ctx_, "clsBldExcel", "MergeLevel", false, [&] {
        xl::xlRange oRange =
            oSheet.Range(oSheet.Cells(nRow, nFirstCol), oSheet.Cells(nRow, nLastCol));
        oRange.MergeCells(true);
        oRange.HorizontalAlignment(xlLeft);
        oRange.VerticalAlignment(xlBottom);
        return true;
    });
}

// Builds the level sheet (worksheet 2) from the finished main panel of the current worksheet:
// the caption block, the level of each object in column A, and each object's text indented by
// its level, its cell running to the column of the deepest level. Exports call it for the level
// sheet view (FillLevelSheet).
bool clsBldExcel::AddLevelSheet() {
    return TrapRun(ctx_, "clsBldExcel", "AddLevelSheet", false, [&] {
        xl::xlWorksheet& oMain = Sheet();
        if (!oWorkbook_ || !oExlApp_) RaiseError(errObjectNotSet);
        xl::xlWorksheets& oSheets = oWorkbook_->Worksheets();
        xl::xlWorksheet& oLevel = oSheets.Count() < 2 ? oSheets.Add() : oSheets(2);
        oLevel.Columns().ColumnWidth(21);

        // The caption block, up to the column one past its last entry.
        const long nCapCol = CheckedAdd(ctx_.Labels.CaptionTable.UBound(2), 2);
        oMain.Range(oMain.Cells(1, 1), oMain.Cells(2, nCapCol))
            .Copy(oLevel.Range(oLevel.Cells(1, 1), oLevel.Cells(2, nCapCol)));

        // The level column, one row up: the heading on row 4, the objects from row 5.
        const long nLastRow = CheckedAdd(ctx_.Model.ObjCount, 5);
        oMain.Range(oMain.Cells(5, 1), oMain.Cells(nLastRow + 1, 1))
            .Copy(oLevel.Range(oLevel.Cells(4, 1), oLevel.Cells(nLastRow, 1)));

        const double dMax = oExlApp_->WorksheetFunction().Max(
            oLevel.Range(oLevel.Cells(5, 1), oLevel.Cells(nLastRow, 1)));
        const long nMaxLevel = static_cast<long>(std::trunc(dMax));

        MergeLevel(4, 2, nMaxLevel + 2, oLevel);
        oLevel.Cells(4, 2).Value(oMain.Cells(5, 2).GetValue());
        oLevel.Cells(4, 2).Font().FontStyle("Bold");
        xl::xlRange oHeading = oLevel.Range(oLevel.Cells(4, 1), oLevel.Cells(4, nMaxLevel + 2));
        oHeading.Borders(xlEdgeTop).LineStyle(xlContinuous);
        oHeading.Borders(xlEdgeBottom).LineStyle(xlContinuous);

        for (long r = 5; r <= nLastRow; ++r) {
            const long nLevel = WholeNumber(oMain.Cells(r + 1, 1).GetValue());
            if (nLevel > 1) MergeLevel(r, 2, nLevel + 1, oLevel);
            MergeLevel(r, nLevel + 2, nMaxLevel + 2, oLevel);
            oLevel.Cells(r, nLevel + 2).Value(oMain.Cells(r + 1, 2).GetValue());
        }
        return true;
    });
}

// The caption of label lId of the current settings section, or sDefault when the switch for
// labels from the settings is off or the label is missing. lLength receives the text's length
// unless the caller passed a negative value.
std::string clsBldExcel::GetCaptionById(long lId, const std::string& sDefault, long& lLength,
                                        clsCallSite oSite) {
    std::string sCaption;
    if (bLblFromIni_) sCaption = Ini().GetLabelUseCurNodeByID(lId);
    if (clsLookupRecorder* p = Recorder()) {
        p->OnFallback(bLblFromIni_, clsXMLIniData::OrderExpression(lId), true, sDefault, oSite);
    }
    if (sCaption.empty()) sCaption = sDefault;
    if (lLength >= 0) lLength = TextLength(sCaption);
    return sCaption;
}

// The caption of the element sName of the current settings section, like GetCaptionById.
std::string clsBldExcel::GetCaptionByName(const std::string& sName, const std::string& sDefault,
                                          long& lLength, clsCallSite oSite) {
    std::string sCaption;
    if (bLblFromIni_) sCaption = Ini().GetLabelUseCurNode(sName);
    if (clsLookupRecorder* p = Recorder())
        p->OnFallback(bLblFromIni_, sName, true, sDefault, oSite);
    if (sCaption.empty()) sCaption = sDefault;
    if (lLength >= 0) lLength = TextLength(sCaption);
    return sCaption;
}

// The caption at a settings path; always asked, whatever the switch says.
std::string clsBldExcel::GetCaptionByPath(const std::string& sPath, const std::string& sDefault,
                                          clsCallSite oSite) {
    std::string sCaption = Ini().GetLabelUsePath(sPath);
    if (clsLookupRecorder* p = Recorder()) p->OnFallback(true, sPath, false, sDefault, oSite);
    if (sCaption.empty()) sCaption = sDefault;
    return sCaption;
}

pugi::xpath_node_set clsBldExcel::GetLabelList(const std::string& sPath, long& lUBound,
                                               clsOrderArray& arrOrder, clsCallSite oSite) {
    pugi::xpath_node_set oList = Ini().GetOrderedAttrList(sPath, lUBound, arrOrder);
    if (clsLookupRecorder* p = Recorder()) p->OnSite(oSite);
    return oList;
}

// The settings section of the current kind of export, e.g. "GLOBAL/ITEM_STRUCTURE"; an
// unknown kind gives "GLOBAL/" alone.
std::string clsBldExcel::GetExportSectionPath() const {
    const bool bStructure = ctx_.Model.IsStructure == 1;
    std::string sSection;
    switch (ctx_.Model.ExportKind) {
        case 1:
            sSection = bStructure ? "ITEM_STRUCTURE" : "ITEM_COLLECTION";
            break;
        case 2:
            sSection = bStructure ? "DOC_STRUCTURE" : "DOC_COLLECTION";
            break;
        case 3:
            sSection = bStructure ? "FOLDER_STRUCTURE" : "FOLDER_COLLECTION";
            break;
        default:
            break;
    }
    return "GLOBAL/" + sSection;
}

// The heading band of an attributes block.
void clsBldExcel::FillAttributesHeading(long& nRow) {
    FillListCaption(nRow, GetCaptionByPath("PROPERTY_LBL/ATTRIBUTE_LBL", "Attributes"));
}
