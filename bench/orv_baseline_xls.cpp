// orv-baseline-xls: the fastest an .xls export can be with the project's own saver. Reads a dump
// written by orv-model-dump (with --xls) into memory and lays the same workbook out in the
// spreadsheet object model straight from its lines, without the builder: sheets, cell formats,
// cells, merged areas, rows (height, format, outline level), columns, the window, the page
// set-up, names and hyperlinks go into the model as the dump gives them. Then it saves the
// workbook as .xls the way an export saves it (the workbook is first saved empty under the
// name, which gives it the format; the timed save is the second one) and prints how long that
// save took:
//
//     orv-baseline-xls DUMP XLS_OUT      prints "write SECONDS" on standard output
//
// A row height in the dump is either the row's own height or the height its text needs, which
// the saver works out for a row without one; the replay gives a row its own height only where
// that differs from what the saver would work out, so the saver fits the same rows as in the
// export. Knows nothing of exports: it only replays lines.
#include <xlsxwriter.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "DumpReader.h"
#include "support/clsRunContext.h"
#include "support/clsRunError.h"
#include "support/modConst.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"
#include "xl/xlRowFit.h"

using dump::D;
using dump::DumpOp;
using dump::U;

namespace {

using namespace modConst;

// The palette index of a colour the dump gives as six hexadecimal digits (black may read
// 1000000, the writer's black); the first index of that colour.
long ColorIndexOf(const char* s) {
    uint32_t lRgb = static_cast<uint32_t>(std::strtoul(s, nullptr, 16));
    if (lRgb == LXW_COLOR_BLACK) lRgb = 0;
    for (long i = 1; i <= 56; ++i) {
        if (xl::PaletteRGB(i) == lRgb) return i;
    }
    RaiseError(errAppDefined, std::string("a colour outside the palette: ") + s);
}

long LineStyleOf(unsigned nBorder) {
    switch (nBorder) {
        case LXW_BORDER_NONE:
            return 0;
        case LXW_BORDER_THIN:
            return xlContinuous;
        case LXW_BORDER_DASHED:
            return -4115;  // xlDash
        case LXW_BORDER_DOTTED:
            return -4118;  // xlDot
        case LXW_BORDER_DOUBLE:
            return -4119;  // xlDouble
        case LXW_BORDER_DASH_DOT:
            return 4;  // xlDashDot
        case LXW_BORDER_DASH_DOT_DOT:
            return 5;  // xlDashDotDot
        case LXW_BORDER_SLANT_DASH_DOT:
            return 13;  // xlSlantDashDot
        default:
            RaiseError(errAppDefined,
                       "a border the model does not make: " + std::to_string(nBorder));
    }
}

long HorizontalOf(unsigned nAlign) {
    switch (nAlign) {
        case LXW_ALIGN_NONE:
            return xlGeneral;
        case LXW_ALIGN_LEFT:
            return xlLeft;
        case LXW_ALIGN_CENTER:
            return xlCenter;
        case LXW_ALIGN_RIGHT:
            return xlRight;
        case LXW_ALIGN_FILL:
            return 5;  // xlFill
        case LXW_ALIGN_JUSTIFY:
            return -4130;  // xlJustify
        case LXW_ALIGN_CENTER_ACROSS:
            return 7;  // xlCenterAcrossSelection
        case LXW_ALIGN_DISTRIBUTED:
            return -4117;  // xlDistributed
        default:
            RaiseError(errAppDefined,
                       "a horizontal alignment the model does not make: " + std::to_string(nAlign));
    }
}

long VerticalOf(unsigned nAlign) {
    switch (nAlign) {
        case LXW_ALIGN_NONE:
            return xlBottom;
        case LXW_ALIGN_VERTICAL_TOP:
            return xlTop;
        case LXW_ALIGN_VERTICAL_CENTER:
            return xlCenter;
        case LXW_ALIGN_VERTICAL_JUSTIFY:
            return -4130;  // xlJustify
        case LXW_ALIGN_VERTICAL_DISTRIBUTED:
            return -4117;  // xlDistributed
        default:
            RaiseError(errAppDefined,
                       "a vertical alignment the model does not make: " + std::to_string(nAlign));
    }
}

// The model's format of an "F" line: number, bold, italic, underline, font colour, size, fill,
// left, top, bottom and right border, horizontal and vertical alignment, wrap, number format.
xl::xlStyle StyleOf(const std::vector<char*>& a) {
    if (a.size() < 15) RaiseError(errAppDefined, "a format line with too few fields");
    xl::xlStyle s;
    s.bBold = a[1][0] == '1';
    s.bItalic = a[2][0] == '1';
    s.bUnderline = a[3][0] == '1';
    s.lFontColorIndex = a[4][0] == '-' ? 0 : ColorIndexOf(a[4]);
    s.dFontSize = D(a[5]);
    s.lInteriorColorIndex = a[6][0] == '-' ? 0 : ColorIndexOf(a[6]);
    s.lBorderLeft = LineStyleOf(U(a[7]));
    s.lBorderTop = LineStyleOf(U(a[8]));
    s.lBorderBottom = LineStyleOf(U(a[9]));
    s.lBorderRight = LineStyleOf(U(a[10]));
    // The writer is given the horizontal and the vertical alignment one after the other; either
    // field may hold either.
    s.lHorizontalAlignment = xlGeneral;
    s.lVerticalAlignment = xlBottom;
    for (const char* f : {a[11], a[12]}) {
        const unsigned n = U(f);
        if (n >= LXW_ALIGN_VERTICAL_TOP) {
            s.lVerticalAlignment = VerticalOf(n);
        } else if (n != LXW_ALIGN_NONE) {
            s.lHorizontalAlignment = HorizontalOf(n);
        }
    }
    s.bWrapText = a[13][0] == '1';
    s.sNumberFormat = a[14][0] ? a[14] : "General";
    return s;
}

void ReplaceAll(std::string& s, const std::string& sFrom, const std::string& sTo) {
    for (size_t k = s.find(sFrom); k != std::string::npos; k = s.find(sFrom, k + sTo.size()))
        s.replace(k, sFrom.size(), sTo);
}

// The address and the place in the workbook of a hyperlink, from the target the saver hands to
// the writer ("internal:NAME", "external:PATH", "file://PATH" or a URL): the escapes it made
// are undone.
std::pair<std::string, std::string> LinkOf(const std::string& sTarget) {
    auto Unescaped = [](std::string s) {
        ReplaceAll(s, "internal%3A", "internal:");
        ReplaceAll(s, "external%3A", "external:");
        return s;
    };
    if (sTarget.rfind("internal:", 0) == 0) return {"", Unescaped(sTarget.substr(9))};
    std::string s = sTarget;
    bool bFile = false;
    if (s.rfind("external:", 0) == 0) {
        s = s.substr(9);
        bFile = true;
    } else if (s.rfind("file:///", 0) == 0) {
        s = s.substr(7);  // an absolute path
        bFile = true;
    }
    if (bFile) ReplaceAll(s, "%23", "#");
    return {Unescaped(s), ""};
}

// "Sheet1!NAME" or "'Sheet 1'!NAME": the sheet's name and what follows the "!".
std::pair<std::string, std::string> SplitSheet(const std::string& s) {
    if (!s.empty() && s[0] == '\'') {
        std::string sSheet;
        size_t i = 1;
        for (; i < s.size(); ++i) {
            if (s[i] == '\'') {
                if (i + 1 < s.size() && s[i + 1] == '\'') {
                    sSheet += '\'';
                    ++i;
                } else {
                    break;
                }
            } else {
                sSheet += s[i];
            }
        }
        if (i + 1 >= s.size() || s[i + 1] != '!') RaiseError(errAppDefined, "a name: " + s);
        return {sSheet, s.substr(i + 2)};
    }
    const size_t k = s.find('!');
    if (k == std::string::npos) RaiseError(errAppDefined, "a name without its sheet: " + s);
    return {s.substr(0, k), s.substr(k + 1)};
}

// The fields a line of each kind has at least.
size_t FieldCount(char cKind) {
    switch (cKind) {
        case 'F':
            return 15;
        case 'E':
            return 5;
        case 'U':
            return 6;
        case 'S':
        case 'N':
        case 'Y':
        case 'M':
        case 'C':
        case 'A':
            return 4;
        case 'R':
        case 'B':
            return 3;
        case 'W':
        case 'Z':
        case 'G':
        case 'X':
        case 'T':
        case 'D':
            return 2;
        case 'Q':
        case 'P':
            return 1;
        default:
            return 0;
    }
}

// Lays the workbook of a dump out in the model.
class clsDumpReplay {
public:
    explicit clsDumpReplay(xl::xlWorkbook& oBook) : oBook_(oBook) {}

