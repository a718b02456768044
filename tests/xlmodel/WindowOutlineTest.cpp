// The object model's window and outline: frozen panes, row outline levels and where their summary
// rows stand, the AutoFilter, columns fitted to their text, and how a sheet that continues on new
// sheets carries them.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <string>

#include "TestUtil.h"
#include "support/clsRunError.h"
#include "support/modConst.h"
#include "xl/xlObjectModel.h"
#include "xl/xlRowFit.h"

using namespace modConst;
using xl::xlWorksheet;

namespace {

class WindowOutline : public ::testing::Test {
protected:
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    xlWorksheet& ws = book.Worksheets()(1);
};

}  // namespace

TEST_F(WindowOutline, FreezePanesKeepsTheRowsAboveAndTheColumnsLeftOfTheCell) {
    EXPECT_EQ(ws.FrozenRows(), 0);
    EXPECT_EQ(ws.FrozenColumns(), 0);
    ws.FreezePanes(2, 1);
    EXPECT_EQ(ws.FrozenRows(), 1);
    EXPECT_EQ(ws.FrozenColumns(), 0);
    ws.FreezePanes(5, 3);
    EXPECT_EQ(ws.FrozenRows(), 4);
    EXPECT_EQ(ws.FrozenColumns(), 2);
    ws.FreezePanes(1, 1);
    EXPECT_EQ(ws.FrozenRows(), 0);
    EXPECT_EQ(ws.FrozenColumns(), 0);
    EXPECT_RUN_ERROR(ws.FreezePanes(0, 1), 1004);
    EXPECT_RUN_ERROR(ws.FreezePanes(1, 16385), 1004);
}

TEST_F(WindowOutline, OutlineLevelsOfWholeRowsFromOneToEight) {
    EXPECT_EQ(ws.RowOutlineLevel(7), 1);
    ws.Rows(7).OutlineLevel(3);
    ws.Range("A8:XFD9").OutlineLevel(8);
    EXPECT_EQ(ws.RowOutlineLevel(7), 3);
    EXPECT_EQ(ws.RowOutlineLevel(8), 8);
    EXPECT_EQ(ws.RowOutlineLevel(9), 8);
    EXPECT_EQ(ws.RowOutlineLevel(10), 1);
    ws.Rows(8).OutlineLevel(1);
    EXPECT_EQ(ws.RowOutlineLevel(8), 1);
    EXPECT_RUN_ERROR(ws.Rows(7).OutlineLevel(0), 1004);
    EXPECT_RUN_ERROR(ws.Rows(7).OutlineLevel(9), 1004);
    EXPECT_RUN_ERROR(ws.Range("A7:F7").OutlineLevel(2), 1004);
    EXPECT_RUN_ERROR(ws.Cells().OutlineLevel(2), 1004);
    EXPECT_EQ(ws.RowOutlineLevel(7), 3);
}

TEST_F(WindowOutline, SummaryRowsStandBelowUnlessSetAbove) {
    EXPECT_EQ(ws.OutlineSummaryRowOf(), xlSummaryBelow);
    ws.OutlineSummaryRow(xlSummaryAbove);
    EXPECT_EQ(ws.OutlineSummaryRowOf(), xlSummaryAbove);
    EXPECT_RUN_ERROR(ws.OutlineSummaryRow(2), 1004);
    EXPECT_EQ(ws.OutlineSummaryRowOf(), xlSummaryAbove);
}

TEST_F(WindowOutline, OneAutoFilterPerSheetTheLaterOneWins) {
    EXPECT_FALSE(ws.AutoFilterArea().has_value());
    ws.Range("A1:E20").AutoFilter();
    ASSERT_TRUE(ws.AutoFilterArea().has_value());
    EXPECT_EQ(*ws.AutoFilterArea(), (std::array<long, 4>{1, 1, 20, 5}));
    ws.Range("B4:C9").AutoFilter();
    EXPECT_EQ(*ws.AutoFilterArea(), (std::array<long, 4>{4, 2, 9, 3}));
}

