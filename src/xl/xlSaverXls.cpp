// Writes the spreadsheet object model to an Excel 97-2003 (.xls) file: a BIFF8 workbook stream
// ("Workbook") in an OLE2 compound file, which libgsf writes.
//
// Memory stays constant: each sheet's records are spooled to an unlinked temporary file in the
// target's folder while the rows are walked, collecting the shared strings (as views of the
// model's own texts), fonts, number formats and cell formats on the way. The file is assembled
// afterwards: the globals (whose size is known from a counting pass, so that each sheet's offset
// is known), then each sheet's BOF and INDEX (which hold stream positions) and its spooled
// records. Record layouts follow [MS-XLS] and, for hyperlinks, [MS-OSHARED].
//
// The file is written through modSaveFile: under a temporary name in the target's folder, renamed
// over the target when complete, so a reader never sees half a workbook and a failed save leaves
// nothing behind; a write the system refuses fails the save with the system's reason.
#include <fcntl.h>
#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-memory.h>
#include <gsf/gsf-output-stdio.h>
#include <gsf/gsf-utils.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modSaveFile.h"
#include "xl/xlBiffWriter.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"
#include "xl/xlRowFit.h"
#include "xl/xlSheetRows.h"

namespace xl {

using namespace modConst;
using biff::Bytes;
using biff::RecordWriter;
using detail::Cell;
using detail::kUnformatted;

namespace {

[[noreturn]] void Fail() {
    RaiseError(errAppDefined);
}

// Record types.
enum : uint16_t {
    kBof = 0x0809,
    kEof = 0x000A,
    kInterfaceHdr = 0x00E1,
    kMms = 0x00C1,
    kInterfaceEnd = 0x00E2,
    kWriteAccess = 0x005C,
    kCodePage = 0x0042,
    kDsf = 0x0161,
    kRRTabId = 0x013D,
    kWinProtect = 0x0019,
    kProtect = 0x0012,
    kPassword = 0x0013,
    kProt4Rev = 0x01AF,
    kProt4RevPass = 0x01BC,
    kWindow1 = 0x003D,
    kBackup = 0x0040,
    kHideObj = 0x008D,
    kDate1904 = 0x0022,
    kCalcPrecision = 0x000E,
    kRefreshAll = 0x01B7,
    kBookBool = 0x00DA,
    kFont = 0x0031,
    kFormat = 0x041E,
    kXf = 0x00E0,
    kStyle = 0x0293,
    kUsesElfs = 0x0160,
    kBoundSheet = 0x0085,
    kCountry = 0x008C,
    kSupBook = 0x01AE,
    kExternSheet = 0x0017,
    kLbl = 0x0018,
    kIndex = 0x020B,
    kCalcMode = 0x000D,
    kCalcCount = 0x000C,
    kCalcRefMode = 0x000F,
    kCalcIter = 0x0011,
    kCalcDelta = 0x0010,
    kCalcSaveRecalc = 0x005F,
    kPrintRowCol = 0x002A,
    kPrintGrid = 0x002B,
    kGridSet = 0x0082,
    kGuts = 0x0080,
    kDefaultRowHeight = 0x0225,
    kWsBool = 0x0081,
    kHeader = 0x0014,
    kFooter = 0x0015,
    kHCenter = 0x0083,
    kVCenter = 0x0084,
    kLeftMargin = 0x0026,
    kRightMargin = 0x0027,
    kTopMargin = 0x0028,
    kBottomMargin = 0x0029,
    kSetup = 0x00A1,
    kDefColWidth = 0x0055,
    kColInfo = 0x007D,
    kDimensions = 0x0200,
    kRow = 0x0208,
    kLabelSst = 0x00FD,
    kNumber = 0x0203,
    kFormula = 0x0006,
    kString = 0x0207,
    kBlank = 0x0201,
    kMulBlank = 0x00BE,
    kDbCell = 0x00D7,
    kWindow2 = 0x023E,
    kMergeCells = 0x00E5,
    kHLink = 0x01B8,
    kHLinkTooltip = 0x0800,
    kAutoFilterInfo = 0x009D,
    kPane = 0x0041,
};

// Built-in names.
constexpr uint8_t kNamePrintArea = 0x06;
constexpr uint8_t kNamePrintTitles = 0x07;
constexpr uint8_t kNameFilterDatabase = 0x0D;

constexpr uint32_t kDefaultXf = 15;  // the cell format of cells without one of their own
constexpr size_t kRowsPerBlock = 32;
constexpr size_t kMaxFonts = 510;
constexpr size_t kMaxFormats = 218;
constexpr size_t kMaxMergesPerRecord = 1026;
const char16_t kFontName[] = u"Calibri";

// ------------------------------------------------------------------------------------------------
// Formats: fonts, number formats and cell formats (XF records)

// 1..56 of the default palette are the colour indices 8..63 of the file.
uint32_t Icv(long lColorIndex) {
    return static_cast<uint32_t>(lColorIndex + 7);
}

uint32_t HorizontalAlign(long l) {
    switch (l) {
        case xlLeft:
            return 1;
        case xlCenter:
            return 2;
        case xlRight:
            return 3;
        case 5:  // xlFill
            return 4;
        case -4130:  // xlJustify
            return 5;
        case 7:  // xlCenterAcrossSelection
            return 6;
        case -4117:  // xlDistributed
            return 7;
        default:
            return 0;  // xlGeneral
    }
}

uint32_t VerticalAlign(long l) {
    switch (l) {
        case xlTop:
            return 0;
        case xlCenter:
            return 1;
        case -4130:  // xlJustify
            return 3;
        case -4117:  // xlDistributed
            return 4;
        default:
            return 2;  // xlBottom
    }
}

uint32_t BorderStyle(long lLineStyle) {
    switch (lLineStyle) {
        case xlContinuous:
            return 1;  // thin
        case -4115:    // xlDash
            return 3;
        case -4118:  // xlDot
            return 4;
        case -4119:  // xlDouble
            return 6;
        case 4:  // xlDashDot
            return 9;
        case 5:  // xlDashDotDot
            return 11;
        case 13:  // xlSlantDashDot
            return 13;
        default:
            return 0;
    }
}

struct FontKey {
    bool bBold, bItalic, bUnderline;
    long lColor;
    long lTwips;
    bool operator<(const FontKey& o) const {
        return std::tie(bBold, bItalic, bUnderline, lColor, lTwips) <
               std::tie(o.bBold, o.bItalic, o.bUnderline, o.lColor, o.lTwips);
    }
};

FontKey FontOf(const xlStyle& s) {
    return {s.bBold, s.bItalic, s.bUnderline, s.lFontColorIndex, std::lround(s.dFontSize * 20)};
}

// Number formats every file carries (the currency and accounting formats of the default locale):
// the globals hold at least eight FORMAT records.
const std::array<std::pair<uint16_t, const char*>, 8> kStandardFormats = {{
    {5, "\"$\"#,##0_);\\(\"$\"#,##0\\)"},
    {6, "\"$\"#,##0_);[Red]\\(\"$\"#,##0\\)"},
    {7, "\"$\"#,##0.00_);\\(\"$\"#,##0.00\\)"},
    {8, "\"$\"#,##0.00_);[Red]\\(\"$\"#,##0.00\\)"},
    {42, "_(\"$\"* #,##0_);_(\"$\"* \\(#,##0\\);_(\"$\"* \"-\"_);_(@_)"},
    {41, "_(* #,##0_);_(* \\(#,##0\\);_(* \"-\"_);_(@_)"},
    {44, "_(\"$\"* #,##0.00_);_(\"$\"* \\(#,##0.00\\);_(\"$\"* \"-\"??_);_(@_)"},
    {43, "_(* #,##0.00_);_(* \\(#,##0.00\\);_(* \"-\"??_);_(@_)"},
}};

// The cell formats the file holds, each distinct model format once, numbered by first use from
// 16 on; format 15 is the model's default format (what an untouched cell shows).
class XfTable {
public:
    explicit XfTable(const xlStyleTable& t) : t_(t), arrById_(t.Count(), -1) {
        arrFonts_.push_back(FontOf(xlStyle{}));
        mapFonts_.emplace(arrFonts_.back(), 0);
        arrById_[0] = kDefaultXf;
        arrCellXfs_.push_back(0);
    }

