// Rows fitted to their text, the fit-to-pages set-up and the used range of the object model.
// Expected heights come from the font's own metrics: a line of an 11-point font is 15 pixels of
// em, 2500/2048 of that high; a row is its lines plus one pixel, rounded up, 3/4 point a pixel.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "TestUtil.h"
#include "support/clsRunError.h"
#include "support/modConst.h"
#include "xl/xlFontMetrics.h"
#include "xl/xlObjectModel.h"

using namespace modConst;
using xl::xlWorksheet;
namespace fm = xl::fontmetrics;

namespace {

constexpr long kPpem11 = 15;  // 11 points on a 96-dpi screen

// Pixels of an ASCII text at 11 points in a face: each advance rounded to whole pixels.
long Px(const std::string& s, int nFace) {
    long n = 0;
    for (char ch : s)
        n += (fm::kWidths[nFace][ch - 0x20] * kPpem11 + 1024) / 2048;
    return n;
}

// Height in points of n lines of an 11-point font.
double Lines11(long n) {
    const double dLine = 2500.0 * kPpem11 / 2048;
    return std::ceil(n * dLine + 1) * 0.75;
}

// Pixels a cell's text has: the columns' pixels (7 a character plus 5 each), less 5.
constexpr long kCol21 = 21 * 7 + 5;
constexpr long kAvail21 = kCol21 - 5;
constexpr long kAvailDF = 3 * kCol21 - 5;

// A text of nLines lines of the word sWord in a width: as many words as fit on each line.
std::string Filled(const std::string& sWord, int nFace, long lAvail, long nLines) {
    const long w = Px(sWord, nFace), s = Px(" ", nFace);
    const long nPerLine = (lAvail + s) / (w + s);
    std::string t;
    for (long i = 0; i < nPerLine * nLines; ++i)
        t += (i ? " " : "") + sWord;
    return t;
}

class RowFit : public ::testing::Test {
protected:
    void SetUp() override {
        // The sheet plan of an export: width 21, wrapped text everywhere.
        ws.Columns().ColumnWidth(21);
        ws.Cells().WrapText(true);
    }
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    xlWorksheet& ws = book.Worksheets()(1);
};

}  // namespace

TEST_F(RowFit, TheFormulaGivesTheStandardHeightForOneLine) {
    EXPECT_EQ(Lines11(1), 15);
    EXPECT_EQ(Lines11(2), 28.5);
    EXPECT_EQ(Lines11(5), 69.75);
}

TEST_F(RowFit, EmptyAndShortRowsKeepTheStandardHeight) {
    EXPECT_EQ(ws.EffectiveRowHeight(3), 15);
    ws.Cells(3, 1).Value("Pump housing");
    ws.Cells(3, 2).Value(12345.0);
    EXPECT_EQ(ws.EffectiveRowHeight(3), 15);
    EXPECT_FALSE(ws.HasOwnRowHeight(3));
}

TEST_F(RowFit, OneTwoAndFiveLinesInAColumnOfWidth21) {
    for (int nFace : {fm::kRegular, fm::kBold}) {
        for (long n : {1L, 2L, 5L}) {
            const long r = n + 10 * nFace;
            ws.Cells(r, 2).Value(Filled("Impeller", nFace, kAvail21, n));
            if (nFace == fm::kBold) ws.Cells(r, 2).Font().Bold(true);
            EXPECT_EQ(ws.EffectiveRowHeight(r), Lines11(n)) << "face " << nFace << ", " << n;
        }
    }
}

TEST_F(RowFit, OneTwoAndFiveLinesInAMergedAreaDToF) {
    for (int nFace : {fm::kRegular, fm::kBold}) {
        for (long n : {1L, 2L, 5L}) {
            const long r = n + 10 * nFace;
            ws.Range(ws.Cells(r, 4), ws.Cells(r, 6)).MergeCells(true);
            ws.Cells(r, 4).Value(Filled("R12,", nFace, kAvailDF, n));
            if (nFace == fm::kBold) ws.Cells(r, 4).Font().Bold(true);
            EXPECT_EQ(ws.EffectiveRowHeight(r), Lines11(n)) << "face " << nFace << ", " << n;
        }
    }
}

// Columns without a width of their own have the standard one, 64 pixels, however far right.
TEST_F(RowFit, AMergedAreaPastTheLastSetWidthCountsStandardColumns) {
    xl::xlWorkbook& book2 = app.Workbooks().Add();
    xlWorksheet& ws2 = book2.Worksheets()(1);
    ws2.Cells().WrapText(true);
    ws2.Columns(2).ColumnWidth(21);
    // B:D, then two areas wholly past the last set width.
    const long lAvailBD = kCol21 + 64 + 64 - 5;
    const long lAvailStd = 3 * 64 - 5;
    for (long n : {1L, 2L, 5L}) {
        ws2.Range(ws2.Cells(n, 2), ws2.Cells(n, 4)).MergeCells(true);
        ws2.Cells(n, 2).Value(Filled("R12,", fm::kRegular, lAvailBD, n));
        EXPECT_EQ(ws2.EffectiveRowHeight(n), Lines11(n)) << n << " lines in B:D";
        ws2.Range(ws2.Cells(n + 10, 6), ws2.Cells(n + 10, 8)).MergeCells(true);
        ws2.Cells(n + 10, 6).Value(Filled("R12,", fm::kRegular, lAvailStd, n));
        EXPECT_EQ(ws2.EffectiveRowHeight(n + 10), Lines11(n)) << n << " lines in F:H";
        const long lLast = ws2.MaxColumns();
        ws2.Range(ws2.Cells(n + 20, lLast - 2), ws2.Cells(n + 20, lLast)).MergeCells(true);
        ws2.Cells(n + 20, lLast - 2).Value(Filled("R12,", fm::kRegular, lAvailStd, n));
        EXPECT_EQ(ws2.EffectiveRowHeight(n + 20), Lines11(n)) << n << " lines in the last three";
    }
    // One character more than a line of F:H holds wraps.
    const long nFit = lAvailStd / Px("W", fm::kRegular);
    ws2.Range("F40:H40").MergeCells(true);
    ws2.Range("F40").Value(std::string(static_cast<size_t>(nFit), 'W'));
    ws2.Range("F41:H41").MergeCells(true);
    ws2.Range("F41").Value(std::string(static_cast<size_t>(nFit + 1), 'W'));
    EXPECT_EQ(ws2.EffectiveRowHeight(40), 15);
    EXPECT_EQ(ws2.EffectiveRowHeight(41), Lines11(2));
}

