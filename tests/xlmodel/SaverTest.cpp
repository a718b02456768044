// The .xlsx saver: workbooks written to a temporary folder and read back with openpyxl (through
// dump_xlsx.py), and how saving behaves when the place cannot be written.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <mutex>
#include <set>
#include <string>

#include "JsonLite.h"
#include "SaverFixtures.h"
#include "TestUtil.h"
#include "support/clsRunError.h"
#include "support/modConst.h"
#include "support/modSaveFile.h"
#include "xl/xlModelData.h"
#include "xl/xlObjectModel.h"

using namespace modConst;
using jsonlite::Value;
using xl::xlRange;
using xl::xlWorksheet;
namespace fs = std::filesystem;

using saverfixtures::FillFittedRows;
using saverfixtures::LibreOfficeRows;
using saverfixtures::Scrambled;

namespace {

// The workbook as openpyxl reads it, as dump_xlsx.py prints it.
std::string DumpText(const std::string& sFile) {
    const std::string sCmd = "/usr/bin/python3 '" + testutil::SourceDir() +
                             "/tests/xlmodel/dump_xlsx.py' '" + sFile + "' 2>&1";
    int rc = 0;
    const std::string s = testutil::CommandOutput(sCmd, &rc);
    if (rc != 0) throw std::runtime_error("dump_xlsx.py failed: " + s);
    return s;
}

Value Dump(const std::string& sFile) {
    return jsonlite::Parse(DumpText(sFile));
}

std::set<std::string> Entries(const std::string& sDir) {
    std::set<std::string> out;
    for (const auto& e : fs::directory_iterator(sDir))
        out.insert(e.path().filename().string());
    return out;
}

bool IsZip(const std::string& sFile) {
    return testutil::ReadFile(sFile).rfind("PK", 0) == 0;
}

// The sheet plan the builder lays out, in small.
void FillLikeTheBuilder(xlWorksheet& ws) {
    ws.Columns().ColumnWidth(21);
    ws.Cells().HorizontalAlignment(xlLeft);
    ws.Cells().WrapText(true);
    ws.Cells().NumberFormat("@");
    ws.Rows(1).Font().FontStyle("Bold");
    ws.Cells(1, 1).Value("Object Type");
    ws.Cells(2, 1).Value("Items");

    ws.Rows(4).RowHeight(18);
    xlRange band = ws.Range(ws.Cells(4, 1), ws.Cells(4, 7));
    band.MergeCells(true);
    band.HorizontalAlignment(xlLeft);
    band.VerticalAlignment(xlBottom);
    band.Interior().ColorIndex(1);
    band.Font().ColorIndex(2);
    band.Font().Size(14);
    band.Borders(xlEdgeTop).LineStyle(xlContinuous);
    band.Borders(xlEdgeBottom).LineStyle(xlContinuous);
    ws.Cells(4, 1).Value("Main Panel");
    ws.Cells(4, 1).Font().FontStyle("Bold");

    ws.Rows(5).Font().FontStyle("Bold");
    ws.Cells(5, 1).Value("Level");
    ws.Cells(5, 2).Value("ID");
    ws.Cells(6, 1).Value(1L);
    ws.Cells(6, 2).Value("P-100");
    ws.Cells(7, 1).Value(2L);
    ws.Cells(7, 2).Value("P-200");

    ws.Names().Add("ID_P_45100_B_0", ws.Rows(10));
    ws.Names().Add("ID_P_45200_B_1", ws.Rows(14));
    ws.Hyperlinks().Add(ws.Cells(6, 2), "", "ID_P_45100_B_0");
    ws.Hyperlinks().Add(ws.Cells(7, 1), "", "ID_P_45200_B_1");  // on a number

    xlRange caption = ws.Range(ws.Cells(10, 1), ws.Cells(10, 6));
    caption.MergeCells(true);
    caption.HorizontalAlignment(xlLeft);
    caption.VerticalAlignment(xlBottom);
    caption.Borders(xlEdgeTop).LineStyle(xlContinuous);
    caption.Borders(xlEdgeBottom).LineStyle(xlContinuous);
    ws.Cells(10, 1).Value("Files of Document");
    ws.Cells(10, 1).Font().FontStyle("Bold Italic");
    ws.Cells(10, 1).Font().ColorIndex(48);

    ws.Cells(11, 2).Value("a.pdf");
    ws.Hyperlinks().Add(ws.Cells(11, 2), "docs/a.pdf", "", "", std::string("a.pdf"));
    ws.Hyperlinks().Add(ws.Cells(12, 2), "C:\\docs\\b c.pdf", "", "open it");
    ws.Hyperlinks().Add(ws.Cells(13, 2), "https://example.com/x?a=1");
    ws.Hyperlinks().Add(ws.Cells(14, 2), "/srv/files/#1.pdf");

    ws.Cells().VerticalAlignment(xlTop);
    ws.PageSetup().Orientation(xlLandscape);
    ws.PageSetup().PrintTitleRows(ws.Range(ws.Cells(1, 1), ws.Cells(3, 4)).Address());
    ws.PageSetup().CenterFooter("&P");
    ws.PageSetup().PrintArea(ws.Range(ws.Cells(1, 1), ws.Cells(14, 6)).Address());
}

const Value* LinkAt(const Value& sheet, const std::string& sRef) {
    for (const Value& h : sheet["hyperlinks"].arr) {
        if (h["ref"].Str() == sRef) return &h;
    }
    return nullptr;
}

}  // namespace