    uint16_t For(uint32_t lId) {
        if (lId >= arrById_.size()) arrById_.resize(t_.Count(), -1);
        int32_t& x = arrById_[lId];
        if (x < 0) {
            x = static_cast<int32_t>(kDefaultXf + arrCellXfs_.size());
            arrCellXfs_.push_back(lId);
        }
        return static_cast<uint16_t>(x);
    }

    // FONT, FORMAT, XF and STYLE records.
    void Write(RecordWriter& w) {
        std::vector<Bytes> arrXf;
        for (uint32_t lId : arrCellXfs_)
            arrXf.push_back(CellXf(t_.Get(lId)));
        // What the file can hold: 510 FONT and 218 FORMAT records.
        if (arrFonts_.size() + 3 > kMaxFonts) Fail();
        if (kStandardFormats.size() + arrFormats_.size() > kMaxFormats) Fail();
        for (const FontKey& f : arrFonts_) {
            w.Record(kFont, FontRecord(f));
            if (&f == &arrFonts_.front()) {
                // Fonts 1 to 3 repeat the default font, as the application writes them.
                for (int i = 0; i < 3; ++i)
                    w.Record(kFont, FontRecord(f));
            }
        }
        for (const auto& [n, s] : kStandardFormats)
            w.Record(kFormat, FormatRecord(n, s));
        for (const auto& [s, n] : arrFormats_)
            w.Record(kFormat, FormatRecord(n, s));
        for (uint32_t i = 0; i < kDefaultXf; ++i)
            w.Record(kXf, StyleXf(i));
        for (const Bytes& b : arrXf)
            w.Record(kXf, b);
        Bytes b;
        b.U16(0x8000);  // the built-in style "Normal", on style format 0
        b.U8(0);
        b.U8(0xFF);
        w.Record(kStyle, b);
    }

    size_t CellFormats() const { return arrCellXfs_.size(); }

private:
    // The file's index of a font: the fourth is never used, the fifth record has index 5.
    uint16_t FontIndex(const FontKey& f) {
        auto [it, bNew] = mapFonts_.emplace(f, arrFonts_.size());
        if (bNew) arrFonts_.push_back(f);
        const size_t k = it->second == 0 ? 0 : it->second + 3;  // after the three repeats
        return static_cast<uint16_t>(k < 4 ? k : k + 1);
    }

    uint16_t FormatIndex(const std::string& s) {
        if (s == "General") return 0;
        if (s == "@") return 49;
        for (const auto& [sText, n] : arrFormats_) {
            if (sText == s) return n;
        }
        const uint16_t n = static_cast<uint16_t>(164 + arrFormats_.size());
        arrFormats_.emplace_back(s, n);
        return n;
    }

    static Bytes FontRecord(const FontKey& f) {
        Bytes b;
        b.U16(static_cast<uint32_t>(f.lTwips));
        // Italic; bit 0 repeats the weight's boldness, as the application writes it (readers
        // such as xlrd take it from there).
        b.U16((f.bItalic ? 0x0002 : 0) | (f.bBold ? 0x0001 : 0));
        b.U16(f.lColor > 0 ? Icv(f.lColor) : 0x7FFF);  // 0x7FFF: the automatic colour
        b.U16(f.bBold ? 700 : 400);
        b.U16(0);                    // no super- or subscript
        b.U8(f.bUnderline ? 1 : 0);  // single underline
        b.U8(2);                     // swiss family
        b.U8(0);                     // ANSI character set
        b.U8(0);
        b.ShortXLUnicodeString(kFontName);
        return b;
    }

    static Bytes FormatRecord(uint16_t n, const std::string& s) {
        Bytes b;
        b.U16(n);
        b.XLUnicodeString(biff::Utf16(s));
        return b;
    }

    // A cell style format: 0 is "Normal", 1 to 14 are the outline styles of the application.
    static Bytes StyleXf(uint32_t i) {
        Bytes b;
        b.U16(0);
        b.U16(0);
        b.U16(0xFFF5);  // locked, a style format, no parent
        b.U8(0x20);     // general, bottom-aligned
        b.U8(0);
        b.U8(0);
        b.U8(i == 0 ? 0 : 0xF4);  // the outline styles define their alignment only
        b.U32(0);
        b.U32(0);
        b.U16(64 | (65 << 7));  // no fill: system colours
        return b;
    }

    Bytes CellXf(const xlStyle& s) {
        Bytes b;
        b.U16(FontIndex(FontOf(s)));
        b.U16(FormatIndex(s.sNumberFormat));
        b.U16(0x0001);  // locked, a cell format on style 0
        b.U8(HorizontalAlign(s.lHorizontalAlignment) | (s.bWrapText ? 0x08 : 0) |
             (VerticalAlign(s.lVerticalAlignment) << 4));
        b.U8(0);     // no rotation
        b.U8(0);     // no indent, no shrinking, reading order by context
        b.U8(0xFC);  // every attribute is this format's own
        const uint32_t l = BorderStyle(s.lBorderLeft), r = BorderStyle(s.lBorderRight);
        const uint32_t t = BorderStyle(s.lBorderTop), m = BorderStyle(s.lBorderBottom);
        auto Col = [](uint32_t dg) -> uint32_t { return dg ? 64 : 0; };  // automatic colour
        b.U32(l | (r << 4) | (t << 8) | (m << 12) | (Col(l) << 16) | (Col(r) << 23));
        const bool bFill = s.lInteriorColorIndex > 0;
        b.U32(Col(t) | (Col(m) << 7) | ((bFill ? 1u : 0u) << 26));
        b.U16(bFill ? (Icv(s.lInteriorColorIndex) | (64 << 7)) : (64 | (65 << 7)));
        return b;
    }