TEST_F(RowFit, ALineHoldsWhatItsPixelsHold) {
    const long nFit = kAvail21 / Px("W", fm::kRegular);
    ws.Cells(1, 1).Value(std::string(static_cast<size_t>(nFit), 'W'));
    ws.Cells(2, 1).Value(std::string(static_cast<size_t>(nFit + 1), 'W'));
    EXPECT_EQ(ws.EffectiveRowHeight(1), 15);
    EXPECT_EQ(ws.EffectiveRowHeight(2), Lines11(2));
}

TEST_F(RowFit, LineBreaksHyphensAndSlashes) {
    ws.Cells(1, 1).Value("a\nb\nc");
    EXPECT_EQ(ws.EffectiveRowHeight(1), Lines11(3));
    // A path breaks after a slash: the last part moves down whole.
    const std::string sDir = "/" + std::string(static_cast<size_t>(kAvail21 / Px("a", 0) - 2), 'a');
    ws.Cells(2, 1).Value(sDir + "/drawing.pdf");
    EXPECT_EQ(ws.EffectiveRowHeight(2), Lines11(2));
}

TEST_F(RowFit, TheTallestCellWinsAndTheFontSizeCounts) {
    ws.Cells(1, 1).Value(Filled("Impeller", fm::kRegular, kAvail21, 2));
    ws.Cells(1, 3).Value(Filled("Impeller", fm::kRegular, kAvail21, 3));
    EXPECT_EQ(ws.EffectiveRowHeight(1), Lines11(3));
    ws.Cells(2, 1).Value("Big");
    ws.Cells(2, 1).Font().Size(14);
    EXPECT_EQ(ws.EffectiveRowHeight(2), 18.75);  // one line of 14 points (19 pixels of em)
}

TEST_F(RowFit, AnUnwrappedCellTakesOneLine) {
    ws.Cells(1, 1).Value(Filled("Impeller", fm::kRegular, kAvail21, 4));
    ws.Cells(1, 1).WrapText(false);
    EXPECT_EQ(ws.EffectiveRowHeight(1), 15);
}

TEST_F(RowFit, ASetHeightWinsOverTheFit) {
    ws.Cells(4, 1).Value(Filled("Impeller", fm::kRegular, kAvail21, 4));
    ws.Rows(4).RowHeight(18);
    EXPECT_TRUE(ws.HasOwnRowHeight(4));
    EXPECT_EQ(ws.EffectiveRowHeight(4), 18);
}

TEST_F(RowFit, AMergedAreaOverSeveralRowsIsNotFitted) {
    ws.Range("A1:B2").MergeCells(true);
    ws.Cells(1, 1).Value(Filled("Impeller", fm::kRegular, kAvail21, 4));
    EXPECT_EQ(ws.EffectiveRowHeight(1), 15);
}

TEST_F(RowFit, PageSetupFitsToPages) {
    xl::xlPageSetup& p = ws.PageSetup();
    EXPECT_EQ(p.lZoom, 100);
    p.Zoom(false);
    p.FitToPagesWide(1);
    p.FitToPagesTall(false);
    EXPECT_EQ(p.lZoom, 0);
    EXPECT_EQ(p.lFitToPagesWide, 1);
    EXPECT_EQ(p.lFitToPagesTall, 0);
    p.Zoom(80);
    EXPECT_EQ(p.lZoom, 80);
    EXPECT_RUN_ERROR(p.Zoom(9), 1004);
    EXPECT_RUN_ERROR(p.Zoom(401), 1004);
    EXPECT_RUN_ERROR(p.FitToPagesWide(-1), 1004);
    EXPECT_RUN_ERROR(p.FitToPagesTall(32768), 1004);
}

// Formats on whole columns and the sheet do not widen the used range; cells that show
// something do.
TEST_F(RowFit, UsedRangeIgnoresSheetWideFormats) {
    ws.Cells().NumberFormat("@");
    ws.Rows(1).Font().Bold(true);
    EXPECT_EQ(ws.UsedLastRow(), 0);
    EXPECT_EQ(ws.UsedLastColumn(), 0);
    ws.Cells(1, 4).Value("Export date");
    ws.Cells(9, 2).Value("x");
    EXPECT_EQ(ws.UsedLastRow(), 9);
    EXPECT_EQ(ws.UsedLastColumn(), 4);
    ws.Cells(12, 6).Borders(xlEdgeTop).LineStyle(xlContinuous);
    EXPECT_EQ(ws.UsedLastRow(), 12);
    EXPECT_EQ(ws.UsedLastColumn(), 6);
}
