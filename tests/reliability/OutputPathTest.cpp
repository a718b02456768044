// Where the workbook goes: only into the data file's folder, whatever the caption value and the
// extension say; never in the place of the data file, the settings file or the log; and what
// happens when that place cannot take it.
#include <sys/stat.h>

#include <regex>

#include "ReliabilityFixture.h"

using namespace reliability;

namespace {

const std::string kItem =
    "<Root_Element><Item id=\"A-1\" revision=\"A\" description=\"d\"/></Root_Element>";

}  // namespace

TEST_F(ReliabilityTest, TheCaptionValueNamesAFileInTheDataFolderOnly) {
    struct Case {
        std::string sCaption, sExt, sFile;
    };
    const std::vector<Case> arr = {
        {"..", ".xlsx", "...xlsx"},
        {"../../escaped", ".xlsx", ".._.._escaped.xlsx"},
        {"/tmp/escaped", ".xlsx", "_tmp_escaped.xlsx"},
        {"C:\\Windows\\escaped", ".xlsx", "C:_Windows_escaped.xlsx"},
        {"..\\..\\escaped", "", ".._.._escaped.xls"},
        {"wb", "/../../escaped", "wb_.._.._escaped"},
    };
    for (const Case& c : arr) {
        SCOPED_TRACE(c.sCaption + " " + c.sExt);
        fs::remove_all(dataDir);
        fs::create_directories(dataDir);
        testutil::WriteFile(sData, kItem);
        EXPECT_TRUE(Run(sData, sSettings, SetupXml(c.sCaption), c.sExt)) << Joined(Log());
        std::vector<std::string> arrWant{c.sFile, "export.xml"};
        std::sort(arrWant.begin(), arrWant.end());
        EXPECT_EQ(FilesIn(dataDir), arrWant);
        EXPECT_EQ(FilesIn(tmp.Path()), (std::vector<std::string>{"Korvane", "data"}));
    }
    EXPECT_FALSE(fs::exists("/tmp/escaped.xlsx"));
}

TEST_F(ReliabilityTest, WithoutACaptionTheExtensionCannotLeadOutOfTheFolder) {
    testutil::WriteFile(sData, kItem);
    EXPECT_TRUE(Run(sData, sSettings, SetupXml(""), "/../../x.xlsx")) << Joined(Log());
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml", "export_.._.._x.xlsx"}));
}

TEST_F(ReliabilityTest, ACaptionNamingTheFolderItselfFailsWithoutAFile) {
    testutil::WriteFile(sData, kItem);
    EXPECT_FALSE(Run(sData, sSettings, SetupXml("."), "."));  // "..": the parent folder
    const auto arr = Log();
    ASSERT_EQ(arr.size(), 1u) << Joined(arr);
    EXPECT_EQ(arr[0].rfind("Run-time error: Cannot write '" + (dataDir / "..").string() + "': ", 0),
              0u)
        << arr[0];
    EXPECT_NE(arr[0].find(" 1004 "), std::string::npos) << arr[0];
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
    EXPECT_EQ(FilesIn(tmp.Path()), (std::vector<std::string>{"Korvane", "data"}));
}

TEST_F(ReliabilityTest, AnOutputPathThatIsAFolderFailsAndLeavesNoTemporaryFile) {
    testutil::WriteFile(sData, kItem);
    fs::create_directories(dataDir / "wb.xlsx" / "inside");
    EXPECT_FALSE(Run(sData, sSettings, SetupXml("wb")));
    EXPECT_TRUE(LogHas("Run-time error: Cannot write '" + (dataDir / "wb.xlsx").string() +
                       "': Is a directory 1004 "))
        << Joined(Log());
    EXPECT_TRUE(fs::is_directory(dataDir / "wb.xlsx" / "inside"));
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml", "wb.xlsx"}));
}

