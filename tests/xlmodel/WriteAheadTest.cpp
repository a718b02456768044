// The file's writer taking a sheet's rows while the sheet is filled: the file it completes is the
// one the whole model gives, and whatever the sheet does that was not promised (a link made
// otherwise, a row changed, rows moved to new sheets, a build that stops) leaves the save to the
// model, as without it.
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>

#include "TestUtil.h"
#include "support/modConst.h"
#include "support/modSaveFile.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

using namespace modConst;
using xl::xlWorksheet;

namespace {

// How the sheet is filled, and what it does that was not promised.
struct Plan {
    long nMain = 300;          // rows of the "main panel", each linked to its block
    long nBlocks = 300;        // blocks of three rows
    long nExtra = 0;           // and so many more, a number each
    bool bAhead = true;        // the writer takes the rows ahead
    bool bKeepLinks = true;    // the promised links are made at the end
    std::string sOtherAnchor;  // one promised link leads elsewhere
    bool bChangeMainRow = false;
    bool bOtherSheetChange = false;
    bool bKeepAlignment = true;    // the promised top alignment is applied at the end
    long nSheetRows = 0;           // rows a sheet holds, when fewer than an .xlsx sheet's
    bool bForecast = false;        // the blocks are forecast before they are filled
    long nLongerBlock = 0;         // this block has one row more than forecast
    long nFormulas = 0;            // the last main-panel rows lead to their blocks by formulas
    bool bNewSheetChange = false;  // a new sheet gets a whole-sheet change not promised
    long nCopyLinkAt = 0;          // a linked cell of another workbook is copied into this block
};

class WriteAhead : public ::testing::Test {
protected:
    testutil::TempDir dir;

