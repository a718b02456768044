// Writes the spreadsheet object model to an .xlsx file through libxlsxwriter.
//
// The writer runs in its constant-memory mode: each row is complete before the next one starts
// and goes to a temporary file at once. So for every row, in order: its height and format, the
// merged areas that start on it, then its cells in column order, a hyperlink being written with
// its cell. One writer format serves every cell of one distinct format. A row whose height was
// never set gets the height its text needs (xlRowFit.h), as the application stores it.
//
// The sheet's dimension is its used range, from A1 to the last row and column that show
// something: the formats given to whole columns do not widen it, as they would in the writer.
//
// The file is written through modSaveFile: under a temporary name in the target's folder, renamed
// over the target when complete, so a reader never sees half a workbook and a failed save leaves
// nothing behind. What the system refused (a full disk, a folder gone) is raised with its reason.
#include <sys/stat.h>
#include <unistd.h>
#include <xlsxwriter.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modSaveFile.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"
#include "xl/xlRowFit.h"
#include "xl/xlSheetRows.h"

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

// A cell format in the writer's terms: what is set on a new writer format.
struct FormatSpec {
    bool bBold = false;
    bool bItalic = false;
    bool bUnderline = false;
    bool bFontColor = false;
    lxw_color_t lFontColor = 0;
    double dFontSize = 11;  // set only when not 11
    bool bFill = false;
    lxw_color_t lFill = 0;
    uint8_t nLeft = 0, nTop = 0, nBottom = 0, nRight = 0;
    uint8_t nHorizontal = 0, nVertical = 0;
    bool bWrap = false;
    std::string sNumberFormat;  // empty: General
};

FormatSpec SpecOf(const xlStyle& s) {
    FormatSpec f;
    f.bBold = s.bBold;
    f.bItalic = s.bItalic;
    f.bUnderline = s.bUnderline;
    if (s.lFontColorIndex > 0) {
        f.bFontColor = true;
        f.lFontColor = Rgb(s.lFontColorIndex);
    }
    f.dFontSize = s.dFontSize;
    if (s.lInteriorColorIndex > 0) {
        f.bFill = true;
        f.lFill = Rgb(s.lInteriorColorIndex);
    }
    f.nLeft = s.lBorderLeft ? BorderStyle(s.lBorderLeft) : 0;
    f.nTop = s.lBorderTop ? BorderStyle(s.lBorderTop) : 0;
    f.nBottom = s.lBorderBottom ? BorderStyle(s.lBorderBottom) : 0;
    f.nRight = s.lBorderRight ? BorderStyle(s.lBorderRight) : 0;
    f.nHorizontal = HorizontalAlign(s.lHorizontalAlignment);
    f.nVertical = VerticalAlign(s.lVerticalAlignment);
    f.bWrap = s.bWrapText;
    if (s.sNumberFormat != "General") f.sNumberFormat = s.sNumberFormat;
    return f;
}

// The file writer: every call of a save goes to libxlsxwriter. Rows and columns are 0-based.
class WriterSink {
public:
    using Fmt = lxw_format*;
    static constexpr Fmt kNone = nullptr;

    explicit WriterSink(lxw_workbook* wb) : wb_(wb) {}

    Fmt NewFormat(const FormatSpec& s) {
        lxw_format* f = workbook_add_format(wb_);
        if (!f) RaiseError(errOutOfMemory);
        if (s.bBold) format_set_bold(f);
        if (s.bItalic) format_set_italic(f);
        if (s.bUnderline) format_set_underline(f, LXW_UNDERLINE_SINGLE);
        if (s.bFontColor) format_set_font_color(f, s.lFontColor);
        if (s.dFontSize != 11) format_set_font_size(f, s.dFontSize);
        if (s.bFill) {
            format_set_pattern(f, LXW_PATTERN_SOLID);
            format_set_bg_color(f, s.lFill);
        }
        if (s.nLeft) format_set_left(f, s.nLeft);
        if (s.nTop) format_set_top(f, s.nTop);
        if (s.nBottom) format_set_bottom(f, s.nBottom);
        if (s.nRight) format_set_right(f, s.nRight);
        if (s.nHorizontal) format_set_align(f, s.nHorizontal);
        if (s.nVertical) format_set_align(f, s.nVertical);
        if (s.bWrap) format_set_text_wrap(f);
        if (!s.sNumberFormat.empty()) format_set_num_format(f, s.sNumberFormat.c_str());
        return f;
    }
    // Writing goes on in sheet i (from 0) of those added.
    void Resume(size_t i) { ws_ = arrSheets_.at(i); }
    void Sheet(const std::string& sName, double dDefaultRowHeight) {
        errno = 0;
        ws_ = workbook_add_worksheet(wb_, sName.c_str());
        if (!ws_) {
            // The folder takes no temporary file for the rows, or the name is refused.
            if (errno != 0) modSaveFile::RaiseWriteFailure(errno);
            Fail();
        }
        arrSheets_.push_back(ws_);
        if (dDefaultRowHeight != detail::kDefaultRowHeight) {
            worksheet_set_default_row(ws_, dDefaultRowHeight, LXW_FALSE);
        }
    }
    // A row with an outline level (1 to 7) is written with it.
    void Row(lxw_row_t r, double dHeight, Fmt f, uint8_t nLevel) {
        if (nLevel == 0) {
            Check(worksheet_set_row(ws_, r, dHeight, f));
            return;
        }
        lxw_row_col_options opt{};
        opt.level = nLevel;
        Check(worksheet_set_row_opt(ws_, r, dHeight, f, &opt));
    }
    // The window and the outline, set at any time before closing.
    void Freeze(lxw_row_t r, lxw_col_t c) { worksheet_freeze_panes(ws_, r, c); }
    void OutlineSummaryAbove() {
        worksheet_outline_settings(ws_, LXW_TRUE, LXW_FALSE, LXW_TRUE, LXW_FALSE);
    }
    void AutoFilter(lxw_row_t r1, lxw_col_t c1, lxw_row_t r2, lxw_col_t c2) {
        Check(worksheet_autofilter(ws_, r1, c1, r2, c2));
    }
    // Registering an area writes no cell when no format is given; the cells follow.
    void Merge(lxw_row_t r1, lxw_col_t c1, lxw_row_t r2, lxw_col_t c2) {
        Check(worksheet_merge_range(ws_, r1, c1, r2, c2, "", nullptr));
    }
    void String(lxw_row_t r, lxw_col_t c, const char* s, Fmt f) {
        Check(worksheet_write_string(ws_, r, c, s, f));
    }
    void Number(lxw_row_t r, lxw_col_t c, double d, Fmt f) {
        Check(worksheet_write_number(ws_, r, c, d, f));
    }
    void Blank(lxw_row_t r, lxw_col_t c, Fmt f) { Check(worksheet_write_blank(ws_, r, c, f)); }
    // A formula with the value it shows, which readers take until they calculate.
    void Formula(lxw_row_t r, lxw_col_t c, const std::string& sFormula, Fmt f,
                 const std::string& sValue) {
        Check(worksheet_write_formula_str(ws_, r, c, sFormula.c_str(), f, sValue.c_str()));
    }
    void Url(lxw_row_t r, lxw_col_t c, const char* sTarget, Fmt f, const char* sText,
             const char* sTip) {
        Check(worksheet_write_url_opt(ws_, r, c, sTarget, f, sText, sTip));
    }
    void Column(lxw_col_t c1, lxw_col_t c2, double dWidth, Fmt f) {
        Check(worksheet_set_column(ws_, c1, c2, dWidth, f));
    }
    void Landscape() { worksheet_set_landscape(ws_); }
    void FitToPages(uint16_t nWide, uint16_t nTall) { worksheet_fit_to_pages(ws_, nWide, nTall); }
    void PrintScale(uint16_t nScale) { worksheet_set_print_scale(ws_, nScale); }
    // The writer widens the dimension for every formatted column; the used range replaces it.
    void Dimension(lxw_row_t r2, lxw_col_t c2) {
        ws_->dim_rowmin = 0;
        ws_->dim_colmin = 0;
        ws_->dim_rowmax = r2;
        ws_->dim_colmax = c2;
    }
    void RepeatRows(lxw_row_t r1, lxw_row_t r2) { Check(worksheet_repeat_rows(ws_, r1, r2)); }
    void PrintArea(lxw_row_t r1, lxw_col_t c1, lxw_row_t r2, lxw_col_t c2) {
        Check(worksheet_print_area(ws_, r1, c1, r2, c2));
    }
    void Footer(const char* s) { Check(worksheet_set_footer(ws_, s)); }
    void Name(const char* sName, const char* sFormula) {
        Check(workbook_define_name(wb_, sName, sFormula));
    }
    // The writer does not check its writes into the temporary files that hold the rows: rows it
    // could not store (a full disk) would be missing from a file that closes without error.
    // On the writer's thread, after each run of rows: a write to the sheet's row file that the
    // system refused raises its reason there, while errno still holds it.
    void CheckRows() {
        std::FILE* f = ws_ ? ws_->optimize_tmpfile : nullptr;
        if (f && std::ferror(f)) modSaveFile::RaiseWriteFailure(errno);
    }
    void CheckRowFiles() {
        for (lxw_worksheet* ws : arrSheets_) {
            std::FILE* f = ws->optimize_tmpfile;
            if (!f) continue;
            errno = 0;
            if (std::fflush(f) != 0 || std::ferror(f)) modSaveFile::RaiseWriteFailure(errno);
        }
    }
    // The size of each sheet's row file, in the order of the sheets.
    std::vector<uintmax_t> RowFileSizes() const {
        std::vector<uintmax_t> arr;
        for (lxw_worksheet* ws : arrSheets_) {
            struct stat st {};
            const bool b =
                ws->optimize_tmpfile && ::fstat(::fileno(ws->optimize_tmpfile), &st) == 0;
            arr.push_back(b ? static_cast<uintmax_t>(st.st_size) : 0);
        }
        return arr;
    }
    // The writer closes a sheet's row file only when it copies rows out of it: the file of a
    // sheet without rows, and every one of a save that stops before closing, would stay open (an
    // unlinked file that keeps a descriptor, and its disk space, until the process ends).
    void CloseRowFiles(bool bAll) {
        for (lxw_worksheet* ws : arrSheets_) {
            std::FILE* f = ws->optimize_tmpfile;
            if (!f || (!bAll && ws->dim_rowmin != LXW_ROW_MAX)) continue;
            std::fclose(f);
            if (ws->file == f) ws->file = nullptr;
            ws->optimize_tmpfile = nullptr;
        }
    }

private:
    lxw_workbook* wb_;
    lxw_worksheet* ws_ = nullptr;
    std::vector<lxw_worksheet*> arrSheets_;
};

