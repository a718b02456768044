// Whole exports through the library: the workbook of a generated export stays the same, call by
// call of the file writer (cells, texts, formats, merged areas, links, names, page set-up), and
// a host sees the progress of the parse and then of the writing.
//
// The golden dumps in tests/data were written by bench/orv-model-dump from the generated data
// files beside them (bench/gen_data.py, see the *.args files for the arguments). A change that
// alters a workbook on purpose renews them:
//
//     build-bench/bench/orv-model-dump tests/data/gen-item-structure.xml
//         tests/data/gen-settings.xml SETUP_FILE tests/data/gen-item-structure.dump
#include <gtest/gtest.h>

#include <array>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "TestUtil.h"
#include "driver/clsExportExcel.h"
#include "parse/clsXMLPars.h"
#include "support/modEnvironment.h"
#include "support/modResources.h"
#include "workbook/clsBldExcel.h"
#include "xl/xlModelData.h"

namespace fs = std::filesystem;

// Gives the builder an in-memory workbook and reads it back.
struct clsBldExcelTestAccess {
    static void OpenInMemory(clsBldExcel& b) {
        b.oExlApp_ = std::make_unique<xl::xlApplication>();
        b.oWorkbook_ = &b.oExlApp_->Workbooks().Add();
        b.oSheet_ = &b.oWorkbook_->Worksheets()(1);
    }
    // As InitExl opens it: saved at once, so finished blocks may go ahead to a spool.
    static void OpenSaved(clsBldExcel& b, const std::string& sFile) {
        OpenInMemory(b);
        b.oWorkbook_->SaveAs(sFile);
    }
    static xl::xlWorkbook* Workbook(clsBldExcel& b) { return b.oWorkbook_; }
};

namespace {

std::string SetupXml(const std::string& sType, const std::string& sSpace) {
    return "<SETUP><PROJECT>Benchmark</PROJECT><WORKBOOK_NAME></WORKBOOK_NAME>"
           "<EXPORTED_BY>bench</EXPORTED_BY><EXPORT_DATE>1/1/2025</EXPORT_DATE><OBJECT_TYPE>" +
           sType + "</OBJECT_TYPE><SPACE_TYPE>" + sSpace + "</SPACE_TYPE></SETUP>";
}

// The lines of a dump; the export's own date and time (the caption of the export date) reads
// "<now>".
std::vector<std::string> Lines(const std::string& s) {
    static const std::regex reNow(testutil::kDateTimeRegex);
    std::vector<std::string> arr;
    std::istringstream in(s);
    for (std::string sLine; std::getline(in, sLine);) {
        arr.push_back(std::regex_replace(sLine, reNow, "<now>"));
    }
    return arr;
}

class ExportIdentityTest : public ::testing::Test {
protected:
    void SetUp() override {
        modEnvironment::ResetAppDataRootCache();
        fs::create_directories(tmp.Str() + "/Korvane/Addin Modules/Zenfold/Export");
    }
    void TearDown() override { modEnvironment::ResetAppDataRootCache(); }

    // Parses and builds the export as the driver does and hands its workbook to fnUse. With
    // bSaved the workbook is saved first, as an export's is, and its finished blocks go to the
    // spool while it is built.
    void Build(const std::string& sData, const std::string& sSetup, bool bSaved,
               const std::string& sSettingsFile, const std::function<void(xl::xlWorkbook&)>& fnUse,
               bool bWriteAhead = true) {
        clsExportExcel oExport;
        oExport.SetWriteAhead(bWriteAhead);
        clsExportContext& ctx = oExport.Context();
        std::vector<std::string> arrLog;
        ctx.Options.OnLogLine = [&](const std::string& s) { arrLog.push_back(s); };
        ctx.LogFilePath = tmp.File("export.log");
        EXPECT_TRUE(oExport.GetIniXML(sSettingsFile));
        modResources::InitResources(ctx, ctx.IniData.get());
        EXPECT_TRUE(clsExportExcel::FillExcellCap(ctx, sSetup));
        EXPECT_TRUE(clsExportExcel::FillAttrLabels(ctx));
        std::unique_ptr<pugi::xml_document> oDocument;
        clsXMLPars oPars(ctx);
        EXPECT_TRUE(oPars.LoadCurrentXML(oDocument, sData));
        oPars.MainXStruct(*oDocument);
        clsBldExcel oBuilder(ctx);
        if (bSaved) {
            clsBldExcelTestAccess::OpenSaved(oBuilder, tmp.File("workbook.xlsx"));
        } else {
            clsBldExcelTestAccess::OpenInMemory(oBuilder);
        }
        EXPECT_TRUE(oBuilder.FillExlFile());
        if (bLogExpected) {
            arrBuildLog = arrLog;
        } else {
            EXPECT_EQ(arrLog, std::vector<std::string>{});
        }
        fnUse(*clsBldExcelTestAccess::Workbook(oBuilder));
    }
    // With bLogExpected, Build keeps the log lines of the build in arrBuildLog; else there are
    // none.
    bool bLogExpected = false;
    std::vector<std::string> arrBuildLog;

