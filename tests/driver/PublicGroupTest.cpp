// The grouping of reference designators through the public interface: a grouping component the
// host registers with RegisterGroup is the one the export uses, as the saved workbook, read
// back with openpyxl, shows.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "TestUtil.h"
#include "iclsExportExcel.h"
#include "support/modEnvironment.h"

namespace fs = std::filesystem;
using testutil::TempDir;

namespace {

const char* const kProgID = "wexgrp.IclsGroup";

// The data file tests/data/e2e-refdes.xml: an item structure B-1 with one child, R-10K, whose
// designators are exported as R3 R1 R2 R10 C7 R2. B-1 is main-panel row 6 and R-10K row 7; B-1's
// block starts at row 10 (header, attributes band, two attribute rows, an empty row, the
// part-list band at 15), so the child's rows are 16 and 17 and its designators stand in D17.
const char* const kDataName = "e2e-refdes.xml";
const std::vector<std::string> kExported = {"R3", "R1", "R2", "R10", "C7", "R2"};

// Marks each designator and reverses their order, so that its hand is plain in the workbook.
class clsGroupMarked : public IclsGroup {
public:
    explicit clsGroupMarked(std::shared_ptr<std::vector<std::vector<std::string>>> pCalls)
        : pCalls_(std::move(pCalls)) {}
    std::vector<std::string> Group(const std::vector<std::string>& arrDesignators) override {
        pCalls_->push_back(arrDesignators);
        std::vector<std::string> arrOut;
        for (auto it = arrDesignators.rbegin(); it != arrDesignators.rend(); ++it)
            arrOut.push_back("#" + *it);
        return arrOut;
    }

private:
    std::shared_ptr<std::vector<std::vector<std::string>>> pCalls_;
};

std::string SetupXml() {
    return "<SETUP><PROJECT>Demo</PROJECT><WORKBOOK_NAME></WORKBOOK_NAME>"
           "<EXPORTED_BY>me</EXPORTED_BY><EXPORT_DATE/><OBJECT_TYPE>Item</OBJECT_TYPE>"
           "<SPACE_TYPE>STRUCTURE</SPACE_TYPE></SETUP>";
}

// The non-empty cells of the first sheet as openpyxl reads them: cell name -> value as JSON.
std::map<std::string, std::string> ReadBack(const std::string& sWorkbook, std::string& sRaw) {
    const std::string sCmd = "PYTHONIOENCODING=utf-8 /usr/bin/python3 '" + testutil::SourceDir() +
                             "/tests/reliability/read_back.py' '" + sWorkbook + "' 2>&1";
    std::map<std::string, std::string> mapCells;
    FILE* p = popen(sCmd.c_str(), "r");
    if (!p) return mapCells;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        sRaw.append(buf, n);
    pclose(p);
    size_t lStart = 0;
    while (lStart < sRaw.size()) {
        size_t lEnd = sRaw.find('\n', lStart);
        if (lEnd == std::string::npos) lEnd = sRaw.size();
        const std::string sLine = sRaw.substr(lStart, lEnd - lStart);
        if (const size_t k = sLine.find('='); k != std::string::npos)
            mapCells[sLine.substr(0, k)] = sLine.substr(k + 1);
        lStart = lEnd + 1;
    }
    return mapCells;
}

class PublicGroupTest : public ::testing::Test {
protected:
    void SetUp() override {
        modEnvironment::ResetAppDataRootCache();
        fs::create_directories(sExportDir);
        fs::create_directories(tmp.Path() / "data");
        sData = tmp.File("data/" + std::string(kDataName));
        fs::copy_file(std::string(ORV_TEST_DATA) + "/" + kDataName, sData);
        oExport->SetLogObserver([this](const std::string& sLine) { arrLog.push_back(sLine); });
    }
    void TearDown() override { modEnvironment::ResetAppDataRootCache(); }

    // Runs the export and reads the workbook back; the read-back must succeed.
    std::map<std::string, std::string> ExportAndReadBack() {
        const bool bOk = oExport->ParseMain(sData, testutil::ExamplesDir() + "/settings.xml",
                                            SetupXml(), ".xlsx");
        EXPECT_TRUE(bOk);
        const std::string sWorkbook = oExport->LastWorkbookPath();
        EXPECT_EQ(sWorkbook, tmp.File("data/e2e-refdes.xlsx"));
        std::string sRaw;
        auto mapCells = ReadBack(sWorkbook, sRaw);
        EXPECT_EQ(sRaw.rfind("OK\n", 0), 0u) << sRaw;
        // The rows around the designators are where they belong.
        EXPECT_EQ(mapCells["B16"], "\"R-10K\"") << sRaw;
        EXPECT_EQ(mapCells["C17"], "\"Reference Designators\"") << sRaw;
        return mapCells;
    }

    TempDir tmp;
    testutil::ScopedEnv env{"APPDATA", tmp.Str()};
    std::string sExportDir = tmp.Str() + "/Korvane/Addin Modules/Zenfold/Export/";
    std::string sData;
    std::unique_ptr<iclsExportExcel> oExport = CreateExportExcel();
    std::vector<std::string> arrLog;
};

}  // namespace

TEST_F(PublicGroupTest, WithoutARegistrationTheBuiltInGroupingWritesRanges) {
    auto mapCells = ExportAndReadBack();
    EXPECT_EQ(mapCells["D17"], "\"C7,R1-R3,R10\"");
    EXPECT_TRUE(arrLog.empty());
}

TEST_F(PublicGroupTest, TheHostsGroupingComponentIsTheOneUsed) {
    auto pCalls = std::make_shared<std::vector<std::vector<std::string>>>();
    int nCreated = 0;
    oExport->RegisterGroup(kProgID, [pCalls, &nCreated] {
        ++nCreated;
        return std::make_unique<clsGroupMarked>(pCalls);
    });
    auto mapCells = ExportAndReadBack();
    EXPECT_EQ(mapCells["D17"], "\"#R2,#C7,#R10,#R2,#R1,#R3\"");
    // Created and asked once, for the one item with designators, which it got as exported.
    EXPECT_EQ(nCreated, 1);
    ASSERT_EQ(pCalls->size(), 1u);
    EXPECT_EQ((*pCalls)[0], kExported);
    EXPECT_TRUE(arrLog.empty());
}

TEST_F(PublicGroupTest, AComponentUnderAnotherNameIsNotAsked) {
    auto pCalls = std::make_shared<std::vector<std::vector<std::string>>>();
    oExport->RegisterGroup("other.IclsGroup",
                           [pCalls] { return std::make_unique<clsGroupMarked>(pCalls); });
    auto mapCells = ExportAndReadBack();
    EXPECT_EQ(mapCells["D17"], "\"C7,R1-R3,R10\"");
    EXPECT_TRUE(pCalls->empty());
}

TEST_F(PublicGroupTest, RemovedComponentLeavesTheDesignatorsEmptyAndIsLogged) {
    oExport->RegisterGroup(kProgID, nullptr);
    auto mapCells = ExportAndReadBack();
    EXPECT_EQ(mapCells.count("D17"), 0u);
    ASSERT_EQ(arrLog.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        arrLog[0], std::regex("Run-time error: ActiveX component can't create object 429 " +
                              std::string(testutil::kDateTimeRegex) +
                              " in orvExportExcel:clsXMLPars\\[FillLAIAndRefDes\\]")))
        << arrLog[0];
}
