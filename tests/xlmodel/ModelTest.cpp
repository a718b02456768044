// The spreadsheet object model: limits, values, the order in which formats apply, merging,
// names, hyperlinks, page set-up, copying and the collections.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

#include "TestUtil.h"
#include "support/clsRunError.h"
#include "support/modConst.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

using namespace modConst;
using xl::xlRange;
using xl::xlWorksheet;

namespace {

class Model : public ::testing::Test {
protected:
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    xlWorksheet& ws = book.Worksheets()(1);

    std::string TextAt(long r, long c) { return ws.Cells(r, c).Text(); }
    xl::xlStyle St(long r, long c) { return ws.EffectiveStyle(r, c); }
};

}  // namespace

// ---- limits ----------------------------------------------------------------------------------

TEST_F(Model, RowsAndColumnsAreOneBasedAndLimited) {
    EXPECT_NO_THROW(ws.Cells(1, 1));
    EXPECT_NO_THROW(ws.Cells(1048576, 16384).Value("corner"));
    EXPECT_EQ(TextAt(1048576, 16384), "corner");
    EXPECT_RUN_ERROR(ws.Cells(0, 1), 1004);
    EXPECT_RUN_ERROR(ws.Cells(1, 0), 1004);
    EXPECT_RUN_ERROR(ws.Cells(1048577, 1), 1004);
    EXPECT_RUN_ERROR(ws.Cells(1, 16385), 1004);
    EXPECT_RUN_ERROR(ws.Rows(0), 1004);
    EXPECT_RUN_ERROR(ws.Rows(1048577), 1004);
    EXPECT_RUN_ERROR(ws.Columns(16385), 1004);
    EXPECT_RUN_ERROR(ws.Range("XFE1"), 1004);
    EXPECT_RUN_ERROR(ws.Range("A0"), 1004);
    EXPECT_RUN_ERROR(ws.Range("A1048577"), 1004);
    EXPECT_RUN_ERROR(ws.Range("not an address"), 1004);
    EXPECT_RUN_ERROR(xlRange(&ws, 1, 1, 1, 16385), 1004);
}

TEST_F(Model, ColumnLettersAndAddresses) {
    EXPECT_EQ(xl::ColumnLetters(1), "A");
    EXPECT_EQ(xl::ColumnLetters(26), "Z");
    EXPECT_EQ(xl::ColumnLetters(27), "AA");
    EXPECT_EQ(xl::ColumnLetters(702), "ZZ");
    EXPECT_EQ(xl::ColumnLetters(703), "AAA");
    EXPECT_EQ(xl::ColumnLetters(16384), "XFD");
    EXPECT_RUN_ERROR(xl::ColumnLetters(0), 1004);

    EXPECT_EQ(ws.Cells(1, 1).Address(), "$A$1");
    EXPECT_EQ(ws.Range(ws.Cells(1, 1), ws.Cells(3, 4)).Address(), "$A$1:$D$3");
    EXPECT_EQ(ws.Range(ws.Cells(3, 4), ws.Cells(1, 1)).Address(), "$A$1:$D$3");
    EXPECT_EQ(ws.Rows(5).Address(), "$5:$5");
    EXPECT_EQ(ws.Columns(1).Address(), "$A:$A");
    EXPECT_EQ(ws.Columns(28).Address(), "$AB:$AB");
    EXPECT_EQ(ws.Cells().Address(), "$1:$1048576");
    EXPECT_EQ(ws.Range("b2:a1").Address(), "$A$1:$B$2");
    EXPECT_EQ(ws.Range("$A$1:$D$3").Address(), "$A$1:$D$3");
    EXPECT_EQ(ws.Range("5:7").Address(), "$5:$7");
    EXPECT_EQ(ws.Range("$C:$A").Address(), "$A:$C");
    EXPECT_EQ(ws.Range("XFD1048576").Address(), "$XFD$1048576");
}

// ---- values ----------------------------------------------------------------------------------

TEST_F(Model, NumbersStayNumbersEverythingElseIsText) {
    ws.Cells(1, 1).Value(42L);
    ws.Cells(1, 2).Value(2.5);
    ws.Cells(1, 3).Value("007");
    ws.Cells(1, 4).Value(std::string("text"));
    EXPECT_EQ(std::get<double>(ws.Cells(1, 1).GetValue()), 42.0);
    EXPECT_EQ(std::get<double>(ws.Cells(1, 2).GetValue()), 2.5);
    EXPECT_EQ(std::get<std::string>(ws.Cells(1, 3).GetValue()), "007");
    EXPECT_EQ(TextAt(1, 1), "42");
    EXPECT_EQ(TextAt(1, 2), "2.5");
    EXPECT_EQ(TextAt(1, 4), "text");
    EXPECT_TRUE(std::holds_alternative<std::monostate>(ws.Cells(9, 9).GetValue()));
    EXPECT_EQ(TextAt(9, 9), "");
    EXPECT_FALSE(ws.GetCell(9, 9).has_value());

    ws.Cells(1, 3).Value(xl::xlVariant{});
    EXPECT_TRUE(std::holds_alternative<std::monostate>(ws.Cells(1, 3).GetValue()));
    ws.Cells(1, 1).Value("again text");
    EXPECT_EQ(TextAt(1, 1), "again text");
}

TEST_F(Model, ValueOnARangeFillsEveryCell) {
    ws.Range("B2:C3").Value("x");
    for (long r = 2; r <= 3; ++r) {
        for (long c = 2; c <= 3; ++c)
            EXPECT_EQ(TextAt(r, c), "x");
    }
    ws.Range("B2:C3").Value(xl::xlVariant{});
    EXPECT_EQ(TextAt(3, 3), "");
    ws.Rows(4).Value(1.0);
    EXPECT_EQ(TextAt(4, 16384), "1");
}

