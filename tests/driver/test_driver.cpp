#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "TestUtil.h"
#include "driver/clsExportExcel.h"
#include "orvExportExcel.h"
#include "support/modEnvironment.h"

namespace fs = std::filesystem;
using testutil::TempDir;

namespace {

const std::string kDate = testutil::kDateTimeRegex;

const char* kSmallItems = R"(<?xml version="1.0"?>
<Root_Element>
  <Item id="P-100" revision="B" description="Pump assembly" status="Released">
    <Item_PS find_number="010" quantity="2">
      <Item id="P-200" revision="A" description="Impeller"/>
    </Item_PS>
  </Item>
</Root_Element>)";

std::string SetupXml(const std::string& sName, const std::string& sType = "Item",
                     const std::string& sSpace = "STRUCTURE") {
    return "<SETUP><PROJECT>Demo</PROJECT><WORKBOOK_NAME>" + sName +
           "</WORKBOOK_NAME><EXPORTED_BY>me</EXPORTED_BY><EXPORT_DATE/><OBJECT_TYPE>" + sType +
           "</OBJECT_TYPE><SPACE_TYPE>" + sSpace + "</SPACE_TYPE></SETUP>";
}

// A per-user data folder with the export folder, so the log has a place to go.
class DriverTest : public ::testing::Test {
protected:
    void SetUp() override {
        modEnvironment::ResetAppDataRootCache();
        fs::create_directories(sExportDir);
        sSettings = testutil::ExamplesDir() + "/settings.xml";
        sData = tmp.File("data/export.xml");
        fs::create_directories(tmp.Path() / "data");
        testutil::WriteFile(sData, kSmallItems);
    }
    void TearDown() override { modEnvironment::ResetAppDataRootCache(); }

    std::vector<std::string> Log() const {
        return testutil::ReadLogLines(sExportDir + "ExportExcel.log");
    }
    bool Run(const std::string& sD, const std::string& sS, const std::string& sSetup,
             const std::string& sExt = ".xlsx") {
        clsExportExcel o;
        return o.ParseMain(sD, sS, sSetup, sExt);
    }
    // The example settings with one section cut out.
    std::string SettingsWithout(const std::string& sSection) {
        std::string s = testutil::ReadFile(sSettings);
        size_t a = s.find("<" + sSection + ">");
        size_t b = s.find("</" + sSection + ">") + sSection.size() + 3;
        std::string sPath = tmp.File("cut-settings.xml");
        testutil::WriteFile(sPath, s.substr(0, a) + s.substr(b));
        return sPath;
    }

    TempDir tmp;
    testutil::ScopedEnv env{"APPDATA", tmp.Str()};
    std::string sExportDir = tmp.Str() + "/Korvane/Addin Modules/Zenfold/Export/";
    std::string sSettings, sData;
};

}  // namespace

TEST_F(DriverTest, EmptySettingsPathLogsTheFixedText) {
    EXPECT_FALSE(Run(sData, "", SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex("INI FILE NAME IS EMPTY " + kDate))) << arr[0];
}