    // The dump of the workbook an export builds (the saver's calls, through Build).
    std::string DumpOf(const std::string& sData, const std::string& sSetup, bool bSaved = true) {
        std::string sResult;
        Build(sData, sSetup, bSaved, sSettings, [&](xl::xlWorkbook& book) {
            const auto& d = book.Worksheets()(1).Data();
            lSpooledRows = d.pSpool ? d.pSpool->lLast - d.pSpool->lFirst + 1 : 0;
            const std::string sDump = tmp.File("workbook.dump");
            std::FILE* p = std::fopen(sDump.c_str(), "wb");
            EXPECT_NE(p, nullptr);
            if (!p) return;
            xl::DumpWorkbook(book, p);
            std::fclose(p);
            sResult = testutil::ReadFile(sDump);
        });
        return sResult;
    }

    // Compares line by line and names the first difference.
    void ExpectSameDump(const std::string& sGoldenFile, const std::string& sGot) {
        const auto arrWant = Lines(testutil::ReadFile(sGoldenFile));
        const auto arrGot = Lines(sGot);
        ASSERT_GT(arrWant.size(), 1000u) << sGoldenFile;
        const size_t n = std::min(arrWant.size(), arrGot.size());
        for (size_t i = 0; i < n; ++i) {
            ASSERT_EQ(arrGot[i], arrWant[i])
                << "first difference at line " << i + 1 << " of " << sGoldenFile;
        }
        EXPECT_EQ(arrGot.size(), arrWant.size());
    }

    long lSpooledRows = 0;  // of the last DumpOf
    testutil::TempDir tmp;
    testutil::ScopedEnv env{"APPDATA", tmp.Str()};
    std::string sSettings = std::string(ORV_TEST_DATA) + "/gen-settings.xml";
};

}  // namespace

// Built as an export builds it, most of the property panel goes to the spool during the build
// and comes back in the save: the workbook is the same, call by call.
TEST_F(ExportIdentityTest, ItemStructureWorkbookIsUnchanged) {
    ExpectSameDump(std::string(ORV_TEST_DATA) + "/gen-item-structure.dump",
                   DumpOf(std::string(ORV_TEST_DATA) + "/gen-item-structure.xml",
                          SetupXml("Item", "STRUCTURE")));
    EXPECT_GT(lSpooledRows, 1000);
}

TEST_F(ExportIdentityTest, DocumentCollectionWorkbookIsUnchanged) {
    ExpectSameDump(std::string(ORV_TEST_DATA) + "/gen-doc-collection.dump",
                   DumpOf(std::string(ORV_TEST_DATA) + "/gen-doc-collection.xml",
                          SetupXml("Document", "COLLECTION")));
    EXPECT_GT(lSpooledRows, 100);
}

// A workbook without its place keeps every row in memory: the same workbook.
TEST_F(ExportIdentityTest, AWorkbookBuiltWholeInMemoryIsTheSame) {
    ExpectSameDump(std::string(ORV_TEST_DATA) + "/gen-item-structure.dump",
                   DumpOf(std::string(ORV_TEST_DATA) + "/gen-item-structure.xml",
                          SetupXml("Item", "STRUCTURE"), false));
    EXPECT_EQ(lSpooledRows, 0);
}

// The dump holds one anchor name per listed object, the links to them and to files, and the
// formats.
TEST_F(ExportIdentityTest, DumpHoldsNamesLinksAndFormats) {
    const auto arr = Lines(DumpOf(std::string(ORV_TEST_DATA) + "/gen-item-structure.xml",
                                  SetupXml("Item", "STRUCTURE")));
    size_t nNames = 0, nLinks = 0, nFormats = 0;
    for (const auto& s : arr) {
        nNames += s.rfind("D\t", 0) == 0;
        nLinks += s.rfind("U\t", 0) == 0;
        nFormats += s.rfind("F\t", 0) == 0;
    }
    // One anchor name and one main-panel link per object, and links to files.
    EXPECT_EQ(nNames, 300u);
    EXPECT_GT(nLinks, 300u);
    EXPECT_GT(nFormats, 5u);
}

