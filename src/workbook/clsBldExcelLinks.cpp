// Anchor names of the detail blocks and the hyperlinks of the main panel that jump to them.
#include <variant>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "workbook/clsBldExcel.h"

namespace {

// The Windows-1252 code of a Unicode code point, or 63 ("?") when the code page lacks it.
// 0x80 to 0x9F hold the typographic characters of the code page; its five unused positions
// (0x81, 0x8D, 0x8F, 0x90, 0x9D) stand for the control characters of the same number.
long AnsiCode(char32_t c) {
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<long>(c);
    switch (c) {
        case 0x20AC:
            return 128;
        case 0x81:
            return 129;
        case 0x201A:
            return 130;
        case 0x0192:
            return 131;
        case 0x201E:
            return 132;
        case 0x2026:
            return 133;
        case 0x2020:
            return 134;
        case 0x2021:
            return 135;
        case 0x02C6:
            return 136;
        case 0x2030:
            return 137;
        case 0x0160:
            return 138;
        case 0x2039:
            return 139;
        case 0x0152:
            return 140;
        case 0x8D:
            return 141;
        case 0x017D:
            return 142;
        case 0x8F:
            return 143;
        case 0x90:
            return 144;
        case 0x2018:
            return 145;
        case 0x2019:
            return 146;
        case 0x201C:
            return 147;
        case 0x201D:
            return 148;
        case 0x2022:
            return 149;
        case 0x2013:
            return 150;
        case 0x2014:
            return 151;
        case 0x02DC:
            return 152;
        case 0x2122:
            return 153;
        case 0x0161:
            return 154;
        case 0x203A:
            return 155;
        case 0x0153:
            return 156;
        case 0x9D:
            return 157;
        case 0x017E:
            return 158;
        case 0x0178:
            return 159;
        default:
            return 63;
    }
}

// Decodes the UTF-8 sequence at s[i] and advances i past it. A byte that does not begin a
// well-formed sequence is taken alone, as a character the code page cannot show.
char32_t NextCodePoint(const std::string& s, size_t& i) {
    const auto b = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char c0 = b(i);
    if (c0 < 0x80) {
        ++i;
        return c0;
    }
    size_t n = 0;
    char32_t cp = 0;
    char32_t lMin = 0;
    if ((c0 & 0xE0) == 0xC0) {
        n = 1;
        cp = c0 & 0x1F;
        lMin = 0x80;
    } else if ((c0 & 0xF0) == 0xE0) {
        n = 2;
        cp = c0 & 0x0F;
        lMin = 0x800;
    } else if ((c0 & 0xF8) == 0xF0) {
        n = 3;
        cp = c0 & 0x07;
        lMin = 0x10000;
    }
    bool bOk = n > 0 && i + n < s.size();
    for (size_t k = 1; bOk && k <= n; ++k) {
        if ((b(i + k) & 0xC0) != 0x80)
            bOk = false;
        else
            cp = (cp << 6) | (b(i + k) & 0x3F);
    }
    if (!bOk || cp < lMin || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        ++i;
        return 0xFFFD;
    }
    i += n + 1;
    return cp;
}

}  // namespace

// Makes a text safe as a defined name: ASCII digits, letters, "_" and "\" are kept; every other
// character becomes "_" followed by its Windows-1252 code in decimal (a space gives _32, a
// hyphen _45, "[" _91, a back-quote _96, an A with diaeresis _196). "[", "]", "^" and the
// back-quote lie between the letters but no defined name may hold them. Nothing is cut:
// uniqueness comes from the object index that every anchor name ends with.
std::string clsBldExcel::SanitizeName(const std::string& sName) {
    std::string sResult;
    size_t i = 0;
    while (i < sName.size()) {
        char32_t c = NextCodePoint(sName, i);
        const bool bNameChar = c != U'[' && c != U']' && c != U'^' && c != U'`';
        if ((c >= U'0' && c <= U'9') || (c >= U'A' && c <= U'z' && bNameChar)) {
            sResult += static_cast<char>(c);
        } else {
            sResult += '_';
            sResult += std::to_string(AnsiCode(c));
        }
    }
    return sResult;
}

// The anchor name of an object: "ID_" and the sanitised identifier, revision and index, joined
// by "_" (identifier P-100, revision B at index 4 give ID_P_45100_B_4). The prefix makes every
// name begin with a letter.
std::string clsBldExcel::GetItemHyperlinkName(long nIndex) {
    return TrapRun(ctx_, "clsBldExcel", "GetItemHyperlinkName", std::string(), [&] {
        const ItemStruct& rec = At(ctx_.Model.XItems, nIndex).Head;
        return "ID_" + SanitizeName(rec.Key1 + "_" + rec.Key3 + "_" + std::to_string(nIndex));
    });
}

