// Writes the spreadsheet object model to an .xlsx file through libxlsxwriter.
//
// The writer runs in its constant-memory mode: each row is complete before the next one starts
// and goes to a temporary file at once. So for every row, in order: its height and format, the
// merged areas that start on it, then its cells in column order, a hyperlink being written with
// its cell. One writer format serves every cell of one distinct format.
//
// The file is written under a temporary name in the target's folder and renamed over the target
// when complete: a reader never sees half a workbook, and a failed save leaves nothing behind.
#include <unistd.h>
#include <xlsxwriter.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <unordered_map>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "workbook/xlModelData.h"
#include "workbook/xlObjectModel.h"

namespace xl {

using namespace modConst;
using detail::Cell;
using detail::kUnformatted;
using RowRec = detail::Row;

namespace {

[[noreturn]] void Fail() {
    RaiseError(errAppDefined);
}

void Check(lxw_error err) {
    if (err != LXW_NO_ERROR) Fail();
}

lxw_color_t Rgb(long lColorIndex) {
    const uint32_t rgb = PaletteRGB(lColorIndex);
    return rgb == 0 ? static_cast<lxw_color_t>(LXW_COLOR_BLACK) : rgb;  // 0 reads as unset
}

uint8_t BorderStyle(long lLineStyle) {
    switch (lLineStyle) {
        case xlContinuous:
            return LXW_BORDER_THIN;
        case -4115:
            return LXW_BORDER_DASHED;  // xlDash
        case -4118:
            return LXW_BORDER_DOTTED;  // xlDot
        case -4119:
            return LXW_BORDER_DOUBLE;  // xlDouble
        case 4:
            return LXW_BORDER_DASH_DOT;  // xlDashDot
        case 5:
            return LXW_BORDER_DASH_DOT_DOT;  // xlDashDotDot
        case 13:
            return LXW_BORDER_SLANT_DASH_DOT;  // xlSlantDashDot
        default:
            return LXW_BORDER_NONE;
    }
}

uint8_t HorizontalAlign(long l) {
    switch (l) {
        case xlLeft:
            return LXW_ALIGN_LEFT;
        case xlCenter:
            return LXW_ALIGN_CENTER;
        case xlRight:
            return LXW_ALIGN_RIGHT;
        case 5:
            return LXW_ALIGN_FILL;
        case -4130:
            return LXW_ALIGN_JUSTIFY;
        case 7:
            return LXW_ALIGN_CENTER_ACROSS;
        case -4117:
            return LXW_ALIGN_DISTRIBUTED;
        default:
            return LXW_ALIGN_NONE;  // xlGeneral
    }
}

uint8_t VerticalAlign(long l) {
    switch (l) {
        case xlTop:
            return LXW_ALIGN_VERTICAL_TOP;
        case xlCenter:
            return LXW_ALIGN_VERTICAL_CENTER;
        case -4130:
            return LXW_ALIGN_VERTICAL_JUSTIFY;
        case -4117:
            return LXW_ALIGN_VERTICAL_DISTRIBUTED;
        default:
            return LXW_ALIGN_NONE;  // xlBottom, the file's default
    }
}

// Frees the writer's workbook unless it was closed (closing frees it).
struct WorkbookHandle {
    lxw_workbook* p = nullptr;
    ~WorkbookHandle() {
        if (p) lxw_workbook_free(p);
    }
};

// One writer format per distinct cell format.
class Formats {
public:
    explicit Formats(lxw_workbook* wb) : wb_(wb) {}

    lxw_format* For(const xlStyleTable& t, uint32_t lId) {
        auto& v = mapByTable_[&t];
        if (v.size() <= lId) v.resize(t.Count(), nullptr);
        lxw_format*& f = v[lId];
        if (!f) {
            const xlStyle& s = t.Get(lId);
            auto it = mapByStyle_.find(s);
            f = it != mapByStyle_.end() ? it->second
                                        : mapByStyle_.emplace(s, Make(s)).first->second;
        }
        return f;
    }

private:
    lxw_format* Make(const xlStyle& s) {
        lxw_format* f = workbook_add_format(wb_);
        if (!f) RaiseError(errOutOfMemory);
        if (s.bBold) format_set_bold(f);
        if (s.bItalic) format_set_italic(f);
        if (s.bUnderline) format_set_underline(f, LXW_UNDERLINE_SINGLE);
        if (s.lFontColorIndex > 0) format_set_font_color(f, Rgb(s.lFontColorIndex));
        if (s.dFontSize != 11) format_set_font_size(f, s.dFontSize);
        if (s.lInteriorColorIndex > 0) {
            format_set_pattern(f, LXW_PATTERN_SOLID);
            format_set_bg_color(f, Rgb(s.lInteriorColorIndex));
        }
        if (s.lBorderLeft) format_set_left(f, BorderStyle(s.lBorderLeft));
        if (s.lBorderTop) format_set_top(f, BorderStyle(s.lBorderTop));
        if (s.lBorderBottom) format_set_bottom(f, BorderStyle(s.lBorderBottom));
        if (s.lBorderRight) format_set_right(f, BorderStyle(s.lBorderRight));
        if (uint8_t a = HorizontalAlign(s.lHorizontalAlignment)) format_set_align(f, a);
        if (uint8_t a = VerticalAlign(s.lVerticalAlignment)) format_set_align(f, a);
        if (s.bWrapText) format_set_text_wrap(f);
        if (s.sNumberFormat != "General") format_set_num_format(f, s.sNumberFormat.c_str());
        return f;
    }