    void Replay(const std::vector<DumpOp>& arrOps) {
        for (const DumpOp& op : arrOps)
            Apply(op);
        FinishSheet();
    }

private:
    uint32_t Style(const char* s) {
        const long i = std::strtol(s, nullptr, 10);
        if (i < 0 || static_cast<size_t>(i) >= arrStyle_.size()) {
            RaiseError(errAppDefined, std::string("an unknown format: ") + s);
        }
        return arrStyle_[static_cast<size_t>(i)];
    }
    bool Formatted(const char* s) const { return std::strtol(s, nullptr, 10) >= 0; }
    xl::xlWorksheet& Sheet() {
        if (!pSheet_) RaiseError(errAppDefined, "a line before the first sheet");
        return *pSheet_;
    }
    xl::detail::Cell& CellAt(const std::vector<char*>& a) {
        return Sheet().Data().GetOrCreate(static_cast<long>(U(a[0])) + 1,
                                          static_cast<long>(U(a[1])) + 1);
    }

    void Apply(const DumpOp& op) {
        const auto& a = op.arrField;
        if (a.size() < FieldCount(op.cKind)) {
            RaiseError(errAppDefined, std::string("a line with too few fields: ") + op.cKind);
        }
        switch (op.cKind) {
            case 'F':
                arrStyle_.push_back(oBook_.Styles()->Intern(StyleOf(a)));
                break;
            case 'W':
                NewSheet(a[0], D(a[1]));
                break;
            case 'R': {
                auto& d = Sheet().Data();
                const long r = static_cast<long>(U(a[0])) + 1;
                xl::detail::Row& o = d.EnsureRow(r);
                o.lStyle = Formatted(a[2]) ? Style(a[2]) : xl::detail::kUnformatted;
                if (a.size() > 3) o.nOutline = static_cast<uint8_t>(U(a[3]));
                arrHeights_.emplace_back(r, D(a[1]));
                break;
            }
            case 'Z':
                Sheet().Data().lFrozenRows = U(a[0]);
                Sheet().Data().lFrozenCols = U(a[1]);
                break;
            case 'O':
                Sheet().Data().bSummaryBelow = false;
                break;
            case 'Y':
                Sheet().Data().arrAutoFilter = {U(a[0]) + 1L, U(a[1]) + 1L, U(a[2]) + 1L,
                                                U(a[3]) + 1L};
                break;
            case 'M':
                Sheet().Data().AddMerged(
                    xl::MergedArea(U(a[0]) + 1L, U(a[1]) + 1L, U(a[2]) + 1L, U(a[3]) + 1L));
                break;
            case 'S': {
                xl::detail::Cell& c = CellAt(a);
                Sheet().Data().SetValue(c, std::string(a[3]));
                c.lStyle = Style(a[2]);
                break;
            }
            case 'N': {
                xl::detail::Cell& c = CellAt(a);
                Sheet().Data().SetValue(c, D(a[3]));
                c.lStyle = Style(a[2]);
                break;
            }
            case 'E': {
                auto& d = Sheet().Data();
                xl::detail::Cell& c = CellAt(a);
                d.SetValue(c, xl::xlVariant());
                c.eType = xl::detail::kFormula;
                c.lPayload = d.oText.Add(xl::detail::FormulaText(a[3], a[4]));
                c.lStyle = Style(a[2]);
                break;
            }
            case 'B':
                CellAt(a).lStyle = Style(a[2]);
                break;
            case 'U': {
                xl::xlWorksheet& ws = Sheet();
                const long r = static_cast<long>(U(a[0])) + 1, c = static_cast<long>(U(a[1])) + 1;
                const auto [sAddress, sSubAddress] = LinkOf(a[3]);
                ws.Hyperlinks().Add(ws.Cells(r, c), sAddress, sSubAddress, a[5], std::string(a[4]));
                // The link's look is the cell's format of the dump.
                CellAt(a).lStyle = Style(a[2]);
                break;
            }
            case 'C': {
                auto& d = Sheet().Data();
                // A column that is only formatted has the writer's standard width in the dump.
                const double dWidth = D(a[2]);
                const float fWidth = dWidth == LXW_DEF_COL_WIDTH && Formatted(a[3])
                                         ? -1.0f
                                         : static_cast<float>(dWidth);
                const uint32_t lStyle = Formatted(a[3]) ? Style(a[3]) : xl::detail::kUnformatted;
                for (unsigned c = U(a[0]); c <= U(a[1]); ++c) {
                    d.arrColWidth[c + 1] = fWidth;
                    d.arrColStyle[c + 1] = lStyle;
                }
                break;
            }
            case 'L':
                Sheet().PageSetup().lOrientation = xlLandscape;
                break;
            case 'G':
                Sheet().PageSetup().lZoom = 0;
                Sheet().PageSetup().lFitToPagesWide = U(a[0]);
                Sheet().PageSetup().lFitToPagesTall = U(a[1]);
                break;
            case 'Q':
                Sheet().PageSetup().lZoom = U(a[0]);
                break;
            case 'X':
                lUsedRow_ = U(a[0]) + 1L;
                lUsedCol_ = U(a[1]) + 1L;
                break;
            case 'T':
                Sheet().PageSetup().lTitleRow1 = U(a[0]) + 1L;
                Sheet().PageSetup().lTitleRow2 = U(a[1]) + 1L;
                break;
            case 'A': {
                xl::xlPageSetup& p = Sheet().PageSetup();
                p.lAreaRow1 = U(a[0]) + 1L;
                p.lAreaCol1 = U(a[1]) + 1L;
                p.lAreaRow2 = U(a[2]) + 1L;
                p.lAreaCol2 = U(a[3]) + 1L;
                break;
            }
            case 'P':
                if (std::strncmp(a[0], "&C", 2) != 0) {
                    RaiseError(errAppDefined, std::string("a footer not centred: ") + a[0]);
                }
                Sheet().PageSetup().sCenterFooter = a[0] + 2;
                break;
            case 'D':
                AddName(a[0], a[1]);
                break;
            default:
                RaiseError(errAppDefined, std::string("an unknown line: ") + op.cKind);
        }
    }