TEST_F(Model, EqualTextsAreStoredOnceForTheWholeWorkbook) {
    xlWorksheet& ws2 = book.Worksheets().Add(ws);
    for (long r = 1; r <= 5000; ++r) {
        ws.Cells(r, 1).Value("Quantity");
        ws2.Cells(r, 2).Value(std::string("Quantity"));
    }
    ws.Range("C1:D100").Value("Quantity");
    ws.Cells(1, 5).Value("Other");
    EXPECT_EQ(book.Texts()->Count(), 2u);
    EXPECT_EQ(TextAt(5000, 1), "Quantity");
    EXPECT_EQ(ws2.Cells(77, 2).Text(), "Quantity");
    // A text is kept in the form a file can hold, once, whatever form it was given in.
    ws.Cells(2, 5).Value(std::string("a\x01b"));
    ws.Cells(3, 5).Value(std::string("a\x01b"));
    EXPECT_EQ(book.Texts()->Count(), 3u);
    EXPECT_EQ(TextAt(2, 5), TextAt(3, 5));
}

TEST_F(Model, ACellGivenAnotherTextLeavesTheOthersThatShowedTheSameText) {
    ws.Cells(1, 1).Value("same");
    ws.Cells(2, 1).Value("same");
    ws.Cells(1, 1).Value("changed");
    ws.Cells(2, 2).Formula("=HYPERLINK(\"#A1\",\"same\")");
    ws.Cells(3, 2).Formula("=HYPERLINK(\"#A1\",\"same\")");
    ws.Cells(2, 2).Value(xl::xlVariant{});
    EXPECT_EQ(TextAt(1, 1), "changed");
    EXPECT_EQ(TextAt(2, 1), "same");
    EXPECT_EQ(TextAt(2, 2), "");
    EXPECT_EQ(TextAt(3, 2), "same");
    EXPECT_EQ(ws.GetCell(3, 2)->sFormula, "=HYPERLINK(\"#A1\",\"same\")");
}

TEST_F(Model, ManyDistinctTextsEachReadBackAsWritten) {
    for (long r = 1; r <= 60000; ++r)
        ws.Cells(r, 1).Value("T" + std::to_string(r));
    for (long r = 1; r <= 60000; ++r)
        ws.Cells(r, 2).Value("T" + std::to_string(60001 - r));
    EXPECT_EQ(book.Texts()->Count(), 60000u);
    for (long r = 1; r <= 60000; r += 997) {
        ASSERT_EQ(TextAt(r, 1), "T" + std::to_string(r));
        ASSERT_EQ(TextAt(r, 2), "T" + std::to_string(60001 - r));
    }
    ws.Cells(1, 3).Value(std::string(32767, 'x'));
    EXPECT_EQ(TextAt(1, 3).size(), 32767u);
}

TEST_F(Model, CellTextIsLimitedTo32767Characters) {
    EXPECT_NO_THROW(ws.Cells(1, 1).Value(std::string(32767, 'a')));
    EXPECT_RUN_ERROR(ws.Cells(1, 2).Value(std::string(32768, 'a')), 1004);
    // Characters beyond the basic plane count twice, as the application counts them.
    std::string s;
    for (int i = 0; i < 16384; ++i)
        s += "\xF0\x9F\x98\x80";
    EXPECT_RUN_ERROR(ws.Cells(1, 3).Value(s), 1004);
    // Accented letters count once.
    std::string e;
    for (int i = 0; i < 32767; ++i)
        e += "\xC3\xA9";
    EXPECT_NO_THROW(ws.Cells(1, 4).Value(e));
    EXPECT_EQ(TextAt(1, 2), "");
}

// ---- the order in which formats apply ---------------------------------------------------------

TEST_F(Model, SheetFormatsReachCellsMadeLater) {
    ws.Columns().ColumnWidth(21);
    ws.Cells().HorizontalAlignment(xlLeft);
    ws.Cells().WrapText(true);
    ws.Cells().NumberFormat("@");
    ws.Rows(1).Font().FontStyle("Bold");
    ws.Cells(1, 1).Value("label");
    ws.Cells(2, 1).Value("value");
    for (long r : {1L, 2L, 500L}) {
        const auto s = St(r, 1);
        EXPECT_EQ(s.lHorizontalAlignment, xlLeft);
        EXPECT_TRUE(s.bWrapText);
        EXPECT_EQ(s.sNumberFormat, "@");
    }
    EXPECT_TRUE(St(1, 1).bBold);
    EXPECT_TRUE(St(1, 9000).bBold);
    EXPECT_FALSE(St(2, 1).bBold);
    EXPECT_EQ(ws.ColumnWidthOf(16384), 21);
}

TEST_F(Model, FinalSheetWideAlignmentReachesEveryCellCaptionBandsIncluded) {
    ws.Cells().HorizontalAlignment(xlLeft);
    ws.Cells().WrapText(true);
    ws.Cells().NumberFormat("@");
    xlRange band = ws.Range(ws.Cells(4, 1), ws.Cells(4, 6));
    band.MergeCells(true);
    band.HorizontalAlignment(xlLeft);
    band.VerticalAlignment(xlBottom);
    band.Interior().ColorIndex(1);
    ws.Cells(4, 1).Value("Main Panel");
    ws.Rows(5).Font().FontStyle("Bold");
    ws.Cells(6, 2).Value("row");
    EXPECT_EQ(St(4, 3).lVerticalAlignment, xlBottom);

    ws.Cells().VerticalAlignment(xlTop);
    for (long c = 1; c <= 6; ++c)
        EXPECT_EQ(St(4, c).lVerticalAlignment, xlTop) << c;
    EXPECT_EQ(St(5, 1).lVerticalAlignment, xlTop);
    EXPECT_EQ(St(6, 2).lVerticalAlignment, xlTop);
    EXPECT_EQ(St(77, 77).lVerticalAlignment, xlTop);
    // Everything else the band had stays.
    EXPECT_EQ(St(4, 6).lInteriorColorIndex, 1);
    EXPECT_TRUE(St(5, 3).bBold);
    // A cell made afterwards is top-aligned too.
    ws.Cells(300, 4).Value("late");
    EXPECT_EQ(St(300, 4).lVerticalAlignment, xlTop);
    EXPECT_EQ(St(300, 4).sNumberFormat, "@");
}