TEST(Saver, SaveAsWritesAnEmptyWorkbookAtOnce) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    const std::string sFile = d.File("Export.xlsx");
    book.SaveAs(sFile, xlNoChange);
    EXPECT_EQ(book.FullName(), sFile);
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xlsx"});
    EXPECT_TRUE(IsZip(sFile));
    const Value v = Dump(sFile);
    ASSERT_EQ(v["sheets"].Size(), 1u);
    EXPECT_EQ(v["sheets"][0]["title"].Str(), "Sheet1");
    EXPECT_EQ(v["sheets"][0]["cells"].Size(), 0u);
}

TEST(Saver, TheWholeWorkbookReadsBack) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    const std::string sFile = d.File("Export.xlsx");
    book.SaveAs(sFile);
    xlWorksheet& ws = book.Worksheets()(1);
    FillLikeTheBuilder(ws);
    xlWorksheet& ws2 = book.Worksheets().Add();
    ws2.Names().Add("Local2", ws2.Range("A1:B2"));
    ws.Range(ws.Cells(1, 1), ws.Cells(2, 2)).Copy(ws2.Range(ws2.Cells(1, 1), ws2.Cells(2, 2)));
    book.Save();
    book.Close();
    app.Quit();

    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xlsx"});
    const Value v = Dump(sFile);
    ASSERT_EQ(v["sheets"].Size(), 2u);
    const Value& s = v["sheets"][0];
    const Value& c = s["cells"];

    // Values: numbers stay numbers, the rest is text.
    EXPECT_EQ(c["A1"]["value"].Str(), "Object Type");
    EXPECT_EQ(c["A1"]["type"].Str(), "s");
    EXPECT_EQ(c["A6"]["type"].Str(), "n");
    EXPECT_EQ(c["A6"]["value"].Num(), 1);
    EXPECT_EQ(c["A7"]["type"].Str(), "n");  // a link on a number keeps the number
    EXPECT_EQ(c["A7"]["value"].Num(), 2);
    EXPECT_EQ(c["B6"]["value"].Str(), "P-100");

    // Sheet-wide formats reached every cell, the final top alignment included.
    for (const auto& [ref, cell] : c.obj) {
        EXPECT_EQ(cell["horizontal"].Str(), "left") << ref;
        EXPECT_EQ(cell["vertical"].Str(), "top") << ref;
        EXPECT_TRUE(cell["wrap"].Bool()) << ref;
        EXPECT_EQ(cell["format"].Str(), "@") << ref;
    }
    EXPECT_TRUE(c["A1"]["bold"].Bool());
    EXPECT_FALSE(c["A2"]["bold"].Bool());
    EXPECT_TRUE(c["A5"]["bold"].Bool());
    ASSERT_TRUE(s["rows"]["1"].Has("style"));
    EXPECT_TRUE(s["rows"]["1"]["style"]["bold"].Bool());
    EXPECT_EQ(s["rows"]["1"]["style"]["vertical"].Str(), "top");
    ASSERT_EQ(s["cols"].Size(), 1u);
    EXPECT_EQ(s["cols"][0]["min"].Num(), 1);
    EXPECT_EQ(s["cols"][0]["max"].Num(), 16384);
    EXPECT_NEAR(s["cols"][0]["width"].Num(), 21.71, 0.01);  // 21 characters, as stored
    EXPECT_EQ(s["cols"][0]["style"]["format"].Str(), "@");
    EXPECT_EQ(s["cols"][0]["style"]["vertical"].Str(), "top");

    // The caption band: every cell of the merged area carries fill, font and borders.
    const Value& raw = v["raw"][0];
    EXPECT_EQ(s["rows"]["4"]["height"].Num(), 18);
    for (const char* ref : {"A4", "B4", "C4", "D4", "E4", "F4", "G4"}) {
        const Value& x = raw[ref];
        ASSERT_FALSE(x.IsNull()) << ref;
        EXPECT_EQ(x["fill"].Str(), "000000") << ref;
        EXPECT_EQ(x["color"].Str(), "FFFFFF") << ref;
        EXPECT_EQ(x["size"].Num(), 14) << ref;
        EXPECT_EQ(x["top"].Str(), "thin") << ref;
        EXPECT_EQ(x["bottom"].Str(), "thin") << ref;
    }
    EXPECT_EQ(c["A4"]["value"].Str(), "Main Panel");
    EXPECT_TRUE(c["A4"]["bold"].Bool());
    EXPECT_FALSE(raw["B4"]["bold"].Bool());
    EXPECT_FALSE(raw["B4"]["has_value"].Bool());
    EXPECT_EQ(raw["G4"]["vertical"].Str(), "top");
    EXPECT_TRUE(c["A10"]["bold"].Bool());
    EXPECT_TRUE(c["A10"]["italic"].Bool());
    EXPECT_EQ(c["A10"]["color"].Str(), "969696");
    EXPECT_EQ(raw["F10"]["bottom"].Str(), "thin");
    EXPECT_TRUE(raw["F10"]["fill"].IsNull());

    std::vector<std::string> merged;
    for (const Value& m : s["merged"].arr)
        merged.push_back(m.Str());
    EXPECT_EQ(merged, (std::vector<std::string>{"A10:F10", "A4:G4"}));

    // Names local to their sheet.
    std::map<std::string, std::pair<double, std::string>> names;
    for (const Value& n : v["names"].arr) {
        names[n["name"].Str()] = {n["local_sheet"].Num(), n["refers_to"].Str()};
    }
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names["ID_P_45100_B_0"], std::make_pair(0.0, std::string("Sheet1!$10:$10")));
    EXPECT_EQ(names["ID_P_45200_B_1"], std::make_pair(0.0, std::string("Sheet1!$14:$14")));
    EXPECT_EQ(names["Local2"], std::make_pair(1.0, std::string("Sheet2!$A$1:$B$2")));

    // Hyperlinks.
    const Value* h = LinkAt(s, "B6");
    ASSERT_TRUE(h);
    EXPECT_EQ((*h)["location"].Str(), "ID_P_45100_B_0");
    EXPECT_TRUE((*h)["target"].IsNull());
    EXPECT_EQ(c["B6"]["underline"].Str(), "single");
    ASSERT_TRUE((h = LinkAt(s, "A7")));
    EXPECT_EQ((*h)["location"].Str(), "ID_P_45200_B_1");
    ASSERT_TRUE((h = LinkAt(s, "B11")));
    EXPECT_EQ((*h)["target"].Str(), "docs\\a.pdf");
    EXPECT_EQ(c["B11"]["value"].Str(), "a.pdf");
    ASSERT_TRUE((h = LinkAt(s, "B12")));
    EXPECT_EQ((*h)["target"].Str(), "file:///C:\\docs\\b%20c.pdf");
    EXPECT_EQ((*h)["tooltip"].Str(), "open it");
    EXPECT_EQ(c["B12"]["value"].Str(), "C:\\docs\\b c.pdf");
    ASSERT_TRUE((h = LinkAt(s, "B13")));
    EXPECT_EQ((*h)["target"].Str(), "https://example.com/x?a=1");
    ASSERT_TRUE((h = LinkAt(s, "B14")));
    EXPECT_EQ((*h)["target"].Str(), "file:///srv/files/%231.pdf");
    EXPECT_EQ(s["hyperlinks"].Size(), 6u);

    // Page set-up.
    EXPECT_EQ(s["print_title_rows"].Str(), "$1:$3");
    ASSERT_EQ(s["print_area"].Size(), 1u);
    EXPECT_EQ(s["print_area"][0].Str(), "$A$1:$F$14");
    EXPECT_EQ(s["footer_center"].Str(), "&P");
    EXPECT_EQ(s["orientation"].Str(), "landscape");

    // The second sheet holds the copy.
    const Value& s2 = v["sheets"][1];
    EXPECT_EQ(s2["title"].Str(), "Sheet2");
    EXPECT_EQ(s2["cells"]["A1"]["value"].Str(), "Object Type");
    EXPECT_TRUE(s2["cells"]["A1"]["bold"].Bool());
    EXPECT_EQ(s2["cells"]["A2"]["value"].Str(), "Items");
    EXPECT_NE(s2["orientation"].Str(), "landscape");
}