// The dump: one line per call, tab-separated, texts with backslash, tab, CR and LF escaped.
class DumpSink {
public:
    using Fmt = long;
    static constexpr Fmt kNone = -1;

    explicit DumpSink(std::FILE* p) : p_(p) {}

    Fmt NewFormat(const FormatSpec& s) {
        const long n = lNext_++;
        std::fprintf(p_, "F\t%ld\t%d\t%d\t%d\t%s\t%.17g\t%s\t%u\t%u\t%u\t%u\t%u\t%u\t%d\t", n,
                     s.bBold, s.bItalic, s.bUnderline, Color(s.bFontColor, s.lFontColor).c_str(),
                     s.dFontSize, Color(s.bFill, s.lFill).c_str(), s.nLeft, s.nTop, s.nBottom,
                     s.nRight, s.nHorizontal, s.nVertical, s.bWrap);
        Text(s.sNumberFormat.c_str());
        std::fputc('\n', p_);
        return n;
    }
    void Resume(size_t) {}
    void Sheet(const std::string& sName, double dDefaultRowHeight) {
        std::fputs("W\t", p_);
        Text(sName.c_str());
        std::fprintf(p_, "\t%.17g\n", dDefaultRowHeight);
    }
    void Row(lxw_row_t r, double dHeight, Fmt f, uint8_t nLevel) {
        std::fprintf(p_, "R\t%u\t%.17g\t%ld", r, dHeight, f);
        if (nLevel != 0) std::fprintf(p_, "\t%u", static_cast<unsigned>(nLevel));
        std::fputc('\n', p_);
    }
    void Freeze(lxw_row_t r, lxw_col_t c) { std::fprintf(p_, "Z\t%u\t%u\n", r, c); }
    void OutlineSummaryAbove() { std::fputs("O\n", p_); }
    void AutoFilter(lxw_row_t r1, lxw_col_t c1, lxw_row_t r2, lxw_col_t c2) {
        std::fprintf(p_, "Y\t%u\t%u\t%u\t%u\n", r1, c1, r2, c2);
    }
    void Merge(lxw_row_t r1, lxw_col_t c1, lxw_row_t r2, lxw_col_t c2) {
        std::fprintf(p_, "M\t%u\t%u\t%u\t%u\n", r1, c1, r2, c2);
    }
    void String(lxw_row_t r, lxw_col_t c, const char* s, Fmt f) {
        std::fprintf(p_, "S\t%u\t%u\t%ld\t", r, c, f);
        Text(s);
        std::fputc('\n', p_);
    }
    void Number(lxw_row_t r, lxw_col_t c, double d, Fmt f) {
        std::fprintf(p_, "N\t%u\t%u\t%ld\t%.17g\n", r, c, f, d);
    }
    void Blank(lxw_row_t r, lxw_col_t c, Fmt f) { std::fprintf(p_, "B\t%u\t%u\t%ld\n", r, c, f); }
    void Formula(lxw_row_t r, lxw_col_t c, const std::string& sFormula, Fmt f,
                 const std::string& sValue) {
        std::fprintf(p_, "E\t%u\t%u\t%ld\t", r, c, f);
        Text(sFormula.c_str());
        std::fputc('\t', p_);
        Text(sValue.c_str());
        std::fputc('\n', p_);
    }
    void Url(lxw_row_t r, lxw_col_t c, const char* sTarget, Fmt f, const char* sText,
             const char* sTip) {
        std::fprintf(p_, "U\t%u\t%u\t%ld\t", r, c, f);
        Text(sTarget);
        std::fputc('\t', p_);
        Text(sText);
        std::fputc('\t', p_);
        Text(sTip ? sTip : "");
        std::fputc('\n', p_);
    }
    void Column(lxw_col_t c1, lxw_col_t c2, double dWidth, Fmt f) {
        std::fprintf(p_, "C\t%u\t%u\t%.17g\t%ld\n", c1, c2, dWidth, f);
    }
    void Landscape() { std::fputs("L\n", p_); }
    void FitToPages(uint16_t nWide, uint16_t nTall) {
        std::fprintf(p_, "G\t%u\t%u\n", nWide, nTall);
    }
    void PrintScale(uint16_t nScale) { std::fprintf(p_, "Q\t%u\n", nScale); }
    void Dimension(lxw_row_t r2, lxw_col_t c2) { std::fprintf(p_, "X\t%u\t%u\n", r2, c2); }
    void RepeatRows(lxw_row_t r1, lxw_row_t r2) { std::fprintf(p_, "T\t%u\t%u\n", r1, r2); }
    void PrintArea(lxw_row_t r1, lxw_col_t c1, lxw_row_t r2, lxw_col_t c2) {
        std::fprintf(p_, "A\t%u\t%u\t%u\t%u\n", r1, c1, r2, c2);
    }
    void CheckRows() {}
    void Footer(const char* s) {
        std::fputs("P\t", p_);
        Text(s);
        std::fputc('\n', p_);
    }
    void Name(const char* sName, const char* sFormula) {
        std::fputs("D\t", p_);
        Text(sName);
        std::fputc('\t', p_);
        Text(sFormula);
        std::fputc('\n', p_);
    }

private:
    static std::string Color(bool bSet, lxw_color_t l) {
        if (!bSet) return "-";
        char buf[16];
        std::snprintf(buf, sizeof buf, "%06X", static_cast<unsigned>(l));
        return buf;
    }
    void Text(const char* s) {
        for (; *s; ++s) {
            switch (*s) {
                case '\\':
                    std::fputs("\\\\", p_);
                    break;
                case '\t':
                    std::fputs("\\t", p_);
                    break;
                case '\n':
                    std::fputs("\\n", p_);
                    break;
                case '\r':
                    std::fputs("\\r", p_);
                    break;
                default:
                    std::fputc(*s, p_);
            }
        }
    }

    std::FILE* p_;
    long lNext_ = 0;
};

// One writer format per distinct cell format, made when it is first used.
template <class Sink>
class Formats {
public:
    explicit Formats(Sink& sink) : sink_(sink) {}

    typename Sink::Fmt For(const xlStyleTable& t, uint32_t lId) {
        if (&t != pTable_) {
            pTable_ = &t;
            pById_ = &mapByTable_[&t];
        }
        auto& v = *pById_;
        if (v.size() <= lId) v.resize(t.Count(), std::nullopt);
        auto& f = v[lId];
        if (!f) {
            const xlStyle& s = t.Get(lId);
            auto it = mapByStyle_.find(s);
            f = it != mapByStyle_.end()
                    ? it->second
                    : mapByStyle_.emplace(s, sink_.NewFormat(SpecOf(s))).first->second;
        }
        return *f;
    }

private:
    Sink& sink_;
    const xlStyleTable* pTable_ = nullptr;
    std::vector<std::optional<typename Sink::Fmt>>* pById_ = nullptr;
    std::unordered_map<const xlStyleTable*, std::vector<std::optional<typename Sink::Fmt>>>
        mapByTable_;
    std::unordered_map<xlStyle, typename Sink::Fmt, xlStyleTable::StyleHash> mapByStyle_;
};

// Hands the rows written so far to the workbook's observer, every thousand rows.
class SaveProgress {
public:
    SaveProgress(const xlWorkbook& oBook, long lTotal) : oBook_(oBook), lTotal_(lTotal) {
        Report();
    }
    void Row() {
        if (++lDone_ % kEvery == 0) Report();
    }
    // Rows the writer took ahead of the save: counted now, a thousand at a time as ever.
    void Advance(long n) {
        for (long i = 0; i < n; ++i)
            Row();
    }
    void Report() {
        if (oBook_.OnSaveProgress) oBook_.OnSaveProgress(lDone_, lTotal_);
    }

private:
    static constexpr long kEvery = 1000;
    const xlWorkbook& oBook_;
    long lTotal_;
    long lDone_ = 0;
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
        case detail::kFormula:
            return std::string(detail::FormulaValueOf(d.oText.Get(c.lPayload)));
        default:
            return {};
    }
}

template <class Sink>
void WriteColumns(Sink& sink, const xlWorksheet::Impl& d, Formats<Sink>& fmts) {
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
            sink.Column(static_cast<lxw_col_t>(c - 1), static_cast<lxw_col_t>(e - 1),
                        w >= 0 ? static_cast<double>(w) : LXW_DEF_COL_WIDTH,
                        s != 0 ? fmts.For(*d.pStyles, s) : Sink::kNone);
        }
        c = e + 1;
    }
}