TEST_F(Model, LaterSettingWinsForTheCellsItCovers) {
    ws.Cells(1, 1).HorizontalAlignment(xlCenter);
    ws.Cells().HorizontalAlignment(xlLeft);
    EXPECT_EQ(St(1, 1).lHorizontalAlignment, xlLeft);
    ws.Cells(1, 1).HorizontalAlignment(xlRight);
    EXPECT_EQ(St(1, 1).lHorizontalAlignment, xlRight);
    EXPECT_EQ(St(1, 2).lHorizontalAlignment, xlLeft);
    ws.Rows(1).HorizontalAlignment(xlCenter);
    EXPECT_EQ(St(1, 1).lHorizontalAlignment, xlCenter);
    EXPECT_EQ(St(1, 99).lHorizontalAlignment, xlCenter);
    EXPECT_EQ(St(2, 1).lHorizontalAlignment, xlLeft);
    ws.Columns(1).HorizontalAlignment(xlRight);
    EXPECT_EQ(St(1, 1).lHorizontalAlignment, xlRight);
    EXPECT_EQ(St(2, 1).lHorizontalAlignment, xlRight);
    EXPECT_EQ(St(1, 2).lHorizontalAlignment, xlCenter);
}

TEST_F(Model, ColumnThenRowFormatsCombineWhereTheyCross) {
    ws.Columns(2).Interior().ColorIndex(3);
    ws.Rows(5).Font().Bold(true);
    EXPECT_EQ(St(5, 2).lInteriorColorIndex, 3);
    EXPECT_TRUE(St(5, 2).bBold);
    EXPECT_TRUE(St(5, 3).bBold);
    EXPECT_EQ(St(5, 3).lInteriorColorIndex, 0);
    EXPECT_EQ(St(6, 2).lInteriorColorIndex, 3);
    EXPECT_FALSE(St(6, 2).bBold);
    // Cells made later: the row's format wins over the column's.
    ws.Cells(5, 7).Value("in row");
    ws.Cells(9, 2).Value("in column");
    EXPECT_TRUE(St(5, 7).bBold);
    EXPECT_EQ(St(9, 2).lInteriorColorIndex, 3);
    EXPECT_EQ(std::get<std::string>(ws.GetCell(5, 7)->vValue), "in row");
}

TEST_F(Model, RowThenColumnFormatsCombineWhereTheyCross) {
    ws.Rows(5).Font().Bold(true);
    ws.Columns(2).Interior().ColorIndex(3);
    EXPECT_TRUE(St(5, 2).bBold);
    EXPECT_EQ(St(5, 2).lInteriorColorIndex, 3);
    EXPECT_EQ(St(5, 3).lInteriorColorIndex, 0);
    EXPECT_EQ(St(6, 2).lInteriorColorIndex, 3);
    ws.Cells(5, 2).Value("x");
    EXPECT_TRUE(St(5, 2).bBold);
    EXPECT_EQ(St(5, 2).lInteriorColorIndex, 3);
    // A row format made later covers the crossing cell again.
    ws.Rows(5).Interior().ColorIndex(4);
    EXPECT_EQ(St(5, 2).lInteriorColorIndex, 4);
    EXPECT_EQ(St(5, 16000).lInteriorColorIndex, 4);
}

TEST_F(Model, RangeFormatsCoverOnlyTheirCells) {
    xlRange r = ws.Range("B2:C3");
    r.Font().Italic(true);
    r.Font().Size(14);
    r.Font().ColorIndex(48);
    r.WrapText(true);
    r.NumberFormat("0.00");
    EXPECT_TRUE(St(2, 2).bItalic);
    EXPECT_EQ(St(3, 3).dFontSize, 14);
    EXPECT_EQ(St(3, 3).lFontColorIndex, 48);
    EXPECT_EQ(St(3, 3).sNumberFormat, "0.00");
    EXPECT_FALSE(St(4, 3).bItalic);
    EXPECT_FALSE(St(2, 1).bWrapText);
    EXPECT_EQ(St(1, 1), xl::xlStyle{});
}

TEST_F(Model, FontStyleSetsBoldAndItalicTogether) {
    xlRange c = ws.Cells(1, 1);
    c.Font().FontStyle("Bold Italic");
    EXPECT_TRUE(St(1, 1).bBold);
    EXPECT_TRUE(St(1, 1).bItalic);
    c.Font().FontStyle("Italic");
    EXPECT_FALSE(St(1, 1).bBold);
    EXPECT_TRUE(St(1, 1).bItalic);
    c.Font().FontStyle("bold");
    EXPECT_TRUE(St(1, 1).bBold);
    EXPECT_FALSE(St(1, 1).bItalic);
    c.Font().FontStyle("Regular");
    EXPECT_FALSE(St(1, 1).bBold);
    EXPECT_RUN_ERROR(c.Font().FontStyle("Heavy"), 1004);
    EXPECT_RUN_ERROR(c.Font().Size(0), 1004);
    EXPECT_RUN_ERROR(c.Font().Size(410), 1004);
    EXPECT_RUN_ERROR(c.HorizontalAlignment(12345), 1004);
    EXPECT_RUN_ERROR(c.VerticalAlignment(xlLeft), 1004);
}