    lxw_workbook* wb_;
    std::unordered_map<const xlStyleTable*, std::vector<lxw_format*>> mapByTable_;
    std::unordered_map<xlStyle, lxw_format*, xlStyleTable::StyleHash> mapByStyle_;
};

std::string CellText(const xlWorksheet::Impl& d, const Cell& c) {
    switch (c.eType) {
        case detail::kText:
            return std::string(d.oText.Get(c.lPayload));
        case detail::kNumber: {
            char buf[40];
            std::snprintf(buf, sizeof buf, "%.15G", c.Number());
            return buf;
        }
        default:
            return {};
    }
}

void WriteColumns(lxw_worksheet* ws, const xlWorksheet::Impl& d, Formats& fmts) {
    // Runs of neighbouring columns with the same width and format.
    auto StyleOf = [&](long c) {
        const uint32_t s = d.arrColStyle[c];
        return s != kUnformatted ? s : d.lSheetStyle;
    };
    long c = 1;
    while (c <= xlMaxColumns) {
        const float w = d.arrColWidth[c];
        const uint32_t s = StyleOf(c);
        long e = c;
        while (e + 1 <= xlMaxColumns && d.arrColWidth[e + 1] == w && StyleOf(e + 1) == s)
            ++e;
        if (w >= 0 || s != 0) {
            Check(worksheet_set_column(ws, static_cast<lxw_col_t>(c - 1),
                                       static_cast<lxw_col_t>(e - 1),
                                       w >= 0 ? static_cast<double>(w) : LXW_DEF_COL_WIDTH,
                                       s != 0 ? fmts.For(*d.pStyles, s) : nullptr));
        }
        c = e + 1;
    }
}

void WriteCells(lxw_worksheet* ws, const xlWorksheet& oSheet, Formats& fmts) {
    const xlWorksheet::Impl& d = oSheet.Data();
    const auto& arrLinks = oSheet.Hyperlinks().Items();
    std::vector<std::array<long, 4>> arrMerged = d.arrMerged;
    std::sort(arrMerged.begin(), arrMerged.end());
    size_t lNextMerge = 0;

    for (size_t i = 0; i < d.arrRows.size(); ++i) {
        const RowRec& o = d.arrRows[i];
        const long r = static_cast<long>(i) + 1;
        const lxw_row_t rr = static_cast<lxw_row_t>(i);
        const bool bMerge = lNextMerge < arrMerged.size() && arrMerged[lNextMerge][0] == r;
        if (o.arrCells.empty() && o.lStyle == kUnformatted && o.nHeightTwips == detail::kNoHeight &&
            !bMerge) {
            continue;
        }
        if (o.lStyle != kUnformatted || o.nHeightTwips != detail::kNoHeight) {
            const double h =
                o.nHeightTwips != detail::kNoHeight ? o.nHeightTwips / 20.0 : d.dDefaultRowHeight;
            Check(worksheet_set_row(
                ws, rr, h, o.lStyle != kUnformatted ? fmts.For(*d.pStyles, o.lStyle) : nullptr));
        }
        // Registering an area writes no cell when no format is given; the cells follow.
        for (; lNextMerge < arrMerged.size() && arrMerged[lNextMerge][0] == r; ++lNextMerge) {
            const auto& a = arrMerged[lNextMerge];
            Check(worksheet_merge_range(ws, rr, static_cast<lxw_col_t>(a[1] - 1),
                                        static_cast<lxw_row_t>(a[2] - 1),
                                        static_cast<lxw_col_t>(a[3] - 1), "", nullptr));
        }
        for (const Cell& c : o.arrCells) {
            const lxw_col_t cc = static_cast<lxw_col_t>(c.nCol - 1);
            lxw_format* f = fmts.For(*d.pStyles, c.lStyle);
            if (!d.mapLinks.empty()) {
                auto it = d.mapLinks.find(detail::CellKey(r, c.nCol));
                if (it != d.mapLinks.end()) {
                    const xlHyperlinkEntry& e = arrLinks[it->second];
                    const std::string sTarget = detail::LinkTarget(e.sAddress, e.sSubAddress);
                    const std::string sText = CellText(d, c);
                    Check(worksheet_write_url_opt(
                        ws, rr, cc, sTarget.c_str(), f, sText.c_str(),
                        e.sScreenTip.empty() ? nullptr : e.sScreenTip.c_str()));
                    if (c.eType == detail::kNumber) {
                        Check(worksheet_write_number(ws, rr, cc, c.Number(), f));
                    }
                    continue;
                }
            }
            switch (c.eType) {
                case detail::kText: {
                    const std::string s(d.oText.Get(c.lPayload));
                    Check(worksheet_write_string(ws, rr, cc, s.c_str(), f));
                    break;
                }
                case detail::kNumber:
                    Check(worksheet_write_number(ws, rr, cc, c.Number(), f));
                    break;
                default:
                    // A record that shows what the cell would show anyway is left out.
                    if (c.lStyle != d.Background(o, c.nCol)) {
                        Check(worksheet_write_blank(ws, rr, cc, f));
                    }
                    break;
            }
        }
    }
    // Areas that start below the last row with data.
    for (; lNextMerge < arrMerged.size(); ++lNextMerge) {
        const auto& a = arrMerged[lNextMerge];
        Check(worksheet_merge_range(
            ws, static_cast<lxw_row_t>(a[0] - 1), static_cast<lxw_col_t>(a[1] - 1),
            static_cast<lxw_row_t>(a[2] - 1), static_cast<lxw_col_t>(a[3] - 1), "", nullptr));
    }
}

void WritePageSetup(lxw_worksheet* ws, const xlPageSetup& p) {
    if (p.lOrientation == xlLandscape) worksheet_set_landscape(ws);
    if (p.lTitleRow1 > 0) {
        Check(worksheet_repeat_rows(ws, static_cast<lxw_row_t>(p.lTitleRow1 - 1),
                                    static_cast<lxw_row_t>(p.lTitleRow2 - 1)));
    }
    if (p.lAreaRow1 > 0) {
        Check(worksheet_print_area(
            ws, static_cast<lxw_row_t>(p.lAreaRow1 - 1), static_cast<lxw_col_t>(p.lAreaCol1 - 1),
            static_cast<lxw_row_t>(p.lAreaRow2 - 1), static_cast<lxw_col_t>(p.lAreaCol2 - 1)));
    }
    if (!p.sCenterFooter.empty()) {
        Check(worksheet_set_footer(ws, ("&C" + p.sCenterFooter).c_str()));
    }
}

void WriteXlsx(const xlWorkbook& oBook, const std::string& sFile, const std::string& sTmpDir) {
    lxw_workbook_options opt{};
    opt.constant_memory = LXW_TRUE;
    opt.tmpdir = const_cast<char*>(sTmpDir.c_str());
    WorkbookHandle wb;
    wb.p = workbook_new_opt(sFile.c_str(), &opt);
    if (!wb.p) Fail();
    Formats fmts(wb.p);

    const xlWorksheets& oSheets = oBook.Worksheets();
    for (long i = 1; i <= oSheets.Count(); ++i) {
        const xlWorksheet& oSheet = oSheets.Item(i);
        const xlWorksheet::Impl& d = oSheet.Data();
        lxw_worksheet* ws = workbook_add_worksheet(wb.p, oSheet.Name().c_str());
        if (!ws) Fail();  // also when the folder takes no temporary file
        if (d.dDefaultRowHeight != detail::kDefaultRowHeight) {
            worksheet_set_default_row(ws, d.dDefaultRowHeight, LXW_FALSE);
        }
        WriteCells(ws, oSheet, fmts);
        // Columns go last: a formatted column widens the span of columns that the writer walks
        // for every row it flushes, and columns are only written when the file is closed.
        WriteColumns(ws, d, fmts);
        WritePageSetup(ws, oSheet.PageSetup());
    }
    // Names local to a sheet: "Sheet1!NAME".
    for (long i = 1; i <= oSheets.Count(); ++i) {
        const xlWorksheet& oSheet = oSheets.Item(i);
        const std::string sPrefix = detail::QuoteSheetName(oSheet.Name()) + "!";
        for (const xlNameEntry& e : oSheet.Names().Items()) {
            Check(workbook_define_name(wb.p, (sPrefix + e.sName).c_str(), e.sRefersTo.c_str()));
        }
    }
    lxw_workbook* p = wb.p;
    wb.p = nullptr;  // closing frees it, whatever the outcome
    Check(workbook_close(p));
}

std::filesystem::path TempNameBeside(const std::filesystem::path& target) {
    static std::atomic<unsigned> lCounter{0};
    const std::filesystem::path dir = target.parent_path();
    std::error_code ec;
    for (;;) {
        const std::string sName = "." + target.filename().string() + ".~" +
                                  std::to_string(static_cast<long>(::getpid())) + "-" +
                                  std::to_string(lCounter++) + ".tmp";
        std::filesystem::path p = dir / sName;
        if (!std::filesystem::exists(p, ec)) return p;
    }
}

}  // namespace

void SaveWorkbookFile(const xlWorkbook& oBook, const std::string& sPath) {
    namespace fs = std::filesystem;
    std::error_code ec;
    fs::path target = fs::absolute(fs::path(sPath), ec);
    if (ec || sPath.empty() || target.filename().empty()) Fail();
    const fs::path dir = target.parent_path();
    if (!fs::is_directory(dir, ec)) Fail();
    const fs::path tmp = TempNameBeside(target);
    try {
        WriteXlsx(oBook, tmp.string(), dir.string());
        fs::rename(tmp, target, ec);
        if (ec) Fail();
    } catch (...) {
        std::error_code ec2;
        fs::remove(tmp, ec2);
        throw;
    }
}

}  // namespace xl