TEST(Saver, FormatsWhereRowsAndColumnsCross) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Columns(2).Interior().ColorIndex(3);
    ws.Rows(5).Font().Bold(true);
    ws.Cells(5, 4).Value("in row");
    ws.Cells(8, 2).Value("in column");
    ws.Rows(9).RowHeight(30);
    book.SaveAs(d.File("x.xlsx"));
    const Value v = Dump(d.File("x.xlsx"));
    const Value& s = v["sheets"][0];
    EXPECT_TRUE(s["cells"]["B5"]["bold"].Bool());
    EXPECT_EQ(s["cells"]["B5"]["fill"].Str(), "FF0000");
    EXPECT_TRUE(s["cells"]["D5"]["bold"].Bool());
    EXPECT_TRUE(s["cells"]["D5"]["fill"].IsNull());
    EXPECT_EQ(s["cells"]["B8"]["fill"].Str(), "FF0000");
    EXPECT_FALSE(s["cells"]["B8"]["bold"].Bool());
    EXPECT_TRUE(s["rows"]["5"]["style"]["bold"].Bool());
    EXPECT_EQ(s["rows"]["9"]["height"].Num(), 30);
    bool bColB = false;
    for (const Value& col : s["cols"].arr) {
        if (col["min"].Num() == 2 && col["max"].Num() == 2) {
            bColB = col["style"]["fill"].Str() == "FF0000";
        }
    }
    EXPECT_TRUE(bColB);
}

