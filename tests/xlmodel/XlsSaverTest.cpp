// The Excel 97-2003 (.xls) saver: workbooks saved under a name ending in ".xls" and read back
// with xlrd (through dump_xls.py), and the limits of the format as the workbook's limits.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <thread>

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

namespace {

// The workbook as xlrd reads it; the record checks of the reader must find nothing wrong.
Value Dump(const std::string& sFile) {
    const std::string sCmd = "/usr/bin/python3 '" + testutil::SourceDir() +
                             "/tests/xlmodel/dump_xls.py' '" + sFile + "' 2>&1";
    int rc = 0;
    const std::string s = testutil::CommandOutput(sCmd, &rc);
    if (rc != 0) throw std::runtime_error("dump_xls.py failed: " + s);
    Value v = jsonlite::Parse(s);
    std::string sProblems;
    for (const Value& x : v["problems"].arr)
        sProblems += x.Str() + "\n";
    EXPECT_EQ(sProblems, "");
    return v;
}

// What the record reader of the tests (tests/e2e/xls_view.py) finds in the file's records:
// the Python expression sExpr over them (f), printed.
std::string RecordFacts(const std::string& sFile, const std::string& sExpr) {
    const std::string sCmd =
        "/usr/bin/python3 -c 'import json, struct, sys; sys.path.insert(0, \"" +
        testutil::SourceDir() +
        "/tests/e2e\"); import xls_view; f = xls_view.load_workbook("
        "sys.argv[1]).facts; print(" +
        sExpr + ")' '" + sFile + "' 2>&1";
    int rc = 0;
    const std::string sOut = testutil::CommandOutput(sCmd, &rc);
    if (rc != 0) throw std::runtime_error("xls_view failed: " + sOut);
    return sOut;
}

std::set<std::string> Entries(const std::string& sDir) {
    std::set<std::string> out;
    for (const auto& e : fs::directory_iterator(sDir))
        out.insert(e.path().filename().string());
    return out;
}

bool IsCompoundFile(const std::string& sFile) {
    return testutil::ReadFile(sFile).rfind("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 0) == 0;
}

const Value* LinkAt(const Value& sheet, const std::string& sRef) {
    for (const Value& h : sheet["hyperlinks"].arr) {
        if (h["ref"].Str() == sRef) return &h;
    }
    return nullptr;
}

// The sheet plan the builder lays out, in small (as in SaverTest).
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
    band.Interior().ColorIndex(1);
    band.Font().ColorIndex(2);
    band.Font().Size(14);
    band.Borders(xlEdgeTop).LineStyle(xlContinuous);
    band.Borders(xlEdgeBottom).LineStyle(xlContinuous);
    ws.Cells(4, 1).Value("Main Panel");
    ws.Cells(4, 1).Font().FontStyle("Bold");

    ws.Rows(5).Font().FontStyle("Bold");
    ws.Cells(5, 1).Value("Level");
    ws.Cells(6, 1).Value(1L);
    ws.Cells(6, 2).Value("P-100");
    ws.Cells(7, 1).Value(2L);

    ws.Names().Add("ID_P_45100_B_0", ws.Rows(10));
    ws.Names().Add("ID_P_45200_B_1", ws.Rows(14));
    ws.Hyperlinks().Add(ws.Cells(6, 2), "", "ID_P_45100_B_0");
    ws.Hyperlinks().Add(ws.Cells(7, 1), "", "ID_P_45200_B_1");  // on a number

    xlRange caption = ws.Range(ws.Cells(10, 1), ws.Cells(10, 6));
    caption.MergeCells(true);
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
    ws.Hyperlinks().Add(ws.Cells(15, 2), "\\\\server\\share\\d1.dwg");
    ws.Hyperlinks().Add(ws.Cells(16, 2), "..\\up\\\xC3\xA4.pdf");

    ws.Cells().VerticalAlignment(xlTop);
    ws.PageSetup().Orientation(xlLandscape);
    ws.PageSetup().PrintTitleRows(ws.Range(ws.Cells(1, 1), ws.Cells(3, 4)).Address());
    ws.PageSetup().CenterFooter("&P");
    ws.PageSetup().PrintArea(ws.Range(ws.Cells(1, 1), ws.Cells(16, 6)).Address());
}

}  // namespace