TEST_F(Model, BordersGoOnTheEdgeOfTheRange) {
    xlRange r = ws.Range("A4:F5");
    r.Borders(xlEdgeTop).LineStyle(xlContinuous);
    r.Borders(xlEdgeBottom).LineStyle(xlContinuous);
    for (long c = 1; c <= 6; ++c) {
        EXPECT_EQ(St(4, c).lBorderTop, xlContinuous);
        EXPECT_EQ(St(4, c).lBorderBottom, 0);
        EXPECT_EQ(St(5, c).lBorderTop, 0);
        EXPECT_EQ(St(5, c).lBorderBottom, xlContinuous);
    }
    EXPECT_EQ(St(4, 7).lBorderTop, 0);
    r.Borders(xlEdgeLeft).LineStyle(xlContinuous);
    r.Borders(xlEdgeRight).LineStyle(-4119);
    EXPECT_EQ(St(5, 1).lBorderLeft, xlContinuous);
    EXPECT_EQ(St(5, 2).lBorderLeft, 0);
    EXPECT_EQ(St(4, 6).lBorderRight, -4119);
    r.Borders(xlEdgeTop).LineStyle(xlLineStyleNone);
    EXPECT_EQ(St(4, 3).lBorderTop, 0);
    EXPECT_RUN_ERROR(r.Borders(5).LineStyle(xlContinuous), 1004);
    EXPECT_RUN_ERROR(r.Borders(xlEdgeTop).LineStyle(99), 1004);
    // The top edge of whole rows, of the sheet.
    ws.Cells().Borders(xlEdgeTop).LineStyle(xlContinuous);
    EXPECT_EQ(St(1, 16384).lBorderTop, xlContinuous);
    EXPECT_EQ(St(2, 1).lBorderTop, 0);
}

// ---- colours ---------------------------------------------------------------------------------

TEST(ModelPalette, DefaultPaletteOf56Colours) {
    const uint32_t expected[56] = {
        0x000000, 0xFFFFFF, 0xFF0000, 0x00FF00, 0x0000FF, 0xFFFF00, 0xFF00FF, 0x00FFFF,
        0x800000, 0x008000, 0x000080, 0x808000, 0x800080, 0x008080, 0xC0C0C0, 0x808080,
        0x9999FF, 0x993366, 0xFFFFCC, 0xCCFFFF, 0x660066, 0xFF8080, 0x0066CC, 0xCCCCFF,
        0x000080, 0xFF00FF, 0xFFFF00, 0x00FFFF, 0x800080, 0x800000, 0x008080, 0x0000FF,
        0x00CCFF, 0xCCFFFF, 0xCCFFCC, 0xFFFF99, 0x99CCFF, 0xFF99CC, 0xCC99FF, 0xFFCC99,
        0x3366FF, 0x33CCCC, 0x99CC00, 0xFFCC00, 0xFF9900, 0xFF6600, 0x666699, 0x969696,
        0x003366, 0x339966, 0x003300, 0x333300, 0x993300, 0x993366, 0x333399, 0x333333};
    for (long i = 1; i <= 56; ++i)
        EXPECT_EQ(xl::PaletteRGB(i), expected[i - 1]) << i;
    EXPECT_RUN_ERROR(xl::PaletteRGB(0), 1004);
    EXPECT_RUN_ERROR(xl::PaletteRGB(57), 1004);
}

TEST_F(Model, ColourIndicesOutsideThePaletteAreRefused) {
    xlRange c = ws.Cells(2, 2);
    c.Interior().ColorIndex(15);
    EXPECT_EQ(St(2, 2).lInteriorColorIndex, 15);
    c.Interior().ColorIndex(xlColorIndexNone);
    EXPECT_EQ(St(2, 2).lInteriorColorIndex, 0);
    c.Font().ColorIndex(2);
    c.Font().ColorIndex(xlColorIndexAutomatic);
    EXPECT_EQ(St(2, 2).lFontColorIndex, 0);
    EXPECT_RUN_ERROR(c.Interior().ColorIndex(0), 1004);
    EXPECT_RUN_ERROR(c.Interior().ColorIndex(57), 1004);
    EXPECT_RUN_ERROR(c.Font().ColorIndex(-1), 1004);
    EXPECT_RUN_ERROR(c.Font().ColorIndex(100), 1004);
}

// ---- rows and columns ------------------------------------------------------------------------

TEST_F(Model, RowHeightsAndColumnWidths) {
    EXPECT_EQ(ws.RowHeightOf(4), 15);
    EXPECT_EQ(ws.ColumnWidthOf(3), 8.43);
    ws.Rows(4).RowHeight(18);
    ws.Range("B7:C9").RowHeight(30);
    ws.Columns(3).ColumnWidth(40);
    ws.Range("E1:F1").ColumnWidth(12.5);
    EXPECT_EQ(ws.RowHeightOf(4), 18);
    EXPECT_EQ(ws.RowHeightOf(8), 30);
    EXPECT_EQ(ws.RowHeightOf(10), 15);
    EXPECT_EQ(ws.ColumnWidthOf(3), 40);
    EXPECT_EQ(ws.ColumnWidthOf(6), 12.5);
    EXPECT_RUN_ERROR(ws.Rows(4).RowHeight(410), 1004);
    EXPECT_RUN_ERROR(ws.Rows(4).RowHeight(-1), 1004);
    EXPECT_RUN_ERROR(ws.Columns(4).ColumnWidth(256), 1004);
    ws.Cells().RowHeight(20);
    EXPECT_EQ(ws.RowHeightOf(4), 20);
    EXPECT_EQ(ws.RowHeightOf(100000), 20);
}

TEST_F(Model, UsedRange) {
    EXPECT_EQ(ws.UsedLastRow(), 0);
    EXPECT_EQ(ws.UsedLastColumn(), 0);
    ws.Cells(3, 2).Value("a");
    ws.Cells(7, 5).Value(1.0);
    ws.Cells(5, 9).Font().Bold(true);
    EXPECT_EQ(ws.UsedLastRow(), 7);
    EXPECT_EQ(ws.UsedLastColumn(), 9);
}

// ---- merging ---------------------------------------------------------------------------------

TEST_F(Model, MergeKeepsTheTopLeftValueAndFormat) {
    ws.Cells(1, 1).Value("keep");
    ws.Cells(1, 1).Interior().ColorIndex(6);
    ws.Cells(1, 2).Value("drop");
    ws.Cells(1, 3).Font().Bold(true);
    xlRange r = ws.Range("A1:C1");
    r.MergeCells(true);
    ASSERT_EQ(ws.MergedAreas().size(), 1u);
    EXPECT_EQ(ws.MergedAreas()[0], (xl::xlMergedArea{1, 1, 1, 3}));
    EXPECT_EQ(TextAt(1, 1), "keep");
    EXPECT_EQ(TextAt(1, 2), "");
    EXPECT_EQ(St(1, 3).lInteriorColorIndex, 6);
    EXPECT_FALSE(St(1, 3).bBold);
    EXPECT_TRUE(r.GetMergeCells());
    EXPECT_TRUE(ws.Cells(1, 2).GetMergeCells());
    EXPECT_FALSE(ws.Range("A1:D1").GetMergeCells());
    EXPECT_FALSE(ws.Cells(2, 1).GetMergeCells());
}