TEST(Saver, MergedAreasOverSeveralRows) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(20, 1).Value("top-left");
    ws.Cells(21, 3).Value("dropped");
    ws.Cells(21, 5).Value("beside");
    xlRange r = ws.Range("A20:C22");
    r.MergeCells(true);
    r.Borders(xlEdgeBottom).LineStyle(xlContinuous);
    r.Borders(xlEdgeRight).LineStyle(xlContinuous);
    ws.Range("B30:C30").MergeCells(true);  // nothing else on its row
    book.SaveAs(d.File("m.xlsx"));
    const Value v = Dump(d.File("m.xlsx"));
    const Value& s = v["sheets"][0];
    std::vector<std::string> merged;
    for (const Value& m : s["merged"].arr)
        merged.push_back(m.Str());
    EXPECT_EQ(merged, (std::vector<std::string>{"A20:C22", "B30:C30"}));
    EXPECT_EQ(s["cells"]["A20"]["value"].Str(), "top-left");
    EXPECT_EQ(s["cells"]["E21"]["value"].Str(), "beside");
    // Each cell of the area has its own record and format: the bottom edge on row 22, the
    // right edge on column C.
    const Value raw = v["raw"][0];
    for (const char* ref : {"A22", "B22", "C22"})
        EXPECT_EQ(raw[ref]["bottom"].Str(), "thin") << ref;
    for (const char* ref : {"C20", "C21", "C22"})
        EXPECT_EQ(raw[ref]["right"].Str(), "thin") << ref;
    for (const char* ref : {"A20", "A21", "B21"}) {
        EXPECT_TRUE(raw[ref]["bottom"].IsNull()) << ref;
        EXPECT_TRUE(raw[ref]["right"].IsNull()) << ref;
    }
    EXPECT_FALSE(raw["C21"]["has_value"].Bool());  // only the top-left value is kept
}

TEST(Saver, OneFileFormatPerDistinctCellFormat) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    for (long r = 1; r <= 2000; ++r) {
        ws.Cells(r, 1).Value("x");
        if (r % 2) ws.Cells(r, 1).Font().Bold(true);
        ws.Cells(r, 2).Value(static_cast<double>(r));
        ws.Cells(r, 2).Interior().ColorIndex(6);
    }
    book.SaveAs(d.File("f.xlsx"));
    const Value v = Dump(d.File("f.xlsx"));
    EXPECT_EQ(v["cell_formats"].Num(), 3);  // the default (plain text), bold, yellow fill
}

TEST(Saver, LimitsThatTheWriterAccepts) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(1, 1).Value(std::string(32767, 'a'));
    ws.Hyperlinks().Add(ws.Cells(2, 1), "https://" + std::string(2071, 'h'));
    ws.Hyperlinks().Add(ws.Cells(3, 1), "c:\\" + std::string(2068, 'f'));
    ws.Cells().RowHeight(20);
    book.SaveAs(d.File("l.xlsx"));
    const Value s = Dump(d.File("l.xlsx"))["sheets"][0];
    EXPECT_EQ(s["cells"]["A1"]["value"].Str().size(), 32767u);
    EXPECT_EQ(s["hyperlinks"].Size(), 2u);
}

TEST(Saver, AnUnwritablePlaceFailsAtOnceAndLeavesNothing) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    EXPECT_RUN_ERROR(book.SaveAs(d.File("missing/Export.xlsx")), 1004);
    testutil::WriteFile(d.File("plain"), "a file, not a folder");
    EXPECT_RUN_ERROR(book.SaveAs(d.File("plain/Export.xlsx")), 1004);
    EXPECT_EQ(book.FullName(), "");
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"plain"});
    if (::geteuid() != 0) {  // permissions do not stop the superuser
        fs::create_directory(d.File("ro"));
        fs::permissions(d.File("ro"), fs::perms::owner_read | fs::perms::owner_exec);
        EXPECT_RUN_ERROR(book.SaveAs(d.File("ro/Export.xlsx")), 1004);
        fs::permissions(d.File("ro"), fs::perms::owner_all);
        EXPECT_TRUE(Entries(d.File("ro")).empty());
    }
}

TEST(Saver, AFailedSaveLeavesNoTemporaryFile) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    book.SaveAs(d.File("Export.xlsx"));
    book.Worksheets()(1).Cells(1, 1).Value("data");
    // The target has become a folder: the file is written, but cannot take its place.
    fs::remove(d.File("Export.xlsx"));
    fs::create_directory(d.File("Export.xlsx"));
    testutil::WriteFile(d.File("Export.xlsx/inside"), "x");
    EXPECT_RUN_ERROR(book.Save(), 1004);
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xlsx"});
    EXPECT_TRUE(fs::is_directory(d.File("Export.xlsx")));
}