TEST(XlsSaver, SaveAsWritesAnEmptyExcel97Workbook) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    EXPECT_EQ(book.FileFormat(), xlOpenXMLWorkbook);
    const std::string sFile = d.File("Export.xls");
    book.SaveAs(sFile, xlNoChange);
    EXPECT_EQ(book.FileFormat(), xlExcel8);
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xls"});
    EXPECT_TRUE(IsCompoundFile(sFile));
    const Value v = Dump(sFile);
    ASSERT_EQ(v["sheets"].Size(), 1u);
    EXPECT_EQ(v["sheets"][0]["title"].Str(), "Sheet1");
    EXPECT_EQ(v["sheets"][0]["cells"].Size(), 0u);
}

TEST(XlsSaver, TheExtensionAloneChoosesTheFormatWhateverItsCase) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    book.Worksheets()(1).Cells(1, 1).Value("x");
    book.SaveAs(d.File("a.XLS"));
    EXPECT_EQ(book.FileFormat(), xlExcel8);
    EXPECT_TRUE(IsCompoundFile(d.File("a.XLS")));
    book.SaveAs(d.File("a.xlsx"));
    EXPECT_EQ(book.FileFormat(), xlOpenXMLWorkbook);
    EXPECT_EQ(testutil::ReadFile(d.File("a.xlsx")).substr(0, 2), "PK");
    book.SaveAs(d.File("a.xls.txt"));
    EXPECT_EQ(testutil::ReadFile(d.File("a.xls.txt")).substr(0, 2), "PK");
    EXPECT_EQ(xl::FileFormatOfName("x.Xls"), xlExcel8);
    EXPECT_EQ(xl::FileFormatOfName("xls"), xlOpenXMLWorkbook);
    EXPECT_EQ(xl::FileFormatOfName("x.xlsb"), xlOpenXMLWorkbook);
}