// A host's progress observer sees the parse (objects) and then the writing (rows), each
// counting up, and the writing ends at its total.
TEST_F(ExportIdentityTest, ProgressGoesFromParsingToWritingCountingUp) {
    const std::string sData = tmp.File("data/export.xml");
    fs::create_directories(tmp.Path() / "data");
    fs::copy_file(std::string(ORV_TEST_DATA) + "/gen-item-structure.xml", sData);

    std::vector<clsProgress> arr;
    auto oExport = CreateExportExcel();
    oExport->SetProgressObserver([&](const clsProgress& p) { arr.push_back(p); });
    ASSERT_TRUE(oExport->ParseMain(sData, sSettings, SetupXml("Item", "STRUCTURE"), ".xlsx"));

    ASSERT_FALSE(arr.empty());
    EXPECT_EQ(arr.front().eStage, clsProgress::Stage::Parsing);
    EXPECT_EQ(arr.back().eStage, clsProgress::Stage::Writing);
    size_t nParsing = 0, nWriting = 0;
    for (size_t i = 0; i < arr.size(); ++i) {
        const clsProgress& p = arr[i];
        (p.eStage == clsProgress::Stage::Parsing ? nParsing : nWriting)++;
        if (i > 0 && arr[i - 1].eStage == p.eStage) {
            EXPECT_GE(p.lDone, arr[i - 1].lDone) << i;
        }
        if (i > 0 && arr[i - 1].eStage == clsProgress::Stage::Writing) {
            EXPECT_EQ(p.eStage, clsProgress::Stage::Writing) << "parsing after writing at " << i;
        }
    }
    EXPECT_EQ(nParsing, 301u);  // one per object, then the total
    EXPECT_EQ(arr[nParsing - 1].lDone, 300);
    EXPECT_EQ(arr[nParsing - 1].lTotal, 300);
    // Writing: the start, every thousand rows, the end.
    const clsProgress& last = arr.back();
    EXPECT_GT(last.lTotal, 3000);
    EXPECT_EQ(last.lDone, last.lTotal);
    EXPECT_EQ(arr[nParsing].lDone, 0);
    EXPECT_GE(nWriting, static_cast<size_t>(2 + last.lTotal / 1000));
}