TEST_F(Model, MergingASingleCellDoesNothing) {
    ws.Cells(2, 2).MergeCells(true);
    EXPECT_TRUE(ws.MergedAreas().empty());
    EXPECT_FALSE(ws.Cells(2, 2).GetMergeCells());
}

TEST_F(Model, MergeOverMergeGrowsToTheBoundingRectangle) {
    ws.Range("A1:B1").MergeCells(true);
    ws.Range("D1:E1").MergeCells(true);
    ws.Cells(1, 4).Value("right");
    ws.Range("B1:D1").MergeCells(true);
    ASSERT_EQ(ws.MergedAreas().size(), 1u);
    EXPECT_EQ(ws.MergedAreas()[0], (xl::xlMergedArea{1, 1, 1, 5}));
    EXPECT_EQ(TextAt(1, 4), "");  // only the top-left value is kept

    // Growth goes on through every area the grown rectangle touches.
    ws.Range("A3:B3").MergeCells(true);
    ws.Range("B4:C5").MergeCells(true);
    ws.Range("G3:H3").MergeCells(true);
    ws.Range("A3:A4").MergeCells(true);
    ASSERT_EQ(ws.MergedAreas().size(), 3u);
    bool bFound = false;
    for (const auto& a : ws.MergedAreas()) {
        bFound = bFound || a == xl::xlMergedArea{3, 1, 5, 3};
    }
    EXPECT_TRUE(bFound);
}

TEST_F(Model, MergeCellsFalseUnmergesTheAreasItTouches) {
    ws.Range("A1:C1").MergeCells(true);
    ws.Range("A2:C2").MergeCells(true);
    ws.Range("A4:C4").MergeCells(true);
    ws.Range("B1:B2").MergeCells(false);
    ASSERT_EQ(ws.MergedAreas().size(), 1u);
    EXPECT_EQ(ws.MergedAreas()[0], (xl::xlMergedArea{4, 1, 4, 3}));
}

TEST_F(Model, MergedAreasNeverOverlap) {
    std::mt19937 rng(7);
    for (int i = 0; i < 400; ++i) {
        const long r = 1 + static_cast<long>(rng() % 30), c = 1 + static_cast<long>(rng() % 10);
        const long h = static_cast<long>(rng() % 3), w = static_cast<long>(rng() % 4);
        ws.Range(ws.Cells(r, c), ws.Cells(r + h, c + w)).MergeCells(rng() % 5 != 0);
        const auto& v = ws.MergedAreas();
        for (size_t a = 0; a < v.size(); ++a) {
            EXPECT_FALSE(v[a][0] == v[a][2] && v[a][1] == v[a][3]);
            for (size_t b = a + 1; b < v.size(); ++b) {
                const bool bOverlap = v[a][0] <= v[b][2] && v[b][0] <= v[a][2] &&
                                      v[a][1] <= v[b][3] && v[b][1] <= v[a][3];
                ASSERT_FALSE(bOverlap) << "step " << i;
            }
        }
    }
}

// ---- names -----------------------------------------------------------------------------------

TEST_F(Model, NamesAreLocalToTheirSheet) {
    ws.Names().Add("ID_P_45100_B_4", ws.Rows(5));
    ASSERT_EQ(ws.Names().Count(), 1);
    const auto& e = ws.Names().Items()[0];
    EXPECT_EQ(e.sName, "ID_P_45100_B_4");
    EXPECT_EQ(ws.Names().RefersTo(e), "=Sheet1!$5:$5");
    EXPECT_EQ(e.lRow1, 5);
    EXPECT_EQ(e.lRow2, 5);
    // A second sheet has its own names; the same text there is another name.
    xlWorksheet& ws2 = book.Worksheets().Add();
    ws2.Names().Add("ID_P_45100_B_4", ws2.Range("A1:B2"));
    EXPECT_EQ(ws2.Names().RefersTo(ws2.Names().Items()[0]), "=Sheet2!$A$1:$B$2");
    EXPECT_EQ(ws.Names().Count(), 1);
    // Names do not tell case apart: adding one again redefines it.
    ws.Names().Add("id_p_45100_b_4", ws.Rows(9));
    ASSERT_EQ(ws.Names().Count(), 1);
    EXPECT_EQ(ws.Names().RefersTo(ws.Names().Items()[0]), "=Sheet1!$9:$9");
}

// A name refers to its own sheet by the sheet's name of the moment; a range of another sheet is
// refused, as a name local to a sheet.
TEST_F(Model, ANameRefersToItsSheetByTheNameItHasNow) {
    ws.Names().Add("ID_A", ws.Range("B3:C4"));
    ws.Name("Parts list");
    EXPECT_EQ(ws.Names().RefersTo(ws.Names().Items()[0]), "='Parts list'!$B$3:$C$4");
    ws.Names().Add("ID_B", ws.Columns(2));
    EXPECT_EQ(ws.Names().RefersTo(ws.Names().Items()[1]), "='Parts list'!$B:$B");
    xlWorksheet& ws2 = book.Worksheets().Add();
    EXPECT_RUN_ERROR(ws.Names().Add("ID_C", ws2.Rows(1)), 1004);
    EXPECT_EQ(ws.Names().Count(), 2);
    // The saved file holds the names as they refer now.
    testutil::TempDir dir;
    const std::string sFile = dir.File("names.xlsx");
    book.SaveAs(sFile);
    const std::string sBook = testutil::CommandOutput(
        "/usr/bin/python3 -c \"import sys, zipfile\n"
        "print(zipfile.ZipFile(sys.argv[1]).read('xl/workbook.xml').decode())\" '" +
        sFile + "' 2>&1");
    EXPECT_NE(sBook.find(">'Parts list'!$B$3:$C$4<"), std::string::npos) << sBook;
    EXPECT_NE(sBook.find(">'Parts list'!$B:$B<"), std::string::npos) << sBook;
}