TEST(XlsSaver, TheWholeWorkbookReadsBack) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    const std::string sFile = d.File("Export.xls");
    book.SaveAs(sFile);
    xlWorksheet& ws = book.Worksheets()(1);
    FillLikeTheBuilder(ws);
    xlWorksheet& ws2 = book.Worksheets().Add();
    ws2.Names().Add("Local2", ws2.Range("A1:B2"));
    ws2.Names().Add("One", ws2.Range("C3"));
    ws.Range(ws.Cells(1, 1), ws.Cells(2, 2)).Copy(ws2.Range(ws2.Cells(1, 1), ws2.Cells(2, 2)));
    book.Save();
    book.Close();
    app.Quit();

    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xls"});
    const Value v = Dump(sFile);
    ASSERT_EQ(v["sheets"].Size(), 2u);
    const Value& s = v["sheets"][0];
    const Value& c = s["cells"];

    EXPECT_EQ(c["A1"]["value"].Str(), "Object Type");
    EXPECT_EQ(c["A1"]["type"].Str(), "s");
    EXPECT_EQ(c["A6"]["type"].Str(), "n");
    EXPECT_EQ(c["A6"]["value"].Num(), 1);
    EXPECT_EQ(c["A7"]["type"].Str(), "n");  // a link on a number keeps the number
    EXPECT_EQ(c["B6"]["value"].Str(), "P-100");

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
    // Every column of the sheet: 256 in this format.
    ASSERT_EQ(s["cols"].Size(), 1u);
    EXPECT_EQ(s["cols"][0]["min"].Num(), 1);
    EXPECT_EQ(s["cols"][0]["max"].Num(), 256);
    EXPECT_NEAR(s["cols"][0]["width"].Num(), 21.71, 0.01);  // as the .xlsx stores it
    EXPECT_EQ(s["cols"][0]["style"]["format"].Str(), "@");
    EXPECT_EQ(s["cols"][0]["style"]["vertical"].Str(), "top");

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

    std::map<std::string, std::pair<double, std::string>> names;
    for (const Value& n : v["names"].arr) {
        names[n["name"].Str()] = {n["local_sheet"].Num(), n["refers_to"].Str()};
    }
    ASSERT_EQ(names.size(), 4u);
    EXPECT_EQ(names["ID_P_45100_B_0"], std::make_pair(0.0, std::string("Sheet1!$10:$10")));
    EXPECT_EQ(names["ID_P_45200_B_1"], std::make_pair(0.0, std::string("Sheet1!$14:$14")));
    EXPECT_EQ(names["Local2"], std::make_pair(1.0, std::string("Sheet2!$A$1:$B$2")));
    EXPECT_EQ(names["One"], std::make_pair(1.0, std::string("Sheet2!$C$3")));

    // Hyperlinks: places in the workbook, files (relative, absolute, UNC) and URLs.
    const Value* h = LinkAt(s, "B6");
    ASSERT_TRUE(h);
    EXPECT_EQ((*h)["location"].Str(), "ID_P_45100_B_0");
    EXPECT_TRUE((*h)["target"].IsNull());
    EXPECT_EQ(c["B6"]["underline"].Str(), "single");
    EXPECT_EQ(c["B6"]["color"].Str(), "0000FF");
    ASSERT_TRUE((h = LinkAt(s, "A7")));
    EXPECT_EQ((*h)["location"].Str(), "ID_P_45200_B_1");
    ASSERT_TRUE((h = LinkAt(s, "B11")));
    EXPECT_EQ((*h)["target"].Str(), "docs\\a.pdf");
    EXPECT_EQ(c["B11"]["value"].Str(), "a.pdf");
    ASSERT_TRUE((h = LinkAt(s, "B12")));
    EXPECT_EQ((*h)["target"].Str(), "C:\\docs\\b c.pdf");
    EXPECT_EQ((*h)["tooltip"].Str(), "open it");
    ASSERT_TRUE((h = LinkAt(s, "B13")));
    EXPECT_EQ((*h)["target"].Str(), "https://example.com/x?a=1");
    ASSERT_TRUE((h = LinkAt(s, "B14")));
    EXPECT_EQ((*h)["target"].Str(), "file:///srv/files/%231.pdf");
    ASSERT_TRUE((h = LinkAt(s, "B15")));
    EXPECT_EQ((*h)["target"].Str(), "\\\\server\\share\\d1.dwg");
    ASSERT_TRUE((h = LinkAt(s, "B16")));
    EXPECT_EQ((*h)["target"].Str(), "..\\up\\\xC3\xA4.pdf");
    EXPECT_EQ(s["hyperlinks"].Size(), 8u);

    EXPECT_EQ(s["print_title_rows"].Str(), "$1:$3");
    ASSERT_EQ(s["print_area"].Size(), 1u);
    EXPECT_EQ(s["print_area"][0].Str(), "$A$1:$F$16");
    EXPECT_EQ(s["footer_center"].Str(), "&P");
    EXPECT_EQ(s["orientation"].Str(), "landscape");
    EXPECT_FALSE(s["fit_to_page"].Bool());

    const Value& s2 = v["sheets"][1];
    EXPECT_EQ(s2["title"].Str(), "Sheet2");
    EXPECT_EQ(s2["cells"]["A1"]["value"].Str(), "Object Type");
    EXPECT_TRUE(s2["cells"]["A1"]["bold"].Bool());
    EXPECT_EQ(s2["cells"]["A2"]["value"].Str(), "Items");
    EXPECT_EQ(s2["orientation"].Str(), "portrait");
}

