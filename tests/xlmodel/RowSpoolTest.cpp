// Rows of finished blocks handed to the saver ahead of the save: which rows go, that nothing
// reads or changes them afterwards, and that the saved workbook is the one the whole model gives.
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <utility>

#include "TestUtil.h"
#include "support/modConst.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

using namespace modConst;
using xl::xlWorksheet;

namespace {

class Spool : public ::testing::Test {
protected:
    testutil::TempDir dir;

    // A title row, then nBlocks blocks of three rows from row 3: "B<i>" in bold with a band
    // merged over A:C and a link to a file, then "B<i>.2" and "B<i>.3"; at the end every cell
    // aligned to the top, as a page set-up does.
    // With nChangeAt, every cell of the sheet is also set not to wrap its text when block
    // nChangeAt begins; with nNamedEvery, only every so many blocks get a name and a link.
    static void Fill(xlWorksheet& ws, long nBlocks, bool bStream, long nChangeAt = 0,
                     long nNamedEvery = 1) {
        ws.Cells(1, 1).Value("Title");
        ws.ContinuePastLastRow();
        if (bStream) ws.StreamFinishedBlocks();
        long r = 3;
        for (long i = 1; i <= nBlocks; ++i) {
            if (i == nChangeAt) ws.Cells().WrapText(false);
            ws.KeepRowsTogetherFrom(r);
            ws.Range(ws.Cells(r, 1), ws.Cells(r, 3)).MergeCells(true);
            ws.Cells(r, 1).Value("B" + std::to_string(i));
            ws.Cells(r, 1).Font().FontStyle("Bold");
            if (i % nNamedEvery == 0) {
                ws.Names().Add("ID_" + std::to_string(i), ws.Rows(r));
                ws.Hyperlinks().Add(ws.Cells(r + 1, 4), "file" + std::to_string(i % 7) + ".txt");
            }
            ws.Cells(r + 1, 1).Value("B" + std::to_string(i) +
                                     ".2 with a text long enough to wrap");
            ws.Cells(r + 2, 2).Value(static_cast<double>(i));
            r += 3;
        }
        ws.Cells().VerticalAlignment(xlTop);
    }

    // The first sheet of book, which gets its place in the test's folder; it continues past its
    // last row and streams its finished blocks.
    xlWorksheet& StreamingSheet(xl::xlWorkbook& book) {
        book.SaveAs(dir.File("a.xlsx"));
        xlWorksheet& ws = book.Worksheets()(1);
        ws.ContinuePastLastRow();
        ws.StreamFinishedBlocks();
        return ws;
    }

    std::string DumpOf(const xl::xlWorkbook& book) {
        const std::string sFile = dir.File("book.dump");
        std::FILE* p = std::fopen(sFile.c_str(), "wb");
        EXPECT_NE(p, nullptr);
        if (!p) return "";
        xl::DumpWorkbook(book, p);
        std::fclose(p);
        return testutil::ReadFile(sFile);
    }

    static long Spooled(const xlWorksheet& ws) {
        const auto& d = ws.Data();
        return d.pSpool && d.pSpool->lFirst != 0 ? d.pSpool->lLast - d.pSpool->lFirst + 1 : 0;
    }
};

}  // namespace

TEST_F(Spool, FinishedBlocksGoAheadAndTheSavedWorkbookIsTheSame) {
    xl::xlWorkbook oStreamed, oWhole;
    oStreamed.SaveAs(dir.File("streamed.xlsx"));
    oWhole.SaveAs(dir.File("whole.xlsx"));
    Fill(oStreamed.Worksheets()(1), 2000, true);
    Fill(oWhole.Worksheets()(1), 2000, false);
    // All but the last two blocks went; the first block starts at row 3.
    EXPECT_EQ(oStreamed.Worksheets()(1).Data().pSpool->lFirst, 3);
    EXPECT_EQ(Spooled(oStreamed.Worksheets()(1)), 1998 * 3);
    EXPECT_EQ(Spooled(oWhole.Worksheets()(1)), 0);
    const std::string sDump = DumpOf(oStreamed);
    EXPECT_EQ(sDump, DumpOf(oWhole));
    EXPECT_NE(sDump.find("B1000.2 with"), std::string::npos);
    // Saving twice reads the spool twice.
    EXPECT_EQ(DumpOf(oStreamed), sDump);
    oStreamed.Save();
    oWhole.Save();
    EXPECT_EQ(oStreamed.Worksheets()(1).UsedLastRow(), oWhole.Worksheets()(1).UsedLastRow());
    EXPECT_EQ(oStreamed.Worksheets()(1).UsedLastColumn(), 4);
}