// What the writer is to write of a run of rows, prepared on the thread that reads them: each row's
// height and format, the merged areas that start on it and its cells, with formats as the model's
// ids. The texts stay where the workbook's store keeps them: a text once stored never moves, and
// nothing changes it.
struct RowBatch {
    enum class Kind : uint8_t { String, Number, Blank, Formula, Url, UrlNumber };
    struct CellJob {
        Kind eKind;
        lxw_col_t nCol;
        uint32_t lStyle;
        double dNumber;     // Number, UrlNumber
        const char* pText;  // String
        uint32_t lUrl;      // Url, UrlNumber: target, text and tip from here in arrStrings;
                            // Formula: the formula and the value it shows
    };
    struct RowJob {
        lxw_row_t nRow;
        bool bRow;  // the row itself is written: height, format, outline level
        uint8_t nOutline;
        uint32_t lStyle;
        double dHeight;
        uint32_t lMergeEnd;  // ends of the row's merged areas and cells in the lists
        uint32_t lCellEnd;
    };
    std::vector<RowJob> arrRows;
    std::vector<xlMergedArea> arrMerges;
    std::vector<CellJob> arrCells;
    std::vector<std::string> arrStrings;
    // Rows taken ahead of the save: the formats of the table from the last batch's count on,
    // which the writer's thread copies before it writes the batch.
    std::vector<xlStyle> arrNewStyles;
    // The rows of the sheet read for this batch, those without anything to write included.
    long lRowsPassed = 0;
    // Rows taken ahead of the save: a new sheet that the batch's rows begin, with its standard
    // row height.
    std::string sNewSheet;
    double dNewSheetHeight = 0;
    void Clear() {
        lRowsPassed = 0;
        sNewSheet.clear();
        arrRows.clear();
        arrMerges.clear();
        arrCells.clear();
        arrStrings.clear();
        arrNewStyles.clear();
    }
};

// The queue between the thread that reads and lays out the rows and the one that makes the
// writer's calls (see WriteRowsReadBeside and RowWriter): a few batches deep, so memory stays
// bounded while both keep busy. Batches go round: the writer hands each one back to be filled
// again.
class RowPipe {
public:
    static constexpr size_t kRowsPerBatch = 512;

    // A batch is emptied by the thread that filled it: what its texts took goes back to that
    // thread's memory, without waiting for the other's.
    std::unique_ptr<RowBatch> Empty() {
        std::unique_lock<std::mutex> lk(m_);
        if (!arrFree_.empty()) {
            std::unique_ptr<RowBatch> p = std::move(arrFree_.back());
            arrFree_.pop_back();
            lk.unlock();
            p->Clear();
            return p;
        }
        lk.unlock();
        return std::make_unique<RowBatch>();
    }
    // False once the writer stopped on a failure: nothing more is taken.
    bool Put(std::unique_ptr<RowBatch> p) {
        std::unique_lock<std::mutex> lk(m_);
        cvRoom_.wait(lk, [&] { return arrFull_.size() < kDepth || bFailed_; });
        if (bFailed_) return false;
        arrFull_.push_back(std::move(p));
        cvWork_.notify_one();
        return true;
    }
    // The next batch for the writer; none after the last one, or when the saving stopped.
    std::unique_ptr<RowBatch> Next() {
        std::unique_lock<std::mutex> lk(m_);
        cvWork_.wait(lk, [&] { return !arrFull_.empty() || bClosed_; });
        if (arrFull_.empty()) return nullptr;
        std::unique_ptr<RowBatch> p = std::move(arrFull_.front());
        arrFull_.pop_front();
        cvRoom_.notify_one();
        return p;
    }
    void Recycle(std::unique_ptr<RowBatch> p) {
        std::lock_guard<std::mutex> lk(m_);
        arrFree_.push_back(std::move(p));
    }
    // The saving thread is done; with bDrop what is still queued is not written.
    void Close(bool bDrop) {
        std::lock_guard<std::mutex> lk(m_);
        bClosed_ = true;
        if (bDrop) arrFull_.clear();
        cvWork_.notify_all();
    }
    void Failed() {
        std::lock_guard<std::mutex> lk(m_);
        bFailed_ = true;
        arrFull_.clear();
        cvRoom_.notify_all();
    }

private:
    static constexpr size_t kDepth = 4;
    std::mutex m_;
    std::condition_variable cvWork_, cvRoom_;
    std::deque<std::unique_ptr<RowBatch>> arrFull_;
    std::vector<std::unique_ptr<RowBatch>> arrFree_;
    bool bClosed_ = false;
    bool bFailed_ = false;
};

// Writes one batch through the sink, row by row in order, as the writer takes them.
template <class Sink>
void WriteBatch(Sink& sink, const xlStyleTable& t, Formats<Sink>& fmts, const RowBatch& b) {
    uint32_t lMerge = 0, lCell = 0;
    for (const RowBatch::RowJob& o : b.arrRows) {
        const lxw_row_t rr = o.nRow;
        if (o.bRow) {
            sink.Row(rr, o.dHeight, o.lStyle != kUnformatted ? fmts.For(t, o.lStyle) : Sink::kNone,
                     o.nOutline);
        }
        for (; lMerge < o.lMergeEnd; ++lMerge) {
            const auto& a = b.arrMerges[lMerge];
            sink.Merge(rr, static_cast<lxw_col_t>(a[1] - 1), static_cast<lxw_row_t>(a[2] - 1),
                       static_cast<lxw_col_t>(a[3] - 1));
        }
        for (; lCell < o.lCellEnd; ++lCell) {
            const RowBatch::CellJob& c = b.arrCells[lCell];
            const auto f = fmts.For(t, c.lStyle);
            switch (c.eKind) {
                case RowBatch::Kind::String:
                    sink.String(rr, c.nCol, c.pText, f);
                    break;
                case RowBatch::Kind::Number:
                    sink.Number(rr, c.nCol, c.dNumber, f);
                    break;
                case RowBatch::Kind::Blank:
                    sink.Blank(rr, c.nCol, f);
                    break;
                case RowBatch::Kind::Formula:
                    sink.Formula(rr, c.nCol, b.arrStrings[c.lUrl], f, b.arrStrings[c.lUrl + 1]);
                    break;
                case RowBatch::Kind::Url:
                case RowBatch::Kind::UrlNumber: {
                    const std::string& sTip = b.arrStrings[c.lUrl + 2];
                    sink.Url(rr, c.nCol, b.arrStrings[c.lUrl].c_str(), f,
                             b.arrStrings[c.lUrl + 1].c_str(),
                             sTip.empty() ? nullptr : sTip.c_str());
                    if (c.eKind == RowBatch::Kind::UrlNumber) sink.Number(rr, c.nCol, c.dNumber, f);
                    break;
                }
            }
        }
    }
}

// The writer's thread for rows taken ahead of the save (WriteAhead): the sheet's thread lays the
// rows out and hands them over, this thread makes the writer's calls. Whatever stops the
// sheet's thread stops the writer before it goes; a failure of the writer reaches the sheet's
// thread at its next hand-over or at Finish.
template <class Sink>
class RowWriter {
public:
    // The formats are those of t; with pCopy, those of a copy of the table that the batches
    // bring up to date (rows taken ahead of the save, while the table still grows).
    RowWriter(Sink& sink, const xlStyleTable& t, Formats<Sink>& fmts, xlStyleTable* pCopy = nullptr)
        : thread_([this, &sink, &t, &fmts, pCopy] {
              try {
                  // Room for the copy at once: a heap of this thread's own, where the process
                  // has one for it, serves it from its start (see the command-line tool).
                  if (pCopy) pCopy->arrStyles.reserve(256);
                  while (std::unique_ptr<RowBatch> p = pipe_.Next()) {
                      if (pCopy) {
                          for (xlStyle& o : p->arrNewStyles)
                              pCopy->arrStyles.push_back(std::move(o));
                      }
                      if (!p->sNewSheet.empty()) sink.Sheet(p->sNewSheet, p->dNewSheetHeight);
                      WriteBatch(sink, pCopy ? *pCopy : t, fmts, *p);
                      sink.CheckRows();
                      pipe_.Recycle(std::move(p));
                  }
              } catch (...) {
                  pError_ = std::current_exception();
                  pipe_.Failed();
              }
          }) {}
    ~RowWriter() {
        if (thread_.joinable()) {
            pipe_.Close(true);
            thread_.join();
        }
    }
    RowWriter(const RowWriter&) = delete;
    RowWriter& operator=(const RowWriter&) = delete;

    RowBatch& Batch() {
        if (!pBatch_) pBatch_ = pipe_.Empty();
        return *pBatch_;
    }
    bool Full() const { return pBatch_ && pBatch_->arrRows.size() >= RowPipe::kRowsPerBatch; }
    // Hands the batch over once it holds enough rows (bAll: whatever it holds).
    void Send(bool bAll = false) {
        if (!pBatch_ || pBatch_->arrRows.empty()) return;
        if (!bAll && pBatch_->arrRows.size() < RowPipe::kRowsPerBatch) return;
        if (!pipe_.Put(std::move(pBatch_))) Finish();
    }
    // Waits for the writer to write every row handed over; raises what stopped it.
    void Finish() {
        Send(true);
        pipe_.Close(false);
        thread_.join();
        if (pError_) std::rethrow_exception(pError_);
    }

private:
    RowPipe pipe_;
    std::unique_ptr<RowBatch> pBatch_;
    std::exception_ptr pError_;
    std::thread thread_;  // last: it starts once the rest is ready
};