TEST(XlsSaver, LongAndUnicodeTextsAndManyStrings) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    const std::string sLong(32767, 'a');
    std::string sWide;
    for (int i = 0; i < 10000; ++i)
        sWide += "\xD0\x96";  // two bytes a character in the file
    ws.Cells(1, 1).Value(sLong);
    ws.Cells(2, 1).Value(sWide);
    ws.Cells(3, 1).Value("\xE2\x82\xAC \xF0\x9F\x98\x80 \xC3\xA9");
    for (long r = 4; r <= 3000; ++r) {
        ws.Cells(r, 1).Value("text " + std::to_string(r));
        ws.Cells(r, 2).Value("same");
    }
    book.SaveAs(d.File("t.xls"));
    const Value v = Dump(d.File("t.xls"));
    const Value& c = v["sheets"][0]["cells"];
    EXPECT_EQ(c["A1"]["value"].Str(), sLong);
    EXPECT_EQ(c["A2"]["value"].Str(), sWide);
    EXPECT_EQ(c["A3"]["value"].Str(), "\xE2\x82\xAC \xF0\x9F\x98\x80 \xC3\xA9");
    EXPECT_EQ(c["A3000"]["value"].Str(), "text 3000");
    EXPECT_EQ(c["B3000"]["value"].Str(), "same");
}

// Rows far apart: a DBCELL record for every block of 32 rows from the first row with a record to
// the last, none before or after, and the INDEX record pointing at each of them.
TEST(XlsSaver, BlocksWithoutRowsBetweenRowsKeepTheirPlaceInTheIndex) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(40, 1).Value("first");  // row 40 is in the second block
    ws.Cells(41, 2).Value("second");
    ws.Cells(200, 3).Value("after four empty blocks");
    ws.Rows(300).RowHeight(30);  // a record without cells, in the tenth block
    book.SaveAs(d.File("t.xls"));

    const Value v = Dump(d.File("t.xls"));  // the INDEX and DBCELL records check out
    const Value& c = v["sheets"][0]["cells"];
    EXPECT_EQ(c["A40"]["value"].Str(), "first");
    EXPECT_EQ(c["B41"]["value"].Str(), "second");
    EXPECT_EQ(c["C200"]["value"].Str(), "after four empty blocks");
    // Blocks 2 to 10 (rows 33 to 320), rows 40 to 300 with records (0-based 39, past 299).
    EXPECT_EQ(RecordFacts(d.File("t.xls"),
                          "len(f.sheets[0][\"dbcells\"]), "
                          "*struct.unpack_from(\"<2I\", f.sheets[0][\"index\"], 4)"),
              "9 39 300\n");
}

// The shared strings hold each distinct text once, in the order the cells first show it, from
// sheet to sheet; each cell names its own.
TEST(XlsSaver, EachTextIsSharedOnceInTheOrderTheCellsFirstShowIt) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws1 = book.Worksheets()(1);
    xlWorksheet& ws2 = book.Worksheets().Add(ws1);
    std::vector<std::string> arrWant;
    // More texts than the first table of the saver holds.
    for (long r = 1; r <= 3000; ++r) {
        ws1.Cells(r, 1).Value("text " + std::to_string(r));
        arrWant.push_back("text " + std::to_string(r));
        ws1.Cells(r, 2).Value("same");
        if (r == 1) arrWant.push_back("same");
    }
    ws2.Cells(1, 1).Value("same");
    ws2.Cells(1, 2).Value("text 7");
    ws2.Cells(2, 1).Value("only on the second sheet");
    arrWant.push_back("only on the second sheet");
    book.SaveAs(d.File("t.xls"));

    const Value v = jsonlite::Parse(RecordFacts(d.File("t.xls"), "json.dumps(f.sst_strings)"));
    std::vector<std::string> arrGot;
    for (const Value& x : v.arr)
        arrGot.push_back(x.Str());
    EXPECT_EQ(arrGot, arrWant);
    const Value w = Dump(d.File("t.xls"));
    EXPECT_EQ(w["sheets"][0]["cells"]["A3000"]["value"].Str(), "text 3000");
    EXPECT_EQ(w["sheets"][0]["cells"]["B2999"]["value"].Str(), "same");
    EXPECT_EQ(w["sheets"][1]["cells"]["A1"]["value"].Str(), "same");
    EXPECT_EQ(w["sheets"][1]["cells"]["B1"]["value"].Str(), "text 7");
    EXPECT_EQ(w["sheets"][1]["cells"]["A2"]["value"].Str(), "only on the second sheet");
}