TEST_F(Model, NameValidity) {
    const char* good[] = {
        "ID_x",     "_x",        "\\x", "a.b", "A_1",    "XFE1",           "ABCD1",
        "R1C1x",    "Rx",        "Cx",  "A0",  "ID___0", "name.with.dots", "\xC3\xA9t\xC3\xA9",
        "x1048577", "XFD1048577"};
    for (const char* s : good)
        EXPECT_NO_THROW(ws.Names().Add(s, ws.Rows(1))) << s;
    const char* bad[] = {"",    "1abc", "A1",     "a1",    "XFD1048576", "xfd1", "R",  "r",
                         "C",   "c",    "R1C1",   "r2c3",  "R1",         "C25",  "RC", "a b",
                         "a-b", "a$",   "ID_[x]", "ID_x^", ".x",         "A01"};
    for (const char* s : bad)
        EXPECT_RUN_ERROR(ws.Names().Add(s, ws.Rows(1)), 1004) << s;
    EXPECT_NO_THROW(ws.Names().Add(std::string(255, 'n'), ws.Rows(1)));
    EXPECT_RUN_ERROR(ws.Names().Add(std::string(256, 'n'), ws.Rows(1)), 1004);
}

// ---- hyperlinks ------------------------------------------------------------------------------

TEST_F(Model, HyperlinkWithoutDisplayTextKeepsTheCellText) {
    ws.Cells(6, 2).Value("P-100");
    ws.Hyperlinks().Add(ws.Cells(6, 2), "", "ID_P_45100_B_0");
    EXPECT_EQ(TextAt(6, 2), "P-100");
    ASSERT_EQ(ws.Hyperlinks().Count(), 1);
    EXPECT_EQ(ws.Hyperlinks().Items()[0].lRow, 6);
    EXPECT_EQ(ws.Hyperlinks().Items()[0].lCol, 2);
    EXPECT_EQ(ws.Hyperlinks().Items()[0].SubAddress(), "ID_P_45100_B_0");
    EXPECT_TRUE(St(6, 2).bUnderline);  // the look of a link
    // A number stays a number.
    ws.Cells(7, 1).Value(3.0);
    ws.Hyperlinks().Add(ws.Cells(7, 1), "", "ID_x");
    EXPECT_EQ(std::get<double>(ws.Cells(7, 1).GetValue()), 3.0);
    // An empty cell shows the address, or the place in the workbook when there is none.
    ws.Hyperlinks().Add(ws.Cells(8, 1), "", "ID_y");
    EXPECT_EQ(TextAt(8, 1), "ID_y");
    ws.Hyperlinks().Add(ws.Cells(8, 2), "C:\\docs\\a.pdf");
    EXPECT_EQ(TextAt(8, 2), "C:\\docs\\a.pdf");
    // Display text replaces the cell's text.
    ws.Hyperlinks().Add(ws.Cells(6, 2), "a.pdf", "", "", std::string("shown"));
    EXPECT_EQ(TextAt(6, 2), "shown");
    EXPECT_EQ(ws.Hyperlinks().Count(), 4);  // the link on B6 was replaced
}

TEST_F(Model, HyperlinkLimits) {
    // A link to nowhere adds nothing and leaves the cell alone.
    const long lBefore = ws.Hyperlinks().Count();
    EXPECT_NO_THROW(ws.Hyperlinks().Add(ws.Cells(1, 1), ""));
    EXPECT_EQ(ws.Hyperlinks().Count(), lBefore);
    EXPECT_FALSE(ws.GetCell(1, 1).has_value() && ws.GetCell(1, 1)->oStyle.bUnderline);
    xlWorksheet& ws2 = book.Worksheets().Add();
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws2.Cells(1, 1), "a.pdf"), 1004);
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws.Cells(1, 1), "a.pdf", "", std::string(256, 't')), 1004);
    // The writer's limit of 2079 characters, "https://" included.
    const std::string sOk = "https://" + std::string(2071, 'a');
    EXPECT_NO_THROW(ws.Hyperlinks().Add(ws.Cells(2, 1), sOk));
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws.Cells(2, 2), sOk + "a"), 1004);
    // Escaped characters count as escaped ("%20" for a space).
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws.Cells(2, 3), "https://" + std::string(1040, ' ')),
                     1004);
    // A Windows path gets "file:///" in front.
    EXPECT_NO_THROW(ws.Hyperlinks().Add(ws.Cells(2, 4), "c:\\" + std::string(2068, 'a')));
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws.Cells(2, 5), "c:\\" + std::string(2069, 'a')), 1004);
    EXPECT_NO_THROW(ws.Hyperlinks().Add(ws.Cells(2, 6), "", std::string(2079, 'n')));
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws.Cells(2, 7), "", std::string(2080, 'n')), 1004);
}

TEST_F(Model, AtMost65530HyperlinksOnASheet) {
    for (long i = 1; i <= xlMaxHyperlinks; ++i) {
        ws.Hyperlinks().Add(ws.Cells(i, 1), "", "N");
    }
    EXPECT_EQ(ws.Hyperlinks().Count(), 65530);
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws.Cells(70000, 1), "", "N"), 1004);
    EXPECT_NO_THROW(ws.Hyperlinks().Add(ws.Cells(5, 1), "", "Other"));  // a replacement
    EXPECT_EQ(ws.Hyperlinks().Count(), 65530);
}

// ---- page set-up -----------------------------------------------------------------------------