// The rows of one sheet at the save: fnRead reads and lays them out on a thread of its own and
// puts them on the pipe in batches; this thread, the save's, takes them in order, counts them
// for the progress and makes the writer's calls. So the writer's records are made on the
// export's own thread, in the room the export gave back, and the progress and its interrupt
// stay there too. A failure on either side stops the other.
template <class Sink, class ReadFn>
void WriteRowsReadBeside(Sink& sink, const xlStyleTable& t, Formats<Sink>& fmts,
                         SaveProgress& oProgress, ReadFn&& fnRead) {
    RowPipe pipe;
    std::exception_ptr pError;
    std::thread reader([&] {
        try {
            fnRead(pipe);
            pipe.Close(false);
        } catch (...) {
            pError = std::current_exception();
            pipe.Close(true);
        }
    });
    try {
        while (std::unique_ptr<RowBatch> p = pipe.Next()) {
            oProgress.Advance(p->lRowsPassed);
            WriteBatch(sink, t, fmts, *p);
            sink.CheckRows();
            pipe.Recycle(std::move(p));
        }
    } catch (...) {
        pipe.Failed();
        reader.join();
        throw;
    }
    reader.join();
    if (pError) std::rethrow_exception(pError);
}

// A cell's link as the writer takes it.
struct LinkOut {
    std::string_view sAddress, sSubAddress, sTip;
};

// Puts row r (given as o) on the batch: its height and format, the merged areas that start on it
// (arrStart, nStart of them, in order), its cells, a linked one with its link (fnLink(column):
// the link, or null) and a blank one only when it shows other than the cell without a record
// (fnBackground(column)). pCovering: the merged areas that cover the row, for its height. False
// when the row has nothing to write.
template <class LinkFn, class BackgroundFn>
bool PrepareRow(RowBatch& b, const xlWorksheet::Impl& d, const detail::RowFitter& oFitter, long r,
                const RowRec& o, const std::vector<uint32_t>* pCovering,
                const xlMergedArea* arrStart, size_t nStart, LinkFn&& fnLink,
                BackgroundFn&& fnBackground, long lShift = 0) {
    using Kind = RowBatch::Kind;
    if (o.arrCells.empty() && o.lStyle == kUnformatted && o.nHeightTwips == detail::kNoHeight &&
        o.nOutline == 0 && nStart == 0) {
        return false;
    }
    // A row's own height wins; else the height its text needs, when more than standard.
    double h = o.nHeightTwips != detail::kNoHeight ? o.nHeightTwips / 20.0 : 0;
    if (h == 0 && !o.arrCells.empty()) h = oFitter.Fit(r, o, pCovering);
    RowBatch::RowJob job{};
    job.nRow = static_cast<lxw_row_t>(r - lShift - 1);
    job.bRow = o.lStyle != kUnformatted || h != 0 || o.nOutline != 0;
    job.nOutline = o.nOutline;
    job.lStyle = o.lStyle;
    job.dHeight = h != 0 ? h : d.dDefaultRowHeight;
    b.arrMerges.insert(b.arrMerges.end(), arrStart, arrStart + nStart);
    for (const Cell& c : o.arrCells) {
        RowBatch::CellJob cj{};
        cj.nCol = static_cast<lxw_col_t>(c.nCol - 1);
        cj.lStyle = c.lStyle;
        if (const LinkOut* pLink = fnLink(c.nCol)) {
            cj.eKind = c.eType == detail::kNumber ? Kind::UrlNumber : Kind::Url;
            cj.dNumber = c.eType == detail::kNumber ? c.Number() : 0;
            cj.lUrl = static_cast<uint32_t>(b.arrStrings.size());
            b.arrStrings.push_back(detail::LinkTarget(pLink->sAddress, pLink->sSubAddress));
            b.arrStrings.push_back(CellText(d, c));
            b.arrStrings.emplace_back(pLink->sTip);
            b.arrCells.push_back(cj);
            continue;
        }
        switch (c.eType) {
            case detail::kText:
                cj.eKind = Kind::String;
                cj.pText = d.oText.CStr(c.lPayload);
                break;
            case detail::kNumber:
                cj.eKind = Kind::Number;
                cj.dNumber = c.Number();
                break;
            case detail::kFormula: {
                cj.eKind = Kind::Formula;
                cj.lUrl = static_cast<uint32_t>(b.arrStrings.size());
                const std::string_view sStored = d.oText.Get(c.lPayload);
                b.arrStrings.emplace_back(detail::FormulaOf(sStored));
                b.arrStrings.emplace_back(detail::FormulaValueOf(sStored));
                break;
            }
            default:
                // A record that shows what the cell would show anyway is left out.
                if (c.lStyle == fnBackground(c.nCol)) continue;
                cj.eKind = Kind::Blank;
                break;
        }
        b.arrCells.push_back(cj);
    }
    job.lMergeEnd = static_cast<uint32_t>(b.arrMerges.size());
    job.lCellEnd = static_cast<uint32_t>(b.arrCells.size());
    b.arrRows.push_back(job);
    return true;
}

// Where the rows of a sheet begin whose first rows the writer took ahead of the save: the first
// row still to write, and the used range of those it took (0 when they show nothing).
struct AheadStart {
    long lNextRow = 1;
    long lUsedRow = 0;
    long lUsedCol = 0;
};

// Writes the rows of a sheet (from pStart's next row on, when given); returns its used range
// (last row, last column; 0 when empty). A reading thread reads each row (from the model or its
// spool), fits its height and finds its links; this thread writes the rows in order behind it.
template <class Sink>
std::pair<long, long> WriteCells(Sink& sink, const xlWorksheet& oSheet, Formats<Sink>& fmts,
                                 SaveProgress& oProgress, const AheadStart* pStart = nullptr) {
    const xlWorksheet::Impl& d = oSheet.Data();
    const auto& arrLinks = oSheet.Hyperlinks().Items();
    const long lFirst = pStart ? pStart->lNextRow : 1;
    detail::SheetRows oRows(d);
    oRows.SkipTo(lFirst);
    const std::vector<uint32_t>& arrMerged = oRows.MergedInOrder();
    auto Area = [&](size_t i) -> const xlMergedArea& { return d.arrMerged[arrMerged[i]]; };
    size_t lNextMerge = 0;
    while (lNextMerge < arrMerged.size() && Area(lNextMerge)[0] < lFirst)
        ++lNextMerge;
    // The linked cells in row and column order, met by a cursor as the cells go out.
    std::vector<std::pair<uint64_t, uint32_t>> arrLinkCells(d.mapLinks.begin(), d.mapLinks.end());
    std::sort(arrLinkCells.begin(), arrLinkCells.end());
    size_t lNextLink = static_cast<size_t>(
        std::lower_bound(arrLinkCells.begin(), arrLinkCells.end(),
                         std::pair<uint64_t, uint32_t>(detail::CellKey(lFirst, 0), 0)) -
        arrLinkCells.begin());
    const detail::RowFitter oFitter(d);
    std::vector<xlMergedArea> arrStart;
    LinkOut oLink;
    oProgress.Advance(lFirst - 1);

    WriteRowsReadBeside(sink, *d.pStyles, fmts, oProgress, [&](RowPipe& pipe) {
        std::unique_ptr<RowBatch> pBatch = pipe.Empty();
        for (size_t i = static_cast<size_t>(lFirst - 1); i < d.arrRows.size(); ++i) {
            ++pBatch->lRowsPassed;
            const long r = static_cast<long>(i) + 1;
            const RowRec& o = oRows.Get(r);
            arrStart.clear();
            for (; lNextMerge < arrMerged.size() && Area(lNextMerge)[0] == r; ++lNextMerge)
                arrStart.push_back(Area(lNextMerge));
            auto fnLink = [&](long lCol) -> const LinkOut* {
                const uint64_t k = detail::CellKey(r, lCol);
                while (lNextLink < arrLinkCells.size() && arrLinkCells[lNextLink].first < k)
                    ++lNextLink;
                if (lNextLink == arrLinkCells.size() || arrLinkCells[lNextLink].first != k) {
                    return nullptr;
                }
                const xlHyperlinkEntry& e = arrLinks[arrLinkCells[lNextLink].second];
                oLink = {e.Address(), e.SubAddress(), e.ScreenTip()};
                return &oLink;
            };
            PrepareRow(*pBatch, d, oFitter, r, o, oRows.Merged(), arrStart.data(), arrStart.size(),
                       fnLink, [&](long lCol) { return d.Background(o, lCol); });
            if (pBatch->arrRows.size() >= RowPipe::kRowsPerBatch) {
                if (!pipe.Put(std::move(pBatch))) return;
                pBatch = pipe.Empty();
            }
        }
        if (pBatch->lRowsPassed != 0) pipe.Put(std::move(pBatch));
    });
    // Areas that start below the last row with data.
    for (; lNextMerge < arrMerged.size(); ++lNextMerge) {
        const auto& a = Area(lNextMerge);
        sink.Merge(static_cast<lxw_row_t>(a[0] - 1), static_cast<lxw_col_t>(a[1] - 1),
                   static_cast<lxw_row_t>(a[2] - 1), static_cast<lxw_col_t>(a[3] - 1));
    }
    const long lUsedRow = oRows.UsedLastRow() != 0 ? oRows.UsedLastRow()
                          : pStart                 ? pStart->lUsedRow
                                                   : 0;
    return {lUsedRow, std::max(pStart ? pStart->lUsedCol : 0L, oRows.UsedLastColumn())};
}

// Frozen panes, where outline summary rows stand, and the AutoFilter: written only when set.
template <class Sink>
void WriteWindow(Sink& sink, const xlWorksheet::Impl& d) {
    if (d.lFrozenRows > 0 || d.lFrozenCols > 0) {
        sink.Freeze(static_cast<lxw_row_t>(d.lFrozenRows), static_cast<lxw_col_t>(d.lFrozenCols));
    }
    if (!d.bSummaryBelow) sink.OutlineSummaryAbove();
    const auto& a = d.arrAutoFilter;
    if (a[0] > 0) {
        sink.AutoFilter(static_cast<lxw_row_t>(a[0] - 1), static_cast<lxw_col_t>(a[1] - 1),
                        static_cast<lxw_row_t>(a[2] - 1), static_cast<lxw_col_t>(a[3] - 1));
    }
}