// A row wider than a spare list may be lets its list go with it: the spare lists stay small
// whatever the rows that went held.
TEST_F(Spool, TheListsOfWideRowsAreNotKept) {
    xl::xlWorkbook book;
    xlWorksheet& ws = StreamingSheet(book);
    const long nWide = static_cast<long>(xlWorksheet::Impl::kMaxSpareRoom) * 2;
    long r = 1;
    for (long i = 1; i <= 20000; ++i) {
        ws.KeepRowsTogetherFrom(r);
        for (long c = 1; c <= nWide; ++c)
            ws.Cells(r, c).Value("w");
        ws.Cells(r + 1, 1).Value("n");
        r += 2;
    }
    auto& d = ws.Data();
    d.FlushSpool();
    ASSERT_GT(Spooled(ws), 30000);
    ASSERT_FALSE(d.arrSpareCells.empty());
    for (const auto& v : d.arrSpareCells)
        ASSERT_LE(v.capacity(), xlWorksheet::Impl::kMaxSpareRoom);
    EXPECT_EQ(ws.Cells(r - 2, nWide).Text(), "w");
}

TEST_F(Spool, ASpooledRowCanNeitherBeReadNorChanged) {
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, 10, true);
    ASSERT_GT(Spooled(ws), 0);
    EXPECT_RUN_ERROR(ws.Cells(4, 1).Value("x"), errAppDefined);
    EXPECT_RUN_ERROR(ws.Cells(4, 1).Text(), errAppDefined);
    EXPECT_RUN_ERROR(ws.Cells(4, 1).Font().FontStyle("Italic"), errAppDefined);
    EXPECT_RUN_ERROR(ws.Rows(5).RowHeight(30), errAppDefined);
    EXPECT_RUN_ERROR(ws.Columns(2).NumberFormat("0"), errAppDefined);
    EXPECT_RUN_ERROR(ws.Range("A3:A5").Copy(ws.Range("H1:H3")), errAppDefined);
    // The rows being written stay open; whole-sheet formats reach every row.
    ws.Cells(33, 5).Value("still open");
    EXPECT_EQ(ws.Cells(33, 5).Text(), "still open");
    ws.Cells().WrapText(true);
}

TEST_F(Spool, ASheetWideRowHeightAfterRowsWentIsRefused) {
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, 10, true);
    ASSERT_GT(Spooled(ws), 0);
    // A spooled row keeps the height it went with: the standard height cannot change under it.
    EXPECT_RUN_ERROR(ws.Cells().RowHeight(30), errAppDefined);
    EXPECT_DOUBLE_EQ(ws.Data().dDefaultRowHeight, xl::detail::kDefaultRowHeight);
}