TEST(XlsSaver, EveryRowOfTheSheetAndManyMergedAreas) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    book.SaveAs(d.File("big.xls"));
    xlWorksheet& ws = book.Worksheets()(1);
    for (long r = 1; r <= 65536; r += 3)
        ws.Cells(r, 1).Value(static_cast<double>(r));
    ws.Cells(65536, 256).Value("last");
    for (long r = 2; r <= 2 * 1500; r += 2)
        ws.Range(ws.Cells(r, 2), ws.Cells(r, 4)).MergeCells(true);
    ws.Rows(40000).RowHeight(30);
    long lReports = 0, lLast = -1, lTotal = 0;
    book.OnSaveProgress = [&](long lDone, long lAll) {
        ++lReports;
        lLast = lDone;
        lTotal = lAll;
    };
    book.Save();
    EXPECT_EQ(lTotal, 65536);
    EXPECT_EQ(lLast, 65536);
    EXPECT_GE(lReports, 65);  // every thousand rows
    const Value v = Dump(d.File("big.xls"));
    const Value& s = v["sheets"][0];
    EXPECT_EQ(s["cells"]["A65533"]["value"].Num(), 65533);
    EXPECT_EQ(s["cells"]["IV65536"]["value"].Str(), "last");
    EXPECT_EQ(s["merged"].Size(), 1500u);
    EXPECT_EQ(s["rows"]["40000"]["height"].Num(), 30);
}

TEST(XlsSaver, TheFormatsLimitsAreTheWorkbooksLimits) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(100000, 1).Value("fine in an .xlsx");
    book.SaveAs(d.File("a.xlsx"));
    ws.Cells(100000, 1).Value("");
    book.SaveAs(d.File("a.xls"));
    EXPECT_EQ(ws.MaxRows(), 65536);
    EXPECT_EQ(ws.MaxColumns(), 256);
    EXPECT_RUN_ERROR(ws.Cells(65537, 1), 1004);
    EXPECT_RUN_ERROR(ws.Cells(1, 257), 1004);
    EXPECT_RUN_ERROR(ws.Range("A65537"), 1004);
    EXPECT_RUN_ERROR(ws.Range("IW1"), 1004);
    EXPECT_RUN_ERROR(ws.PageSetup().PrintArea("$A$1:$A$70000"), 1004);
    EXPECT_EQ(ws.Rows(5).Address(), "$5:$5");
    EXPECT_EQ(ws.Columns(2).Address(), "$B:$B");
    EXPECT_EQ(ws.Cells().Address(), "$1:$65536");
    EXPECT_EQ(ws.Cells(65536, 256).Address(), "$IV$65536");
    ws.Cells(2, 1).Value(std::string(32767, 'x'));
    EXPECT_RUN_ERROR(ws.Cells(1, 1).Value(std::string(32768, 'x')), 1004);
    EXPECT_RUN_ERROR(ws.PageSetup().CenterFooter(std::string(254, 'x')), 1004);
    // A sheet added later has the same size.
    EXPECT_EQ(book.Worksheets().Add().MaxRows(), 65536);

    // 4,000 distinct cell formats, the default one included, and no more (the formats each step
    // makes count).
    const long arrH[] = {xlGeneral, xlLeft, xlCenter, xlRight, 5, -4130, 7, -4117};
    const long arrV[] = {xlTop, xlCenter, xlBottom, -4130, -4117};
    long lMade = 0;
    const long lErr = testutil::RunErrorOf([&] {
        for (long r = 1; r <= 5000; ++r) {
            xlRange x = ws.Cells(r, 2);
            x.Interior().ColorIndex(1 + r % 56);
            x.HorizontalAlignment(arrH[(r / 56) % 8]);
            x.VerticalAlignment(arrV[(r / 448) % 5]);
            x.WrapText((r / 2240) % 2 == 1);
            ++lMade;
        }
    });
    EXPECT_EQ(lErr, 1004);
    EXPECT_GT(lMade, 1000);
    EXPECT_EQ(book.Styles()->Count(), 4000u);
    book.Save();
    const Value v = Dump(d.File("a.xls"));
    EXPECT_LE(v["cell_formats"].Num(), 4000);
    EXPECT_GT(v["cell_formats"].Num(), 1000);

    // Saved as .xlsx again, the workbook takes that format's limits.
    book.SaveAs(d.File("b.xlsx"));
    EXPECT_EQ(ws.MaxRows(), 1048576);
    ws.Cells(65537, 257).Value("now fine");
}