    // A title row; the main panel from row 3, a row per block naming it; an empty row; the
    // blocks, each with a merged band, a name, a link to a file and a long text. Then the links
    // from the main panel to the blocks and the top alignment of every cell, as an export's page
    // set-up does.
    static void Fill(xlWorksheet& ws, const Plan& p) {
        ws.Columns().ColumnWidth(21);
        ws.Cells().WrapText(true);
        ws.Cells(1, 1).Value("Title");
        ws.Rows(1).Font().FontStyle("Bold");
        for (long i = 1; i <= p.nMain; ++i)
            ws.Cells(2 + i, 2).Value("P-" + std::to_string(i));
        ws.ContinuePastLastRow();
        ws.StreamFinishedBlocks();
        if (p.nSheetRows != 0) ws.Data().lMaxRows = p.nSheetRows;
        if (p.bAhead) {
            ws.WriteAhead();
            // A block forecast to go to a new sheet is reached by its cell there.
            std::vector<xl::xlBlockPlace> arrPlaces(static_cast<size_t>(p.nBlocks));
            if (p.bForecast) {
                const std::vector<xl::xlBlockExtent> arrBlocks(static_cast<size_t>(p.nBlocks),
                                                               {3 + p.nExtra, 1, 1});
                if (auto o = ws.ForecastContinuation(p.nMain + 4, arrBlocks, {1}, p.nMain)) {
                    arrPlaces = std::move(*o);
                }
            }
            ws.PromiseVerticalAlignment(xlTop);
            for (long i = 1; i <= p.nMain; ++i) {
                const xl::xlBlockPlace& o = arrPlaces[static_cast<size_t>(i - 1)];
                if (i > p.nMain - p.nFormulas) {
                    ws.Hyperlinks().PromiseFormula(ws.Cells(2 + i, 2), Formula(i));
                } else {
                    ws.Hyperlinks().Promise(ws.Cells(2 + i, 2), "", o.bStays ? Anchor(i) : o.sCell);
                }
            }
        }
        long r = p.nMain + 4;
        for (long i = 1; i <= p.nBlocks; ++i) {
            if (i == p.nLongerBlock) ws.Cells(r++, 5).Value("one row more");
            ws.KeepRowsTogetherFrom(r);
            ws.Range(ws.Cells(r, 1), ws.Cells(r, 3)).MergeCells(true);
            ws.Cells(r, 1).Value("B" + std::to_string(i));
            ws.Cells(r, 1).Font().FontStyle("Bold");
            ws.Names().Add(Anchor(i), ws.Rows(r));
            ws.Hyperlinks().Add(ws.Cells(r + 1, 4), "file" + std::to_string(i % 7) + ".txt");
            ws.Cells(r + 1, 1).Value("B" + std::to_string(i) +
                                     ".2 with a text long enough to wrap in its column");
            ws.Cells(r + 2, 2).Value(static_cast<double>(i));
            for (long k = 0; k < p.nExtra; ++k)
                ws.Cells(r + 3 + k, 3).Value(static_cast<double>(k));
            if (i == p.nCopyLinkAt) {
                xl::xlWorkbook other;
                xlWorksheet& src = other.Worksheets()(1);
                src.Cells(1, 1).Value("copied");
                src.Hyperlinks().Add(src.Cells(1, 1), "copied.txt");
                src.Cells(1, 1).Copy(ws.Cells(r + 2, 6));
            }
            r += 3 + p.nExtra;
        }
        const std::vector<xlWorksheet*> arrNew = ws.ContinueOnNewSheets({1}, p.nMain);
        if (p.bChangeMainRow) ws.Cells(5, 3).Value("changed later");
        if (p.bKeepLinks) {
            for (long i = 1; i <= p.nMain; ++i) {
                std::string sTarget =
                    i == 7 && !p.sOtherAnchor.empty() ? p.sOtherAnchor : Anchor(i);
                // A block on a new sheet is reached by its cell there, as an export does.
                for (xlWorksheet* pTo : arrNew) {
                    if (const xl::xlNameEntry* e = pTo->Names().Find(sTarget)) {
                        sTarget = pTo->Cells(e->lRow1, 1).AddressExternal();
                    }
                }
                if (i > p.nMain - p.nFormulas) {
                    ws.Cells(2 + i, 2).Formula(Formula(i));
                    ws.Cells(2 + i, 2).Font().Underline(xlUnderlineStyleSingle);
                    ws.Cells(2 + i, 2).Font().ColorIndex(5);
                } else {
                    ws.Hyperlinks().Add(ws.Cells(2 + i, 2), "", sTarget);
                }
            }
        }
        if (p.bOtherSheetChange) ws.Cells().WrapText(false);
        if (p.bNewSheetChange && !arrNew.empty()) arrNew.front()->Cells().WrapText(false);
        // Each sheet's page set-up aligns its cells, the new ones' too.
        if (p.bKeepAlignment) {
            ws.Cells().VerticalAlignment(xlTop);
            for (xlWorksheet* pTo : arrNew)
                pTo->Cells().VerticalAlignment(xlTop);
        }
    }
    static std::string Anchor(long i) { return "ID_" + std::to_string(i); }
    static std::string Formula(long i) {
        return "=HYPERLINK(\"#Sheet1!$A$1\",\"P-" + std::to_string(i) + "\")";
    }
    // A plan whose sheet is left as the blocks leave it: no promise kept yet.
    static Plan Unfinished() {
        Plan p;
        p.bKeepLinks = false;
        p.bKeepAlignment = false;
        return p;
    }
    // A plan whose blocks are counted first and continue on three new sheets of 500 rows.
    static Plan Continued() {
        Plan p;
        p.nMain = 300;
        p.nBlocks = 400;
        p.nSheetRows = 500;
        p.bForecast = true;
        return p;
    }
    // The sheet continues past its end, streams its finished blocks and asks to write ahead.
    static void StartWritingAhead(xlWorksheet& ws) {
        ws.ContinuePastLastRow();
        ws.StreamFinishedBlocks();
        ws.WriteAhead();
    }

    // Saves a workbook filled by plan p as an export does: its place first, then filled, then
    // saved as it closes. Tells whether the writer's file was completed.
    bool SaveFilled(const std::string& sFile, const Plan& p) {
        xl::xlWorkbook book;
        book.SaveAs(sFile);
        Fill(book.Worksheets()(1), p);
        book.Close(true);
        return book.LastSaveWroteAhead();
    }
    // The same workbook built whole in memory, then saved.
    void SaveWhole(const std::string& sFile, Plan p) {
        p.bAhead = false;
        xl::xlWorkbook book;
        Fill(book.Worksheets()(1), p);
        book.SaveAs(sFile);
        EXPECT_FALSE(book.LastSaveWroteAhead());
    }