TEST(Saver, SavingOverAFileReplacesItWhole) {
    testutil::TempDir d;
    const std::string sFile = d.File("Export.xlsx");
    testutil::WriteFile(sFile, "the old contents");
    struct stat before {};
    ASSERT_EQ(::stat(sFile.c_str(), &before), 0);
    std::ifstream old(sFile, std::ios::binary);  // a reader that opened the old file

    xl::xlWorkbook book;
    book.Worksheets()(1).Cells(1, 1).Value("new");
    book.SaveAs(sFile);
    struct stat after {};
    ASSERT_EQ(::stat(sFile.c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino);  // renamed into place, not rewritten in place
    std::string sOld((std::istreambuf_iterator<char>(old)), std::istreambuf_iterator<char>());
    EXPECT_EQ(sOld, "the old contents");
    EXPECT_TRUE(IsZip(sFile));
    EXPECT_EQ(Dump(sFile)["sheets"][0]["cells"]["A1"]["value"].Str(), "new");
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xlsx"});

    // And again over the workbook itself.
    book.Worksheets()(1).Cells(1, 1).Value("newer");
    book.Save();
    EXPECT_EQ(Dump(sFile)["sheets"][0]["cells"]["A1"]["value"].Str(), "newer");
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xlsx"});
}

namespace {

// Fills the rest of dir's file system but lKeep bytes with one file.
void FillDiskBut(const fs::path& dir, long lKeep) {
    std::FILE* f = std::fopen((dir / "ballast").c_str(), "wb");
    if (!f) return;
    const std::string sBlock(4096, 'b');
    const fs::space_info si = fs::space(dir);
    for (uintmax_t n = 0; n + sBlock.size() + static_cast<uintmax_t>(lKeep) <= si.available;
         n += sBlock.size()) {
        if (std::fwrite(sBlock.data(), 1, sBlock.size(), f) != sBlock.size()) break;
    }
    std::fclose(f);
}

// The outcome of a save, with what it left in dir: "error|names|open descriptors|whether the
// earlier workbook (sBefore) is still there".
std::string SaveOutcome(xl::xlWorkbook& book, const fs::path& dir, const std::string& sBefore) {
    std::string s;
    try {
        book.Save();
        s = "saved";
    } catch (const clsRunError& e) {
        s = std::to_string(e.Number) + " " + e.Description;
    }
    fs::remove(dir / "ballast");
    const bool bSame = testutil::ReadFile((dir / "Export.xlsx").string()) == sBefore;
    return s + "|" + testutil::NamesIn(dir) + "|" + testutil::OpenFilesIn(dir) + "|" +
           (bSame ? "earlier workbook" : "changed");
}

// Counts saves; the chosen one fails as a full disk would.
long g_nFailSave = 0;
long g_nSaves = 0;
int FailTheChosenSave(const std::string&) {
    return ++g_nSaves == g_nFailSave ? ENOSPC : 0;
}

}  // namespace

// A disk that fills while the rows go out, and one that fills while the file is assembled from
// them: the save fails with the system's reason, the earlier workbook stays, and nothing of the
// save is left, neither a temporary file nor a descriptor holding the disk's space.
TEST(Saver, AFullDiskFailsTheSaveWithItsReasonAndLeavesNothing) {
    testutil::TempDir d;
    const fs::path dir = d.Path() / "disk";
    fs::create_directory(dir);
    const std::string sFile = (dir / "Export.xlsx").string();
    const std::string sExpected =
        "1004 Cannot write '" + sFile + "': No space left on device|Export.xlsx||earlier workbook";
    auto fnRun = [&](bool bFillWhileAssembling) {
        xl::xlWorkbook book;
        book.SaveAs(sFile);  // the earlier workbook
        const std::string sBefore = testutil::ReadFile(sFile);
        for (long r = 1; r <= 5000; ++r)
            book.Worksheets()(1).Cells(r, 1).Value(Scrambled(r));
        // When the last row has gone out to the writer, the disk fills but for a little room
        // for the writer's buffers; assembling the file then needs far more.
        book.OnSaveProgress = [&](long lDone, long lTotal) {
            if (bFillWhileAssembling && lDone == lTotal) FillDiskBut(dir, 64 << 10);
        };
        return SaveOutcome(book, dir, sBefore);
    };
    std::string sRows, sAssembly;
    const bool bMounted = testutil::RunOnSmallDisk(
        dir, 256 << 10, [&] { return fnRun(false); }, sRows);
    if (bMounted) {
        EXPECT_TRUE(testutil::RunOnSmallDisk(
            dir, 4 << 20, [&] { return fnRun(true); }, sAssembly));
        EXPECT_EQ(sRows, sExpected);
        EXPECT_EQ(sAssembly, sExpected);
    } else {
        // No tmpfs here: the writer's last write fails as it would on a full disk.
        std::cout << "[ NOTE ] " << sRows << "; the save fails through the test seam\n";
        g_nSaves = 0;
        g_nFailSave = 2;
        modSaveFile::SetSaveFaultForTests(FailTheChosenSave);
        const std::string s = fnRun(false);
        modSaveFile::SetSaveFaultForTests(nullptr);
        EXPECT_EQ(s, sExpected);
    }
}

// The rows are written on a thread of their own, behind the one that reads and lays them out.
// A disk that fills half-way through the rows stops that writer: the save ends as a failed save
// does (the system's reason, the earlier workbook kept, nothing left behind), and the rows not
// yet laid out are never read.
TEST(Saver, AWriterThatFailsHalfWayEndsAsAFailedSave) {
    testutil::TempDir d;
    const fs::path dir = d.Path() / "disk";
    fs::create_directory(dir);
    const std::string sFile = (dir / "Export.xlsx").string();
    const long lRows = 40000;
    std::string sOutcome;
    const bool bMounted = testutil::RunOnSmallDisk(
        dir, 16 << 20,
        [&] {
            xl::xlWorkbook book;
            book.SaveAs(sFile);
            const std::string sBefore = testutil::ReadFile(sFile);
            for (long r = 1; r <= lRows; ++r)
                book.Worksheets()(1).Cells(r, 1).Value(Scrambled(r));
            long lLastReport = 0;
            book.OnSaveProgress = [&](long lDone, long) {
                lLastReport = lDone;
                if (lDone == lRows / 2) FillDiskBut(dir, 16 << 10);
            };
            const std::string s = SaveOutcome(book, dir, sBefore);
            return s + "|" + std::to_string(lLastReport);
        },
        sOutcome);
    if (!bMounted) GTEST_SKIP() << "no tmpfs can be mounted here: " << sOutcome;
    const size_t lBar = sOutcome.rfind('|');
    ASSERT_NE(lBar, std::string::npos) << sOutcome;
    EXPECT_EQ(
        sOutcome.substr(0, lBar),
        "1004 Cannot write '" + sFile + "': No space left on device|Export.xlsx||earlier workbook");
    // The failure came back while rows were still being laid out.
    const long lLastReport = std::stol(sOutcome.substr(lBar + 1));
    EXPECT_GE(lLastReport, lRows / 2);
    EXPECT_LT(lLastReport, lRows);
}

// Closing with the changes saved writes the file Save writes; the sheets' contents leave memory
// once the writer has them, and the closed workbook cannot be saved again.
TEST(Saver, CloseWithSaveWritesTheWorkbookAndLetsGoOfItsContents) {
    testutil::TempDir d;
    // Three sheets: each one but the last lets go of its contents as soon as the writer has it,
    // while the next is written; a link on the last leads to a name of the first.
    auto fnFill = [](xl::xlWorkbook& book) {
        for (long i = 1; i <= 3; ++i) {
            xl::xlWorksheet& ws = i == 1 ? book.Worksheets()(1) : book.Worksheets().Add();
            for (long r = 1; r <= 3000; ++r) {
                ws.Cells(r, 1).Value(Scrambled(r * i));
                ws.Cells(r, 2).Value(static_cast<double>(r));
            }
            ws.Range("C5:E5").MergeCells(true);
            ws.Names().Add("ID_" + std::to_string(i), ws.Rows(7));
            ws.Hyperlinks().Add(ws.Cells(9, 1), "", "ID_" + std::to_string(i));
            ws.Hyperlinks().Add(ws.Cells(10, 1), "file.txt", "", "tip " + std::to_string(i));
            ws.Hyperlinks().Add(ws.Cells(11, 1), "", "ID_1");
        }
    };
    xl::xlWorkbook oSaved, oClosed;
    oSaved.SaveAs(d.File("saved.xlsx"));
    oClosed.SaveAs(d.File("closed.xlsx"));
    fnFill(oSaved);
    fnFill(oClosed);
    oSaved.Save();
    oClosed.Close(true);
    // The same workbook as openpyxl reads it (the dump names no file).
    const std::string sSaved = DumpText(d.File("saved.xlsx"));
    EXPECT_GT(sSaved.size(), 100000u);
    EXPECT_EQ(DumpText(d.File("closed.xlsx")), sSaved);
    EXPECT_NE(sSaved.find("tip 3"), std::string::npos);
    EXPECT_TRUE(oClosed.IsClosed());
    ASSERT_EQ(oClosed.Worksheets().Count(), 3);
    for (long i = 1; i <= 3; ++i) {
        const auto& dc = oClosed.Worksheets()(i).Data();
        EXPECT_EQ(dc.arrRows.size(), 0u);
        EXPECT_TRUE(dc.arrMerged.empty());
        EXPECT_EQ(oClosed.Worksheets()(i).Names().Count(), 0);
        EXPECT_EQ(oClosed.Worksheets()(i).Hyperlinks().Count(), 0);
    }
    EXPECT_EQ(oClosed.Texts()->Count(), 0u);
    EXPECT_RUN_ERROR(oClosed.Save(), errAppDefined);
    EXPECT_RUN_ERROR(oClosed.Close(true), errAppDefined);
    // Without a place there is nothing to save to.
    xl::xlWorkbook oNowhere;
    EXPECT_RUN_ERROR(oNowhere.Close(true), errAppDefined);
    EXPECT_FALSE(oNowhere.IsClosed());
}

TEST(Saver, ASheetIsHandedBackOnceWrittenTheNamesBeforeTheCloseAndAFailureFailsTheSave) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    for (long i = 1; i <= 3; ++i) {
        xl::xlWorksheet& ws = i == 1 ? book.Worksheets()(1) : book.Worksheets().Add();
        ws.Cells(1, 1).Value("sheet " + std::to_string(i));
    }
    // The sheets as they are handed back, then the contents, then the names.
    std::vector<std::string> arrTaken;
    std::mutex m;
    auto fnNote = [&](const std::string& s) {
        std::lock_guard<std::mutex> l(m);
        arrTaken.push_back(s);
    };
    xl::xlSaveRelease oRelease;
    oRelease.fnSheet = [&](long i) { fnNote("sheet " + std::to_string(i)); };
    oRelease.fnContents = [&] { fnNote("contents"); };
    // Our names go before the file is complete.
    bool bFileThere = true;
    oRelease.fnNames = [&] {
        bFileThere = fs::exists(d.File("a.xlsx"));
        fnNote("names");
    };
    xl::SaveWorkbookFile(book, d.File("a.xlsx"), oRelease);
    EXPECT_EQ(arrTaken.size(), 4u);
    EXPECT_EQ(std::vector<std::string>(arrTaken.begin(), arrTaken.begin() + 2),
              (std::vector<std::string>{"sheet 1", "sheet 2"}));
    EXPECT_NE(std::find(arrTaken.begin(), arrTaken.end(), "names"), arrTaken.end());
    EXPECT_NE(std::find(arrTaken.begin(), arrTaken.end(), "contents"), arrTaken.end());
    EXPECT_FALSE(bFileThere);
    EXPECT_NE(DumpText(d.File("a.xlsx")).find("sheet 3"), std::string::npos);
    // A failure of a hand-back is the save's: no file, no temporary one.
    xl::xlSaveRelease oFailing;
    oFailing.fnSheet = [](long i) {
        if (i == 2) throw std::runtime_error("refused");
    };
    EXPECT_THROW(xl::SaveWorkbookFile(book, d.File("b.xlsx"), oFailing), std::runtime_error);
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"a.xlsx"});
}