TEST(XlsSaver, AWorkbookBeyondTheFormatIsRefusedAndNothingIsWritten) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(65537, 1).Value("beyond");
    EXPECT_RUN_ERROR(book.SaveAs(d.File("x.xls")), 1004);
    ws.Cells(65537, 1).Value("");
    ws.Cells(1, 300).Value("beyond");
    EXPECT_RUN_ERROR(book.SaveAs(d.File("x.xls")), 1004);
    ws.Cells(1, 300).Value("");
    ws.Range("B70000:C70001").MergeCells(true);
    EXPECT_RUN_ERROR(book.SaveAs(d.File("x.xls")), 1004);
    EXPECT_EQ(book.FullName(), "");
    EXPECT_EQ(book.FileFormat(), xlOpenXMLWorkbook);
    EXPECT_TRUE(Entries(d.Str()).empty());
}

TEST(XlsSaver, AnInterruptedSaveLeavesNoFile) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    book.SaveAs(d.File("c.xls"));
    fs::remove(d.File("c.xls"));
    xlWorksheet& ws = book.Worksheets()(1);
    for (long r = 1; r <= 5000; ++r)
        ws.Cells(r, 1).Value("row " + std::to_string(r));
    book.OnSaveProgress = [](long lDone, long) {
        if (lDone >= 2000) RaiseError(errUserInterrupt);
    };
    EXPECT_RUN_ERROR(book.Save(), errUserInterrupt);
    EXPECT_TRUE(Entries(d.Str()).empty());
}

TEST(XlsSaver, AnUnwritablePlaceFailsAndLeavesNothing) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    EXPECT_RUN_ERROR(book.SaveAs(d.File("missing/Export.xls")), 1004);
    book.SaveAs(d.File("Export.xls"));
    book.Worksheets()(1).Cells(1, 1).Value("data");
    fs::remove(d.File("Export.xls"));
    fs::create_directory(d.File("Export.xls"));
    testutil::WriteFile(d.File("Export.xls/inside"), "x");
    EXPECT_RUN_ERROR(book.Save(), 1004);
    EXPECT_EQ(Entries(d.Str()), std::set<std::string>{"Export.xls"});
}

TEST(XlsSaver, SavesOnSeveralThreadsAtOnce) {
    testutil::TempDir d;
    std::atomic<int> nFailed{0};
    std::vector<std::thread> arr;
    for (int t = 0; t < 4; ++t) {
        arr.emplace_back([&, t] {
            try {
                xl::xlWorkbook book;
                xlWorksheet& ws = book.Worksheets()(1);
                for (long r = 1; r <= 3000; ++r) {
                    ws.Cells(r, 1).Value("t" + std::to_string(t) + " " + std::to_string(r));
                    ws.Cells(r, 2).Font().Bold(r % 2 == 0);
                }
                book.SaveAs(d.File("t" + std::to_string(t) + ".xls"));
            } catch (...) {
                ++nFailed;
            }
        });
    }
    for (auto& th : arr)
        th.join();
    EXPECT_EQ(nFailed.load(), 0);
    for (int t = 0; t < 4; ++t) {
        const Value v = Dump(d.File("t" + std::to_string(t) + ".xls"));
        EXPECT_EQ(v["sheets"][0]["cells"]["A3000"]["value"].Str(),
                  "t" + std::to_string(t) + " 3000");
    }
    EXPECT_EQ(Entries(d.Str()).size(), 4u);
}

