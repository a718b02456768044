// Row heights fitted to the text of their cells (see xlRowFit.h).
#include "xl/xlRowFit.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "support/modConst.h"
#include "xl/xlFontMetrics.h"

namespace xl::detail {

namespace fm = xl::fontmetrics;
using modConst::xlMaxColumns;

namespace {

// The padding the application adds to a column's character width, in pixels; a cell's text has
// the rest.
constexpr int kColumnPadding = 5;
constexpr double kMaxRowHeight = 409;

// Advance width, in font units, of code point c in a face.
int Advance(int nFace, char32_t c) {
    if (c >= 0x20 && c < 0x7F) return fm::kWidths[nFace][c - 0x20];
    if (c == 0xA0) c = U' ';  // no-break space: as wide as a space
    const fm::Run* pEnd = fm::kRuns + sizeof fm::kRuns / sizeof fm::kRuns[0];
    const fm::Run* p = std::upper_bound(fm::kRuns, pEnd, static_cast<uint32_t>(c),
                                        [](uint32_t v, const fm::Run& r) { return v < r.lFirst; });
    if (p == fm::kRuns) return fm::kFallbackWidth;
    --p;
    if (c - p->lFirst >= p->nCount) return fm::kFallbackWidth;
    return fm::kWidths[nFace][p->nIndex + (c - p->lFirst)];
}

// The font's size in whole pixels on a 96-dpi screen.
int PixelSize(double dSize) {
    return std::max(1, static_cast<int>(std::lround(dSize * 96.0 / 72.0)));
}

// Decodes the UTF-8 sequence at s[i] and advances i past it; a stray byte stands for itself.
char32_t NextChar(std::string_view s, size_t& i) {
    const unsigned char c0 = static_cast<unsigned char>(s[i]);
    if (c0 < 0x80) {
        ++i;
        return c0;
    }
    int n = c0 >= 0xF0 ? 3 : c0 >= 0xE0 ? 2 : c0 >= 0xC0 ? 1 : 0;
    char32_t cp = n == 3 ? (c0 & 0x07) : n == 2 ? (c0 & 0x0F) : (c0 & 0x1F);
    ++i;
    for (; n > 0 && i < s.size(); --n, ++i) {
        const unsigned char b = static_cast<unsigned char>(s[i]);
        if ((b & 0xC0) != 0x80) break;
        cp = (cp << 6) | (b & 0x3F);
    }
    return cp;
}

}  // namespace

int ColumnPixels(float fWidth) {
    if (fWidth < 0) return 64;  // the standard width, 8.43 characters
    if (fWidth == 0) return 0;
    return static_cast<int>(fWidth * 7.0 + 0.5) + kColumnPadding;
}

double LinesHeight(long nLines, double dSize) {
    const double dLinePx =
        static_cast<double>(fm::kWinAscent + fm::kWinDescent) * PixelSize(dSize) / fm::kUnitsPerEm;
    const double dPx = std::ceil(static_cast<double>(nLines) * dLinePx + 1.0 - 1e-9);
    return std::min(dPx * 0.75, kMaxRowHeight);
}

long TextLines(std::string_view sText, int nFace, double dSize, long lAvailPx, bool bWrap) {
    if (!bWrap) return 1;
    const int64_t nPpem = PixelSize(dSize);
    const int64_t lAvail = std::max<int64_t>(lAvailPx, 1);
    // Widest ASCII character of the font is narrower than one em: a text that short fits.
    if (static_cast<int64_t>(sText.size()) * nPpem <= lAvail &&
        sText.find('\n') == std::string_view::npos) {
        return 1;
    }
    long nLines = 1;
    int64_t x = 0;        // pixels of the current line so far
    int64_t xBreak = -1;  // pixels up to the last place the line may break, -1: none
    for (size_t i = 0; i < sText.size();) {
        const char32_t c = NextChar(sText, i);
        if (c == U'\n') {
            ++nLines;
            x = 0;
            xBreak = -1;
            continue;
        }
        if (c == U'\r') continue;
        const int64_t w = (Advance(nFace, c) * nPpem + fm::kUnitsPerEm / 2) / fm::kUnitsPerEm;
        if (c == U' ') {
            // Spaces may run past the edge; the line may break after them.
            x += w;
            xBreak = x;
            continue;
        }
        while (x > 0 && x + w > lAvail) {
            ++nLines;
            if (xBreak > 0) {
                x -= xBreak;  // the word since the last break moves down
                xBreak = -1;
            } else {
                x = 0;  // a word longer than a line breaks where it reaches the edge
            }
        }
        x += w;
        if (c == U'-' || c == U'/' || c == U'\\') xBreak = x;
    }
    return nLines;
}

long TextPixels(std::string_view sText, int nFace, double dSize) {
    const int64_t nPpem = PixelSize(dSize);
    int64_t x = 0;
    int64_t lWidest = 0;
    for (size_t i = 0; i < sText.size();) {
        const char32_t c = NextChar(sText, i);
        if (c == U'\n') {
            x = 0;
            continue;
        }
        if (c == U'\r') continue;
        x += (Advance(nFace, c) * nPpem + fm::kUnitsPerEm / 2) / fm::kUnitsPerEm;
        lWidest = std::max(lWidest, x);
    }
    return static_cast<long>(lWidest);
}

void FitColumnWidths(xlWorksheet::Impl& d, long c1, long c2) {
    d.CheckNoneSpooled();
    std::vector<long> arrPx(static_cast<size_t>(c2 - c1 + 1), -1);
    char sNumber[40];
    for (size_t i = 0; i < d.arrRows.size(); ++i) {
        const Row& o = d.arrRows[i];
        const std::vector<uint32_t>* pMerged =
            i < d.arrMergedRows.size() ? &d.arrMergedRows[i] : nullptr;
        for (const Cell& c : o.arrCells) {
            if (c.nCol < c1 || c.nCol > c2 || c.eType == kEmpty) continue;
            bool bSpans = false;
            if (pMerged) {
                for (uint32_t k : *pMerged) {
                    const auto& a = d.arrMerged[k];
                    if (c.nCol >= a[1] && c.nCol <= a[3] && a[1] != a[3]) bSpans = true;
                }
            }
            if (bSpans) continue;
            std::string_view sText;
            if (c.eType == kNumber) {
                std::snprintf(sNumber, sizeof sNumber, "%.15G", c.Number());
                sText = sNumber;
            } else {
                sText = d.oText.Get(c.lPayload);
                if (c.eType == kFormula) sText = FormulaValueOf(sText);
            }
            const xlStyle& st = d.pStyles->Get(c.lStyle);
            const int nFace =
                (st.bBold ? fm::kBold : fm::kRegular) + (st.bItalic ? fm::kItalic : fm::kRegular);
            long& lPx = arrPx[static_cast<size_t>(c.nCol - c1)];
            lPx = std::max(lPx, TextPixels(sText, nFace, st.dFontSize));
        }
    }
    for (long c = c1; c <= c2; ++c) {
        const long lPx = arrPx[static_cast<size_t>(c - c1)];
        if (lPx < 0) continue;
        // A column of width w gives its text 7w pixels; a few more keep the text clear of the
        // edge where another application draws it a little wider. Quarter characters.
        const double dWidth = std::ceil((static_cast<double>(lPx) + 4.0) / 7.0 * 4.0) / 4.0;
        d.arrColWidth[c] = static_cast<float>(std::min(dWidth, 255.0));
    }
}

RowFitter::RowFitter(const xlWorksheet::Impl& d) : d_(d) {
    // Past the last column given a width, every column has the standard one: the offsets are
    // kept only up to there.
    long lLastSet = xlMaxColumns;
    while (lLastSet > 0 && d_.arrColWidth[lLastSet] < 0)
        --lLastSet;
    arrColLeft_.resize(static_cast<size_t>(lLastSet) + 2, 0);
    for (long c = 1; c <= lLastSet; ++c) {
        arrColLeft_[c + 1] = arrColLeft_[c] + ColumnPixels(d_.arrColWidth[c]);
    }
}

int64_t RowFitter::ColumnLeft(long c) const {
    const long lKept = static_cast<long>(arrColLeft_.size()) - 1;
    if (c <= lKept) return arrColLeft_[c];
    return arrColLeft_[lKept] + static_cast<int64_t>(c - lKept) * ColumnPixels(-1.0f);
}

const RowFitter::StyleFacts& RowFitter::Facts(uint32_t lStyle) const {
    if (arrFacts_.size() <= lStyle) {
        arrFacts_.resize(d_.pStyles->Count());
        arrKnown_.resize(d_.pStyles->Count(), 0);
    }
    StyleFacts& f = arrFacts_[lStyle];
    if (!arrKnown_[lStyle]) {
        const xlStyle& s = d_.pStyles->Get(lStyle);
        f.nFace = static_cast<uint8_t>((s.bBold ? fm::kBold : fm::kRegular) +
                                       (s.bItalic ? fm::kItalic : fm::kRegular));
        f.bWrap = s.bWrapText;
        f.dSize = s.dFontSize;
        arrKnown_[lStyle] = 1;
    }
    return f;
}

long RowFitter::AvailablePixels(long c1, long c2) const {
    const int64_t w = ColumnLeft(c2 + 1) - ColumnLeft(c1);
    return static_cast<long>(std::max<int64_t>(w - kColumnPadding, 1));
}

double RowFitter::Fit(long lRow) const {
    const Row* pRow = d_.FindRow(lRow);
    if (!pRow) return 0;
    return Fit(lRow, *pRow,
               static_cast<size_t>(lRow) <= d_.arrMergedRows.size() ? &d_.arrMergedRows[lRow - 1]
                                                                    : nullptr);
}

double RowFitter::Fit(long lRow, const Row& o, const std::vector<uint32_t>* pMerged) const {
    double dNeed = 0;
    for (const Cell& c : o.arrCells) {
        if (c.eType == kEmpty) continue;
        long c1 = c.nCol, c2 = c.nCol;
        bool bSkip = false;
        if (pMerged) {
            for (uint32_t k : *pMerged) {
                const auto& a = d_.arrMerged[k];
                if (c.nCol < a[1] || c.nCol > a[3]) continue;
                // Hidden under a merged area, or in one that spans rows: not fitted.
                if (c.nCol != a[1] || a[0] != lRow || a[2] != lRow) {
                    bSkip = true;
                } else {
                    c2 = a[3];
                }
                break;
            }
        }
        if (bSkip) continue;
        const StyleFacts& f = Facts(c.lStyle);
        long nLines = 1;
        if (HoldsText(c) && f.bWrap) {
            const std::string_view s = d_.oText.Get(c.lPayload);
            nLines = TextLines(c.eType == kFormula ? FormulaValueOf(s) : s, f.nFace, f.dSize,
                               AvailablePixels(c1, c2), true);
        }
        dNeed = std::max(dNeed, LinesHeight(nLines, f.dSize));
    }
    return dNeed > d_.dDefaultRowHeight ? dNeed : 0;
}

}  // namespace xl::detail