// A closing save that stops after the first sheet let go of its rows leaves the workbook
// closed: no later save can write it without them.
TEST(Saver, ACloseThatStopsAfterASheetWentLeavesTheWorkbookClosed) {
    testutil::TempDir d;
    for (const bool bStopInSecond : {false, true}) {
        SCOPED_TRACE(bStopInSecond);
        xl::xlWorkbook book;
        book.SaveAs(d.File("Export.xlsx"));
        const std::string sBefore = testutil::ReadFile(d.File("Export.xlsx"));
        for (long i = 1; i <= 2; ++i) {
            xlWorksheet& ws = i == 1 ? book.Worksheets()(1) : book.Worksheets().Add();
            for (long r = 1; r <= 3000; ++r)
                ws.Cells(r, 1).Value(Scrambled(r));
        }
        // The first sheet's rows are 1 to 3,000 of the save's count.
        const long lStopAt = bStopInSecond ? 5000 : 2000;
        book.OnSaveProgress = [&](long lDone, long) {
            if (lDone >= lStopAt) RaiseError(errUserInterrupt);
        };
        EXPECT_RUN_ERROR(book.Close(true), errUserInterrupt);
        EXPECT_EQ(book.IsClosed(), bStopInSecond);
        if (bStopInSecond) {
            EXPECT_RUN_ERROR(book.Save(), errAppDefined);
        } else {
            // Nothing went: the workbook can still be saved whole.
            book.OnSaveProgress = nullptr;
            book.Close(true);
            EXPECT_NE(DumpText(d.File("Export.xlsx")).find(Scrambled(3000)), std::string::npos);
            continue;
        }
        EXPECT_EQ(testutil::ReadFile(d.File("Export.xlsx")), sBefore);
        EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xlsx"});
    }
}