TEST_F(Model, PageSetup) {
    xl::xlPageSetup& p = ws.PageSetup();
    p.Orientation(xlLandscape);
    p.PrintTitleRows(ws.Range(ws.Cells(1, 1), ws.Cells(3, 4)).Address());
    p.CenterFooter("&P");
    p.PrintArea(ws.Range(ws.Cells(1, 1), ws.Cells(40, 6)).Address());
    EXPECT_EQ(p.lOrientation, xlLandscape);
    EXPECT_EQ(p.sPrintTitleRows, "$A$1:$D$3");
    EXPECT_EQ(p.lTitleRow1, 1);
    EXPECT_EQ(p.lTitleRow2, 3);
    EXPECT_EQ(p.sCenterFooter, "&P");
    EXPECT_EQ(p.sPrintArea, "$A$1:$F$40");
    EXPECT_EQ(p.lAreaRow2, 40);
    EXPECT_EQ(p.lAreaCol2, 6);
    p.PrintTitleRows("$2:$4");
    EXPECT_EQ(p.lTitleRow1, 2);
    EXPECT_EQ(p.lTitleRow2, 4);
    EXPECT_RUN_ERROR(p.Orientation(3), 1004);
    EXPECT_RUN_ERROR(p.PrintTitleRows("rows one to three"), 1004);
    EXPECT_RUN_ERROR(p.PrintTitleRows("$A:$B"), 1004);
    EXPECT_RUN_ERROR(p.PrintArea("A1:B2,C3"), 1004);
    EXPECT_RUN_ERROR(p.CenterFooter(std::string(254, 'f')), 1004);
    p.PrintArea("");
    EXPECT_EQ(p.lAreaRow1, 0);
}

// ---- copy, Max, collections ------------------------------------------------------------------

TEST_F(Model, CopyCarriesValuesFormatsAndMerges) {
    ws.Cells(1, 1).Value("Label");
    ws.Cells(1, 1).Font().FontStyle("Bold");
    ws.Cells(2, 1).Value(5.0);
    ws.Range("B1:C1").MergeCells(true);
    ws.Cells(1, 2).Value("merged");
    xlWorksheet& ws2 = book.Worksheets().Add();
    ws2.Cells(2, 3).Value("overwritten");
    ws.Range("A1:C2").Copy(ws2.Range("A1:C2"));
    EXPECT_EQ(ws2.Cells(1, 1).Text(), "Label");
    EXPECT_TRUE(ws2.EffectiveStyle(1, 1).bBold);
    EXPECT_EQ(std::get<double>(ws2.Cells(2, 1).GetValue()), 5.0);
    EXPECT_EQ(ws2.Cells(1, 2).Text(), "merged");
    EXPECT_EQ(ws2.Cells(2, 3).Text(), "");
    ASSERT_EQ(ws2.MergedAreas().size(), 1u);
    EXPECT_EQ(ws2.MergedAreas()[0], (xl::xlMergedArea{1, 2, 1, 3}));

    // To a single cell: the area of the source from there; one row up on the same sheet.
    ws.Cells(5, 1).Value(1.0);
    ws.Cells(6, 1).Value(2.0);
    ws.Range("A5:A6").Copy(ws.Cells(4, 1));
    EXPECT_EQ(std::get<double>(ws.Cells(4, 1).GetValue()), 1.0);
    EXPECT_EQ(std::get<double>(ws.Cells(5, 1).GetValue()), 2.0);
    EXPECT_EQ(std::get<double>(ws.Cells(6, 1).GetValue()), 2.0);

    EXPECT_RUN_ERROR(ws.Range("A1:B2").Copy(ws2.Range("A1:C3")), 1004);
    EXPECT_RUN_ERROR(ws.Range("A1:A2").Copy(ws2.Cells(1048576, 1)), 1004);
    // Pasting over part of a merged area is refused.
    EXPECT_RUN_ERROR(ws.Range("A9:A9").Copy(ws2.Cells(1, 3)), 1004);
}

TEST_F(Model, CopyOfHyperlinkedCells) {
    ws.Cells(1, 1).Value("go");
    ws.Hyperlinks().Add(ws.Cells(1, 1), "", "Target");
    xlWorksheet& ws2 = book.Worksheets().Add();
    ws.Cells(1, 1).Copy(ws2.Cells(3, 3));
    ASSERT_EQ(ws2.Hyperlinks().Count(), 1);
    EXPECT_EQ(ws2.Hyperlinks().Items()[0].lRow, 3);
    EXPECT_EQ(ws2.Hyperlinks().Items()[0].lCol, 3);
    EXPECT_EQ(ws2.Cells(3, 3).Text(), "go");
    // A paste replaces the links of the area it covers.
    ws2.Hyperlinks().Add(ws2.Cells(9, 9), "", "Old");
    ws2.Hyperlinks().Add(ws2.Cells(9, 10), "", "Kept");
    ws.Cells(5, 5).Copy(ws2.Cells(9, 9));
    ASSERT_EQ(ws2.Hyperlinks().Count(), 2);
    EXPECT_EQ(ws2.Hyperlinks().Items()[1].SubAddress(), "Kept");
    ws.Cells(1, 1).Copy(ws2.Cells(9, 10));
    ASSERT_EQ(ws2.Hyperlinks().Count(), 2);
    EXPECT_EQ(ws2.Hyperlinks().Items()[1].SubAddress(), "Target");
    EXPECT_EQ(ws2.Hyperlinks().Items()[1].lCol, 10);
}