// Rows fitted to their text carry the same heights as in an .xlsx: the model's fit, stored as the
// row's own height; rows that one line fills keep the standard height.
TEST(XlsSaver, FittedRowHeightsAreStoredAsTheModelFitsThem) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    saverfixtures::FillFittedRows(ws);
    ws.Rows(13).RowHeight(40);  // a row's own height wins
    ws.Cells(13, 2).Value("Centrifugal pump assembly");
    const std::string sFile = d.File("rows.xls");
    book.SaveAs(sFile);
    const Value rows = Dump(sFile)["sheets"][0]["rows"];
    for (long r = 1; r <= 13; ++r) {
        const std::string k = std::to_string(r);
        const double h = ws.EffectiveRowHeight(r);
        if (h == 15) {
            EXPECT_FALSE(rows.Has(k) && rows[k].Has("height")) << r;
        } else {
            ASSERT_TRUE(rows.Has(k) && rows[k].Has("height")) << r;
            EXPECT_EQ(rows[k]["height"].Num(), h) << r;
        }
    }
    EXPECT_EQ(rows["3"]["height"].Num(), 69.75);
    EXPECT_EQ(rows["12"]["height"].Num(), 69.75);
    EXPECT_EQ(rows["13"]["height"].Num(), 40);
}

// LibreOffice reads the fitted heights of the .xls as stored, and no row of more than one line is
// below its own fit. For a single line Calc's fit of an .xls adds the font's line gap (15.79
// points for Calibri 11, where the application's standard row is 15): such rows may fall short
// by that gap alone.
TEST(XlsSaver, FittedRowHeightsAgreeWithLibreOffice) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    saverfixtures::FillFittedRows(ws);
    const std::string sFile = d.File("rows.xls");
    book.SaveAs(sFile);
    const Value lo = saverfixtures::LibreOfficeRows(sFile);
    if (lo.IsNull()) GTEST_SKIP() << "LibreOffice (soffice) or python3-uno is not installed";
    ASSERT_GE(lo["optimal"].Size(), 12u);
    for (long r = 1; r <= 12; ++r) {
        const double dOurs = ws.EffectiveRowHeight(r);
        EXPECT_NEAR(lo["stored"][static_cast<size_t>(r - 1)].Num(), dOurs, 0.05) << r;
        const double dCalc = lo["optimal"][static_cast<size_t>(r - 1)].Num();
        if (dOurs == 15) {
            EXPECT_LE(dCalc, 15.8) << r;
        } else {
            EXPECT_GE(dOurs + 0.05, dCalc) << r;
        }
    }
}

// Printing to one page width (as many pages down as needed), or at a scale.
TEST(XlsSaver, FitToPagesOrAPrintScale) {
    testutil::TempDir d;
    xl::xlWorkbook book;
    xlWorksheet& ws = book.Worksheets()(1);
    ws.Cells(1, 1).Value("fit");
    ws.PageSetup().Zoom(false);
    ws.PageSetup().FitToPagesWide(1);
    ws.PageSetup().FitToPagesTall(false);
    xlWorksheet& ws2 = book.Worksheets().Add();
    ws2.Cells(1, 1).Value("scaled");
    ws2.PageSetup().Zoom(75L);
    const std::string sFile = d.File("fit.xls");
    book.SaveAs(sFile);
    const Value v = Dump(sFile);
    const Value& s = v["sheets"][0];
    EXPECT_TRUE(s["fit_to_page"].Bool());
    EXPECT_EQ(s["fit_to_width"].Num(), 1);
    EXPECT_EQ(s["fit_to_height"].Num(), 0);
    EXPECT_EQ(s["scale"].Num(), 100);
    const Value& s2 = v["sheets"][1];
    EXPECT_FALSE(s2["fit_to_page"].Bool());
    EXPECT_EQ(s2["scale"].Num(), 75);
}

namespace {
long g_nXlsSaves = 0;
int FailTheSecondSave(const std::string&) {
    return ++g_nXlsSaves == 2 ? ENOSPC : 0;
}
}  // namespace

