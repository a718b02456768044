// A sheet filled past its last row, then continued on new sheets block by block: where the cuts
// fall (rows, hyperlinks, local names), what the new sheets carry, and where names and links end.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestUtil.h"
#include "support/modConst.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

using namespace modConst;
using xl::xlWorksheet;

namespace {

std::string BlockName(long i) {
    return "ID_" + std::to_string(i);
}

class Continuation : public ::testing::Test {
protected:
    testutil::TempDir dir;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);

    // Two title rows, then nBlocks blocks of nRows rows from row 3: the first row of block i
    // holds "B<i>" and the name ID_<i>, its other rows "B<i>.<k>"; with bLinks, the first row
    // also holds a link to a file.
    void FillBlocks(long nBlocks, long nRows, bool bLinks = false) {
        ws.Cells(1, 1).Value("Caption");
        ws.Cells(2, 1).Value("Property Panel");
        ws.ContinuePastLastRow();
        long r = 3;
        for (long i = 1; i <= nBlocks; ++i) {
            ws.KeepRowsTogetherFrom(r);
            ws.Cells(r, 1).Value("B" + std::to_string(i));
            ws.Names().Add(BlockName(i), ws.Rows(r));
            if (bLinks) ws.Hyperlinks().Add(ws.Cells(r, 2), "file.txt");
            for (long k = 2; k <= nRows; ++k)
                ws.Cells(r + k - 1, 1).Value("B" + std::to_string(i) + "." + std::to_string(k));
            r += nRows;
        }
    }

    // Every block's name is on the sheet that holds its first row, and every row of the block
    // follows it there unless the block is longer than a sheet.
    void ExpectBlocksWhole(const std::vector<xlWorksheet*>& arrSheets, long nBlocks, long nRows) {
        long nFound = 0;
        for (xlWorksheet* p : arrSheets) {
            for (const xl::xlNameEntry& e : p->Names().Items()) {
                const std::string sId = e.sName.substr(3);
                ASSERT_EQ(p->Cells(e.lRow1, 1).Text(), "B" + sId) << p->Name() << " " << e.sName;
                for (long k = 2; k <= nRows; ++k) {
                    ASSERT_EQ(p->Cells(e.lRow1 + k - 1, 1).Text(),
                              "B" + sId + "." + std::to_string(k))
                        << p->Name() << " " << e.sName;
                }
                ++nFound;
            }
        }
        EXPECT_EQ(nFound, nBlocks);
    }

    std::vector<xlWorksheet*> AllSheets() {
        std::vector<xlWorksheet*> arr;
        for (long i = 1; i <= book.Worksheets().Count(); ++i)
            arr.push_back(&book.Worksheets()(i));
        return arr;
    }
};

}  // namespace

TEST_F(Continuation, ASheetThatFitsGetsNoNewSheet) {
    FillBlocks(100, 3);
    EXPECT_TRUE(ws.ContinueOnNewSheets({1, 2}, 0).empty());
    EXPECT_EQ(book.Worksheets().Count(), 1);
    EXPECT_FALSE(ws.ContinuesPastLastRow());
    ExpectBlocksWhole({&ws}, 100, 3);
}

TEST_F(Continuation, BlocksPastTheLastRowOfAnXlsSheetGoWholeToNewSheetsWithTheTitleRows) {
    book.SaveAs(dir.File("x.xls"));
    ASSERT_EQ(ws.MaxRows(), xlMaxRowsXls);
    FillBlocks(30000, 3);  // rows 3 to 90,002
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 0);
    ASSERT_EQ(arrNew.size(), 1u);
    EXPECT_EQ(arrNew[0]->Name(), "Sheet1 (2)");
    EXPECT_EQ(book.Worksheets()(2).Name(), "Sheet1 (2)");
    // The first sheet keeps whole blocks up to its end: 21,844 blocks end at row 65,534.
    EXPECT_EQ(ws.UsedLastRow(), 2 + 21844 * 3);
    EXPECT_EQ(ws.Cells(65532, 1).Text(), "B21844");
    EXPECT_EQ(arrNew[0]->Cells(1, 1).Text(), "Caption");
    EXPECT_EQ(arrNew[0]->Cells(2, 1).Text(), "Property Panel");
    EXPECT_EQ(arrNew[0]->Cells(3, 1).Text(), "B21845");
    EXPECT_EQ(arrNew[0]->UsedLastRow(), 2 + (30000 - 21844) * 3);
    ExpectBlocksWhole(AllSheets(), 30000, 3);
    book.SaveAs(dir.File("x.xls"));
}

TEST_F(Continuation, RowsMoveToTheNewSheetsWithTheirTextsStoredNoSecondTime) {
    book.SaveAs(dir.File("x.xls"));
    FillBlocks(30000, 3);
    const size_t lTexts = book.Texts()->Count();
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 0);
    ASSERT_EQ(arrNew.size(), 1u);
    EXPECT_EQ(book.Texts()->Count(), lTexts);
    EXPECT_EQ(arrNew[0]->Cells(3 + 3 * 100, 1).Text(), "B21945");
    EXPECT_EQ(arrNew[0]->Cells(4 + 3 * 100, 1).Text(), "B21945.2");
    // The moved rows are gone from the first sheet.
    EXPECT_EQ(ws.Cells(65536, 1).Text(), "");
    EXPECT_FALSE(ws.GetCell(65536, 1).has_value());
}