TEST_F(WindowOutline, AutoFitGivesEachColumnItsWidestLine) {
    ws.Cells(1, 1).Value("Item ID");
    ws.Cells(2, 1).Value("P-100");
    ws.Cells(1, 2).Value("a much longer description of a part");
    ws.Cells(2, 2).Value("short");
    ws.Cells(1, 3).Value(123456.0);
    ws.Cells(1, 4).Value("first line\nand a second, longer line");
    ws.Cells(3, 5).Value("bold heading");
    ws.Cells(3, 5).Font().Bold(true);
    ws.Cells(4, 6).Value("under a merged area that spans columns F and G");
    ws.Range("F4:G4").MergeCells(true);
    ws.Columns(8).ColumnWidth(30);  // no value: keeps its width
    ws.Columns().AutoFit();

    // The width that holds the widest line in 7 pixels a character, plus a little.
    auto fnWidth = [](const std::string& s, int nFace) {
        const long lPx = xl::detail::TextPixels(s, nFace, 11);
        return std::ceil((lPx + 4.0) / 7.0 * 4.0) / 4.0;
    };
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(1), fnWidth("Item ID", 0));
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(2), fnWidth("a much longer description of a part", 0));
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(3), fnWidth("123456", 0));
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(4), fnWidth("and a second, longer line", 0));
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(5), fnWidth("bold heading", 1));
    EXPECT_GT(ws.ColumnWidthOf(5), fnWidth("bold heading", 0));
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(6), 8.43);
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(8), 30);
    // A longer text needs a wider column; the width is in whole quarters.
    EXPECT_GT(ws.ColumnWidthOf(2), ws.ColumnWidthOf(1));
    EXPECT_DOUBLE_EQ(ws.ColumnWidthOf(2) * 4, std::floor(ws.ColumnWidthOf(2) * 4));
    // The text fits the pixels that the width gives it.
    EXPECT_GE(static_cast<long>(ws.ColumnWidthOf(2) * 7),
              xl::detail::TextPixels("a much longer description of a part", 0, 11));
}

TEST_F(WindowOutline, AutoFitOfRowsDropsTheirOwnHeights) {
    ws.Rows(3).RowHeight(40);
    ws.Rows(3).AutoFit();
    EXPECT_FALSE(ws.HasOwnRowHeight(3));
    EXPECT_RUN_ERROR(ws.Range("A1:B2").AutoFit(), 1004);
}

TEST_F(WindowOutline, ContinuationSheetsCarryFreezeOutlineAndEndTheFilter) {
    ws.Name("Where Used");
    ws.Cells(1, 1).Value("Item ID");
    ws.FreezePanes(2, 1);
    ws.OutlineSummaryRow(xlSummaryAbove);
    ws.ContinuePastLastRow();
    const long lRows = xlMaxRows + 10;
    for (long r = 2; r <= lRows; r += 1000) {
        ws.KeepRowsTogetherFrom(r);
    }
    for (long r = 2; r <= lRows; ++r) {
        if (r % 1000 == 2) ws.Cells(r, 1).Value(static_cast<double>(r));
    }
    ws.Cells(lRows, 1).Value("last");
    ws.Rows(lRows).OutlineLevel(4);
    ws.Range(ws.Cells(1, 1), ws.Cells(lRows, 1)).AutoFilter();
    const auto arrNew = ws.ContinueOnNewSheets({1}, 0);
    ASSERT_EQ(arrNew.size(), 1u);
    xlWorksheet& w2 = *arrNew[0];
    EXPECT_EQ(w2.Name(), "Where Used (2)");
    EXPECT_EQ(w2.FrozenRows(), 1);
    EXPECT_EQ(w2.OutlineSummaryRowOf(), xlSummaryAbove);
    EXPECT_EQ(w2.Cells(1, 1).Text(), "Item ID");
    const long lLastThere = w2.UsedLastRow();
    EXPECT_EQ(w2.Cells(lLastThere, 1).Text(), "last");
    EXPECT_EQ(w2.RowOutlineLevel(lLastThere), 4);
    // The first sheet's filter ends with its rows; the new sheet has none until it is given one.
    const long lKept = ws.UsedLastRow();
    ASSERT_TRUE(ws.AutoFilterArea().has_value());
    EXPECT_EQ((*ws.AutoFilterArea())[2], static_cast<long>(ws.Data().arrRows.size()));
    EXPECT_LE(lKept, xlMaxRows);
    EXPECT_FALSE(w2.AutoFilterArea().has_value());
}

TEST_F(WindowOutline, AnXlsWorkbookRefusesAFreezeOrFilterBeyondItsSheet) {
    testutil::TempDir tmp;
    const std::string sFile = tmp.File("out.xls");
    ws.Cells(1, 1).Value("Item ID");
    ws.FreezePanes(70000, 1);
    EXPECT_RUN_ERROR(book.SaveAs(sFile), 1004);
    EXPECT_FALSE(std::filesystem::exists(sFile));
    ws.FreezePanes(2, 1);
    ws.Range("A1:A70000").AutoFilter();
    EXPECT_RUN_ERROR(book.SaveAs(sFile), 1004);
    EXPECT_FALSE(std::filesystem::exists(sFile));
    ws.Range("A1:A10").AutoFilter();
    EXPECT_RUN_ERROR(book.SaveAs(sFile), 0);
    EXPECT_TRUE(std::filesystem::exists(sFile));
}