TEST(Saver, ASaveLeavesNoFileOpenWhetherItEndsOrStops) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    book.SaveAs(d.File("Export.xlsx"));  // a sheet without rows
    EXPECT_EQ(testutil::OpenFilesIn(d.Path()), "");
    for (long r = 1; r <= 3000; ++r)
        book.Worksheets()(1).Cells(r, 1).Value(r);
    book.OnSaveProgress = [](long lDone, long) {
        if (lDone >= 2000) RaiseError(errUserInterrupt);
    };
    EXPECT_RUN_ERROR(book.Save(), errUserInterrupt);
    EXPECT_EQ(testutil::OpenFilesIn(d.Path()), "");
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xlsx"});
}

// The file stores each fitted row's height, as the model computes it; rows the text fills in
// one line keep the standard height.
TEST(Saver, FittedRowHeightsAreStored) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    xlWorksheet& ws = book.Worksheets()(1);
    FillFittedRows(ws);
    const std::string sFile = d.File("rows.xlsx");
    book.SaveAs(sFile);
    const Value v = Dump(sFile);
    const Value& rows = v["sheets"][0]["rows"];
    for (long r = 1; r <= 12; ++r) {
        const double h = ws.EffectiveRowHeight(r);
        if (h == 15) {
            EXPECT_FALSE(rows.Has(std::to_string(r)) && rows[std::to_string(r)].Has("height")) << r;
        } else {
            ASSERT_TRUE(rows.Has(std::to_string(r))) << r;
            EXPECT_EQ(rows[std::to_string(r)]["height"].Num(), h) << r;
        }
    }
    // One, two and five lines, in the cell and in the merged area, regular and bold.
    for (long r : {1L, 4L, 7L, 10L})
        EXPECT_EQ(ws.EffectiveRowHeight(r), 15) << r;
    for (long r : {2L, 5L, 8L, 11L})
        EXPECT_EQ(ws.EffectiveRowHeight(r), 28.5) << r;
    for (long r : {3L, 6L, 9L, 12L})
        EXPECT_EQ(ws.EffectiveRowHeight(r), 69.75) << r;
}