namespace {

// A text as read_cells.py prints it.
std::string Escaped(std::string_view s) {
    std::string r;
    for (char ch : s) {
        switch (ch) {
            case '\\':
                r += "\\\\";
                break;
            case '\t':
                r += "\\t";
                break;
            case '\n':
                r += "\\n";
                break;
            case '\r':
                r += "\\r";
                break;
            default:
                r += ch;
        }
    }
    return r;
}

// Every cell of the model that shows something, as read_cells.py lists a saved workbook's.
std::string CellsOfModel(const xl::xlWorkbook& book) {
    std::string s;
    const xl::xlWorksheets& oSheets = book.Worksheets();
    for (long i = 1; i <= oSheets.Count(); ++i) {
        const xl::xlWorksheet& ws = oSheets.Item(i);
        const auto& d = ws.Data();
        for (size_t r = 0; r < d.arrRows.size(); ++r) {
            for (const xl::detail::Cell& c : d.arrRows[r].arrCells) {
                std::string v;
                if (c.eType == xl::detail::kText) {
                    v = Escaped(d.oText.Get(c.lPayload));
                } else if (c.eType == xl::detail::kNumber) {
                    char buf[40];
                    std::snprintf(buf, sizeof buf, "%.15g", c.Number());
                    v = buf;
                } else if (c.eType == xl::detail::kFormula) {
                    v = Escaped(xl::detail::FormulaValueOf(d.oText.Get(c.lPayload)));
                }
                if (v.empty()) continue;
                s += ws.Name() + "\t" + std::to_string(r + 1) + "\t" + std::to_string(c.nCol) +
                     "\t" + v + "\n";
            }
        }
    }
    return s;
}

std::string Output(const std::string& sCmd) {
    int rc = 0;
    std::string s = testutil::CommandOutput(sCmd, &rc);
    if (rc != 0) s = "failed (" + std::to_string(rc) + "): " + sCmd + "\n" + s;
    return s;
}

// Every part of a saved .xlsx but its creation time, as Python's zip reader reads it, line by
// line (the export's time of day as "<now>").
std::vector<std::string> PartsOf(const std::string& sFile) {
    return Lines(
        Output("/usr/bin/python3 -c \"import sys, zipfile\n"
               "z = zipfile.ZipFile(sys.argv[1])\n"
               "for n in sorted(z.namelist()):\n"
               "    if n != 'docProps/core.xml': print(n); print(z.read(n).decode())"
               "\" '" +
               sFile + "' 2>&1"));
}

// The two workbooks have the same parts, line for line; the first difference is named.
void ExpectSameParts(const std::string& sGot, const std::string& sWant) {
    const auto arrWant = PartsOf(sWant);
    const auto arrGot = PartsOf(sGot);
    ASSERT_GT(arrWant.size(), 10u);
    const size_t n = std::min(arrWant.size(), arrGot.size());
    for (size_t i = 0; i < n; ++i) {
        if (arrGot[i] == arrWant[i]) continue;
        // A part is one long line: the place where it differs, with what surrounds it.
        const std::string& a = arrGot[i];
        const std::string& b = arrWant[i];
        size_t c = 0;
        while (c < a.size() && c < b.size() && a[c] == b[c])
            ++c;
        const size_t lFrom = c > 200 ? c - 200 : 0;
        FAIL() << "line " << i + 1 << " differs at character " << c
               << "\n got: " << a.substr(lFrom, 400) << "\nwant: " << b.substr(lFrom, 400);
    }
    EXPECT_EQ(arrGot.size(), arrWant.size());
}

struct ExportKind {
    const char* sKind;  // of the generator
    const char* sObjectType;
    const char* sSpace;
};

void PrintTo(const ExportKind& k, std::ostream* os) {
    *os << k.sKind << " " << k.sSpace;
}

class RowsReadBackTest : public ExportIdentityTest,
                         public ::testing::WithParamInterface<ExportKind> {
protected:
    // Generates the data file of the kind (400 objects, several batches of rows and blocks that
    // go to the spool) and its settings: sData, sSettingsFile, and the mode as a setup names it.
    void Generate() {
        const ExportKind& k = GetParam();
        const std::string sDir = tmp.File("data");
        fs::create_directories(sDir);
        sData = sDir + "/export.xml";
        sSettingsFile = tmp.File("settings.xml");
        const std::string sGen = Output(
            "/usr/bin/python3 '" + testutil::SourceDir() + "/bench/gen_data.py' '" + sData +
            "' --kind " + k.sKind + " --mode " + k.sSpace +
            " --objects 400 --depth 4 --fanout 3 --attrs 4 --docs 0.5 --files 2 --folders 0.3"
            " --items 1 --mnfs 0.5 --vnds 0.3 --alternates 0.3 --refdes 2 --seed 11 --settings '" +
            sSettingsFile + "' 2>&1");
        ASSERT_TRUE(fs::exists(sData)) << sGen;
        sSpace = k.sSpace;
        for (char& ch : sSpace)
            ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    }
    std::string sData, sSettingsFile, sSpace;
};

}  // namespace