    // Every part of an .xlsx but its creation time, read by Python's zip reader.
    static std::string Parts(const std::string& sFile) {
        return testutil::CommandOutput(
            "/usr/bin/python3 -c \"import sys, zipfile\n"
            "z = zipfile.ZipFile(sys.argv[1])\n"
            "for n in sorted(z.namelist()):\n"
            "    if n != 'docProps/core.xml': print(n); print(z.read(n).decode())\" '" +
            sFile + "' 2>&1");
    }
    void ExpectSameFile(const std::string& a, const std::string& b) {
        const std::string sA = Parts(a), sB = Parts(b);
        ASSERT_GT(sA.size(), 10000u) << sA.substr(0, 500);
        EXPECT_TRUE(sA == sB) << "the files differ: " << a << " " << b;
    }
    // The sheet filled by plan p went ahead, and its file is the one the whole model gives;
    // returns the parts of the file (ahead.xlsx).
    std::string ExpectWrittenAhead(const Plan& p) {
        EXPECT_TRUE(SaveFilled(dir.File("ahead.xlsx"), p));
        SaveWhole(dir.File("whole.xlsx"), p);
        ExpectSameFile(dir.File("ahead.xlsx"), dir.File("whole.xlsx"));
        return Parts(dir.File("ahead.xlsx"));
    }
};

}  // namespace

TEST_F(WriteAhead, TheFileTheWriterCompletesIsTheOneTheModelSaves) {
    EXPECT_TRUE(SaveFilled(dir.File("ahead.xlsx"), Plan{}));
    SaveWhole(dir.File("whole.xlsx"), Plan{});
    ExpectSameFile(dir.File("ahead.xlsx"), dir.File("whole.xlsx"));
    // Nothing of either save is left beside them.
    EXPECT_EQ(testutil::NamesIn(dir.Path()), "ahead.xlsx,whole.xlsx");
}

TEST_F(WriteAhead, TheRowsGoToTheWriterAsTheyGoToTheSpool) {
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, Unfinished());
    EXPECT_TRUE(ws.WritesAhead());
    ASSERT_NE(ws.Data().pSpool, nullptr);
    EXPECT_GT(ws.Data().pSpool->lLast, 800);
    // Promises were kept for the rows they were made for; those rows went.
    EXPECT_TRUE(ws.Data().arrPromisedLinks.empty());
    EXPECT_EQ(ws.Data().lPromisedLinks, 300u);
}

// A link made otherwise than promised, a row changed after it went, a whole-sheet change that
// was not promised, promises not kept (a build that stopped): the file is written from the
// model, and it is the one the whole model gives.
TEST_F(WriteAhead, WhatWasNotPromisedLeavesTheSaveToTheModel) {
    Plan pOther;
    pOther.sOtherAnchor = "ID_8";
    Plan pRow;
    pRow.bChangeMainRow = true;
    Plan pSheet;
    pSheet.bOtherSheetChange = true;
    const Plan pStopped = Unfinished();
    Plan pNoAlignment;
    pNoAlignment.bKeepAlignment = false;
    int n = 0;
    for (const Plan& p : {pOther, pRow, pSheet, pStopped, pNoAlignment}) {
        ++n;
        const std::string sAhead = dir.File("ahead" + std::to_string(n) + ".xlsx");
        const std::string sWhole = dir.File("whole" + std::to_string(n) + ".xlsx");
        EXPECT_FALSE(SaveFilled(sAhead, p)) << n;
        SaveWhole(sWhole, p);
        ExpectSameFile(sAhead, sWhole);
    }
}

// A link that comes with a copied cell, not made by itself: the row that holds it goes ahead
// with it (a row without a link of its own is looked up all the same), and the file is the one
// the whole model gives.
TEST_F(WriteAhead, ALinkCopiedIntoARowGoesAheadWithIt) {
    Plan p;
    p.nCopyLinkAt = 40;
    EXPECT_NE(ExpectWrittenAhead(p).find("copied.txt"), std::string::npos);
}