template <class Sink>
void WritePageSetup(Sink& sink, const xlPageSetup& p) {
    if (p.lOrientation == xlLandscape) sink.Landscape();
    if (p.lZoom == 0) {
        sink.FitToPages(static_cast<uint16_t>(p.lFitToPagesWide),
                        static_cast<uint16_t>(p.lFitToPagesTall));
    } else if (p.lZoom != 100) {
        sink.PrintScale(static_cast<uint16_t>(p.lZoom));
    }
    if (p.lTitleRow1 > 0) {
        sink.RepeatRows(static_cast<lxw_row_t>(p.lTitleRow1 - 1),
                        static_cast<lxw_row_t>(p.lTitleRow2 - 1));
    }
    if (p.lAreaRow1 > 0) {
        sink.PrintArea(
            static_cast<lxw_row_t>(p.lAreaRow1 - 1), static_cast<lxw_col_t>(p.lAreaCol1 - 1),
            static_cast<lxw_row_t>(p.lAreaRow2 - 1), static_cast<lxw_col_t>(p.lAreaCol2 - 1));
    }
    if (!p.sCenterFooter.empty()) sink.Footer(("&C" + p.sCenterFooter).c_str());
}

char AsciiLowerChar(char ch) {
    return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
}

std::string AsciiLower(std::string s) {
    for (char& ch : s)
        ch = AsciiLowerChar(ch);
    return s;
}

// Names local to a sheet, "Sheet1!NAME". The writer keeps names in a list sorted by lower-case
// name, then sheet, and inserts each by scanning the list from its head; a name that sorts
// first goes in at once. So the names are handed over from the last in that order to the
// first: each insert is immediate, and the list (and the file) comes out the same.
// The names in that order. The list refers to the sheets' own names, which stay until the
// workbook is closed: the writer can take them while the sheets let go of everything else.
class NameCalls {
public:
    explicit NameCalls(const xlWorksheets& oSheets);
    // f(full name, what it refers to) for each name, in the order the writer takes them.
    template <class F>
    void ForEach(F&& f) const {
        std::string sFull;
        for (const Entry& e : arrOrder_) {
            const xlNameEntry& n = NameOf(e);
            sFull = arrPrefixes_[e.lSheet];
            sFull += n.sName;
            f(sFull.c_str(), arrNames_[e.lSheet]->RefersTo(n).c_str());
        }
    }

private:
    struct Entry {
        uint32_t lSheet;
        uint32_t lName;
    };
    const xlNameEntry& NameOf(const Entry& e) const {
        return arrNames_[e.lSheet]->Items()[e.lName];
    }
    std::vector<std::string> arrPrefixes_;
    std::vector<const xlNames*> arrNames_;
    std::vector<Entry> arrOrder_;
};