TEST_F(DriverTest, MissingSettingsFileLogsTheFixedTextBeforeAnyMessage) {
    std::string sMissing = tmp.File("nowhere/settings.xml");
    EXPECT_FALSE(Run(sData, sMissing, SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_EQ(arr[0].rfind("INI FILE " + sMissing + " WAS NOT FOUND ", 0), 0u) << arr[0];
    EXPECT_TRUE(std::regex_search(arr[0], std::regex(kDate + "$")));
}

TEST_F(DriverTest, SettingsFolderInsteadOfFileIsNotFound) {
    EXPECT_FALSE(Run(sData, tmp.Str(), SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_EQ(arr[0].rfind("INI FILE " + tmp.Str() + " WAS NOT FOUND", 0), 0u) << arr[0];
}

TEST_F(DriverTest, SettingsParseErrorIsOneBareLine) {
    std::string sBad = tmp.File("bad-settings.xml");
    testutil::WriteFile(sBad, "<EXPORT_SETTINGS>\n<MESSAGES>\n</EXPORT_SETTINGS>\n");
    EXPECT_FALSE(Run(sData, sBad, SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        arr[0], std::regex("^" + kDate +
                           " IniDoc Load Parse error: Start-end tags mismatch On Line: 3 At "
                           "Position: 3$")))
        << arr[0];
}

TEST_F(DriverTest, EmptyDataPathLogsMsgFileNameEmpty) {
    EXPECT_FALSE(Run("", sSettings, SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex("The data file name is empty\\. " + kDate)))
        << arr[0];
}

TEST_F(DriverTest, MissingDataFileLogsFileAndWasNotFound) {
    std::string sMissing = tmp.File("data/missing.xml");
    EXPECT_FALSE(Run(sMissing, sSettings, SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_EQ(arr[0].rfind("The data file " + sMissing + " was not found. ", 0), 0u) << arr[0];
}

TEST_F(DriverTest, UnusableSetupStringLogsMsgSetupStringError) {
    EXPECT_FALSE(Run(sData, sSettings, SetupXml("x", "ITEM")));
    EXPECT_FALSE(Run(sData, sSettings, "<SETUP><broken></SETUP>"));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 2u);
    for (const auto& s : arr)
        EXPECT_TRUE(std::regex_match(s, std::regex("The setup string is not valid\\. " + kDate)))
            << s;
    // No workbook: the data folder still holds the data file alone.
    EXPECT_EQ(std::distance(fs::directory_iterator(tmp.Path() / "data"), fs::directory_iterator()),
              1);
}

TEST_F(DriverTest, IncompleteSettingsLogMsgIncorIniFileData) {
    EXPECT_FALSE(Run(sData, SettingsWithout("ITEM_ATTR_LBL"), SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        arr[0], std::regex("The settings file holds incorrect or incomplete data\\. " + kDate)))
        << arr[0];
}

TEST_F(DriverTest, MalformedDataFileLogsTheParseErrorAndMakesNoWorkbook) {
    testutil::WriteFile(sData, "<Root_Element>\n  <Item id=\"1\">\n</Root_Element>");
    EXPECT_FALSE(Run(sData, sSettings, SetupXml("")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_EQ(arr[0].rfind("The data file could not be parsed: Start-end tags mismatch on line 3 "
                           "at position ",
                           0),
              0u)
        << arr[0];
    EXPECT_FALSE(fs::exists(tmp.File("data/export.xlsx")));
}

TEST_F(DriverTest, AnEmptyRootReturnsFalseWithoutAWorkbookAndWithoutALine) {
    testutil::WriteFile(sData, "<Root_Element>\n</Root_Element>\n");
    EXPECT_FALSE(Run(sData, sSettings, SetupXml("")));
    // Nothing to read is no fault of the file, and the driver adds nothing of its own.
    EXPECT_FALSE(fs::exists(sExportDir + "ExportExcel.log"));
    EXPECT_EQ(std::distance(fs::directory_iterator(tmp.Path() / "data"), fs::directory_iterator()),
              1);
}

TEST_F(DriverTest, AFirstChildOfTheWrongKindReturnsFalseWithTheParsersLineOnly) {
    testutil::WriteFile(sData, "<Root_Element><Document id=\"D-1\"/></Root_Element>");
    EXPECT_FALSE(Run(sData, sSettings, SetupXml("")));
    EXPECT_EQ(
        testutil::ReadLogMasked(sExportDir + "ExportExcel.log"),
        "Item is not the first child node of the root. Error in the XML structure: {now}\r\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(tmp.Path() / "data"), fs::directory_iterator()),
              1);
}

TEST_F(DriverTest, LoadErrorsOfSettingsAndDataCountCharacters) {
    // "é" is two bytes and one character: the "C" of "</C>" is the 11th character either way.
    const std::string sLine = "  <B>\xC3\xA9\xC3\xA9\xC3\xA9</C>\n";
    std::string sBad = tmp.File("bad-settings.xml");
    testutil::WriteFile(sBad, "<EXPORT_SETTINGS>\n" + sLine + "</EXPORT_SETTINGS>\n");
    EXPECT_FALSE(Run(sData, sBad, SetupXml("x")));
    EXPECT_EQ(testutil::ReadLogMasked(sExportDir + "ExportExcel.log"),
              "{now} IniDoc Load Parse error: Start-end tags mismatch On Line: 2 At Position: "
              "11\r\n");
    fs::remove(sExportDir + "ExportExcel.log");
    testutil::WriteFile(sData, "<Root_Element>\n" + sLine + "</Root_Element>\n");
    EXPECT_FALSE(Run(sData, sSettings, SetupXml("x")));
    EXPECT_EQ(testutil::ReadLogMasked(sExportDir + "ExportExcel.log"),
              "The data file could not be parsed: Start-end tags mismatch on line 2 at position 11 "
              "{now}\r\n");
}

TEST_F(DriverTest, FewerThanTwoCaptionsFailBuildExcelWithARunTimeError) {
    std::string s = testutil::ReadFile(sSettings);
    size_t a = s.find("<EXL_CAPTION_LBL>");
    size_t b = s.find("</EXL_CAPTION_LBL>") + std::string("</EXL_CAPTION_LBL>").size();
    std::string sOne = tmp.File("one-caption.xml");
    testutil::WriteFile(sOne, s.substr(0, a) +
                                  "<EXL_CAPTION_LBL><PROJECT ORDER=\"1\">Project</PROJECT>"
                                  "</EXL_CAPTION_LBL>" +
                                  s.substr(b));
    EXPECT_FALSE(Run(sData, sOne, SetupXml("x")));
    auto arr = Log();
    ASSERT_EQ(arr.size(), 1u);
    EXPECT_TRUE(
        std::regex_match(arr[0], std::regex("Run-time error: Subscript out of range 9 " + kDate +
                                            R"( in orvExportExcel:clsExportExcel\[BuildExcel\])")))
        << arr[0];
    EXPECT_EQ(std::distance(fs::directory_iterator(tmp.Path() / "data"), fs::directory_iterator()),
              1);
}

TEST_F(DriverTest, WorkbookIsNamedAfterTheCaptionValueInTheDataFolder) {
    clsExportExcel o;
    ASSERT_TRUE(o.ParseMain(sData, sSettings, SetupXml("Pump BOM"), ".xlsx"));
    EXPECT_EQ(o.LastWorkbookPath(), tmp.File("data/Pump BOM.xlsx"));
    EXPECT_TRUE(fs::is_regular_file(tmp.File("data/Pump BOM.xlsx")));
    EXPECT_TRUE(Log().empty());
}

TEST_F(DriverTest, EmptyExtensionGivesXls) {
    ASSERT_TRUE(Run(sData, sSettings, SetupXml(""), ""));
    EXPECT_TRUE(fs::is_regular_file(tmp.File("data/export.xls")));
    // An Excel 97-2003 workbook: an OLE2 compound file.
    EXPECT_EQ(testutil::ReadFile(tmp.File("data/export.xls")).substr(0, 8),
              std::string("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8));
}

TEST_F(DriverTest, ExtensionWithoutDotIsUsedAsGiven) {
    ASSERT_TRUE(Run(sData, sSettings, SetupXml(""), "xlsx"));
    EXPECT_TRUE(fs::is_regular_file(tmp.File("data/exportxlsx")));
}

TEST_F(DriverTest, ExistingWorkbookOfTheSamePathIsReplaced) {
    std::string sOut = tmp.File("data/export.xlsx");
    testutil::WriteFile(sOut, "an old file that is not a workbook");
    ASSERT_TRUE(Run(sData, sSettings, SetupXml("")));
    EXPECT_EQ(testutil::ReadFile(sOut).substr(0, 2), "PK");
}

TEST_F(DriverTest, CEntryReturnsMinusOneForTrueAndZeroForFalse) {
    std::string sSetup = SetupXml("");
    EXPECT_EQ(orvExportExcel_ParseMain(sData.c_str(), sSettings.c_str(), sSetup.c_str(), ".xlsx"),
              -1);
    EXPECT_EQ(orvExportExcel_ParseMain(sData.c_str(), "", sSetup.c_str(), ".xlsx"), 0);
    EXPECT_EQ(orvExportExcel_ParseMain(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(ViewList, WordsCommasAndNone) {
    clsViews o;
    std::string sError;
    ASSERT_TRUE(ParseViewList("level,flat,where-used,outline", o, sError));
    EXPECT_EQ(o, (clsViews{true, true, true, true}));
    ASSERT_TRUE(ParseViewList(" flat , where-used ", o, sError));
    EXPECT_EQ(o, (clsViews{false, true, true, false}));
    ASSERT_TRUE(ParseViewList("outline,outline", o, sError));
    EXPECT_EQ(o, (clsViews{false, false, false, true}));
    o = clsViews{true, true, true, true};
    ASSERT_TRUE(ParseViewList("none", o, sError));
    EXPECT_EQ(o, clsViews{});
    EXPECT_EQ(sError, "");
}

TEST(ViewList, AnUnknownWordAnEmptyEntryOrNoneBesideAViewIsRefused) {
    const clsViews oBefore{true, false, true, false};
    struct Case {
        const char* sList;
        const char* sError;
    };
    const Case arr[] = {
        {"flat,tree",
         "unknown view 'tree' (the views are level, flat, where-used and outline, or none)"},
        {"Flat",
         "unknown view 'Flat' (the views are level, flat, where-used and outline, or none)"},
        {"",
         "an empty entry in the list of views '' (the views are level, flat, where-used and "
         "outline, or none)"},
        {"level,,flat",
         "an empty entry in the list of views 'level,,flat' (the views are level, "
         "flat, where-used and outline, or none)"},
        {"none,level", "'none' stands alone in the list of views 'none,level'"},
    };
    for (const Case& c : arr) {
        clsViews o = oBefore;
        std::string sError;
        EXPECT_FALSE(ParseViewList(c.sList, o, sError)) << c.sList;
        EXPECT_EQ(sError, c.sError);
        EXPECT_EQ(o, oBefore) << c.sList;  // left as it was
    }
}

// The C entry with views: the sheets of the Excel 97-2003 file carry their names as plain
// bytes, so the file shows which views it has.
TEST_F(DriverTest, CEntryWithViewsWritesThemAndRefusesAListItCannotRead) {
    const std::string sSetup = SetupXml("Viewed");
    const std::string sOut = tmp.File("data/Viewed.xls");
    EXPECT_EQ(orvExportExcel_ParseMainWithViews(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                                ".xls", "flat,where-used"),
              -1);
    std::string sFile = testutil::ReadFile(sOut);
    EXPECT_NE(sFile.find("Flattened List"), std::string::npos);
    EXPECT_NE(sFile.find("Where Used"), std::string::npos);
    // NULL: the settings decide, and the example settings switch every view off.
    EXPECT_EQ(orvExportExcel_ParseMainWithViews(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                                ".xls", nullptr),
              -1);
    sFile = testutil::ReadFile(sOut);
    EXPECT_EQ(sFile.find("Flattened List"), std::string::npos);
    EXPECT_EQ(sFile.find("Where Used"), std::string::npos);
    // A list that cannot be read starts nothing: no workbook, no log line.
    fs::remove(sOut);
    EXPECT_EQ(orvExportExcel_ParseMainWithViews(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                                ".xls", "flat,tree"),
              0);
    EXPECT_FALSE(fs::exists(sOut));
    EXPECT_TRUE(Log().empty());
}

TEST_F(DriverTest, SetViewsReplacesTheSettingsUntilItIsCleared) {
    const std::string sSetup = SetupXml("Viewed");
    const std::string sOut = tmp.File("data/Viewed.xls");
    clsExportExcel o;
    o.SetViews(clsViews{false, false, true, false});
    ASSERT_TRUE(o.ParseMain(sData, sSettings, sSetup, ".xls"));
    std::string sFile = testutil::ReadFile(sOut);
    EXPECT_EQ(sFile.find("Flattened List"), std::string::npos);
    EXPECT_NE(sFile.find("Where Used"), std::string::npos);
    // The settings switch a view on; the host's empty choice switches it off again.
    std::string sSettingsOn = testutil::ReadFile(sSettings);
    const std::string sOff = "<FLAT_LIST>0</FLAT_LIST>";
    sSettingsOn.replace(sSettingsOn.find(sOff), sOff.size(), "<FLAT_LIST>1</FLAT_LIST>");
    const std::string sOn = tmp.File("settings-on.xml");
    testutil::WriteFile(sOn, sSettingsOn);
    o.SetViews(clsViews{});
    ASSERT_TRUE(o.ParseMain(sData, sOn, sSetup, ".xls"));
    sFile = testutil::ReadFile(sOut);
    EXPECT_EQ(sFile.find("Flattened List"), std::string::npos);
    o.SetViews(std::nullopt);
    ASSERT_TRUE(o.ParseMain(sData, sOn, sSetup, ".xls"));
    sFile = testutil::ReadFile(sOut);
    EXPECT_NE(sFile.find("Flattened List"), std::string::npos);
    EXPECT_EQ(sFile.find("Where Used"), std::string::npos);
}

TEST_F(DriverTest, OutputFolderTakesTheWorkbookUnderTheSameName) {
    fs::create_directories(tmp.Path() / "out");
    clsExportExcel o;
    o.SetOutputDir(tmp.File("out"));
    ASSERT_TRUE(o.ParseMain(sData, sSettings, SetupXml("Pump BOM"), ".xlsx"));
    EXPECT_EQ(o.LastWorkbookPath(), tmp.File("out/Pump BOM.xlsx"));
    EXPECT_EQ(testutil::ReadFile(tmp.File("out/Pump BOM.xlsx")).substr(0, 2), "PK");
    EXPECT_FALSE(fs::exists(tmp.File("data/Pump BOM.xlsx")));
    // Without a caption value: the data file's name with its extension replaced.
    ASSERT_TRUE(o.ParseMain(sData, sSettings, SetupXml(""), ".xlsx"));
    EXPECT_EQ(o.LastWorkbookPath(), tmp.File("out/export.xlsx"));
    // An empty folder brings back the data file's folder.
    o.SetOutputDir("");
    ASSERT_TRUE(o.ParseMain(sData, sSettings, SetupXml(""), ".xlsx"));
    EXPECT_EQ(o.LastWorkbookPath(), tmp.File("data/export.xlsx"));
    EXPECT_TRUE(Log().empty());
}

TEST_F(DriverTest, MissingOutputFolderFailsWithoutAWorkbook) {
    clsExportExcel o;
    o.SetOutputDir(tmp.File("no-such-folder"));
    EXPECT_FALSE(o.ParseMain(sData, sSettings, SetupXml(""), ".xlsx"));
    EXPECT_EQ(o.LastWorkbookPath(), "");
    EXPECT_FALSE(fs::exists(tmp.File("no-such-folder")));
    EXPECT_FALSE(fs::exists(tmp.File("data/export.xlsx")));
    EXPECT_FALSE(Log().empty());
}

TEST_F(DriverTest, CEntryWithOutputFolder) {
    fs::create_directories(tmp.Path() / "out");
    const std::string sSetup = SetupXml("");
    const std::string sOut = tmp.File("out");
    EXPECT_EQ(orvExportExcel_ParseMainInto(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                           ".xlsx", sOut.c_str()),
              -1);
    EXPECT_TRUE(fs::is_regular_file(tmp.File("out/export.xlsx")));
    EXPECT_FALSE(fs::exists(tmp.File("data/export.xlsx")));
    EXPECT_EQ(orvExportExcel_ParseMainInto(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                           ".xlsx", nullptr),
              -1);
    EXPECT_TRUE(fs::is_regular_file(tmp.File("data/export.xlsx")));
}

// Both options in one C call: the views go into the workbook, the workbook into the folder.
TEST_F(DriverTest, CEntryWithViewsAndOutputFolder) {
    fs::create_directories(tmp.Path() / "out");
    const std::string sSetup = SetupXml("Viewed");
    const std::string sOut = tmp.File("out");
    EXPECT_EQ(orvExportExcel_ParseMainWithOptions(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                                  ".xls", "where-used", sOut.c_str()),
              -1);
    EXPECT_FALSE(fs::exists(tmp.File("data/Viewed.xls")));
    std::string sFile = testutil::ReadFile(tmp.File("out/Viewed.xls"));
    EXPECT_EQ(sFile.find("Flattened List"), std::string::npos);
    EXPECT_NE(sFile.find("Where Used"), std::string::npos);
    // NULL for both: the settings' views (all off in the example) and the data file's folder.
    EXPECT_EQ(orvExportExcel_ParseMainWithOptions(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                                  ".xls", nullptr, nullptr),
              -1);
    sFile = testutil::ReadFile(tmp.File("data/Viewed.xls"));
    EXPECT_EQ(sFile.find("Where Used"), std::string::npos);
    // A list that cannot be read writes nothing into the folder either.
    fs::remove(tmp.File("out/Viewed.xls"));
    EXPECT_EQ(orvExportExcel_ParseMainWithOptions(sData.c_str(), sSettings.c_str(), sSetup.c_str(),
                                                  ".xls", "none,flat", sOut.c_str()),
              0);
    EXPECT_FALSE(fs::exists(tmp.File("out/Viewed.xls")));
    EXPECT_TRUE(Log().empty());
}

TEST_F(DriverTest, LogObserverSeesTheLinesOfTheCall) {
    clsExportExcel o;
    std::vector<std::string> arrSeen;
    o.SetLogObserver([&](const std::string& s) { arrSeen.push_back(s); });
    EXPECT_FALSE(o.ParseMain("", sSettings, SetupXml("x"), ""));
    EXPECT_EQ(arrSeen, Log());
    EXPECT_EQ(arrSeen.size(), 1u);
}

TEST_F(DriverTest, MissingLogFolderLosesLinesButTheResultStands) {
    fs::remove_all(tmp.Path() / "Korvane" / "Addin Modules");
    EXPECT_FALSE(Run("", sSettings, SetupXml("x")));
    EXPECT_FALSE(fs::exists(sExportDir));
}

TEST(OutputPath, CaptionValueNamesTheFileInTheDataFolder) {
    clsExportContext ctx;
    ctx.Labels.CaptionTable.ReDim(1, 1);
    ctx.Labels.CaptionTable.Item(1, 1) = "Report";
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b/data.xml", ".xls"), "/a/b/Report.xls");
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "data.xml", ".xlsx"), "Report.xlsx");
    ctx.Labels.CaptionTable.Item(1, 1) = "../up/evil";
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b/data.xml", ".xls"), "/a/b/.._up_evil.xls");
}

TEST(OutputPath, WithoutCaptionValueTheDataExtensionIsReplaced) {
    clsExportContext ctx;
    ctx.Labels.CaptionTable.ReDim(1, 1);
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b/data.xml", ".xls"), "/a/b/data.xls");
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b/data", ".xls"), "/a/b/data.xls");
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b.d/data", ".xls"), "/a/b.d/data.xls");
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b/data.v2.xml", "x"), "/a/b/data.v2x");
}

TEST(OutputPath, OutputFolderKeepsTheNameAndReplacesTheFolder) {
    clsExportContext ctx;
    ctx.Labels.CaptionTable.ReDim(1, 1);
    ctx.Options.OutputDir = "/out";
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b/data.xml", ".xls"), "/out/data.xls");
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "data.xml", "x"), "/out/datax");
    ctx.Options.OutputDir = "rel/";
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b.d/data", ".xls"), "rel/data.xls");
    ctx.Labels.CaptionTable.Item(1, 1) = "../up/evil";
    EXPECT_EQ(clsExportExcel::OutputPath(ctx, "/a/b/data.xml", ".xls"), "rel/.._up_evil.xls");
}

TEST(OutputPath, FewerThanTwoCaptionEntriesIsSubscriptOutOfRange) {
    clsExportContext ctx;
    ctx.Labels.CaptionTable.ReDim(1, 0);
    try {
        clsExportExcel::OutputPath(ctx, "/a/data.xml", ".xls");
        FAIL() << "no error";
    } catch (const clsRunError& e) {
        EXPECT_EQ(e.Number, 9);
    }
}

TEST(ClearExportModel, ErasesTheArrayOfTheKindAndResetsTheCount) {
    clsExportExcel o;
    clsExportContext& ctx = o.Context();
    ctx.Model.ExportKind = 2;
    ctx.Model.XDocs.resize(3);
    ctx.Model.XItems.resize(2);
    ctx.Model.ObjCount = 2;
    o.ClearExportModel();
    EXPECT_TRUE(ctx.Model.XDocs.empty());
    EXPECT_EQ(ctx.Model.XItems.size(), 2u);
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    ctx.Model.ExportKind = 7;
    ctx.Model.ObjCount = 4;
    o.ClearExportModel();
    EXPECT_EQ(ctx.Model.ObjCount, -1);
    EXPECT_EQ(ctx.Model.XItems.size(), 2u);
}

TEST(SetObjCount, TakesTheUpperBound) {
    clsExportExcel o;
    std::vector<int> v(5);
    EXPECT_TRUE(o.SetObjCount(v));
    EXPECT_EQ(o.Context().Model.ObjCount, 4);
}