// Rows past the sheet's end move to new sheets: the writer stops as soon as the rows pass it,
// and the workbook is saved from the model.
TEST_F(WriteAhead, RowsThatMoveToNewSheetsStopTheWriter) {
    Plan p;
    p.nMain = 100;
    p.nBlocks = 30000;  // 1.08 million rows
    p.nExtra = 33;
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, p);
    EXPECT_FALSE(ws.WritesAhead());
    ASSERT_EQ(book.Worksheets().Count(), 2);
    book.Close(true);
    EXPECT_FALSE(book.LastSaveWroteAhead());
}

// Blocks counted before they are filled: the writer takes the rows the sheet keeps while the
// rest still come, and the file it completes, with the new sheets written from the model at the
// save, is the one the whole model gives.
TEST_F(WriteAhead, ASheetCutWhereForecastWritesTheRowsItKeepsAhead) {
    Plan p = Continued();
    xl::xlWorkbook book;
    book.SaveAs(dir.File("ahead.xlsx"));
    Fill(book.Worksheets()(1), p);
    ASSERT_EQ(book.Worksheets().Count(), 4);
    const xl::xlWorksheet::Impl& d = book.Worksheets()(1).Data();
    // The sheet keeps the main panel, an empty row and 65 blocks: its rows went ahead.
    EXPECT_EQ(d.arrRows.size(), 303u + 65 * 3);
    EXPECT_TRUE(book.Worksheets()(1).WritesAhead());
    book.Close(true);
    EXPECT_TRUE(book.LastSaveWroteAhead());
    SaveWhole(dir.File("whole.xlsx"), p);
    ExpectSameFile(dir.File("ahead.xlsx"), dir.File("whole.xlsx"));
    // The main panel leads to the blocks on the new sheets by their cells.
    const std::string sParts = Parts(dir.File("ahead.xlsx"));
    EXPECT_NE(sParts.find("location=\"'Sheet1 (2)'!$A$2\""), std::string::npos);
    EXPECT_NE(sParts.find("location=\"ID_65\""), std::string::npos);
    EXPECT_EQ(sParts.find("location=\"ID_66\""), std::string::npos);
    EXPECT_EQ(testutil::NamesIn(dir.Path()), "ahead.xlsx,whole.xlsx");
}

// The rows of the new sheets went to the writer as well: a new sheet changed otherwise than
// promised leaves the save to the model.
TEST_F(WriteAhead, ANewSheetChangedOtherwiseThanPromisedIsSavedFromTheModel) {
    Plan p = Continued();
    p.bNewSheetChange = true;
    EXPECT_FALSE(SaveFilled(dir.File("ahead.xlsx"), p));
    SaveWhole(dir.File("whole.xlsx"), p);
    ExpectSameFile(dir.File("ahead.xlsx"), dir.File("whole.xlsx"));
}

// A sheet that keeps none of its blocks (here, no room for one after the main panel) writes the
// rows before them ahead once the blocks pass, its links leading to the blocks' cells.
TEST_F(WriteAhead, ASheetThatKeepsNoBlockWritesTheRowsBeforeThemAhead) {
    Plan p;
    p.nSheetRows = 305;
    p.bForecast = true;
    p.nFormulas = 100;
    EXPECT_TRUE(SaveFilled(dir.File("ahead.xlsx"), p));
    SaveWhole(dir.File("whole.xlsx"), p);
    ExpectSameFile(dir.File("ahead.xlsx"), dir.File("whole.xlsx"));
    const std::string sParts = Parts(dir.File("ahead.xlsx"));
    EXPECT_NE(sParts.find("location=\"'Sheet1 (2)'!$A$2\""), std::string::npos);
    EXPECT_EQ(sParts.find("location=\"ID_1\""), std::string::npos);
}