TEST_F(ReliabilityTest, AnEarlierReadOnlyWorkbookInTheUsersOwnFolderIsReplaced) {
    testutil::WriteFile(sData, kItem);
    testutil::WriteFile((dataDir / "wb.xlsx").string(), "old");
    fs::permissions(dataDir / "wb.xlsx", fs::perms::owner_read | fs::perms::group_read);
    EXPECT_TRUE(Run(sData, sSettings, SetupXml("wb"))) << Joined(Log());
    EXPECT_EQ(ReadBack((dataDir / "wb.xlsx").string()).rfind("OK\n", 0), 0u);
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml", "wb.xlsx"}));
}

TEST_F(ReliabilityTest, AnEarlierWorkbookThatCannotBeDeletedFailsTheExport) {
    // Another user's read-only file in a shared (sticky) folder cannot be deleted.
    fs::permissions(tmp.Path(), fs::perms::all);
    for (const auto& e : fs::recursive_directory_iterator(tmp.Path()))
        fs::permissions(e.path(), fs::perms::all);
    testutil::WriteFile(sData, kItem);
    fs::permissions(sData, fs::perms::all);
    ::chmod(dataDir.c_str(), 01777);
    testutil::WriteFile((dataDir / "wb.xlsx").string(), "old");
    fs::permissions(dataDir / "wb.xlsx", fs::perms::owner_read | fs::perms::others_read);
    const std::string sSet = (tmp.Path() / "settings.xml").string();
    testutil::WriteFile(sSet, testutil::ReadFile(sSettings));
    fs::permissions(sSet, fs::perms::all);
    bool bSkipped = false;
    const bool b = RunAsNobody([&] { return Run(sData, sSet, SetupXml("wb")); }, bSkipped);
    if (bSkipped) GTEST_SKIP() << "cannot run as an unprivileged user here";
    EXPECT_FALSE(b);
    EXPECT_TRUE(LogHas("Permission denied 70 ")) << Joined(Log());
    EXPECT_EQ(testutil::ReadFile((dataDir / "wb.xlsx").string()), "old");
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml", "wb.xlsx"}));
}

TEST_F(ReliabilityTest, AFolderThatCannotBeWrittenFailsTheExport) {
    fs::permissions(tmp.Path(), fs::perms::all);
    for (const auto& e : fs::recursive_directory_iterator(tmp.Path()))
        fs::permissions(e.path(), fs::perms::all);
    testutil::WriteFile(sData, kItem);
    fs::permissions(sData, fs::perms::all);
    fs::permissions(dataDir, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                 fs::perms::others_read | fs::perms::others_exec);
    const std::string sSet = (tmp.Path() / "settings.xml").string();
    testutil::WriteFile(sSet, testutil::ReadFile(sSettings));
    fs::permissions(sSet, fs::perms::all);
    bool bSkipped = false;
    const bool b = RunAsNobody([&] { return Run(sData, sSet, SetupXml("wb")); }, bSkipped);
    if (bSkipped) GTEST_SKIP() << "cannot run as an unprivileged user here";
    EXPECT_FALSE(b);
    EXPECT_TRUE(LogHas("Run-time error: Cannot write '" + (dataDir / "wb.xlsx").string() +
                       "': Permission denied 1004 "))
        << Joined(Log());
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml"}));
}

namespace {

// The one log line of a workbook path that names a file of the export.
std::string GuardLine(const std::string& sOutput, const std::string& sWhat) {
    return "^The workbook path " +
           std::regex_replace(sOutput, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)") +
           " names the " + sWhat + " of the export: nothing was deleted or written\\. " +
           testutil::kDateTimeRegex + "$";
}

// Changes the working folder for the life of the object.
class ScopedCwd {
public:
    explicit ScopedCwd(const fs::path& p) : old_(fs::current_path()) { fs::current_path(p); }
    ~ScopedCwd() { fs::current_path(old_); }

private:
    fs::path old_;
};

}  // namespace