// Every export kind, saved in each format as an export saves it (its finished blocks through
// the spool, its rows handed to the writer's thread in batches), read back by an independent
// reader: every row reached the file, in order, with every cell the model holds, and nothing
// else.
TEST_P(RowsReadBackTest, EveryRowReachesEachSaverInOrderAndComplete) {
    const ExportKind& k = GetParam();
    const std::string sSource = testutil::SourceDir();
    const std::string sDir = tmp.File("data");
    Generate();
    if (HasFatalFailure()) return;
    const std::string sSetup =
        "<SETUP><PROJECT>Rows</PROJECT><WORKBOOK_NAME>wb</WORKBOOK_NAME><EXPORTED_BY>test"
        "</EXPORTED_BY><EXPORT_DATE>1/1/2025</EXPORT_DATE><OBJECT_TYPE>" +
        std::string(k.sObjectType) + "</OBJECT_TYPE><SPACE_TYPE>" + sSpace +
        "</SPACE_TYPE></SETUP>";

    // What the model holds, built whole in memory.
    std::string sWant;
    long lRows = 0;
    Build(sData, sSetup, false, sSettingsFile, [&](xl::xlWorkbook& book) {
        sWant = CellsOfModel(book);
        lRows = static_cast<long>(book.Worksheets()(1).Data().arrRows.size());
    });
    // Enough rows for several batches and for blocks to go to the spool.
    ASSERT_GT(lRows, 2000) << k.sKind << " " << k.sSpace;

    for (const std::string sExt : {".xlsx", ".xls"}) {
        auto oExport = CreateExportExcel();
        ASSERT_TRUE(oExport->ParseMain(sData, sSettingsFile, sSetup, sExt)) << sExt;
        const std::string sBook = oExport->LastWorkbookPath();
        ASSERT_EQ(sBook, sDir + "/wb" + sExt);
        const std::string sGot = Output("/usr/bin/python3 '" + sSource +
                                        "/tests/export/read_cells.py' '" + sBook + "' 2>&1");
        const auto arrWant = Lines(sWant);
        const auto arrGot = Lines(sGot);
        const size_t n = std::min(arrWant.size(), arrGot.size());
        for (size_t i = 0; i < n; ++i) {
            ASSERT_EQ(arrGot[i], arrWant[i]) << sExt << ": first difference at cell " << i + 1;
        }
        EXPECT_EQ(arrGot.size(), arrWant.size()) << sExt;
        // Nothing of the save is left beside the workbook.
        std::vector<std::string> arrNames;
        for (const auto& e : fs::directory_iterator(sDir))
            arrNames.push_back(e.path().filename().string());
        std::sort(arrNames.begin(), arrNames.end());
        EXPECT_EQ(arrNames,
                  (sExt == ".xlsx" ? std::vector<std::string>{"export.xml", "wb.xlsx"}
                                   : std::vector<std::string>{"export.xml", "wb.xls", "wb.xlsx"}));
    }
}

// Every export kind, built as an export builds it: the blocks are counted before they are
// filled, and begin where counted (else the writer stops); the file's writer takes the rows while
// the blocks are filled, and the file it completes is the one the same workbook built whole in
// memory and then saved gives, part for part (the export's time of day aside).
TEST_P(RowsReadBackTest, TheWorkbookWrittenAheadIsTheOneTheWholeModelSaves) {
    const ExportKind& k = GetParam();
    Generate();
    if (HasFatalFailure()) return;
    const std::string sSetup = SetupXml(k.sObjectType, sSpace);

    bool bAhead = false;
    Build(sData, sSetup, true, sSettingsFile, [&](xl::xlWorkbook& book) {
        EXPECT_TRUE(book.Worksheets()(1).WritesAhead());
        book.Close(true);
        bAhead = book.LastSaveWroteAhead();
    });
    EXPECT_TRUE(bAhead);
    const std::string sWhole = tmp.File("whole.xlsx");
    Build(sData, sSetup, false, sSettingsFile, [&](xl::xlWorkbook& book) { book.SaveAs(sWhole); });
    ExpectSameParts(tmp.File("workbook.xlsx"), sWhole);
}

// A document structure with more links to files than a sheet holds continues on a new sheet.
// Its blocks are counted before they are filled, so the rows the first sheet keeps go to the
// writer while the rest are filled; the workbook is the one built whole in memory.
TEST_F(ExportIdentityTest, AnExportThatContinuesWritesTheRowsItsFirstSheetKeepsAhead) {
    const std::string sDir = tmp.File("data");
    fs::create_directories(sDir);
    const std::string sData = sDir + "/export.xml";
    const std::string sSettingsFile = tmp.File("settings.xml");
    const std::string sGen =
        Output("/usr/bin/python3 '" + testutil::SourceDir() + "/bench/gen_data.py' '" + sData +
               "' --kind document --objects 2500 --depth 4 --fanout 3 --attrs 1 --docs 1 --files 9"
               " --folders 0 --items 0 --seed 11 --settings '" +
               sSettingsFile + "' 2>&1");
    ASSERT_TRUE(fs::exists(sData)) << sGen;
    const std::string sSetup = SetupXml("Document", "STRUCTURE");
    bLogExpected = true;

    bool bAhead = false;
    Build(sData, sSetup, true, sSettingsFile, [&](xl::xlWorkbook& book) {
        EXPECT_EQ(book.Worksheets().Count(), 2);
        EXPECT_TRUE(book.Worksheets()(1).WritesAhead());
        book.Close(true);
        bAhead = book.LastSaveWroteAhead();
    });
    ASSERT_EQ(arrBuildLog.size(), 1u);
    EXPECT_EQ(arrBuildLog[0].rfind("The workbook continues on sheet 'Sheet1 (2)'.", 0), 0u)
        << arrBuildLog[0];
    EXPECT_TRUE(bAhead);
    const std::string sWhole = tmp.File("whole.xlsx");
    Build(sData, sSetup, false, sSettingsFile, [&](xl::xlWorkbook& book) { book.SaveAs(sWhole); });
    ExpectSameParts(tmp.File("workbook.xlsx"), sWhole);
}