TEST_F(Model, ALinkCopiedToAnotherWorkbookTakesItsTextsAlong) {
    ws.Cells(1, 1).Value("go");
    ws.Hyperlinks().Add(ws.Cells(1, 1), "C:\\docs\\a b.pdf", "Place", "Open the file");
    ws.Hyperlinks().Add(ws.Cells(2, 1), "", "Other");
    xl::xlWorkbook& b2 = app.Workbooks().Add();
    xlWorksheet& ws2 = b2.Worksheets()(1);
    ws.Range("A1:A2").Copy(ws2.Cells(4, 2));
    // The copies read their texts from the store of their own workbook, which outlives the
    // other's.
    ASSERT_EQ(ws2.Hyperlinks().Count(), 2);
    const xl::xlHyperlinkEntry& e = ws2.Hyperlinks().Items()[0];
    EXPECT_EQ(e.pTexts, b2.Texts().get());
    EXPECT_EQ(ws2.Hyperlinks().Items()[1].pTexts, b2.Texts().get());
    EXPECT_EQ(e.lRow, 4);
    EXPECT_EQ(e.lCol, 2);
    EXPECT_EQ(e.Address(), "C:\\docs\\a b.pdf");
    EXPECT_EQ(e.SubAddress(), "Place");
    EXPECT_EQ(e.ScreenTip(), "Open the file");
    EXPECT_EQ(ws2.Hyperlinks().Items()[1].Address(), "");
    EXPECT_EQ(ws2.Hyperlinks().Items()[1].SubAddress(), "Other");
    EXPECT_EQ(ws2.Hyperlinks().Items()[1].ScreenTip(), "");
    EXPECT_EQ(ws2.Cells(4, 2).Text(), "go");
}

TEST_F(Model, WorksheetFunctionMax) {
    xl::xlWorksheetFunction f = app.WorksheetFunction();
    EXPECT_EQ(f.Max(ws.Range("A1:A10")), 0);
    ws.Cells(1, 1).Value(3.0);
    ws.Cells(2, 1).Value("99");  // text does not count
    ws.Cells(3, 1).Value(7.5);
    ws.Cells(4, 1).Value(-2.0);
    ws.Cells(5, 2).Value(100.0);  // outside
    EXPECT_EQ(f.Max(ws.Range("A1:A10")), 7.5);
    ws.Range("C1:C2").Value(-5.0);
    EXPECT_EQ(f.Max(ws.Range("C1:C9")), -5);
    EXPECT_EQ(f.Max(ws.Columns(2)), 100);
}

TEST_F(Model, WorksheetsAndWorkbooks) {
    EXPECT_EQ(book.Worksheets().Count(), 1);
    EXPECT_EQ(ws.Name(), "Sheet1");
    xlWorksheet& s2 = book.Worksheets().Add();
    EXPECT_EQ(s2.Name(), "Sheet2");
    EXPECT_EQ(book.Worksheets().Count(), 2);
    EXPECT_EQ(&book.Worksheets().Item(2), &s2);
    EXPECT_EQ(&book.Worksheets()(1), &ws);
    EXPECT_RUN_ERROR(book.Worksheets().Item(3), 9);
    EXPECT_RUN_ERROR(book.Worksheets().Item(0), 9);
    EXPECT_EQ(book.Worksheets().Add().Name(), "Sheet3");

    EXPECT_EQ(app.Workbooks().Count(), 1);
    EXPECT_EQ(&app.Workbooks().Item(1), &book);
    EXPECT_RUN_ERROR(app.Workbooks().Item(2), 9);
    xl::xlWorkbook& b2 = app.Workbooks().Add();
    EXPECT_EQ(b2.Worksheets().Count(), 1);
    EXPECT_EQ(b2.Worksheets()(1).Name(), "Sheet1");
}

TEST_F(Model, SaveNeedsAPathAndAnOpenWorkbook) {
    EXPECT_RUN_ERROR(book.Save(), 1004);
    EXPECT_RUN_ERROR(book.SaveAs(""), 1004);
    book.Close();
    EXPECT_RUN_ERROR(book.SaveAs("/tmp/never-written.xlsx"), 1004);
}

TEST(ModelValues, AnEmptyTextEmptiesTheCellAndKeepsItsFormat) {
    xl::xlWorkbook wb;
    xl::xlWorksheet& ws = wb.Worksheets().Item(1);
    ws.Cells(3, 2).Value("text");
    ws.Cells(3, 2).Font().FontStyle("Bold");
    ws.Cells(3, 2).Value("");
    auto oCell = ws.GetCell(3, 2);
    ASSERT_TRUE(oCell.has_value());
    EXPECT_TRUE(std::holds_alternative<std::monostate>(oCell->vValue));
    EXPECT_TRUE(oCell->oStyle.bBold);
    ws.Cells(4, 4).Value("");  // a cell never written stays unwritten
    EXPECT_FALSE(ws.GetCell(4, 4).has_value() &&
                 !std::holds_alternative<std::monostate>(ws.GetCell(4, 4)->vValue));
}

// A cell takes at most 32,767 UTF-16 units. A text of up to half that in bytes is taken without
// counting (no byte counts for more than two units); a longer one is counted: 'a' one unit a
// byte, an e-acute one unit for two bytes, and a lone 0xF0 byte, the lead of a four-byte
// sequence, two units.
TEST(Utf16Length, AShortTextNeedsNoCountingALongOneIsCounted) {
    using xl::detail::Utf16Length;
    using xl::detail::Utf16LengthAtMost;
    const size_t kLimit = 32767;
    for (const std::string& s :
         {std::string(16383, '\xF0'), std::string(16384, '\xF0'), std::string(32767, 'a'),
          std::string(32768, 'a'), std::string(), [] {
              std::string e;
              for (int i = 0; i < 20000; ++i)
                  e += "\xC3\xA9";
              return e;
          }()}) {
        EXPECT_EQ(Utf16LengthAtMost(s, kLimit), Utf16Length(s) <= kLimit) << s.size();
    }
    EXPECT_TRUE(Utf16LengthAtMost(std::string(16383, '\xF0'), kLimit));
    EXPECT_FALSE(Utf16LengthAtMost(std::string(16384, '\xF0'), kLimit));
    EXPECT_TRUE(Utf16LengthAtMost(std::string(32767, 'a'), kLimit));
    EXPECT_FALSE(Utf16LengthAtMost(std::string(32768, 'a'), kLimit));
    // The cell itself: 32,767 units are taken, one more is refused.
    xl::xlWorkbook book;
    xl::xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(1, 1).Value(std::string(32767, 'a'));
    EXPECT_RUN_ERROR(ws.Cells(1, 2).Value(std::string(16384, '\xF0')), errAppDefined);
}