// Past the links a sheet holds, the main panel leads to its blocks by formulas: promised for
// their cells, written ahead with the look of a link, set when the blocks are placed.
TEST_F(WriteAhead, FormulasInPlaceOfLinksAreWrittenAhead) {
    Plan p;
    p.nFormulas = 40;
    const std::string sParts = ExpectWrittenAhead(p);
    EXPECT_NE(sParts.find("<f>HYPERLINK(\"#Sheet1!$A$1\",\"P-300\")</f>"), std::string::npos);
    // A formula that is not set as promised leaves the save to the model.
    auto fnWroteAhead = [&](const std::string& sFile, long lSet) {
        xl::xlWorkbook book;
        book.SaveAs(dir.File(sFile));
        xlWorksheet& ws = book.Worksheets()(1);
        ws.Cells(1, 1).Value("Title");
        StartWritingAhead(ws);
        ws.Cells(3, 2).Value("P-1");
        ws.Hyperlinks().PromiseFormula(ws.Cells(3, 2), Formula(1));
        for (long r = 5; r < 3000; r += 3) {
            ws.KeepRowsTogetherFrom(r);
            ws.Cells(r, 1).Value("B");
        }
        ws.Cells(3, 2).Formula(Formula(lSet));
        ws.Cells(3, 2).Font().Underline(xlUnderlineStyleSingle);
        ws.Cells(3, 2).Font().ColorIndex(5);
        book.Close(true);
        return book.LastSaveWroteAhead();
    };
    EXPECT_TRUE(fnWroteAhead("kept.xlsx", 1));
    EXPECT_FALSE(fnWroteAhead("other.xlsx", 2));
}