TEST_F(Continuation, ABlockLongerThanASheetIsCutWhereTheSheetEnds) {
    book.SaveAs(dir.File("x.xls"));
    FillBlocks(1, 100);
    ws.KeepRowsTogetherFrom(103);
    for (long r = 103; r < 103 + 70000; ++r)
        ws.Cells(r, 1).Value("L" + std::to_string(r));
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 0);
    ASSERT_EQ(arrNew.size(), 2u);
    EXPECT_EQ(ws.UsedLastRow(), 102);
    // The second sheet is full: two title rows and 65,534 rows of the long block.
    EXPECT_EQ(arrNew[0]->UsedLastRow(), xlMaxRowsXls);
    EXPECT_EQ(arrNew[0]->Cells(3, 1).Text(), "L103");
    EXPECT_EQ(arrNew[0]->Cells(xlMaxRowsXls, 1).Text(), "L65636");
    EXPECT_EQ(arrNew[1]->Name(), "Sheet1 (3)");
    EXPECT_EQ(arrNew[1]->Cells(3, 1).Text(), "L65637");
    EXPECT_EQ(arrNew[1]->Cells(arrNew[1]->UsedLastRow(), 1).Text(), "L70102");
}

TEST_F(Continuation, ASheetKeepsNoMoreHyperlinksThanTheApplicationsRead) {
    // 65,000 blocks with a link each, and room kept for 1,000 links still to come.
    FillBlocks(65000, 2, true);
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 1000);
    ASSERT_EQ(arrNew.size(), 1u);
    EXPECT_EQ(ws.Hyperlinks().Count(), xlMaxHyperlinks - 1000);
    EXPECT_EQ(arrNew[0]->Hyperlinks().Count(), 65000 - (xlMaxHyperlinks - 1000));
    for (const xl::xlHyperlinkEntry& e : arrNew[0]->Hyperlinks().Items()) {
        ASSERT_EQ(arrNew[0]->Cells(e.lRow, 1).Text().substr(0, 1), "B");
        ASSERT_EQ(e.lCol, 2);
    }
    ExpectBlocksWhole(AllSheets(), 65000, 2);
}

TEST_F(Continuation, ASheetFilledPastItsLinksKeepsEveryLinkOnTheSheetsThatFollow) {
    // 70,000 blocks with a link each: more than one sheet holds, all taken while filling.
    FillBlocks(70000, 2, true);
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 0);
    ASSERT_EQ(arrNew.size(), 1u);
    EXPECT_EQ(ws.Hyperlinks().Count(), xlMaxHyperlinks);
    EXPECT_EQ(arrNew[0]->Hyperlinks().Count(), 70000 - xlMaxHyperlinks);
    EXPECT_EQ(arrNew[0]->Cells(3, 1).Text(), "B" + std::to_string(xlMaxHyperlinks + 1));
    ExpectBlocksWhole(AllSheets(), 70000, 2);
    // Once the sheet has its rows, it holds no more than the applications read.
    EXPECT_RUN_ERROR(ws.Hyperlinks().Add(ws.Cells(1, 5), "more.txt"), 1004);
}

TEST_F(Continuation, ASheetKeepsNoMoreLocalNamesThanLibreOfficeReads) {
    // 70,000 blocks fit the rows of one .xlsx sheet, but not as names of one sheet.
    FillBlocks(70000, 2);
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 0);
    ASSERT_EQ(arrNew.size(), 1u);
    EXPECT_EQ(ws.Names().Count(), xlMaxLocalNames);
    EXPECT_EQ(arrNew[0]->Names().Count(), 70000 - xlMaxLocalNames);
    EXPECT_EQ(arrNew[0]->Cells(3, 1).Text(), "B" + std::to_string(xlMaxLocalNames + 1));
    ExpectBlocksWhole(AllSheets(), 70000, 2);
    book.SaveAs(dir.File("x.xlsx"));
}

TEST_F(Continuation, ALinkToANameThatMovedLeadsToTheCellOnItsNewSheet) {
    book.SaveAs(dir.File("x.xls"));
    FillBlocks(30000, 3);
    ws.Hyperlinks().Add(ws.Cells(1, 3), "", BlockName(30000), "", "last");
    ws.Hyperlinks().Add(ws.Cells(1, 4), "", BlockName(1), "", "first");
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 0);
    ASSERT_EQ(arrNew.size(), 1u);
    ASSERT_EQ(ws.Hyperlinks().Count(), 2);
    const xl::xlNameEntry* pLast = arrNew[0]->Names().Find(BlockName(30000));
    ASSERT_NE(pLast, nullptr);
    for (const xl::xlHyperlinkEntry& e : ws.Hyperlinks().Items()) {
        if (e.lCol == 3) {
            EXPECT_EQ(e.SubAddress(), "'Sheet1 (2)'!$A$" + std::to_string(pLast->lRow1));
        } else {
            EXPECT_EQ(e.SubAddress(), BlockName(1));
        }
    }
}

TEST_F(Continuation, TheNewSheetsNameIsShortenedToThirtyOneCharacters) {
    book.SaveAs(dir.File("x.xls"));
    ws.Name(std::string(31, 'N'));
    FillBlocks(30000, 3);
    const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1, 2}, 0);
    ASSERT_EQ(arrNew.size(), 1u);
    EXPECT_EQ(arrNew[0]->Name(), std::string(27, 'N') + " (2)");
}