std::string clsBldExcel::GetDocHyperlinkName(long nIndex) {
    return TrapRun(ctx_, "clsBldExcel", "GetDocHyperlinkName", std::string(), [&] {
        const DocStruct& rec = At(ctx_.Model.XDocs, nIndex).Head;
        return "ID_" + SanitizeName(rec.Key1 + "_" + rec.Key3 + "_" + std::to_string(nIndex));
    });
}

std::string clsBldExcel::GetFolderHyperlinkName(long nIndex) {
    return TrapRun(ctx_, "clsBldExcel", "GetFolderHyperlinkName", std::string(), [&] {
        const FoldStruct& rec = At(ctx_.Model.XFolders, nIndex).Head;
        return "ID_" + SanitizeName(rec.Key1 + "_" + rec.Key3 + "_" + std::to_string(nIndex));
    });
}

// Structure export: every object line of the main panel (from row 6) links from its ID in
// column B to the anchor name of its detail block.
bool clsBldExcel::FillHyperlinkStruct() {
    return TrapRun(ctx_, "clsBldExcel", "FillHyperlinkStruct", false, [&] {
        const clsExportModel& m = ctx_.Model;
        if (m.ExportKind < 1 || m.ExportKind > 3) return true;
        for (long i = 0; i <= m.ObjCount; ++i)
            AddAnchorLink(CheckedAdd(i, 6), 2, i);
        return true;
    });
}

// each links from its ID in column A to the anchor name of its own object index.
bool clsBldExcel::FillHyperlinkCollect() {
    return TrapRun(ctx_, "clsBldExcel", "FillHyperlinkCollect", false, [&] {
        const clsExportModel& m = ctx_.Model;
        if (m.ExportKind < 1 || m.ExportKind > 3) return true;
        long r = 0;
        for (long i = 0; i <= m.ObjCount; ++i) {
            if (LevelOf(i) != 0) continue;
            AddAnchorLink(CheckedAdd(r, 6), 1, i);
            r = CheckedAdd(r, 1);
        }
        return true;
    });
}

// A block on the first sheet is found through its anchor name; one on a continuation sheet
// through that sheet and the name's first cell. Past the hyperlinks a sheet holds, the cell
// holds a HYPERLINK formula that shows its text and leads to the block's first cell.
void clsBldExcel::AddAnchorLink(long nRow, long nCol, long nIndex) {
    const std::string sAnchor = AnchorNameOf(nIndex);
    if (bPromiseLinks_) {
        PromiseAnchorLink(nRow, nCol, nIndex, sAnchor);
        return;
    }
    AddAnchorLink(Sheet(), nRow, nCol, sAnchor);
}

// The link AddAnchorLink makes once the blocks are placed, promised: a block on this sheet is
// reached by its name, one forecast to go to a new sheet by its cell there, and past the links
// the sheet holds, the cell's formula leads to the block's cell.
void clsBldExcel::PromiseAnchorLink(long nRow, long nCol, long nIndex, const std::string& sAnchor) {
    xl::xlWorksheet& oSheet = Sheet();
    const xl::xlRange oCell = oSheet.Cells(nRow, nCol);
    const size_t i = static_cast<size_t>(nIndex);
    if (i >= arrForecastPlaces_.size()) {
        oSheet.Hyperlinks().Promise(oCell, "", sAnchor);
        return;
    }
    const xl::xlBlockPlace& oPlace = arrForecastPlaces_[i];
    if (nForecastLinks_ < modConst::xlMaxHyperlinks) {
        ++nForecastLinks_;
        oSheet.Hyperlinks().Promise(oCell, "", oPlace.bStays ? sAnchor : oPlace.sCell);
        return;
    }
    const std::string sFormula = AnchorLinkFormula(oSheet, nRow, nCol, oPlace.sCell);
    if (!sFormula.empty()) oSheet.Hyperlinks().PromiseFormula(oCell, sFormula);
}