TEST_F(Spool, TheRecordsOfRowsOnTheDiskLeaveMemory) {
    xl::xlWorkbook book;
    book.SaveAs(dir.File("a.xlsx"));
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, 2000, true);
    auto& d = ws.Data();
    ASSERT_EQ(d.pSpool->lFirst, 3);
    d.FlushSpool();
    ASSERT_EQ(d.pSpool->lConfirmed, d.pSpool->lLast);
    // Every spooled row's record went; the title row and the open blocks stay.
    for (long r = 3; r <= d.pSpool->lLast; ++r) {
        ASSERT_TRUE(d.arrRows.Dropped(static_cast<size_t>(r - 1))) << r;
    }
    EXPECT_FALSE(d.arrRows.Dropped(0));
    EXPECT_FALSE(d.arrRows.Dropped(static_cast<size_t>(d.pSpool->lLast)));
    EXPECT_EQ(d.arrRows.size(), 2000u * 3 + 2);
    EXPECT_EQ(d.arrRows[0].arrCells.size(), 1u);
    // A dropped record reads as an empty row and cannot be changed.
    const auto& cd = d;
    EXPECT_TRUE(cd.arrRows[10].arrCells.empty());
    EXPECT_RUN_ERROR(d.arrRows[10].nHeightTwips = 300, errAppDefined);
    EXPECT_EQ(ws.Cells(d.pSpool->lLast + 1, 1).Text(), "B1999");
    // The saved workbook holds every row as written.
    xl::xlWorkbook oWhole;
    oWhole.SaveAs(dir.File("whole.xlsx"));
    Fill(oWhole.Worksheets()(1), 2000, false);
    EXPECT_EQ(DumpOf(book), DumpOf(oWhole));
    // Their emptied cell lists wait for the rows to come, a bounded number of them; a new row
    // takes one, and shows only its own cells.
    const size_t lSpare = d.arrSpareCells.size();
    ASSERT_GT(lSpare, 0u);
    EXPECT_LE(lSpare, xlWorksheet::Impl::kMaxSpareCells);
    for (const auto& v : d.arrSpareCells) {
        ASSERT_TRUE(v.empty());
        ASSERT_LE(v.capacity(), xlWorksheet::Impl::kMaxSpareRoom);
    }
    const long rNew = static_cast<long>(d.arrRows.size()) + 2;
    ws.Cells(rNew, 3).Value("new");
    EXPECT_EQ(d.arrSpareCells.size(), lSpare - 1);
    EXPECT_EQ(d.FindRow(rNew)->arrCells.size(), 1u);
    EXPECT_EQ(ws.Cells(rNew, 3).Text(), "new");
    EXPECT_EQ(ws.Cells(rNew, 1).Text(), "");
}

TEST(RowRecords, ARunOfRecordsLeavesAndComesBackEmpty) {
    xl::detail::RowRecords<std::vector<uint32_t>> a;
    a.resize(10);
    for (size_t i = 0; i < 10; ++i)
        a[i].push_back(static_cast<uint32_t>(i));
    a.Drop(3, 6);
    EXPECT_EQ(a.size(), 10u);
    EXPECT_TRUE(a.Dropped(3));
    EXPECT_TRUE(a.Dropped(5));
    EXPECT_FALSE(a.Dropped(6));
    EXPECT_EQ(a[2], std::vector<uint32_t>{2});
    EXPECT_EQ(a[6], std::vector<uint32_t>{6});
    // The run grows from its end only; past the records there are, it stops at the last one.
    a.Drop(3, 8);
    EXPECT_TRUE(a.Dropped(7));
    EXPECT_EQ(a[8], std::vector<uint32_t>{8});
    a.resize(12);
    a[11].push_back(11);
    a.Drop(3, 40);
    EXPECT_TRUE(a.Dropped(11));
    EXPECT_EQ(a.size(), 12u);
    // Shrinking into the run cuts it there.
    a.resize(5);
    EXPECT_EQ(a.size(), 5u);
    EXPECT_TRUE(a.Dropped(4));
    EXPECT_EQ(a[2], std::vector<uint32_t>{2});
    // Grown again, then every record of the run back, empty, in its place.
    a.resize(13);
    a[12].push_back(12);
    a.Restore();
    EXPECT_FALSE(a.Dropped(5));
    EXPECT_EQ(a.size(), 13u);
    EXPECT_EQ(a[2], std::vector<uint32_t>{2});
    EXPECT_TRUE(a[3].empty());
    EXPECT_TRUE(a[11].empty());
    EXPECT_EQ(a[12], std::vector<uint32_t>{12});
    size_t n = 0;
    a.ForEachKept([&](size_t i, const std::vector<uint32_t>&) { EXPECT_EQ(i, n++); });
    EXPECT_EQ(n, 13u);
}