// A forecast that turns out wrong (one block a row longer, so the sheet is cut elsewhere): the
// writer stops at the continuation, and the workbook is saved from the model.
TEST_F(WriteAhead, ASheetCutElsewhereThanForecastIsSavedFromTheModel) {
    Plan p;
    p.nMain = 100;
    p.nBlocks = 400;
    p.nSheetRows = 500;
    p.bForecast = true;
    p.nLongerBlock = 5;
    xl::xlWorkbook book;
    book.SaveAs(dir.File("ahead.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, p);
    EXPECT_FALSE(ws.WritesAhead());
    book.Close(true);
    EXPECT_FALSE(book.LastSaveWroteAhead());
    SaveWhole(dir.File("whole.xlsx"), p);
    ExpectSameFile(dir.File("ahead.xlsx"), dir.File("whole.xlsx"));
}

// No forecast for a block longer than a new sheet holds: it would be cut where its own links
// fall; nor for more rows than eight sheets hold.
TEST_F(WriteAhead, ABlockLongerThanASheetIsNotForecast) {
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    StartWritingAhead(ws);
    ws.Data().lMaxRows = 100;
    EXPECT_FALSE(ws.ForecastContinuation(10, {{99, 1, 1}}, {1, 2}, 0).has_value());
    const auto o = ws.ForecastContinuation(10, {{98, 1, 1}, {50, 0, 1}}, {1, 2}, 0);
    ASSERT_TRUE(o.has_value());
    ASSERT_EQ(o->size(), 2u);
    EXPECT_FALSE((*o)[0].bStays);
    EXPECT_EQ((*o)[0].sCell, "'Sheet1 (2)'!$A$3");
    EXPECT_EQ((*o)[1].sCell, "'Sheet1 (3)'!$A$3");
    // Nor are more rows than eight sheets hold.
    EXPECT_FALSE(
        ws.ForecastContinuation(10, std::vector<xl::xlBlockExtent>(9, {98, 0, 1}), {1, 2}, 0)
            .has_value());
    EXPECT_TRUE(
        ws.ForecastContinuation(10, std::vector<xl::xlBlockExtent>(7, {98, 0, 1}), {1, 2}, 0)
            .has_value());
    // A block that stays is found on the sheet itself.
    const auto oFits = ws.ForecastContinuation(10, {{20, 1, 1}, {50, 0, 1}}, {1, 2}, 0);
    ASSERT_TRUE(oFits.has_value());
    EXPECT_TRUE((*oFits)[1].bStays);
    EXPECT_EQ((*oFits)[1].sCell, "Sheet1!$A$30");
}

// More links promised than the sheet holds with those it has: its blocks will continue on
// other sheets, so nothing goes ahead.
TEST_F(WriteAhead, MoreLinksThanTheSheetHoldsStopTheWriterAtOnce) {
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    StartWritingAhead(ws);
    ASSERT_TRUE(ws.WritesAhead());
    for (long r = 1; r <= xlMaxHyperlinks; ++r)
        ws.Hyperlinks().Promise(ws.Cells(r, 1), "", "ID_" + std::to_string(r));
    EXPECT_TRUE(ws.WritesAhead());
    ws.Hyperlinks().Promise(ws.Cells(xlMaxHyperlinks + 1, 1), "", "ID_more");
    EXPECT_FALSE(ws.WritesAhead());
}

// A promise made once rows went cannot reach them: the writer stops.
TEST_F(WriteAhead, APromiseAfterRowsWentStopsTheWriter) {
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, Unfinished());
    ASSERT_TRUE(ws.WritesAhead());
    ws.PromiseVerticalAlignment(xlCenter);
    EXPECT_FALSE(ws.WritesAhead());
}

// Only the first sheet of an .xlsx workbook that has its place and streams its blocks.
TEST_F(WriteAhead, AnXlsWorkbookAndOneWithoutItsPlaceDoNotWriteAhead) {
    xl::xlWorkbook oXls;
    oXls.SaveAs(dir.File("a.xls"));
    xlWorksheet& ws = oXls.Worksheets()(1);
    StartWritingAhead(ws);
    EXPECT_FALSE(ws.WritesAhead());
    xl::xlWorkbook oMemory;
    xlWorksheet& wm = oMemory.Worksheets()(1);
    StartWritingAhead(wm);
    EXPECT_FALSE(wm.WritesAhead());
    // Nor without streaming, nor a second sheet.
    xl::xlWorkbook oPlain;
    oPlain.SaveAs(dir.File("b.xlsx"));
    oPlain.Worksheets()(1).WriteAhead();
    EXPECT_FALSE(oPlain.Worksheets()(1).WritesAhead());
    xlWorksheet& w2 = oPlain.Worksheets().Add();
    StartWritingAhead(w2);
    EXPECT_FALSE(w2.WritesAhead());
}

// A workbook closed without saving, or saved under another name: the writer's file never
// reaches the folder, and no file of it stays open.
TEST_F(WriteAhead, AWorkbookClosedWithoutSavingLeavesNothingOfTheWriter) {
    {
        xl::xlWorkbook book;
        book.SaveAs(dir.File("a.xlsx"));
        Plan p;
        Fill(book.Worksheets()(1), p);
        ASSERT_TRUE(book.Worksheets()(1).WritesAhead());
        book.Close(false);
    }
    {
        xl::xlWorkbook book;
        book.SaveAs(dir.File("b.xlsx"));
        Fill(book.Worksheets()(1), Plan{});
        book.SaveAs(dir.File("c.xlsx"));
        EXPECT_FALSE(book.LastSaveWroteAhead());
    }
    EXPECT_EQ(testutil::NamesIn(dir.Path()), "a.xlsx,b.xlsx,c.xlsx");
    EXPECT_EQ(testutil::OpenFilesIn(dir.Path()), "");
    SaveWhole(dir.File("whole.xlsx"), Plan{});
    ExpectSameFile(dir.File("c.xlsx"), dir.File("whole.xlsx"));
}

// A disk that fills while the writer takes the rows: the save then fails as any save on a full
// disk does, with the system's reason, and leaves no file of its own.
TEST_F(WriteAhead, AFullDiskWhileRowsGoAheadFailsTheSaveAsAnyFullDiskDoes) {
    const std::filesystem::path small = dir.File("small");
    std::filesystem::create_directories(small);
    std::string sReport;
    const bool bMounted = testutil::RunOnSmallDisk(
        small, 1L << 20,
        [&] {
            xl::xlWorkbook book;
            book.SaveAs((small / "a.xlsx").string());
            Plan p;
            p.nMain = 2000;
            p.nBlocks = 20000;
            Fill(book.Worksheets()(1), p);
            std::string sError;
            try {
                book.Close(true);
            } catch (const modSaveFile::clsWriteError& e) {
                sError = e.Reason;
            }
            return "error=" + sError + " files=" + testutil::NamesIn(small) +
                   " open=" + testutil::OpenFilesIn(small);
        },
        sReport);
    if (!bMounted) {
        std::cout << "[ NOTE ] " << sReport << "; no small disk to fill here\n";
        return;
    }
    EXPECT_EQ(sReport, "error=No space left on device files=a.xlsx open=");
}