// The rows of the first sheet, and of the sheets its blocks continue on, may reach the file's
// writer while the blocks are still being filled, as the sheets will show them once done: the
// blocks are counted first, so that each one's place is known, and the top alignment of the
// page set-up and the main panel's links are promised (and made as ever once the blocks are
// placed). A sheet that ends otherwise, its blocks placed elsewhere than counted or its build
// stopped, is written from the workbook at the save.
void clsBldExcel::WriteAheadOfBlocks(long nCount) {
    TrapRunVoid(ctx_, "clsBldExcel", "WriteAheadOfBlocks", [&] {
        // A host that keeps each export to one core says so.
        if (!ctx_.Options.WriteAhead) return;
        xl::xlWorksheet& oSheet = Sheet();
        oSheet.WriteAhead();
        if (!oSheet.WritesAhead()) return;
        // Where each block will be, on this sheet or a new one; without it, rows past the
        // sheet's end stop the writer.
        ForecastBlocks(nCount);
        oSheet.PromiseVerticalAlignment(modConst::xlTop);
        bPromiseLinks_ = true;
        if (ctx_.Model.IsStructure == 1) {
            FillHyperlinkStruct();
        } else {
            FillHyperlinkCollect();
        }
        bPromiseLinks_ = false;
        std::vector<xl::xlBlockPlace>().swap(arrForecastPlaces_);
    });
}

// The same for a cell of any sheet: a block on the cell's own sheet through its name, one on
// another sheet through that sheet's cell.
void clsBldExcel::AddAnchorLink(xl::xlWorksheet& oSheet, long nRow, long nCol,
                                const std::string& sAnchor) {
    if (!oWorkbook_) RaiseError(modConst::errObjectNotSet);
    std::string sSubAddress = sAnchor;
    std::string sCell;  // the block's first cell, with its sheet
    if (const xl::xlNameEntry* pName = oSheet.Names().Find(sAnchor)) {
        sCell = oSheet.Cells(pName->lRow1, 1).AddressExternal();
    } else {
        xl::xlWorksheets& oSheets = oWorkbook_->Worksheets();
        for (long i = 1; i <= oSheets.Count() && sCell.empty(); ++i) {
            if (&oSheets(i) == &oSheet) continue;
            if (const xl::xlNameEntry* pName = oSheets(i).Names().Find(sAnchor)) {
                sCell = oSheets(i).Cells(pName->lRow1, 1).AddressExternal();
                sSubAddress = sCell;
            }
        }
    }
    xl::xlRange oCell = oSheet.Cells(nRow, nCol);
    if (oSheet.Hyperlinks().Count() < modConst::xlMaxHyperlinks) {
        oSheet.Hyperlinks().Add(oCell, "", sSubAddress);
        return;
    }
    const std::string sFormula = AnchorLinkFormula(oSheet, nRow, nCol, sCell);
    if (sFormula.empty()) return;
    oCell.Formula(sFormula);
    oCell.Font().Underline(modConst::xlUnderlineStyleSingle);
    oCell.Font().ColorIndex(5);
}

// A block that was left out has no cell to lead to; a text too long for a formula stays a text
// (its anchor name would be too long for a block as well).
std::string clsBldExcel::AnchorLinkFormula(xl::xlWorksheet& oSheet, long nRow, long nCol,
                                           const std::string& sCell) {
    const auto oView = oSheet.GetCell(nRow, nCol);
    const std::string sText = oView && std::holds_alternative<std::string>(oView->vValue)
                                  ? std::get<std::string>(oView->vValue)
                                  : std::string();
    if (sCell.empty() || sText.empty() || sText.size() > 255) return std::string();
    auto fnQuoted = [](const std::string& s) {
        std::string q = "\"";
        for (char ch : s)
            q += ch == '"' ? std::string("\"\"") : std::string(1, ch);
        return q + "\"";
    };
    return "=HYPERLINK(" + fnQuoted("#" + sCell) + "," + fnQuoted(sText) + ")";
}

std::string clsBldExcel::AnchorNameOf(long nIndex) {
    switch (ctx_.Model.ExportKind) {
        case 1:
            return GetItemHyperlinkName(nIndex);
        case 2:
            return GetDocHyperlinkName(nIndex);
        case 3:
            return GetFolderHyperlinkName(nIndex);
        default:
            return std::string();
    }
}

long clsBldExcel::LevelOf(long nIndex) const {
    const clsExportModel& m = ctx_.Model;
    switch (m.ExportKind) {
        case 1:
            return At(m.XItems, nIndex).Level;
        case 2:
            return At(m.XDocs, nIndex).Level;
        case 3:
            return At(m.XFolders, nIndex).Level;
        default:
            RaiseError(modConst::errSubscript);
    }
}