    void NewSheet(const std::string& sName, double dDefaultRowHeight) {
        FinishSheet();
        xl::xlWorksheets& oSheets = oBook_.Worksheets();
        pSheet_ = bFirstSheet_ ? &oSheets(1) : &oSheets.Add();
        bFirstSheet_ = false;
        pSheet_->Name(sName);
        pSheet_->Data().dDefaultRowHeight = dDefaultRowHeight;
    }

    // The rows' heights, now that the sheet's cells, merged areas and columns are in place; and
    // the used range, which must be the dump's.
    void FinishSheet() {
        if (!pSheet_) return;
        auto& d = pSheet_->Data();
        const xl::detail::RowFitter oFitter(d);
        for (const auto& [r, dHeight] : arrHeights_) {
            const double dFitted = d.arrRows[r - 1].arrCells.empty() ? 0 : oFitter.Fit(r);
            if (dHeight != (dFitted > 0 ? dFitted : d.dDefaultRowHeight)) {
                d.arrRows[r - 1].nHeightTwips = static_cast<uint16_t>(std::lround(dHeight * 20));
            }
        }
        arrHeights_.clear();
        if (pSheet_->UsedLastRow() != lUsedRow_ || pSheet_->UsedLastColumn() != lUsedCol_) {
            RaiseError(errAppDefined, "the used range of sheet '" + pSheet_->Name() + "' is " +
                                          std::to_string(pSheet_->UsedLastRow()) + " x " +
                                          std::to_string(pSheet_->UsedLastColumn()) +
                                          ", the dump's " + std::to_string(lUsedRow_) + " x " +
                                          std::to_string(lUsedCol_));
        }
        lUsedRow_ = lUsedCol_ = 0;
    }