TEST_F(ReliabilityTest, AWorkbookNamedLikeTheDataFileIsNotWrittenOverIt) {
    const std::string sIn = (dataDir / "in.xml").string();
    testutil::WriteFile(sIn, kItem);
    {
        // The data file by its bare name, an empty caption and the extension ".xml".
        ScopedCwd oCwd(dataDir);
        EXPECT_FALSE(Run("in.xml", sSettings, SetupXml(""), ".xml"));
    }
    EXPECT_FALSE(Run(sIn, sSettings, SetupXml("in"), ".xml"));
    const std::vector<std::string> arr = Log();
    ASSERT_EQ(arr.size(), 2u) << Joined(arr);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex(GuardLine("in.xml", "data file")))) << arr[0];
    EXPECT_TRUE(std::regex_match(arr[1], std::regex(GuardLine(sIn, "data file")))) << arr[1];
    EXPECT_EQ(testutil::ReadFile(sIn), kItem);
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"in.xml"}));
}

TEST_F(ReliabilityTest, AWorkbookNamedLikeTheSettingsFileIsNotWrittenOverIt) {
    testutil::WriteFile(sData, kItem);
    const std::string sSet = (dataDir / "settings.xml").string();
    const std::string sSettingsText = testutil::ReadFile(sSettings);
    testutil::WriteFile(sSet, sSettingsText);
    EXPECT_FALSE(Run(sData, sSet, SetupXml("settings"), ".xml"));
    // The same file reached through a linked folder.
    fs::create_directory_symlink(dataDir, tmp.Path() / "link");
    const std::string sLinkedData = (tmp.Path() / "link" / "export.xml").string();
    EXPECT_FALSE(Run(sLinkedData, sSet, SetupXml("settings"), ".xml"));
    const std::vector<std::string> arr = Log();
    ASSERT_EQ(arr.size(), 2u) << Joined(arr);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex(GuardLine(sSet, "settings file")))) << arr[0];
    EXPECT_TRUE(std::regex_match(
        arr[1],
        std::regex(GuardLine((tmp.Path() / "link" / "settings.xml").string(), "settings file"))))
        << arr[1];
    EXPECT_EQ(testutil::ReadFile(sSet), sSettingsText);
    EXPECT_EQ(FilesIn(dataDir), (std::vector<std::string>{"export.xml", "settings.xml"}));
}

TEST_F(ReliabilityTest, AWorkbookNamedLikeTheLogFileIsNotWrittenOverIt) {
    // A data file in the export folder, and a caption and extension that name the log.
    const std::string sInExportDir = sExportDir + "export.xml";
    testutil::WriteFile(sInExportDir, kItem);
    const std::string sLog = sExportDir + "ExportExcel.log";
    EXPECT_FALSE(Run(sInExportDir, sSettings, SetupXml("ExportExcel"), ".log"));
    std::vector<std::string> arr = Log();
    ASSERT_EQ(arr.size(), 1u) << Joined(arr);
    EXPECT_TRUE(std::regex_match(arr[0], std::regex(GuardLine(sLog, "log file")))) << arr[0];
    // An existing log keeps what it holds; the line is added.
    EXPECT_FALSE(Run(sInExportDir, sSettings, SetupXml("ExportExcel"), ".log"));
    arr = Log();
    ASSERT_EQ(arr.size(), 2u) << Joined(arr);
    EXPECT_TRUE(std::regex_match(arr[1], std::regex(GuardLine(sLog, "log file")))) << arr[1];
    EXPECT_EQ(FilesIn(sExportDir), (std::vector<std::string>{"ExportExcel.log", "export.xml"}));
    EXPECT_EQ(testutil::ReadFile(sInExportDir), kItem);
}

TEST_F(ReliabilityTest, AWorkbookBesideTheInputsIsStillWritten) {
    testutil::WriteFile(sData, kItem);
    const std::string sSet = (dataDir / "settings.xml").string();
    testutil::WriteFile(sSet, testutil::ReadFile(sSettings));
    EXPECT_TRUE(Run(sData, sSet, SetupXml("settings"), ".xlsx")) << Joined(Log());
    EXPECT_EQ(FilesIn(dataDir),
              (std::vector<std::string>{"export.xml", "settings.xlsx", "settings.xml"}));
}