    const xlStyleTable& t_;
    std::vector<int32_t> arrById_;
    std::vector<uint32_t> arrCellXfs_;  // model format ids of XF 15, 16, ...
    std::vector<FontKey> arrFonts_;
    std::map<FontKey, size_t> mapFonts_;
    std::vector<std::pair<std::string, uint16_t>> arrFormats_;
};

// ------------------------------------------------------------------------------------------------
// The shared strings

// The shared strings, in the order the cells first show them. A cell's text is found by its
// reference in the workbook's store of texts, which holds each distinct text once: the table
// reads one slot of its own instead of hashing and comparing the text.
class SharedStrings {
public:
    uint32_t For(const detail::TextArena& oTexts, uint64_t lRef) {
        if (!pTexts_) pTexts_ = &oTexts;
        // The sheets of a workbook share one store.
        if (pTexts_ != &oTexts) Fail();
        ++lTotal_;
        if ((arr_.size() + 1) * 2 > arrSlots_.size()) Grow();
        const size_t lMask = arrSlots_.size() - 1;
        for (size_t i = Hash(lRef) & lMask;; i = (i + 1) & lMask) {
            Slot& o = arrSlots_[i];
            if (o.lRef == lRef + 1) return o.lIndex;
            if (o.lRef == 0) {
                o.lRef = lRef + 1;
                o.lIndex = static_cast<uint32_t>(arr_.size());
                arr_.push_back(oTexts.Get(lRef));
                return o.lIndex;
            }
        }
    }
    void Write(RecordWriter& w) const {
        biff::SstWriter sst(w, lTotal_, static_cast<uint32_t>(arr_.size()));
        for (std::string_view s : arr_)
            sst.Add(s);
        sst.Finish();
    }

private:
    struct Slot {
        uint64_t lRef = 0;  // the text's reference plus one (0: free)
        uint32_t lIndex = 0;
    };
    static size_t Hash(uint64_t lRef) {
        return static_cast<size_t>((lRef * 0x9E3779B97F4A7C15ull) >> 24);
    }
    // Twice the slots, each text in its new place; the table stays at most half full.
    void Grow() {
        std::vector<Slot> arrOld(std::max<size_t>(arrSlots_.size() * 2, 1024));
        arrOld.swap(arrSlots_);
        const size_t lMask = arrSlots_.size() - 1;
        for (const Slot& o : arrOld) {
            if (o.lRef == 0) continue;
            size_t i = Hash(o.lRef - 1) & lMask;
            while (arrSlots_[i].lRef != 0)
                i = (i + 1) & lMask;
            arrSlots_[i] = o;
        }
    }

