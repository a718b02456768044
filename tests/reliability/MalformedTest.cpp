// Malformed documents in each of the three places XML comes from: the settings file, the setup
// string and the data file. Each ends with the log line the export writes for that place, and
// false; nothing is written beside the data file.
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "ReliabilityFixture.h"

using namespace reliability;

namespace {

struct BadXml {
    const char* sName;
    std::string sText;
};

std::vector<BadXml> BadDocuments() {
    const std::string sExample =
        testutil::ReadFile(testutil::ExamplesDir() + "/item-structure.xml");
    std::string sGarbage;
    uint32_t x = 12345;
    for (int i = 0; i < 4096; ++i) {
        x = x * 1103515245u + 12345u;
        sGarbage.push_back(static_cast<char>(x >> 16));
    }
    return {
        {"truncated", sExample.substr(0, sExample.size() / 2)},
        {"truncated_in_a_tag", "<Root_Element><Item id=\"A"},
        {"wrong_nesting", "<Root_Element><Item id=\"A\"><Item_PS></Item></Item_PS></Root_Element>"},
        {"control_character", "<Root_Element><Item id=\"A\x01\"/></Root_Element>"},
        {"nul_byte", std::string("<Root_Element><Item id=\"A\"/>\0</Root_Element>", 41)},
        {"invalid_name_character", "<Root_Element><It\x02m/></Root_Element>"},
        {"binary_garbage", sGarbage},
        {"empty", ""},
        {"only_blanks", "  \n\t  "},
        {"two_roots", "<Root_Element/><Root_Element/>"},
        {"unclosed_comment", "<Root_Element><!-- no end"},
        {"bad_attribute", "<Root_Element a=b/>"},
    };
}

bool HasNoWorkbook(const fs::path& dir) {
    for (const auto& s : ReliabilityTest::FilesIn(dir))
        if (s != "export.xml" && s != "settings.xml") return false;
    return true;
}

}  // namespace

TEST_F(ReliabilityTest, MalformedSettingsFilesLogTheParseErrorAndFail) {
    for (const BadXml& b : BadDocuments()) {
        SCOPED_TRACE(b.sName);
        fs::remove(sExportDir + "ExportExcel.log");
        const std::string sBad = (dataDir / "settings.xml").string();
        testutil::WriteFile(sBad, b.sText);
        testutil::WriteFile(sData,
                            testutil::ReadFile(testutil::ExamplesDir() + "/item-structure.xml"));
        EXPECT_FALSE(Run(sData, sBad, SetupXml("wb")));
        auto arr = Log();
        ASSERT_EQ(arr.size(), 1u) << Joined(arr);
        EXPECT_TRUE(std::regex_match(
            arr[0], std::regex(std::string(testutil::kDateTimeRegex) +
                               " IniDoc Load Parse error: .+ On Line: \\d+ At Position: \\d+")))
            << arr[0];
        EXPECT_TRUE(HasNoWorkbook(dataDir)) << Joined(FilesIn(dataDir));
    }
}

TEST_F(ReliabilityTest, MalformedDataFilesLogTheParseErrorAndFail) {
    for (const BadXml& b : BadDocuments()) {
        SCOPED_TRACE(b.sName);
        fs::remove(sExportDir + "ExportExcel.log");
        EXPECT_FALSE(RunData(b.sText, SetupXml("wb")));
        auto arr = Log();
        ASSERT_EQ(arr.size(), 1u) << Joined(arr);
        EXPECT_TRUE(std::regex_match(
            arr[0], std::regex("The data file could not be parsed: .+ on line \\d+ at position "
                               "\\d+ " +
                               std::string(testutil::kDateTimeRegex))))
            << arr[0];
        EXPECT_TRUE(HasNoWorkbook(dataDir)) << Joined(FilesIn(dataDir));
    }
}