// A sheet that starts with a run (the rows of a continuation that stay in the spool) grows to
// its size without making the records of the run; it reads as resize and Drop would make it.
TEST(RowRecords, GrowingWithARunGivesWhatResizeAndDropGive) {
    xl::detail::RowRecords<std::vector<uint32_t>> a;
    xl::detail::RowRecords<std::vector<uint32_t>> b;
    for (auto* p : {&a, &b}) {
        p->resize(2);
        (*p)[0].push_back(1);
        (*p)[1].push_back(2);
    }
    a.GrowWithRun(10, 3, 7);
    b.resize(10);
    b.Drop(3, 7);
    for (size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(a.Dropped(i), b.Dropped(i)) << i;
        EXPECT_EQ(std::as_const(a)[i], std::as_const(b)[i]) << i;
    }
    EXPECT_EQ(a.size(), 10u);
    EXPECT_FALSE(a.Dropped(2));
    EXPECT_TRUE(a.Dropped(3));
    EXPECT_TRUE(a.Dropped(6));
    EXPECT_FALSE(a.Dropped(7));
    EXPECT_EQ(std::as_const(a)[1], std::vector<uint32_t>{2});
    EXPECT_RUN_ERROR(a[4].push_back(4), errAppDefined);
    a[9].push_back(9);
    a.Drop(3, 8);
    EXPECT_TRUE(a.Dropped(7));
    EXPECT_EQ(std::as_const(a)[9], std::vector<uint32_t>{9});
    // A run that would reach past the end stops there; one over existing records falls back
    // to making them first.
    xl::detail::RowRecords<std::vector<uint32_t>> c;
    c.GrowWithRun(5, 2, 40);
    EXPECT_EQ(c.size(), 5u);
    EXPECT_TRUE(c.Dropped(4));
    xl::detail::RowRecords<std::vector<uint32_t>> e;
    e.resize(6);
    e[5].push_back(5);
    e.GrowWithRun(8, 2, 4);
    EXPECT_TRUE(e.Dropped(3));
    EXPECT_EQ(std::as_const(e)[5], std::vector<uint32_t>{5});
    EXPECT_EQ(e.size(), 8u);
}

// An .xls workbook's rows go to the spool as well; its saver reads them twice (to plan the
// sheet, then to write its cells), and the file is the one the whole model gives, byte for
// byte, also when the sheet continues on new ones.
TEST_F(Spool, AnXlsWorkbookIsWrittenFromTheSpoolToo) {
    auto fnFill = [](xlWorksheet& ws, bool bStream, long lMaxRows) {
        Fill(ws, 3000, bStream, 1500);
        if (lMaxRows == 0) return;
        ws.Data().lMaxRows = lMaxRows;
        ws.ContinueOnNewSheets({1}, 0);
    };
    for (const long lMaxRows : {0L, 2000L}) {
        const std::string sStreamed = dir.File("streamed" + std::to_string(lMaxRows) + ".xls");
        const std::string sWhole = dir.File("whole" + std::to_string(lMaxRows) + ".xls");
        xl::xlWorkbook oStreamed, oWhole;
        oStreamed.SaveAs(sStreamed);
        oWhole.SaveAs(sWhole);
        fnFill(oStreamed.Worksheets()(1), true, lMaxRows);
        fnFill(oWhole.Worksheets()(1), false, lMaxRows);
        EXPECT_GT(Spooled(oStreamed.Worksheets()(1)) +
                      (lMaxRows ? Spooled(oStreamed.Worksheets()(2)) : 0),
                  1000);
        EXPECT_EQ(Spooled(oWhole.Worksheets()(1)), 0);
        ASSERT_EQ(oStreamed.Worksheets().Count(), oWhole.Worksheets().Count());
        if (lMaxRows) {
            EXPECT_GT(oStreamed.Worksheets().Count(), 3);
        }
        oStreamed.Save();
        oWhole.Save();
        const std::string sFile = testutil::ReadFile(sStreamed);
        EXPECT_GT(sFile.size(), 100000u);
        EXPECT_TRUE(sFile == testutil::ReadFile(sWhole)) << lMaxRows;
        // A second save reads the spool again.
        oStreamed.Save();
        EXPECT_TRUE(testutil::ReadFile(sStreamed) == sFile) << lMaxRows;
    }
}

TEST_F(Spool, AWorkbookWithoutItsPlaceKeepsItsRows) {
    xl::xlWorkbook book;
    Fill(book.Worksheets()(1), 50, true);
    EXPECT_EQ(Spooled(book.Worksheets()(1)), 0);
}