// A disk that fills while the workbook is written: the save fails with the system's reason, the
// earlier workbook stays, and neither a temporary file, a spool file nor a descriptor is left.
TEST(XlsSaver, AFullDiskFailsTheSaveWithItsReasonAndLeavesNothing) {
    testutil::TempDir d;
    const fs::path dir = d.Path() / "disk";
    fs::create_directory(dir);
    const std::string sFile = (dir / "Export.xls").string();
    const std::string sExpected =
        "1004 Cannot write '" + sFile + "': No space left on device|Export.xls||earlier workbook";
    auto fnRun = [&] {
        xl::xlWorkbook book;
        book.SaveAs(sFile);  // the earlier workbook
        const std::string sBefore = testutil::ReadFile(sFile);
        for (long r = 1; r <= 5000; ++r)
            book.Worksheets()(1).Cells(r, 1).Value(saverfixtures::Scrambled(r));
        std::string s;
        try {
            book.Save();
            s = "saved";
        } catch (const clsRunError& e) {
            s = std::to_string(e.Number) + " " + e.Description;
        }
        const bool bSame = testutil::ReadFile(sFile) == sBefore;
        return s + "|" + testutil::NamesIn(dir) + "|" + testutil::OpenFilesIn(dir) + "|" +
               (bSame ? "earlier workbook" : "changed");
    };
    std::string sOutcome;
    if (testutil::RunOnSmallDisk(dir, 256 << 10, fnRun, sOutcome)) {
        EXPECT_EQ(sOutcome, sExpected);
    } else {
        // No tmpfs here: the last write fails as it would on a full disk.
        std::cout << "[ NOTE ] " << sOutcome << "; the save fails through the test seam\n";
        g_nXlsSaves = 0;
        modSaveFile::SetSaveFaultForTests(FailTheSecondSave);
        const std::string s = fnRun();
        modSaveFile::SetSaveFaultForTests(nullptr);
        EXPECT_EQ(s, sExpected);
    }
}

// A stale temporary file of a save that never ended goes with the next save into its folder;
// a recent one may belong to a save still running and stays.
TEST(XlsSaver, ASaveSweepsStaleTemporaryFilesOnly) {
    testutil::TempDir d;
    const fs::path stale = d.Path() / ".Old.xls.~1-2-3.tmp";
    const fs::path recent = d.Path() / ".New.xls.~1-2-4.tmp";
    testutil::WriteFile(stale.string(), "x");
    testutil::WriteFile(recent.string(), "x");
    fs::last_write_time(stale, fs::file_time_type::clock::now() - std::chrono::hours(2));
    xl::xlWorkbook book;
    book.SaveAs(d.File("Export.xls"));
    EXPECT_EQ(Entries(d.Str()), (std::set<std::string>{".New.xls.~1-2-4.tmp", "Export.xls"}));
}

// Frozen panes (WINDOW2 and PANE), the AutoFilter (AUTOFILTERINFO and the hidden built-in name
// _FilterDatabase), the rows' outline levels (ROW, GUTS) and summary rows above (WSBOOL), read
// back as in the .xlsx; the reader's record checks find nothing wrong.
TEST(XlsSaver, WindowAndOutlineReadBack) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    saverfixtures::FillWindowAndOutline(book);
    const std::string sFile = d.File("views.xls");
    book.SaveAs(sFile);
    const Value v = Dump(sFile);
    saverfixtures::ExpectWindowAndOutline(v);
    // The filter's name is built in and stays out of the defined names.
    for (const Value& n : v["names"].arr)
        EXPECT_NE(n["name"].Str(), "_FilterDatabase");
}

TEST(XlsSaver, WithoutWindowOrOutlineTheFileHasNone) {
    testutil::TempDir d;
    xl::xlApplication app;
    xl::xlWorkbook& book = app.Workbooks().Add();
    saverfixtures::FillFittedRows(book.Worksheets()(1));
    const std::string sFile = d.File("plain.xls");
    book.SaveAs(sFile);
    const Value s = Dump(sFile)["sheets"][0];
    EXPECT_TRUE(s["freeze_panes"].IsNull());
    EXPECT_TRUE(s["auto_filter"].IsNull());
    EXPECT_EQ(s["outline_levels"].Size(), 0u);
    EXPECT_TRUE(s["summary_below"].Bool());
}