    void AddName(const std::string& sFullName, const std::string& sFormula) {
        const auto [sScope, sName] = SplitSheet(sFullName);
        if (sFormula.empty() || sFormula[0] != '=') RaiseError(errAppDefined, "a name's formula");
        const auto [sSheet, sAddress] = SplitSheet(sFormula.substr(1));
        xl::xlWorksheets& oSheets = oBook_.Worksheets();
        xl::xlWorksheet* pScope = oSheets.Find(sScope);
        xl::xlWorksheet* pTarget = oSheets.Find(sSheet);
        if (!pScope || !pTarget) RaiseError(errAppDefined, "a name of no sheet: " + sFullName);
        pScope->Names().Add(sName, pTarget->Range(sAddress));
    }

    xl::xlWorkbook& oBook_;
    xl::xlWorksheet* pSheet_ = nullptr;
    bool bFirstSheet_ = true;
    std::vector<uint32_t> arrStyle_;                   // by the dump's format number
    std::vector<std::pair<long, double>> arrHeights_;  // of the current sheet's rows
    long lUsedRow_ = 0, lUsedCol_ = 0;                 // of the current sheet, from the dump
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: orv-baseline-xls DUMP XLS_OUT\n");
        return 2;
    }
    clsRunContext ctx;
    ctx.Options.OnLogLine = [](const std::string& s) { std::cerr << s << "\n"; };
    ctx.LogFilePath = "/dev/null";
    std::vector<char> buf;
    if (!dump::ReadDumpFile(argv[1], buf)) {
        std::fprintf(stderr, "orv-baseline-xls: cannot read %s\n", argv[1]);
        return 1;
    }
    const std::string sOut = argv[2];
    xl::xlApplication oApp;
    xl::xlWorkbook& oBook = oApp.Workbooks().Add();
    // The empty workbook saved under the name takes the .xls format and its limits, as the
    // export's workbook does.
    const bool bFilled = TrapRun(ctx, "orvBaselineXls", "FillWorkbook", false, [&] {
        const std::vector<DumpOp> arrOps = dump::ParseDump(buf);
        oBook.SaveAs(sOut);
        clsDumpReplay(oBook).Replay(arrOps);
        return true;
    });
    if (!bFilled) return 1;

    const auto t0 = std::chrono::steady_clock::now();
    const bool bSaved = TrapRun(ctx, "orvBaselineXls", "SaveWorkbook", false, [&] {
        oBook.Save();
        return true;
    });
    const double dWrite =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (!bSaved) return 1;
    std::printf("write %.3f\n", dWrite);
    return 0;
}
