// The spreadsheet object model: ranges, formats, merges, names, hyperlinks and page set-up over
// the compact cell storage of xlModelData.h.
#include "xl/xlObjectModel.h"

#include <xlsxwriter.h>
#include <xlsxwriter/xmlwriter.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modEnvironment.h"
#include "xl/xlModelData.h"
#include "xl/xlRowFit.h"
#include "xl/xlText.h"

namespace xl {

using namespace modConst;
using detail::Cell;
using detail::kEmpty;
using detail::kNumber;
using detail::kText;
using detail::kUnformatted;
using RowRec = detail::Row;

namespace {

// The most cells one call may create: beyond this the application runs out of resources too.
constexpr uint64_t kMaxCellsPerCall = uint64_t{1} << 26;

[[noreturn]] void Fail() {
    RaiseError(errAppDefined);
}

// A row or column of the sheet; its size depends on the workbook's file format.
void CheckRow(const xlWorksheet::Impl& d, long lRow) {
    if (lRow < 1 || lRow > d.RowLimit()) Fail();
}
void CheckCol(const xlWorksheet::Impl& d, long lCol) {
    if (lCol < 1 || lCol > d.lMaxCols) Fail();
}

// The default palette of 56 colours, index 1 first.
constexpr uint32_t kPalette[56] = {
    0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0xFFFF00, 0xFF00FF, 0x00FFFF,
    0x800000, 0x008000, 0x000080, 0x808000, 0x800080, 0x008080, 0xC0C0C0, 0x808080,
    0x9999FF, 0x993366, 0xFFFFCC, 0xCCFFFF, 0x660066, 0xFF8080, 0x0066CC, 0xCCCCFF,
    0x000080, 0xFF00FF, 0xFFFF00, 0x00FFFF, 0x800080, 0x800000, 0x008080, 0x0000FF,
    0x00CCFF, 0xCCFFFF, 0xCCFFCC, 0xFFFF99, 0x99CCFF, 0xFF99CC, 0xCC99FF, 0xFFCC99,
    0x3366FF, 0x33CCCC, 0x99CC00, 0xFFCC00, 0xFF9900, 0xFF6600, 0x666699, 0x969696,
    0x003366, 0x339966, 0x003300, 0x333300, 0x993300, 0x993366, 0x333399, 0x333333};

// A colour index as the model keeps it: 0 for "none" and "automatic", else 1..56.
long ColorIndexValue(long lIndex) {
    if (lIndex == xlColorIndexNone || lIndex == xlColorIndexAutomatic) return 0;
    if (lIndex < 1 || lIndex > 56) Fail();
    return lIndex;
}

// Line styles the model knows: continuous, dash, dot, double, dash-dot, dash-dot-dot,
// slanted dash-dot; "none" is kept as 0.
long LineStyleValue(long lStyle) {
    switch (lStyle) {
        case xlLineStyleNone:
            return 0;
        case xlContinuous:
        case -4115:  // xlDash
        case -4118:  // xlDot
        case -4119:  // xlDouble
        case 4:      // xlDashDot
        case 5:      // xlDashDotDot
        case 13:     // xlSlantDashDot
            return lStyle;
        default:
            Fail();
    }
}

bool IsHorizontalAlignment(long l) {
    switch (l) {
        case xlGeneral:
        case xlLeft:
        case xlCenter:
        case xlRight:
        case 5:      // xlFill
        case -4130:  // xlJustify
        case 7:      // xlCenterAcrossSelection
        case -4117:  // xlDistributed
            return true;
        default:
            return false;
    }
}

bool IsVerticalAlignment(long l) {
    switch (l) {
        case xlTop:
        case xlCenter:
        case xlBottom:
        case -4130:  // xlJustify
        case -4117:  // xlDistributed
            return true;
        default:
            return false;
    }
}

void ApplyChangeTo(xlStyle& s, const xlStyleChange& c) {
    switch (c.eKind) {
        case xlStyleChange::kBold:
            s.bBold = c.lValue != 0;
            break;
        case xlStyleChange::kItalic:
            s.bItalic = c.lValue != 0;
            break;
        case xlStyleChange::kFontStyle:
            s.bBold = (c.lValue & 1) != 0;
            s.bItalic = (c.lValue & 2) != 0;
            break;
        case xlStyleChange::kUnderline:
            s.bUnderline = c.lValue != 0;
            break;
        case xlStyleChange::kFontColor:
            s.lFontColorIndex = c.lValue;
            break;
        case xlStyleChange::kFontSize:
            s.dFontSize = c.dValue;
            break;
        case xlStyleChange::kInterior:
            s.lInteriorColorIndex = c.lValue;
            break;
        case xlStyleChange::kBorderLeft:
            s.lBorderLeft = c.lValue;
            break;
        case xlStyleChange::kBorderTop:
            s.lBorderTop = c.lValue;
            break;
        case xlStyleChange::kBorderBottom:
            s.lBorderBottom = c.lValue;
            break;
        case xlStyleChange::kBorderRight:
            s.lBorderRight = c.lValue;
            break;
        case xlStyleChange::kHorizontal:
            s.lHorizontalAlignment = c.lValue;
            break;
        case xlStyleChange::kVertical:
            s.lVerticalAlignment = c.lValue;
            break;
        case xlStyleChange::kWrap:
            s.bWrapText = c.lValue != 0;
            break;
        case xlStyleChange::kNumberFormat:
            s.sNumberFormat = c.sValue;
            break;
    }
}

xlStyleChange MakeChange(xlStyleChange::Kind e, long lValue) {
    xlStyleChange c;
    c.eKind = e;
    c.lValue = lValue;
    return c;
}

// The look a cell takes from a link: underlined, in the link's colour.
uint32_t LinkLook(xlStyleTable& t, uint32_t lStyle) {
    return t.Apply(t.Apply(lStyle, t.InternChange(MakeChange(xlStyleChange::kUnderline, 1))),
                   t.InternChange(MakeChange(xlStyleChange::kFontColor, 5)));
}

inline void HashMix(size_t& h, size_t v) {
    h ^= v + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
}

std::string Upper(std::string s) {
    for (char& ch : s) {
        if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
    }
    return s;
}

bool IsAsciiLetter(char ch) {
    return (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}
bool IsDigit(char ch) {
    return ch >= '0' && ch <= '9';
}

// Column number of letters "A".."XFD"; 0 when not a column of a sheet of lMaxCols columns.
long ColumnOfLetters(std::string_view s, long lMaxCols = xlMaxColumns) {
    if (s.empty() || s.size() > 3) return 0;
    long n = 0;
    for (char ch : s) {
        if (!IsAsciiLetter(ch)) return 0;
        n = n * 26 + (Upper(std::string(1, ch))[0] - 'A' + 1);
    }
    return n <= lMaxCols ? n : 0;
}

// Row number of decimal digits; 0 when not a row of a sheet of lMaxRows rows.
long RowOfDigits(std::string_view s, long lMaxRows = xlMaxRows) {
    if (s.empty()) return 0;
    long n = 0;
    for (char ch : s) {
        if (!IsDigit(ch)) return 0;
        n = n * 10 + (ch - '0');
        if (n > lMaxRows) return 0;
    }
    return n;
}

// One end of an A1 address: "A1", "$A$1", "A", "$5". Sets what it names; false if malformed.
bool ParseRef(std::string_view s, long& lRow, long& lCol, long lMaxRows = xlMaxRows,
              long lMaxCols = xlMaxColumns) {
    lRow = 0;
    lCol = 0;
    size_t i = 0;
    if (i < s.size() && s[i] == '$') ++i;
    size_t j = i;
    while (j < s.size() && IsAsciiLetter(s[j]))
        ++j;
    if (j > i) {
        lCol = ColumnOfLetters(s.substr(i, j - i), lMaxCols);
        if (lCol == 0) return false;
    }
    i = j;
    if (i < s.size() && s[i] == '$') {
        if (lCol == 0 && i != 0) return false;
        ++i;
    }
    if (i < s.size()) {
        lRow = RowOfDigits(s.substr(i), lMaxRows);
        if (lRow == 0) return false;
    } else if (i > 0 && s[i - 1] == '$') {
        return false;
    }
    return lRow != 0 || lCol != 0;
}

// An A1 address of a rectangle on a sheet of lMaxRows rows and lMaxCols columns: "A1", "A1:D3",
// "$5:$7", "$A:$C" (no sheet, no lists).
bool ParseAddress(const std::string& sAddress, long lMaxRows, long lMaxCols, long& r1, long& c1,
                  long& r2, long& c2) {
    std::string_view s(sAddress);
    size_t k = s.find(':');
    long ra, ca, rb, cb;
    if (!ParseRef(s.substr(0, k), ra, ca, lMaxRows, lMaxCols)) return false;
    if (k == std::string_view::npos) {
        if (ra == 0 || ca == 0) return false;
        rb = ra;
        cb = ca;
    } else if (!ParseRef(s.substr(k + 1), rb, cb, lMaxRows, lMaxCols)) {
        return false;
    }
    const bool bCellA = ra != 0 && ca != 0, bCellB = rb != 0 && cb != 0;
    if (bCellA && bCellB) {
        r1 = std::min(ra, rb), r2 = std::max(ra, rb);
        c1 = std::min(ca, cb), c2 = std::max(ca, cb);
    } else if (ca == 0 && cb == 0 && ra != 0 && rb != 0) {  // whole rows
        r1 = std::min(ra, rb), r2 = std::max(ra, rb);
        c1 = 1, c2 = lMaxCols;
    } else if (ra == 0 && rb == 0 && ca != 0 && cb != 0) {  // whole columns
        r1 = 1, r2 = lMaxRows;
        c1 = std::min(ca, cb), c2 = std::max(ca, cb);
    } else {
        return false;
    }
    return true;
}

std::string AddressOf(const xlWorksheet::Impl& d, long r1, long c1, long r2, long c2) {
    const bool bRows = c1 == 1 && c2 == d.lMaxCols;
    const bool bCols = r1 == 1 && r2 == d.lMaxRows;
    if (bRows) return "$" + std::to_string(r1) + ":$" + std::to_string(r2);
    if (bCols) return "$" + ColumnLetters(c1) + ":$" + ColumnLetters(c2);
    std::string s = "$" + ColumnLetters(c1) + "$" + std::to_string(r1);
    if (r1 != r2 || c1 != c2) s += ":$" + ColumnLetters(c2) + "$" + std::to_string(r2);
    return s;
}

uint64_t CellCount(long r1, long c1, long r2, long c2) {
    return static_cast<uint64_t>(r2 - r1 + 1) * static_cast<uint64_t>(c2 - c1 + 1);
}

void CheckCellCount(uint64_t n) {
    if (n > kMaxCellsPerCall) RaiseError(errOutOfMemory);
}

// A value the application would accept in a cell.
void CheckValue(const xlVariant& v) {
    if (const auto* ps = std::get_if<std::string>(&v)) {
        if (!detail::Utf16LengthAtMost(*ps, static_cast<size_t>(xlMaxCellText))) Fail();
    } else if (const auto* pd = std::get_if<double>(&v)) {
        if (!std::isfinite(*pd)) Fail();
    }
}

// Name rules of the application: 1..255 characters; a letter, "_" or "\" first, then letters,
// digits, "_", "." and "\"; not "R" or "C"; not a cell reference in A1 or R1C1 form. Characters
// outside ASCII count as letters.
bool IsValidDefinedName(const std::string& s) {
    if (s.empty() || detail::Utf16Length(s) > static_cast<size_t>(xlMaxNameLength)) return false;
    auto bLetter = [](unsigned char ch) {
        return ch >= 0x80 || IsAsciiLetter(static_cast<char>(ch));
    };
    const unsigned char c0 = static_cast<unsigned char>(s[0]);
    if (!(bLetter(c0) || c0 == '_' || c0 == '\\')) return false;
    for (unsigned char ch : s) {
        if (!(bLetter(ch) || IsDigit(static_cast<char>(ch)) || ch == '_' || ch == '.' ||
              ch == '\\')) {
            return false;
        }
    }
    const std::string u = Upper(s);
    if (u == "R" || u == "C") return false;
    // A1: one to three letters naming a column, then digits naming a row.
    size_t i = 0;
    while (i < u.size() && IsAsciiLetter(u[i]))
        ++i;
    if (i >= 1 && i <= 3 && i < u.size() && ColumnOfLetters(u.substr(0, i)) != 0) {
        bool bDigits = true;
        for (size_t k = i; k < u.size(); ++k)
            bDigits = bDigits && IsDigit(u[k]);
        if (bDigits) {
            long n = 0;
            bool bBig = false;
            for (size_t k = i; k < u.size(); ++k) {
                n = n * 10 + (u[k] - '0');
                if (n > xlMaxRows) {
                    bBig = true;
                    break;
                }
            }
            if (!bBig && n >= 1) return false;
        }
    }
    // R1C1: R[n][C[n]] or C[n].
    auto Digits = [&](size_t& k) {
        while (k < u.size() && IsDigit(u[k]))
            ++k;
    };
    size_t k = 0;
    if (u[0] == 'R') {
        k = 1;
        Digits(k);
        if (k < u.size() && u[k] == 'C') {
            ++k;
            Digits(k);
        }
        if (k == u.size()) return false;
    } else if (u[0] == 'C') {
        k = 1;
        Digits(k);
        if (k == u.size()) return false;
    }
    return true;
}

void ReplaceAll(std::string& s, const std::string& sFrom, const std::string& sTo) {
    for (size_t k = s.find(sFrom); k != std::string::npos; k = s.find(sFrom, k + sTo.size())) {
        s.replace(k, sFrom.size(), sTo);
    }
}

// The writer tells its link kinds apart by "internal:" and "external:" anywhere in the
// target; inside an address those are escaped so that only our own prefix counts.
void NeutralizePrefixes(std::string& s) {
    ReplaceAll(s, "internal:", "internal%3A");
    ReplaceAll(s, "external:", "external%3A");
}

std::string FormatNumber(double d) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.15G", d);
    return buf;
}

}  // namespace

// ----------------------------------------------------------------------------------------------
// Free functions

uint32_t PaletteRGB(long lColorIndex) {
    if (lColorIndex < 1 || lColorIndex > 56) Fail();
    return kPalette[lColorIndex - 1];
}

std::string ColumnLetters(long lColumn) {
    if (lColumn < 1 || lColumn > xlMaxColumns) Fail();
    std::string s;
    for (long n = lColumn; n > 0; n = (n - 1) / 26) {
        s.insert(s.begin(), static_cast<char>('A' + (n - 1) % 26));
    }
    return s;
}

namespace detail {

bool HasUrlScheme(std::string_view s) {
    if (s.empty() || !IsAsciiLetter(s[0])) return false;
    size_t i = 1;
    while (i < s.size() &&
           (IsAsciiLetter(s[i]) || IsDigit(s[i]) || s[i] == '+' || s[i] == '-' || s[i] == '.')) {
        ++i;
    }
    return i >= 2 && i < s.size() && s[i] == ':';  // "C:" is a drive, not a scheme
}

size_t Utf16Length(std::string_view s) {
    size_t n = 0;
    for (unsigned char ch : s) {
        if ((ch & 0xC0) != 0x80) ++n;  // a lead byte starts a code point
        if (ch >= 0xF0) ++n;           // beyond the BMP: a surrogate pair
    }
    return n;
}

// No byte counts for more than two UTF-16 units: a text of at most half the limit in bytes
// needs no counting.
bool Utf16LengthAtMost(std::string_view s, size_t lLimit) {
    return s.size() <= lLimit / 2 || Utf16Length(s) <= lLimit;
}

bool ParseHyperlinkFormula(std::string_view sFormula, std::string& sLocation, std::string& sText) {
    size_t i = 0;
    auto fnSpaces = [&] {
        while (i < sFormula.size() && sFormula[i] == ' ')
            ++i;
    };
    auto fnTake = [&](std::string_view sWord) {
        if (sFormula.size() - i < sWord.size()) return false;
        for (size_t k = 0; k < sWord.size(); ++k) {
            char ch = sFormula[i + k];
            if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
            if (ch != sWord[k]) return false;
        }
        i += sWord.size();
        return true;
    };
    // A text in quotes, "" standing for one quote.
    auto fnString = [&](std::string& s) {
        fnSpaces();
        if (i >= sFormula.size() || sFormula[i] != '"') return false;
        ++i;
        s.clear();
        for (;;) {
            if (i >= sFormula.size()) return false;
            if (sFormula[i] == '"') {
                if (i + 1 < sFormula.size() && sFormula[i + 1] == '"') {
                    s += '"';
                    i += 2;
                    continue;
                }
                ++i;
                break;
            }
            s += sFormula[i++];
        }
        return Utf16Length(s) <= 255;
    };
    if (!fnTake("=")) return false;
    fnSpaces();
    if (!fnTake("HYPERLINK")) return false;
    fnSpaces();
    if (!fnTake("(") || !fnString(sLocation)) return false;
    fnSpaces();
    sText = sLocation;
    if (fnTake(",")) {
        if (!fnString(sText)) return false;
        fnSpaces();
    }
    if (!fnTake(")")) return false;
    fnSpaces();
    return i == sFormula.size() && !sLocation.empty();
}

std::string QuoteSheetName(const std::string& sName) {
    bool bPlain = !sName.empty() && (IsAsciiLetter(sName[0]) || sName[0] == '_');
    for (char ch : sName) {
        bPlain = bPlain && (IsAsciiLetter(ch) || IsDigit(ch) || ch == '_' || ch == '.');
    }
    if (bPlain) {
        // A name that reads as a cell reference needs the quotes too.
        long r, c;
        if (ParseRef(sName, r, c) && r != 0 && c != 0) bPlain = false;
        const std::string u = Upper(sName);
        if (u[0] == 'R' || u[0] == 'C') {
            size_t k = 1;
            while (k < u.size() && (IsDigit(u[k]) || u[k] == 'C'))
                ++k;
            if (k == u.size()) bPlain = false;
        }
    }
    if (bPlain) return sName;
    std::string s = "'";
    for (char ch : sName) {
        s += ch;
        if (ch == '\'') s += '\'';
    }
    return s + "'";
}

std::string LinkTarget(std::string_view sAddress, std::string_view sSubAddress) {
    if (sAddress.empty()) {
        std::string s(sSubAddress);
        NeutralizePrefixes(s);
        return "internal:" + s;
    }
    std::string sSub(sSubAddress);
    NeutralizePrefixes(sSub);
    const std::string sFragment = sSub.empty() ? "" : "#" + sSub;
    std::string s(sAddress);
    NeutralizePrefixes(s);
    if (HasUrlScheme(sAddress)) return s + sFragment;
    // A file: "#" belongs to its name, not to a place in it.
    ReplaceAll(s, "#", "%23");
    if (s.size() >= 1 && s[0] == '/' && !(s.size() >= 2 && s[1] == '/')) {
        return "file://" + s + sFragment;
    }
    return "external:" + s + sFragment;
}

size_t LinkCheckedLength(const std::string& sTarget) {
    const bool bInternal = sTarget.rfind("internal:", 0) == 0;
    const bool bExternal = sTarget.rfind("external:", 0) == 0;
    std::string s = (bInternal || bExternal) ? sTarget.substr(9) : sTarget;
    if (size_t k = s.find('#'); k != std::string::npos) s.resize(k);
    if (!bInternal) {
        char* p = lxw_escape_url_characters(s.c_str(), LXW_FALSE);
        if (!p) RaiseError(errOutOfMemory);
        s = p;
        std::free(p);
    }
    size_t n = lxw_utf8_strlen(s.c_str());
    if (bExternal) {
        std::replace(s.begin(), s.end(), '/', '\\');
        if (s.find(':') != std::string::npos || s.find("\\\\") != std::string::npos) {
            n += 8;  // "file:///"
        } else if (s.rfind(".\\", 0) == 0) {
            n -= 2;
        }
    }
    return n;
}

uint64_t TextArena::Add(std::string_view s) {
    // Every text a cell holds is stored here, as the file can hold it (see xlText.h).
    std::string sStorable;
    if (!IsWorkbookText(s)) s = sStorable = WorkbookText(s);
    if ((lCount_ + 1) * 2 > arrSlots_.size()) Grow();
    const uint64_t lHash = std::hash<std::string_view>()(s);
    Recent& oRecent = arrRecent_[static_cast<size_t>(lHash) & (kRecent - 1)];
    if (oRecent.lRef != 0 && oRecent.lHash == lHash && Get(oRecent.lRef - 1) == s) {
        return oRecent.lRef - 1;
    }
    const uint64_t lTag = lHash & kTagMask;
    const size_t lMask = arrSlots_.size() - 1;
    for (size_t i = static_cast<size_t>(lHash) & lMask;; i = (i + 1) & lMask) {
        const uint64_t lSlot = arrSlots_[i];
        if (lSlot == 0) {
            // A text met for the first time takes no place among the recent ones: most such
            // texts are met once.
            const uint64_t lRef = Store(s);
            arrSlots_[i] = lTag | (lRef + 1);
            ++lCount_;
            return lRef;
        }
        if ((lSlot & kTagMask) == lTag && Get((lSlot & kRefMask) - 1) == s) {
            oRecent = {lHash, lSlot & kRefMask};
            return (lSlot & kRefMask) - 1;
        }
    }
}

// The length, the bytes and a terminating NUL, so the saver hands the text on uncopied.
uint64_t TextArena::Store(std::string_view s) {
    const uint64_t lNeed = s.size() + sizeof(uint32_t) + 1;
    if (lNeed > kChunk || arrChunks_.size() >= kMaxChunks) RaiseError(errOutOfMemory);
    if (lUsed_ + lNeed > kChunk) {
        // Left unfilled: a page is touched only once a text is stored on it.
        arrChunks_.push_back(std::make_unique_for_overwrite<char[]>(kChunk));
        lUsed_ = 0;
    }
    char* p = arrChunks_.back().get() + lUsed_;
    const uint32_t n = static_cast<uint32_t>(s.size());
    std::memcpy(p, &n, sizeof n);
    if (n) std::memcpy(p + sizeof n, s.data(), n);
    p[sizeof n + n] = '\0';
    const uint64_t lRef = (static_cast<uint64_t>(arrChunks_.size() - 1) << kShift) | lUsed_;
    lUsed_ += (lNeed + 3) & ~uint64_t{3};
    return lRef;
}

void TextArena::Grow() {
    if (arrRecent_.empty()) arrRecent_.resize(kRecent);
    const size_t lSize = std::max<size_t>(1024, arrSlots_.size() * 2);
    std::vector<uint64_t> arrNew(lSize, 0);
    const size_t lMask = lSize - 1;
    for (uint64_t lSlot : arrSlots_) {
        if (lSlot == 0) continue;
        const uint64_t lHash = std::hash<std::string_view>()(Get((lSlot & kRefMask) - 1));
        size_t i = static_cast<size_t>(lHash) & lMask;
        while (arrNew[i] != 0)
            i = (i + 1) & lMask;
        arrNew[i] = lSlot;
    }
    arrSlots_.swap(arrNew);
}

}  // namespace detail

// ----------------------------------------------------------------------------------------------
// The style table

xlStyleTable::xlStyleTable() {
    Intern(xlStyle{});
}

size_t xlStyleTable::StyleHash::operator()(const xlStyle& s) const noexcept {
    size_t h = std::hash<std::string>()(s.sNumberFormat);
    HashMix(h, (s.bBold ? 1u : 0u) | (s.bItalic ? 2u : 0u) | (s.bUnderline ? 4u : 0u) |
                   (s.bWrapText ? 8u : 0u));
    HashMix(h, static_cast<size_t>(s.lFontColorIndex));
    HashMix(h, std::hash<double>()(s.dFontSize));
    HashMix(h, static_cast<size_t>(s.lInteriorColorIndex));
    HashMix(h, static_cast<size_t>(s.lBorderTop));
    HashMix(h, static_cast<size_t>(s.lBorderBottom));
    HashMix(h, static_cast<size_t>(s.lBorderLeft));
    HashMix(h, static_cast<size_t>(s.lBorderRight));
    HashMix(h, static_cast<size_t>(s.lHorizontalAlignment));
    HashMix(h, static_cast<size_t>(s.lVerticalAlignment));
    return h;
}

size_t xlStyleTable::ChangeHash::operator()(const ChangeKey& k) const noexcept {
    size_t h = std::hash<std::string>()(k.sValue);
    HashMix(h, k.eKind);
    HashMix(h, static_cast<size_t>(k.lValue));
    HashMix(h, static_cast<size_t>(k.dBits));
    return h;
}

uint32_t xlStyleTable::Intern(const xlStyle& oStyle) {
    auto it = mapStyles.find(oStyle);
    if (it != mapStyles.end()) return it->second;
    if (arrStyles.size() >= lMaxCount) Fail();  // too many different cell formats
    const uint32_t lId = static_cast<uint32_t>(arrStyles.size());
    arrStyles.push_back(oStyle);
    mapStyles.emplace(oStyle, lId);
    return lId;
}

uint32_t xlStyleTable::InternChange(const xlStyleChange& oChange) {
    uint64_t dBits;
    std::memcpy(&dBits, &oChange.dValue, sizeof dBits);
    uint32_t& lRecent =
        arrRecentChanges[(static_cast<size_t>(oChange.eKind) * 31 +
                          static_cast<size_t>(oChange.lValue) * 7 +
                          static_cast<size_t>(dBits >> 48) + oChange.sValue.size()) &
                         (arrRecentChanges.size() - 1)];
    if (lRecent != 0) {
        const xlStyleChange& c = arrChanges[lRecent - 1];
        uint64_t dHad;
        std::memcpy(&dHad, &c.dValue, sizeof dHad);
        if (c.eKind == oChange.eKind && c.lValue == oChange.lValue && dHad == dBits &&
            c.sValue == oChange.sValue) {
            return lRecent - 1;
        }
    }
    ChangeKey k{static_cast<uint8_t>(oChange.eKind), oChange.lValue, dBits, oChange.sValue};
    auto it = mapChanges.find(k);
    if (it != mapChanges.end()) {
        lRecent = it->second + 1;
        return it->second;
    }
    const uint32_t lId = static_cast<uint32_t>(arrChanges.size());
    arrChanges.push_back(oChange);
    mapChanges.emplace(std::move(k), lId);
    lRecent = lId + 1;
    return lId;
}

uint32_t xlStyleTable::Apply(uint32_t lStyle, uint32_t lChange) {
    if (arrApplied.size() <= lStyle) arrApplied.resize(lStyle + 1);
    std::vector<uint32_t>& v = arrApplied[lStyle];
    if (v.size() <= lChange) v.resize(arrChanges.size(), 0);
    if (v[lChange] != 0) return v[lChange] - 1;
    xlStyle s = arrStyles[lStyle];
    ApplyChangeTo(s, arrChanges[lChange]);
    const uint32_t lId = Intern(s);
    v[lChange] = lId + 1;
    return lId;
}

// ----------------------------------------------------------------------------------------------
// Sheet storage

namespace {

// Applies one change to many formats, remembering the last result (neighbouring cells mostly
// share their format).
class Applier {
public:
    Applier(xlStyleTable& t, uint32_t lChange) : t_(t), lChange_(lChange) {}
    uint32_t operator()(uint32_t s) {
        if (s != lFrom_) {
            lFrom_ = s;
            lTo_ = t_.Apply(s, lChange_);
        }
        return lTo_;
    }

private:
    xlStyleTable& t_;
    uint32_t lChange_;
    uint32_t lFrom_ = kUnformatted;
    uint32_t lTo_ = 0;
};

Cell NewCell(long lCol, uint32_t lStyle) {
    return Cell{static_cast<uint16_t>(lCol), kEmpty, 0, lStyle, 0};
}

// The records a row makes room for with its first one: most rows of a sheet hold a few cells,
// and a row that grows one record at a time would otherwise allocate for every one.
constexpr size_t kRowCells = 8;

// Makes sure row oRow holds a record for every column c1..c2, creating missing ones with the
// format the cell shows, then calls fn on each record of the span, in column order.
template <class Fn>
void ForSpan(xlWorksheet::Impl& d, RowRec& oRow, long c1, long c2, Fn&& fn) {
    auto& v = oRow.arrCells;
    auto lo =
        std::lower_bound(v.begin(), v.end(), c1, [](const Cell& c, long n) { return c.nCol < n; });
    auto hi =
        std::lower_bound(lo, v.end(), c2 + 1, [](const Cell& c, long n) { return c.nCol < n; });
    const size_t lHave = static_cast<size_t>(hi - lo);
    const size_t lWant = static_cast<size_t>(c2 - c1 + 1);
    if (lHave == lWant) {
        for (auto it = lo; it != hi; ++it)
            fn(*it);
        return;
    }
    if (lWant == 1) {
        // One new record in its place; a row's first record makes room for a row's worth.
        const auto lAt = lo - v.begin();
        if (v.capacity() == 0) d.RoomForCells(v, kRowCells);
        fn(*v.insert(v.begin() + lAt, NewCell(c1, d.Background(oRow, c1))));
        return;
    }
    std::vector<Cell> nv;
    d.RoomForCells(nv, std::max(v.size() + lWant - lHave, kRowCells));
    nv.insert(nv.end(), v.begin(), lo);
    auto it = lo;
    for (long c = c1; c <= c2; ++c) {
        if (it != hi && it->nCol == c) {
            nv.push_back(*it++);
        } else {
            nv.push_back(NewCell(c, d.Background(oRow, c)));
        }
        fn(nv.back());
    }
    nv.insert(nv.end(), hi, v.end());
    v.swap(nv);
    // The list the row had serves another.
    d.KeepSpareCells(nv);
}

// The records of row oRow in columns c1..c2 (none created).
template <class RowT, class Fn>
void ForExisting(RowT& oRow, long c1, long c2, Fn&& fn) {
    auto& v = oRow.arrCells;
    auto lo =
        std::lower_bound(v.begin(), v.end(), c1, [](const Cell& c, long n) { return c.nCol < n; });
    for (auto it = lo; it != v.end() && it->nCol <= c2; ++it)
        fn(*it);
}

// Inserts records (sorted by column, none present in the row) into a row.
void InsertSorted(RowRec& oRow, std::vector<Cell>& arrNew) {
    if (arrNew.empty()) return;
    auto& v = oRow.arrCells;
    const size_t n = v.size();
    v.insert(v.end(), arrNew.begin(), arrNew.end());
    std::inplace_merge(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(n), v.end(),
                       [](const Cell& a, const Cell& b) { return a.nCol < b.nCol; });
    arrNew.clear();
}

}  // namespace

xlWorksheet::Impl::Impl(std::shared_ptr<xlStyleTable> p, std::shared_ptr<detail::TextArena> pT)
    : pStyles(std::move(p)),
      pTexts(std::move(pT)),
      oText(*pTexts),
      arrColStyle(static_cast<size_t>(xlMaxColumns) + 1, kUnformatted),
      arrColWidth(static_cast<size_t>(xlMaxColumns) + 1, -1.0f) {}

RowRec& xlWorksheet::Impl::EnsureRow(long lRow) {
    if (Spooled(lRow)) CheckNotSpooled(lRow, lRow);
    if (arrRows.size() < static_cast<size_t>(lRow)) arrRows.resize(static_cast<size_t>(lRow));
    return arrRows[static_cast<size_t>(lRow) - 1];
}

const Cell* xlWorksheet::Impl::FindCell(long lRow, long lCol) const {
    const RowRec* p = FindRow(lRow);
    if (!p) return nullptr;
    const auto& v = p->arrCells;
    if (!v.empty() && v.back().nCol == lCol) return &v.back();
    auto it = std::lower_bound(v.begin(), v.end(), lCol,
                               [](const Cell& c, long n) { return c.nCol < n; });
    return (it != v.end() && it->nCol == lCol) ? &*it : nullptr;
}

Cell* xlWorksheet::Impl::FindCell(long lRow, long lCol) {
    return const_cast<Cell*>(static_cast<const Impl*>(this)->FindCell(lRow, lCol));
}

void xlWorksheet::Impl::KeepSpareCells(std::vector<Cell>& v) {
    if (v.capacity() == 0 || v.capacity() > kMaxSpareRoom ||
        arrSpareCells.size() >= kMaxSpareCells) {
        return;
    }
    v.clear();
    arrSpareCells.push_back(std::move(v));
}

void xlWorksheet::Impl::RoomForCells(std::vector<Cell>& v, size_t n) {
    if (!arrSpareCells.empty() && arrSpareCells.back().capacity() >= n) {
        v.swap(arrSpareCells.back());
        arrSpareCells.pop_back();
    }
    v.reserve(n);
}

Cell& xlWorksheet::Impl::GetOrCreate(long lRow, long lCol) {
    RowRec& oRow = EnsureRow(lRow);
    auto& v = oRow.arrCells;
    if (v.capacity() == 0) RoomForCells(v, kRowCells);
    if (v.empty() || v.back().nCol < lCol) {
        v.push_back(NewCell(lCol, Background(oRow, lCol)));
        return v.back();
    }
    auto it = std::lower_bound(v.begin(), v.end(), lCol,
                               [](const Cell& c, long n) { return c.nCol < n; });
    if (it != v.end() && it->nCol == lCol) return *it;
    return *v.insert(it, NewCell(lCol, Background(oRow, lCol)));
}

uint32_t xlWorksheet::Impl::Background(long lRow, long lCol) const {
    if (const RowRec* p = FindRow(lRow)) return Background(*p, lCol);
    const uint32_t s = arrColStyle[lCol];
    return s != kUnformatted ? s : lSheetStyle;
}

uint32_t xlWorksheet::Impl::EffectiveStyleId(long lRow, long lCol) const {
    if (const Cell* c = FindCell(lRow, lCol)) return c->lStyle;
    return Background(lRow, lCol);
}

void xlWorksheet::Impl::SetValue(Cell& c, const xlVariant& v) {
    if (const auto* ps = std::get_if<std::string>(&v)) {
        c.eType = kText;
        c.lPayload = oText.Add(*ps);
    } else if (const auto* pd = std::get_if<double>(&v)) {
        c.eType = kNumber;
        c.SetNumber(*pd);
    } else {
        c.eType = kEmpty;
        c.lPayload = 0;
    }
}

xlVariant xlWorksheet::Impl::ValueOf(const Cell& c) const {
    switch (c.eType) {
        case kText:
            return std::string(oText.Get(c.lPayload));
        case kNumber:
            return c.Number();
        case detail::kFormula:
            return std::string(detail::FormulaValueOf(oText.Get(c.lPayload)));
        default:
            return std::monostate{};
    }
}

void xlWorksheet::Impl::ApplyToCells(long r1, long c1, long r2, long c2, uint32_t lChange) {
    CheckCellCount(CellCount(r1, c1, r2, c2));
    Applier f(*pStyles, lChange);
    for (long r = r1; r <= r2; ++r) {
        ForSpan(*this, EnsureRow(r), c1, c2, [&](Cell& c) { c.lStyle = f(c.lStyle); });
    }
}

void xlWorksheet::Impl::ApplyToRows(long r1, long r2, uint32_t lChange) {
    Applier f(*pStyles, lChange);
    std::vector<Cell> arrNew;
    for (long r = r1; r <= r2; ++r) {
        RowRec& oRow = EnsureRow(r);
        const bool bWasFormatted = oRow.lStyle != kUnformatted;
        const uint32_t lNewRow = f(bWasFormatted ? oRow.lStyle : lSheetStyle);
        for (Cell& c : oRow.arrCells)
            c.lStyle = f(c.lStyle);
        if (!bWasFormatted) {
            // Where the row crosses a formatted column the cell showed the column's format;
            // it now shows that format changed, which the row's format may not be.
            auto& v = oRow.arrCells;
            for (uint16_t col : arrFormattedCols) {
                const uint32_t s = f(arrColStyle[col]);
                if (s == lNewRow) continue;
                auto it = std::lower_bound(v.begin(), v.end(), static_cast<long>(col),
                                           [](const Cell& c, long n) { return c.nCol < n; });
                if (it == v.end() || it->nCol != col) arrNew.push_back(NewCell(col, s));
            }
            InsertSorted(oRow, arrNew);
        }
        oRow.lStyle = lNewRow;
    }
}

void xlWorksheet::Impl::ApplyToColumns(long c1, long c2, uint32_t lChange) {
    // Formatted rows that went to the spool would need records where they cross the columns.
    CheckNoneSpooled();
    Applier f(*pStyles, lChange);
    for (long c = c1; c <= c2; ++c) {
        uint32_t& s = arrColStyle[c];
        if (s == kUnformatted) {
            s = f(lSheetStyle);
            arrFormattedCols.insert(
                std::lower_bound(arrFormattedCols.begin(), arrFormattedCols.end(), c),
                static_cast<uint16_t>(c));
        } else {
            s = f(s);
        }
    }
    arrRows.ForEachKept([&](size_t, RowRec& oRow) {
        if (oRow.lStyle == kUnformatted) {
            ForExisting(oRow, c1, c2, [&](Cell& c) { c.lStyle = f(c.lStyle); });
        } else {
            // A formatted row wins over the column: its cells get records where the change
            // makes them differ from the row.
            const uint32_t s = f(oRow.lStyle);
            if (s == oRow.lStyle) {
                ForExisting(oRow, c1, c2, [&](Cell& c) { c.lStyle = f(c.lStyle); });
            } else {
                ForSpan(*this, oRow, c1, c2, [&](Cell& c) { c.lStyle = f(c.lStyle); });
            }
        }
    });
}

void xlWorksheet::Impl::ApplyToSheet(uint32_t lChange) {
    if (SpoolFirst() != 0) arrSpoolChanges.push_back(lChange);
    Applier f(*pStyles, lChange);
    lSheetStyle = f(lSheetStyle);
    for (uint16_t col : arrFormattedCols)
        arrColStyle[col] = f(arrColStyle[col]);
    // Spooled rows that left memory take the change as they come back.
    arrRows.ForEachKept([&](size_t, RowRec& oRow) {
        if (oRow.lStyle != kUnformatted) oRow.lStyle = f(oRow.lStyle);
        for (Cell& c : oRow.arrCells)
            c.lStyle = f(c.lStyle);
    });
}

void xlWorksheet::Impl::AddMerged(const xlMergedArea& a) {
    const uint32_t lIndex = static_cast<uint32_t>(arrMerged.size());
    arrMerged.push_back(a);
    if (arrMergedRows.size() < static_cast<size_t>(a[2])) arrMergedRows.resize(a[2]);
    for (long r = a[0]; r <= a[2]; ++r) {
        // The saver finds the areas of spooled rows in the list itself.
        if (!Spooled(r)) arrMergedRows[r - 1].push_back(lIndex);
    }
}

void xlWorksheet::Impl::RemoveMerged(uint32_t lIndex) {
    auto Unlink = [&](const xlMergedArea& a, uint32_t lWhich) {
        for (long r = a[0]; r <= a[2]; ++r) {
            auto& v = arrMergedRows[r - 1];
            v.erase(std::remove(v.begin(), v.end(), lWhich), v.end());
        }
    };
    Unlink(arrMerged[lIndex], lIndex);
    const uint32_t lLast = static_cast<uint32_t>(arrMerged.size() - 1);
    if (lIndex != lLast) {
        const auto a = arrMerged[lLast];
        for (long r = a[0]; r <= a[2]; ++r) {
            for (uint32_t& x : arrMergedRows[r - 1]) {
                if (x == lLast) x = lIndex;
            }
        }
        arrMerged[lIndex] = a;
    }
    arrMerged.pop_back();
}

std::vector<uint32_t> xlWorksheet::Impl::MergedIntersecting(long r1, long c1, long r2,
                                                            long c2) const {
    std::vector<uint32_t> arrOut;
    auto bHit = [&](const xlMergedArea& a) {
        return a[0] <= r2 && a[2] >= r1 && a[1] <= c2 && a[3] >= c1;
    };
    if (static_cast<uint64_t>(r2 - r1 + 1) > arrMerged.size()) {
        for (uint32_t i = 0; i < arrMerged.size(); ++i) {
            if (bHit(arrMerged[i])) arrOut.push_back(i);
        }
        return arrOut;
    }
    const long rLast = std::min(r2, static_cast<long>(arrMergedRows.size()));
    for (long r = std::max(r1, 1L); r <= rLast; ++r) {
        for (uint32_t i : arrMergedRows[r - 1]) {
            if (bHit(arrMerged[i])) arrOut.push_back(i);
        }
    }
    std::sort(arrOut.begin(), arrOut.end());
    arrOut.erase(std::unique(arrOut.begin(), arrOut.end()), arrOut.end());
    return arrOut;
}

// ----------------------------------------------------------------------------------------------
// xlRange

xlRange::xlRange(xlWorksheet* pSheet, long lRow1, long lCol1, long lRow2, long lCol2)
    : pSheet_(pSheet),
      lRow1_(std::min(lRow1, lRow2)),
      lCol1_(std::min(lCol1, lCol2)),
      lRow2_(std::max(lRow1, lRow2)),
      lCol2_(std::max(lCol1, lCol2)) {
    if (!pSheet_) RaiseError(errObjectNotSet);
    const xlWorksheet::Impl& d = pSheet_->Data();
    CheckRow(d, lRow1_);
    CheckRow(d, lRow2_);
    CheckCol(d, lCol1_);
    CheckCol(d, lCol2_);
}

bool xlRange::IsWholeRows() const {
    return lCol1_ == 1 && lCol2_ == pSheet_->Data().lMaxCols;
}
bool xlRange::IsWholeColumns() const {
    return lRow1_ == 1 && lRow2_ == pSheet_->Data().lMaxRows;
}

void xlRange::Formula(const std::string& sFormula) {
    std::string sLocation, sText;
    if (!detail::ParseHyperlinkFormula(sFormula, sLocation, sText)) Fail();
    CheckValue(sText);
    xlWorksheet::Impl& d = pSheet_->Data();
    CheckCellCount(CellCount(lRow1_, lCol1_, lRow2_, lCol2_));
    const uint64_t lRef =
        d.oText.Add(detail::FormulaText(WorkbookText(sFormula), WorkbookText(sText)));
    for (long r = lRow1_; r <= lRow2_; ++r) {
        ForSpan(d, d.EnsureRow(r), lCol1_, lCol2_, [&](Cell& c) {
            c.eType = detail::kFormula;
            c.lPayload = lRef;
        });
    }
}

void xlRange::Value(const xlVariant& v) {
    if (const auto* ps = std::get_if<std::string>(&v)) {
        TextValue(*ps);
        return;
    }
    CheckValue(v);
    xlWorksheet::Impl& d = pSheet_->Data();
    if (std::holds_alternative<std::monostate>(v)) {
        // Clearing touches only the records there are.
        const long rLast = std::min<long>(lRow2_, static_cast<long>(d.arrRows.size()));
        d.CheckNotSpooled(lRow1_, rLast);
        for (long r = lRow1_; r <= rLast; ++r) {
            ForExisting(d.arrRows[r - 1], lCol1_, lCol2_,
                        [&](Cell& c) { d.SetValue(c, xlVariant()); });
        }
        return;
    }
    CheckCellCount(CellCount(lRow1_, lCol1_, lRow2_, lCol2_));
    for (long r = lRow1_; r <= lRow2_; ++r) {
        ForSpan(d, d.EnsureRow(r), lCol1_, lCol2_, [&](Cell& c) { d.SetValue(c, v); });
    }
}

// A text in every cell of the range, taken as it is given (no copy on the way).
void xlRange::TextValue(std::string_view s) {
    if (!detail::Utf16LengthAtMost(s, static_cast<size_t>(xlMaxCellText))) Fail();
    // Like the application, an empty text empties the cell.
    if (s.empty()) {
        Value(xlVariant());
        return;
    }
    xlWorksheet::Impl& d = pSheet_->Data();
    CheckCellCount(CellCount(lRow1_, lCol1_, lRow2_, lCol2_));
    // One stored copy of the text serves every cell of the range.
    const uint64_t lRef = d.oText.Add(s);
    for (long r = lRow1_; r <= lRow2_; ++r) {
        ForSpan(d, d.EnsureRow(r), lCol1_, lCol2_, [&](Cell& c) {
            c.eType = kText;
            c.lPayload = lRef;
        });
    }
}

xlVariant xlRange::GetValue() const {
    const xlWorksheet::Impl& d = pSheet_->Data();
    if (const Cell* c = d.FindCell(lRow1_, lCol1_)) return d.ValueOf(*c);
    return std::monostate{};
}

std::string xlRange::Text() const {
    const xlVariant v = GetValue();
    if (const auto* ps = std::get_if<std::string>(&v)) return *ps;
    if (const auto* pd = std::get_if<double>(&v)) return FormatNumber(*pd);
    return {};
}

void xlRange::ApplyStyle(const xlStyleChange& oChange) const {
    xlWorksheet::Impl& d = pSheet_->Data();
    const uint32_t lChange = d.pStyles->InternChange(oChange);
    const bool bRows = IsWholeRows(), bCols = IsWholeColumns();
    if (bRows && bCols) {
        d.ApplyToSheet(lChange);
    } else if (bRows) {
        d.ApplyToRows(lRow1_, lRow2_, lChange);
    } else if (bCols) {
        d.ApplyToColumns(lCol1_, lCol2_, lChange);
    } else {
        d.ApplyToCells(lRow1_, lCol1_, lRow2_, lCol2_, lChange);
    }
}

void xlRange::MergeCells(bool bMerge) {
    xlWorksheet::Impl& d = pSheet_->Data();
    long r1 = lRow1_, c1 = lCol1_, r2 = lRow2_, c2 = lCol2_;
    std::vector<uint32_t> arrHit = d.MergedIntersecting(r1, c1, r2, c2);
    if (!bMerge) {
        for (auto it = arrHit.rbegin(); it != arrHit.rend(); ++it)
            d.RemoveMerged(*it);
        return;
    }
    // The new area takes in every merged area it touches, until it touches no other.
    for (;;) {
        long n1 = r1, m1 = c1, n2 = r2, m2 = c2;
        for (uint32_t i : arrHit) {
            const auto& a = d.arrMerged[i];
            n1 = std::min<long>(n1, a[0]), m1 = std::min<long>(m1, a[1]);
            n2 = std::max<long>(n2, a[2]), m2 = std::max<long>(m2, a[3]);
        }
        if (n1 == r1 && m1 == c1 && n2 == r2 && m2 == c2) break;
        r1 = n1, c1 = m1, r2 = n2, c2 = m2;
        arrHit = d.MergedIntersecting(r1, c1, r2, c2);
    }
    if (r1 == r2 && c1 == c2) return;  // a single cell is not merged
    CheckCellCount(CellCount(r1, c1, r2, c2));
    for (auto it = arrHit.rbegin(); it != arrHit.rend(); ++it)
        d.RemoveMerged(*it);
    // The top-left value stays, the others go; every cell takes the top-left cell's format.
    const uint32_t lAnchorStyle = d.EffectiveStyleId(r1, c1);
    for (long r = r1; r <= r2; ++r) {
        ForSpan(d, d.EnsureRow(r), c1, c2, [&](Cell& c) {
            if (r != r1 || c.nCol != c1) d.SetValue(c, std::monostate{});
            c.lStyle = lAnchorStyle;
        });
    }
    d.AddMerged(MergedArea(r1, c1, r2, c2));
}

bool xlRange::GetMergeCells() const {
    const xlWorksheet::Impl& d = pSheet_->Data();
    const auto arrHit = d.MergedIntersecting(lRow1_, lCol1_, lRow2_, lCol2_);
    if (arrHit.empty()) return false;
    uint64_t lCovered = 0;
    for (uint32_t i : arrHit) {
        const auto& a = d.arrMerged[i];
        lCovered += CellCount(std::max<long>(a[0], lRow1_), std::max<long>(a[1], lCol1_),
                              std::min<long>(a[2], lRow2_), std::min<long>(a[3], lCol2_));
    }
    return lCovered == CellCount(lRow1_, lCol1_, lRow2_, lCol2_);
}

void xlRange::HorizontalAlignment(long lAlign) {
    if (!IsHorizontalAlignment(lAlign)) Fail();
    ApplyStyle(MakeChange(xlStyleChange::kHorizontal, lAlign));
}

void xlRange::VerticalAlignment(long lAlign) {
    if (!IsVerticalAlignment(lAlign)) Fail();
    ApplyStyle(MakeChange(xlStyleChange::kVertical, lAlign));
}

void xlRange::WrapText(bool bWrap) {
    ApplyStyle(MakeChange(xlStyleChange::kWrap, bWrap));
}

void xlRange::NumberFormat(const std::string& sFormat) {
    if (sFormat.empty() || detail::Utf16Length(sFormat) > 255) Fail();
    xlStyleChange c = MakeChange(xlStyleChange::kNumberFormat, 0);
    c.sValue = sFormat;
    ApplyStyle(c);
}

void xlRange::RowHeight(double dHeight) {
    if (!(dHeight >= 0 && dHeight <= 409)) Fail();
    xlWorksheet::Impl& d = pSheet_->Data();
    const uint16_t nTwips = static_cast<uint16_t>(std::lround(dHeight * 20));
    if (IsWholeColumns()) {
        // Every row: the sheet's standard height changes and no row keeps its own.
        d.CheckNoneSpooled();
        d.dDefaultRowHeight = nTwips / 20.0;
        d.arrRows.ForEachKept([](size_t, RowRec& oRow) { oRow.nHeightTwips = detail::kNoHeight; });
        return;
    }
    for (long r = lRow1_; r <= lRow2_; ++r)
        d.EnsureRow(r).nHeightTwips = nTwips;
}

void xlRange::ColumnWidth(double dWidth) {
    if (!(dWidth >= 0 && dWidth <= 255)) Fail();
    xlWorksheet::Impl& d = pSheet_->Data();
    for (long c = lCol1_; c <= lCol2_; ++c)
        d.arrColWidth[c] = static_cast<float>(dWidth);
}

void xlRange::AutoFit() {
    xlWorksheet::Impl& d = pSheet_->Data();
    if (IsWholeColumns()) {
        detail::FitColumnWidths(d, lCol1_, lCol2_);
    } else if (IsWholeRows()) {
        const long rLast = std::min<long>(lRow2_, static_cast<long>(d.arrRows.size()));
        d.CheckNotSpooled(lRow1_, rLast);
        for (long r = lRow1_; r <= rLast; ++r)
            d.arrRows[static_cast<size_t>(r - 1)].nHeightTwips = detail::kNoHeight;
    } else {
        Fail();
    }
}

void xlRange::OutlineLevel(long lLevel) {
    if (lLevel < 1 || lLevel > 8 || !IsWholeRows() || IsWholeColumns()) Fail();
    xlWorksheet::Impl& d = pSheet_->Data();
    for (long r = lRow1_; r <= lRow2_; ++r)
        d.EnsureRow(r).nOutline = static_cast<uint8_t>(lLevel - 1);
}

void xlRange::AutoFilter() {
    pSheet_->Data().arrAutoFilter = {lRow1_, lCol1_, lRow2_, lCol2_};
}

std::string xlRange::Address() const {
    return AddressOf(pSheet_->Data(), lRow1_, lCol1_, lRow2_, lCol2_);
}

std::string xlRange::AddressExternal() const {
    return detail::QuoteSheetName(pSheet_->Name()) + "!" + Address();
}

void xlRange::Copy(const xlRange& oDestination) const {
    xlWorksheet::Impl& s = pSheet_->Data();
    xlWorksheet::Impl& t = oDestination.pSheet_->Data();
    const long h = lRow2_ - lRow1_ + 1, w = lCol2_ - lCol1_ + 1;
    const long R = oDestination.lRow1_, C = oDestination.lCol1_;
    const bool bOneCell =
        oDestination.lRow1_ == oDestination.lRow2_ && oDestination.lCol1_ == oDestination.lCol2_;
    if (!bOneCell && (oDestination.lRow2_ - R + 1 != h || oDestination.lCol2_ - C + 1 != w)) {
        Fail();
    }
    if (R - 1 > t.lMaxRows - h || C - 1 > t.lMaxCols - w) Fail();
    const long dr = R - lRow1_, dc = C - lCol1_;
    const long R2 = R + h - 1, C2 = C + w - 1;
    const bool bRows = IsWholeRows(), bCols = IsWholeColumns();
    const bool bBounded = !bRows && !bCols;
    if (bBounded) CheckCellCount(CellCount(lRow1_, lCol1_, lRow2_, lCol2_));
    s.CheckNotSpooled(lRow1_, lRow2_);
    t.CheckNotSpooled(R, R2);

    // A paste may not cover part of a merged area.
    const auto arrDestMerged = t.MergedIntersecting(R, C, R2, C2);
    for (uint32_t i : arrDestMerged) {
        const auto& a = t.arrMerged[i];
        if (a[0] < R || a[1] < C || a[2] > R2 || a[3] > C2) Fail();
    }

    // Formats of the source in the destination's table.
    const bool bSameTable = s.pStyles == t.pStyles;
    std::unordered_map<uint32_t, uint32_t> mapStyle;
    auto Map = [&](uint32_t lId) -> uint32_t {
        if (bSameTable || lId == kUnformatted) return lId;
        auto it = mapStyle.find(lId);
        if (it != mapStyle.end()) return it->second;
        const uint32_t lNew = t.pStyles->Intern(s.pStyles->Get(lId));
        mapStyle.emplace(lId, lNew);
        return lNew;
    };

    // Snapshot of the source: its records and, for a bounded area, what every other cell
    // shows. Texts stay in the source's arena, which only grows.
    struct Item {
        long r, c;
        uint8_t eType;
        uint32_t lStyle;
        uint64_t lPayload;
    };
    std::vector<Item> arrItems;
    const long rLast = std::min<long>(lRow2_, static_cast<long>(s.arrRows.size()));
    for (long r = lRow1_; r <= (bBounded ? lRow2_ : rLast); ++r) {
        const RowRec* pRow = s.FindRow(r);
        if (!bBounded) {
            ForExisting(*pRow, lCol1_, lCol2_, [&](const Cell& c) {
                arrItems.push_back({r, c.nCol, c.eType, c.lStyle, c.lPayload});
            });
            continue;
        }
        long c = lCol1_;
        auto Fill = [&](long cEnd) {
            for (; c < cEnd; ++c)
                arrItems.push_back({r, c, kEmpty, s.Background(r, c), 0});
        };
        if (pRow) {
            ForExisting(*pRow, lCol1_, lCol2_, [&](const Cell& x) {
                Fill(x.nCol);
                arrItems.push_back({r, c, x.eType, x.lStyle, x.lPayload});
                ++c;
            });
        }
        Fill(lCol2_ + 1);
    }
    struct RowFormat {
        long r;
        uint32_t lStyle;
        uint16_t nHeight;
    };
    std::vector<RowFormat> arrRowFormats;
    if (bRows) {
        for (long r = lRow1_; r <= rLast; ++r) {
            const RowRec& o = s.arrRows[r - 1];
            arrRowFormats.push_back({r, o.lStyle, o.nHeightTwips});
        }
    }
    std::vector<std::pair<uint32_t, float>> arrColFormats;
    if (bCols) {
        for (long c = lCol1_; c <= lCol2_; ++c) {
            arrColFormats.emplace_back(s.arrColStyle[c], s.arrColWidth[c]);
        }
    }
    std::vector<xlMergedArea> arrMerges;
    for (uint32_t i : s.MergedIntersecting(lRow1_, lCol1_, lRow2_, lCol2_)) {
        const auto& a = s.arrMerged[i];
        if (a[0] >= lRow1_ && a[1] >= lCol1_ && a[2] <= lRow2_ && a[3] <= lCol2_) {
            arrMerges.push_back(MergedArea(a[0] + dr, a[1] + dc, a[2] + dr, a[3] + dc));
        }
    }
    std::vector<xlHyperlinkEntry> arrLinks;
    const auto& arrSrcLinks = pSheet_->Hyperlinks().arr_;
    auto TakeLink = [&](const xlHyperlinkEntry& e) {
        if (e.lRow < lRow1_ || e.lRow > lRow2_ || e.lCol < lCol1_ || e.lCol > lCol2_) return;
        xlHyperlinkEntry x = e;
        x.lRow += dr;
        x.lCol += dc;
        if (x.pTexts != &t.oText) {  // another workbook's link: its texts come along
            x = xlHyperlinkEntry(x.lRow, x.lCol, t.oText, detail::LinkText(t.oText, e.Address()),
                                 detail::LinkText(t.oText, e.SubAddress()),
                                 detail::LinkText(t.oText, e.ScreenTip()));
        }
        arrLinks.push_back(std::move(x));
    };
    if (bBounded && CellCount(lRow1_, lCol1_, lRow2_, lCol2_) < arrSrcLinks.size()) {
        for (const Item& it : arrItems) {
            auto f = s.mapLinks.find(detail::CellKey(it.r, it.c));
            if (f != s.mapLinks.end()) TakeLink(arrSrcLinks[f->second]);
        }
    } else {
        for (const auto& e : arrSrcLinks)
            TakeLink(e);
    }
    // The pasted area's own links give way to the copied ones.
    xlHyperlinks& oLinks = oDestination.pSheet_->Hyperlinks();
    auto bInDest = [&](const xlHyperlinkEntry& e) {
        return e.lRow >= R && e.lRow <= R2 && e.lCol >= C && e.lCol <= C2;
    };
    const size_t lKept = oLinks.arr_.size() - static_cast<size_t>(std::count_if(
                                                  oLinks.arr_.begin(), oLinks.arr_.end(), bInDest));
    if (lKept + arrLinks.size() > static_cast<size_t>(xlMaxHyperlinks)) Fail();

    // Write the destination: clear its records in the area, then put the copies in.
    for (auto it = arrDestMerged.rbegin(); it != arrDestMerged.rend(); ++it)
        t.RemoveMerged(*it);
    const long tLast = std::min<long>(R2, static_cast<long>(t.arrRows.size()));
    for (long r = R; r <= tLast; ++r) {
        auto& v = t.arrRows[r - 1].arrCells;
        auto lo = std::lower_bound(v.begin(), v.end(), C,
                                   [](const Cell& c, long n) { return c.nCol < n; });
        auto hi =
            std::lower_bound(lo, v.end(), C2 + 1, [](const Cell& c, long n) { return c.nCol < n; });
        v.erase(lo, hi);
    }
    for (const RowFormat& f : arrRowFormats) {
        RowRec& o = t.EnsureRow(f.r + dr);
        o.lStyle = Map(f.lStyle);
        o.nHeightTwips = f.nHeight;
    }
    for (long k = 0; k < static_cast<long>(arrColFormats.size()); ++k) {
        const long c = C + k;
        const uint32_t lStyle = Map(arrColFormats[k].first);
        if (lStyle != kUnformatted && t.arrColStyle[c] == kUnformatted) {
            t.arrFormattedCols.insert(
                std::lower_bound(t.arrFormattedCols.begin(), t.arrFormattedCols.end(), c),
                static_cast<uint16_t>(c));
        }
        if (lStyle != kUnformatted) t.arrColStyle[c] = lStyle;
        t.arrColWidth[c] = arrColFormats[k].second;
    }
    std::vector<Cell> arrNew;
    long rCur = -1;
    auto Flush = [&] {
        if (rCur > 0) InsertSorted(t.EnsureRow(rCur), arrNew);
    };
    for (const Item& it : arrItems) {
        const long r = it.r + dr, c = it.c + dc;
        if (r != rCur) {
            Flush();
            rCur = r;
        }
        const uint32_t lStyle = Map(it.lStyle);
        if (it.eType == kEmpty && lStyle == t.Background(r, c)) continue;
        Cell x = NewCell(c, lStyle);
        x.eType = it.eType;
        x.lPayload = it.lPayload;
        if ((it.eType == kText || it.eType == detail::kFormula) && s.pTexts != t.pTexts) {
            x.lPayload = t.oText.Add(s.oText.Get(it.lPayload));
        }
        arrNew.push_back(x);
    }
    Flush();
    for (const auto& a : arrMerges)
        t.AddMerged(a);
    if (lKept != oLinks.arr_.size() || !arrLinks.empty()) t.bLinksNoted = false;
    if (lKept != oLinks.arr_.size()) {
        auto& v = oLinks.arr_;
        v.erase(std::remove_if(v.begin(), v.end(), bInDest), v.end());
        t.mapLinks.clear();
        for (size_t i = 0; i < v.size(); ++i) {
            t.mapLinks.emplace(detail::CellKey(v[i].lRow, v[i].lCol), static_cast<uint32_t>(i));
        }
    }
    for (auto& e : arrLinks) {
        t.mapLinks.emplace(detail::CellKey(e.lRow, e.lCol),
                           static_cast<uint32_t>(oLinks.arr_.size()));
        oLinks.arr_.push_back(std::move(e));
    }
}

// ----------------------------------------------------------------------------------------------
// Font, interior, borders

xlFont::xlFont(const xlRange& r) : r_(r) {}

void xlFont::FontStyle(const std::string& sStyle) {
    const std::string u = Upper(sStyle);
    long l;
    if (u == "REGULAR") {
        l = 0;
    } else if (u == "BOLD") {
        l = 1;
    } else if (u == "ITALIC") {
        l = 2;
    } else if (u == "BOLD ITALIC") {
        l = 3;
    } else {
        Fail();
    }
    r_.ApplyStyle(MakeChange(xlStyleChange::kFontStyle, l));
}

void xlFont::Bold(bool b) {
    r_.ApplyStyle(MakeChange(xlStyleChange::kBold, b));
}
void xlFont::Italic(bool b) {
    r_.ApplyStyle(MakeChange(xlStyleChange::kItalic, b));
}

void xlFont::Underline(long lStyle) {
    if (lStyle != xlUnderlineStyleSingle && lStyle != xlUnderlineStyleNone) Fail();
    r_.ApplyStyle(MakeChange(xlStyleChange::kUnderline, lStyle == xlUnderlineStyleSingle));
}

void xlFont::ColorIndex(long lIndex) {
    r_.ApplyStyle(MakeChange(xlStyleChange::kFontColor, ColorIndexValue(lIndex)));
}

void xlFont::Size(double dSize) {
    if (!(dSize >= 1 && dSize <= 409)) Fail();
    xlStyleChange c = MakeChange(xlStyleChange::kFontSize, 0);
    c.dValue = dSize;
    r_.ApplyStyle(c);
}

xlInterior::xlInterior(const xlRange& r) : r_(r) {}

void xlInterior::ColorIndex(long lIndex) {
    r_.ApplyStyle(MakeChange(xlStyleChange::kInterior, ColorIndexValue(lIndex)));
}

xlBorder::xlBorder(const xlRange& r, long lIndex) : r_(r), lIndex_(lIndex) {}

// An edge border is set on the cells along that edge of the range.
void xlBorder::LineStyle(long lStyle) {
    const long lValue = LineStyleValue(lStyle);
    xlWorksheet* p = r_.Sheet();
    switch (lIndex_) {
        case xlEdgeLeft:
            xlRange(p, r_.Row(), r_.Column(), r_.LastRow(), r_.Column())
                .ApplyStyle(MakeChange(xlStyleChange::kBorderLeft, lValue));
            break;
        case xlEdgeTop:
            xlRange(p, r_.Row(), r_.Column(), r_.Row(), r_.LastColumn())
                .ApplyStyle(MakeChange(xlStyleChange::kBorderTop, lValue));
            break;
        case xlEdgeBottom:
            xlRange(p, r_.LastRow(), r_.Column(), r_.LastRow(), r_.LastColumn())
                .ApplyStyle(MakeChange(xlStyleChange::kBorderBottom, lValue));
            break;
        case xlEdgeRight:
            xlRange(p, r_.Row(), r_.LastColumn(), r_.LastRow(), r_.LastColumn())
                .ApplyStyle(MakeChange(xlStyleChange::kBorderRight, lValue));
            break;
        default:
            Fail();
    }
}

// ----------------------------------------------------------------------------------------------
// Names, hyperlinks, page set-up

void xlNames::Add(const std::string& sName, const xlRange& oRefersTo) {
    if (!IsValidDefinedName(sName)) Fail();
    if (oRefersTo.Sheet() != pSheet_) Fail();
    xlNameEntry e;
    e.sName = sName;
    e.lRow1 = oRefersTo.Row();
    e.lCol1 = oRefersTo.Column();
    e.lRow2 = oRefersTo.LastRow();
    e.lCol2 = oRefersTo.LastColumn();
    // Names do not tell case apart: adding one again redefines it.
    auto& m = pSheet_->Data().mapNames;
    if (const auto it = m.find(std::string_view(sName)); it != m.end()) {
        arr_[*it] = std::move(e);
        return;
    }
    arr_.push_back(std::move(e));
    m.insert(static_cast<uint32_t>(arr_.size() - 1));
}

std::string_view xlHyperlinkEntry::Text(uint64_t lRef) const {
    return lRef == kNoText ? std::string_view() : pTexts->Get(lRef);
}

uint64_t detail::LinkText(TextArena& oTexts, std::string_view s) {
    if (s.empty()) return xlHyperlinkEntry::kNoText;
    return IsWorkbookText(s) ? oTexts.Add(s) : oTexts.Add(WorkbookText(s));
}

void xlHyperlinks::Add(const xlRange& oAnchor, const std::string& sAddress,
                       const std::string& sSubAddress, const std::string& sScreenTip,
                       const std::optional<std::string>& sTextToDisplay) {
    if (oAnchor.Sheet() != pSheet_) Fail();
    // A link to nowhere (a file line without a file name) is no link: the cell stays as it is.
    if (sAddress.empty() && sSubAddress.empty()) return;
    if (detail::LinkCheckedLength(detail::LinkTarget(sAddress, sSubAddress)) >
        detail::kMaxLinkLength) {
        Fail();
    }
    if (detail::Utf16Length(sScreenTip) > 255) Fail();
    if (sTextToDisplay) CheckValue(*sTextToDisplay);
    xlWorksheet::Impl& d = pSheet_->Data();
    const long r = oAnchor.Row(), c = oAnchor.Column();
    const uint64_t k = detail::CellKey(r, c);
    auto it = d.mapLinks.find(k);
    // A sheet that continues on new sheets takes any number: its blocks go to sheets with room.
    if (it == d.mapLinks.end() && !d.bContinues &&
        arr_.size() >= static_cast<size_t>(xlMaxHyperlinks)) {
        Fail();
    }

    xlHyperlinkEntry e(r, c, d.oText, detail::LinkText(d.oText, sAddress),
                       detail::LinkText(d.oText, sSubAddress),
                       detail::LinkText(d.oText, sScreenTip));
    if (it != d.mapLinks.end()) {
        arr_[it->second] = std::move(e);
    } else {
        d.mapLinks.emplace(k, static_cast<uint32_t>(arr_.size()));
        arr_.push_back(std::move(e));
    }
    // The cell keeps its text; an empty one shows the address. It takes the look of a link.
    d.EnsureRow(r).bLinked = true;
    Cell& oCell = d.GetOrCreate(r, c);
    if (sTextToDisplay) {
        d.SetValue(oCell, *sTextToDisplay);
    } else if (oCell.eType == kEmpty) {
        d.SetValue(oCell, sAddress.empty() ? sSubAddress : sAddress);
    }
    oCell.lStyle = LinkLook(*d.pStyles, oCell.lStyle);
}

void xlHyperlinks::Promise(const xlRange& oAnchor, const std::string& sAddress,
                           const std::string& sSubAddress) {
    if (oAnchor.Sheet() != pSheet_) Fail();
    xlWorksheet::Impl& d = pSheet_->Data();
    // Rows that went ahead were written without it.
    if (d.SpoolFirst() != 0) d.StopWriteAhead();
    if (!d.pAhead || (sAddress.empty() && sSubAddress.empty())) return;
    const uint64_t k = detail::CellKey(oAnchor.Row(), oAnchor.Column());
    // Out of order, or more links than the sheet holds: its blocks will continue elsewhere.
    if ((!d.arrPromisedLinks.empty() && d.arrPromisedLinks.back().lKey >= k) ||
        d.mapLinks.size() + d.lPromisedLinks >= static_cast<size_t>(xlMaxHyperlinks)) {
        d.StopWriteAhead();
        return;
    }
    d.arrPromisedLinks.push_back({k, detail::LinkText(d.oText, sAddress),
                                  detail::LinkText(d.oText, sSubAddress),
                                  xlHyperlinkEntry::kNoText});
    ++d.lPromisedLinks;
}

void xlHyperlinks::PromiseFormula(const xlRange& oAnchor, const std::string& sFormula) {
    if (oAnchor.Sheet() != pSheet_) Fail();
    std::string sLocation, sText;
    if (!detail::ParseHyperlinkFormula(sFormula, sLocation, sText)) Fail();
    CheckValue(sText);
    xlWorksheet::Impl& d = pSheet_->Data();
    if (d.SpoolFirst() != 0) d.StopWriteAhead();
    if (!d.pAhead) return;
    const uint64_t k = detail::CellKey(oAnchor.Row(), oAnchor.Column());
    if (!d.arrPromisedLinks.empty() && d.arrPromisedLinks.back().lKey >= k) {
        d.StopWriteAhead();
        return;
    }
    const uint64_t lFormula =
        d.oText.Add(detail::FormulaText(WorkbookText(sFormula), WorkbookText(sText)));
    d.arrPromisedLinks.push_back(
        {k, xlHyperlinkEntry::kNoText, xlHyperlinkEntry::kNoText, lFormula});
    ++d.lPromisedFormulas;
}

bool xlWorksheet::Impl::PromisedLink::IsFormula() const {
    return lFormula != xlHyperlinkEntry::kNoText;
}

void xlWorksheet::WriteAhead() {
    Impl& d = *pImpl_;
    // The first sheet of an .xlsx workbook, before any of its rows went to the spool.
    if (!pBook_ || !d.bStream || d.pAhead || d.SpoolFirst() != 0 || pBook_->pAhead_) return;
    if (pBook_->FileFormat() != xlOpenXMLWorkbook || &pBook_->Worksheets().Item(1) != this) return;
    std::shared_ptr<detail::WriteAhead> p = detail::BeginWriteAhead(*pBook_, *this);
    if (!p) return;
    d.pAhead = p.get();
    pBook_->pAhead_ = std::move(p);
}

bool xlWorksheet::WritesAhead() const {
    return pImpl_->pAhead != nullptr;
}

void xlWorksheet::PromiseVerticalAlignment(long lAlign) {
    if (!IsVerticalAlignment(lAlign)) Fail();
    Impl& d = *pImpl_;
    if (d.SpoolFirst() != 0) d.StopWriteAhead();
    if (!d.pAhead) return;
    d.arrPromisedChanges.push_back(
        d.pStyles->InternChange(MakeChange(xlStyleChange::kVertical, lAlign)));
}

uint32_t xlWorksheet::Impl::Promised(uint32_t lStyle) {
    if (lStyle == kUnformatted) return lStyle;
    for (uint32_t lChange : arrPromisedChanges)
        lStyle = pStyles->Apply(lStyle, lChange);
    return lStyle;
}

bool xlWorksheet::Impl::ApplyPromises(RowRec& o, long lRow, size_t& lNextLink) {
    bool bKept = true;
    const uint64_t kFirst = detail::CellKey(lRow, 0), kEnd = detail::CellKey(lRow + 1, 0);
    while (lNextLink < arrPromisedLinks.size() && arrPromisedLinks[lNextLink].lKey < kFirst)
        ++lNextLink;
    for (; lNextLink < arrPromisedLinks.size() && arrPromisedLinks[lNextLink].lKey < kEnd;
         ++lNextLink) {
        const PromisedLink& p = arrPromisedLinks[lNextLink];
        const long lCol = static_cast<long>(p.lKey & 0xFFFF);
        auto it = std::lower_bound(o.arrCells.begin(), o.arrCells.end(), lCol,
                                   [](const Cell& c, long n) { return c.nCol < n; });
        if (it == o.arrCells.end() || it->nCol != lCol || it->eType == kEmpty) {
            bKept = false;
            continue;
        }
        if (p.IsFormula()) {
            it->eType = detail::kFormula;
            it->lPayload = p.lFormula;
        }
        it->lStyle = LinkLook(*pStyles, it->lStyle);
    }
    if (arrPromisedChanges.empty()) return bKept;
    o.lStyle = Promised(o.lStyle);
    for (Cell& c : o.arrCells)
        c.lStyle = Promised(c.lStyle);
    return bKept;
}

void xlWorksheet::Impl::StopWriteAhead() {
    if (pAhead) detail::StopWriteAhead(*pAhead);
    pAhead = nullptr;
}

std::string xlNames::RefersTo(const xlNameEntry& e) const {
    return "=" + detail::QuoteSheetName(pSheet_->Name()) + "!" +
           AddressOf(pSheet_->Data(), e.lRow1, e.lCol1, e.lRow2, e.lCol2);
}

const xlNameEntry* xlNames::Find(const std::string& sName) const {
    const auto& m = pSheet_->Data().mapNames;
    const auto it = m.find(std::string_view(sName));
    return it == m.end() ? nullptr : &arr_[*it];
}

long xlHyperlinks::Count() const {
    return static_cast<long>(arr_.size());
}

void xlPageSetup::Orientation(long l) {
    if (l != xlPortrait && l != xlLandscape) Fail();
    lOrientation = l;
}

void xlPageSetup::PrintTitleRows(const std::string& sAddress) {
    if (sAddress.empty()) {
        sPrintTitleRows.clear();
        lTitleRow1 = lTitleRow2 = 0;
        return;
    }
    const long lMaxRows = pSheet_ ? pSheet_->MaxRows() : xlMaxRows;
    const long lMaxCols = pSheet_ ? pSheet_->MaxColumns() : xlMaxColumns;
    long r1, c1, r2, c2;
    if (!ParseAddress(sAddress, lMaxRows, lMaxCols, r1, c1, r2, c2)) Fail();
    if (r1 == 1 && r2 == lMaxRows) Fail();  // columns are not title rows
    sPrintTitleRows = sAddress;
    lTitleRow1 = r1;
    lTitleRow2 = r2;
}

void xlPageSetup::CenterFooter(const std::string& s) {
    // The whole footer, with its section code, may hold 255 characters (bytes, to be safe).
    if (s.size() + 2 > 255) Fail();
    sCenterFooter = s;
}

void xlPageSetup::PrintArea(const std::string& sAddress) {
    if (sAddress.empty()) {
        sPrintArea.clear();
        lAreaRow1 = lAreaCol1 = lAreaRow2 = lAreaCol2 = 0;
        return;
    }
    long r1, c1, r2, c2;
    if (!ParseAddress(sAddress, pSheet_ ? pSheet_->MaxRows() : xlMaxRows,
                      pSheet_ ? pSheet_->MaxColumns() : xlMaxColumns, r1, c1, r2, c2)) {
        Fail();
    }
    sPrintArea = sAddress;
    lAreaRow1 = r1, lAreaCol1 = c1, lAreaRow2 = r2, lAreaCol2 = c2;
}

void xlPageSetup::Zoom(long lPercent) {
    if (lPercent != 0 && (lPercent < 10 || lPercent > 400)) Fail();
    lZoom = lPercent;
}

void xlPageSetup::FitToPagesWide(long lPages) {
    if (lPages < 0 || lPages > 32767) Fail();
    lFitToPagesWide = lPages;
}

void xlPageSetup::FitToPagesTall(long lPages) {
    if (lPages < 0 || lPages > 32767) Fail();
    lFitToPagesTall = lPages;
}

// ----------------------------------------------------------------------------------------------
// Worksheets, workbooks, application

xlWorksheet::xlWorksheet(xlWorkbook* pBook, std::string sName)
    : pBook_(pBook),
      sName_(std::move(sName)),
      oPageSetup_(this),
      oNames_(this),
      oHyperlinks_(this),
      pImpl_(
          std::make_unique<Impl>(pBook ? pBook->Styles() : std::make_shared<xlStyleTable>(),
                                 pBook ? pBook->Texts() : std::make_shared<detail::TextArena>())) {
    // The names are found by their texts in the sheet's list.
    const detail::NameKey oKey{&oNames_.arr_};
    pImpl_->mapNames = detail::NameSet(0, oKey, oKey);
    if (pBook && pBook->FileFormat() == xlExcel8) {
        pImpl_->lMaxRows = xlMaxRowsXls;
        pImpl_->lMaxCols = xlMaxColumnsXls;
    }
}

xlWorksheet::~xlWorksheet() = default;

void xlWorksheet::Name(const std::string& sName) {
    const size_t n = detail::Utf16Length(sName);
    if (n < 1 || n > 31 || sName.find_first_of(":\\/?*[]") != std::string::npos ||
        sName.front() == '\'' || sName.back() == '\'') {
        Fail();
    }
    if (pBook_) {
        const xlWorksheet* pOther = pBook_->Worksheets().Find(sName);
        if (pOther && pOther != this) Fail();
    }
    sName_ = sName;
}

xlRange xlWorksheet::Cells() {
    return xlRange(this, 1, 1, pImpl_->lMaxRows, pImpl_->lMaxCols);
}
xlRange xlWorksheet::Cells(long lRow, long lCol) {
    return xlRange(this, lRow, lCol, lRow, lCol);
}

xlRange xlWorksheet::Range(const xlRange& a, const xlRange& b) {
    if (a.Sheet() != this || b.Sheet() != this) Fail();
    return xlRange(this, std::min(a.Row(), b.Row()), std::min(a.Column(), b.Column()),
                   std::max(a.LastRow(), b.LastRow()), std::max(a.LastColumn(), b.LastColumn()));
}

xlRange xlWorksheet::Range(const std::string& sAddress) {
    long r1, c1, r2, c2;
    if (!ParseAddress(sAddress, pImpl_->lMaxRows, pImpl_->lMaxCols, r1, c1, r2, c2)) Fail();
    return xlRange(this, r1, c1, r2, c2);
}

xlRange xlWorksheet::Rows() {
    return Cells();
}
xlRange xlWorksheet::Rows(long lRow) {
    return xlRange(this, lRow, 1, lRow, pImpl_->lMaxCols);
}
xlRange xlWorksheet::Columns() {
    return Cells();
}
xlRange xlWorksheet::Columns(long lCol) {
    return xlRange(this, 1, lCol, pImpl_->lMaxRows, lCol);
}

std::optional<xlCellView> xlWorksheet::GetCell(long lRow, long lCol) const {
    if (lRow < 1 || lRow > pImpl_->RowLimit() || lCol < 1 || lCol > pImpl_->lMaxCols) {
        return std::nullopt;
    }
    const Cell* c = pImpl_->FindCell(lRow, lCol);
    if (!c) return std::nullopt;
    xlCellView v{pImpl_->ValueOf(*c), pImpl_->pStyles->Get(c->lStyle), std::string()};
    if (c->eType == detail::kFormula) {
        v.sFormula = std::string(detail::FormulaOf(pImpl_->oText.Get(c->lPayload)));
    }
    return v;
}

xlStyle xlWorksheet::EffectiveStyle(long lRow, long lCol) const {
    CheckRow(*pImpl_, lRow);
    CheckCol(*pImpl_, lCol);
    return pImpl_->pStyles->Get(pImpl_->EffectiveStyleId(lRow, lCol));
}

double xlWorksheet::RowHeightOf(long lRow) const {
    CheckRow(*pImpl_, lRow);
    const RowRec* p = pImpl_->FindRow(lRow);
    if (p && p->nHeightTwips != detail::kNoHeight) return p->nHeightTwips / 20.0;
    return pImpl_->dDefaultRowHeight;
}

double xlWorksheet::ColumnWidthOf(long lCol) const {
    CheckCol(*pImpl_, lCol);
    const float w = pImpl_->arrColWidth[lCol];
    return w >= 0 ? static_cast<double>(w) : detail::kDefaultColumnWidth;
}

double xlWorksheet::EffectiveRowHeight(long lRow) const {
    CheckRow(*pImpl_, lRow);
    if (HasOwnRowHeight(lRow)) return RowHeightOf(lRow);
    const double dFitted = detail::RowFitter(*pImpl_).Fit(lRow);
    return dFitted > 0 ? dFitted : pImpl_->dDefaultRowHeight;
}

bool xlWorksheet::HasOwnRowHeight(long lRow) const {
    CheckRow(*pImpl_, lRow);
    const RowRec* p = pImpl_->FindRow(lRow);
    return p && p->nHeightTwips != detail::kNoHeight;
}

long detail::LastShownColumn(const xlWorksheet::Impl& d, const RowRec& o) {
    return LastShownColumn(o, [&](long lCol) { return d.Background(o, lCol); });
}

void xlWorksheet::ReleaseContents() {
    Impl& d = *pImpl_;
    d.arrRows.clear();
    d.arrRows.shrink_to_fit();
    d.arrMergedRows.clear();
    d.arrMergedRows.shrink_to_fit();
    std::vector<xlMergedArea>().swap(d.arrMerged);
    std::unordered_map<uint64_t, uint32_t>().swap(d.mapLinks);
    d.pSpool.reset();
    d.bSpoolOwner = false;
    d.arrSpoolChanges.clear();
    d.bStream = false;
    std::vector<std::vector<detail::Cell>>().swap(d.arrSpareCells);
    std::vector<xlHyperlinkEntry>().swap(oHyperlinks_.arr_);
}

void xlWorksheet::ReleaseNames() {
    auto& m = pImpl_->mapNames;
    detail::NameSet(0, m.hash_function(), m.key_eq()).swap(m);
    std::vector<xlNameEntry>().swap(oNames_.arr_);
}

// Rows in the spool count as they were when they went.
long xlWorksheet::UsedLastRow() const {
    const Impl& d = *pImpl_;
    for (size_t r = d.arrRows.size(); r > 0; --r) {
        if (d.Spooled(static_cast<long>(r))) {
            if (const long x = d.SpooledLastShownRow(); x != 0) return x;
            r = static_cast<size_t>(d.SpoolFirst());  // on below the spooled rows
            continue;
        }
        if (detail::LastShownColumn(d, d.arrRows[r - 1]) != 0) return static_cast<long>(r);
    }
    return 0;
}

long xlWorksheet::UsedLastColumn() const {
    const Impl& d = *pImpl_;
    long n = d.SpooledLastShownColumn();
    d.arrRows.ForEachKept([&](size_t, const RowRec& o) {
        if (!o.arrCells.empty() && o.arrCells.back().nCol > n) {
            n = std::max(n, detail::LastShownColumn(d, o));
        }
    });
    return n;
}

long xlWorksheet::MaxRows() const {
    return pImpl_->lMaxRows;
}

long xlWorksheet::MaxColumns() const {
    return pImpl_->lMaxCols;
}

const std::vector<xlMergedArea>& xlWorksheet::MergedAreas() const {
    return pImpl_->arrMerged;
}

void xlWorksheet::FreezePanes(long lRow, long lCol) {
    CheckRow(*pImpl_, lRow);
    CheckCol(*pImpl_, lCol);
    pImpl_->lFrozenRows = lRow - 1;
    pImpl_->lFrozenCols = lCol - 1;
}

long xlWorksheet::FrozenRows() const {
    return pImpl_->lFrozenRows;
}

long xlWorksheet::FrozenColumns() const {
    return pImpl_->lFrozenCols;
}

void xlWorksheet::OutlineSummaryRow(long lPosition) {
    if (lPosition != xlSummaryAbove && lPosition != xlSummaryBelow) Fail();
    pImpl_->bSummaryBelow = lPosition == xlSummaryBelow;
}

long xlWorksheet::OutlineSummaryRowOf() const {
    return pImpl_->bSummaryBelow ? xlSummaryBelow : xlSummaryAbove;
}

long xlWorksheet::RowOutlineLevel(long lRow) const {
    CheckRow(*pImpl_, lRow);
    const RowRec* p = pImpl_->FindRow(lRow);
    return p ? p->nOutline + 1 : 1;
}

std::optional<std::array<long, 4>> xlWorksheet::AutoFilterArea() const {
    if (pImpl_->arrAutoFilter[0] == 0) return std::nullopt;
    return pImpl_->arrAutoFilter;
}

xlWorksheet& xlWorksheets::Item(long lIndex) {
    if (lIndex < 1 || lIndex > Count()) RaiseError(errSubscript);
    return *arr_[static_cast<size_t>(lIndex - 1)];
}

const xlWorksheet& xlWorksheets::Item(long lIndex) const {
    if (lIndex < 1 || lIndex > Count()) RaiseError(errSubscript);
    return *arr_[static_cast<size_t>(lIndex - 1)];
}

xlWorksheet& xlWorksheets::Add(const xlWorksheet& oAfter) {
    auto it =
        std::find_if(arr_.begin(), arr_.end(), [&](const auto& p) { return p.get() == &oAfter; });
    if (it == arr_.end()) Fail();
    const size_t lAt = static_cast<size_t>(it - arr_.begin()) + 1;
    Add();
    std::rotate(arr_.begin() + static_cast<long>(lAt), arr_.end() - 1, arr_.end());
    return *arr_[lAt];
}

xlWorksheet* xlWorksheets::Find(const std::string& sName) {
    const std::string u = Upper(sName);
    for (const auto& p : arr_) {
        if (Upper(p->Name()) == u) return p.get();
    }
    return nullptr;
}

xlWorksheet& xlWorksheets::Add() {
    auto bTaken = [&](const std::string& s) {
        for (const auto& p : arr_) {
            if (Upper(p->Name()) == Upper(s)) return true;
        }
        return false;
    };
    std::string sName;
    do {
        sName = "Sheet" + std::to_string(lNextNumber_++);
    } while (bTaken(sName));
    arr_.push_back(std::make_unique<xlWorksheet>(pBook_, sName));
    return *arr_.back();
}

xlWorkbook::xlWorkbook()
    : pStyles_(std::make_shared<xlStyleTable>()),
      pTexts_(std::make_shared<detail::TextArena>()),
      oSheets_(this) {
    oSheets_.Add();
}

xlWorkbook::~xlWorkbook() = default;

long FileFormatOfName(const std::string& sFileName) {
    const std::string sExt = ".xls";
    if (sFileName.size() < sExt.size()) return xlOpenXMLWorkbook;
    const std::string sTail = Upper(sFileName.substr(sFileName.size() - sExt.size()));
    return sTail == Upper(sExt) ? xlExcel8 : xlOpenXMLWorkbook;
}

void xlWorkbook::SaveAs(const std::string& sFileName, long lAccessMode) {
    if (bClosed_ || sFileName.empty()) Fail();
    if (lAccessMode < 1 || lAccessMode > 3) Fail();  // xlNoChange, xlShared, xlExclusive
    std::error_code ec;
    const std::filesystem::path p = std::filesystem::absolute(sFileName, ec);
    if (ec) Fail();
    const long lFormat = FileFormatOfName(p.filename().string());
    SaveInFormat(p.string(), lFormat);
    // The workbook now has the file's format, and its limits.
    SetFileFormat(lFormat);
    sFullName_ = p.string();
}

void xlWorkbook::Save() {
    if (bClosed_ || sFullName_.empty()) Fail();
    SaveInFormat(sFullName_, lFileFormat_);
}

void xlWorkbook::SaveInFormat(const std::string& sPath, long lFormat, bool bClosing) {
    // The file begun ahead of the save is this save's, or dropped.
    std::shared_ptr<detail::WriteAhead> pAhead = std::move(pAhead_);
    if (pAhead && (lFormat == xlExcel8 || sPath != sFullName_)) pAhead.reset();
    bWroteAhead_ = false;
    // Rows past a sheet's end are written only once they continue on sheets of their own.
    for (long i = 1; i <= oSheets_.Count(); ++i) {
        xlWorksheet::Impl& d = oSheets_.Item(i).Data();
        if (d.bContinues && d.arrRows.size() > static_cast<size_t>(d.lMaxRows)) Fail();
        d.FlushSpool();
    }
    if (lFormat != xlExcel8) {
        if (bClosing) {
            // Each sheet lets go of its rows, links and merged areas once the writer has them,
            // the names go last (the writer takes them while the rest goes) and are let go of
            // before the file is completed.
            xlSaveRelease oRelease;
            std::atomic<bool> bLetGo{false};
            oRelease.fnSheet = [this, &bLetGo](long i) {
                bLetGo = true;
                oSheets_.Item(i).ReleaseContents();
            };
            // What went leaves the process too, unless the workbook keeps it for its process
            // (see ReturnFreedMemory).
            oRelease.fnContents = [this] {
                ReleaseSheets();
                if (bReturnFreedMemory_) modEnvironment::ReturnFreedMemory();
            };
            oRelease.fnNames = [this] {
                for (long i = 1; i <= oSheets_.Count(); ++i)
                    oSheets_.Item(i).ReleaseNames();
            };
            try {
                bWroteAhead_ = SaveWorkbookFile(*this, sPath, oRelease, std::move(pAhead));
            } catch (...) {
                // A sheet that has let go of its rows can never be written whole again: the
                // workbook is closed, so that no later save writes it without them.
                if (bLetGo) bClosed_ = true;
                throw;
            }
        } else {
            bWroteAhead_ = SaveWorkbookFile(*this, sPath, {}, std::move(pAhead));
        }
        return;
    }
    // What the format cannot hold is refused before anything is written.
    if (pStyles_->Count() > static_cast<size_t>(xlMaxFormatsXls)) Fail();
    for (long i = 1; i <= oSheets_.Count(); ++i) {
        const xlWorksheet& ws = oSheets_.Item(i);
        const xlWorksheet::Impl& d = ws.Data();
        auto bOutside = [](long r, long c) { return r > xlMaxRowsXls || c > xlMaxColumnsXls; };
        // Values beyond the format's sheet would be lost (formats there are left behind).
        for (size_t r = 0; r < d.arrRows.size(); ++r) {
            for (const Cell& c : d.arrRows[r].arrCells) {
                if (c.eType != kEmpty && bOutside(static_cast<long>(r) + 1, c.nCol)) Fail();
            }
        }
        for (const auto& a : d.arrMerged) {
            if (bOutside(a[2], a[3])) Fail();
        }
        for (const xlHyperlinkEntry& e : ws.Hyperlinks().Items()) {
            if (bOutside(e.lRow, e.lCol)) Fail();
        }
        for (const xlNameEntry& e : ws.Names().Items()) {
            if (bOutside(e.lRow1, e.lCol1)) Fail();
        }
        const xlPageSetup& ps = ws.PageSetup();
        if (bOutside(ps.lTitleRow1, 1) || bOutside(ps.lAreaRow1, ps.lAreaCol1)) Fail();
        if (bOutside(d.lFrozenRows + 1, d.lFrozenCols + 1)) Fail();
        if (bOutside(d.arrAutoFilter[2], d.arrAutoFilter[3])) Fail();
    }
    SaveWorkbookFileXls(*this, sPath);
}

void xlWorkbook::SetFileFormat(long lFormat) {
    if (lFormat == lFileFormat_) return;
    lFileFormat_ = lFormat;
    const bool bXls = lFormat == xlExcel8;
    pStyles_->lMaxCount =
        bXls ? static_cast<size_t>(xlMaxFormatsXls) : std::numeric_limits<size_t>::max();
    for (long i = 1; i <= oSheets_.Count(); ++i) {
        xlWorksheet::Impl& d = oSheets_.Item(i).Data();
        d.lMaxRows = bXls ? xlMaxRowsXls : xlMaxRows;
        d.lMaxCols = bXls ? xlMaxColumnsXls : xlMaxColumns;
    }
}

void xlWorkbook::Close() {
    bClosed_ = true;
}

void xlWorkbook::Close(bool bSaveChanges) {
    if (bSaveChanges) {
        if (bClosed_ || sFullName_.empty()) Fail();
        SaveInFormat(sFullName_, lFileFormat_, true);
    }
    Close();
}

// The contents of every sheet go: rows, the spool, merged areas, links and the texts. The
// sheets themselves, their names and formats stay, and so do their defined names (see
// ReleaseNames).
void xlWorkbook::ReleaseSheets() {
    bClosed_ = true;
    for (long i = 1; i <= oSheets_.Count(); ++i)
        oSheets_.Item(i).ReleaseContents();
    *pTexts_ = detail::TextArena();
}

xlWorkbook& xlWorkbooks::Add() {
    arr_.push_back(std::make_unique<xlWorkbook>());
    return *arr_.back();
}

xlWorkbook& xlWorkbooks::Item(long lIndex) {
    if (lIndex < 1 || lIndex > Count()) RaiseError(errSubscript);
    return *arr_[static_cast<size_t>(lIndex - 1)];
}

double xlWorksheetFunction::Max(const xlRange& r) const {
    const xlWorksheet::Impl& d = r.Sheet()->Data();
    bool bAny = false;
    double dMax = 0;
    const long rLast = std::min<long>(r.LastRow(), static_cast<long>(d.arrRows.size()));
    d.CheckNotSpooled(r.Row(), rLast);
    for (long n = r.Row(); n <= rLast; ++n) {
        ForExisting(d.arrRows[n - 1], r.Column(), r.LastColumn(), [&](const Cell& c) {
            if (c.eType != kNumber) return;
            dMax = bAny ? std::max(dMax, c.Number()) : c.Number();
            bAny = true;
        });
    }
    return dMax;
}

void xlApplication::Quit() {
    for (long i = 1; i <= oBooks_.Count(); ++i)
        oBooks_.Item(i).Close();
}

}  // namespace xl
