// Fitting rows to their text, the way the spreadsheet application fits a row whose height was
// never set: each cell that holds a value needs as many lines as its text takes in the width of
// its cell (or of its merged area, when that spans one row), wrapped at spaces, hyphens and
// slashes, or at any character when a word is longer than a line; a cell that does not wrap
// needs one line. A line is as high as the cell's font; the row takes the height of its tallest
// cell.
//
// Widths are those of the font on a 96-dpi screen, where the application lays text out: the
// font's pixel size is its point size times 4/3, rounded; each character's advance is rounded to
// whole pixels. The character widths come from xlFontMetrics.h (Calibri's metrics, as the
// metric-compatible Carlito has them).
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "xl/xlModelData.h"

namespace xl::detail {

// Pixels of a column of the given width (in characters of the standard font; negative: the
// standard width), as the application draws it: seven pixels per character plus five.
int ColumnPixels(float fWidth);

// Points of a row of nLines lines of a font of dSize points: the font's Windows ascent and
// descent per line, plus one pixel, rounded up to whole pixels. One line of 11 points gives the
// standard row height, 15 points.
double LinesHeight(long nLines, double dSize);

// Lines that a text takes in a width of lAvailPx pixels, in the given face (see
// xlFontMetrics.h) and size, wrapped or not.
long TextLines(std::string_view sText, int nFace, double dSize, long lAvailPx, bool bWrap);

// Pixels of the widest line of a text (lines end at line feeds), in the given face and size.
long TextPixels(std::string_view sText, int nFace, double dSize);

// Gives each of the columns c1 to c2 the width its widest cell text needs (see
// xlRange::AutoFit); a column without values keeps its width.
void FitColumnWidths(xlWorksheet::Impl& d, long c1, long c2);

// Fits the rows of one sheet; made once for many rows (it caches column positions and what each
// format means for the text), it allocates nothing per cell.
class RowFitter {
public:
    explicit RowFitter(const xlWorksheet::Impl& d);

    // The height in points that row lRow's cells need, or 0 when they need no more than one
    // line of the standard font (the row keeps the sheet's standard height). The row's own
    // height, if set, is not looked at.
    double Fit(long lRow) const;
    // The same for row lRow given as o, with the merged areas that cover it (indices into the
    // sheet's list; null for none).
    double Fit(long lRow, const Row& o, const std::vector<uint32_t>* pMerged) const;

private:
    struct StyleFacts {
        uint8_t nFace;
        bool bWrap;
        double dSize;
    };
    const StyleFacts& Facts(uint32_t lStyle) const;
    long AvailablePixels(long c1, long c2) const;
    int64_t ColumnLeft(long c) const;  // pixels left of column c

    const xlWorksheet::Impl& d_;
    std::vector<int64_t> arrColLeft_;  // index: column; pixels left of it, while not standard
    mutable std::vector<StyleFacts> arrFacts_;
    mutable std::vector<uint8_t> arrKnown_;
};

}  // namespace xl::detail