// Rows that a continuation moves to new sheets stay in the spool: each new sheet reads its own
// run of it, with the whole-sheet changes made before the move and those made to it since. The
// sheets here hold 40 rows, and one block is longer than a sheet by itself.
TEST_F(Spool, RowsThatMoveToNewSheetsAreReadFromTheSpool) {
    auto fnFill = [](xlWorksheet& ws, bool bStream) {
        ws.Cells(1, 1).Value("Title");
        ws.ContinuePastLastRow();
        if (bStream) ws.StreamFinishedBlocks();
        ws.Data().lMaxRows = 40;
        long r = 3;
        for (long i = 1; i <= 60; ++i) {
            if (i == 30) ws.Cells().WrapText(false);
            ws.KeepRowsTogetherFrom(r);
            const long n = i == 7 ? 90 : 3 + i % 4;
            ws.Range(ws.Cells(r, 1), ws.Cells(r, 3)).MergeCells(true);
            ws.Cells(r, 1).Value("B" + std::to_string(i));
            ws.Cells(r, 1).Font().FontStyle("Bold");
            ws.Names().Add("ID_" + std::to_string(i), ws.Rows(r));
            ws.Hyperlinks().Add(ws.Cells(r + 1, 4), "file" + std::to_string(i % 7) + ".txt");
            for (long k = 1; k < n; ++k)
                ws.Cells(r + k, 1 + k % 3).Value("B" + std::to_string(i) + "." + std::to_string(k));
            r += n;
        }
        std::vector<xlWorksheet*> arrSheets{&ws};
        for (xlWorksheet* p : ws.ContinueOnNewSheets({1}, 0))
            arrSheets.push_back(p);
        for (xlWorksheet* p : arrSheets)
            p->Cells().VerticalAlignment(xlTop);
        return arrSheets;
    };
    xl::xlWorkbook oStreamed, oWhole;
    oStreamed.SaveAs(dir.File("streamed.xlsx"));
    oWhole.SaveAs(dir.File("whole.xlsx"));
    const auto arrStreamed = fnFill(oStreamed.Worksheets()(1), true);
    const auto arrWhole = fnFill(oWhole.Worksheets()(1), false);
    ASSERT_EQ(arrStreamed.size(), arrWhole.size());
    ASSERT_GT(arrStreamed.size(), 5u);
    // The new sheets share the first sheet's spool, each with its own run of it.
    long lShared = 0;
    for (size_t i = 1; i < arrStreamed.size(); ++i) {
        const auto& d = arrStreamed[i]->Data();
        if (d.pSpool) {
            EXPECT_EQ(d.pSpool, arrStreamed[0]->Data().pSpool);
            EXPECT_FALSE(d.bSpoolOwner);
            EXPECT_GE(d.SpoolFirst(), 2);
            lShared += d.SpoolLast() - d.SpoolFirst() + 1;
            EXPECT_RUN_ERROR(arrStreamed[i]->Cells(d.SpoolFirst(), 1).Text(), errAppDefined);
        }
        EXPECT_EQ(Spooled(*arrWhole[i]), 0);
    }
    EXPECT_GT(lShared, 200);
    for (size_t i = 0; i < arrStreamed.size(); ++i) {
        EXPECT_EQ(arrStreamed[i]->Name(), arrWhole[i]->Name());
        EXPECT_EQ(arrStreamed[i]->UsedLastRow(), arrWhole[i]->UsedLastRow()) << i;
        EXPECT_EQ(arrStreamed[i]->UsedLastColumn(), arrWhole[i]->UsedLastColumn()) << i;
    }
    // The first sheet keeps its title and the rows before the first cut only.
    EXPECT_LE(arrStreamed[0]->Data().arrRows.size(), 40u);
    const std::string sDump = DumpOf(oStreamed);
    EXPECT_EQ(sDump, DumpOf(oWhole));
    EXPECT_NE(sDump.find("B7.60"), std::string::npos);
    // A second save reads every run again.
    EXPECT_EQ(DumpOf(oStreamed), sDump);
    oStreamed.Save();
}

