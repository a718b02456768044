// A workbook that cannot be saved: a full disk during the final save, a folder that vanishes
// before it. The call's result stays what filling made it, the log line names the cause, the
// workbook's state says it did not reach the disk, and nothing of the save is left. Temporary
// files that a killed save left behind are swept by the next export into that folder.
#include <cerrno>
#include <iostream>
#include <regex>

#include "ReliabilityFixture.h"
#include "driver/clsExportExcel.h"
#include "support/modSaveFile.h"

using namespace reliability;
using namespace std::chrono_literals;

namespace {

// A structure of 3,000 parts: the top item and 2,999 children. Its sheet takes about 6 MB.
std::string PartStructure() {
    std::string sParts;
    for (int i = 1; i < 3000; ++i) {
        sParts += "<Item_PS find_number=\"" + std::to_string(i * 10) + "\" quantity=\"1\">";
        sParts += ItemXml("P-" + std::to_string(i), "part " + std::to_string(i));
        sParts += "</Item_PS>";
    }
    return "<Root_Element>" + ItemXml("TOP", "d", sParts) + "</Root_Element>";
}

// The second save of the process fails as if the disk were full: the first one writes the empty
// workbook, the second is the final save.
std::atomic<long> g_nSaves{0};
int FailTheSecondSave(const std::string&) {
    return ++g_nSaves == 2 ? ENOSPC : 0;
}

class ScopedSaveFault {
public:
    explicit ScopedSaveFault(modSaveFile::SaveFaultFn fn) {
        g_nSaves = 0;
        modSaveFile::SetSaveFaultForTests(fn);
    }
    ~ScopedSaveFault() { modSaveFile::SetSaveFaultForTests(nullptr); }
};

// What one export reports about itself and its folder, one fact per line.
std::string ExportReport(const std::string& sData, const std::string& sSettings,
                         const std::string& sSetup, const fs::path& dataDir) {
    clsExportExcel o;
    const bool b = o.ParseMain(sData, sSettings, sSetup, ".xlsx");
    const clsWorkbookState st = o.LastWorkbookState();
    return "result=" + std::to_string(b) + "\nwritten=" + std::to_string(st.bWritten) +
           "\npath=" + st.sPath + "\nfailure=" + st.sFailure +
           "\nlastpath=" + o.LastWorkbookPath() + "\nfiles=" + testutil::NamesIn(dataDir) +
           "\nopen=" + testutil::OpenFilesIn(dataDir) + "\n";
}

std::string ExpectedReport(const fs::path& dataDir, const std::string& sReason) {
    return "result=1\nwritten=0\npath=" + (dataDir / "wb.xlsx").string() + "\nfailure=" + sReason +
           "\nlastpath=\nfiles=export.xml\nopen=\n";
}

// The one log line of a final save that failed with sReason.
void ExpectSaveFailureLine(const std::vector<std::string>& arr, const fs::path& dataDir,
                           const std::string& sReason) {
    ASSERT_EQ(arr.size(), 1u) << Joined(arr);
    const std::regex re("Run-time error: Cannot write '" + (dataDir / "wb.xlsx").string() +
                        "': " + sReason + " 1004 " + testutil::kDateTimeRegex +
                        R"( in orvExportExcel:clsBldExcel\[ExitExl\])");
    EXPECT_TRUE(std::regex_match(arr[0], re)) << arr[0];
}

}  // namespace

TEST_F(ReliabilityTest, AFullDiskDuringTheFinalSaveIsReportedWithItsCause) {
    const std::string sStructure = PartStructure();
    std::string sReport;
    const bool bMounted = testutil::RunOnSmallDisk(
        dataDir, 2L << 20,
        [&] {
            testutil::WriteFile(sData, sStructure);
            return ExportReport(sData, sSettings, SetupXml("wb"), dataDir);
        },
        sReport);
    if (!bMounted) {
        // No tmpfs here: the writer's last write fails as it would on a full disk.
        std::cout << "[ NOTE ] " << sReport << "; the save fails through the test seam\n";
        ScopedSaveFault oFault(FailTheSecondSave);
        testutil::WriteFile(sData, sStructure);
        sReport = ExportReport(sData, sSettings, SetupXml("wb"), dataDir);
    }
    // Filling succeeded, so the call's result is true; the state says the workbook is not there.
    EXPECT_EQ(sReport, ExpectedReport(dataDir, "No space left on device"));
    ExpectSaveFailureLine(Log(), dataDir, "No space left on device");
}