// The same rows in LibreOffice Calc: each fitted height is at least what Calc's own fit
// (Optimal Height) gives, so no text runs into the next row, and within one line of it.
TEST(Saver, FittedRowHeightsAgreeWithLibreOffice) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    xlWorksheet& ws = book.Worksheets()(1);
    FillFittedRows(ws);
    const std::string sFile = d.File("rows.xlsx");
    book.SaveAs(sFile);
    const Value lo = LibreOfficeRows(sFile);
    if (lo.IsNull()) GTEST_SKIP() << "LibreOffice (soffice) or python3-uno is not installed";
    ASSERT_GE(lo["optimal"].Size(), 12u);
    // One line more: what a second line adds to a row of the model.
    const double dLine = 28.5 - 15;
    for (long r = 1; r <= 12; ++r) {
        const double dOurs = ws.EffectiveRowHeight(r);
        const double dStored = lo["stored"][static_cast<size_t>(r - 1)].Num();
        const double dCalc = lo["optimal"][static_cast<size_t>(r - 1)].Num();
        EXPECT_NEAR(dStored, dOurs, 0.05) << "row " << r << " as Calc reads it";
        EXPECT_GE(dOurs + 0.05, dCalc) << "row " << r << ": the text needs more";
        EXPECT_LE(dOurs - dCalc, dLine) << "row " << r << ": more than one line too high";
    }
}

// The fit-to-page set-up and the dimension as the file holds them.
TEST(Saver, FitToPagesAndTheUsedRange) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    xlWorksheet& ws = book.Worksheets()(1);
    FillFittedRows(ws);
    ws.PageSetup().Zoom(false);
    ws.PageSetup().FitToPagesWide(1);
    ws.PageSetup().FitToPagesTall(false);
    const std::string sFile = d.File("fit.xlsx");
    book.SaveAs(sFile);
    const Value s = Dump(sFile)["sheets"][0];
    EXPECT_TRUE(s["fit_to_page"].Bool());
    // One page wide is the file's default for the width; as many as needed down.
    EXPECT_TRUE(s["fit_to_width"].IsNull() || s["fit_to_width"].Num() == 1);
    EXPECT_EQ(s["fit_to_height"].Num(), 0);
    // The merged areas' other cells hold nothing: the last cell that does is in column D.
    EXPECT_EQ(s["dimension"].Str(), "A1:D12");
    // The sheet-wide formats still cover every column.
    ASSERT_EQ(s["cols"].Size(), 1u);
    EXPECT_EQ(s["cols"][0]["max"].Num(), 16384);
}

// Frozen panes, the AutoFilter, the rows' outline levels and where summary rows stand.
TEST(Saver, WindowAndOutlineReadBack) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    saverfixtures::FillWindowAndOutline(book);
    const std::string sFile = d.File("views.xlsx");
    book.SaveAs(sFile);
    saverfixtures::ExpectWindowAndOutline(Dump(sFile));
}

// A workbook without them says nothing of them: no pane, no filter, no outline.
TEST(Saver, WithoutWindowOrOutlineTheFileHasNone) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    FillFittedRows(book.Worksheets()(1));
    const std::string sFile = d.File("plain.xlsx");
    book.SaveAs(sFile);
    const Value s = Dump(sFile)["sheets"][0];
    EXPECT_TRUE(s["freeze_panes"].IsNull());
    EXPECT_TRUE(s["auto_filter"].IsNull());
    EXPECT_EQ(s["outline_levels"].Size(), 0u);
    EXPECT_TRUE(s["summary_below"].Bool());
}