TEST_F(Spool, AMergedAreaReachingPastTheFinishedBlocksHoldsThemBack) {
    xl::xlWorkbook book;
    xlWorksheet& ws = StreamingSheet(book);
    ws.KeepRowsTogetherFrom(3);
    ws.Range("F4:F20").MergeCells(true);
    ws.KeepRowsTogetherFrom(6);
    ws.KeepRowsTogetherFrom(9);
    // Rows 3 to 5 would go; the area from row 4 to row 20 keeps rows 4 on in memory.
    EXPECT_EQ(ws.Data().pSpool->lFirst, 3);
    EXPECT_EQ(ws.Data().pSpool->lLast, 3);
    for (long r = 12; r <= 21; r += 3)
        ws.KeepRowsTogetherFrom(r);
    EXPECT_EQ(ws.Data().pSpool->lLast, 3);
    ws.Cells(4, 6).Value("open");
    ws.Cells(22, 1).Value("past the area");
    // Once the blocks past its end are finished, the area goes with its rows.
    ws.KeepRowsTogetherFrom(24);
    EXPECT_EQ(ws.Data().pSpool->lLast, 20);
    EXPECT_RUN_ERROR(ws.Cells(4, 6).Value("closed"), errAppDefined);
}

TEST_F(Spool, AFolderThatTakesNoFileKeepsTheRowsInMemory) {
    const std::string sSub = dir.File("gone");
    std::filesystem::create_directories(sSub);
    xl::xlWorkbook book;
    book.SaveAs(sSub + "/a.xlsx");
    std::filesystem::remove_all(sSub);
    xlWorksheet& ws = book.Worksheets()(1);
    Fill(ws, 50, true);
    EXPECT_EQ(Spooled(ws), 0);
    EXPECT_EQ(ws.Cells(4, 1).Text(), "B1.2 with a text long enough to wrap");
}

// A disk that fills while rows go to the spool: every row comes back into memory, the spool's
// file goes, and the workbook is the one built whole in memory.
TEST_F(Spool, ADiskThatFillsBringsTheRowsBackIntoMemory) {
    xl::xlWorkbook oWhole;
    Fill(oWhole.Worksheets()(1), 20000, false);
    const std::string sWant = DumpOf(oWhole);
    const std::filesystem::path small = dir.File("small");
    std::filesystem::create_directories(small);
    std::string sReport;
    const bool bMounted = testutil::RunOnSmallDisk(
        small, 256L << 10,
        [&] {
            xl::xlWorkbook book;
            book.SaveAs((small / "a.xlsx").string());
            xlWorksheet& ws = book.Worksheets()(1);
            Fill(ws, 20000, true);
            const bool bSame = DumpOf(book) == sWant;
            return "spooled=" + std::to_string(Spooled(ws)) + " same=" + std::to_string(bSame) +
                   " text=" + ws.Cells(4, 1).Text() + " files=" + testutil::NamesIn(small) +
                   " open=" + testutil::OpenFilesIn(small);
        },
        sReport);
    if (!bMounted) {
        std::cout << "[ NOTE ] " << sReport << "; no small disk to fill here\n";
        return;
    }
    EXPECT_EQ(sReport,
              "spooled=0 same=1 text=B1.2 with a text long enough to wrap files=a.xlsx open=");
}

// A disk that fills after rows have left memory and a whole-sheet change came: the rows come
// back with that change, and the workbook is the one built whole in memory.
TEST_F(Spool, RowsThatComeBackTakeTheWholeSheetChangesMadeSince) {
    xl::xlWorkbook oWhole;
    Fill(oWhole.Worksheets()(1), 80000, false, 40000, 2);
    const std::string sWant = DumpOf(oWhole);
    const std::filesystem::path small = dir.File("small");
    std::filesystem::create_directories(small);
    std::string sReport;
    const bool bMounted = testutil::RunOnSmallDisk(
        small, 6L << 20,
        [&] {
            xl::xlWorkbook book;
            book.SaveAs((small / "a.xlsx").string());
            xlWorksheet& ws = book.Worksheets()(1);
            // Rows leave memory (every 4 MB), then the disk refuses more.
            long lConfirmed = 0;
            Fill(ws, 80000, true, 40000, 2);
            lConfirmed = ws.Data().pSpool ? ws.Data().pSpool->lConfirmed : -1;
            return "spool=" + std::to_string(lConfirmed) +
                   " spooled=" + std::to_string(Spooled(ws)) +
                   " same=" + std::to_string(DumpOf(book) == sWant);
        },
        sReport);
    if (!bMounted) {
        std::cout << "[ NOTE ] " << sReport << "; no small disk to fill here\n";
        return;
    }
    EXPECT_EQ(sReport, "spool=-1 spooled=0 same=1");
}