TEST_F(ReliabilityTest, AFolderThatVanishesBeforeTheFinalSaveIsReportedWithItsCause) {
    bool bRemoved = false;
    fnProgress = [&](const clsProgress& p) {
        if (p.eStage == clsProgress::Stage::Writing && !bRemoved) {
            bRemoved = true;
            fs::remove_all(dataDir);
        }
    };
    testutil::WriteFile(sData, ItemCollection(50));
    clsExportExcel o;
    o.SetProgressObserver(fnProgress);
    EXPECT_TRUE(o.ParseMain(sData, sSettings, SetupXml("wb", "Item", "COLLECTION"), ".xlsx"));
    ASSERT_TRUE(bRemoved);
    const clsWorkbookState st = o.LastWorkbookState();
    EXPECT_FALSE(st.bWritten);
    EXPECT_EQ(st.sPath, (dataDir / "wb.xlsx").string());
    EXPECT_EQ(st.sFailure, "No such file or directory");
    EXPECT_EQ(o.LastWorkbookPath(), "");
    ExpectSaveFailureLine(Log(), dataDir, "No such file or directory");
    EXPECT_FALSE(fs::exists(dataDir));
}

TEST_F(ReliabilityTest, AFirstSaveThatFailsNamesItsCauseInTheState) {
    testutil::WriteFile(sData, ItemCollection(5));
    fs::create_directories(dataDir / "wb.xlsx" / "inside");
    clsExportExcel o;
    EXPECT_FALSE(o.ParseMain(sData, sSettings, SetupXml("wb", "Item", "COLLECTION"), ".xlsx"));
    const clsWorkbookState st = o.LastWorkbookState();
    EXPECT_FALSE(st.bWritten);
    EXPECT_EQ(st.sPath, (dataDir / "wb.xlsx").string());
    EXPECT_EQ(st.sFailure, "Is a directory");
}

TEST_F(ReliabilityTest, AWorkbookThatReachedTheDiskSaysSo) {
    testutil::WriteFile(sData, ItemCollection(5));
    clsExportExcel o;
    EXPECT_TRUE(o.ParseMain(sData, sSettings, SetupXml("wb", "Item", "COLLECTION"), ".xlsx"));
    const clsWorkbookState st = o.LastWorkbookState();
    EXPECT_TRUE(st.bWritten);
    EXPECT_EQ(st.sPath, (dataDir / "wb.xlsx").string());
    EXPECT_EQ(st.sFailure, "");
    EXPECT_EQ(o.LastWorkbookPath(), st.sPath);
    // The next call starts afresh: no workbook is started without a data file.
    EXPECT_FALSE(o.ParseMain(sData + ".missing", sSettings, SetupXml("wb"), ".xlsx"));
    EXPECT_EQ(o.LastWorkbookState().sPath, "");
    EXPECT_FALSE(o.LastWorkbookState().bWritten);
}

TEST_F(ReliabilityTest, AStaleTemporaryFileIsSweptByTheNextExportIntoItsFolder) {
    // What a save killed an hour ago left, what a save running now writes, and files not ours.
    const auto fnAged = [&](const std::string& sName, fs::file_time_type::duration tAge) {
        testutil::WriteFile((dataDir / sName).string(), "x");
        fs::last_write_time(dataDir / sName, fs::file_time_type::clock::now() - tAge);
    };
    fnAged(".wb.xlsx.~4242-17-0.tmp", 2h);
    fnAged(".other.xlsx.~4343-18-2.tmp", 1min);
    fnAged(".wb.xlsx.tmp", 2h);
    fnAged("notes.tmp", 2h);
    EXPECT_TRUE(RunData(ItemCollection(5), SetupXml("wb", "Item", "COLLECTION"))) << Joined(Log());
    EXPECT_EQ(FilesIn(dataDir),
              (std::vector<std::string>{".other.xlsx.~4343-18-2.tmp", ".wb.xlsx.tmp", "export.xml",
                                        "notes.tmp", "wb.xlsx"}));
    EXPECT_EQ(ReadBack((dataDir / "wb.xlsx").string()).rfind("OK\n", 0), 0u);
}