// The order of two texts as their ASCII lower-case forms compare (as std::string::compare).
int CompareAsciiLower(std::string_view a, std::string_view b) {
    const size_t n = std::min(a.size(), b.size());
    for (size_t i = 0; i < n; ++i) {
        const unsigned char x = static_cast<unsigned char>(AsciiLowerChar(a[i]));
        const unsigned char y = static_cast<unsigned char>(AsciiLowerChar(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

NameCalls::NameCalls(const xlWorksheets& oSheets) {
    // Each name by its sheet and place in the sheet's list; the lower-case forms are compared as
    // the sort goes (a copy of every name would be a peak of its own). The sheet's lower-case
    // name and prefix once per sheet.
    std::vector<std::string> arrSheetKeys;
    size_t lCount = 0;
    for (long i = 1; i <= oSheets.Count(); ++i)
        lCount += oSheets.Item(i).Names().Items().size();
    std::vector<Entry> arr;
    arr.reserve(lCount);
    for (long i = 1; i <= oSheets.Count(); ++i) {
        const xlWorksheet& oSheet = oSheets.Item(i);
        arrPrefixes_.push_back(detail::QuoteSheetName(oSheet.Name()) + "!");
        arrSheetKeys.push_back(AsciiLower(oSheet.Name()));
        arrNames_.push_back(&oSheet.Names());
        for (size_t k = 0; k < arrNames_.back()->Items().size(); ++k)
            arr.push_back({static_cast<uint32_t>(i - 1), static_cast<uint32_t>(k)});
    }
    auto Before = [&](const Entry& a, const Entry& b) {
        if (int n = CompareAsciiLower(NameOf(a).sName, NameOf(b).sName)) return n > 0;
        return arrSheetKeys[a.lSheet].compare(arrSheetKeys[b.lSheet]) > 0;
    };
    arrOrder_ = arr;
    std::stable_sort(arrOrder_.begin(), arrOrder_.end(), Before);
    // Two names the writer takes for one keep their own order: it refuses the second as before.
    bool bTie = false;
    for (size_t i = 1; i < arrOrder_.size() && !bTie; ++i) {
        bTie = !Before(arrOrder_[i - 1], arrOrder_[i]);
    }
    if (bTie) arrOrder_.swap(arr);
}

template <class Sink>
void WriteNames(Sink& sink, const NameCalls& oNames) {
    oNames.ForEach([&](const char* sName, const char* sRefersTo) { sink.Name(sName, sRefersTo); });
}

// Everything but the names, which the caller hands over (see NameCalls). fnWritten(i), when
// given, is called once the writer has everything of sheet i but its names.
// The writer took the first rows of the first sheets ahead of the save, one entry of arrStarts
// a sheet: those sheets are begun already.
template <class Sink>
void WriteSheets(Sink& sink, Formats<Sink>& fmts, const xlWorkbook& oBook,
                 const std::function<void(long)>& fnWritten = {},
                 const std::vector<AheadStart>& arrStarts = {}) {
    const xlWorksheets& oSheets = oBook.Worksheets();
    long lRows = 0;
    for (long i = 1; i <= oSheets.Count(); ++i) {
        lRows += static_cast<long>(oSheets.Item(i).Data().arrRows.size());
    }
    SaveProgress oProgress(oBook, lRows);
    for (long i = 1; i <= oSheets.Count(); ++i) {
        const xlWorksheet& oSheet = oSheets.Item(i);
        const xlWorksheet::Impl& d = oSheet.Data();
        const AheadStart* pBegun = static_cast<size_t>(i) <= arrStarts.size()
                                       ? &arrStarts[static_cast<size_t>(i - 1)]
                                       : nullptr;
        if (pBegun) {
            sink.Resume(static_cast<size_t>(i - 1));
        } else {
            sink.Sheet(oSheet.Name(), d.dDefaultRowHeight);
        }
        WriteWindow(sink, d);
        const auto [lLastRow, lLastCol] = WriteCells(sink, oSheet, fmts, oProgress, pBegun);
        // Columns go last: a formatted column widens the span of columns that the writer walks
        // for every row it flushes, and columns are only written when the file is closed.
        WriteColumns(sink, d, fmts);
        if (lLastRow > 0) {
            sink.Dimension(static_cast<lxw_row_t>(lLastRow - 1),
                           static_cast<lxw_col_t>(lLastCol - 1));
        }
        WritePageSetup(sink, oSheet.PageSetup());
        if (fnWritten) fnWritten(i);
    }
    oProgress.Report();
}

// Room for what the writer adds to a sheet's rows before it can let go of them (the start of the
// sheet's part, its write buffers).
constexpr uintmax_t kAssemblyRoom = 64 << 10;

// The uncompressed size of each part of a finished .xlsx (a zip), by name, read from its central
// directory; empty when the file cannot be read as one.
std::unordered_map<std::string, uintmax_t> PartSizes(const std::string& sFile) {
    std::unordered_map<std::string, uintmax_t> map;
    std::FILE* f = std::fopen(sFile.c_str(), "rb");
    if (!f) return map;
    std::string s;
    if (std::fseek(f, 0, SEEK_END) == 0) {
        const long lSize = std::ftell(f);
        // The end record (22 bytes) follows the directory; a comment of up to 64 KiB may follow.
        const long lTail = std::min<long>(lSize, 22 + 0xFFFF);
        s.resize(static_cast<size_t>(std::max<long>(lTail, 0)));
        if (lTail <= 0 || std::fseek(f, lSize - lTail, SEEK_SET) != 0 ||
            std::fread(s.data(), 1, s.size(), f) != s.size()) {
            s.clear();
        }
        auto U16 = [&](size_t p) {
            return static_cast<uint32_t>(static_cast<uint8_t>(s[p])) |
                   static_cast<uint32_t>(static_cast<uint8_t>(s[p + 1])) << 8;
        };
        auto U32 = [&](size_t p) { return U16(p) | U16(p + 2) << 16; };
        size_t lEnd = std::string::npos;
        for (size_t p = s.size() >= 22 ? s.size() - 22 + 1 : 0; p-- > 0;) {
            if (U32(p) == 0x06054b50) {
                lEnd = p;
                break;
            }
        }
        if (lEnd != std::string::npos) {
            const long lDirSize = static_cast<long>(U32(lEnd + 12));
            const long lDirAt = static_cast<long>(U32(lEnd + 16));
            s.assign(static_cast<size_t>(lDirSize), '\0');
            if (lDirAt + lDirSize <= lSize && std::fseek(f, lDirAt, SEEK_SET) == 0 &&
                std::fread(s.data(), 1, s.size(), f) == s.size()) {
                size_t p = 0;
                while (p + 46 <= s.size() && U32(p) == 0x02014b50) {
                    const size_t n = U16(p + 28), lExtra = U16(p + 30), lComment = U16(p + 32);
                    if (p + 46 + n > s.size()) break;
                    map[s.substr(p + 46, n)] = U32(p + 24);
                    p += 46 + n + lExtra + lComment;
                }
            }
        }
    }
    std::fclose(f);
    return map;
}

// Runs a release beside the writing: on a thread of its own, or at once when no thread can be
// had. The first failure is kept for Finish, so that a failed write is raised before it.
class ReleaseBeside {
public:
    ~ReleaseBeside() { Join(); }
    void Run(const std::function<void()>& fn) {
        Join();
        auto fnRun = [this, fn] {
            try {
                fn();
            } catch (...) {
                if (!pFailure_) pFailure_ = std::current_exception();
            }
        };
        try {
            thread_ = std::thread(fnRun);
        } catch (const std::system_error&) {
            fnRun();
        }
    }
    void Join() {
        if (thread_.joinable()) thread_.join();
    }
    void Finish() {
        Join();
        if (pFailure_) std::rethrow_exception(pFailure_);
    }

private:
    std::exception_ptr pFailure_;
    std::thread thread_;
};

// A writer's workbook in constant-memory mode, its rows' files in sTmpDir (which must outlive it).
lxw_workbook* NewWriterWorkbook(const std::string& sFile, const std::string& sTmpDir) {
    lxw_workbook_options opt{};
    opt.constant_memory = LXW_TRUE;
    opt.tmpdir = const_cast<char*>(sTmpDir.c_str());
    return workbook_new_opt(sFile.c_str(), &opt);
}

// Writes the workbook's sheets (the first ones begun already, as arrStarts says), its names,
// and completes the file.
void CompleteXlsx(WorkbookHandle& wb, WriterSink& sink, Formats<WriterSink>& fmts,
                  const xlWorkbook& oBook, const std::string& sFile, const std::string& sTmpDir,
                  const xlSaveRelease& oRelease, const std::vector<AheadStart>& arrStarts) {
    std::vector<uintmax_t> arrRows;
    std::optional<NameCalls> oNames;
    try {
        // Each sheet but the last goes beside the writing of the next; the last goes with the
        // rest of the workbook.
        ReleaseBeside oSheetRelease;
        const long lSheets = oBook.Worksheets().Count();
        WriteSheets(
            sink, fmts, oBook,
            [&](long i) {
                if (oRelease.fnSheet && i < lSheets) {
                    oSheetRelease.Run([&, i] { oRelease.fnSheet(i); });
                }
            },
            arrStarts);
        oSheetRelease.Finish();
        oNames.emplace(oBook.Worksheets());
        sink.CheckRowFiles();
        // Closing copies each sheet's rows into the sheet's part, a temporary file of its own,
        // and ignores a write refused there: the copy needs room beside the rows.
        arrRows = sink.RowFileSizes();
        const uintmax_t lNeed =
            (arrRows.empty() ? 0 : *std::max_element(arrRows.begin(), arrRows.end())) +
            kAssemblyRoom;
        std::error_code ec;
        const std::filesystem::space_info si = std::filesystem::space(sTmpDir, ec);
        const uintmax_t lRoom = ::geteuid() == 0 ? si.free : si.available;
        if (!ec && lRoom < lNeed) modSaveFile::RaiseWriteFailure(ENOSPC);
    } catch (...) {
        sink.CloseRowFiles(true);
        throw;
    }
    sink.CloseRowFiles(false);
    // The writer holds all it needs of the workbook now, the names apart: what is to happen once
    // it has taken it (letting go of the sheets' contents, their names excepted) runs beside the
    // hand-over of the names and the close, which compresses on one core.
    ReleaseBeside oContentsRelease;
    if (oRelease.fnContents) oContentsRelease.Run(oRelease.fnContents);
    // The names go last, while the sheets let go of everything else: the writer's own record
    // of a name is many times larger. Once it has them, ours can go before the close.
    try {
        WriteNames(sink, *oNames);
        oNames.reset();
        if (oRelease.fnNames) oRelease.fnNames();
    } catch (...) {
        oContentsRelease.Join();
        sink.CloseRowFiles(true);
        throw;
    }
    lxw_workbook* p = wb.p;
    wb.p = nullptr;  // closing frees it, whatever the outcome
    // Closing assembles and writes the file; when the system refuses a write, errno says why.
    errno = 0;
    const lxw_error err = workbook_close(p);
    const int nErrno = errno;
    oContentsRelease.Join();
    // A file that could not be written is the save's failure, whatever else went wrong.
    if (err != LXW_NO_ERROR) {
        if (nErrno != 0) modSaveFile::RaiseWriteFailure(nErrno);
        modSaveFile::RaiseWriteFailure(lxw_strerror(err));
    }
    oContentsRelease.Finish();
    // Should the disk have filled all the same (another writer, a quota), a sheet's part holds
    // fewer bytes than its rows.
    const auto mapSizes = PartSizes(sFile);
    for (size_t i = 0; i < arrRows.size(); ++i) {
        const auto it = mapSizes.find("xl/worksheets/sheet" + std::to_string(i + 1) + ".xml");
        if (it == mapSizes.end() || it->second < arrRows[i]) {
            modSaveFile::RaiseWriteFailure(
                "only part of the file could be written (disk full or over quota)");
        }
    }
}

void WriteXlsx(const xlWorkbook& oBook, const std::string& sFile, const std::string& sTmpDir,
               const xlSaveRelease& oRelease) {
    WorkbookHandle wb;
    wb.p = NewWriterWorkbook(sFile, sTmpDir);
    if (!wb.p) Fail();
    WriterSink sink(wb.p);
    Formats<WriterSink> fmts(sink);
    CompleteXlsx(wb, sink, fmts, oBook, sFile, sTmpDir, oRelease, {});
}

// 64-bit FNV-1a, for the fingerprints of what went ahead.
class Fingerprint {
public:
    template <class T>
    void Add(const T& v) {
        static_assert(std::is_trivially_copyable_v<T>);
        unsigned char b[sizeof(T)];
        std::memcpy(b, &v, sizeof(T));
        Bytes(b, sizeof(T));
    }
    void Add(std::string_view s) {
        Add(s.size());
        Bytes(reinterpret_cast<const unsigned char*>(s.data()), s.size());
    }
    uint64_t Value() const { return h_; }

private:
    void Bytes(const unsigned char* p, size_t n) {
        for (size_t i = 0; i < n; ++i)
            h_ = (h_ ^ p[i]) * 0x100000001b3ULL;
    }
    uint64_t h_ = 0xcbf29ce484222325ULL;
};

// The fingerprint of a set, whatever the order its members come in: the sum of their mixed
// fingerprints, and how many there are.
class FingerprintSet {
public:
    template <class T>
    void Add(const T& v) {
        Fingerprint f;
        f.Add(v);
        Put(f.Value());
    }
    void Add(uint64_t lKey, uint64_t lValue) {
        Fingerprint f;
        f.Add(lKey);
        f.Add(lValue);
        Put(f.Value());
    }
    bool operator==(const FingerprintSet&) const = default;

private:
    void Put(uint64_t h) {
        // splitmix64's finaliser: a member's bits spread over the whole sum.
        h = (h ^ (h >> 30)) * 0xbf58476d1ce4e5b9ULL;
        h = (h ^ (h >> 27)) * 0x94d049bb133111ebULL;
        lSum_ += h ^ (h >> 31);
        ++lCount_;
    }
    uint64_t lSum_ = 0;
    size_t lCount_ = 0;
};

// A formula's text is stored where it is set, a promised one elsewhere: the text counts.
uint64_t RowFingerprint(const RowRec& o, const detail::TextArena& oTexts) {
    Fingerprint f;
    f.Add(o.lStyle);
    f.Add(o.nHeightTwips);
    f.Add(o.nOutline);
    f.Add(o.arrCells.size());
    for (const Cell& c : o.arrCells) {
        f.Add(c.nCol);
        f.Add(c.eType);
        f.Add(c.lStyle);
        if (c.eType == detail::kFormula) {
            f.Add(oTexts.Get(c.lPayload));
        } else {
            f.Add(c.lPayload);
        }
    }
    return f.Value();
}

uint64_t LinkFingerprint(std::string_view sAddress, std::string_view sSubAddress,
                         std::string_view sTip) {
    Fingerprint f;
    f.Add(sAddress);
    f.Add(sSubAddress);
    f.Add(sTip);
    return f.Value();
}

}  // namespace

namespace detail {

// The writer of xlWorksheet::WriteAhead. The sheet's thread prepares the rows it is handed, as
// the sheet will show them once the promises are kept, and notes what it took: a fingerprint of
// each row that stays in the model's memory, the links and merged areas it wrote, the columns
// and the sheet's own format. The writer's thread writes them. A sheet whose blocks are forecast
// to continue on new sheets (xlWorksheet::ForecastContinuation) keeps its rows up to the forecast
// cut; the rows after it go to the new sheets of the forecast, each begun with copies of the
// title rows. At the save, what the sheets then hold is checked against those notes: only
// sheets that ended as promised complete this file.
class WriteAhead {
public:
    WriteAhead(const xlWorkbook& oBook, xlWorksheet& oSheet)
        : oBook_(oBook), oSheet_(oSheet), d_(oSheet.Data()) {
        const std::filesystem::path oTarget = std::filesystem::absolute(oBook.FullName());
        sPath_ = oTarget.string();
        sFolder_ = oTarget.parent_path().string();
        sTemp_ = modSaveFile::TempNameBeside(oTarget).string();
        sName_ = oSheet.Name();
        dDefaultRowHeight_ = d_.dDefaultRowHeight;
        wb_.p = NewWriterWorkbook(sTemp_, sFolder_);
        if (!wb_.p) Fail();
        oSink_.emplace(wb_.p);
        oSink_->Sheet(sName_, d_.dDefaultRowHeight);
        oFmts_.emplace(*oSink_);
        oCopy_.arrStyles.clear();
        arrTaken_.resize(1);
        pWriter_ = std::make_unique<RowWriter<WriterSink>>(*oSink_, oCopy_, *oFmts_, &oCopy_);
    }
    ~WriteAhead() { Stop(); }
    WriteAhead(const WriteAhead&) = delete;
    WriteAhead& operator=(const WriteAhead&) = delete;

    // The rows up to lTo, final now; those from lFrom go to the spool, those before stay.
    void Rows(long lFrom, long lTo) {
        if (bStopped_ || lTo <= lTaken_) return;
        try {
            if (lTaken_ == 0) Begin();
            for (long r = lTaken_ + 1; r <= lTo; ++r) {
                if (r <= lKeep_) {
                    Row(r, r < lFrom, 0, 0);
                } else {
                    ContinuedRow(r);
                }
            }
            lTaken_ = lTo;
            // The promises kept for these rows are no longer needed.
            auto& arrPromised = d_.arrPromisedLinks;
            arrPromised.erase(arrPromised.begin(),
                              arrPromised.begin() + static_cast<long>(lNextPromise_));
            if (arrPromised.empty())
                std::vector<xlWorksheet::Impl::PromisedLink>().swap(arrPromised);
            lNextPromise_ = 0;
        } catch (...) {
            // Whatever went wrong here, the save writes the workbook from the model.
            Stop();
        }
    }

    // The writer's thread stops, and what it began is dropped; nothing reached the target.
    void Stop() {
        if (bStopped_) return;
        bStopped_ = true;
        pWriter_.reset();
        // Once closing began (Complete), the writer's workbook is gone, rows' files and all.
        if (oSink_ && wb_.p) oSink_->CloseRowFiles(true);
        oFmts_.reset();
        oSink_.reset();
        if (wb_.p) lxw_workbook_free(wb_.p);
        wb_.p = nullptr;
        Done();
    }

    // At the save to sPath: the sheets ended as promised, and the writer wrote all it took. Else
    // everything stops.
    bool Ready(const std::string& sPath) {
        if (!bStopped_ && !(sPath == sPath_ && Kept())) Stop();
        if (bStopped_) return false;
        try {
            AddNewStyles(pWriter_->Batch());
            pWriter_->Finish();
            pWriter_.reset();
        } catch (...) {
            Stop();
            return false;
        }
        return true;
    }

    // Completes the file with what the writer did not take, as a save without it writes it.
    void Complete(const xlSaveRelease& oRelease) {
        modSaveFile::WriteThroughTempFile(
            sPath_, sTemp_, [&](const std::string& sTempFile, const std::string& sFolder) {
                std::vector<AheadStart> arrStarts;
                for (const Taken& o : arrTaken_)
                    arrStarts.push_back({o.lRows + 1, o.lUsedRow, o.lUsedCol});
                CompleteXlsx(wb_, *oSink_, *oFmts_, oBook_, sTempFile, sFolder, oRelease,
                             arrStarts);
            });
        bStopped_ = true;
        Done();
    }

private:
    // What went to one sheet of the writer's workbook: its rows 1 to lRows, the used range of
    // those, the links and merged areas written (by cell in the sheet's own rows).
    struct Taken {
        long lRows = 0;
        long lUsedRow = 0;
        long lUsedCol = 0;
        FingerprintSet oLinks, oMerges;
        Fingerprint oTitles;  // of a new sheet's title rows, as written
    };

    // The sheet no longer writes ahead, and its promises are of no more use.
    void Done() {
        if (d_.pAhead != this) return;
        d_.pAhead = nullptr;
        std::vector<xlWorksheet::Impl::PromisedLink>().swap(d_.arrPromisedLinks);
        d_.arrPromisedChanges.clear();
        d_.lPromisedLinks = 0;
        d_.lPromisedFormulas = 0;
    }

    // What the rows are written against: the columns and the sheet's format as they will be,
    // and where the sheet is cut.
    void Begin() {
        arrColWidth_ = d_.arrColWidth;
        arrColStyle_ = d_.arrColStyle;
        for (uint32_t& lStyle : arrColStyle_)
            lStyle = d_.Promised(lStyle);
        lSheetStyle_ = d_.Promised(d_.lSheetStyle);
        dDefaultRowHeight_ = d_.dDefaultRowHeight;
        lChanges_ = d_.arrPromisedChanges.size();
        lLinks_ = d_.lPromisedLinks;
        lFormulas_ = d_.lPromisedFormulas;
        if (d_.lForecastKeep != 0) {
            lKeep_ = d_.lForecastKeep;
            arrParts_ = d_.arrForecastParts;
            arrTitles_ = d_.arrForecastTitles;
        }
        oFitter_.emplace(d_);
    }

    // Row r of the long sheet as row r - lShift of sheet lSheet (0 the sheet itself).
    void Row(long r, bool bStays, size_t lSheet, long lShift) {
        const RowRec& oNow = d_.arrRows[static_cast<size_t>(r - 1)];
        oRow_.arrCells.assign(oNow.arrCells.begin(), oNow.arrCells.end());
        oRow_.lStyle = oNow.lStyle;
        oRow_.nHeightTwips = oNow.nHeightTwips;
        oRow_.nOutline = oNow.nOutline;
        size_t lPromise = lNextPromise_;
        if (!d_.ApplyPromises(oRow_, r, lNextPromise_)) Fail();
        if (bStays) {
            oStays_.Add(RowFingerprint(oRow_, d_.oText));
            lStays_ = r;
        }
        Taken& o = arrTaken_[lSheet];
        // The links: promised ones, else those the sheet has (a row that holds none need not be
        // looked up).
        const auto& arrPromised = d_.arrPromisedLinks;
        const auto& arrLinks = oSheet_.Hyperlinks().Items();
        const bool bMayLink = oNow.bLinked || !d_.bLinksNoted;
        auto fnLink = [&](long lCol) -> const LinkOut* {
            const uint64_t k = detail::CellKey(r, lCol);
            while (lPromise < arrPromised.size() && arrPromised[lPromise].lKey < k)
                ++lPromise;
            if (lPromise < arrPromised.size() && arrPromised[lPromise].lKey == k) {
                const auto& p = arrPromised[lPromise];
                // A formula in the link's place is no link.
                if (p.IsFormula()) return nullptr;
                oLink_ = {p.lAddress == xlHyperlinkEntry::kNoText ? std::string_view()
                                                                  : d_.oText.Get(p.lAddress),
                          p.lSubAddress == xlHyperlinkEntry::kNoText ? std::string_view()
                                                                     : d_.oText.Get(p.lSubAddress),
                          std::string_view()};
            } else if (!bMayLink) {
                return nullptr;
            } else if (const auto it = d_.mapLinks.find(k); it != d_.mapLinks.end()) {
                const xlHyperlinkEntry& e = arrLinks[it->second];
                oLink_ = {e.Address(), e.SubAddress(), e.ScreenTip()};
            } else {
                return nullptr;
            }
            o.oLinks.Add(detail::CellKey(r - lShift, lCol),
                         LinkFingerprint(oLink_.sAddress, oLink_.sSubAddress, oLink_.sTip));
            return &oLink_;
        };
        // The merged areas: those that start on the row, in the file's order, and those that
        // cover it.
        static const std::vector<uint32_t> kNone;
        const std::vector<uint32_t>& arrCovering =
            static_cast<size_t>(r) <= d_.arrMergedRows.size()
                ? d_.arrMergedRows[static_cast<size_t>(r - 1)]
                : kNone;
        arrStart_.clear();
        for (uint32_t k : arrCovering) {
            const xlMergedArea& a = d_.arrMerged[k];
            if (a[0] == r) arrStart_.push_back(MergedArea(r - lShift, a[1], a[2] - lShift, a[3]));
        }
        Put(o, r, lShift, arrCovering.empty() ? nullptr : &arrCovering, fnLink);
        o.lRows = r - lShift;
    }

    // A row past the cut goes to the new sheet of its part; the first of a part begins the
    // sheet with the title rows.
    void ContinuedRow(long r) {
        while (lPart_ < arrParts_.size() && r > arrParts_[lPart_].lLast)
            ++lPart_;
        if (lPart_ == arrParts_.size() || r < arrParts_[lPart_].lFirst) Fail();
        if (arrTaken_.size() < lPart_ + 2) BeginPart();
        const long lTitles = static_cast<long>(arrTitles_.size());
        Row(r, false, lPart_ + 1, arrParts_[lPart_].lFirst - lTitles - 1);
    }

    // A new sheet in the writer's workbook, its rows begun with copies of the title rows and of
    // the areas merged within each (the rows before the cut, in the model's memory).
    void BeginPart() {
        RowWriter<WriterSink>& w = *pWriter_;
        AddNewStyles(w.Batch());
        w.Send(true);
        RowBatch& b = w.Batch();
        b.sNewSheet = arrParts_[lPart_].sName;
        b.dNewSheetHeight = dDefaultRowHeight_;
        arrTaken_.emplace_back();
        Taken& o = arrTaken_.back();
        std::vector<uint32_t> arrOwn;
        for (size_t i = 0; i < arrTitles_.size(); ++i) {
            const long rTitle = arrTitles_[i];
            const long rOut = static_cast<long>(i) + 1;
            oRow_ = RowRec();
            if (const RowRec* p = d_.FindRow(rTitle)) {
                oRow_.arrCells.assign(p->arrCells.begin(), p->arrCells.end());
                oRow_.lStyle = p->lStyle;
                oRow_.nHeightTwips = p->nHeightTwips;
            }
            // No link of the sheet's comes along: only its whole-sheet changes apply.
            size_t lNoLink = d_.arrPromisedLinks.size();
            if (!d_.ApplyPromises(oRow_, rTitle, lNoLink)) Fail();
            o.oTitles.Add(RowFingerprint(oRow_, d_.oText));
            arrOwn.clear();
            arrStart_.clear();
            if (static_cast<size_t>(rTitle) <= d_.arrMergedRows.size()) {
                for (uint32_t k : d_.arrMergedRows[static_cast<size_t>(rTitle - 1)]) {
                    const xlMergedArea& a = d_.arrMerged[k];
                    if (a[0] != rTitle || a[2] != rTitle) continue;
                    arrOwn.push_back(k);
                    arrStart_.push_back(MergedArea(rOut, a[1], rOut, a[3]));
                }
            }
            std::sort(arrStart_.begin(), arrStart_.end());
            Put(o, rTitle, rTitle - rOut, arrOwn.empty() ? nullptr : &arrOwn,
                [](long) -> const LinkOut* { return nullptr; });
        }
        o.lRows = static_cast<long>(arrTitles_.size());
    }

    // Lays out oRow_, row r of the long sheet (its height fitted there), as row r - lShift, with
    // the merged areas in arrStart_, and hands the batch over when full.
    template <class LinkFn>
    void Put(Taken& o, long r, long lShift, const std::vector<uint32_t>* pCovering,
             LinkFn&& fnLink) {
        std::sort(arrStart_.begin(), arrStart_.end());
        for (const auto& a : arrStart_)
            o.oMerges.Add(a);
        auto fnBackground = [&](long lCol) {
            if (oRow_.lStyle != kUnformatted) return oRow_.lStyle;
            const uint32_t s = arrColStyle_[static_cast<size_t>(lCol)];
            return s != kUnformatted ? s : lSheetStyle_;
        };
        RowWriter<WriterSink>& w = *pWriter_;
        if (PrepareRow(w.Batch(), d_, *oFitter_, r, oRow_, pCovering, arrStart_.data(),
                       arrStart_.size(), fnLink, fnBackground, lShift) &&
            w.Full()) {
            AddNewStyles(w.Batch());
            w.Send();
        }
        if (const long c = detail::LastShownColumn(oRow_, fnBackground); c != 0) {
            o.lUsedRow = r - lShift;
            o.lUsedCol = std::max(o.lUsedCol, c);
        }
    }

    // The formats the writer's thread has not seen yet go with the batch.
    void AddNewStyles(RowBatch& b) {
        const xlStyleTable& t = *d_.pStyles;
        for (; lStylesSent_ < t.Count(); ++lStylesSent_)
            b.arrNewStyles.push_back(t.Get(static_cast<uint32_t>(lStylesSent_)));
    }

    // Sheet t holds the columns and formats the rows were written against.
    bool SameFrame(const xlWorksheet::Impl& t) const {
        return t.dDefaultRowHeight == dDefaultRowHeight_ && t.arrColWidth == arrColWidth_ &&
               t.arrColStyle == arrColStyle_ && t.lSheetStyle == lSheetStyle_;
    }

    // The links and merged areas of sheet t's rows 1 to o.lRows are those written.
    static bool SameLinksAndAreas(const xlWorksheet& oSheet, const Taken& o) {
        const xlWorksheet::Impl& t = oSheet.Data();
        const auto& arrItems = oSheet.Hyperlinks().Items();
        FingerprintSet oLinks, oMerges;
        for (const auto& [k, i] : t.mapLinks) {
            if (static_cast<long>(k >> 16) > o.lRows) continue;
            const xlHyperlinkEntry& e = arrItems[i];
            oLinks.Add(k, LinkFingerprint(e.Address(), e.SubAddress(), e.ScreenTip()));
        }
        for (const auto& a : t.arrMerged) {
            if (a[0] <= o.lRows) oMerges.Add(a);
        }
        return oLinks == o.oLinks && oMerges == o.oMerges;
    }

    // The sheets hold what the writer took, as they will be saved.
    bool Kept() const {
        const xlWorksheets& oSheets = oBook_.Worksheets();
        if (&oSheets.Item(1) != &oSheet_ || oSheet_.Name() != sName_) return false;
        if (lTaken_ == 0) return d_.dDefaultRowHeight == dDefaultRowHeight_;
        // The promises were all made before the rows went, and the whole-sheet changes since
        // then are the promised ones.
        if (d_.arrPromisedChanges.size() != lChanges_ || d_.lPromisedLinks != lLinks_ ||
            d_.lPromisedFormulas != lFormulas_) {
            return false;
        }
        const long lTakenHere = arrTaken_[0].lRows;
        if (lTakenHere > lStays_ &&
            (d_.SpoolFirst() != lStays_ + 1 || d_.SpoolLast() != lTakenHere ||
             d_.arrSpoolChanges != d_.arrPromisedChanges)) {
            return false;
        }
        if (!SameFrame(d_)) return false;
        if (static_cast<long>(d_.arrRows.size()) < lTakenHere) return false;
        Fingerprint oStays;
        for (long r = 1; r <= lStays_; ++r)
            oStays.Add(RowFingerprint(d_.arrRows[static_cast<size_t>(r - 1)], d_.oText));
        if (oStays.Value() != oStays_.Value()) return false;
        if (!SameLinksAndAreas(oSheet_, arrTaken_[0])) return false;
        // Each new sheet the writer began: the sheet of that name after the first ones, with the
        // same columns and formats, its title rows as written, the rows taken from the spool
        // with only the promised whole-sheet changes since.
        const long lTitles = static_cast<long>(arrTitles_.size());
        for (size_t p = 1; p < arrTaken_.size(); ++p) {
            if (oSheets.Count() < static_cast<long>(p) + 1) return false;
            const xlWorksheet& ws = oSheets.Item(static_cast<long>(p) + 1);
            const xlWorksheet::Impl& t = ws.Data();
            const Taken& o = arrTaken_[p];
            if (ws.Name() != arrParts_[p - 1].sName || !SameFrame(t)) return false;
            if (o.lRows > lTitles && (t.SpoolFirst() != lTitles + 1 || t.SpoolLast() != o.lRows ||
                                      t.arrSpoolChanges != d_.arrPromisedChanges)) {
                return false;
            }
            if (static_cast<long>(t.arrRows.size()) < o.lRows) return false;
            Fingerprint oTitles;
            for (long r = 1; r <= lTitles; ++r)
                oTitles.Add(RowFingerprint(t.arrRows[static_cast<size_t>(r - 1)], t.oText));
            if (oTitles.Value() != o.oTitles.Value()) return false;
            if (!SameLinksAndAreas(ws, o)) return false;
        }
        return true;
    }

    const xlWorkbook& oBook_;
    xlWorksheet& oSheet_;
    xlWorksheet::Impl& d_;
    std::string sPath_, sFolder_, sTemp_, sName_;
    WorkbookHandle wb_;
    std::optional<WriterSink> oSink_;
    std::optional<Formats<WriterSink>> oFmts_;
    xlStyleTable oCopy_;  // the formats as far as the writer's thread has them
    size_t lStylesSent_ = 0;
    std::unique_ptr<RowWriter<WriterSink>> pWriter_;
    bool bStopped_ = false;

    long lTaken_ = 0;     // rows 1 to lTaken_ of the long sheet went to the writer
    long lStays_ = 0;     // of those, rows 1 to lStays_ stay in the model's memory
    Fingerprint oStays_;  // of those rows, in order
    // What each sheet took: the sheet itself, then the new sheets begun.
    std::vector<Taken> arrTaken_;
    // Where the sheet is cut, by the forecast: the last row it keeps, the new sheets' parts,
    // the title rows they begin with; the part being written.
    long lKeep_ = std::numeric_limits<long>::max();
    std::vector<xlWorksheet::Impl::ForecastPart> arrParts_;
    std::vector<long> arrTitles_;
    size_t lPart_ = 0;
    std::vector<float> arrColWidth_;
    std::vector<uint32_t> arrColStyle_;
    uint32_t lSheetStyle_ = 0;
    double dDefaultRowHeight_ = 0;
    size_t lChanges_ = 0, lLinks_ = 0, lFormulas_ = 0;

    std::optional<RowFitter> oFitter_;
    size_t lNextPromise_ = 0;
    RowRec oRow_;
    LinkOut oLink_;
    std::vector<xlMergedArea> arrStart_;
};

std::shared_ptr<WriteAhead> BeginWriteAhead(const xlWorkbook& oBook, xlWorksheet& oSheet) {
    try {
        return std::make_shared<WriteAhead>(oBook, oSheet);
    } catch (...) {
        // No writer now (no thread, no room for its files): the save writes it all.
        return nullptr;
    }
}

void WriteAheadRows(WriteAhead& o, long lFrom, long lTo) {
    o.Rows(lFrom, lTo);
}

void StopWriteAhead(WriteAhead& o) {
    o.Stop();
}

}  // namespace detail

void DumpWorkbook(const xlWorkbook& oBook, std::FILE* pOut) {
    DumpSink sink(pOut);
    Formats<DumpSink> fmts(sink);
    WriteSheets(sink, fmts, oBook);
    WriteNames(sink, NameCalls(oBook.Worksheets()));
}

bool SaveWorkbookFile(const xlWorkbook& oBook, const std::string& sPath,
                      const xlSaveRelease& oRelease, std::shared_ptr<detail::WriteAhead> pAhead) {
    if (pAhead && pAhead->Ready(sPath)) {
        pAhead->Complete(oRelease);
        return true;
    }
    pAhead.reset();
    modSaveFile::WriteThroughTempFile(
        sPath, [&](const std::string& sTempFile, const std::string& sFolder) {
            WriteXlsx(oBook, sTempFile, sFolder, oRelease);
        });
    return false;
}

}  // namespace xl
