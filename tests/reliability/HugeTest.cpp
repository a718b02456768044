// Huge and deep inputs: deep nesting, an element with a million attributes, a 10 MB value, more
// rows or hyperlinks than a worksheet holds (the export continues on new sheets, with formulas for
// the links past the limit), a text longer than a cell holds. Each is generated
// here; each call ends with its log line and a Boolean.
#include <chrono>

#include "ReliabilityFixture.h"

using namespace reliability;

namespace {

std::string Deep(const std::string& sOpen, const std::string& sClose, long n) {
    std::string s;
    s.reserve((sOpen.size() + sClose.size()) * static_cast<size_t>(n));
    for (long i = 0; i < n; ++i)
        s += sOpen;
    for (long i = 0; i < n; ++i)
        s += sClose;
    return s;
}

constexpr long kDeep = 100000;

// The log holds exactly nSheets lines, one for each new sheet, "Sheet1 (2)" onwards.
void ExpectContinuationLines(const std::vector<std::string>& arr, size_t nSheets) {
    ASSERT_EQ(arr.size(), nSheets) << Joined(arr);
    for (size_t i = 0; i < arr.size(); ++i) {
        const std::string sLine =
            "The workbook continues on sheet 'Sheet1 (" + std::to_string(i + 2) + ")'. ";
        EXPECT_EQ(arr[i].rfind(sLine, 0), 0u) << arr[i];
    }
}

}  // namespace

TEST_F(ReliabilityTest, ADocument100000LevelsDeepIsWalkedWithoutRecursion) {
    // Unknown elements nested below the root, beside the one object.
    EXPECT_TRUE(
        RunData("<Root_Element>" + ItemXml("A-1") + Deep("<x>", "</x>", kDeep) + "</Root_Element>",
                SetupXml("wb", "Item", "COLLECTION")))
        << Joined(Log());
    EXPECT_TRUE(fs::exists(dataDir / "wb.xlsx"));
}

TEST_F(ReliabilityTest, AStructure100000LevelsDeepEndsNormally) {
    if (kSanitizedBuild) GTEST_SKIP() << "runs in the normal build only (too slow with sanitizers)";
    std::string s = "<Root_Element>";
    for (long i = 0; i < kDeep; ++i)
        s += "<Item id=\"I" + std::to_string(i) + "\" revision=\"A\" description=\"d\"><Item_PS>";
    s += "<Item id=\"leaf\" revision=\"A\" description=\"d\"/>";
    for (long i = 0; i < kDeep; ++i)
        s += "</Item_PS></Item>";
    s += "</Root_Element>";
    // The property panel passes the sheet's last row and continues on new sheets, each with
    // at most 65,530 blocks (their anchor names); the main panel's links past the sheet's
    // hyperlink limit are HYPERLINK formulas.
    EXPECT_TRUE(RunData(s, SetupXml("wb")));
    ExpectContinuationLines(Log(), 2);
    EXPECT_TRUE(fs::exists(dataDir / "wb.xlsx"));
    EXPECT_FALSE(HasTempFile(dataDir));
}

TEST_F(ReliabilityTest, DeepSettingsAndSetupStringsEndNormally) {
    std::string sSet = testutil::ReadFile(sSettings);
    size_t e = sSet.rfind("</");
    sSet.insert(e, Deep("<deep>", "</deep>", kDeep));
    const std::string sSetPath = (dataDir / "settings.xml").string();
    testutil::WriteFile(sSetPath, sSet);
    testutil::WriteFile(sData, "<Root_Element>" + ItemXml("A-1") + "</Root_Element>");
    std::string sSetup = SetupXml("wb");
    sSetup.insert(sSetup.size() - 8, Deep("<deep>", "</deep>", kDeep));
    const bool b = Run(sData, sSetPath, sSetup);
    EXPECT_TRUE(b) << Joined(Log());
}

TEST_F(ReliabilityTest, AnElementWithAMillionAttributesIsRead) {
    std::string sItem = "<Item id=\"A-1\" revision=\"A\" description=\"d\"";
    for (long i = 0; i < 1000000; ++i)
        sItem += " a" + std::to_string(i) + "=\"v\"";
    sItem += " status=\"last\"/>";
    EXPECT_TRUE(RunData("<Root_Element>" + sItem + "</Root_Element>", SetupXml("wb")))
        << Joined(Log());
    const std::string s = ReadBack((dataDir / "wb.xlsx").string());
    EXPECT_NE(s.find("\"last\""), std::string::npos) << s.substr(0, 2000);
}