TEST_F(ReliabilityTest, MalformedSetupStringsLogTheSetupErrorAndFail) {
    std::vector<BadXml> arr = BadDocuments();
    arr.push_back({"not_xml_at_all", "Pump BOM"});
    arr.push_back({"setup_without_captions", "<SETUP/>"});
    for (const BadXml& b : arr) {
        SCOPED_TRACE(b.sName);
        fs::remove(sExportDir + "ExportExcel.log");
        testutil::WriteFile(sData,
                            testutil::ReadFile(testutil::ExamplesDir() + "/item-structure.xml"));
        EXPECT_FALSE(Run(sData, sSettings, b.sText));
        EXPECT_TRUE(LogHas("The setup string is not valid. ")) << Joined(Log());
        EXPECT_TRUE(HasNoWorkbook(dataDir)) << Joined(FilesIn(dataDir));
    }
}

TEST_F(ReliabilityTest, AFolderWhereAFileIsExpectedIsNotFound) {
    const fs::path folder = dataDir / "folder.xml";
    fs::create_directories(folder);
    EXPECT_FALSE(Run(sData, folder.string(), SetupXml("wb")));
    EXPECT_TRUE(LogHas("INI FILE " + folder.string() + " WAS NOT FOUND ")) << Joined(Log());

    testutil::WriteFile(sData, "<Root_Element/>");
    EXPECT_FALSE(Run(folder.string(), sSettings, SetupXml("wb")));
    EXPECT_TRUE(LogHas("The data file " + folder.string() + " was not found. ")) << Joined(Log());
}

TEST_F(ReliabilityTest, UnreadableFilesLogThatTheyCouldNotBeOpened) {
    // Root reads any file whatever its mode, so the export runs as an unprivileged user here.
    fs::permissions(tmp.Path(), fs::perms::all);
    for (const auto& e : fs::recursive_directory_iterator(tmp.Path()))
        fs::permissions(e.path(), fs::perms::all);
    const std::string sLocked = (dataDir / "locked.xml").string();
    testutil::WriteFile(sLocked, testutil::ReadFile(sSettings));
    fs::permissions(sLocked, fs::perms::none);
    testutil::WriteFile(sData, testutil::ReadFile(testutil::ExamplesDir() + "/item-structure.xml"));
    fs::permissions(sData, fs::perms::all);
    const std::string sReadableSettings = (dataDir / "settings.xml").string();
    testutil::WriteFile(sReadableSettings, testutil::ReadFile(sSettings));
    fs::permissions(sReadableSettings, fs::perms::all);

    bool bSkipped = false;
    bool b = RunAsNobody([&] { return Run(sData, sLocked, SetupXml("wb")); }, bSkipped);
    if (bSkipped) GTEST_SKIP() << "cannot run as an unprivileged user here";
    EXPECT_FALSE(b);
    EXPECT_TRUE(
        LogHas(" IniDoc Load Parse error: File could not be opened On Line: 0 At "
               "Position: 0"))
        << Joined(Log());

    b = RunAsNobody([&] { return Run(sLocked, sReadableSettings, SetupXml("wb")); }, bSkipped);
    EXPECT_FALSE(b);
    EXPECT_TRUE(
        LogHas("The data file could not be parsed: File could not be opened on line 0 "
               "at position 0 "))
        << Joined(Log());
}

TEST_F(ReliabilityTest, ASettingsFileThatIsNotOneOfOursFailsCleanly) {
    // Well-formed, but not a settings document: no messages, no captions, no names.
    const std::string sOther = (dataDir / "settings.xml").string();
    testutil::WriteFile(sOther, "<html><body>hello</body></html>");
    testutil::WriteFile(sData, testutil::ReadFile(testutil::ExamplesDir() + "/item-structure.xml"));
    EXPECT_FALSE(Run(sData, sOther, SetupXml("wb")));
    EXPECT_TRUE(LogHas("Resources was not initialized ")) << Joined(Log());
    EXPECT_TRUE(HasNoWorkbook(dataDir)) << Joined(FilesIn(dataDir));
}