// The small data files of the end-to-end tests, one or more a kind, each with its corner cases
// (empty lists, local alternates, manufacturers with and without suppliers, files without a
// name, long designator lists): their blocks begin on the rows counted before they are filled
// (else the writer would stop), and the workbook written ahead is the one the whole model gives.
TEST_F(ExportIdentityTest, EveryKindsBlocksBeginWhereTheyWereCounted) {
    const std::string sSettingsFile = testutil::SourceDir() + "/examples/settings.xml";
    bLogExpected = true;
    const std::vector<std::array<std::string, 3>> arrCases = {
        {"e2e-item-structure.xml", "Item", "STRUCTURE"},
        {"e2e-item-collection.xml", "Item", "COLLECTION"},
        {"e2e-refdes.xml", "Item", "STRUCTURE"},
        {"e2e-views.xml", "Item", "STRUCTURE"},
        {"e2e-doc-structure.xml", "Document", "STRUCTURE"},
        {"e2e-doc-collection.xml", "Document", "COLLECTION"},
        {"e2e-folder-structure.xml", "Folder", "STRUCTURE"},
        {"e2e-folder-tree.xml", "Folder", "STRUCTURE"},
        {"e2e-folder-collection.xml", "Folder", "COLLECTION"},
    };
    for (const auto& [sFile, sType, sSpace] : arrCases) {
        SCOPED_TRACE(sFile);
        const std::string sData = std::string(ORV_TEST_DATA) + "/" + sFile;
        const std::string sSetup = SetupXml(sType, sSpace);
        bool bAhead = false;
        Build(sData, sSetup, true, sSettingsFile, [&](xl::xlWorkbook& book) {
            book.Close(true);
            bAhead = book.LastSaveWroteAhead();
        });
        EXPECT_TRUE(bAhead);
        const std::string sWhole = tmp.File("whole.xlsx");
        Build(sData, sSetup, false, sSettingsFile,
              [&](xl::xlWorkbook& book) { book.SaveAs(sWhole); });
        ExpectSameParts(tmp.File("workbook.xlsx"), sWhole);
    }
}

// A host that keeps each export to one core (a batch on every core) turns writing ahead off:
// the first sheet is not written while it is laid out, and the workbook is the same.
TEST_F(ExportIdentityTest, AnExportKeptToOneCoreWritesTheSameWorkbookAtTheSave) {
    const std::string sData = std::string(ORV_TEST_DATA) + "/gen-item-structure.xml";
    const std::string sSetup = SetupXml("Item", "STRUCTURE");
    const std::string sAhead = tmp.File("ahead.xlsx");
    Build(sData, sSetup, true, sSettings, [&](xl::xlWorkbook& book) {
        EXPECT_TRUE(book.Worksheets()(1).WritesAhead());
        book.Close(true);
        EXPECT_TRUE(book.LastSaveWroteAhead());
        fs::rename(tmp.File("workbook.xlsx"), sAhead);
    });
    Build(
        sData, sSetup, true, sSettings,
        [&](xl::xlWorkbook& book) {
            EXPECT_FALSE(book.Worksheets()(1).WritesAhead());
            book.Close(true);
            EXPECT_FALSE(book.LastSaveWroteAhead());
        },
        false);
    const auto arrAhead = PartsOf(sAhead);
    ASSERT_GT(arrAhead.size(), 10u);
    EXPECT_TRUE(PartsOf(tmp.File("workbook.xlsx")) == arrAhead);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, RowsReadBackTest,
                         ::testing::Values(ExportKind{"item", "Item", "structure"},
                                           ExportKind{"item", "Item", "collection"},
                                           ExportKind{"document", "Document", "structure"},
                                           ExportKind{"document", "Document", "collection"},
                                           ExportKind{"folder", "Folder", "structure"},
                                           ExportKind{"folder", "Folder", "collection"}),
                         [](const ::testing::TestParamInfo<ExportKind>& i) {
                             return std::string(i.param.sKind) + "_" + i.param.sSpace;
                         });