TEST_F(ReliabilityTest, ATenMegabyteValueIsRefusedByTheCellWith1004) {
    const std::string sBig(10 * 1024 * 1024, 'x');
    // The main-panel cell and the detail block's cell refuse the text; each procedure traps its
    // own error, the rest is written and the export succeeds.
    EXPECT_TRUE(
        RunData("<Root_Element>" + ItemXml("A-1", sBig) + "</Root_Element>", SetupXml("wb")));
    const auto arr = Log();
    ASSERT_EQ(arr.size(), 2u) << Joined(arr);
    const std::string sLine = "Run-time error: Application-defined or object-defined error 1004 ";
    EXPECT_EQ(arr[0].rfind(sLine, 0), 0u) << arr[0];
    EXPECT_TRUE(arr[0].ends_with(" in orvExportExcel:clsBldExcel[FillMainPanelItem]")) << arr[0];
    EXPECT_EQ(arr[1].rfind(sLine, 0), 0u) << arr[1];
    EXPECT_TRUE(arr[1].ends_with(" in orvExportExcel:clsBldExcel[FillItem]")) << arr[1];
    EXPECT_FALSE(HasTempFile(dataDir));
    const std::string s = ReadBack((dataDir / "wb.xlsx").string());
    EXPECT_EQ(s.rfind("OK\n", 0), 0u) << s.substr(0, 500);
}

TEST_F(ReliabilityTest, ATextOneCharacterTooLongForACellIsRefusedWith1004) {
    EXPECT_TRUE(
        RunData("<Root_Element>" + ItemXml("A-1", std::string(32768, 'y')) + "</Root_Element>",
                SetupXml("wb")));
    const auto arr = Log();
    ASSERT_EQ(arr.size(), 2u) << Joined(arr);
    EXPECT_TRUE(arr[0].ends_with(" in orvExportExcel:clsBldExcel[FillMainPanelItem]")) << arr[0];
    EXPECT_TRUE(arr[1].ends_with(" in orvExportExcel:clsBldExcel[FillItem]")) << arr[1];
    for (const auto& l : arr)
        EXPECT_NE(l.find("Application-defined or object-defined error 1004 "), std::string::npos);

    fs::remove(sExportDir + "ExportExcel.log");
    EXPECT_TRUE(
        RunData("<Root_Element>" + ItemXml("A-1", std::string(32767, 'y')) + "</Root_Element>",
                SetupXml("wb")))
        << Joined(Log());
    EXPECT_TRUE(Log().empty()) << Joined(Log());
}

TEST_F(ReliabilityTest, MoreMainPanelHyperlinksThanASheetHoldsEndWithFormulas) {
    if (kSanitizedBuild) GTEST_SKIP() << "runs in the normal build only (too slow with sanitizers)";
    // The last main-panel link is a HYPERLINK formula. The first sheet has no room for more
    // links, so the blocks go on: 65,530 of them (as many anchor names as a sheet keeps) on a
    // second sheet, the last one on a third.
    EXPECT_TRUE(RunData(ItemCollection(65531), SetupXml("wb", "Item", "COLLECTION")));
    ExpectContinuationLines(Log(), 2);
    EXPECT_TRUE(fs::exists(dataDir / "wb.xlsx"));
    EXPECT_FALSE(HasTempFile(dataDir));
}

TEST_F(ReliabilityTest, AnExportLongerThanASheetContinuesOnNewSheets) {
    if (kSanitizedBuild) GTEST_SKIP() << "runs in the normal build only (too slow with sanitizers)";
    // A wide collection: one main-panel row and a detail block per object; the blocks fill
    // several sheets, each named in one log line.
    EXPECT_TRUE(RunData(ItemCollection(270000), SetupXml("wb", "Item", "COLLECTION")));
    // 270,000 blocks, 65,530 a sheet at most: the second to the sixth sheet.
    ExpectContinuationLines(Log(), 5);
    EXPECT_TRUE(fs::exists(dataDir / "wb.xlsx"));
    EXPECT_FALSE(HasTempFile(dataDir));
}