    const detail::TextArena* pTexts_ = nullptr;
    std::vector<Slot> arrSlots_;
    std::vector<std::string_view> arr_;  // views of the model's texts, which outlive the save
    uint32_t lTotal_ = 0;
};

// ------------------------------------------------------------------------------------------------
// Progress

// Hands the rows written so far to the workbook's observer, every thousand rows.
class SaveProgress {
public:
    SaveProgress(const xlWorkbook& oBook, long lTotal) : oBook_(oBook), lTotal_(lTotal) {
        Report();
    }
    void Row() {
        if (++lDone_ % kEvery == 0) Report();
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

// ------------------------------------------------------------------------------------------------
// What the sheet records read from the model: one place each for the page fit, the used area and
// the row heights.

// A zoom of 0 prints to the given pages (0 of either: as many as needed); any other zoom is the
// print scale, which a fit leaves at 100.
struct PageFit {
    bool bFit = false;  // scale to fit pages instead of a percentage
    long lWide = 1, lTall = 1;
    long lScale = 100;
};

PageFit PageFitOf(const xlPageSetup& p) {
    PageFit f;
    if (p.lZoom == 0) {
        f.bFit = true;
        f.lWide = std::clamp(p.lFitToPagesWide, 0L, 32767L);
        f.lTall = std::clamp(p.lFitToPagesTall, 0L, 32767L);
    } else {
        f.lScale = std::clamp(p.lZoom, 10L, 400L);
    }
    return f;
}

// Rows and columns (0-based, last ones plus one) that hold cell records.
struct UsedArea {
    uint32_t lRowFirst = 0, lRowLast = 0;
    uint16_t nColFirst = 0, nColLast = 0;
};

// The height of a row in twips, and whether it was set (rather than the sheet's standard).
struct RowHeight {
    uint32_t lTwips;
    bool bCustom;
};

// A row's own height wins; else the height its text needs when more than one standard line (as
// the .xlsx saver fits it, so both files show the same rows); else the sheet's standard height.
RowHeight RowHeightOf(const xlWorksheet::Impl& d, const detail::RowFitter& oFitter,
                      const detail::Row& o, size_t i, const std::vector<uint32_t>* pMerged) {
    if (o.nHeightTwips != detail::kNoHeight) return {o.nHeightTwips, true};
    if (!o.arrCells.empty()) {
        const double dFitted = oFitter.Fit(static_cast<long>(i) + 1, o, pMerged);
        if (dFitted > 0) return {static_cast<uint32_t>(std::lround(dFitted * 20)), true};
    }
    return {static_cast<uint32_t>(std::lround(d.dDefaultRowHeight * 20)), false};
}

// ------------------------------------------------------------------------------------------------
// One sheet's records

// The column width the file stores (1/256 of a character) for a width in characters: the width
// the application shows plus its 5-pixel padding, at 7 pixels a character.
uint32_t ColumnUnits(double dWidth) {
    const long lPixels = dWidth < 1 ? std::lround(dWidth * 12) : std::lround(dWidth * 7) + 5;
    return static_cast<uint32_t>(static_cast<double>(lPixels) * 256 / 7);
}

// Class identifiers of the hyperlink object and its monikers, in file byte order.
constexpr uint8_t kStdLink[16] = {0xD0, 0xC9, 0xEA, 0x79, 0xF9, 0xBA, 0xCE, 0x11,
                                  0x8C, 0x82, 0x00, 0xAA, 0x00, 0x4B, 0xA9, 0x0B};
constexpr uint8_t kUrlMoniker[16] = {0xE0, 0xC9, 0xEA, 0x79, 0xF9, 0xBA, 0xCE, 0x11,
                                     0x8C, 0x82, 0x00, 0xAA, 0x00, 0x4B, 0xA9, 0x0B};
constexpr uint8_t kFileMoniker[16] = {0x03, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                      0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};

constexpr uint32_t kHasMoniker = 0x01;
constexpr uint32_t kIsAbsolute = 0x02;
constexpr uint32_t kHasLocation = 0x08;
constexpr uint32_t kMonikerSavedAsStr = 0x100;

// A file path as a URL: the characters a URL cannot hold as they are, escaped.
std::string FileUrl(const std::string& sPath) {
    std::string s = "file://";
    for (unsigned char c : sPath) {
        if (c == ' ' || c == '#' || c == '%' || c == '"' || c == '<' || c == '>') {
            char buf[4];
            std::snprintf(buf, sizeof buf, "%%%02X", c);
            s += buf;
        } else {
            s += static_cast<char>(c);
        }
    }
    return s;
}

// The HLINK record of a hyperlink: a place in the workbook (a defined name or a cell), a URL, a
// UNC path (kept as a string), or a file, absolute or relative to the workbook.
Bytes HLinkRecord(const xlHyperlinkEntry& e) {
    Bytes b;
    const uint32_t r = static_cast<uint32_t>(e.lRow - 1), c = static_cast<uint32_t>(e.lCol - 1);
    b.U16(r);
    b.U16(r);
    b.U16(c);
    b.U16(c);
    b.Raw(kStdLink, sizeof kStdLink);
    b.U32(2);  // stream version
    const std::string a(e.Address());
    const uint32_t lLocation = e.SubAddress().empty() ? 0 : kHasLocation;
    if (a.empty()) {
        b.U32(kHasLocation);
    } else if (a.rfind("\\\\", 0) == 0) {
        b.U32(kHasMoniker | kIsAbsolute | kMonikerSavedAsStr | lLocation);
        b.HyperlinkString(biff::Utf16(a));
    } else if (detail::HasUrlScheme(a) || (a[0] == '/' && !(a.size() >= 2 && a[1] == '/'))) {
        // An absolute POSIX path becomes a file URL, which spreadsheet applications open.
        const std::u16string u = biff::Utf16(a[0] == '/' ? FileUrl(a) : a);
        b.U32(kHasMoniker | kIsAbsolute | lLocation);
        b.Raw(kUrlMoniker, sizeof kUrlMoniker);
        b.U32(static_cast<uint32_t>((u.size() + 1) * 2));
        b.Chars(u, false);
        b.U16(0);
    } else {
        std::string p = a;
        std::replace(p.begin(), p.end(), '/', '\\');
        const bool bAbsolute = p.size() >= 2 && p[1] == ':';
        b.U32(kHasMoniker | (bAbsolute ? kIsAbsolute : 0) | lLocation);
        b.Raw(kFileMoniker, sizeof kFileMoniker);
        // Parent-folder steps stay in the path (none are counted apart): readers disagree on
        // whether the Unicode path repeats counted ones.
        b.U16(0);
        const std::u16string u = biff::Utf16(p);
        b.U32(static_cast<uint32_t>(u.size() + 1));
        for (char16_t ch : u)
            b.U8(ch < 0x80 ? ch : '?');
        b.U8(0);
        b.U16(0xFFFF);  // not a UNC path
        b.U16(0xDEAD);  // version
        b.Zeros(20);
        // The whole path in Unicode as well: the ANSI one cannot hold every character, and
        // readers (Gnumeric) take the path from here.
        b.U32(static_cast<uint32_t>(6 + 2 * u.size()));
        b.U32(static_cast<uint32_t>(2 * u.size()));
        b.U16(3);
        b.Chars(u, false);
    }
    if (!e.SubAddress().empty()) b.HyperlinkString(biff::Utf16(e.SubAddress()));
    return b;
}

Bytes TooltipRecord(const xlHyperlinkEntry& e) {
    Bytes b;
    const uint32_t r = static_cast<uint32_t>(e.lRow - 1), c = static_cast<uint32_t>(e.lCol - 1);
    b.U16(kHLinkTooltip);
    b.U16(r);
    b.U16(r);
    b.U16(c);
    b.U16(c);
    b.Chars(biff::Utf16(e.ScreenTip()), false);
    b.U16(0);
    return b;
}

// Where a sheet's records are: the head (the records before the rows, which depend on all of
// them) in memory, the rest in the spool, lSize bytes from lSpoolStart. The DEFCOLWIDTH record's
// place is counted in the head, the DBCELL records' places in the spooled part.
struct SheetLayout {
    std::string sHead;
    uint64_t lSpoolStart = 0, lSize = 0;
    uint64_t lDefColWidth = 0;
    std::vector<uint64_t> arrDbCells;
    uint32_t lRowMic = 0, lRowMac = 0;  // rows with ROW records, as the INDEX record gives them
};

class SheetWriter {
public:
    SheetWriter(RecordWriter& w, const xlWorksheet& oSheet, bool bFirst, XfTable& xfs,
                SharedStrings& sst, SaveProgress& oProgress)
        : w_(w),
          ws_(oSheet),
          d_(oSheet.Data()),
          oFitter_(d_),
          bFirst_(bFirst),
          xfs_(xfs),
          sst_(sst),
          oProgress_(oProgress) {}

    // The rows are read once: the cell table goes to the spool as they come, and the records
    // before it, which need all of them (the used area, the outline's depth), are made after it
    // and put in front of it when the file is written.
    SheetLayout Write() {
        // The columns' formats take their numbers first, as when their records came first.
        for (long c = 1; c <= xlMaxColumnsXls; ++c)
            XfOfColumn(c);
        CellTable();
        Window();
        MergedCells();
        Hyperlinks();
        w_.Empty(kEof);
        for (; lReported_ < d_.arrRows.size(); ++lReported_)
            oProgress_.Row();
        oLayout_.lSize = w_.Position();
        Settings();
        PageSetup();
        Columns();
        AutoFilterInfo();
        Dimensions();
        oLayout_.sHead = oHead_.Str();
        return oLayout_;
    }

private:
    // What each row writes: its cells (a record whose value is empty and whose format the cell
    // shows anyway is left out) and whether it needs a ROW record at all.
    struct RowPlan {
        uint16_t nColMic = 0, nColMac = 0;
        bool bRecord = false;
        RowHeight oHeight{0, false};  // of a row with a record
    };

    bool Writes(const detail::Row& o, const Cell& c) const {
        if (c.nCol > xlMaxColumnsXls) return false;
        return c.eType != detail::kEmpty || c.lStyle != d_.Background(o, c.nCol);
    }

    // What row i writes, its height fitted with the merged areas that cover it; notes the used
    // area, the deepest outline level and the first and last row with a record.
    RowPlan PlanRow(const detail::Row& o, size_t i, const std::vector<uint32_t>* pCovering) {
        RowPlan p;
        bool bCells = false;
        for (const Cell& c : o.arrCells) {
            if (!Writes(o, c)) continue;
            const uint16_t col = static_cast<uint16_t>(c.nCol - 1);
            if (!bCells) p.nColMic = col;
            p.nColMac = static_cast<uint16_t>(col + 1);
            bCells = true;
        }
        p.bRecord = bCells || o.lStyle != kUnformatted || o.nHeightTwips != detail::kNoHeight ||
                    o.nOutline != 0;
        nMaxOutline_ = std::max(nMaxOutline_, o.nOutline);
        if (bCells) {
            if (!bAnyCell_) {
                oUsed_.lRowFirst = static_cast<uint32_t>(i);
                oUsed_.nColFirst = p.nColMic;
                oUsed_.nColLast = p.nColMac;
            }
            oUsed_.lRowLast = static_cast<uint32_t>(i + 1);
            oUsed_.nColFirst = std::min(oUsed_.nColFirst, p.nColMic);
            oUsed_.nColLast = std::max(oUsed_.nColLast, p.nColMac);
            bAnyCell_ = true;
        }
        if (p.bRecord) {
            p.oHeight = RowHeightOf(d_, oFitter_, o, i, pCovering);
            if (!bAnyRow_) oLayout_.lRowMic = static_cast<uint32_t>(i);
            oLayout_.lRowMac = static_cast<uint32_t>(i + 1);
            bAnyRow_ = true;
        }
        return p;
    }

    void Settings() {
        h_.Record16(kCalcMode, 1);  // automatic
        h_.Record16(kCalcCount, 100);
        h_.Record16(kCalcRefMode, 1);  // A1
        h_.Record16(kCalcIter, 0);
        Bytes b;
        b.F64(0.001);
        h_.Record(kCalcDelta, b);
        h_.Record16(kCalcSaveRecalc, 1);
        h_.Record16(kPrintRowCol, 0);
        h_.Record16(kPrintGrid, 0);  // gridlines are not printed
        h_.Record16(kGridSet, 1);
        // The row gutter: as wide as the outline's levels need (none without an outline), and
        // the number of levels plus one.
        b.Clear();
        b.U16(nMaxOutline_ ? 14u * (nMaxOutline_ + 1u) : 0);
        b.U16(0);
        b.U16(nMaxOutline_ ? nMaxOutline_ + 1u : 0);
        b.U16(0);
        h_.Record(kGuts, b);
        b.Clear();
        const bool bCustom = d_.dDefaultRowHeight != detail::kDefaultRowHeight;
        b.U16(bCustom ? 0x0001 : 0);  // the standard height was set
        b.U16(static_cast<uint32_t>(std::lround(d_.dDefaultRowHeight * 20)));
        h_.Record(kDefaultRowHeight, b);
        const PageFit f = PageFitOf(ws_.PageSetup());
        // Automatic page breaks, outline symbols, summary columns right of their details and
        // summary rows below them unless the sheet puts them above.
        h_.Record16(kWsBool, 0x0481 | (d_.bSummaryBelow ? 0x0040 : 0) | (f.bFit ? 0x0100 : 0));
    }

    void PageSetup() {
        const xlPageSetup& p = ws_.PageSetup();
        // An empty header as an empty string: Gnumeric reads an empty record as "no header
        // given" and prints its own.
        Bytes h;
        h.XLUnicodeString(u"");
        h_.Record(kHeader, h);
        Bytes ft;
        ft.XLUnicodeString(biff::Utf16(p.sCenterFooter.empty() ? "" : "&C" + p.sCenterFooter));
        h_.Record(kFooter, ft);
        h_.Record16(kHCenter, 0);
        h_.Record16(kVCenter, 0);
        // The margins of a new workbook of the application (inches).
        for (auto [nType, d] : {std::pair<uint16_t, double>{kLeftMargin, 0.7},
                                {kRightMargin, 0.7},
                                {kTopMargin, 0.75},
                                {kBottomMargin, 0.75}}) {
            Bytes b;
            b.F64(d);
            h_.Record(nType, b);
        }
        const PageFit f = PageFitOf(p);
        Bytes b;
        b.U16(9);  // A4: the file must name a paper for the orientation to count
        b.U16(static_cast<uint32_t>(f.lScale));
        b.U16(1);
        b.U16(static_cast<uint32_t>(f.lWide));
        b.U16(static_cast<uint32_t>(f.lTall));
        b.U16(p.lOrientation == xlLandscape ? 0 : 0x0002);  // portrait bit
        b.U16(600);
        b.U16(600);
        b.F64(0.3);  // header and footer margins
        b.F64(0.3);
        b.U16(1);
        h_.Record(kSetup, b);
    }

    uint16_t XfOfColumn(long c) {
        const uint32_t s = d_.arrColStyle[c];
        return xfs_.For(s != kUnformatted ? s : d_.lSheetStyle);
    }

    void Columns() {
        oLayout_.lDefColWidth = h_.Position();
        h_.Record16(kDefColWidth, 8);
        // Runs of neighbouring columns with the same width and format.
        long c = 1;
        while (c <= xlMaxColumnsXls) {
            const float dw = d_.arrColWidth[c];
            const uint16_t x = XfOfColumn(c);
            long e = c;
            while (e + 1 <= xlMaxColumnsXls && d_.arrColWidth[e + 1] == dw &&
                   XfOfColumn(e + 1) == x)
                ++e;
            if (dw >= 0 || x != kDefaultXf) {
                Bytes b;
                b.U16(static_cast<uint32_t>(c - 1));
                b.U16(static_cast<uint32_t>(e - 1));
                const double dWidth = dw >= 0 ? dw : detail::kDefaultColumnWidth;
                b.U16(ColumnUnits(dWidth));
                b.U16(x);
                b.U16((dw >= 0 ? 0x0002 : 0) | (dw == 0 ? 0x0001 : 0));  // set by hand, hidden
                b.U16(0);
                h_.Record(kColInfo, b);
            }
            c = e + 1;
        }
    }

    // The AutoFilter's buttons: one per column of its range (the range is the sheet's built-in
    // name _FilterDatabase).
    void AutoFilterInfo() {
        const auto& a = d_.arrAutoFilter;
        if (a[0] == 0) return;
        const long c2 = std::min<long>(a[3], xlMaxColumnsXls);
        h_.Record16(kAutoFilterInfo, static_cast<uint32_t>(c2 - a[1] + 1));
    }

    void Dimensions() {
        Bytes b;
        b.U32(oUsed_.lRowFirst);
        b.U32(oUsed_.lRowLast);
        b.U16(oUsed_.nColFirst);
        b.U16(oUsed_.nColLast);
        b.U16(0);
        h_.Record(kDimensions, b);
    }

    void RowRecord(size_t i, const detail::Row& o, const RowPlan& p) {
        const RowHeight h = p.oHeight;
        const bool bHidden = h.lTwips == 0;
        Bytes b;
        b.U16(static_cast<uint32_t>(i));
        b.U16(p.nColMic);
        b.U16(p.nColMac);
        b.U16(bHidden ? static_cast<uint32_t>(std::lround(d_.dDefaultRowHeight * 20)) : h.lTwips);
        b.U16(0);
        b.U16(0);
        const bool bFormat = o.lStyle != kUnformatted;
        b.U16(o.nOutline | (bHidden ? 0x0020 : 0) | (h.bCustom ? 0x0040 : 0) |
              (bFormat ? 0x0080 : 0) | 0x0100);
        b.U16(bFormat ? xfs_.For(o.lStyle) : kDefaultXf);
        w_.Record(kRow, b);
    }

    void Cells(size_t i, const detail::Row& o) {
        const uint32_t r = static_cast<uint32_t>(i);
        const auto& v = o.arrCells;
        for (size_t k = 0; k < v.size(); ++k) {
            const Cell& c = v[k];
            if (!Writes(o, c)) continue;
            const uint32_t col = c.nCol - 1u;
            Bytes& b = b_;
            b.Clear();
            b.U16(r);
            b.U16(col);
            switch (c.eType) {
                case detail::kText:
                    b.U16(xfs_.For(c.lStyle));
                    b.U32(sst_.For(d_.oText, c.lPayload));
                    w_.Record(kLabelSst, b);
                    break;
                case detail::kNumber:
                    b.U16(xfs_.For(c.lStyle));
                    b.F64(c.Number());
                    w_.Record(kNumber, b);
                    break;
                case detail::kFormula:
                    b.U16(xfs_.For(c.lStyle));
                    FormulaRecords(b, d_.oText.Get(c.lPayload));
                    break;
                default: {
                    // Neighbouring blank records go out as one.
                    size_t e = k;
                    while (e + 1 < v.size() && v[e + 1].nCol == v[e].nCol + 1 &&
                           v[e + 1].eType == detail::kEmpty && Writes(o, v[e + 1])) {
                        ++e;
                    }
                    if (e == k) {
                        b.U16(xfs_.For(c.lStyle));
                        w_.Record(kBlank, b);
                    } else {
                        for (size_t x = k; x <= e; ++x)
                            b.U16(xfs_.For(v[x].lStyle));
                        b.U16(v[e].nCol - 1u);
                        w_.Record(kMulBlank, b);
                        k = e;
                    }
                    break;
                }
            }
        }
    }

    // A formula cell (its row, column and format already in b): the FORMULA record with the
    // parsed formula, whose value is a text, then the STRING record with that text. The model
    // holds one kind of formula, =HYPERLINK("location", "text"): two string tokens and the
    // function with a variable count of arguments.
    void FormulaRecords(Bytes& b, std::string_view sStored) {
        std::string sLocation, sText;
        if (!detail::ParseHyperlinkFormula(detail::FormulaOf(sStored), sLocation, sText)) Fail();
        b.U8(0x00);  // the value is a text, in the STRING record that follows
        b.Zeros(5);
        b.U16(0xFFFF);
        b.U16(0);  // no flags
        b.U32(0);
        Bytes f;
        f.U8(0x17);  // ptgStr
        f.ShortXLUnicodeString(biff::Utf16(sLocation));
        f.U8(0x17);
        f.ShortXLUnicodeString(biff::Utf16(sText));
        f.U8(0x42);  // ptgFuncVar, value class
        f.U8(2);     // arguments
        f.U16(359);  // HYPERLINK
        b.U16(static_cast<uint32_t>(f.Size()));
        b.Raw(f.Data(), f.Size());
        w_.Record(kFormula, b);
        Bytes t;
        t.XLUnicodeString(biff::Utf16(std::string(detail::FormulaValueOf(sStored))));
        w_.Record(kString, t);
    }

    // Rows in blocks of 32: the ROW records of a block, then their cells, then a DBCELL record
    // that points back at them. Every block from the first row with a record to the last has
    // its DBCELL: one without rows gets its empty DBCELL once a later block has rows.
    void CellTable() {
        const size_t n = std::min<size_t>(d_.arrRows.size(), xlMaxRowsXls);
        detail::SheetRows oRows(d_);
        std::vector<detail::Row> arrBlock(kRowsPerBlock);
        std::vector<RowPlan> arrPlan(kRowsPerBlock);
        std::vector<uint64_t> arrCellStart;
        size_t lEmptyBlocks = 0;  // since the last block with rows
        for (size_t r0 = 0; r0 < n; r0 += kRowsPerBlock) {
            const size_t r1 = std::min(r0 + kRowsPerBlock, n);
            for (; lReported_ < r1; ++lReported_)
                oProgress_.Row();
            // The block's rows, each with its plan while the areas that cover it are known.
            bool bRows = false;
            for (size_t i = r0; i < r1; ++i) {
                arrBlock[i - r0] = oRows.Get(static_cast<long>(i) + 1);
                arrPlan[i - r0] = PlanRow(arrBlock[i - r0], i, oRows.Merged());
                bRows = bRows || arrPlan[i - r0].bRecord;
            }
            if (!bRows) {
                if (bAnyRow_) ++lEmptyBlocks;
                continue;
            }
            for (; lEmptyBlocks > 0; --lEmptyBlocks) {
                oLayout_.arrDbCells.push_back(w_.Position());
                Bytes b;
                b.U32(0);
                w_.Record(kDbCell, b);
            }
            const uint64_t lFirstRowPos = w_.Position();
            for (size_t i = r0; i < r1; ++i) {
                if (arrPlan[i - r0].bRecord) RowRecord(i, arrBlock[i - r0], arrPlan[i - r0]);
            }
            arrCellStart.clear();
            for (size_t i = r0; i < r1; ++i) {
                if (!arrPlan[i - r0].bRecord) continue;
                arrCellStart.push_back(w_.Position());
                Cells(i, arrBlock[i - r0]);
            }
            oLayout_.arrDbCells.push_back(w_.Position());
            Bytes b;
            b.U32(static_cast<uint32_t>(w_.Position() - lFirstRowPos));
            uint64_t lFrom = lFirstRowPos + 20;  // the end of the first ROW record
            for (uint64_t lAt : arrCellStart) {
                b.U16(static_cast<uint32_t>(lAt - lFrom));
                lFrom = lAt;
            }
            w_.Record(kDbCell, b);
        }
    }

    void Window() {
        Bytes b;
        // Gridlines, headings, zeros, default header colour, outline symbols; the first sheet
        // is the selected one on display; panes frozen without a split when the sheet has them.
        const bool bFrozen = d_.lFrozenRows > 0 || d_.lFrozenCols > 0;
        b.U16(0x00B6 | (bFirst_ ? 0x0600 : 0) | (bFrozen ? 0x0108 : 0));
        b.U16(0);
        b.U16(0);
        b.U16(64);
        b.U16(0);
        b.U16(0);
        b.U16(0);
        b.U16(0);
        b.U16(0);
        w_.Record(kWindow2, b);
        if (!bFrozen) return;
        // Frozen panes: columns and rows kept, the first ones that scroll, and the active pane
        // (0 lower right, 1 upper right, 2 lower left).
        const uint32_t x = static_cast<uint32_t>(std::min(d_.lFrozenCols, xlMaxColumnsXls - 1));
        const uint32_t y = static_cast<uint32_t>(std::min(d_.lFrozenRows, xlMaxRowsXls - 1));
        b.Clear();
        b.U16(x);
        b.U16(y);
        b.U16(y);
        b.U16(x);
        b.U8(x > 0 && y > 0 ? 0 : (y > 0 ? 2 : 1));
        b.U8(0);
        w_.Record(kPane, b);
    }

    void MergedCells() {
        std::vector<xlMergedArea> arr = d_.arrMerged;
        std::sort(arr.begin(), arr.end());
        for (size_t i = 0; i < arr.size(); i += kMaxMergesPerRecord) {
            const size_t n = std::min(kMaxMergesPerRecord, arr.size() - i);
            Bytes b;
            b.U16(static_cast<uint32_t>(n));
            for (size_t k = i; k < i + n; ++k) {
                const auto& a = arr[k];
                b.U16(static_cast<uint32_t>(a[0] - 1));
                b.U16(static_cast<uint32_t>(std::min<long>(a[2], xlMaxRowsXls) - 1));
                b.U16(static_cast<uint32_t>(a[1] - 1));
                b.U16(static_cast<uint32_t>(std::min<long>(a[3], xlMaxColumnsXls) - 1));
            }
            w_.Record(kMergeCells, b);
        }
    }

    void Hyperlinks() {
        std::vector<std::pair<uint64_t, uint32_t>> arr(d_.mapLinks.begin(), d_.mapLinks.end());
        std::sort(arr.begin(), arr.end());
        const auto& arrLinks = ws_.Hyperlinks().Items();
        for (const auto& [k, i] : arr) {
            const xlHyperlinkEntry& e = arrLinks[i];
            w_.Record(kHLink, HLinkRecord(e));
            if (!e.ScreenTip().empty()) w_.Record(kHLinkTooltip, TooltipRecord(e));
        }
    }

    RecordWriter& w_;  // the spooled records: the cell table and what follows it
    biff::MemorySink oHead_;
    RecordWriter h_{oHead_};  // the records before the cell table
    const xlWorksheet& ws_;
    const xlWorksheet::Impl& d_;
    const detail::RowFitter oFitter_;
    bool bFirst_;
    XfTable& xfs_;
    SharedStrings& sst_;
    SaveProgress& oProgress_;
    UsedArea oUsed_;
    bool bAnyCell_ = false;    // a row with a cell record was planned
    bool bAnyRow_ = false;     // a row with a ROW record was planned
    size_t lReported_ = 0;     // rows handed to the progress
    uint8_t nMaxOutline_ = 0;  // the deepest outline level of a row
    SheetLayout oLayout_;
    Bytes b_;
};

// ------------------------------------------------------------------------------------------------
// The globals

// A defined name: built-in ones (print area, print titles) by their code.
struct NameRecord {
    std::string sName;  // empty for a built-in name
    uint8_t nBuiltin = 0;
    uint32_t lSheet = 0;  // 0-based
    long r1, c1, r2, c2;  // 1-based
    bool bHidden = false;
};

std::string UpperAscii(std::string s) {
    for (char& ch : s) {
        if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
    }
    return s;
}

std::vector<NameRecord> NamesOf(const xlWorksheets& oSheets) {
    std::vector<NameRecord> arr;
    for (long i = 1; i <= oSheets.Count(); ++i) {
        const xlWorksheet& ws = oSheets.Item(i);
        const uint32_t k = static_cast<uint32_t>(i - 1);
        const xlPageSetup& p = ws.PageSetup();
        if (p.lAreaRow1 > 0) {
            arr.push_back(
                {"", kNamePrintArea, k, p.lAreaRow1, p.lAreaCol1, p.lAreaRow2, p.lAreaCol2});
        }
        if (p.lTitleRow1 > 0) {
            arr.push_back(
                {"", kNamePrintTitles, k, p.lTitleRow1, 1, p.lTitleRow2, xlMaxColumnsXls});
        }
        // An AutoFilter's range is the sheet's hidden name _FilterDatabase.
        const auto& f = ws.Data().arrAutoFilter;
        if (f[0] > 0) arr.push_back({"", kNameFilterDatabase, k, f[0], f[1], f[2], f[3], true});
        for (const xlNameEntry& e : ws.Names().Items())
            arr.push_back({e.sName, 0, k, e.lRow1, e.lCol1, e.lRow2, e.lCol2});
    }
    // Built-in names first, then by name (case does not count) and sheet, as the application
    // keeps them.
    std::vector<std::string> arrKey;
    std::vector<size_t> arrOrder(arr.size());
    for (size_t i = 0; i < arr.size(); ++i) {
        arrKey.push_back(arr[i].nBuiltin ? std::string(1, static_cast<char>(arr[i].nBuiltin))
                                         : UpperAscii(arr[i].sName));
        arrOrder[i] = i;
    }
    std::stable_sort(arrOrder.begin(), arrOrder.end(), [&](size_t a, size_t b) {
        if (int n = arrKey[a].compare(arrKey[b])) return n < 0;
        return arr[a].lSheet < arr[b].lSheet;
    });
    std::vector<NameRecord> out;
    out.reserve(arr.size());
    for (size_t i : arrOrder)
        out.push_back(std::move(arr[i]));
    return out;
}

Bytes LblRecord(const NameRecord& n) {
    // The reference: a cell (PtgRef3d) or a rectangle (PtgArea3d), absolute, on the sheet's
    // entry of the EXTERNSHEET record.
    Bytes f;
    const uint32_t r1 = static_cast<uint32_t>(std::min(n.r1, xlMaxRowsXls) - 1);
    const uint32_t r2 = static_cast<uint32_t>(std::min(n.r2, xlMaxRowsXls) - 1);
    const uint32_t c1 = static_cast<uint32_t>(std::min(n.c1, xlMaxColumnsXls) - 1);
    const uint32_t c2 = static_cast<uint32_t>(std::min(n.c2, xlMaxColumnsXls) - 1);
    if (r1 == r2 && c1 == c2 && n.nBuiltin != kNameFilterDatabase) {  // the filter's: an area
        f.U8(0x3A);
        f.U16(n.lSheet);
        f.U16(r1);
        f.U16(c1);
    } else {
        f.U8(0x3B);
        f.U16(n.lSheet);
        f.U16(r1);
        f.U16(r2);
        f.U16(c1);
        f.U16(c2);
    }
    const std::u16string s = n.nBuiltin ? std::u16string(1, n.nBuiltin) : biff::Utf16(n.sName);
    Bytes b;
    b.U16((n.nBuiltin ? 0x0020 : 0) | (n.bHidden ? 0x0001 : 0));  // fBuiltin, fHidden
    b.U8(0);                                                      // no shortcut key
    b.U8(static_cast<uint32_t>(s.size()));
    b.U16(static_cast<uint32_t>(f.Size()));
    b.U16(0);
    b.U16(n.lSheet + 1);  // local to this sheet (1-based)
    b.Zeros(4);
    b.XLUnicodeStringNoCch(s);
    b.Raw(f.Data(), f.Size());
    return b;
}

class GlobalsWriter {
public:
    GlobalsWriter(const xlWorkbook& oBook, XfTable& xfs, const SharedStrings& sst,
                  const std::vector<NameRecord>& arrNames)
        : oBook_(oBook), xfs_(xfs), sst_(sst), arrNames_(arrNames) {}

    // Writes the globals with the stream offsets of the sheets' BOF records.
    void Write(RecordWriter& w, const std::vector<uint64_t>& arrSheetOffsets) {
        const xlWorksheets& oSheets = oBook_.Worksheets();
        w.Record(kBof, Bof(0x0005));
        w.Record16(kInterfaceHdr, 1200);
        w.Record16(kMms, 0);
        w.Empty(kInterfaceEnd);
        Bytes b;
        b.XLUnicodeString(u"");
        while (b.Size() < 112)
            b.U8(' ');
        w.Record(kWriteAccess, b);
        w.Record16(kCodePage, 1200);  // UTF-16
        w.Record16(kDsf, 0);
        b.Clear();
        for (long i = 1; i <= oSheets.Count(); ++i)
            b.U16(static_cast<uint32_t>(i));
        w.Record(kRRTabId, b);
        w.Record16(kWinProtect, 0);
        w.Record16(kProtect, 0);
        w.Record16(kPassword, 0);
        w.Record16(kProt4Rev, 0);
        w.Record16(kProt4RevPass, 0);
        b.Clear();
        b.U16(0x0168);  // window position and size (twips)
        b.U16(0x010E);
        b.U16(0x3A5C);
        b.U16(0x23BE);
        b.U16(0x0038);  // scroll bars and sheet tabs shown
        b.U16(0);       // the first sheet is the active one
        b.U16(0);
        b.U16(1);
        b.U16(0x0258);  // tab area ratio
        w.Record(kWindow1, b);
        w.Record16(kBackup, 0);
        w.Record16(kHideObj, 0);
        w.Record16(kDate1904, 0);
        w.Record16(kCalcPrecision, 1);
        w.Record16(kRefreshAll, 0);
        w.Record16(kBookBool, 0);
        xfs_.Write(w);
        w.Record16(kUsesElfs, 0);
        for (long i = 1; i <= oSheets.Count(); ++i) {
            b.Clear();
            b.U32(static_cast<uint32_t>(arrSheetOffsets[static_cast<size_t>(i - 1)]));
            b.U8(0);  // visible
            b.U8(0);  // a worksheet
            b.ShortXLUnicodeString(biff::Utf16(oSheets.Item(i).Name()));
            w.Record(kBoundSheet, b);
        }
        b.Clear();
        b.U16(1);
        b.U16(1);
        w.Record(kCountry, b);
        if (!arrNames_.empty()) {
            // The names refer to the sheets through this workbook's own reference table.
            b.Clear();
            b.U16(static_cast<uint32_t>(oSheets.Count()));
            b.U16(0x0401);
            w.Record(kSupBook, b);
            b.Clear();
            b.U16(static_cast<uint32_t>(oSheets.Count()));
            for (long i = 0; i < oSheets.Count(); ++i) {
                b.U16(0);
                b.U16(static_cast<uint32_t>(i));
                b.U16(static_cast<uint32_t>(i));
            }
            w.Record(kExternSheet, b);
            for (const NameRecord& n : arrNames_)
                w.Record(kLbl, LblRecord(n));
        }
        sst_.Write(w);
        w.Empty(kEof);
    }

    static Bytes Bof(uint32_t nType) {
        Bytes b;
        b.U16(0x0600);  // BIFF8
        b.U16(nType);
        b.U16(0x0DBB);  // build
        b.U16(0x07CC);  // year
        b.U32(0);
        b.U32(0x00000006);  // the earliest version that can read the file: BIFF8
        return b;
    }

private:
    const xlWorkbook& oBook_;
    XfTable& xfs_;
    const SharedStrings& sst_;
    const std::vector<NameRecord>& arrNames_;
};

// ------------------------------------------------------------------------------------------------
// Files

// Owns a FILE.
struct FileHandle {
    std::FILE* p = nullptr;
    ~FileHandle() {
        if (p) std::fclose(p);
    }
};

// An unlinked temporary file in a folder: it disappears with its handle, whatever happens.
std::FILE* SpoolFile(const std::filesystem::path& dir) {
    std::FILE* p = modSaveFile::UnlinkedScratchFile(dir, ".xls-spool-");
    if (!p) modSaveFile::RaiseWriteFailure(errno);
    return p;
}

// Sets libgsf up once per process, and with it every class a save uses: GLib guards the data of
// its classes with locks of its own, so saves on several threads only make objects of classes
// that are complete before any of them starts.
void SetUpLibrary() {
    gsf_init();
    g_type_class_ref(GSF_OUTPUT_STDIO_TYPE);
    GsfOutput* pMemory = gsf_output_memory_new();
    GsfOutfile* pOle = gsf_outfile_msole_new(pMemory);
    GsfOutput* pStream = gsf_outfile_new_child(pOle, "Workbook", FALSE);
    const guint8 b[1] = {0};
    gsf_output_write(pStream, sizeof b, b);
    gsf_output_close(pStream);
    gsf_output_close(GSF_OUTPUT(pOle));
    g_object_unref(pStream);
    g_object_unref(pOle);
    g_object_unref(pMemory);
}

// The container: libgsf objects released in reverse order; a stream not closed by the normal
// path is closed here, so that nothing is left open.
class Container {
public:
    explicit Container(const std::string& sFile) {
        static std::once_flag once;
        std::call_once(once, SetUpLibrary);
        std::FILE* f = std::fopen(sFile.c_str(), "wb");
        if (!f) modSaveFile::RaiseWriteFailure(errno);
        sink_ = gsf_output_stdio_new_FILE(sFile.c_str(), f, FALSE);
        if (!sink_) {
            std::fclose(f);
            Fail();
        }
        ole_ = gsf_outfile_msole_new(sink_);
        if (ole_) stream_ = gsf_outfile_new_child(ole_, "Workbook", FALSE);
        if (!stream_) {
            Release();  // a constructor that fails runs no destructor
            Fail();
        }
    }
    ~Container() { Release(); }
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;

    GsfOutput* Stream() { return stream_; }

    // Closes what is still open and lets go of everything.
    void Release() {
        if (stream_) {
            if (!gsf_output_is_closed(stream_)) gsf_output_close(stream_);
            g_object_unref(stream_);
            stream_ = nullptr;
        }
        if (ole_) {
            if (!gsf_output_is_closed(GSF_OUTPUT(ole_))) gsf_output_close(GSF_OUTPUT(ole_));
            g_object_unref(ole_);
            ole_ = nullptr;
        }
        if (sink_) {
            if (!gsf_output_is_closed(sink_)) gsf_output_close(sink_);
            g_object_unref(sink_);
            sink_ = nullptr;
        }
    }

    void Close() {
        errno = 0;
        bool bOk = gsf_output_close(stream_);
        bOk = gsf_output_close(GSF_OUTPUT(ole_)) && bOk;  // closes the file as well
        if (!gsf_output_is_closed(sink_)) bOk = gsf_output_close(sink_) && bOk;
        if (!bOk) modSaveFile::RaiseWriteFailure(errno);
    }

private:
    GsfOutput* sink_ = nullptr;
    GsfOutfile* ole_ = nullptr;
    GsfOutput* stream_ = nullptr;
};

class GsfSink : public biff::Sink {
public:
    explicit GsfSink(GsfOutput* p) : p_(p) {}
    void Write(const void* p, size_t n) override {
        errno = 0;
        if (n && !gsf_output_write(p_, n, static_cast<const guint8*>(p))) {
            modSaveFile::RaiseWriteFailure(errno);
        }
    }

private:
    GsfOutput* p_;
};

void WriteXls(const xlWorkbook& oBook, const std::string& sFile, const std::filesystem::path& dir) {
    const xlWorksheets& oSheets = oBook.Worksheets();
    long lRows = 0;
    for (long i = 1; i <= oSheets.Count(); ++i) {
        const xlWorksheet::Impl& d = oSheets.Item(i).Data();
        lRows += static_cast<long>(d.arrRows.size());
    }
    SaveProgress oProgress(oBook, lRows);

    // The sheets, spooled; formats and strings are collected on the way.
    FileHandle spool;
    spool.p = SpoolFile(dir);
    biff::FileSink oSpool(spool.p);
    XfTable xfs(*oBook.Styles());
    SharedStrings sst;
    std::vector<SheetLayout> arrLayouts;
    uint64_t lSpooled = 0;
    for (long i = 1; i <= oSheets.Count(); ++i) {
        RecordWriter w(oSpool);
        SheetWriter s(w, oSheets.Item(i), i == 1, xfs, sst, oProgress);
        SheetLayout l = s.Write();
        l.lSpoolStart = lSpooled;
        lSpooled += l.lSize;
        arrLayouts.push_back(std::move(l));
    }
    oSpool.Flush();
    const std::vector<NameRecord> arrNames = NamesOf(oSheets);

    // Where everything goes: the globals' size from a counting pass, then each sheet behind the
    // one before it (BOF 20 bytes, INDEX 20 and 4 per row block, the head, then the spooled
    // records).
    GlobalsWriter globals(oBook, xfs, sst, arrNames);
    std::vector<uint64_t> arrOffsets(arrLayouts.size(), 0);
    {
        biff::CountingSink oCount;
        RecordWriter w(oCount);
        globals.Write(w, arrOffsets);
        uint64_t lAt = w.Position();
        for (size_t i = 0; i < arrLayouts.size(); ++i) {
            arrOffsets[i] = lAt;
            const SheetLayout& l = arrLayouts[i];
            lAt += 20 + 20 + 4 * l.arrDbCells.size() + l.sHead.size() + l.lSize;
        }
        if (lAt > 0xFFFFFFFFull) Fail();  // stream positions are 32-bit
    }

    Container oFile(sFile);
    GsfSink oOut(oFile.Stream());
    RecordWriter w(oOut);
    globals.Write(w, arrOffsets);
    constexpr size_t kCopyBuffer = size_t{1} << 20;
    const auto buf = std::make_unique_for_overwrite<char[]>(kCopyBuffer);
    for (size_t i = 0; i < arrLayouts.size(); ++i) {
        const SheetLayout& l = arrLayouts[i];
        if (w.Position() != arrOffsets[i]) Fail();
        w.Record(kBof, GlobalsWriter::Bof(0x0010));
        const uint64_t lHead = arrOffsets[i] + 20 + 20 + 4 * l.arrDbCells.size();
        const uint64_t lSpooled = lHead + l.sHead.size();
        Bytes b;
        b.U32(0);
        b.U32(l.lRowMic);
        b.U32(l.lRowMac);
        b.U32(static_cast<uint32_t>(lHead + l.lDefColWidth));
        for (uint64_t lAt : l.arrDbCells)
            b.U32(static_cast<uint32_t>(lSpooled + lAt));
        if (b.Size() > biff::kMaxRecordData) Fail();
        w.Record(kIndex, b);
        w.Raw(l.sHead.data(), l.sHead.size());
        if (std::fseek(spool.p, static_cast<long>(l.lSpoolStart), SEEK_SET) != 0) Fail();
        for (uint64_t lLeft = l.lSize; lLeft > 0;) {
            const size_t n = static_cast<size_t>(std::min<uint64_t>(lLeft, kCopyBuffer));
            if (std::fread(buf.get(), 1, n, spool.p) != n) Fail();
            w.Raw(buf.get(), n);
            lLeft -= n;
        }
    }
    oFile.Close();
    oProgress.Report();
}

}  // namespace

void SaveWorkbookFileXls(const xlWorkbook& oBook, const std::string& sPath) {
    modSaveFile::WriteThroughTempFile(
        sPath, [&](const std::string& sTempFile, const std::string& sFolder) {
            WriteXls(oBook, sTempFile, std::filesystem::path(sFolder));
        });
}

}  // namespace xl
